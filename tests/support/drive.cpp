#include "drive.h"

#include <commctrl.h>
#include <cstdlib>
#include <prsht.h>

#include <gtest/gtest.h>

// --- Scripted modal dialogs ---------------------------------------------------

// Timer ids of the harness on a scripted dialog, far from any the program's dialogs use. Both
// carry a timer procedure, so the dialog's own procedure never sees them.
const UINT_PTR SCRIPT_TIMER = 0x5C01;
const UINT_PTR WATCHDOG_TIMER = 0x5C02;
const DWORD WATCHDOG_MS = 30000;

struct PendingScript {
    const std::function<void(HWND)> *script;
    HWND dialog;
    int waits;
    bool running;
};

// Innermost last: a script that runs a dialog of its own pushes another.
static std::vector<PendingScript *> g_scripts;
static HHOOK g_scriptHook;

static PendingScript *ScriptOf(HWND dlg)
{
    for (PendingScript *p : g_scripts)
        if (p->dialog == dlg)
            return p;
    return nullptr;
}

// The dialog whose script runs now: its messages go through its dialog manager when the
// script pumps, as they would in its modal loop.
static HWND RunningDialog()
{
    for (size_t i = g_scripts.size(); i-- > 0;)
        if (g_scripts[i]->running && IsWindow(g_scripts[i]->dialog))
            return g_scripts[i]->dialog;
    return nullptr;
}

static void CALLBACK Watchdog(HWND dlg, UINT, UINT_PTR, DWORD)
{
    KillTimer(dlg, WATCHDOG_TIMER);
    ADD_FAILURE() << "a scripted dialog was still open after " << WATCHDOG_MS << " ms";
    EndMenu();
    EndDialog(dlg, SCRIPT_TIMED_OUT);
}

// The modal loop shows the dialog once its queue is first empty; the script waits for that,
// so that it sees the dialog as the user does.
static void CALLBACK ScriptTimer(HWND dlg, UINT, UINT_PTR, DWORD)
{
    PendingScript *p = ScriptOf(dlg);
    if (!p || p->running) {
        KillTimer(dlg, SCRIPT_TIMER);
        return;
    }
    if (!IsWindowVisible(dlg) && ++p->waits < 100)
        return;
    KillTimer(dlg, SCRIPT_TIMER);
    SetTimer(dlg, WATCHDOG_TIMER, WATCHDOG_MS, Watchdog);
    p->running = true;
    (*p->script)(dlg);
    p->running = false;
    if (!IsWindow(dlg))
        return;
    KillTimer(dlg, WATCHDOG_TIMER);
    // EndDialog hides the dialog at once; one still shown was left open.
    if (IsWindowVisible(dlg))
        EndDialog(dlg, SCRIPT_LEFT_OPEN);
}

// Claims the first top-level dialog that finishes WM_INITDIALOG for the innermost script: a
// property sheet's pages are children and finish theirs before the sheet does.
static LRESULT CALLBACK ScriptHook(int code, WPARAM wp, LPARAM lp)
{
    const CWPRETSTRUCT *c = (const CWPRETSTRUCT *)lp;
    if (code == HC_ACTION && c->message == WM_INITDIALOG && !g_scripts.empty() &&
        !(GetWindowLongW(c->hwnd, GWL_STYLE) & WS_CHILD)) {
        PendingScript *p = g_scripts.back();
        if (!p->dialog) {
            p->dialog = c->hwnd;
            SetTimer(c->hwnd, SCRIPT_TIMER, 10, ScriptTimer);
        }
    }
    return CallNextHookEx(nullptr, code, wp, lp);
}

INT_PTR RunScripted(const std::function<INT_PTR()> &show,
                    const std::function<void(HWND dlg)> &script)
{
    PendingScript p = {&script, nullptr, 0, false};
    g_scripts.push_back(&p);
    if (!g_scriptHook)
        g_scriptHook =
            SetWindowsHookExW(WH_CALLWNDPROCRET, ScriptHook, nullptr, GetCurrentThreadId());
    INT_PTR result = show();
    g_scripts.pop_back();
    if (g_scripts.empty() && g_scriptHook) {
        UnhookWindowsHookEx(g_scriptHook);
        g_scriptHook = nullptr;
    }
    return result;
}

static const std::function<void(HWND)> *g_unshownScript;

static LRESULT CALLBACK UnshownHook(int code, WPARAM wp, LPARAM lp)
{
    const CWPRETSTRUCT *c = (const CWPRETSTRUCT *)lp;
    if (code == HC_ACTION && c->message == WM_INITDIALOG && g_unshownScript) {
        const std::function<void(HWND)> *script = g_unshownScript;
        g_unshownScript = nullptr;
        (*script)(c->hwnd);
    }
    return CallNextHookEx(nullptr, code, wp, lp);
}

INT_PTR RunUnshown(const std::function<INT_PTR()> &show,
                   const std::function<void(HWND dlg)> &script)
{
    const std::function<void(HWND)> *outer = g_unshownScript;
    g_unshownScript = &script;
    HHOOK hook = SetWindowsHookExW(WH_CALLWNDPROCRET, UnshownHook, nullptr, GetCurrentThreadId());
    INT_PTR result = show();
    UnhookWindowsHookEx(hook);
    g_unshownScript = outer;
    return result;
}

std::wstring MessageOnOk(HWND dlg, const std::function<void(HWND box)> &look)
{
    std::wstring text;
    RunScripted(
        [&] {
            SendMessageW(GetDlgItem(dlg, IDOK), BM_CLICK, 0, 0);
            return (INT_PTR)0;
        },
        [&](HWND box) {
            wchar_t buf[400] = L"";
            GetDlgItemTextW(box, 0xFFFF, buf, 400);
            text = buf;
            if (look)
                look(box);
            Key(GetFocus(), VK_RETURN);
        });
    return text;
}

void Pump(DWORD ms)
{
    DWORD end = GetTickCount() + ms;
    do {
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            HWND dlg = RunningDialog();
            if (dlg && IsDialogMessageW(dlg, &msg))
                continue;
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        if (ms)
            Sleep(1);
    } while ((LONG)(GetTickCount() - end) < 0);
}

// --- Stylus and keys ------------------------------------------------------------

void Tap(HWND w, int x, int y)
{
    SendMessageW(w, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x, y));
    SendMessageW(w, WM_LBUTTONUP, 0, MAKELPARAM(x, y));
}

void DoubleTap(HWND w, int x, int y)
{
    Tap(w, x, y);
    SendMessageW(w, WM_LBUTTONDBLCLK, MK_LBUTTON, MAKELPARAM(x, y));
    SendMessageW(w, WM_LBUTTONUP, 0, MAKELPARAM(x, y));
}

static void SendButton(DWORD flags)
{
    INPUT in = {};
    in.type = INPUT_MOUSE;
    in.mi.dwFlags = flags;
    SendInput(1, &in, sizeof(in));
}

void Hold(HWND w, int x, int y, DWORD ms)
{
    POINT at = {x, y};
    ClientToScreen(w, &at);
    HWND under = WindowFromPoint(at);
    EXPECT_TRUE(under == w || IsChild(w, under))
        << "a hold at " << x << "," << y << " would land on another window";
    SetCursorPos(at.x, at.y);
    SendButton(MOUSEEVENTF_LEFTDOWN);
    Pump(ms);
    SendButton(MOUSEEVENTF_LEFTUP);
    Pump(20);
}

static LPARAM KeyData(UINT vk, bool up)
{
    LPARAM data = 1 | ((LPARAM)MapVirtualKeyW(vk, MAPVK_VK_TO_VSC) << 16);
    return up ? data | 0xC0000000 : data;
}

void Key(HWND w, UINT vk)
{
    PostMessageW(w, WM_KEYDOWN, vk, KeyData(vk, false));
    Pump(0);
    PostMessageW(w, WM_KEYUP, vk, KeyData(vk, true));
    Pump(0);
}

void Type(HWND w, const wchar_t *text)
{
    for (const wchar_t *c = text; *c; c++)
        PostMessageW(w, WM_CHAR, *c, KeyData(VkKeyScanW(*c) & 0xFF, false));
    Pump(0);
}

void Click(HWND dlg, int id)
{
    SendMessageW(GetDlgItem(dlg, id), BM_CLICK, 0, 0);
    Pump(0);
}

void ActivateAnotherWindow(DWORD ms)
{
    HWND other = CreateWindowExW(0, L"STATIC", L"another window", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                 300, 300, 120, 80, nullptr, nullptr, nullptr, nullptr);
    SetForegroundWindow(other);
    SetActiveWindow(other);
    Pump(ms);
    DestroyWindow(other);
    Pump(0);
}

// --- Popup menus ------------------------------------------------------------------

// A popup menu runs a loop of its own that reads the keyboard from the queue; the chooser is a
// thread timer, which that loop dispatches like any other, so it can look at the open menu and
// post it one key at a time: down until the item is highlighted, then Enter.
static UINT g_menuTarget;
static UINT_PTR g_menuTimer;
static int g_menuTicks;
static MenuSeen g_menuSeen;

bool MenuSeen::Has(UINT id) const
{
    for (const MenuItemSeen &i : items)
        if (i.id == id)
            return true;
    return false;
}

bool MenuSeen::Greyed(UINT id) const
{
    for (const MenuItemSeen &i : items)
        if (i.id == id)
            return i.greyed;
    return false;
}

const MenuSeen &LastMenu()
{
    return g_menuSeen;
}

static BOOL CALLBACK FindMenuWindow(HWND w, LPARAM found)
{
    WCHAR cls[16] = L"";
    GetClassNameW(w, cls, 16);
    if (lstrcmpW(cls, L"#32768") == 0 && IsWindowVisible(w)) {
        *(HWND *)found = w;
        return FALSE;
    }
    return TRUE;
}

static void StopChoosing()
{
    KillTimer(nullptr, g_menuTimer);
    g_menuTimer = 0;
}

static void PostMenuKey(HWND menuWnd, UINT vk)
{
    PostMessageW(menuWnd, WM_KEYDOWN, vk, KeyData(vk, false));
}

static void CALLBACK MenuTick(HWND, UINT, UINT_PTR, DWORD)
{
    HWND menuWnd = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), FindMenuWindow, (LPARAM)&menuWnd);
    ++g_menuTicks;
    if (!menuWnd) {
        if (g_menuTicks > 500) // 10 s and no menu came
            StopChoosing();
        return;
    }
    HMENU menu = (HMENU)SendMessageW(menuWnd, MN_GETHMENU, 0, 0);
    int count = GetMenuItemCount(menu);
    int target = -1;
    if (!g_menuSeen.opened) {
        g_menuSeen.opened = true;
        RECT rc;
        GetWindowRect(menuWnd, &rc);
        g_menuSeen.at = {rc.left, rc.top};
        for (int i = 0; i < count; i++) {
            UINT state = GetMenuState(menu, i, MF_BYPOSITION);
            if (!(state & MF_SEPARATOR))
                g_menuSeen.items.push_back({GetMenuItemID(menu, i), (state & MF_GRAYED) != 0});
        }
    }
    for (int i = 0; i < count; i++)
        if (GetMenuItemID(menu, i) == g_menuTarget)
            target = i;
    UINT state = target < 0 ? 0 : GetMenuState(menu, target, MF_BYPOSITION);
    if (target < 0 || (state & (MF_GRAYED | MF_DISABLED)) || g_menuTicks > 4 * count + 50) {
        PostMenuKey(menuWnd, VK_ESCAPE);
        StopChoosing();
    } else if (state & MF_HILITE) {
        PostMenuKey(menuWnd, VK_RETURN);
        StopChoosing();
    } else {
        PostMenuKey(menuWnd, VK_DOWN);
    }
}

void ChooseMenuItem(UINT id)
{
    StopChoosing();
    g_menuTarget = id;
    g_menuTicks = 0;
    g_menuSeen = MenuSeen();
    g_menuTimer = SetTimer(nullptr, 0, 20, MenuTick);
}

// --- Pixels --------------------------------------------------------------------------

int Picture::Count(COLORREF colour) const
{
    int n = 0;
    for (COLORREF c : pixels)
        n += c == colour;
    return n;
}

Picture PaintClient(HWND w)
{
    Picture p;
    RECT rc;
    GetClientRect(w, &rc);
    p.width = rc.right;
    p.height = rc.bottom;
    if (p.width <= 0 || p.height <= 0)
        return p;
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = p.width;
    bi.bmiHeader.biHeight = -p.height; // top-down: row 0 first
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    void *bits = nullptr;
    HDC dc = CreateCompatibleDC(nullptr);
    HBITMAP bmp = CreateDIBSection(dc, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(dc, bmp);
    PrintWindow(w, dc, PW_CLIENTONLY);
    GdiFlush();
    p.pixels.resize((size_t)p.width * p.height);
    const DWORD *px = (const DWORD *)bits;
    for (size_t i = 0; i < p.pixels.size(); i++)
        p.pixels[i] = RGB((px[i] >> 16) & 0xFF, (px[i] >> 8) & 0xFF, px[i] & 0xFF);
    SelectObject(dc, old);
    DeleteObject(bmp);
    DeleteDC(dc);
    return p;
}

// --- Screenshots ---------------------------------------------------------------------

bool SaveScreenShot(std::initializer_list<HWND> windows, const std::wstring &path)
{
    RECT rc = {};
    for (HWND w : windows) {
        RECT one;
        GetWindowRect(w, &one);
        UnionRect(&rc, &rc, &one);
    }
    int width = rc.right - rc.left, height = rc.bottom - rc.top;
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = width;
    bi.bmiHeader.biHeight = -height;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    void *bits = nullptr;
    HDC screen = GetDC(nullptr);
    HDC mem = CreateCompatibleDC(screen);
    HBITMAP bmp = CreateDIBSection(mem, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(mem, bmp);
    BitBlt(mem, 0, 0, width, height, screen, rc.left, rc.top, SRCCOPY);
    GdiFlush();
    BITMAPFILEHEADER fh = {};
    DWORD size = (DWORD)width * height * 4;
    fh.bfType = 0x4D42;
    fh.bfOffBits = sizeof(fh) + sizeof(bi.bmiHeader);
    fh.bfSize = fh.bfOffBits + size;
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    bool ok = f != INVALID_HANDLE_VALUE;
    if (ok) {
        DWORD done;
        WriteFile(f, &fh, sizeof(fh), &done, nullptr);
        WriteFile(f, &bi.bmiHeader, sizeof(bi.bmiHeader), &done, nullptr);
        WriteFile(f, bits, size, &done, nullptr);
        CloseHandle(f);
    }
    SelectObject(mem, old);
    DeleteObject(bmp);
    DeleteDC(mem);
    ReleaseDC(nullptr, screen);
    return ok;
}

std::wstring ShotPath(const char *what)
{
    const char *dir = getenv("LF_SHOTS");
    const char *locale = getenv("LC_ALL");
    std::string name = std::string(dir) + "\\" + what + "-" +
                       std::string(locale ? locale : "C").substr(0, 5) + ".bmp";
    return std::wstring(name.begin(), name.end());
}

std::vector<BYTE> BmpFile24(int width, int height, const std::function<COLORREF(int x, int y)> &pixel)
{
    const int stride = (width * 3 + 3) & ~3;
    std::vector<BYTE> b(54 + (size_t)stride * height, 0);
    BITMAPFILEHEADER fh = {0x4D42, (DWORD)b.size(), 0, 0, 54};
    BITMAPINFOHEADER ih = {};
    ih.biSize = 40;
    ih.biWidth = width;
    ih.biHeight = height;
    ih.biPlanes = 1;
    ih.biBitCount = 24;
    memcpy(b.data(), &fh, 14);
    memcpy(b.data() + 14, &ih, 40);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            BYTE *p = b.data() + 54 + (size_t)y * stride + 3 * x;
            COLORREF c = pixel(x, y);
            p[0] = GetBValue(c), p[1] = GetGValue(c), p[2] = GetRValue(c);
        }
    return b;
}

INT_PTR ShowPageAlone(WORD templateId, DLGPROC proc, const wchar_t *title, HWND owner)
{
    PROPSHEETPAGEW page = {};
    page.dwSize = sizeof page;
    page.dwFlags = PSP_USETITLE;
    page.hInstance = GetModuleHandleW(nullptr);
    page.pszTemplate = MAKEINTRESOURCEW(templateId);
    page.pfnDlgProc = proc;
    page.pszTitle = title;
    PROPSHEETHEADERW sheet = {};
    sheet.dwSize = sizeof sheet;
    sheet.dwFlags = PSH_PROPSHEETPAGE | PSH_NOAPPLYNOW;
    sheet.hwndParent = owner;
    sheet.hInstance = GetModuleHandleW(nullptr);
    sheet.pszCaption = L"Lanternfields";
    sheet.nPages = 1;
    sheet.ppsp = &page;
    return PropertySheetW(&sheet);
}
