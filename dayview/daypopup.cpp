// The day popup (IDD_DAYPOPUP): a borderless balloon with a title strip carrying the date and
// a two-column list of the day's appointments, their times as the day view writes them and
// their subjects.
//
// Its shape: a rectangle with rounded corners, white inside, framed by a 2-pixel black line
// that follows the window's region; the title strip (bitmap IDB_POPUPTITLE) is stretched across
// the top 14 pixels and the corners clip it; the list sits under the strip, at most ten rows
// high, and the balloon ends 8 pixels below it.
#include "daypopup.h"
#include "daylist.h"
#include "daytext.h"
#include "common/appstate.h"
#include "common/cursor.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "calendar/dates.h"
#include "store/store.h"
#include "resource.h"

#include <commctrl.h>

enum {
    TITLE_HEIGHT = 14,  // the strip the bitmap is stretched over
    TITLE_TEXT_TOP = 2, // the band the date is centred in
    TITLE_TEXT_BOTTOM = 12,
    LIST_LEFT = 1,
    LIST_TOP = TITLE_HEIGHT + 1,
    BELOW_LIST = 23,   // the popup is this much taller than its list
    CORNER = 12,       // the rounded corners' ellipse
    ROWS_SHOWN = 10,   // more rows than this scroll
    ROW_ESTIMATE = 13, // the list font's row, for the list's size estimate
    EDGE_MARGIN = 3,   // the popup keeps this far inside the main window
    NO_ROWS_TIME_WIDTH = 90,
    TITLE_LEN = 80,
};

struct DayPopupData {
    int month, day, year;
    int rows; // appointments listed; 0 when the list holds the "No Appointments" row
    int held; // opened under the stylus that held the day, still down
    WCHAR title[TITLE_LEN];
};

BOOL StylusIsDown()
{
    // The asynchronous state is the physical button's; with the buttons swapped the stylus's
    // taps come from the other one.
    int button = GetSystemMetrics(SM_SWAPBUTTON) ? VK_RBUTTON : VK_LBUTTON;
    return (GetAsyncKeyState(button) & 0xFFFF) > 1;
}

BOOL GridDayDate(DWORD day, int viewMonth, int viewYear, int *month, int *dayOfMonth, int *year)
{
    if (viewMonth < 1 || viewMonth > 12 || day > 131)
        return FALSE;
    int m = viewMonth, y = viewYear, d = (int)day;
    // Days shown before the first of the month are always late in theirs, days shown after the
    // last always early: 16 splits them.
    if (day > 100) {
        d = (int)day - 100;
        m += d < 16 ? 1 : -1;
        if (m > 12) {
            m = 1;
            y++;
        } else if (m < 1) {
            m = 12;
            y--;
        }
    }
    if (d < 1 || d > MonthLength(m, y))
        return FALSE;
    *month = m;
    *dayOfMonth = d;
    *year = y;
    return TRUE;
}

// ---- the list ---------------------------------------------------------------

static void InsertPopupRow(HWND list, int row, const WCHAR *time, const WCHAR *subject, LPARAM data)
{
    LVITEMW item = {};
    item.mask = LVIF_TEXT | LVIF_PARAM;
    item.iItem = row;
    item.pszText = (LPWSTR)time;
    item.lParam = data;
    int at = (int)SendMessageW(list, LVM_INSERTITEMW, 0, (LPARAM)&item);
    if (at < 0)
        return;
    item.mask = LVIF_TEXT;
    item.iSubItem = 1;
    item.pszText = (LPWSTR)subject;
    SendMessageW(list, LVM_SETITEMTEXTW, at, (LPARAM)&item);
}

struct PopupFill {
    HWND list;
    int day; // the day's OleDate day number
    int rows;
};

static int AddPopupRow(IAppointment *item, void *context)
{
    PopupFill *fill = (PopupFill *)context;
    AppointmentTimes times;
    if (!ReadAppointmentTimes(item, &times) || !ListsOnDay(times.start, times.end, fill->day))
        return 1;
    WCHAR time[TIME_TEXT_LEN];
    DayTimeText(times.start, times.end, times.allDay, fill->day, time, TIME_TEXT_LEN);
    long oid = 0;
    item->get_Oid(&oid);
    BSTR subject = nullptr;
    item->get_Subject(&subject);
    InsertPopupRow(fill->list, fill->rows, time, subject ? subject : L"", oid);
    FreeStoreString(subject);
    fill->rows++;
    return 1;
}

// Lists the day's appointments, each in a row that carries its identifier; a day without any
// gets one "No Appointments" row. Returns the appointments listed.
static int FillPopupList(HWND list, int month, int day, int year)
{
    static const WCHAR *const kColumns[] = {L"Time", L"Subject"};
    for (int i = 0; i < 2; i++) {
        LVCOLUMNW col = {};
        col.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
        col.pszText = (LPWSTR)kColumns[i];
        col.cx = 60;
        col.iSubItem = i;
        SendMessageW(list, LVM_INSERTCOLUMNW, i, (LPARAM)&col);
    }
    SYSTEMTIME first = SystemDate(month, day, year), second = first;
    second.wHour = 24;
    PopupFill fill = {list, OleDayNumber(month, day, year), 0};
    // A series that floods the day is listed once per half hour, as the day view lists it,
    // and the last row says so.
    DayGrid halfHours;
    ListDayGrid(&halfHours);
    int thinned = 0;
    WaitCursorOn();
    QueryAppointments(first, second, RestrictOverlapClosed, AddPopupRow, &fill, QUERY_UI, &halfHours,
                      &thinned);
    WaitCursorOff();
    // The note a line a row, as the day list writes it: the popup is too narrow for one.
    for (const WCHAR *line = kPartOfDayText; thinned && *line;) {
        const WCHAR *end = wcschr(line, L'\n');
        size_t length = end ? (size_t)(end - line) : wcslen(line);
        WCHAR text[64];
        lstrcpynW(text, line, length + 1 < ARRAYSIZE(text) ? (int)length + 1 : (int)ARRAYSIZE(text));
        InsertPopupRow(list, fill.rows++, L"", text, PART_OF_DAY_ITEM);
        line += length + (end ? 1 : 0);
    }
    if (fill.rows) {
        SendMessageW(list, LVM_SETCOLUMNWIDTH, 0, LVSCW_AUTOSIZE);
        SendMessageW(list, LVM_SETCOLUMNWIDTH, 1, LVSCW_AUTOSIZE);
    } else {
        InsertPopupRow(list, 0, L"No Appointments", L"", -1);
        SendMessageW(list, LVM_SETCOLUMNWIDTH, 0, NO_ROWS_TIME_WIDTH);
        SendMessageW(list, LVM_SETCOLUMNWIDTH, 1, LVSCW_AUTOSIZE);
    }
    return fill.rows;
}

// The list is as high as the list view estimates for its rows, ten at most; more scroll.
// Returns its height.
static int SizePopupList(HWND dlg, HWND list, int rows)
{
    RECT client;
    GetClientRect(dlg, &client);
    int shown = rows > ROWS_SHOWN ? ROWS_SHOWN : rows < 1 ? 1 : rows;
    DWORD estimate = (DWORD)SendMessageW(list, LVM_APPROXIMATEVIEWRECT, shown,
                                         MAKELPARAM(client.right - 15, shown * ROW_ESTIMATE + 10));
    int height = HIWORD(estimate);
    if (height <= 0 || height > 4 * shown * ROW_ESTIMATE + 40)
        height = shown * ROW_ESTIMATE; // no sensible estimate: the font's rows
    height += 3;
    SetWindowPos(list, nullptr, LIST_LEFT, LIST_TOP, client.right - 3, height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    return height;
}

// The subject column takes the rest of the list's width, less a scroll bar's room when the
// day has more rows than show; a subject longer than that ends in an ellipsis. The width is
// measured without the scroll bars a long subject's fitted column brought.
static void WidenSubjectColumn(HWND list, int rows)
{
    if (!rows)
        return;
    SendMessageW(list, LVM_SETCOLUMNWIDTH, 1, 0);
    RECT client;
    GetClientRect(list, &client);
    if (GetWindowLongW(list, GWL_STYLE) & WS_VSCROLL)
        client.right += GetSystemMetrics(SM_CXVSCROLL);
    int time = (int)SendMessageW(list, LVM_GETCOLUMNWIDTH, 0, 0);
    int subject = client.right - time - (rows > ROWS_SHOWN ? 24 : 8);
    SendMessageW(list, LVM_SETCOLUMNWIDTH, 1, subject > 20 ? subject : 20);
}

// ---- placing and painting ---------------------------------------------------------------

// Below and to the left of the held day's cell, pulled back inside the main window's client
// area with a small margin, so the popup is always whole on the screen.
static void PlacePopup(HWND dlg, int clientHeight)
{
    RECT window, client;
    GetWindowRect(dlg, &window);
    GetClientRect(dlg, &client);
    int width = window.right - window.left;
    int height = clientHeight + (window.bottom - window.top) - client.bottom;
    RECT area;
    POINT at = {g_app.tapCellX - 15, g_app.tapCellY + 10};
    HWND main = g_app.hwndMain;
    if (main && IsWindow(main)) {
        GetClientRect(main, &area);
        MapWindowPoints(main, HWND_DESKTOP, (POINT *)&area, 2);
        ClientToScreen(main, &at);
    } else {
        SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
    }
    if (at.x > area.right - EDGE_MARGIN - width)
        at.x = area.right - EDGE_MARGIN - width;
    if (at.y > area.bottom - EDGE_MARGIN - height)
        at.y = area.bottom - EDGE_MARGIN - height;
    if (at.x < area.left + EDGE_MARGIN)
        at.x = area.left + EDGE_MARGIN;
    if (at.y < area.top + EDGE_MARGIN)
        at.y = area.top + EDGE_MARGIN;
    SetWindowPos(dlg, nullptr, at.x, at.y, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
}

// The date by the order of the system's short date: month first, day first or year first.
static void FormatPopupTitle(int month, int day, int year, WCHAR *text, int length)
{
    WCHAR order[4] = L"0";
    GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_IDATE, order, 4);
    const WCHAR *picture = order[0] == L'1'   ? L"dd MMMM yyyy"
                           : order[0] == L'2' ? L"yyyy MMMM dd"
                                              : L"MMMM dd',' yyyy";
    SYSTEMTIME date = SystemDate(month, day, year);
    if (!GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &date, picture, text, length))
        text[0] = 0;
}

static void PaintDayPopup(HDC dc, int width, int height, const WCHAR *title, HRGN shape)
{
    int saved = SaveDC(dc);
    if (shape)
        SelectClipRgn(dc, shape);
    RECT all = {0, 0, width, height};
    FillRect(dc, &all, g_app.popupBrush);
    BITMAP strip;
    if (g_app.popupTitleBitmap && GetObjectW(g_app.popupTitleBitmap, sizeof(strip), &strip)) {
        ScopedMemoryDC source(dc);
        ScopedSelect bitmap(source, g_app.popupTitleBitmap);
        int oldMode = SetStretchBltMode(dc, COLORONCOLOR);
        StretchBlt(dc, 0, 0, width, TITLE_HEIGHT, source, 0, 0, strip.bmWidth, strip.bmHeight,
                   SRCCOPY);
        SetStretchBltMode(dc, oldMode);
    }
    {
        ScopedSelect pen(dc, g_app.popupPen);
        ScopedSelect hollow(dc, GetStockObject(NULL_BRUSH));
        RoundRect(dc, 0, 0, width, height, CORNER, CORNER);
    }
    ScopedSelect font(dc, g_app.popupTitleFont);
    int oldBk = SetBkMode(dc, TRANSPARENT);
    COLORREF oldText = SetTextColor(dc, RGB(255, 255, 255));
    RECT band = {0, TITLE_TEXT_TOP, width, TITLE_TEXT_BOTTOM};
    DrawTextW(dc, title, -1, &band,
              DT_CENTER | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX | DT_NOCLIP);
    SetTextColor(dc, oldText);
    SetBkMode(dc, oldBk);
    RestoreDC(dc, saved);
}

// ---- the dialog ---------------------------------------------------------------------------

static void FreeDayPopupObjects()
{
    HGDIOBJ *objects[] = {(HGDIOBJ *)&g_app.popupBrush,       (HGDIOBJ *)&g_app.popupPen,
                          (HGDIOBJ *)&g_app.popupListFont,    (HGDIOBJ *)&g_app.popupTitleFont,
                          (HGDIOBJ *)&g_app.popupTitleBitmap, (HGDIOBJ *)&g_app.popupRegion};
    for (HGDIOBJ *object : objects) {
        if (*object)
            DeleteObject(*object);
        *object = nullptr;
    }
}

static INT_PTR DayPopupInit(HWND dlg, DayPopupData *d)
{
    HWND list = GetDlgItem(dlg, IDC_POPUPLIST);
    g_app.popupBrush = CreateSolidBrush(RGB(255, 255, 255));
    // An inside-frame pen keeps both of its pixels inside the balloon's region.
    g_app.popupPen = CreatePen(PS_INSIDEFRAME, 2, RGB(0, 0, 0));
    g_app.popupListFont = CreateViewFont(11, 0, 0);
    SendMessageW(list, WM_SETFONT, (WPARAM)g_app.popupListFont, FALSE);
    SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, LVS_EX_FULLROWSELECT, LVS_EX_FULLROWSELECT);

    d->rows = FillPopupList(list, d->month, d->day, d->year);
    int listHeight = SizePopupList(dlg, list, d->rows);
    WidenSubjectColumn(list, d->rows);
    PlacePopup(dlg, listHeight + BELOW_LIST);

    g_app.popupTitleBitmap = (HBITMAP)LoadImageW(g_app.hInstance, MAKEINTRESOURCEW(IDB_POPUPTITLE),
                                                 IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
    g_app.popupTitleFont = CreateViewFont(11, 0, 1);
    // The title is also the window's text, for whatever reads windows rather than pixels.
    FormatPopupTitle(d->month, d->day, d->year, d->title, TITLE_LEN);
    SetWindowTextW(dlg, d->title);

    // The window takes the region it is given for its own; the popup keeps the shape, which
    // also clips its painting wherever it paints, and hands the window a copy.
    RECT client;
    GetClientRect(dlg, &client);
    g_app.popupRegion =
        CreateRoundRectRgn(0, 0, client.right + 1, client.bottom + 1, CORNER, CORNER);
    HRGN shape = CreateRectRgn(0, 0, 0, 0);
    if (shape && CombineRgn(shape, g_app.popupRegion, nullptr, RGN_COPY) != ERROR)
        SetWindowRgn(dlg, shape, FALSE);
    else if (shape)
        DeleteObject(shape);

    // The stylus that held the day is still down: its release must reach the popup wherever it
    // happens, over the list or over the main window, as the handheld gave a stylus's release
    // to the window it went down in. The popup takes the capture once it shows; and the window
    // the stylus went down in stays enabled, since Wine drops a release the X server reports
    // for a disabled window before any capture can route it.
    d->held = StylusIsDown();
    HWND owner = GetWindow(dlg, GW_OWNER);
    if (d->held && owner)
        EnableWindow(owner, TRUE);
    return TRUE;
}

// Activating the dialog cancels any capture (Wine's dialog manager sends the popup
// WM_CANCELMODE then), so the held stylus is taken only once the popup shows.
static INT_PTR DayPopupShow(HWND dlg, UINT, WPARAM shown, LPARAM)
{
    DayPopupData *d = DialogData<DayPopupData>(dlg);
    if (shown && d && d->held && StylusIsDown())
        SetCapture(dlg);
    return FALSE;
}

static INT_PTR CloseDayPopup(HWND dlg)
{
    // EndDialog hides the popup, and the hiding takes the activation away again.
    if (!IsWindowVisible(dlg))
        return TRUE;
    if (GetCapture() == dlg)
        ReleaseCapture();
    EndDialog(dlg, 0);
    return TRUE;
}

static INT_PTR DayPopupCommand(HWND dlg, int id, int, HWND)
{
    // Enter and Escape close it as a tap does.
    if (id == IDM_POPUPCLOSE || id == IDOK || id == IDCANCEL)
        return CloseDayPopup(dlg);
    return FALSE;
}

// A tap on a row closes the popup as a tap elsewhere on it does; the list's scroll bar still
// scrolls.
// The rows saying that only part of the day is listed are drawn across both columns, the
// popup being too narrow for them in the subject's column alone.
static INT_PTR DrawPopupRow(HWND dlg, NMLVCUSTOMDRAW *cd)
{
    if (cd->nmcd.dwDrawStage == CDDS_PREPAINT)
        return DialogReply(dlg, CDRF_NOTIFYITEMDRAW);
    if (cd->nmcd.dwDrawStage != CDDS_ITEMPREPAINT || cd->nmcd.lItemlParam != PART_OF_DAY_ITEM)
        return DialogReply(dlg, CDRF_DODEFAULT);
    HWND list = cd->nmcd.hdr.hwndFrom;
    int row = (int)cd->nmcd.dwItemSpec;
    RECT bounds = {LVIR_BOUNDS, 0, 0, 0};
    SendMessageW(list, LVM_GETITEMRECT, row, (LPARAM)&bounds);
    WCHAR text[64] = L"";
    LVITEMW item = {};
    item.iSubItem = 1;
    item.pszText = text;
    item.cchTextMax = ARRAYSIZE(text);
    SendMessageW(list, LVM_GETITEMTEXTW, row, (LPARAM)&item);
    FillRect(cd->nmcd.hdc, &bounds, (HBRUSH)GetStockObject(WHITE_BRUSH));
    SetTextColor(cd->nmcd.hdc, RGB(0, 0, 0));
    SetBkMode(cd->nmcd.hdc, TRANSPARENT);
    bounds.left += 4;
    DrawTextW(cd->nmcd.hdc, text, -1, &bounds, DT_LEFT | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
    return DialogReply(dlg, CDRF_SKIPDEFAULT);
}

static INT_PTR DayPopupNotify(HWND dlg, NMHDR *hdr)
{
    if (hdr->idFrom == IDC_POPUPLIST && hdr->code == NM_CLICK)
        return CloseDayPopup(dlg);
    if (hdr->idFrom == IDC_POPUPLIST && hdr->code == NM_CUSTOMDRAW)
        return DrawPopupRow(dlg, (NMLVCUSTOMDRAW *)hdr);
    return FALSE;
}

static INT_PTR DayPopupRelease(HWND dlg, UINT, WPARAM, LPARAM)
{
    return CloseDayPopup(dlg);
}

static INT_PTR DayPopupActivate(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    if (LOWORD(wp) == WA_INACTIVE)
        CloseDayPopup(dlg);
    return FALSE;
}

static void PaintDayPopupWindow(HWND dlg, HDC dc)
{
    RECT client;
    GetClientRect(dlg, &client);
    DayPopupData *d = DialogData<DayPopupData>(dlg);
    PaintDayPopup(dc, client.right, client.bottom, d ? d->title : L"", g_app.popupRegion);
}

static INT_PTR DayPopupPaint(HWND dlg, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(dlg, &ps);
    PaintDayPopupWindow(dlg, dc);
    EndPaint(dlg, &ps);
    return TRUE;
}

static INT_PTR DayPopupPrint(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    PaintDayPopupWindow(dlg, (HDC)wp);
    return TRUE;
}

// The paint covers every pixel; erasing first would only flicker.
static INT_PTR DayPopupErase(HWND, UINT, WPARAM, LPARAM)
{
    return TRUE;
}

static INT_PTR DayPopupDestroy(HWND dlg, UINT, WPARAM, LPARAM)
{
    SendDlgItemMessageW(dlg, IDC_POPUPLIST, WM_SETFONT, 0, FALSE);
    FreeDayPopupObjects();
    return FALSE;
}

static const DialogEntry kDayPopup[] = {
    {WM_INITDIALOG, DialogInit<DayPopupInit>},
    {WM_COMMAND, DialogCommand<DayPopupCommand>},
    {WM_NOTIFY, DialogNotify<DayPopupNotify>},
    {WM_LBUTTONUP, DayPopupRelease},
    {WM_ACTIVATE, DayPopupActivate},
    {WM_SHOWWINDOW, DayPopupShow},
    {WM_PAINT, DayPopupPaint},
    {WM_PRINTCLIENT, DayPopupPrint},
    {WM_ERASEBKGND, DayPopupErase},
    {WM_DESTROY, DayPopupDestroy},
};

static INT_PTR CALLBACK DayPopupProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kDayPopup, dlg, msg, wp, lp);
}

int ShowDayPopup(HWND owner, DWORD day)
{
    DayPopupData d = {};
    if (!GridDayDate(day, g_app.viewMonth, g_app.viewYear, &d.month, &d.day, &d.year))
        return 0;
    RunDialog(owner, IDD_DAYPOPUP, DayPopupProc, &d);
    return 0;
}
