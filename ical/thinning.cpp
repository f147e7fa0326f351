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

struct Stretch {
    size_t index;  // of DayGrid::startPixel / endPixel
    bool onMark;   // on a mark, at midnight or at the day's end
};

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

// One day's timed occurrences, in start order: which to keep.
void thinDay(const std::vector<Occurrence>& occ, const std::vector<size_t>& timed, int64_t day,
             const std::unordered_map<EventId, size_t>& counts, const DayGrid& g, std::vector<char>& keep)
{
    auto floods = [&](EventId e) {
        auto it = counts.find(e);
        return it != counts.end() && it->second > size_t(DayGrid::kFloodPerDay);
    };
    std::unordered_map<EventId, bool> seen;
    if (g.startPixel.empty()) {
        // A list: a flooding event once per stretch, its first there.
        std::unordered_map<EventId, size_t> lastStretch;
        for (size_t i : timed) {
            const Occurrence& o = occ[i];
            if (!floods(o.event))
                continue;
            // A half hour from its first second: upper_bound puts a start on a mark after it.
            int32_t secs = int32_t(o.start - day * kDay);
            size_t s = size_t(std::upper_bound(g.marks.begin(), g.marks.end(), secs) - g.marks.begin());
            auto it = lastStretch.find(o.event);
            if (it != lastStretch.end() && it->second == s)
                keep[i] = 0;
            else
                lastStretch[o.event] = s;
        }
        return;
    }
    // Runs: an unmarked occurrence and those starting before its end.
    struct Run {
        size_t first, last;  // into `timed`
        uint32_t bits = 0, sureBits = 0;
        bool mayGo = true;
    };
    std::vector<Run> runs;
    int32_t runEnd = 0;
    int endPixelOfRun = 0;
    for (size_t k = 0; k < timed.size(); ++k) {
        const Occurrence& o = occ[timed[k]];
        int32_t s = int32_t(o.start - day * kDay);
        int32_t e = int32_t(o.end - day * kDay);  // kDay for an end at midnight
        Stretch a = stretchOf(g, s), b = stretchOf(g, e);
        int p1 = g.startPixel[a.index], p2 = g.endPixel[b.index];
        bool marked = !runs.empty() && runEnd > s;
        if (!marked) {
            runs.push_back({k, k});
            runEnd = e;
            endPixelOfRun = p2;
        }
        Run& r = runs.back();
        r.last = k;
        uint32_t bits = barBits(p1, p2);
        if (marked)
            bits |= barBits(p1, endPixelOfRun);
        r.bits |= bits;
        bool exact = !a.onMark && !b.onMark && !(marked && stretchOf(g, runEnd).onMark);
        if (exact)
            r.sureBits |= bits;
        // The first occurrence of an event on a day places its icons.
        bool first = seen.emplace(o.event, true).second;
        if (!exact || first || !floods(o.event))
            r.mayGo = false;
    }
    // From the day's end back: a run whose every pixel later kept runs
    // draw over leaves nothing to see, and leaving it out whole changes no
    // other run (the next unmarked start is at or after its end).
    uint32_t covered = 0;
    for (size_t n = runs.size(); n-- > 0;) {
        const Run& r = runs[n];
        if (r.mayGo && (r.bits & ~covered) == 0) {
            for (size_t k = r.first; k <= r.last; ++k)
                keep[timed[k]] = 0;
            continue;
        }
        covered |= r.sureBits;
    }
}

}  // namespace

void thinFloods(std::vector<Occurrence>& occ, const DayGrid& g, QueryReport* rep)
{
    if (g.startPixel.size() != g.endPixel.size() ||
        (!g.startPixel.empty() && g.startPixel.size() != g.marks.size() + 1) ||
        !std::is_sorted(g.marks.begin(), g.marks.end()))
        return;  // not a grid a reader could have meant: keep everything
    // Days a timed occurrence of an earlier day reaches into keep all theirs:
    // the reader's state there comes from another day.
    std::vector<std::pair<int64_t, int64_t>> reach;  // (first day reached, last day)
    for (const Occurrence& o : occ) {
        int64_t first = floorDiv(o.start, kDay), last = lastDayOf(o);
        if (!o.allDay && last > first)
            reach.push_back({first + 1, last});
    }
    std::sort(reach.begin(), reach.end());
    size_t nextReach = 0;
    int64_t reachedUntil = INT64_MIN;
    std::vector<char> keep(occ.size(), 1);
    std::unordered_map<EventId, size_t> counts;
    std::vector<size_t> timed;
    size_t i = 0;
    while (i < occ.size()) {
        int64_t day = floorDiv(occ[i].start, kDay);
        size_t j = i;
        counts.clear();
        timed.clear();
        bool spans = false;
        for (; j < occ.size() && floorDiv(occ[j].start, kDay) == day; ++j) {
            if (occ[j].allDay)
                continue;
            if (lastDayOf(occ[j]) != day)
                spans = true;
            timed.push_back(j);
            ++counts[occ[j].event];
        }
        bool flooded = false;
        for (auto& c : counts)
            flooded = flooded || c.second > size_t(DayGrid::kFloodPerDay);
        for (; nextReach < reach.size() && reach[nextReach].first <= day; ++nextReach)
            reachedUntil = std::max(reachedUntil, reach[nextReach].second);
        bool isReached = reachedUntil >= day;
        if (flooded && !spans && !isReached) {
            size_t before = size_t(std::count(keep.begin() + long(i), keep.begin() + long(j), 0));
            thinDay(occ, timed, day, counts, g, keep);
            size_t after = size_t(std::count(keep.begin() + long(i), keep.begin() + long(j), 0));
            if (after > before && rep) {
                rep->thinnedDays.push_back(day);
                rep->leftOut += after - before;
            }
        }
        i = j;
    }
    size_t w = 0;
    for (size_t k = 0; k < occ.size(); ++k)
        if (keep[k])
            occ[w++] = occ[k];
    occ.resize(w);
}

}  // namespace lfical
