// The day view: one day's appointments in a list under a header with the long date, a
// row-colouring switch and a close button.
#pragma once

#include <windows.h>

// Runs the day view for a day of the month the month view shows (1-31), or for 100 + the day
// of a neighbouring month's day shown in its grid. Returns when the user closes it.
int ShowDayView(HWND owner, int day);

// The day view's header: the strip, the frame and the long date of the shown day, painted into
// any DC of the dialog's size.
void PaintDayView(HDC dc, int width, int height);
