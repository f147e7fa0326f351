// Not a test: writes what the user sees when the go-to-date popup opens over the program, the
// screen's area holding both windows, to the .bmp file named on the command line. The popup
// opens on today, as the day view opens it on the day it shows; the harness ends it.
#include "support/apphost.h"
#include "support/drive.h"
#include "dayview/gotodate.h"

#include <cstdio>
#include <string>

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: gotodate_shot FILE.bmp\n");
        return 2;
    }
    HWND program = StartProgram();
    if (!program)
        return 1;
    SYSTEMTIME today;
    GetLocalTime(&today);
    bool written = false;
    int month, day, year;
    RunScripted(
        [&] {
            return (INT_PTR)GoToDate(program, today.wMonth, today.wDay, today.wYear, &month, &day,
                                     &year);
        },
        [&](HWND popup) {
            Pump(500);
            std::string path = argv[1];
            written = SaveScreenShot({program, popup}, std::wstring(path.begin(), path.end()));
        });
    SendMessageW(program, WM_CLOSE, 0, 0);
    if (written)
        printf("%s\n", argv[1]);
    return written ? 0 : 1;
}
