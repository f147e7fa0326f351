// The icon chooser: every icon the program has (the built-in strip, then the user's icons.bmp),
// for the Category and Icons pages to pick one from.
#pragma once

#include <windows.h>

// Runs the chooser with `current` selected; the chosen icon index (0 ... iconCount - 1) on OK,
// `current` when the user cancels.
int ChooseIcon(HWND owner, int current);
// The icons themselves are drawn by the month view's DrawIcon (month/indicators.h).

// One icon in a settings window, as the month view draws it. The rendering thread draws from the
// same strips, so this waits for a pass in progress rather than fight it for the bitmap.
void DrawSettingsIcon(HDC dc, int iconNumber, int x, int y);
