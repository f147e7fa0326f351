// Stylus, key and timer input of the main window.
#pragma once

#include <windows.h>

LRESULT OnTimer(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
LRESULT OnTapDown(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
LRESULT OnTapUp(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
LRESULT OnStylusMove(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
LRESULT OnKeyDown(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
// The minute tick: moves the today marking when the date has changed.
LRESULT MinuteTick(HWND hwnd, const SYSTEMTIME &now);
void PokeAppointmentForm();
