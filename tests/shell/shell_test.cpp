// The main window as the program creates it, driven by messages the way
// the user and other programs drive it.
#include "support/apphost.h"
#include "support/drive.h"
#include "support/msgseq.h"
#include "shell/shell.h"
#include "shell/render.h"
#include "common/appstate.h"
#include "month/yearview.h"
#include "common/draw.h"
#include "platform/aygshell.h"
#include "resource.h"

#include <algorithm>
#include <commctrl.h>
#include <cstdlib>
#include <gtest/gtest.h>

class Shell : public ::testing::Test {
protected:
    void SetUp() override
    {
        hwnd = StartProgram();
        ASSERT_TRUE(hwnd);
        if (g_app.viewMode == VIEW_YEAR)
            SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
        WaitForPass();
    }
    HWND hwnd = nullptr;
};

// First in the file, so that it sees the program as start-up left it.
TEST_F(Shell, StartsOnTodaysMonthInTheAppArea)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    EXPECT_EQ(g_app.viewMode, VIEW_MONTH);
    EXPECT_EQ(g_app.viewYear, now.wYear);
    EXPECT_EQ(g_app.viewMonth, now.wMonth);
    EXPECT_EQ(g_app.todayDay, now.wDay);
    RECT rc;
    GetClientRect(hwnd, &rc);
    EXPECT_EQ(rc.right, 240);
    EXPECT_EQ(rc.bottom, 294);
    EXPECT_EQ(g_app.clientWidth, 240);
    EXPECT_EQ(g_app.clientHeight, 270) << "the drawing surface leaves the bottom 24 pixels to the menu bar";
    WCHAR cls[64], title[64];
    GetClassNameW(hwnd, cls, 64);
    GetWindowTextW(hwnd, title, 64);
    EXPECT_STREQ(cls, L"Lanternfields");
    EXPECT_STREQ(title, L"Lanternfields");
}

TEST_F(Shell, MenuBarButtons)
{
    HWND bar = g_app.hwndMenuBar;
    ASSERT_TRUE(IsWindow(bar));
    RECT rc;
    GetWindowRect(bar, &rc);
    MapWindowPoints(HWND_DESKTOP, hwnd, (POINT *)&rc, 2);
    EXPECT_EQ(rc.top, 270);
    EXPECT_EQ(rc.bottom, 294);

    static const struct { int id; const wchar_t *text; } buttons[] = {
        {IDM_NEW, L"New"}, {IDM_OPTIONS, L"Options"}, {IDM_EXIT, L"Exit"}, {IDM_SEPARATOR, nullptr},
        {IDM_TOGGLEYEAR, nullptr},
    };
    ASSERT_EQ(SendMessageW(bar, TB_BUTTONCOUNT, 0, 0), 5);
    for (int i = 0; i < 5; i++) {
        TBBUTTON b = {};
        SendMessageW(bar, TB_GETBUTTON, i, (LPARAM)&b);
        EXPECT_EQ(b.idCommand, buttons[i].id) << "button " << i;
        if (buttons[i].text) {
            WCHAR text[32] = L"";
            SendMessageW(bar, TB_GETBUTTONTEXTW, b.idCommand, (LPARAM)text);
            EXPECT_STREQ(text, buttons[i].text);
        }
    }
    HMENU options = MenuBarSubMenu(bar, IDM_OPTIONS);
    ASSERT_TRUE(options);
    EXPECT_EQ(GetMenuItemID(options, 0), (UINT)IDM_SETTINGS);
}

// 0x3FF while another window is active takes the bar away; activating the
// main window brings a new one.
TEST_F(Shell, MenuBarGoesAndComesWithActivation)
{
    SetForegroundWindow(hwnd);
    SetActiveWindow(hwnd);
    PumpMessages(50);
    HWND bar = g_app.hwndMenuBar;
    ASSERT_EQ(GetActiveWindow(), hwnd);
    SendMessageW(hwnd, 0x3FF, 0, 0);
    EXPECT_EQ(g_app.hwndMenuBar, bar) << "kept while the main window is active";

    HWND other = CreateWindowExW(0, L"STATIC", L"other", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100, 100, nullptr,
                                 nullptr, nullptr, nullptr);
    SetForegroundWindow(other);
    SetActiveWindow(other);
    PumpMessages(50);
    ASSERT_NE(GetActiveWindow(), hwnd);
    SendMessageW(hwnd, 0x3FF, 0, 0);
    EXPECT_EQ(g_app.hwndMenuBar, (HWND) nullptr);
    EXPECT_FALSE(IsWindow(bar));

    SendMessageW(hwnd, WM_ACTIVATE, WA_ACTIVE, 0);
    ASSERT_TRUE(IsWindow(g_app.hwndMenuBar));
    EXPECT_EQ(SendMessageW(g_app.hwndMenuBar, TB_BUTTONCOUNT, 0, 0), 5);
    HWND rebuilt = g_app.hwndMenuBar;
    SendMessageW(hwnd, WM_ACTIVATE, WA_ACTIVE, 0);
    EXPECT_EQ(g_app.hwndMenuBar, rebuilt) << "a bar that exists is not made twice";
    DestroyWindow(other);
    SetForegroundWindow(hwnd);
    PumpMessages(20);
}

// All four outside codes refresh: a redraw in the month and year views,
// nothing drawn while the day view is open (its list is refilled instead).
TEST_F(Shell, RefreshCodes)
{
    static const UINT codes[] = {WM_USER + 6, WM_USER + 3, WM_USER + 1, WM_USER - 3};
    for (UINT code : codes) {
        for (int mode : {(int)VIEW_MONTH, (int)VIEW_YEAR, (int)VIEW_DAY, 7}) {
            g_app.viewMode = mode;
            WaitForPass();
            LONG before = g_app.renderPasses;
            EXPECT_EQ(SendMessageW(hwnd, code, 0, 0), 1) << "code " << code << " mode " << mode;
            WaitForPass();
            bool drew = g_app.renderPasses > before;
            EXPECT_EQ(drew, mode == VIEW_MONTH || mode == VIEW_YEAR) << "code " << code << " mode " << mode;
        }
    }
    g_app.viewMode = VIEW_MONTH;
}

TEST_F(Shell, ToggleRestoresTheMonth)
{
    g_app.viewMonth = 5;
    g_app.viewYear = 2024;
    SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
    EXPECT_EQ(g_app.viewMode, VIEW_YEAR);
    ASSERT_TRUE(IsWindow(g_app.yearTipLabel));
    EXPECT_EQ(GetDlgCtrlID(g_app.yearTipLabel), IDC_YEARTIP);
    EXPECT_FALSE(IsWindowVisible(g_app.yearTipLabel));
    TBBUTTONINFOW info = {};
    info.cbSize = sizeof(info);
    info.dwMask = TBIF_IMAGE;
    SendMessageW(g_app.hwndMenuBar, TB_GETBUTTONINFOW, IDM_TOGGLEYEAR, (LPARAM)&info);
    EXPECT_EQ(info.iImage, IDI_IMAGE_MONTH);

    // Years change in the year view; the month view comes back as it was.
    g_app.keyReady = 1;
    SendMessageW(hwnd, WM_KEYDOWN, VK_RIGHT, 0);
    SendMessageW(hwnd, WM_KEYDOWN, VK_RIGHT, 0);
    EXPECT_EQ(g_app.viewYear, 2026) << "auto-repeat keeps stepping years";
    HWND label = g_app.yearTipLabel;
    SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
    EXPECT_EQ(g_app.viewMode, VIEW_MONTH);
    EXPECT_EQ(g_app.viewMonth, 5);
    EXPECT_EQ(g_app.viewYear, 2024);
    EXPECT_FALSE(IsWindow(label));
    EXPECT_EQ(g_app.yearTipLabel, (HWND) nullptr);
    SendMessageW(g_app.hwndMenuBar, TB_GETBUTTONINFOW, IDM_TOGGLEYEAR, (LPARAM)&info);
    EXPECT_EQ(info.iImage, IDI_IMAGE_YEAR);
}

// The label takes the day's number before it shows, so the number of the day before never
// flashes; it never takes the activation from the main window.
static const SeqMessage kTapShowsTheLabel[] = {
    {WM_SETTEXT},
    {WM_WINDOWPOSCHANGING},
    {WM_WINDOWPOSCHANGED},
};
static const SeqMessage kReleaseHidesIt[] = {
    {WM_SHOWWINDOW, SEQ_WPARAM, FALSE},
    {WM_WINDOWPOSCHANGING},
    {WM_WINDOWPOSCHANGED},
};

TEST_F(Shell, YearTipLabelUnderTheStylus)
{
    g_app.viewYear = 2023;
    SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
    ASSERT_TRUE(WaitForPass());
    HWND label = g_app.yearTipLabel;
    int x, y;
    ASSERT_TRUE(YearCellOrigin(2, 14, 2023, &x, &y));

    LogMessages({label}, {WM_SETTEXT, WM_SHOWWINDOW, WM_WINDOWPOSCHANGING, WM_WINDOWPOSCHANGED,
                          WM_NCACTIVATE, WM_ACTIVATE, WM_MOUSEACTIVATE, WM_SETFOCUS});
    SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x + 5, y + 3));
    EXPECT_SEQUENCE(kTapShowsTheLabel, "a tap on 14 February");

    // "14" in dark red on white, centred: the colours the main window gives the label.
    Picture pic = PaintClient(label);
    ASSERT_GT(pic.width, 10);
    int inkLeft = pic.width, inkRight = -1, ink = 0;
    for (int py = 0; py < pic.height; py++)
        for (int px = 0; px < pic.width; px++) {
            COLORREF c = pic.At(px, py);
            if (c == RGB(255, 255, 255))
                continue;
            ink++;
            inkLeft = std::min(inkLeft, px);
            inkRight = std::max(inkRight, px);
            EXPECT_TRUE(GetRValue(c) > GetGValue(c) && GetGValue(c) == GetBValue(c))
                << "ink at " << px << "," << py << " is not dark red: " << std::hex << c;
        }
    EXPECT_GT(ink, 10);
    EXPECT_GT(pic.Count(RGB(0x99, 0, 0)), 0);
    EXPECT_LE(std::abs(inkLeft - (pic.width - 1 - inkRight)), 1) << inkLeft << ".." << inkRight;

    // The release opens the day's day view, which the user closes at once.
    int shownDay = 0;
    RunScripted(
        [&] {
            SendMessageW(hwnd, WM_LBUTTONUP, 0, MAKELPARAM(x + 5, y + 3));
            return (INT_PTR)0;
        },
        [&](HWND dayView) {
            shownDay = g_app.shownDay;
            Tap(dayView, 220, 8);
        });
    EXPECT_EQ(shownDay, 14);
    EXPECT_SEQUENCE(kReleaseHidesIt, "the release");
    StopLoggingMessages();
    EXPECT_FALSE(IsWindowVisible(label));
    SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
}

TEST_F(Shell, ArrowKeysStepOneMonthPerPress)
{
    g_app.viewMonth = 12;
    g_app.viewYear = 2025;
    g_app.keyReady = 1;
    SendMessageW(hwnd, WM_KEYDOWN, VK_RIGHT, 0);
    EXPECT_EQ(g_app.viewMonth, 1);
    EXPECT_EQ(g_app.viewYear, 2026);
    SendMessageW(hwnd, WM_KEYDOWN, VK_RIGHT, 0); // auto-repeat, no key-up
    EXPECT_EQ(g_app.viewMonth, 1) << "a held key steps exactly one month";
    SendMessageW(hwnd, WM_KEYUP, VK_RIGHT, 0);
    SendMessageW(hwnd, WM_KEYDOWN, VK_UP, 0);
    EXPECT_EQ(g_app.viewMonth, 12);
    EXPECT_EQ(g_app.viewYear, 2025);
    SendMessageW(hwnd, WM_KEYUP, VK_UP, 0);
    SendMessageW(hwnd, WM_KEYDOWN, 'A', 0);
    EXPECT_EQ(g_app.viewMonth, 12) << "other keys are ignored";
    WaitForPass();
}

TEST_F(Shell, TapsOnTheStripAndTitle)
{
    g_app.viewMonth = 7;
    g_app.viewYear = 2020;
    struct { int x, y, month, year; } taps[] = {
        {30, 10, 2, 2020},   // inside the second cell
        {20, 10, 2, 2020},   // on a boundary: nothing, but a redraw
        {239, 5, 12, 2020},  // the last cell
        {10, 30, 12, 2019},  // previous-year label
        {220, 30, 12, 2020}, // next-year label
    };
    for (auto &t : taps) {
        WaitForPass();
        LONG before = g_app.renderPasses;
        SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(t.x, t.y));
        SendMessageW(hwnd, WM_LBUTTONUP, 0, MAKELPARAM(t.x, t.y));
        WaitForPass();
        EXPECT_EQ(g_app.viewMonth, t.month) << "tap at " << t.x << "," << t.y;
        EXPECT_EQ(g_app.viewYear, t.year) << "tap at " << t.x << "," << t.y;
        EXPECT_GT(g_app.renderPasses, before) << "tap at " << t.x << "," << t.y;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(100, 30));
    EXPECT_EQ(g_app.viewMonth, now.wMonth);
    EXPECT_EQ(g_app.viewYear, now.wYear);
    WaitForPass();
}

TEST_F(Shell, MinuteTickMovesTodayAtMidnight)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    g_app.todayStamp = now;
    WaitForPass();
    LONG before = g_app.renderPasses;
    EXPECT_EQ(SendMessageW(hwnd, WM_TIMER, TIMER_MINUTE, 0), 1);
    WaitForPass();
    EXPECT_EQ(g_app.renderPasses, before) << "same day: nothing to redraw";

    g_app.todayStamp.wYear = 2001;
    EXPECT_EQ(SendMessageW(hwnd, WM_TIMER, TIMER_MINUTE, 0), 1);
    WaitForPass();
    EXPECT_GT(g_app.renderPasses, before);
    EXPECT_EQ(g_app.todayStamp.wYear, now.wYear);

    EXPECT_EQ(SendMessageW(hwnd, WM_TIMER, 99, 0), 0) << "unknown timers answer 0";
}

// The form poke finds the calendar's "Appointment" child by its text and
// sends it command 105; with no calendar window it does nothing.
static int g_pokedCommand;
static HWND g_pokedWindow;
static LRESULT CALLBACK FormChildProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == WM_COMMAND) {
        g_pokedCommand = LOWORD(wp);
        g_pokedWindow = hwnd;
    }
    return DefWindowProcW(hwnd, msg, wp, lp);
}

TEST_F(Shell, FormPokeFindsTheAppointmentChild)
{
    g_pokedCommand = 0;
    SetTimer(hwnd, TIMER_FORMPOKE, 500, nullptr);
    EXPECT_EQ(SendMessageW(hwnd, WM_TIMER, TIMER_FORMPOKE, 0), 1) << "no calendar window: nothing happens";

    WNDCLASSW wc = {};
    wc.lpfnWndProc = DefWindowProcW;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"Dialog";
    RegisterClassW(&wc);
    wc.lpfnWndProc = FormChildProc;
    wc.lpszClassName = L"FormChild";
    RegisterClassW(&wc);
    HWND calendar = CreateWindowW(L"Dialog", L"Calendar", WS_OVERLAPPEDWINDOW, 0, 0, 200, 200, nullptr, nullptr,
                                  wc.hInstance, nullptr);
    HWND other = CreateWindowW(L"FormChild", L"Appointments", WS_CHILD, 0, 0, 10, 10, calendar, nullptr,
                               wc.hInstance, nullptr);
    HWND target = CreateWindowW(L"FormChild", L"Appointment", WS_CHILD, 0, 0, 10, 10, calendar, nullptr,
                                wc.hInstance, nullptr);
    ASSERT_TRUE(calendar && other && target);
    EXPECT_EQ(SendMessageW(hwnd, WM_TIMER, TIMER_FORMPOKE, 0), 1);
    EXPECT_EQ(g_pokedCommand, 105);
    EXPECT_EQ(g_pokedWindow, target) << "only the child titled exactly \"Appointment\"";
    DestroyWindow(calendar);
}
