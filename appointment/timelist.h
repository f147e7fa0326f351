// The half-hour lists a time of day is picked from: the appointment's start and end, the
// settings' default times. A list's position is the time: entry k is k * 30 minutes after
// midnight, so the program stores and selects times by position.
#pragma once

#include <windows.h>

const int TIME_ENTRIES = 48;

// Appends the day's 48 half hours to the combo box in the user's clock, 12- or 24-hour. It
// neither clears the box nor selects an entry; the caller selects by position.
void FillTimeCombo(HWND combo);
