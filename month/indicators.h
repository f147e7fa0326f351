// What the month grid's day cells show of their appointments, drawn over
// the cells at the end of a month pass: a small schedule bar per day with
// up to three category icons, or, with the bar switched off, up to six
// icons per day.
#pragma once

#include <windows.h>

// PlaceDayIcons' modes: the most icons a day gets in each form.
enum { ICONS_BESIDE_INDICATOR = 3, ICONS_ONLY = 6 };

// The bar form (showindicator 1), with icons when showholiday is 1, drawn
// into `dc` over the month grid of (month, year). Returns 1 when the pass may be shown, 0 when a redraw request abandoned it.
int DrawMonthIndicators(HDC dc, int month, int year);
// The icons-only form (showindicator 0, showholiday 1); returns as above.
int DrawMonthIcons(HDC dc, int month, int year);
// Gives the cell the icons of the icon slots whose labels are among the
// appointment's categories, slot 0 first, up to `mode` icons per cell and
// one per slot. Valid inside a pass of either form.
void PlaceDayIcons(HDC dc, const WCHAR *categories, int cell, int row, int column, int mode);
// One 9 x 9 icon: 0-38 built in, 39 on from the user's "icons.bmp".
void DrawIcon(HDC dc, int iconNumber, int x, int y);
