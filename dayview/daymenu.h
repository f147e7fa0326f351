// The day list's context menu and the commands it and the day view carry out on the selected
// appointment: copy, cut and paste into the shown day, beam, delete, edit and new.
#pragma once

#include <windows.h>

// Opens the menu for a stylus held at `at` (the list's client pixels) and carries out the
// command chosen.
void ShowDayListMenu(HWND dlg, POINT at);
// The day view's WM_COMMAND: the menu's commands. Every command is answered as handled.
INT_PTR DayViewCommand(HWND dlg, int id, int code, HWND control);
