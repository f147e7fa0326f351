// The delete confirmation (IDD_DELETE): a dark blue band with its title, a waste bin, the
// question and the appointment's subject in dark red on white. A single appointment is
// confirmed with OK or Cancel; a series offers its one occurrence of the shown day, the whole
// series, or Cancel. The template holds both sets of buttons in the same place and the
// appointment decides which set is shown.
#include "deleteconfirm.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "store/store.h"
#include "resource.h"

static_assert((int)CONFIRM_SERIES == (int)DELETE_SERIES, "the answer for a series is DeleteItem's mode for it");

// The appointment form has subjects of any length; the dialog shows at most this many
// characters of one, as the handheld did.
const int SUBJECT_CHARS = 110;

const COLORREF BAND_FILL = 0x960000;    // dark blue
const COLORREF SUBJECT_TEXT = 0x000096; // dark red
const COLORREF BAND_TEXT = 0xFFFFFF;
const COLORREF BIN_TRANSPARENT = 0xFF00FF;
const int BAND_HEIGHT = 15;
const int BIN_X = 12, BIN_Y = 28;

struct DeleteConfirmData {
    long oid;
    // Owned while the dialog is open, freed by DeleteConfirmTearDown.
    HBRUSH bandBrush;
    HBITMAP bin;
    HFONT textFont; // the subject's
};

// The subject's font: Tahoma of 13 pixels. The handheld asked for character set 255 and still
// got Tahoma; a desktop would pick another face for that set, so the default set is asked for
// (as CreateViewFont does).
static HFONT CreateSubjectFont()
{
    LOGFONTW lf = {};
    lf.lfHeight = 13;
    lf.lfWeight = FW_NORMAL;
    lf.lfCharSet = DEFAULT_CHARSET;
    lf.lfPitchAndFamily = FF_ROMAN;
    lstrcpyW(lf.lfFaceName, L"Tahoma");
    return CreateFontIndirectW(&lf);
}

static void ShowButtons(HWND dlg, bool recurring)
{
    static const struct {
        int id;
        bool forSeries;
    } buttons[] = {
        {IDC_DELETEOK, false},  {IDC_DELETECANCEL, false},      {IDC_DELETEONE, true},
        {IDC_DELETESERIES, true}, {IDC_DELETESERIESCANCEL, true},
    };
    for (const auto &b : buttons)
        ShowWindow(GetDlgItem(dlg, b.id), b.forSeries == recurring ? SW_SHOWNA : SW_HIDE);
}

// The template gives the subject room for its longest text; a shorter one gets a white strip
// just high enough for its lines, in the middle of that room.
static void FitSubject(HWND dlg, HFONT font, const WCHAR *subject)
{
    HWND control = GetDlgItem(dlg, IDC_DELETESUBJECT);
    RECT room;
    GetWindowRect(control, &room);
    MapWindowPoints(HWND_DESKTOP, dlg, (POINT *)&room, 2);
    RECT text = {0, 0, room.right - room.left, 0};
    HDC dc = GetDC(control);
    {
        ScopedSelect selectFont(dc, font);
        DrawTextW(dc, subject, -1, &text,
                  DT_CALCRECT | DT_CENTER | DT_WORDBREAK | DT_EDITCONTROL | DT_NOPREFIX);
    }
    ReleaseDC(control, dc);
    int height = text.bottom + 6;
    if (height >= room.bottom - room.top)
        return;
    int top = room.top + (room.bottom - room.top - height) / 2;
    MoveWindow(control, room.left, top, room.right - room.left, height, FALSE);
}

// The keyboard starts on Cancel, so Enter pressed in haste deletes nothing.
static INT_PTR DeleteConfirmInit(HWND dlg, DeleteConfirmData *d)
{
    WCHAR subject[SUBJECT_CHARS] = L"";
    int recurring = 0;
    if (!GetItemSubjectAndRecurrence(d->oid, subject, SUBJECT_CHARS, &recurring)) {
        MessageBoxW(dlg, L"Error in getting appointment info", L"Error", MB_OK);
        EndDialog(dlg, CONFIRM_NOTHING);
        return TRUE;
    }
    d->bin = (HBITMAP)LoadImageW(g_app.hInstance, MAKEINTRESOURCEW(IDB_DELETE), IMAGE_BITMAP, 0, 0,
                                 LR_CREATEDIBSECTION);
    d->textFont = CreateSubjectFont();
    if (d->textFont)
        SendDlgItemMessageW(dlg, IDC_DELETESUBJECT, WM_SETFONT, (WPARAM)d->textFont, FALSE);
    SetDlgItemTextW(dlg, IDC_DELETESUBJECT, subject);
    if (d->textFont)
        FitSubject(dlg, d->textFont, subject);
    SetDlgItemTextW(dlg, IDC_DELETEQUESTION,
                    recurring ? L"Do you want to delete this recurring appointment?"
                              : L"Do you want to delete this appointment?");
    ShowButtons(dlg, recurring != 0);
    d->bandBrush = CreateSolidBrush(BAND_FILL);
    SetFocus(GetDlgItem(dlg, recurring ? IDC_DELETESERIESCANCEL : IDC_DELETECANCEL));
    return FALSE;
}

// Paints the band with its title and the bin into `dc`, the client area being `width` wide.
static void PaintDeleteConfirm(HDC dc, int width, const DeleteConfirmData *d)
{
    RECT band = {0, 0, width, BAND_HEIGHT};
    FillRect(dc, &band, d->bandBrush);
    {
        ScopedFont title(CreateViewFont(13, 0, 1));
        ScopedSelect selectTitle(dc, title);
        int oldMode = SetBkMode(dc, TRANSPARENT);
        COLORREF oldColour = SetTextColor(dc, BAND_TEXT);
        DrawTextIn(dc, L"Delete Appointment", 0, 0, width, BAND_HEIGHT, DT_CENTER | DT_VCENTER);
        SetTextColor(dc, oldColour);
        SetBkMode(dc, oldMode);
    }
    if (d->bin) {
        BITMAP bm = {};
        GetObjectW(d->bin, sizeof(bm), &bm);
        DrawTransparentBitmapAt(dc, d->bin, 0, 0, BIN_X, BIN_Y, bm.bmWidth, bm.bmHeight,
                                BIN_TRANSPARENT);
    }
}

static INT_PTR DeleteConfirmPrint(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    RECT client;
    GetClientRect(dlg, &client);
    PaintDeleteConfirm((HDC)wp, client.right, DialogData<DeleteConfirmData>(dlg));
    return TRUE;
}

static INT_PTR DeleteConfirmPaint(HWND dlg, UINT, WPARAM, LPARAM)
{
    const DeleteConfirmData *d = DialogData<DeleteConfirmData>(dlg);
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(dlg, &ps);
    RECT client;
    GetClientRect(dlg, &client);
    PaintDeleteConfirm(dc, client.right, d);
    EndPaint(dlg, &ps);
    return TRUE;
}

// The static control selects the font it was given after asking for its colours, so the
// subject's font is given to the control when the dialog starts and selected here as well.
static INT_PTR DeleteConfirmColour(HWND dlg, UINT, WPARAM wp, LPARAM lp)
{
    const DeleteConfirmData *d = DialogData<DeleteConfirmData>(dlg);
    HDC dc = (HDC)wp;
    if (GetDlgCtrlID((HWND)lp) != IDC_DELETESUBJECT)
        return FALSE;
    if (d->textFont)
        SelectObject(dc, d->textFont);
    SetTextColor(dc, SUBJECT_TEXT);
    SetBkMode(dc, TRANSPARENT);
    return (INT_PTR)GetStockObject(WHITE_BRUSH);
}

static INT_PTR DeleteConfirmCommand(HWND dlg, int id, int, HWND)
{
    static const struct {
        int id;
        int answer;
    } answers[] = {
        {IDC_DELETEOK, CONFIRM_DELETE},        {IDC_DELETECANCEL, CONFIRM_NOTHING},
        {IDC_DELETESERIESCANCEL, CONFIRM_NOTHING}, {IDC_DELETEONE, CONFIRM_OCCURRENCE},
        {IDC_DELETESERIES, CONFIRM_SERIES},
    };
    for (const auto &a : answers)
        if (a.id == id) {
            EndDialog(dlg, a.answer);
            return TRUE;
        }
    return FALSE;
}

// The controls are destroyed after the dialog's WM_DESTROY, so the subject's control lets go
// of the font first.
static INT_PTR DeleteConfirmTearDown(HWND dlg, UINT, WPARAM, LPARAM)
{
    DeleteConfirmData *d = DialogData<DeleteConfirmData>(dlg);
    if (d->textFont) {
        SendDlgItemMessageW(dlg, IDC_DELETESUBJECT, WM_SETFONT, 0, FALSE);
        DeleteObject(d->textFont);
        d->textFont = nullptr;
    }
    if (d->bin) {
        DeleteObject(d->bin);
        d->bin = nullptr;
    }
    if (d->bandBrush) {
        DeleteObject(d->bandBrush);
        d->bandBrush = nullptr;
    }
    return FALSE;
}

static const DialogEntry kDeleteConfirm[] = {
    {WM_INITDIALOG, DialogInit<DeleteConfirmInit>},
    {WM_PAINT, DeleteConfirmPaint},
    {WM_PRINTCLIENT, DeleteConfirmPrint},
    {WM_CTLCOLORSTATIC, DeleteConfirmColour},
    {WM_COMMAND, DialogCommand<DeleteConfirmCommand>},
    {WM_DESTROY, DeleteConfirmTearDown},
};

static INT_PTR CALLBACK DeleteConfirmProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kDeleteConfirm, dlg, msg, wp, lp);
}

int ConfirmDelete(HWND owner, long oid)
{
    DeleteConfirmData d = {};
    d.oid = oid;
    INT_PTR answer = RunDialog(owner, IDD_DELETE, DeleteConfirmProc, &d);
    // A dialog that could not be made at all deletes nothing.
    return answer >= CONFIRM_DELETE && answer <= CONFIRM_SERIES ? (int)answer : CONFIRM_NOTHING;
}
