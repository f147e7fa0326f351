// Querying the store: where events fall on a zone's wall clock, series
// expanded into occurrences, date-range queries, and what an event holds.
#include <algorithm>

#include "storeimpl.h"

namespace lfical {

// ---- clocks
// UTC for zoned and UTC times; the wall clock itself otherwise.
int64_t StoreImpl::absolute(const Time& t) const
{
    if (t.kind == TimeKind::Zoned)
        return zones[size_t(t.zone)].toUtc(t.civil);
    return t.civil;
}

// A time in the series' own clock.
int64_t StoreImpl::inClock(const Time& clock, const Time& t) const
{
    if (clock.kind == TimeKind::Zoned && (t.kind == TimeKind::Zoned || t.kind == TimeKind::Utc))
        return zones[size_t(clock.zone)].fromUtc(absolute(t));
    if (clock.kind == TimeKind::Utc && t.kind == TimeKind::Zoned)
        return absolute(t);
    return t.civil;
}

int64_t StoreImpl::toTarget(const Time& clock, int64_t civil, const Zone& target) const
{
    switch (clock.kind) {
    case TimeKind::Zoned: return target.fromUtc(zones[size_t(clock.zone)].toUtc(civil));
    case TimeKind::Utc: return target.fromUtc(civil);
    default: return civil;
    }
}

// Start and end of the instance starting at `c` (series clock) in the target's wall clock.
void StoreImpl::place(const Ev& e, int64_t c, int64_t exactLen, const Zone& target, int64_t& s, int64_t& en) const
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

// ---- queries
bool StoreImpl::overlaps(int64_t s, int64_t e, int64_t from, int64_t to, Range range)
{
    if (range == Range::Closed)
        return s <= to && e >= from;
    return s < to && (e > from || (s == e && s >= from));
}

int64_t StoreImpl::inSeriesClockAt(const Time& clock, const Zone& target, int64_t t) const
{
    switch (clock.kind) {
    case TimeKind::Zoned: return zones[size_t(clock.zone)].fromUtc(target.toUtc(t));
    case TimeKind::Utc: return target.toUtc(t);
    default: return t;
    }
}

// Whether a series' starts can be sampled day by day: its rule's periods are
// a day or shorter (a seek then skips what lies between), or its starts are
// counted out already; and the window is a view's, not years.
static bool samplable(const Series& sr, int64_t firstDay, int64_t lastDay)
{
    return sr.hasRule && lastDay - firstDay <= 400 && (sr.rule.count || sr.rule.freq <= Freq::Daily);
}

void StoreImpl::expand(EventId id, const Zone& target, int64_t from, int64_t to, Range range,
                       std::vector<Occurrence>& out, QueryReport* rep, const DayGrid* sample,
                       std::unordered_map<int64_t, size_t>* reach) const
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
    // Kept between calls, as a month's query expands every series of the
    // store's window: a list per series would cost a block from the heap each.
    thread_local std::vector<int64_t> starts;
    starts.clear();
    // A flood's hundred thousand starts are not kept for every query after it.
    if (starts.capacity() > (size_t(1) << 16))
        std::vector<int64_t>().swap(starts);
    bool cut = false;
    if (e.start.civil >= lo && e.start.civil <= hi)
        starts.push_back(e.start.civil);
    auto excluded = [&](int64_t c) {
        if (std::binary_search(sr.exdates.begin(), sr.exdates.end(), c))
            return true;
        if (!sr.exdays.empty() && std::binary_search(sr.exdays.begin(), sr.exdays.end(), floorDiv(c, kDay)))
            return true;
        if (sr.overrides.empty())
            return false;
        auto it = std::lower_bound(sr.overrides.begin(), sr.overrides.end(), std::make_pair(c, EventId(0)));
        return it != sr.overrides.end() && it->first == c;
    };
    const int64_t firstDay = floorDiv(from - sr.maxLen - 1, kDay), lastDay = floorDiv(to, kDay);
    std::vector<int64_t> sampledDays;
    // Kept with `starts`, for the same reason: its lists would cost a few
    // heap blocks per series.
    thread_local RecurIter it;
    if (sample && sr.future == kNoEvent && samplable(sr, firstDay, lastDay)) {
        bool iterated = false;
        StartSource src;
        src.excluded = excluded;
        src.stop = hi;
        if (sr.rule.count) {
            src.counted = &sr.counted;
            cut = sr.countCut && !sr.counted.empty() && sr.counted.back() <= hi;
        } else {
            it.reset(sr.rule, e.start.civil, e.start.isDate(), sr.until);
            src.it = &it;
            iterated = true;
        }
        std::vector<int64_t>& days = sampledDays;
        // An instance's length as written (a day's change of offset aside).
        int64_t length = e.endKind == EndKind::DtEnd     ? e.exact
                         : e.endKind == EndKind::Duration ? e.dur.days * kDay + e.dur.seconds
                         : e.start.isDate()               ? kDay
                                                          : 0;
        if (hi >= e.start.civil)
            sampleStarts(src, [&](int64_t t) { return inSeriesClockAt(e.start, target, t); }, *sample, length,
                         firstDay, lastDay, lo, hi, starts, days);
        cut = cut || (iterated && it.cut());
        if (rep)
            rep->thinnedDays.insert(rep->thinnedDays.end(), days.begin(), days.end());
    } else if (sr.hasRule) {
        if (sr.rule.count) {
            auto a = std::lower_bound(sr.counted.begin(), sr.counted.end(), lo);
            auto b = std::upper_bound(sr.counted.begin(), sr.counted.end(), hi);
            starts.insert(starts.end(), a, b);
            cut = sr.countCut && b == sr.counted.end();
        } else if (hi >= e.start.civil) {
            it.reset(sr.rule, e.start.civil, e.start.isDate(), sr.until);
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
    int64_t dayShown = INT64_MIN;  // the day of the series' last occurrence met
    for (int64_t c : starts) {
        // An override is indexed as an event of its own.
        if (excluded(c))
            continue;
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
        if (reach && !sampledDays.empty() && drawnOver(o, sampledDays, *sample, *reach, dayShown))
            continue;
        o.allDay = e.start.isDate();
        o.floating = e.start.kind == TimeKind::Floating;
        out.push_back(o);
    }
}


// How far a zone's offset moves within a day of `utc`.
int64_t StoreImpl::jump(const Zone& z, int64_t utc)
{
    int32_t a = z.offsetAtUtc(utc - kDay), b = z.offsetAtUtc(utc), c = z.offsetAtUtc(utc + kDay);
    return std::max({a, b, c}) - std::min({a, b, c});
}

// A bound of the query's window (target wall clock) in the series' own
// clock, widened only by what offset changes nearby could move it.
int64_t StoreImpl::inSeriesClock(const Time& clock, const Zone& target, int64_t t, bool upper) const
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

void StoreImpl::query(std::vector<Occurrence>& out, const Zone& target, int64_t from, int64_t to, Range range,
                      QueryReport* rep, const DayGrid* grid) const
{
    // A list shows a flooding series once per stretch, which its sampled
    // starts always hold, so a list's query samples from the start. A picture
    // is thinned from every start while they stay few; past that, the query
    // starts again sampled, and its time stays bounded however many series
    // flood the view.
    const bool useGrid = grid && gridMakesSense(*grid);
    const DayGrid* sample = useGrid && grid->startPixel.empty() ? grid : nullptr;
    const size_t cutsBefore = rep ? rep->cut.size() : 0, examinedBefore = rep ? rep->instancesExamined : 0;
    const size_t thinnedBefore = rep ? rep->thinnedDays.size() : 0;
    const size_t budget = useGrid && !sample ? DayGrid::kThinWholeUpTo : SIZE_MAX;
    if (budget != SIZE_MAX && floodsPast(from, to, budget))
        sample = grid;
    if (queryOnce(out, target, from, to, range, rep, sample, budget))
        return;
    if (rep) {
        rep->cut.resize(cutsBefore);
        rep->instancesExamined = examinedBefore;
        rep->thinnedDays.resize(thinnedBefore);
    }
    queryOnce(out, target, from, to, range, rep, grid, SIZE_MAX);
}

// Whether the series whose rules repeat within the hour would, by their
// rules alone, put more than `budget` starts into [from, to]: such a query is
// sampled from the start rather than after a walk it would throw away.
bool StoreImpl::floodsPast(int64_t from, int64_t to, size_t budget) const
{
    size_t estimate = 0;
    for (EventId id : seriesList) {
        const Ev& e = evs[id];
        const Series& sr = *e.series;
        if (!sr.hasRule || sr.rule.freq > Freq::Hourly)
            continue;
        int64_t unit = sr.rule.freq == Freq::Secondly ? 1 : sr.rule.freq == Freq::Minutely ? 60 : 3600;
        int64_t first = std::max(from, e.start.civil - kZoneSlack);
        int64_t last = std::min(to, sr.last == kNoEnd ? to : sr.last + sr.maxLen + kZoneSlack);
        if (last > first)
            estimate += size_t((last - first) / (unit * std::max<int64_t>(sr.rule.interval, 1)));
        if (estimate > budget)
            return true;
    }
    return false;
}

bool StoreImpl::queryOnce(std::vector<Occurrence>& out, const Zone& target, int64_t from, int64_t to, Range range,
                          QueryReport* rep, const DayGrid* sample, size_t budget) const
{
    if (range == Range::WholeDays) {
        from = floorDiv(from, kDay) * kDay;
        to = (floorDiv(to, kDay) + 1) * kDay;
        range = Range::HalfOpen;
    }
    out.clear();
    // A picture's sampled days: how far each stretch of each is drawn.
    std::unordered_map<int64_t, size_t> reach;
    auto reachOf = [](const DayGrid* g, std::unordered_map<int64_t, size_t>& r) {
        return g && !g->startPixel.empty() ? &r : nullptr;
    };
    // Grown step by step, the list would be copied and, under Wine, mapped
    // anew at every step.
    // A flooded month's hundreds of thousands are not reserved for every
    // query after it.
    size_t expected = std::min<size_t>(lastFound.load(std::memory_order_relaxed), 65536);
    out.reserve(expected + expected / 4 + 16);
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
        expand(id, target, from, to, range, out, rep, sample, reachOf(sample, reach));
        if (out.size() > budget)
            return false;
    }
    std::sort(out.begin(), out.end(), [](const Occurrence& a, const Occurrence& b) {
        if (a.start != b.start) return a.start < b.start;
        if (a.end != b.end) return a.end < b.end;
        return a.event < b.event;
    });
    lastFound.store(out.size(), std::memory_order_relaxed);
    return true;
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

std::string_view Store::uidView(EventId id) const
{
    return id < d_->evs.size() ? d_->uidOf(d_->evs[id]) : std::string_view();
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
    auto it = d_->zoneByName.find(tzid);
    if (it != d_->zoneByName.end())
        return it->second;
    auto t = d_->tableZoneByName.find(tzid);
    return t == d_->tableZoneByName.end() ? -1 : t->second;
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
        in.end = e.start;
        if (const Property* p = c.find("DTEND"))
            d_->parseTime(s, p->params, p->value, in.end, p->line, nullptr);
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
            forEachListItem(p->value, [&](std::string_view item) {
                item = item.substr(0, item.find('/'));
                Time t;
                if (!item.empty() && d_->parseTime(s, p->params, item, t, p->line, nullptr))
                    (n[0] == 'R' ? in.rdates : in.exdates).push_back(t);
            });
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
                                     QueryReport* report, const DayGrid* grid) const
{
    std::vector<Occurrence> out;
    queryInto(out, target, from, to, range, report, grid);
    return out;
}

void Store::queryInto(std::vector<Occurrence>& out, const Zone& target, int64_t from, int64_t to, Range range,
                      QueryReport* report, const DayGrid* grid) const
{
    d_->query(out, target, from, to, range, report, grid);
    if (grid)
        thinFloods(out, *grid, from, report);
    if (report) {
        std::sort(report->thinnedDays.begin(), report->thinnedDays.end());
        report->thinnedDays.erase(std::unique(report->thinnedDays.begin(), report->thinnedDays.end()),
                                  report->thinnedDays.end());
    }
}

}  // namespace lfical
