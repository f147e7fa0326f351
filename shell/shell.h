// The main window: start-up, its message and command tables, the menu bar,
// the wait cursor and shutdown.
#pragma once

#include <windows.h>

extern const WCHAR kMainClass[];   // "Lanternfields", class and title alike

enum { EXIT_NO_CLASS = 1, EXIT_NO_START = 16 };

BOOL RegisterMainClass(HINSTANCE inst);
// Runs start-up; FALSE when another copy runs or the window cannot be made.
BOOL AppStartup(HINSTANCE inst, int showCmd);
int RunMessageLoop();
int LanternfieldsMain(HINSTANCE inst, int showCmd);

LRESULT CALLBACK MainWndProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
LRESULT MainCommand(HWND hwnd, WORD id, LPARAM lp, WORD code);
HWND CreateMainMenuBar(HWND hwnd);
void SetToggleButtonImage(int image);

void WaitCursorOn();
void WaitCursorOff();

// The month/year toggle and the refresh that every outside change asks for.
LRESULT ToggleYearView(HWND hwnd);
LRESULT RefreshView(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);

// The message and command tables, scanned in order.
struct MessageEntry {
    UINT msg;
    LRESULT (*handler)(HWND, UINT, WPARAM, LPARAM);
};
struct CommandEntry {
    WORD id;
    LRESULT (*handler)(HWND, WORD, LPARAM, WORD);
};
extern const MessageEntry kMainMessages[];
extern const int kMainMessageCount;
extern const CommandEntry kMainCommands[];
extern const int kMainCommandCount;

const UINT WM_MENUBAR_CHECK = WM_USER - 1;  // 0x3FF
const UINT WM_REFRESH_OUTSIDE = WM_USER - 3;
const UINT WM_REFRESH_STORE = WM_USER + 1;
const UINT WM_REFRESH_OTHER = WM_USER + 3;
const UINT WM_REFRESH_DAY = WM_USER + 6;

const UINT_PTR TIMER_TAPANIM = 1;
const UINT_PTR TIMER_HOLD = 3;
const UINT_PTR TIMER_FORMPOKE = 5;
const UINT_PTR TIMER_MINUTE = 6;
