#include "monthgrid.h"
#include "indicators.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "calendar/dates.h"

#include <cstdio>

static const COLORREF kTitle = 0x6B9663;
static const COLORREF kBorder = 0xB5BEC6;
static const COLORREF kNeighbourDate = 0x808080;
static const COLORREF kWeekNumber = 0x0000FF;

// Draws with a fresh view font and deletes it at once.
static void DrawInFont(HDC dc, int height, int bold, COLORREF colour, const WCHAR *text, int left,
                       int top, int right, int bottom, UINT format)
{
    ScopedFont font(CreateViewFont(height, 0, bold));
    ScopedSelect selectFont(dc, font);
    SetTextColor(dc, colour);
    DrawTextIn(dc, text, left, top, right, bottom, format);
}

// Months are as long as the four-year rule makes them (February 1900 and
// 2100 have a 29th here), so a cell's date is counted from the 1st, not
// from a day number.
bool GridCellDate(int index, int month, int year, int s1, int *dm, int *dd, int *dy)
{
    int length = MonthLength(month, year);
    if (index < s1) {
        *dm = month == 1 ? 12 : month - 1;
        *dy = month == 1 ? year - 1 : year;
        *dd = MonthLength(*dm, *dy) - s1 + index + 1;
        return false;
    }
    if (index - s1 < length) {
        *dm = month, *dd = index - s1 + 1, *dy = year;
        return true;
    }
    *dm = month == 12 ? 1 : month + 1;
    *dy = month == 12 ? year + 1 : year;
    *dd = index - s1 - length + 1;
    return false;
}

static bool IsToday(int month, int day, int year, const SYSTEMTIME &now)
{
    return day == now.wDay && month == now.wMonth && year == now.wYear;
}

static void DrawHeaders(HDC dc, int year, int month)
{
    WCHAR text[64];
    swprintf(text, 64, L"%d", year - 1);
    DrawInFont(dc, 12, 0, LABEL_TEXT, text, 4, 26, 30, 36, DT_CENTER | DT_VCENTER);
    swprintf(text, 64, L"%d", year + 1);
    DrawInFont(dc, 12, 0, LABEL_TEXT, text, 207, 26, 233, 36, DT_CENTER | DT_VCENTER);
    int m = (month >= 1 && month <= 12) ? month : 1;
    swprintf(text, 64, L"%ls %d", g_app.monthNames[m - 1], year);
    DrawInFont(dc, 14, 1, kTitle, text, 61, 23, 171, 38, DT_CENTER);

    ScopedFont font(CreateViewFont(12, 0, 0));
    ScopedSelect selectFont(dc, font);
    SetTextColor(dc, 0x000000);
    for (int c = 0; c < GRID_COLS; c++) {
        int x = GRID_LEFT + GRID_PITCH * c;
        DrawCellRect(dc, x, 41, x + 35, 41 + 17, kBorder, HEADER_FILL);
        WCHAR name[20];
        WeekdayHeader(c, name, 1);
        DrawTextIn(dc, name, x, 41, x + 35, 58, DT_CENTER);
    }
}

static void DrawWeekNumber(HDC dc, int rowTop, int month, int day, int year, int mondayFirst)
{
    WCHAR text[8];
    swprintf(text, 8, L"%d", WeekNumber(month, day, year, mondayFirst));
    DrawInFont(dc, 11, 0, kWeekNumber, text, 2, rowTop, 17, rowTop + 15, DT_LEFT);
}

// The six rows of day cells with their dates and week numbers.
static void DrawDayCells(HDC dc, int month, int year, const SYSTEMTIME &now)
{
    const AppSettings &s = g_app.settings;
    ScopedFont dateFont(CreateViewFont(12, 0, 1));
    ScopedSelect selectFont(dc, dateFont);
    int mondayFirst = LocaleMondayFirst();
    int s1 = WeekdayColumn(month, 1, year);
    int length = MonthLength(month, year);

    for (int r = 0; r < GRID_ROWS; r++) {
        int y = GRID_TOP + GRID_PITCH * r;
        bool weekDrawn = false;
        for (int c = 0; c < GRID_COLS; c++) {
            int x = GRID_LEFT + GRID_PITCH * c;
            int index = r * GRID_COLS + c;
            COLORREF fill = s.month1color;
            bool drawCell = true;
            if (s.calendarcolorstyle == 0)
                fill = (r % 2) ? s.month2color : s.month1color;
            else if (s.calendarcolorstyle == 1) {
                bool weekend = mondayFirst ? (c == 5 || c == 6) : (c == 0 || c == 6);
                fill = weekend ? s.month2color : s.month1color;
            } else
                drawCell = false;
            if (drawCell)
                DrawCellRect(dc, x, y, x + GRID_CELL, y + GRID_CELL, kBorder, fill);

            WCHAR text[8];
            int dm, dd, dy;
            bool inMonth = GridCellDate(index, month, year, s1, &dm, &dd, &dy);
            bool shown = inMonth || s.showdays == 1;
            if (shown && IsToday(dm, dd, dy, now))
                DrawCellRect(dc, x, y, x + GRID_CELL, y + GRID_CELL, kBorder, s.todaycolor);
            if (shown) {
                swprintf(text, 8, L"%d", dd);
                SetTextColor(dc, inMonth ? s.datecolor : kNeighbourDate);
                DrawTextIn(dc, text, x, y, x + 33, y + 35, DT_RIGHT | DT_TOP);
            }
            bool weekCell = inMonth || (s.showdays == 1 && index - s1 >= length && c == 0);
            if (s.showweeknumber == 1 && !weekDrawn && weekCell) {
                DrawWeekNumber(dc, y, dm, dd, dy, mondayFirst);
                weekDrawn = true;
            }
        }
    }
}

int DrawMonthGrid(HDC dc, int month, int, int year)
{
    const AppSettings &s = g_app.settings;
    if (month < 1 || month > 12)
        return 0;
    SYSTEMTIME now;
    GetLocalTime(&now);
    SetBkMode(dc, TRANSPARENT);
    DrawHeaders(dc, year, month);
    DrawDayCells(dc, month, year, now);

    // A tap or a new request during this pass: do not show it, and do not
    // start on the store for it.
    if (PassAbandoned())
        return 0;
    if (s.showindicator == 1)
        return DrawMonthIndicators(dc, month, year);
    if (s.showholiday == 1)
        return DrawMonthIcons(dc, month, year);
    return 1;
}

BOOL MonthHitTest(int x, int y)
{
    if (x < GRID_LEFT || y < GRID_TOP)
        return FALSE;
    int c = (x - GRID_LEFT) / GRID_PITCH;
    int r = (y - GRID_TOP) / GRID_PITCH;
    if (c >= GRID_COLS || r >= GRID_ROWS)
        return FALSE;
    int dm, dd, dy;
    int month = g_app.viewMonth, year = g_app.viewYear;
    bool inMonth =
        GridCellDate(r * GRID_COLS + c, month, year, WeekdayColumn(month, 1, year), &dm, &dd, &dy);
    if (!inMonth && g_app.settings.showdays != 1)
        return FALSE;
    DWORD date = inMonth ? (DWORD)dd : (DWORD)(100 + dd);
    g_app.tapCellX = GRID_LEFT + GRID_PITCH * c;
    g_app.tapCellY = GRID_TOP + GRID_PITCH * r;
    g_app.selectedDate = date;
    return TRUE;
}
