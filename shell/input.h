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
// The tap feedback's frames over a day cell, then the day view; a day view opened from the
// main window redraws a month left half-drawn when it closes.
LRESULT TapAnimationTick(HWND hwnd);
void DrawTapFeedback(HDC dc, int cellX, int cellY, int step);
void OpenDayView(HWND hwnd, int day);
