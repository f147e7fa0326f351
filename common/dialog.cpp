// Dispatch of the program's dialog procedures through their constant tables.
#include "dialog.h"

// The record is kept before any handler runs, so the init handler and every later one find it
// in the same place. A property page's creation parameter is its PROPSHEETPAGE, which then
// serves as its record. Unlisted messages go to the dialog manager's default handling
// (FALSE), except WM_INITDIALOG, whose TRUE lets the dialog manager give the first control the
// focus.
INT_PTR DispatchDialogTable(const DialogEntry *table, int count, HWND dlg, UINT msg, WPARAM wp,
                            LPARAM lp)
{
    if (msg == WM_INITDIALOG)
        SetWindowLongPtrW(dlg, DWLP_USER, lp);
    for (int i = 0; i < count; i++)
        if (table[i].msg == msg)
            return table[i].handler(dlg, msg, wp, lp);
    return msg == WM_INITDIALOG;
}

// The record lives in the caller's frame: a modal dialog ends before its entry returns.
INT_PTR RunDialogFrom(HINSTANCE module, HWND owner, int templateId, DLGPROC proc, void *data)
{
    return DialogBoxParamW(module, MAKEINTRESOURCEW(templateId), owner, proc, (LPARAM)data);
}

// The program's templates are linked into its executable (a test's executable in the tests), the
// module the process was started from.
INT_PTR RunDialog(HWND owner, int templateId, DLGPROC proc, void *data)
{
    return RunDialogFrom(GetModuleHandleW(nullptr), owner, templateId, proc, data);
}

// A dialog procedure's return value is not the message's result except for a few messages
// (WM_CTLCOLOR*, WM_INITDIALOG and their kin); a notification's answer, such as custom
// drawing's, goes through DWLP_MSGRESULT.
INT_PTR DialogReply(HWND dlg, LRESULT result)
{
    SetWindowLongPtrW(dlg, DWLP_MSGRESULT, result);
    return TRUE;
}
