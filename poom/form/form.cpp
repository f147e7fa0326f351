// The appointment form (IDD_APPOINTMENTFORM): the calendar server's own editor of one
// appointment, one occurrence of a series, or a series. It works on a copy of the appointment's
// fields and hands them back only on OK, so Cancel changes nothing. Every field it shows is
// written back only when the user changed it, so what it does not show (and what it shows but
// was not touched) keeps its bytes in the store.
#include "form.h"

#include <commctrl.h>

#include <algorithm>
#include <string>
#include <vector>

#include "appointment/timelist.h"
#include "common/dialog.h"
#include "formids.h"
#include "objects.h"

namespace poom {

namespace {

// The recurrence list's entries, in order.
enum { kRepeatNone, kRepeatDaily, kRepeatWeekly, kRepeatMonthly, kRepeatYearly };
const wchar_t* const kRepeatNames[] = {L"None", L"Daily", L"Weekly", L"Monthly", L"Yearly"};
const wchar_t* const kIntervalUnits[] = {L"", L"day(s)", L"week(s)", L"month(s)", L"year(s)"};
const wchar_t* const kInstanceNames[] = {L"first", L"second", L"third", L"fourth", L"last"};
const wchar_t* const kBusyNames[] = {L"Free", L"Tentative", L"Busy", L"Out of office"};
const wchar_t* const kSensitivityNames[] = {L"Normal", L"Personal", L"Private", L"Confidential"};

struct ReminderChoice {
    long minutes;  // -1: no reminder
    const wchar_t* text;
};
const ReminderChoice kReminders[] = {
    {-1, L"None"},        {0, L"At the start"}, {5, L"5 minutes"},  {10, L"10 minutes"},
    {15, L"15 minutes"},  {30, L"30 minutes"},  {60, L"1 hour"},    {120, L"2 hours"},
    {720, L"12 hours"},   {1440, L"1 day"},     {2880, L"2 days"},  {10080, L"1 week"},
};

static_assert(IDC_FORM_WEEKDAY6 - IDC_FORM_WEEKDAY0 == 6, "the weekday boxes are seven contiguous ids");

// Times an all-day appointment's hidden times stand at, should the user untick All day.
const int kAllDayUntickedStart = 8 * 60, kAllDayUntickedEnd = 9 * 60;
const int kMaxInterval = 999;

struct FormData {
    Appointment* appt;
    Appointment::FormView view;         // the appointment as the form opened
    std::vector<std::wstring> inUse;    // the store's categories
    std::vector<std::wstring> original;  // the appointment's own categories, in order
    std::wstring notesShown;            // the notes as put into the edit (its line ends)
    int firstWeekday = 0;               // weekday of box 0: 0 Sunday .. 6 Saturday
    Pattern shownPattern;               // the recurrence as the form first read its controls
    int shownRepeat = kRepeatNone;
    WNDPROC frameProc = nullptr;        // the "Appointment" frame's own procedure
    std::wstring commitError;           // for a test that reads why OK kept the form open
};

// --- small control helpers --------------------------------------------------------------------

std::wstring TextOf(HWND dlg, int id) {
    HWND w = GetDlgItem(dlg, id);
    int n = GetWindowTextLengthW(w);
    std::wstring s(static_cast<size_t>(n) + 1, L'\0');
    GetWindowTextW(w, &s[0], n + 1);
    s.resize(static_cast<size_t>(n));
    return s;
}

std::wstring LoadText(UINT id) {
    const wchar_t* p = nullptr;
    int n = LoadStringW(ServerModule(), id, reinterpret_cast<LPWSTR>(&p), 0);
    return n > 0 ? std::wstring(p, static_cast<size_t>(n)) : std::wstring();
}

void FillList(HWND dlg, int id, const wchar_t* const* names, int count) {
    for (int i = 0; i < count; ++i) SendDlgItemMessageW(dlg, id, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(names[i]));
}

int Selected(HWND dlg, int id) { return static_cast<int>(SendDlgItemMessageW(dlg, id, CB_GETCURSEL, 0, 0)); }
void Select(HWND dlg, int id, int index) { SendDlgItemMessageW(dlg, id, CB_SETCURSEL, index, 0); }
bool Ticked(HWND dlg, int id) { return IsDlgButtonChecked(dlg, id) == BST_CHECKED; }
void Tick(HWND dlg, int id, bool on) { CheckDlgButton(dlg, id, on ? BST_CHECKED : BST_UNCHECKED); }

// A whole number typed into a box, or -1 when the box holds something else.
long NumberIn(HWND dlg, int id) {
    std::wstring s = TextOf(dlg, id);
    size_t b = s.find_first_not_of(L' '), e = s.find_last_not_of(L' ');
    if (b == std::wstring::npos || e - b > 8) return -1;
    long n = 0;
    for (size_t i = b; i <= e; ++i) {
        if (s[i] < L'0' || s[i] > L'9') return -1;
        n = n * 10 + (s[i] - L'0');
    }
    return n;
}

void SetPickerDay(HWND dlg, int id, std::int64_t day) {
    int y = 0, m = 0, d = 0;
    CivilFromDays(day, y, m, d);
    SYSTEMTIME st = {};
    st.wYear = static_cast<WORD>(std::clamp(y, 1601, 9999));
    st.wMonth = static_cast<WORD>(m);
    st.wDay = static_cast<WORD>(d);
    DateTime_SetSystemtime(GetDlgItem(dlg, id), GDT_VALID, &st);
}

std::int64_t PickerDay(HWND dlg, int id) {
    SYSTEMTIME st = {};
    DateTime_GetSystemtime(GetDlgItem(dlg, id), &st);
    return DaysFromCivil(st.wYear, st.wMonth, st.wDay);
}

int MinutesOfDay(LocalSecs s) { return static_cast<int>((s - DayOf(s) * kSecsPerDay) / 60); }

// A half hour is picked from the list; any other time stands typed in the box.
void SetTimeBox(HWND dlg, int id, int minutes) {
    if (minutes % 30 == 0) {
        Select(dlg, id, minutes / 30);
    } else {
        wchar_t text[16];
        FormatTimeText(minutes, text);
        SetDlgItemTextW(dlg, id, text);
    }
}

// The weekday shown by box (or list entry) k in the locale's week, as a mask bit.
int WeekdayOfSlot(const FormData* d, int k) { return (d->firstWeekday + k) % 7; }
int SlotOfWeekday(const FormData* d, int weekday) { return (weekday - d->firstWeekday + 7) % 7; }

std::wstring DayName(int weekday, bool abbreviated) {
    // The locale numbers its day names from Monday.
    LCTYPE first = abbreviated ? LOCALE_SABBREVDAYNAME1 : LOCALE_SDAYNAME1;
    wchar_t name[40] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, first + (weekday + 6) % 7, name, 40);
    return name;
}

// The category names once each, in the order written.
std::vector<std::wstring> SplitList(const std::wstring& all) {
    std::vector<std::wstring> out;
    for (const std::wstring& one : CategoryNames(all))
        if (std::find(out.begin(), out.end(), one) == out.end()) out.push_back(one);
    return out;
}

// The edit control breaks lines at CR LF; the store's text may hold bare LFs.
std::wstring ForEdit(const std::wstring& s) {
    std::wstring out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == L'\n' && (i == 0 || s[i - 1] != L'\r')) out += L'\r';
        out += s[i];
    }
    return out;
}

std::wstring FromEdit(const std::wstring& s) {
    std::wstring out;
    for (size_t i = 0; i < s.size(); ++i)
        if (!(s[i] == L'\r' && i + 1 < s.size() && s[i + 1] == L'\n')) out += s[i];
    return out;
}

bool SameFields(const Fields& a, const Fields& b) {
    return a.subject == b.subject && a.location == b.location && a.categories == b.categories &&
           a.body == b.body && a.start == b.start && a.end == b.end && a.allDay == b.allDay &&
           a.reminderSet == b.reminderSet && a.busyStatus == b.busyStatus && a.sensitivity == b.sensitivity &&
           (!a.reminderSet || a.reminderMinutes == b.reminderMinutes);
}

bool SamePattern(const Pattern& a, const Pattern& b) {
    return a.type == b.type && a.interval == b.interval && a.dayOfWeekMask == b.dayOfWeekMask &&
           a.dayOfMonth == b.dayOfMonth && a.monthOfYear == b.monthOfYear && a.instance == b.instance &&
           a.occurrences == b.occurrences && a.patternEnd == b.patternEnd;
}

// --- the recurrence group ---------------------------------------------------------------------

// What the recurrence controls say. Returns 0, or the message of the first thing wrong with them
// and the control to put right.
UINT ReadRecurrence(HWND dlg, const FormData* d, std::int64_t startDay, int& repeat, Pattern& p, int& badId) {
    repeat = std::max(0, Selected(dlg, IDC_FORM_RECURS));
    p = Pattern();
    if (repeat == kRepeatNone) return 0;
    bool nth = Ticked(dlg, IDC_FORM_ONNTH);
    switch (repeat) {
    case kRepeatDaily: p.type = kRecursDaily; break;
    case kRepeatWeekly: p.type = kRecursWeekly; break;
    case kRepeatMonthly: p.type = nth ? kRecursMonthNth : kRecursMonthly; break;
    default: p.type = nth ? kRecursYearNth : kRecursYearly; break;
    }
    long interval = NumberIn(dlg, IDC_FORM_INTERVAL);
    if (interval < 1 || interval > kMaxInterval) {
        badId = IDC_FORM_INTERVAL;
        return IDS_FORM_BADINTERVAL;
    }
    p.interval = interval;
    if (repeat == kRepeatWeekly) {
        for (int k = 0; k < 7; ++k)
            if (Ticked(dlg, IDC_FORM_WEEKDAY0 + k)) p.dayOfWeekMask |= 1L << WeekdayOfSlot(d, k);
        if (p.dayOfWeekMask == 0) {
            badId = IDC_FORM_WEEKDAY0;
            return IDS_FORM_NOWEEKDAY;
        }
    }
    if (repeat == kRepeatMonthly || repeat == kRepeatYearly) {
        if (nth) {
            p.instance = std::max(0, Selected(dlg, IDC_FORM_INSTANCE)) + 1;
            p.dayOfWeekMask = 1L << WeekdayOfSlot(d, std::max(0, Selected(dlg, IDC_FORM_NTHWEEKDAY)));
        } else {
            long day = NumberIn(dlg, IDC_FORM_DAYOFMONTH);
            if (day < 1 || day > 31) {
                badId = IDC_FORM_DAYOFMONTH;
                return IDS_FORM_BADDAYOFMONTH;
            }
            p.dayOfMonth = day;
        }
        if (repeat == kRepeatYearly) p.monthOfYear = std::max(0, Selected(dlg, IDC_FORM_MONTH)) + 1;
    }
    if (Ticked(dlg, IDC_FORM_ENDAFTER)) {
        long count = NumberIn(dlg, IDC_FORM_COUNT);
        if (count < 1) {
            badId = IDC_FORM_COUNT;
            return IDS_FORM_BADCOUNT;
        }
        p.occurrences = count;
    } else if (Ticked(dlg, IDC_FORM_ENDUNTIL)) {
        std::int64_t until = PickerDay(dlg, IDC_FORM_UNTILDATE);
        if (until < startDay) {
            badId = IDC_FORM_UNTILDATE;
            return IDS_FORM_UNTILBEFORESTART;
        }
        p.patternEnd = until * kSecsPerDay;
    }
    return 0;
}

// Greys what the chosen recurrence does not use, and all of it on one occurrence of a series
// (an occurrence cannot recur on its own).
void UpdateRecurrence(HWND dlg, const FormData* d) {
    int repeat = std::max(0, Selected(dlg, IDC_FORM_RECURS));
    bool open = !d->view.isOccurrence;
    bool recurs = open && repeat != kRepeatNone;
    bool byMonth = recurs && (repeat == kRepeatMonthly || repeat == kRepeatYearly);
    auto enable = [&](int id, bool on) { EnableWindow(GetDlgItem(dlg, id), on); };
    enable(IDC_FORM_RECURS, open);
    enable(IDC_FORM_INTERVAL, recurs);
    enable(IDC_FORM_INTERVALSPIN, recurs);
    for (int id = IDC_FORM_WEEKDAY0; id <= IDC_FORM_WEEKDAY6; ++id) enable(id, recurs && repeat == kRepeatWeekly);
    enable(IDC_FORM_ONDAY, byMonth);
    enable(IDC_FORM_ONNTH, byMonth);
    enable(IDC_FORM_DAYOFMONTH, byMonth && Ticked(dlg, IDC_FORM_ONDAY));
    enable(IDC_FORM_INSTANCE, byMonth && Ticked(dlg, IDC_FORM_ONNTH));
    enable(IDC_FORM_NTHWEEKDAY, byMonth && Ticked(dlg, IDC_FORM_ONNTH));
    enable(IDC_FORM_MONTH, recurs && repeat == kRepeatYearly);
    enable(IDC_FORM_ENDNEVER, recurs);
    enable(IDC_FORM_ENDAFTER, recurs);
    enable(IDC_FORM_ENDUNTIL, recurs);
    enable(IDC_FORM_COUNT, recurs && Ticked(dlg, IDC_FORM_ENDAFTER));
    enable(IDC_FORM_UNTILDATE, recurs && Ticked(dlg, IDC_FORM_ENDUNTIL));
    SetDlgItemTextW(dlg, IDC_FORM_INTERVALUNIT, kIntervalUnits[repeat]);
}

void ShowRecurrence(HWND dlg, FormData* d) {
    const Pattern& p = d->view.pattern;
    LocalSecs start = d->view.f.start;
    int y = 0, m = 0, day = 0;
    CivilFromDays(DayOf(start), y, m, day);
    int startWeekday = WeekdayOfDays(DayOf(start));

    FillList(dlg, IDC_FORM_RECURS, kRepeatNames, 5);
    FillList(dlg, IDC_FORM_INSTANCE, kInstanceNames, 5);
    for (int k = 0; k < 7; ++k) {
        SetDlgItemTextW(dlg, IDC_FORM_WEEKDAY0 + k, DayName(WeekdayOfSlot(d, k), true).c_str());
        SendDlgItemMessageW(dlg, IDC_FORM_NTHWEEKDAY, CB_ADDSTRING, 0,
                            reinterpret_cast<LPARAM>(DayName(WeekdayOfSlot(d, k), false).c_str()));
    }
    for (int month = 0; month < 12; ++month) {
        wchar_t name[40] = L"";
        GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SMONTHNAME1 + month, name, 40);
        SendDlgItemMessageW(dlg, IDC_FORM_MONTH, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(name));
    }
    SendDlgItemMessageW(dlg, IDC_FORM_INTERVALSPIN, UDM_SETRANGE32, 1, kMaxInterval);

    int repeat = kRepeatNone;
    if (d->view.recurring) {
        switch (p.type) {
        case kRecursWeekly: repeat = kRepeatWeekly; break;
        case kRecursMonthly: case kRecursMonthNth: repeat = kRepeatMonthly; break;
        case kRecursYearly: case kRecursYearNth: repeat = kRepeatYearly; break;
        default: repeat = kRepeatDaily; break;
        }
    }
    bool nth = d->view.recurring && (p.type == kRecursMonthNth || p.type == kRecursYearNth);
    Select(dlg, IDC_FORM_RECURS, repeat);
    SetDlgItemInt(dlg, IDC_FORM_INTERVAL, static_cast<UINT>(std::clamp<long>(p.interval, 1, kMaxInterval)), FALSE);
    long mask = d->view.recurring && p.dayOfWeekMask ? p.dayOfWeekMask : 1L << startWeekday;
    for (int k = 0; k < 7; ++k) Tick(dlg, IDC_FORM_WEEKDAY0 + k, (mask >> WeekdayOfSlot(d, k)) & 1);
    Tick(dlg, IDC_FORM_ONDAY, !nth);
    Tick(dlg, IDC_FORM_ONNTH, nth);
    SetDlgItemInt(dlg, IDC_FORM_DAYOFMONTH, static_cast<UINT>(p.dayOfMonth >= 1 && p.dayOfMonth <= 31 ? p.dayOfMonth : day), FALSE);
    int nthWeekday = startWeekday, instance = std::min(5, (day - 1) / 7 + 1);
    if (nth) {
        for (int wd = 0; wd < 7; ++wd)
            if (p.dayOfWeekMask & (1L << wd)) {
                nthWeekday = wd;
                break;
            }
        instance = static_cast<int>(std::clamp<long>(p.instance, 1, 5));
    }
    Select(dlg, IDC_FORM_INSTANCE, instance - 1);
    Select(dlg, IDC_FORM_NTHWEEKDAY, SlotOfWeekday(d, nthWeekday));
    Select(dlg, IDC_FORM_MONTH, (p.monthOfYear >= 1 && p.monthOfYear <= 12 ? p.monthOfYear : m) - 1);
    bool after = d->view.recurring && p.occurrences > 0;
    bool until = d->view.recurring && !after && p.patternEnd != kNoTime;
    Tick(dlg, IDC_FORM_ENDNEVER, !after && !until);
    Tick(dlg, IDC_FORM_ENDAFTER, after);
    Tick(dlg, IDC_FORM_ENDUNTIL, until);
    SetDlgItemInt(dlg, IDC_FORM_COUNT, static_cast<UINT>(after ? p.occurrences : 10), FALSE);
    SetPickerDay(dlg, IDC_FORM_UNTILDATE, until ? DayOf(p.patternEnd) : DayOf(start));
    if (d->view.isOccurrence) {
        SetDlgItemTextW(dlg, IDC_FORM_OCCURRENCENOTE,
                        L"This is one occurrence of a series; a change applies to it alone.");
    }
    int badId = 0;
    ReadRecurrence(dlg, d, DayOf(start), d->shownRepeat, d->shownPattern, badId);
    UpdateRecurrence(dlg, d);
}

// --- the appointment group and the categories -----------------------------------------------

void UpdateAllDay(HWND dlg) {
    bool timed = !Ticked(dlg, IDC_FORM_ALLDAY);
    EnableWindow(GetDlgItem(dlg, IDC_FORM_STARTTIME), timed);
    EnableWindow(GetDlgItem(dlg, IDC_FORM_ENDTIME), timed);
}

void ShowCategories(HWND dlg, FormData* d) {
    HWND list = GetDlgItem(dlg, IDC_FORM_CATEGORIES);
    ListView_SetExtendedListViewStyle(list, LVS_EX_CHECKBOXES | LVS_EX_FULLROWSELECT);
    RECT rc;
    GetClientRect(list, &rc);
    LVCOLUMNW col = {};
    col.mask = LVCF_WIDTH;
    col.cx = rc.right - GetSystemMetrics(SM_CXVSCROLL);
    ListView_InsertColumn(list, 0, &col);
    std::vector<std::wstring> all = d->inUse;
    for (const auto& c : d->original)
        if (std::find(all.begin(), all.end(), c) == all.end()) all.push_back(c);
    for (const auto& c : all) {
        LVITEMW item = {};
        item.mask = LVIF_TEXT;
        item.iItem = ListView_GetItemCount(list);
        item.pszText = const_cast<wchar_t*>(c.c_str());
        int at = ListView_InsertItem(list, &item);
        bool mine = std::find(d->original.begin(), d->original.end(), c) != d->original.end();
        ListView_SetCheckState(list, at, mine);
    }
    if (!all.empty()) ListView_SetItemState(list, 0, LVIS_FOCUSED, LVIS_FOCUSED);
}

// The appointment's categories as the form now says: those it had and still has, in their
// order, then the newly ticked ones, then those typed under Other.
std::vector<std::wstring> ReadCategories(HWND dlg, const FormData* d) {
    HWND list = GetDlgItem(dlg, IDC_FORM_CATEGORIES);
    std::vector<std::wstring> ticked;
    int n = ListView_GetItemCount(list);
    for (int i = 0; i < n; ++i) {
        if (!ListView_GetCheckState(list, i)) continue;
        wchar_t text[260] = L"";
        ListView_GetItemText(list, i, 0, text, 260);
        ticked.push_back(text);
    }
    std::vector<std::wstring> out;
    for (const auto& c : d->original)
        if (std::find(ticked.begin(), ticked.end(), c) != ticked.end()) out.push_back(c);
    for (const auto& c : ticked)
        if (std::find(out.begin(), out.end(), c) == out.end()) out.push_back(c);
    for (const auto& c : SplitList(TextOf(dlg, IDC_FORM_OTHERCATEGORIES)))
        if (std::find(out.begin(), out.end(), c) == out.end()) out.push_back(c);
    return out;
}

void ShowAppointment(HWND dlg, FormData* d) {
    const Fields& f = d->view.f;
    SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, f.subject.c_str());
    SetDlgItemTextW(dlg, IDC_FORM_LOCATION, f.location.c_str());
    FillTimeCombo(GetDlgItem(dlg, IDC_FORM_STARTTIME));
    FillTimeCombo(GetDlgItem(dlg, IDC_FORM_ENDTIME));
    SetPickerDay(dlg, IDC_FORM_STARTDATE, DayOf(f.start));
    if (f.allDay) {
        // DTEND of an all-day appointment is the midnight after its last day.
        SetPickerDay(dlg, IDC_FORM_ENDDATE, std::max(DayOf(f.start), DayOf(f.end - 1)));
        SetTimeBox(dlg, IDC_FORM_STARTTIME, kAllDayUntickedStart);
        SetTimeBox(dlg, IDC_FORM_ENDTIME, kAllDayUntickedEnd);
    } else {
        SetPickerDay(dlg, IDC_FORM_ENDDATE, DayOf(f.end));
        SetTimeBox(dlg, IDC_FORM_STARTTIME, MinutesOfDay(f.start));
        SetTimeBox(dlg, IDC_FORM_ENDTIME, MinutesOfDay(f.end));
    }
    Tick(dlg, IDC_FORM_ALLDAY, f.allDay);
    UpdateAllDay(dlg);

    int reminder = 0;
    for (const auto& r : kReminders) {
        int at = static_cast<int>(SendDlgItemMessageW(dlg, IDC_FORM_REMINDER, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(r.text)));
        SendDlgItemMessageW(dlg, IDC_FORM_REMINDER, CB_SETITEMDATA, at, r.minutes);
        if (f.reminderSet ? r.minutes == f.reminderMinutes : r.minutes < 0) reminder = at;
    }
    if (f.reminderSet && reminder == 0) {
        // A lead time the list does not offer stays as it is, shown in minutes.
        std::wstring text = std::to_wstring(f.reminderMinutes) + L" minutes";
        reminder = static_cast<int>(SendDlgItemMessageW(dlg, IDC_FORM_REMINDER, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text.c_str())));
        SendDlgItemMessageW(dlg, IDC_FORM_REMINDER, CB_SETITEMDATA, reminder, f.reminderMinutes);
    }
    Select(dlg, IDC_FORM_REMINDER, reminder);
    FillList(dlg, IDC_FORM_BUSY, kBusyNames, 4);
    Select(dlg, IDC_FORM_BUSY, static_cast<int>(std::clamp<long>(f.busyStatus, kBusyFree, kBusyOutOfOffice)));
    FillList(dlg, IDC_FORM_SENSITIVITY, kSensitivityNames, 4);
    Select(dlg, IDC_FORM_SENSITIVITY, static_cast<int>(std::clamp<long>(f.sensitivity, kSensNormal, kSensConfidential)));
    d->notesShown = ForEdit(f.body);
    SetDlgItemTextW(dlg, IDC_FORM_NOTES, d->notesShown.c_str());
    ShowCategories(dlg, d);
}

// What the whole form says. Returns 0, or the message of the first thing wrong and the control
// to put right. Fields the user left alone keep their values exactly (a start with seconds, an
// all-day end, notes with the store's own line ends).
UINT ReadForm(HWND dlg, const FormData* d, Fields& f, Pattern& p, const Pattern*& pattern, bool& clear, int& badId) {
    const Fields& was = d->view.f;
    f = was;
    f.subject = TextOf(dlg, IDC_FORM_SUBJECT);
    f.location = TextOf(dlg, IDC_FORM_LOCATION);
    std::wstring notes = TextOf(dlg, IDC_FORM_NOTES);
    if (notes != d->notesShown) f.body = FromEdit(notes);
    std::vector<std::wstring> cats = ReadCategories(dlg, d);
    if (cats != d->original) {
        f.categories.clear();
        for (const auto& c : cats) f.categories += (f.categories.empty() ? L"" : L", ") + c;
    }
    int reminder = Selected(dlg, IDC_FORM_REMINDER);
    long lead = reminder >= 0 ? static_cast<long>(SendDlgItemMessageW(dlg, IDC_FORM_REMINDER, CB_GETITEMDATA, reminder, 0)) : -1;
    f.reminderSet = lead >= 0;
    if (lead >= 0) f.reminderMinutes = lead;
    f.busyStatus = std::max(0, Selected(dlg, IDC_FORM_BUSY));
    f.sensitivity = std::max(0, Selected(dlg, IDC_FORM_SENSITIVITY));

    std::int64_t startDay = PickerDay(dlg, IDC_FORM_STARTDATE), endDay = PickerDay(dlg, IDC_FORM_ENDDATE);
    f.allDay = Ticked(dlg, IDC_FORM_ALLDAY);
    if (f.allDay) {
        if (endDay < startDay) {
            badId = IDC_FORM_ENDDATE;
            return IDS_FORM_ENDBEFORESTART;
        }
        f.start = startDay * kSecsPerDay;
        f.end = (endDay + 1) * kSecsPerDay;
        if (was.allDay && DayOf(was.start) == startDay && std::max(DayOf(was.start), DayOf(was.end - 1)) == endDay) {
            f.start = was.start;
            f.end = was.end;
        }
    } else {
        int startMinutes = ParseTimeText(TextOf(dlg, IDC_FORM_STARTTIME).c_str());
        if (startMinutes < 0) {
            badId = IDC_FORM_STARTTIME;
            return IDS_FORM_BADSTARTTIME;
        }
        int endMinutes = ParseTimeText(TextOf(dlg, IDC_FORM_ENDTIME).c_str());
        if (endMinutes < 0) {
            badId = IDC_FORM_ENDTIME;
            return IDS_FORM_BADENDTIME;
        }
        f.start = startDay * kSecsPerDay + startMinutes * 60;
        f.end = endDay * kSecsPerDay + endMinutes * 60;
        // The form shows whole minutes; an untouched time keeps its seconds.
        if (!was.allDay && f.start == was.start - was.start % 60) f.start = was.start;
        if (!was.allDay && f.end == was.end - was.end % 60) f.end = was.end;
        if (f.end < f.start) {
            badId = IDC_FORM_ENDTIME;
            return IDS_FORM_ENDBEFORESTART;
        }
    }

    pattern = nullptr;
    clear = false;
    if (d->view.isOccurrence) return 0;
    int repeat = kRepeatNone;
    UINT error = ReadRecurrence(dlg, d, startDay, repeat, p, badId);
    if (error) return error;
    if (repeat == kRepeatNone) {
        clear = d->view.recurring;
    } else if (!d->view.recurring || repeat != d->shownRepeat || !SamePattern(p, d->shownPattern)) {
        // An untouched recurrence keeps the store's rule, whatever more it says than the form.
        pattern = &p;
    }
    return 0;
}

// --- the procedure ----------------------------------------------------------------------------

// The "Appointment" frame is the child the program's timer finds and tells, with command 105,
// to bring the appointment page forward; the frame hands the command to the form.
LRESULT CALLBACK FrameProc(HWND frame, UINT msg, WPARAM wp, LPARAM lp) {
    HWND dlg = GetParent(frame);
    FormData* d = DialogData<FormData>(dlg);
    if (msg == WM_COMMAND && LOWORD(wp) == IDM_FORM_SHOWAPPOINTMENT) return SendMessageW(dlg, WM_COMMAND, wp, 0);
    return CallWindowProcW(d->frameProc, frame, msg, wp, lp);
}

INT_PTR FormInit(HWND dlg, FormData* d) {
    wchar_t first[4] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IFIRSTDAYOFWEEK, first, 4);
    d->firstWeekday = ((first[0] >= L'0' && first[0] <= L'6' ? first[0] - L'0' : 6) + 1) % 7;  // from Monday 0
    ShowAppointment(dlg, d);
    ShowRecurrence(dlg, d);
    HWND frame = GetDlgItem(dlg, IDC_FORM_APPOINTMENT);
    d->frameProc = reinterpret_cast<WNDPROC>(SetWindowLongPtrW(frame, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(FrameProc)));
    SendMessageW(dlg, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(GetDlgItem(dlg, IDC_FORM_SUBJECT)), TRUE);
    return FALSE;  // the focus is set
}

INT_PTR FormOk(HWND dlg, FormData* d) {
    Fields f;
    Pattern p;
    const Pattern* pattern = nullptr;
    bool clear = false;
    int badId = 0;
    UINT error = ReadForm(dlg, d, f, p, pattern, clear, badId);
    if (error) {
        d->commitError = LoadText(error);
        MessageBoxW(dlg, d->commitError.c_str(), L"Calendar", MB_OK | MB_ICONEXCLAMATION);
        if (badId) SendMessageW(dlg, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(GetDlgItem(dlg, badId)), TRUE);
        return TRUE;
    }
    bool changed = !SameFields(f, d->view.f) || pattern || clear;
    if (!changed) {
        // Nothing to write; a new appointment left as it came is not added.
        EndDialog(dlg, IDOK);
        return TRUE;
    }
    HRESULT hr = d->appt->SaveFromForm(f, pattern, clear);
    if (FAILED(hr)) {
        d->commitError = LoadText(hr == kConflict          ? IDS_FORM_CONFLICT
                                  : hr == kDeletedMeanwhile ? IDS_FORM_DELETEDMEANWHILE
                                                            : IDS_FORM_SAVEFAILED);
        MessageBoxW(dlg, d->commitError.c_str(), L"Calendar", MB_OK | MB_ICONEXCLAMATION);
        // After a conflict the user's version is already in the store as an
        // appointment of its own; saving the form again would make a third.
        if (hr == kConflict || hr == kDeletedMeanwhile) EndDialog(dlg, IDOK);
        return TRUE;
    }
    EndDialog(dlg, IDOK);
    return TRUE;
}

INT_PTR FormCommand(HWND dlg, int id, int code, HWND) {
    FormData* d = DialogData<FormData>(dlg);
    switch (id) {
    case IDOK:
        return FormOk(dlg, d);
    case IDCANCEL:
        EndDialog(dlg, IDCANCEL);
        return TRUE;
    case IDM_FORM_SHOWAPPOINTMENT:
        SetForegroundWindow(dlg);
        SendMessageW(dlg, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(GetDlgItem(dlg, IDC_FORM_SUBJECT)), TRUE);
        return TRUE;
    case IDC_FORM_ALLDAY:
        UpdateAllDay(dlg);
        return TRUE;
    case IDC_FORM_RECURS:
        if (code == CBN_SELCHANGE) UpdateRecurrence(dlg, d);
        return TRUE;
    case IDC_FORM_ONDAY:
    case IDC_FORM_ONNTH:
    case IDC_FORM_ENDNEVER:
    case IDC_FORM_ENDAFTER:
    case IDC_FORM_ENDUNTIL:
        if (code == BN_CLICKED) UpdateRecurrence(dlg, d);
        return TRUE;
    }
    return FALSE;
}

INT_PTR FormDestroy(HWND dlg, UINT, WPARAM, LPARAM) {
    FormData* d = DialogData<FormData>(dlg);
    if (d && d->frameProc)
        SetWindowLongPtrW(GetDlgItem(dlg, IDC_FORM_APPOINTMENT), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(d->frameProc));
    return FALSE;
}

const DialogEntry kForm[] = {
    {WM_INITDIALOG, DialogInit<FormInit>},
    {WM_COMMAND, DialogCommand<FormCommand>},
    {WM_DESTROY, FormDestroy},
};

INT_PTR CALLBACK FormProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp) { return DispatchDialog(kForm, dlg, msg, wp, lp); }

// The handheld's dialog class is named "Dialog", and the program finds the form by it; the
// server registers that name as a dialog class of its own for the form's template.
const wchar_t kFormClass[] = L"Dialog";
std::mutex g_classMutex;
bool g_classRegistered = false;

bool RegisterFormClass() {
    std::lock_guard<std::mutex> lock(g_classMutex);
    if (g_classRegistered) return true;
    WNDCLASSW wc = {};
    wc.style = CS_DBLCLKS | CS_SAVEBITS;
    wc.lpfnWndProc = DefDlgProcW;
    wc.cbWndExtra = DLGWINDOWEXTRA;
    wc.hInstance = ServerModule();
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = kFormClass;
    g_classRegistered = RegisterClassW(&wc) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
    return g_classRegistered;
}

}  // namespace

void ReleaseFormClass() {
    std::lock_guard<std::mutex> lock(g_classMutex);
    if (g_classRegistered) UnregisterClassW(kFormClass, ServerModule());
    g_classRegistered = false;
}

HRESULT ShowAppointmentForm(Appointment* appt) {
    INITCOMMONCONTROLSEX icc = {sizeof icc, ICC_DATE_CLASSES | ICC_LISTVIEW_CLASSES | ICC_UPDOWN_CLASS | ICC_STANDARD_CLASSES};
    InitCommonControlsEx(&icc);
    if (!RegisterFormClass()) return HRESULT_FROM_WIN32(GetLastError());
    FormData d;
    d.appt = appt;
    d.view = appt->ForForm();
    d.inUse = appt->CategoriesInUse();
    d.original = SplitList(d.view.f.categories);
    INT_PTR r = RunDialogFrom(ServerModule(), GetActiveWindow(), IDD_APPOINTMENTFORM, FormProc, &d);
    return r == -1 ? HRESULT_FROM_WIN32(GetLastError()) : S_OK;
}

}  // namespace poom
