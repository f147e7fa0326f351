// An appointment: a stored item, one occurrence of a series, or a new item
// not yet saved. Its fields are a copy taken from the store; Save writes
// the changes back.
#include "objects.h"

#include <new>
#include <set>

#include "form/form.h"

namespace poom {

Appointment::Appointment(const Origin& origin) : origin_(origin) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    CivilTime t{now.wYear, now.wMonth, now.wDay, now.wHour, 0, 0};
    item_.f.start = ToSecs(t) + 3600;  // the next full hour
    item_.f.end = item_.f.start + 3600;
    item_.f.reminderSet = false;
    saved_ = item_.f;
}

void Appointment::Reuse(FoundItem&& found) {
    // No lock: no one else holds the appointment, and the reference its
    // last holder let go made that holder's changes ours to see.
    found.Into(item_);
    item_.texts = std::move(found.texts);
    found.Into(saved_);
    edits_ = Edits();
}

// The pattern the appointment has or will have on Save.
Pattern Appointment::GetPattern() {
    std::lock_guard<ObjectLock> lock(mu_);
    return PatternLocked();
}

void Appointment::SetPattern(const Pattern& p) {
    std::lock_guard<ObjectLock> lock(mu_);
    edits_.pending = p;
    edits_.pending.exact = true;
    edits_.hasPending = true;
    edits_.clearRecurrence = false;
}

namespace {

// Blocks of appointments let go of on this thread, for the next ones made
// on it. Nothing to run at a thread's end (the server may be unloaded before
// a thread of the program ends): the few blocks a thread keeps go with it.
constexpr int kKeptBlocks = 32;
struct AppointmentBlocks {
    void* blocks[kKeptBlocks];
    int count;
};
thread_local AppointmentBlocks t_blocks;

}  // namespace

void* Appointment::operator new(std::size_t size) {
    if (size == sizeof(Appointment) && t_blocks.count) return t_blocks.blocks[--t_blocks.count];
    return ::operator new(size);
}

void* Appointment::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (...) {
        return nullptr;
    }
}

void Appointment::operator delete(void* p) noexcept {
    if (!p) return;
    if (t_blocks.count < kKeptBlocks) {
        t_blocks.blocks[t_blocks.count++] = p;
        return;
    }
    ::operator delete(p);
}

void Appointment::OwnTextsLocked() {
    if (!item_.texts) return;
    const Fields& texts = item_.texts->All();
    saved_.subject = texts.subject;
    saved_.location = texts.location;
    saved_.categories = texts.categories;
    saved_.body = texts.body;
    item_.OwnTexts();
}

Fields Appointment::GetFields() {
    std::lock_guard<ObjectLock> lock(mu_);
    OwnTextsLocked();
    return item_.f;
}

void Appointment::SetTimes(LocalSecs start, LocalSecs end) {
    std::lock_guard<ObjectLock> lock(mu_);
    item_.f.start = start;
    item_.f.end = std::max(start, end);
}

std::uint32_t Appointment::Oid() {
    std::lock_guard<ObjectLock> lock(mu_);
    return item_.oid;
}

HRESULT STDMETHODCALLTYPE Appointment::get_IsRecurring(VARIANT_BOOL* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = VBool((item_.recurring || edits_.hasPending) && !edits_.clearRecurrence);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_Start(DATE* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = OleFromSecs(item_.f.start);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_End(DATE* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = OleFromSecs(item_.f.end);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_Duration(long* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = static_cast<long>((item_.f.end - item_.f.start) / 60);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_Recipients(IRecipients** p) {
    // Meetings with attendees are not part of this calendar.
    if (p) *p = nullptr;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE Appointment::get_MeetingStatus(long* p) {
    if (!p) return E_POINTER;
    *p = 0;  // olNonMeeting: the server keeps no attendees
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_ReminderSoundFile(BSTR* p) {
    if (p) *p = nullptr;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE Appointment::get_ReminderMinutesBeforeStart(long* p) {
    return Number(&Fields::reminderMinutes, p);
}

HRESULT STDMETHODCALLTYPE Appointment::get_ReminderOptions(long* p) {
    if (p) *p = 0;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE Appointment::put_Start(DATE st) {
    LocalSecs s = 0;
    if (!SecsFromOle(st, s)) return E_INVALIDARG;
    std::lock_guard<ObjectLock> lock(mu_);
    // Moving the start keeps the length, as the device's form does.
    LocalSecs length = item_.f.end - item_.f.start;
    item_.f.start = s;
    item_.f.end = s + length;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::put_End(DATE st) {
    LocalSecs s = 0;
    if (!SecsFromOle(st, s)) return E_INVALIDARG;
    std::lock_guard<ObjectLock> lock(mu_);
    if (s < item_.f.start) return E_INVALIDARG;
    item_.f.end = s;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::put_Duration(long minutes) {
    if (minutes < 0) return E_INVALIDARG;
    std::lock_guard<ObjectLock> lock(mu_);
    item_.f.end = item_.f.start + static_cast<LocalSecs>(minutes) * 60;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::put_AllDayEvent(VARIANT_BOOL v) {
    std::lock_guard<ObjectLock> lock(mu_);
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

HRESULT STDMETHODCALLTYPE Appointment::put_BusyStatus(long v) {
    if (v < olFree || v > olOutOfOffice) return E_INVALIDARG;
    return SetNumber(&Fields::busyStatus, v);
}

HRESULT STDMETHODCALLTYPE Appointment::put_Sensitivity(long v) {
    if (v < olNormal || v > olConfidential) return E_INVALIDARG;
    return SetNumber(&Fields::sensitivity, v);
}

HRESULT STDMETHODCALLTYPE Appointment::put_ReminderSet(VARIANT_BOOL v) {
    std::lock_guard<ObjectLock> lock(mu_);
    item_.f.reminderSet = v != VARIANT_FALSE;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::put_ReminderMinutesBeforeStart(long v) {
    if (v < 0) return E_INVALIDARG;
    return SetNumber(&Fields::reminderMinutes, v);
}

HRESULT STDMETHODCALLTYPE Appointment::get_Oid(long* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = static_cast<long>(item_.oid);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_BodyInk(BSTR* p) {
    if (p) *p = nullptr;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE Appointment::ClearRecurrencePattern() {
    std::lock_guard<ObjectLock> lock(mu_);
    if (item_.isOccurrence) return E_INVALIDARG;  // only the series can stop recurring
    edits_.hasPending = false;
    edits_.clearRecurrence = item_.recurring;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Appointment::get_Application(IPOutlookApp** pp) {
    return origin_.app()->get_Application(pp);
}

Pattern Appointment::PatternLocked() {
    if (edits_.hasPending) return edits_.pending;
    Pattern p;
    if (item_.recurring && item_.oid != 0 && !edits_.clearRecurrence) {
        auto store = origin_.session().GetStore();
        if (store && store->GetPattern(item_.oid, p)) {
            edits_.read = p;
            edits_.hasRead = true;
            return p;
        }
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

HRESULT Appointment::Text(std::wstring Fields::*m, BSTR* p) {
    std::lock_guard<ObjectLock> lock(mu_);
    return OutString(item_.Text(m), p);
}

HRESULT Appointment::SetText(std::wstring Fields::*m, BSTR v) {
    std::lock_guard<ObjectLock> lock(mu_);
    OwnTextsLocked();
    item_.f.*m = InString(v);
    return S_OK;
}

HRESULT Appointment::Flag(bool Fields::*m, VARIANT_BOOL* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = VBool(item_.f.*m);
    return S_OK;
}

HRESULT Appointment::Number(long Fields::*m, long* p) {
    if (!p) return E_POINTER;
    std::lock_guard<ObjectLock> lock(mu_);
    *p = item_.f.*m;
    return S_OK;
}

HRESULT Appointment::SetNumber(long Fields::*m, long v) {
    std::lock_guard<ObjectLock> lock(mu_);
    item_.f.*m = v;
    return S_OK;
}
HRESULT Appointment::Save() {
    auto store = origin_.session().GetStore();
    if (!store) return kNotLoggedOn;
    std::uint32_t oid = 0, changed = 0;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        if (edits_.deleted) return kNotFound;
        OwnTextsLocked();
        if (item_.isOccurrence) {
            if (FieldsEqual(item_.f, saved_)) return S_OK;
            // A changed occurrence is an exception of its series; the rest
            // of the series stays as it was.
            std::string error, uid = store->UidOf(item_.oid);
            // As for an appointment, a sync's change to the occurrence since
            // it was read is kept, and ours beside it.
            if (!store->SaveOccurrence(item_.oid, item_.originalStart, item_.f, error, &saved_)) {
                HRESULT hr = StoreFailure(*store, uid);
                ItemSnapshot now;
                if (hr == kConflict && store->GetOccurrence(item_.oid, item_.originalStart, now)) saved_ = now.f;
                if (hr == kDeletedMeanwhile) KeptAloneLocked(store->KeptAfterDelete());
                return hr;
            }
            item_.isOverride = true;
            saved_ = item_.f;
        } else {
            oid = item_.oid;
            std::string error;
            std::string uid = store->UidOf(oid);
            // On a conflict the store keeps the other program's version and
            // ours beside it; the watch tells the logon window to show both.
            if (!store->SaveItem(oid, item_.f, edits_.hasPending ? &edits_.pending : nullptr, edits_.clearRecurrence, error,
                                 oid ? &saved_ : nullptr, item_.recurring && edits_.hasRead ? &edits_.read : nullptr)) {
                HRESULT hr = StoreFailure(*store, uid);
                // Ours is kept beside the other version now; a caller that
                // saves again means to write it over that version.
                ItemSnapshot now;
                if (hr == kConflict && store->Get(item_.oid, now)) saved_ = now.f;
                if (hr == kDeletedMeanwhile) KeptAloneLocked(store->KeptAfterDelete());
                return hr;
            }
            item_.oid = oid;
            item_.recurring = (item_.recurring || edits_.hasPending) && !edits_.clearRecurrence;
            edits_.hasPending = edits_.clearRecurrence = false;
            saved_ = item_.f;
        }
        changed = item_.oid;
    }
    origin_.session().NoteOwnChange(changed);
    return S_OK;
}

void Appointment::KeptAloneLocked(std::uint32_t oid) {
    // Its original was deleted by another program; from now on this is the
    // new appointment that keeps what was saved.
    item_.oid = oid;
    item_.recurring = edits_.hasPending && !edits_.clearRecurrence && !item_.isOccurrence;
    item_.isOccurrence = item_.isOverride = false;
    item_.originalStart = item_.f.start;
    edits_.hasPending = edits_.clearRecurrence = false;
    saved_ = item_.f;
}

HRESULT Appointment::Delete() {
    auto store = origin_.session().GetStore();
    if (!store) return kNotLoggedOn;
    std::uint32_t changed = 0;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        if (edits_.deleted) return kNotFound;
        if (item_.oid == 0) {
            edits_.deleted = true;  // never saved: nothing in the store to remove
            return S_OK;
        }
        std::string error;
        std::string uid = store->UidOf(item_.oid);
        bool ok = item_.isOccurrence ? store->DeleteOccurrence(item_.oid, item_.originalStart, error)
                                     : store->DeleteItem(item_.oid, error);
        if (!ok) return StoreFailure(*store, uid);
        edits_.deleted = true;
        changed = item_.oid;
    }
    origin_.session().NoteOwnChange(changed);
    return S_OK;
}

HRESULT Appointment::Copy(IAppointment** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto* copy = new (std::nothrow) Appointment(origin_);
    if (!copy) return E_OUTOFMEMORY;
    std::lock_guard<ObjectLock> lock(mu_);
    OwnTextsLocked();
    copy->item_.f = item_.f;
    copy->saved_ = item_.f;
    // A series copies with its pattern; one occurrence copies as a one-off.
    if ((item_.recurring || edits_.hasPending) && !item_.isOccurrence && !edits_.clearRecurrence) {
        copy->edits_.pending = PatternLocked();
        copy->edits_.pending.exact = true;
        copy->edits_.hasPending = true;
    }
    *pp = copy;
    return S_OK;
}

Appointment::FormView Appointment::ForForm() {
    std::lock_guard<ObjectLock> lock(mu_);
    OwnTextsLocked();
    FormView v;
    v.f = item_.f;
    v.isNew = item_.oid == 0;
    v.isOccurrence = item_.isOccurrence;
    v.recurring = (item_.recurring || edits_.hasPending) && !edits_.clearRecurrence;
    v.pattern = PatternLocked();
    return v;
}

HRESULT Appointment::SaveFromForm(const Fields& f, const Pattern* pattern, bool clearRecurrence) {
    Fields wasFields;
    Pattern wasPending;
    bool wasHasPending = false, wasClear = false;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        OwnTextsLocked();
        wasFields = item_.f;
        wasPending = edits_.pending;
        wasHasPending = edits_.hasPending;
        wasClear = edits_.clearRecurrence;
        item_.f = f;
        if (!item_.isOccurrence) {
            if (clearRecurrence) {
                edits_.hasPending = false;
                edits_.clearRecurrence = item_.recurring;
            } else if (pattern) {
                edits_.pending = *pattern;
                edits_.pending.exact = true;
                edits_.hasPending = true;
                edits_.clearRecurrence = false;
            }
        }
    }
    HRESULT hr = Save();
    // Kept as a new appointment, the form's fields are what it holds now.
    if (FAILED(hr) && hr != kDeletedMeanwhile) {
        std::lock_guard<ObjectLock> lock(mu_);
        item_.f = wasFields;
        edits_.pending = wasPending;
        edits_.hasPending = wasHasPending;
        edits_.clearRecurrence = wasClear;
    }
    return hr;
}

std::vector<std::wstring> Appointment::CategoriesInUse() {
    std::vector<std::wstring> out;
    auto store = origin_.session().GetStore();
    if (!store) return out;
    std::set<std::wstring> seen;
    for (const auto& item : store->Query(false, {})) {
        const std::wstring& all = item.f.categories;
        size_t pos = 0;
        while (pos <= all.size()) {
            size_t comma = all.find(L',', pos);
            if (comma == std::wstring::npos) comma = all.size();
            std::wstring one = all.substr(pos, comma - pos);
            size_t b = one.find_first_not_of(L" \t"), e = one.find_last_not_of(L" \t");
            if (b != std::wstring::npos && seen.insert(one.substr(b, e - b + 1)).second)
                out.push_back(one.substr(b, e - b + 1));
            pos = comma + 1;
        }
    }
    return out;
}

HRESULT STDMETHODCALLTYPE Appointment::Display() {
    if (!origin_.session().GetStore()) return kNotLoggedOn;
    return ShowAppointmentForm(this);
}

HRESULT STDMETHODCALLTYPE Appointment::GetRecurrencePattern(IRecurrencePattern** pp) {
    if (!pp) return E_POINTER;
    *pp = NewRecurrencePattern(this);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

}  // namespace poom
