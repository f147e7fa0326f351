// The day list's contents: one day's appointments from the store, one group of rows each (the
// subject, wrapped on further rows when the user asks for it, then the location), their times
// and markers, the column widths, and the per-row arrays the row painting reads.
#include "daylist.h"
#include "daytext.h"
#include "common/appstate.h"
#include "common/draw.h"
#include "calendar/dates.h"
#include "store/store.h"
#include "settings/categoryprops.h"

#include <algorithm>
#include <commctrl.h>
#include <string>
#include <utility>
#include <vector>

const WCHAR kMarkAlarmAndNotes[] = L" na.";
const WCHAR kMarkAlarm[] = L"a.";
const WCHAR kMarkNotes[] = L" n";
const WCHAR kMarkNone[] = L"";
const WCHAR kMarkLocation[] = L"l";
const WCHAR kMarkLocationNotes[] = L" ";
const WCHAR kMarkMoreNotes[] = L"   ";

// By category, a row takes the colour of the first of its appointment's categories that the
// device's category list knows (its stored colour, or its colour of the default cycle). An
// appointment of no known category, and the "No Appointments" row, keep the plain first row
// colour, so that the coloured rows are the categorised ones.
COLORREF CategoryRowColor(const WCHAR *categories)
{
    return CategoryColorOf(categories, g_app.settings.row1color);
}

// One appointment on the day, as the rows show it.
struct DayEntry {
    std::wstring time, subject, location;
    bool notes, alarm;
    long oid;
    OleDate start;
    COLORREF category;
};

// One row of the list: which appointment, its marker and its text in the subject column.
struct DayRow {
    size_t entry;
    const WCHAR *marker;
    std::wstring text;
    bool first; // the appointment's first row, which carries its time
};

struct DayQuery {
    int day;
    std::vector<DayEntry> entries;
};

// A text the store handed out as one line of a row: line breaks and tabs become blanks.
static std::wstring RowText(BSTR text)
{
    std::wstring s = text ? text : L"";
    for (WCHAR &c : s)
        if (c < L' ')
            c = L' ';
    return s;
}

static std::wstring TakeStoreText(HRESULT hr, BSTR text)
{
    std::wstring s = SUCCEEDED(hr) ? RowText(text) : std::wstring();
    FreeStoreString(text);
    return s;
}

static int CollectAppointment(IAppointment *item, void *context)
{
    DayQuery *q = static_cast<DayQuery *>(context);
    AppointmentTimes t;
    if (!ReadAppointmentTimes(item, &t) || !ListsOnDay(t.start, t.end, q->day))
        return 1;
    DayEntry e = {};
    WCHAR time[TIME_TEXT_LEN];
    DayTimeText(t.start, t.end, t.allDay, q->day, time, TIME_TEXT_LEN);
    e.time = time;
    e.start = t.start;

    BSTR text = nullptr;
    HRESULT hr = item->get_Subject(&text);
    e.subject = TakeStoreText(hr, text);
    text = nullptr;
    hr = item->get_Location(&text);
    e.location = TakeStoreText(hr, text);
    text = nullptr;
    hr = item->get_Categories(&text);
    e.category = CategoryRowColor(SUCCEEDED(hr) && text ? text : L"");
    FreeStoreString(text);
    text = nullptr;
    hr = item->get_Body(&text);
    e.notes = SUCCEEDED(hr) && text && text[0];
    FreeStoreString(text);

    VARIANT_BOOL reminder = VARIANT_FALSE;
    if (FAILED(item->get_ReminderSet(&reminder)))
        reminder = VARIANT_FALSE;
    e.alarm = (reminder & 0xFFFF) != 0 && g_app.settings.alarmflag == 1;
    long oid = 0;
    item->get_Oid(&oid);
    e.oid = oid;
    q->entries.push_back(std::move(e));
    return 1;
}

static const WCHAR *FirstRowMarker(const DayEntry &e)
{
    if (e.alarm && e.notes)
        return kMarkAlarmAndNotes;
    if (e.alarm)
        return kMarkAlarm;
    return e.notes ? kMarkNotes : kMarkNone;
}

// At most this many characters are measured for one row: no row holds more, and an absurdly
// long text is then broken in steps of this size rather than measured whole for every row.
static const int kMeasureLimit = 400;

int BreakRow(HDC dc, const WCHAR *text, int length, int width, int *next)
{
    int rest = length < kMeasureLimit ? length : kMeasureLimit;
    int fit = 0;
    SIZE size;
    if (!GetTextExtentExPointW(dc, text, rest, width, &fit, nullptr, &size))
        fit = rest;
    int take = 0;
    if (fit >= length) {
        take = length;
    } else {
        for (int k = fit; k > 0; k--)
            if (text[k] == L' ') {
                take = k;
                break;
            }
        if (take == 0)
            take = fit > 0 ? fit : 1;
    }
    int shown = take;
    while (shown > 0 && text[shown - 1] == L' ')
        shown--;
    while (take < length && text[take] == L' ')
        take++;
    *next = take;
    return shown;
}

static std::vector<std::wstring> WrapText(HDC dc, const std::wstring &text, int width)
{
    std::vector<std::wstring> lines;
    size_t pos = 0, n = text.size();
    while (pos < n) {
        int next = 0;
        int shown = BreakRow(dc, text.c_str() + pos, (int)(n - pos), width, &next);
        lines.push_back(text.substr(pos, shown));
        pos += next;
    }
    if (lines.empty())
        lines.push_back(std::wstring());
    return lines;
}

// The rows of every appointment; with a width, subjects and locations are wrapped to it.
static std::vector<DayRow> BuildRows(const std::vector<DayEntry> &entries, HDC dc, int width)
{
    std::vector<DayRow> rows;
    for (size_t i = 0; i < entries.size(); i++) {
        const DayEntry &e = entries[i];
        std::vector<std::wstring> lines;
        if (e.oid == (long)PART_OF_DAY_ITEM) {
            // Its own short lines, so that it reads whole beside the empty time column.
            for (size_t from = 0, to; from <= e.subject.size(); from = to + 1) {
                to = e.subject.find(L'\n', from);
                if (to == std::wstring::npos)
                    to = e.subject.size();
                lines.push_back(e.subject.substr(from, to - from));
            }
        } else {
            lines = width > 0 ? WrapText(dc, e.subject, width) : std::vector<std::wstring>{e.subject};
        }
        for (size_t k = 0; k < lines.size(); k++)
            rows.push_back({i,
                            k == 0    ? FirstRowMarker(e)
                            : e.notes ? kMarkMoreNotes
                                      : kMarkNone,
                            std::move(lines[k]), k == 0});
        if (g_app.settings.showlocation != 1 || e.location.empty())
            continue;
        std::wstring place = L"[" + e.location + L"]";
        lines = width > 0 ? WrapText(dc, place, width) : std::vector<std::wstring>{place};
        for (std::wstring &line : lines)
            rows.push_back(
                {i, e.notes ? kMarkLocationNotes : kMarkLocation, std::move(line), false});
    }
    return rows;
}

static void SetRowText(HWND list, int row, int column, const WCHAR *text)
{
    LVITEMW it = {};
    it.iSubItem = column;
    it.pszText = const_cast<WCHAR *>(text);
    SendMessageW(list, LVM_SETITEMTEXTW, row, (LPARAM)&it);
}

static int InsertRow(HWND list, int row, const WCHAR *time, LPARAM item)
{
    LVITEMW it = {};
    it.mask = LVIF_TEXT | LVIF_PARAM;
    it.iItem = row;
    it.pszText = const_cast<WCHAR *>(time);
    it.lParam = item;
    return (int)SendMessageW(list, LVM_INSERTITEMW, 0, (LPARAM)&it);
}

// The rows into the list and the per-row arrays. Rows of the same appointment share its
// start, its colour and its parity, which alternates from one appointment to the next.
static void InsertRows(HWND list, const std::vector<DayEntry> &entries,
                       const std::vector<DayRow> &rows)
{
    SendMessageW(list, LVM_DELETEALLITEMS, 0, 0);
    SendMessageW(list, LVM_SETITEMCOUNT, rows.size(), 0);
    g_app.rowStart.assign(rows.size(), 0.0);
    g_app.rowParity.assign(rows.size(), 0);
    g_app.rowCategoryColor.assign(rows.size(), 0);
    for (size_t i = 0; i < rows.size(); i++) {
        const DayRow &r = rows[i];
        const DayEntry &e = entries[r.entry];
        int at = InsertRow(list, (int)i, r.first ? e.time.c_str() : L"", (LPARAM)e.oid);
        if (at < 0)
            continue;
        SetRowText(list, at, DAY_COL_MARKER, r.marker);
        SetRowText(list, at, DAY_COL_SUBJECT, r.text.c_str());
        g_app.rowStart[i] = e.start;
        g_app.rowParity[i] = r.entry % 2 == 0 ? 1 : 0;
        g_app.rowCategoryColor[i] = e.category;
    }
}

static int ColumnWidth(HWND list, int column)
{
    return (int)SendMessageW(list, LVM_GETCOLUMNWIDTH, column, 0);
}

static void SetColumnWidth(HWND list, int column, int width)
{
    SendMessageW(list, LVM_SETCOLUMNWIDTH, column, MAKELPARAM(width, 0));
}

// The list's client width with no vertical scroll bar, and how many whole rows it shows.
static void ListArea(HWND list, int *width, int *visibleRows)
{
    RECT rc;
    GetClientRect(list, &rc);
    *width = rc.right;
    if (GetWindowLongW(list, GWL_STYLE) & WS_VSCROLL)
        *width += GetSystemMetrics(SM_CXVSCROLL);
    RECT row = {};
    row.left = LVIR_BOUNDS;
    int height = 0;
    if (SendMessageW(list, LVM_GETITEMRECT, 0, (LPARAM)&row))
        height = row.bottom - row.top;
    *visibleRows = height > 0 ? rc.bottom / height : 1;
}

// The subject column's room: what the list leaves beside the time and marker columns, less a
// vertical scroll bar when the rows will need one (the list shows it only once it is drawn
// again, so it is counted here).
static int SubjectRoom(HWND list)
{
    int width, visible;
    ListArea(list, &width, &visible);
    if ((int)SendMessageW(list, LVM_GETITEMCOUNT, 0, 0) > visible)
        width -= GetSystemMetrics(SM_CXVSCROLL);
    return width - ColumnWidth(list, DAY_COL_TIME) - ColumnWidth(list, DAY_COL_MARKER);
}

// Long subjects continue on further rows, measured with the list's own font against the room
// of the subject column. The list adds a margin to a text's width, which it shows once the
// column is fitted to the wrapped rows: where the first wrapping leaves too little of it, the
// rows are wrapped again, narrower by what was missing.
static void WrapSubjects(HWND list, const std::vector<DayEntry> &entries)
{
    const int narrowest = 16, margin = 12;
    HDC dc = GetDC(list);
    HGDIOBJ old = SelectObject(dc, (HFONT)SendMessageW(list, WM_GETFONT, 0, 0));
    int room = SubjectRoom(list) - margin;
    for (int pass = 0; pass < 3; pass++) {
        InsertRows(list, entries, BuildRows(entries, dc, room > narrowest ? room : narrowest));
        SetColumnWidth(list, DAY_COL_SUBJECT, LVSCW_AUTOSIZE);
        int over = ColumnWidth(list, DAY_COL_SUBJECT) - SubjectRoom(list);
        if (over <= 0 || room <= narrowest)
            break;
        room -= over;
    }
    SelectObject(dc, old);
    ReleaseDC(list, dc);
}

// The subject column fills the list's width, or is as wide as its widest text.
static void FitSubjectColumn(HWND list)
{
    SetColumnWidth(list, DAY_COL_SUBJECT, LVSCW_AUTOSIZE);
    int room = SubjectRoom(list);
    if (ColumnWidth(list, DAY_COL_SUBJECT) < room)
        SetColumnWidth(list, DAY_COL_SUBJECT, room);
}

static void ShowNoAppointments(HWND list, int dayNumber)
{
    SendMessageW(list, LVM_DELETEALLITEMS, 0, 0);
    int at = InsertRow(list, 0, L"No Appointments", NO_APPOINTMENTS_ITEM);
    SetRowText(list, at, DAY_COL_MARKER, L"");
    SetRowText(list, at, DAY_COL_SUBJECT, L"");
    SetColumnWidth(list, DAY_COL_TIME, 140);
    SetColumnWidth(list, DAY_COL_MARKER, LVSCW_AUTOSIZE);
    SetColumnWidth(list, DAY_COL_SUBJECT, LVSCW_AUTOSIZE);
    // The row counts as starting at the end of the day, so on the day itself it is never
    // greyed as gone by.
    g_app.rowStart.assign(1, dayNumber + 1.0);
    g_app.rowParity.assign(1, 1);
    g_app.rowCategoryColor.assign(1, g_app.settings.row1color);
}

const WCHAR kPartOfDayText[] = L"Only part of this day\nis shown: a series\nrepeats too often.";

// A series that floods the day (a rule repeating every minute) is listed once per half hour;
// the store says when it left some out, and a last row says so.
static void AddPartOfDayRow(DayQuery *q)
{
    DayEntry e = {};
    e.subject = kPartOfDayText;
    e.oid = (long)PART_OF_DAY_ITEM;
    e.start = q->day + 1.0; // never greyed as gone by on the day itself
    e.category = g_app.settings.row1color;
    q->entries.push_back(std::move(e));
}

void FillDayList(HWND list, int month, int day, int year)
{
    if (!list)
        return;
    SYSTEMTIME first = SystemDate(month, day, year), second = first;
    second.wHour = 24; // the date text is the same; the query reads it as the day's end
    DayQuery q = {OleDayNumber(month, day, year), {}};
    DayGrid halfHours;
    ListDayGrid(&halfHours);
    int thinned = 0;
    // The rows by category follow the device's list as it is now, not as start-up found it.
    RefreshDeviceCategories();
    QueryAppointments(first, second, RestrictOverlapClosed, CollectAppointment, &q, QUERY_UI, &halfHours,
                      &thinned);
    if (thinned)
        AddPartOfDayRow(&q);

    SendMessageW(list, WM_SETREDRAW, FALSE, 0);
    if (q.entries.empty()) {
        ShowNoAppointments(list, q.day);
    } else {
        bool notes = false, alarm = false;
        for (const DayEntry &e : q.entries) {
            notes |= e.notes;
            alarm |= e.alarm;
        }
        InsertRows(list, q.entries, BuildRows(q.entries, nullptr, 0));
        // The marker column before the subject column, which fills what the others leave.
        SetColumnWidth(list, DAY_COL_TIME, LVSCW_AUTOSIZE_USEHEADER);
        SetColumnWidth(list, DAY_COL_MARKER, notes && alarm ? 20 : notes || alarm ? 10 : 1);
        if (g_app.settings.wrapsubject == 1)
            WrapSubjects(list, q.entries);
        FitSubjectColumn(list);
    }
    SendMessageW(list, WM_SETREDRAW, TRUE, 0);
    InvalidateRect(list, nullptr, TRUE);
}

void RefillDayList()
{
    FillDayList(g_app.dayList, g_app.shownMonth, g_app.shownDay, g_app.shownYear);
}

LPARAM DayRowItem(HWND list, int row)
{
    LVITEMW it = {};
    it.mask = LVIF_PARAM;
    it.iItem = row;
    if (row < 0 || !SendMessageW(list, LVM_GETITEMW, 0, (LPARAM)&it))
        return 0;
    return it.lParam;
}
