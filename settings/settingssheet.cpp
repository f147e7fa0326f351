// The settings sheet: one modal property sheet over the main window, its pages in the order the
// user has always found them. On the desktop it covers the application area, as it covered the
// handheld's screen: the sheet is moved over the main window's client area and its tabs, pages
// and buttons are laid out inside it.
#include "settingssheet.h"
#include "pages.h"
#include "platform/aygshell.h"
#include "resource.h"

#include <commctrl.h>
#include <prsht.h>

struct SheetPage {
    int templateId;
    const WCHAR *title;
    DLGPROC proc;
};

static const SheetPage kSheetPages[] = {
    {IDD_OPTIONSPAGE, L"Options", OptionsPageProc},
    {IDD_TIMESPAGE, L"Times", TimesPageProc},
    {IDD_COLORPAGE, L"Color", ColorPageProc},
    {IDD_CATEGORYPAGE, L"Category", CategoryPageProc},
    {IDD_ICONSPAGE, L"Icons", IconsPageProc},
};
const int kSheetPageCount = sizeof(kSheetPages) / sizeof(kSheetPages[0]);

const UINT WM_SHEETLAYOUT = WM_APP + 0x51;
const int SHEET_APPLY_BUTTON = 0x3021; // the sheet's own id for Apply, which no header names

const int SHEET_MARGIN = 2;     // around the buttons
const int SHEET_GAP = 4;        // between two buttons
const int SHEET_BUTTON_H = 23;  // the OK / Cancel / Apply row
const int SHEET_TAB_MARGIN = 6; // beside a tab's title
const int SHEET_TAB_MIN = 1;    // a tab's least width: none of its own beyond title and margins

static WNDPROC g_sheetPrevProc;
static HWND g_fittedPage; // the page last fitted, of the sheet open now

// The page shown takes the sheet's whole width above the tabs.
static void FitCurrentPage(HWND sheet)
{
    HWND tab = PropSheet_GetTabControl(sheet);
    HWND page = PropSheet_GetCurrentPageHwnd(sheet);
    if (!tab || !page)
        return;
    RECT rc;
    GetWindowRect(tab, &rc);
    MapWindowPoints(HWND_DESKTOP, sheet, (POINT *)&rc, 2);
    SetWindowPos(page, HWND_TOP, 0, 0, rc.right, rc.top, SWP_NOACTIVATE);
}

// The sheet covers the application area as the handheld's covered its screen, without a frame
// of its own (the main window's caption above it reads "Lanternfields"): the page on top, the
// tabs hanging below it, and the buttons in a row along the bottom, right-aligned, where the
// handheld had its menu bar.
static void LayOutSheet(HWND sheet)
{
    RECT area;
    AppAreaRect(&area);
    int w = area.right - area.left, h = area.bottom - area.top;
    SetWindowPos(sheet, nullptr, area.left, area.top, w, h, SWP_NOZORDER | SWP_NOACTIVATE);

    static const int buttons[] = {IDHELP, SHEET_APPLY_BUTTON, IDCANCEL, IDOK};
    int x = w - SHEET_MARGIN;
    int y = h - SHEET_MARGIN - SHEET_BUTTON_H;
    for (int id : buttons) {
        HWND b = GetDlgItem(sheet, id);
        // By its style: the sheet, and so every button, may not be shown yet.
        if (!b || !(GetWindowLongW(b, GWL_STYLE) & WS_VISIBLE))
            continue;
        RECT br;
        GetWindowRect(b, &br);
        int bw = br.right - br.left;
        x -= bw;
        SetWindowPos(b, nullptr, x, y, bw, SHEET_BUTTON_H, SWP_NOZORDER | SWP_NOACTIVATE);
        x -= SHEET_GAP;
    }
    HWND tab = PropSheet_GetTabControl(sheet);
    if (tab) {
        // One row of tabs (a second row would take the pages' last lines), each as wide as its
        // title and a margin, however short the title: tabs of one width cut "Category", and
        // the selected tab, drawn wider, covered its neighbours' first letters. The margin
        // narrows when the titles would not fit the width otherwise.
        SetWindowLongW(tab, GWL_STYLE,
                       (GetWindowLongW(tab, GWL_STYLE) | TCS_BOTTOM) & ~(TCS_MULTILINE | TCS_FIXEDWIDTH));
        TabCtrl_SetMinTabWidth(tab, SHEET_TAB_MIN);
        for (int margin = SHEET_TAB_MARGIN; margin >= 2; margin -= 2) {
            TabCtrl_SetPadding(tab, margin, 3);
            SetWindowPos(tab, nullptr, 0, 0, w, 40, SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED);
            RECT last = {};
            TabCtrl_GetItemRect(tab, kSheetPageCount - 1, &last);
            if (last.right <= w - 4)
                break;
        }
        RECT item = {0, 0, 0, 20};
        TabCtrl_GetItemRect(tab, 0, &item);
        int rows = TabCtrl_GetRowCount(tab);
        int tabH = (item.bottom - item.top) * (rows > 0 ? rows : 1) + 4;
        SetWindowPos(tab, nullptr, 0, y - SHEET_MARGIN - tabH, w, tabH,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }
    FitCurrentPage(sheet);
    InvalidateRect(sheet, nullptr, TRUE);
}

// A page the sheet turns to is fitted once the sheet has handled the message that turned it (a
// tab, a page message), or, when the sheet turned it by itself (a key), once it has handled the
// outermost message: inside that the sheet may still be placing the page.
static LRESULT CALLBACK SheetSubclassProc(HWND sheet, UINT msg, WPARAM wp, LPARAM lp)
{
    static int depth;
    depth++;
    LRESULT result = CallWindowProcW(g_sheetPrevProc, sheet, msg, wp, lp);
    depth--;
    if (msg == WM_SHEETLAYOUT) {
        LayOutSheet(sheet);
        return result;
    }
    bool turned = (msg == WM_NOTIFY && ((NMHDR *)lp)->code == TCN_SELCHANGE) ||
                  msg == PSM_SETCURSEL || msg == PSM_SETCURSELID;
    if ((turned || depth == 0) && msg != WM_NCDESTROY && msg != WM_DESTROY && IsWindow(sheet)) {
        depth++;
        HWND page = PropSheet_GetCurrentPageHwnd(sheet);
        if (page && (turned || page != g_fittedPage)) {
            FitCurrentPage(sheet);
            g_fittedPage = page;
        }
        depth--;
    }
    return result;
}

// The sheet's template loses its frame and caption before the sheet is made. Its template is
// either of the two dialog template forms.
static void DropSheetFrame(DLGTEMPLATE *t)
{
    const DWORD frame = WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | DS_MODALFRAME;
    const DWORD exFrame = WS_EX_DLGMODALFRAME | WS_EX_CONTEXTHELP | WS_EX_WINDOWEDGE;
    WORD *words = (WORD *)t;
    if (words[0] == 1 && words[1] == 0xFFFF) {
        DWORD *ex = (DWORD *)(words + 4), *style = (DWORD *)(words + 6);
        *style &= ~frame;
        *ex &= ~exFrame;
    } else {
        t->style &= ~frame;
        t->dwExtendedStyle &= ~exFrame;
    }
}

// The handheld asked here for its full-screen style by answering the version query; on the
// desktop the query means nothing and the sheet lays itself out once its first page is made.
static int CALLBACK SheetCallback(HWND sheet, UINT msg, LPARAM lp)
{
    if (msg == PSCB_PRECREATE && lp)
        DropSheetFrame((DLGTEMPLATE *)lp);
    if (msg == PSCB_INITIALIZED) {
        g_fittedPage = nullptr;
        g_sheetPrevProc =
            (WNDPROC)SetWindowLongPtrW(sheet, GWLP_WNDPROC, (LONG_PTR)SheetSubclassProc);
        LayOutSheet(sheet);
        PostMessageW(sheet, WM_SHEETLAYOUT, 0, 0);
    }
    return 0;
}

// The icon is loaded once for the life of the program: Wine's sheet, given the icon's resource,
// loads a copy on every opening and never frees it.
static HICON g_sheetIcon;

INT_PTR ShowSettingsSheet(HWND owner)
{
    HINSTANCE module = GetModuleHandleW(nullptr);
    if (!g_sheetIcon)
        g_sheetIcon = (HICON)LoadImageW(module, MAKEINTRESOURCEW(IDI_SETTINGS), IMAGE_ICON, 16, 16,
                                        LR_SHARED);
    PROPSHEETPAGEW pages[kSheetPageCount] = {};
    for (int i = 0; i < kSheetPageCount; i++) {
        pages[i].dwSize = sizeof(pages[i]);
        pages[i].dwFlags = PSP_USETITLE;
        pages[i].hInstance = module;
        pages[i].pszTemplate = MAKEINTRESOURCEW(kSheetPages[i].templateId);
        pages[i].pfnDlgProc = kSheetPages[i].proc;
        pages[i].pszTitle = kSheetPages[i].title;
    }
    PROPSHEETHEADERW header = {};
    header.dwSize = sizeof(header);
    header.dwFlags = PSH_PROPSHEETPAGE | PSH_USECALLBACK | PSH_USEHICON;
    header.hwndParent = owner;
    header.hInstance = module;
    header.hIcon = g_sheetIcon;
    header.pszCaption = L"Lanternfields";
    header.nPages = kSheetPageCount;
    header.nStartPage = 0;
    header.ppsp = pages;
    header.pfnCallback = SheetCallback;
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_TAB_CLASSES | ICC_BAR_CLASSES};
    InitCommonControlsEx(&icc);
    INT_PTR result = PropertySheetW(&header);
    if (result < 0) {
        MessageBoxW(owner, L"error in PropertySheet()", L"error", MB_OK);
        return -1;
    }
    return result;
}
