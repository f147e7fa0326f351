// Lanternfields iCalendar engine (portable C++17, no platform headers).
//
// What the calendar server uses:
//
//   lfical::Store store;
//   std::vector<lfical::Problem> problems;
//   bool ok = store.load(path, &problems);   // a .ics file or a vdir directory
//       // false: the store could not be read (missing, not iCalendar, truncated);
//       // problems carry file and line. Components that parsed are still there.
//   for (lfical::EventId id : store.events()) ...     // live (not deleted) events
//   lfical::EventInfo e = store.info(id);             // decoded fields of one VEVENT
//   lfical::Zone local = lfical::Zone::fromWindows(tzi);    // or fromIana / fromTzif
//   auto occ = store.query(local, from, to, lfical::Range::HalfOpen, &report);
//       // every occurrence overlapping [from, to) (local civil seconds, see
//       // civilSeconds()), sorted by start; series are expanded, EXDATEs and
//       // overrides applied, zoned/UTC times converted to `local`,
//       // floating and all-day values kept as written.
//   store.edit(id, edit);  store.add(edit);  store.remove(id);
//   store.addExdate(seriesId, occurrenceStart);  store.removeOverride(overrideId);
//   store.addOverride(seriesId, occurrenceStart, edit);  // change one occurrence
//   store.save(&problems);   // atomic per file; merges by UID when the file
//                            // changed on disk since it was read
//   store.changedOnDisk();   // another program changed the store: reload
//   lfical::oidForUid(uid);  // the event's 32-bit OID, the same in every run
//
// Range::WholeDays gives the restriction language's whole-day comparison:
// every occurrence touching a day from day(from) to day(to).
//
// Times are "civil seconds": seconds since 1970-01-01T00:00:00 of a wall clock,
// with no zone attached; Time says which clock (DATE, floating, UTC, or a
// zone from the store's zone table). Event ids stay valid for the life of the
// Store (deleted ids are marked, never reused); oidForUid() gives the server
// a 32-bit identifier that is the same for a UID in every run.
//
// Bytes: every top-level component keeps the bytes it was read with until it
// is changed; writing an unchanged store reproduces the file exactly, and a
// changed event only rewrites that event (and within it, only the changed
// properties plus DTSTAMP, LAST-MODIFIED and SEQUENCE).
//
// Nothing here is internally synchronised: the server serialises calls.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "civil.h"

namespace lfical {

// ---------------------------------------------------------------- civil time
// Day numbers, weekdays and month lengths are in civil.h.
// "YYYYMMDD" when dateOnly, else "YYYYMMDDTHHMMSS"
std::string formatCivil(int64_t civil, bool dateOnly);
// Parses "YYYYMMDD" or "YYYYMMDDTHHMMSS"; no zone suffix.
bool parseCivil(std::string_view s, int64_t& civil, bool& dateOnly);

// ---------------------------------------------------------------- values
enum class TimeKind : uint8_t { Date, Floating, Utc, Zoned };
struct Time {
    int64_t civil = 0;              // wall clock of the kind's clock
    TimeKind kind = TimeKind::Floating;
    int32_t zone = -1;              // Store zone index when Zoned
    bool isDate() const { return kind == TimeKind::Date; }
};

// Days are nominal (a day in a zone may be 23 or 25 hours), seconds exact.
struct Duration {
    int64_t days = 0;
    int64_t seconds = 0;
};

bool parseDuration(std::string_view s, Duration& out);
std::string formatDuration(const Duration& d);
bool parseUtcOffset(std::string_view s, int32_t& seconds);
std::string unescapeText(std::string_view s);
std::string escapeText(std::string_view s);
// A TEXT list value: split at unescaped commas, each item unescaped.
std::vector<std::string> splitTextList(std::string_view s);

enum class Freq : uint8_t { Secondly, Minutely, Hourly, Daily, Weekly, Monthly, Yearly };
struct ByDay {
    int16_t ord = 0;  // 0: every such weekday in the period
    int8_t wd = 0;    // 0 = Monday
};
struct Recur {
    Freq freq = Freq::Daily;
    int32_t interval = 1;
    int64_t count = 0;  // 0: no COUNT
    bool hasUntil = false;
    bool untilIsDate = false;
    bool untilIsUtc = false;
    int64_t until = 0;  // civil; UTC clock when untilIsUtc
    std::vector<int8_t> bySecond, byMinute, byHour, byMonth;
    std::vector<int16_t> byMonthDay, byYearDay, byWeekNo;
    std::vector<int32_t> bySetPos;
    std::vector<ByDay> byDay;
    int wkst = 0;
};
bool parseRecur(std::string_view s, Recur& out, std::string& error);

// Instances of one RRULE in the series' own wall clock, ascending. DTSTART is
// not added here (the caller adds it: it is always the first instance).
// Every call does bounded work: `budget` counts days examined, and a rule
// that never matches or a window past year 9999 ends the iteration.
class RecurIter {
public:
    RecurIter() = default;
    RecurIter(const Recur& rule, int64_t dtstart, bool dateOnly, int64_t untilCivil);
    // The current period's times point into the iterator itself.
    RecurIter(const RecurIter&) = delete;
    RecurIter& operator=(const RecurIter&) = delete;
    // Starts over on another rule, as if made anew; the room its lists took
    // is kept, so an iterator kept for a thread costs no heap blocks per
    // series a query expands.
    void reset(const Recur& rule, int64_t dtstart, bool dateOnly, int64_t untilCivil);
    // Jump to the period holding `civil` (only meaningful without COUNT).
    void seek(int64_t civil);
    // Next instance; false when the rule ended, the budget ran out, or the
    // next period starts after `stopAfter`.
    bool next(int64_t& out, int64_t stopAfter = INT64_MAX);
    bool cut() const { return cut_; }
    static constexpr int64_t kBudget = 4000000;
    int64_t budget = kBudget;

private:
    bool fill();
    bool dayMatches(int64_t day, int y, int m, int d) const;
    void monthDays(int y, int m);
    int64_t periodStartCivil(int64_t p) const;
    int64_t reachBack() const;
    const Recur* r_ = nullptr;
    int64_t dtstart_ = 0, until_ = 0;
    bool dateOnly_ = false;
    int y0_ = 0, m0_ = 0, d0_ = 0, mi0_ = 0, s0_ = 0;
    int64_t day0_ = 0, week0_ = 0, t0_ = 0, unit_ = 0;
    std::vector<int16_t> monthDays_;
    std::vector<ByDay> byDay_;
    std::vector<int8_t> months_;
    bool ordByMonth_ = false;
    std::vector<int32_t> times_;
    std::vector<int64_t> days_;
    std::vector<int32_t> ptimes_;
    const std::vector<int32_t>* tp_ = &times_;  // the current period's times
    std::vector<int64_t> sel_;
    bool useSel_ = false;
    size_t idx_ = 0, n_ = 0;
    int64_t period_ = 0;
    bool done_ = false, cut_ = false, loaded_ = false;
};

// ---------------------------------------------------------------- zones
struct Transition {
    int64_t utc;
    int32_t offset;  // seconds east of UTC from this instant on
    bool dst;
};

// One SYSTEMTIME-like rule as Windows' TIME_ZONE_INFORMATION gives it:
// month 1-12 (0: no daylight time), dayOfWeek 0 = Sunday, day = week 1-5
// (5 = last) when year is 0, else an absolute date in that year.
struct WindowsRuleTime {
    int year = 0, month = 0, dayOfWeek = 0, day = 0, hour = 0, minute = 0, second = 0;
};
struct WindowsZoneInfo {
    int32_t bias = 0;          // minutes, UTC = local + bias
    int32_t standardBias = 0;  // minutes added to bias in standard time
    int32_t daylightBias = 0;  // minutes added to bias in daylight time
    WindowsRuleTime standardDate, daylightDate;
    std::string name;
};

class Zone {
public:
    std::string name;
    int32_t initialOffset = 0;
    std::vector<Transition> transitions;  // ascending by utc
    std::string vtimezone;                // the VTIMEZONE text this came from, if any

    static Zone utc();
    static Zone fixed(int32_t offsetSeconds, std::string name);
    static Zone fromWindows(const WindowsZoneInfo& info);
    static bool fromTzif(std::string_view bytes, std::string name, Zone& out, std::string& error);
    // POSIX TZ rule such as "CET-1CEST,M3.5.0,M10.5.0/3"
    static bool fromPosix(std::string_view rule, std::string name, Zone& out, std::string& error);
    // An IANA name read from zoneinfo (dir, else $TZDIR, else the system's),
    // else from the table built into the engine.
    static bool fromIana(const std::string& ianaName, Zone& out, std::string& error,
                         const std::string& dir = std::string());
    // A zone from the table built into the engine from tzdata (the same on
    // every system): an IANA name or link in any case ("US/Eastern"), one
    // after a vendor's prefix ("/mozilla.org/20050126_1/America/New_York"),
    // or a Windows zone name ("W. Europe Standard Time"). The zone is named
    // `name` as given. False when the table does not know the name.
    static bool fromBuiltIn(std::string_view name, Zone& out);
    // The table's IANA name for what fromBuiltIn accepts, else empty.
    static std::string builtInName(std::string_view name);
    static std::vector<std::string> builtInNames();  // every IANA name and link
    static const char* builtInVersion();             // tzdata's, e.g. "2025b"

    int32_t offsetAtUtc(int64_t utc) const;
    int64_t fromUtc(int64_t utc) const { return utc + offsetAtUtc(utc); }
    // Wall clock to UTC: a time in a gap uses the offset before the gap (so
    // it reads as the gap's length later), a time in an overlap the first.
    int64_t toUtc(int64_t local) const;
    // Sorts transitions and prepares lookups; call after filling by hand.
    void finish();

private:
    // Sorted keys with a table of where each stretch of time starts, so a
    // lookup looks at the few keys of one stretch.
    struct KeyIndex {
        std::vector<int64_t> keys;
        std::vector<uint32_t> first;  // first[b]: keys before stretch b
        int64_t base = 0;
        int shift = 0;
        void build();
        size_t countAtMost(int64_t x) const;
    };
    KeyIndex local_;  // the later wall clock of each transition
    KeyIndex utc_;    // each transition's instant
};

// ---------------------------------------------------------------- content
struct Problem {
    std::string file;
    int line = 0;
    std::string message;
};

struct Property {
    std::string name;    // upper case
    std::string params;  // as written, starting with ';' (or empty)
    std::string value;   // as written (still escaped), unfolded
    std::string raw;     // original bytes with folding and line end; empty once changed
    int line = 0;
    // First value of a parameter, quotes removed; empty if absent.
    std::string param(std::string_view name) const;
    bool hasParam(std::string_view name) const;
    void setParam(std::string_view name, std::string_view value);  // empty value removes
};

struct Component {
    std::string name;  // upper case
    int line = 0;
    std::vector<Property> props;
    std::vector<Component> subs;
    std::vector<size_t> subAt;  // subs[i] is written after props[0..subAt[i])
    std::string beginRaw, endRaw;
    const Property* find(std::string_view name) const;
    Property* find(std::string_view name);
    std::vector<const Property*> findAll(std::string_view name) const;
    void remove(std::string_view name);
    Property& set(std::string_view name, std::string_view value);  // replaces first, else appends
    // Adds after the other properties but before sub-components that end
    // the component (an event's properties come before its alarms).
    Property& append(Property p);
};

// Parses one component (BEGIN..END) from text; problems get line numbers
// counted from firstLine. Returns false when no component was found.
bool parseComponent(std::string_view text, Component& out, std::vector<Problem>* problems,
                    int firstLine = 1, const std::string& file = std::string());
// Untouched properties and sub-components keep their raw bytes.
std::string writeComponent(const Component& c);
// One content line folded at 75 octets (never inside a UTF-8 sequence), CRLF.
std::string foldLine(std::string_view unfolded);

// ---------------------------------------------------------------- events
using EventId = uint32_t;
constexpr EventId kNoEvent = 0xffffffffu;

enum class Busy : uint8_t { Free, Tentative, Busy, OutOfOffice };
enum class EndKind : uint8_t { None, DtEnd, Duration };

struct EventInfo {
    std::string uid, summary, location, description, cls;  // cls: CLASS value as written
    std::vector<std::string> categories;
    Time start, end;        // end: DTEND, or start + DURATION, or RFC 5545's default
    EndKind endKind = EndKind::None;
    Duration duration;      // when endKind is Duration
    bool allDay = false;    // start is a DATE
    Busy busy = Busy::Busy; // X-MICROSOFT-CDO-BUSYSTATUS, else TRANSP
    bool transparent = false;
    bool hasAlarm = false;
    int alarmMinutes = -1;  // first VALARM's relative trigger before start, -1 if none/absolute
    std::string rrule;      // as written
    std::vector<Time> rdates, exdates;
    bool hasRecurrenceId = false;
    bool thisAndFuture = false;
    Time recurrenceId;
    int64_t sequence = 0;
    std::string dtstamp, lastModified;
    bool recurring = false;  // RRULE or RDATE
};

// Fields to set; unset optionals stay as they are.
struct EventEdit {
    std::optional<std::string> summary, location, description, cls;
    std::optional<std::vector<std::string>> categories;
    std::optional<Time> start, end;   // end is written as DTEND (DURATION is removed)
    std::optional<Busy> busy;
    std::optional<int> alarmMinutes;  // < 0 removes every VALARM
    std::optional<std::string> rrule; // empty removes RRULE
};

struct Occurrence {
    EventId event = kNoEvent;   // the component whose fields apply (an override, or the series)
    EventId series = kNoEvent;  // the series' master; equal to event for a single event
    int64_t start = 0, end = 0; // civil seconds in the query's zone (floating/all-day as written)
    bool allDay = false;
    bool floating = false;
    bool recurring = false;
    Time recurrenceId;          // the instance's original start, in the series' clock
};

enum class Range {
    HalfOpen,   // start < to && (end > from || start == end >= from)
    Closed,     // start <= to && end >= from
    WholeDays,  // every occurrence touching a day from day(from) to day(to), inclusive
};

struct QueryReport {
    std::vector<std::string> cut;  // UIDs whose expansion stopped at a bound
    size_t instancesExamined = 0;
    // With a DayGrid: the days (civil day numbers in the query's zone) some
    // of whose occurrences were left out, ascending.
    std::vector<int64_t> thinnedDays;
};

// How the reader of a query looks at a day, so that the query may leave out
// occurrences of an event that floods a day (a FREQ=MINUTELY alarm, a
// mistyped interval) which the reader could not show anyway. Only an event
// with more than kFloodPerDay timed occurrences starting on one day floods
// it; every other occurrence is always kept, and so is a flooding event's
// first occurrence of each day.
//
// The marks split the day into stretches: before the first mark, between
// two, after the last. Without pixels, a flooding event keeps its first
// occurrence starting in each stretch (a list that shows the event once per
// stretch). With pixels (one entry per stretch), the reader draws each timed
// occurrence of a day in start order as a bar from the start's pixel to the
// end's (at least one pixel), and one that starts before the end of the last
// bar it drew unmarked as marked from its start to that end, keeping that end
// across days as the month view does (month/indicators.cpp); a flooding
// event's occurrences are then left out only as whole runs (one unmarked
// occurrence and those it marks) met where the reader's state is certain,
// never one running into the next day, and only where later bars of the day
// cover every pixel the run drew, so the day's picture is the same. An
// occurrence starting or ending on a mark, or at midnight, is always kept,
// since the reader alone knows which side of the mark it reads.
//
// A list's query, and a picture's whose answer would outgrow kThinWholeUpTo,
// never walk a flooded day whole: past its first kFloodPerDay + 1 starts, they
// take only what the reader needs of a flooding series, found by skipping
// through its rule: for a list, its first start in each stretch; for a
// picture, its first start of the day, the last in each stretch and the first
// running into the next day, and of those only what no other flooding series
// already drew (the same stretch, as far or farther). A list then shows
// exactly what it would have; a picture's bars reach as far as before, with
// each event's first occurrence of a day and every other event kept, though
// where floods cross each other the marks may fall on other pixels.
struct DayGrid {
    static constexpr int kFloodPerDay = 48;
    static constexpr size_t kThinWholeUpTo = 200000;
    std::vector<int32_t> marks;                // seconds of the day, ascending, inside (0, 86400)
    std::vector<uint8_t> startPixel, endPixel; // marks.size() + 1 each, or both empty
    // The days (civil day numbers in the query's zone) the pixel reader
    // draws; it walks the others without drawing.
    int64_t firstDay = INT64_MIN, lastDay = INT64_MAX;
};

uint32_t oidForUid(std::string_view uid);
std::string newUid();   // a fresh UID: a random UUID "@lanternfields"
std::string newUuid();  // a random RFC 4122 UUID, lower case
// Whether a directory store names a file after this UID: only
// A-Z a-z 0-9 _ . + - (what every file system and vdir tool accepts).
bool uidMakesFileName(std::string_view uid);

struct StoreImpl;
class Store {
public:
    Store();
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // A .ics file or a directory of .ics files. False when it could not be
    // read; the store then keeps what it could and refuses to save the
    // unreadable file.
    bool load(const std::string& path, std::vector<Problem>* problems);
    // Calendar text held in memory (tests, fuzzing); `name` labels problems.
    bool loadText(std::string text, const std::string& name, std::vector<Problem>* problems);
    // An empty single-file store at path (written on first save).
    void create(const std::string& path);

    std::vector<EventId> events() const;
    size_t eventCount() const;
    bool valid(EventId id) const;
    EventInfo info(EventId id) const;
    // info(id).categories alone, read from the event's text without decoding
    // the rest: what a pass over every event for its category names asks.
    std::vector<std::string> categories(EventId id) const;
    std::string uid(EventId id) const;
    // The same without a copy; valid until the next change to the store.
    std::string_view uidView(EventId id) const;
    std::string bytes(EventId id) const;  // the component's text as it would be written
    EventId findUid(std::string_view uid) const;  // the series master or single event
    std::vector<EventId> overridesOf(EventId series) const;

    int zoneIndex(std::string_view tzid) const;  // -1 when unknown
    const Zone& zone(int index) const;

    // With a grid, occurrences of events that flood a day may be left out
    // for the reader it describes (DayGrid), and the report says where.
    std::vector<Occurrence> query(const Zone& target, int64_t from, int64_t to, Range range,
                                  QueryReport* report = nullptr, const DayGrid* grid = nullptr) const;
    // The same into out, emptied first and its room kept: a reader that asks
    // again and again (a month view) spares the heap a large block a query.
    void queryInto(std::vector<Occurrence>& out, const Zone& target, int64_t from, int64_t to, Range range,
                   QueryReport* report = nullptr, const DayGrid* grid = nullptr) const;

    // Changes: each returns false (and leaves the store as it was) when the
    // id is not a live event or the edit makes no sense.
    EventId add(const EventEdit& fields);
    // A new event with the UID another calendar gave it. Refused (kNoEvent,
    // with the reason in `error`) when the store already holds an event
    // with that UID: a directory store must never hold two files for one.
    EventId add(const EventEdit& fields, const std::string& uid, std::string& error);
    // A new event from a VEVENT's text under a fresh UID, without its
    // RECURRENCE-ID: keeps a version of an event that lost a conflict
    // beside the version that won. Everything else keeps its bytes.
    // oneOff also leaves out RRULE, RDATE, EXDATE and EXRULE: one
    // occurrence of a series kept as an appointment of its own.
    EventId addCopy(std::string_view veventText, bool oneOff = false);
    bool edit(EventId id, const EventEdit& fields);
    bool remove(EventId id);  // a series master takes its overrides with it
    bool addExdate(EventId series, const Time& occurrenceStart);
    bool removeOverride(EventId overrideId);
    // The first change to one occurrence of a series: a new override in the
    // series' file, with the series' UID and a RECURRENCE-ID that is the
    // occurrence's original start in the series' own form (DATE, TZID, UTC
    // or floating, as DTSTART). It carries the series' other properties and
    // alarms (their bytes kept), the occurrence's start and end, `fields`
    // applied, and fresh DTSTAMP, LAST-MODIFIED and SEQUENCE. A start given
    // without an end keeps the occurrence's length. Returns the override,
    // or kNoEvent when series is not a series, occurrenceStart (any clock)
    // is not one of its occurrences, that occurrence is deleted or already
    // has an override (edit that one), or fields set an RRULE.
    EventId addOverride(EventId series, const Time& occurrenceStart, const EventEdit& fields);

    bool dirty() const;
    // Whether another program changed, added or removed a file of the store
    // since it was read or last saved (size or modification time differ).
    bool changedOnDisk() const;
    // The current text of each file of the store (path, bytes).
    std::vector<std::pair<std::string, std::string>> texts() const;
    // Writes changed files atomically. When a file changed on disk since it
    // was read, the other program's version is kept for every UID it changed
    // and ours for the rest; a UID both changed is reported in `conflicts`
    // and keeps the disk version there, and ours is added beside it as a
    // copy under a fresh UID (addCopy), so neither version is lost.
    bool save(std::vector<Problem>* problems, std::vector<std::string>* conflicts = nullptr);

private:
    std::unique_ptr<StoreImpl> d_;
};

}  // namespace lfical
