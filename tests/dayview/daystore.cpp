#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "dayview/dayview.h"
#include "calendar/dates.h"

#include <commctrl.h>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

const Day kBusyDay = {3, 10, 2031};
const Day kNotesOnlyDay = {3, 11, 2031};
const Day kPlainDay = {3, 15, 2031};
const Day kCrowdedDay = {3, 13, 2031};
const Day kLongTextDay = {3, 14, 2031};
const Day kHugeNotesDay = {3, 17, 2031};
const Day kEmptyDay = {3, 20, 2031};
const Day kPastDay = {12, 30, 2004};

std::string Event(const std::string &uid, const std::string &start, const std::string &end,
                  const std::string &extra)
{
    bool allDay = start.find('T') == std::string::npos;
    std::string value = allDay ? ";VALUE=DATE:" : ":";
    return "BEGIN:VEVENT\r\nUID:" + uid + "\r\nDTSTAMP:20300101T000000Z\r\nDTSTART" + value +
           start + "\r\nDTEND" + value + end + "\r\n" + extra + "END:VEVENT\r\n";
}

// A property folded into lines of 70 characters, as the format asks.
static std::string Folded(const std::string &name, const std::string &value)
{
    std::string line = name + ":" + value, out;
    for (size_t i = 0; i < line.size(); i += 70)
        out += (i ? " " : "") + line.substr(i, 70) + "\r\n";
    return out;
}

// Words of varying length, so that rows break at blanks.
static std::string Words(size_t length, const char *seed)
{
    std::string text;
    static const char *words[] = {"appointment", "with",    "a",    "rather",
                                  "long",        "subject", "that", "wraps",
                                  "over",        "several", "rows", "Lanternfields"};
    for (int i = 0; text.size() < length; i++) {
        if (!text.empty())
            text += ' ';
        text += i == 0 ? seed : words[(i * 7) % 12];
    }
    return text.substr(0, length);
}

static std::string StoreText()
{
    std::string ics =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//day view tests//EN\r\n";
    const std::string alarm = "BEGIN:VALARM\r\nACTION:DISPLAY\r\nDESCRIPTION:Reminder\r\nTRIGGER:-"
                              "PT15M\r\nEND:VALARM\r\n";
    // 10 March 2031, in order of start.
    ics += Event("trip", "20310309T100000", "20310311T100000", "SUMMARY:Trip\r\n");
    ics += Event("overnight", "20310309T220000", "20310310T020000", "SUMMARY:Overnight\r\n");
    ics += Event("holiday", "20310310", "20310311", "SUMMARY:Holiday\r\n");
    ics += Event("breakfast", "20310310T080000", "20310310T090000",
                 "SUMMARY:Breakfast\r\nDESCRIPTION:Bring the figures\r\n" + alarm);
    ics += Event("lunch", "20310310T123000", "20310310T133000",
                 "SUMMARY:Lunch\r\nLOCATION:Cafe Lumen\r\n");
    ics += Event("tomidnight", "20310310T200000", "20310311T000000", "SUMMARY:To midnight\r\n");
    ics += Event("late", "20310310T220000", "20310311T010000", "SUMMARY:Late\r\n");
    // Days of one kind each.
    ics += Event("notesonly", "20310311T090000", "20310311T100000",
                 "SUMMARY:Notes only\r\nDESCRIPTION:x\r\n");
    ics += Event("plain1", "20310315T090000", "20310315T100000", "SUMMARY:Plain one\r\n");
    ics += Event("plain2", "20310315T110000", "20310315T120000", "SUMMARY:Plain two\r\n");
    for (int i = 0; i < CROWD; i++) {
        char uid[32], start[32], end[32], summary[48];
        snprintf(uid, sizeof uid, "crowd-%d", i);
        snprintf(start, sizeof start, "20310313T%02d%02d00", 6 + i / 60, i % 60);
        snprintf(end, sizeof end, "20310313T%02d%02d00", 6 + (i + 15) / 60, (i + 15) % 60);
        snprintf(summary, sizeof summary, "SUMMARY:Crowd %d\r\n", i);
        ics += Event(uid, start, end, summary);
    }
    ics += Event("longtext", "20310314T090000", "20310314T100000",
                 Folded("SUMMARY", Words(LONG_TEXT, "Subject")) +
                     Folded("LOCATION", Words(LONG_TEXT, "Location")));
    ics += Event("longallday", "20310314", "20310315",
                 Folded("SUMMARY", Words(120, "Whole")) + "LOCATION:Hall\r\n");
    // Paragraphs of twenty lines of words, the line breaks escaped as the format asks.
    std::string notes, escaped;
    for (int i = 0; (int)notes.size() < HUGE_NOTES; i++)
        notes += (i % 20 == 19) ? "\n" : Words(60, "Note") + " ";
    notes.resize(HUGE_NOTES);
    for (char c : notes)
        escaped += c == '\n' ? std::string("\\n") : std::string(1, c);
    ics += Event("hugenotes", "20310317T090000", "20310317T100000",
                 "SUMMARY:Huge notes\r\n" + Folded("DESCRIPTION", escaped));
    ics += Event("old", "20041230T090000", "20041230T100000", "SUMMARY:Old\r\n");
    return ics + "END:VCALENDAR\r\n";
}

void ResetDaySettings()
{
    AppSettings &s = g_app.settings;
    s.rowcolorindex = 0;
    s.showlocation = 0;
    s.wrapsubject = 0;
    s.colorexpired = 0;
    s.alarmflag = 1;
    s.textcolor = 0x000000;
    s.locationcolor = 0x0000FF;
    s.row1color = 0xEFDED6;
    s.row2color = 0xF7FFF7;
    s.cleartype = 0;
}

StartedWith g_startedWith;

std::wstring g_dayStorePath;

static void WriteBytes(const std::wstring &path, const std::string &bytes)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD done = 0;
    if (f != INVALID_HANDLE_VALUE) {
        WriteFile(f, bytes.data(), (DWORD)bytes.size(), &done, nullptr);
        CloseHandle(f);
    }
}

static const char kCalendarHead[] = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//day view tests//EN\r\n";
static const char kCalendarTail[] = "END:VCALENDAR\r\n";

// A directory store as sync tools keep it: one calendar file per event, named by its UID.
static std::wstring UseDirectoryStore(const std::string &events)
{
    std::wstring dir = UseTempStore("", L"calendar");
    CreateDirectoryW(dir.c_str(), nullptr);
    const std::string end = "END:VEVENT\r\n";
    for (size_t at = 0, next; (next = events.find(end, at)) != std::string::npos; at = next + end.size()) {
        std::string event = events.substr(at, next + end.size() - at);
        size_t uid = event.find("UID:") + 4;
        std::string name = event.substr(uid, event.find('\r', uid) - uid) + ".ics";
        WriteBytes(dir + L"\\" + std::wstring(name.begin(), name.end()), kCalendarHead + event + kCalendarTail);
    }
    SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", dir.c_str());
    return dir;
}

bool DirectoryStore()
{
    return getenv("LF_DIRECTORY_STORE") != nullptr;
}

HWND StartOnDayStore(const std::string &events)
{
    static bool made;
    if (!made) {
        if (events.empty())
            g_dayStorePath = UseTempStore(StoreText());
        else if (DirectoryStore())
            g_dayStorePath = UseDirectoryStore(events);
        else
            g_dayStorePath = UseTempStore(kCalendarHead + events + kCalendarTail);
        made = true;
    }
    bool starting = !g_app.hwndMain;
    HWND hwnd = StartProgram();
    if (starting && hwnd)
        g_startedWith = {g_app.selectedRow, g_app.copiedItem, g_app.cutItem};
    ResetDaySettings();
    if (g_app.viewMode != VIEW_MONTH)
        g_app.viewMode = VIEW_MONTH;
    return hwnd;
}

void CloseByButton(HWND dlg)
{
    if (IsWindow(dlg) && IsWindowVisible(dlg))
        Tap(dlg, 220, 8);
}

INT_PTR RunDayViewParam(int month, int year, int param,
                        const std::function<void(HWND dlg, HWND list)> &script)
{
    g_app.viewMonth = month;
    g_app.viewYear = year;
    return RunScripted([&] { return (INT_PTR)ShowDayView(g_app.hwndMain, param); },
                       [&](HWND dlg) {
                           script(dlg, GetDlgItem(dlg, 222));
                           CloseByButton(dlg);
                       });
}

INT_PTR RunDayView(const Day &day, const std::function<void(HWND dlg, HWND list)> &script)
{
    return RunDayViewParam(day.month, day.year, day.day, script);
}

std::wstring CellText(HWND list, int row, int column)
{
    WCHAR text[4096] = L"";
    LVITEMW it = {};
    it.iSubItem = column;
    it.pszText = text;
    it.cchTextMax = 4096;
    SendMessageW(list, LVM_GETITEMTEXTW, row, (LPARAM)&it);
    return text;
}

int RowCount(HWND list)
{
    return (int)SendMessageW(list, LVM_GETITEMCOUNT, 0, 0);
}

int ColumnWidth(HWND list, int column)
{
    return (int)SendMessageW(list, LVM_GETCOLUMNWIDTH, column, 0);
}

RECT RowRect(HWND list, int row)
{
    RECT rc = {};
    rc.left = LVIR_BOUNDS;
    SendMessageW(list, LVM_GETITEMRECT, row, (LPARAM)&rc);
    return rc;
}

bool TwelveHourClock()
{
    WCHAR clock[2] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ITIME, clock, 2);
    return clock[0] == L'0';
}
