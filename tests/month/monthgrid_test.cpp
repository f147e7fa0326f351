// The month view as the rendering thread draws it, read back from the
// back buffer's pixels. Run once in a Sunday-first and once in a
// Monday-first locale.
#include "support/apphost.h"
#include "common/appstate.h"
#include "shell/render.h"
#include "month/monthgrid.h"
#include "calendar/dates.h"

#include <gtest/gtest.h>

static const COLORREF kFill1 = RGB(250, 250, 250);
static const COLORREF kFill2 = RGB(200, 220, 240);
static const COLORREF kToday = RGB(255, 232, 140);

class MonthGrid : public ::testing::Test {
protected:
    void SetUp() override
    {
        hwnd = StartProgram();
        ASSERT_TRUE(hwnd);
        AppSettings &s = g_app.settings;
        s.month1color = kFill1;
        s.month2color = kFill2;
        s.todaycolor = kToday;
        s.calendarcolorstyle = 0;
        s.showdays = 0;
        s.showweeknumber = 0;
        s.showindicator = 0;
        s.showholiday = 0;
        g_app.viewMode = VIEW_MONTH;
    }
    void Show(int month, int year)
    {
        g_app.viewMonth = month;
        g_app.viewYear = year;
        ASSERT_TRUE(RedrawAndWait());
    }
    // A pixel of the cell's fill, away from its date text and borders.
    static COLORREF CellFill(int r, int c)
    {
        return BackPixel(GRID_LEFT + GRID_PITCH * c + 4, GRID_TOP + GRID_PITCH * r + 30);
    }
    // Whether anything but the fill was drawn in the cell's text corner.
    static bool CellHasText(int r, int c)
    {
        int x0 = GRID_LEFT + GRID_PITCH * c, y0 = GRID_TOP + GRID_PITCH * r;
        COLORREF fill = CellFill(r, c);
        for (int y = y0 + 1; y < y0 + 16; y++)
            for (int x = x0 + 12; x < x0 + 33; x++)
                if (BackPixel(x, y) != fill)
                    return true;
        return false;
    }
    HWND hwnd = nullptr;
};

TEST_F(MonthGrid, StripUnderlineFollowsTheMonth)
{
    for (int month : {1, 6, 12}) {
        Show(month, 2023);
        for (int m = 1; m <= 12; m++) {
            bool yellow = BackPixel(20 * (m - 1) + 10, 16) == RGB(255, 255, 0);
            EXPECT_EQ(yellow, m == month) << "showing " << month << ", cell " << m;
        }
    }
    // The grey band below the grid.
    EXPECT_EQ(BackPixel(120, 264), (COLORREF)0x5A5A5A);
}

TEST_F(MonthGrid, TodayIsFilled)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    Show(now.wMonth, now.wYear);
    int index = WeekdayColumn(now.wMonth, 1, now.wYear) + now.wDay - 1;
    EXPECT_EQ(CellFill(index / 7, index % 7), kToday);
    int other = index == 10 ? 11 : 10;
    EXPECT_NE(CellFill(other / 7, other % 7), kToday);
}

TEST_F(MonthGrid, BandsAndWeekendColumns)
{
    Show(3, 1950);
    for (int r = 0; r < 6; r++)
        EXPECT_EQ(CellFill(r, 3), r % 2 ? kFill2 : kFill1) << "row " << r;

    g_app.settings.calendarcolorstyle = 1;
    Show(3, 1950);
    bool mondayFirst = LocaleMondayFirst() == 1;
    for (int c = 0; c < 7; c++) {
        bool weekend = mondayFirst ? (c == 5 || c == 6) : (c == 0 || c == 6);
        EXPECT_EQ(CellFill(2, c), weekend ? kFill2 : kFill1) << "column " << c << (mondayFirst ? " Monday" : " Sunday")
                                                            << "-first";
    }

    // A style the program does not know draws no cells at all.
    g_app.settings.calendarcolorstyle = 7;
    Show(3, 1950);
    EXPECT_EQ(CellFill(2, 3), RGB(255, 255, 255));
    EXPECT_EQ(BackPixel(GRID_LEFT, GRID_TOP + 10), RGB(255, 255, 255)) << "no border either";
}

TEST_F(MonthGrid, February1900HasTwentyNineDays)
{
    Show(2, 1900);
    int s = WeekdayColumn(2, 1, 1900);
    int last = s + 28;
    EXPECT_TRUE(CellHasText(last / 7, last % 7)) << "29 February 1900";
    EXPECT_FALSE(CellHasText((last + 1) / 7, (last + 1) % 7)) << "no 1 March without showdays";
}

TEST_F(MonthGrid, NeighbouringDatesOnlyWithShowdays)
{
    // August 2026 starts on a Saturday: the first row has leading cells in
    // either week layout.
    int s = WeekdayColumn(8, 1, 2026);
    ASSERT_GT(s, 0);
    int trailing = s + 31;
    Show(8, 2026);
    EXPECT_FALSE(CellHasText(0, 0));
    EXPECT_FALSE(CellHasText(trailing / 7, trailing % 7));
    EXPECT_TRUE(CellHasText(0, s));
    g_app.settings.showdays = 1;
    Show(8, 2026);
    EXPECT_TRUE(CellHasText(0, 0));
    EXPECT_TRUE(CellHasText(trailing / 7, trailing % 7));
    EXPECT_TRUE(CellHasText(5, 6));
}

static bool RedInRowLabel(int r)
{
    int top = GRID_TOP + GRID_PITCH * r;
    for (int y = top + 1; y < top + 15; y++)
        for (int x = 2; x < 17; x++) {
            COLORREF p = BackPixel(x, y);
            if (GetRValue(p) > 160 && GetGValue(p) < 120 && GetBValue(p) < 120)
                return true;
        }
    return false;
}

TEST_F(MonthGrid, WeekNumbersAtTheLeftOfEachRow)
{
    Show(8, 2026);
    for (int r = 0; r < 6; r++)
        EXPECT_FALSE(RedInRowLabel(r)) << "row " << r;
    g_app.settings.showweeknumber = 1;
    g_app.settings.showdays = 1;
    Show(8, 2026);
    for (int r = 0; r < 6; r++)
        EXPECT_TRUE(RedInRowLabel(r)) << "row " << r << " with showdays";
}

// Requests made while a pass is held up give exactly one more pass.
TEST_F(MonthGrid, RequestsDuringAPassGiveOneMorePass)
{
    Show(1, 2024);
    LONG before = g_app.renderPasses;
    EnterCriticalSection(&g_app.renderLock);
    RequestRedraw();
    Sleep(100); // the thread has woken and waits for the lock
    for (int i = 0; i < 10; i++)
        RequestRedraw();
    LeaveCriticalSection(&g_app.renderLock);
    WaitForPass();
    Sleep(200);
    WaitForPass();
    EXPECT_EQ(g_app.renderPasses - before, 2);
}

// A pass whose drawing fails is not shown: the state stays at drawing and
// the window is not asked to repaint.
TEST_F(MonthGrid, FailedPassIsNotShown)
{
    Show(1, 2024);
    ValidateRect(hwnd, nullptr);
    g_app.viewMonth = 13; // out of range: the grid refuses to draw it
    RequestRedraw();
    EXPECT_FALSE(WaitForPass());
    EXPECT_EQ(g_app.renderState, RENDER_DRAWING);
    RECT update;
    EXPECT_FALSE(GetUpdateRect(hwnd, &update, FALSE));
    Show(1, 2024);
}

TEST_F(MonthGrid, PassesLeakNoGdiObjects)
{
    g_app.settings.showweeknumber = 1;
    g_app.settings.showdays = 1;
    // One pass of each view first: the first use of a font size may leave
    // objects in the system's caches, which are not the program's.
    g_app.viewMode = VIEW_YEAR;
    ASSERT_TRUE(RedrawAndWait());
    g_app.viewMode = VIEW_MONTH;
    Show(5, 2025);
    int first = CountGdiObjects();
    std::string before = GdiObjectSummary();
    for (int i = 0; i < 500; i++) {
        g_app.viewMonth = 1 + i % 12;
        ASSERT_TRUE(RedrawAndWait()) << "pass " << i;
    }
    g_app.viewMode = VIEW_YEAR;
    for (int i = 0; i < 20; i++)
        ASSERT_TRUE(RedrawAndWait());
    g_app.viewMode = VIEW_MONTH;
    EXPECT_EQ(CountGdiObjects(), first) << "before " << before << "after " << GdiObjectSummary();
}

TEST_F(MonthGrid, HitTest)
{
    g_app.viewMonth = 8;
    g_app.viewYear = 2026;
    g_app.settings.showdays = 0;
    int s = WeekdayColumn(8, 1, 2026);
    int x = GRID_LEFT + GRID_PITCH * s + 10, y = GRID_TOP + 10;
    ASSERT_TRUE(MonthHitTest(x, y));
    EXPECT_EQ(g_app.selectedDate, 1u);
    EXPECT_EQ(g_app.tapCellX, GRID_LEFT + GRID_PITCH * s);
    EXPECT_EQ(g_app.tapCellY, GRID_TOP);
    EXPECT_FALSE(MonthHitTest(GRID_LEFT + 5, GRID_TOP + 5)) << "a leading cell without showdays";
    EXPECT_FALSE(MonthHitTest(120, 30)) << "above the grid";
    g_app.settings.showdays = 1;
    ASSERT_TRUE(MonthHitTest(GRID_LEFT + 5, GRID_TOP + 5));
    EXPECT_EQ(g_app.selectedDate, (DWORD)(100 + 31 - s + 1)) << "the first shown day of July";
}
