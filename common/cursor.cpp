#include "cursor.h"
#include "common/appstate.h"

// One cursor is remembered: the one the latest WaitCursorOn replaced, which the next
// WaitCursorOff puts back.
void WaitCursorOn()
{
    g_app.waitOldCursor = SetCursor(LoadCursorW(nullptr, IDC_WAIT));
    ShowCursor(TRUE);
}

void WaitCursorOff()
{
    ShowCursor(FALSE);
    SetCursor(g_app.waitOldCursor);
}
