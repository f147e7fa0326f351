// The Times page: the four boundaries of the month view's schedule bar (morning, afternoon and
// evening) and the default start and end of a new appointment, each picked from the day's half
// hours. The default end always follows the start: moving the start moves the end along, and an
// end picked before the start is refused.
#include "pages.h"
#include "appointment/timelist.h"
#include "calendar/datecalc.h"
#include "calendar/dates.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "platform/aygshell.h"
#include "settings.h"
#include "resource.h"

#include <commctrl.h>
#include <prsht.h>

static_assert(IDC_TIMED - IDC_TIMEA == 3 && IDC_TIMESTART > IDC_TIMED &&
                  IDC_TIMEEND > IDC_TIMESTART,
              "the page's lists take the ids from timeA's to the end's, and only they");

const COLORREF HEADING_TEXT = 0x990000;
const COLORREF FRAME_INNER = 0x00FF00;
const COLORREF FRAME_OUTER = 0x000000;
const int FRAME_CORNER = 4;
const RECT kBoundaryFrame = {6, 7, 234, 135};
const RECT kDefaultsFrame = {6, 140, 234, 225};

struct BoundaryList {
    int id;
    const WCHAR *name;
    DWORD AppSettings::*field;
    DWORD fallback; // shown for a value that is no half hour of the day
};

static const BoundaryList kBoundaries[] = {
    {IDC_TIMEA, L"timeA", &AppSettings::timeA, 12},
    {IDC_TIMEB, L"timeB", &AppSettings::timeB, 24},
    {IDC_TIMEC, L"timeC", &AppSettings::timeC, 34},
    {IDC_TIMED, L"timeD", &AppSettings::timeD, 42},
};

// The headings' bold font and the one the headings had before it; the sheet is modal, so one
// Times page lives at a time.
static HFONT g_headingFont, g_replacedFont;

// The half hour after `slot`; after 23:30 comes 24:30, the list's second entry, so that a new
// appointment never starts and ends at the same midnight.
static int NextSlot(int slot)
{
    return slot + 1 > TIME_ENTRIES - 1 ? 1 : slot + 1;
}

static int Selection(HWND page, int id)
{
    return (int)SendDlgItemMessageW(page, id, CB_GETCURSEL, 0, 0);
}

static void Select(HWND page, int id, DWORD slot, DWORD fallback)
{
    SendDlgItemMessageW(page, id, CB_SETCURSEL, slot < (DWORD)TIME_ENTRIES ? slot : fallback, 0);
}

static void StoreTime(SYSTEMTIME *time, int slot)
{
    int hour, minute;
    TimeSlotToHourMinute(slot, &hour, &minute);
    *time = SYSTEMTIME{};
    time->wHour = (WORD)hour;
    time->wMinute = (WORD)minute;
}

static INT_PTR TimesInit(HWND page, PROPSHEETPAGEW *)
{
    AppSettings &s = g_app.settings;
    for (int id : {IDC_TIMEA, IDC_TIMEB, IDC_TIMEC, IDC_TIMED, IDC_TIMESTART, IDC_TIMEEND})
        FillTimeCombo(GetDlgItem(page, id));
    for (const BoundaryList &b : kBoundaries)
        Select(page, b.id, s.*b.field, b.fallback);

    DWORD start = 24, end = 25;
    ReadSettingNumber(L"defaultStartTimeIndex", &start);
    ReadSettingNumber(L"defaultEndTimeIndex", &end);
    Select(page, IDC_TIMESTART, start, 24);
    Select(page, IDC_TIMEEND, end, 25);
    start = Selection(page, IDC_TIMESTART);
    if ((DWORD)Selection(page, IDC_TIMEEND) <= start)
        Select(page, IDC_TIMEEND, NextSlot(start), 25);
    StoreTime(&s.defaultStartTime, Selection(page, IDC_TIMESTART));
    StoreTime(&s.defaultEndTime, Selection(page, IDC_TIMEEND));

    g_headingFont = CreateViewFont(12, 0, 1);
    g_replacedFont = (HFONT)SendDlgItemMessageW(page, IDC_TIMESHEADING1, WM_GETFONT, 0, 0);
    for (int id : {IDC_TIMESHEADING1, IDC_TIMESHEADING2})
        SendDlgItemMessageW(page, id, WM_SETFONT, (WPARAM)g_headingFont, FALSE);
    return TRUE;
}

static void DrawTimesFrames(HDC dc)
{
    for (const RECT &f : {kBoundaryFrame, kDefaultsFrame})
        DrawDoubleFrame(dc, f.left, f.top, f.right, f.bottom, FRAME_CORNER, FRAME_INNER,
                        FRAME_OUTER);
}

static INT_PTR TimesPaint(HWND page, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(page, &ps);
    DrawTimesFrames(dc);
    EndPaint(page, &ps);
    return TRUE;
}

static INT_PTR TimesPrint(HWND page, UINT, WPARAM wp, LPARAM)
{
    HDC dc = (HDC)wp;
    RECT rc;
    GetClientRect(page, &rc);
    FillRect(dc, &rc, GetSysColorBrush(COLOR_BTNFACE));
    DrawTimesFrames(dc);
    return TRUE;
}

// The labels sit on the frames' white: their text is drawn without a background, the two
// headings in dark blue.
static INT_PTR TimesLabelColour(HWND, UINT, WPARAM wp, LPARAM lp)
{
    HDC dc = (HDC)wp;
    int id = GetDlgCtrlID((HWND)lp);
    if (id == IDC_TIMESHEADING1 || id == IDC_TIMESHEADING2)
        SetTextColor(dc, HEADING_TEXT);
    SetBkMode(dc, TRANSPARENT);
    return (INT_PTR)GetStockObject(NULL_BRUSH);
}

static INT_PTR TimesCommand(HWND page, int id, int code, HWND)
{
    if (code != CBN_SELCHANGE)
        return FALSE;
    if (id < IDC_TIMEA || id > IDC_TIMEEND)
        return FALSE;
    int start = Selection(page, IDC_TIMESTART);
    if (id == IDC_TIMESTART) {
        Select(page, IDC_TIMEEND, NextSlot(start), 25);
    } else if (id == IDC_TIMEEND && Selection(page, IDC_TIMEEND) <= start) {
        MessageBoxW(page, L"Default End time must be greater than Start time!", L"Error", MB_OK);
        Select(page, IDC_TIMEEND, NextSlot(start), 25);
    }
    PropSheet_Changed(GetParent(page), page);
    return TRUE;
}

static void TimesApply(HWND page)
{
    AppSettings &s = g_app.settings;
    for (const BoundaryList &b : kBoundaries) {
        s.*b.field = (DWORD)Selection(page, b.id);
        WriteSettingNumber(b.name, s.*b.field);
    }
    LoadIndicatorTimes();
    int start = Selection(page, IDC_TIMESTART), end = Selection(page, IDC_TIMEEND);
    WriteSettingNumber(L"defaultStartTimeIndex", (DWORD)start);
    StoreTime(&s.defaultStartTime, start);
    WriteSettingNumber(L"defaultEndTimeIndex", (DWORD)end);
    StoreTime(&s.defaultEndTime, end);
}

static INT_PTR TimesNotify(HWND page, NMHDR *hdr)
{
    switch (hdr->code) {
    case PSN_SETACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, 0);
    case PSN_KILLACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, FALSE);
    case PSN_APPLY:
        TimesApply(page);
        return DialogReply(page, PSNRET_NOERROR);
    }
    return FALSE;
}

// The headings get their own font back before the bold one goes.
static INT_PTR TimesDestroy(HWND page, UINT, WPARAM, LPARAM)
{
    for (int id : {IDC_TIMESHEADING1, IDC_TIMESHEADING2})
        SendDlgItemMessageW(page, id, WM_SETFONT, (WPARAM)g_replacedFont, FALSE);
    if (g_headingFont)
        DeleteObject(g_headingFont);
    g_headingFont = g_replacedFont = nullptr;
    return FALSE;
}

static const DialogEntry kTimesPage[] = {
    {WM_INITDIALOG, DialogInit<TimesInit>},
    {WM_PAINT, TimesPaint},
    {WM_PRINTCLIENT, TimesPrint},
    {WM_CTLCOLORSTATIC, TimesLabelColour},
    {WM_COMMAND, DialogCommand<TimesCommand>},
    {WM_NOTIFY, DialogNotify<TimesNotify>},
    {WM_DESTROY, TimesDestroy},
};

INT_PTR CALLBACK TimesPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kTimesPage, page, msg, wp, lp);
}
