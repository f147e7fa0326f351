// lfmonthpass STORE [YEAR [MONTHS [ROUNDS]]]
//
// Times the month view's drawing pass over a calendar store, in this
// process: the real program is started on STORE (its window, rendering
// thread and calendar server), then, for each of MONTHS months from
// January of YEAR, the pass is run in four ways, interleaved so that a
// drift of the machine touches all of them alike:
//
//   engine      the same three spans asked of the engine itself, on its
//               own copy of the store loaded by the bench in this process
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
//
// Then the two query ways again, each month after month on its own, as the
// engine's native benchmark (lfengine) asks them: the figure to set beside
// the native one.
//
// Before the passes it times the logon: a fresh application object of the
// calendar server opening the store (LOGONS times), beside the engine's own
// load of the same file in this process.
#include "shell/shell.h"
#include "shell/render.h"
#include "common/appstate.h"
#include "month/monthgrid.h"
#include "store/store.h"
#include "calendar/dates.h"
#include "support/winbench.h"

#include "ical.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

enum { WAY_ENGINE, WAY_QUERIES, WAY_READS, WAY_GRID, WAY_ICONS, WAY_INDICATORS, WAYS };
static const char *const kWayNames[WAYS] = {"engine's three queries", "three queries alone", "queries + reads",
                                            "grid only", "icons only", "indicators + icons"};

// The bench's own copy of the store, for the engine's answers.
static lfical::Store g_engine;
static const lfical::Zone g_zone = lfical::Zone::utc();

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

// The grid's three spans asked of the engine: the leading days, the
// month, the trailing days, each by whole days.
static long EngineQueries(int month, int year)
{
    int s = WeekdayColumn(month, 1, year), length = MonthLength(month, year);
    int64_t first = lfical::civilSeconds(year, month, 1);
    int64_t last = lfical::civilSeconds(year, month, length);
    const int64_t day = lfical::kDay;
    long found = 0;
    if (s)
        found += (long)g_engine.query(g_zone, first - s * day, first - day, lfical::Range::WholeDays).size();
    found += (long)g_engine.query(g_zone, first, last, lfical::Range::WholeDays).size();
    found += (long)g_engine.query(g_zone, last + day, last + (42 - s - length) * day, lfical::Range::WholeDays).size();
    return found;
}

// A fresh application object of the calendar server logging on to the
// store the program has open (each application object reads it anew).
static double TimeLogon()
{
    IPOutlookApp *app = nullptr;
    double t0 = NowMs();
    if (FAILED(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                reinterpret_cast<void **>(&app))) ||
        FAILED(app->Logon(0))) {
        if (app)
            app->Release();
        return -1;
    }
    double ms = NowMs() - t0;
    app->Logoff();
    app->Release();
    return ms;
}

static std::string AnsiPath(const wchar_t *path)
{
    char buffer[MAX_PATH * 4] = {};
    WideCharToMultiByte(CP_ACP, 0, path, -1, buffer, sizeof buffer, nullptr, nullptr);
    return buffer;
}

// One pass, or the queries alone, for the month; milliseconds.
static double TimeWay(int way, int month, int year, long *walked)
{
    if (way == WAY_ENGINE) {
        double t0 = NowMs();
        *walked = EngineQueries(month, year);
        return NowMs() - t0;
    }
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

    std::vector<double> loads, logons;
    for (int i = 0; i < 3; i++) {
        std::vector<lfical::Problem> problems;
        lfical::Store fresh;
        double t0 = NowMs();
        if (!fresh.load(AnsiPath(argv[1]), &problems)) {
            fprintf(stderr, "lfmonthpass: the engine could not read %ls\n", argv[1]);
            return 1;
        }
        loads.push_back(NowMs() - t0);
        double logon = TimeLogon();
        if (logon < 0) {
            fprintf(stderr, "lfmonthpass: a second logon to the calendar server failed\n");
            return 1;
        }
        logons.push_back(logon);
    }
    {
        std::vector<lfical::Problem> problems;
        g_engine.load(AnsiPath(argv[1]), &problems);
    }
    printf("logon through the server %.1f ms, the engine's load %.1f ms (medians of 3): logon / load %.2f\n",
           Median(logons), Median(loads), Median(logons) / Median(loads));

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
    // The slowest month is what a store that floods one month is judged by.
    printf("%-22s %12s %12s %12s %12s\n", "ms per month pass", "median", "mean", "slowest", "total");
    for (int way = 0; way < WAYS; way++)
        printf("%-22s %12.2f %12.2f %12.2f %12.1f\n", kWayNames[way], Median(times[way]),
               Sum(times[way]) / times[way].size(), *std::max_element(times[way].begin(), times[way].end()),
               Sum(times[way]));
    // The queries again as the engine's own benchmark times them natively:
    // month after month with nothing between, so that the server's walk and
    // the engine find the store as warm as the native run does. Between the
    // passes above, the drawing has pushed the store out of the caches.
    std::vector<double> inTurn[2];
    for (int k = 0; k < 2; k++)
        for (int round = 0; round < rounds; round++)
            for (int i = 0; i < months; i++)
                inTurn[k].push_back(TimeWay(k ? WAY_QUERIES : WAY_ENGINE, 1 + i % 12, year + i / 12, &walked));
    printf("three queries month after month: through the server %.3f ms, the engine's %.3f ms (medians); "
           "through the server / engine %.1f\n",
           Median(inTurn[1]), Median(inTurn[0]), Median(inTurn[1]) / Median(inTurn[0]));
    double engine = Median(times[WAY_ENGINE]), server = Median(times[WAY_QUERIES]);
    double pass = Median(times[WAY_INDICATORS]), gridOnly = Median(times[WAY_GRID]);
    printf("whole pass (indicators + icons) %.2f ms beside the engine's three queries %.2f ms and the grid "
           "only %.2f ms (medians); queries through the server / engine %.1f, pass / engine %.1f\n",
           pass, engine, gridOnly, server / engine, pass / engine);
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
