// The half-hour lists a time of day is picked from: the appointment's start and end, the
// settings' default times. A list's position is the time: entry k is k * 30 minutes after
// midnight, so the program stores and selects times by position.
#pragma once

#include <windows.h>

const int TIME_ENTRIES = 48;

// Appends the day's 48 half hours to the combo box in the user's clock, 12- or 24-hour. It
// neither clears the box nor selects an entry; the caller selects by position.
void FillTimeCombo(HWND combo);
// Any time of day in the lists' own style (so a typed 9:15 sits among the half hours as they
// read), into `text` of at least 12 characters; `minutes` counts from midnight.
void FormatTimeText(int minutes, wchar_t *text);
// A time typed into a time list: "9", "9:15", "21.15", "9:15 pm", the locale's AM/PM words, and
// the lists' own texts including the 24-hour clock's "24:30". Minutes after midnight, or -1.
int ParseTimeText(const wchar_t *text);
