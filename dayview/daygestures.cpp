// The day list's stylus and keys. The list is a standard report list whose input the day view
// takes over: the arrow keys move through days instead of rows, Enter closes the day view, a
// tap selects every row of an appointment, and a tap on the marker column of an appointment
// with notes shows them. The list's own stylus handling (its tracking and drag selection)
// never runs.
#include "daygestures.h"
#include "daylist.h"
#include "daymenu.h"
#include "notes.h"
#include "common/appstate.h"
#include "common/cursor.h"
#include "common/messages.h"
#include "calendar/dates.h"
#include "resource.h"

#include <commctrl.h>
#include <windowsx.h>

// Where the day view's close button lies: Enter taps it.
const int CLOSE_TAP_X = 208, CLOSE_TAP_Y = 17;
const UINT HOLD_MS = 300;

static LRESULT PassOn(HWND list, UINT msg, WPARAM wp, LPARAM lp)
{
    return CallWindowProcW(g_app.dayListPrevProc, list, msg, wp, lp);
}

static void SetRowSelected(HWND list, int row, bool selected)
{
    LVITEMW it = {};
    it.stateMask = LVIS_SELECTED;
    it.state = selected ? LVIS_SELECTED : 0;
    SendMessageW(list, LVM_SETITEMSTATE, row, (LPARAM)&it);
}

int SelectAppointment(HWND list, int row)
{
    SetRowSelected(list, -1, false);
    SetRowSelected(list, row, true);
    if (g_app.settings.wrapsubject != 1 && g_app.settings.showlocation != 1)
        return row;
    LPARAM item = DayRowItem(list, row);
    int first = row;
    int count = (int)SendMessageW(list, LVM_GETITEMCOUNT, 0, 0);
    for (int i = count - 1; i >= 0; i--)
        if (DayRowItem(list, i) == item) {
            SetRowSelected(list, i, true);
            first = i;
        }
    return first;
}

void MoveShownDay(HWND dlg, int days)
{
    if (!AddDays(&g_app.shownMonth, &g_app.shownDay, &g_app.shownYear, days))
        return;
    WaitCursorOn();
    RefillDayList();
    WaitCursorOff();
    RECT header = {0, 0, 240, 20};
    InvalidateRect(dlg, &header, FALSE);
}

// Left and right step a day, up and down a week. The key goes no further, so the list's own
// highlighted row never moves.
static LRESULT DayListKeyDown(HWND list, UINT msg, WPARAM wp, LPARAM lp)
{
    int days;
    switch (wp) {
    case VK_LEFT: days = -1; break;
    case VK_UP: days = -7; break;
    case VK_RIGHT: days = 1; break;
    case VK_DOWN: days = 7; break;
    default: return PassOn(list, msg, wp, lp);
    }
    MoveShownDay(GetParent(list), days);
    return 0;
}

// On the key's release, so that the dialog manager has already had its press.
static LRESULT DayListKeyUp(HWND list, UINT msg, WPARAM wp, LPARAM lp)
{
    if (wp != VK_RETURN)
        return PassOn(list, msg, wp, lp);
    SendMessageW(GetParent(list), WM_LBUTTONUP, 0, MAKELPARAM(CLOSE_TAP_X, CLOSE_TAP_Y));
    return 0;
}

static int ColumnWidth(HWND list, int column)
{
    return (int)SendMessageW(list, LVM_GETCOLUMNWIDTH, column, 0);
}

static bool OnMarkerColumn(HWND list, int x)
{
    int time = ColumnWidth(list, DAY_COL_TIME);
    return x > time && x < time + ColumnWidth(list, DAY_COL_MARKER);
}

// A tap on empty space keeps the selection in sight while there is something to paste, and
// clears it otherwise. Every tap but one on "No Appointments" starts the hold timer.
static LRESULT DayListStylusDown(HWND list, UINT, WPARAM, LPARAM lp)
{
    HWND dlg = GetParent(list);
    POINT at = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
    g_app.lastTapPoint = at;
    SetFocus(list);
    LVHITTESTINFO hit = {};
    hit.pt = at;
    int row = (int)SendMessageW(list, LVM_HITTEST, 0, (LPARAM)&hit);
    if (row < 0) {
        if (g_app.copiedItem || g_app.cutItem) {
            g_app.selectedRow = -1;
        } else {
            g_app.selectedRow = -2;
            SetRowSelected(list, -1, false);
        }
        SetTimer(dlg, TIMER_DAYLIST_HOLD, HOLD_MS, nullptr);
        return 1;
    }
    if ((row == 0 && DayRowItem(list, 0) == NO_APPOINTMENTS_ITEM) || DayRowItem(list, row) == PART_OF_DAY_ITEM)
        return 1;
    WCHAR marker[11] = L"";
    LVITEMW it = {};
    it.iSubItem = DAY_COL_MARKER;
    it.pszText = marker;
    it.cchTextMax = 11;
    SendMessageW(list, LVM_GETITEMTEXTW, row, (LPARAM)&it);
    int first = SelectAppointment(list, row);
    if (marker[0] == L' ' && OnMarkerColumn(list, at.x))
        ShowNotes(dlg, row);
    g_app.selectedRow = first;
    SetTimer(dlg, TIMER_DAYLIST_HOLD, HOLD_MS, nullptr);
    return 1;
}

static LRESULT DayListStylusUp(HWND list, UINT, WPARAM, LPARAM)
{
    KillTimer(GetParent(list), TIMER_DAYLIST_HOLD);
    return 1;
}

// A double tap arrives as a tap, then this in place of the second tap's stylus-down: it opens
// the appointment in the form, and marks the day view changed so the month is drawn again
// when it closes.
static LRESULT DayListDoubleTap(HWND list, UINT, WPARAM, LPARAM lp)
{
    HWND dlg = GetParent(list);
    LVHITTESTINFO hit = {};
    hit.pt = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
    int row = (int)SendMessageW(list, LVM_HITTEST, 0, (LPARAM)&hit);
    if (row < 0 || (row == 0 && DayRowItem(list, 0) == NO_APPOINTMENTS_ITEM) ||
        DayRowItem(list, row) == PART_OF_DAY_ITEM)
        return 0;
    g_app.selectedRow = SelectAppointment(list, row);
    g_app.editItem = (long)DayRowItem(list, row);
    SendMessageW(GetParent(dlg), WM_COMMAND, IDM_NEW, 0);
    SendMessageW(dlg, WM_DAYVIEW_EDITED, 0, 0);
    return 0;
}

// It fires once. In a plain tap the stylus is lifted first and the timer killed; a stylus
// still down when it fires is a hold, and the list's context menu opens where it went down.
void DayListHoldTimer(HWND dlg)
{
    POINT at = g_app.lastTapPoint;
    KillTimer(dlg, TIMER_DAYLIST_HOLD);
    if ((GetAsyncKeyState(VK_LBUTTON) & 0xFFFF) < 2)
        return;
    ShowDayListMenu(dlg, at);
}

struct ListEntry {
    UINT msg;
    LRESULT (*handler)(HWND, UINT, WPARAM, LPARAM);
};

static const ListEntry kDayListGestures[] = {
    {WM_KEYDOWN, DayListKeyDown},         {WM_KEYUP, DayListKeyUp},
    {WM_LBUTTONDOWN, DayListStylusDown},  {WM_LBUTTONUP, DayListStylusUp},
    {WM_LBUTTONDBLCLK, DayListDoubleTap},
};

static LRESULT CALLBACK DayListProc(HWND list, UINT msg, WPARAM wp, LPARAM lp)
{
    for (const ListEntry &e : kDayListGestures)
        if (e.msg == msg)
            return e.handler(list, msg, wp, lp);
    return PassOn(list, msg, wp, lp);
}

void SubclassDayList(HWND list)
{
    g_app.dayListPrevProc = (WNDPROC)SetWindowLongPtrW(list, GWLP_WNDPROC, (LONG_PTR)DayListProc);
}
