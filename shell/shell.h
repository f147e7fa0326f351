// The main window: start-up, its message and command tables, the menu bar
// and shutdown.
#pragma once

#include <windows.h>
#include "common/messages.h"

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
// Greys (1) or enables (0) the menu bar's button with that command.
void SetMenuBarButtonState(int command, int greyed);

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
