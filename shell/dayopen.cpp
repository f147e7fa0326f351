// Opening the day view from the main window: the feedback over a tapped day, the day view,
// and the month made whole again behind it.
#include "input.h"
#include "render.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "common/messages.h"
#include "dayview/dayview.h"
#include "month/monthgrid.h"

const int TAP_STEP = 20, TAP_LAST_STEP = 100;
const COLORREF TAP_FRAME = 0xC86414; // a strong blue, clear on every cell colour

// One frame of the feedback over the tapped cell: a 2-pixel frame that closes in on the cell's
// middle, 2 pixels further at each step (from the cell's edge at step 0 to 10 pixels in at
// step 100). It is drawn on the window, over the copy of the back buffer, which the pass
// never sees.
void DrawTapFeedback(HDC dc, int cellX, int cellY, int step)
{
    int inset = step / 10;
    int left = cellX + inset, top = cellY + inset;
    int right = cellX + GRID_CELL - inset, bottom = cellY + GRID_CELL - inset;
    FrameCellRect(dc, left, top, right, bottom, TAP_FRAME);
    FrameCellRect(dc, left + 1, top + 1, right - 1, bottom - 1, TAP_FRAME);
}

// The month behind the day view may have been left half-drawn (a tap abandons a pass): it is
// drawn again once the day view has closed.
void OpenDayView(HWND hwnd, int day)
{
    ShowDayView(hwnd, day);
    if (g_app.renderState != RENDER_SHOWN) {
        RequestRedraw();
        InvalidateRect(hwnd, nullptr, FALSE);
    }
}

// Six frames, at steps 0 to 100, then the day view. The window is repainted from the back
// buffer before the day view opens, so no frame stays behind it.
LRESULT TapAnimationTick(HWND hwnd)
{
    if (g_app.tapAnimStep <= TAP_LAST_STEP) {
        BlitBackBuffer(hwnd);
        HDC dc = GetDC(hwnd);
        DrawTapFeedback(dc, g_app.tapCellX, g_app.tapCellY, g_app.tapAnimStep);
        ReleaseDC(hwnd, dc);
        g_app.tapAnimStep += TAP_STEP;
        return 0;
    }
    KillTimer(hwnd, TIMER_TAPANIM);
    g_app.tapAnimStep = 0;
    InvalidateRect(hwnd, nullptr, TRUE);
    OpenDayView(hwnd, (int)g_app.selectedDate);
    return 0;
}
