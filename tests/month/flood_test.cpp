// A store with series that flood days (a rule every minute, one every 30
// seconds, series a minute apart that overlap each other): the month view
// draws those days exactly as a walk over every occurrence does, and the day
// list shows the other appointments and says when it shows only part of a day.
//
// The same occurrences are written twice: as the flooding series in March
// 2032, and one by one as single appointments in March 2060, whose calendar
// is the same (28 years on). No day of 2060 floods, so its month pass walks
// every occurrence; the two passes must draw the same grid.
#include "../dayview/daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "dayview/daylist.h"
#include "dayview/daypopup.h"
#include "resource.h"

#include <gtest/gtest.h>
#include <commctrl.h>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

struct Flood {
    const char *uid;
    int day, startMinute, lengthSeconds, everySeconds, count;
    const char *categories;
};
// In file order, which is also the order singles of equal times keep.
const Flood kFloods[] = {
    {"minutely", 9, 0, 60, 60, 2880, "Business"},
    {"five-a", 9, 360, 300, 60, 600, ""},
    {"five-b", 9, 361, 300, 60, 600, ""},
    {"night", 9, 1320, 300, 60, 240, "Travel"}, // 22:00 to 02:00, across midnight
    {"seconds", 10, 480, 0, 30, 1440, "Personal"},
    {"late", 12, 0, 60, 60, 300, ""},
};

std::string Stamp(int year, int day, long long seconds)
{
    long long d = day + seconds / 86400, s = seconds % 86400;
    char text[32];
    snprintf(text, sizeof text, "%04d03%02lldT%02lld%02lld%02lld", year, d, s / 3600, s / 60 % 60, s % 60);
    return text;
}

std::string FloodStore()
{
    std::string ics;
    for (const Flood &f : kFloods) {
        std::string cats = f.categories[0] ? std::string("CATEGORIES:") + f.categories + "\r\n" : "";
        long long first = f.startMinute * 60LL;
        char rule[80];
        snprintf(rule, sizeof rule, "RRULE:FREQ=SECONDLY;INTERVAL=%d;COUNT=%d\r\n", f.everySeconds, f.count);
        ics += Event(f.uid, Stamp(2032, f.day, first), Stamp(2032, f.day, first + f.lengthSeconds),
                     rule + cats + "SUMMARY:" + f.uid + "\r\n");
        for (int n = 0; n < f.count; n++) {
            long long at = first + (long long)n * f.everySeconds;
            ics += Event(std::string("one-") + f.uid + "-" + std::to_string(n), Stamp(2060, f.day, at),
                         Stamp(2060, f.day, at + f.lengthSeconds), cats + "SUMMARY:" + f.uid + "\r\n");
        }
    }
    for (int year : {2032, 2060}) {
        std::string y = std::to_string(year);
        ics += Event("meeting-" + y, y + "0309T100000", y + "0309T110000", "CATEGORIES:Travel\r\nSUMMARY:meeting\r\n");
        ics += Event("call-" + y, y + "0310T143010", y + "0310T143020", "SUMMARY:call\r\n");
        ics += Event("trip-" + y, y + "0311T200000", y + "0312T080000", "SUMMARY:trip\r\n");
        ics += Event("daily-" + y, y + "0301", y + "0302",
                     "RRULE:FREQ=DAILY;COUNT=20\r\nCATEGORIES:Holiday\r\nSUMMARY:daily\r\n");
        ics += Event("quiet-" + y, y + "0313T090000", y + "0313T093000", "SUMMARY:quiet\r\n");
    }
    return ics;
}

std::vector<uint32_t> BackRows(int from, int to)
{
    std::vector<uint32_t> out;
    const uint32_t *p = static_cast<const uint32_t *>(g_app.backBits);
    for (int y = from; y < to; y++)
        for (int x = 0; x < g_app.backWidth; x++)
            out.push_back(p[(size_t)y * g_app.backWidth + x] & 0xFFFFFF);
    return out;
}

std::vector<uint32_t> Pass(int month, int year)
{
    g_app.viewMonth = month;
    g_app.viewYear = year;
    EXPECT_TRUE(RedrawAndWait());
    return BackRows(0, g_app.backHeight);
}

class Flooded : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(StartOnDayStore(FloodStore())); }
};

}  // namespace

TEST_F(Flooded, MonthDrawsAsTheFullWalk)
{
    AppSettings &s = g_app.settings;
    s.showdays = 1;
    s.showfree = 1;
    static const struct {
        const WCHAR *label;
        int icon;
    } kSlots[] = {{L"Business", 0}, {L"Personal", 1}, {L"Travel", 12}, {L"Holiday", 3}};
    for (int k = 0; k < 4; k++) {
        lstrcpynW(s.displayIconString[k], kSlots[k].label, ICON_LABEL_LEN);
        s.displayIcon[k] = (DWORD)kSlots[k].icon;
    }
    // Rows that differ between two empty months of the two years: the year in the header.
    std::vector<uint32_t> a = Pass(1, 2032), b = Pass(1, 2060);
    std::set<int> header;
    for (size_t i = 0; i < a.size(); i++)
        if (a[i] != b[i])
            header.insert((int)(i / g_app.backWidth));
    ASSERT_LT(header.size(), 40u) << "January 2032 and 2060 should differ only in the header";

    static const struct {
        const char *name;
        int indicator, icons, a, b, c, d, days;
    } kCases[] = {
        {"bars and icons", 1, 1, 12, 24, 34, 42, 1},
        {"half-hour bands", 1, 1, 16, 17, 18, 19, 1},
        {"whole-day bands", 1, 0, 0, 16, 32, 47, 1},
        {"the month's days only", 1, 1, 12, 24, 34, 42, 0},
        {"icons only", 0, 1, 12, 24, 34, 42, 1},
    };
    for (const auto &c : kCases) {
        s.showdays = c.days;
        s.showindicator = c.indicator;
        s.showholiday = c.icons;
        s.timeA = c.a, s.timeB = c.b, s.timeC = c.c, s.timeD = c.d;
        std::vector<uint32_t> flooded = Pass(3, 2032), full = Pass(3, 2060);
        int differing = 0;
        for (size_t i = 0; i < flooded.size(); i++)
            if (flooded[i] != full[i] && !header.count((int)(i / g_app.backWidth)))
                differing++;
        EXPECT_EQ(differing, 0) << c.name << ": the flooded March draws other pixels than the full walk";
        if (differing) {
            SaveBackBuffer(L"flood-full.bmp");
            Pass(3, 2032);
            SaveBackBuffer(L"flood-thinned.bmp");
        }
    }
}

TEST_F(Flooded, DayListSaysItShowsPartOfTheDay)
{
    static const struct {
        const char *name;
        Day day;
        const wchar_t *mustShow;
        bool part;
    } kCases[] = {
        {"minute series and a meeting", {3, 9, 2032}, L"meeting", true},
        {"30-second series and a call", {3, 10, 2032}, L"call", true},
        {"a day the trip reaches", {3, 12, 2032}, L"trip", true},
        {"a quiet day", {3, 13, 2032}, L"quiet", false},
        {"the same occurrences one by one", {3, 12, 2060}, L"trip", false},
    };
    for (const auto &c : kCases) {
        RunDayView(c.day, [&](HWND, HWND list) {
            int rows = RowCount(list);
            bool shown = false;
            std::wstring note;  // the rows of no appointment, a line each
            for (int r = 0; r < rows; r++) {
                shown |= CellText(list, r, 2) == c.mustShow;
                if (DayRowItem(list, r) == PART_OF_DAY_ITEM)
                    note += (note.empty() ? L"" : L"\n") + CellText(list, r, 2);
            }
            EXPECT_TRUE(shown) << c.name;
            EXPECT_EQ(note, c.part ? kPartOfDayText : L"") << c.name;
            if (c.part) {
                EXPECT_EQ(DayRowItem(list, rows - 1), PART_OF_DAY_ITEM) << c.name << ": the last rows";
                EXPECT_LT(rows, 200) << c.name;
            }
        });
    }
}

// The day popup lists a flooded day as the day list does: a flooding series once per half hour,
// the other appointments, and a last row saying so; a quiet day has no such row.
TEST_F(Flooded, DayPopupSaysItShowsPartOfTheDay)
{
    Pass(3, 2032);
    static const struct {
        DWORD day;
        const wchar_t *mustShow;
        bool part;
    } kCases[] = {{10, L"call", true}, {13, L"quiet", false}};
    for (const auto &c : kCases) {
        int rows = 0;
        bool shown = false;
        std::wstring note; // the rows after the appointments, a line each
        RunUnshown([&] { return (INT_PTR)ShowDayPopup(g_app.hwndMain, c.day); },
                   [&](HWND dlg) {
                       HWND list = GetDlgItem(dlg, IDC_POPUPLIST);
                       rows = RowCount(list);
                       for (int r = 0; r < rows; r++) {
                           shown |= CellText(list, r, 1) == c.mustShow;
                           if (r >= rows - 3 && CellText(list, r, 0).empty())
                               note += (note.empty() ? L"" : L"\n") + CellText(list, r, 1);
                       }
                       EndDialog(dlg, 0);
                   });
        EXPECT_TRUE(shown) << c.day;
        EXPECT_EQ(note, c.part ? kPartOfDayText : L"") << c.day;
        if (c.part) {
            EXPECT_LT(rows, 200) << c.day;
        }
    }
}

// For looking at: with LF_SHOTS naming a folder, the flooded month and the end of a flooded
// day's list are written there.
TEST_F(Flooded, Screenshots)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    g_app.settings.showindicator = 1;
    g_app.settings.showholiday = 1;
    Pass(3, 2032);
    PumpMessages(300);
    EXPECT_TRUE(SaveScreenShot({g_app.hwndMain}, ShotPath("floodmonth")));
    RunDayView({3, 10, 2032}, [&](HWND dlg, HWND list) {
        SendMessageW(list, LVM_ENSUREVISIBLE, RowCount(list) - 1, FALSE);
        PumpMessages(300);
        EXPECT_TRUE(SaveScreenShot({dlg}, ShotPath("flooddaylist")));
    });
    Pass(3, 2032);
    RunScripted([&] { return (INT_PTR)ShowDayPopup(g_app.hwndMain, 10); },
                [&](HWND dlg) {
                    HWND list = GetDlgItem(dlg, IDC_POPUPLIST);
                    SendMessageW(list, LVM_ENSUREVISIBLE, RowCount(list) - 1, FALSE);
                    PumpMessages(300);
                    EXPECT_TRUE(SaveScreenShot({dlg}, ShotPath("flooddaypopup")));
                    SendMessageW(dlg, WM_COMMAND, IDM_POPUPCLOSE, 0);
                });
}
