// The store's own types, shared by the code that loads it (store_load.cpp),
// answers queries (store_query.cpp), and changes and saves it
// (store_edit.cpp).
#pragma once

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>

#include "bigmem.h"
#include "internal.h"

namespace lfical {
namespace store {
// Wall clocks of different zones differ by at most this much.
inline const int64_t kZoneSlack = 2 * kDay;
const size_t kMaxCounted = 200000;
const size_t kMaxPerSeriesQuery = 100000;
const int64_t kNoEnd = INT64_MAX / 4;

enum KeyName : uint8_t { kUid, kDtstart, kDtend, kDuration, kRrule, kRdate, kExdate, kRecurrenceId, kOther };

inline KeyName classify(std::string_view n)
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
    std::string_view name;      // upper case; valid while the scan's callback runs
    std::vector<KeyProp> keys;  // VEVENT only
    std::deque<std::string> folded;
};

// Some programs write a file holding only a VEVENT (or other components)
// without the VCALENDAR around it. Such a file is read as if wrapped, and a
// changed one is written back wrapped; the lines added come before line 1.
bool holdsBareComponents(std::string_view text);
std::string wrapBareComponents(std::string_view text);
const int kWrapLines = 3;

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
    std::string name;
    HeldItem(const HeldItem&) = delete;
    HeldItem& operator=(const HeldItem&) = delete;
    explicit HeldItem(const ScannedItem& from) : name(from.name)
    {
        item.begin = from.begin;
        item.end = from.end;
        item.line = from.line;
        item.name = name;
        for (const KeyProp& k : from.keys) {
            item.folded.emplace_back(k.params);
            std::string_view p = item.folded.back();
            item.folded.emplace_back(k.value);
            item.keys.push_back({k.which, k.line, p, item.folded.back()});
        }
    }
};

inline void report(std::vector<Problem>* out, const std::string& file, int line, std::string msg)
{
    if (out)
        out->push_back({file, line, std::move(msg)});
}

// Component names met in a file, so the scan compares numbers. A deque,
// so the names handed out stay where they are while new ones are added.
const int kCalendarName = 0, kEventName = 1;
struct ComponentNames {
    std::deque<std::string> list{"VCALENDAR", "VEVENT", "VTIMEZONE", "VALARM", "STANDARD", "DAYLIGHT", "VTODO"};
    int id(std::string_view v)
    {
        for (size_t i = 0; i < list.size(); ++i)
            if (eqUpper(v, list[i]))
                return int(i);
        list.push_back(toUpper(v));
        return int(list.size() - 1);
    }
};

// Where a content line's name ends: at its first ';' or ':', else at len.
// `avail` is how many bytes may be read from p (at least len).
inline size_t nameEnd(const char* p, size_t len, size_t avail)
{
    size_t i = 0;
#if defined(__SSE2__) && defined(__GNUC__)
    if (avail >= 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        unsigned m = unsigned(_mm_movemask_epi8(
            _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(';')), _mm_cmpeq_epi8(v, _mm_set1_epi8(':')))));
        if (m) {
            i = size_t(__builtin_ctz(m));
            return i < len ? i : len;
        }
        if (len <= 16)
            return len;
        i = 16;
    }
#else
    (void)avail;
#endif
    while (i < len && p[i] != ';' && p[i] != ':')
        ++i;
    return i;
}

// Whether a line whose name starts with c may be BEGIN, END or one of the
// properties the index needs; most lines are none of these.
inline bool mayMatter(char c)
{
    unsigned char u = static_cast<unsigned char>(c) & 0xDF;
    return u == 'B' || u == 'E' || u == 'U' || u == 'D' || u == 'R';
}

// One pass over a file: finds every component directly inside a VCALENDAR
// and, for events, the properties the index needs; hands each to onItem.
template <class F>
ScanResult scanText(std::string_view text, const std::string& file, std::vector<Problem>* problems, F&& onItem,
                    int firstLine = 1)
{
    ScanResult res;
    size_t start = 0;
    if (text.size() >= 3 && memcmp(text.data(), "\xEF\xBB\xBF", 3) == 0)
        start = 3;
    LineReader lr(text, start, firstLine, false);
    LineView lv;
    std::vector<std::pair<int, int>> stack;  // component name id, line
    stack.reserve(16);
    ComponentNames names;
    bool inItem = false;
    int curId = -1;
    ScannedItem cur;
    bool strayReported = false;
    const char* const textEnd = text.data() + text.size();
    while (lr.next(lv)) {
        if (lv.text.empty())
            continue;
        // Only BEGIN, END and the properties the index needs are split; for
        // the rest the name is enough (their bytes are kept as they are).
        // A name that ends on the first physical line is classified here
        // once; one broken by folding is found after unfolding.
        const std::string_view t0 = lv.text;
        size_t ne = nameEnd(t0.data(), t0.size(), size_t(textEnd - t0.data()));
        bool named = ne < t0.size();
        bool isBegin = false, isEnd = false;
        KeyName key = kOther;
        if (named) {
            if (mayMatter(t0[0])) {
                std::string_view name0 = t0.substr(0, ne);
                isBegin = ne == 5 && eqUpper(name0, "BEGIN");
                isEnd = ne == 3 && eqUpper(name0, "END");
                if (!isBegin && !isEnd && inItem && stack.size() == 2)
                    key = classify(name0);
            }
            if (!isBegin && !isEnd && key == kOther) {
                if (stack.empty() && !strayReported) {
                    report(problems, file, lv.line, "content outside VCALENDAR; kept as it is");
                    strayReported = true;
                }
                continue;
            }
        }
        if (lv.folded)
            lv.text = lr.unfold(lv);
        LineParts lp;
        const bool inText = lv.text.data() >= text.data() && lv.text.data() < textEnd;
        const size_t avail = inText ? size_t(textEnd - lv.text.data()) : lv.text.size();
        if (!(named ? splitAfterName(lv.text, ne, lp, avail) : splitLine(lv.text, lp))) {
            report(problems, file, lv.line, "not a content line; kept as it is");
            continue;
        }
        if (!named) {
            isBegin = lp.name.size() == 5 && eqUpper(lp.name, "BEGIN");
            isEnd = !isBegin && lp.name.size() == 3 && eqUpper(lp.name, "END");
        }
        if (isBegin) {
            int id = names.id(lp.value);
            const std::string& name = names.list[size_t(id)];
            if (stack.empty() && id != kCalendarName)
                report(problems, file, lv.line, "BEGIN:" + name + " outside VCALENDAR; kept, not used");
            bool lostEnd = inItem && id == curId && (id == kEventName || name == "VTODO" || name == "VJOURNAL");
            if (lostEnd) {
                // These never nest: the earlier one lost its END.
                report(problems, file, cur.line, std::string(cur.name) + " begun here has no END; left out");
                stack.resize(1);
            }
            if (lostEnd || (stack.size() == 1 && stack[0].first == kCalendarName)) {
                inItem = true;
                cur.begin = lv.begin;
                cur.line = lv.line;
                cur.name = name;
                curId = id;
                cur.keys.clear();
                if (!cur.folded.empty())
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
                    report(problems, file, cur.line, std::string(cur.name) + " begun here is broken; left out");
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
            KeyName k = named ? key : classify(lp.name);
            if (k != kOther) {
                if (!inText) {
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
    EventId event = kNoEvent;
    // The current bytes once changed, held apart: few items ever change, and
    // a hundred thousand records are written while a calendar is read.
    std::unique_ptr<std::string> repl;
    bool isEvent = false;
    bool changed = false, deleted = false, added = false;
    bool pending = false;       // changed since the last save
    void setBytes(std::string b) { repl = std::make_unique<std::string>(std::move(b)); }
    const std::string& changedBytes() const
    {
        static const std::string none;
        return repl ? *repl : none;
    }
};

struct Source {
    std::string path;
    FileText text;        // as read (or as last written)
    // A file read without its VCALENDAR: its own bytes, given back while
    // nothing in it has changed (text holds the wrapped form).
    std::string bareText;
    std::vector<Item, BigAllocator<Item>> items;
    size_t insertAt = std::string::npos;
    bool writable = true;
    bool exists = true;   // false: a file still to be created
    bool inDirectory = false;
    bool dirty = false;
    bool removeFile = false;
    std::map<std::string, int, std::less<>> tzids;  // looked up by views, without a copy
    // Size and modification time when last read or written, to notice
    // another program's changes.
    int64_t diskSize = -1, diskTime = 0;
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

// Series records come from chunks brought in whole: made one by one, the
// two thousand series of a large calendar took a page fault every few
// records, and on a virtual machine a fault costs some ten microseconds.
class SeriesPool {
public:
    SeriesPool() = default;
    SeriesPool(const SeriesPool&) = delete;
    SeriesPool& operator=(const SeriesPool&) = delete;
    ~SeriesPool()
    {
        for (const Chunk& c : chunks_)
            bigFree(c.first, c.size * sizeof(Series));
    }
    Series* make()
    {
        void* slot;
        if (free_) {
            slot = free_;
            free_ = free_->next;
        } else {
            if (chunks_.empty() || used_ == chunks_.back().size) {
                // Chunks double, so a calendar with a few series keeps a few.
                size_t n = chunks_.empty() ? 16 : std::min<size_t>(chunks_.back().size * 2, 256);
                chunks_.reserve(chunks_.size() + 1);
                Series* mem = static_cast<Series*>(bigAlloc(n * sizeof(Series)));
                prefault(mem, n * sizeof(Series));
                chunks_.push_back({mem, n});
                used_ = 0;
            }
            slot = chunks_.back().first + used_++;
        }
        return new (slot) Series();
    }
    void release(Series* s) noexcept
    {
        s->~Series();
        free_ = new (static_cast<void*>(s)) Free{free_};
    }

private:
    struct Free {
        Free* next;
    };
    struct Chunk {
        Series* first;
        size_t size;
    };
    std::vector<Chunk> chunks_;
    size_t used_ = 0;
    Free* free_ = nullptr;
};

struct SeriesRelease {
    SeriesPool* pool = nullptr;
    void operator()(Series* s) const noexcept { pool->release(s); }
};
using SeriesPtr = std::unique_ptr<Series, SeriesRelease>;

// A hundred thousand of these are written while a calendar is read: the
// fields are ordered so that the record has no holes.
struct Ev {
    uint32_t source = 0, item = 0;
    uint32_t uidOff = 0, uidLen = 0;  // in StoreImpl::uidText
    int line = 0;
    EventId master = kNoEvent;
    Time start;  // DTEND's own value is read back from the text when asked
    Time rid;
    Duration dur;
    int64_t exact = 0;  // DTEND - DTSTART in seconds
    int64_t key = 0;
    SeriesPtr series;
    int16_t bucket = -1;
    bool hasStart = false;
    bool hasRid = false, ridFuture = false;
    bool live = true;
    EndKind endKind = EndKind::None;
};

inline int bucketFor(int64_t len)
{
    int b = 0;
    while (len > 0 && b < 47) {
        len >>= 1;
        ++b;
    }
    return b;
}

}  // namespace store

using namespace store;

struct StoreImpl {
    std::vector<Source> sources;
    SeriesPool seriesPool;  // before evs: their series go back to it
    std::vector<Ev, BigAllocator<Ev>> evs;
    std::vector<Zone> zones;
    std::map<std::string, int> zoneByText;
    std::map<std::string, int, std::less<>> zoneByName;       // VTIMEZONEs of every file
    std::map<std::string, int, std::less<>> tableZoneByName;  // TZIDs the built-in table resolved
    std::set<std::string> unknownTzids;
    std::unordered_map<std::string, EventId> masters;
    // Our versions of events a save found changed on disk as well, to be
    // added under fresh UIDs once the merged files are read back.
    std::vector<std::string> conflictCopies;
    // Events another copy with the same UID supersedes: kept in their files
    // as they are, not shown, and removed with the copy that is shown.
    std::unordered_map<EventId, std::vector<EventId>> shadowed;
    std::basic_string<char, std::char_traits<char>, BigAllocator<char>> uidText;
    std::string_view uidOf(const Ev& e) const { return std::string_view(uidText).substr(e.uidOff, e.uidLen); }
    using Bucket = std::vector<std::pair<int64_t, EventId>, BigAllocator<std::pair<int64_t, EventId>>>;
    std::vector<Bucket> buckets = std::vector<Bucket>(48);
    std::vector<size_t> bucketSorted = std::vector<size_t>(48, 0);
    struct Placed {
        int64_t key;
        EventId id;
        int bucket;
    };
    std::vector<Placed, BigAllocator<Placed>> placed;  // single events read, not yet in buckets
    std::vector<EventId> bulkSpecial;                  // series and overrides read, not yet linked
    bool bulkLoading = false;
    std::vector<EventId> seriesList;
    bool directory = false;
    std::string root;

    bool parseTime(Source& s, std::string_view params, std::string_view value, Time& t, int line,
                   std::vector<Problem>* problems);
    static const int kNoZone = -1, kUnknownZone = -2;
    struct ZoneMemo {
        const Source* source = nullptr;
        std::string params;
        int zone = kNoZone;
    } zoneMemo;
    int zoneOfParams(Source& s, std::string_view params, std::string_view& tzid);
    int lookupZone(Source& s, std::string_view tzid);
    bool fileRead = true;  // false while a file's components are still coming in
    int64_t absolute(const Time& t) const;
    int64_t inClock(const Time& clock, const Time& t) const;
    int64_t toTarget(const Time& clock, int64_t civil, const Zone& target) const;
    void place(const Ev& e, int64_t c, int64_t exactLen, const Zone& target, int64_t& s, int64_t& en) const;
    void addZone(Source& s, std::string_view text, const ScannedItem& it, std::vector<Problem>* problems);
    void parseTimeList(Source& s, const KeyProp& kp, const Ev& e, Series& sr, bool isRdate,
                       std::vector<Problem>* problems);
    EventId buildEvent(uint32_t si, uint32_t ii, const ScannedItem& it, std::vector<Problem>* problems);
    void prepareSeries(Ev& e, QueryReport* rep);
    void index(EventId id);
    void unindex(EventId id);
    std::vector<size_t> sortPlaced(std::vector<Placed, BigAllocator<Placed>>& v);
    void link(EventId from, std::vector<Problem>* problems, bool bulk);
    void resolveDuplicateUids(std::vector<Problem>* problems);
    void attachOverride(EventId id);
    void detachOverride(EventId id);
    bool namesUnknownZone(Source& s, const ScannedItem& it);
    bool loadSource(Source src, std::vector<Problem>* problems, bool doLink = true);
    std::string itemBytes(const Source& s, const Item& it) const;
    std::string sourceText(const Source& s) const;
    static bool overlaps(int64_t s, int64_t e, int64_t from, int64_t to, Range range);
    // With `sample`, a day the series floods gets only its first starts and
    // then the first and last start in each stretch of the grid (thinning.cpp).
    void expand(EventId id, const Zone& target, int64_t from, int64_t to, Range range,
                std::vector<Occurrence>& out, QueryReport* rep, const DayGrid* sample = nullptr,
                std::unordered_map<int64_t, size_t>* reach = nullptr) const;
    // A target wall-clock time in a series' own clock.
    int64_t inSeriesClockAt(const Time& clock, const Zone& target, int64_t t) const;
    static int64_t jump(const Zone& z, int64_t utc);
    int64_t inSeriesClock(const Time& clock, const Zone& target, int64_t t, bool upper) const;
    void query(std::vector<Occurrence>& out, const Zone& target, int64_t from, int64_t to, Range range,
               QueryReport* rep, const DayGrid* grid = nullptr) const;
    bool floodsPast(int64_t from, int64_t to, size_t budget) const;
    // One try: false, with out partly filled, once the answer outgrows budget.
    bool queryOnce(std::vector<Occurrence>& out, const Zone& target, int64_t from, int64_t to, Range range,
                   QueryReport* rep, const DayGrid* sample, size_t budget) const;
    // How many the last query found: the next one makes room for about as many.
    mutable std::atomic<size_t> lastFound{0};
    Component parsed(EventId id) const;
    bool plainInstance(EventId id, int64_t c) const;
    Time after(const Time& t, int64_t seconds) const;
    std::string timeValue(Source& s, const Time& t, std::string& params);
    void setTime(Source& s, Component& c, const char* name, const Time& t);
    void applyEdit(Source& s, Component& c, const EventEdit& f, bool fresh);
    EventId reread(uint32_t si, uint32_t ii, EventId reuse);
    void relink(EventId id);
    bool replaceItem(EventId id, std::string bytes);
    // The source a new event with this UID goes to: the one file of a
    // file store, or a new file of a directory store named by newFileName.
    uint32_t sourceForNew(std::string_view uid);
    std::string newFileName(std::string_view uid) const;
    bool uidInUse(std::string_view uidAsWritten) const;
    // Adds c, a whole VEVENT (fields applied first, if given), to a new
    // source's calendar; kNoEvent when that file cannot be written.
    EventId insertNew(std::string_view uid, Component& c, const EventEdit* fields);
    void ensureCalendar(Source& s);
    bool relayout(Source& s, std::string out);
    void reloadSource(size_t idx, std::string text);
    void dropSource(size_t idx);
    void removeEvent(EventId id);
    static void stamp(Source& s);
};

// Leaves out of a query's answer (in start order) what the grid's reader
// could not show of events that flood a day (thinning.cpp).
void thinFloods(std::vector<Occurrence>& occ, const DayGrid& grid, int64_t from, QueryReport* rep);

// Of a picture's sampled flooded day (sampledDays, ascending), whether an
// occurrence is drawn over by what another flooding series already drew
// (reach: the farthest end's stretch per day and start stretch); dayShown
// is the day of the series' last occurrence met.
bool drawnOver(const Occurrence& o, const std::vector<int64_t>& sampledDays, const DayGrid& g,
               std::unordered_map<int64_t, size_t>& reach, int64_t& dayShown);

// Whether a grid is one a reader could have meant (else nothing is left out).
bool gridMakesSense(const DayGrid& g);

// Where a series' starts come from for sampling: its counted list, or its
// rule's iterator. `excluded` names the starts the series does not have
// (EXDATE, overrides).
struct StartSource {
    const std::vector<int64_t>* counted = nullptr;
    RecurIter* it = nullptr;
    int64_t stop = 0;  // the iterator is not asked past this
    std::function<bool(int64_t)> excluded;
    // The first start at or after a, if any before `before`.
    bool firstAtLeast(int64_t a, int64_t before, int64_t& t);
    // The last start at or after `after` and before b.
    bool lastBefore(int64_t after, int64_t b, int64_t& t);

private:
    bool peek(int64_t& t);
    bool held = false, ended = false;
    int64_t value = 0;
};

// The starts (series clock) of a series over the target days [firstDay,
// lastDay], in the sampled form: every start of a day up to
// DayGrid::kFloodPerDay of them; past that, the day floods, and of its starts
// only those its reader needs of a flood (for a list, the first in each
// stretch of the grid; for a picture, the last in each, and the first whose
// instance, `length` seconds, runs into the next day), with the day's first.
// A day so cut is added to days.
void sampleStarts(StartSource& src, const std::function<int64_t(int64_t)>& toSeries, const DayGrid& g,
                  int64_t length, int64_t firstDay, int64_t lastDay, int64_t lo, int64_t hi,
                  std::vector<int64_t>& starts, std::vector<int64_t>& days);

}  // namespace lfical
