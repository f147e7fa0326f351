// The main window's procedure: every message it handles goes through
// kMainMessages and every menu command through kMainCommands, both scanned
// in order. Handlers are free functions so tests can call them directly.
#include "shell.h"
#include "render.h"
#include "input.h"
#include "appointment/newedit.h"
#include "common/appstate.h"
#include "common/cursor.h"
#include "store/store.h"
#include "platform/aygshell.h"
#include "resource.h"
#include "settings/settings.h"
#include "settings/categoryprops.h"
#include "settings/settingssheet.h"
#include "month/yearview.h"
#include "dayview/daylist.h"

#include <commctrl.h>

AppState g_app;
const WCHAR kMainClass[] = L"Lanternfields";

HWND CreateMainMenuBar(HWND hwnd)
{
    SHMENUBARINFO mbi = {};
    mbi.cbSize = sizeof(mbi);
    mbi.hwndParent = hwnd;
    mbi.dwFlags = 0;
    mbi.nToolBarId = IDM_MENUBAR;
    mbi.hInstRes = g_app.hInstance;
    mbi.nBmpId = IDB_MENUBAR;
    mbi.cBmpImages = IDB_MENUBAR_IMAGES;
    if (!SHCreateMenuBar(&mbi))
        return nullptr;
    TBBUTTON buttons[2] = {};
    buttons[0].iBitmap = 0;
    buttons[0].idCommand = IDM_SEPARATOR;
    buttons[0].fsState = TBSTATE_ENABLED;
    buttons[0].fsStyle = TBSTYLE_SEP;
    buttons[0].iString = -1;
    buttons[1].iBitmap = IDI_IMAGE_YEAR;
    buttons[1].idCommand = IDM_TOGGLEYEAR;
    buttons[1].fsState = TBSTATE_ENABLED;
    buttons[1].fsStyle = TBSTYLE_BUTTON;
    buttons[1].iString = -1;
    SendMessageW(mbi.hwndMB, TB_ADDBUTTONSW, 2, (LPARAM)buttons);
    return mbi.hwndMB;
}

void SetToggleButtonImage(int image)
{
    TBBUTTONINFOW info = {};
    info.cbSize = sizeof(info);
    info.dwMask = TBIF_IMAGE;
    info.iImage = image;
    SendMessageW(g_app.hwndMenuBar, TB_SETBUTTONINFOW, IDM_TOGGLEYEAR, (LPARAM)&info);
}

// A greyed button is indeterminate and no longer enabled, so a tap on it sends nothing.
void SetMenuBarButtonState(int command, int greyed)
{
    TBBUTTONINFOW info = {};
    info.cbSize = sizeof(info);
    info.dwMask = TBIF_STATE;
    info.fsState = greyed == 1 ? TBSTATE_INDETERMINATE : TBSTATE_ENABLED;
    SendMessageW(g_app.hwndMenuBar, TB_SETBUTTONINFOW, command, (LPARAM)&info);
}

static LRESULT OnCreate(HWND hwnd, UINT, WPARAM, LPARAM)
{
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_DATE_CLASSES};
    InitCommonControlsEx(&icc);
    // The bar and its buttons need the window's handle before CreateWindow
    // returns it to start-up.
    g_app.hwndMain = hwnd;
    g_app.hwndMenuBar = CreateMainMenuBar(hwnd);
    InitializeCriticalSection(&g_app.renderLock);
    g_app.hRenderEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_app.renderState = RENDER_SHOWN;
    HANDLE thread = CreateThread(nullptr, 0, RenderThreadProc, nullptr, 0, nullptr);
    if (thread)
        CloseHandle(thread);
    return 0;
}

static LRESULT OnPaint(HWND hwnd, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    BeginPaint(hwnd, &ps);
    BlitBackBuffer(hwnd);
    EndPaint(hwnd, &ps);
    return 0;
}

// Another window came over the main window: its menu bar goes, and comes
// back when the main window is activated again.
static LRESULT OnMenuBarCheck(HWND hwnd, UINT, WPARAM, LPARAM)
{
    if (GetActiveWindow() == hwnd)
        return 0;
    DestroyWindow(g_app.hwndMenuBar);
    g_app.hwndMenuBar = nullptr;
    return 0;
}

static LRESULT OnActivate(HWND hwnd, UINT, WPARAM wp, LPARAM)
{
    if (LOWORD(wp) != WA_INACTIVE && !g_app.hwndMenuBar)
        g_app.hwndMenuBar = CreateMainMenuBar(hwnd);
    return 0;
}

static LRESULT OnDestroy(HWND, UINT, WPARAM, LPARAM)
{
    KillTimer(g_app.hwndMain, TIMER_MINUTE);
    // The drawing objects and buffers must not be pulled from under a pass.
    EnterCriticalSection(&g_app.renderLock);
    FreeSettingsBitmaps();
    DestroyBackBuffer();
    // A pass may be walking the store's folder; it is let go between passes.
    if (g_app.storeLoggedOn == 1)
        CloseStore();
    LeaveCriticalSection(&g_app.renderLock);
    FreeCategories();
    DestroyWindow(g_app.hwndMenuBar);
    g_app.hwndMenuBar = nullptr;
    PostQuitMessage(0);
    return 0;
}

static LRESULT OnCommand(HWND hwnd, UINT, WPARAM wp, LPARAM lp)
{
    return MainCommand(hwnd, LOWORD(wp), lp, HIWORD(wp));
}

static LRESULT OnClose(HWND hwnd, UINT, WPARAM, LPARAM)
{
    DestroyWindow(g_app.hwndMenuBar);
    g_app.hwndMenuBar = nullptr;
    DestroyWindow(hwnd);
    return 0;
}

static LRESULT OnNotify(HWND, UINT, WPARAM, LPARAM)
{
    return 0;
}

static LRESULT OnKeyUp(HWND, UINT, WPARAM, LPARAM)
{
    if (g_app.viewMode == VIEW_MONTH)
        g_app.keyReady = 1;
    return 0;
}

LRESULT RefreshView(HWND, UINT, WPARAM, LPARAM)
{
    switch (g_app.viewMode) {
    case VIEW_MONTH:
    case VIEW_YEAR:
        WaitCursorOn();
        // The store changed: the year view's coloured days are read again.
        if (g_app.viewMode == VIEW_YEAR)
            PrepareYearView(g_app.viewYear);
        RequestRedraw();
        WaitCursorOff();
        break;
    case VIEW_DAY:
        // The day view is open over the month: its list shows the change.
        WaitCursorOn();
        RefillDayList();
        WaitCursorOff();
        break;
    }
    return 1;
}

static LRESULT OnCtlColorStatic(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (GetDlgCtrlID((HWND)lp) == IDC_YEARTIP) {
        SetTextColor((HDC)wp, RGB(0x99, 0, 0));
        return (LRESULT)GetStockObject(WHITE_BRUSH);
    }
    return DefWindowProcW(hwnd, msg, wp, lp);
}

const MessageEntry kMainMessages[] = {
    {WM_CREATE, OnCreate},
    {WM_PAINT, OnPaint},
    {WM_MENUBAR_CHECK, OnMenuBarCheck},
    {WM_ACTIVATE, OnActivate},
    {WM_DESTROY, OnDestroy},
    {WM_COMMAND, OnCommand},
    {WM_CLOSE, OnClose},
    {WM_NOTIFY, OnNotify},
    {WM_TIMER, OnTimer},
    {WM_LBUTTONDOWN, OnTapDown},
    {WM_LBUTTONUP, OnTapUp},
    {WM_MOUSEMOVE, OnStylusMove},
    {WM_KEYDOWN, OnKeyDown},
    {WM_KEYUP, OnKeyUp},
    {WM_REFRESH_DAY, RefreshView},
    {WM_REFRESH_OTHER, RefreshView},
    {WM_REFRESH_STORE, RefreshView},
    {WM_REFRESH_OUTSIDE, RefreshView},
    {WM_CTLCOLORSTATIC, OnCtlColorStatic},
};
const int kMainMessageCount = sizeof(kMainMessages) / sizeof(kMainMessages[0]);
static_assert(sizeof(kMainMessages) / sizeof(kMainMessages[0]) == 19, "the main window handles 19 messages");

LRESULT CALLBACK MainWndProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    for (int i = 0; i < kMainMessageCount; i++)
        if (kMainMessages[i].msg == msg)
            return kMainMessages[i].handler(hwnd, msg, wp, lp);
    return DefWindowProcW(hwnd, msg, wp, lp);
}

// --- Commands -------------------------------------------------------------

static LRESULT CmdExit(HWND hwnd, WORD, LPARAM, WORD)
{
    SendMessageW(hwnd, WM_CLOSE, 0, 0);
    return 0;
}

LRESULT ToggleYearView(HWND hwnd)
{
    if (g_app.viewMode != VIEW_MONTH) {
        DestroyWindow(g_app.yearTipLabel);
        g_app.yearTipLabel = nullptr;
        g_app.viewMode = VIEW_MONTH;
        g_app.viewMonth = g_app.savedViewMonth;
        g_app.viewYear = g_app.savedViewYear;
        SetToggleButtonImage(IDI_IMAGE_YEAR);
    } else {
        g_app.viewMode = VIEW_YEAR;
        PrepareYearView(g_app.viewYear);
        // A popup's menu argument is a menu on the desktop, not a child
        // id, so the label's id is set once it exists. The handheld made
        // it visible (0x90800001) and hid it at once; a desktop popup
        // shown at creation takes the activation from the main window (and
        // under Wine becomes a managed window whose every hide waits for a
        // window manager), so it is made hidden from the start.
        g_app.yearTipLabel = CreateWindowExW(0, L"STATIC", L"", 0x90800001 & ~WS_VISIBLE, 0, 0, 20, 20, hwnd,
                                             nullptr, g_app.hInstance, nullptr);
        SetWindowLongPtrW(g_app.yearTipLabel, GWLP_ID, IDC_YEARTIP);
        g_app.savedViewMonth = g_app.viewMonth;
        g_app.savedViewYear = g_app.viewYear;
        SetToggleButtonImage(IDI_IMAGE_MONTH);
    }
    WaitCursorOn();
    RequestRedraw();
    WaitCursorOff();
    InvalidateRect(hwnd, nullptr, FALSE);
    return 0;
}

static LRESULT CmdToggleYear(HWND hwnd, WORD, LPARAM, WORD)
{
    return ToggleYearView(hwnd);
}

static LRESULT CmdNew(HWND hwnd, WORD, LPARAM, WORD)
{
    return OnNewOrEdit(hwnd);
}

// Whatever the user changed or not, the month is drawn again with the settings as they now are.
static LRESULT CmdSettings(HWND hwnd, WORD, LPARAM, WORD)
{
    ShowSettingsSheet(hwnd);
    WaitCursorOn();
    RequestRedraw();
    WaitCursorOff();
    return 0;
}

const CommandEntry kMainCommands[] = {
    {IDM_NEW, CmdNew},
    {IDM_EXIT, CmdExit},
    {IDM_SETTINGS, CmdSettings},
    {IDM_TOGGLEYEAR, CmdToggleYear},
};
const int kMainCommandCount = sizeof(kMainCommands) / sizeof(kMainCommands[0]);

LRESULT MainCommand(HWND hwnd, WORD id, LPARAM lp, WORD code)
{
    for (int i = 0; i < kMainCommandCount; i++)
        if (kMainCommands[i].id == id)
            return kMainCommands[i].handler(hwnd, id, lp, code);
    return 0;
}
