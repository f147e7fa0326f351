// The program's dialogs: one file per dialog, named after its template, with one entry that runs
// it and returns its result; callers never see the procedure. A dialog file reads:
//
//   struct GoToDateData { int packed; };              // the dialog's own record
//
//   static INT_PTR GoToDateInit(HWND dlg, GoToDateData *d) { ...; return TRUE; }
//   static INT_PTR GoToDateNotify(HWND dlg, NMHDR *hdr) { ...; EndDialog(dlg, picked); ... }
//
//   static const DialogEntry kGoToDate[] = {
//       {WM_INITDIALOG, DialogInit<GoToDateInit>},
//       {WM_NOTIFY, DialogNotify<GoToDateNotify>},
//   };
//   static INT_PTR CALLBACK GoToDateProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
//   {
//       return DispatchDialog(kGoToDate, dlg, msg, wp, lp);
//   }
//
//   int ShowGoToDate(HWND owner, int packed)
//   {
//       GoToDateData d = {packed};
//       return (int)RunDialog(owner, IDD_GOTODATE, GoToDateProc, &d);
//   }
//
// Other handlers reach the record with DialogData<GoToDateData>(dlg).
#pragma once

#include <windows.h>

// The generic handler shape; the three adapters below turn the unpacked shapes into it.
typedef INT_PTR (*DialogHandler)(HWND dlg, UINT msg, WPARAM wp, LPARAM lp);

struct DialogEntry {
    UINT msg;
    DialogHandler handler;
};

INT_PTR DispatchDialogTable(const DialogEntry *table, int count, HWND dlg, UINT msg, WPARAM wp,
                            LPARAM lp);

template <int N>
INT_PTR DispatchDialog(const DialogEntry (&table)[N], HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialogTable(table, N, dlg, msg, wp, lp);
}

// Runs a dialog of the program's own templates modally with `data` as its record.
INT_PTR RunDialog(HWND owner, int templateId, DLGPROC proc, void *data);
// The same for a template of another module (the calendar server's form lives in its DLL).
INT_PTR RunDialogFrom(HINSTANCE module, HWND owner, int templateId, DLGPROC proc, void *data);

template <typename Data> Data *DialogData(HWND dlg)
{
    return (Data *)GetWindowLongPtrW(dlg, DWLP_USER);
}

// A notification's answer: through DWLP_MSGRESULT, the procedure itself returning TRUE.
INT_PTR DialogReply(HWND dlg, LRESULT result);

// WM_INITDIALOG handled by INT_PTR Init(HWND dlg, Data *record).
template <typename Data> Data *DialogRecord(INT_PTR (*)(HWND, Data *), LPARAM lp)
{
    return (Data *)lp;
}
template <auto Init> INT_PTR DialogInit(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    return Init(dlg, DialogRecord(Init, lp));
}

// WM_COMMAND handled by INT_PTR Command(HWND dlg, int id, int code, HWND control).
template <INT_PTR (*Command)(HWND, int, int, HWND)>
INT_PTR DialogCommand(HWND dlg, UINT, WPARAM wp, LPARAM lp)
{
    return Command(dlg, LOWORD(wp), HIWORD(wp), (HWND)lp);
}

// WM_NOTIFY handled by INT_PTR Notify(HWND dlg, NMHDR *hdr).
template <INT_PTR (*Notify)(HWND, NMHDR *)> INT_PTR DialogNotify(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    return Notify(dlg, (NMHDR *)lp);
}
