// The rounded group frames the Times, Color and Icons pages draw behind their controls.
#include "pages.h"
#include "common/draw.h"

static void RoundFrame(HDC dc, int left, int top, int right, int bottom, int corner,
                       COLORREF color)
{
    ScopedPen pen(CreatePen(PS_SOLID, 1, color));
    ScopedSelect use(dc, pen);
    RoundRect(dc, left, top, right, bottom, corner, corner);
}

void DrawDoubleFrame(HDC dc, int left, int top, int right, int bottom, int corner,
                     COLORREF inner, COLORREF outer)
{
    if (outer == FRAME_SINGLE) {
        RoundFrame(dc, left, top, right, bottom, corner, inner);
        return;
    }
    RoundFrame(dc, left, top, right, bottom, corner, outer);
    RoundFrame(dc, left + 1, top + 1, right - 1, bottom - 1, corner, inner);
}
