// The settings sheet's Icons page (IDD_ICONSPAGE): the 48 icon slots, each an icon and the
// category label whose appointments show it in the month view. The slots are a list (number,
// icon, label); the selected slot is edited under it: its icon through the icon chooser, its
// label in a field of at most 14 characters (the slot holds 15 units with the terminator).
// Nothing is written until the sheet is accepted; then every slot is written, as shown, and the
// month view follows.
#include "pages.h"
#include "iconchooser.h"
#include "settings.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "shell/render.h"
#include "resource.h"

#include <commctrl.h>
#include <cwchar>

const int LABEL_CHARS = ICON_LABEL_LEN - 1;
const int ROW_HEIGHT = 16;
const int ICON_PIXELS = 9;

const COLORREF FRAME_OUTER = 0x9C4A00; // dark blue
const COLORREF FRAME_INNER = 0xF0D8C0; // pale blue
const COLORREF UNUSED_TEXT = 0x808080;

// What the page shows, the registry's values until the user changes them.
struct IconsPageData {
    DWORD icons[ICON_SLOTS];
    WCHAR labels[ICON_SLOTS][ICON_LABEL_LEN];
    int slot;      // the slot edited under the list
    bool filling;  // the label field is being filled by the page, not typed into
};

// ---- the slots ---------------------------------------------------------------------

static void InvalidateSlot(HWND page, int slot)
{
    HWND list = GetDlgItem(page, IDC_ICONSLOTLIST);
    RECT rc;
    if (SendMessageW(list, LB_GETITEMRECT, slot, (LPARAM)&rc) != LB_ERR)
        InvalidateRect(list, &rc, TRUE);
}

// Shows slot `slot` under the list.
static void EditSlot(HWND page, IconsPageData *d, int slot)
{
    if (slot < 0 || slot >= ICON_SLOTS)
        return;
    d->slot = slot;
    SendDlgItemMessageW(page, IDC_ICONSLOTLIST, LB_SETCURSEL, slot, 0);
    d->filling = true;
    SetDlgItemTextW(page, IDC_ICONSLOTLABEL, d->labels[slot]);
    d->filling = false;
    InvalidateRect(GetDlgItem(page, IDC_ICONSLOTICON), nullptr, TRUE);
}

static void ChooseSlotIcon(HWND page, IconsPageData *d)
{
    int chosen = ChooseIcon(page, (int)d->icons[d->slot]);
    if (chosen < 0)
        return;
    d->icons[d->slot] = (DWORD)chosen;
    InvalidateRect(GetDlgItem(page, IDC_ICONSLOTICON), nullptr, TRUE);
    InvalidateSlot(page, d->slot);
}

static void TakeLabel(HWND page, IconsPageData *d)
{
    if (d->filling)
        return;
    WCHAR text[ICON_LABEL_LEN] = L"";
    GetDlgItemTextW(page, IDC_ICONSLOTLABEL, text, ICON_LABEL_LEN);
    lstrcpynW(d->labels[d->slot], text, ICON_LABEL_LEN);
    InvalidateSlot(page, d->slot);
}

// Every slot as shown, into the registry and the running program. The rendering thread reads
// the slots during a pass, so they change between passes.
static void ApplySlots(const IconsPageData *d)
{
    WCHAR name[32];
    for (int k = 0; k < ICON_SLOTS; k++) {
        swprintf(name, 32, L"displayicon%d", k);
        WriteSettingNumber(name, d->icons[k]);
        swprintf(name, 32, L"displayiconstring%d", k);
        WriteSettingText(name, d->labels[k]);
    }
    EnterCriticalSection(&g_app.renderLock);
    for (int k = 0; k < ICON_SLOTS; k++) {
        g_app.settings.displayIcon[k] = d->icons[k];
        lstrcpynW(g_app.settings.displayIconString[k], d->labels[k], ICON_LABEL_LEN);
    }
    LeaveCriticalSection(&g_app.renderLock);
    if (g_app.hRenderEvent)
        RequestRedraw();
}

// ---- drawing -------------------------------------------------------------------------

// A slot's row: its number, its icon, its label (or that it is unused).
static void DrawSlotRow(const IconsPageData *d, const DRAWITEMSTRUCT *di)
{
    if (di->itemID >= (UINT)ICON_SLOTS)
        return;
    HDC dc = di->hDC;
    RECT rc = di->rcItem;
    bool selected = (di->itemState & ODS_SELECTED) != 0;
    FillRect(dc, &rc, GetSysColorBrush(selected ? COLOR_HIGHLIGHT : COLOR_WINDOW));
    int slot = (int)di->itemID;
    WCHAR number[8];
    swprintf(number, 8, L"%d", slot + 1);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, GetSysColor(selected ? COLOR_HIGHLIGHTTEXT : COLOR_WINDOWTEXT));
    RECT numberRect = {rc.left + 2, rc.top, rc.left + 20, rc.bottom};
    DrawTextW(dc, number, -1, &numberRect, DT_RIGHT | DT_VCENTER | DT_SINGLELINE);
    int iconX = rc.left + 26, iconY = rc.top + (rc.bottom - rc.top - ICON_PIXELS) / 2;
    // The icon sits on white in a selected row too, so its colours read as in the month.
    FillCellRect(dc, iconX - 2, iconY - 2, iconX + ICON_PIXELS + 2, iconY + ICON_PIXELS + 2, 0xFFFFFF);
    DrawSettingsIcon(dc, (int)d->icons[slot], iconX, iconY);
    RECT labelRect = {iconX + ICON_PIXELS + 8, rc.top, rc.right - 2, rc.bottom};
    const WCHAR *label = d->labels[slot];
    if (!label[0]) {
        label = L"(unused)";
        if (!selected)
            SetTextColor(dc, UNUSED_TEXT);
    }
    DrawTextW(dc, label, -1, &labelRect, DT_LEFT | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX | DT_END_ELLIPSIS);
    if (di->itemState & ODS_FOCUS)
        DrawFocusRect(dc, &rc);
}

// The button that opens the chooser shows the selected slot's icon.
static void DrawIconButton(const IconsPageData *d, const DRAWITEMSTRUCT *di)
{
    HDC dc = di->hDC;
    RECT rc = di->rcItem;
    UINT state = DFCS_BUTTONPUSH | ((di->itemState & ODS_SELECTED) ? DFCS_PUSHED : 0);
    DrawFrameControl(dc, &rc, DFC_BUTTON, state);
    int x = (rc.left + rc.right - ICON_PIXELS) / 2, y = (rc.top + rc.bottom - ICON_PIXELS) / 2;
    FillCellRect(dc, x - 1, y - 1, x + ICON_PIXELS + 1, y + ICON_PIXELS + 1, 0xFFFFFF);
    DrawSettingsIcon(dc, (int)d->icons[d->slot], x, y);
    if (di->itemState & ODS_FOCUS) {
        RECT focus = {rc.left + 3, rc.top + 3, rc.right - 3, rc.bottom - 3};
        DrawFocusRect(dc, &focus);
    }
}

// A control's rectangle in the page's client pixels, grown by `margin`.
static RECT AroundControls(HWND page, int firstId, int lastId, int margin)
{
    RECT all = {};
    for (int id = firstId; id <= lastId; id++) {
        HWND control = GetDlgItem(page, id);
        if (!control)
            continue;
        RECT rc;
        GetWindowRect(control, &rc);
        MapWindowPoints(nullptr, page, (POINT *)&rc, 2);
        if (IsRectEmpty(&all))
            all = rc;
        else
            UnionRect(&all, &all, &rc);
    }
    InflateRect(&all, margin, margin);
    return all;
}

static void PaintFrames(HWND page, HDC dc)
{
    ScopedSelect hollow(dc, GetStockObject(NULL_BRUSH));
    RECT list = AroundControls(page, IDC_ICONSLOTLIST, IDC_ICONSLOTLIST, 3);
    RECT slot = AroundControls(page, IDC_ICONSLOTICON, IDC_ICONSLOTLABELTEXT, 3);
    DrawDoubleFrame(dc, list.left, list.top, list.right, list.bottom, 8, FRAME_INNER, FRAME_OUTER);
    DrawDoubleFrame(dc, slot.left, slot.top, slot.right, slot.bottom, 8, FRAME_INNER, FRAME_OUTER);
}

// ---- the page's messages ----------------------------------------------------------

// The page's record replaces the sheet's page description in DWLP_USER, so every handler finds
// it as a dialog's; it is freed with the page.
static INT_PTR IconsInit(HWND page, PROPSHEETPAGEW *)
{
    IconsPageData *d = new IconsPageData();
    SetWindowLongPtrW(page, DWLP_USER, (LONG_PTR)d);
    for (int k = 0; k < ICON_SLOTS; k++) {
        d->icons[k] = g_app.settings.displayIcon[k];
        lstrcpynW(d->labels[k], g_app.settings.displayIconString[k], ICON_LABEL_LEN);
    }
    HWND list = GetDlgItem(page, IDC_ICONSLOTLIST);
    for (int k = 0; k < ICON_SLOTS; k++)
        SendMessageW(list, LB_ADDSTRING, 0, (LPARAM)k);
    SendDlgItemMessageW(page, IDC_ICONSLOTLABEL, EM_LIMITTEXT, LABEL_CHARS, 0);
    EditSlot(page, d, 0);
    return TRUE;
}

static INT_PTR IconsDestroy(HWND page, UINT, WPARAM, LPARAM)
{
    delete DialogData<IconsPageData>(page);
    SetWindowLongPtrW(page, DWLP_USER, 0);
    return FALSE;
}

static INT_PTR IconsCommand(HWND page, int id, int code, HWND)
{
    IconsPageData *d = DialogData<IconsPageData>(page);
    if (!d)
        return FALSE;
    if (id == IDC_ICONSLOTLIST && code == LBN_SELCHANGE) {
        EditSlot(page, d, (int)SendDlgItemMessageW(page, IDC_ICONSLOTLIST, LB_GETCURSEL, 0, 0));
    } else if (id == IDC_ICONSLOTLIST && code == LBN_DBLCLK) {
        ChooseSlotIcon(page, d);
    } else if (id == IDC_ICONSLOTICON && code == BN_CLICKED) {
        ChooseSlotIcon(page, d);
    } else if (id == IDC_ICONSLOTLABEL && code == EN_CHANGE) {
        TakeLabel(page, d);
    } else {
        return FALSE;
    }
    return TRUE;
}

static INT_PTR IconsNotify(HWND page, NMHDR *hdr)
{
    IconsPageData *d = DialogData<IconsPageData>(page);
    if (hdr->code == PSN_APPLY && d) {
        ApplySlots(d);
        return DialogReply(page, PSNRET_NOERROR);
    }
    return FALSE;
}

static INT_PTR IconsMeasure(HWND, UINT, WPARAM, LPARAM lp)
{
    ((MEASUREITEMSTRUCT *)lp)->itemHeight = ROW_HEIGHT;
    return TRUE;
}

static INT_PTR IconsDrawItem(HWND page, UINT, WPARAM, LPARAM lp)
{
    IconsPageData *d = DialogData<IconsPageData>(page);
    const DRAWITEMSTRUCT *di = (const DRAWITEMSTRUCT *)lp;
    if (!d)
        return FALSE;
    if (di->CtlID == IDC_ICONSLOTLIST)
        DrawSlotRow(d, di);
    else if (di->CtlID == IDC_ICONSLOTICON)
        DrawIconButton(d, di);
    else
        return FALSE;
    return TRUE;
}

static INT_PTR IconsPaint(HWND page, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(page, &ps);
    PaintFrames(page, dc);
    EndPaint(page, &ps);
    return TRUE;
}

static const DialogEntry kIconsPage[] = {
    {WM_INITDIALOG, DialogInit<IconsInit>},
    {WM_DESTROY, IconsDestroy},
    {WM_COMMAND, DialogCommand<IconsCommand>},
    {WM_NOTIFY, DialogNotify<IconsNotify>},
    {WM_MEASUREITEM, IconsMeasure},
    {WM_DRAWITEM, IconsDrawItem},
    {WM_PAINT, IconsPaint},
};

INT_PTR CALLBACK IconsPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kIconsPage, page, msg, wp, lp);
}
