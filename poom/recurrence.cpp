// An appointment's recurrence pattern, its occurrences, and the exceptions
// of its series (occurrences changed or deleted on their own).
#include "objects.h"

#include <new>
#include <vector>

namespace poom {

namespace {

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

}  // namespace

IRecurrencePattern* NewRecurrencePattern(Appointment* appt) { return new (std::nothrow) RecPattern(appt); }

}  // namespace poom
