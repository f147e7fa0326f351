// lfdayfill STORE [FIRSTYEAR [YEARS [ROUNDS]]]
//
// Times the day view on the busiest day of a calendar store, in this process: the real
// program is started on STORE (its window, rendering thread and calendar server), the
// engine finds the day with the most appointments among YEARS years from FIRSTYEAR, and
// then, ROUNDS times each:
//
//   engine query   the engine's own one-day query for that day, on a copy of the store the
//                  bench loads itself: the floor any day view stands on
//   open           the day view opened on that day until its modal loop first waits for
//                  input: the dialog, the list's fill through the server, the showing
//   fill           the list filled again for the day, as the arrow keys and a change do
//
// and prints the medians side by side with their ratios.
#include "common/appstate.h"
#include "dayview/daylist.h"
#include "dayview/dayview.h"
#include "resources/resource.h"
#include "support/winbench.h"

#include "ical.h"

#include <commctrl.h>

#include <cstdio>
#include <string>
#include <vector>

struct BusiestDay {
    int year = 0, month = 0, day = 0;
    int appointments = 0;
};

// The day with the most appointments touching it, by one engine query a month.
static BusiestDay FindBusiestDay(lfical::Store &store, const lfical::Zone &zone, int firstYear, int years)
{
    BusiestDay best;
    for (int y = firstYear; y < firstYear + years; y++)
        for (int m = 1; m <= 12; m++) {
            int length = lfical::daysInMonth(y, m);
            int64_t first = lfical::daysFromCivil(y, m, 1);
            std::vector<int> count(length, 0);
            auto occurrences = store.query(zone, lfical::civilSeconds(y, m, 1), lfical::civilSeconds(y, m, length),
                                           lfical::Range::WholeDays);
            for (const auto &o : occurrences) {
                int64_t from = lfical::floorDiv(o.start, lfical::kDay) - first;
                int64_t last = o.end > o.start ? o.end - 1 : o.start; // an end at midnight is the day before's
                int64_t to = lfical::floorDiv(last, lfical::kDay) - first;
                for (int64_t d = from < 0 ? 0 : from; d <= to && d < length; d++)
                    count[(size_t)d]++;
            }
            for (int d = 0; d < length; d++)
                if (count[(size_t)d] > best.appointments)
                    best = {y, m, d + 1, count[(size_t)d]};
        }
    return best;
}

struct DayRun {
    BusiestDay day;
    int rounds = 0;
    double openStart = 0;
    std::vector<double> open, fill;
    int rows = 0;
};
static DayRun g_run;

static BOOL CALLBACK FindDayView(HWND wnd, LPARAM found)
{
    if (GetDlgItem(wnd, IDC_DAYLIST)) {
        *reinterpret_cast<HWND *>(found) = wnd;
        return FALSE;
    }
    return TRUE;
}

// Runs once the day view's modal loop is idle: the opening is over; fill the list again,
// then close the day view as its close button does.
static void CALLBACK DayViewIdle(HWND, UINT, UINT_PTR timer, DWORD)
{
    KillTimer(nullptr, timer);
    g_run.open.push_back(NowMs() - g_run.openStart);
    HWND dlg = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), FindDayView, reinterpret_cast<LPARAM>(&dlg));
    if (!dlg)
        return;
    HWND list = GetDlgItem(dlg, IDC_DAYLIST);
    double t0 = NowMs();
    FillDayList(list, g_run.day.month, g_run.day.day, g_run.day.year);
    g_run.fill.push_back(NowMs() - t0);
    g_run.rows = (int)SendMessageW(list, LVM_GETITEMCOUNT, 0, 0);
    EndDialog(dlg, 0);
}

static std::string AnsiPath(const wchar_t *path)
{
    char buffer[MAX_PATH * 4] = {};
    WideCharToMultiByte(CP_ACP, 0, path, -1, buffer, sizeof buffer, nullptr, nullptr);
    return buffer;
}

int wmain(int argc, wchar_t **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: lfdayfill STORE [FIRSTYEAR [YEARS [ROUNDS]]]\n"
                        "  STORE      an .ics file or a folder (Wine: Z:\\path\\to\\large.ics)\n"
                        "  FIRSTYEAR  first year searched for the busiest day (default 2010)\n"
                        "  YEARS      years searched (default 20), ROUNDS openings (default 9)\n");
        return 2;
    }
    int firstYear = argc > 2 ? _wtoi(argv[2]) : 2010;
    int years = argc > 3 ? _wtoi(argv[3]) : 20;
    int rounds = argc > 4 ? _wtoi(argv[4]) : 9;
    if (firstYear < 1601 || firstYear > 9998 || years < 1 || years > 100 || rounds < 1 || rounds > 100) {
        fprintf(stderr, "lfdayfill: FIRSTYEAR 1601-9998, YEARS 1-100, ROUNDS 1-100\n");
        return 2;
    }

    // The engine's own copy, in the bench's own clock: the day's answer does not depend on it.
    lfical::Store store;
    std::vector<lfical::Problem> problems;
    double t0 = NowMs();
    if (!store.load(AnsiPath(argv[1]), &problems)) {
        fprintf(stderr, "lfdayfill: the engine could not read %ls\n", argv[1]);
        return 1;
    }
    printf("engine loaded the store in %.0f ms\n", NowMs() - t0);
    lfical::Zone zone = lfical::Zone::utc();
    g_run.day = FindBusiestDay(store, zone, firstYear, years);
    if (!g_run.day.appointments) {
        fprintf(stderr, "lfdayfill: no appointments from %d to %d\n", firstYear, firstYear + years - 1);
        return 1;
    }
    printf("busiest day %d-%02d-%02d: %d appointments\n", g_run.day.year, g_run.day.month, g_run.day.day,
           g_run.day.appointments);

    if (!StartProgramOn(L"lfdayfill", argv[1]))
        return 1;
    g_app.viewMonth = g_run.day.month;
    g_app.viewYear = g_run.day.year;

    std::vector<double> engine;
    int64_t dayStart = lfical::civilSeconds(g_run.day.year, g_run.day.month, g_run.day.day);
    // One untimed opening first, for what the first use loads.
    for (int round = -1; round < rounds; round++) {
        double q0 = NowMs();
        size_t found = store.query(zone, dayStart, dayStart, lfical::Range::WholeDays).size();
        double q = NowMs() - q0;
        g_run.openStart = NowMs();
        SetTimer(nullptr, 0, 0, DayViewIdle);
        ShowDayView(g_app.hwndMain, g_run.day.day);
        if (round < 0) {
            g_run.open.clear();
            g_run.fill.clear();
            printf("the engine's one-day query finds %u; the day view shows %d rows\n", (unsigned)found, g_run.rows);
            continue;
        }
        engine.push_back(q);
    }
    if (g_run.open.size() != (size_t)rounds || g_run.fill.size() != (size_t)rounds) {
        fprintf(stderr, "lfdayfill: the day view did not open every round\n");
        return 1;
    }

    double e = Median(engine), open = Median(g_run.open), fill = Median(g_run.fill);
    printf("%d rounds, medians:\n", rounds);
    printf("  %-34s %10.3f ms\n", "engine's one-day query", e);
    printf("  %-34s %10.3f ms  (%.0f x the engine)\n", "day view fill, through the server", fill, fill / e);
    printf("  %-34s %10.3f ms  (%.0f x the engine)\n", "day view opened until idle", open, open / e);
    fflush(stdout);
    DestroyWindow(g_app.hwndMain);
    return 0;
}
