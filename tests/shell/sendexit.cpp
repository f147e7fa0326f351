// Chooses "Exit" in a running Lanternfields, as the user would; used by
// the screenshot script to close the program cleanly.
#include <windows.h>
#include "resource.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int)
{
    HWND main = FindWindowW(L"Lanternfields", L"Lanternfields");
    if (!main)
        return 1;
    PostMessageW(main, WM_COMMAND, IDM_EXIT, 0);
    return 0;
}
