// The notes popup: the notes of one appointment of the day list in a small balloon that points
// at the tap, closed by a tap or by turning to another window.
#pragma once

#include <windows.h>

// Shows the notes of the appointment at the day list's row, or "(No Notes)". When the store
// cannot give the appointment, the failure is shown instead.
void ShowNotes(HWND owner, int row);
