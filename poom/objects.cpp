#include "objects.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "session.h"

namespace poom {

std::atomic<long> g_liveObjects{0};
std::atomic<long> g_serverLocks{0};

namespace {

// Failure codes the server reports.
const HRESULT kNotLoggedOn = E_FAIL;        // no store open
const HRESULT kNotFound = E_INVALIDARG;     // no item or occurrence by that name
const HRESULT kStoreFailed = E_FAIL;        // the store refused a change
// Another program changed the same appointment since we read it ("the file
// has been altered externally"); its version is kept and shown.
const HRESULT kConflict = HRESULT_FROM_WIN32(ERROR_FILE_INVALID);

HRESULT StoreFailure(const Store& store, const std::string& uid) {
    auto conflicts = store.LastConflicts();
    if (!uid.empty() && std::find(conflicts.begin(), conflicts.end(), uid) != conflicts.end()) return kConflict;
    return kStoreFailed;
}

HRESULT OutString(const std::wstring& s, BSTR* out) {
    if (!out) return E_POINTER;
    *out = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

std::wstring InString(BSTR b) { return b ? std::wstring(b, SysStringLen(b)) : std::wstring(); }

VARIANT_BOOL VBool(bool b) { return b ? VARIANT_TRUE : VARIANT_FALSE; }

bool SameFields(const Fields& a, const Fields& b) {
    return a.subject == b.subject && a.location == b.location && a.categories == b.categories &&
           a.body == b.body && a.start == b.start && a.end == b.end && a.allDay == b.allDay &&
           a.reminderSet == b.reminderSet && a.busyStatus == b.busyStatus && a.sensitivity == b.sensitivity &&
           a.reminderMinutes == b.reminderMinutes;
}

// IUnknown and IDispatch for every object. The server has no type library:
// callers use the vtables, as the object model's C++ clients do.
template <class I, const IID& Iid>
class Dispatch : public I {
public:
    Dispatch() { ++g_liveObjects; }
    virtual ~Dispatch() { --g_liveObjects; }
    Dispatch(const Dispatch&) = delete;
    Dispatch& operator=(const Dispatch&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDispatch) || IsEqualIID(riid, Iid)) {
            *ppv = static_cast<I*>(this);
            this->AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override {
        ULONG n = --refs_;
        if (n == 0) delete this;
        return n;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
        if (info) *info = nullptr;
        return DISP_E_BADINDEX;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT count, LCID, DISPID* ids) override {
        if (ids)
            for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }

private:
    std::atomic<ULONG> refs_{1};
};

class Appointment;

// What every object the application hands out holds on to: the application,
// for get_Application, and the logon it was handed out under. A folder,
// collection or item a program still holds keeps that logon, and with it
// the open and watched store, even after the application has logged off
// and been let go, as a COM object keeps alive what it needs.
class Origin {
public:
    Origin(IPOutlookApp* app, std::shared_ptr<Session> session) : app_(app), session_(std::move(session)) {
        app_->AddRef();
    }
    Origin(const Origin& other) : Origin(other.app_, other.session_) {}
    Origin& operator=(const Origin&) = delete;
    ~Origin() { app_->Release(); }
    IPOutlookApp* app() const { return app_; }
    Session& session() const { return *session_; }

private:
    IPOutlookApp* app_;
    std::shared_ptr<Session> session_;
};

// --------------------------------------------------------------- application

class App : public Dispatch<IPOutlookApp, IID_IPOutlookApp> {
public:
    HRESULT STDMETHODCALLTYPE Logon(long hWnd) override {
        // A window handle is 32-bit significant; widen it back.
        HWND hwnd = reinterpret_cast<HWND>(static_cast<LONG_PTR>(hWnd));
        std::lock_guard<std::mutex> lock(mu_);
        if (session_) return session_->Logon(hwnd);  // already on: only the window changes
        auto session = std::make_shared<Session>();
        HRESULT hr = session->Logon(hwnd);
        if (SUCCEEDED(hr)) session_ = session;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Logoff() override {
        // The application serves nothing more from here on; what it handed
        // out keeps the logon until it is let go (see Origin). The last
        // holder closes the store, outside the lock.
        std::shared_ptr<Session> was;
        {
            std::lock_guard<std::mutex> lock(mu_);
            was.swap(session_);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Version(BSTR* pVersion) override {
        return OutString(L"Lanternfields calendar server 1.0", pVersion);
    }
    HRESULT STDMETHODCALLTYPE GetDefaultFolder(int olFolder, IFolder** ppIFolder) override;
    HRESULT STDMETHODCALLTYPE CreateItem(int olItem, IDispatch** ppPOOMItem) override;
    HRESULT STDMETHODCALLTYPE GetItemFromOid(long oid, IDispatch** ppPOOMItem) override;
    // World-clock cities and time-zone objects are not part of the calendar.
    HRESULT STDMETHODCALLTYPE get_HomeCity(ICity** p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE put_HomeCity(ICity*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_VisitingCity(ICity** p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE put_VisitingCity(ICity*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_CurrentCityIndex(long* p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE put_CurrentCityIndex(long) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveFromInfrared() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_OutlookCompatible(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        *p = VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTimeZoneFromIndex(int, ITimeZone** p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE GetTimeZoneInformationFromIndex(int, TIME_ZONE_INFORMATION*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override {
        if (!pp) return E_POINTER;
        AddRef();
        *pp = this;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SysFreeString(BSTR bstr) override {
        ::SysFreeString(bstr);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE VariantTimeToSystemTime(DATE date, SYSTEMTIME* pst) override {
        if (!pst) return E_POINTER;
        LocalSecs s = 0;
        if (!SecsFromOle(date, s)) return E_INVALIDARG;
        CivilTime t = FromSecs(s);
        pst->wYear = static_cast<WORD>(t.year);
        pst->wMonth = static_cast<WORD>(t.month);
        pst->wDay = static_cast<WORD>(t.day);
        pst->wDayOfWeek = static_cast<WORD>(WeekdayOfDays(DayOf(s)));
        pst->wHour = static_cast<WORD>(t.hour);
        pst->wMinute = static_cast<WORD>(t.minute);
        pst->wSecond = static_cast<WORD>(t.second);
        pst->wMilliseconds = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SystemTimeToVariantTime(SYSTEMTIME* pst, DATE* pDate) override {
        if (!pst || !pDate) return E_POINTER;
        if (pst->wYear < 100 || pst->wYear > 9999 || pst->wMonth < 1 || pst->wMonth > 12 || pst->wDay < 1 ||
            pst->wDay > DaysInMonth(pst->wYear, pst->wMonth) || pst->wHour > 23 || pst->wMinute > 59 ||
            pst->wSecond > 59)
            return E_INVALIDARG;
        CivilTime t{pst->wYear, pst->wMonth, pst->wDay, pst->wHour, pst->wMinute, pst->wSecond};
        *pDate = OleFromSecs(ToSecs(t));
        return S_OK;
    }

private:
    template <class T>
    static HRESULT NotServed(T* p) {
        if (p) *p = T();
        return E_NOTIMPL;
    }
    // The current logon, null when logged off.
    std::shared_ptr<Session> Current() {
        std::lock_guard<std::mutex> lock(mu_);
        return session_;
    }

    std::mutex mu_;
    std::shared_ptr<Session> session_;
};

// --------------------------------------------------------------- appointment

class RecPattern;

class Appointment : public Dispatch<IAppointment, IID_IAppointment> {
public:
    // A stored item or occurrence.
    Appointment(const Origin& origin, const ItemSnapshot& s) : origin_(origin), item_(s), saved_(s.f) {}
    // A new item, not in the store until saved.
    explicit Appointment(const Origin& origin) : origin_(origin) {
        SYSTEMTIME now;
        GetLocalTime(&now);
        CivilTime t{now.wYear, now.wMonth, now.wDay, now.wHour, 0, 0};
        item_.f.start = ToSecs(t) + 3600;  // the next full hour
        item_.f.end = item_.f.start + 3600;
        item_.f.reminderSet = false;
        saved_ = item_.f;
    }

    // The pattern the appointment has or will have on Save.
    Pattern GetPattern() {
        std::lock_guard<std::mutex> lock(mu_);
        return PatternLocked();
    }
    void SetPattern(const Pattern& p) {
        std::lock_guard<std::mutex> lock(mu_);
        pending_ = p;
        pending_.exact = true;
        hasPending_ = true;
        clearRecurrence_ = false;
    }
    Fields GetFields() {
        std::lock_guard<std::mutex> lock(mu_);
        return item_.f;
    }
    void SetTimes(LocalSecs start, LocalSecs end) {
        std::lock_guard<std::mutex> lock(mu_);
        item_.f.start = start;
        item_.f.end = std::max(start, end);
    }
    std::uint32_t Oid() {
        std::lock_guard<std::mutex> lock(mu_);
        return item_.oid;
    }
    const Origin& origin() const { return origin_; }

    HRESULT STDMETHODCALLTYPE GetRecurrencePattern(IRecurrencePattern** pp) override;
    HRESULT STDMETHODCALLTYPE get_IsRecurring(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = VBool((item_.recurring || hasPending_) && !clearRecurrence_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Subject(BSTR* p) override { return Text(&Fields::subject, p); }
    HRESULT STDMETHODCALLTYPE get_Location(BSTR* p) override { return Text(&Fields::location, p); }
    HRESULT STDMETHODCALLTYPE get_Categories(BSTR* p) override { return Text(&Fields::categories, p); }
    HRESULT STDMETHODCALLTYPE get_Body(BSTR* p) override { return Text(&Fields::body, p); }
    HRESULT STDMETHODCALLTYPE get_Start(DATE* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = OleFromSecs(item_.f.start);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_End(DATE* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = OleFromSecs(item_.f.end);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Duration(long* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = static_cast<long>((item_.f.end - item_.f.start) / 60);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_AllDayEvent(VARIANT_BOOL* p) override { return Flag(&Fields::allDay, p); }
    HRESULT STDMETHODCALLTYPE get_BusyStatus(long* p) override { return Number(&Fields::busyStatus, p); }
    HRESULT STDMETHODCALLTYPE get_Sensitivity(long* p) override { return Number(&Fields::sensitivity, p); }
    HRESULT STDMETHODCALLTYPE get_Recipients(IRecipients** p) override {
        // Meetings with attendees are not part of this calendar.
        if (p) *p = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_MeetingStatus(long* p) override {
        if (!p) return E_POINTER;
        *p = 0;  // olNonMeeting: the server keeps no attendees
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_ReminderSet(VARIANT_BOOL* p) override { return Flag(&Fields::reminderSet, p); }
    HRESULT STDMETHODCALLTYPE get_ReminderSoundFile(BSTR* p) override {
        if (p) *p = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_ReminderMinutesBeforeStart(long* p) override {
        return Number(&Fields::reminderMinutes, p);
    }
    HRESULT STDMETHODCALLTYPE get_ReminderOptions(long* p) override {
        if (p) *p = 0;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE put_Subject(BSTR v) override { return SetText(&Fields::subject, v); }
    HRESULT STDMETHODCALLTYPE put_Location(BSTR v) override { return SetText(&Fields::location, v); }
    HRESULT STDMETHODCALLTYPE put_Categories(BSTR v) override { return SetText(&Fields::categories, v); }
    HRESULT STDMETHODCALLTYPE put_Body(BSTR v) override { return SetText(&Fields::body, v); }
    HRESULT STDMETHODCALLTYPE put_Start(DATE st) override {
        LocalSecs s = 0;
        if (!SecsFromOle(st, s)) return E_INVALIDARG;
        std::lock_guard<std::mutex> lock(mu_);
        // Moving the start keeps the length, as the device's form does.
        LocalSecs length = item_.f.end - item_.f.start;
        item_.f.start = s;
        item_.f.end = s + length;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_End(DATE st) override {
        LocalSecs s = 0;
        if (!SecsFromOle(st, s)) return E_INVALIDARG;
        std::lock_guard<std::mutex> lock(mu_);
        if (s < item_.f.start) return E_INVALIDARG;
        item_.f.end = s;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Duration(long minutes) override {
        if (minutes < 0) return E_INVALIDARG;
        std::lock_guard<std::mutex> lock(mu_);
        item_.f.end = item_.f.start + static_cast<LocalSecs>(minutes) * 60;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_AllDayEvent(VARIANT_BOOL v) override {
        std::lock_guard<std::mutex> lock(mu_);
        item_.f.allDay = v != VARIANT_FALSE;
        if (item_.f.allDay) {
            // Whole days: from the first day's midnight to the midnight after the last.
            LocalSecs first = DayOf(item_.f.start) * kSecsPerDay;
            LocalSecs last = (LastDayOf(item_.f.start, item_.f.end) + 1) * kSecsPerDay;
            item_.f.start = first;
            item_.f.end = std::max(last, first + kSecsPerDay);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_BusyStatus(long v) override {
        if (v < olFree || v > olOutOfOffice) return E_INVALIDARG;
        return SetNumber(&Fields::busyStatus, v);
    }
    HRESULT STDMETHODCALLTYPE put_Sensitivity(long v) override {
        if (v < olNormal || v > olConfidential) return E_INVALIDARG;
        return SetNumber(&Fields::sensitivity, v);
    }
    HRESULT STDMETHODCALLTYPE put_ReminderSet(VARIANT_BOOL v) override {
        std::lock_guard<std::mutex> lock(mu_);
        item_.f.reminderSet = v != VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_ReminderSoundFile(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_ReminderMinutesBeforeStart(long v) override {
        if (v < 0) return E_INVALIDARG;
        return SetNumber(&Fields::reminderMinutes, v);
    }
    HRESULT STDMETHODCALLTYPE put_ReminderOptions(long) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Save() override;
    HRESULT STDMETHODCALLTYPE Send() override { return E_NOTIMPL; }  // meeting requests: none
    HRESULT STDMETHODCALLTYPE Delete() override;
    HRESULT STDMETHODCALLTYPE Cancel() override { return E_NOTIMPL; }  // meeting cancellation: none
    HRESULT STDMETHODCALLTYPE Copy(IAppointment** pp) override;
    // The appointment form arrives with the day view; until then nothing is shown.
    HRESULT STDMETHODCALLTYPE Display() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Oid(long* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = static_cast<long>(item_.oid);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_BodyInk(BSTR* p) override {
        if (p) *p = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE put_BodyInk(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ClearRecurrencePattern() override {
        std::lock_guard<std::mutex> lock(mu_);
        if (item_.isOccurrence) return E_INVALIDARG;  // only the series can stop recurring
        hasPending_ = false;
        clearRecurrence_ = item_.recurring;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override {
        return origin_.app()->get_Application(pp);
    }

private:
    Pattern PatternLocked() {
        if (hasPending_) return pending_;
        Pattern p;
        if (item_.recurring && item_.oid != 0 && !clearRecurrence_) {
            auto store = origin_.session().GetStore();
            if (store && store->GetPattern(item_.oid, p)) return p;
        }
        // A fresh pattern for an appointment that does not recur yet: daily,
        // from its own day, without end.
        p = Pattern();
        p.dayOfWeekMask = 1L << WeekdayOfDays(DayOf(item_.f.start));
        CivilTime t = FromSecs(item_.f.start);
        p.dayOfMonth = t.day;
        p.monthOfYear = t.month;
        p.instance = 1;
        return p;
    }
    HRESULT Text(std::wstring Fields::*m, BSTR* p) {
        std::lock_guard<std::mutex> lock(mu_);
        return OutString(item_.f.*m, p);
    }
    HRESULT SetText(std::wstring Fields::*m, BSTR v) {
        std::lock_guard<std::mutex> lock(mu_);
        item_.f.*m = InString(v);
        return S_OK;
    }
    HRESULT Flag(bool Fields::*m, VARIANT_BOOL* p) {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = VBool(item_.f.*m);
        return S_OK;
    }
    HRESULT Number(long Fields::*m, long* p) {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = item_.f.*m;
        return S_OK;
    }
    HRESULT SetNumber(long Fields::*m, long v) {
        std::lock_guard<std::mutex> lock(mu_);
        item_.f.*m = v;
        return S_OK;
    }

    std::mutex mu_;
    Origin origin_;
    ItemSnapshot item_;
    Fields saved_;  // as last read from or written to the store
    bool hasPending_ = false;
    Pattern pending_;
    bool clearRecurrence_ = false;
    bool deleted_ = false;
};

HRESULT Appointment::Save() {
    auto store = origin_.session().GetStore();
    if (!store) return kNotLoggedOn;
    std::uint32_t oid = 0;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (deleted_) return kNotFound;
        if (item_.isOccurrence) {
            if (SameFields(item_.f, saved_)) return S_OK;
            // A changed occurrence is an exception of its series; the rest
            // of the series stays as it was.
            std::string error, uid = store->UidOf(item_.oid);
            if (!store->SaveOccurrence(item_.oid, item_.originalStart, item_.f, error))
                return StoreFailure(*store, uid);
            item_.isOverride = true;
            saved_ = item_.f;
        } else {
            oid = item_.oid;
            std::string error;
            std::string uid = store->UidOf(oid);
            // On a conflict the watch picks up the version kept on disk and
            // tells the logon window to show it.
            if (!store->SaveItem(oid, item_.f, hasPending_ ? &pending_ : nullptr, clearRecurrence_, error))
                return StoreFailure(*store, uid);
            item_.oid = oid;
            item_.recurring = (item_.recurring || hasPending_) && !clearRecurrence_;
            hasPending_ = clearRecurrence_ = false;
            saved_ = item_.f;
        }
    }
    origin_.session().NoteOwnChange();
    return S_OK;
}

HRESULT Appointment::Delete() {
    auto store = origin_.session().GetStore();
    if (!store) return kNotLoggedOn;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (deleted_) return kNotFound;
        if (item_.oid == 0) {
            deleted_ = true;  // never saved: nothing in the store to remove
            return S_OK;
        }
        std::string error;
        std::string uid = store->UidOf(item_.oid);
        bool ok = item_.isOccurrence ? store->DeleteOccurrence(item_.oid, item_.originalStart, error)
                                     : store->DeleteItem(item_.oid, error);
        if (!ok) return StoreFailure(*store, uid);
        deleted_ = true;
    }
    origin_.session().NoteOwnChange();
    return S_OK;
}

HRESULT Appointment::Copy(IAppointment** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto* copy = new (std::nothrow) Appointment(origin_);
    if (!copy) return E_OUTOFMEMORY;
    std::lock_guard<std::mutex> lock(mu_);
    copy->item_.f = item_.f;
    copy->saved_ = item_.f;
    // A series copies with its pattern; one occurrence copies as a one-off.
    if ((item_.recurring || hasPending_) && !item_.isOccurrence && !clearRecurrence_) {
        copy->pending_ = PatternLocked();
        copy->pending_.exact = true;
        copy->hasPending_ = true;
    }
    *pp = copy;
    return S_OK;
}

// --------------------------------------------------------------- recurrence

class ExceptionsObj;

class RecPattern : public Dispatch<IRecurrencePattern, IID_IRecurrencePattern> {
public:
    explicit RecPattern(Appointment* appt) : appt_(appt) { appt_->AddRef(); }
    ~RecPattern() override { appt_->Release(); }

    HRESULT STDMETHODCALLTYPE get_RecurrenceType(long* p) override { return Get(&Pattern::type, p); }
    HRESULT STDMETHODCALLTYPE get_StartTime(DATE* p) override {
        if (!p) return E_POINTER;
        Fields f = appt_->GetFields();
        *p = OleFromSecs(f.start - DayOf(f.start) * kSecsPerDay);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_EndTime(DATE* p) override {
        if (!p) return E_POINTER;
        Fields f = appt_->GetFields();
        *p = OleFromSecs(f.end - DayOf(f.end) * kSecsPerDay);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_PatternStartDate(DATE* p) override {
        if (!p) return E_POINTER;
        *p = OleFromSecs(DayOf(appt_->GetFields().start) * kSecsPerDay);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_PatternEndDate(DATE* p) override {
        if (!p) return E_POINTER;
        Pattern pat = appt_->GetPattern();
        if (pat.patternEnd != kNoTime) {
            *p = OleFromSecs(pat.patternEnd);
        } else {
            // No end: the object model's "never" date, 4500-12-31.
            *p = OleFromSecs(DaysFromCivil(4500, 12, 31) * kSecsPerDay);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Duration(long* p) override { return appt_->get_Duration(p); }
    HRESULT STDMETHODCALLTYPE get_Occurrences(long* p) override { return Get(&Pattern::occurrences, p); }
    HRESULT STDMETHODCALLTYPE get_Interval(long* p) override { return Get(&Pattern::interval, p); }
    HRESULT STDMETHODCALLTYPE get_DayOfWeekMask(long* p) override { return Get(&Pattern::dayOfWeekMask, p); }
    HRESULT STDMETHODCALLTYPE get_DayOfMonth(long* p) override { return Get(&Pattern::dayOfMonth, p); }
    HRESULT STDMETHODCALLTYPE get_Instance(long* p) override { return Get(&Pattern::instance, p); }
    HRESULT STDMETHODCALLTYPE get_MonthOfYear(long* p) override { return Get(&Pattern::monthOfYear, p); }
    HRESULT STDMETHODCALLTYPE get_NoEndDate(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        *p = VBool(appt_->GetPattern().NoEnd());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_RecurrenceType(long v) override {
        if (v != olRecursDaily && v != olRecursWeekly && v != olRecursMonthly && v != olRecursMonthNth &&
            v != olRecursYearly && v != olRecursYearNth)
            return E_INVALIDARG;
        return Put(&Pattern::type, v, olRecursDaily, olRecursYearNth);
    }
    HRESULT STDMETHODCALLTYPE put_StartTime(DATE st) override {
        LocalSecs t = 0;
        if (!SecsFromOle(st, t)) return E_INVALIDARG;
        Fields f = appt_->GetFields();
        LocalSecs day = DayOf(f.start) * kSecsPerDay;
        LocalSecs length = f.end - f.start;
        LocalSecs start = day + (t - DayOf(t) * kSecsPerDay);
        appt_->SetTimes(start, start + length);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_EndTime(DATE st) override {
        LocalSecs t = 0;
        if (!SecsFromOle(st, t)) return E_INVALIDARG;
        Fields f = appt_->GetFields();
        LocalSecs end = DayOf(f.start) * kSecsPerDay + (t - DayOf(t) * kSecsPerDay);
        if (end < f.start) end += kSecsPerDay;  // ends after midnight
        appt_->SetTimes(f.start, end);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_PatternStartDate(DATE st) override {
        LocalSecs t = 0;
        if (!SecsFromOle(st, t)) return E_INVALIDARG;
        Fields f = appt_->GetFields();
        LocalSecs shift = (DayOf(t) - DayOf(f.start)) * kSecsPerDay;
        appt_->SetTimes(f.start + shift, f.end + shift);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_PatternEndDate(DATE st) override {
        LocalSecs t = 0;
        if (!SecsFromOle(st, t)) return E_INVALIDARG;
        Pattern p = appt_->GetPattern();
        p.patternEnd = DayOf(t) * kSecsPerDay;
        p.occurrences = 0;
        appt_->SetPattern(p);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Duration(long v) override { return appt_->put_Duration(v); }
    HRESULT STDMETHODCALLTYPE put_Occurrences(long v) override {
        if (v < 1) return E_INVALIDARG;
        Pattern p = appt_->GetPattern();
        p.occurrences = v;
        p.patternEnd = kNoTime;
        appt_->SetPattern(p);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Interval(long v) override { return Put(&Pattern::interval, v, 1, 999); }
    HRESULT STDMETHODCALLTYPE put_DayOfWeekMask(long v) override { return Put(&Pattern::dayOfWeekMask, v, 1, 127); }
    HRESULT STDMETHODCALLTYPE put_DayOfMonth(long v) override { return Put(&Pattern::dayOfMonth, v, 1, 31); }
    HRESULT STDMETHODCALLTYPE put_Instance(long v) override { return Put(&Pattern::instance, v, 1, 5); }
    HRESULT STDMETHODCALLTYPE put_MonthOfYear(long v) override { return Put(&Pattern::monthOfYear, v, 1, 12); }
    HRESULT STDMETHODCALLTYPE put_NoEndDate(VARIANT_BOOL v) override {
        Pattern p = appt_->GetPattern();
        if (v != VARIANT_FALSE) {
            p.occurrences = 0;
            p.patternEnd = kNoTime;
        } else if (p.NoEnd()) {
            // Ending "somewhere" needs a date: the pattern's own first day.
            p.patternEnd = DayOf(appt_->GetFields().start) * kSecsPerDay;
        }
        appt_->SetPattern(p);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetOccurrence(DATE date, IAppointment** pp) override;
    HRESULT STDMETHODCALLTYPE get_Exceptions(IExceptions** pp) override;
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return appt_->get_Application(pp); }

private:
    HRESULT Get(long Pattern::*m, long* p) {
        if (!p) return E_POINTER;
        *p = appt_->GetPattern().*m;
        return S_OK;
    }
    // Sets one field of the pattern, refusing a value outside [lo, hi].
    HRESULT Put(long Pattern::*m, long v, long lo, long hi) {
        if (v < lo || v > hi) return E_INVALIDARG;
        Pattern p = appt_->GetPattern();
        p.*m = v;
        appt_->SetPattern(p);
        return S_OK;
    }
    Appointment* appt_;
};

HRESULT STDMETHODCALLTYPE Appointment::GetRecurrencePattern(IRecurrencePattern** pp) {
    if (!pp) return E_POINTER;
    *pp = new (std::nothrow) RecPattern(this);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

class ExceptionObj : public Dispatch<IException, IID_IException> {
public:
    ExceptionObj(const Origin& origin, const ExceptionInfo& e) : origin_(origin), e_(e) {}
    HRESULT STDMETHODCALLTYPE get_OriginalDate(DATE* p) override {
        if (!p) return E_POINTER;
        *p = OleFromSecs(e_.originalStart);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Deleted(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        *p = VBool(e_.deleted);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_AppointmentItem(IAppointment** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        if (e_.deleted) return kNotFound;  // a deleted occurrence has no item
        *pp = new (std::nothrow) Appointment(origin_, e_.item);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return origin_.app()->get_Application(pp); }

private:
    Origin origin_;
    ExceptionInfo e_;
};

class ExceptionsObj : public Dispatch<IExceptions, IID_IExceptions> {
public:
    ExceptionsObj(const Origin& origin, std::vector<ExceptionInfo> list) : origin_(origin), list_(std::move(list)) {}
    HRESULT STDMETHODCALLTYPE Item(int i, IException** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        if (i < 1 || static_cast<size_t>(i) > list_.size()) return E_INVALIDARG;
        *pp = new (std::nothrow) ExceptionObj(origin_, list_[i - 1]);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_Count(int* p) override {
        if (!p) return E_POINTER;
        *p = static_cast<int>(list_.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pp) override {
        if (pp) *pp = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return origin_.app()->get_Application(pp); }

private:
    Origin origin_;
    std::vector<ExceptionInfo> list_;
};

HRESULT RecPattern::GetOccurrence(DATE date, IAppointment** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    LocalSecs when = 0;
    if (!SecsFromOle(date, when)) return E_INVALIDARG;
    auto store = appt_->origin().session().GetStore();
    if (!store) return kNotLoggedOn;
    std::uint32_t oid = appt_->Oid();
    if (oid == 0) return kNotFound;  // not saved: no occurrences yet
    ItemSnapshot s;
    if (!store->GetOccurrence(oid, when, s)) return kNotFound;
    *pp = new (std::nothrow) Appointment(appt_->origin(), s);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

HRESULT RecPattern::get_Exceptions(IExceptions** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto store = appt_->origin().session().GetStore();
    if (!store) return kNotLoggedOn;
    std::uint32_t oid = appt_->Oid();
    std::vector<ExceptionInfo> list;
    if (oid != 0) list = store->Exceptions(oid);
    *pp = new (std::nothrow) ExceptionsObj(appt_->origin(), std::move(list));
    return *pp ? S_OK : E_OUTOFMEMORY;
}

// --------------------------------------------------------------- collections

enum class SortKey { None, Start, End, Subject, Location, Categories, Duration };

class Collection : public Dispatch<IPOutlookItemCollection, IID_IPOutlookItemCollection> {
public:
    Collection(const Origin& origin, bool infrared) : origin_(origin), infrared_(infrared) {}

    HRESULT STDMETHODCALLTYPE Add(IDispatch** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        if (infrared_) return E_NOTIMPL;
        *pp = new (std::nothrow) Appointment(origin_);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_Count(int* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        HRESULT hr = Refresh();
        if (FAILED(hr)) return hr;
        *p = static_cast<int>(items_.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Find(BSTR restriction, IDispatch** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        auto r = std::make_shared<Restriction>();
        if (!r->Parse(InString(restriction), origin_.session().Picture())) return E_INVALIDARG;
        std::lock_guard<std::mutex> lock(mu_);
        found_.clear();
        cursor_ = 0;
        auto store = origin_.session().GetStore();
        if (!store) return kNotLoggedOn;
        if (!infrared_) found_ = Compute(*store, r.get());
        return NextLocked(pp);
    }
    HRESULT STDMETHODCALLTYPE FindNext(IDispatch** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        std::lock_guard<std::mutex> lock(mu_);
        return NextLocked(pp);
    }
    HRESULT STDMETHODCALLTYPE Item(int i, IDispatch** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        std::lock_guard<std::mutex> lock(mu_);
        HRESULT hr = Refresh();
        if (FAILED(hr)) return hr;
        if (i < 1 || static_cast<size_t>(i) > items_.size()) return E_INVALIDARG;
        *pp = new (std::nothrow) Appointment(origin_, items_[i - 1]);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE Remove(int i) override {
        IDispatch* item = nullptr;
        HRESULT hr = Item(i, &item);
        if (FAILED(hr)) return hr;
        hr = static_cast<IAppointment*>(item)->Delete();
        item->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Restrict(BSTR restriction, IPOutlookItemCollection** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        auto r = std::make_shared<Restriction>();
        if (!r->Parse(InString(restriction), origin_.session().Picture())) return E_INVALIDARG;
        auto* c = new (std::nothrow) Collection(origin_, infrared_);
        if (!c) return E_OUTOFMEMORY;
        std::lock_guard<std::mutex> lock(mu_);
        c->restrictions_ = restrictions_;
        c->restrictions_.push_back(r);
        c->include_ = include_;
        c->sort_ = sort_;
        c->descending_ = descending_;
        *pp = c;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Sort(BSTR property, VARIANT_BOOL descending) override {
        std::wstring name = InString(property);
        for (auto& ch : name) ch = static_cast<wchar_t>(towupper(ch));
        SortKey key = SortKey::None;
        if (name == L"[START]") key = SortKey::Start;
        else if (name == L"[END]") key = SortKey::End;
        else if (name == L"[SUBJECT]") key = SortKey::Subject;
        else if (name == L"[LOCATION]") key = SortKey::Location;
        else if (name == L"[CATEGORIES]") key = SortKey::Categories;
        else if (name == L"[DURATION]") key = SortKey::Duration;
        else return E_INVALIDARG;
        std::lock_guard<std::mutex> lock(mu_);
        sort_ = key;
        descending_ = descending != VARIANT_FALSE;
        generation_ = ~0u;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_IncludeRecurrences(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<std::mutex> lock(mu_);
        *p = VBool(include_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_IncludeRecurrences(VARIANT_BOOL v) override {
        std::lock_guard<std::mutex> lock(mu_);
        include_ = v != VARIANT_FALSE;
        generation_ = ~0u;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pp) override {
        if (pp) *pp = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return origin_.app()->get_Application(pp); }

private:
    std::vector<ItemSnapshot> Compute(const Store& store, const Restriction* extra) const {
        std::vector<const Restriction*> rs;
        for (const auto& r : restrictions_) rs.push_back(r.get());
        if (extra) rs.push_back(extra);
        std::vector<ItemSnapshot> list = store.Query(include_, rs);
        if (sort_ != SortKey::None) {
            SortKey key = sort_;
            bool desc = descending_;
            std::stable_sort(list.begin(), list.end(), [key, desc](const ItemSnapshot& a, const ItemSnapshot& b) {
                const ItemSnapshot& x = desc ? b : a;
                const ItemSnapshot& y = desc ? a : b;
                switch (key) {
                case SortKey::End: return x.f.end < y.f.end;
                case SortKey::Subject: return x.f.subject < y.f.subject;
                case SortKey::Location: return x.f.location < y.f.location;
                case SortKey::Categories: return x.f.categories < y.f.categories;
                case SortKey::Duration: return x.f.end - x.f.start < y.f.end - y.f.start;
                default: return x.f.start < y.f.start;
                }
            });
        }
        return list;
    }
    HRESULT Refresh() {
        auto store = origin_.session().GetStore();
        if (!store) return kNotLoggedOn;
        unsigned gen = origin_.session().Generation();
        if (gen != generation_) {
            items_ = infrared_ ? std::vector<ItemSnapshot>() : Compute(*store, nullptr);
            generation_ = gen;
        }
        return S_OK;
    }
    HRESULT NextLocked(IDispatch** pp) {
        // Nothing (more) found: no item, and not an error.
        if (cursor_ >= found_.size()) return S_OK;
        *pp = new (std::nothrow) Appointment(origin_, found_[cursor_++]);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }

    std::mutex mu_;
    Origin origin_;
    bool infrared_;
    std::vector<std::shared_ptr<Restriction>> restrictions_;
    bool include_ = false;
    SortKey sort_ = SortKey::None;
    bool descending_ = false;
    unsigned generation_ = ~0u;
    std::vector<ItemSnapshot> items_;
    std::vector<ItemSnapshot> found_;
    size_t cursor_ = 0;
};

// --------------------------------------------------------------- folders

class Folder : public Dispatch<IFolder, IID_IFolder> {
public:
    Folder(const Origin& origin, int kind) : origin_(origin), kind_(kind) {}
    HRESULT STDMETHODCALLTYPE get_Items(IPOutlookItemCollection** pp) override {
        if (!pp) return E_POINTER;
        *pp = new (std::nothrow) Collection(origin_, kind_ == olFolderInfrared);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_DefaultItemType(int* p) override {
        if (!p) return E_POINTER;
        *p = olAppointmentItem;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return origin_.app()->get_Application(pp); }
    // Beaming (the infrared folder's outbox) arrives with the day view.
    HRESULT STDMETHODCALLTYPE AddItemToInfraredFolder(int, IDispatch*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SendToInfrared() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveFromInfrared(IPOutlookItemCollection** pp) override {
        if (pp) *pp = nullptr;
        return E_NOTIMPL;
    }

private:
    Origin origin_;
    int kind_;
};

HRESULT App::GetDefaultFolder(int olFolder, IFolder** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (olFolder != olFolderCalendar && olFolder != olFolderInfrared) return E_INVALIDARG;
    auto session = Current();
    if (!session) return kNotLoggedOn;
    *pp = new (std::nothrow) Folder(Origin(this, session), olFolder);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

HRESULT App::CreateItem(int olItem, IDispatch** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (olItem != olAppointmentItem) return E_INVALIDARG;  // contacts and tasks are not kept
    auto session = Current();
    if (!session) return kNotLoggedOn;
    *pp = new (std::nothrow) Appointment(Origin(this, session));
    return *pp ? S_OK : E_OUTOFMEMORY;
}

HRESULT App::GetItemFromOid(long oid, IDispatch** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto session = Current();
    auto store = session ? session->GetStore() : nullptr;
    if (!store) return kNotLoggedOn;
    ItemSnapshot s;
    if (!store->Get(static_cast<std::uint32_t>(oid), s)) return kNotFound;
    *pp = new (std::nothrow) Appointment(Origin(this, session), s);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

HRESULT CreateApplication(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    auto* app = new (std::nothrow) App();
    if (!app) return E_OUTOFMEMORY;
    HRESULT hr = app->QueryInterface(riid, ppv);
    app->Release();
    return hr;
}

}  // namespace poom
