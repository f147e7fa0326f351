#include "draw.h"
#include "common/appstate.h"
#include "platform/aygshell.h"

void DrawTextIn(HDC dc, const WCHAR *text, int left, int top, int right, int bottom, UINT format)
{
    RECT rc = {left, top, right, bottom};
    DrawTextW(dc, text, -1, &rc, format | DT_SINGLELINE | DT_NOPREFIX);
}

// A month pass frames thousands of these; the DC's own pen and brush take
// the colours, so none is created for them and the DC's colours are put
// back after.
void DrawCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF border, COLORREF fill)
{
    ScopedSelect selectPen(dc, GetStockObject(DC_PEN));
    ScopedSelect selectBrush(dc, GetStockObject(DC_BRUSH));
    COLORREF oldPen = SetDCPenColor(dc, border), oldBrush = SetDCBrushColor(dc, fill);
    Rectangle(dc, left, top, right, bottom);
    SetDCPenColor(dc, oldPen);
    SetDCBrushColor(dc, oldBrush);
}

void FillCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF colour)
{
    ScopedBrush brush(CreateSolidBrush(colour));
    RECT rc = {left, top, right, bottom};
    FillRect(dc, &rc, brush);
}

void FrameCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF colour)
{
    ScopedBrush brush(CreateSolidBrush(colour));
    RECT rc = {left, top, right, bottom};
    FrameRect(dc, &rc, brush);
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
    BITMAP bm = {};
    GetObjectW(bmp, sizeof(bm), &bm);
    ScopedMemoryDC mem(dc);
    ScopedSelect select(mem, bmp);
    BitBlt(dc, x, y, bm.bmWidth, bm.bmHeight, mem, 0, 0, SRCCOPY);
}

BOOL DrawTransparentBitmapAt(HDC dc, HBITMAP bmp, int sx, int sy, int dx, int dy, int w, int h,
                             COLORREF transparent)
{
    if (!bmp)
        return FALSE;
    return TransparentImage(dc, dx, dy, w, h, bmp, sx, sy, w, h, transparent);
}

bool PassAbandoned()
{
    return g_app.renderState == RENDER_REQUESTED;
}

void AbandonPass()
{
    InterlockedCompareExchange(&g_app.renderState, RENDER_REQUESTED, RENDER_DRAWING);
}

void (*g_passProgressHook)();

// The UI thread copies the back buffer from its pixels whenever it paints,
// so a flush is all it takes for the pass so far to reach the screen; on a
// slow store the user watches the month fill in appointment by appointment.
// Asking the window to paint costs more than drawing an appointment, so it
// is asked at most every few milliseconds: a screen refreshes no faster,
// a slow pass still fills in as it goes, and the end of every pass asks
// once more. The first appointment of a pass is always shown at once.
static const double kProgressIntervalMs = 8.0;
static LARGE_INTEGER g_lastProgress; // the rendering thread's own
static bool g_progressShown;

void StartPassProgress()
{
    g_progressShown = false;
}

void ShowPassProgress(void (*drawPending)())
{
    static LARGE_INTEGER frequency;
    if (!frequency.QuadPart)
        QueryPerformanceFrequency(&frequency);
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    LARGE_INTEGER &last = g_lastProgress;
    if (!g_progressShown ||
        (double)(now.QuadPart - last.QuadPart) * 1000.0 >= kProgressIntervalMs * (double)frequency.QuadPart) {
        g_progressShown = true;
        if (drawPending)
            drawPending();
        GdiFlush();
        InvalidateRect(g_app.hwndMain, nullptr, FALSE);
        last = now;
    }
    if (g_passProgressHook)
        g_passProgressHook();
}
