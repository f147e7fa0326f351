// The connection to the calendar server, the date-range queries every view
// makes, and the operations on one appointment.
//
// The program keeps no appointments: it reaches them through the calendar
// object model over COM (poom/pimstore_if.h), opened once at start-up and
// closed when the main window goes.
#pragma once

#include <windows.h>
#include "poom/pimstore_if.h"
#include "calendar/datecalc.h"

#include <string>

const OleDate kNoDate = 949998.0;     // the store's "no date" (4501-01-01)

// ---- connection -----------------------------------------------------------

// Opens the store for the main window; 1 when usable, 0 after a failure
// that has been shown to the user. Calling it again while open returns 1.
int OpenStore(HWND hwnd);
// Releases the folder, logs off, releases the application object and shuts
// COM down, in that order.
void CloseStore();
// An OK-only message box with the caption "Error".
void StoreError(HWND owner, const WCHAR *text);

// ---- queries --------------------------------------------------------------

// Restriction templates, kept as the store knows them (the doubled blanks
// keep all three the same length).
extern const WCHAR RestrictOverlapClosed[];        // ends on/after 1st, starts on/before 2nd
extern const WCHAR RestrictOverlapBeforeSecond[];  // ends on/after 1st, starts before 2nd
extern const WCHAR RestrictOverlapAfterFirst[];    // ends after 1st, starts on/before 2nd
const int RESTRICTION_LEN = 200;
const int DATE_TEXT_LEN = 50;

// Called with each appointment found, in start order; the query releases
// the item afterwards. Return 0 to stop the walk early.
typedef int (*AppointmentVisitor)(IAppointment *item, void *context);

enum { QUERY_UI = 0, QUERY_RENDERING = 1 };

// Walks every appointment (each occurrence of a series on its own) that the
// restriction built from `tmpl` and the two days' short date texts selects.
// From the rendering thread (QUERY_RENDERING) the walk stops before the next
// item as soon as a redraw is requested. Returns 1 when the walk ran to its
// end, 0 when it was stopped (by the visitor or a redraw request). With no
// store open nothing is found and the result is 1.
int QueryAppointments(const SYSTEMTIME &firstDay, const SYSTEMTIME &secondDay, const WCHAR *tmpl,
                      AppointmentVisitor visit, void *context, int thread = QUERY_UI);

// How a view looks at a day, so that the store may leave out what the view could not show of a
// series that floods a day (a rule repeating every minute): the seconds of the day where the
// view's reading of a time may change, and, for a view that draws the day as a schedule bar, the
// pixel a start and an end take in each stretch between them (before the first mark, between
// two, after the last). Without pixels the view lists a flooding series once per stretch.
const int DAY_GRID_MARKS = 64;
struct DayGrid {
    int count;
    long marks[DAY_GRID_MARKS];
    int pixels;
    BYTE startPixel[DAY_GRID_MARKS + 1], endPixel[DAY_GRID_MARKS + 1];
    int firstDay, lastDay; // the days the view draws (OleDayNumber); 0 and 0: every day
};
// A day as a list reads it: in half hours, so a flooding series is listed once per half hour.
void ListDayGrid(DayGrid *grid);
// The same walk, the store told how the view looks at a day (ILanternfieldsDayGrid; a store
// without that interface gives every occurrence). *thinned is set to 1 when the store left out
// occurrences starting on one of the two days or a day between, else to 0.
int QueryAppointments(const SYSTEMTIME &firstDay, const SYSTEMTIME &secondDay, const WCHAR *tmpl,
                      AppointmentVisitor visit, void *context, int thread, const DayGrid *grid,
                      int *thinned);
// The day's short date text in the system's default locale, never a time.
void ShortDateText(const SYSTEMTIME &day, WCHAR *text, int length);
// The restriction text the query sends for these two days.
void BuildRestriction(const SYSTEMTIME &firstDay, const SYSTEMTIME &secondDay, const WCHAR *tmpl,
                      WCHAR *text);

// Start, end, all-day flag and busy status of an appointment; FALSE when the
// store could not give the times.
struct AppointmentTimes {
    OleDate start, end;
    int allDay;
    long busyStatus;
};
BOOL ReadAppointmentTimes(IAppointment *item, AppointmentTimes *out);
// Frees a string the store handed out (the store's own SysFreeString, or the
// system's when no store is open).
void FreeStoreString(BSTR text);

// ---- item operations (UI thread) -------------------------------------------

// The object model hands out items as IDispatch: the item the call that
// returned `hr` gave, as an appointment (its IDispatch is released), or
// null when there was none.
IAppointment *AsAppointment(HRESULT hr, IDispatch *found);

// The item with this identifier as an appointment, or null.
IAppointment *FetchItem(long oid);
// The subject of the day list row's appointment, cut to `length` − 1
// characters and always terminated.
void GetItemSubject(int row, WCHAR *text, int length);
// The same from an identifier, with the recurring flag; 0 when the item
// could not be fetched.
int GetItemSubjectAndRecurrence(long oid, WCHAR *text, int length, int *recurring);

// The notes of the appointment (of its occurrence on the shown day); 0 when the item could not
// be fetched, which has been shown to the user.
int GetItemNotes(long oid, std::wstring *notes);

enum { DELETE_OCCURRENCE = 1, DELETE_SERIES = 3 };
// Deletes the appointment, or only its occurrence on the shown day unless
// `mode` is DELETE_SERIES.
void DeleteItem(long oid, int mode);
// Shows the appointment (the shown day's occurrence of a series), or a new
// one on the shown day when `oid` is 0, in the store's appointment form.
int OpenItemForEdit(long oid);
// Pastes a copy of the appointment (of its occurrence on the source day) on
// the target day; `mode` 1 (cut) then deletes the source.
void CopyItemToDay(long oid, int mode, int targetMonth, int targetDay, int targetYear, int sourceMonth,
                   int sourceDay, int sourceYear);
// Hands the appointment to the infrared transfer: 1 when it went, 0 otherwise.
int BeamItem(long oid);
