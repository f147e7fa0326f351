// Time zones as one table of UTC transitions, whichever way the rules came:
// a VTIMEZONE, a TZif file from zoneinfo, a POSIX TZ rule, or Windows'
// TIME_ZONE_INFORMATION. Rule-based zones are laid out as transitions up to
// kLastRuleYear, which covers any calendar a person keeps.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal.h"
#include "zonetable.h"

namespace lfical {

namespace {
const int kFirstRuleYear = 1900;
const int kLastRuleYear = 2200;

// Day of the `week`-th (5 = last) `dow` (0 = Sunday) of month m.
int64_t nthWeekday(int y, int m, int week, int dow)
{
    int wd = (dow + 6) % 7;
    int64_t first = daysFromCivil(y, m, 1);
    int64_t d = first + ((wd - weekdayOfDay(first) + 7) % 7) + 7 * (std::max(week, 1) - 1);
    int64_t last = first + daysInMonth(y, m) - 1;
    while (d > last)
        d -= 7;
    return d;
}
}  // namespace

Zone Zone::utc()
{
    Zone z;
    z.name = "UTC";
    z.finish();
    return z;
}

Zone Zone::fixed(int32_t offset, std::string name)
{
    Zone z;
    z.name = std::move(name);
    z.initialOffset = offset;
    z.finish();
    return z;
}

void Zone::finish()
{
    std::stable_sort(transitions.begin(), transitions.end(),
                     [](const Transition& a, const Transition& b) { return a.utc < b.utc; });
    // Drop transitions that change nothing, so gap and overlap tests stay exact.
    std::vector<Transition> kept;
    int32_t prev = initialOffset;
    for (const Transition& t : transitions) {
        if (!kept.empty() && kept.back().utc == t.utc) {
            kept.back() = t;
            prev = kept.size() > 1 ? kept[kept.size() - 2].offset : initialOffset;
            if (kept.back().offset == prev)
                kept.pop_back();
            prev = kept.empty() ? initialOffset : kept.back().offset;
            continue;
        }
        if (t.offset == prev)
            continue;
        kept.push_back(t);
        prev = t.offset;
    }
    transitions.swap(kept);
    local_.keys.resize(transitions.size());
    utc_.keys.resize(transitions.size());
    prev = initialOffset;
    int64_t last = INT64_MIN;
    for (size_t i = 0; i < transitions.size(); ++i) {
        int64_t k = transitions[i].utc + std::max(prev, transitions[i].offset);
        last = std::max(last, k);
        local_.keys[i] = last;
        utc_.keys[i] = transitions[i].utc;
        prev = transitions[i].offset;
    }
    local_.build();
    utc_.build();
}

namespace {
// How many of the sorted keys are at most x (std::upper_bound's index),
// halving without a branch to guess.
template <class T, class Key>
size_t countAtMost(const T* a, size_t n, int64_t x, Key key)
{
    if (n == 0)
        return 0;
    const T* base = a;
    while (n > 1) {
        size_t half = n / 2;
        base = key(base[half]) <= x ? base + half : base;
        n -= half;
    }
    return size_t(base - a) + (key(*base) <= x ? 1 : 0);
}

int64_t plainKey(int64_t k) { return k; }
}  // namespace

// Stretches of 2^shift seconds, about two per key: a zone changes offset
// twice a year, and a large calendar converts a time for most of its
// events, so each lookup should touch one or two keys.
void Zone::KeyIndex::build()
{
    first.clear();
    base = keys.empty() ? 0 : keys.front();
    if (keys.size() < 8)
        return;
    uint64_t span = uint64_t(keys.back()) - uint64_t(base);
    shift = 16;
    while (shift < 63 && (span >> shift) > 2 * keys.size() + 64)
        ++shift;
    size_t stretches = size_t(span >> shift) + 1;
    first.resize(stretches + 1);
    size_t i = 0;
    for (size_t b = 0; b < stretches; ++b) {
        while (i < keys.size() && uint64_t(keys[i]) - uint64_t(base) < (uint64_t(b) << shift))
            ++i;
        first[b] = uint32_t(i);
    }
    first[stretches] = uint32_t(keys.size());
}

size_t Zone::KeyIndex::countAtMost(int64_t x) const
{
    const size_t n = keys.size();
    if (first.empty())
        return ::lfical::countAtMost(keys.data(), n, x, plainKey);
    if (x < keys[0])
        return 0;
    if (x >= keys[n - 1])
        return n;
    size_t b = size_t((uint64_t(x) - uint64_t(base)) >> shift);
    size_t lo = first[b], hi = first[b + 1];
    return lo + ::lfical::countAtMost(keys.data() + lo, hi - lo, x, plainKey);
}

int32_t Zone::offsetAtUtc(int64_t utc) const
{
    // Transitions filled by hand and not yet finished are searched as they are.
    size_t i = utc_.keys.size() == transitions.size()
                   ? utc_.countAtMost(utc)
                   : countAtMost(transitions.data(), transitions.size(), utc,
                                 [](const Transition& t) { return t.utc; });
    return i == 0 ? initialOffset : transitions[i - 1].offset;
}

int64_t Zone::toUtc(int64_t local) const
{
    // The first transition whose later wall clock is still ahead of `local`
    // decides: before it, the old offset applies - which reads a time in a
    // gap with the offset before the gap, and a time in an overlap as its
    // first occurrence.
    size_t i = local_.countAtMost(local);
    if (i == local_.keys.size())
        return local - (transitions.empty() ? initialOffset : transitions.back().offset);
    int32_t before = i == 0 ? initialOffset : transitions[i - 1].offset;
    return local - before;
}

Zone Zone::fromWindows(const WindowsZoneInfo& w)
{
    Zone z;
    z.name = w.name;
    int32_t stdOff = -(w.bias + w.standardBias) * 60;
    int32_t dstOff = -(w.bias + w.daylightBias) * 60;
    z.initialOffset = stdOff;
    if (w.daylightDate.month < 1 || w.daylightDate.month > 12 || w.standardDate.month < 1 ||
        w.standardDate.month > 12) {
        z.finish();
        return z;
    }
    auto onset = [](const WindowsRuleTime& r, int y) {
        int64_t day = r.year ? daysFromCivil(y, r.month, std::max(1, std::min(r.day, daysInMonth(y, r.month))))
                             : nthWeekday(y, r.month, r.day, r.dayOfWeek % 7);
        return day * kDay + r.hour * 3600 + r.minute * 60 + r.second;
    };
    for (int y = kFirstRuleYear; y <= kLastRuleYear; ++y) {
        if (w.daylightDate.year && w.daylightDate.year != y)
            continue;
        z.transitions.push_back({onset(w.daylightDate, y) - stdOff, dstOff, true});
        z.transitions.push_back({onset(w.standardDate, y) - dstOff, stdOff, false});
    }
    z.finish();
    return z;
}

// ---------------------------------------------------------------- POSIX TZ
namespace {
struct PosixRule {
    char kind = 0;  // 'M', 'J' or 'n'
    int m = 0, w = 0, d = 0, n = 0;
    int32_t time = 7200;
};

bool posixName(std::string_view s, size_t& i)
{
    if (i < s.size() && s[i] == '<') {
        size_t e = s.find('>', i);
        if (e == std::string_view::npos)
            return false;
        i = e + 1;
        return true;
    }
    size_t st = i;
    while (i < s.size() && ((s[i] >= 'A' && s[i] <= 'Z') || (s[i] >= 'a' && s[i] <= 'z')))
        ++i;
    return i - st >= 3;
}

bool posixTime(std::string_view s, size_t& i, int32_t& out)
{
    bool neg = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-'))
        neg = s[i++] == '-';
    int32_t parts[3] = {0, 0, 0};
    for (int k = 0; k < 3; ++k) {
        size_t st = i;
        int v = 0;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9' && i - st < 3)
            v = v * 10 + (s[i++] - '0');
        if (i == st)
            return false;
        parts[k] = v;
        if (k < 2 && i < s.size() && s[i] == ':')
            ++i;
        else
            break;
    }
    out = (parts[0] * 3600 + parts[1] * 60 + parts[2]) * (neg ? -1 : 1);
    return true;
}

bool posixNum(std::string_view s, size_t& i, int& v)
{
    size_t st = i;
    v = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9' && i - st < 4)
        v = v * 10 + (s[i++] - '0');
    return i > st;
}

bool posixRule(std::string_view s, size_t& i, PosixRule& r)
{
    if (i >= s.size())
        return false;
    if (s[i] == 'M') {
        r.kind = 'M';
        ++i;
        if (!posixNum(s, i, r.m) || i >= s.size() || s[i++] != '.' || !posixNum(s, i, r.w) ||
            i >= s.size() || s[i++] != '.' || !posixNum(s, i, r.d))
            return false;
        if (r.m < 1 || r.m > 12 || r.w < 1 || r.w > 5 || r.d > 6)
            return false;
    } else if (s[i] == 'J') {
        r.kind = 'J';
        ++i;
        if (!posixNum(s, i, r.n) || r.n < 1 || r.n > 365)
            return false;
    } else {
        r.kind = 'n';
        if (!posixNum(s, i, r.n) || r.n > 365)
            return false;
    }
    if (i < s.size() && s[i] == '/') {
        ++i;
        if (!posixTime(s, i, r.time))
            return false;
    }
    return true;
}

int64_t posixOnset(const PosixRule& r, int y)
{
    int64_t day;
    if (r.kind == 'M')
        day = nthWeekday(y, r.m, r.w, r.d);
    else if (r.kind == 'J')
        day = daysFromCivil(y, 1, 1) + r.n - 1 + (isLeap(y) && r.n >= 60 ? 1 : 0);
    else
        day = daysFromCivil(y, 1, 1) + r.n;
    return day * kDay + r.time;
}

// Appends the rule's transitions for years [fromYear, kLastRuleYear].
bool applyPosix(std::string_view s, Zone& z, int fromYear, bool setInitial)
{
    size_t i = 0;
    if (!posixName(s, i))
        return false;
    int32_t stdOff;
    if (!posixTime(s, i, stdOff))
        return false;
    stdOff = -stdOff;  // POSIX counts west positive
    if (setInitial)
        z.initialOffset = stdOff;
    if (i >= s.size()) {
        if (!setInitial)
            z.transitions.push_back({daysFromCivil(fromYear, 1, 1) * kDay, stdOff, false});
        return true;
    }
    if (!posixName(s, i))
        return false;
    int32_t dstOff = stdOff + 3600;
    if (i < s.size() && s[i] != ',') {
        if (!posixTime(s, i, dstOff))
            return false;
        dstOff = -dstOff;
    }
    PosixRule start, end;
    if (i >= s.size()) {
        // No rule given: the US rules POSIX names as the default.
        start.kind = end.kind = 'M';
        start.m = 3; start.w = 2; start.d = 0;
        end.m = 11; end.w = 1; end.d = 0;
    } else {
        if (s[i++] != ',' || !posixRule(s, i, start) || i >= s.size() || s[i++] != ',' ||
            !posixRule(s, i, end) || i != s.size())
            return false;
    }
    for (int y = fromYear; y <= kLastRuleYear; ++y) {
        z.transitions.push_back({posixOnset(start, y) - stdOff, dstOff, true});
        z.transitions.push_back({posixOnset(end, y) - dstOff, stdOff, false});
    }
    return true;
}

// Carries a zone's listed transitions on with the TZ rule that follows
// them (a TZif footer), from the year of the last one to kLastRuleYear.
void continueWithRule(Zone& z, std::string_view tz)
{
    if (tz.empty())
        return;
    int64_t lastUtc = z.transitions.empty() ? INT64_MIN : z.transitions.back().utc;
    int fromYear = kFirstRuleYear;
    if (!z.transitions.empty()) {
        int y, m, d;
        civilFromDays(floorDiv(lastUtc, kDay), y, m, d);
        fromYear = y;
    }
    Zone rules;
    if (applyPosix(tz, rules, fromYear, z.transitions.empty())) {
        if (z.transitions.empty())
            z.initialOffset = rules.initialOffset;
        for (const Transition& t : rules.transitions)
            if (t.utc > lastUtc)
                z.transitions.push_back(t);
    }
}

uint32_t be32(const unsigned char* p) { return uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]; }
int64_t be64(const unsigned char* p) { return int64_t(uint64_t(be32(p)) << 32 | be32(p + 4)); }
}  // namespace

bool Zone::fromPosix(std::string_view rule, std::string name, Zone& out, std::string& error)
{
    Zone z;
    z.name = std::move(name);
    if (!applyPosix(rule, z, kFirstRuleYear, true)) {
        error = "unreadable TZ rule \"" + std::string(rule) + "\"";
        return false;
    }
    z.finish();
    out = std::move(z);
    return true;
}

bool Zone::fromTzif(std::string_view bytes, std::string name, Zone& out, std::string& error)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t n = bytes.size();
    auto bad = [&](const char* why) {
        error = name + ": not a usable zone file (" + why + ")";
        return false;
    };
    if (n < 44 || memcmp(p, "TZif", 4) != 0)
        return bad("no TZif header");
    int version = p[4] ? p[4] - '0' : 1;
    size_t pos = 0;
    bool wide = false;
    for (int pass = 0; pass < 2; ++pass) {
        if (pos + 44 > n || memcmp(p + pos, "TZif", 4) != 0)
            return bad("broken header");
        uint32_t isut = be32(p + pos + 20), isstd = be32(p + pos + 24), leap = be32(p + pos + 28),
                 timecnt = be32(p + pos + 32), typecnt = be32(p + pos + 36), charcnt = be32(p + pos + 40);
        if (timecnt > 100000 || typecnt > 256 || typecnt == 0 || charcnt > 100000 || leap > 100000)
            return bad("absurd counts");
        size_t tsz = wide ? 8 : 4;
        size_t body = timecnt * tsz + timecnt + typecnt * 6 + charcnt + leap * (tsz + 4) + isstd + isut;
        size_t data = pos + 44;
        if (data + body > n)
            return bad("truncated");
        if (pass == 0 && version >= 2) {
            pos = data + body;
            wide = true;
            continue;
        }
        Zone z;
        z.name = name;
        const unsigned char* times = p + data;
        const unsigned char* idx = times + timecnt * tsz;
        const unsigned char* types = idx + timecnt;
        auto typeOff = [&](unsigned t) { return int32_t(be32(types + 6 * t)); };
        z.initialOffset = typeOff(0);
        for (uint32_t i = 0; i < timecnt; ++i) {
            unsigned t = idx[i];
            if (t >= typecnt)
                return bad("bad type index");
            int64_t at = wide ? be64(times + 8 * i) : int64_t(int32_t(be32(times + 4 * i)));
            z.transitions.push_back({at, typeOff(t), types[6 * t + 4] != 0});
        }
        size_t footer = data + body;
        if (wide && footer < n && p[footer] == '\n') {
            size_t e = footer + 1;
            while (e < n && p[e] != '\n')
                ++e;
            continueWithRule(z, std::string_view(bytes.data() + footer + 1, e - footer - 1));
        }
        z.finish();
        out = std::move(z);
        return true;
    }
    return bad("no data");
}

bool Zone::fromIana(const std::string& ianaName, Zone& out, std::string& error, const std::string& dir)
{
    if (ianaName == "UTC" || ianaName == "Etc/UTC" || ianaName == "Z" || ianaName == "GMT") {
        out = utc();
        out.name = ianaName;
        return true;
    }
    if (ianaName.empty() || ianaName.find("..") != std::string::npos || ianaName[0] == '/') {
        error = "unknown time zone \"" + ianaName + "\"";
        return false;
    }
    std::vector<std::string> dirs;
    if (!dir.empty())
        dirs.push_back(dir);
    if (const char* env = getenv("TZDIR"))
        dirs.push_back(env);
    dirs.push_back("/usr/share/zoneinfo");
#ifdef _WIN32
    // Under Wine the Unix root is drive Z:.
    dirs.push_back("Z:/usr/share/zoneinfo");
#endif
    for (const std::string& d : dirs) {
        std::string bytes;
        if (!readWholeFile(d + "/" + ianaName, bytes))
            continue;
        return fromTzif(bytes, ianaName, out, error);
    }
    // No zoneinfo (Windows) or no file for the name: the table built in.
    if (fromBuiltIn(ianaName, out))
        return true;
    error = "unknown time zone \"" + ianaName + "\" (no zoneinfo file for it)";
    return false;
}

// ---------------------------------------------------------------- built-in table
namespace {
// ASCII case ignored: exporters write "america/new_york" and "EUROPE/BERLIN".
int compareName(std::string_view a, const char* b)
{
    size_t i = 0;
    for (; i < a.size() && b[i]; ++i) {
        char x = a[i] >= 'A' && a[i] <= 'Z' ? char(a[i] + 32) : a[i];
        char y = b[i] >= 'A' && b[i] <= 'Z' ? char(b[i] + 32) : b[i];
        if (x != y)
            return (unsigned char)x < (unsigned char)y ? -1 : 1;
    }
    if (i < a.size())
        return 1;
    return b[i] ? -1 : 0;
}

const zonetable::Entry* findEntry(const zonetable::Entry* rows, size_t n, std::string_view name)
{
    const zonetable::Entry* e = std::lower_bound(rows, rows + n, name, [](const zonetable::Entry& r, std::string_view k) {
        return compareName(k, zonetable::kNames + r.name) > 0;
    });
    return e != rows + n && compareName(name, zonetable::kNames + e->name) == 0 ? e : nullptr;
}

class RecordReader {
public:
    explicit RecordReader(size_t at) : p_(zonetable::kData + at), end_(zonetable::kData + zonetable::kDataSize) {}
    bool varint(uint64_t& v)
    {
        v = 0;
        for (int shift = 0; shift < 64 && p_ < end_; shift += 7) {
            unsigned char b = *p_++;
            v |= uint64_t(b & 0x7f) << shift;
            if (!(b & 0x80))
                return true;
        }
        return false;
    }
    bool signedVarint(int64_t& v)
    {
        uint64_t u;
        if (!varint(u))
            return false;
        v = int64_t(u >> 1) ^ -int64_t(u & 1);
        return true;
    }
    bool byte(unsigned& b)
    {
        if (p_ >= end_)
            return false;
        b = *p_++;
        return true;
    }
    bool text(size_t n, std::string_view& out)
    {
        if (size_t(end_ - p_) < n)
            return false;
        out = std::string_view(reinterpret_cast<const char*>(p_), n);
        p_ += n;
        return true;
    }

private:
    const unsigned char* p_;
    const unsigned char* end_;
};

// One record: the offsets the zone used (each with its daylight flag), the
// index of the first, its transitions as deltas with their offset's index,
// and the TZ rule that continues them.
bool decodeRecord(size_t at, Zone& z)
{
    RecordReader r(at);
    uint64_t ntypes, initial, ntrans, footerLen;
    if (!r.varint(ntypes) || ntypes == 0 || ntypes > 256)
        return false;
    std::vector<std::pair<int32_t, bool>> types;
    for (uint64_t i = 0; i < ntypes; ++i) {
        int64_t off;
        unsigned dst;
        if (!r.signedVarint(off) || !r.byte(dst))
            return false;
        types.push_back({int32_t(off), dst != 0});
    }
    if (!r.varint(initial) || initial >= ntypes || !r.varint(ntrans) || ntrans > 100000)
        return false;
    z.initialOffset = types[initial].first;
    z.transitions.clear();
    z.transitions.reserve(size_t(ntrans) + 2 * 200);
    int64_t utc = 0;
    for (uint64_t i = 0; i < ntrans; ++i) {
        uint64_t delta, t;
        if (i == 0) {
            if (!r.signedVarint(utc))
                return false;
        } else {
            if (!r.varint(delta))
                return false;
            utc += int64_t(delta);
        }
        if (!r.varint(t) || t >= ntypes)
            return false;
        z.transitions.push_back({utc, types[t].first, types[t].second});
    }
    std::string_view footer;
    if (!r.varint(footerLen) || !r.text(size_t(footerLen), footer))
        return false;
    continueWithRule(z, footer);
    z.finish();
    return true;
}

// How a calendar names a zone the table knows: an IANA name or link, a
// vendor's path ending in one ("/mozilla.org/20050126_1/America/New_York",
// "/freeassociation.sourceforge.net/Tzfile/Europe/London"), or a Windows
// zone name as Outlook writes it.
const zonetable::Entry* entryFor(std::string_view name)
{
    using namespace zonetable;
    while (!name.empty() && (name.front() == ' ' || name.front() == '\t'))
        name.remove_prefix(1);
    while (!name.empty() && (name.back() == ' ' || name.back() == '\t'))
        name.remove_suffix(1);
    if (name.empty())
        return nullptr;
    if (const Entry* e = findEntry(kZones, kZoneCount, name))
        return e;
    if (const Entry* e = findEntry(kWindows, kWindowsCount, name))
        return e;
    if (name.front() == '/') {
        for (size_t slash = name.find('/'); slash != std::string_view::npos; slash = name.find('/', slash + 1))
            if (const Entry* e = findEntry(kZones, kZoneCount, name.substr(slash + 1)))
                return e;
    }
    return nullptr;
}
}  // namespace

bool Zone::fromBuiltIn(std::string_view name, Zone& out)
{
    const zonetable::Entry* e = entryFor(name);
    if (!e)
        return false;
    Zone z;
    if (!decodeRecord(e->data, z))
        return false;
    z.name = std::string(name);
    out = std::move(z);
    return true;
}

std::string Zone::builtInName(std::string_view name)
{
    const zonetable::Entry* e = entryFor(name);
    if (!e)
        return std::string();
    if (e >= zonetable::kZones && e < zonetable::kZones + zonetable::kZoneCount)
        return zonetable::kNames + e->name;
    return zonetable::kNames + zonetable::kZones[zonetable::kWindowsZone[e - zonetable::kWindows]].name;
}

std::vector<std::string> Zone::builtInNames()
{
    std::vector<std::string> names;
    for (size_t i = 0; i < zonetable::kZoneCount; ++i)
        names.push_back(zonetable::kNames + zonetable::kZones[i].name);
    return names;
}

const char* Zone::builtInVersion() { return zonetable::kVersion; }

// ---------------------------------------------------------------- VTIMEZONE
bool zoneFromVtimezone(const Component& vtz, Zone& out, std::string& error)
{
    Zone z;
    const Property* id = vtz.find("TZID");
    if (!id || id->value.empty()) {
        error = "VTIMEZONE without TZID";
        return false;
    }
    z.name = id->value;
    struct Onset { int64_t utc; int32_t from, to; bool dst; };
    std::vector<Onset> onsets;
    for (const Component& obs : vtz.subs) {
        bool dst = obs.name == "DAYLIGHT";
        if (!dst && obs.name != "STANDARD")
            continue;
        const Property* ds = obs.find("DTSTART");
        const Property* pf = obs.find("TZOFFSETFROM");
        const Property* pt = obs.find("TZOFFSETTO");
        int32_t from = 0, to = 0;
        int64_t start;
        bool dateOnly;
        if (!ds || !pt || !parseUtcOffset(pt->value, to)) {
            error = z.name + ": observance without DTSTART or TZOFFSETTO";
            return false;
        }
        if (!pf || !parseUtcOffset(pf->value, from))
            from = to;
        std::string_view dv = ds->value;
        if (!dv.empty() && (dv.back() == 'Z' || dv.back() == 'z'))
            dv.remove_suffix(1);
        if (!parseCivil(dv, start, dateOnly)) {
            error = z.name + ": bad observance DTSTART " + ds->value;
            return false;
        }
        onsets.push_back({start - from, from, to, dst});
        for (const Property* rd : obs.findAll("RDATE")) {
            forEachListItem(rd->value, [&](std::string_view item) {
                bool utc = !item.empty() && (item.back() == 'Z' || item.back() == 'z');
                if (utc)
                    item.remove_suffix(1);
                size_t slash = item.find('/');
                if (slash != std::string_view::npos)
                    item = item.substr(0, slash);
                int64_t t;
                bool d2;
                if (parseCivil(item, t, d2))
                    onsets.push_back({utc ? t : t - from, from, to, dst});
            });
        }
        if (const Property* rr = obs.find("RRULE")) {
            Recur r;
            std::string err;
            if (!parseRecur(rr->value, r, err)) {
                error = z.name + ": " + err;
                return false;
            }
            int64_t until = INT64_MAX;
            if (r.hasUntil)
                until = r.untilIsUtc ? r.until + from : (r.untilIsDate ? r.until + kDay - 1 : r.until);
            if (r.count == 0)
                until = std::min(until, civilSeconds(kLastRuleYear, 12, 31, 23, 59, 59));
            RecurIter it(r, start, false, until);
            if (r.count == 0)
                it.seek(std::max(start, civilSeconds(kFirstRuleYear, 1, 1)));
            int64_t t;
            int64_t left = r.count ? r.count - 1 : INT64_MAX;
            int guard = 0;
            while (left > 0 && ++guard < 20000 && it.next(t)) {
                if (t == start)
                    continue;
                onsets.push_back({t - from, from, to, dst});
                --left;
            }
        }
    }
    if (onsets.empty()) {
        error = z.name + ": VTIMEZONE without STANDARD or DAYLIGHT";
        return false;
    }
    std::sort(onsets.begin(), onsets.end(), [](const Onset& a, const Onset& b) { return a.utc < b.utc; });
    z.initialOffset = onsets.front().from;
    for (const Onset& o : onsets)
        z.transitions.push_back({o.utc, o.to, o.dst});
    z.finish();
    out = std::move(z);
    return true;
}

}  // namespace lfical
