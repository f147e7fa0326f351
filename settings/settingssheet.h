// The settings sheet: the program's one property sheet, its pages in settings/*page.cpp.
#pragma once

#include <windows.h>

// Runs the sheet modally over `owner` (the main window); returns when the user has accepted or
// cancelled it. Each page has then written what it owns. -1 when the sheet could not be shown
// (the user has been told), else what PropertySheetW answered.
INT_PTR ShowSettingsSheet(HWND owner);
