// The year view, drawn by the rendering thread below the title row that
// the pass draws itself (year centred in y 0..15, arrows at (205,2) and
// (225,2), the badge at (10,5)). Layout of the 240 x 270 back buffer:
//
//   y 16 +------ 80 ------+------ 80 ------+------ 80 ------+
//        |    January     |    February    |     March      |  name, 11 high
//        |S M T W T F S   |  ...           |                |  initials, 8 high
//        | 1  2  3  4 ... |                |                |  6 rows of 7 x 11
//   y 79 +----------------+----------------+----------------+
//        |  April ...     ...                                  four rows of
//   ...                                                        blocks, 63 high
//   y 268
//
// Block (column c, row r) starts at x 2 + 80c, y 16 + 63r; its day cells
// are 11 wide and 7 high, 77 pixels for the week, starting 19 below the
// block's top. Weeks follow the locale's first day exactly, the same way
// the weekday initials do. Only the month's own days are drawn.
//
// Today's cell is filled with `todaycolor` and framed in red. With the
// `coloryearview` setting 1, every day that holds an appointment is
// filled in a light tint of the month view's busy blue, so its number
// stays as readable as the others and days in a row read as one span;
// today keeps its red frame over that fill.
//
// The badge beside the title means "this year holds appointments", so a
// glance tells whether paging on is worth it, whether or not the days are
// coloured.
//
// What the pass reads is prepared on the UI thread by one query over the
// whole year and swapped in under renderLock, so a pass sees the old year
// or the new one, never a mix; a pass only uses it when it describes the
// year being drawn.
#include "yearview.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "calendar/dates.h"
#include "store/store.h"

#include <cstdio>

static const COLORREF kHeaderText = 0x000000;

// ---- layout ------------------------------------------------------------

// The locale's first day of the week, counted from Sunday = 0 as
// DayOfWeek counts.
static int FirstWeekday()
{
    return (LocaleFirstDayOfWeek() + 1) % 7;
}

static int Column(int month, int day, int year, int first)
{
    return ((DayOfWeek(month, day, year) - first) % 7 + 7) % 7;
}

static int BlockLeft(int month)
{
    return YEAR_LEFT + YEAR_BLOCK_W * ((month - 1) % 3);
}

static int BlockTop(int month)
{
    return YEAR_TOP + YEAR_BLOCK_H * ((month - 1) / 3);
}

static void CellOrigin(int month, int day, int s1, int *x, int *y)
{
    int index = s1 + day - 1;
    *x = BlockLeft(month) + YEAR_CELL_W * (index % 7);
    *y = BlockTop(month) + YEAR_DAYS_TOP + YEAR_CELL_H * (index / 7);
}

BOOL YearCellOrigin(int month, int day, int year, int *x, int *y)
{
    if (month < 1 || month > 12 || day < 1 || day > MonthLength(month, year))
        return FALSE;
    CellOrigin(month, day, Column(month, 1, year, FirstWeekday()), x, y);
    return TRUE;
}

int YearHitTest(int x, int y, int *cellX, int *cellY)
{
    if (x < YEAR_LEFT || y < YEAR_TOP)
        return 0;
    int bc = (x - YEAR_LEFT) / YEAR_BLOCK_W, br = (y - YEAR_TOP) / YEAR_BLOCK_H;
    if (bc > 2 || br > 3)
        return 0;
    int lx = x - YEAR_LEFT - YEAR_BLOCK_W * bc;
    int ly = y - YEAR_TOP - YEAR_BLOCK_H * br - YEAR_DAYS_TOP;
    if (ly < 0 || lx >= 7 * YEAR_CELL_W || ly >= 6 * YEAR_CELL_H)
        return 0;
    int month = br * 3 + bc + 1, year = g_app.viewYear;
    int s1 = Column(month, 1, year, FirstWeekday());
    int day = (ly / YEAR_CELL_H) * 7 + lx / YEAR_CELL_W - s1 + 1;
    if (day < 1 || day > MonthLength(month, year))
        return 0;
    CellOrigin(month, day, s1, cellX, cellY);
    g_app.viewMonth = month;
    return day;
}

// ---- preparation (UI thread) -------------------------------------------

struct YearSpread {
    int firstDay, lastDay; // the year's first and last day (calendar/datecalc.h day numbers)
    int monthStart[13];    // day number of each month's 1st; [12] the next year's
    DWORD days[12];        // bit d - 1: day d holds an appointment
};

static void MarkDay(YearSpread *ys, int day)
{
    int m = 0;
    while (m < 11 && day >= ys->monthStart[m + 1])
        m++;
    int d = day - ys->monthStart[m];
    if (d >= 0 && d < 31)
        ys->days[m] |= 1u << d;
}

// Spreads one appointment (or one occurrence of a series) over its days.
static int SpreadVisit(IAppointment *item, void *context)
{
    YearSpread *ys = static_cast<YearSpread *>(context);
    AppointmentTimes t;
    if (!ReadAppointmentTimes(item, &t))
        return 1;
    int first = OleDayOf(t.start), last = LastOleDayOf(t.start, t.end);
    if (first < ys->firstDay)
        first = ys->firstDay;
    if (last > ys->lastDay)
        last = ys->lastDay;
    for (int day = first; day <= last; day++)
        MarkDay(ys, day);
    return 1;
}

void PrepareYearView(int year)
{
    YearSpread ys = {};
    for (int m = 0; m < 12; m++)
        ys.monthStart[m] = OleDayNumber(m + 1, 1, year);
    ys.monthStart[12] = OleDayNumber(1, 1, year + 1);
    ys.firstDay = ys.monthStart[0];
    ys.lastDay = ys.monthStart[12] - 1;
    // The store's date texts exist only for the platform's date range; a
    // year outside it has no appointments to show.
    if (year >= 1601 && year <= 9999) {
        QueryAppointments(SystemDate(1, 1, year), SystemDate(12, 31, year), RestrictOverlapClosed,
                          SpreadVisit, &ys, QUERY_UI);
    }
    int any = 0;
    for (DWORD bits : ys.days)
        any |= bits != 0;

    // A pass still drawing the old view gives up at its next check rather
    // than keep the lock; the redraw that follows every preparation draws
    // the new one.
    AbandonPass();
    EnterCriticalSection(&g_app.renderLock);
    for (int m = 0; m < 12; m++)
        g_app.yearBusyDays[m] = ys.days[m];
    g_app.yearBadge = any;
    g_app.yearDataYear = year;
    LeaveCriticalSection(&g_app.renderLock);
}

// ---- drawing (rendering thread) ----------------------------------------

int YearBadgeFlag(int year)
{
    return g_app.yearDataYear == year && g_app.yearBadge == 1 ? 1 : 0;
}

static void TextIn(HDC dc, const WCHAR *text, int left, int top, int right, int bottom, UINT format)
{
    DrawTextIn(dc, text, left, top, right, bottom, format | DT_NOCLIP);
}

struct YearFonts {
    HFONT name, initials, days;
};

static void DrawMonth(HDC dc, const YearFonts &fonts, const WCHAR initials[7][2], int month,
                      int year, int first, const DWORD *busy, const SYSTEMTIME &now)
{
    const AppSettings &s = g_app.settings;
    int left = BlockLeft(month), top = BlockTop(month);
    int width = 7 * YEAR_CELL_W;

    {
        ScopedSelect selectFont(dc, fonts.name);
        SetTextColor(dc, LABEL_TEXT);
        TextIn(dc, g_app.monthNames[month - 1], left, top, left + width, top + YEAR_NAME_H,
               DT_CENTER | DT_VCENTER | DT_END_ELLIPSIS);
    }
    {
        ScopedSelect selectFont(dc, fonts.initials);
        FillCellRect(dc, left, top + YEAR_NAME_H, left + width, top + YEAR_DAYS_TOP, HEADER_FILL);
        SetTextColor(dc, kHeaderText);
        for (int c = 0; c < 7; c++) {
            int x = left + YEAR_CELL_W * c;
            TextIn(dc, initials[c], x, top + YEAR_NAME_H, x + YEAR_CELL_W, top + YEAR_DAYS_TOP,
                   DT_CENTER | DT_VCENTER);
        }
    }

    ScopedSelect selectFont(dc, fonts.days);
    int s1 = Column(month, 1, year, first);
    int length = MonthLength(month, year);
    for (int day = 1; day <= length; day++) {
        int x, y;
        CellOrigin(month, day, s1, &x, &y);
        bool today = day == now.wDay && month == now.wMonth && year == now.wYear;
        bool isBusy = busy && (busy[month - 1] >> (day - 1) & 1);
        if (isBusy)
            FillCellRect(dc, x, y, x + YEAR_CELL_W, y + YEAR_CELL_H, YEAR_BUSY_FILL);
        else if (today)
            FillCellRect(dc, x, y, x + YEAR_CELL_W, y + YEAR_CELL_H, s.todaycolor);
        if (today)
            FrameCellRect(dc, x, y, x + YEAR_CELL_W, y + YEAR_CELL_H, YEAR_TODAY_FRAME);
        WCHAR text[4];
        swprintf(text, 4, L"%d", day);
        SetTextColor(dc, s.datecolor);
        TextIn(dc, text, x, y, x + YEAR_CELL_W, y + YEAR_CELL_H, DT_CENTER | DT_VCENTER);
    }
}

int DrawYearView(HDC dc, int year)
{
    const AppSettings &s = g_app.settings;
    SYSTEMTIME now;
    GetLocalTime(&now);
    const DWORD *busy =
        s.coloryearview == 1 && g_app.yearDataYear == year ? g_app.yearBusyDays : nullptr;

    // One letter per weekday, in the locale's week order.
    WCHAR initials[7][2];
    for (int c = 0; c < 7; c++) {
        WCHAR name[20];
        WeekdayHeader(c, name, 1);
        initials[c][0] = name[0];
        initials[c][1] = 0;
    }
    int first = FirstWeekday();

    ScopedFont name(CreateViewFont(11, 0, 1));
    ScopedFont initialsFont(CreateViewFont(8, 0, 0));
    ScopedFont days(CreateViewFont(10, 0, 0));
    YearFonts fonts = {name, initialsFont, days};
    SetBkMode(dc, TRANSPARENT);
    for (int month = 1; month <= 12; month++) {
        // A tap or a new request during this pass: do not show it.
        if (PassAbandoned())
            return 0;
        DrawMonth(dc, fonts, initials, month, year, first, busy, now);
    }
    return PassAbandoned() ? 0 : 1;
}
