// The schedule bars and category icons of the month view, read back from
// the back buffer after real passes over a real store. Positions come from
// the indicator geometry (cells 34 pixels apart; box at x 34c + 5, y 34r + 84,
// 28 x 6; bar pixel p at x 34c + 6 + p, y 34r + 85 to 89; all-day line at
// y 34r + 82, 83; icon n at x 34c + 4 + 10n). Run once in a Sunday-first
// and once in a Monday-first locale.
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "shell/render.h"
#include "settings/settings.h"
#include "calendar/dates.h"
#include "month/monthgrid.h"
#include "common/draw.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

static const COLORREF kFill = RGB(250, 250, 250);
static const COLORREF kAllDay = RGB(0, 200, 100);
static const COLORREF kBoxBorder = 0xADA3AD;
static const COLORREF kBoxFill = 0xFFFFFF;
static const COLORREF kBusy = 0xB5835A;
static const COLORREF kRed = 0x0000FF;

static std::string Event(const char *uid, const char *start, const char *end, const char *extra = "")
{
    bool allDay = std::string(start).find('T') == std::string::npos;
    std::string value = allDay ? ";VALUE=DATE:" : ":";
    return std::string("BEGIN:VEVENT\r\nUID:") + uid + "\r\nDTSTAMP:20300101T000000Z\r\nDTSTART" + value + start +
           "\r\nDTEND" + value + end + "\r\nSUMMARY:" + uid + "\r\n" + extra + "END:VEVENT\r\n";
}

// Each case on days of its own; the times are floating, so local.
static std::string StoreText()
{
    std::string ics = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//indicator tests//EN\r\n";
    // January 2031.
    ics += Event("overnight", "20310107T230000", "20310108T010000");
    ics += Event("early", "20310110T020000", "20310110T030000");
    ics += Event("late", "20310113T220000", "20310113T230000");
    ics += Event("first", "20310115T090000", "20310115T110000");
    ics += Event("second", "20310115T100000", "20310115T120000");
    ics += Event("to-midnight", "20310117T220000", "20310118T000000");
    ics += Event("free-day", "20310120", "20310121", "TRANSP:TRANSPARENT\r\nCATEGORIES:Business\r\n");
    ics += Event("two-cats", "20310122T090000", "20310122T100000", "CATEGORIES:Business,Personal\r\n");
    ics += Event("seven-cats", "20310124T090000", "20310124T100000", "CATEGORIES:C6,C5,C4,C3,C2,C1,C0\r\n");
    ics += Event("busy-day", "20310127", "20310128");
    ics += Event("no-cats", "20310129T090000", "20310129T100000");
    // February: one appointment a day for a week.
    ics += Event("daily", "20310203T140000", "20310203T150000", "RRULE:FREQ=DAILY;COUNT=7\r\n");
    // Around March: the neighbouring months' days, and two appointments
    // that overlap at the end of the month, the second running into April.
    ics += Event("feb-last", "20310228T100000", "20310228T110000");
    ics += Event("mid-march", "20310315T100000", "20310315T110000");
    ics += Event("eve", "20310331T220000", "20310331T233000");
    ics += Event("across", "20310331T230000", "20310401T010000");
    ics += Event("april-first", "20310401T100000", "20310401T110000");
    // April: user icons.
    ics += Event("custom", "20310415T090000", "20310415T100000", "CATEGORIES:Custom\r\n");
    ics += Event("far", "20310416T090000", "20310416T100000", "CATEGORIES:Far\r\n");
    // February 2100, which the grid gives a 29th that no calendar has,
    // and the first days of March after it.
    ics += Event("feb-2100-first", "21000201T090000", "21000201T100000");
    ics += Event("feb-2100-last", "21000228T100000", "21000228T110000");
    ics += Event("mar-2100-first", "21000301T100000", "21000301T110000");
    ics += Event("mar-2100-second", "21000302T140000", "21000302T150000");
    // June: a crowded month, for passes abandoned half-way.
    for (int day = 1; day <= 30; day++)
        for (int i = 0; i < 60; i++) {
            char uid[32], start[32], end[32];
            snprintf(uid, sizeof uid, "crowd-%d-%d", day, i);
            snprintf(start, sizeof start, "203106%02dT%02d%02d00", day, 6 + i / 4, (i % 4) * 15);
            snprintf(end, sizeof end, "203106%02dT%02d%02d00", day, 7 + i / 4, (i % 4) * 15);
            ics += Event(uid, start, end, i % 3 ? "CATEGORIES:Business, Personal\r\n" : "");
        }
    return ics + "END:VCALENDAR\r\n";
}

struct Cell {
    int r, c;
};

// The cell of a date in the grid of the given month.
static Cell CellOf(int month, int day, int year, int viewMonth, int viewYear)
{
    int first = DayNumber(viewMonth, 1, viewYear) - WeekdayColumn(viewMonth, 1, viewYear);
    int index = DayNumber(month, day, year) - first;
    return {index / 7, index % 7};
}

static char Classify(COLORREF p)
{
    switch (p) {
    case kBusy: return 'b';
    case kRed: return 'r';
    case kBoxFill: return '.';
    case kBoxBorder: return '|';
    case kFill: return ' ';
    case kAllDay: return 'a';
    default: return '?';
    }
}

// The bar's 27 pixels through the middle of the box (below the upper and
// above the lower tick marks); the last lies on the box's right edge.
static std::string Bar(Cell cell)
{
    std::string s;
    for (int p = 0; p < 27; p++)
        s += Classify(BackPixel(34 * cell.c + 6 + p, 34 * cell.r + 86));
    return s;
}

static const char kEmptyBox[] = "..........................|";
static const char kNoBox[] = "                           ";

// Empty when the 9 x 9 block at (x, y) shows `icon` of `strip` over the
// cell fill (its magenta pixels let the fill through); else the first
// difference.
static std::string IconAt(int x, int y, HBITMAP strip, int icon)
{
    HDC mem = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(mem, strip);
    std::string diff;
    for (int dy = 0; dy < 9 && diff.empty(); dy++)
        for (int dx = 0; dx < 9 && diff.empty(); dx++) {
            COLORREF want = GetPixel(mem, 9 * icon + dx, dy);
            if (want == RGB(255, 0, 255))
                want = kFill;
            COLORREF got = BackPixel(x + dx, y + dy);
            if (got != want) {
                char text[96];
                snprintf(text, sizeof text, "icon %d pixel (%d,%d): got %06lX, want %06lX", icon, dx, dy,
                         (unsigned long)got, (unsigned long)want);
                diff = text;
            }
        }
    SelectObject(mem, old);
    DeleteDC(mem);
    return diff;
}

static bool BlockIsFill(int x, int y)
{
    for (int dy = 0; dy < 9; dy++)
        for (int dx = 0; dx < 9; dx++)
            if (BackPixel(x + dx, y + dy) != kFill)
                return false;
    return true;
}

// Icon positions of the two forms.
static int IconX(Cell cell, int n)
{
    return 34 * cell.c + 4 + 10 * (n % 3);
}
static int IndicatorIconY(Cell cell)
{
    return 34 * cell.r + 72;
}
static int IconsOnlyY(Cell cell, int n)
{
    return 34 * cell.r + (n < 3 ? 81 : 71);
}

static std::wstring IconsPath()
{
    WCHAR dir[MAX_PATH];
    ProgramDirectory(dir, MAX_PATH);
    return std::wstring(dir) + L"\\icons.bmp";
}

class Indicators : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore(StoreText());
        hwnd = StartProgram();
        ASSERT_TRUE(hwnd);
        Defaults();
    }
    // The settings every case starts from: one fill for all cells, the
    // bar with icons, the default day parts, no labelled icon slots.
    static void Defaults()
    {
        AppSettings &s = g_app.settings;
        s.month1color = s.month2color = s.todaycolor = kFill;
        s.alldaycolor = kAllDay;
        s.calendarcolorstyle = 0;
        s.showdays = 0;
        s.showweeknumber = 0;
        s.showindicator = 1;
        s.showholiday = 1;
        s.showfree = 1;
        s.timeA = 12, s.timeB = 24, s.timeC = 34, s.timeD = 42; // 6:00, 12:00, 17:00, 21:00
        for (int k = 0; k < ICON_SLOTS; k++) {
            s.displayIcon[k] = (DWORD)k;
            s.displayIconString[k][0] = 0;
        }
        g_app.viewMode = VIEW_MONTH;
    }
    static void Label(int slot, const WCHAR *label, int icon)
    {
        lstrcpynW(g_app.settings.displayIconString[slot], label, ICON_LABEL_LEN);
        g_app.settings.displayIcon[slot] = (DWORD)icon;
    }
    void Show(int month, int year)
    {
        g_app.viewMonth = month;
        g_app.viewYear = year;
        ASSERT_TRUE(RedrawAndWait()) << "pass for " << month << "/" << year;
    }
    // A settings reload, as at start-up, with the rendering thread kept out.
    static void ReloadSettings()
    {
        EnterCriticalSection(&g_app.renderLock);
        FreeSettingsBitmaps();
        LoadSettings();
        LeaveCriticalSection(&g_app.renderLock);
        Defaults();
    }
    HWND hwnd = nullptr;
};

static Cell Jan(int day)
{
    return CellOf(1, day, 2031, 1, 2031);
}

TEST_F(Indicators, TimedAppointmentsOnTheBar)
{
    Show(1, 2031);
    struct {
        const char *name;
        int day;
        const char *bar;
    } cases[] = {
        {"23:00-01:00, first day: to the right end", 7, "..........................b"},
        {"23:00-01:00, second day: from the left end", 8, "b.........................|"},
        {"2:00-3:00, before the morning: 0 to 1", 10, "b.........................|"},
        {"22:00-23:00, after the evening: 26 to 27", 13, "..........................b"},
        // 9:00 -> 4, 10:00 -> 5 (in single precision just under 6), 11:00 -> 7,
        // 12:00 -> 9: the second appointment overlaps the first from 10 to 11.
        {"9:00-11:00 and 10:00-12:00", 15, "....brrbb.................|"},
        {"22:00-24:00 ends on its own day", 17, "..........................b"},
        {"... and leaves the next day bare", 18, kNoBox},
        {"a day without appointments", 19, kNoBox},
    };
    for (auto &c : cases)
        EXPECT_EQ(Bar(Jan(c.day)), c.bar) << c.name;

    // The box around the bar, and its tick marks at the band boundaries.
    Cell cell = Jan(10);
    int x = 34 * cell.c, y = 34 * cell.r;
    struct {
        const char *name;
        int x, y;
        COLORREF colour;
    } pixels[] = {
        {"box top left", x + 5, y + 84, kBoxBorder},     {"box bottom right", x + 32, y + 89, kBoxBorder},
        {"box inside", x + 20, y + 86, kBoxFill},        {"left of the box", x + 4, y + 86, kFill},
        {"right of the box", x + 33, y + 86, kFill},     {"below the box", x + 20, y + 90, kFill},
        {"above the box", x + 20, y + 83, kFill},        {"upper tick at 13", x + 13, y + 85, kBoxBorder},
        {"lower tick at 13", x + 13, y + 88, kBoxBorder}, {"upper tick at 23", x + 23, y + 85, kBoxBorder},
        {"lower tick at 23", x + 23, y + 88, kBoxBorder}, {"between the ticks", x + 13, y + 86, kBoxFill},
    };
    for (auto &p : pixels)
        EXPECT_EQ(BackPixel(p.x, p.y), p.colour) << p.name;
}

TEST_F(Indicators, BandBoundariesFollowTheSettings)
{
    // Morning from 0:00 to 12:00: 9:00 is now 6.75 pixels in, 10:00 7.5,
    // 11:00 8.25 and 12:00 the end of the morning.
    g_app.settings.timeA = 0;
    Show(1, 2031);
    EXPECT_EQ(Bar(Jan(15)), "......brb.................|");
    EXPECT_EQ(Bar(Jan(10)), ".b........................|") << "2:00 -> 1.5, 3:00 -> 2.25";
}

TEST_F(Indicators, AllDayAppointments)
{
    Cell busy = Jan(27), free = Jan(20);
    struct {
        const char *name;
        DWORD showfree;
        Cell cell;
        bool line;
    } cases[] = {
        {"busy, showfree 1", 1, busy, true},  {"busy, showfree 0", 0, busy, true},
        {"free, showfree 1", 1, free, true},  {"free, showfree 0", 0, free, false},
    };
    Label(0, L"Business", 3);
    for (auto &c : cases) {
        g_app.settings.showfree = c.showfree;
        Show(1, 2031);
        int x = 34 * c.cell.c, y = 34 * c.cell.r;
        COLORREF line = c.line ? kAllDay : kFill;
        EXPECT_EQ(BackPixel(x + 5, y + 82), line) << c.name;
        EXPECT_EQ(BackPixel(x + 32, y + 83), line) << c.name;
        EXPECT_EQ(BackPixel(x + 33, y + 82), kFill) << c.name << ": the line is 28 wide";
        EXPECT_EQ(BackPixel(x + 20, y + 81), kFill) << c.name << ": and 2 high";
        EXPECT_EQ(Bar(c.cell), c.line ? kEmptyBox : kNoBox) << c.name << ": a box, empty";
        if (c.cell.r == free.r && c.cell.c == free.c) {
            EXPECT_EQ(IconAt(IconX(free, 0), IndicatorIconY(free), g_app.bmpIcons, 3), "") << c.name;
        }
    }
    // An all-day appointment ends at the next midnight: the day after is bare.
    EXPECT_EQ(BackPixel(34 * Jan(28).c + 5, 34 * Jan(28).r + 82), kFill);
    EXPECT_EQ(Bar(Jan(28)), kNoBox);

    // Without the bar the free day's icons still show.
    g_app.settings.showindicator = 0;
    Show(1, 2031);
    EXPECT_EQ(IconAt(IconX(free, 0), IconsOnlyY(free, 0), g_app.bmpIcons, 3), "");
    EXPECT_EQ(BackPixel(34 * free.c + 20, 34 * free.r + 82), kFill) << "no line without the bar";
}

TEST_F(Indicators, CategoriesMatchExactly)
{
    Label(0, L"business", 5);
    Label(1, L"Business", 0);
    Label(2, L"Personal", 1);
    Label(3, L"(None)", 22);
    Show(1, 2031);
    Cell two = Jan(22);
    EXPECT_EQ(IconAt(IconX(two, 0), IndicatorIconY(two), g_app.bmpIcons, 0), "") << "Business, first";
    EXPECT_EQ(IconAt(IconX(two, 1), IndicatorIconY(two), g_app.bmpIcons, 1), "") << "Personal after the blank";
    EXPECT_TRUE(BlockIsFill(IconX(two, 2), IndicatorIconY(two))) << "no third icon: business does not match";
    Cell none = Jan(29);
    EXPECT_EQ(IconAt(IconX(none, 0), IndicatorIconY(none), g_app.bmpIcons, 22), "") << "no categories: (None)";
    EXPECT_TRUE(BlockIsFill(IconX(none, 1), IndicatorIconY(none)));
    EXPECT_EQ(IconAt(IconX(Jan(10), 0), IndicatorIconY(Jan(10)), g_app.bmpIcons, 22), "")
        << "every appointment without categories gets it";

    // Without "Show month view icons" the bar comes alone.
    g_app.settings.showholiday = 0;
    Show(1, 2031);
    EXPECT_TRUE(BlockIsFill(IconX(two, 0), IndicatorIconY(two)));
    EXPECT_EQ(Bar(two), "....b.....................|") << "9:00-10:00";
}

TEST_F(Indicators, SlotOrderDecidesWhichIconsFit)
{
    // Labels C0..C6 in slots 0..6 with icons 10..16; the appointment lists
    // them the other way round.
    for (int k = 0; k < 7; k++) {
        WCHAR label[4] = {L'C', (WCHAR)(L'0' + k), 0};
        Label(k, label, 10 + k);
    }
    Cell cell = Jan(24);
    Show(1, 2031);
    for (int n = 0; n < 3; n++)
        EXPECT_EQ(IconAt(IconX(cell, n), IndicatorIconY(cell), g_app.bmpIcons, 10 + n), "") << "bar form, icon " << n;

    g_app.settings.showindicator = 0;
    Show(1, 2031);
    for (int n = 0; n < 6; n++)
        EXPECT_EQ(IconAt(IconX(cell, n), IconsOnlyY(cell, n), g_app.bmpIcons, 10 + n), "") << "icons only, icon " << n;
    EXPECT_EQ(BackPixel(34 * cell.c + 34, 34 * cell.r + 86), kFill) << "no box in the icons-only form";

    // Neither form: the grid alone.
    g_app.settings.showholiday = 0;
    Show(1, 2031);
    for (int n = 0; n < 6; n++)
        EXPECT_TRUE(BlockIsFill(IconX(cell, n), IconsOnlyY(cell, n))) << "icon " << n;
}

TEST_F(Indicators, NeighbouringDaysOnlyWithShowdays)
{
    Cell feb = CellOf(2, 28, 2031, 3, 2031), apr = CellOf(4, 1, 2031, 3, 2031), mid = CellOf(3, 15, 2031, 3, 2031);
    Label(0, L"(None)", 4);
    Show(3, 2031);
    EXPECT_EQ(Bar(feb), kNoBox) << "28 February";
    EXPECT_EQ(Bar(apr), kNoBox) << "1 April";
    EXPECT_TRUE(BlockIsFill(IconX(feb, 0), IndicatorIconY(feb)));
    EXPECT_TRUE(BlockIsFill(IconX(apr, 0), IndicatorIconY(apr)));
    EXPECT_EQ(Bar(mid), ".....bb...................|") << "15 March, 10:00-11:00";

    g_app.settings.showdays = 1;
    Show(3, 2031);
    EXPECT_EQ(Bar(feb), ".....bb...................|") << "28 February, from the leading days' query";
    EXPECT_EQ(IconAt(IconX(feb, 0), IndicatorIconY(feb), g_app.bmpIcons, 4), "");
    // 1 April: the end of the appointment from 31 March, then 10:00-11:00.
    EXPECT_EQ(Bar(apr), "b....bb...................|") << "1 April, from the trailing days' query";
}

TEST_F(Indicators, AppointmentAcrossTheMonthsEndIsDrawnOnce)
{
    // 22:00-23:30 and 23:00-01:00 on 31 March: the red overlap stays, though
    // the store also gives the second to the trailing days' query.
    g_app.settings.showdays = 1;
    for (int view : {3, 4}) {
        Show(view, 2031);
        Cell eve = CellOf(3, 31, 2031, view, 2031);
        EXPECT_EQ(Bar(eve), "..........................r") << "viewing month " << view;
    }
}

TEST_F(Indicators, DailyRecurringAppointmentMarksEachDay)
{
    Show(2, 2031);
    for (int day = 2; day <= 10; day++) {
        Cell cell = CellOf(2, day, 2031, 2, 2031);
        bool inSeries = day >= 3 && day <= 9;
        // 14:00 -> 12, 15:00 -> 14.
        EXPECT_EQ(Bar(cell), inSeries ? "............bb............|" : kNoBox) << "2031-02-" << day;
    }
}

// A 24-bit strip of two user icons: 39 green, 40 blue, each with a magenta
// frame that must let the cell through.
static std::vector<BYTE> UserStrip()
{
    return BmpFile24(18, 9, [](int x, int y) {
        int dx = x % 9;
        bool frame = dx == 0 || dx == 8 || y == 0 || y == 8;
        return frame ? RGB(255, 0, 255) : x < 9 ? RGB(20, 180, 40) : RGB(30, 60, 220);
    });
}

TEST_F(Indicators, UserIcons)
{
    std::vector<BYTE> strip = UserStrip();
    HANDLE f = CreateFileW(IconsPath().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE);
    DWORD done = 0;
    WriteFile(f, strip.data(), (DWORD)strip.size(), &done, nullptr);
    CloseHandle(f);
    ReloadSettings();
    ASSERT_EQ(g_app.userIconsPresent, 1);

    Cell custom = CellOf(4, 15, 2031, 4, 2031), beyond = CellOf(4, 16, 2031, 4, 2031);
    for (int present : {1, 0}) {
        Label(0, L"Custom", 40);
        Label(1, L"Far", 41); // past the strip's two icons
        Show(4, 2031);
        int x = IconX(custom, 0), y = IndicatorIconY(custom);
        if (present) {
            EXPECT_EQ(BackPixel(x, y), kFill) << "magenta is transparent";
            EXPECT_EQ(BackPixel(x + 4, y + 4), RGB(30, 60, 220)) << "icon 40 is the strip's second";
            EXPECT_EQ(BackPixel(x + 8, y + 1), kFill);
        } else {
            EXPECT_EQ(IconAt(x, y, g_app.bmpIcons, 2), "") << "no icons.bmp: the built-in icon 2";
        }
        EXPECT_EQ(IconAt(IconX(beyond, 0), IndicatorIconY(beyond), g_app.bmpIcons, 2), "")
            << "a number past the strip, strip " << (present ? "present" : "missing");
        DeleteFileW(IconsPath().c_str());
        ReloadSettings();
    }
    ASSERT_EQ(g_app.userIconsPresent, 0);
}

// Redraw requests while passes walk the crowded month abandon them; every
// pen, brush and memory context of an abandoned pass is freed.
static volatile LONG g_passWalked;
// Counts what the pass has drawn, and now and then gives the test a moment,
// so that a pass is still walking when the next request comes however fast
// the drawing is.
static void CountAndDwell()
{
    if (InterlockedIncrement(&g_passWalked) % 50 == 0)
        Sleep(1);
}

TEST_F(Indicators, AbandonedPassesFreeEverything)
{
    Label(0, L"Business", 0);
    Label(1, L"Personal", 1);
    Label(2, L"(None)", 2);
    // Warm up both forms.
    g_app.settings.showindicator = 0;
    Show(6, 2031);
    g_app.settings.showindicator = 1;
    Show(6, 2031);
    Cell cell = CellOf(6, 30, 2031, 6, 2031);
    std::string full = Bar(cell);

    int before = CountGdiObjects();
    std::string summary = GdiObjectSummary();
    // Each request cuts short the pass the one before it started, once that
    // pass has drawn its first appointment and a few milliseconds more,
    // different each time.
    g_passProgressHook = CountAndDwell;
    int abandoned = 0;
    for (int i = 0; i < 201; i++) {
        if (g_app.renderState == RENDER_DRAWING)
            abandoned++;
        g_app.settings.showindicator = i % 2;
        g_passWalked = 0;
        RequestRedraw();
        while (g_app.renderState == RENDER_REQUESTED)
            Sleep(0);
        while (g_app.renderState == RENDER_DRAWING && g_passWalked == 0)
            Sleep(0);
        Sleep(i % 9);
    }
    g_passProgressHook = nullptr;
    g_app.settings.showindicator = 1;
    Show(6, 2031);
    EXPECT_GE(abandoned, 190) << "requests that came while a pass was walking the store";
    EXPECT_EQ(Bar(cell), full) << "the pass after them is whole";
    EXPECT_EQ(CountGdiObjects(), before) << "before " << summary << "after " << GdiObjectSummary();
}

// The month paints the DC it is given: a test's memory DC gets the same
// grid, bars and icons as the back buffer a pass drew.
TEST_F(Indicators, PaintsTheDCItIsGiven)
{
    Label(0, L"Business", 0);
    Label(1, L"(None)", 2);
    Show(1, 2031);
    HDC mem = CreateCompatibleDC(nullptr);
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = 240;
    bi.bmiHeader.biHeight = -270;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    void *bits = nullptr;
    HBITMAP bmp = CreateDIBSection(mem, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(mem, bmp);
    PatBlt(mem, 0, 0, 240, 270, WHITENESS);
    EnterCriticalSection(&g_app.renderLock); // the rendering thread stays out
    LONG state = g_app.renderState;
    g_app.renderState = RENDER_DRAWING;
    EXPECT_EQ(DrawMonthGrid(mem, 1, 1, 2031), 1);
    g_app.renderState = state;
    LeaveCriticalSection(&g_app.renderLock);
    int differing = 0;
    for (int y = 41; y < 262; y++)
        for (int x = 0; x < 240; x++)
            differing += GetPixel(mem, x, y) != BackPixel(x, y);
    EXPECT_EQ(differing, 0) << "pixels of the grid that differ from the back buffer's";
    EXPECT_EQ(Bar(Jan(15)), "....brrbb.................|");
    SelectObject(mem, old);
    DeleteObject(bmp);
    DeleteDC(mem);
}

// The grid gives February 2100 a 29th (its four-year rule), a day no
// calendar has: the month's appointments still show, that cell stays
// bare, and March's days come in the cells that say March.
TEST_F(Indicators, FebruaryOfACenturyYear)
{
    int feb = WeekdayColumn(2, 1, 2100), mar = WeekdayColumn(3, 1, 2100);
    struct {
        const char *name;
        int month, showdays, index;
        const char *bar;
    } cases[] = {
        {"1 February", 2, 0, feb, "....b.....................|"},
        {"28 February", 2, 0, feb + 27, ".....bb...................|"},
        {"the grid's 29 February", 2, 0, feb + 28, kNoBox},
        {"1 March, hidden", 2, 0, feb + 29, kNoBox},
        {"the grid's 29 February, neighbours shown", 2, 1, feb + 28, kNoBox},
        {"1 March after it", 2, 1, feb + 29, ".....bb...................|"},
        {"2 March after it", 2, 1, feb + 30, "............bb............|"},
        {"1 March in March", 3, 1, mar, ".....bb...................|"},
        {"the grid's 29 February before March", 3, 1, mar - 1, kNoBox},
        {"28 February before March", 3, 1, mar - 2, ".....bb...................|"},
    };
    for (auto &c : cases) {
        if (c.index < 0)
            continue; // a month that starts in the first column
        g_app.settings.showdays = (DWORD)c.showdays;
        Show(c.month, 2100);
        EXPECT_EQ(Bar({c.index / 7, c.index % 7}), c.bar) << c.name;
    }
}

// A slow store, through the test seam: each appointment takes a little
// longer than a screen refresh, and the pass is held after its third.
static HANDLE g_held, g_release;
static LONG g_appointmentsDrawn;
static void HoldAfterThird()
{
    if (InterlockedIncrement(&g_appointmentsDrawn) == 3) {
        SetEvent(g_held);
        WaitForSingleObject(g_release, 10000);
    } else {
        Sleep(20);
    }
}

// A paint in the middle of a slow pass copies what the pass has drawn so
// far, so the month fills in appointment by appointment and a window
// uncovered during a pass is not left blank.
TEST_F(Indicators, PaintDuringAPassShowsItSoFar)
{
    Show(1, 2031);
    HDC dc = GetDC(hwnd);
    RECT all = {0, 0, 240, 270};
    HBRUSH red = CreateSolidBrush(RGB(255, 0, 0));
    FillRect(dc, &all, red);
    DeleteObject(red);
    g_held = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_appointmentsDrawn = 0;
    g_passProgressHook = HoldAfterThird;
    RequestRedraw();
    ASSERT_EQ(WaitForSingleObject(g_held, 10000), WAIT_OBJECT_0);
    RedrawWindow(hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
    // The first three in order of start: 23:00-1:00 on the 7th, 2:00-3:00
    // on the 10th, 22:00-23:00 on the 13th. The 15th's comes later.
    struct {
        const char *name;
        int day, pixel;
        COLORREF colour;
    } cases[] = {
        {"the 7th, to the right end", 7, 26, kBusy}, {"the 8th, from the left end", 8, 0, kBusy},
        {"the 10th", 10, 0, kBusy},                  {"the 13th", 13, 26, kBusy},
        {"the 15th, not yet drawn", 15, 4, kFill},
    };
    COLORREF seen[5];
    for (int i = 0; i < 5; i++) {
        Cell cell = Jan(cases[i].day);
        seen[i] = GetPixel(dc, 34 * cell.c + 6 + cases[i].pixel, 34 * cell.r + 86);
    }
    SetEvent(g_release);
    EXPECT_TRUE(WaitForPass());
    g_passProgressHook = nullptr;
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(seen[i], cases[i].colour) << cases[i].name;
    Cell last = Jan(15);
    EXPECT_EQ(GetPixel(dc, 34 * last.c + 6 + 4, 34 * last.r + 86), kBusy) << "the whole pass, once it is done";
    ReleaseDC(hwnd, dc);
    CloseHandle(g_held);
    CloseHandle(g_release);
}

// A request made as a pass finishes, after its last look for one: the
// pass that ends must not mark itself shown over it. The request comes
// from the pass's last appointment, which then gives the test time to
// queue for the lock, so the requested pass cannot begin before the test
// has read how the first one ended.
static LONG g_requestAfter;
static void RequestAfterTheLast()
{
    if (InterlockedIncrement(&g_appointmentsDrawn) != g_requestAfter)
        return;
    RequestRedraw();
    SetEvent(g_held);
    Sleep(100);
}

TEST_F(Indicators, ARequestAsAPassEndsIsKept)
{
    Show(2, 2031);
    g_held = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_requestAfter = 0;
    g_appointmentsDrawn = 0;
    g_passProgressHook = RequestAfterTheLast;
    ASSERT_TRUE(RedrawAndWait());
    LONG count = g_appointmentsDrawn;
    ASSERT_GT(count, 0);
    LONG state = 0;
    bool read = false;
    for (int attempt = 0; attempt < 5 && !read; attempt++) {
        g_appointmentsDrawn = 0;
        g_requestAfter = count;
        LONG before = g_app.renderDone;
        RequestRedraw();
        if (WaitForSingleObject(g_held, 10000) != WAIT_OBJECT_0)
            break;
        EnterCriticalSection(&g_app.renderLock);
        DWORD start = GetTickCount();
        while (g_app.renderDone == before && GetTickCount() - start < 10000)
            Sleep(1);
        state = g_app.renderState;
        read = g_app.renderPasses == before + 1; // else the lock went to the next pass first
        LeaveCriticalSection(&g_app.renderLock);
        WaitForPass();
    }
    g_passProgressHook = nullptr;
    CloseHandle(g_held);
    ASSERT_TRUE(read);
    EXPECT_EQ(state, RENDER_REQUESTED) << "the pass that ended marked itself shown";
    EXPECT_TRUE(WaitForPass());
}
