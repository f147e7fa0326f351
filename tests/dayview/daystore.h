// The store the day view's tests open, its days, and the means to run the day view on one of
// them from inside its modal loop.
#pragma once

#include <windows.h>
#include <functional>
#include <initializer_list>
#include <string>

struct Day {
    int month, day, year;
};

// 10 March 2031: every kind of time text, an alarm with notes, a location.
extern const Day kBusyDay;
extern const Day kNotesOnlyDay; // one appointment with notes, no alarm
extern const Day kPlainDay;     // two appointments with neither notes nor alarm
extern const Day kCrowdedDay;   // 500 appointments
extern const Day kLongTextDay;  // a 2,000-character subject and location; an all-day wrap
extern const Day kHugeNotesDay; // notes of 100,000 characters
extern const Day kEmptyDay;
extern const Day kPastDay; // 30 December 2004, for the expired colour
const int CROWD = 500;
const int HUGE_NOTES = 100000;
const int LONG_TEXT = 2000;

// Starts the program once on that store (or on a calendar of the given events), with the day
// view's settings at their defaults.
HWND StartOnDayStore(const std::string &events = std::string());
// Where the store lies: a file, or with LF_DIRECTORY_STORE set a folder of one file per event
// (given events only).
extern std::wstring g_dayStorePath;
bool DirectoryStore();
// One VEVENT; a start without a time makes it all-day.
std::string Event(const std::string &uid, const std::string &start, const std::string &end,
                  const std::string &extra = "");
// The day list's selection and clipboard as start-up left them.
struct StartedWith {
    int selectedRow;
    long copiedItem, cutItem;
};
extern StartedWith g_startedWith;
void ResetDaySettings();

// Opens the day view on the day (the month view showing its month), runs `script` inside it,
// and closes it with the close button when the script has not; the dialog's result.
INT_PTR RunDayView(const Day &day, const std::function<void(HWND dlg, HWND list)> &script);
// The same, opened with the raw parameter over the month the month view shows.
INT_PTR RunDayViewParam(int month, int year, int param,
                        const std::function<void(HWND dlg, HWND list)> &script);
void CloseByButton(HWND dlg);

std::wstring CellText(HWND list, int row, int column);
int RowCount(HWND list);
int ColumnWidth(HWND list, int column);
RECT RowRect(HWND list, int row);
// The locale's clock: 12-hour in en_US, 24-hour in de_DE.
bool TwelveHourClock();
