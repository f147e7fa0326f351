// The main window's own messages and timers, which the other parts of the program send to it or
// start on it.
#pragma once

#include <windows.h>

const UINT WM_MENUBAR_CHECK = WM_USER - 1; // 0x3FF
// Refresh the current view; other programs send the same numbers.
const UINT WM_REFRESH_OUTSIDE = WM_USER - 3;
const UINT WM_REFRESH_STORE = WM_USER + 1;
const UINT WM_REFRESH_OTHER = WM_USER + 3;
const UINT WM_REFRESH_DAY = WM_USER + 6;

const UINT_PTR TIMER_TAPANIM = 1;
const UINT_PTR TIMER_HOLD = 3;
const UINT_PTR TIMER_FORMPOKE = 5;
const UINT_PTR TIMER_MINUTE = 6;

// Sent to the day view after its list had an appointment edited: the store may have changed.
const UINT WM_DAYVIEW_EDITED = 98765432;
// The day list's hold timer, on the day view.
const UINT_PTR TIMER_DAYLIST_HOLD = 2;
