// The day view opened from the main window: a quick tap on a day of the month shows six
// frames of feedback and then the day view; a release on a day of the year view opens it at
// once; and whatever the tap interrupted, the month on the screen ends complete.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "support/msgseq.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "common/messages.h"
#include "shell/input.h"
#include "shell/render.h"
#include "month/monthgrid.h"
#include "month/yearview.h"
#include "resource.h"

#include <gtest/gtest.h>

class DayOpen : public ::testing::Test {
protected:
    void SetUp() override
    {
        hwnd = StartOnDayStore();
        ASSERT_TRUE(hwnd);
        if (g_app.viewMode == VIEW_YEAR)
            SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
        g_app.viewMonth = kBusyDay.month;
        g_app.viewYear = kBusyDay.year;
        g_app.settings.showindicator = 1;
        RedrawAndWait();
    }
    void TearDown() override
    {
        g_app.settings.showindicator = 0;
        ResetDaySettings();
    }
    HWND hwnd = nullptr;
};

// A point inside the cell of a day of the month shown, found with the grid's own hit test.
static POINT DayCellPoint(int day)
{
    for (int y = GRID_TOP + 5; y < GRID_TOP + GRID_PITCH * GRID_ROWS; y += GRID_PITCH)
        for (int x = GRID_LEFT + 5; x < GRID_LEFT + GRID_PITCH * GRID_COLS; x += GRID_PITCH)
            if (MonthHitTest(x, y) && g_app.selectedDate == (DWORD)day)
                return {x + 10, y + 10};
    return {-1, -1};
}

// The window as it is on the screen against the back buffer it copies.
static int DifferencesFromBackBuffer(HWND hwnd)
{
    HDC dc = GetDC(hwnd);
    int diff = 0;
    for (int y = 0; y < g_app.clientHeight; y += 3)
        for (int x = 0; x < g_app.clientWidth; x += 3)
            diff += GetPixel(dc, x, y) != BackPixel(x, y);
    ReleaseDC(hwnd, dc);
    return diff;
}

// Timer 1 ticks six times with a frame each, then once more to open the day view.
static const SeqMessage kSixFramesThenTheDay[] = {
    {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM}, {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM},
    {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM}, {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM},
    {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM}, {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM},
    {WM_TIMER, SEQ_WPARAM, TIMER_TAPANIM},
};

// Taps the day; the day view's script runs once it opens. True when it opened.
// waitMs: how long a day that opens takes at most; a tap that should open
// nothing is given less, as the six frames of a day that opens take a few
// milliseconds.
static bool TapDayAndRun(HWND hwnd, POINT at, const std::function<void(HWND dlg)> &script, DWORD waitMs = 5000)
{
    bool opened = false, closed = false;
    RunScripted(
        [&] {
            Tap(hwnd, at.x, at.y);
            DWORD end = GetTickCount() + waitMs;
            while (!closed && (LONG)(GetTickCount() - end) < 0)
                Pump(10);
            return (INT_PTR)0;
        },
        [&](HWND dlg) {
            opened = true;
            script(dlg);
            CloseByButton(dlg);
            closed = true;
        });
    return opened;
}

TEST_F(DayOpen, QuickTapOpensTheDayAfterSixFrames)
{
    POINT at = DayCellPoint(kBusyDay.day);
    ASSERT_GE(at.x, 0);
    int frames = -1;
    Day shown = {};
    LogMessages({hwnd}, {WM_TIMER});
    EXPECT_TRUE(TapDayAndRun(hwnd, at, [&](HWND) {
        EXPECT_SEQUENCE(kSixFramesThenTheDay, "a quick tap on a day");
        frames = g_app.tapAnimStep;
        shown = {g_app.shownMonth, g_app.shownDay, g_app.shownYear};
        EXPECT_EQ(g_app.viewMode, VIEW_DAY);
    }));
    StopLoggingMessages();
    EXPECT_EQ(frames, 0) << "the step starts over for the next tap";
    EXPECT_EQ(shown.month, kBusyDay.month);
    EXPECT_EQ(shown.day, kBusyDay.day);
    EXPECT_EQ(shown.year, kBusyDay.year);
    EXPECT_EQ(g_app.viewMode, VIEW_MONTH);
    EXPECT_TRUE(WaitForPass());
    Pump(50);
    EXPECT_EQ(DifferencesFromBackBuffer(hwnd), 0) << "no frame stays on the month";
}

// A tap during a pass abandons it; once the day view closes the month is drawn again and the
// screen shows the whole of it.
TEST_F(DayOpen, TapDuringAPassEndsWithTheWholeMonth)
{
    POINT at = DayCellPoint(kCrowdedDay.day);
    ASSERT_GE(at.x, 0);
    LONG stopped = 0;
    // A slow store: the month of the 500 appointments takes seconds to draw, and the tap
    // comes as it begins.
    g_passProgressHook = [] { Sleep(5); };
    RequestRedraw();
    DWORD end = GetTickCount() + 5000;
    while (g_app.renderState != RENDER_DRAWING && (LONG)(GetTickCount() - end) < 0)
        Sleep(1);
    EXPECT_TRUE(TapDayAndRun(hwnd, at, [&](HWND) { stopped = g_app.renderState; }));
    g_passProgressHook = nullptr;
    EXPECT_NE(stopped, RENDER_SHOWN) << "the pass the tap interrupted was not shown";
    EXPECT_TRUE(WaitForPass());
    EXPECT_EQ(g_app.renderState, RENDER_SHOWN);
    Pump(50);
    EXPECT_EQ(DifferencesFromBackBuffer(hwnd), 0);
}

// Only a release on a day opens it: not one beside the grid.
TEST_F(DayOpen, ReleaseOffTheGridOpensNothing)
{
    EXPECT_FALSE(TapDayAndRun(hwnd, {120, 265}, [](HWND) {}, 1500));
    EXPECT_FALSE(TapDayAndRun(hwnd, {100, 45}, [](HWND) {}, 1500));
}

// The feedback closes in on the cell's middle, 2 pixels a frame, drawn in a 2-pixel frame.
TEST_F(DayOpen, FeedbackFrames)
{
    const COLORREF white = RGB(255, 255, 255);
    for (int step = 0; step <= 100; step += 20) {
        ScopedMemoryDC dc(nullptr);
        ScopedBitmap bmp(CreateBitmap(60, 60, 1, 32, nullptr));
        ScopedSelect select(dc, bmp);
        PatBlt(dc, 0, 0, 60, 60, WHITENESS);
        DrawTapFeedback(dc, 10, 10, step);
        int inset = step / 10, middle = 10 + GRID_CELL / 2;
        EXPECT_NE(GetPixel(dc, 10 + inset, middle), white) << "step " << step;
        EXPECT_NE(GetPixel(dc, 11 + inset, middle), white) << "step " << step;
        EXPECT_EQ(GetPixel(dc, 12 + inset, middle), white) << "step " << step;
        if (inset) {
            EXPECT_EQ(GetPixel(dc, 9 + inset, middle), white) << "step " << step;
        }
        EXPECT_NE(GetPixel(dc, middle, 10 + GRID_CELL - 1 - inset), white) << "step " << step;
        EXPECT_EQ(GetPixel(dc, middle, middle), white) << "step " << step;
    }
}

// In the year view a release on a day opens it at once; the year view comes back after.
TEST_F(DayOpen, YearViewReleaseOpensTheDay)
{
    SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
    ASSERT_EQ(g_app.viewMode, VIEW_YEAR);
    WaitForPass();
    int x, y;
    ASSERT_TRUE(YearCellOrigin(kLongTextDay.month, kLongTextDay.day, kLongTextDay.year, &x, &y));
    Day shown = {};
    int mode = -1;
    bool opened = false;
    RunScripted(
        [&] {
            SendMessageW(hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x + 3, y + 3));
            SendMessageW(hwnd, WM_LBUTTONUP, 0, MAKELPARAM(x + 3, y + 3));
            return (INT_PTR)0;
        },
        [&](HWND dlg) {
            opened = true;
            shown = {g_app.shownMonth, g_app.shownDay, g_app.shownYear};
            mode = g_app.viewMode;
            EXPECT_FALSE(IsWindowVisible(g_app.yearTipLabel));
            CloseByButton(dlg);
        });
    EXPECT_TRUE(opened);
    EXPECT_EQ(mode, VIEW_DAY);
    EXPECT_EQ(shown.month, kLongTextDay.month);
    EXPECT_EQ(shown.day, kLongTextDay.day);
    EXPECT_EQ(shown.year, kLongTextDay.year);
    EXPECT_EQ(g_app.viewMode, VIEW_YEAR);
    SendMessageW(hwnd, WM_COMMAND, IDM_TOGGLEYEAR, 0);
}
