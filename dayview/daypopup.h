// The day popup: holding the stylus on a day of the month shows that day's appointments in a
// small framed balloon next to the stylus. It shows; it does not edit. The release, a tap or
// turning to another window closes it.
#pragma once

#include <windows.h>

// Runs the popup modally for `day` as the month grid's hit test gives it: the day of the shown
// month, or 100 + the day of a neighbouring month's day shown in the grid. Always 0; a day
// that is no date of the shown grid opens nothing.
int ShowDayPopup(HWND owner, DWORD day);

// The date a day of the grid stands for, with the shown month and year: a neighbouring
// month's day is early in the next month (below 16) or late in the previous one. FALSE when
// it names no date.
BOOL GridDayDate(DWORD day, int viewMonth, int viewYear, int *month, int *dayOfMonth, int *year);

// Whether the stylus is down now, whichever physical button the user has made the primary.
BOOL StylusIsDown();
