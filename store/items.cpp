// Operations on one appointment, reached by its store identifier (OID):
// its subject, delete, copy or move to another day, and the store's form.
// An occurrence of a series is the series' OID plus a day: its start is the
// series' start time of day on that day.
#include "store.h"
#include "common/appstate.h"
#include "common/com.h"
#include "common/cursor.h"
#include "common/messages.h"
#include "calendar/dates.h"
#include <commctrl.h>
#include <math.h>

// The tear-down after the store failed to give an item it listed: the
// connection is no longer trusted. The application object is forgotten as
// well as released, so that nothing later calls it after it is gone; the
// folder keeps serving the views until the program closes.
static void DropStoreApp()
{
    if (!g_app.outlookApp)
        return;
    g_app.outlookApp->Logoff();
    g_app.outlookApp->Release();
    g_app.outlookApp = nullptr;
}

IAppointment *FetchItem(long oid)
{
    if (!g_app.outlookApp)
        return nullptr;
    IDispatch *found = nullptr;
    HRESULT hr = g_app.outlookApp->GetItemFromOid(oid, &found);
    return AsAppointment(hr, found);
}

static void CopySubject(IAppointment *item, WCHAR *text, int length)
{
    BSTR subject = nullptr;
    item->get_Subject(&subject);
    wcsncpy(text, subject ? subject : L"", length);
    text[length - 1] = 0;
    FreeStoreString(subject);
}

void GetItemSubject(int row, WCHAR *text, int length)
{
    if (length <= 0)
        return;
    text[0] = 0;
    LVITEMW lvi = {};
    lvi.mask = LVIF_PARAM;
    lvi.iItem = row;
    long oid = 0;
    if (g_app.dayList && SendMessageW(g_app.dayList, LVM_GETITEMW, 0, (LPARAM)&lvi))
        oid = (long)lvi.lParam;
    ComPtr<IAppointment> item(FetchItem(oid));
    if (!item) {
        StoreError(nullptr, L"Failure to Obtain Appointment Item");
        DropStoreApp();
        return;
    }
    CopySubject(item.get(), text, length);
}

static int IsRecurring(IAppointment *item, HRESULT *hr = nullptr)
{
    VARIANT_BOOL flag = VARIANT_FALSE;
    HRESULT r = item->get_IsRecurring(&flag);
    if (hr)
        *hr = r;
    return SUCCEEDED(r) && (flag & 0xFFFF) != 0;
}

int GetItemSubjectAndRecurrence(long oid, WCHAR *text, int length, int *recurring)
{
    ComPtr<IAppointment> item(FetchItem(oid));
    if (!item) {
        DropStoreApp();
        return 0;
    }
    if (length > 0)
        CopySubject(item.get(), text, length);
    *recurring = IsRecurring(item.get());
    return 1;
}

// The moment on the given day at the time of day of `when`.
static OleDate OnDay(OleDate when, int year, int month, int day)
{
    SYSTEMTIME st = {};
    OleDate moved = when;
    if (FAILED(g_app.outlookApp->VariantTimeToSystemTime(when, &st)))
        return when;
    st = SystemDate(month, day, year, &st);
    if (FAILED(g_app.outlookApp->SystemTimeToVariantTime(&st, &moved)))
        return when;
    return moved;
}

static bool SameDay(OleDate a, OleDate b)
{
    return floor(a) == floor(b);
}

// What the search for a day's occurrence reports.
enum { OCC_FOUND, OCC_NO_PATTERN, OCC_EXCEPTION_FAILED, OCC_NOT_FOUND };

// The occurrence of the series `item` on the given day. The series' time
// of day on that day reaches an occurrence where the pattern puts it (or
// one changed since, by its original start); one moved onto the day from
// another time is found among the pattern's exceptions. The caller holds
// the pattern and the occurrence and lets the occurrence go first (declared
// after the pattern).
static int OccurrenceOnDay(IAppointment *item, int year, int month, int day,
                           ComPtr<IRecurrencePattern> &pattern, ComPtr<IAppointment> &occurrence,
                           HRESULT *why)
{
    occurrence.Reset();
    pattern.Reset();
    *why = E_FAIL;
    OleDate start = 0;
    item->get_Start(&start);
    OleDate at = OnDay(start, year, month, day);
    if (FAILED(item->GetRecurrencePattern(&pattern)) || !pattern)
        return OCC_NO_PATTERN;
    *why = pattern->GetOccurrence(at, &occurrence);
    if (SUCCEEDED(*why) && occurrence)
        return OCC_FOUND;

    ComPtr<IExceptions> exceptions;
    if (FAILED(pattern->get_Exceptions(&exceptions)) || !exceptions)
        return OCC_NOT_FOUND;
    int count = 0;
    exceptions->get_Count(&count);
    for (int i = 1; i <= count; ++i) {
        ComPtr<IException> ex;
        if (FAILED(exceptions->Item(i, &ex)) || !ex)
            return OCC_EXCEPTION_FAILED;
        VARIANT_BOOL deleted = VARIANT_FALSE;
        ComPtr<IAppointment> moved;
        OleDate movedStart = 0;
        if (SUCCEEDED(ex->get_Deleted(&deleted)) && !(deleted & 0xFFFF) &&
            SUCCEEDED(ex->get_AppointmentItem(&moved)) && moved &&
            SUCCEEDED(moved->get_Start(&movedStart)) && SameDay(movedStart, at)) {
            occurrence.Reset(moved.Detach());
            *why = S_OK;
            return OCC_FOUND;
        }
    }
    return OCC_NOT_FOUND;
}

static void RefreshCurrentView()
{
    if (g_app.hwndMain)
        SendMessageW(g_app.hwndMain, WM_REFRESH_DAY, 0, 0);
}

void DeleteItem(long oid, int mode)
{
    ComPtr<IAppointment> item(FetchItem(oid));
    if (!item) {
        StoreError(nullptr, L"Failure to Obtain Appointment Item");
        DropStoreApp();
        return;
    }
    int recurring = IsRecurring(item.get());
    WaitCursorOn();
    if (!recurring || mode == DELETE_SERIES) {
        item->Delete();
    } else {
        ComPtr<IRecurrencePattern> pattern;
        ComPtr<IAppointment> occurrence;
        HRESULT why;
        if (OccurrenceOnDay(item.get(), g_app.shownYear, g_app.shownMonth, g_app.shownDay, pattern,
                            occurrence, &why) == OCC_FOUND)
            occurrence->Delete();
        else
            MessageBeep(0);
    }
    item.Reset();
    WaitCursorOff();
}

// A store form closed without a change leaves the new appointment as it
// was saved before the form: untitled, at the default times.
static bool Untitled(BSTR subject)
{
    return !subject || !subject[0] || wcsncmp(subject, L"No subject", 10) == 0;
}

// The shown day at a half-hour slot's time; slot times of 24:00 fall at
// the end of the day.
static OleDate ShownDayAt(const SYSTEMTIME &time)
{
    SYSTEMTIME st = SystemDate(g_app.shownMonth, g_app.shownDay, g_app.shownYear);
    OleDate day = 0;
    g_app.outlookApp->SystemTimeToVariantTime(&st, &day);
    return day + time.wHour / 24.0 + time.wMinute / 1440.0;
}

// Shows the form; timer 5 then tells the form's window to take the keyboard
// (see the main window's timer handler).
static bool ShowForm(IAppointment *item)
{
    SetTimer(g_app.hwndMain, TIMER_FORMPOKE, 500, nullptr);
    if (SUCCEEDED(item->Display()))
        return true;
    KillTimer(g_app.hwndMain, TIMER_FORMPOKE);
    StoreError(g_app.hwndMain, L"The appointment form could not be opened.");
    return false;
}

static int OpenNewItem()
{
    IDispatch *made = nullptr;
    HRESULT hr = g_app.outlookApp->CreateItem(olAppointmentItem, &made);
    ComPtr<IAppointment> item(AsAppointment(hr, made));
    if (!item) {
        StoreError(g_app.hwndMain, L"Error in getting appointment handle");
        return 0;
    }
    WaitCursorOn();
    item->put_Subject(Bstr(L""));
    item->put_Start(ShownDayAt(g_app.settings.defaultStartTime));
    item->put_End(ShownDayAt(g_app.settings.defaultEndTime));
    item->Save();

    OleDate start = 0, end = 0, startAfter = 0, endAfter = 0;
    item->get_Start(&start);
    item->get_End(&end);
    bool shown = ShowForm(item.get());
    BSTR subject = nullptr;
    item->get_Subject(&subject);
    item->get_Start(&startAfter);
    item->get_End(&endAfter);
    if (Untitled(subject) && startAfter == start && endAfter == end)
        item->Delete();
    FreeStoreString(subject);
    item.Reset();
    RefreshCurrentView();
    WaitCursorOff();
    return shown ? 1 : 0;
}

int OpenItemForEdit(long oid)
{
    if (oid == 0) {
        if (!g_app.outlookApp) {
            StoreError(g_app.hwndMain, L"Error in getting appointment handle");
            return 0;
        }
        return OpenNewItem();
    }
    ComPtr<IAppointment> item(FetchItem(oid));
    if (!item) {
        StoreError(g_app.hwndMain, L"Error in getting appointment handle");
        return 0;
    }
    HRESULT hr;
    int recurring = IsRecurring(item.get(), &hr);
    if (FAILED(hr))
        StoreError(g_app.hwndMain, L"Failed to get_IsRecurring");
    WaitCursorOn();
    bool shown = false;
    if (recurring) {
        ComPtr<IRecurrencePattern> pattern;
        ComPtr<IAppointment> occurrence;
        HRESULT why;
        switch (OccurrenceOnDay(item.get(), g_app.shownYear, g_app.shownMonth, g_app.shownDay,
                                pattern, occurrence, &why)) {
        case OCC_FOUND:
            shown = ShowForm(occurrence.get());
            break;
        case OCC_NO_PATTERN:
            StoreError(g_app.hwndMain, L"Failed to GetRecurrencePattern");
            break;
        case OCC_EXCEPTION_FAILED:
            StoreError(nullptr, L"error in pExceptions->Item() call");
            break;
        default:
            StoreError(g_app.hwndMain,
                       why == E_INVALIDARG ? L"Failed getOccurrence: Invalid Arg" : L"Failed to GetOccurrance");
            break;
        }
    } else {
        shown = ShowForm(item.get());
    }
    item.Reset();
    RefreshCurrentView();
    WaitCursorOff();
    return shown ? 1 : 0;
}

// Moves a time onto the target day keeping its time of day: the whole days
// are replaced, the fraction stays.
static OleDate MovedOnto(OleDate when, OleDate target)
{
    return when + (target - floor(when));
}

void CopyItemToDay(long oid, int mode, int targetMonth, int targetDay, int targetYear, int sourceMonth,
                   int sourceDay, int sourceYear)
{
    // Declared in the reverse of the order they are let go in: the copy,
    // the occurrence, the pattern, the item.
    ComPtr<IAppointment> item(FetchItem(oid));
    if (!item) {
        StoreError(nullptr, L"Failure to Obtain Appointment Item");
        DropStoreApp();
        return;
    }
    ComPtr<IRecurrencePattern> pattern;
    ComPtr<IAppointment> occurrence;
    IAppointment *source = item.get();
    if (IsRecurring(item.get())) {
        HRESULT why;
        if (OccurrenceOnDay(item.get(), sourceYear, sourceMonth, sourceDay, pattern, occurrence,
                            &why) != OCC_FOUND) {
            MessageBeep(0);
            return;
        }
        source = occurrence.get();
    }

    ComPtr<IAppointment> copy;
    if (SUCCEEDED(source->Copy(&copy)) && copy) {
        SYSTEMTIME st = SystemDate(targetMonth, targetDay, targetYear);
        OleDate target = 0, start = 0, end = 0;
        g_app.outlookApp->SystemTimeToVariantTime(&st, &target);
        copy->get_Start(&start);
        copy->get_End(&end);
        // Each end keeps its own time of day: a multi-day appointment
        // becomes a same-day one on the target day. (The store keeps the
        // length when the start moves and refuses an end before the start,
        // so one whose end time of day comes before its start's keeps its
        // length instead.)
        copy->put_Start(MovedOnto(start, target));
        copy->put_End(MovedOnto(end, target));
        if (SUCCEEDED(copy->Save()) && mode == 1)
            source->Delete();
    } else {
        MessageBeep(0);
    }
}

// A changed occurrence of a series may have notes of its own: the shown day's occurrence is
// read when there is one, else the series.
int GetItemNotes(long oid, std::wstring *notes)
{
    notes->clear();
    ComPtr<IAppointment> item(FetchItem(oid));
    if (!item) {
        StoreError(nullptr, L"Failure to Obtain Appointment Item");
        DropStoreApp();
        return 0;
    }
    ComPtr<IRecurrencePattern> pattern;
    ComPtr<IAppointment> occurrence;
    IAppointment *source = item.get();
    HRESULT why;
    if (IsRecurring(item.get()) &&
        OccurrenceOnDay(item.get(), g_app.shownYear, g_app.shownMonth, g_app.shownDay, pattern,
                        occurrence, &why) == OCC_FOUND)
        source = occurrence.get();
    BSTR body = nullptr;
    if (SUCCEEDED(source->get_Body(&body)) && body)
        notes->assign(body);
    FreeStoreString(body);
    return 1;
}

// A series goes as a whole, with its changed and deleted occurrences: the infrared folder takes
// the series of an occurrence. An item the store no longer gives is handled as the other
// failed fetches are, by dropping the connection.
int BeamItem(long oid)
{
    if (!g_app.outlookApp)
        return 0;
    ComPtr<IDispatch> item;
    if (FAILED(g_app.outlookApp->GetItemFromOid(oid, &item)) || !item) {
        DropStoreApp();
        return 0;
    }
    ComPtr<IFolder> folder;
    if (FAILED(g_app.outlookApp->GetDefaultFolder(olFolderInfrared, &folder)) || !folder)
        return 0;
    WaitCursorOn();
    int sent = SUCCEEDED(folder->AddItemToInfraredFolder(olAppointmentItem, item.get())) &&
                       SUCCEEDED(folder->SendToInfrared())
                   ? 1
                   : 0;
    WaitCursorOff();
    folder.Reset();
    item.Reset();
    return sent;
}
