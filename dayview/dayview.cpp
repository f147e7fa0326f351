// The day view dialog: the header with the long date, the close button and the row-colouring
// switch, the list it creates and paints row by row, and the menu bar greyed while it is open.
// Its state lives in AppState, since the main window's refresh and the list's gestures reach
// it too.
#include "dayview.h"
#include "daygestures.h"
#include "daymenu.h"
#include "daylist.h"
#include "gotodate.h"
#include "common/appstate.h"
#include "common/cursor.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "common/messages.h"
#include "calendar/dates.h"
#include "shell/render.h"
#include "shell/shell.h"
#include "resource.h"

#include <commctrl.h>
#include <oleauto.h>
#include <windowsx.h>

struct DayViewData {
    int day; // as the caller gave it
};

// The dialog's size and the list's place in it, in pixels.
const int DAYVIEW_W = 233, DAYVIEW_H = 264;
const int LIST_X = 4, LIST_Y = 22, LIST_W = 224, LIST_H = 237;
// The header strip: a tap on the date opens the go-to-date popup, one on the right end closes
// the day view, one just left of it switches the row colouring.
const int HEADER_H = 18;
const int DATE_TAP_RIGHT = 180;
const int CLOSE_LEFT = 208, SWITCH_LEFT = 194, SWITCH_RIGHT = 208;
const RECT kHeaderRect = {0, 0, 240, 20};

const COLORREF LIST_BACK = 0xEFDED6;    // the rows' default first colour, kept fixed here
const COLORREF ALL_DAY_TEXT = 0xFF0000; // pure blue
const COLORREF EXPIRED_TEXT = 0x737373;
const COLORREF ROW_LINE = 0xDEC6B5;
const COLORREF MARKER_KEY = 0xFF00FF;
const int TIME_RIGHT_MARGIN = 4; // between a time and the marker column
const int ROW_COLOUR_MODES = 4;  // by rows, by times, by category, one colour

static const int kMenuBarButtons[] = {IDM_NEW, IDM_OPTIONS, IDM_EXIT};

static void GreyMenuBar(int greyed)
{
    for (int command : kMenuBarButtons)
        SetMenuBarButtonState(command, greyed);
}

// A neighbouring month's day is 100 + the day: the grid shows only late days of the month
// before and early days of the month after, so a day below 16 lies in the next month. A day
// that its month does not have (no caller passes one) is held to the month's first or last.
static void ResolveDay(int param, int *month, int *day, int *year)
{
    *month = g_app.viewMonth < 1 || g_app.viewMonth > 12 ? 1 : g_app.viewMonth;
    *year = g_app.viewYear;
    *day = param;
    if (param > 100) {
        *day = param - 100;
        if (*day < 16) {
            if (++*month > 12) {
                *month = 1;
                ++*year;
            }
        } else if (--*month < 1) {
            *month = 12;
            --*year;
        }
    }
    int last = MonthLength(*month, *year);
    *day = *day < 1 ? 1 : *day > last ? last : *day;
}

// The handheld put the dialog 4 pixels in from the screen's edge and 5 below its navigation
// bar, where the application area begins; on the desktop the application area is the main
// window's client area.
static void PlaceDayView(HWND dlg)
{
    POINT at = {4, GetSystemMetrics(SM_CYCAPTION) + 5};
    if (g_app.hwndMain && IsWindow(g_app.hwndMain)) {
        at = {4, 5};
        ClientToScreen(g_app.hwndMain, &at);
    }
    MoveWindow(dlg, at.x, at.y, DAYVIEW_W, DAYVIEW_H, FALSE);
}

static void InsertColumn(HWND list, int index, const WCHAR *text, int format)
{
    LVCOLUMNW col = {};
    col.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_FMT;
    col.fmt = format;
    col.cx = 75;
    col.pszText = const_cast<WCHAR *>(text);
    SendMessageW(list, LVM_INSERTCOLUMNW, index, (LPARAM)&col);
}

// A list's first column cannot be made right-aligned when it is inserted; its format is set
// once it exists.
static HWND CreateDayList(HWND dlg)
{
    HWND list = CreateWindowExW(
        0, WC_LISTVIEWW, L"",
        WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP | LVS_REPORT | LVS_NOCOLUMNHEADER, LIST_X,
        LIST_Y, LIST_W, LIST_H, dlg, (HMENU)(INT_PTR)IDC_DAYLIST, g_app.hInstance, nullptr);
    if (!list)
        return nullptr;
    SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, LVS_EX_FULLROWSELECT, LVS_EX_FULLROWSELECT);
    SubclassDayList(list);
    g_app.dayListFont = CreateViewFont(12, 0, 0);
    SendMessageW(list, WM_SETFONT, (WPARAM)g_app.dayListFont, TRUE);
    InsertColumn(list, DAY_COL_TIME, L"Time", LVCFMT_LEFT);
    InsertColumn(list, DAY_COL_MARKER, L"Icon", LVCFMT_CENTER);
    InsertColumn(list, DAY_COL_SUBJECT, L"Subject", LVCFMT_LEFT);
    LVCOLUMNW right = {};
    right.mask = LVCF_FMT;
    right.fmt = LVCFMT_RIGHT;
    SendMessageW(list, LVM_SETCOLUMNW, DAY_COL_TIME, (LPARAM)&right);
    SendMessageW(list, LVM_SETBKCOLOR, 0, LIST_BACK);
    SendMessageW(list, LVM_SETTEXTBKCOLOR, 0, LIST_BACK);
    return list;
}

// The focus is given to the list here; the dialog manager keeps it there.
static INT_PTR DayViewInit(HWND dlg, DayViewData *d)
{
    g_app.savedViewMode = g_app.viewMode;
    g_app.viewMode = VIEW_DAY;
    g_app.dayViewParam = d->day > 100 ? d->day - 100 : d->day;
    ResolveDay(d->day, &g_app.shownMonth, &g_app.shownDay, &g_app.shownYear);
    PlaceDayView(dlg);
    g_app.dayHeaderBitmap = (HBITMAP)LoadImageW(g_app.hInstance, MAKEINTRESOURCEW(IDB_DAYHEADER),
                                                IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
    g_app.dayList = CreateDayList(dlg);
    WaitCursorOn();
    RefillDayList();
    WaitCursorOff();
    SetFocus(g_app.dayList);
    g_app.savedRowFont = nullptr;
    GreyMenuBar(1);
    return FALSE;
}

void PaintDayView(HDC dc, int width, int height)
{
    PatBlt(dc, 0, 0, 240, 360, WHITENESS);
    DrawBitmapAt(dc, g_app.dayHeaderBitmap, 0, 0);
    {
        ScopedPen black(CreatePen(PS_SOLID, 1, 0x000000));
        ScopedSelect selectPen(dc, black);
        POINT frame[5] = {{0, 0}, {width - 1, 0}, {width - 1, height - 1}, {0, height - 1}, {0, 0}};
        Polyline(dc, frame, 5);
    }
    ScopedFont bold(CreateViewFont(13, 0, 1));
    ScopedSelect selectFont(dc, bold);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, 0xFFFFFF);
    SYSTEMTIME st = SystemDate(g_app.shownMonth, g_app.shownDay, g_app.shownYear);
    st.wDayOfWeek = (WORD)DayOfWeek(g_app.shownMonth, g_app.shownDay, g_app.shownYear);
    WCHAR date[150] = L"";
    GetDateFormatW(LOCALE_SYSTEM_DEFAULT, DATE_LONGDATE, &st, nullptr, date, 150);
    RECT rc = {5, 2, 245, 17};
    DrawTextW(dc, date, -1, &rc, 0);
}

static INT_PTR DayViewPaint(HWND dlg, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(dlg, &ps);
    RECT rc;
    GetClientRect(dlg, &rc);
    PaintDayView(dc, rc.right, rc.bottom);
    EndPaint(dlg, &ps);
    return TRUE;
}

// What the dialog paints, into another DC (a screenshot, a print).
static INT_PTR DayViewPrintClient(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    RECT rc;
    GetClientRect(dlg, &rc);
    PaintDayView((HDC)wp, rc.right, rc.bottom);
    return TRUE;
}

// The only way out of the day view. The month is drawn again only when something in the day
// view may have changed the store.
static void CloseDayView(HWND dlg)
{
    g_app.viewMode = g_app.savedViewMode;
    GreyMenuBar(0);
    WaitCursorOn();
    EndDialog(dlg, 0);
    if (g_app.dayViewDirty == 1)
        RequestRedraw();
    g_app.dayViewDirty = 0;
    WaitCursorOff();
}

// The mode is the user's choice for this run only; the settings keep theirs. A mode out of
// range (a damaged setting) starts over at the first.
static void SwitchRowColouring()
{
    DWORD &mode = g_app.settings.rowcolorindex;
    if (++mode >= ROW_COLOUR_MODES)
        mode = 0;
    InvalidateRect(g_app.dayList, nullptr, TRUE);
}

// A tap on the date opens the go-to-date popup on the shown day; a day picked there is shown.
// Picking the same day again, or none, changes nothing.
static INT_PTR DayViewTapDown(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    int x = GET_X_LPARAM(lp), y = GET_Y_LPARAM(lp);
    if (x >= DATE_TAP_RIGHT || y >= HEADER_H)
        return TRUE;
    int month, day, year;
    if (GoToDate(dlg, g_app.shownMonth, g_app.shownDay, g_app.shownYear, &month, &day, &year) !=
        GOTODATE_NEW)
        return TRUE;
    g_app.shownMonth = month;
    g_app.shownDay = day;
    g_app.shownYear = year;
    WaitCursorOn();
    RefillDayList();
    WaitCursorOff();
    InvalidateRect(dlg, &kHeaderRect, FALSE);
    SetFocus(g_app.dayList);
    return TRUE;
}

// The close test comes first: a tap at x 208 in the strip closes. The switch does not look at
// the height, so a tap just below the strip switches too.
static INT_PTR DayViewTapUp(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    int x = GET_X_LPARAM(lp), y = GET_Y_LPARAM(lp);
    if (x >= CLOSE_LEFT && y < HEADER_H)
        CloseDayView(dlg);
    else if (x >= SWITCH_LEFT && x <= SWITCH_RIGHT)
        SwitchRowColouring();
    return TRUE;
}

static INT_PTR DayViewTimer(HWND dlg, UINT, WPARAM id, LPARAM)
{
    if (id == TIMER_DAYLIST_HOLD)
        DayListHoldTimer(dlg);
    return TRUE;
}

static INT_PTR DayViewEdited(HWND dlg, UINT, WPARAM, LPARAM)
{
    g_app.dayViewDirty = 1;
    return DialogReply(dlg, 1);
}

// The dialog can also go with its owner; the view mode is put back either way.
static INT_PTR DayViewDestroy(HWND, UINT, WPARAM, LPARAM)
{
    if (g_app.dayHeaderBitmap)
        DeleteObject(g_app.dayHeaderBitmap);
    if (g_app.dayListFont)
        DeleteObject(g_app.dayListFont);
    g_app.dayHeaderBitmap = nullptr;
    g_app.dayListFont = nullptr;
    g_app.dayList = nullptr;
    g_app.viewMode = g_app.savedViewMode;
    std::vector<OleDate>().swap(g_app.rowStart);
    std::vector<DWORD>().swap(g_app.rowParity);
    std::vector<COLORREF>().swap(g_app.rowCategoryColor);
    return FALSE;
}

// ---- row painting ----------------------------------------------------------

static void RowText(HWND list, int row, int column, WCHAR *text, int length)
{
    text[0] = 0;
    LVITEMW it = {};
    it.iSubItem = column;
    it.pszText = text;
    it.cchTextMax = length;
    SendMessageW(list, LVM_GETITEMTEXTW, row, (LPARAM)&it);
}

template <class T> static T RowValue(const std::vector<T> &values, size_t row, T fallback)
{
    return row < values.size() ? values[row] : fallback;
}

static COLORREF RowBackground(size_t row)
{
    const AppSettings &s = g_app.settings;
    switch (s.rowcolorindex) {
    case 0: return RowValue(g_app.rowParity, row, (DWORD)1) == 1 ? s.row1color : s.row2color;
    case 1: {
        // Morning and evening share the first colour; the afternoon takes the second.
        float start = (float)RowValue(g_app.rowStart, row, 0.0);
        float fraction = start - (float)(long long)start;
        if (fraction > g_app.timeBandMorningEnd && fraction <= g_app.timeBandAfternoonEnd)
            return s.row2color;
        return s.row1color;
    }
    case 2: return RowValue(g_app.rowCategoryColor, row, s.row1color);
    }
    return s.row1color;
}

// The appointment's start against the present, both in single precision as the colouring has
// always compared them: an appointment begun a few minutes ago may still count as to come.
static bool RowExpired(size_t row)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    double present = 0;
    SystemTimeToVariantTime(&now, &present);
    return (float)RowValue(g_app.rowStart, row, 0.0) < (float)present;
}

// The list's own font back in place of the bold one, which goes.
static void RestoreRowFont(HDC dc)
{
    if (!g_app.savedRowFont)
        return;
    DeleteObject(SelectObject(dc, g_app.savedRowFont));
    g_app.savedRowFont = nullptr;
}

static LRESULT RowPrePaint(HWND list, NMLVCUSTOMDRAW *cd)
{
    const AppSettings &s = g_app.settings;
    int row = (int)cd->nmcd.dwItemSpec;
    g_app.prevRowItem = row > 0 ? DayRowItem(list, row - 1) : 0;
    g_app.curRowItem = cd->nmcd.lItemlParam;
    COLORREF text = s.textcolor, back = RowBackground((size_t)row);
    LRESULT answer = CDRF_NOTIFYPOSTPAINT | CDRF_NOTIFYSUBITEMDRAW;

    WCHAR time[81];
    RowText(list, row, DAY_COL_TIME, time, 81);
    if (wcsncmp(time, L"All Day", 7) == 0)
        text = ALL_DAY_TEXT;
    if (wcsncmp(time, L"No Appointments", 7) == 0) {
        RestoreRowFont(cd->nmcd.hdc); // one left from a paint that ended early
        HFONT bold = CreateViewFont(12, 0, 1);
        g_app.savedRowFont = (HFONT)SelectObject(cd->nmcd.hdc, bold);
        text = 0x000000;
        back = 0xFFFFFF;
        answer |= CDRF_NEWFONT;
    }
    WCHAR marker[11];
    RowText(list, row, DAY_COL_MARKER, marker, 11);
    if (g_app.prevRowItem == g_app.curRowItem)
        text = g_app.lastRowTextColor;
    if (lstrlenW(marker) == 1)
        text = s.locationcolor;
    if (s.colorexpired == 1 && RowExpired((size_t)row))
        text = EXPIRED_TEXT;
    g_app.lastRowTextColor = text;
    g_app.lastRowBackColor = back;
    cd->clrText = text;
    cd->clrTextBk = back;
    return answer;
}

// A row the list shows as selected (it does so only while it has the focus), in the
// selection's colours.
static bool ShownSelected(HWND list, int row)
{
    return GetFocus() == list &&
           (SendMessageW(list, LVM_GETITEMSTATE, row, LVIS_SELECTED) & LVIS_SELECTED);
}

// The time column and the marker column are painted here rather than by the list: the list
// draws a first column's text on the left whatever its format says, and the marker column's
// text is only a code for the painting, which a selected row would show in the selection's
// colours. The subject column is the list's, in the row's colours.
static LRESULT SubItemPrePaint(HWND list, NMLVCUSTOMDRAW *cd)
{
    int row = (int)cd->nmcd.dwItemSpec, column = cd->iSubItem;
    if (column != DAY_COL_TIME && column != DAY_COL_MARKER) {
        cd->clrText = g_app.lastRowTextColor;
        cd->clrTextBk = g_app.lastRowBackColor;
        return CDRF_DODEFAULT;
    }
    // The marker column's bounds; the time column ends where it begins.
    RECT marker = {}, rc = {};
    marker.top = DAY_COL_MARKER;
    marker.left = LVIR_BOUNDS;
    rc.top = column;
    rc.left = column == DAY_COL_TIME ? LVIR_LABEL : LVIR_BOUNDS;
    if (!SendMessageW(list, LVM_GETSUBITEMRECT, row, (LPARAM)&marker) ||
        !SendMessageW(list, LVM_GETSUBITEMRECT, row, (LPARAM)&rc))
        return CDRF_DODEFAULT;
    if (column == DAY_COL_TIME)
        rc.right = marker.left;
    bool selected = ShownSelected(list, row);
    HDC dc = cd->nmcd.hdc;
    FillCellRect(dc, rc.left, rc.top, rc.right, rc.bottom,
                 selected ? GetSysColor(COLOR_HIGHLIGHT) : g_app.lastRowBackColor);
    if (column == DAY_COL_TIME) {
        WCHAR time[81];
        RowText(list, row, DAY_COL_TIME, time, 81);
        int mode = SetBkMode(dc, TRANSPARENT);
        COLORREF colour =
            SetTextColor(dc, selected ? GetSysColor(COLOR_HIGHLIGHTTEXT) : g_app.lastRowTextColor);
        UINT align = SetTextAlign(dc, TA_RIGHT | TA_TOP);
        TEXTMETRICW tm = {};
        GetTextMetricsW(dc, &tm);
        int y = (rc.top + rc.bottom - tm.tmHeight) / 2;
        ExtTextOutW(dc, rc.right - TIME_RIGHT_MARGIN, y, ETO_CLIPPED, &rc, time,
                    (UINT)lstrlenW(time), nullptr);
        SetTextAlign(dc, align);
        SetTextColor(dc, colour);
        SetBkMode(dc, mode);
    }
    return CDRF_SKIPDEFAULT;
}

static void DrawRowLines(HWND list, HDC dc, int row)
{
    for (int column = DAY_COL_TIME; column <= DAY_COL_SUBJECT; column++) {
        RECT rc = {};
        rc.top = column;
        rc.left = LVIR_LABEL;
        if (!SendMessageW(list, LVM_GETSUBITEMRECT, row, (LPARAM)&rc))
            break;
        MoveToEx(dc, rc.left - 1, rc.top - 1, nullptr);
        LineTo(dc, rc.right, rc.top - 1);
        MoveToEx(dc, rc.left - 1, rc.bottom, nullptr);
        LineTo(dc, rc.right - 1, rc.bottom);
    }
}

static void DrawRowMarkers(HWND list, HDC dc, int row)
{
    WCHAR marker[11];
    RowText(list, row, DAY_COL_MARKER, marker, 11);
    RECT rc = {};
    rc.top = DAY_COL_MARKER;
    rc.left = LVIR_LABEL;
    if (!SendMessageW(list, LVM_GETSUBITEMRECT, row, (LPARAM)&rc))
        return;
    int length = lstrlenW(marker), x = rc.left + 2, y = rc.top + 2;
    if (length == 4) {
        DrawBitmapAt(dc, g_app.bmpAlarm, x, y);
        DrawTransparentBitmapAt(dc, g_app.bmpNotes, 0, 0, x + 10, y, 9, 8, MARKER_KEY);
    } else if (length >= 2 && marker[1] == L'.') {
        DrawBitmapAt(dc, g_app.bmpAlarm, x, y);
    } else if (length == 2) {
        DrawTransparentBitmapAt(dc, g_app.bmpNotes, 0, 0, x, y, 9, 8, MARKER_KEY);
    }
}

// An appointment's first row is ruled above and below, column by column.
static LRESULT RowPostPaint(HWND list, NMLVCUSTOMDRAW *cd)
{
    HDC dc = cd->nmcd.hdc;
    int row = (int)cd->nmcd.dwItemSpec;
    {
        ScopedPen pen(CreatePen(PS_SOLID, 1, ROW_LINE));
        ScopedSelect selectPen(dc, pen);
        ScopedSelect selectBrush(dc, GetStockObject(NULL_BRUSH));
        if (cd->nmcd.lItemlParam != g_app.prevRowItem)
            DrawRowLines(list, dc, row);
        DrawRowMarkers(list, dc, row);
    }
    RestoreRowFont(dc);
    return CDRF_DODEFAULT;
}

static LRESULT PaintDayRows(NMLVCUSTOMDRAW *cd)
{
    HWND list = cd->nmcd.hdr.hwndFrom;
    switch (cd->nmcd.dwDrawStage) {
    case CDDS_PREPAINT: return CDRF_NOTIFYITEMDRAW;
    case CDDS_ITEMPREPAINT: return RowPrePaint(list, cd);
    case CDDS_ITEMPREPAINT | CDDS_SUBITEM: return SubItemPrePaint(list, cd);
    case CDDS_ITEMPOSTPAINT: return RowPostPaint(list, cd);
    }
    return CDRF_DODEFAULT;
}

// Other notifications are answered 0, so that no stale answer ever refuses a change of the
// list's selection.
static INT_PTR DayViewNotify(HWND dlg, NMHDR *hdr)
{
    if (hdr->idFrom != IDC_DAYLIST || hdr->code != (UINT)NM_CUSTOMDRAW)
        return DialogReply(dlg, 0);
    return DialogReply(dlg, PaintDayRows((NMLVCUSTOMDRAW *)hdr));
}

static const DialogEntry kDayView[] = {
    {WM_INITDIALOG, DialogInit<DayViewInit>},
    {WM_PAINT, DayViewPaint},
    {WM_PRINTCLIENT, DayViewPrintClient},
    {WM_LBUTTONDOWN, DayViewTapDown},
    {WM_LBUTTONUP, DayViewTapUp},
    {WM_NOTIFY, DialogNotify<DayViewNotify>},
    {WM_TIMER, DayViewTimer},
    {WM_COMMAND, DialogCommand<DayViewCommand>},
    {WM_DAYVIEW_EDITED, DayViewEdited},
    {WM_DESTROY, DayViewDestroy},
};

static INT_PTR CALLBACK DayViewProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kDayView, dlg, msg, wp, lp);
}

int ShowDayView(HWND owner, int day)
{
    DayViewData d = {day};
    return (int)RunDialog(owner, IDD_DAYVIEW, DayViewProc, &d);
}
