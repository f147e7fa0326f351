// The store, changing half: edits that rewrite one component, new events,
// EXDATEs and overrides, and saving (atomic, merging by UID).
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "storeimpl.h"

namespace lfical {

namespace {
std::string nowUtcStamp()
{
    time_t t = time(nullptr);
    return formatCivil(int64_t(t), false) + "Z";
}}  // namespace

// ---- changes
Component StoreImpl::parsed(EventId id) const
{
    const Ev& e = evs[id];
    const Source& s = sources[e.source];
    Component c;
    parseComponent(itemBytes(s, s.items[e.item]), c, nullptr, 1, s.path);
    return c;
}

std::string StoreImpl::timeValue(Source& s, const Time& t, std::string& params)
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
        it.setBytes(z.vtimezone);
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

void StoreImpl::setTime(Source& s, Component& c, const char* name, const Time& t)
{
    std::string params;
    std::string v = timeValue(s, t, params);
    Property& p = c.set(name, v);
    p.params = params;
}

void StoreImpl::applyEdit(Source& s, Component& c, const EventEdit& f, bool fresh)
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
EventId StoreImpl::reread(uint32_t si, uint32_t ii, EventId reuse)
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

void StoreImpl::relink(EventId id)
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

bool StoreImpl::replaceItem(EventId id, std::string bytes)
{
    Ev& e = evs[id];
    Source& s = sources[e.source];
    Item& it = s.items[e.item];
    it.setBytes(std::move(bytes));
    it.changed = it.pending = true;
    s.dirty = true;
    unindex(id);
    detachOverride(id);
    uint32_t si = e.source, ii = e.item;
    reread(si, ii, id);
    relink(id);
    return true;
}

bool uidMakesFileName(std::string_view uid)
{
    if (uid.empty() || uid.size() > 200 || uid == "." || uid == "..")
        return false;
    for (char ch : uid)
        if (!(isalnum(static_cast<unsigned char>(ch)) || ch == '_' || ch == '.' || ch == '+' || ch == '-'))
            return false;
    return true;
}

std::string StoreImpl::newFileName(std::string_view uid) const
{
    namespace fs = std::filesystem;
    // Another file may already carry the name (vdir tools name files as
    // they like, and Windows compares names without case): then a UUID.
    auto taken = [&](const std::string& name) {
        std::error_code ec;
        fs::path p = fs::path(root) / name;
        if (fs::exists(p, ec))
            return true;
        for (const Source& s : sources)
            if (s.path.size() == p.string().size() && eqUpper(s.path, p.string()))
                return true;
        return false;
    };
    std::string name = uidMakesFileName(uid) ? std::string(uid) + ".ics" : newUuid() + ".ics";
    while (taken(name))
        name = newUuid() + ".ics";
    return (fs::path(root) / name).string();
}

uint32_t StoreImpl::sourceForNew(std::string_view uid)
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
    Source s;
    s.path = newFileName(uid);
    s.exists = false;
    s.inDirectory = true;
    sources.push_back(std::move(s));
    return uint32_t(sources.size() - 1);
}

bool StoreImpl::uidInUse(std::string_view uidAsWritten) const
{
    for (const Ev& e : evs)
        if (e.live && uidOf(e) == uidAsWritten)
            return true;
    return false;
}

EventId StoreImpl::insertNew(std::string_view uid, Component& c, const EventEdit* fields)
{
    uint32_t si = sourceForNew(uid);
    Source& s = sources[si];
    if (!s.writable) {
        if (directory)
            sources.pop_back();
        return kNoEvent;
    }
    ensureCalendar(s);
    // After the file is there, so a zone's definition can go into it.
    if (fields)
        applyEdit(s, c, *fields, true);
    Item it;
    it.begin = it.end = s.insertAt;
    it.isEvent = true;
    it.setBytes(writeComponent(c));
    it.added = it.pending = true;
    s.items.push_back(std::move(it));
    s.dirty = true;
    EventId id = reread(si, uint32_t(s.items.size() - 1), kNoEvent);
    relink(id);
    return id;
}

void StoreImpl::ensureCalendar(Source& s)
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
bool StoreImpl::relayout(Source& s, std::string out)
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
    if (items.size() != order.size()) {
        // The written text does not split as the store expected: read it afresh.
        reloadSource(size_t(&s - &sources[0]), std::move(out));
        return false;
    }
    for (size_t i = 0; i < order.size(); ++i)
        items[i].event = order[i]->event;
    for (size_t i = 0; i < items.size(); ++i)
        if (items[i].event != kNoEvent) {
            evs[items[i].event].item = uint32_t(i);
            evs[items[i].event].line = items[i].line;
        }
    s.items.swap(items);
    s.text.assign(std::move(out));
    s.bareText.clear();
    s.insertAt = r.insertAt;
    stamp(s);
    s.dirty = false;
    s.exists = true;
    return true;
}

// Reads a file's new text as if loading it: its events get new ids (their
// UIDs, and so their OIDs, stay). Other sources' references stay valid only
// by index: callers iterating sources start over.
void StoreImpl::reloadSource(size_t idx, std::string text)
{
    dropSource(idx);
    Source fresh;
    fresh.path = sources[idx].path;
    fresh.inDirectory = sources[idx].inDirectory;
    fresh.text.assign(std::move(text));
    stamp(fresh);
    std::vector<Problem> ignored;
    loadSource(std::move(fresh), &ignored);
    sources[idx] = std::move(sources.back());
    sources.pop_back();
    for (Item& it : sources[idx].items)
        if (it.event != kNoEvent)
            evs[it.event].source = uint32_t(idx);
}

void StoreImpl::dropSource(size_t idx)
{
    Source& s = sources[idx];
    if (!shadowed.empty()) {
        // The file's events get new ids when it is read again: forget how
        // its copies and the other files' copies of an event were paired.
        std::set<EventId> gone;
        for (const Item& it : s.items)
            if (it.event != kNoEvent)
                gone.insert(it.event);
        for (auto sh = shadowed.begin(); sh != shadowed.end();) {
            auto& v = sh->second;
            v.erase(std::remove_if(v.begin(), v.end(), [&](EventId e) { return gone.count(e) != 0; }), v.end());
            sh = gone.count(sh->first) || v.empty() ? shadowed.erase(sh) : std::next(sh);
        }
    }
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

void StoreImpl::removeEvent(EventId id)
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

EventId Store::add(const EventEdit& fields)
{
    std::string error;
    return add(fields, newUid(), error);
}

EventId Store::add(const EventEdit& fields, const std::string& uid, std::string& error)
{
    if (!fields.start) {
        error = "an event needs a start";
        return kNoEvent;
    }
    if (uid.empty() || uid.find_first_of("\r\n") != std::string::npos) {
        error = "unusable UID";
        return kNoEvent;
    }
    if (d_->uidInUse(escapeText(uid))) {
        error = "the store already holds an event with UID " + uid;
        return kNoEvent;
    }
    Component c;
    c.name = "VEVENT";
    c.set("UID", escapeText(uid));
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
    EventId id = d_->insertNew(uid, c, &f);
    if (id == kNoEvent)
        error = "the store's file cannot be written";
    return id;
}

EventId Store::addCopy(std::string_view veventText, bool oneOff)
{
    Component c;
    if (!parseComponent(veventText, c, nullptr) || c.name != "VEVENT")
        return kNoEvent;
    std::string uid = newUid();
    c.set("UID", uid);
    c.remove("RECURRENCE-ID");
    if (oneOff)
        for (const char* name : {"RRULE", "RDATE", "EXDATE", "EXRULE"})
            c.remove(name);
    c.set("DTSTAMP", nowUtcStamp());
    c.set("SEQUENCE", "0");
    return d_->insertNew(uid, c, nullptr);
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
    // The older copies of the event go too, or they would show again on the next load.
    auto sh = d_->shadowed.find(id);
    if (sh != d_->shadowed.end()) {
        for (EventId old : sh->second)
            if (d_->sources[d_->evs[old].source].writable)
                d_->removeEvent(old);
        d_->shadowed.erase(sh);
    }
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
    comp.append(std::move(p));
    d_->applyEdit(d_->sources[e.source], comp, EventEdit(), false);
    return d_->replaceItem(series, writeComponent(comp));
}

bool Store::removeOverride(EventId overrideId)
{
    if (!valid(overrideId) || !d_->evs[overrideId].hasRid)
        return false;
    return remove(overrideId);
}

// Whether the series has an occurrence originally starting at c (its own
// clock) that no EXDATE removed and no override has taken.
bool StoreImpl::plainInstance(EventId id, int64_t c) const
{
    const Ev& e = evs[id];
    const Series& sr = *e.series;
    if (std::binary_search(sr.exdates.begin(), sr.exdates.end(), c) ||
        std::binary_search(sr.exdays.begin(), sr.exdays.end(), floorDiv(c, kDay)))
        return false;
    auto ov = std::lower_bound(sr.overrides.begin(), sr.overrides.end(), std::make_pair(c, EventId(0)));
    if (ov != sr.overrides.end() && ov->first == c)
        return false;
    if (c == e.start.civil)
        return true;
    for (const auto& r : sr.rdates)
        if (r.first == c)
            return true;
    if (!sr.hasRule || c < e.start.civil || c > sr.until)
        return false;
    if (sr.rule.count)
        return std::binary_search(sr.counted.begin(), sr.counted.end(), c);
    RecurIter it(sr.rule, e.start.civil, e.start.isDate(), sr.until);
    it.seek(c);
    int64_t t;
    while (it.next(t, c)) {
        if (t >= c)
            return t == c;
    }
    return false;
}

// t moved on by `seconds` of elapsed time, in t's own clock.
Time StoreImpl::after(const Time& t, int64_t seconds) const
{
    Time r = t;
    if (t.kind == TimeKind::Zoned && t.zone >= 0 && size_t(t.zone) < zones.size()) {
        const Zone& z = zones[size_t(t.zone)];
        r.civil = z.fromUtc(z.toUtc(t.civil) + seconds);
    } else {
        r.civil = t.civil + seconds;
    }
    return r;
}

EventId Store::addOverride(EventId series, const Time& occurrenceStart, const EventEdit& fields)
{
    StoreImpl& d = *d_;
    if (!valid(series) || !d.evs[series].series || !d.sources[d.evs[series].source].writable)
        return kNoEvent;
    if (fields.rrule && !fields.rrule->empty())
        return kNoEvent;  // one occurrence does not recur
    const Time seriesStart = d.evs[series].start;
    int64_t c = d.inClock(seriesStart, occurrenceStart);
    if (seriesStart.isDate())
        c = floorDiv(c, kDay) * kDay;
    else if (occurrenceStart.isDate())
        c += seriesStart.civil - floorDiv(seriesStart.civil, kDay) * kDay;
    if (!d.plainInstance(series, c))
        return kNoEvent;
    // The occurrence as it shows now: the series' own, or from a
    // THISANDFUTURE override on, that override's, moved as it moves them.
    const Series& sr = *d.evs[series].series;
    EventId base = series;
    Time start = seriesStart;
    start.civil = c;
    if (sr.future != kNoEvent && c >= sr.futureRid) {
        base = sr.future;
        start = d.evs[base].start;
        start.civil = c + (d.inClock(seriesStart, d.evs[base].start) - sr.futureRid);
    }
    const EndKind endKind = d.evs[base].endKind;
    const int64_t length = d.evs[base].exact;
    Time rid = seriesStart;
    rid.civil = c;
    const uint32_t si = d.evs[series].source;
    Source& s = d.sources[si];
    const Component from = d.parsed(base);

    // Everything but what makes it recur, in the same order; RECURRENCE-ID
    // goes just before DTSTART.
    Component comp;
    comp.name = from.name;
    comp.beginRaw = from.beginRaw;
    comp.endRaw = from.endRaw;
    std::vector<size_t> newAt(from.props.size() + 1, 0);
    for (size_t i = 0; i < from.props.size(); ++i) {
        newAt[i] = comp.props.size();
        const Property& p = from.props[i];
        const std::string& n = p.name;
        if (n.empty() || n == "RRULE" || n == "RDATE" || n == "EXDATE" || n == "EXRULE" || n == "RECURRENCE-ID")
            continue;
        if (n == "DTSTART") {
            Property r;
            r.name = "RECURRENCE-ID";
            r.value = d.timeValue(s, rid, r.params);
            comp.props.push_back(std::move(r));
            Property st;
            st.name = "DTSTART";
            st.value = d.timeValue(s, start, st.params);
            comp.props.push_back(std::move(st));
            continue;
        }
        if (n == "DTEND") {
            if (endKind != EndKind::DtEnd)
                continue;
            Property en;
            en.name = "DTEND";
            en.value = d.timeValue(s, d.after(start, length), en.params);
            comp.props.push_back(std::move(en));
            continue;
        }
        comp.props.push_back(p);
    }
    newAt[from.props.size()] = comp.props.size();
    for (size_t k = 0; k < from.subs.size(); ++k) {
        comp.subs.push_back(from.subs[k]);
        comp.subAt.push_back(newAt[from.subAt[k]]);
    }
    EventEdit f = fields;
    if (f.start && !f.end) {
        if (f.start->isDate() != start.isDate()) {
            // Another kind of start: the old length means nothing for it.
            comp.remove("DTEND");
            comp.remove("DURATION");
        } else if (endKind == EndKind::DtEnd) {
            f.end = d.after(*f.start, length);
        }
    }
    d.applyEdit(s, comp, f, false);

    d.ensureCalendar(s);
    Item it;
    it.begin = it.end = s.insertAt;
    it.isEvent = true;
    it.setBytes(writeComponent(comp));
    it.added = it.pending = true;
    s.items.push_back(std::move(it));
    s.dirty = true;
    EventId id = d.reread(si, uint32_t(s.items.size() - 1), kNoEvent);
    d.relink(id);
    if (d.evs[id].master != series) {
        // Not taken as this series' override (it should always be): undo.
        d.removeEvent(id);
        return kNoEvent;
    }
    return id;
}

void StoreImpl::stamp(Source& s)
{
    std::error_code ec;
    auto size = std::filesystem::file_size(s.path, ec);
    s.diskSize = ec ? -1 : int64_t(size);
    auto time = std::filesystem::last_write_time(s.path, ec);
    s.diskTime = ec ? 0 : int64_t(time.time_since_epoch().count());
}

bool Store::changedOnDisk() const
{
    namespace fs = std::filesystem;
    std::set<std::string> known;
    for (const Source& s : d_->sources) {
        if (!s.exists)
            continue;
        Source now;
        now.path = s.path;
        StoreImpl::stamp(now);
        if (now.diskSize != s.diskSize || now.diskTime != s.diskTime)
            return true;
        known.insert(s.path);
    }
    if (!d_->directory)
        return false;
    std::error_code ec;
    for (const auto& ent : fs::directory_iterator(d_->root, ec)) {
        std::string name = ent.path().filename().string();
        if (name.size() > 4 && eqUpper(name.substr(name.size() - 4), ".ICS") && !known.count(ent.path().string()))
            return true;
    }
    return false;
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
            key = std::string(it.name) + "\n" + std::string(bytes);
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
        if (onDisk && holdsBareComponents(disk))
            disk = wrapBareComponents(disk);  // as it was read
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
                            merged += m->second->changedBytes();
                    } else {
                        merged.append(bytes.data(), bytes.size());
                        // Both versions stay: the other program's under the
                        // UID, ours as a copy beside it.
                        if (!m->second->deleted)
                            d_->conflictCopies.push_back(m->second->changedBytes());
                        report(problems, s.path, di.line,
                               "another program changed this event too; its version kept, ours kept as a copy");
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
                merged += a->changedBytes();
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
            // Re-read this file so the store shows the merged result.
            d_->reloadSource(size_t(&s - &d_->sources[0]), std::move(out));
            return save(problems, conflicts) && ok;  // the other files, if any
        }
        if (!d_->relayout(s, std::move(out)))
            return save(problems, conflicts) && ok;
    }
    if (!d_->conflictCopies.empty()) {
        std::vector<std::string> copies;
        copies.swap(d_->conflictCopies);
        for (const std::string& c : copies)
            if (addCopy(c) == kNoEvent)
                report(problems, d_->root, 0, "a version that lost a conflict could not be kept");
        return save(problems, conflicts) && ok;
    }
    return ok;
}

}  // namespace lfical
