// Drives windows and dialogs as the user does, the way Wine's conformance tests do: a modal
// dialog runs from its real template and the test scripts it from inside its own modal loop;
// stylus and keys arrive as messages (a hold as real input, since the program asks the system
// whether the stylus is still down); a popup menu's item is chosen inside the menu's own loop;
// a window paints into a bitmap whose pixels the test reads.
#pragma once

#include <windows.h>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

// Runs `show`, which opens a modal dialog and returns its result, and calls `script` with the
// dialog once it is shown and its modal loop runs, from inside that loop. The script ends the
// dialog as the user would (a button, a key) or with EndDialog. A script that leaves it open
// has it ended with SCRIPT_LEFT_OPEN; one still running after 30 s, with SCRIPT_TIMED_OUT.
// Scripts nest: a script may run another dialog (a message box is one) with RunScripted.
const INT_PTR SCRIPT_LEFT_OPEN = -1001;
const INT_PTR SCRIPT_TIMED_OUT = -1002;
INT_PTR RunScripted(const std::function<INT_PTR()> &show,
                    const std::function<void(HWND dlg)> &script);

// Runs `show` and calls `script` with the first dialog it opens as soon as its WM_INITDIALOG
// has returned, before the modal loop shows it. A script that ends the dialog there ends it
// before it is ever shown: Wine waits for a window manager after hiding a shown dialog,
// which over hundreds of openings would make a test take many minutes.
INT_PTR RunUnshown(const std::function<INT_PTR()> &show,
                   const std::function<void(HWND dlg)> &script);

// Clicks the dialog's OK button and returns the text of the message box it answers with, once
// `look` (if given) has seen the box, which is then closed with Enter; empty when none came.
std::wstring MessageOnOk(HWND dlg, const std::function<void(HWND box)> &look = nullptr);

// Pumps this thread's messages for `ms` milliseconds (0: until the queue is empty), through
// the dialog manager of the dialog being scripted, as its modal loop would.
void Pump(DWORD ms);

// The stylus on a window, at client coordinates: a tap is down and up, a double tap is down,
// up, double-click, up. Sent, as the system sends them to the window under the stylus.
void Tap(HWND w, int x, int y);
void DoubleTap(HWND w, int x, int y);
// Holds the stylus down on the window at (x, y) for `ms` milliseconds while messages are
// pumped, then lifts it. Real input, so that the button reads as down to the program; the
// point must not be covered by another window.
void Hold(HWND w, int x, int y, DWORD ms);
// A key pressed and released, and typed text, posted to the window and pumped, so they pass
// the dialog manager (Enter, Escape, Tab) and reach the focus as the keyboard's would.
void Key(HWND w, UINT vk);
void Type(HWND w, const wchar_t *text);
// A click on the dialog's button with that id (BM_CLICK).
void Click(HWND dlg, int id);
// Another top-level window of this thread takes the activation, as when the user turns to
// another window; it is destroyed again after `ms` milliseconds of pumping.
void ActivateAnotherWindow(DWORD ms = 50);

// The next popup menu this thread opens gets the item with that command id chosen with the
// keyboard, inside the menu's own loop. A greyed item cannot be chosen: the menu is then
// cancelled with Escape. What the menu held is kept for the test.
void ChooseMenuItem(UINT id);
struct MenuItemSeen {
    UINT id;
    bool greyed;
};
struct MenuSeen {
    bool opened;
    POINT at;                        // its top-left corner on the screen
    std::vector<MenuItemSeen> items; // separators left out
    bool Has(UINT id) const;
    bool Greyed(UINT id) const;
};
const MenuSeen &LastMenu();

// A window's client area as it paints itself (PrintWindow into a bitmap of the test's own).
struct Picture {
    int width = 0, height = 0;
    std::vector<COLORREF> pixels;
    COLORREF At(int x, int y) const { return pixels[(size_t)y * width + x]; }
    int Count(COLORREF colour) const;
};
Picture PaintClient(HWND w);

// The screen where the windows lie (the smallest rectangle holding them all), frames and all,
// written as a .bmp: what the user sees, for screenshots.
bool SaveScreenShot(std::initializer_list<HWND> windows, const std::wstring &path);
// Where a screenshot named `what` goes: the folder LF_SHOTS names (a Windows path), the
// locale in the file's name. Screenshot tests skip themselves without LF_SHOTS.
std::wstring ShotPath(const char *what);

// Runs a property sheet holding one settings page alone, as the settings sheet holds it, owned
// by `owner`; the sheet's result. Run it through RunScripted to act inside its modal loop.
INT_PTR ShowPageAlone(WORD templateId, DLGPROC proc, const wchar_t *title, HWND owner);

// The bytes of a 24-bit .bmp file, bottom row first as the format keeps it, each pixel from
// `pixel(x, y)` (y counted in file order), as an "icons.bmp" beside the program is written.
std::vector<BYTE> BmpFile24(int width, int height, const std::function<COLORREF(int x, int y)> &pixel);
