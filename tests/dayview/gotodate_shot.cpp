// Not a test: writes what the user sees when the go-to-date popup opens over the program, the
// screen's area holding both windows, to the .bmp file named on the command line. The popup
// opens on today, as the day view opens it on the day it shows; the harness ends it.
#include "support/apphost.h"
#include "support/drive.h"
#include "dayview/gotodate.h"

#include <cstdio>
#include <vector>

static bool WriteScreenArea(const RECT &area, const char *path)
{
    int w = area.right - area.left, h = area.bottom - area.top;
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = w;
    bi.bmiHeader.biHeight = h;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 24;
    void *bits = nullptr;
    HDC screen = GetDC(nullptr);
    HDC dc = CreateCompatibleDC(screen);
    HBITMAP bmp = CreateDIBSection(dc, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(dc, bmp);
    BitBlt(dc, 0, 0, w, h, screen, area.left, area.top, SRCCOPY);
    GdiFlush();
    SelectObject(dc, old);
    DeleteDC(dc);
    ReleaseDC(nullptr, screen);

    DWORD size = (DWORD)((w * 3 + 3) & ~3) * h;
    BITMAPFILEHEADER fh = {};
    fh.bfType = 0x4D42;
    fh.bfOffBits = sizeof(fh) + sizeof(BITMAPINFOHEADER);
    fh.bfSize = fh.bfOffBits + size;
    FILE *f = fopen(path, "wb");
    bool written = f && fwrite(&fh, sizeof(fh), 1, f) &&
                   fwrite(&bi.bmiHeader, sizeof(BITMAPINFOHEADER), 1, f) &&
                   fwrite(bits, size, 1, f);
    if (f)
        fclose(f);
    DeleteObject(bmp);
    return written;
}

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
            RECT a, b, both;
            GetWindowRect(program, &a);
            GetWindowRect(popup, &b);
            UnionRect(&both, &a, &b);
            written = WriteScreenArea(both, argv[1]);
        });
    SendMessageW(program, WM_CLOSE, 0, 0);
    if (written)
        printf("%s\n", argv[1]);
    return written ? 0 : 1;
}
