// The New command's one handler for the menu bar's New and the day view's New and Edit.
#include "newedit.h"
#include "common/appstate.h"
#include "platform/aygshell.h"
#include "store/store.h"

LRESULT OnNewOrEdit(HWND owner)
{
    if (g_app.editItem) {
        if (!OpenItemForEdit(g_app.editItem))
            MessageBoxW(owner, L"Error in editing appointment!", L"Error", MB_OK);
    } else if (!OpenItemForEdit(0)) {
        MessageBoxW(owner, L"Error in creating appointment!", L"Error", MB_OK);
    }
    // Cleared whatever happened, so the next New makes a new appointment.
    g_app.editItem = 0;
    SipShowIM(SIPF_OFF);
    return 0;
}
