// Leaving out what a reader could not show of an event that floods a day
// (DayGrid in ical.h says the rule; month/indicators.cpp is the reader the
// pixel form follows).
#include <algorithm>
#include <unordered_map>

#include "storeimpl.h"

namespace lfical {

namespace {

// The last day an occurrence covers: an end exactly at midnight closes the
// day before, as the month view reads it.
int64_t lastDayOf(const Occurrence& o)
{
    int64_t first = floorDiv(o.start, kDay);
    int64_t last = o.end > o.start && o.end % kDay == 0 ? floorDiv(o.end - 1, kDay) : floorDiv(o.end, kDay);
    return last < first ? first : last;
}

// The end's time of day on the last day, as the reader compares it: the
// whole day (86400) for an end at midnight.
int32_t endOfLastDay(const Occurrence& o)
{
    return int32_t(o.end - lastDayOf(o) * kDay);
}

struct Stretch {
    size_t index;  // of DayGrid::startPixel / endPixel
    bool onMark;   // on a mark, at midnight or at the day's end
};

// The stretch a time of day starts, one on a mark taking the stretch after it.
size_t stretchAfter(const DayGrid& g, int32_t secs)
{
    return size_t(std::upper_bound(g.marks.begin(), g.marks.end(), secs) - g.marks.begin());
}

Stretch stretchOf(const DayGrid& g, int32_t secs)
{
    auto it = std::lower_bound(g.marks.begin(), g.marks.end(), secs);
    bool on = secs <= 0 || secs >= int32_t(kDay) || (it != g.marks.end() && *it == secs);
    return {size_t(it - g.marks.begin()), on};
}

uint32_t barBits(int from, int to)
{
    int width = to - from > 1 ? to - from : 1;
    uint32_t bits = 0;
    for (int p = from; p < from + width && p < 32; ++p)
        if (p >= 0)
            bits |= uint32_t(1) << p;
    return bits;
}

// What the reader keeps across its walk: the last day it drew on and the
// end of the last bar it drew unmarked.
struct ReaderState {
    int64_t day;
    int32_t end;
    bool operator<(const ReaderState& o) const { return day != o.day ? day < o.day : end < o.end; }
    bool operator==(const ReaderState& o) const { return day == o.day && end == o.end; }
};
const int64_t kNoDay = INT64_MIN;

// The reader drawing one timed occurrence over the days it shows.
ReaderState draw(ReaderState st, const Occurrence& o, const DayGrid& g)
{
    int64_t first = std::max(floorDiv(o.start, kDay), g.firstDay), last = std::min(lastDayOf(o), g.lastDay);
    if (first > last)
        return st;
    // Each day after the first it draws finds the state of the day before:
    // only the first can be marked.
    int32_t t1 = int32_t(o.start - floorDiv(o.start, kDay) * kDay);
    bool marked = last == first && st.day == first && st.end > t1;
    return {last, marked ? st.end : endOfLastDay(o)};
}

// The list form: a flooding event once per stretch, its first there.
void thinList(const std::vector<Occurrence>& occ, size_t i, size_t j, int64_t day,
              const std::unordered_map<EventId, size_t>& counts, const DayGrid& g, std::vector<char>& keep)
{
    std::unordered_map<EventId, size_t> lastStretch;
    for (size_t k = i; k < j; ++k) {
        const Occurrence& o = occ[k];
        auto c = counts.find(o.event);
        if (o.allDay || c == counts.end() || c->second <= size_t(DayGrid::kFloodPerDay))
            continue;
        // A half hour from its first second: upper_bound puts a start on a mark after it.
        size_t s = stretchAfter(g, int32_t(o.start - day * kDay));
        auto it = lastStretch.find(o.event);
        if (it != lastStretch.end() && it->second == s)
            keep[k] = 0;
        else
            lastStretch[o.event] = s;
    }
}

// The pixel form, over one day's occurrences [i, j), the reader's possible
// states carried in and out. Runs: an unmarked bar and the bars it marks,
// met while the state is certain. A run may go only whole (without its
// unmarked start the others would be read against another end), and only
// when the state before it was of this day or an earlier one (else the
// next day would be read against what it left); a marked bar changes no
// state, so it may also go alone.
void thinPicture(const std::vector<Occurrence>& occ, size_t i, size_t j, int64_t day, int64_t fullFrom,
                 const std::unordered_map<EventId, size_t>& counts, const DayGrid& g,
                 std::vector<ReaderState>& states, std::vector<char>& keep)
{
    struct Bar {
        uint32_t bits = 0, sureBits = 0;
        bool mayGo = false;  // a certain, exact, later occurrence of a flooding event, all on this day
        bool marked = false;
    };
    struct Run {
        size_t first, last;
        bool whole = true;
        uint32_t bits = 0;
    };
    const bool shown = day >= g.firstDay && day <= g.lastDay;
    std::vector<Bar> bars(j - i);
    std::vector<Run> runs;
    std::unordered_map<EventId, bool> seen;
    std::vector<ReaderState> next;
    bool inRun = false;  // the last run's unmarked start set the certain state
    auto pixelOf = [&](const std::vector<uint8_t>& table, int32_t secs, bool& exact) {
        Stretch st = stretchOf(g, secs);
        exact = exact && !st.onMark;
        return int(table[st.index]);
    };
    for (size_t k = i; k < j; ++k) {
        const Occurrence& o = occ[k];
        Bar& bar = bars[k - i];
        // The first occurrence of an event on a day places its icons.
        bool first = seen.emplace(o.event, true).second;
        if (o.allDay)
            continue;  // drawn above the bar; the reader's state is not touched
        auto c = counts.find(o.event);
        bool floods = c != counts.end() && c->second > size_t(DayGrid::kFloodPerDay);
        int32_t s = int32_t(o.start - day * kDay);
        bool crosses = lastDayOf(o) > day;
        bool certain = states.size() == 1;
        if (!shown) {
            // Drawn on no day the reader shows: it shows nothing, changes nothing.
            bar.mayGo = bar.marked = floods && !first && !crosses;
        } else {
            bool exact = true;
            int p1 = pixelOf(g.startPixel, s, exact);
            int p2 = crosses ? 27 : pixelOf(g.endPixel, endOfLastDay(o), exact);
            uint32_t blue = barBits(p1, p2), red = 0;
            bool redExact = exact;
            bar.marked = certain && states[0].day == day && states[0].end > s;
            if (bar.marked)
                red = barBits(p1, pixelOf(g.endPixel, states[0].end, redExact));
            bar.bits = blue | red;
            bar.sureBits = (exact ? blue : 0) | (bar.marked && redExact ? red : 0);
            bar.mayGo = certain && !crosses && !first && exact && redExact && floods;
        }
        if (!(certain && bar.marked && inRun)) {
            bool opens = certain && !bar.marked && states[0].day <= day;
            runs.push_back({k, k});
            runs.back().whole = opens;
            inRun = opens;
        }
        Run& r = runs.back();
        r.last = k;
        r.bits |= bar.bits;
        r.whole = r.whole && bar.mayGo;
        next.clear();
        for (const ReaderState& st : states) {
            next.push_back(draw(st, o, g));
            // An occurrence of a day before the answer's first whole one may
            // have been followed by others the answer does not hold.
            if (floorDiv(o.start, kDay) < fullFrom)
                next.push_back({kNoDay, 0});
        }
        std::sort(next.begin(), next.end());
        next.erase(std::unique(next.begin(), next.end()), next.end());
        states.swap(next);
        if (crosses)
            inRun = false;
    }
    // From the day's end back: what later kept bars draw over leaves nothing to see.
    uint32_t covered = 0;
    for (size_t n = runs.size(); n-- > 0;) {
        const Run& r = runs[n];
        if (r.whole && (r.bits & ~covered) == 0) {
            for (size_t k = r.first; k <= r.last; ++k)
                keep[k] = 0;
            continue;
        }
        for (size_t k = r.last + 1; k-- > r.first;) {
            const Bar& bar = bars[k - i];
            if (bar.marked && bar.mayGo && (bar.bits & ~covered) == 0) {
                keep[k] = 0;
                continue;
            }
            covered |= bar.sureBits;
        }
    }
}

}  // namespace

bool gridMakesSense(const DayGrid& g)
{
    return g.startPixel.size() == g.endPixel.size() &&
           (g.startPixel.empty() || g.startPixel.size() == g.marks.size() + 1) &&
           std::is_sorted(g.marks.begin(), g.marks.end()) && g.firstDay <= g.lastDay;
}

// ---- sampling: a flooding series' starts without walking all of them

bool StartSource::peek(int64_t& t)
{
    if (!held) {
        if (ended || !it->next(value, stop) || value > stop) {
            ended = true;
            return false;
        }
        held = true;
    }
    t = value;
    return true;
}

bool StartSource::firstAtLeast(int64_t a, int64_t before, int64_t& t)
{
    if (counted) {
        for (auto p = std::lower_bound(counted->begin(), counted->end(), a); p != counted->end() && *p < before; ++p)
            if (!excluded(*p)) {
                t = *p;
                return true;
            }
        return false;
    }
    if (held && value < a)
        held = false;
    if (!held)
        it->seek(a);
    // A period may begin before a: its earlier candidates are passed over.
    while (peek(t)) {
        if (t >= before)
            return false;  // held for a later ask
        held = false;
        if (t >= a && !excluded(t))
            return true;
    }
    return false;
}

bool StartSource::lastBefore(int64_t after, int64_t b, int64_t& t)
{
    bool found = false;
    if (counted) {
        for (auto p = std::lower_bound(counted->begin(), counted->end(), b); p != counted->begin();) {
            --p;
            if (*p < after)
                break;
            if (!excluded(*p)) {
                t = *p;
                return true;
            }
        }
        return false;
    }
    // The rule's period holding b's last second starts at or before it, so
    // only that period's candidates are walked.
    if (held && value < b - 1)
        held = false;
    if (!held)
        it->seek(b - 1);
    int64_t c;
    while (peek(c) && c < b) {
        held = false;
        if (c >= after && !excluded(c)) {
            t = c;
            found = true;
        }
    }
    return found;
}

void sampleStarts(StartSource& src, const std::function<int64_t(int64_t)>& toSeries, const DayGrid& g,
                  int64_t length, int64_t firstDay, int64_t lastDay, int64_t lo, int64_t hi,
                  std::vector<int64_t>& starts, std::vector<int64_t>& days)
{
    std::vector<int64_t> seen;
    for (int64_t day = firstDay; day <= lastDay; ++day) {
        const int64_t dayEnd = std::min(toSeries((day + 1) * kDay), hi + 1);
        int64_t t;
        // A day with no more than kFloodPerDay starts has them all.
        seen.clear();
        for (int64_t at = std::max(toSeries(day * kDay), lo);
             seen.size() <= size_t(DayGrid::kFloodPerDay) && src.firstAtLeast(at, dayEnd, t); at = t + 1)
            seen.push_back(t);
        if (seen.size() <= size_t(DayGrid::kFloodPerDay)) {
            starts.insert(starts.end(), seen.begin(), seen.end());
            continue;
        }
        days.push_back(day);
        // The first start in [a, b), and the last, from those seen and then
        // from the source, always asked further on.
        auto first = [&](int64_t a, int64_t b, int64_t& out) {
            if (a > seen.back())
                return src.firstAtLeast(a, b, out);
            auto p = std::lower_bound(seen.begin(), seen.end(), a);
            return *p < b && (out = *p, true);
        };
        auto last = [&](int64_t a, int64_t b, int64_t& out) {
            if (b - 1 > seen.back() && src.lastBefore(std::max(a, seen.back() + 1), b, out))
                return true;
            auto p = std::lower_bound(seen.begin(), seen.end(), b);
            return p != seen.begin() && *(p - 1) >= a && (out = *(p - 1), true);
        };
        // The day's first start places its icons. A list shows the first
        // start of each stretch; a bar is drawn from a stretch's starts'
        // one pixel to the farthest end, the last start's, and the first
        // start that runs into the next day comes first there.
        starts.push_back(seen.front());
        const bool picture = !g.startPixel.empty();
        const int64_t crossing = dayEnd - length + 1;
        int64_t a = seen.front();
        for (size_t k = 0; k <= g.marks.size() && a < dayEnd; ++k) {
            int64_t b = k == g.marks.size() ? dayEnd : std::min(toSeries(day * kDay + g.marks[k]), dayEnd);
            if (b <= a)
                continue;
            if (!picture) {
                if (first(a, b, t))
                    starts.push_back(t);
            } else {
                if (crossing >= a && crossing < b && first(crossing, b, t))
                    starts.push_back(t);
                if (last(a, b, t))
                    starts.push_back(t);
            }
            a = b;
        }
    }
}

// Of a picture's sampled flooded day, an occurrence another flooding series
// already drew over: one from the same stretch of the bar reaching as far or
// farther. A series' first occurrence of a day (its icons) and one running
// into the next day always stay; so the day's bar reaches as far, however
// many series flood it.
bool drawnOver(const Occurrence& o, const std::vector<int64_t>& sampledDays, const DayGrid& g,
               std::unordered_map<int64_t, size_t>& reach, int64_t& dayShown)
{
    const int64_t day = floorDiv(o.start, kDay);
    const bool first = day != dayShown;
    dayShown = day;
    if (first || o.end > (day + 1) * kDay || !std::binary_search(sampledDays.begin(), sampledDays.end(), day))
        return false;
    const size_t from = stretchAfter(g, int32_t(o.start - day * kDay));
    const size_t to = stretchAfter(g, int32_t(o.end - day * kDay));
    auto [it, fresh] = reach.try_emplace(day * int64_t(g.marks.size() + 1) + int64_t(from), to);
    if (fresh || it->second < to) {
        it->second = to;
        return false;
    }
    return true;
}

void thinFloods(std::vector<Occurrence>& occ, const DayGrid& g, int64_t from, QueryReport* rep)
{
    if (!gridMakesSense(g))
        return;  // not a grid a reader could have meant: keep everything
    // Only an event with more than kFloodPerDay timed occurrences on a day
    // loses any, so an answer with no day that full is kept whole without
    // following the reader (a month of an ordinary store, every time).
    bool full = false;
    for (size_t i = 0, n = 0; i < occ.size() && !full; ++i) {
        n = i > 0 && floorDiv(occ[i].start, kDay) == floorDiv(occ[i - 1].start, kDay) ? n : 0;
        full = !occ[i].allDay && ++n > size_t(DayGrid::kFloodPerDay);
    }
    if (!full)
        return;
    const int64_t fullFrom = floorDiv(from + kDay - 1, kDay);
    std::vector<ReaderState> states{{kNoDay, 0}};
    std::vector<char> keep(occ.size(), 1);
    std::unordered_map<EventId, size_t> counts;
    size_t i = 0;
    while (i < occ.size()) {
        int64_t day = floorDiv(occ[i].start, kDay);
        size_t j = i;
        counts.clear();
        bool flooded = false;
        for (; j < occ.size() && floorDiv(occ[j].start, kDay) == day; ++j)
            if (!occ[j].allDay)
                flooded = ++counts[occ[j].event] > size_t(DayGrid::kFloodPerDay) || flooded;
        if (g.startPixel.empty()) {
            if (flooded)
                thinList(occ, i, j, day, counts, g, keep);
        } else {
            // Every day's bars move the reader's state, flooded or not.
            thinPicture(occ, i, j, day, fullFrom, flooded ? counts : std::unordered_map<EventId, size_t>(), g,
                        states, keep);
        }
        if (rep && std::count(keep.begin() + long(i), keep.begin() + long(j), 0))
            rep->thinnedDays.push_back(day);
        i = j;
    }
    size_t w = 0;
    for (size_t k = 0; k < occ.size(); ++k)
        if (keep[k])
            occ[w++] = occ[k];
    occ.resize(w);
}

}  // namespace lfical
