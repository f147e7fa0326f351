// The texts of a day's rows, shared by the day view's list and the day
// popup: the clock times, the time column with its multi-day forms, and
// which appointments a day lists.
#pragma once

#include <windows.h>
#include "calendar/datecalc.h"

enum { CLOCK_TEXT_LEN = 16, TIME_TEXT_LEN = 40 };

// "5:00p" on a 12-hour clock, "17:00" on a 24-hour one, by the user's locale.
void FormatClockTime(int hour, int minute, WCHAR *text, int length);
// Whether a day (an OleDate day number) lists an appointment: it starts on
// or before the day and its last day is on or after it.
BOOL ListsOnDay(OleDate start, OleDate end, int day);
// The time column of an appointment on `day`: "All Day", "9:00a-10:30a",
// "multiday-2:00a", "10:00p-multiday" or "multiday"; "-------" for the
// store's no-date start.
void DayTimeText(OleDate start, OleDate end, BOOL allDay, int day, WCHAR *text, int length);
