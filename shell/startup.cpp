// Start-up and the message loop of the program.
#include "shell.h"
#include "render.h"
#include "common/appstate.h"
#include "common/cursor.h"
#include "platform/aygshell.h"
#include "calendar/dates.h"
#include "settings/settings.h"
#include "settings/categoryprops.h"
#include "store/store.h"

BOOL RegisterMainClass(HINSTANCE inst)
{
    WNDCLASSW wc = {};
    wc.style = 0;
    wc.lpfnWndProc = MainWndProc;
    wc.hInstance = inst;
    wc.hbrBackground = (HBRUSH)GetStockObject(WHITE_BRUSH);
    wc.lpszClassName = kMainClass;
    return RegisterClassW(&wc) != 0;
}

// The handheld created the window at its default size, which is the
// application area; a desktop default would be any size, so the desktop
// asks for the window whose client area is that area (240 x 294, the menu
// bar in its bottom 24 pixels).
static void AppAreaWindowSize(int *w, int *h)
{
    RECT rc = {0, 0, 240, 294};
    // A top-level window always gets a caption, though the style asks for
    // none.
    AdjustWindowRectEx(&rc, WS_VISIBLE | WS_CAPTION, FALSE, 0);
    *w = rc.right - rc.left;
    *h = rc.bottom - rc.top;
}

// The program opens on the month view of today, and today is marked.
static void StartOnToday()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    g_app.todayYear = g_app.shownYear = g_app.viewYear = now.wYear;
    g_app.todayMonth = g_app.shownMonth = g_app.viewMonth = now.wMonth;
    g_app.todayDay = g_app.shownDay = g_app.viewDay = now.wDay;
    g_app.viewMode = VIEW_MONTH;
}

BOOL AppStartup(HINSTANCE inst, int showCmd)
{
    g_app.hInstance = inst;

    HWND other = FindWindowW(kMainClass, kMainClass);
    if (other) {
        // The handheld passes the handle with its low bit set to bring the
        // owned windows along; the desktop does that by raising the last
        // active popup of the running copy.
        if (IsIconic(other))
            ShowWindow(other, SW_RESTORE);
        SetForegroundWindow(GetLastActivePopup(other));
        return FALSE;
    }

    int w, h;
    AppAreaWindowSize(&w, &h);
    HWND hwnd = CreateWindowExW(0, kMainClass, kMainClass, WS_VISIBLE, CW_USEDEFAULT, CW_USEDEFAULT, w, h,
                                nullptr, nullptr, inst, nullptr);
    if (!IsWindow(hwnd))
        return FALSE;

    WaitCursorOn();
    g_app.hwndMain = hwnd;
    // Without a store the program still runs, on an empty calendar; the
    // failure has been shown.
    OpenStore(hwnd);

    // The handheld's menu bar is a window below the main window, which is
    // shrunk to make room; on the desktop the bar lies inside the client
    // area's bottom 24 pixels, so the window keeps its size. The drawing
    // surface is 24 pixels shorter either way, bar or no bar.
    RECT rc;
    GetClientRect(hwnd, &rc);
    g_app.clientWidth = rc.right - rc.left;
    g_app.clientHeight = rc.bottom - rc.top - 24;

    CreateBackBuffer(g_app.clientWidth, g_app.clientHeight);
    CreateSettingsKey();
    LoadSettings();
    StartOnToday();
    ShowWindow(hwnd, showCmd);
    UpdateWindow(hwnd);
    LoadMonthNames(g_app.monthNames);
    GetLocalTime(&g_app.todayStamp);
    RequestRedraw();
    // The day list starts with nothing selected and nothing to paste.
    g_app.copiedItem = 0;
    g_app.cutItem = 0;
    g_app.selectedRow = -2;
    // The device's category list is read without a message: until the calendar server has
    // first listed its categories there is none, which is no fault at start-up; the Category
    // page says so when it opens.
    ReloadCategories(true);
    g_app.keyReady = 1;
    WaitCursorOff();
    SetTimer(hwnd, TIMER_MINUTE, 60000, nullptr);
    return TRUE;
}

int RunMessageLoop()
{
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
    return (int)msg.wParam;
}

int LanternfieldsMain(HINSTANCE inst, int showCmd)
{
    if (!RegisterMainClass(inst))
        return EXIT_NO_CLASS;
    if (!AppStartup(inst, showCmd))
        return EXIT_NO_START;
    return RunMessageLoop();
}
