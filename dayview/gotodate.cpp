// The go-to-date popup: the platform's month calendar alone in a small modal popup, made to the
// calendar's own size, centred across the screen near its top, and set to the day the day view
// shows. It has no close button and handles no command: it ends only when the user picks a day.
// Turning to other months with the calendar's arrows is reported as a change of selection,
// which keeps it open.
#include "gotodate.h"
#include "calendar/datecalc.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "resource.h"

#include <commctrl.h>

const int POPUP_TOP = 50; // the popup's top edge on the screen, whatever the screen's size

// The calendar is made a child of the popup: on the desktop a window with a parent but without
// WS_CHILD would be a popup window of its own beside the dialog.
static INT_PTR GoToDateInit(HWND dlg, GoToDatePopup *p)
{
    p->calendar =
        CreateWindowExW(0, MONTHCAL_CLASSW, L"monthcalendar", WS_CHILD | WS_VISIBLE | MCS_NOTODAY,
                        0, 0, 100, 100, dlg, nullptr, g_app.hInstance, nullptr);
    RECT size = {};
    SendMessageW(p->calendar, MCM_GETMINREQRECT, 0, (LPARAM)&size);
    int width = size.right - size.left, height = size.bottom - size.top;
    SetWindowPos(p->calendar, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER);
    // The desktop's modal frame takes pixels of its own around the client area; a window of
    // the calendar's size would cut off the calendar's right and bottom edges, so the popup is
    // made the size that gives the calendar's size inside the frame.
    RECT frame = {0, 0, width, height};
    AdjustWindowRectEx(&frame, GetWindowLongW(dlg, GWL_STYLE), FALSE,
                       GetWindowLongW(dlg, GWL_EXSTYLE));
    width = frame.right - frame.left;
    height = frame.bottom - frame.top;
    MoveWindow(dlg, GetSystemMetrics(SM_CXSCREEN) / 2 - width / 2, POPUP_TOP, width, height, FALSE);

    // The time of day and the day of the week stay as the clock gave them: the calendar looks
    // at the date only.
    SYSTEMTIME date;
    GetLocalTime(&date);
    if (p->packed) {
        UnpackDate(p->packed, &p->month, &p->day, &p->year);
        date.wYear = (WORD)p->year;
        date.wMonth = (WORD)p->month;
        date.wDay = (WORD)p->day;
    }
    // A date the calendar refuses (outside its range, or no such day) leaves it on its own
    // default; the beep tells the user, and the popup stays usable.
    if (!SendMessageW(p->calendar, MCM_SETCURSEL, 0, (LPARAM)&date))
        MessageBeep(0);
    return TRUE;
}

static INT_PTR GoToDateNotify(HWND dlg, NMHDR *hdr)
{
    if (hdr->code != MCN_SELECT)
        return FALSE;
    const SYSTEMTIME &picked = ((NMSELCHANGE *)hdr)->stSelStart;
    EndDialog(dlg, PackDate(picked.wMonth, picked.wDay, picked.wYear));
    return TRUE;
}

static const DialogEntry kGoToDate[] = {
    {WM_INITDIALOG, DialogInit<GoToDateInit>},
    {WM_NOTIFY, DialogNotify<GoToDateNotify>},
};

static INT_PTR CALLBACK GoToDateProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kGoToDate, dlg, msg, wp, lp);
}

// The popup's record is its group of the program's state, cleared again once it has ended so
// that no one reads the handle of a calendar that is gone.
int GoToDate(HWND owner, int month, int day, int year, int *outMonth, int *outDay, int *outYear)
{
    int packed = month ? PackDate(month, day, year) : 0;
    g_app.goToDate = GoToDatePopup();
    g_app.goToDate.packed = packed;
    INT_PTR result = RunDialog(owner, IDD_GOTODATE, GoToDateProc, &g_app.goToDate);
    g_app.goToDate = GoToDatePopup();
    if (result == 0)
        return GOTODATE_NONE;
    if (result == -1 || result == packed)
        return GOTODATE_KEPT;
    UnpackDate((int)result, outMonth, outDay, outYear);
    return GOTODATE_NEW;
}
