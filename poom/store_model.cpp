#include "store_model.h"

#include <algorithm>
#include <climits>
#include <set>
#include <unordered_map>

namespace poom {

namespace {

// lfical counts civil seconds from 1970-01-01, the object model from 1899-12-30.
constexpr LocalSecs kCivilOffset = 25569LL * kSecsPerDay;
LocalSecs FromCivil(int64_t civil) { return civil + kCivilOffset; }
int64_t ToCivil(LocalSecs s) { return s - kCivilOffset; }

// The span an unrestricted query with recurrences covers: a series without
// an end would otherwise have no last occurrence.
const LocalSecs kFirstQueried = DaysFromCivil(1900, 1, 1) * kSecsPerDay;
const LocalSecs kLastQueried = DaysFromCivil(2101, 1, 1) * kSecsPerDay;

std::wstring Categories(const std::vector<std::string>& cats) {
    std::wstring out;
    for (const auto& c : cats) {
        if (!out.empty()) out += L", ";
        out += WideFromUtf8(c);
    }
    return out;
}

std::vector<std::string> SplitCategories(const std::wstring& w) {
    std::vector<std::string> out;
    for (const std::wstring& name : CategoryNames(w)) out.push_back(Utf8FromWide(name));
    return out;
}

long SensitivityOfClass(const std::string& cls) {
    if (cls == "PRIVATE") return kSensPrivate;
    if (cls == "CONFIDENTIAL") return kSensConfidential;
    return kSensNormal;
}

const char* ClassOfSensitivity(long s) {
    // iCalendar has no "personal" class: PRIVATE is the nearest.
    if (s == kSensPrivate || s == kSensPersonal) return "PRIVATE";
    if (s == kSensConfidential) return "CONFIDENTIAL";
    return "PUBLIC";
}

}  // namespace

RestrictRecord RecordOf(const ItemSnapshot& s) {
    RestrictRecord r;
    r.start = s.f.start;
    r.end = s.f.end;
    r.subject = s.f.subject;
    r.location = s.f.location;
    r.categories = s.f.categories;
    r.body = s.f.body;
    r.allDay = s.f.allDay;
    r.isRecurring = s.recurring;
    r.reminderSet = s.f.reminderSet;
    r.busyStatus = s.f.busyStatus;
    r.sensitivity = s.f.sensitivity;
    r.duration = static_cast<long>((s.f.end - s.f.start) / 60);
    r.reminderMinutes = s.f.reminderMinutes;
    r.oid = static_cast<long>(s.oid);
    return r;
}

Store::Store(lfical::Zone local) : local_(std::move(local)) {}

bool Store::Open(const std::string& path, bool createIfMissing, std::string& error, bool directory) {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    auto fresh = std::make_unique<lfical::Store>();
    if (createIfMissing) {
        fresh->create(path);
    } else {
        std::vector<lfical::Problem> problems;
        // In a directory store, a file that is not a calendar is kept as it
        // is and the rest is served; the engine never writes such a file.
        bool served = fresh->load(path, &problems) || (directory && fresh->eventCount() > 0);
        if (!served) {
            error = "the store cannot be read";
            if (!problems.empty()) {
                const auto& p = problems.front();
                error += ": " + p.file + ":" + std::to_string(p.line) + ": " + p.message;
            }
            return false;
        }
        NoteProblems(problems);
    }
    ical_ = std::move(fresh);
    path_ = path;
    directory_ = directory;
    AssignOids();
    return true;
}

bool Store::Reload(std::string& error) {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    if (path_.empty()) {
        error = "no store open";
        return false;
    }
    auto fresh = std::make_unique<lfical::Store>();
    std::vector<lfical::Problem> problems;
    if (!fresh->load(path_, &problems) && !(directory_ && fresh->eventCount() > 0)) {
        // Keep serving what we had; the next change on disk tries again.
        error = "the store cannot be read";
        return false;
    }
    NoteProblems(problems);
    if (ical_ && ical_->dirty()) {
        // Our own unsaved changes cannot be carried over; saves are made at
        // once, so this only happens after a failed save, which reported.
    }
    ical_ = std::move(fresh);
    AssignOids();
    return true;
}

void Store::CatchUpWithDisk() {
    // A sync may have written the store since the watch last read it: what
    // a caller read is compared with the store as it is on disk now. A store
    // caught half-written keeps what we have, as the watch does.
    if (!ical_ || !ical_->changedOnDisk()) return;
    std::string ignored;
    Reload(ignored);
}

void Store::NoteProblems(const std::vector<lfical::Problem>& problems) {
    // Every reload meets the same skipped file again: each is told once.
    for (const lfical::Problem& p : problems) {
        std::string text = p.file + (p.line > 0 ? ":" + std::to_string(p.line) : std::string()) + ": " + p.message;
        if (toldProblems_.insert(text).second) newProblems_.push_back(std::move(text));
    }
}

std::vector<std::string> Store::TakeNewProblems() {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    std::vector<std::string> out;
    out.swap(newProblems_);
    return out;
}

void Store::AssignOids() {
    Forget();
    oidEvent_.clear();
    rehashed_.clear();
    std::vector<lfical::EventId> ids = ical_->events();
    oidOf_.assign(ids.empty() ? 0 : ids.back() + 1, 0);
    // Each event under its UID's hash, which is its OID unless a smaller UID
    // has the same hash. Sorted by hash, UIDs are compared only where hashes
    // meet, and no UID is copied: a large store opens without a string or a
    // tree node per event.
    struct Keyed {
        std::uint32_t hash;
        lfical::EventId id;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(ids.size());
    for (lfical::EventId id : ids) keyed.push_back({lfical::oidForUid(ical_->uidView(id)), id});
    const lfical::Store& engine = *ical_;
    std::sort(keyed.begin(), keyed.end(), [&engine](const Keyed& a, const Keyed& b) {
        if (a.hash != b.hash) return a.hash < b.hash;
        int c = engine.uidView(a.id).compare(engine.uidView(b.id));
        return c != 0 ? c < 0 : a.id < b.id;
    });
    oidEvent_.reserve(keyed.size());
    // A UID that lost its hash to a smaller one moves on to a re-hash, in
    // order of UID, so every run gives it the same OID.
    std::vector<std::pair<std::string, std::vector<lfical::EventId>>> moved;
    for (size_t i = 0; i < keyed.size();) {
        std::string_view uid = engine.uidView(keyed[i].id);
        size_t j = i;
        while (j < keyed.size() && keyed[j].hash == keyed[i].hash && engine.uidView(keyed[j].id) == uid) ++j;
        std::uint32_t oid = keyed[i].hash;
        if (oidEvent_.empty() || oidEvent_.back().first != oid) {
            oidEvent_.emplace_back(oid, keyed[i].id);
            for (size_t k = i; k < j; ++k) oidOf_[keyed[k].id] = oid;
        } else {
            moved.emplace_back(std::string(uid), std::vector<lfical::EventId>());
            for (size_t k = i; k < j; ++k) moved.back().second.push_back(keyed[k].id);
        }
        i = j;
    }
    std::sort(moved.begin(), moved.end());
    for (auto& m : moved) {
        std::uint32_t oid = 0;
        for (unsigned n = 1; oid == 0 || EventOfOid(oid) != lfical::kNoEvent; ++n)
            oid = lfical::oidForUid(m.first + "#" + std::to_string(n));
        oidEvent_.insert(std::lower_bound(oidEvent_.begin(), oidEvent_.end(), std::make_pair(oid, lfical::EventId(0))),
                         std::make_pair(oid, m.second.front()));
        for (lfical::EventId id : m.second) oidOf_[id] = oid;
        rehashed_.emplace_back(std::move(m.first), oid);
    }
}

lfical::EventId Store::EventOfOid(std::uint32_t oid) const {
    auto it = std::lower_bound(oidEvent_.begin(), oidEvent_.end(), std::make_pair(oid, lfical::EventId(0)));
    return it != oidEvent_.end() && it->first == oid ? it->second : lfical::kNoEvent;
}

void Store::Forget() {
    ++version_;
    parts_.clear();
}

std::uint32_t Store::OidOfUid(const std::string& uid) const {
    std::uint32_t oid = lfical::oidForUid(uid);
    lfical::EventId id = EventOfOid(oid);
    if (id != lfical::kNoEvent && ical_ && ical_->uidView(id) == uid) return oid;
    for (const auto& r : rehashed_)
        if (r.first == uid) return r.second;
    return 0;
}

bool Store::ExportCalendar(const std::vector<std::uint32_t>& oids, std::string& text,
                           std::string& error) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    if (!ical_) {
        error = "no store open";
        return false;
    }
    auto withLineEnd = [](std::string bytes) {
        if (!bytes.empty() && bytes.back() != '\n') bytes += "\r\n";
        return bytes;
    };
    std::string events;
    std::vector<int> zones;  // in the order the events first use them
    auto noteZone = [&](const lfical::Time& t) {
        if (t.kind == lfical::TimeKind::Zoned && t.zone >= 0 &&
            std::find(zones.begin(), zones.end(), t.zone) == zones.end())
            zones.push_back(t.zone);
    };
    for (std::uint32_t oid : oids) {
        lfical::EventId series = Find(oid);
        if (series == lfical::kNoEvent) {
            error = "appointment " + std::to_string(oid) + " is no longer in the store";
            return false;
        }
        std::vector<lfical::EventId> parts{series};
        for (lfical::EventId o : ical_->overridesOf(series)) parts.push_back(o);
        for (lfical::EventId id : parts) {
            lfical::EventInfo info = ical_->info(id);
            noteZone(info.start);
            noteZone(info.end);
            if (info.hasRecurrenceId) noteZone(info.recurrenceId);
            for (const auto& t : info.rdates) noteZone(t);
            for (const auto& t : info.exdates) noteZone(t);
            events += withLineEnd(ical_->bytes(id));
        }
    }
    text = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//Calendar server//EN\r\n"
           "METHOD:PUBLISH\r\n";
    // A zone known only from the built-in zone table has no definition to send; its IANA name
    // in the events' TZID reaches the receiver, whose table knows it too.
    std::set<std::string> named;
    for (int z : zones) {
        const lfical::Zone& zone = ical_->zone(z);
        if (zone.vtimezone.empty() || !named.insert(zone.name).second) continue;
        text += withLineEnd(zone.vtimezone);
    }
    text += events;
    text += "END:VCALENDAR\r\n";
    return true;
}

lfical::EventId Store::Find(std::uint32_t oid) const {
    if (!ical_) return lfical::kNoEvent;
    lfical::EventId id = EventOfOid(oid);
    if (id == lfical::kNoEvent) return lfical::kNoEvent;
    return ical_->findUid(ical_->uidView(id));
}

LocalSecs Store::ToLocal(const lfical::Time& t) const {
    switch (t.kind) {
    case lfical::TimeKind::Utc:
        return FromCivil(local_.fromUtc(t.civil));
    case lfical::TimeKind::Zoned:
        if (t.zone >= 0) return FromCivil(local_.fromUtc(ical_->zone(t.zone).toUtc(t.civil)));
        return FromCivil(t.civil);
    default:
        return FromCivil(t.civil);
    }
}

lfical::Time Store::FromLocal(LocalSecs s, const lfical::Time& like) const {
    lfical::Time t;
    int64_t civil = ToCivil(s);
    t.kind = like.kind;
    t.zone = like.zone;
    switch (like.kind) {
    case lfical::TimeKind::Date:
        t.civil = lfical::floorDiv(civil, lfical::kDay) * lfical::kDay;
        break;
    case lfical::TimeKind::Utc:
        t.civil = local_.toUtc(civil);
        break;
    case lfical::TimeKind::Zoned:
        if (like.zone >= 0) {
            t.civil = ical_->zone(like.zone).fromUtc(local_.toUtc(civil));
            break;
        }
        t.kind = lfical::TimeKind::Floating;
        t.civil = civil;
        break;
    default:
        t.civil = civil;
        break;
    }
    return t;
}

void Store::FillFields(const lfical::EventInfo& info, Fields& f, bool texts) const {
    if (texts) {
        f.subject = WideFromUtf8(info.summary);
        f.location = WideFromUtf8(info.location);
        f.body = WideFromUtf8(info.description);
    }
    f.categories = Categories(info.categories);
    f.allDay = info.allDay;
    f.busyStatus = static_cast<long>(info.busy);
    f.sensitivity = SensitivityOfClass(info.cls);
    f.reminderSet = info.hasAlarm;
    f.reminderMinutes = info.alarmMinutes >= 0 ? info.alarmMinutes : 15;
}

ItemSnapshot Store::SnapshotOf(lfical::EventId id) const { return SnapshotOf(ical_->info(id)); }

ItemSnapshot Store::SnapshotOf(const lfical::EventInfo& info) const {
    ItemSnapshot s;
    FillFields(info, s.f);
    s.f.start = ToLocal(info.start);
    s.f.end = ToLocal(info.end);
    if (s.f.end < s.f.start) s.f.end = s.f.start;
    s.recurring = info.recurring;
    s.oid = OidOfUid(info.uid);
    s.originalStart = s.f.start;
    return s;
}

ItemSnapshot Store::SnapshotOf(const lfical::Occurrence& o) const {
    ItemSnapshot s;
    lfical::EventInfo info = ical_->info(o.event);
    FillFields(info, s.f);
    s.f.start = FromCivil(o.start);
    s.f.end = FromCivil(std::max(o.start, o.end));
    s.f.allDay = o.allDay;
    s.recurring = o.recurring;
    s.isOccurrence = o.recurring;
    s.isOverride = o.event != o.series;
    s.originalStart = o.recurring ? ToLocal(o.recurrenceId) : s.f.start;
    s.oid = OidOfUid(info.uid);
    return s;
}

const Store::EventPart& Store::PartOf(lfical::EventId id) const {
    if (id >= parts_.size()) parts_.resize(std::max<size_t>(id + 1, oidOf_.size()));
    std::unique_ptr<EventPart>& kept = parts_[id];
    if (kept) return *kept;
    auto part = std::make_unique<EventPart>();
    lfical::EventInfo info = ical_->info(id);
    Fields f;
    FillFields(info, f, false);
    part->oid = id < oidOf_.size() ? oidOf_[id] : 0;
    part->busyStatus = f.busyStatus;
    part->sensitivity = f.sensitivity;
    part->reminderSet = f.reminderSet;
    part->reminderMinutes = f.reminderMinutes;
    std::weak_ptr<const Store> self = weak_from_this();
    if (self.expired()) {
        // Not shared: nothing could read the texts later, so read them now.
        FillFields(info, f);
        part->texts = std::make_shared<EventTexts>(std::move(f));
    } else {
        part->texts = std::make_shared<EventTexts>(std::move(self), version_, id, part->oid, std::move(f.categories));
    }
    kept = std::move(part);
    return *kept;
}

void Store::ReadTexts(const EventTexts& texts) const {
    // The store's lock before the texts' own: a query that compares texts
    // reads them under the store's lock too.
    std::lock_guard<std::recursive_mutex> lock(mu_);
    std::call_once(texts.once_, [&] {
        lfical::EventId id = texts.version_ == version_ ? texts.id_ : Find(texts.oid_);
        if (ical_ && id != lfical::kNoEvent && ical_->valid(id)) {
            Fields f;
            FillFields(ical_->info(id), f);
            texts.f_.subject = std::move(f.subject);
            texts.f_.location = std::move(f.location);
            texts.f_.body = std::move(f.body);
        }
        texts.done_.store(true, std::memory_order_release);
    });
}

EventTexts::EventTexts(Fields decoded) : f_(std::move(decoded)), done_(true) {}

EventTexts::EventTexts(std::weak_ptr<const Store> store, std::uint64_t version, lfical::EventId id,
                       std::uint32_t oid, std::wstring categories)
    : store_(std::move(store)), version_(version), id_(id), oid_(oid) {
    f_.categories = std::move(categories);
}

const Fields& EventTexts::All() const {
    if (done_.load(std::memory_order_acquire)) return f_;
    if (auto store = store_.lock()) {
        store->ReadTexts(*this);
    } else {
        // The store is gone: there is nothing more to read.
        std::call_once(once_, [this] { done_.store(true, std::memory_order_release); });
    }
    return f_;
}

const std::wstring& EventTexts::Text(std::wstring Fields::*m) const {
    if (m == &Fields::categories) return f_.categories;
    return All().*m;
}

std::vector<ItemSnapshot> Store::Query(bool includeRecurrences,
                                       const std::vector<const Restriction*>& rs) const {
    std::vector<ItemSnapshot> out;
    for (const FoundItem& found : QueryItems(includeRecurrences, rs)) {
        out.push_back(found.Snapshot());
        out.back().OwnTexts();
    }
    return out;
}

FoundItem FoundItem::Of(ItemSnapshot s) {
    FoundItem found;
    found.start = s.f.start;
    found.end = s.f.end;
    found.originalStart = s.originalStart;
    found.oid = s.oid;
    found.busyStatus = s.f.busyStatus;
    found.sensitivity = s.f.sensitivity;
    found.reminderMinutes = s.f.reminderMinutes;
    found.allDay = s.f.allDay;
    found.recurring = s.recurring;
    found.isOverride = s.isOverride;
    found.reminderSet = s.f.reminderSet;
    found.texts = s.texts ? std::move(s.texts) : std::make_shared<EventTexts>(std::move(s.f));
    return found;
}

ItemSnapshot FoundItem::Snapshot() const {
    ItemSnapshot s;
    s.texts = texts;
    Into(s);
    return s;
}

void FoundItem::Into(ItemSnapshot& s) const {
    s.oid = oid;
    s.isOccurrence = recurring;
    s.isOverride = isOverride;
    s.originalStart = originalStart;
    s.recurring = recurring;
    Into(s.f);
}

void FoundItem::Into(Fields& f) const {
    f.subject.clear();
    f.location.clear();
    f.categories.clear();
    f.body.clear();
    f.start = start;
    f.end = end;
    f.allDay = allDay;
    f.reminderSet = reminderSet;
    f.busyStatus = busyStatus;
    f.sensitivity = sensitivity;
    f.reminderMinutes = reminderMinutes;
}

namespace {
// The most items a kept list holds room for between queries (a few MB): a
// flooded month's answer is let go rather than kept for every month after.
constexpr size_t kKeptRoom = 1 << 17;
}  // namespace

void Store::Recycle(std::vector<FoundItem>&& list) const {
    list.clear();
    if (list.capacity() > kKeptRoom) return;
    std::lock_guard<std::recursive_mutex> lock(mu_);
    if (list.capacity() > spare_.capacity()) spare_.swap(list);
}

std::vector<FoundItem> Store::QueryItems(bool includeRecurrences,
                                         const std::vector<const Restriction*>& rs) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    std::vector<FoundItem> out;
    out.swap(spare_);
    if (!ical_) return out;
    auto matches = [&rs](const RestrictRecord& rec) {
        for (const Restriction* r : rs)
            if (!r->Matches(rec)) return false;
        return true;
    };
    if (includeRecurrences) {
        // Expand only over the span the restrictions allow.
        LocalSecs lo = kFirstQueried, hi = kLastQueried;
        for (const Restriction* r : rs) {
            LocalSecs l = 0, h = 0;
            r->Bounds(l, h);
            lo = std::max(lo, l);
            hi = std::min(hi, h);
        }
        if (lo > hi) return out;
        // What the occurrences of an event share is decoded once per event
        // and kept (PartOf); the texts only when a restriction compares one.
        bool asksTexts = false;
        for (const Restriction* r : rs) asksTexts = asksTexts || r->AsksTexts();
        std::vector<lfical::Occurrence>& occurrences = occurrences_;
        ical_->queryInto(occurrences, local_, ToCivil(lo), ToCivil(hi), lfical::Range::Closed, ReportOf(rs),
                         GridOf(rs));
        out.reserve(occurrences.size());
        RestrictRecord rec;
        lfical::EventId recFor = lfical::kNoEvent;
        for (const auto& o : occurrences) {
            const EventPart& part = PartOf(o.event);
            LocalSecs start = FromCivil(o.start), end = FromCivil(std::max(o.start, o.end));
            if (!rs.empty()) {
                if (recFor != o.event) {
                    recFor = o.event;
                    rec.busyStatus = part.busyStatus;
                    rec.sensitivity = part.sensitivity;
                    rec.reminderSet = part.reminderSet;
                    rec.reminderMinutes = part.reminderMinutes;
                    rec.oid = static_cast<long>(part.oid);
                    if (asksTexts) {
                        rec.categories = part.texts->Text(&Fields::categories);
                        const Fields& t = part.texts->All();
                        rec.subject = t.subject;
                        rec.location = t.location;
                        rec.body = t.body;
                    }
                }
                rec.start = start;
                rec.end = end;
                rec.allDay = o.allDay;
                rec.isRecurring = o.recurring;
                rec.duration = static_cast<long>((end - start) / 60);
                if (!matches(rec)) continue;
            }
            out.emplace_back();
            FoundItem& s = out.back();
            s.start = start;
            s.end = end;
            s.allDay = o.allDay;
            s.reminderSet = part.reminderSet;
            s.busyStatus = part.busyStatus;
            s.sensitivity = part.sensitivity;
            s.reminderMinutes = part.reminderMinutes;
            s.texts = part.texts;
            s.recurring = o.recurring;
            s.isOverride = o.event != o.series;
            s.originalStart = o.recurring ? ToLocal(o.recurrenceId) : start;
            s.oid = part.oid;
        }
        // The engine answers in order of start already; equal starts keep its order.
        if (occurrences.capacity() > kKeptRoom) std::vector<lfical::Occurrence>().swap(occurrences);
        auto byStart = [](const FoundItem& a, const FoundItem& b) { return a.start < b.start; };
        if (!std::is_sorted(out.begin(), out.end(), byStart)) std::stable_sort(out.begin(), out.end(), byStart);
    } else {
        for (lfical::EventId id : ical_->events()) {
            lfical::EventInfo info = ical_->info(id);
            if (info.hasRecurrenceId) continue;  // an override is not an item of its own
            ItemSnapshot s = SnapshotOf(info);
            if (!matches(RecordOf(s))) continue;
            out.push_back(FoundItem::Of(std::move(s)));
        }
    }
    return out;
}

namespace {
void AddCategoryNames(const std::vector<std::string>& categories, std::vector<std::wstring>& out) {
    if (categories.empty()) return;
    for (std::wstring& name : CategoryNames(Categories(categories))) out.push_back(std::move(name));
}
}  // namespace

std::vector<std::wstring> Store::CategoryNamesOf(std::uint32_t oid) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    std::vector<std::wstring> out;
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) return out;
    AddCategoryNames(ical_->categories(id), out);
    for (lfical::EventId o : ical_->overridesOf(id)) AddCategoryNames(ical_->categories(o), out);
    return out;
}

// A large store takes seconds to read whole, so the store is locked a few hundred
// appointments at a time and the views' queries go on meanwhile. A reload starts it again.
std::map<std::uint32_t, std::vector<std::wstring>> Store::CategoryNamesByItem() const {
    const size_t kAtOnce = 256;
    std::map<std::uint32_t, std::vector<std::wstring>> out;
    std::vector<lfical::EventId> ids;
    const lfical::Store* read = nullptr;
    {
        std::lock_guard<std::recursive_mutex> lock(mu_);
        if (!ical_) return out;
        ids = ical_->events();
        read = ical_.get();
    }
    for (size_t first = 0; first < ids.size(); first += kAtOnce) {
        std::lock_guard<std::recursive_mutex> lock(mu_);
        if (ical_.get() != read) return CategoryNamesByItem();
        for (size_t i = first; i < ids.size() && i < first + kAtOnce; ++i) {
            if (!ical_->valid(ids[i])) continue;
            // The names alone: the event's other fields are not decoded.
            std::vector<std::string> categories = ical_->categories(ids[i]);
            if (categories.empty()) continue;
            std::uint32_t oid = oidOf_.size() > ids[i] ? oidOf_[ids[i]] : 0;
            if (!oid) continue;
            AddCategoryNames(categories, out[oid]);
        }
    }
    return out;
}

bool Store::Get(std::uint32_t oid, ItemSnapshot& out) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) return false;
    out = SnapshotOf(id);
    return true;
}

bool Store::GetPattern(std::uint32_t oid, Pattern& out) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) return false;
    lfical::EventInfo info = ical_->info(id);
    if (info.rrule.empty()) return false;
    lfical::Recur recur;
    std::string why;
    if (!lfical::parseRecur(info.rrule, recur, why)) return false;
    out = PatternFromRecur(recur, ToLocal(info.start));
    if (!info.rdates.empty()) out.exact = false;
    return true;
}

std::vector<ExceptionInfo> Store::Exceptions(std::uint32_t oid) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    std::vector<ExceptionInfo> out;
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) return out;
    lfical::EventInfo series = ical_->info(id);
    for (const auto& ex : series.exdates) {
        ExceptionInfo e;
        e.originalStart = ToLocal(ex);
        e.deleted = true;
        out.push_back(e);
    }
    for (lfical::EventId ov : ical_->overridesOf(id)) {
        lfical::EventInfo info = ical_->info(ov);
        ExceptionInfo e;
        e.originalStart = ToLocal(info.recurrenceId);
        e.item = SnapshotOf(ov);
        e.item.oid = OidOfUid(series.uid);
        e.item.isOccurrence = e.item.isOverride = e.item.recurring = true;
        e.item.originalStart = e.originalStart;
        out.push_back(e);
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const ExceptionInfo& a, const ExceptionInfo& b) { return a.originalStart < b.originalStart; });
    return out;
}

bool Store::GetOccurrence(std::uint32_t oid, LocalSecs when, ItemSnapshot& out) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) return false;
    std::string uid = ical_->uid(id);
    // A changed occurrence is reached by its original start wherever it moved.
    for (const auto& ex : Exceptions(oid)) {
        if (!ex.deleted && ex.originalStart == when) {
            out = ex.item;
            return true;
        }
    }
    for (const auto& o : ical_->query(local_, ToCivil(when), ToCivil(when), lfical::Range::Closed)) {
        if (o.series != id || !o.recurring) continue;
        ItemSnapshot s = SnapshotOf(o);
        if (s.f.start == when || s.originalStart == when) {
            out = s;
            return true;
        }
    }
    return false;
}

bool Store::Persist(const std::string& uid, std::string& error) {
    std::vector<lfical::Problem> problems;
    conflicts_.clear();
    if (!ical_->save(&problems, &conflicts_)) {
        error = "the store could not be saved";
        if (!problems.empty()) error += ": " + problems.front().message;
        return false;
    }
    if (std::find(conflicts_.begin(), conflicts_.end(), uid) != conflicts_.end()) {
        // Another program changed the same appointment since we read it:
        // its version stays under the appointment's UID and ours was saved
        // beside it as a new appointment, so neither is lost.
        error = "the appointment was changed by another program; both versions are kept";
        std::string ignored;
        Reload(ignored);
        return false;
    }
    AssignOids();
    return true;
}

lfical::Time Store::BuildEdit(bool isNew, const lfical::EventInfo& old, const Fields& was, const Fields& f,
                              lfical::EventEdit& e) const {
    // Only what changed is handed to the store, so everything else keeps
    // its bytes.
    if (isNew || f.subject != was.subject) e.summary = Utf8FromWide(f.subject);
    if (isNew || f.location != was.location) e.location = Utf8FromWide(f.location);
    if (isNew || f.body != was.body) e.description = Utf8FromWide(f.body);
    if (isNew || f.categories != was.categories) e.categories = SplitCategories(f.categories);
    if (f.sensitivity != was.sensitivity || (isNew && f.sensitivity != kSensNormal))
        e.cls = ClassOfSensitivity(f.sensitivity);
    if (isNew || f.busyStatus != was.busyStatus)
        e.busy = static_cast<lfical::Busy>(std::clamp<long>(f.busyStatus, kBusyFree, kBusyOutOfOffice));
    if (isNew || f.reminderSet != was.reminderSet || (f.reminderSet && f.reminderMinutes != was.reminderMinutes))
        e.alarmMinutes = f.reminderSet ? static_cast<int>(std::max<long>(0, f.reminderMinutes)) : -1;

    LocalSecs start = f.start, end = std::max(f.start, f.end);
    lfical::Time startLike;  // new appointments are in floating (local) time
    if (f.allDay) {
        startLike.kind = lfical::TimeKind::Date;
    } else if (!isNew && !old.start.isDate()) {
        startLike = old.start;
    }
    lfical::Time endLike = startLike;
    if (!isNew && !f.allDay && !old.end.isDate()) endLike = old.end;
    if (isNew || f.allDay != was.allDay || start != was.start || end != was.end) {
        if (f.allDay) {
            // All-day appointments cover whole days: DTEND is the day after
            // the last day.
            LocalSecs first = DayOf(start) * kSecsPerDay;
            LocalSecs last = (LastDayOf(start, end) + 1) * kSecsPerDay;
            e.start = FromLocal(first, startLike);
            e.end = FromLocal(std::max(last, first + kSecsPerDay), endLike);
        } else {
            e.start = FromLocal(start, startLike);
            e.end = FromLocal(end, endLike);
        }
    }
    return startLike;
}

bool FieldsEqual(const Fields& a, const Fields& b) {
    return a.subject == b.subject && a.location == b.location && a.categories == b.categories &&
           a.body == b.body && a.start == b.start && a.end == b.end && a.allDay == b.allDay &&
           a.reminderSet == b.reminderSet && a.busyStatus == b.busyStatus && a.sensitivity == b.sensitivity &&
           a.reminderMinutes == b.reminderMinutes;
}

bool Store::SaveItem(std::uint32_t& oid, const Fields& f, const Pattern* pattern, bool clearRecurrence,
                     std::string& error, const Fields* base, const Pattern* read) {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    Forget();
    keptAlone_ = 0;
    if (!ical_) {
        error = "no store open";
        return false;
    }
    if (base) CatchUpWithDisk();
    lfical::EventId id = lfical::kNoEvent;
    lfical::EventInfo old;
    Fields was;
    bool isNew = oid == 0;
    if (!isNew) {
        id = Find(oid);
        if (id == lfical::kNoEvent) {
            if (base) return KeepAlone(f, pattern ? pattern : clearRecurrence ? nullptr : read, error);
            error = "the appointment is no longer in the store";
            return false;
        }
        old = ical_->info(id);
        FillFields(old, was);
        was.start = ToLocal(old.start);
        was.end = ToLocal(old.end);
        if (ChangedMeanwhile(base, was, f)) return KeepBeside(id, old, was, f, error);
    }
    lfical::EventEdit e;
    lfical::Time startLike = BuildEdit(isNew, old, was, f, e);
    LocalSecs start = f.start;
    if (clearRecurrence) {
        if (isNew || !old.rrule.empty()) e.rrule = std::string();
    } else if (pattern) {
        std::string until;
        if (pattern->patternEnd != kNoTime) {
            LocalSecs lastDay = DayOf(pattern->patternEnd) * kSecsPerDay;
            if (f.allDay) {
                until = lfical::formatCivil(ToCivil(lastDay), true);
            } else if (startLike.kind == lfical::TimeKind::Floating) {
                until = lfical::formatCivil(ToCivil(lastDay + kSecsPerDay - 1), false);
            } else {
                // A zoned or UTC series ends UNTIL in UTC.
                until = lfical::formatCivil(local_.toUtc(ToCivil(lastDay + kSecsPerDay - 1)), false) + "Z";
            }
        }
        std::string rule = RRuleFromPattern(*pattern, start, until);
        if (isNew || rule != old.rrule) e.rrule = rule;
    }

    if (isNew) {
        id = ical_->add(e);
        if (id == lfical::kNoEvent) {
            error = "the appointment could not be added";
            return false;
        }
    } else if (!ical_->edit(id, e)) {
        error = "the appointment could not be changed";
        return false;
    }
    std::string uid = ical_->uid(id);
    if (!Persist(uid, error)) return false;
    std::uint32_t saved = OidOfUid(uid);
    if (!saved) {
        error = "the saved appointment is missing";
        return false;
    }
    oid = saved;
    return true;
}

bool Store::KeepBeside(lfical::EventId id, const lfical::EventInfo& old, const Fields& was, const Fields& f,
                       std::string& error) {
    // Another program changed the appointment after the caller read it (a
    // sync while the form was open). Its version stays; ours becomes a new
    // appointment: the event's bytes under a fresh UID, with our changes.
    lfical::EventId copy = ical_->addCopy(ical_->bytes(id));
    if (copy == lfical::kNoEvent) {
        error = "the appointment was changed by another program, and ours could not be kept beside it";
        return false;
    }
    lfical::EventEdit e;
    BuildEdit(false, old, was, f, e);
    ical_->edit(copy, e);
    std::string copyUid = ical_->uid(copy);
    if (!Persist(copyUid, error)) return false;
    conflicts_.push_back(old.uid);
    error = "the appointment was changed by another program; both versions are kept";
    return false;
}

bool Store::ChangedMeanwhile(const Fields* base, Fields now, const Fields& f) {
    if (now.end < now.start) now.end = now.start;  // as a snapshot shows it
    return base && !FieldsEqual(*base, now) && !FieldsEqual(f, now);
}

bool Store::CopyOccurrence(lfical::EventId from, const Fields& was, const Fields& f, std::string& copyUid,
                           std::string& error) {
    // An appointment of its own at the occurrence's times: the event's bytes
    // (alarms, unknown properties) under a fresh UID, without the series'
    // recurrence.
    lfical::EventId copy = ical_->addCopy(ical_->bytes(from), true);
    if (copy == lfical::kNoEvent) {
        error = "the appointment was changed by another program, and ours could not be kept beside it";
        return false;
    }
    lfical::EventInfo info = ical_->info(copy);
    lfical::EventEdit e;
    // Times compared with none: the copy's DTSTART is the series' first
    // start (or the exception's), so the occurrence's times are written
    // whatever changed.
    Fields unlike = was;
    unlike.start = f.start + 1;
    BuildEdit(false, info, unlike, f, e);
    ical_->edit(copy, e);
    copyUid = ical_->uid(copy);
    return Persist(copyUid, error);
}

bool Store::KeepOccurrenceBeside(lfical::EventId from, const std::string& seriesUid, const Fields& was,
                                 const Fields& f, std::string& error) {
    // The occurrence as the other program left it stays in the series; ours
    // becomes an appointment of its own.
    std::string copyUid;
    if (!CopyOccurrence(from, was, f, copyUid, error)) return false;
    conflicts_.push_back(seriesUid);
    error = "the appointment was changed by another program; both versions are kept";
    return false;
}

bool Store::KeepAlone(const Fields& f, const Pattern* pattern, std::string& error) {
    // Another program deleted the appointment while the caller edited it:
    // ours is kept as a new appointment rather than lost.
    std::uint32_t oid = 0;
    if (!SaveItem(oid, f, pattern, false, error)) return false;
    keptAlone_ = oid;
    error = "the appointment was deleted by another program; ours is kept as a new appointment";
    return false;
}

bool Store::FindPlainOccurrence(lfical::EventId series, LocalSecs originalStart, lfical::Occurrence& out) const {
    // Where it shows: at its original start, or moved along with every later
    // occurrence by a change to this and all following ones.
    std::vector<LocalSecs> around = {originalStart};
    for (lfical::EventId ov : ical_->overridesOf(series)) {
        lfical::EventInfo info = ical_->info(ov);
        if (info.thisAndFuture) around.push_back(originalStart + ToLocal(info.start) - ToLocal(info.recurrenceId));
    }
    for (LocalSecs at : around) {
        for (const auto& o : ical_->query(local_, ToCivil(at - kSecsPerDay), ToCivil(at + kSecsPerDay),
                                          lfical::Range::Closed)) {
            if (o.series != series || !o.recurring || ToLocal(o.recurrenceId) != originalStart) continue;
            if (o.event != series && !ical_->info(o.event).thisAndFuture) continue;  // changed on its own
            out = o;
            return true;
        }
    }
    return false;
}

bool Store::SaveOccurrence(std::uint32_t oid, LocalSecs originalStart, const Fields& f, std::string& error,
                           const Fields* base) {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    Forget();
    keptAlone_ = 0;
    // A first change to an occurrence adds an exception to the series'
    // file, which a save would otherwise merge into a sync's version unseen.
    if (base) CatchUpWithDisk();
    lfical::EventId series = Find(oid);
    if (series == lfical::kNoEvent) {
        if (base) return KeepAlone(f, nullptr, error);
        error = "the appointment is no longer in the store";
        return false;
    }
    for (lfical::EventId ov : ical_->overridesOf(series)) {
        lfical::EventInfo old = ical_->info(ov);
        // A change to this and all later occurrences is not this one's own:
        // changing it here would change the later ones too.
        if (old.thisAndFuture || ToLocal(old.recurrenceId) != originalStart) continue;
        Fields was;
        FillFields(old, was);
        was.start = ToLocal(old.start);
        was.end = ToLocal(old.end);
        if (ChangedMeanwhile(base, was, f)) return KeepOccurrenceBeside(ov, old.uid, was, f, error);
        lfical::EventEdit e;
        BuildEdit(false, old, was, f, e);
        if (!ical_->edit(ov, e)) {
            error = "the occurrence could not be changed";
            return false;
        }
        return Persist(old.uid, error);
    }
    // A first change: the occurrence as it shows now, with what changed,
    // becomes an exception of its own.
    lfical::Occurrence occ;
    if (!FindPlainOccurrence(series, originalStart, occ)) {
        if (base) {
            // Deleted from the series meanwhile: ours stands on its own.
            std::string copyUid;
            Fields now;
            FillFields(ical_->info(series), now);
            if (!CopyOccurrence(series, now, f, copyUid, error)) return false;
            keptAlone_ = OidOfUid(copyUid);
            error = "the occurrence was deleted by another program; ours is kept as a new appointment";
            return false;
        }
        error = "the occurrence is no longer in the series";
        return false;
    }
    ItemSnapshot shown = SnapshotOf(occ);
    lfical::EventInfo from = ical_->info(occ.event);
    if (ChangedMeanwhile(base, shown.f, f)) return KeepOccurrenceBeside(occ.event, from.uid, shown.f, f, error);
    lfical::EventEdit e;
    BuildEdit(false, from, shown.f, f, e);
    if (ical_->addOverride(series, occ.recurrenceId, e) == lfical::kNoEvent) {
        error = "the occurrence could not be changed";
        return false;
    }
    return Persist(from.uid, error);
}

bool Store::DeleteItem(std::uint32_t oid, std::string& error) {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    Forget();
    keptAlone_ = 0;
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) {
        error = "the appointment is no longer in the store";
        return false;
    }
    std::string uid = ical_->uid(id);
    if (!ical_->remove(id)) {
        error = "the appointment could not be deleted";
        return false;
    }
    return Persist(uid, error);
}

bool Store::DeleteOccurrence(std::uint32_t oid, LocalSecs originalStart, std::string& error) {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    Forget();
    keptAlone_ = 0;
    lfical::EventId id = Find(oid);
    if (id == lfical::kNoEvent) {
        error = "the appointment is no longer in the store";
        return false;
    }
    lfical::EventInfo series = ical_->info(id);
    if (!series.recurring) return DeleteItem(oid, error);
    for (lfical::EventId ov : ical_->overridesOf(id)) {
        if (ToLocal(ical_->info(ov).recurrenceId) == originalStart) ical_->removeOverride(ov);
    }
    if (!ical_->addExdate(id, FromLocal(originalStart, series.start))) {
        error = "the occurrence could not be deleted";
        return false;
    }
    return Persist(series.uid, error);
}

size_t Store::Count() const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    return oidEvent_.size();
}

std::string Store::UidOf(std::uint32_t oid) const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    lfical::EventId id = EventOfOid(oid);
    return id == lfical::kNoEvent || !ical_ ? std::string() : ical_->uid(id);
}

std::vector<std::string> Store::LastConflicts() const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    return conflicts_;
}

std::uint32_t Store::KeptAfterDelete() const {
    std::lock_guard<std::recursive_mutex> lock(mu_);
    return keptAlone_;
}

std::wstring WideFromUtf8(const std::string& s) {
    std::wstring out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        std::uint32_t cp = 0xFFFD;
        size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (len == 0 || i + len > s.size()) {
            ++i;  // a stray byte reads as the replacement character
        } else {
            cp = len == 1 ? c : len == 2 ? (c & 0x1F) : len == 3 ? (c & 0x0F) : (c & 0x07);
            bool ok = true;
            for (size_t k = 1; k < len; ++k) {
                unsigned char cc = static_cast<unsigned char>(s[i + k]);
                if ((cc & 0xC0) != 0x80) ok = false;
                cp = (cp << 6) | (cc & 0x3F);
            }
            if (!ok || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
                cp = 0xFFFD;
                len = 1;
            }
            i += len;
        }
        if (sizeof(wchar_t) == 2 && cp >= 0x10000) {
            cp -= 0x10000;
            out += static_cast<wchar_t>(0xD800 + (cp >> 10));
            out += static_cast<wchar_t>(0xDC00 + (cp & 0x3FF));
        } else {
            out += static_cast<wchar_t>(cp);
        }
    }
    return out;
}

std::string Utf8FromWide(const std::wstring& w) {
    std::string out;
    out.reserve(w.size());
    for (size_t i = 0; i < w.size(); ++i) {
        std::uint32_t cp = static_cast<std::uint32_t>(w[i]);
        if (sizeof(wchar_t) == 2 && cp >= 0xD800 && cp <= 0xDBFF && i + 1 < w.size()) {
            std::uint32_t lo = static_cast<std::uint32_t>(w[i + 1]);
            if (lo >= 0xDC00 && lo <= 0xDFFF) {
                cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
                ++i;
            }
        }
        if (cp >= 0xD800 && cp <= 0xDFFF) cp = 0xFFFD;
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

std::vector<std::wstring> CategoryNames(const std::wstring& list) {
    std::vector<std::wstring> out;
    size_t pos = 0;
    while (pos <= list.size()) {
        size_t comma = list.find(L',', pos);
        if (comma == std::wstring::npos) comma = list.size();
        std::wstring item = list.substr(pos, comma - pos);
        size_t b = item.find_first_not_of(L" \t"), e = item.find_last_not_of(L" \t");
        if (b != std::wstring::npos) out.push_back(item.substr(b, e - b + 1));
        pos = comma + 1;
    }
    return out;
}

}  // namespace poom
