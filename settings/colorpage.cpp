// The Color page: every colour the month view and the day view paint with, each a swatch beside
// its name that opens the colour picker on a tap, and the two ways of colouring: which month
// cells take the second cell colour, and which day list rows take the second row colour.
// Nothing is written until the user accepts the sheet.
#include "pages.h"
#include "colorpicker.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "platform/aygshell.h"
#include "settings.h"
#include "resource.h"

#include <commctrl.h>
#include <prsht.h>

struct ColourSetting {
    int id;
    const WCHAR *name;
    COLORREF AppSettings::*field;
};

static const ColourSetting kColourSettings[] = {
    {IDC_COLORMONTH1, L"month1color", &AppSettings::month1color},
    {IDC_COLORMONTH2, L"month2color", &AppSettings::month2color},
    {IDC_COLORTODAY, L"todaycolor", &AppSettings::todaycolor},
    {IDC_COLORDATE, L"datecolor", &AppSettings::datecolor},
    {IDC_COLORALLDAY, L"alldaycolor", &AppSettings::alldaycolor},
    {IDC_COLORTEXT, L"textcolor", &AppSettings::textcolor},
    {IDC_COLORLOCATION, L"locationcolor", &AppSettings::locationcolor},
    {IDC_COLORROW1, L"row1color", &AppSettings::row1color},
    {IDC_COLORROW2, L"row2color", &AppSettings::row2color},
};
const int kColourCount = sizeof(kColourSettings) / sizeof(kColourSettings[0]);

// The choices, in the order of their values, named by what the month grid and the day list do
// with them: which cells take the shaded colour (none: the cells are not filled at all), and
// which rows do (afternoons: the rows of appointments that start between the schedule bar's
// afternoon and evening boundaries; category colours: each row in its category's colour).
static const WCHAR *const kCellStyles[] = {L"Every other week", L"Weekends", L"None"};
static const WCHAR *const kRowStyles[] = {L"Every other row", L"Afternoons", L"Category colors",
                                          L"None"};

struct ColourChoice {
    int id;
    const WCHAR *name;
    DWORD AppSettings::*field;
    const WCHAR *const *texts;
    int count;
};

static const ColourChoice kColourChoices[] = {
    {IDC_COLORCELLSTYLE, L"calendarcolorstyle", &AppSettings::calendarcolorstyle, kCellStyles, 3},
    {IDC_COLORROWSTYLE, L"rowcolorindex", &AppSettings::rowcolorindex, kRowStyles, 4},
};

const COLORREF COLOR_HEADING = 0x990000;
const COLORREF COLOR_FRAME_INNER = 0x00FF00;
const COLORREF COLOR_FRAME_OUTER = 0x000000;
const int COLOR_FRAME_CORNER = 4;

// The colours as the user has picked them so far; the sheet is modal, so one page lives at a
// time.
static COLORREF g_picked[kColourCount];
static HFONT g_colorHeadingFont, g_colorReplacedFont;

static int SettingIndex(int id)
{
    for (int i = 0; i < kColourCount; i++)
        if (kColourSettings[i].id == id)
            return i;
    return -1;
}

static INT_PTR ColorInit(HWND page, PROPSHEETPAGEW *)
{
    const AppSettings &s = g_app.settings;
    for (int i = 0; i < kColourCount; i++)
        g_picked[i] = s.*kColourSettings[i].field;
    for (const ColourChoice &c : kColourChoices) {
        HWND combo = GetDlgItem(page, c.id);
        for (int k = 0; k < c.count; k++)
            SendMessageW(combo, CB_ADDSTRING, 0, (LPARAM)c.texts[k]);
        DWORD value = s.*c.field;
        SendMessageW(combo, CB_SETCURSEL, value < (DWORD)c.count ? value : 0, 0);
    }
    g_colorHeadingFont = CreateViewFont(12, 0, 1);
    g_colorReplacedFont = (HFONT)SendDlgItemMessageW(page, IDC_COLORHEADMONTH, WM_GETFONT, 0, 0);
    for (int id : {IDC_COLORHEADMONTH, IDC_COLORHEADDAY})
        SendDlgItemMessageW(page, id, WM_SETFONT, (WPARAM)g_colorHeadingFont, FALSE);
    return TRUE;
}

// The two groups' frames, each around its heading, swatches and choice.
static void DrawColorFrames(HWND page, HDC dc)
{
    for (int first : {IDC_COLORHEADMONTH, IDC_COLORHEADDAY}) {
        int last = first == IDC_COLORHEADMONTH ? IDC_COLORCELLSTYLE : IDC_COLORROWSTYLE;
        RECT a, b;
        GetWindowRect(GetDlgItem(page, first), &a);
        GetWindowRect(GetDlgItem(page, last), &b);
        MapWindowPoints(HWND_DESKTOP, page, (POINT *)&a, 2);
        MapWindowPoints(HWND_DESKTOP, page, (POINT *)&b, 2);
        RECT client;
        GetClientRect(page, &client);
        DrawDoubleFrame(dc, 6, a.top - 4, client.right - 6, b.bottom + 4, COLOR_FRAME_CORNER,
                        COLOR_FRAME_INNER, COLOR_FRAME_OUTER);
    }
}

static INT_PTR ColorPaint(HWND page, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(page, &ps);
    DrawColorFrames(page, dc);
    EndPaint(page, &ps);
    return TRUE;
}

static INT_PTR ColorPrint(HWND page, UINT, WPARAM wp, LPARAM)
{
    HDC dc = (HDC)wp;
    RECT rc;
    GetClientRect(page, &rc);
    FillRect(dc, &rc, GetSysColorBrush(COLOR_BTNFACE));
    DrawColorFrames(page, dc);
    return TRUE;
}

static INT_PTR ColorLabelColour(HWND, UINT, WPARAM wp, LPARAM lp)
{
    HDC dc = (HDC)wp;
    int id = GetDlgCtrlID((HWND)lp);
    if (id == IDC_COLORHEADMONTH || id == IDC_COLORHEADDAY)
        SetTextColor(dc, COLOR_HEADING);
    SetBkMode(dc, TRANSPARENT);
    return (INT_PTR)GetStockObject(NULL_BRUSH);
}

// A swatch: its colour in a black frame, the keyboard's focus a dotted frame inside it.
static INT_PTR ColorDrawSwatch(HWND, UINT, WPARAM, LPARAM lp)
{
    const DRAWITEMSTRUCT *di = (const DRAWITEMSTRUCT *)lp;
    int i = SettingIndex((int)di->CtlID);
    if (i < 0)
        return FALSE;
    const RECT &rc = di->rcItem;
    DrawCellRect(di->hDC, rc.left, rc.top, rc.right, rc.bottom, 0x000000, g_picked[i]);
    if (di->itemState & ODS_FOCUS) {
        RECT focus = rc;
        InflateRect(&focus, -3, -3);
        DrawFocusRect(di->hDC, &focus);
    }
    return TRUE;
}

static INT_PTR ColorCommand(HWND page, int id, int code, HWND control)
{
    int i = SettingIndex(id);
    if (i >= 0 && code == BN_CLICKED) {
        COLORREF picked = PickColour(page, g_picked[i]);
        if (picked != g_picked[i]) {
            g_picked[i] = picked;
            InvalidateRect(control, nullptr, FALSE);
            PropSheet_Changed(GetParent(page), page);
        }
        return TRUE;
    }
    if ((id == IDC_COLORCELLSTYLE || id == IDC_COLORROWSTYLE) && code == CBN_SELCHANGE) {
        PropSheet_Changed(GetParent(page), page);
        return TRUE;
    }
    return FALSE;
}

static void ColorApply(HWND page)
{
    AppSettings &s = g_app.settings;
    for (int i = 0; i < kColourCount; i++) {
        s.*kColourSettings[i].field = g_picked[i];
        WriteSettingNumber(kColourSettings[i].name, g_picked[i]);
    }
    for (const ColourChoice &c : kColourChoices) {
        s.*c.field = (DWORD)SendDlgItemMessageW(page, c.id, CB_GETCURSEL, 0, 0);
        WriteSettingNumber(c.name, s.*c.field);
    }
}

static INT_PTR ColorNotify(HWND page, NMHDR *hdr)
{
    switch (hdr->code) {
    case PSN_SETACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, 0);
    case PSN_KILLACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, FALSE);
    case PSN_APPLY:
        ColorApply(page);
        return DialogReply(page, PSNRET_NOERROR);
    }
    return FALSE;
}

static INT_PTR ColorDestroy(HWND page, UINT, WPARAM, LPARAM)
{
    for (int id : {IDC_COLORHEADMONTH, IDC_COLORHEADDAY})
        SendDlgItemMessageW(page, id, WM_SETFONT, (WPARAM)g_colorReplacedFont, FALSE);
    if (g_colorHeadingFont)
        DeleteObject(g_colorHeadingFont);
    g_colorHeadingFont = g_colorReplacedFont = nullptr;
    return FALSE;
}

static const DialogEntry kColorPage[] = {
    {WM_INITDIALOG, DialogInit<ColorInit>},
    {WM_PAINT, ColorPaint},
    {WM_PRINTCLIENT, ColorPrint},
    {WM_CTLCOLORSTATIC, ColorLabelColour},
    {WM_DRAWITEM, ColorDrawSwatch},
    {WM_COMMAND, DialogCommand<ColorCommand>},
    {WM_NOTIFY, DialogNotify<ColorNotify>},
    {WM_DESTROY, ColorDestroy},
};

INT_PTR CALLBACK ColorPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kColorPage, page, msg, wp, lp);
}
