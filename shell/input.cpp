#include "input.h"
#include "shell.h"
#include "render.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "common/cursor.h"
#include "dayview/daypopup.h"
#include "month/monthgrid.h"
#include "month/yearview.h"

#include <cstdio>
#include <oleauto.h>

static void Navigate()
{
    WaitCursorOn();
    RequestRedraw();
    WaitCursorOff();
}


static void MonthTapDown(HWND hwnd, int x, int y)
{
    // A tap during a pass abandons it, so the pass never shows the old month.
    AbandonPass();
    if (y >= 1 && y < 18) {
        // The month strip: both cell bounds are strict, so a tap on a
        // boundary selects nothing but still redraws.
        for (int i = 0; i < 12; i++)
            if (20 * i < x && x < 20 * i + 20)
                g_app.viewMonth = i + 1;
        Navigate();
        return;
    }
    if (y >= 27 && y <= 35) {
        if (x >= 5 && x < 30) {
            g_app.viewYear--;
            Navigate();
            return;
        }
        if (x >= 208 && x < 237) {
            g_app.viewYear++;
            Navigate();
            return;
        }
        if (x >= 31 && x < 207) {
            SYSTEMTIME now;
            GetLocalTime(&now);
            g_app.viewYear = now.wYear;
            g_app.viewMonth = now.wMonth;
            g_app.viewDay = now.wDay;
            Navigate();
            return;
        }
    }
    if (!MonthHitTest(x, y))
        return;
    g_app.tapX = x;
    g_app.tapY = y;
    // A stylus still down on the day when this runs out opens the day popup (HoldTick).
    if (g_app.selectedDate)
        SetTimer(hwnd, TIMER_HOLD, 200, nullptr);
}

// The stylus held on a day: the day popup opens while it is still down, and the release that
// ends the hold goes to the popup and closes it, so the main window never sees that release
// and opens no day view. The tap-down may have stopped a pass half-way; the month on screen
// is made whole again once the popup has gone.
static LRESULT HoldTick(HWND hwnd)
{
    KillTimer(hwnd, TIMER_HOLD);
    if (g_app.viewMode != VIEW_MONTH || !StylusIsDown() || !MonthHitTest(g_app.tapX, g_app.tapY))
        return 1;
    ShowDayPopup(hwnd, g_app.selectedDate);
    if (g_app.renderState != RENDER_SHOWN) {
        RequestRedraw();
        InvalidateRect(hwnd, nullptr, FALSE);
    }
    return 1;
}

// The year view's label shows the number of the day under the stylus,
// just below its cell, and hides when the stylus is on no day.
static void ShowYearTip(int x, int y)
{
    HWND label = g_app.yearTipLabel;
    int cellX = 0, cellY = 0;
    int day = YearHitTest(x, y, &cellX, &cellY);
    if (!label)
        return;
    if (!day) {
        ShowWindow(label, SW_HIDE);
        return;
    }
    WCHAR text[16];
    swprintf(text, 16, L"%d", day);
    SetWindowTextW(label, text);
    // The label is a popup, placed in screen coordinates; the handheld's
    // main window began at the screen's corner, the desktop's need not.
    // It must not take the activation from the main window either.
    POINT at = {cellX, cellY + 14};
    ClientToScreen(g_app.hwndMain, &at);
    SetWindowPos(label, HWND_TOP, at.x, at.y, 20, 20, SWP_NOACTIVATE | SWP_SHOWWINDOW);
}

static void StepYear(int step)
{
    g_app.viewYear += step;
    PrepareYearView(g_app.viewYear);
    RequestRedraw();
}

static void YearTapDown(int x, int y)
{
    AbandonPass();
    int step = 0;
    if (x >= 201 && x < 215 && y < 15)
        step = -1;
    else if (x >= 221 && x < 235 && y <= 14)
        step = 1;
    if (step) {
        WaitCursorOn();
        StepYear(step);
        WaitCursorOff();
        return;
    }
    ShowYearTip(x, y);
}

LRESULT OnTapDown(HWND hwnd, UINT, WPARAM, LPARAM lp)
{
    int x = (short)LOWORD(lp), y = (short)HIWORD(lp);
    if (g_app.viewMode == VIEW_MONTH)
        MonthTapDown(hwnd, x, y);
    else if (g_app.viewMode == VIEW_YEAR)
        YearTapDown(x, y);
    return 0;
}

// A release on a day of the month starts the tap feedback, which then opens the day view; in
// the year view a release on a day opens it at once (the hit test has made its month the
// month shown).
LRESULT OnTapUp(HWND hwnd, UINT, WPARAM, LPARAM lp)
{
    KillTimer(hwnd, TIMER_HOLD);
    int x = (short)LOWORD(lp), y = (short)HIWORD(lp);
    if (g_app.viewMode == VIEW_MONTH) {
        if (MonthHitTest(x, y) && g_app.selectedDate != 0)
            SetTimer(hwnd, TIMER_TAPANIM, 1, nullptr);
        return 0;
    }
    if (g_app.viewMode != VIEW_YEAR)
        return 0;
    if (g_app.yearTipLabel)
        ShowWindow(g_app.yearTipLabel, SW_HIDE);
    int cellX, cellY;
    int day = YearHitTest(x, y, &cellX, &cellY);
    if (day)
        OpenDayView(hwnd, day);
    return 0;
}

// A stylus touches the screen whenever it moves; a mouse also moves with
// no button down, and then the label stays as it is.
LRESULT OnStylusMove(HWND, UINT, WPARAM wp, LPARAM lp)
{
    if (g_app.viewMode != VIEW_YEAR || !(wp & MK_LBUTTON))
        return 0;
    ShowYearTip((short)LOWORD(lp), (short)HIWORD(lp));
    return 0;
}

// In the month view a held arrow key steps exactly one month (the key-up
// re-arms it); in the year view auto-repeat keeps stepping years.
LRESULT OnKeyDown(HWND, UINT, WPARAM wp, LPARAM)
{
    int step;
    switch (wp) {
    case VK_LEFT:
    case VK_UP:
        step = -1;
        break;
    case VK_RIGHT:
    case VK_DOWN:
        step = 1;
        break;
    default:
        return 0;
    }
    if (g_app.keyReady != 1)
        return 0;
    if (g_app.viewMode == VIEW_MONTH) {
        g_app.viewMonth += step;
        if (g_app.viewMonth < 1) {
            g_app.viewMonth = 12;
            g_app.viewYear--;
        } else if (g_app.viewMonth > 12) {
            g_app.viewMonth = 1;
            g_app.viewYear++;
        }
        Navigate();
        g_app.keyReady = 0;
    } else if (g_app.viewMode == VIEW_YEAR) {
        WaitCursorOn();
        StepYear(step);
        WaitCursorOff();
    }
    return 0;
}

static double WholeDay(const SYSTEMTIME &st)
{
    double d = 0;
    SystemTimeToVariantTime(const_cast<SYSTEMTIME *>(&st), &d);
    return (double)(long long)d;
}

LRESULT MinuteTick(HWND hwnd, const SYSTEMTIME &now)
{
    if (WholeDay(now) != WholeDay(g_app.todayStamp)) {
        g_app.todayStamp = now;
        if (g_app.viewMode == VIEW_MONTH) {
            RequestRedraw();
            InvalidateRect(hwnd, nullptr, FALSE);
        }
    }
    return 1;
}

// After the new and edit commands open the calendar's appointment form,
// its "Appointment" child is told to show the appointment page (command
// 105). Any other window, or none, is left alone.
void PokeAppointmentForm()
{
    HWND calendar = FindWindowW(L"Dialog", L"Calendar");
    if (!calendar)
        return;
    for (HWND child = GetWindow(calendar, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        WCHAR text[81] = L"";
        GetWindowTextW(child, text, 81);
        if (lstrcmpW(text, L"Appointment") == 0) {
            SendMessageW(child, WM_COMMAND, 105, 0);
            return;
        }
    }
}

LRESULT OnTimer(HWND hwnd, UINT, WPARAM wp, LPARAM)
{
    switch (wp) {
    case TIMER_MINUTE: {
        SYSTEMTIME now;
        GetLocalTime(&now);
        return MinuteTick(hwnd, now);
    }
    case TIMER_TAPANIM: return TapAnimationTick(hwnd);
    case TIMER_HOLD:
        return HoldTick(hwnd);
    case TIMER_FORMPOKE:
        KillTimer(g_app.hwndMain, TIMER_FORMPOKE);
        PokeAppointmentForm();
        return 1;
    }
    return 0;
}
