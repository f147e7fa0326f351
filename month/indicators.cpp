// The month grid's appointment indicators and category icons. They run on
// the rendering thread as the last step of a month pass, under renderLock,
// and draw into the DC they are given (the back buffer, in a pass) over
// the day cells the grid has painted there.
//
// Per day the bar form draws a box 28 pixels wide whose inside holds a
// 27-pixel schedule: the morning (timeA to timeB), the afternoon (to
// timeC) and the evening (to timeD) take 9 pixels each. Timed appointments
// fill their part of it, a start before the end of the previous
// appointment in the same day shows the overlap in red, and all-day
// appointments draw a line above the box.
#include "indicators.h"
#include "monthgrid.h"
#include "common/appstate.h"
#include "store/store.h"
#include "common/draw.h"
#include "calendar/dates.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <cwchar>

static const COLORREF kBoxBorder = 0xADA3AD; // also the tick marks
static const COLORREF kBoxFill = 0xFFFFFF;
static const COLORREF kBusy = 0xB5835A;
static const COLORREF kOverlap = 0x0000FF;
static const COLORREF kIconKey = 0xFF00FF; // transparent in the icon strips

const int CELLS = GRID_ROWS * GRID_COLS;
const int BAR_PIXELS = 27;
const int BAND_PIXELS = 9;
const int ICON_SIZE = 9;
const int ICON_FALLBACK = 2; // the plain icon, for a user icon that is not there
const int NO_DAY = INT_MIN;  // a cell that shows no day an appointment can be on

// The three month queries, in the order they run.
enum { QUERY_LEADING, QUERY_MONTH, QUERY_TRAILING };

// What one pass has drawn so far. Only the rendering thread runs passes, one
// at a time, so this lives in the file rather than on the thread's stack;
// every pass clears it first.
static struct {
    HDC dc;              // what the pass draws into
    int mode;            // ICONS_BESIDE_INDICATOR or ICONS_ONLY
    int s, length, rows; // column of the 1st, days in the month, rows used
    int cellDay[CELLS];  // the day each cell shows (calendar/datecalc.h), or NO_DAY
    int firstOfMonth, lastOfMonth;
    int query;
    int cellIconCount[CELLS];
    unsigned char iconDrawn[ICON_SLOTS][CELLS];
    unsigned char boxDrawn[CELLS];
    unsigned char allDayDrawn[CELLS];
    // The schedule bars drawn since the last flush, pixel by pixel in the
    // order they were drawn, so a cell's bars reach the DC as a few runs of
    // colour rather than a rectangle per appointment and overlap.
    COLORREF barPixel[CELLS][BAR_PIXELS + 1];
    unsigned char barPending[CELLS];
    float bandA, bandB, bandC, bandD;
    int prevCell;
    float prevEnd;
} g_pass;

// ---- drawing ---------------------------------------------------------------

static int CellLeft(int column)
{
    return GRID_PITCH * column;
}

static int CellTop(int row)
{
    return GRID_PITCH * row;
}

static void DrawBox(HDC dc, int row, int column)
{
    int x = CellLeft(column), y = CellTop(row);
    DrawCellRect(dc, x + 5, y + 84, x + 5 + 28, y + 84 + 6, kBoxBorder, kBoxFill);
}

static const COLORREF kNoBar = CLR_INVALID;

// The part of the schedule from p1 to p2 (0-27), at least one pixel wide,
// over what the cell's bars had there; drawn at the next flush.
static void DrawBar(int cell, int p1, int p2, COLORREF colour)
{
    int width = p2 - p1 > 1 ? p2 - p1 : 1;
    COLORREF *pixel = g_pass.barPixel[cell];
    for (int p = p1 < 0 ? 0 : p1; p < p1 + width && p <= BAR_PIXELS; p++)
        pixel[p] = colour;
    g_pass.barPending[cell] = 1;
}

// Draws the bars of every cell that has new ones, each run of one colour
// as one rectangle: the pixels are those of the bars drawn one by one.
static void FlushBars()
{
    HDC dc = g_pass.dc;
    for (int cell = 0; cell < CELLS; cell++) {
        if (!g_pass.barPending[cell])
            continue;
        g_pass.barPending[cell] = 0;
        const COLORREF *pixel = g_pass.barPixel[cell];
        int left = CellLeft(cell % GRID_COLS) + 6, top = CellTop(cell / GRID_COLS) + 85;
        for (int p = 0; p <= BAR_PIXELS;) {
            int end = p + 1;
            while (end <= BAR_PIXELS && pixel[end] == pixel[p])
                end++;
            if (pixel[p] != kNoBar)
                DrawCellRect(dc, left + p, top, left + end, top + 5, pixel[p], pixel[p]);
            p = end;
        }
    }
}

static void DrawAllDayLine(HDC dc, int cell, int row, int column)
{
    // Every all-day appointment of the day draws the same line.
    if (g_pass.allDayDrawn[cell])
        return;
    g_pass.allDayDrawn[cell] = 1;
    int x = CellLeft(column), y = CellTop(row);
    COLORREF colour = g_app.settings.alldaycolor;
    DrawCellRect(dc, x + 5, y + 82, x + 5 + 28, y + 82 + 2, colour, colour);
}

// Marks the band boundaries on a box, from its top and bottom edges.
static void DrawTicks(HDC dc, int row, int column)
{
    int x = CellLeft(column), y = CellTop(row);
    ScopedPen pen(CreatePen(PS_SOLID, 1, kBoxBorder));
    ScopedSelect selectPen(dc, pen);
    static const int kTickX[] = {13, 23};
    for (int dx : kTickX) {
        MoveToEx(dc, x + dx, y + 84, nullptr);
        LineTo(dc, x + dx, y + 86);
        MoveToEx(dc, x + dx, y + 89, nullptr);
        LineTo(dc, x + dx, y + 87);
    }
}

void DrawIcon(HDC dc, int iconNumber, int x, int y)
{
    // A number past the user's strip, or any user number without the strip,
    // gets the plain built-in icon rather than nothing.
    if (iconNumber >= BUILTIN_ICONS && iconNumber < g_app.iconCount && g_app.userIconsPresent &&
        DrawTransparentBitmapAt(dc, g_app.userIconsBitmap, ICON_SIZE * (iconNumber - BUILTIN_ICONS),
                                0, x, y, ICON_SIZE, ICON_SIZE, kIconKey))
        return;
    int icon = iconNumber >= 0 && iconNumber < BUILTIN_ICONS ? iconNumber : ICON_FALLBACK;
    DrawTransparentBitmapAt(dc, g_app.bmpIcons, ICON_SIZE * icon, 0, x, y, ICON_SIZE, ICON_SIZE,
                            kIconKey);
}

// ---- the schedule bar --------------------------------------------------------

// A part of the day spread over its 9 pixels; a part of no length (two
// settings on the same half hour, or out of order) takes none of them.
static int BandOffset(float t, float from, float to)
{
    float length = to - from;
    if (!(length > 0.0f))
        return 0;
    return (int)std::floor((float)BAND_PIXELS * (t - from) / length);
}

// The pixel of a time of day, from the band boundaries. The sums are made
// in single precision, as the boundaries are kept, so a time on a
// boundary always lands on the same pixel.
static int BandPixel(float t)
{
    const float a = g_pass.bandA, b = g_pass.bandB, c = g_pass.bandC;
    int p = 0;
    if (t >= a && t <= b)
        p = BandOffset(t, a, b);
    else if (t > b && t <= c)
        p = BAND_PIXELS + BandOffset(t, b, c);
    else if (t > c)
        p = 2 * BAND_PIXELS + BandOffset(t, c, g_pass.bandD);
    return p < 0 ? 0 : p > BAR_PIXELS ? BAR_PIXELS : p;
}

// Before the morning a start takes the first pixel and an end the one
// after it; after the evening a start takes the last pixel and an end
// reaches the box's end, so every appointment shows.
static int StartPixel(float t)
{
    int p = BandPixel(t);
    if (t >= g_pass.bandD)
        p = BAR_PIXELS - 1;
    if (t < g_pass.bandA)
        p = 0;
    return p;
}

static int EndPixel(float t)
{
    int p = BandPixel(t);
    if (t >= g_pass.bandD)
        p = BAR_PIXELS;
    if (t < g_pass.bandA)
        p = 1;
    return p;
}

// ---- the day as the store is told the pass reads it --------------------------

// The seconds of the day where a start's or an end's pixel may change (the band
// boundaries and the boundaries of each band's pixels), and the pixels of the
// stretches between them, read at each stretch's middle: with these the store
// leaves out only what the bar would draw over anyway (store/store.h).
static void BuildDayGrid(DayGrid *g)
{
    const long kDaySeconds = 86400;
    const float bands[] = {g_pass.bandA, g_pass.bandB, g_pass.bandC, g_pass.bandD};
    long at[4];
    for (int i = 0; i < 4; i++)
        at[i] = (long)std::lround((double)bands[i] * kDaySeconds);
    long marks[4 + 3 * (BAND_PIXELS - 1)];
    int n = 0;
    for (int i = 0; i < 4; i++) {
        marks[n++] = at[i];
        if (i < 3 && at[i + 1] > at[i])
            for (int k = 1; k < BAND_PIXELS; k++)
                marks[n++] = at[i] + (long)std::lround((double)(at[i + 1] - at[i]) * k / BAND_PIXELS);
    }
    std::sort(marks, marks + n);
    g->count = 0;
    for (int i = 0; i < n; i++)
        if (marks[i] > 0 && marks[i] < kDaySeconds && (g->count == 0 || marks[i] > g->marks[g->count - 1]))
            g->marks[g->count++] = marks[i];
    // The days the pass draws: the first and last of its cells (cells that
    // show no day lie before or after those, or are February's 29th of 2100,
    // which no calendar has).
    g->firstDay = g->lastDay = 0;
    for (int cell = 0; cell < CELLS; cell++) {
        if (g_pass.cellDay[cell] == NO_DAY)
            continue;
        if (!g->firstDay)
            g->firstDay = g_pass.cellDay[cell];
        g->lastDay = g_pass.cellDay[cell];
    }
    g->pixels = 1;
    for (int i = 0; i <= g->count; i++) {
        long from = i == 0 ? 0 : g->marks[i - 1], to = i == g->count ? kDaySeconds : g->marks[i];
        float t = (float)((from + to) / 2.0 / kDaySeconds);
        g->startPixel[i] = (BYTE)StartPixel(t);
        g->endPixel[i] = (BYTE)EndPixel(t);
    }
}

// ---- icons -----------------------------------------------------------------

// Whether `label` is one of the categories, which are separated by commas
// or line feeds, each perhaps after blanks. The match is exact and
// case-sensitive. An empty label is an unused slot and matches nothing.
static bool HasCategory(const WCHAR *categories, const WCHAR *label)
{
    size_t labelLength = wcsnlen(label, ICON_LABEL_LEN);
    if (labelLength == 0)
        return false;
    const WCHAR *p = categories;
    for (;;) {
        while (*p == L' ' || *p == L'\t')
            p++;
        const WCHAR *end = p;
        while (*end && *end != L',' && *end != L'\n')
            end++;
        if ((size_t)(end - p) == labelLength && wcsncmp(p, label, labelLength) == 0)
            return true;
        if (!*end)
            return false;
        p = end + 1;
    }
}

static void IconPosition(int n, int row, int column, int mode, int *x, int *y)
{
    int left = CellLeft(column) + 4, top = CellTop(row);
    if (mode == ICONS_ONLY && n >= 3) {
        *x = left + 10 * (n - 3);
        *y = top + 71;
    } else {
        *x = left + 10 * n;
        *y = top + (mode == ICONS_ONLY ? 81 : 72);
    }
}

void PlaceDayIcons(HDC dc, const WCHAR *categories, int cell, int row, int column, int mode)
{
    if (cell < 0 || cell >= CELLS)
        return;
    if (!categories)
        categories = L"";
    const AppSettings &s = g_app.settings;
    int limit = mode == ICONS_ONLY ? ICONS_ONLY : ICONS_BESIDE_INDICATOR;
    for (int k = 0; k < ICON_SLOTS; k++) {
        if (g_pass.cellIconCount[cell] >= limit)
            return;
        if (g_pass.iconDrawn[k][cell])
            continue;
        // An appointment without categories shows the icon of the slot
        // labelled "(None)".
        bool match = categories[0]
                         ? HasCategory(categories, s.displayIconString[k])
                         : wcsncmp(s.displayIconString[k], L"(None)", ICON_LABEL_LEN) == 0;
        if (!match)
            continue;
        int x, y;
        IconPosition(g_pass.cellIconCount[cell], row, column, mode, &x, &y);
        DrawIcon(dc, (int)s.displayIcon[k], x, y);
        g_pass.cellIconCount[cell]++;
        g_pass.iconDrawn[k][cell] = 1;
    }
}

// ---- one pass ----------------------------------------------------------------

static void PlaceTimedDay(HDC dc, float t1, float t2, int day, int firstDay, int lastDay, int cell,
                          int row, int column)
{
    int p1 = StartPixel(t1), p2 = EndPixel(t2);
    if (day > firstDay)
        p1 = 0;
    if (day < lastDay)
        p2 = BAR_PIXELS;
    if (!g_pass.boxDrawn[cell]) {
        DrawBox(dc, row, column);
        g_pass.boxDrawn[cell] = 1;
    }
    DrawBar(cell, p1, p2, kBusy);
    // Appointments come in order of start, so one that starts before the
    // previous one in this day ended overlaps it up to that end.
    bool overlap = g_pass.prevCell == cell && g_pass.prevEnd > t1;
    if (overlap)
        DrawBar(cell, p1, EndPixel(g_pass.prevEnd), kOverlap);
    g_pass.prevCell = cell;
    if (!overlap)
        g_pass.prevEnd = t2;
}

// Spreads one appointment over the days it covers in the grid.
static void PlaceAppointment(HDC dc, const AppointmentTimes &t, const WCHAR *categories)
{
    const AppSettings &s = g_app.settings;
    int firstDay = OleDayOf(t.start), lastDay = LastOleDayOf(t.start, t.end);
    float t1 = (float)OleTimeOfDay(t.start);
    // An end at midnight closes the day before: there it is 24:00.
    float t2 = lastDay < OleDayOf(t.end) ? 1.0f : (float)OleTimeOfDay(t.end);
    bool counts = !(t.allDay && t.busyStatus == olFree && s.showfree == 0);

    // The cells are walked rather than the days, so an appointment over
    // years costs no more than one over the grid.
    for (int cell = 0; cell < CELLS; cell++) {
        int day = g_pass.cellDay[cell];
        if (day == NO_DAY || day < firstDay || day > lastDay)
            continue;
        int row = cell / GRID_COLS, column = cell % GRID_COLS;
        if (g_pass.mode == ICONS_ONLY) {
            PlaceDayIcons(dc, categories, cell, row, column, ICONS_ONLY);
            continue;
        }
        if (t.allDay) {
            if (counts) {
                DrawAllDayLine(dc, cell, row, column);
                if (!g_pass.boxDrawn[cell]) {
                    DrawBox(dc, row, column);
                    g_pass.boxDrawn[cell] = 1;
                }
            }
        } else {
            PlaceTimedDay(dc, t1, t2, day, firstDay, lastDay, cell, row, column);
        }
        if (s.showholiday == 1)
            PlaceDayIcons(dc, categories, cell, row, column, ICONS_BESIDE_INDICATOR);
    }
}

static int VisitAppointment(IAppointment *item, void *)
{
    // A tap or a new request: the query releases this item and its
    // collection, and the pass is abandoned.
    if (PassAbandoned())
        return 0;
    // An appointment whose times the store cannot give is left out.
    AppointmentTimes t;
    if (!ReadAppointmentTimes(item, &t) || !std::isfinite(t.start) || !std::isfinite(t.end))
        return 1;
    // The store answers the three queries by whole days, so an appointment
    // across the 1st also comes from the month's query, and one across the
    // month's last day also from the trailing days' query. Each query keeps
    // only the appointments that start in its own span, so each is drawn
    // once: drawn again, its bar would cover a red overlap drawn since.
    int startDay = OleDayOf(t.start);
    if ((g_pass.query == QUERY_MONTH && startDay < g_pass.firstOfMonth) ||
        (g_pass.query == QUERY_TRAILING && startDay <= g_pass.lastOfMonth))
        return 1;

    BSTR categories = nullptr;
    if (g_pass.mode == ICONS_ONLY || g_app.settings.showholiday == 1) {
        if (FAILED(item->get_Categories(&categories)))
            categories = nullptr;
    }
    PlaceAppointment(g_pass.dc, t, categories ? categories : L"");
    FreeStoreString(categories);
    ShowPassProgress(FlushBars);
    return 1;
}

// The date of a grid cell as the store knows it. The grid gives February
// a 29th every fourth year, so in a year like 2100 it shows a day that no
// calendar has; the queries ask for the 28th in its place. Nothing is
// drawn in that cell, and the next month's days keep the cells that name
// them.
static SYSTEMTIME StoreDateOfCell(int cell, int month, int year)
{
    int m, d, y;
    GridCellDate(cell, month, year, g_pass.s, &m, &d, &y);
    int length = CalendarMonthLength(m, y);
    return SystemDate(m, d < length ? d : length, y);
}

// Sets up the pass and walks the month's appointments; 0 when a redraw
// request abandoned it.
static int RunPass(HDC dc, int month, int year, int mode)
{
    if (PassAbandoned())
        return 0;
    if (month < 1 || month > 12)
        return 0;
    const AppSettings &s = g_app.settings;
    g_pass.dc = dc;
    g_pass.mode = mode;
    g_pass.s = WeekdayColumn(month, 1, year);
    g_pass.length = MonthLength(month, year);
    if (s.showdays == 1) {
        g_pass.rows = 6;
    } else {
        // Only the rows that hold the month's days; the quotient is taken
        // in single precision, where 35 / 7 still comes out as 5.
        float q = (float)(g_pass.s + g_pass.length) * (1.0f / 7.0f);
        g_pass.rows = q > 5.0f ? 6 : q > 4.0f ? 5 : 4;
    }
    int lastCell = 7 * g_pass.rows - 1;
    for (int cell = 0; cell < CELLS; cell++) {
        int m, d, y;
        bool inMonth = GridCellDate(cell, month, year, g_pass.s, &m, &d, &y);
        bool shown = cell <= lastCell && (inMonth || s.showdays == 1);
        g_pass.cellDay[cell] =
            shown && d <= CalendarMonthLength(m, y) ? OleDayNumber(m, d, y) : NO_DAY;
    }
    SYSTEMTIME firstShown = StoreDateOfCell(0, month, year);
    SYSTEMTIME first = StoreDateOfCell(g_pass.s, month, year);
    SYSTEMTIME last = StoreDateOfCell(g_pass.s + g_pass.length - 1, month, year);
    SYSTEMTIME lastShown = StoreDateOfCell(lastCell, month, year);
    g_pass.firstOfMonth = OleDayNumber(first.wMonth, first.wDay, first.wYear);
    g_pass.lastOfMonth = OleDayNumber(last.wMonth, last.wDay, last.wYear);

    memset(g_pass.cellIconCount, 0, sizeof(g_pass.cellIconCount));
    memset(g_pass.iconDrawn, 0, sizeof(g_pass.iconDrawn));
    memset(g_pass.boxDrawn, 0, sizeof(g_pass.boxDrawn));
    memset(g_pass.allDayDrawn, 0, sizeof(g_pass.allDayDrawn));
    memset(g_pass.barPending, 0, sizeof(g_pass.barPending));
    for (auto &pixels : g_pass.barPixel)
        for (COLORREF &p : pixels)
            p = kNoBar;
    // The boundaries of this pass, from the settings as they are now.
    g_pass.bandA = (float)SlotDayFraction((int)s.timeA);
    g_pass.bandB = (float)SlotDayFraction((int)s.timeB);
    g_pass.bandC = (float)SlotDayFraction((int)s.timeC);
    g_pass.bandD = (float)SlotDayFraction((int)s.timeD);
    g_pass.prevCell = -1;
    g_pass.prevEnd = 0.0f;
    StartPassProgress();

    struct {
        int query;
        const SYSTEMTIME &from, &to;
        const WCHAR *tmpl;
    } const queries[] = {
        {QUERY_LEADING, firstShown, first, RestrictOverlapBeforeSecond},
        {QUERY_MONTH, first, last, RestrictOverlapClosed},
        {QUERY_TRAILING, last, lastShown, RestrictOverlapAfterFirst},
    };
    // A series that floods a day (a rule repeating every minute) would cost
    // the pass seconds: the store leaves out what the bar draws over anyway.
    DayGrid grid;
    BuildDayGrid(&grid);
    for (const auto &q : queries) {
        g_pass.query = q.query;
        if (!QueryAppointments(q.from, q.to, q.tmpl, VisitAppointment, nullptr, QUERY_RENDERING,
                               &grid, nullptr))
            return 0;
    }
    FlushBars();
    return 1;
}

int DrawMonthIndicators(HDC dc, int month, int year)
{
    if (!RunPass(dc, month, year, ICONS_BESIDE_INDICATOR))
        return 0;
    for (int cell = 0; cell < CELLS; cell++)
        if (g_pass.boxDrawn[cell])
            DrawTicks(dc, cell / GRID_COLS, cell % GRID_COLS);
    return 1;
}

int DrawMonthIcons(HDC dc, int month, int year)
{
    return RunPass(dc, month, year, ICONS_ONLY);
}
