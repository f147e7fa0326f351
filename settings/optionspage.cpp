// The Options page: eleven check boxes, one per display flag. A box is checked when its setting
// is 1; accepting the sheet writes every box back, in the order of the table, and the year view's
// colouring is worked out again when its box changed.
#include "pages.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "month/yearview.h"
#include "platform/aygshell.h"
#include "settings.h"
#include "resource.h"

#include <commctrl.h>
#include <prsht.h>

struct OptionBox {
    int id;
    const WCHAR *name;
    DWORD AppSettings::*field;
};

static const OptionBox kOptionBoxes[] = {
    {IDC_OPTSHOWDAYS, L"showdays", &AppSettings::showdays},
    {IDC_OPTCLEARTYPE, L"cleartype", &AppSettings::cleartype},
    {IDC_OPTCOLOREXPIRED, L"colorexpired", &AppSettings::colorexpired},
    {IDC_OPTSHOWINDICATOR, L"showindicator", &AppSettings::showindicator},
    {IDC_OPTSHOWFREE, L"showfree", &AppSettings::showfree},
    {IDC_OPTSHOWHOLIDAY, L"showholiday", &AppSettings::showholiday},
    {IDC_OPTSHOWLOCATION, L"showlocation", &AppSettings::showlocation},
    {IDC_OPTWRAPSUBJECT, L"wrapsubject", &AppSettings::wrapsubject},
    {IDC_OPTSHOWWEEKNUMBER, L"showweeknumber", &AppSettings::showweeknumber},
    {IDC_OPTCOLORYEARVIEW, L"coloryearview", &AppSettings::coloryearview},
    {IDC_OPTALARMFLAG, L"alarmflag", &AppSettings::alarmflag},
};

// The year colouring as the page found it; the sheet is modal, so one page lives at a time.
static DWORD g_openedYearColouring;

static INT_PTR OptionsInit(HWND page, PROPSHEETPAGEW *)
{
    const AppSettings &s = g_app.settings;
    for (const OptionBox &b : kOptionBoxes)
        CheckDlgButton(page, b.id, s.*b.field == 1 ? BST_CHECKED : BST_UNCHECKED);
    g_openedYearColouring = s.coloryearview;
    return TRUE;
}

static void OptionsApply(HWND page)
{
    AppSettings &s = g_app.settings;
    for (const OptionBox &b : kOptionBoxes) {
        s.*b.field = IsDlgButtonChecked(page, b.id) == BST_CHECKED ? 1 : 0;
        WriteSettingNumber(b.name, s.*b.field);
    }
    if (s.coloryearview != g_openedYearColouring) {
        PrepareYearView(g_app.viewYear);
        InvalidateRect(GetWindow(GetParent(page), GW_OWNER), nullptr, FALSE);
        g_openedYearColouring = s.coloryearview;
    }
}

// The input panel goes away whenever the page comes or goes; leaving the page is always allowed.
static INT_PTR OptionsNotify(HWND page, NMHDR *hdr)
{
    switch (hdr->code) {
    case PSN_SETACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, 0);
    case PSN_KILLACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, FALSE);
    case PSN_APPLY:
        OptionsApply(page);
        return DialogReply(page, PSNRET_NOERROR);
    }
    return FALSE;
}

static const DialogEntry kOptionsPage[] = {
    {WM_INITDIALOG, DialogInit<OptionsInit>},
    {WM_NOTIFY, DialogNotify<OptionsNotify>},
};

INT_PTR CALLBACK OptionsPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kOptionsPage, page, msg, wp, lp);
}
