// The icon chooser (IDD_ICONCHOOSER): every icon the program has, the built-in strip first and
// then the user's icons.bmp, in a grid of cells the stylus taps and the arrow keys move through.
// The selected icon sits on a blue cell; its number shows under the grid. A tap selects, a double
// tap or Enter chooses, OK chooses the selected one and Cancel keeps the icon the chooser opened
// with. A wide icons.bmp gives thousands of icons, so the grid scrolls by rows and paints only
// the rows in view.
#include "iconchooser.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "month/indicators.h"
#include "resource.h"

#include <cwchar>

const WCHAR kIconGridClass[] = L"LanternfieldsIconGrid";

// A cell is a comfortable stylus target around the 9 x 9 icon.
const int CELL = 20;
const int ICON_PIXELS = 9;
const int ICON_INSET = (CELL - ICON_PIXELS) / 2;

const COLORREF GRID_FILL = 0xFFFFFF;
const COLORREF GRID_LINE = 0xE6E6E6;
const COLORREF SELECTED_FILL = 0xFFD8B0;  // light blue
const COLORREF SELECTED_FRAME = 0x9C4A00; // dark blue

struct IconChooserData {
    int current;  // the icon the chooser opened with; the answer on Cancel
    int selected; // -1: none (the current icon is not one the program has)
    int topRow;   // the first row in view
    int result;
};

// ---- the grid's geometry ---------------------------------------------------

static int IconTotal()
{
    return g_app.iconCount > 0 ? g_app.iconCount : BUILTIN_ICONS;
}

static int GridColumns(HWND grid)
{
    RECT rc;
    GetClientRect(grid, &rc);
    int columns = rc.right / CELL;
    return columns > 0 ? columns : 1;
}

static int GridRows(HWND grid)
{
    int columns = GridColumns(grid);
    return (IconTotal() + columns - 1) / columns;
}

// Whole rows in view; a last partial row shows but does not count.
static int VisibleRows(HWND grid)
{
    RECT rc;
    GetClientRect(grid, &rc);
    int rows = rc.bottom / CELL;
    return rows > 0 ? rows : 1;
}

// What the columns leave of the width is shared out on both sides.
static int GridLeft(HWND grid)
{
    RECT rc;
    GetClientRect(grid, &rc);
    int left = (rc.right - GridColumns(grid) * CELL) / 2;
    return left > 0 ? left : 0;
}

static IconChooserData *GridData(HWND grid)
{
    return DialogData<IconChooserData>(GetParent(grid));
}

// The icon under a point of the grid's client area, or -1.
static int IconAtPoint(HWND grid, int x, int y)
{
    IconChooserData *d = GridData(grid);
    int left = GridLeft(grid), columns = GridColumns(grid);
    if (!d || x < left || x >= left + columns * CELL || y < 0)
        return -1;
    int icon = (d->topRow + y / CELL) * columns + (x - left) / CELL;
    return icon < IconTotal() ? icon : -1;
}

// ---- scrolling ----------------------------------------------------------------

static void UpdateScrollBar(HWND grid)
{
    IconChooserData *d = GridData(grid);
    SCROLLINFO si = {};
    si.cbSize = sizeof(si);
    si.fMask = SIF_RANGE | SIF_PAGE | SIF_POS | SIF_DISABLENOSCROLL;
    si.nMin = 0;
    si.nMax = GridRows(grid) - 1;
    si.nPage = (UINT)VisibleRows(grid);
    si.nPos = d ? d->topRow : 0;
    SetScrollInfo(grid, SB_VERT, &si, TRUE);
}

static void ScrollTo(HWND grid, int row)
{
    IconChooserData *d = GridData(grid);
    int last = GridRows(grid) - VisibleRows(grid);
    if (row > last)
        row = last;
    if (row < 0)
        row = 0;
    if (!d || row == d->topRow)
        return;
    d->topRow = row;
    UpdateScrollBar(grid);
    InvalidateRect(grid, nullptr, FALSE);
}

static void ScrollIntoView(HWND grid, int icon)
{
    IconChooserData *d = GridData(grid);
    if (!d || icon < 0)
        return;
    int row = icon / GridColumns(grid), rows = VisibleRows(grid);
    if (row < d->topRow)
        ScrollTo(grid, row);
    else if (row >= d->topRow + rows)
        ScrollTo(grid, row - rows + 1);
}

// ---- selection ------------------------------------------------------------------

static void ShowIconNumber(HWND dlg, int icon)
{
    WCHAR text[64] = L"";
    if (icon >= BUILTIN_ICONS)
        swprintf(text, 64, L"Icon %d (icons.bmp)", icon);
    else if (icon >= 0)
        swprintf(text, 64, L"Icon %d", icon);
    SetDlgItemTextW(dlg, IDC_ICONNUMBER, text);
}

static void SelectIcon(HWND grid, int icon)
{
    IconChooserData *d = GridData(grid);
    if (!d || icon < 0 || icon >= IconTotal())
        return;
    d->selected = icon;
    ScrollIntoView(grid, icon);
    InvalidateRect(grid, nullptr, FALSE);
    ShowIconNumber(GetParent(grid), icon);
}

// ---- painting -------------------------------------------------------------------

// A bitmap can be selected into one memory DC at a time, and a pass selects the icon strips
// for every icon it draws.
void DrawSettingsIcon(HDC dc, int iconNumber, int x, int y)
{
    EnterCriticalSection(&g_app.renderLock);
    DrawIcon(dc, iconNumber, x, y);
    LeaveCriticalSection(&g_app.renderLock);
}

static void PaintCell(HDC dc, int icon, int x, int y, bool selected)
{
    if (selected) {
        DrawCellRect(dc, x, y, x + CELL, y + CELL, SELECTED_FRAME, SELECTED_FILL);
        FrameCellRect(dc, x + 1, y + 1, x + CELL - 1, y + CELL - 1, SELECTED_FRAME);
    } else {
        DrawCellRect(dc, x, y, x + CELL + 1, y + CELL + 1, GRID_LINE, GRID_FILL);
    }
    DrawSettingsIcon(dc, icon, x + ICON_INSET, y + ICON_INSET);
}

// The rows in view, into any DC: the screen's, or a test's through WM_PRINTCLIENT.
static void PaintGrid(HWND grid, HDC dc)
{
    IconChooserData *d = GridData(grid);
    RECT rc;
    GetClientRect(grid, &rc);
    FillCellRect(dc, 0, 0, rc.right, rc.bottom, GRID_FILL);
    if (!d)
        return;
    int columns = GridColumns(grid), left = GridLeft(grid), total = IconTotal();
    for (int row = 0; row * CELL < rc.bottom; row++)
        for (int column = 0; column < columns; column++) {
            int icon = (d->topRow + row) * columns + column;
            if (icon >= total)
                break;
            PaintCell(dc, icon, left + column * CELL, row * CELL, icon == d->selected);
        }
    if (GetFocus() == grid && d->selected >= 0) {
        int row = d->selected / columns - d->topRow, column = d->selected % columns;
        RECT focus = {left + column * CELL + 2, row * CELL + 2, left + (column + 1) * CELL - 2,
                      (row + 1) * CELL - 2};
        DrawFocusRect(dc, &focus);
    }
}

// ---- the grid's messages -------------------------------------------------------

static LRESULT GridPaint(HWND grid, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(grid, &ps);
    PaintGrid(grid, dc);
    EndPaint(grid, &ps);
    return 0;
}

static LRESULT GridPrintClient(HWND grid, UINT, WPARAM wp, LPARAM)
{
    PaintGrid(grid, (HDC)wp);
    return 0;
}

static LRESULT GridEraseBackground(HWND, UINT, WPARAM, LPARAM)
{
    return 1; // the paint fills every pixel
}

static LRESULT GridTap(HWND grid, UINT, WPARAM, LPARAM lp)
{
    SetFocus(grid);
    SelectIcon(grid, IconAtPoint(grid, (short)LOWORD(lp), (short)HIWORD(lp)));
    return 0;
}

// A double tap on an icon chooses it, as OK would.
static LRESULT GridDoubleTap(HWND grid, UINT, WPARAM, LPARAM lp)
{
    int icon = IconAtPoint(grid, (short)LOWORD(lp), (short)HIWORD(lp));
    if (icon < 0)
        return 0;
    SelectIcon(grid, icon);
    PostMessageW(GetParent(grid), WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    return 0;
}

static LRESULT GridKey(HWND grid, UINT, WPARAM wp, LPARAM)
{
    IconChooserData *d = GridData(grid);
    if (!d)
        return 0;
    int columns = GridColumns(grid), page = VisibleRows(grid) * columns, last = IconTotal() - 1;
    int from = d->selected >= 0 ? d->selected : 0, to = from;
    switch (wp) {
    case VK_LEFT: to = from - 1; break;
    case VK_RIGHT: to = from + 1; break;
    case VK_UP: to = from - columns; break;
    case VK_DOWN: to = from + columns; break;
    case VK_PRIOR: to = from - page; break;
    case VK_NEXT: to = from + page; break;
    case VK_HOME: to = 0; break;
    case VK_END: to = last; break;
    default: return 0;
    }
    // Up and Down stop at the first and last row; the others stop at the first and last icon.
    if ((wp == VK_UP || wp == VK_DOWN || wp == VK_LEFT || wp == VK_RIGHT) && (to < 0 || to > last))
        to = from;
    SelectIcon(grid, to < 0 ? 0 : to > last ? last : to);
    return 0;
}

static LRESULT GridScroll(HWND grid, UINT, WPARAM wp, LPARAM)
{
    IconChooserData *d = GridData(grid);
    if (!d)
        return 0;
    int row = d->topRow, rows = VisibleRows(grid);
    switch (LOWORD(wp)) {
    case SB_LINEUP: row--; break;
    case SB_LINEDOWN: row++; break;
    case SB_PAGEUP: row -= rows; break;
    case SB_PAGEDOWN: row += rows; break;
    case SB_TOP: row = 0; break;
    case SB_BOTTOM: row = GridRows(grid); break;
    case SB_THUMBTRACK:
    case SB_THUMBPOSITION: {
        // The 16-bit position of the message would stop short on a very wide icons.bmp.
        SCROLLINFO si = {};
        si.cbSize = sizeof(si);
        si.fMask = SIF_TRACKPOS;
        GetScrollInfo(grid, SB_VERT, &si);
        row = si.nTrackPos;
        break;
    }
    default: return 0;
    }
    ScrollTo(grid, row);
    return 0;
}

static LRESULT GridWheel(HWND grid, UINT, WPARAM wp, LPARAM)
{
    IconChooserData *d = GridData(grid);
    if (d)
        ScrollTo(grid, d->topRow - 3 * (short)HIWORD(wp) / WHEEL_DELTA);
    return 0;
}

static LRESULT GridFocus(HWND grid, UINT, WPARAM, LPARAM)
{
    InvalidateRect(grid, nullptr, FALSE);
    return 0;
}

// The arrow and page keys move the selection; Enter, Escape and Tab stay the dialog's.
static LRESULT GridDialogCode(HWND, UINT, WPARAM, LPARAM)
{
    return DLGC_WANTARROWS;
}

static LRESULT GridSize(HWND grid, UINT, WPARAM, LPARAM)
{
    UpdateScrollBar(grid);
    return 0;
}

struct GridEntry {
    UINT msg;
    LRESULT (*handler)(HWND, UINT, WPARAM, LPARAM);
};
static const GridEntry kIconGrid[] = {
    {WM_PAINT, GridPaint},
    {WM_PRINTCLIENT, GridPrintClient},
    {WM_ERASEBKGND, GridEraseBackground},
    {WM_LBUTTONDOWN, GridTap},
    {WM_LBUTTONDBLCLK, GridDoubleTap},
    {WM_KEYDOWN, GridKey},
    {WM_VSCROLL, GridScroll},
    {WM_MOUSEWHEEL, GridWheel},
    {WM_SETFOCUS, GridFocus},
    {WM_KILLFOCUS, GridFocus},
    {WM_GETDLGCODE, GridDialogCode},
    {WM_SIZE, GridSize},
};

static LRESULT CALLBACK IconGridProc(HWND grid, UINT msg, WPARAM wp, LPARAM lp)
{
    for (const GridEntry &e : kIconGrid)
        if (e.msg == msg)
            return e.handler(grid, msg, wp, lp);
    return DefWindowProcW(grid, msg, wp, lp);
}

// The template names the grid's class, so it is registered before the first dialog is made.
static void RegisterIconGrid()
{
    WNDCLASSW wc = {};
    wc.style = CS_DBLCLKS | CS_GLOBALCLASS;
    wc.lpfnWndProc = IconGridProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, (LPCWSTR)IDC_ARROW);
    wc.lpszClassName = kIconGridClass;
    RegisterClassW(&wc); // a second registration fails harmlessly
}

// ---- the dialog -------------------------------------------------------------------

static INT_PTR ChooserInit(HWND dlg, IconChooserData *d)
{
    HWND grid = GetDlgItem(dlg, IDC_ICONGRID);
    d->topRow = 0;
    d->selected = d->current >= 0 && d->current < IconTotal() ? d->current : -1;
    UpdateScrollBar(grid);
    // The current icon is in view, near the top when the grid must scroll to it.
    if (d->selected >= 0)
        ScrollTo(grid, d->selected / GridColumns(grid) - 1);
    ShowIconNumber(dlg, d->selected);
    SetFocus(grid);
    return FALSE; // the focus is set
}

static INT_PTR ChooserCommand(HWND dlg, int id, int, HWND)
{
    IconChooserData *d = DialogData<IconChooserData>(dlg);
    if (id == IDOK) {
        d->result = d->selected >= 0 ? d->selected : d->current;
        EndDialog(dlg, IDOK);
        return TRUE;
    }
    if (id == IDCANCEL) {
        d->result = d->current;
        EndDialog(dlg, IDCANCEL);
        return TRUE;
    }
    return FALSE;
}

static const DialogEntry kIconChooser[] = {
    {WM_INITDIALOG, DialogInit<ChooserInit>},
    {WM_COMMAND, DialogCommand<ChooserCommand>},
};

static INT_PTR CALLBACK IconChooserProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kIconChooser, dlg, msg, wp, lp);
}

int ChooseIcon(HWND owner, int current)
{
    RegisterIconGrid();
    IconChooserData d = {current, -1, 0, current};
    if (RunDialog(owner, IDD_ICONCHOOSER, IconChooserProc, &d) <= 0)
        return current;
    return d.result;
}
