// lfmonthpass STORE [YEAR [MONTHS [ROUNDS]]]
//
// Times the month view's drawing pass over a calendar store, in this
// process: the real program is started on STORE (its window, rendering
// thread and calendar server), then, for each of MONTHS months from
// January of YEAR, the pass is run in four ways, interleaved so that a
// drift of the machine touches all of them alike:
//
//   queries     the three month queries alone (leading days, the month,
//               trailing days), walking every appointment and reading none
//   reads       the same, reading of each appointment what the pass reads
//               (start, end, all-day, busy status, categories)
//   grid        the grid only (showindicator 0, showholiday 0)
//   icons       the icons-only form (showindicator 0, showholiday 1)
//   indicators  the bar form with icons (showindicator 1, showholiday 1)
//
// A pass is what the rendering thread does for a month: clear the buffer
// and draw the grid, which ends with the chosen form. It is run here on
// the bench's own thread, under the render lock while the rendering
// thread sleeps, so its time is measured without the thread hand-over.
// Every neighbouring day is shown (showdays 1), the grid's largest span.
#include "shell/shell.h"
#include "shell/render.h"
#include "common/appstate.h"
#include "month/monthgrid.h"
#include "store/store.h"
#include "calendar/dates.h"
#include "support/winbench.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

enum { WAY_QUERIES, WAY_READS, WAY_GRID, WAY_ICONS, WAY_INDICATORS, WAYS };
static const char *const kWayNames[WAYS] = {"three queries alone", "queries + reads", "grid only", "icons only",
                                            "indicators + icons"};

static int CountVisit(IAppointment *, void *context)
{
    ++*static_cast<long *>(context);
    return 1;
}

static int ReadVisit(IAppointment *item, void *context)
{
    AppointmentTimes t;
    ReadAppointmentTimes(item, &t);
    BSTR categories = nullptr;
    if (SUCCEEDED(item->get_Categories(&categories)))
        FreeStoreString(categories);
    ++*static_cast<long *>(context);
    return 1;
}

// The month's three queries over the six rows of the grid, as the pass
// asks them; returns the appointments they walked.
static long RunQueries(int month, int year, AppointmentVisitor visit)
{
    int s = WeekdayColumn(month, 1, year), length = MonthLength(month, year);
    int pm = month == 1 ? 12 : month - 1, py = month == 1 ? year - 1 : year;
    int nm = month == 12 ? 1 : month + 1, ny = month == 12 ? year + 1 : year;
    SYSTEMTIME first = SystemDate(month, 1, year), last = SystemDate(month, length, year);
    SYSTEMTIME firstShown = s ? SystemDate(pm, MonthLength(pm, py) - s + 1, py) : first;
    SYSTEMTIME lastShown = SystemDate(nm, 42 - s - length, ny);
    long walked = 0;
    QueryAppointments(firstShown, first, RestrictOverlapBeforeSecond, visit, &walked, QUERY_RENDERING);
    QueryAppointments(first, last, RestrictOverlapClosed, visit, &walked, QUERY_RENDERING);
    QueryAppointments(last, lastShown, RestrictOverlapAfterFirst, visit, &walked, QUERY_RENDERING);
    return walked;
}

// One pass, or the queries alone, for the month; milliseconds.
static double TimeWay(int way, int month, int year, long *walked)
{
    AppSettings &s = g_app.settings;
    s.showindicator = way == WAY_INDICATORS ? 1 : 0;
    s.showholiday = way == WAY_ICONS || way == WAY_INDICATORS ? 1 : 0;
    g_app.viewMonth = month;
    g_app.viewYear = year;
    EnterCriticalSection(&g_app.renderLock);
    g_app.renderState = RENDER_DRAWING;
    double t0 = NowMs();
    int shown = 1;
    if (way == WAY_QUERIES || way == WAY_READS) {
        *walked = RunQueries(month, year, way == WAY_QUERIES ? CountVisit : ReadVisit);
    } else {
        PatBlt(g_app.backDC, 0, 0, g_app.clientWidth, g_app.clientHeight, WHITENESS);
        shown = DrawMonthGrid(g_app.backDC, month, 1, year);
    }
    double ms = NowMs() - t0;
    g_app.renderState = RENDER_SHOWN;
    LeaveCriticalSection(&g_app.renderLock);
    if (!shown)
        fprintf(stderr, "lfmonthpass: the pass for %d-%02d was not shown\n", year, month);
    // The passes invalidate the window per appointment; let it paint.
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&msg);
    return ms;
}

int wmain(int argc, wchar_t **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: lfmonthpass STORE [YEAR [MONTHS [ROUNDS]]]\n"
                        "  STORE  an .ics file or a folder (Wine: Z:\\path\\to\\large.ics)\n"
                        "  YEAR   first month's year (default 2020), MONTHS from January (default 12),\n"
                        "  ROUNDS passes per month and way (default 3)\n");
        return 2;
    }
    int year = argc > 2 ? _wtoi(argv[2]) : 2020;
    int months = argc > 3 ? _wtoi(argv[3]) : 12;
    int rounds = argc > 4 ? _wtoi(argv[4]) : 3;
    if (year < 1601 || year > 9998 || months < 1 || months > 120 || rounds < 1 || rounds > 100) {
        fprintf(stderr, "lfmonthpass: YEAR 1601-9998, MONTHS 1-120, ROUNDS 1-100\n");
        return 2;
    }
    if (!StartProgramOn(L"lfmonthpass", argv[1]))
        return 1;

    AppSettings &s = g_app.settings;
    s.showdays = 1;
    s.showfree = 1;
    static const WCHAR *const labels[] = {L"Business", L"Personal", L"Holiday", L"Meeting",
                                          L"Travel",   L"Birthday", L"(None)"};
    for (int k = 0; k < ICON_SLOTS; k++) {
        s.displayIconString[k][0] = 0;
        s.displayIcon[k] = (DWORD)k;
    }
    for (int k = 0; k < (int)(sizeof labels / sizeof labels[0]); k++)
        lstrcpynW(s.displayIconString[k], labels[k], ICON_LABEL_LEN);

    // One untimed round to load what the first use of each way loads.
    long walked = 0;
    for (int way = 0; way < WAYS; way++)
        TimeWay(way, 1, year, &walked);

    std::vector<double> times[WAYS];
    long appointments = 0;
    for (int round = 0; round < rounds; round++)
        for (int i = 0; i < months; i++) {
            int month = 1 + i % 12, y = year + i / 12;
            for (int way = 0; way < WAYS; way++) {
                times[way].push_back(TimeWay(way, month, y, &walked));
                if (way == WAY_QUERIES && round == 0)
                    appointments += walked;
            }
        }

    printf("%d months from %d-01, %d rounds, all neighbouring days shown; %.1f appointments walked per month\n",
           months, year, rounds, (double)appointments / months);
    printf("%-22s %12s %12s %12s\n", "ms per month pass", "median", "mean", "total");
    for (int way = 0; way < WAYS; way++)
        printf("%-22s %12.2f %12.2f %12.1f\n", kWayNames[way], Median(times[way]), Sum(times[way]) / times[way].size(),
               Sum(times[way]));
    double q = Sum(times[WAY_QUERIES]), reads = Sum(times[WAY_READS]), grid = Sum(times[WAY_GRID]);
    double icons = Sum(times[WAY_ICONS]), bars = Sum(times[WAY_INDICATORS]);
    double n = (double)times[WAY_QUERIES].size();
    printf("ratios (totals): indicators / grid %.1f, icons / grid %.1f, indicators / queries %.2f, "
           "icons / queries %.2f, indicators / (grid + reads) %.2f, icons / (grid + reads) %.2f\n",
           bars / grid, icons / grid, bars / q, icons / q, bars / (grid + reads), icons / (grid + reads));
    // What the forms add to the grid and the store's own answers: the
    // drawing, and the window invalidated per appointment.
    printf("beyond grid and reads, per month: indicators %.2f ms, icons %.2f ms "
           "(indicators: %.1f us per appointment)\n",
           (bars - grid - reads) / n, (icons - grid - reads) / n,
           appointments ? 1000.0 * (bars - grid - reads) / n / ((double)appointments / months) : 0.0);
    fflush(stdout);

    DestroyWindow(g_app.hwndMain);
    return 0;
}
