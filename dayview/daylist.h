// The day view's list of one day's appointments: its rows, what their texts say to the row
// painting and the gestures, and the per-row arrays the painting reads.
#pragma once

#include <windows.h>

// Column 1 of a row carries no visible text; its length and characters tell the row painting
// and the stylus what the row holds:
//   4 characters             the alarm and the notes markers
//   second character "."     the alarm marker
//   2 characters             the notes marker
//   1 character              a location line
//   a leading blank          the appointment has notes: a tap on the column shows them
extern const WCHAR kMarkAlarmAndNotes[]; // " na."
extern const WCHAR kMarkAlarm[];         // "a."
extern const WCHAR kMarkNotes[];         // " n"
extern const WCHAR kMarkNone[];          // ""
extern const WCHAR kMarkLocation[];      // "l"
extern const WCHAR kMarkLocationNotes[]; // " "
extern const WCHAR kMarkMoreNotes[];     // "   ": a wrapped subject's further row, with notes

enum { DAY_COL_TIME = 0, DAY_COL_MARKER = 1, DAY_COL_SUBJECT = 2 };
const LPARAM NO_APPOINTMENTS_ITEM = -1; // the item data of the "No Appointments" row
const LPARAM PART_OF_DAY_ITEM = -2;     // the item data of the last rows of a day shown in part
// The text of those rows, a line each: a series repeating too often to list (a rule every
// minute) is shown once per half hour.
extern const WCHAR kPartOfDayText[];

// Fills the list with the appointments that touch the day, rebuilding the per-row arrays.
void FillDayList(HWND list, int month, int day, int year);
// Fills the day view's list again for the day it shows, when the day view is open.
void RefillDayList();
// The item data of a row (its appointment's identifier), 0 for no row.
LPARAM DayRowItem(HWND list, int row);
// The colour a row takes when rows are coloured by category.
COLORREF CategoryRowColor(const WCHAR *categories);
// Where a row of text breaks at `width` pixels in the DC's font: after the last blank that fits,
// or inside a word too long for a row. Returns the characters the row shows (at least one,
// trailing blanks left out); `next` gets where the following row begins.
int BreakRow(HDC dc, const WCHAR *text, int length, int width, int *next);
