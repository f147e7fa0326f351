// The rendering thread owns all drawing of the month and year views into
// the back buffer, so the stylus stays responsive while a month's
// appointments are fetched and painted. WM_PAINT only copies the buffer.
#include "render.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "platform/aygshell.h"
#include "month/monthgrid.h"
#include "month/yearview.h"

#include <cstdio>

// The back buffer's pixels as the platform describes a top-down 32-bit DIB.
static BITMAPINFO BackBufferInfo(int width, int height)
{
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = width;
    bi.bmiHeader.biHeight = -height;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    bi.bmiHeader.biCompression = BI_RGB;
    return bi;
}

void CreateBackBuffer(int width, int height)
{
    BITMAPINFO bi = BackBufferInfo(width, height);
    HDC screen = GetDC(nullptr);
    g_app.backDC = CreateCompatibleDC(screen);
    ReleaseDC(nullptr, screen);
    void *bits = nullptr;
    g_app.backBitmap = CreateDIBSection(g_app.backDC, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    g_app.backOldBitmap = (HBITMAP)SelectObject(g_app.backDC, g_app.backBitmap);
    g_app.backBits = g_app.backBitmap ? bits : nullptr;
    g_app.backWidth = width;
    g_app.backHeight = height;
    PatBlt(g_app.backDC, 0, 0, width, height, WHITENESS);
}

void DestroyBackBuffer()
{
    if (!g_app.backDC)
        return;
    g_app.backBits = nullptr;
    SelectObject(g_app.backDC, g_app.backOldBitmap);
    DeleteDC(g_app.backDC);
    DeleteObject(g_app.backBitmap);
    g_app.backDC = nullptr;
    g_app.backBitmap = nullptr;
    g_app.backOldBitmap = nullptr;
}

// Copies from the back buffer's pixels and never touches its DC: Wine
// refuses GDI calls on a DC that another thread is using, and a blit
// through the back DC during a pass made the pass's own calls fail at
// random (text missing, fonts left selected and never freed). So a paint
// neither waits for a pass nor skips the copy: mid-pass it shows the pass
// so far, as the handheld did, and the pass's end invalidates the window
// for the whole picture.
void BlitBackBuffer(HWND hwnd)
{
    if (!g_app.backBits)
        return;
    BITMAPINFO bi = BackBufferInfo(g_app.backWidth, g_app.backHeight);
    int width = g_app.clientWidth < g_app.backWidth ? g_app.clientWidth : g_app.backWidth;
    int height = g_app.clientHeight < g_app.backHeight ? g_app.clientHeight : g_app.backHeight;
    HDC dc = GetDC(hwnd);
    SetDIBitsToDevice(dc, 0, 0, width, height, 0, 0, 0, g_app.backHeight, g_app.backBits, &bi,
                      DIB_RGB_COLORS);
    ReleaseDC(hwnd, dc);
}

// Never waits: requests that arrive during a pass set the auto-reset event
// again, so exactly one more pass follows however many came.
void RequestRedraw()
{
    g_app.renderState = RENDER_REQUESTED;
    EventModify(g_app.hRenderEvent, EVENT_SET);
}

static void DrawMonthStrip(HDC dc)
{
    ScopedFont font(CreateViewFont(11, 0, 0));
    ScopedSelect selectFont(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(255, 255, 255));
    for (int m = 1; m <= 12; m++) {
        WCHAR name[80] = L"";
        GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SABBREVMONTHNAME1 + m - 1, name, 80);
        int left = 20 * (m - 1), right = 20 * m, bottom = 18;
        DrawTextIn(dc, name, left, 3, right, bottom, DT_CENTER);
        if (m == g_app.viewMonth) {
            ScopedPen pen(CreatePen(PS_SOLID, 2, RGB(255, 255, 0)));
            ScopedSelect selectPen(dc, pen);
            MoveToEx(dc, left, bottom - 2, nullptr);
            LineTo(dc, right, bottom - 2);
        }
    }
}

// The year centred over the width of the area the pass draws into.
static void DrawYearTitle(HDC dc, const RECT &area, int year)
{
    ScopedFont font(CreateViewFont(14, 0, 1));
    ScopedSelect selectFont(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, 0xC80000);
    WCHAR text[16];
    swprintf(text, 16, L"%d", year);
    DrawTextIn(dc, text, area.left, area.top, area.right, 15, DT_CENTER);
    DrawBitmapAt(dc, g_app.bmpYearPrev, 205, 2);
    DrawBitmapAt(dc, g_app.bmpYearNext, 225, 2);
}

// One drawing pass as the thread runs it when woken; 1 when it was shown.
static int RenderPass()
{
    EnterCriticalSection(&g_app.renderLock);
    InterlockedIncrement(&g_app.renderPasses);
    g_app.renderState = RENDER_DRAWING;
    HDC dc = g_app.backDC;
    RECT area = {0, 0, g_app.clientWidth, g_app.clientHeight};
    int result = 0;
    if (dc) {
        PatBlt(dc, area.left, area.top, area.right - area.left, area.bottom - area.top, WHITENESS);
        if (g_app.viewMode == VIEW_YEAR) {
            // One year for the whole pass: the UI thread may step it
            // meanwhile, and the title must match the months below it.
            int year = g_app.viewYear;
            DrawYearTitle(dc, area, year);
            result = DrawYearView(dc, year);
            if (YearBadgeFlag(year) == 1)
                DrawBitmapAt(dc, g_app.bmpBadge, 10, 5);
        } else {
            DrawBitmapAt(dc, g_app.bmpBackground, 0, 0);
            // The grey band's brush is freed at once: a brush left over
            // per pass would run the process out of GDI objects.
            FillCellRect(dc, 0, 262, 240, 268, 0x5A5A5A);
            DrawMonthStrip(dc);
            result = DrawMonthGrid(dc, g_app.viewMonth, g_app.viewDay, g_app.viewYear);
        }
    }
    GdiFlush();
    LeaveCriticalSection(&g_app.renderLock);
    if (result == 1) {
        InvalidateRect(g_app.hwndMain, nullptr, FALSE);
        // A request or a tap that came after the pass last looked for one
        // keeps its mark: the pass it asked for is still to come.
        InterlockedCompareExchange(&g_app.renderState, RENDER_SHOWN, RENDER_DRAWING);
    }
    InterlockedIncrement(&g_app.renderDone);
    return result;
}

DWORD WINAPI RenderThreadProc(LPVOID)
{
    for (;;) {
        DWORD woke = MsgWaitForMultipleObjectsEx(1, &g_app.hRenderEvent, INFINITE, 0x7F, 0);
        if (woke == WAIT_OBJECT_0 + 1) {
            MSG msg;
            while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
                TranslateMessage(&msg);
                DispatchMessageW(&msg);
            }
            continue;
        }
        if (woke == WAIT_OBJECT_0)
            RenderPass();
        else
            Sleep(10); // a failed wait must not spin the processor
    }
}
