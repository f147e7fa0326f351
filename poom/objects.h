// The calendar server's COM objects: the application object and what it
// hands out (folders, item collections, appointments, recurrence patterns,
// exceptions), each in a file of its own. This is what they share.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pimstore_if.h"
#include "session.h"

namespace poom {

// Live objects and server locks, for DllCanUnloadNow.
extern std::atomic<long> g_liveObjects;
extern std::atomic<long> g_serverLocks;

// A new application object (one reference held by the caller).
HRESULT CreateApplication(REFIID riid, void** ppv);

// Failure codes the server reports.
const HRESULT kNotLoggedOn = E_FAIL;        // no store open
const HRESULT kNotFound = E_INVALIDARG;     // no item or occurrence by that name
const HRESULT kStoreFailed = E_FAIL;        // the store refused a change
// Another program changed the same appointment since we read it ("the file
// has been altered externally"); its version is kept and shown, and ours is
// kept beside it as a new appointment.
const HRESULT kConflict = HRESULT_FROM_WIN32(ERROR_FILE_INVALID);
// Another program deleted the appointment (or the occurrence) since we read
// it; ours is kept as a new appointment.
const HRESULT kDeletedMeanwhile = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

inline HRESULT StoreFailure(const Store& store, const std::string& uid) {
    if (store.KeptAfterDelete()) return kDeletedMeanwhile;
    auto conflicts = store.LastConflicts();
    if (!uid.empty() && std::find(conflicts.begin(), conflicts.end(), uid) != conflicts.end()) return kConflict;
    return kStoreFailed;
}

inline HRESULT OutString(const std::wstring& s, BSTR* out) {
    if (!out) return E_POINTER;
    *out = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

inline std::wstring InString(BSTR b) { return b ? std::wstring(b, SysStringLen(b)) : std::wstring(); }

inline VARIANT_BOOL VBool(bool b) { return b ? VARIANT_TRUE : VARIANT_FALSE; }

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
    // Whether the one reference left is the caller's own.
    bool HeldOnlyOnce() const { return refs_.load(std::memory_order_acquire) == 1; }
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

// An appointment (appointment.cpp). The application, collections and
// exceptions make them, and a recurrence pattern works on the appointment
// it came from, so its shape is shared.
class Appointment : public Dispatch<IAppointment, IID_IAppointment> {
public:
    // A stored item or occurrence. Texts it shares with the other
    // occurrences of its event are read from there until it needs its own.
    Appointment(const Origin& origin, ItemSnapshot s) : origin_(origin), item_(std::move(s)), saved_(item_.f) {}
    // A new item, not in the store until saved.
    explicit Appointment(const Origin& origin);
    // The next item of a walk in an appointment its caller has let go (the
    // walk held the only reference left): as if made anew for it, without
    // a new object's taking and letting go of the logon.
    void Reuse(FoundItem&& found);

    // A walk makes and lets go of an appointment per item: each thread keeps
    // a few let-go blocks for the next ones rather than asking the heap.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* p) noexcept;

    Pattern GetPattern();
    void SetPattern(const Pattern& p);
    Fields GetFields();
    void SetTimes(LocalSecs start, LocalSecs end);
    std::uint32_t Oid();
    const Origin& origin() const { return origin_; }

    // What the appointment form shows, read in one go.
    struct FormView {
        Fields f;
        bool isNew = false;         // never saved
        bool isOccurrence = false;  // one occurrence of a series: the form leaves the series alone
        bool recurring = false;
        Pattern pattern;            // the series' pattern, or a fresh one
    };
    FormView ForForm();
    // The form's OK: takes the fields and, for a series, the new pattern
    // (null keeps it; clearRecurrence makes a one-off), and saves. On failure
    // the appointment is as it was before.
    HRESULT SaveFromForm(const Fields& f, const Pattern* pattern, bool clearRecurrence);
    // Every category some appointment in the store carries, each once.
    std::vector<std::wstring> CategoriesInUse();

    HRESULT STDMETHODCALLTYPE GetRecurrencePattern(IRecurrencePattern** pp) override;
    HRESULT STDMETHODCALLTYPE get_IsRecurring(VARIANT_BOOL* p) override;
    HRESULT STDMETHODCALLTYPE get_Subject(BSTR* p) override { return Text(&Fields::subject, p); }
    HRESULT STDMETHODCALLTYPE get_Location(BSTR* p) override { return Text(&Fields::location, p); }
    HRESULT STDMETHODCALLTYPE get_Categories(BSTR* p) override { return Text(&Fields::categories, p); }
    HRESULT STDMETHODCALLTYPE get_Body(BSTR* p) override { return Text(&Fields::body, p); }
    HRESULT STDMETHODCALLTYPE get_Start(DATE* p) override;
    HRESULT STDMETHODCALLTYPE get_End(DATE* p) override;
    HRESULT STDMETHODCALLTYPE get_Duration(long* p) override;
    HRESULT STDMETHODCALLTYPE get_AllDayEvent(VARIANT_BOOL* p) override { return Flag(&Fields::allDay, p); }
    HRESULT STDMETHODCALLTYPE get_BusyStatus(long* p) override { return Number(&Fields::busyStatus, p); }
    HRESULT STDMETHODCALLTYPE get_Sensitivity(long* p) override { return Number(&Fields::sensitivity, p); }
    HRESULT STDMETHODCALLTYPE get_Recipients(IRecipients** p) override;
    HRESULT STDMETHODCALLTYPE get_MeetingStatus(long* p) override;
    HRESULT STDMETHODCALLTYPE get_ReminderSet(VARIANT_BOOL* p) override { return Flag(&Fields::reminderSet, p); }
    HRESULT STDMETHODCALLTYPE get_ReminderSoundFile(BSTR* p) override;
    HRESULT STDMETHODCALLTYPE get_ReminderMinutesBeforeStart(long* p) override;
    HRESULT STDMETHODCALLTYPE get_ReminderOptions(long* p) override;
    HRESULT STDMETHODCALLTYPE put_Subject(BSTR v) override { return SetText(&Fields::subject, v); }
    HRESULT STDMETHODCALLTYPE put_Location(BSTR v) override { return SetText(&Fields::location, v); }
    HRESULT STDMETHODCALLTYPE put_Categories(BSTR v) override { return SetText(&Fields::categories, v); }
    HRESULT STDMETHODCALLTYPE put_Body(BSTR v) override { return SetText(&Fields::body, v); }
    HRESULT STDMETHODCALLTYPE put_Start(DATE st) override;
    HRESULT STDMETHODCALLTYPE put_End(DATE st) override;
    HRESULT STDMETHODCALLTYPE put_Duration(long minutes) override;
    HRESULT STDMETHODCALLTYPE put_AllDayEvent(VARIANT_BOOL v) override;
    HRESULT STDMETHODCALLTYPE put_BusyStatus(long v) override;
    HRESULT STDMETHODCALLTYPE put_Sensitivity(long v) override;
    HRESULT STDMETHODCALLTYPE put_ReminderSet(VARIANT_BOOL v) override;
    HRESULT STDMETHODCALLTYPE put_ReminderSoundFile(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_ReminderMinutesBeforeStart(long v) override;
    HRESULT STDMETHODCALLTYPE put_ReminderOptions(long) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Save() override;
    HRESULT STDMETHODCALLTYPE Send() override { return E_NOTIMPL; }  // meeting requests: none
    HRESULT STDMETHODCALLTYPE Delete() override;
    HRESULT STDMETHODCALLTYPE Cancel() override { return E_NOTIMPL; }  // meeting cancellation: none
    HRESULT STDMETHODCALLTYPE Copy(IAppointment** pp) override;
    // The server's own appointment form (form/form.cpp), modal; it saves on OK.
    HRESULT STDMETHODCALLTYPE Display() override;
    HRESULT STDMETHODCALLTYPE get_Oid(long* p) override;
    HRESULT STDMETHODCALLTYPE get_BodyInk(BSTR* p) override;
    HRESULT STDMETHODCALLTYPE put_BodyInk(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ClearRecurrencePattern() override;
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override;

private:
    Pattern PatternLocked();
    // Makes the shared texts this appointment's own (and the saved ones),
    // before anything reads or changes the fields as a whole or a text.
    void OwnTextsLocked();
    void KeptAloneLocked(std::uint32_t oid);
    HRESULT Text(std::wstring Fields::*m, BSTR* p);
    HRESULT SetText(std::wstring Fields::*m, BSTR v);
    HRESULT Flag(bool Fields::*m, VARIANT_BOOL* p);
    HRESULT Number(long Fields::*m, long* p);
    HRESULT SetNumber(long Fields::*m, long v);

    ObjectLock mu_;
    Origin origin_;
    ItemSnapshot item_;
    Fields saved_;  // as last read from or written to the store
    // What happened to the appointment since it was read, beyond its fields.
    struct Edits {
        bool hasPending = false;
        Pattern pending;
        // The series' pattern as last read from the store (the form reads it
        // on opening): kept, should another program delete the series meanwhile.
        bool hasRead = false;
        Pattern read;
        bool clearRecurrence = false;
        bool deleted = false;
    } edits_;
};

// What the objects hand out, with one reference held by the caller; null
// when memory ran out.
IFolder* NewFolder(const Origin& origin, int kind);
IPOutlookItemCollection* NewCollection(const Origin& origin, bool infrared);
IRecurrencePattern* NewRecurrencePattern(Appointment* appt);

}  // namespace poom
