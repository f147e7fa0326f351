// The month grid: year labels, title, weekday headers and the 6 x 7 day
// cells, drawn by the rendering thread into the back buffer.
#pragma once

#include <windows.h>

const int GRID_LEFT = 1, GRID_TOP = 57, GRID_PITCH = 34, GRID_CELL = 35;
const int GRID_ROWS = 6, GRID_COLS = 7;

// Returns 1 when the pass may be shown, 0 when a new request arrived.
int DrawMonthGrid(HDC dc, int month, int day, int year);
// The date the grid of (month, year) shows in cell `index` (row * 7 +
// column): the previous month's days before the 1st, which sits in column
// s1, the month's days, then the next month's. True for the shown month.
bool GridCellDate(int index, int month, int year, int s1, int *dm, int *dd, int *dy);
// Fills tapCellX, tapCellY and selectedDate (the day of the shown month,
// or 100 + the day for a neighbouring month's day shown in the grid);
// FALSE when the point is not on a day cell.
BOOL MonthHitTest(int x, int y);
