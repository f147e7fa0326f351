// The store: files read whole, split into top-level components that keep
// their bytes, events indexed by start for range queries, and changes
// written back per component.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <deque>
#include <filesystem>
#include <set>

#include "bigmem.h"
#include "internal.h"

namespace lfical {

namespace {
// Wall clocks of different zones differ by at most this much.
const int64_t kZoneSlack = 2 * kDay;
const size_t kMaxCounted = 200000;
const size_t kMaxPerSeriesQuery = 100000;
const int64_t kNoEnd = INT64_MAX / 4;

enum KeyName : uint8_t { kUid, kDtstart, kDtend, kDuration, kRrule, kRdate, kExdate, kRecurrenceId, kOther };

KeyName classify(std::string_view n)
{
    switch (n.size()) {
    case 3: return eqUpper(n, "UID") ? kUid : kOther;
    case 5:
        if (eqUpper(n, "DTEND")) return kDtend;
        if (eqUpper(n, "RRULE")) return kRrule;
        if (eqUpper(n, "RDATE")) return kRdate;
        return kOther;
    case 6: return eqUpper(n, "EXDATE") ? kExdate : kOther;
    case 7: return eqUpper(n, "DTSTART") ? kDtstart : kOther;
    case 8: return eqUpper(n, "DURATION") ? kDuration : kOther;
    case 13: return eqUpper(n, "RECURRENCE-ID") ? kRecurrenceId : kOther;
    default: return kOther;
    }
}

// Views into the file's text, or into ScannedItem::folded for folded lines;
// valid while the scan's callback runs.
struct KeyProp {
    KeyName which;
    int line;
    std::string_view params, value;
};

struct ScannedItem {
    size_t begin = 0, end = 0;
    int line = 0;
    std::string name;
    std::vector<KeyProp> keys;  // VEVENT only
    std::deque<std::string> folded;
};

struct ScanResult {
    size_t items = 0;
    size_t insertAt = std::string::npos;  // start of the last END:VCALENDAR line
    bool sawCalendar = false;
    bool truncated = false;
};

// A scanned event kept until the zones it names are known. Its views point
// into its own strings, so it never moves or copies.
struct HeldItem {
    ScannedItem item;
    HeldItem(const HeldItem&) = delete;
    HeldItem& operator=(const HeldItem&) = delete;
    explicit HeldItem(const ScannedItem& from)
    {
        item.begin = from.begin;
        item.end = from.end;
        item.line = from.line;
        item.name = from.name;
        for (const KeyProp& k : from.keys) {
            item.folded.emplace_back(k.params);
            std::string_view p = item.folded.back();
            item.folded.emplace_back(k.value);
            item.keys.push_back({k.which, k.line, p, item.folded.back()});
        }
    }
};

void report(std::vector<Problem>* out, const std::string& file, int line, std::string msg)
{
    if (out)
        out->push_back({file, line, std::move(msg)});
}

// Component names met in a file, so the scan compares numbers.
const int kCalendarName = 0, kEventName = 1;
struct ComponentNames {
    std::vector<std::string> list{"VCALENDAR", "VEVENT", "VTIMEZONE", "VALARM", "STANDARD", "DAYLIGHT", "VTODO"};
    int id(std::string_view v)
    {
        for (size_t i = 0; i < list.size(); ++i)
            if (eqUpper(v, list[i]))
                return int(i);
        list.push_back(toUpper(v));
        return int(list.size() - 1);
    }
};

// One pass over a file: finds every component directly inside a VCALENDAR
// and, for events, the properties the index needs; hands each to onItem.
template <class F>
ScanResult scanText(std::string_view text, const std::string& file, std::vector<Problem>* problems, F&& onItem)
{
    ScanResult res;
    size_t start = 0;
    if (text.size() >= 3 && memcmp(text.data(), "\xEF\xBB\xBF", 3) == 0)
        start = 3;
    LineReader lr(text, start, 1, false);
    LineView lv;
    std::vector<std::pair<int, int>> stack;  // component name id, line
    ComponentNames names;
    bool inItem = false;
    int curId = -1;
    ScannedItem cur;
    bool strayReported = false;
    while (lr.next(lv)) {
        if (lv.text.empty())
            continue;
        // Only BEGIN, END and the properties the index needs are split; for
        // the rest the name is enough (their bytes are kept as they are).
        size_t ne = 0;
        const std::string_view t0 = lv.text;
        while (ne < t0.size() && t0[ne] != ';' && t0[ne] != ':')
            ++ne;
        std::string_view name0 = t0.substr(0, ne);
        bool structural = (ne == 5 && eqUpper(name0, "BEGIN")) || (ne == 3 && eqUpper(name0, "END"));
        bool key = !structural && inItem && stack.size() == 2 && classify(name0) != kOther;
        if (!structural && !key && ne < t0.size()) {
            if (stack.empty() && !strayReported) {
                report(problems, file, lv.line, "content outside VCALENDAR; kept as it is");
                strayReported = true;
            }
            continue;
        }
        if (lv.folded)
            lv.text = lr.unfold(lv);
        LineParts lp;
        if (!splitLine(lv.text, lp)) {
            report(problems, file, lv.line, "not a content line; kept as it is");
            continue;
        }
        bool isBegin = lp.name.size() == 5 && eqUpper(lp.name, "BEGIN");
        bool isEnd = !isBegin && lp.name.size() == 3 && eqUpper(lp.name, "END");
        if (isBegin) {
            int id = names.id(lp.value);
            const std::string& name = names.list[size_t(id)];
            if (stack.empty() && id != kCalendarName)
                report(problems, file, lv.line, "BEGIN:" + name + " outside VCALENDAR; kept, not used");
            bool lostEnd = inItem && id == curId && (id == kEventName || name == "VTODO" || name == "VJOURNAL");
            if (lostEnd) {
                // These never nest: the earlier one lost its END.
                report(problems, file, cur.line, cur.name + " begun here has no END; left out");
                stack.resize(1);
            }
            if (lostEnd || (stack.size() == 1 && stack[0].first == kCalendarName)) {
                inItem = true;
                cur.begin = lv.begin;
                cur.line = lv.line;
                cur.name = name;
                curId = id;
                cur.keys.clear();
                cur.folded.clear();
            }
            if (stack.size() < 200)
                stack.push_back({id, lv.line});
            continue;
        }
        if (isEnd) {
            int id = names.id(lp.value);
            size_t k = stack.size();
            while (k > 0 && stack[k - 1].first != id)
                --k;
            if (k == 0) {
                report(problems, file, lv.line, "END:" + names.list[size_t(id)] + " without BEGIN; ignored");
                continue;
            }
            for (size_t j = stack.size(); j-- > k;)
                report(problems, file, stack[j].second, names.list[size_t(stack[j].first)] + " begun here has no END");
            size_t depth = k - 1;  // depth after popping
            if (inItem && depth <= 1) {
                if (depth == 1 && k == 2 && stack.size() == 2) {
                    cur.end = lv.end;
                    ++res.items;
                    onItem(cur);
                } else {
                    report(problems, file, cur.line, cur.name + " begun here is broken; left out");
                }
                inItem = false;
            }
            stack.resize(depth);
            if (depth == 0 && id == kCalendarName) {
                res.sawCalendar = true;
                res.insertAt = lv.begin;
            }
            continue;
        }
        if (stack.empty()) {
            if (!strayReported)
                report(problems, file, lv.line, "content outside VCALENDAR; kept as it is");
            strayReported = true;
            continue;
        }
        if (inItem && stack.size() == 2 && curId == kEventName) {
            KeyName k = classify(lp.name);
            if (k != kOther) {
                if (lv.text.data() < text.data() || lv.text.data() >= text.data() + text.size()) {
                    // A folded line lives in the reader's scratch buffer: keep a copy.
                    cur.folded.emplace_back(lv.text);
                    std::string_view t = cur.folded.back();
                    size_t off = size_t(lp.params.data() - lv.text.data());
                    lp.params = t.substr(off, lp.params.size());
                    lp.value = t.substr(size_t(lp.value.data() - lv.text.data()));
                }
                cur.keys.push_back({k, lv.line, lp.params, lp.value});
            }
        }
    }
    if (!stack.empty()) {
        res.truncated = true;
        report(problems, file, stack[0].second,
               "the file ends inside " + names.list[size_t(stack.back().first)] + " (begun at line " +
                   std::to_string(stack.back().second) + "): it is cut short");
    }
    return res;
}

struct Item {
    size_t begin = 0, end = 0;  // bytes in Source::text
    int line = 0;
    bool isEvent = false;
    std::string repl;           // current bytes once changed
    bool changed = false, deleted = false, added = false;
    bool pending = false;       // changed since the last save
    EventId event = kNoEvent;
};

struct Source {
    std::string path;
    FileText text;        // as read (or as last written)
    std::vector<Item, BigAllocator<Item>> items;
    size_t insertAt = std::string::npos;
    bool writable = true;
    bool exists = true;   // false: a file still to be created
    bool inDirectory = false;
    bool dirty = false;
    bool removeFile = false;
    std::map<std::string, int> tzids;
};

struct Series {
    Recur rule;
    bool hasRule = false;
    int64_t until = INT64_MAX;
    std::vector<std::pair<int64_t, int64_t>> rdates;  // (series clock, exact length or -1)
    std::vector<int64_t> exdates, exdays;
    std::vector<int64_t> counted;
    bool countCut = false;
    std::vector<std::pair<int64_t, EventId>> overrides;
    EventId future = kNoEvent;
    int64_t futureRid = 0;
    int64_t last = kNoEnd;   // last instance start, series clock
    int64_t maxLen = 0;      // longest instance, seconds
};

struct Ev {
    uint32_t source = 0, item = 0;
    int line = 0;
    uint32_t uidOff = 0, uidLen = 0;  // in StoreImpl::uidText
    Time start, end;
    bool hasStart = false;
    EndKind endKind = EndKind::None;
    Duration dur;
    int64_t exact = 0;  // DTEND - DTSTART in seconds
    bool hasRid = false, ridFuture = false;
    Time rid;
    bool live = true;
    EventId master = kNoEvent;
    std::unique_ptr<Series> series;
    int bucket = -1;
    int64_t key = 0;
};

int bucketFor(int64_t len)
{
    int b = 0;
    while (len > 0 && b < 47) {
        len >>= 1;
        ++b;
    }
    return b;
}

std::string nowUtcStamp()
{
    time_t t = time(nullptr);
    return formatCivil(int64_t(t), false) + "Z";
}
}  // namespace

struct StoreImpl {
    std::vector<Source> sources;
    std::vector<Ev, BigAllocator<Ev>> evs;
    std::vector<Zone> zones;
    std::map<std::string, int> zoneByText;
    std::map<std::string, int> zoneByName;
    std::set<std::string> unknownTzids;
    std::unordered_map<std::string, EventId> masters;
    std::string uidText;
    std::string_view uidOf(const Ev& e) const { return std::string_view(uidText).substr(e.uidOff, e.uidLen); }
    using Bucket = std::vector<std::pair<int64_t, EventId>, BigAllocator<std::pair<int64_t, EventId>>>;
    std::vector<Bucket> buckets = std::vector<Bucket>(48);
    std::vector<size_t> bucketSorted = std::vector<size_t>(48, 0);
    bool bulkLoading = false;
    std::vector<EventId> seriesList;
    bool directory = false;
    std::string root;

    // ---- values
    bool parseTime(Source& s, std::string_view params, std::string_view value, Time& t, int line,
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
        if (findParam(params, "TZID", tzid) && !tzid.empty()) {
            int z = lookupZone(s, tzid);
            if (z >= 0) {
                t.kind = TimeKind::Zoned;
                t.zone = z;
                return true;
            }
            if (unknownTzids.insert(std::string(tzid)).second)
                report(problems, s.path, line,
                       "time zone \"" + std::string(tzid) + "\" has no VTIMEZONE; its times are read as floating");
        }
        t.kind = TimeKind::Floating;
        return true;
    }

    int lookupZone(const Source& s, std::string_view tzid) const
    {
        auto it = s.tzids.find(std::string(tzid));
        if (it != s.tzids.end())
            return it->second;
        auto g = zoneByName.find(std::string(tzid));
        return g == zoneByName.end() ? -1 : g->second;
    }

    // UTC for zoned and UTC times; the wall clock itself otherwise.
    int64_t absolute(const Time& t) const
    {
        if (t.kind == TimeKind::Zoned)
            return zones[size_t(t.zone)].toUtc(t.civil);
        return t.civil;
    }

    // A time in the series' own clock.
    int64_t inClock(const Time& clock, const Time& t) const
    {
        if (clock.kind == TimeKind::Zoned && (t.kind == TimeKind::Zoned || t.kind == TimeKind::Utc))
            return zones[size_t(clock.zone)].fromUtc(absolute(t));
        if (clock.kind == TimeKind::Utc && t.kind == TimeKind::Zoned)
            return absolute(t);
        return t.civil;
    }

    int64_t toTarget(const Time& clock, int64_t civil, const Zone& target) const
    {
        switch (clock.kind) {
        case TimeKind::Zoned: return target.fromUtc(zones[size_t(clock.zone)].toUtc(civil));
        case TimeKind::Utc: return target.fromUtc(civil);
        default: return civil;
        }
    }

    // Start and end of the instance starting at `c` (series clock) in the target's wall clock.
    void place(const Ev& e, int64_t c, int64_t exactLen, const Zone& target, int64_t& s, int64_t& en) const
    {
        s = toTarget(e.start, c, target);
        const TimeKind k = e.start.kind;
        if (exactLen >= 0 || e.endKind == EndKind::DtEnd) {
            int64_t len = exactLen >= 0 ? exactLen : e.exact;
            if (k == TimeKind::Zoned || k == TimeKind::Utc)
                en = target.fromUtc((k == TimeKind::Zoned ? zones[size_t(e.start.zone)].toUtc(c) : c) + len);
            else
                en = c + len;
        } else if (e.endKind == EndKind::Duration) {
            int64_t wall = c + e.dur.days * kDay;
            if (k == TimeKind::Zoned)
                en = target.fromUtc(zones[size_t(e.start.zone)].toUtc(wall) + e.dur.seconds);
            else if (k == TimeKind::Utc)
                en = target.fromUtc(wall + e.dur.seconds);
            else
                en = wall + e.dur.seconds;
        } else {
            en = k == TimeKind::Date ? c + kDay : s;
        }
        if (en < s)
            en = s;
    }

    // ---- loading
    void addZone(Source& s, std::string_view text, const ScannedItem& it, std::vector<Problem>* problems)
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
        }
    }

    void parseTimeList(Source& s, const KeyProp& kp, const Ev& e, Series& sr, bool isRdate,
                       std::vector<Problem>* problems)
    {
        std::string_view v = kp.value;
        std::string_view type;
        findParam(kp.params, "VALUE", type);
        size_t st = 0;
        for (size_t i = 0; i <= v.size(); ++i) {
            if (i != v.size() && v[i] != ',')
                continue;
            std::string_view item = v.substr(st, i - st);
            st = i + 1;
            if (item.empty())
                continue;
            int64_t len = -1;
            size_t slash = item.find('/');
            Time t;
            if (!parseTime(s, kp.params, item.substr(0, slash), t, kp.line, problems))
                continue;
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
        }
    }

    EventId buildEvent(uint32_t si, uint32_t ii, const ScannedItem& it, std::vector<Problem>* problems)
    {
        Source& s = sources[si];
        Ev e;
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
                    e.end = t;
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
            auto sr = std::make_unique<Series>();
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
        EventId id = EventId(evs.size());
        if (bulkLoading && e.hasStart && !e.series) {
            // The index key: UTC for zoned and UTC times, the wall clock
            // otherwise; nominal days may stretch an hour across a change.
            e.key = absolute(e.start);
            int64_t len = e.endKind == EndKind::DtEnd     ? e.exact
                          : e.endKind == EndKind::Duration ? e.dur.days * kDay + e.dur.seconds + (e.dur.days ? 3600 : 0)
                          : e.start.isDate()                ? kDay
                                                            : 0;
            e.bucket = bucketFor(len);
            buckets[size_t(e.bucket)].push_back({e.key, id});
        }
        evs.push_back(std::move(e));
        s.items[ii].event = id;
        return id;
    }

    void prepareSeries(Ev& e, QueryReport* rep)
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

    void index(EventId id)
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

    void unindex(EventId id)
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

    // Ties overrides to their series (by UID) and lays out every event of
    // `from`.. in the index.
    void link(EventId from, std::vector<Problem>* problems, bool bulk)
    {
        // Series and overrides are few: find them once, then walk only them.
        std::vector<EventId> special;
        for (EventId id = from; id < evs.size(); ++id)
            if (evs[id].series || evs[id].hasRid)
                special.push_back(id);
        for (EventId id : special) {
            Ev& e = evs[id];
            // Only a series can have overrides, so only series are looked up by UID here.
            if (!e.live || e.hasRid || e.uidLen == 0 || !e.series)
                continue;
            auto ins = masters.emplace(std::string(uidOf(e)), id);
            if (!ins.second && evs[ins.first->second].live && ins.first->second != id)
                report(problems, sources[e.source].path, e.line, "UID " + std::string(uidOf(e)) + " is used by two events");
            else
                ins.first->second = id;
        }
        for (EventId id : special)
            attachOverride(id);
        for (EventId id : special) {
            Ev& e = evs[id];
            if (e.series && e.live)
                prepareSeries(e, nullptr);
        }
        if (bulk) {
            // Single events went into their buckets as they were read.
            for (EventId id : special) {
                Ev& e = evs[id];
                if (e.live && e.hasStart && e.series) {
                    seriesList.push_back(id);
                    e.bucket = 99;
                }
            }
            for (size_t b = 0; b < buckets.size(); ++b) {
                Bucket& v = buckets[b];
                size_t sorted = bucketSorted[b];
                if (sorted == v.size())
                    continue;
                std::sort(v.begin() + long(sorted), v.end());
                std::inplace_merge(v.begin(), v.begin() + long(sorted), v.end());
                bucketSorted[b] = v.size();
            }
            for (EventId id : special)
                if (evs[id].hasRid && evs[id].ridFuture && evs[id].master != kNoEvent)
                    unindex(id);  // laid out by its series
        } else {
            for (EventId id = from; id < evs.size(); ++id)
                index(id);
        }
    }

    void attachOverride(EventId id)
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

    void detachOverride(EventId id)
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

    bool namesUnknownZone(const Source& s, const ScannedItem& it) const
    {
        for (const KeyProp& k : it.keys) {
            std::string_view tz;
            if (findParam(k.params, "TZID", tz) && lookupZone(s, tz) < 0)
                return true;
        }
        return false;
    }

    bool loadSource(Source src, std::vector<Problem>* problems, bool doLink = true)
    {
        uint32_t si = uint32_t(sources.size());
        sources.push_back(std::move(src));
        Source& s = sources[si];
        EventId first = EventId(evs.size());
        // Untouched reserve costs no memory; growing by copies would. Many
        // small files (a directory store) grow geometrically instead.
        s.items.reserve(s.text.size() / 256 + 4);
        size_t need = evs.size() + s.text.size() / 256 + 4;
        if (evs.capacity() < need)
            evs.reserve(std::max(need, evs.capacity() * 2));
        if (uidText.capacity() < uidText.size() + s.text.size() / 8)
            uidText.reserve(std::max(uidText.size() + s.text.size() / 8, uidText.capacity() * 2));
        bulkLoading = true;
        // Events come in as they are read; one naming a zone defined further
        // down waits for the end of the file.
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
        });
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

    std::string itemBytes(const Source& s, const Item& it) const
    {
        if (it.changed || it.added)
            return it.repl;
        return s.text.substr(it.begin, it.end - it.begin);
    }

    std::string sourceText(const Source& s) const
    {
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

    // ---- queries
    static bool overlaps(int64_t s, int64_t e, int64_t from, int64_t to, Range range)
    {
        if (range == Range::Closed)
            return s <= to && e >= from;
        return s < to && (e > from || (s == e && s >= from));
    }

    void expand(EventId id, const Zone& target, int64_t from, int64_t to, Range range,
                std::vector<Occurrence>& out, QueryReport* rep) const
    {
        const Ev& e = evs[id];
        const Series& sr = *e.series;
        int64_t lo = inSeriesClock(e.start, target, from, false) - sr.maxLen - 1;
        int64_t hi = inSeriesClock(e.start, target, to, true) + 1;
        if (sr.future != kNoEvent) {
            const Ev& f = evs[sr.future];
            int64_t shift = inClock(e.start, f.start) - sr.futureRid;
            lo -= std::max<int64_t>(shift, 0) + 400 * kDay;
            hi += std::max<int64_t>(-shift, 0);
        }
        std::vector<int64_t> starts;
        bool cut = false;
        if (e.start.civil >= lo && e.start.civil <= hi)
            starts.push_back(e.start.civil);
        if (sr.hasRule) {
            if (sr.rule.count) {
                auto a = std::lower_bound(sr.counted.begin(), sr.counted.end(), lo);
                auto b = std::upper_bound(sr.counted.begin(), sr.counted.end(), hi);
                starts.insert(starts.end(), a, b);
                cut = sr.countCut && b == sr.counted.end();
            } else if (hi >= e.start.civil) {
                RecurIter it(sr.rule, e.start.civil, e.start.isDate(), sr.until);
                it.seek(lo);
                int64_t t;
                while (it.next(t, hi)) {
                    if (t > hi)
                        break;
                    if (t >= lo)
                        starts.push_back(t);
                    if (starts.size() > kMaxPerSeriesQuery) {
                        cut = true;
                        break;
                    }
                }
                cut = cut || it.cut();
            }
        }
        for (auto& r : sr.rdates)
            if (r.first >= lo && r.first <= hi)
                starts.push_back(r.first);
        std::sort(starts.begin(), starts.end());
        starts.erase(std::unique(starts.begin(), starts.end()), starts.end());
        if (rep) {
            rep->instancesExamined += starts.size();
            if (cut)
                rep->cut.push_back(std::string(uidOf(e)));
        }
        for (int64_t c : starts) {
            if (std::binary_search(sr.exdates.begin(), sr.exdates.end(), c))
                continue;
            if (!sr.exdays.empty() && std::binary_search(sr.exdays.begin(), sr.exdays.end(), floorDiv(c, kDay)))
                continue;
            if (!sr.overrides.empty()) {
                auto it = std::lower_bound(sr.overrides.begin(), sr.overrides.end(), std::make_pair(c, EventId(0)));
                if (it != sr.overrides.end() && it->first == c)
                    continue;  // the override is indexed as an event of its own
            }
            int64_t len = -1;
            for (auto& r : sr.rdates)
                if (r.first == c && r.second >= 0)
                    len = r.second;
            Occurrence o;
            o.series = id;
            o.event = id;
            o.recurring = true;
            o.recurrenceId = e.start;
            o.recurrenceId.civil = c;
            if (sr.future != kNoEvent && c >= sr.futureRid) {
                const Ev& f = evs[sr.future];
                int64_t shifted = c + (inClock(e.start, f.start) - sr.futureRid);
                place(f, shifted, -1, target, o.start, o.end);
                o.event = sr.future;
            } else {
                place(e, c, len, target, o.start, o.end);
            }
            if (!overlaps(o.start, o.end, from, to, range))
                continue;
            o.allDay = e.start.isDate();
            o.floating = e.start.kind == TimeKind::Floating;
            out.push_back(o);
        }
    }

    // How far a zone's offset moves within a day of `utc`.
    static int64_t jump(const Zone& z, int64_t utc)
    {
        int32_t a = z.offsetAtUtc(utc - kDay), b = z.offsetAtUtc(utc), c = z.offsetAtUtc(utc + kDay);
        return std::max({a, b, c}) - std::min({a, b, c});
    }

    // A bound of the query's window (target wall clock) in the series' own
    // clock, widened only by what offset changes nearby could move it.
    int64_t inSeriesClock(const Time& clock, const Zone& target, int64_t t, bool upper) const
    {
        if (clock.kind == TimeKind::Floating || clock.kind == TimeKind::Date)
            return t;
        int64_t u = target.toUtc(t);
        int64_t margin = jump(target, u);
        int64_t v = u;
        if (clock.kind == TimeKind::Zoned) {
            const Zone& z = zones[size_t(clock.zone)];
            v = z.fromUtc(u);
            margin += jump(z, u);
        }
        return upper ? v + margin : v - margin;
    }

    std::vector<Occurrence> query(const Zone& target, int64_t from, int64_t to, Range range, QueryReport* rep) const
    {
        if (range == Range::WholeDays) {
            from = floorDiv(from, kDay) * kDay;
            to = (floorDiv(to, kDay) + 1) * kDay;
            range = Range::HalfOpen;
        }
        std::vector<Occurrence> out;
        for (size_t b = 0; b < buckets.size(); ++b) {
            const auto& v = buckets[b];
            if (v.empty())
                continue;
            int64_t maxLen = b == 0 ? 0 : (int64_t(1) << b);
            auto it = std::lower_bound(v.begin(), v.end(), std::make_pair(from - maxLen - kZoneSlack, EventId(0)));
            for (; it != v.end() && it->first <= to + kZoneSlack; ++it) {
                const Ev& e = evs[it->second];
                Occurrence o;
                place(e, e.start.civil, -1, target, o.start, o.end);
                if (!overlaps(o.start, o.end, from, to, range))
                    continue;
                o.event = it->second;
                o.series = e.master != kNoEvent ? e.master : it->second;
                o.allDay = e.start.isDate();
                o.floating = e.start.kind == TimeKind::Floating;
                o.recurring = e.master != kNoEvent;
                o.recurrenceId = e.hasRid ? e.rid : e.start;
                out.push_back(o);
            }
        }
        for (EventId id : seriesList) {
            const Ev& e = evs[id];
            const Series& sr = *e.series;
            int64_t first = e.start.civil - kZoneSlack, last = sr.last == kNoEnd ? kNoEnd : sr.last + sr.maxLen + kZoneSlack;
            if (sr.future == kNoEvent && (first > to || last < from))
                continue;
            expand(id, target, from, to, range, out, rep);
        }
        std::sort(out.begin(), out.end(), [](const Occurrence& a, const Occurrence& b) {
            if (a.start != b.start) return a.start < b.start;
            if (a.end != b.end) return a.end < b.end;
            return a.event < b.event;
        });
        return out;
    }

    // ---- changes
    Component parsed(EventId id) const
    {
        const Ev& e = evs[id];
        const Source& s = sources[e.source];
        Component c;
        parseComponent(itemBytes(s, s.items[e.item]), c, nullptr, 1, s.path);
        return c;
    }

    std::string timeValue(Source& s, const Time& t, std::string& params)
    {
        params.clear();
        switch (t.kind) {
        case TimeKind::Date: params = ";VALUE=DATE"; return formatCivil(t.civil, true);
        case TimeKind::Utc: return formatCivil(t.civil, false) + "Z";
        case TimeKind::Floating: return formatCivil(t.civil, false);
        case TimeKind::Zoned: break;
        }
        if (t.zone < 0 || size_t(t.zone) >= zones.size())
            return formatCivil(t.civil, false);
        const Zone& z = zones[size_t(t.zone)];
        auto have = s.tzids.find(z.name);
        if (have == s.tzids.end() || have->second != t.zone) {
            if (z.vtimezone.empty() || have != s.tzids.end())
                return formatCivil(z.toUtc(t.civil), false) + "Z";
            // The file needs the zone's definition before an event can use it.
            Item it;
            it.begin = it.end = s.insertAt == std::string::npos ? s.text.size() : s.insertAt;
            it.repl = z.vtimezone;
            it.added = it.pending = true;
            s.items.push_back(std::move(it));
            s.tzids[z.name] = t.zone;
            s.dirty = true;
        }
        std::string name = z.name;
        bool quote = name.find_first_of(";:,") != std::string::npos;
        params = ";TZID=" + (quote ? "\"" + name + "\"" : name);
        return formatCivil(t.civil, false);
    }

    void setTime(Source& s, Component& c, const char* name, const Time& t)
    {
        std::string params;
        std::string v = timeValue(s, t, params);
        Property& p = c.set(name, v);
        p.params = params;
    }

    void applyEdit(Source& s, Component& c, const EventEdit& f, bool fresh)
    {
        if (f.summary) c.set("SUMMARY", escapeText(*f.summary));
        if (f.location) c.set("LOCATION", escapeText(*f.location));
        if (f.description) c.set("DESCRIPTION", escapeText(*f.description));
        if (f.cls) c.set("CLASS", *f.cls);
        if (f.categories) {
            c.remove("CATEGORIES");
            if (!f.categories->empty()) {
                std::string v;
                for (const std::string& cat : *f.categories)
                    v += (v.empty() ? "" : ",") + escapeText(cat);
                c.set("CATEGORIES", v);
            }
        }
        if (f.start)
            setTime(s, c, "DTSTART", *f.start);
        if (f.end) {
            c.remove("DURATION");
            setTime(s, c, "DTEND", *f.end);
        }
        if (f.busy) {
            static const char* cdo[] = {"FREE", "TENTATIVE", "BUSY", "OOF"};
            c.set("TRANSP", *f.busy == Busy::Free ? "TRANSPARENT" : "OPAQUE");
            if (*f.busy == Busy::Tentative || *f.busy == Busy::OutOfOffice || c.find("X-MICROSOFT-CDO-BUSYSTATUS"))
                c.set("X-MICROSOFT-CDO-BUSYSTATUS", cdo[int(*f.busy)]);
        }
        if (f.rrule) {
            if (f.rrule->empty())
                c.remove("RRULE");
            else
                c.set("RRULE", *f.rrule);
        }
        if (f.alarmMinutes) {
            for (size_t i = c.subs.size(); i-- > 0;)
                if (c.subs[i].name == "VALARM") {
                    c.subs.erase(c.subs.begin() + long(i));
                    c.subAt.erase(c.subAt.begin() + long(i));
                }
            if (*f.alarmMinutes >= 0) {
                Component a;
                a.name = "VALARM";
                a.set("ACTION", "DISPLAY");
                a.set("DESCRIPTION", "Reminder");
                a.set("TRIGGER", "-" + formatDuration(Duration{0, int64_t(*f.alarmMinutes) * 60}));
                c.subAt.push_back(c.props.size());
                c.subs.push_back(std::move(a));
            }
        }
        std::string stamp = nowUtcStamp();
        c.set("DTSTAMP", stamp);
        if (!fresh) {
            c.set("LAST-MODIFIED", stamp);
            int64_t seq = 0;
            if (const Property* p = c.find("SEQUENCE"))
                seq = atoll(p->value.c_str());
            c.set("SEQUENCE", std::to_string(seq + 1));
        }
    }

    // Rebuilds the index entry of one event from its current bytes.
    EventId reread(uint32_t si, uint32_t ii, EventId reuse)
    {
        Source& s = sources[si];
        std::string bytes = itemBytes(s, s.items[ii]);
        std::string wrapped = "BEGIN:VCALENDAR\r\n" + bytes + "END:VCALENDAR\r\n";
        EventId id = kNoEvent;
        scanText(wrapped, s.path, nullptr, [&](const ScannedItem& it) {
            if (it.name == "VEVENT" && id == kNoEvent)
                id = buildEvent(si, ii, it, nullptr);
        });
        if (id == kNoEvent)
            id = buildEvent(si, ii, ScannedItem(), nullptr);
        if (reuse != kNoEvent) {
            // Keep the caller's id: move the fresh record into it.
            evs[reuse] = std::move(evs[id]);
            evs.pop_back();
            id = reuse;
            s.items[ii].event = id;
        }
        evs[id].line = s.items[ii].line;
        return id;
    }

    void relink(EventId id)
    {
        Ev& e = evs[id];
        if (e.series)
            prepareSeries(e, nullptr);
        if (!e.hasRid && e.uidLen && e.series)
            masters[std::string(uidOf(e))] = id;
        if (e.hasRid)
            attachOverride(id);
        else if (e.series)
            for (EventId o = 0; o < evs.size(); ++o)
                if (evs[o].live && evs[o].hasRid && uidOf(evs[o]) == uidOf(e))
                    attachOverride(o);
        index(id);
    }

    bool replaceItem(EventId id, std::string bytes)
    {
        Ev& e = evs[id];
        Source& s = sources[e.source];
        Item& it = s.items[e.item];
        it.repl = std::move(bytes);
        it.changed = it.pending = true;
        s.dirty = true;
        unindex(id);
        detachOverride(id);
        uint32_t si = e.source, ii = e.item;
        reread(si, ii, id);
        relink(id);
        return true;
    }

    uint32_t sourceForNew()
    {
        if (!directory) {
            if (sources.empty()) {
                Source s;
                s.path = root;
                s.exists = false;
                sources.push_back(std::move(s));
            }
            return 0;
        }
        return uint32_t(-1);
    }

    void ensureCalendar(Source& s)
    {
        if (s.insertAt != std::string::npos)
            return;
        std::string& t = s.text.edit();
        if (!t.empty() && t.back() != '\n')
            t += "\r\n";
        t += "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Oakfinder//Lanternfields//EN\r\n";
        s.insertAt = t.size();
        t += "END:VCALENDAR\r\n";
        s.dirty = true;
    }

    // After a write: the written bytes become the file's text, and every
    // item points into them again, keeping its event id.
    void relayout(Source& s, std::string out)
    {
        std::vector<Item*> order;
        for (Item& it : s.items)
            if (!it.deleted)
                order.push_back(&it);
        std::stable_sort(order.begin(), order.end(), [](const Item* a, const Item* b) { return a->begin < b->begin; });
        std::vector<Item, BigAllocator<Item>> items;
        ScanResult r = scanText(out, s.path, nullptr, [&](const ScannedItem& si) {
            Item it;
            it.begin = si.begin;
            it.end = si.end;
            it.line = si.line;
            it.isEvent = si.name == "VEVENT";
            items.push_back(std::move(it));
        });
        if (items.size() == order.size()) {
            for (size_t i = 0; i < order.size(); ++i)
                items[i].event = order[i]->event;
            for (size_t i = 0; i < items.size(); ++i)
                if (items[i].event != kNoEvent) {
                    evs[items[i].event].item = uint32_t(i);
                    evs[items[i].event].line = items[i].line;
                }
        }
        s.items.swap(items);
        s.text.assign(std::move(out));
        s.insertAt = r.insertAt;
        s.dirty = false;
        s.exists = true;
    }

    void dropSource(size_t idx)
    {
        Source& s = sources[idx];
        for (Item& it : s.items) {
            EventId ev = it.event;
            if (ev == kNoEvent || !evs[ev].live)
                continue;
            unindex(ev);
            detachOverride(ev);
            evs[ev].live = false;
            auto m = masters.find(std::string(uidOf(evs[ev])));
            if (m != masters.end() && m->second == ev)
                masters.erase(m);
        }
        s.items.clear();
    }

    void removeEvent(EventId id)
    {
        Ev& e = evs[id];
        Source& s = sources[e.source];
        Item& it = s.items[e.item];
        it.deleted = it.pending = true;
        s.dirty = true;
        unindex(id);
        detachOverride(id);
        e.live = false;
        auto m = masters.find(std::string(uidOf(e)));
        if (m != masters.end() && m->second == id)
            masters.erase(m);
        if (s.inDirectory) {
            bool any = false;
            for (const Item& i2 : s.items)
                any = any || (!i2.deleted && i2.isEvent);
            s.removeFile = !any;
        }
    }
};

Store::Store() : d_(new StoreImpl) {}
Store::~Store() = default;

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
            if (!s.text.read(f)) {
                report(problems, f, 0, "cannot read the file");
                ok = false;
                continue;
            }
            ok = d_->loadSource(std::move(s), problems, false) && ok;
        }
        d_->link(0, problems, true);
        return ok;
    }
    Source s;
    s.path = path;
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
    d_->sourceForNew();
    d_->ensureCalendar(d_->sources[0]);
}

std::vector<EventId> Store::events() const
{
    std::vector<EventId> out;
    for (EventId i = 0; i < d_->evs.size(); ++i)
        if (d_->evs[i].live)
            out.push_back(i);
    return out;
}

size_t Store::eventCount() const
{
    size_t n = 0;
    for (const Ev& e : d_->evs)
        n += e.live;
    return n;
}

bool Store::valid(EventId id) const { return id < d_->evs.size() && d_->evs[id].live; }

std::string Store::uid(EventId id) const
{
    return id < d_->evs.size() ? std::string(d_->uidOf(d_->evs[id])) : std::string();
}

std::string Store::bytes(EventId id) const
{
    if (id >= d_->evs.size())
        return std::string();
    const Ev& e = d_->evs[id];
    const Source& s = d_->sources[e.source];
    return d_->itemBytes(s, s.items[e.item]);
}

EventId Store::findUid(std::string_view uid) const
{
    auto it = d_->masters.find(std::string(uid));
    if (it != d_->masters.end() && d_->evs[it->second].live)
        return it->second;
    for (EventId i = 0; i < d_->evs.size(); ++i)
        if (d_->evs[i].live && d_->uidOf(d_->evs[i]) == uid)
            return i;
    return kNoEvent;
}

std::vector<EventId> Store::overridesOf(EventId series) const
{
    std::vector<EventId> out;
    if (!valid(series) || !d_->evs[series].series)
        return out;
    for (auto& p : d_->evs[series].series->overrides)
        out.push_back(p.second);
    if (d_->evs[series].series->future != kNoEvent)
        out.push_back(d_->evs[series].series->future);
    return out;
}

int Store::zoneIndex(std::string_view tzid) const
{
    auto it = d_->zoneByName.find(std::string(tzid));
    return it == d_->zoneByName.end() ? -1 : it->second;
}

const Zone& Store::zone(int index) const { return d_->zones.at(size_t(index)); }

EventInfo Store::info(EventId id) const
{
    EventInfo in;
    if (id >= d_->evs.size())
        return in;
    const Ev& e = d_->evs[id];
    Component c = d_->parsed(id);
    Source& s = d_->sources[e.source];
    auto text = [&](const char* n) {
        const Property* p = c.find(n);
        return p ? unescapeText(p->value) : std::string();
    };
    in.uid = std::string(d_->uidOf(e));
    in.summary = text("SUMMARY");
    in.location = text("LOCATION");
    in.description = text("DESCRIPTION");
    in.cls = text("CLASS");
    for (const Property* p : c.findAll("CATEGORIES"))
        for (std::string& cat : splitTextList(p->value))
            in.categories.push_back(std::move(cat));
    in.start = e.start;
    in.allDay = e.start.isDate();
    in.endKind = e.endKind;
    in.duration = e.dur;
    if (e.endKind == EndKind::DtEnd) {
        in.end = e.end;
    } else {
        in.end = e.start;
        if (e.endKind == EndKind::Duration)
            in.end.civil += e.dur.days * kDay + e.dur.seconds;
        else if (e.start.isDate())
            in.end.civil += kDay;
    }
    std::string transp = toUpper(text("TRANSP"));
    in.transparent = transp == "TRANSPARENT";
    in.busy = in.transparent ? Busy::Free : Busy::Busy;
    std::string cdo = toUpper(text("X-MICROSOFT-CDO-BUSYSTATUS"));
    if (cdo == "FREE") in.busy = Busy::Free;
    else if (cdo == "TENTATIVE") in.busy = Busy::Tentative;
    else if (cdo == "BUSY") in.busy = Busy::Busy;
    else if (cdo == "OOF") in.busy = Busy::OutOfOffice;
    for (const Component& sub : c.subs) {
        if (sub.name != "VALARM")
            continue;
        if (!in.hasAlarm) {
            const Property* trig = sub.find("TRIGGER");
            Duration d;
            if (trig && !eqUpper(trig->param("VALUE"), "DATE-TIME") && parseDuration(trig->value, d) &&
                d.days <= 0 && d.seconds <= 0)
                in.alarmMinutes = int(-(d.days * kDay + d.seconds) / 60);
        }
        in.hasAlarm = true;
    }
    if (const Property* p = c.find("RRULE"))
        in.rrule = p->value;
    for (const char* n : {"RDATE", "EXDATE"}) {
        for (const Property* p : c.findAll(n)) {
            std::string_view v = p->value;
            size_t st = 0;
            for (size_t i = 0; i <= v.size(); ++i) {
                if (i != v.size() && v[i] != ',')
                    continue;
                std::string_view item = v.substr(st, i - st);
                st = i + 1;
                item = item.substr(0, item.find('/'));
                Time t;
                if (!item.empty() && d_->parseTime(s, p->params, item, t, p->line, nullptr))
                    (n[0] == 'R' ? in.rdates : in.exdates).push_back(t);
            }
        }
    }
    in.hasRecurrenceId = e.hasRid;
    in.recurrenceId = e.rid;
    in.thisAndFuture = e.ridFuture;
    if (const Property* p = c.find("SEQUENCE"))
        in.sequence = atoll(p->value.c_str());
    if (const Property* p = c.find("DTSTAMP"))
        in.dtstamp = p->value;
    if (const Property* p = c.find("LAST-MODIFIED"))
        in.lastModified = p->value;
    in.recurring = e.series != nullptr;
    return in;
}

std::vector<Occurrence> Store::query(const Zone& target, int64_t from, int64_t to, Range range,
                                     QueryReport* report) const
{
    return d_->query(target, from, to, range, report);
}

EventId Store::add(const EventEdit& fields)
{
    if (!fields.start)
        return kNoEvent;
    uint32_t si = d_->sourceForNew();
    std::string uidText = newUid();
    if (si == uint32_t(-1)) {
        Source s;
        std::string safe;
        for (char ch : uidText)
            safe += (isalnum(static_cast<unsigned char>(ch)) || ch == '-') ? ch : '_';
        s.path = (std::filesystem::path(d_->root) / (safe + ".ics")).string();
        s.exists = false;
        s.inDirectory = true;
        si = uint32_t(d_->sources.size());
        d_->sources.push_back(std::move(s));
    }
    Source& s = d_->sources[si];
    if (!s.writable)
        return kNoEvent;
    d_->ensureCalendar(s);
    Component c;
    c.name = "VEVENT";
    c.set("UID", uidText);
    c.set("DTSTAMP", nowUtcStamp());
    c.set("CREATED", nowUtcStamp());
    c.set("SEQUENCE", "0");
    EventEdit f = fields;
    if (!f.end) {
        Time end = *f.start;
        if (end.isDate())
            end.civil += kDay;
        f.end = end;
    }
    d_->applyEdit(s, c, f, true);
    Item it;
    it.begin = it.end = s.insertAt;
    it.isEvent = true;
    it.repl = writeComponent(c);
    it.added = it.pending = true;
    s.items.push_back(std::move(it));
    s.dirty = true;
    uint32_t ii = uint32_t(s.items.size() - 1);
    EventId id = d_->reread(si, ii, kNoEvent);
    d_->relink(id);
    return id;
}

bool Store::edit(EventId id, const EventEdit& fields)
{
    if (!valid(id) || !d_->sources[d_->evs[id].source].writable)
        return false;
    Component c = d_->parsed(id);
    d_->applyEdit(d_->sources[d_->evs[id].source], c, fields, false);
    return d_->replaceItem(id, writeComponent(c));
}

bool Store::remove(EventId id)
{
    if (!valid(id) || !d_->sources[d_->evs[id].source].writable)
        return false;
    if (d_->evs[id].series)
        for (EventId o : overridesOf(id))
            d_->removeEvent(o);
    d_->removeEvent(id);
    return true;
}

bool Store::addExdate(EventId series, const Time& occurrenceStart)
{
    if (!valid(series) || !d_->evs[series].series || !d_->sources[d_->evs[series].source].writable)
        return false;
    Ev& e = d_->evs[series];
    int64_t c = d_->inClock(e.start, occurrenceStart);
    for (EventId o : overridesOf(series))
        if (!d_->evs[o].ridFuture && d_->inClock(e.start, d_->evs[o].rid) == c)
            d_->removeEvent(o);
    Time t = e.start;
    t.civil = c;
    Component comp = d_->parsed(series);
    std::string params;
    std::string v = d_->timeValue(d_->sources[e.source], t, params);
    Property p;
    p.name = "EXDATE";
    p.params = params;
    p.value = v;
    comp.props.push_back(std::move(p));
    d_->applyEdit(d_->sources[e.source], comp, EventEdit(), false);
    return d_->replaceItem(series, writeComponent(comp));
}

bool Store::removeOverride(EventId overrideId)
{
    if (!valid(overrideId) || !d_->evs[overrideId].hasRid)
        return false;
    return remove(overrideId);
}

bool Store::dirty() const
{
    for (const Source& s : d_->sources)
        if (s.dirty)
            return true;
    return false;
}

std::vector<std::pair<std::string, std::string>> Store::texts() const
{
    std::vector<std::pair<std::string, std::string>> out;
    for (const Source& s : d_->sources)
        if (!s.removeFile)
            out.push_back({s.path, d_->sourceText(s)});
    return out;
}

namespace {
// (UID, RECURRENCE-ID as written) names one component across versions of a file.
std::string itemKey(std::string_view bytes)
{
    std::string wrapped = "BEGIN:VCALENDAR\r\n" + std::string(bytes) + "END:VCALENDAR\r\n";
    std::string key;
    bool first = true;
    scanText(wrapped, std::string(), nullptr, [&](const ScannedItem& it) {
        if (!first)
            return;
        first = false;
        if (it.name != "VEVENT") {
            key = it.name + "\n" + std::string(bytes);
            return;
        }
        std::string_view uid, rid;
        for (const KeyProp& k : it.keys) {
            if (k.which == kUid) uid = k.value;
            if (k.which == kRecurrenceId) rid = k.value;
        }
        if (!uid.empty())
            key = std::string(uid) + "\n" + std::string(rid);
    });
    return key;
}
}  // namespace

bool Store::save(std::vector<Problem>* problems, std::vector<std::string>* conflicts)
{
    namespace fs = std::filesystem;
    bool ok = true;
    for (Source& s : d_->sources) {
        if (!s.dirty)
            continue;
        if (!s.writable) {
            report(problems, s.path, 0, "not saved: the file could not be read completely");
            ok = false;
            continue;
        }
        std::string disk;
        bool onDisk = readWholeFile(s.path, disk);
        std::string ours = d_->sourceText(s);
        bool externallyChanged = s.exists ? (!onDisk || std::string_view(disk) != s.text.view()) : onDisk;
        std::string out = ours;
        if (s.removeFile) {
            if (externallyChanged && onDisk) {
                report(problems, s.path, 0, "kept: another program changed it");
                if (conflicts)
                    conflicts->push_back(s.path);
            } else if (onDisk && std::remove(s.path.c_str()) != 0) {
                report(problems, s.path, 0, "cannot delete the file");
                ok = false;
                continue;
            }
            s.dirty = false;
            s.exists = false;
            continue;
        }
        if (externallyChanged && onDisk) {
            // Merge by event: take the disk's file and apply our changed
            // components where the disk still has what we started from.
            struct Span {
                size_t begin, end;
                int line;
            };
            std::vector<Span> diskItems;
            ScanResult dr = scanText(disk, s.path, nullptr, [&](const ScannedItem& it) {
                diskItems.push_back({it.begin, it.end, it.line});
            });
            std::map<std::string, std::string> base;
            for (const Item& it : s.items)
                if (!it.added)
                    base[itemKey(s.text.view().substr(it.begin, it.end - it.begin))] =
                        s.text.substr(it.begin, it.end - it.begin);
            std::map<std::string, const Item*> mine;
            std::vector<const Item*> added;
            for (const Item& it : s.items) {
                if (!it.pending)
                    continue;
                if (it.added) {
                    added.push_back(&it);
                    continue;
                }
                mine[itemKey(s.text.view().substr(it.begin, it.end - it.begin))] = &it;
            }
            std::string merged;
            size_t pos = 0;
            for (const Span& di : diskItems) {
                std::string_view bytes = std::string_view(disk).substr(di.begin, di.end - di.begin);
                std::string key = itemKey(bytes);
                auto m = mine.find(key);
                merged.append(disk, pos, di.begin - pos);
                pos = di.end;
                if (m != mine.end() && !key.empty()) {
                    if (base[key] == bytes) {
                        if (!m->second->deleted)
                            merged += m->second->repl;
                    } else {
                        merged.append(bytes.data(), bytes.size());
                        report(problems, s.path, di.line, "another program changed this event too; its version kept");
                        if (conflicts)
                            conflicts->push_back(key.substr(0, key.find('\n')));
                    }
                    mine.erase(m);
                } else {
                    merged.append(bytes.data(), bytes.size());
                }
            }
            size_t at = dr.insertAt == std::string::npos ? disk.size() : dr.insertAt;
            merged.append(disk, pos, at - pos);
            for (const Item* a : added)
                merged += a->repl;
            merged.append(disk, at, std::string::npos);
            out = merged;
        }
        std::string err;
        if (!writeFileAtomic(s.path, out, err)) {
            report(problems, s.path, 0, err);
            ok = false;
            continue;
        }
        if (externallyChanged && onDisk) {
            // Re-read this file so the store shows the merged result; its
            // events get new ids (their UIDs, and so their OIDs, stay).
            size_t idx = size_t(&s - &d_->sources[0]);
            d_->dropSource(idx);
            Source fresh;
            fresh.path = s.path;
            fresh.inDirectory = s.inDirectory;
            fresh.text.assign(out);
            std::vector<Problem> ignored;
            d_->loadSource(std::move(fresh), &ignored);
            d_->sources[idx] = std::move(d_->sources.back());
            d_->sources.pop_back();
            for (Item& it : d_->sources[idx].items)
                if (it.event != kNoEvent)
                    d_->evs[it.event].source = uint32_t(idx);
            return save(problems, conflicts) && ok;  // the other files, if any
        }
        d_->relayout(s, std::move(out));
    }
    return ok;
}

}  // namespace lfical
