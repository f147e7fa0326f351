// The go-to-date popup, run from the program's own template over the running program and tapped
// from inside its modal loop as the user taps it.
#include "support/apphost.h"
#include "support/beeps.h"
#include "support/drive.h"
#include "dayview/gotodate.h"
#include "common/appstate.h"

#include <commctrl.h>
#include <functional>
#include <gtest/gtest.h>

class GoToDatePopupTest : public ::testing::Test {
  protected:
    void SetUp() override
    {
        owner = StartProgram();
        ASSERT_TRUE(owner);
    }
    HWND owner = nullptr;
};

struct Outcome {
    int answer = -1;
    int month = -1, day = -1, year = -1; // untouched: -1
};

static Outcome OpenPopup(HWND owner, int month, int day, int year,
                         const std::function<void(HWND dlg)> &script)
{
    Outcome o;
    auto show = [&] {
        o.answer = GoToDate(owner, month, day, year, &o.month, &o.day, &o.year);
        return (INT_PTR)o.answer;
    };
    RunScripted(show, script);
    return o;
}

static HWND CalendarOf(HWND dlg)
{
    return FindWindowExW(dlg, nullptr, MONTHCAL_CLASSW, nullptr);
}

static bool SameDate(const SYSTEMTIME &st, int month, int day, int year)
{
    return st.wMonth == month && st.wDay == day && st.wYear == year;
}

static bool Hits(HWND cal, int x, int y, UINT hit, int month, int day, int year)
{
    MCHITTESTINFO ht = {};
    ht.cbSize = MCHITTESTINFO_V1_SIZE;
    ht.pt = {x, y};
    SendMessageW(cal, MCM_HITTEST, 0, (LPARAM)&ht);
    return ht.uHit == hit && (!month || SameDate(ht.st, month, day, year));
}

// The middle of the part of the calendar that answers the hit test with `hit` (and, for a day,
// that names the date), in the calendar's client pixels: where the user taps it. A coarse search
// finds the part, then its edges are walked to; every part is wider than the search's step.
static bool FindPart(HWND cal, UINT hit, POINT *at, int month = 0, int day = 0, int year = 0)
{
    RECT rc;
    GetClientRect(cal, &rc);
    for (int y = 1; y < rc.bottom; y += 4)
        for (int x = 1; x < rc.right; x += 5) {
            if (!Hits(cal, x, y, hit, month, day, year))
                continue;
            int left = x, right = x, top = y, bottom = y;
            while (left > 0 && Hits(cal, left - 1, y, hit, month, day, year))
                left--;
            while (right + 1 < rc.right && Hits(cal, right + 1, y, hit, month, day, year))
                right++;
            int middle = (left + right) / 2;
            while (top > 0 && Hits(cal, middle, top - 1, hit, month, day, year))
                top--;
            while (bottom + 1 < rc.bottom && Hits(cal, middle, bottom + 1, hit, month, day, year))
                bottom++;
            *at = {middle, (top + bottom) / 2};
            return true;
        }
    return false;
}

// A tap on a day of the month the calendar shows.
static void PickDay(HWND dlg, int month, int day, int year)
{
    HWND cal = CalendarOf(dlg);
    POINT at;
    ASSERT_TRUE(FindPart(cal, MCHT_CALENDARDATE, &at, month, day, year))
        << month << "/" << day << "/" << year << " is not shown";
    Tap(cal, at.x, at.y);
    Pump(0);
}

static SYSTEMTIME Selection(HWND dlg)
{
    SYSTEMTIME st = {};
    SendMessageW(CalendarOf(dlg), MCM_GETCURSEL, 0, (LPARAM)&st);
    return st;
}

// The first day of the month the calendar shows in full.
static SYSTEMTIME ShownMonth(HWND dlg)
{
    SYSTEMTIME range[2] = {};
    SendMessageW(CalendarOf(dlg), MCM_GETMONTHRANGE, GMR_VISIBLE, (LPARAM)range);
    return range[0];
}

// The popup is the calendar alone at its smallest, centred across the screen at y 50, set to the
// date it was given (today for none); a tap on a day ends it with that day, and a tap on the day
// it was given ends it with nothing new.
TEST_F(GoToDatePopupTest, OpensOnTheDateAndEndsOnAPickedDay)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    struct {
        const char *name;
        int month, day, year; // opened on; month 0 for no date
        int pickMonth, pickDay, pickYear;
        int answer;
    } cases[] = {
        {"another day", 3, 15, 2004, 3, 20, 2004, GOTODATE_NEW},
        {"the day shown", 3, 15, 2004, 3, 15, 2004, GOTODATE_KEPT},
        {"the year's last day", 12, 1, 2004, 12, 31, 2004, GOTODATE_NEW},
        {"a leap day", 2, 29, 2000, 2, 1, 2000, GOTODATE_NEW},
        {"no date: today", 0, 0, 0, now.wMonth, now.wDay, now.wYear, GOTODATE_NEW},
    };
    for (auto &c : cases) {
        int beeps = BeepsSoFar();
        SYSTEMTIME given = now;
        if (c.month) {
            given.wYear = (WORD)c.year;
            given.wMonth = (WORD)c.month;
            given.wDay = (WORD)c.day;
        }
        Outcome o = OpenPopup(owner, c.month, c.day, c.year, [&](HWND dlg) {
            HWND cal = CalendarOf(dlg);
            ASSERT_TRUE(cal) << c.name;
            EXPECT_EQ(g_app.goToDate.calendar, cal) << c.name;
            RECT min = {}, popup, client, inside;
            SendMessageW(cal, MCM_GETMINREQRECT, 0, (LPARAM)&min);
            GetWindowRect(dlg, &popup);
            GetClientRect(dlg, &client);
            GetWindowRect(cal, &inside);
            MapWindowPoints(HWND_DESKTOP, dlg, (POINT *)&inside, 2);
            EXPECT_TRUE(client.right == min.right - min.left &&
                        client.bottom == min.bottom - min.top)
                << c.name << ": the popup holds the calendar at its smallest, frame aside";
            EXPECT_TRUE(EqualRect(&inside, &client)) << c.name << ": the calendar fills it";
            EXPECT_EQ(popup.left,
                      GetSystemMetrics(SM_CXSCREEN) / 2 - (popup.right - popup.left) / 2)
                << c.name << ": centred across the screen";
            EXPECT_EQ(popup.top, 50) << c.name;

            EXPECT_TRUE(SameDate(Selection(dlg), given.wMonth, given.wDay, given.wYear)) << c.name;
            SYSTEMTIME shown = ShownMonth(dlg);
            EXPECT_TRUE(shown.wMonth == given.wMonth && shown.wYear == given.wYear) << c.name;
            PickDay(dlg, c.pickMonth, c.pickDay, c.pickYear);
        });
        EXPECT_EQ(o.answer, c.answer) << c.name;
        if (c.answer == GOTODATE_NEW)
            EXPECT_TRUE(o.month == c.pickMonth && o.day == c.pickDay && o.year == c.pickYear)
                << c.name << ": got " << o.month << "/" << o.day << "/" << o.year;
        else
            EXPECT_TRUE(o.month == -1 && o.day == -1 && o.year == -1) << c.name;
        EXPECT_EQ(BeepsSoFar(), beeps) << c.name;
        EXPECT_EQ(g_app.goToDate.calendar, nullptr) << c.name << ": kept while it is open only";
    }
}

// The calendar's arrow turns the month without ending the popup; a day of the new month is
// picked as any other.
TEST_F(GoToDatePopupTest, TurningTheMonthKeepsItOpen)
{
    Outcome o = OpenPopup(owner, 12, 15, 2004, [&](HWND dlg) {
        POINT next;
        ASSERT_TRUE(FindPart(CalendarOf(dlg), MCHT_TITLEBTNNEXT, &next));
        Tap(CalendarOf(dlg), next.x, next.y);
        Pump(100);
        EXPECT_TRUE(IsWindowVisible(dlg)) << "the popup ended on the arrow";
        SYSTEMTIME shown = ShownMonth(dlg);
        EXPECT_TRUE(shown.wMonth == 1 && shown.wYear == 2005)
            << "shows " << shown.wMonth << "/" << shown.wYear;
        PickDay(dlg, 1, 10, 2005);
    });
    EXPECT_EQ(o.answer, GOTODATE_NEW);
    EXPECT_TRUE(o.month == 1 && o.day == 10 && o.year == 2005);
}

// A date the calendar refuses beeps once and leaves the popup open on the calendar's own
// choice, from which the user picks as usual.
TEST_F(GoToDatePopupTest, ARefusedDateBeepsAndStaysOpen)
{
    struct {
        const char *name;
        int month, day, year;
    } cases[] = {
        {"before the calendar's first year", 1, 1, 1500},
        {"no such day", 2, 30, 2004},
        {"no such month", 13, 1, 2004},
    };
    for (auto &c : cases) {
        int beeps = BeepsSoFar();
        Outcome o = OpenPopup(owner, c.month, c.day, c.year, [&](HWND dlg) {
            EXPECT_EQ(BeepsSoFar() - beeps, 1) << c.name;
            EXPECT_TRUE(IsWindowVisible(dlg)) << c.name;
            SYSTEMTIME shown = ShownMonth(dlg);
            PickDay(dlg, shown.wMonth, 15, shown.wYear);
        });
        EXPECT_EQ(o.answer, GOTODATE_NEW) << c.name;
        EXPECT_EQ(o.day, 15) << c.name;
    }
}

// It has no close button and handles no command: keys and a close request leave it open, only
// a picked day ends it.
TEST_F(GoToDatePopupTest, EndsOnlyOnAPick)
{
    struct {
        const char *name;
        void (*act)(HWND dlg);
    } cases[] = {
        {"Escape", [](HWND dlg) { Key(CalendarOf(dlg), VK_ESCAPE); }},
        {"Enter", [](HWND dlg) { Key(CalendarOf(dlg), VK_RETURN); }},
        {"Escape to the popup", [](HWND dlg) { Key(dlg, VK_ESCAPE); }},
        {"close", [](HWND dlg) { SendMessageW(dlg, WM_SYSCOMMAND, SC_CLOSE, 0); }},
    };
    for (auto &c : cases) {
        Outcome o = OpenPopup(owner, 3, 15, 2004, [&](HWND dlg) {
            c.act(dlg);
            Pump(50);
            EXPECT_TRUE(IsWindowVisible(dlg)) << c.name << " ended the popup";
            PickDay(dlg, 3, 16, 2004);
        });
        EXPECT_EQ(o.answer, GOTODATE_NEW) << c.name;
        EXPECT_EQ(o.day, 16) << c.name;
    }
}

// The popup and its calendar let go of what they draw with, over many openings.
TEST_F(GoToDatePopupTest, NoGdiObjectsLostOverManyOpenings)
{
    auto cycle = [&](int i) {
        int month, day, year;
        RunUnshown([&] { return (INT_PTR)GoToDate(owner, 1 + i % 12, 15, 2004, &month, &day, &year); },
                   [](HWND dlg) {
                       PaintClient(dlg);
                       PaintClient(CalendarOf(dlg));
                       EndDialog(dlg, 0);
                   });
    };
    cycle(0); // the calendar's class keeps what it made on its first use
    int before = CountGdiObjects();
    for (int i = 0; i < 60; i++)
        cycle(i);
    EXPECT_EQ(CountGdiObjects(), before) << GdiObjectSummary();
}
