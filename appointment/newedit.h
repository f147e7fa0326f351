// The New command: a new appointment on the selected day, or the one the day view marked for
// editing, opened in the calendar's appointment form.
#pragma once

#include <windows.h>

// Opens the form for `g_app.editItem` (0: a new appointment) and clears it; a failure is told
// to the user over `owner`. Always 0.
LRESULT OnNewOrEdit(HWND owner);
