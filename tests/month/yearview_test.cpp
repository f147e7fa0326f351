// The year view as the rendering thread draws it, read back from the back
// buffer, with its taps, keys and label driven through the main window.
// The store holds a year of appointments a few years ahead (so today never
// falls into it). Run once in a Sunday-first and once in a Monday-first
// locale.
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "shell/shell.h"
#include "shell/render.h"
#include "month/yearview.h"
#include "calendar/dates.h"
#include "resource.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

static const COLORREF kToday = RGB(255, 232, 140);
static const COLORREF kWhite = RGB(255, 255, 255);
static const COLORREF kBadge = RGB(0xE8, 0x50, 0x1C);  // resources/art/badge.txt

static int StoreYear()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    return now.wYear + 3;
}

static std::string Stamp(int year, int month, int day, const char *time = nullptr)
{
    char text[32];
    if (time)
        snprintf(text, sizeof text, "%04d%02d%02dT%s", year, month, day, time);
    else
        snprintf(text, sizeof text, "%04d%02d%02d", year, month, day);
    return text;
}

static std::string Event(const std::string &uid, const std::string &body)
{
    return "BEGIN:VEVENT\r\nUID:" + uid + "\r\nDTSTAMP:20240101T000000Z\r\n" + body + "END:VEVENT\r\n";
}

// Every kind of appointment the year view spreads over its days.
static std::string StoreIcs()
{
    int y = StoreYear();
    std::string ics = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//year view test//EN\r\n";
    ics += Event("timed", "DTSTART:" + Stamp(y, 3, 3, "100000") + "\r\nDTEND:" + Stamp(y, 3, 3, "110000") +
                              "\r\nSUMMARY:Timed\r\n");
    ics += Event("multiday", "DTSTART:" + Stamp(y, 3, 30, "180000") + "\r\nDTEND:" + Stamp(y, 4, 2, "090000") +
                                 "\r\nSUMMARY:Across a month's end\r\n");
    ics += Event("allday", "DTSTART;VALUE=DATE:" + Stamp(y, 7, 4) + "\r\nDTEND;VALUE=DATE:" + Stamp(y, 7, 5) +
                               "\r\nSUMMARY:All day\r\n");
    ics += Event("alldays", "DTSTART;VALUE=DATE:" + Stamp(y, 8, 10) + "\r\nDTEND;VALUE=DATE:" + Stamp(y, 8, 13) +
                                "\r\nSUMMARY:Three whole days\r\n");
    ics += Event("tomidnight", "DTSTART:" + Stamp(y, 9, 5, "200000") + "\r\nDTEND:" + Stamp(y, 9, 6, "000000") +
                                   "\r\nSUMMARY:Until midnight\r\n");
    ics += Event("instant", "DTSTART:" + Stamp(y, 11, 11, "000000") + "\r\nDTEND:" + Stamp(y, 11, 11, "000000") +
                                "\r\nSUMMARY:No length at midnight\r\n");
    ics += Event("overlap1", "DTSTART:" + Stamp(y, 5, 5, "090000") + "\r\nDTEND:" + Stamp(y, 5, 5, "120000") +
                                 "\r\nSUMMARY:Morning\r\n");
    ics += Event("overlap2", "DTSTART:" + Stamp(y, 5, 5, "110000") + "\r\nDTEND:" + Stamp(y, 5, 5, "130000") +
                                 "\r\nSUMMARY:Overlapping\r\n");
    // Weekly, four times from 6 October: the 13th deleted, the 20th moved
    // to the 22nd.
    ics += Event("weekly", "DTSTART:" + Stamp(y, 10, 6, "090000") + "\r\nDTEND:" + Stamp(y, 10, 6, "100000") +
                               "\r\nRRULE:FREQ=WEEKLY;COUNT=4\r\nEXDATE:" + Stamp(y, 10, 13, "090000") +
                               "\r\nSUMMARY:Weekly\r\n");
    ics += Event("weekly", "RECURRENCE-ID:" + Stamp(y, 10, 20, "090000") + "\r\nDTSTART:" +
                               Stamp(y, 10, 22, "140000") + "\r\nDTEND:" + Stamp(y, 10, 22, "150000") +
                               "\r\nSUMMARY:Weekly (moved)\r\n");
    // Four days from 30 December of the year before: two fall in the year.
    ics += Event("daily", "DTSTART:" + Stamp(y - 1, 12, 30, "080000") + "\r\nDTEND:" +
                              Stamp(y - 1, 12, 30, "083000") + "\r\nRRULE:FREQ=DAILY;COUNT=4\r\nSUMMARY:Daily\r\n");
    ics += Event("newyear", "DTSTART:" + Stamp(y, 12, 31, "220000") + "\r\nDTEND:" + Stamp(y + 1, 1, 1, "020000") +
                                "\r\nSUMMARY:Into the next year\r\n");
    ics += Event("birthday", "DTSTART;VALUE=DATE:" + Stamp(y - 2, 6, 15) + "\r\nDTEND;VALUE=DATE:" +
                                 Stamp(y - 2, 6, 16) + "\r\nRRULE:FREQ=YEARLY\r\nSUMMARY:Birthday\r\n");
    ics += Event("later", "DTSTART:" + Stamp(y + 1, 2, 2, "100000") + "\r\nDTEND:" + Stamp(y + 1, 2, 2, "110000") +
                              "\r\nSUMMARY:Next year only\r\n");
    ics += "END:VCALENDAR\r\n";
    return ics;
}

// The days of the store year that hold an appointment, as month * 100 + day.
static const std::set<int> kBusyDays = {
    101, 102,           // the daily series from the year before
    303, 330, 331, 401, 402,
    505,                // two overlapping
    615,                // the yearly birthday
    704,                // all day: its end at the next midnight is not a day
    810, 811, 812,
    905,                // until midnight
    1006, 1022, 1027,   // weekly, one deleted, one moved
    1111,               // no length at all
    1231,
};

class YearView : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore(StoreIcs());
        hwnd = StartProgram();
        ASSERT_TRUE(hwnd);
        g_app.settings.todaycolor = kToday;
        g_app.settings.datecolor = RGB(0, 0, 0);
        g_app.settings.coloryearview = 1;
        g_app.keyReady = 1;
    }
    void TearDown() override
    {
        if (g_app.viewMode == VIEW_YEAR)
            Toggle();
        WaitForPass();
    }
    void Toggle()
    {
        SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
    }
    // Enters the year view on `year`, the way the user gets there.
    void ShowYear(int year)
    {
        if (g_app.viewMode == VIEW_YEAR)
            Toggle();
        g_app.viewYear = year;
        Toggle();
        ASSERT_EQ(g_app.viewMode, VIEW_YEAR);
        ASSERT_TRUE(WaitForPass());
    }
    static COLORREF CellFill(int month, int day, int year)
    {
        int x, y;
        EXPECT_TRUE(YearCellOrigin(month, day, year, &x, &y));
        return BackPixel(x, y + 1);
    }
    HWND hwnd = nullptr;
};

// The cell a day should have, worked out from the layout alone.
static void ExpectedCell(int month, int day, int year, int *x, int *y)
{
    int first = (LocaleFirstDayOfWeek() + 1) % 7; // from Sunday = 0
    int s1 = (DayOfWeek(month, 1, year) - first + 7) % 7;
    int index = s1 + day - 1;
    *x = YEAR_LEFT + YEAR_BLOCK_W * ((month - 1) % 3) + YEAR_CELL_W * (index % 7);
    *y = YEAR_TOP + YEAR_BLOCK_H * ((month - 1) / 3) + YEAR_DAYS_TOP + YEAR_CELL_H * (index / 7);
}

TEST_F(YearView, HitTestAtTheCornersOfFirstAndLastDays)
{
    g_app.viewYear = 2023;
    struct { int month, day; } cases[] = {{1, 1}, {1, 31}, {6, 1}, {6, 30}, {11, 1}, {11, 30}};
    for (auto &c : cases) {
        int x, y;
        ExpectedCell(c.month, c.day, 2023, &x, &y);
        POINT corners[] = {{x, y}, {x + YEAR_CELL_W - 1, y}, {x, y + YEAR_CELL_H - 1},
                           {x + YEAR_CELL_W - 1, y + YEAR_CELL_H - 1}};
        for (POINT p : corners) {
            g_app.viewMonth = 0;
            int cellX = -1, cellY = -1;
            EXPECT_EQ(YearHitTest(p.x, p.y, &cellX, &cellY), c.day) << c.month << "/" << c.day << " at " << p.x << ","
                                                                    << p.y;
            EXPECT_EQ(cellX, x) << c.month << "/" << c.day;
            EXPECT_EQ(cellY, y) << c.month << "/" << c.day;
            EXPECT_EQ(g_app.viewMonth, c.month) << c.month << "/" << c.day;
        }
        // Next to the first day lies the last cell before it, or the gap
        // left of the block; next to the last day, the first cell after
        // it, or the gap right of the block.
        int cx, cy;
        g_app.viewMonth = 0;
        if (c.day == 1)
            EXPECT_EQ(YearHitTest(x - 1, y, &cx, &cy), 0) << "before " << c.month << "/1";
        else
            EXPECT_EQ(YearHitTest(x + YEAR_CELL_W, y + YEAR_CELL_H - 1, &cx, &cy), 0) << "after " << c.month << "/"
                                                                                     << c.day;
        EXPECT_EQ(g_app.viewMonth, 0) << "a miss leaves the month alone";
    }
    // Rows above the days: the title, a month's name, its initials.
    int cx, cy;
    EXPECT_EQ(YearHitTest(120, 5, &cx, &cy), 0);
    EXPECT_EQ(YearHitTest(120, YEAR_TOP + 5, &cx, &cy), 0);
    EXPECT_EQ(YearHitTest(120, YEAR_TOP + YEAR_NAME_H + 3, &cx, &cy), 0);
    EXPECT_EQ(YearHitTest(120, 269, &cx, &cy), 0);
}

TEST_F(YearView, ColoursExactlyTheDaysWithAppointments)
{
    int year = StoreYear();
    ShowYear(year);
    for (int month = 1; month <= 12; month++)
        for (int day = 1; day <= MonthLength(month, year); day++) {
            bool busy = kBusyDays.count(month * 100 + day) != 0;
            EXPECT_EQ(CellFill(month, day, year), busy ? YEAR_BUSY_FILL : kWhite) << month << "/" << day << "/"
                                                                                 << year;
        }
    EXPECT_EQ(BackPixel(12, 7), kBadge) << "the year holds appointments";

    // Without the setting no day is coloured; the badge stays.
    g_app.settings.coloryearview = 0;
    ASSERT_TRUE(RedrawAndWait());
    for (int key : kBusyDays)
        EXPECT_EQ(CellFill(key / 100, key % 100, year), kWhite) << key;
    EXPECT_EQ(BackPixel(12, 7), kBadge);
    g_app.settings.coloryearview = 1;

    // A year the store has nothing in: no colours and no badge.
    ShowYear(year - 5);
    for (int month = 1; month <= 12; month++)
        EXPECT_EQ(CellFill(month, 1, year - 5), kWhite) << month;
    EXPECT_EQ(BackPixel(12, 7), kWhite) << "no badge";
}

static int PixelsIn(int x, int y, COLORREF colour)
{
    int n = 0;
    for (int dy = 0; dy < YEAR_CELL_H; dy++)
        for (int dx = 0; dx < YEAR_CELL_W; dx++)
            n += BackPixel(x + dx, y + dy) == colour;
    return n;
}

TEST_F(YearView, TodayIsMarked)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    ShowYear(now.wYear);
    int x, y;
    ASSERT_TRUE(YearCellOrigin(now.wMonth, now.wDay, now.wYear, &x, &y));
    EXPECT_EQ(BackPixel(x, y + 3), YEAR_TODAY_FRAME) << "frame, left";
    EXPECT_EQ(BackPixel(x + YEAR_CELL_W - 1, y + 3), YEAR_TODAY_FRAME) << "frame, right";
    EXPECT_GE(PixelsIn(x, y, kToday), 8) << "fill";
    int other = now.wDay == 10 ? 11 : 10;
    ASSERT_TRUE(YearCellOrigin(now.wMonth, other, now.wYear, &x, &y));
    EXPECT_EQ(PixelsIn(x, y, YEAR_TODAY_FRAME), 0);
    EXPECT_EQ(PixelsIn(x, y, kToday), 0);
}

// Whether two weekday-initial cells of January hold the same letter.
static bool SameInitial(int c1, int c2)
{
    int top = YEAR_TOP + YEAR_NAME_H;
    for (int dy = 0; dy < YEAR_HEAD_H; dy++)
        for (int dx = 0; dx < YEAR_CELL_W; dx++)
            if (BackPixel(YEAR_LEFT + YEAR_CELL_W * c1 + dx, top + dy) !=
                BackPixel(YEAR_LEFT + YEAR_CELL_W * c2 + dx, top + dy))
                return false;
    return true;
}

static bool CellHasInk(int x, int y)
{
    for (int dy = 0; dy < YEAR_CELL_H; dy++)
        for (int dx = 0; dx < YEAR_CELL_W; dx++)
            if (BackPixel(x + dx, y + dy) != kWhite)
                return true;
    return false;
}

// A release on a day opens its day view, which is closed at once by its close button.
static void ReleaseOnDay(HWND hwnd, int x, int y)
{
    RunScripted(
        [&] {
            SendMessageW(hwnd, WM_LBUTTONUP, 0, MAKELPARAM(x, y));
            return (INT_PTR)0;
        },
        [](HWND dayView) { Tap(dayView, 220, 8); });
}

TEST_F(YearView, WeeksFollowTheLocale)
{
    ShowYear(2023);
    bool mondayFirst = LocaleFirstDayOfWeek() == 0;
    // en_US: S M T W T F S; de_DE: M D M D F S S.
    struct { int c1, c2; bool same; } pairs[] = {
        {0, 6, !mondayFirst}, {2, 4, !mondayFirst}, {0, 2, mondayFirst}, {1, 3, mondayFirst},
        {5, 6, mondayFirst},  {0, 1, false},
    };
    for (auto &p : pairs)
        EXPECT_EQ(SameInitial(p.c1, p.c2), p.same) << "initials " << p.c1 << " and " << p.c2
                                                   << (mondayFirst ? " Monday" : " Sunday") << "-first";
    // 1 April 2023 was a Saturday: the last column of the week, or the one
    // before it; the cells before it stay empty.
    int column = mondayFirst ? 5 : 6;
    int y = YEAR_TOP + YEAR_BLOCK_H + YEAR_DAYS_TOP;
    for (int c = 0; c <= column; c++)
        EXPECT_EQ(CellHasInk(YEAR_LEFT + YEAR_CELL_W * c, y), c == column) << "April, column " << c;
    int cx, cy;
    EXPECT_EQ(YearHitTest(YEAR_LEFT + YEAR_CELL_W * column + 5, y + 3, &cx, &cy), 1);
    EXPECT_EQ(g_app.viewMonth, 4);
}

TEST_F(YearView, ArrowTapsAndKeysChangeTheYearAndToggleRestoresTheMonth)
{
    int year = StoreYear();
    g_app.viewMonth = 5;
    g_app.viewYear = year - 1;
    Toggle();
    ASSERT_TRUE(WaitForPass());
    EXPECT_EQ(CellFill(3, 3, year - 1), kWhite);

    struct { int x, y, year; } taps[] = {
        {228, 7, year},      // next-year arrow
        {215, 7, year},      // just right of the previous-year arrow: nothing
        {201, 0, year - 1},  // previous-year arrow, its corner
        {214, 14, year - 2}, // and its other corner
        {210, 15, year - 2}, // below the arrow: nothing
        {221, 14, year - 1}, // next-year arrow, corners
        {234, 0, year},
        {235, 5, year},      // right of it: nothing
    };
    for (auto &t : taps) {
        SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(t.x, t.y));
        SendMessageW(hwnd, WM_LBUTTONUP, 0, MAKELPARAM(t.x, t.y));
        EXPECT_EQ(g_app.viewYear, t.year) << "tap at " << t.x << "," << t.y;
        ASSERT_TRUE(WaitForPass()) << "tap at " << t.x << "," << t.y;
    }
    // The arrows bring the new year's appointments with them.
    EXPECT_EQ(CellFill(3, 3, year), YEAR_BUSY_FILL);

    SendMessageW(hwnd, WM_KEYDOWN, VK_LEFT, 0);
    SendMessageW(hwnd, WM_KEYDOWN, VK_UP, 0); // auto-repeat steps on
    EXPECT_EQ(g_app.viewYear, year - 2);
    SendMessageW(hwnd, WM_KEYDOWN, VK_RIGHT, 0);
    SendMessageW(hwnd, WM_KEYDOWN, VK_DOWN, 0);
    EXPECT_EQ(g_app.viewYear, year);
    ASSERT_TRUE(WaitForPass());
    EXPECT_EQ(CellFill(3, 3, year), YEAR_BUSY_FILL);

    // A tap on a day picks its month; the toggle brings back the month
    // view as it was all the same.
    int x, y;
    ASSERT_TRUE(YearCellOrigin(11, 11, year, &x, &y));
    SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x + 2, y + 2));
    ReleaseOnDay(hwnd, x + 2, y + 2);
    EXPECT_EQ(g_app.viewMonth, 11);
    Toggle();
    EXPECT_EQ(g_app.viewMode, VIEW_MONTH);
    EXPECT_EQ(g_app.viewMonth, 5);
    EXPECT_EQ(g_app.viewYear, year - 1);
}

static std::wstring LabelText()
{
    WCHAR text[16] = L"";
    GetWindowTextW(g_app.yearTipLabel, text, 16);
    return text;
}

TEST_F(YearView, TheLabelFollowsTheStylus)
{
    ShowYear(2023);
    HWND label = g_app.yearTipLabel;
    ASSERT_TRUE(IsWindow(label));
    EXPECT_FALSE(IsWindowVisible(label));

    int x, y;
    ASSERT_TRUE(YearCellOrigin(2, 14, 2023, &x, &y));
    SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x + 5, y + 3));
    EXPECT_TRUE(IsWindowVisible(label));
    EXPECT_EQ(LabelText(), L"14");
    RECT rc;
    GetWindowRect(label, &rc);
    POINT at = {x, y + 14};
    ClientToScreen(hwnd, &at);
    EXPECT_EQ(rc.left, at.x);
    EXPECT_EQ(rc.top, at.y);
    EXPECT_EQ(rc.right - rc.left, 20);
    EXPECT_EQ(rc.bottom - rc.top, 20);
    EXPECT_EQ(GetActiveWindow(), hwnd) << "the label never takes the activation";

    ASSERT_TRUE(YearCellOrigin(9, 3, 2023, &x, &y));
    SendMessageW(hwnd, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(x + 5, y + 3));
    EXPECT_TRUE(IsWindowVisible(label));
    EXPECT_EQ(LabelText(), L"3");
    EXPECT_EQ(g_app.viewMonth, 9);

    SendMessageW(hwnd, WM_MOUSEMOVE, 0, MAKELPARAM(x + 5 + YEAR_CELL_W, y + 3));
    EXPECT_EQ(LabelText(), L"3") << "a mouse moving with no button down changes nothing";

    SendMessageW(hwnd, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(120, YEAR_TOP + 2));
    EXPECT_FALSE(IsWindowVisible(label)) << "off the days";

    SendMessageW(hwnd, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(x + 5, y + 3));
    EXPECT_TRUE(IsWindowVisible(label));
    ReleaseOnDay(hwnd, x + 5, y + 3);
    EXPECT_FALSE(IsWindowVisible(label)) << "the release hides it";
}

// A pass that sees a new request gives up and is not shown; one drawing of
// the view leaves no GDI object behind.
TEST_F(YearView, InterruptedPassesAndGdiObjects)
{
    int year = StoreYear();
    ShowYear(year);
    HDC dc = CreateCompatibleDC(g_app.backDC);
    HBITMAP bmp = CreateCompatibleBitmap(g_app.backDC, 240, 270);
    HGDIOBJ old = SelectObject(dc, bmp);
    EnterCriticalSection(&g_app.renderLock); // the rendering thread stays out
    LONG state = g_app.renderState;
    g_app.renderState = RENDER_REQUESTED;
    EXPECT_EQ(DrawYearView(dc, year), 0);
    g_app.renderState = RENDER_DRAWING;
    EXPECT_EQ(DrawYearView(dc, year), 1);
    g_app.renderState = state;
    LeaveCriticalSection(&g_app.renderLock);
    SelectObject(dc, old);
    DeleteObject(bmp);
    DeleteDC(dc);

    ASSERT_TRUE(RedrawAndWait());
    int before = CountGdiObjects();
    std::string summary = GdiObjectSummary();
    for (int i = 0; i < 20; i++)
        ASSERT_TRUE(RedrawAndWait()) << "pass " << i;
    EXPECT_EQ(CountGdiObjects(), before) << "before " << summary << "after " << GdiObjectSummary();
}
