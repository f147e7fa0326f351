// An item collection: a folder's appointments, found, restricted and sorted
// by the object model's restriction language; with recurrences included,
// each occurrence of a series is an item of its own.
#include "objects.h"

#include <algorithm>
#include <new>
#include <vector>

namespace poom {

namespace {

enum class SortKey { None, Start, End, Subject, Location, Categories, Duration };

// The engine counts days from 1970-01-01, the object model from 1899-12-30.
const long kCivilDayOffset = 25569;

class Collection : public Dispatch<IPOutlookItemCollection, IID_IPOutlookItemCollection>,
                   public ILanternfieldsDayGrid {
public:
    Collection(const Origin& origin, bool infrared) : origin_(origin), infrared_(infrared) {}
    ~Collection() override {
        if (handed_) handed_->Release();
        if (auto store = origin_.session().GetStore()) {
            store->Recycle(std::move(found_));
            store->Recycle(std::move(items_));
        }
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv && IsEqualIID(riid, IID_ILanternfieldsDayGrid)) {
            *ppv = static_cast<ILanternfieldsDayGrid*>(this);
            AddRef();
            return S_OK;
        }
        return Dispatch::QueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return Dispatch::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return Dispatch::Release(); }

    HRESULT STDMETHODCALLTYPE SetDayGrid(int count, const long* marks, const BYTE* startPixels,
                                         const BYTE* endPixels, long firstDay, long lastDay) override {
        if (count < 0 || count > 1000 || (count > 0 && !marks) || (!startPixels) != (!endPixels) ||
            firstDay > lastDay)
            return E_INVALIDARG;
        lfical::DayGrid grid;
        for (int i = 0; i < count; ++i) {
            if (marks[i] <= 0 || marks[i] >= 86400 || (i > 0 && marks[i] <= marks[i - 1])) return E_INVALIDARG;
            grid.marks.push_back(static_cast<int32_t>(marks[i]));
        }
        if (startPixels) {
            grid.startPixel.assign(startPixels, startPixels + count + 1);
            grid.endPixel.assign(endPixels, endPixels + count + 1);
        }
        if (firstDay || lastDay) {
            grid.firstDay = firstDay - kCivilDayOffset;
            grid.lastDay = lastDay - kCivilDayOffset;
        }
        std::lock_guard<ObjectLock> lock(mu_);
        hasGrid_ = count > 0 || startPixels;
        grid_ = std::move(grid);
        generation_ = ~0u;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsDayThinned(long day, VARIANT_BOOL* thinned) override {
        if (!thinned) return E_POINTER;
        std::lock_guard<ObjectLock> lock(mu_);
        *thinned = VBool(std::binary_search(thinnedDays_.begin(), thinnedDays_.end(), day - kCivilDayOffset));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Add(IDispatch** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        if (infrared_) return E_NOTIMPL;
        *pp = new (std::nothrow) Appointment(origin_);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_Count(int* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<ObjectLock> lock(mu_);
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
        std::lock_guard<ObjectLock> lock(mu_);
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
        std::lock_guard<ObjectLock> lock(mu_);
        return NextLocked(pp);
    }
    HRESULT STDMETHODCALLTYPE Item(int i, IDispatch** pp) override {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        std::lock_guard<ObjectLock> lock(mu_);
        HRESULT hr = Refresh();
        if (FAILED(hr)) return hr;
        if (i < 1 || static_cast<size_t>(i) > items_.size()) return E_INVALIDARG;
        *pp = new (std::nothrow) Appointment(origin_, items_[i - 1].Snapshot());
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
        std::lock_guard<ObjectLock> lock(mu_);
        c->restrictions_ = restrictions_;
        c->restrictions_.push_back(r);
        c->include_ = include_;
        c->sort_ = sort_;
        c->descending_ = descending_;
        c->grid_ = grid_;
        c->hasGrid_ = hasGrid_;
        *pp = static_cast<IPOutlookItemCollection*>(c);
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
        std::lock_guard<ObjectLock> lock(mu_);
        sort_ = key;
        descending_ = descending != VARIANT_FALSE;
        generation_ = ~0u;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_IncludeRecurrences(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        std::lock_guard<ObjectLock> lock(mu_);
        *p = VBool(include_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_IncludeRecurrences(VARIANT_BOOL v) override {
        std::lock_guard<ObjectLock> lock(mu_);
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
    std::vector<FoundItem> Compute(const Store& store, const Restriction* extra) {
        std::vector<const Restriction*> rs;
        for (const auto& r : restrictions_) rs.push_back(r.get());
        if (extra) rs.push_back(extra);
        // The view's grid rides on an empty restriction of our own.
        Restriction carrier;
        lfical::QueryReport report;
        if (hasGrid_) {
            carrier.grid = &grid_;
            carrier.report = &report;
            rs.push_back(&carrier);
        }
        std::vector<FoundItem> list = store.QueryItems(include_, rs);
        thinnedDays_ = std::move(report.thinnedDays);
        std::sort(thinnedDays_.begin(), thinnedDays_.end());
        // With recurrences the store answers in order of start: sorting
        // again by start would change nothing.
        bool inOrder = include_ && sort_ == SortKey::Start && !descending_;
        if (sort_ != SortKey::None && !inOrder) {
            SortKey key = sort_;
            bool desc = descending_;
            std::stable_sort(list.begin(), list.end(), [key, desc](const FoundItem& a, const FoundItem& b) {
                const FoundItem& x = desc ? b : a;
                const FoundItem& y = desc ? a : b;
                switch (key) {
                case SortKey::End: return x.end < y.end;
                case SortKey::Subject: return x.Text(&Fields::subject) < y.Text(&Fields::subject);
                case SortKey::Location: return x.Text(&Fields::location) < y.Text(&Fields::location);
                case SortKey::Categories: return x.Text(&Fields::categories) < y.Text(&Fields::categories);
                case SortKey::Duration: return x.end - x.start < y.end - y.start;
                default: return x.start < y.start;
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
            items_ = infrared_ ? std::vector<FoundItem>() : Compute(*store, nullptr);
            generation_ = gen;
        }
        return S_OK;
    }
    HRESULT NextLocked(IDispatch** pp) {
        // Nothing (more) found: no item, and not an error.
        if (cursor_ >= found_.size()) return S_OK;
        // Each found item is handed out once, and let go of then.
        FoundItem found = std::move(found_[cursor_++]);
        // A walk lets each item go before it asks for the next: the last
        // one handed out then serves again.
        if (handed_ && handed_->HeldOnlyOnce()) {
            handed_->Reuse(std::move(found));
        } else {
            Appointment* made = new (std::nothrow) Appointment(origin_, found.Snapshot());
            if (!made) return E_OUTOFMEMORY;
            if (handed_) handed_->Release();
            handed_ = made;
        }
        handed_->AddRef();
        *pp = handed_;
        return S_OK;
    }

    ObjectLock mu_;
    Origin origin_;
    bool infrared_;
    std::vector<std::shared_ptr<Restriction>> restrictions_;
    bool include_ = false;
    SortKey sort_ = SortKey::None;
    bool descending_ = false;
    unsigned generation_ = ~0u;
    std::vector<FoundItem> items_;
    std::vector<FoundItem> found_;
    size_t cursor_ = 0;
    Appointment* handed_ = nullptr;  // the last item handed out, with a reference of our own
    lfical::DayGrid grid_;
    bool hasGrid_ = false;
    std::vector<int64_t> thinnedDays_;  // engine days, ascending
};

}  // namespace

IPOutlookItemCollection* NewCollection(const Origin& origin, bool infrared) {
    return static_cast<IPOutlookItemCollection*>(new (std::nothrow) Collection(origin, infrared));
}

}  // namespace poom
