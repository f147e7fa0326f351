// Starts the real program inside a test process: the same window class,
// start-up, rendering thread and registry as Lanternfields.exe, so tests
// can send it messages and read the back buffer's pixels.
#pragma once

#include <windows.h>
#include <string>

// Starts the program once per test process; later calls return at once.
// Unless a test chose a store first, the program gets an empty store of
// its own in a temporary folder, never the user's.
HWND StartProgram();
// Makes a store in a fresh temporary folder holding `ics` (nothing when
// empty) and points the calendar server at it; returns its path.
std::wstring UseTempStore(const std::string &ics, const wchar_t *name = L"calendar.ics");
// Pumps messages until the last requested pass has been shown (or failed).
bool WaitForPass(DWORD timeoutMs = 10000);
// Requests a pass and waits for it.
bool RedrawAndWait();
void PumpMessages(DWORD ms);
// The process's live GDI objects (see the .cpp for how under Wine).
int CountGdiObjects();
// The live objects by type ("type:count ..."), for a failure message.
std::string GdiObjectSummary();
COLORREF BackPixel(int x, int y);
// Writes the back buffer as a .bmp, for looking at a failed case.
bool SaveBackBuffer(const wchar_t *path);
