// The calendar object model as the program and the calendar server see it.
//
// The vtable layouts, method order, constants and GUIDs follow the published
// Pocket Outlook Object Model (pimstore.h), so code written against the
// device's object model talks to our server unchanged. Only the interfaces
// the calendar uses are declared; contact, task, city and time-zone
// interfaces appear as opaque pointers where a calendar interface mentions
// them, to keep the slots where the published layout has them.
#pragma once

#include <windows.h>
#include <oaidl.h>
#include <oleauto.h>

// Published identifiers of the object model.
inline constexpr CLSID CLSID_Application = {0x05058F23, 0x20BE, 0x11D2, {0x8F, 0x18, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IPOutlookApp = {0x05058F22, 0x20BE, 0x11D2, {0x8F, 0x18, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IFolder = {0x05058F02, 0x20BE, 0x11D2, {0x8F, 0x18, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IPOutlookItemCollection = {0x05058F03, 0x20BE, 0x11D2, {0x8F, 0x18, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IAppointment = {0x5B43F691, 0x202C, 0x11D2, {0x8F, 0x18, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IRecurrencePattern = {0x38F47300, 0x270F, 0x11D2, {0x8F, 0x18, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IExceptions = {0xB47398D0, 0x3B73, 0x11D2, {0x8F, 0x1B, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};
inline constexpr IID IID_IException = {0xB47398D1, 0x3B73, 0x11D2, {0x8F, 0x1B, 0x00, 0x00, 0xF8, 0x7A, 0x43, 0x35}};

// Lanternfields' own interface on an item collection (below), not part of
// the published object model.
inline constexpr IID IID_ILanternfieldsDayGrid = {0x726F0F6A, 0x9DD2, 0x47CC, {0xB7, 0xA0, 0xE1, 0x98, 0xF9, 0x3D, 0x8C, 0x09}};

// Folder kinds (OlDefaultFolders).
enum {
    olFolderCalendar = 9,
    olFolderContacts = 10,
    olFolderTasks = 13,
    olFolderCities = 101,
    olFolderInfrared = 102,
};

// Item kinds (OlItemType).
enum {
    olAppointmentItem = 1,
    olContactItem = 2,
    olTaskItem = 3,
    olCityItem = 102,
};

// Recurrence kinds (OlRecurrenceType).
enum {
    olRecursOnce = -1,
    olRecursDaily = 0,
    olRecursWeekly = 1,
    olRecursMonthly = 2,
    olRecursMonthNth = 3,
    olRecursYearly = 5,
    olRecursYearNth = 6,
};

// Day-of-week mask bits (OlDaysOfWeek).
enum {
    olSunday = 1,
    olMonday = 2,
    olTuesday = 4,
    olWednesday = 8,
    olThursday = 16,
    olFriday = 32,
    olSaturday = 64,
};

// Busy status (OlBusyStatus) and sensitivity (OlSensitivity).
enum { olFree = 0, olTentative = 1, olBusy = 2, olOutOfOffice = 3 };
enum { olNormal = 0, olPersonal = 1, olPrivate = 2, olConfidential = 3 };

struct IPOutlookApp;
struct IFolder;
struct IPOutlookItemCollection;
struct IAppointment;
struct IRecurrencePattern;
struct IExceptions;
struct IException;
struct IRecipients;  // meeting attendees: not served, slot kept
struct ICity;        // world clock cities: not served, slot kept
struct ITimeZone;    // time-zone objects: not served, slot kept

struct IPOutlookApp : public IDispatch {
    // The window handle travels as a 32-bit long in the published layout;
    // window handles are 32-bit significant on 64-bit Windows as well.
    virtual HRESULT STDMETHODCALLTYPE Logon(long hWnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE Logoff() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Version(BSTR* pVersion) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDefaultFolder(int olFolder, IFolder** ppIFolder) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateItem(int olItem, IDispatch** ppPOOMItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemFromOid(long oid, IDispatch** ppPOOMItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_HomeCity(ICity** ppHomeCity) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_HomeCity(ICity* pHomeCity) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_VisitingCity(ICity** ppVisitingCity) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_VisitingCity(ICity* pVisitingCity) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CurrentCityIndex(long* pIndex) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_CurrentCityIndex(long lIndex) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveFromInfrared() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_OutlookCompatible(VARIANT_BOOL* pfCompat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTimeZoneFromIndex(int cTimezone, ITimeZone** ppTz) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTimeZoneInformationFromIndex(int cTimezone, TIME_ZONE_INFORMATION* pTzInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** ppPolApp) = 0;
    virtual HRESULT STDMETHODCALLTYPE SysFreeString(BSTR bstr) = 0;
    virtual HRESULT STDMETHODCALLTYPE VariantTimeToSystemTime(DATE date, SYSTEMTIME* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE SystemTimeToVariantTime(SYSTEMTIME* pst, DATE* pDate) = 0;
};

struct IFolder : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_Items(IPOutlookItemCollection** ppolItems) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DefaultItemType(int* polItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** ppPolApp) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddItemToInfraredFolder(int olItem, IDispatch* polItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE SendToInfrared() = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveFromInfrared(IPOutlookItemCollection** ppItems) = 0;
};

struct IPOutlookItemCollection : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE Add(IDispatch** ppolItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(int* pnCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE Find(BSTR pwszRestriction, IDispatch** ppItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindNext(IDispatch** ppItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE Item(int iIndex, IDispatch** ppolItem) = 0;
    virtual HRESULT STDMETHODCALLTYPE Remove(int iIndex) = 0;
    virtual HRESULT STDMETHODCALLTYPE Restrict(BSTR pwszRestriction, IPOutlookItemCollection** ppolItems) = 0;
    virtual HRESULT STDMETHODCALLTYPE Sort(BSTR pwszProperty, VARIANT_BOOL fDescending) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IncludeRecurrences(VARIANT_BOOL* pfIncludeRecurrences) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IncludeRecurrences(VARIANT_BOOL fIncludeRecurrences) = 0;
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** ppEnumerator) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** ppPolApp) = 0;
};

struct IAppointment : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE GetRecurrencePattern(IRecurrencePattern** ppRecPattern) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsRecurring(VARIANT_BOOL* pfIsRecurring) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Subject(BSTR* pbstrSubject) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Location(BSTR* pbstrLocation) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Categories(BSTR* pbstrCategories) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Start(DATE* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Duration(long* pnLen) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_End(DATE* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AllDayEvent(VARIANT_BOOL* pfAllDay) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_BusyStatus(long* pnState) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Sensitivity(long* plSensitivity) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Body(BSTR* pbstrBody) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Recipients(IRecipients** pRecipients) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_MeetingStatus(long* pnState) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ReminderSet(VARIANT_BOOL* pfReminderSet) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ReminderSoundFile(BSTR* pbstrSoundFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ReminderMinutesBeforeStart(long* plMinutes) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ReminderOptions(long* plOptions) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Subject(BSTR pwszSubject) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Location(BSTR pwszLocation) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Categories(BSTR pwszCategories) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Start(DATE st) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Duration(long nLen) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_End(DATE st) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AllDayEvent(VARIANT_BOOL fAllDay) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_BusyStatus(long nState) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Sensitivity(long lSensitivity) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Body(BSTR pwszBody) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ReminderSet(VARIANT_BOOL fReminderSet) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ReminderSoundFile(BSTR bstrSoundFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ReminderMinutesBeforeStart(long lMinutes) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ReminderOptions(long lOptions) = 0;
    virtual HRESULT STDMETHODCALLTYPE Save() = 0;
    virtual HRESULT STDMETHODCALLTYPE Send() = 0;
    virtual HRESULT STDMETHODCALLTYPE Delete() = 0;
    virtual HRESULT STDMETHODCALLTYPE Cancel() = 0;
    virtual HRESULT STDMETHODCALLTYPE Copy(IAppointment** ppolApt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Display() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Oid(long* poid) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_BodyInk(BSTR* pbstrBodyInk) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_BodyInk(BSTR pwszBodyInk) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearRecurrencePattern() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** polApp) = 0;
};

struct IRecurrencePattern : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_RecurrenceType(long* plRecType) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_StartTime(DATE* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_EndTime(DATE* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_PatternStartDate(DATE* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_PatternEndDate(DATE* pst) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Duration(long* plDuration) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Occurrences(long* plOccurrences) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Interval(long* plInterval) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DayOfWeekMask(long* plMask) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DayOfMonth(long* plDay) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Instance(long* plInstance) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_MonthOfYear(long* plMonth) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NoEndDate(VARIANT_BOOL* pfNoEndDate) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_RecurrenceType(long lRecType) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_StartTime(DATE st) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_EndTime(DATE st) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_PatternStartDate(DATE st) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_PatternEndDate(DATE st) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Duration(long lDuration) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Occurrences(long lOccurrences) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Interval(long lInterval) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_DayOfWeekMask(long lMask) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_DayOfMonth(long lDay) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Instance(long lInstance) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_MonthOfYear(long lMonth) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_NoEndDate(VARIANT_BOOL fNoEndDate) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOccurrence(DATE date, IAppointment** ppAppt) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Exceptions(IExceptions** ppExceptions) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** ppPolApp) = 0;
};

struct IExceptions : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE Item(int iIndex, IException** ppExcept) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Count(int* pnCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** ppEnumerator) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** ppPolApp) = 0;
};

struct IException : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE get_OriginalDate(DATE* pdate) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Deleted(VARIANT_BOOL* pfDeleted) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AppointmentItem(IAppointment** ppAppt) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** ppPolApp) = 0;
};

// Lanternfields' own, asked of an item collection through QueryInterface:
// how the asking view looks at a day, so that the server leaves out of a
// Find what the view could not show of an appointment series that floods a
// day (a rule repeating every minute), and which days it thinned. A client
// that never asks for it gets every occurrence, as the object model says.
// The rule is lfical::DayGrid's (ical/ical.h).
struct ILanternfieldsDayGrid : public IUnknown {
    // For the following Finds: `count` seconds of the day, ascending, that
    // split it into count + 1 stretches; with startPixels and endPixels (one
    // per stretch) the view draws the day as a schedule bar, else it lists
    // a flooding series once per stretch. count 0 with no pixels asks for
    // every occurrence again. firstDay and lastDay (OLE dates' whole days)
    // are the days the view draws; it walks the others without drawing
    // (0 and 0: it draws every day).
    virtual HRESULT STDMETHODCALLTYPE SetDayGrid(int count, const long* marks, const BYTE* startPixels,
                                                 const BYTE* endPixels, long firstDay, long lastDay) = 0;
    // After a Find: S_OK with *thinned set when occurrences starting on the
    // day (an OLE date's whole days, in the store's local time) were left out.
    virtual HRESULT STDMETHODCALLTYPE IsDayThinned(long day, VARIANT_BOOL* thinned) = 0;
};
