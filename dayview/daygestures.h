// What the stylus and the keys do in the day list: the list's own handling is replaced, so
// the arrow keys move through days, a tap selects a whole appointment, and the list's own
// tracking never starts.
#pragma once

#include <windows.h>

// Puts the gestures in front of the list's own procedure, which still gets the rest.
void SubclassDayList(HWND list);
// Selects every row of the appointment at `row` (only that row when each appointment has one
// row); returns the appointment's first row.
int SelectAppointment(HWND list, int row);
// Moves the day view by some days, with month and year carry, and shows the new day.
void MoveShownDay(HWND dlg, int days);
// The day view's hold timer, started by a stylus-down in the list; it fires once.
void DayListHoldTimer(HWND dlg);
