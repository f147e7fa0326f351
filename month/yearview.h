// The year view: the twelve months of one year as small grids below the
// year title row, with today marked and, when the user asks for it, the
// days that hold appointments coloured.
#pragma once

#include <windows.h>

// Geometry of the back buffer (see yearview.cpp for the picture). Month m
// (1-12) sits in block column (m - 1) % 3 and block row (m - 1) / 3.
const int YEAR_LEFT = 2, YEAR_TOP = 16;          // first block's corner
const int YEAR_BLOCK_W = 80, YEAR_BLOCK_H = 63;  // block pitch
const int YEAR_NAME_H = 11;                      // month name row
const int YEAR_HEAD_H = 8;                       // weekday initials row
const int YEAR_DAYS_TOP = YEAR_NAME_H + YEAR_HEAD_H;  // first day row, from the block top
const int YEAR_CELL_W = 11, YEAR_CELL_H = 7;     // a day cell

// Fixed colours of the year view (0x00BBGGRR).
const COLORREF YEAR_BUSY_FILL = 0xE8C4A8;   // a day with appointments
const COLORREF YEAR_TODAY_FRAME = 0x0000FF; // frame around today

// Reads which days of `year` hold appointments (one query over the whole
// year) and hands the result to the rendering thread. UI thread; run when
// the year view is entered, when its year changes and on a refresh.
void PrepareYearView(int year);
// Draws the twelve months of `year` below the title row. Rendering thread,
// inside a pass; 1 when the pass may be shown, 0 when a new request came.
int DrawYearView(HDC dc, int year);
// 1 when the badge belongs beside the title of `year`: the year holds at
// least one appointment.
int YearBadgeFlag(int year);
// The day of the month (of viewYear) under the point, 0 when none. On a
// day it gives the cell's top-left corner and sets viewMonth to the month
// hit.
int YearHitTest(int x, int y, int *cellX, int *cellY);
// The top-left corner of a day's cell, for the year viewYear shows; FALSE
// when the date is not a day of that month.
BOOL YearCellOrigin(int month, int day, int year, int *x, int *y);
