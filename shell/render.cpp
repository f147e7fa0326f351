// The rendering thread owns all drawing of the month and year views into
// the back buffer, so the stylus stays responsive while a month's
// appointments are fetched and painted. WM_PAINT only copies the buffer.
#include "render.h"
#include "common/appstate.h"
#include "platform/aygshell.h"
#include "month/monthgrid.h"
#include "month/yearview.h"

#include <cstdio>

void CreateBackBuffer(int width, int height)
{
    HDC screen = GetDC(nullptr);
    g_app.backDC = CreateCompatibleDC(screen);
    g_app.backBitmap = CreateCompatibleBitmap(screen, width, height);
    g_app.backOldBitmap = (HBITMAP)SelectObject(g_app.backDC, g_app.backBitmap);
    ReleaseDC(nullptr, screen);
    PatBlt(g_app.backDC, 0, 0, width, height, WHITENESS);
}

void DestroyBackBuffer()
{
    if (!g_app.backDC)
        return;
    SelectObject(g_app.backDC, g_app.backOldBitmap);
    DeleteDC(g_app.backDC);
    DeleteObject(g_app.backBitmap);
    g_app.backDC = nullptr;
    g_app.backBitmap = nullptr;
    g_app.backOldBitmap = nullptr;
}

// Draws through its own device context. The back buffer's context is
// never used by both threads at once: Wine refuses GDI calls on a context
// that another thread is using, so a blit during a pass made the pass's
// own calls fail at random (text missing, fonts left selected and never
// freed). A blit that finds a pass drawing is skipped; the pass
// invalidates the window when it is done, and that paint copies it.
void BlitBackBuffer(HWND hwnd)
{
    if (!g_app.backDC || !TryEnterCriticalSection(&g_app.renderLock))
        return;
    HDC dc = GetDC(hwnd);
    BitBlt(dc, 0, 0, g_app.clientWidth, g_app.clientHeight, g_app.backDC, 0, 0, SRCCOPY);
    ReleaseDC(hwnd, dc);
    LeaveCriticalSection(&g_app.renderLock);
}

// Never waits: requests that arrive during a pass set the auto-reset event
// again, so exactly one more pass follows however many came.
void RequestRedraw()
{
    g_app.renderState = RENDER_REQUESTED;
    EventModify(g_app.hRenderEvent, EVENT_SET);
}

HFONT CreateViewFont(int height, int strikeOut, int bold)
{
    LOGFONTW lf = {};
    lf.lfHeight = height;
    lf.lfWidth = 0;
    lf.lfWeight = bold == 1 ? FW_BOLD : FW_NORMAL;
    lf.lfStrikeOut = (BYTE)strikeOut;
    // The handheld asked for character set 255 and got Tahoma all the same;
    // a desktop then picks some other face with that set, so the desktop
    // asks for the default set to get the same Tahoma.
    lf.lfCharSet = DEFAULT_CHARSET;
    lf.lfOutPrecision = OUT_DEFAULT_PRECIS;
    lf.lfClipPrecision = CLIP_DEFAULT_PRECIS;
    lf.lfQuality = g_app.settings.cleartype == 1 ? CLEARTYPE_QUALITY : DEFAULT_QUALITY;
    lf.lfPitchAndFamily = FF_ROMAN;
    lstrcpyW(lf.lfFaceName, L"Tahoma");
    return CreateFontIndirectW(&lf);
}

void DrawBitmapAt(HDC dc, HBITMAP bmp, int x, int y)
{
    if (!bmp)
        return;
    HDC mem = CreateCompatibleDC(dc);
    HGDIOBJ old = SelectObject(mem, bmp);
    BITMAP bm = {};
    GetObjectW(bmp, sizeof(bm), &bm);
    BitBlt(dc, x, y, bm.bmWidth, bm.bmHeight, mem, 0, 0, SRCCOPY);
    SelectObject(mem, old);
    DeleteDC(mem);
}

void DrawBitmapTransparent(HDC dc, HBITMAP bmp, int sx, int sy, int dx, int dy, int w, int h,
                           COLORREF transparent)
{
    if (!bmp)
        return;
    TransparentImage(dc, dx, dy, w, h, bmp, sx, sy, w, h, transparent);
}

static void DrawMonthStrip(HDC dc)
{
    HFONT font = CreateViewFont(11, 0, 0);
    HGDIOBJ oldFont = SelectObject(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(255, 255, 255));
    for (int m = 1; m <= 12; m++) {
        WCHAR name[80] = L"";
        GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SABBREVMONTHNAME1 + m - 1, name, 80);
        RECT cell = {20 * (m - 1), 3, 20 * m, 18};
        DrawTextW(dc, name, -1, &cell, DT_CENTER | DT_SINGLELINE | DT_NOPREFIX);
        if (m == g_app.viewMonth) {
            HPEN pen = CreatePen(PS_SOLID, 2, RGB(255, 255, 0));
            HGDIOBJ oldPen = SelectObject(dc, pen);
            MoveToEx(dc, cell.left, cell.bottom - 2, nullptr);
            LineTo(dc, cell.right, cell.bottom - 2);
            SelectObject(dc, oldPen);
            DeleteObject(pen);
        }
    }
    SelectObject(dc, oldFont);
    DeleteObject(font);
}

static void DrawYearTitle(HDC dc, int year)
{
    HFONT font = CreateViewFont(14, 0, 1);
    HGDIOBJ oldFont = SelectObject(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, 0xC80000);
    RECT rc;
    GetClientRect(g_app.hwndMain, &rc);
    rc.bottom = 15;
    WCHAR text[16];
    swprintf(text, 16, L"%d", year);
    DrawTextW(dc, text, -1, &rc, DT_CENTER | DT_SINGLELINE | DT_NOPREFIX);
    DrawBitmapAt(dc, g_app.bmpYearPrev, 205, 2);
    DrawBitmapAt(dc, g_app.bmpYearNext, 225, 2);
    SelectObject(dc, oldFont);
    DeleteObject(font);
}

// One drawing pass as the thread runs it when woken; 1 when it was shown.
static int RenderPass()
{
    EnterCriticalSection(&g_app.renderLock);
    InterlockedIncrement(&g_app.renderPasses);
    g_app.renderState = RENDER_DRAWING;
    HDC dc = g_app.backDC;
    int result = 0;
    if (dc) {
        PatBlt(dc, 0, 0, g_app.clientWidth, g_app.clientHeight, WHITENESS);
        if (g_app.viewMode == VIEW_YEAR) {
            // One year for the whole pass: the UI thread may step it
            // meanwhile, and the title must match the months below it.
            int year = g_app.viewYear;
            DrawYearTitle(dc, year);
            result = DrawYearView(dc, year);
            if (YearBadgeFlag(year) == 1)
                DrawBitmapAt(dc, g_app.bmpBadge, 10, 5);
        } else {
            DrawBitmapAt(dc, g_app.bmpBackground, 0, 0);
            // The grey band's brush is freed at once: a brush left over
            // per pass would run the process out of GDI objects.
            HBRUSH band = CreateSolidBrush(0x5A5A5A);
            RECT bandRect = {0, 262, 240, 268};
            FillRect(dc, &bandRect, band);
            DeleteObject(band);
            DrawMonthStrip(dc);
            result = DrawMonthGrid(dc, g_app.viewMonth, g_app.viewDay, g_app.viewYear);
        }
    }
    LeaveCriticalSection(&g_app.renderLock);
    if (result == 1) {
        InvalidateRect(g_app.hwndMain, nullptr, FALSE);
        g_app.renderState = RENDER_SHOWN;
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
