// Loading the store: files read whole and split into top-level components
// that keep their bytes; events decoded and indexed by start.
#include <algorithm>
#include <filesystem>

#include "storeimpl.h"

namespace lfical {

// ---- values
bool StoreImpl::parseTime(Source& s, std::string_view params, std::string_view value, Time& t, int line,
                          std::vector<Problem>* problems)
{
    std::string_view v = value;
    bool utc = !v.empty() && (v.back() == 'Z' || v.back() == 'z');
    if (utc)
        v.remove_suffix(1);
    bool dateOnly;
    if (!parseCivil(v, t.civil, dateOnly)) {
        report(problems, s.path, line, "unreadable date or time \"" + std::string(value) + "\"");
        return false;
    }
    t.zone = -1;
    if (dateOnly) {
        t.kind = TimeKind::Date;
        return true;
    }
    if (utc) {
        t.kind = TimeKind::Utc;
        return true;
    }
    std::string_view tzid;
    int z = zoneOfParams(s, params, tzid);
    if (z >= 0) {
        t.kind = TimeKind::Zoned;
        t.zone = z;
        return true;
    }
    if (z == kUnknownZone) {
        if (unknownTzids.insert(std::string(tzid)).second)
            report(problems, s.path, line,
                   "time zone \"" + std::string(tzid) +
                       "\" has no VTIMEZONE and is no zone name this program knows; its times are read as floating");
    }
    t.kind = TimeKind::Floating;
    return true;
}

// The zone a time's parameters name: its index, kNoZone without a TZID, or
// kUnknownZone (tzid then holds the name). While a file is read, the last
// parameters that named a known zone are remembered: the events of a large
// calendar mostly repeat the same few.
int StoreImpl::zoneOfParams(Source& s, std::string_view params, std::string_view& tzid)
{
    if (params.empty())
        return kNoZone;
    if (bulkLoading && zoneMemo.source == &s && params == zoneMemo.params)
        return zoneMemo.zone;
    if (!findParam(params, "TZID", tzid) || tzid.empty())
        return kNoZone;
    int z = lookupZone(s, tzid);
    if (z < 0)
        return kUnknownZone;
    if (bulkLoading) {
        zoneMemo.source = &s;
        zoneMemo.params.assign(params.data(), params.size());
        zoneMemo.zone = z;
    }
    return z;
}

// A TZID means the file's own VTIMEZONE of that name, else the zone the
// built-in table knows by that name (many exporters leave the VTIMEZONE
// out), else another file's VTIMEZONE (a directory store's files may share
// one). While a file is still being read its own VTIMEZONE may come later,
// so a name the table knows waits for the end of the file.
int StoreImpl::lookupZone(Source& s, std::string_view tzid)
{
    auto it = s.tzids.find(tzid);
    if (it != s.tzids.end())
        return it->second;
    if (!fileRead) {
        if (zoneByName.count(tzid) == 0 || !Zone::builtInName(tzid).empty())
            return -1;
        return zoneByName.find(tzid)->second;
    }
    int idx = -1;
    auto t = tableZoneByName.find(tzid);
    if (t != tableZoneByName.end()) {
        idx = t->second;
    } else {
        Zone z;
        if (Zone::fromBuiltIn(tzid, z)) {
            idx = int(zones.size());
            zones.push_back(std::move(z));
            tableZoneByName.emplace(std::string(tzid), idx);
        }
    }
    if (idx < 0) {
        auto g = zoneByName.find(tzid);
        return g == zoneByName.end() ? -1 : g->second;
    }
    // Kept as the file's own: a changed time is written back with the same TZID.
    s.tzids.emplace(std::string(tzid), idx);
    return idx;
}

// ---- loading
void StoreImpl::addZone(Source& s, std::string_view text, const ScannedItem& it, std::vector<Problem>* problems)
{
    {
        std::string_view raw = text.substr(it.begin, it.end - it.begin);
        std::string key(raw);
        auto found = zoneByText.find(key);
        int idx;
        if (found != zoneByText.end()) {
            idx = found->second;
        } else {
            Component c;
            parseComponent(raw, c, problems, it.line, s.path);
            Zone z;
            std::string err;
            if (!zoneFromVtimezone(c, z, err)) {
                report(problems, s.path, it.line, err);
                return;
            }
            z.vtimezone = key;
            idx = int(zones.size());
            zones.push_back(std::move(z));
            zoneByText.emplace(std::move(key), idx);
        }
        s.tzids[zones[size_t(idx)].name] = idx;
        zoneByName.emplace(zones[size_t(idx)].name, idx);
        zoneMemo = ZoneMemo();  // the TZID may now name another zone
    }
}

void StoreImpl::parseTimeList(Source& s, const KeyProp& kp, const Ev& e, Series& sr, bool isRdate,
                              std::vector<Problem>* problems)
{
    std::string_view v = kp.value;
    std::string_view type;
    findParam(kp.params, "VALUE", type);
    forEachListItem(v, [&](std::string_view item) {
        if (item.empty())
            return;
        int64_t len = -1;
        size_t slash = item.find('/');
        Time t;
        if (!parseTime(s, kp.params, item.substr(0, slash), t, kp.line, problems))
            return;
        if (slash != std::string_view::npos && isRdate) {
            std::string_view rest = item.substr(slash + 1);
            Duration d;
            Time t2;
            if (parseDuration(rest, d))
                len = d.days * kDay + d.seconds;
            else if (parseTime(s, kp.params, rest, t2, kp.line, problems))
                len = absolute(t2) - absolute(t);
            if (len < 0)
                len = -1;
        }
        int64_t c = inClock(e.start, t);
        if (isRdate) {
            sr.rdates.push_back({c, len});
            if (len > sr.maxLen)
                sr.maxLen = len;
        } else if (t.kind == TimeKind::Date && !e.start.isDate()) {
            sr.exdays.push_back(floorDiv(c, kDay));
        } else {
            sr.exdates.push_back(c);
        }
    });
}

EventId StoreImpl::buildEvent(uint32_t si, uint32_t ii, const ScannedItem& it, std::vector<Problem>* problems)
{
    Source& s = sources[si];
    // Built in place: writing the record once matters at a hundred thousand events.
    EventId id = EventId(evs.size());
    Ev& e = evs.emplace_back();
    e.source = si;
    e.item = ii;
    e.line = it.line;
    const KeyProp* rrule = nullptr;
    const KeyProp *dtend = nullptr, *duration = nullptr, *rid = nullptr;
    std::vector<const KeyProp*> lists;
    for (const KeyProp& kp : it.keys) {
        switch (kp.which) {
        case kUid:
            if (e.uidLen == 0) {
                // One text for all UIDs: a string each would cost an allocation per event.
                e.uidOff = uint32_t(uidText.size());
                if (kp.value.find('\\') == std::string::npos)
                    uidText.append(kp.value);
                else
                    uidText += unescapeText(kp.value);
                e.uidLen = uint32_t(uidText.size() - e.uidOff);
            }
            break;
        case kDtstart:
            if (!e.hasStart)
                e.hasStart = parseTime(s, kp.params, kp.value, e.start, kp.line, problems);
            break;
        case kDtend: dtend = &kp; break;
        case kDuration: duration = &kp; break;
        case kRrule: if (!rrule) rrule = &kp; break;
        case kRdate:
        case kExdate: lists.push_back(&kp); break;
        case kRecurrenceId: rid = &kp; break;
        default: break;
        }
    }
    if (e.uidLen == 0)
        report(problems, s.path, it.line, "VEVENT without UID");
    if (!e.hasStart)
        report(problems, s.path, it.line, "VEVENT without a usable DTSTART: kept, not shown");
    if (e.hasStart && dtend) {
        Time t;
        if (parseTime(s, dtend->params, dtend->value, t, dtend->line, problems)) {
            if (t.isDate() != e.start.isDate()) {
                report(problems, s.path, dtend->line, "DTEND and DTSTART differ in value type; DTEND ignored");
            } else {
                e.endKind = EndKind::DtEnd;
                e.exact = absolute(t) - absolute(e.start);
                if (e.exact < 0) {
                    report(problems, s.path, dtend->line, "DTEND before DTSTART; read as DTSTART");
                    e.exact = 0;
                }
            }
        }
    } else if (e.hasStart && duration) {
        if (parseDuration(duration->value, e.dur) && e.dur.days >= 0 && e.dur.seconds >= 0) {
            e.endKind = EndKind::Duration;
            if (e.start.isDate())
                e.dur.seconds = 0;
        } else {
            report(problems, s.path, duration->line, "unreadable DURATION \"" + std::string(duration->value) + "\"");
            e.dur = Duration();
        }
    }
    if (rid && e.hasStart) {
        e.hasRid = parseTime(s, rid->params, rid->value, e.rid, rid->line, problems);
        std::string_view range;
        if (findParam(rid->params, "RANGE", range) && eqUpper(range, "THISANDFUTURE"))
            e.ridFuture = true;
    }
    if (e.hasStart && !e.hasRid && (rrule || !lists.empty())) {
        SeriesPtr sr(seriesPool.make(), SeriesRelease{&seriesPool});
        if (rrule) {
            std::string err;
            if (parseRecur(rrule->value, sr->rule, err))
                sr->hasRule = true;
            else
                report(problems, s.path, rrule->line, "RRULE not used: " + err);
        }
        for (const KeyProp* kp : lists)
            parseTimeList(s, *kp, e, *sr, kp->which == kRdate, problems);
        if (sr->hasRule || !sr->rdates.empty())
            e.series = std::move(sr);
    }
    if (bulkLoading && e.hasStart && !e.series) {
        // The index key: UTC for zoned and UTC times, the wall clock
        // otherwise; nominal days may stretch an hour across a change.
        e.key = absolute(e.start);
        int64_t len = e.endKind == EndKind::DtEnd     ? e.exact
                      : e.endKind == EndKind::Duration ? e.dur.days * kDay + e.dur.seconds + (e.dur.days ? 3600 : 0)
                      : e.start.isDate()                ? kDay
                                                        : 0;
        e.bucket = bucketFor(len);
        placed.push_back({e.key, id, e.bucket});
    }
    if (bulkLoading && (e.series || e.hasRid))
        bulkSpecial.push_back(id);
    s.items[ii].event = id;
    return id;
}

void StoreImpl::prepareSeries(Ev& e, QueryReport* rep)
{
    Series& sr = *e.series;
    std::sort(sr.exdates.begin(), sr.exdates.end());
    std::sort(sr.exdays.begin(), sr.exdays.end());
    std::sort(sr.rdates.begin(), sr.rdates.end());
    int64_t last = e.start.civil;
    for (auto& r : sr.rdates)
        last = std::max(last, r.first);
    if (sr.hasRule) {
        const Recur& r = sr.rule;
        if (r.hasUntil) {
            if (r.untilIsDate)
                sr.until = e.start.isDate() ? r.until : r.until + kDay - 1;
            else if (r.untilIsUtc && e.start.kind == TimeKind::Zoned)
                sr.until = zones[size_t(e.start.zone)].fromUtc(r.until);
            else
                sr.until = r.until;
            if (e.start.isDate())
                sr.until = floorDiv(sr.until, kDay) * kDay;
        }
        if (r.count) {
            RecurIter it(r, e.start.civil, e.start.isDate(), sr.until);
            sr.counted.push_back(e.start.civil);
            int64_t t;
            while (int64_t(sr.counted.size()) < r.count && it.next(t)) {
                if (t == e.start.civil)
                    continue;
                if (sr.counted.size() >= kMaxCounted) {
                    sr.countCut = true;
                    break;
                }
                sr.counted.push_back(t);
            }
            if (it.cut())
                sr.countCut = true;
            if (sr.countCut && rep)
                rep->cut.push_back(std::string(uidOf(e)));
            last = std::max(last, sr.counted.back());
        } else if (r.hasUntil) {
            last = std::max(last, sr.until);
        } else {
            last = kNoEnd;
        }
    }
    sr.last = last;
    int64_t len = 0;
    if (e.endKind == EndKind::DtEnd)
        len = e.exact;
    else if (e.endKind == EndKind::Duration)
        len = e.dur.days * kDay + e.dur.seconds + 3600;
    else if (e.start.isDate())
        len = kDay;
    sr.maxLen = std::max(sr.maxLen, len);
}

void StoreImpl::index(EventId id)
{
    Ev& e = evs[id];
    e.bucket = -1;
    if (!e.live || !e.hasStart)
        return;
    if (e.series) {
        seriesList.push_back(id);
        e.bucket = 99;
        return;
    }
    if (e.hasRid && e.ridFuture && e.master != kNoEvent)
        return;  // laid out by its series
    int64_t s, en;
    static const Zone utc = Zone::utc();
    place(e, e.start.civil, -1, utc, s, en);
    e.key = s;
    e.bucket = bucketFor(en - s);
    auto& b = buckets[size_t(e.bucket)];
    b.insert(std::upper_bound(b.begin(), b.end(), std::make_pair(s, id)), {s, id});
    ++bucketSorted[size_t(e.bucket)];
}

void StoreImpl::unindex(EventId id)
{
    Ev& e = evs[id];
    if (e.bucket == 99) {
        seriesList.erase(std::remove(seriesList.begin(), seriesList.end(), id), seriesList.end());
    } else if (e.bucket >= 0) {
        auto& b = buckets[size_t(e.bucket)];
        auto it = std::lower_bound(b.begin(), b.end(), std::make_pair(e.key, id));
        if (it != b.end() && it->second == id) {
            b.erase(it);
            --bucketSorted[size_t(e.bucket)];
        }
    }
    e.bucket = -1;
}

// Sorts the placed events by (bucket, key, id) and returns each bucket's
// count. A radix sort: the events arrive in id order, and a stable pass per
// digit of the key (least significant first) and a last one by bucket keep
// that order among equals. A hundred thousand starts sort in a few passes
// instead of the seventeen rounds of comparisons a comparison sort needs.
std::vector<size_t> StoreImpl::sortPlaced(std::vector<Placed, BigAllocator<Placed>>& v)
{
    std::vector<size_t> perBucket(buckets.size(), 0);
    if (v.empty())
        return perBucket;
    int64_t lo = v[0].key, hi = v[0].key;
    for (const Placed& p : v) {
        lo = std::min(lo, p.key);
        hi = std::max(hi, p.key);
        ++perBucket[size_t(p.bucket)];
    }
    const uint64_t span = uint64_t(hi) - uint64_t(lo);
    const int kBits = 11;
    const size_t kRadix = size_t(1) << kBits;
    std::vector<Placed, BigAllocator<Placed>> tmp(v.size());
    std::vector<size_t> count(kRadix);
    for (int shift = 0; shift < 64 && (span >> shift) != 0; shift += kBits) {
        std::fill(count.begin(), count.end(), 0);
        for (const Placed& p : v)
            ++count[((uint64_t(p.key) - uint64_t(lo)) >> shift) & (kRadix - 1)];
        size_t sum = 0;
        for (size_t& c : count) {
            size_t n = c;
            c = sum;
            sum += n;
        }
        for (const Placed& p : v)
            tmp[count[((uint64_t(p.key) - uint64_t(lo)) >> shift) & (kRadix - 1)]++] = p;
        v.swap(tmp);
    }
    std::vector<size_t> start(perBucket.size());
    size_t sum = 0;
    for (size_t b = 0; b < perBucket.size(); ++b) {
        start[b] = sum;
        sum += perBucket[b];
    }
    for (const Placed& p : v)
        tmp[start[size_t(p.bucket)]++] = p;
    v.swap(tmp);
    return perBucket;
}

namespace {
// What decides between copies of one event: the highest SEQUENCE, then the
// latest DTSTAMP, then the last one read (RFC 5546's order of revisions).
struct Revision {
    int64_t sequence = 0;
    int64_t stamp = INT64_MIN;
    size_t source = 0, at = 0;
    bool operator<(const Revision& o) const
    {
        if (sequence != o.sequence)
            return sequence < o.sequence;
        if (stamp != o.stamp)
            return stamp < o.stamp;
        if (source != o.source)
            return source < o.source;
        return at < o.at;
    }
};
}  // namespace

// Two VEVENTs with one UID and no RECURRENCE-ID are two revisions of one
// event, as a calendar exported twice into one file gives: only the latest
// is shown, and the others stay in the file untouched. Found with one pass
// over the UIDs in an open-addressed table, as every event is looked at.
void StoreImpl::resolveDuplicateUids(std::vector<Problem>* problems)
{
    const size_t n = evs.size();
    size_t cap = 64;
    while (cap < 2 * n)
        cap <<= 1;
    std::vector<EventId> slots(cap, kNoEvent);
    std::vector<std::pair<EventId, EventId>> dups;  // (first seen, another copy)
    const std::hash<std::string_view> hash;
    for (EventId id = 0; id < n; ++id) {
        const Ev& e = evs[id];
        if (!e.live || e.hasRid || e.uidLen == 0)
            continue;
        std::string_view u = uidOf(e);
        size_t h = hash(u) & (cap - 1);
        for (;; h = (h + 1) & (cap - 1)) {
            if (slots[h] == kNoEvent) {
                slots[h] = id;
                break;
            }
            if (uidOf(evs[slots[h]]) == u) {
                dups.push_back({slots[h], id});
                break;
            }
        }
    }
    if (dups.empty())
        return;
    std::map<EventId, std::vector<EventId>> groups;
    for (auto& d : dups) {
        auto& g = groups[d.first];
        if (g.empty())
            g.push_back(d.first);
        g.push_back(d.second);
    }
    for (auto& entry : groups) {
        std::vector<std::pair<Revision, EventId>> copies;
        for (EventId id : entry.second) {
            Revision r;
            Component c = parsed(id);
            if (const Property* p = c.find("SEQUENCE"))
                r.sequence = strtoll(p->value.c_str(), nullptr, 10);
            if (const Property* p = c.find("DTSTAMP")) {
                std::string_view v = p->value;
                if (!v.empty() && (v.back() == 'Z' || v.back() == 'z'))
                    v.remove_suffix(1);
                bool d;
                int64_t t;
                if (parseCivil(v, t, d))
                    r.stamp = t;
            }
            r.source = evs[id].source;
            r.at = sources[evs[id].source].items[evs[id].item].begin;
            copies.push_back({r, id});
        }
        std::sort(copies.begin(), copies.end());
        EventId winner = copies.back().second;
        const Ev& w = evs[winner];
        for (size_t i = 0; i + 1 < copies.size(); ++i) {
            EventId id = copies[i].second;
            Ev& e = evs[id];
            report(problems, sources[e.source].path, e.line,
                   "UID " + std::string(uidOf(e)) + " is used again at " + sources[w.source].path + ":" +
                       std::to_string(w.line) +
                       " by a later revision (higher SEQUENCE, later DTSTAMP or later in the file); this one is "
                       "kept in the file but not shown");
            unindex(id);
            e.live = false;
            shadowed[winner].push_back(id);
        }
    }
    placed.erase(std::remove_if(placed.begin(), placed.end(), [&](const Placed& p) { return !evs[p.id].live; }),
                 placed.end());
}

// Ties overrides to their series (by UID) and lays out every event of
// `from`.. in the index.
void StoreImpl::link(EventId from, std::vector<Problem>* problems, bool bulk)
{
    // Series and overrides are few: a bulk load noted them as it read them;
    // otherwise they are found once. Then only they are walked.
    std::vector<EventId> special;
    if (bulk) {
        special.swap(bulkSpecial);
    } else {
        for (EventId id = from; id < evs.size(); ++id)
            if (evs[id].series || evs[id].hasRid)
                special.push_back(id);
    }
    if (bulk)
        resolveDuplicateUids(problems);
    for (EventId id : special) {
        Ev& e = evs[id];
        // Only a series can have overrides, so only series are looked up by UID here.
        if (!e.live || e.hasRid || e.uidLen == 0 || !e.series)
            continue;
        masters[std::string(uidOf(e))] = id;
    }
    for (EventId id : special)
        attachOverride(id);
    for (EventId id : special) {
        Ev& e = evs[id];
        if (e.series && e.live)
            prepareSeries(e, nullptr);
    }
    if (bulk) {
        // Single events were placed as they were read. Sorted by bucket,
        // start and id in one go, each bucket takes its run at once and
        // merges it with what it already held (another file's events).
        std::vector<size_t> runs = sortPlaced(placed);
        size_t at = 0;
        for (size_t b = 0; b < buckets.size(); ++b) {
            size_t n = runs[b];
            if (n == 0)
                continue;
            Bucket& v = buckets[b];
            size_t had = v.size();
            v.reserve(had + n);
            prefault(v.data() + had, n * sizeof(v[0]));
            for (size_t i = at; i < at + n; ++i)
                v.push_back({placed[i].key, placed[i].id});
            at += n;
            if (had)
                std::inplace_merge(v.begin(), v.begin() + long(had), v.end());
            bucketSorted[b] = v.size();
        }
        placed.clear();
        placed.shrink_to_fit();
        for (EventId id : special) {
            Ev& e = evs[id];
            if (e.live && e.hasStart && e.series) {
                seriesList.push_back(id);
                e.bucket = 99;
            }
        }
        for (EventId id : special)
            if (evs[id].hasRid && evs[id].ridFuture && evs[id].master != kNoEvent)
                unindex(id);  // laid out by its series
    } else {
        for (EventId id = from; id < evs.size(); ++id)
            index(id);
    }
}

void StoreImpl::attachOverride(EventId id)
{
    Ev& e = evs[id];
    if (!e.live || !e.hasRid)
        return;
    auto m = masters.find(std::string(uidOf(e)));
    if (m == masters.end() || !evs[m->second].live || !evs[m->second].series) {
        e.master = kNoEvent;
        return;
    }
    Ev& master = evs[m->second];
    e.master = m->second;
    Series& sr = *master.series;
    int64_t c = inClock(master.start, e.rid);
    if (e.rid.isDate() && !master.start.isDate())
        c += master.start.civil - floorDiv(master.start.civil, kDay) * kDay;
    if (e.ridFuture) {
        sr.future = id;
        sr.futureRid = c;
    } else {
        auto it = std::lower_bound(sr.overrides.begin(), sr.overrides.end(), std::make_pair(c, EventId(0)));
        sr.overrides.insert(it, {c, id});
    }
}

void StoreImpl::detachOverride(EventId id)
{
    Ev& e = evs[id];
    if (e.master == kNoEvent)
        return;
    Ev& master = evs[e.master];
    if (master.series) {
        auto& ov = master.series->overrides;
        ov.erase(std::remove_if(ov.begin(), ov.end(), [&](auto& p) { return p.second == id; }), ov.end());
        if (master.series->future == id)
            master.series->future = kNoEvent;
    }
    e.master = kNoEvent;
}

bool StoreImpl::namesUnknownZone(Source& s, const ScannedItem& it)
{
    for (const KeyProp& k : it.keys) {
        std::string_view tz;
        if (zoneOfParams(s, k.params, tz) == kUnknownZone)
            return true;
    }
    return false;
}

namespace store {
bool holdsBareComponents(std::string_view text)
{
    size_t i = text.size() >= 3 && memcmp(text.data(), "\xEF\xBB\xBF", 3) == 0 ? 3 : 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n'))
        ++i;
    std::string_view first = text.substr(i, 40);
    if (first.size() < 7 || !eqUpper(first.substr(0, 6), "BEGIN:"))
        return false;
    first.remove_prefix(6);
    size_t e = first.find_first_of("\r\n");
    first = first.substr(0, e);
    while (!first.empty() && (first.back() == ' ' || first.back() == '\t'))
        first.remove_suffix(1);
    return !first.empty() && !eqUpper(first, "VCALENDAR");
}

std::string wrapBareComponents(std::string_view text)
{
    std::string out;
    out.reserve(text.size() + 96);
    size_t bom = text.size() >= 3 && memcmp(text.data(), "\xEF\xBB\xBF", 3) == 0 ? 3 : 0;
    out.append(text.substr(0, bom));
    out += "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Oakfinder//Lanternfields//EN\r\n";
    out.append(text.substr(bom));
    if (!out.empty() && out.back() != '\n')
        out += "\r\n";
    out += "END:VCALENDAR\r\n";
    return out;
}
}  // namespace store

bool StoreImpl::loadSource(Source src, std::vector<Problem>* problems, bool doLink)
{
    uint32_t si = uint32_t(sources.size());
    sources.push_back(std::move(src));
    Source& s = sources[si];
    int firstLine = 1;
    if (holdsBareComponents(s.text.view())) {
        report(problems, s.path, 1, "no VCALENDAR around the components: read as if there were one; "
                                    "written back with one when changed");
        s.bareText.assign(s.text.view());
        s.text.assign(wrapBareComponents(s.text.view()));
        firstLine = 1 - kWrapLines;
    }
    zoneMemo = ZoneMemo();
    EventId first = EventId(evs.size());
    // Untouched reserve costs no memory; growing by copies would. Many
    // small files (a directory store) grow geometrically instead.
    s.items.reserve(s.text.size() / 256 + 4);
    size_t need = evs.size() + s.text.size() / 256 + 4;
    if (evs.capacity() < need)
        evs.reserve(std::max(need, evs.capacity() * 2));
    if (uidText.capacity() < uidText.size() + s.text.size() / 8)
        uidText.reserve(std::max(uidText.size() + s.text.size() / 8, uidText.capacity() * 2));
    if (placed.capacity() < placed.size() + s.text.size() / 256)
        placed.reserve(std::max(placed.size() + s.text.size() / 256, placed.capacity() * 2));
    bulkLoading = true;
    fileRead = false;
    // Events come in as they are read; one naming a zone defined further
    // down, or by a name only the built-in table knows, waits for the end
    // of the file.
    std::vector<std::pair<uint32_t, std::unique_ptr<HeldItem>>> held;
    ScanResult r = scanText(s.text, s.path, problems, [&](const ScannedItem& it) {
        uint32_t ii = uint32_t(s.items.size());
        Item item;
        item.begin = it.begin;
        item.end = it.end;
        item.line = it.line;
        item.isEvent = it.name == "VEVENT";
        s.items.push_back(std::move(item));
        if (it.name == "VTIMEZONE")
            addZone(s, s.text, it, problems);
        else if (it.name == "VEVENT") {
            if (namesUnknownZone(s, it))
                held.emplace_back(ii, std::make_unique<HeldItem>(it));
            else
                buildEvent(si, ii, it, problems);
        }
    }, firstLine);
    fileRead = true;
    for (auto& h : held)
        buildEvent(si, h.first, h.second->item, problems);
    bulkLoading = false;
    bool ok = true;
    if (!r.sawCalendar && !s.text.empty()) {
        report(problems, s.path, 1, "no VCALENDAR: not an iCalendar file");
        ok = false;
    }
    if (r.truncated)
        ok = false;
    if (!ok)
        s.writable = false;  // never write over what we could not read
    s.insertAt = r.insertAt;
    if (doLink)
        link(first, problems, true);
    return ok;
}

std::string StoreImpl::itemBytes(const Source& s, const Item& it) const
{
    if (it.changed || it.added)
        return it.changedBytes();
    return s.text.substr(it.begin, it.end - it.begin);
}

std::string StoreImpl::sourceText(const Source& s) const
{
    if (!s.bareText.empty() && !s.dirty)
        return s.bareText;
    std::string out;
    out.reserve(s.text.size() + 1024);
    size_t pos = 0;
    std::vector<const Item*> order;
    for (const Item& it : s.items)
        order.push_back(&it);
    std::stable_sort(order.begin(), order.end(), [](const Item* a, const Item* b) { return a->begin < b->begin; });
    for (const Item* it : order) {
        if (it->begin > pos)
            out.append(s.text.view().substr(pos, it->begin - pos));
        pos = std::max(pos, it->begin);
        if (!it->deleted)
            out += itemBytes(s, *it);
        pos = std::max(pos, it->end);
    }
    out.append(s.text.view().substr(std::min(pos, s.text.size())));
    return out;
}

Store::Store() : d_(new StoreImpl) {}
Store::~Store() = default;

namespace {
// A directory store holds one event per file, found by its UID: a file
// whose events have no UID, or several, cannot be one. Empty when it is.
std::string oneUidProblem(std::string_view text, const std::string& file)
{
    std::string wrapped;
    if (holdsBareComponents(text)) {
        wrapped = wrapBareComponents(text);
        text = wrapped;
    }
    std::set<std::string> uids;
    bool missing = false;
    scanText(text, file, nullptr, [&](const ScannedItem& it) {
        if (it.name != "VEVENT")
            return;
        bool has = false;
        for (const KeyProp& k : it.keys)
            if (k.which == kUid && !k.value.empty()) {
                uids.insert(std::string(k.value));
                has = true;
            }
        missing = missing || !has;
    });
    if (missing)
        return "an event in it has no UID";
    if (uids.size() > 1)
        return "it holds " + std::to_string(uids.size()) + " different UIDs";
    return std::string();
}
}  // namespace

bool Store::load(const std::string& path, std::vector<Problem>* problems)
{
    namespace fs = std::filesystem;
    d_.reset(new StoreImpl);
    d_->root = path;
    std::error_code ec;
    if (fs::is_directory(path, ec)) {
        d_->directory = true;
        std::vector<std::string> files;
        for (const auto& ent : fs::directory_iterator(path, ec)) {
            if (!ent.is_regular_file(ec))
                continue;
            std::string name = ent.path().filename().string();
            if (name.size() > 4 && eqUpper(name.substr(name.size() - 4), ".ICS"))
                files.push_back(ent.path().string());
        }
        if (ec) {
            report(problems, path, 0, "cannot list the directory: " + ec.message());
            return false;
        }
        std::sort(files.begin(), files.end());
        bool ok = true;
        for (const std::string& f : files) {
            Source s;
            s.path = f;
            s.inDirectory = true;
            StoreImpl::stamp(s);
            if (!s.text.read(f)) {
                report(problems, f, 0, "cannot read the file");
                ok = false;
                continue;
            }
            std::string why = oneUidProblem(s.text.view(), f);
            if (!why.empty()) {
                // Served, it would be a second copy of some event or an event
                // nothing can name; left as it is, and never written.
                report(problems, f, 0, why + ": the file is skipped");
                s.writable = false;
                d_->sources.push_back(std::move(s));
                continue;
            }
            ok = d_->loadSource(std::move(s), problems, false) && ok;
        }
        d_->link(0, problems, true);
        return ok;
    }
    Source s;
    s.path = path;
    StoreImpl::stamp(s);
    if (!s.text.read(path)) {
        report(problems, path, 0, "cannot read the file");
        return false;
    }
    return d_->loadSource(std::move(s), problems);
}

bool Store::loadText(std::string text, const std::string& name, std::vector<Problem>* problems)
{
    d_.reset(new StoreImpl);
    d_->root = name;
    Source s;
    s.path = name;
    s.text.assign(std::move(text));
    return d_->loadSource(std::move(s), problems);
}

void Store::create(const std::string& path)
{
    d_.reset(new StoreImpl);
    d_->root = path;
    d_->sourceForNew({});
    d_->ensureCalendar(d_->sources[0]);
}

}  // namespace lfical
