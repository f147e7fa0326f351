// The sample dialog: what a dialog file of the program looks like.
#include "sampledlg.h"
#include "common/dialog.h"
#include "common/appstate.h"

#include <commctrl.h>

static INT_PTR SampleInit(HWND dlg, SampleData *d)
{
    SetDlgItemTextW(dlg, IDC_SAMPLE_NAME, d->name);
    HWND list = GetDlgItem(dlg, IDC_SAMPLE_LIST);
    LVCOLUMNW col = {};
    col.mask = LVCF_WIDTH;
    col.cx = 200;
    SendMessageW(list, LVM_INSERTCOLUMNW, 0, (LPARAM)&col);
    LVITEMW row = {};
    row.mask = LVIF_TEXT;
    row.pszText = (LPWSTR)L"Row";
    SendMessageW(list, LVM_INSERTITEMW, 0, (LPARAM)&row);
    return TRUE;
}

static INT_PTR SampleCommand(HWND dlg, int id, int, HWND)
{
    SampleData *d = DialogData<SampleData>(dlg);
    switch (id) {
    case IDOK:
        GetDlgItemTextW(dlg, IDC_SAMPLE_NAME, d->name, 32);
        EndDialog(dlg, SAMPLE_OK);
        return TRUE;
    case IDCANCEL: EndDialog(dlg, 0); return TRUE;
    case IDM_SAMPLE_COPY:
    case IDM_SAMPLE_PASTE:
    case IDM_SAMPLE_DELETE: d->menuChoice = id; return TRUE;
    }
    return FALSE;
}

// The list's row takes the record's colour; the answer goes back through DWLP_MSGRESULT.
static INT_PTR SampleNotify(HWND dlg, NMHDR *hdr)
{
    if (hdr->idFrom != IDC_SAMPLE_LIST || hdr->code != NM_CUSTOMDRAW)
        return FALSE;
    NMLVCUSTOMDRAW *cd = (NMLVCUSTOMDRAW *)hdr;
    if (cd->nmcd.dwDrawStage == CDDS_PREPAINT)
        return DialogReply(dlg, CDRF_NOTIFYITEMDRAW);
    if (cd->nmcd.dwDrawStage == CDDS_ITEMPREPAINT)
        cd->clrTextBk = DialogData<SampleData>(dlg)->rowColour;
    return DialogReply(dlg, CDRF_DODEFAULT);
}

// A hold on the pad opens the context menu, as a hold on the day list does: the timer looks
// whether the stylus is still down.
static INT_PTR SampleTapDown(HWND dlg, UINT, WPARAM, LPARAM)
{
    SetTimer(dlg, SAMPLE_HOLD_TIMER, 300, nullptr);
    return TRUE;
}

static INT_PTR SampleTapUp(HWND dlg, UINT, WPARAM, LPARAM)
{
    KillTimer(dlg, SAMPLE_HOLD_TIMER);
    return TRUE;
}

static INT_PTR SampleDoubleTap(HWND dlg, UINT, WPARAM, LPARAM)
{
    DialogData<SampleData>(dlg)->doubleTaps++;
    return TRUE;
}

static INT_PTR SampleTimer(HWND dlg, UINT, WPARAM id, LPARAM)
{
    if (id != SAMPLE_HOLD_TIMER)
        return FALSE;
    KillTimer(dlg, SAMPLE_HOLD_TIMER);
    if ((GetAsyncKeyState(VK_LBUTTON) & 0xFFFF) < 2)
        return TRUE;
    HMENU menu = LoadMenuW(g_app.hInstance, MAKEINTRESOURCEW(IDM_SAMPLE));
    if (!menu)
        return TRUE;
    POINT at;
    GetCursorPos(&at);
    TrackPopupMenuEx(GetSubMenu(menu, 0), 0, at.x, at.y, dlg, nullptr);
    DestroyMenu(menu);
    return TRUE;
}

// The popups that close when the user turns elsewhere end on losing the activation. EndDialog
// hides the dialog at once, which takes the activation from it too: a dialog already ending
// is hidden by then and keeps the result it ends with.
static INT_PTR SampleActivate(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    if (LOWORD(wp) == WA_INACTIVE && IsWindowVisible(dlg) &&
        DialogData<SampleData>(dlg)->closeOnFocusLoss)
        EndDialog(dlg, 0);
    return FALSE;
}

static const DialogEntry kSample[] = {
    {WM_INITDIALOG, DialogInit<SampleInit>},
    {WM_COMMAND, DialogCommand<SampleCommand>},
    {WM_NOTIFY, DialogNotify<SampleNotify>},
    {WM_LBUTTONDOWN, SampleTapDown},
    {WM_LBUTTONUP, SampleTapUp},
    {WM_LBUTTONDBLCLK, SampleDoubleTap},
    {WM_TIMER, SampleTimer},
    {WM_ACTIVATE, SampleActivate},
};

static INT_PTR CALLBACK SampleProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kSample, dlg, msg, wp, lp);
}

INT_PTR ShowSample(HWND owner, SampleData *data)
{
    return RunDialog(owner, IDD_SAMPLE, SampleProc, data);
}

POINT SamplePadPoint(HWND dlg)
{
    RECT list, ok;
    GetWindowRect(GetDlgItem(dlg, IDC_SAMPLE_LIST), &list);
    GetWindowRect(GetDlgItem(dlg, IDOK), &ok);
    POINT at = {list.left + 10, (list.bottom + ok.top) / 2};
    ScreenToClient(dlg, &at);
    return at;
}
