// The delete confirmation: asks before an appointment is deleted and, for a series, whether the
// one occurrence of the shown day or the whole series is meant.
#pragma once

#include <windows.h>

// The answers; CONFIRM_OCCURRENCE and CONFIRM_SERIES are the modes DeleteItem takes.
enum {
    CONFIRM_DELETE = 0,
    CONFIRM_NOTHING = 1,
    CONFIRM_OCCURRENCE = 2,
    CONFIRM_SERIES = 3,
};

// Asks whether to delete the appointment `oid`: 0 OK, 1 nothing (either Cancel, or the
// appointment could not be read), 2 the one occurrence, 3 the whole series.
int ConfirmDelete(HWND owner, long oid);
