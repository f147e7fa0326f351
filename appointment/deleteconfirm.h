#pragma once

#include <windows.h>

// Asks whether to delete the appointment `oid`: 0 OK, 1 nothing (either Cancel, or the
// appointment could not be read), 2 the one occurrence, 3 the whole series.
int ConfirmDelete(HWND owner, long oid);
