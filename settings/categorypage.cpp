// The settings sheet's Category page: the device's categories, each with its colour and icon
// (stored, or the default ones), and for the selected category a colour swatch that opens the
// colour picker and an icon that opens the icon chooser. Nothing is written until the sheet is
// accepted; then only the categories the user changed are saved, and the program's categories
// are loaded and merged again so the views show the change at once.
#include "pages.h"
#include "categoryprops.h"
#include "colorpicker.h"
#include "iconchooser.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "month/indicators.h"
#include "resource.h"

#include <commctrl.h>
#include <string>
#include <vector>

// One listed category as the page shows it, and as it was when the page opened.
struct CategoryEntry {
    CategoryName name;
    CategoryLook look, opened;
    DWORD storedIcon; // as stored: an icon the program lacks shows as the first, yet is kept
};

struct CategoryPageData {
    std::vector<CategoryEntry> entries;
};

const int CATEGORY_ROW_HEIGHT = 15;
const int SWATCH_WIDTH = 14, SWATCH_HEIGHT = 9;
const int ICON_PIXELS = 9;

static CategoryPageData *PageData(HWND page)
{
    return DialogData<CategoryPageData>(page);
}

// The selected entry, or none.
static CategoryEntry *Selected(HWND page)
{
    CategoryPageData *d = PageData(page);
    int row = (int)SendDlgItemMessageW(page, IDC_CATEGORYLIST, LB_GETCURSEL, 0, 0);
    if (!d || row < 0 || row >= (int)d->entries.size())
        return nullptr;
    return &d->entries[row];
}

// The colour and icon buttons act on the selected category, unless its name is too long to be
// kept; the note says why.
static void ShowSelection(HWND page)
{
    CategoryPageData *d = PageData(page);
    CategoryEntry *e = Selected(page);
    bool editable = e && !e->name.cut;
    EnableWindow(GetDlgItem(page, IDC_CATEGORYCOLOR), editable);
    EnableWindow(GetDlgItem(page, IDC_CATEGORYICON), editable);
    const WCHAR *note = L"";
    if (d && d->entries.empty())
        note = L"No categories yet: give an appointment a category first.";
    else if (e && e->name.cut)
        note = L"This category's name is too long to keep a color and icon for it.";
    SetDlgItemTextW(page, IDC_CATEGORYNOTE, note);
    InvalidateRect(GetDlgItem(page, IDC_CATEGORYCOLOR), nullptr, FALSE);
    InvalidateRect(GetDlgItem(page, IDC_CATEGORYICON), nullptr, FALSE);
}

static INT_PTR CategoryInit(HWND page, UINT, WPARAM, LPARAM)
{
    CategoryPageData *d = new CategoryPageData;
    SetWindowLongPtrW(page, DWLP_USER, (LONG_PTR)d);
    // What is on disk now, and the device's names as they are now.
    ReloadCategories(false);
    HWND list = GetDlgItem(page, IDC_CATEGORYLIST);
    for (int i = 0; i < g_app.deviceCategoryCount; i++) {
        CategoryEntry e = {g_app.deviceCategories[i], g_app.mergedCategories[i],
                           g_app.mergedCategories[i], g_app.mergedCategories[i].icon};
        if (const CategoryProps *stored =
                StoredCategoryProps(e.name.name, g_app.categoryProps, g_app.categoryCount))
            e.storedIcon = stored->icon;
        d->entries.push_back(e);
        SendMessageW(list, LB_ADDSTRING, 0, (LPARAM)e.name.name);
    }
    if (!d->entries.empty())
        SendMessageW(list, LB_SETCURSEL, 0, 0);
    ShowSelection(page);
    return TRUE;
}

static INT_PTR CategoryDestroy(HWND page, UINT, WPARAM, LPARAM)
{
    delete PageData(page);
    SetWindowLongPtrW(page, DWLP_USER, 0);
    return FALSE;
}

static void PickCategoryColour(HWND page)
{
    CategoryEntry *e = Selected(page);
    if (!e || e->name.cut)
        return;
    e->look.color = PickColour(page, e->look.color) & 0x00FFFFFF;
    InvalidateRect(GetDlgItem(page, IDC_CATEGORYLIST), nullptr, FALSE);
    ShowSelection(page);
}

static void ChooseCategoryIcon(HWND page)
{
    CategoryEntry *e = Selected(page);
    if (!e || e->name.cut)
        return;
    int icon = ChooseIcon(page, (int)e->look.icon);
    if (icon >= 0 && icon < g_app.iconCount)
        e->look.icon = (DWORD)icon;
    InvalidateRect(GetDlgItem(page, IDC_CATEGORYLIST), nullptr, FALSE);
    ShowSelection(page);
}

static INT_PTR CategoryCommand(HWND page, int id, int code, HWND)
{
    switch (id) {
    case IDC_CATEGORYLIST:
        if (code == LBN_SELCHANGE)
            ShowSelection(page);
        else if (code == LBN_DBLCLK)
            PickCategoryColour(page);
        return TRUE;
    case IDC_CATEGORYCOLOR:
        if (code == BN_CLICKED)
            PickCategoryColour(page);
        return TRUE;
    case IDC_CATEGORYICON:
        if (code == BN_CLICKED)
            ChooseCategoryIcon(page);
        return TRUE;
    }
    return FALSE;
}

// Saves each category the user changed, then loads and merges them all again. A save that
// fails without a word from the database routines (a damaged "settings.vol" is left alone
// silently) is reported once.
static void ApplyCategories(HWND page)
{
    CategoryPageData *d = PageData(page);
    if (!d)
        return;
    int messages = CategoryMessagesShown();
    bool failed = false;
    for (CategoryEntry &e : d->entries) {
        if (e.name.cut || (e.look.color == e.opened.color && e.look.icon == e.opened.icon))
            continue;
        // An icon left as it was is saved as stored, even one from an "icons.bmp" since removed.
        DWORD icon = e.look.icon == e.opened.icon ? e.storedIcon : e.look.icon;
        if (SaveCategoryProps(e.name.name, e.look.color, (int)icon))
            e.opened = e.look;
        else
            failed = true;
    }
    if (failed && CategoryMessagesShown() == messages)
        MessageBoxW(page, L"The category colors and icons could not be saved.", L"Error", MB_OK);
    ReloadCategories(true);
}

static INT_PTR CategoryNotify(HWND page, NMHDR *hdr)
{
    switch (hdr->code) {
    case PSN_APPLY:
        ApplyCategories(page);
        return DialogReply(page, PSNRET_NOERROR);
    case PSN_KILLACTIVE:
        return DialogReply(page, FALSE);
    }
    return FALSE;
}

static INT_PTR CategoryMeasure(HWND, UINT, WPARAM, LPARAM lp)
{
    MEASUREITEMSTRUCT *m = (MEASUREITEMSTRUCT *)lp;
    if (m->CtlID != IDC_CATEGORYLIST)
        return FALSE;
    m->itemHeight = CATEGORY_ROW_HEIGHT;
    return TRUE;
}

// A colour in a black frame, as the colour picker shows its swatches.
static void DrawSwatch(HDC dc, const RECT &r, COLORREF colour, bool enabled)
{
    ScopedPen pen(CreatePen(PS_SOLID, 1, enabled ? RGB(0, 0, 0) : GetSysColor(COLOR_GRAYTEXT)));
    ScopedBrush fill(CreateSolidBrush(enabled ? colour : GetSysColor(COLOR_BTNFACE)));
    ScopedSelect usePen(dc, pen);
    ScopedSelect useBrush(dc, fill);
    Rectangle(dc, r.left, r.top, r.right, r.bottom);
}

static void DrawCategoryRow(HWND page, const DRAWITEMSTRUCT *di)
{
    CategoryPageData *d = PageData(page);
    HDC dc = di->hDC;
    RECT r = di->rcItem;
    bool selected = (di->itemState & ODS_SELECTED) != 0;
    FillRect(dc, &r, GetSysColorBrush(selected ? COLOR_HIGHLIGHT : COLOR_WINDOW));
    if (!d || di->itemID >= d->entries.size())
        return;
    const CategoryEntry &e = d->entries[di->itemID];
    int middle = (r.top + r.bottom) / 2;
    RECT swatch = {r.left + 3, middle - SWATCH_HEIGHT / 2, r.left + 3 + SWATCH_WIDTH,
                   middle - SWATCH_HEIGHT / 2 + SWATCH_HEIGHT};
    DrawSwatch(dc, swatch, e.look.color, true);
    DrawIcon(dc, (int)e.look.icon, swatch.right + 4, middle - ICON_PIXELS / 2);
    RECT text = r;
    text.left = swatch.right + 4 + ICON_PIXELS + 5;
    int oldMode = SetBkMode(dc, TRANSPARENT);
    COLORREF oldColour =
        SetTextColor(dc, GetSysColor(selected ? COLOR_HIGHLIGHTTEXT : COLOR_WINDOWTEXT));
    // A name cut to its slot ends in an ellipsis, so it does not pass for the whole name.
    std::wstring shown = e.name.name;
    if (e.name.cut)
        shown += L"\u2026";
    DrawTextW(dc, shown.c_str(), -1, &text, DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
    SetTextColor(dc, oldColour);
    SetBkMode(dc, oldMode);
    if (di->itemState & ODS_FOCUS)
        DrawFocusRect(dc, &r);
}

// The colour and icon buttons: a raised button face holding the selected category's colour or
// icon, pushed in while pressed.
static void DrawCategoryButton(HWND page, const DRAWITEMSTRUCT *di)
{
    HDC dc = di->hDC;
    RECT r = di->rcItem;
    bool enabled = !(di->itemState & ODS_DISABLED);
    FillRect(dc, &r, GetSysColorBrush(COLOR_BTNFACE));
    DrawEdge(dc, &r, (di->itemState & ODS_SELECTED) ? EDGE_SUNKEN : EDGE_RAISED, BF_RECT);
    CategoryEntry *e = enabled ? Selected(page) : nullptr;
    RECT inner = {r.left + 5, r.top + 4, r.right - 5, r.bottom - 4};
    if (di->CtlID == IDC_CATEGORYCOLOR) {
        DrawSwatch(dc, inner, e ? e->look.color : 0, e != nullptr);
    } else if (e) {
        RECT well = {(r.left + r.right) / 2 - 7, (r.top + r.bottom) / 2 - 7,
                     (r.left + r.right) / 2 + 7, (r.top + r.bottom) / 2 + 7};
        DrawSwatch(dc, well, RGB(255, 255, 255), true);
        DrawIcon(dc, (int)e->look.icon, well.left + 3, well.top + 3);
    }
    if (di->itemState & ODS_FOCUS) {
        RECT focus = {r.left + 3, r.top + 3, r.right - 3, r.bottom - 3};
        DrawFocusRect(dc, &focus);
    }
}

static INT_PTR CategoryDraw(HWND page, UINT, WPARAM, LPARAM lp)
{
    const DRAWITEMSTRUCT *di = (const DRAWITEMSTRUCT *)lp;
    if (di->CtlID == IDC_CATEGORYLIST)
        DrawCategoryRow(page, di);
    else if (di->CtlID == IDC_CATEGORYCOLOR || di->CtlID == IDC_CATEGORYICON)
        DrawCategoryButton(page, di);
    else
        return FALSE;
    return TRUE;
}

static const DialogEntry kCategoryPage[] = {
    {WM_INITDIALOG, CategoryInit},
    {WM_COMMAND, DialogCommand<CategoryCommand>},
    {WM_NOTIFY, DialogNotify<CategoryNotify>},
    {WM_MEASUREITEM, CategoryMeasure},
    {WM_DRAWITEM, CategoryDraw},
    {WM_DESTROY, CategoryDestroy},
};

INT_PTR CALLBACK CategoryPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kCategoryPage, page, msg, wp, lp);
}
