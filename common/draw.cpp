#include "draw.h"
#include "common/appstate.h"
#include "platform/aygshell.h"

void DrawTextIn(HDC dc, const WCHAR *text, int left, int top, int right, int bottom, UINT format)
{
    RECT rc = {left, top, right, bottom};
    DrawTextW(dc, text, -1, &rc, format | DT_SINGLELINE | DT_NOPREFIX);
}

void DrawCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF border, COLORREF fill)
{
    ScopedPen pen(CreatePen(PS_SOLID, 1, border));
    ScopedBrush brush(CreateSolidBrush(fill));
    ScopedSelect selectPen(dc, pen);
    ScopedSelect selectBrush(dc, brush);
    Rectangle(dc, left, top, right, bottom);
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
void ShowPassProgress()
{
    GdiFlush();
    InvalidateRect(g_app.hwndMain, nullptr, FALSE);
    if (g_passProgressHook)
        g_passProgressHook();
}
