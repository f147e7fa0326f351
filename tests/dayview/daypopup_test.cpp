// The day popup, opened by the program's own hold on the month and by its entry, over a real
// store; run in a Sunday-first 12-hour locale and a Monday-first 24-hour one.
#include "support/apphost.h"
#include "support/drive.h"
#include "support/msgseq.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "calendar/dates.h"
#include "dayview/daypopup.h"
#include "month/monthgrid.h"
#include "shell/render.h"
#include "resource.h"

#include <commctrl.h>
#include <gtest/gtest.h>
#include <string>

static std::string Event(const std::string &uid, const std::string &start, const std::string &end,
                         const std::string &summary)
{
    std::string value = start.find('T') == std::string::npos ? ";VALUE=DATE:" : ":";
    return "BEGIN:VEVENT\r\nUID:" + uid + "\r\nDTSTAMP:20300101T000000Z\r\nDTSTART" + value +
           start + "\r\nDTEND" + value + end + "\r\nSUMMARY:" + summary + "\r\nEND:VEVENT\r\n";
}

// `count` half-hour appointments from 7:00 on `date` (yyyymmdd).
static std::string Crowd(const std::string &date, int count)
{
    std::string ics;
    for (int i = 0; i < count; i++) {
        char start[8], end[8];
        snprintf(start, sizeof start, "%02d%02d00", 7 + i / 2, i % 2 * 30);
        snprintf(end, sizeof end, "%02d%02d00", 7 + i / 2, i % 2 * 30 + 20);
        ics += Event(date + "-" + std::to_string(i), date + "T" + start, date + "T" + end,
                     "Slot " + std::to_string(i));
    }
    return ics;
}

static const std::string kLongSubject(2000, 'W');

static std::string StoreText()
{
    std::string ics =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//popup tests//EN\r\n";
    ics += Event("kickoff", "20050103T090000", "20050103T103000", "Kick-off");
    ics += Event("review", "20041230T140000", "20041230T150000", "Year-end review");
    ics += Crowd("20300312", 25) + Crowd("20300314", 10) + Crowd("20300413", 12) +
           Crowd("20300414", 12);
    ics += Event("a", "20300313T080000", "20300313T090000", "Standup");
    ics += Event("b", "20300313T100000", "20300313T110000", kLongSubject);
    ics += Event("c", "20300313T120000", "20300313T130000", "Lunch");
    // 20 March 2030, one of each time text; the one ending at midnight belongs to the 19th.
    ics += Event("span", "20300319T080000", "20300321T180000", "Conference");
    ics += Event("to-midnight", "20300319T200000", "20300320T000000", "Concert");
    ics += Event("overnight", "20300319T220000", "20300320T020000", "Night shift");
    ics += Event("holiday", "20300320", "20300321", "Holiday");
    ics += Event("early", "20300320T000500", "20300320T090500", "Early");
    ics += Event("noon", "20300320T123000", "20300320T130500", "Noon");
    ics += Event("late", "20300320T230000", "20300321T010000", "Late");
    // June 2031: a month whose pass takes a while.
    for (int day = 1; day <= 30; day++) {
        char date[16];
        snprintf(date, sizeof date, "203106%02d", day);
        ics += Crowd(date, 20);
    }
    return ics + "END:VCALENDAR\r\n";
}

class DayPopup : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore(StoreText());
        main = StartProgram();
        ASSERT_TRUE(main);
        g_app.settings.showdays = 1; // a hold on a neighbouring month's day opens it too
        g_app.settings.showindicator = 1;
        g_app.viewMode = VIEW_MONTH;
        SetForegroundWindow(main);
        Show(3, 2030);
    }
    void Show(int month, int year)
    {
        g_app.viewMonth = month;
        g_app.viewYear = year;
        ASSERT_TRUE(RedrawAndWait());
    }
    HWND main = nullptr;
};

// The origin of a date's cell in the shown month's grid.
static POINT CellOf(int month, int day, int year)
{
    int m = g_app.viewMonth, y = g_app.viewYear;
    int index = DayNumber(month, day, year) - (DayNumber(m, 1, y) - WeekdayColumn(m, 1, y));
    return {GRID_LEFT + GRID_PITCH * (index % 7), GRID_TOP + GRID_PITCH * (index / 7)};
}

// The popup opened by its entry for a day of the shown grid, held by the stylus at `cell`.
static bool OpenPopup(DWORD day, POINT cell, const std::function<void(HWND)> &script)
{
    bool opened = false;
    g_app.tapCellX = cell.x;
    g_app.tapCellY = cell.y;
    RunScripted([&] { return (INT_PTR)ShowDayPopup(g_app.hwndMain, day); },
                [&](HWND dlg) {
                    opened = true;
                    script(dlg);
                });
    return opened;
}

static std::wstring Title(HWND dlg)
{
    WCHAR text[80] = L"";
    GetWindowTextW(dlg, text, 80);
    return text;
}

static std::wstring RowText(HWND list, int row, int column)
{
    static WCHAR text[4096];
    LVITEMW item = {};
    item.iSubItem = column;
    item.pszText = text;
    item.cchTextMax = 4096;
    text[0] = 0;
    SendMessageW(list, LVM_GETITEMTEXTW, row, (LPARAM)&item);
    return text;
}

static LPARAM RowData(HWND list, int row)
{
    LVITEMW item = {};
    item.mask = LVIF_PARAM;
    item.iItem = row;
    SendMessageW(list, LVM_GETITEMW, 0, (LPARAM)&item);
    return item.lParam;
}

// The stylus as real input, so that the program sees it down while it is held.
static void PressAt(HWND w, int x, int y)
{
    POINT at = {x, y};
    ClientToScreen(w, &at);
    SetCursorPos(at.x, at.y);
    INPUT in = {};
    in.type = INPUT_MOUSE;
    in.mi.dwFlags = MOUSEEVENTF_LEFTDOWN;
    SendInput(1, &in, sizeof(in));
}

static void LiftNow()
{
    INPUT in = {};
    in.type = INPUT_MOUSE;
    in.mi.dwFlags = MOUSEEVENTF_LEFTUP;
    SendInput(1, &in, sizeof(in));
}

static void Lift()
{
    LiftNow();
    Pump(50);
}

// A tap as real input. The lift comes from a timer, which the modal loops a press may start
// (a scroll bar's, a list's drag detection) dispatch too.
static void CALLBACK LiftTimer(HWND, UINT, UINT_PTR id, DWORD)
{
    KillTimer(nullptr, id);
    LiftNow();
}

static void TapByInput(HWND w, int x, int y)
{
    SetTimer(nullptr, 0, 80, LiftTimer);
    PressAt(w, x, y);
    Pump(200);
}

// Presses on the main window at `at` for `ms` and lifts, unless a dialog the press opened has
// had the stylus lifted already; `script` gets every dialog that opens meanwhile.
static void HoldAt(HWND main, POINT at, DWORD ms, const std::function<void(HWND)> &script)
{
    RunScripted(
        [&] {
            PressAt(main, at.x, at.y);
            Pump(ms);
            if (StylusIsDown())
                Lift();
            Pump(300); // a tap's day view opens after its animation
            return (INT_PTR)0;
        },
        script);
}

static POINT Middle(POINT cell)
{
    return {cell.x + GRID_CELL / 2, cell.y + GRID_CELL / 2};
}

static bool IsPopup(HWND dlg)
{
    return GetDlgItem(dlg, IDC_POPUPLIST) != nullptr;
}

// The title in the system locale's order of day, month and year, for the two test locales.
static std::wstring ExpectedTitle(const wchar_t *enUS, const wchar_t *deDE)
{
    WCHAR name[LOCALE_NAME_MAX_LENGTH] = L"";
    GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_SNAME, name, LOCALE_NAME_MAX_LENGTH);
    return lstrcmpW(name, L"de-DE") == 0 ? deDE : enUS;
}

TEST_F(DayPopup, DaysOfTheGridAcrossTheYear)
{
    struct {
        int viewMonth, viewYear;
        DWORD param;
        const wchar_t *enUS, *deDE, *subject;
    } cases[] = {
        {12, 2004, 103, L"January 03, 2005", L"03 Januar 2005", L"Kick-off"},
        {1, 2005, 130, L"December 30, 2004", L"30 Dezember 2004", L"Year-end review"},
        {1, 2005, 3, L"January 03, 2005", L"03 Januar 2005", L"Kick-off"},
    };
    for (auto &c : cases) {
        Show(c.viewMonth, c.viewYear);
        std::wstring title;
        std::wstring subject;
        EXPECT_TRUE(OpenPopup(c.param, {100, 100}, [&](HWND dlg) {
            title = Title(dlg);
            subject = RowText(GetDlgItem(dlg, IDC_POPUPLIST), 0, 1);
            SendMessageW(dlg, WM_COMMAND, IDM_POPUPCLOSE, 0);
        }));
        EXPECT_EQ(title, ExpectedTitle(c.enUS, c.deDE)) << c.param;
        EXPECT_EQ(subject, c.subject) << c.param;
    }
    // Days the grid cannot show open nothing.
    Show(2, 2030);
    for (DWORD param : {0u, 29u, 100u, 132u, 216u})
        EXPECT_FALSE(OpenPopup(param, {100, 100}, [](HWND dlg) { EndDialog(dlg, 0); })) << param;
}

// The balloon: its region, its frame, the title strip and the white title on it.
TEST_F(DayPopup, FramedBalloonWithItsTitle)
{
    OpenPopup(14, CellOf(3, 14, 2030), [&](HWND dlg) {
        Picture pic = PaintClient(dlg);
        int w = pic.width, h = pic.height;
        ASSERT_GT(w, 100);
        HRGN shape = CreateRectRgn(0, 0, 0, 0);
        ASSERT_NE(GetWindowRgn(dlg, shape), ERROR);
        EXPECT_FALSE(PtInRegion(shape, 0, 0)) << "the corners are rounded off";
        EXPECT_FALSE(PtInRegion(shape, w - 1, h - 1));
        for (POINT p : {POINT{0, h / 2}, POINT{w - 1, h / 2}, POINT{w / 2, 0}, POINT{w / 2, h - 1}})
            EXPECT_TRUE(PtInRegion(shape, p.x, p.y)) << p.x << "," << p.y;
        DeleteObject(shape);
        // Two black pixels at each edge, inside the region, then white.
        for (int i : {0, 1}) {
            EXPECT_EQ(pic.At(i, h / 2), RGB(0, 0, 0)) << "left " << i;
            EXPECT_EQ(pic.At(w - 1 - i, h / 2), RGB(0, 0, 0)) << "right " << i;
            EXPECT_EQ(pic.At(w / 2, h - 1 - i), RGB(0, 0, 0)) << "bottom " << i;
        }
        EXPECT_EQ(pic.At(w / 2, h - 4), RGB(255, 255, 255));
        // The strip's dark bottom line, and white letters in the band of the title only.
        EXPECT_EQ(pic.At(4, 13), RGB(0x0F, 0x2F, 0x45));
        int letters = 0;
        for (int y = 0; y < 14; y++)
            for (int x = 2; x < w - 2; x++)
                letters += pic.At(x, y) == RGB(255, 255, 255);
        EXPECT_GT(letters, 30) << "the date in white on the strip";
        SendMessageW(dlg, WM_COMMAND, IDM_POPUPCLOSE, 0);
    });
}

TEST_F(DayPopup, TenRowsShowThenItScrolls)
{
    struct {
        DWORD day;
        int rows, shown;
        bool scrolls;
    } cases[] = {{12, 25, 10, true}, {14, 10, 10, false}, {13, 3, 3, false}, {15, 1, 1, false}};
    for (auto &c : cases) {
        OpenPopup(c.day, CellOf(3, c.day, 2030), [&](HWND dlg) {
            HWND list = GetDlgItem(dlg, IDC_POPUPLIST);
            EXPECT_EQ(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0), c.rows) << c.day;
            EXPECT_EQ(SendMessageW(list, LVM_GETCOUNTPERPAGE, 0, 0), c.shown) << c.day;
            RECT row = {LVIR_BOUNDS, 0, 0, 0}, inside, popup, frame;
            SendMessageW(list, LVM_GETITEMRECT, 0, (LPARAM)&row);
            GetClientRect(list, &inside);
            EXPECT_LT(inside.bottom, (c.shown + 1) * (row.bottom - row.top))
                << c.day << ": no part row";
            LONG style = GetWindowLongW(list, GWL_STYLE);
            EXPECT_EQ((style & WS_VSCROLL) != 0, c.scrolls) << c.day;
            EXPECT_FALSE(style & WS_HSCROLL) << c.day << ": long subjects end in an ellipsis";
            GetClientRect(dlg, &popup);
            GetWindowRect(list, &frame);
            EXPECT_EQ(popup.bottom, frame.bottom - frame.top + 23) << c.day;
            EXPECT_EQ(popup.right, frame.right - frame.left + 3) << c.day;
            int time = (int)SendMessageW(list, LVM_GETCOLUMNWIDTH, 0, 0);
            int subject = (int)SendMessageW(list, LVM_GETCOLUMNWIDTH, 1, 0);
            if (c.day == 15) {
                EXPECT_EQ(RowText(list, 0, 0), L"No Appointments");
                EXPECT_EQ(RowData(list, 0), -1);
                EXPECT_EQ(time, 90);
            } else {
                // The rows end 8 pixels short of the list's edge, 24 when it scrolls.
                int edge = inside.right + (c.scrolls ? GetSystemMetrics(SM_CXVSCROLL) : 0);
                EXPECT_EQ(time + subject, edge - (c.scrolls ? 24 : 8)) << c.day;
                EXPECT_NE(RowData(list, 0), -1) << c.day;
            }
            if (c.day == 13) {
                EXPECT_EQ(RowText(list, 1, 1),
                          std::wstring(kLongSubject.begin(), kLongSubject.end()));
            }
            Key(list, VK_ESCAPE);
        });
    }
}

TEST_F(DayPopup, TimeTextsAsTheDayListWritesThem)
{
    WCHAR clock[4] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ITIME, clock, 4);
    bool twelve = clock[0] == L'0';
    static const struct {
        const wchar_t *h12, *h24, *subject;
    } rows[] = {
        {L"multiday", L"multiday", L"Conference"},
        {L"multiday-2:00a", L"multiday-2:00", L"Night shift"},
        {L"All Day", L"All Day", L"Holiday"},
        {L"12:05a-9:05a", L"0:05-9:05", L"Early"},
        {L"12:30p-1:05p", L"12:30-13:05", L"Noon"},
        {L"11:00p-multiday", L"23:00-multiday", L"Late"},
    };
    OpenPopup(20, CellOf(3, 20, 2030), [&](HWND dlg) {
        HWND list = GetDlgItem(dlg, IDC_POPUPLIST);
        ASSERT_EQ(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0), 6) << "the concert ended on the 19th";
        for (int i = 0; i < 6; i++) {
            EXPECT_EQ(RowText(list, i, 0), twelve ? rows[i].h12 : rows[i].h24) << i;
            EXPECT_EQ(RowText(list, i, 1), rows[i].subject) << i;
        }
        Key(list, VK_ESCAPE);
    });
}

// Held anywhere on the grid, the popup lies whole inside the main window; away from the edges
// it sits just below and left of the stylus.
TEST_F(DayPopup, HeldNearTheEdgesItStaysInside)
{
    RECT area;
    GetClientRect(main, &area);
    MapWindowPoints(main, HWND_DESKTOP, (POINT *)&area, 2);
    for (int r : {0, 1, 5})
        for (int c : {0, 1, 6}) {
            POINT cell = {GRID_LEFT + GRID_PITCH * c, GRID_TOP + GRID_PITCH * r};
            RECT seen = {};
            int opened = 0;
            HoldAt(main, Middle(cell), 500, [&](HWND dlg) {
                opened += IsPopup(dlg);
                GetWindowRect(dlg, &seen);
                Lift();
            });
            ASSERT_EQ(opened, 1) << r << "," << c;
            EXPECT_GE(seen.left, area.left) << r << "," << c;
            EXPECT_GE(seen.top, area.top) << r << "," << c;
            EXPECT_LE(seen.right, area.right) << r << "," << c;
            EXPECT_LE(seen.bottom, area.bottom) << r << "," << c;
            if (r == 1 && c == 1) {
                EXPECT_EQ(seen.left, area.left + cell.x - 15);
                EXPECT_EQ(seen.top, area.top + cell.y + 10);
            }
        }
}

// The release that ends the hold goes to the popup, never to the main window, even where the
// stylus is over the main window: the held point lies above the popup.
static const SeqMessage kReleaseClosesThePopup[] = {{WM_LBUTTONUP, 0, 0, 0, 0}};

TEST_F(DayPopup, AHoldOpensItAQuickTapDoesNot)
{
    POINT cell = CellOf(3, 13, 2030), above = {cell.x + GRID_CELL / 2, cell.y + 4};
    struct {
        DWORD ms;
        int popups;
    } cases[] = {{60, 0}, {400, 1}, {120, 0}};
    for (auto &c : cases) {
        int popups = 0;
        std::wstring title;
        HoldAt(main, above, c.ms, [&](HWND dlg) {
            if (!IsPopup(dlg)) { // a quick tap opens the day view: not this test's
                EndDialog(dlg, 0);
                return;
            }
            popups++;
            title = Title(dlg);
            LogMessages({dlg, main}, {WM_LBUTTONUP});
            Lift();
            EXPECT_SEQUENCE(kReleaseClosesThePopup, "the release");
            StopLoggingMessages();
            EXPECT_FALSE(IsWindowVisible(dlg)) << "the release closes it";
        });
        EXPECT_EQ(popups, c.popups) << c.ms << " ms";
        if (popups) {
            EXPECT_EQ(title, ExpectedTitle(L"March 13, 2030", L"13 März 2030"));
        }
    }
}

TEST_F(DayPopup, TapsAndFocusLossCloseIt)
{
    struct {
        const char *name;
        void (*act)(HWND dlg);
        bool closes;
    } cases[] = {
        {"tap on the title", [](HWND dlg) { Tap(dlg, 60, 6); }, true},
        {"tap on a row", [](HWND dlg) { TapByInput(GetDlgItem(dlg, IDC_POPUPLIST), 30, 5); }, true},
        {"focus lost", [](HWND) { ActivateAnotherWindow(); }, true},
        {"Escape", [](HWND dlg) { Key(GetDlgItem(dlg, IDC_POPUPLIST), VK_ESCAPE); }, true},
        {"the scroll bar scrolls",
         [](HWND dlg) {
             HWND list = GetDlgItem(dlg, IDC_POPUPLIST);
             RECT rc;
             GetClientRect(list, &rc);
             TapByInput(list, rc.right + 5, rc.bottom - 5);
             EXPECT_GT(SendMessageW(list, LVM_GETTOPINDEX, 0, 0), 0);
         },
         false},
    };
    for (auto &c : cases) {
        bool open = false;
        OpenPopup(12, CellOf(3, 12, 2030), [&](HWND dlg) {
            c.act(dlg);
            Pump(20);
            open = IsWindowVisible(dlg);
            if (open)
                EndDialog(dlg, 0);
        });
        EXPECT_EQ(open, !c.closes) << c.name;
        SetForegroundWindow(main);
    }
}

TEST_F(DayPopup, NoDrawingObjectsLostOverManyOpenings)
{
    auto cycle = [](DWORD day) {
        OpenPopup(day, CellOf(3, day, 2030),
                  [](HWND dlg) { Key(GetDlgItem(dlg, IDC_POPUPLIST), VK_ESCAPE); });
    };
    cycle(12);
    int before = CountGdiObjects();
    std::string summary = GdiObjectSummary();
    for (int i = 0; i < 60; i++)
        cycle(i % 2 ? 12 : 15);
    EXPECT_EQ(CountGdiObjects(), before)
        << "before: " << summary << " after: " << GdiObjectSummary();
    EXPECT_FALSE(g_app.popupBrush || g_app.popupPen || g_app.popupListFont ||
                 g_app.popupTitleFont || g_app.popupTitleBitmap || g_app.popupRegion);
}

// A hold that stops a pass half-way leaves the whole month on the screen once the popup goes.
static HANDLE g_paused, g_resume;
static LONG g_drawn;
static void PauseHalfWay()
{
    if (InterlockedIncrement(&g_drawn) == 150) {
        SetEvent(g_paused);
        WaitForSingleObject(g_resume, 10000);
    }
}

// The drawing surface's pixels: as the window shows them, or as the back buffer holds them.
static std::vector<COLORREF> Surface(HWND w)
{
    std::vector<COLORREF> pixels;
    HDC dc = w ? GetDC(w) : nullptr;
    for (int y = 0; y < g_app.clientHeight; y++)
        for (int x = 0; x < g_app.clientWidth; x++)
            pixels.push_back(dc ? GetPixel(dc, x, y) : BackPixel(x, y));
    if (dc)
        ReleaseDC(w, dc);
    return pixels;
}

static int Differing(const std::vector<COLORREF> &a, const std::vector<COLORREF> &b)
{
    int n = 0;
    for (size_t i = 0; i < a.size() && i < b.size(); i++)
        n += a[i] != b[i];
    return n;
}

TEST_F(DayPopup, AHoldDuringAPassLeavesTheMonthWhole)
{
    Show(6, 2031);
    std::vector<COLORREF> whole = Surface(nullptr);
    g_paused = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_resume = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_drawn = 0;
    g_passProgressHook = PauseHalfWay;
    RequestRedraw();
    ASSERT_EQ(WaitForSingleObject(g_paused, 10000), WAIT_OBJECT_0);
    int popups = 0, halfDrawn = 0;
    POINT cell = CellOf(6, 4, 2031);
    RunScripted(
        [&] {
            PressAt(main, cell.x + 17, cell.y + 17);
            Pump(50);
            SetEvent(g_resume); // the tap-down has stopped the pass; it ends unshown
            Pump(500);
            if (StylusIsDown())
                Lift();
            return (INT_PTR)0;
        },
        [&](HWND dlg) {
            popups += IsPopup(dlg);
            halfDrawn = Differing(Surface(nullptr), whole);
            Lift();
        });
    g_passProgressHook = nullptr;
    EXPECT_EQ(popups, 1);
    EXPECT_GT(halfDrawn, 0) << "the pass had stopped half-way when the popup opened";
    EXPECT_TRUE(WaitForPass());
    RedrawWindow(main, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
    EXPECT_EQ(Differing(Surface(main), whole), 0) << "the month on screen is the whole month";
    CloseHandle(g_paused);
    CloseHandle(g_resume);
}

// With LF_SCREENSHOT_DIR set, writes the popup held over the month, daypopup-<locale>.bmp, as
// the main window's client area shows it; otherwise skipped. Each window's pixels are read
// from its own surface, the popup's only inside its region.
struct Canvas {
    int width, height;
    std::vector<DWORD> pixels; // 0x00RRGGBB, top row first
};

static void PaintInto(Canvas &canvas, HWND w, HRGN shape)
{
    RECT rc;
    GetWindowRect(w, &rc);
    POINT at = {rc.left, rc.top};
    ScreenToClient(g_app.hwndMain, &at);
    int width = rc.right - rc.left, height = rc.bottom - rc.top;
    BITMAPINFO bi = {};
    bi.bmiHeader = {sizeof(bi.bmiHeader), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void *bits = nullptr;
    HDC dc = CreateCompatibleDC(nullptr), surface = GetWindowDC(w);
    HBITMAP bmp = CreateDIBSection(dc, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(dc, bmp);
    BitBlt(dc, 0, 0, width, height, surface, 0, 0, SRCCOPY);
    GdiFlush();
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            int cx = at.x + x, cy = at.y + y;
            if (cx < 0 || cy < 0 || cx >= canvas.width || cy >= canvas.height ||
                (shape && !PtInRegion(shape, x, y)))
                continue;
            canvas.pixels[(size_t)cy * canvas.width + cx] = ((const DWORD *)bits)[y * width + x];
        }
    SelectObject(dc, old);
    DeleteObject(bmp);
    ReleaseDC(w, surface);
    DeleteDC(dc);
}

static bool SaveCanvas(const Canvas &canvas, const std::wstring &path)
{
    BITMAPINFOHEADER ih = {sizeof(ih), canvas.width, -canvas.height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    DWORD size = (DWORD)canvas.pixels.size() * 4;
    std::vector<DWORD> opaque(canvas.pixels); // viewers read the fourth byte as alpha
    for (DWORD &p : opaque)
        p |= 0xFF000000;
    BITMAPFILEHEADER fh = {0x4D42, (DWORD)(sizeof(fh) + sizeof(ih)) + size, 0, 0,
                           sizeof(fh) + sizeof(ih)};
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD done = 0;
    bool ok = f != INVALID_HANDLE_VALUE && WriteFile(f, &fh, sizeof(fh), &done, nullptr) &&
              WriteFile(f, &ih, sizeof(ih), &done, nullptr) &&
              WriteFile(f, opaque.data(), size, &done, nullptr);
    if (f != INVALID_HANDLE_VALUE)
        CloseHandle(f);
    return ok;
}

TEST_F(DayPopup, Screenshot)
{
    WCHAR dir[MAX_PATH] = L"";
    if (!GetEnvironmentVariableW(L"LF_SCREENSHOT_DIR", dir, MAX_PATH))
        GTEST_SKIP() << "LF_SCREENSHOT_DIR names the folder for the screenshots";
    WCHAR locale[LOCALE_NAME_MAX_LENGTH] = L"";
    GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_SNAME, locale, LOCALE_NAME_MAX_LENGTH);
    std::wstring path =
        std::wstring(dir[0] == L'/' ? L"Z:" : L"") + dir + L"\\daypopup-" + locale + L".bmp";
    RECT client;
    GetClientRect(main, &client);
    Canvas canvas = {client.right, client.bottom, {}};
    canvas.pixels.resize((size_t)canvas.width * canvas.height);
    RedrawWindow(main, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
    PaintInto(canvas, main, nullptr);
    bool saved = false;
    HoldAt(main, Middle(CellOf(3, 20, 2030)), 500, [&](HWND dlg) {
        HRGN shape = CreateRectRgn(0, 0, 0, 0);
        GetWindowRgn(dlg, shape);
        RedrawWindow(dlg, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
        PaintInto(canvas, dlg, shape);
        DeleteObject(shape);
        saved = SaveCanvas(canvas, path);
        Lift();
    });
    EXPECT_TRUE(saved) << "could not write the screenshot";
}
