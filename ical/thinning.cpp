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
             const std::unordered_map<EventId, size_t>& counts, const std::vector<int32_t>& entry,
             const DayGrid& g, std::vector<char>& keep)
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
    // The reader keeps one state across its walk: the end of the last bar it
    // drew unmarked, on the last day it drew on. A day's walk may begin with
    // that state from an appointment of an earlier day reaching into it (or
    // not, when the reader did not draw that day), and an occurrence running
    // into the next day leaves it open again; so the walk carries every state
    // it may be in (-1: nothing drawn on this day yet, which marks nothing).
    // Runs: an unmarked occurrence and those starting before its end, met
    // while the state is certain. A run may go only whole (without its
    // unmarked start, the others would be read against another end); a
    // marked occurrence changes no state, so it may also go alone.
    struct Bar {
        uint32_t bits = 0, sureBits = 0;
        bool mayGo = false;  // on its own terms: a certain, exact, later occurrence of a flooding event
        bool marked = false;
    };
    struct Run {
        size_t first, last;  // into `timed`
        bool whole = true;   // every bar of it may go
        uint32_t bits = 0;
    };
    std::vector<Bar> bars(timed.size());
    std::vector<Run> runs;
    std::vector<int32_t> states = entry, next;
    bool inRun = false;  // the last run is the one whose unmarked start set the certain state
    auto pixelOf = [&](const std::vector<uint8_t>& table, int32_t secs, bool& exact) {
        Stretch st = stretchOf(g, secs);
        exact = exact && !st.onMark;
        return int(table[st.index]);
    };
    for (size_t k = 0; k < timed.size(); ++k) {
        const Occurrence& o = occ[timed[k]];
        int32_t s = int32_t(o.start - day * kDay);
        int32_t end = endOfLastDay(o);
        bool crosses = lastDayOf(o) > day;
        bool exact = true;
        int p1 = pixelOf(g.startPixel, s, exact);
        int p2 = crosses ? 27 : pixelOf(g.endPixel, end, exact);
        Bar& bar = bars[k];
        uint32_t blue = barBits(p1, p2), red = 0;
        bool certain = states.size() == 1, redExact = exact;
        bar.marked = certain && states[0] > s;
        if (bar.marked)
            red = barBits(p1, pixelOf(g.endPixel, states[0], redExact));
        bar.bits = blue | red;
        bar.sureBits = (exact ? blue : 0) | (bar.marked && redExact ? red : 0);
        // The first occurrence of an event on a day places its icons; one
        // running into the next day draws there too.
        bool first = seen.emplace(o.event, true).second;
        bar.mayGo = certain && !crosses && !first && exact && redExact && floods(o.event);
        if (!(certain && bar.marked && inRun)) {
            runs.push_back({k, k});
            inRun = certain && !bar.marked;
        }
        Run& r = runs.back();
        r.last = k;
        r.bits |= bar.bits;
        r.whole = r.whole && inRun && bar.mayGo;
        next.clear();
        for (int32_t st : states) {
            next.push_back(st > s ? st : end);
            if (crosses)
                next.push_back(-1);  // the reader drew the next day last, or did not draw it
        }
        std::sort(next.begin(), next.end());
        next.erase(std::unique(next.begin(), next.end()), next.end());
        states.swap(next);
        if (crosses)
            inRun = false;
    }
    // From the day's end back: what later kept bars draw over leaves nothing
    // to see. A run going whole changes no other run (what follows it starts
    // at or after its end, unmarked either way); a marked bar going alone
    // changes nothing at all.
    uint32_t covered = 0;
    for (size_t n = runs.size(); n-- > 0;) {
        const Run& r = runs[n];
        if (r.whole && (r.bits & ~covered) == 0) {
            for (size_t k = r.first; k <= r.last; ++k)
                keep[timed[k]] = 0;
            continue;
        }
        for (size_t k = r.last + 1; k-- > r.first;) {
            const Bar& bar = bars[k];
            if (bar.marked && bar.mayGo && (bar.bits & ~covered) == 0) {
                keep[timed[k]] = 0;
                continue;
            }
            covered |= bar.sureBits;
        }
    }
}

}  // namespace

void thinFloods(std::vector<Occurrence>& occ, const DayGrid& g, QueryReport* rep)
{
    if (g.startPixel.size() != g.endPixel.size() ||
        (!g.startPixel.empty() && g.startPixel.size() != g.marks.size() + 1) ||
        !std::is_sorted(g.marks.begin(), g.marks.end()))
        return;  // not a grid a reader could have meant: keep everything
    // The days occurrences start on, and for each the states the reader may
    // bring into it from timed occurrences of earlier days reaching it.
    std::vector<int64_t> days;
    for (const Occurrence& o : occ)
        if (days.empty() || days.back() != floorDiv(o.start, kDay))
            days.push_back(floorDiv(o.start, kDay));
    std::vector<std::vector<int32_t>> entry(days.size(), std::vector<int32_t>{-1});
    for (const Occurrence& o : occ) {
        int64_t first = floorDiv(o.start, kDay), last = lastDayOf(o);
        if (o.allDay || last == first)
            continue;
        for (auto d = std::upper_bound(days.begin(), days.end(), first); d != days.end() && *d <= last; ++d)
            entry[size_t(d - days.begin())].push_back(endOfLastDay(o));
    }
    std::vector<char> keep(occ.size(), 1);
    std::unordered_map<EventId, size_t> counts;
    std::vector<size_t> timed;
    size_t i = 0, dayIndex = 0;
    while (i < occ.size()) {
        int64_t day = floorDiv(occ[i].start, kDay);
        size_t j = i;
        counts.clear();
        timed.clear();
        for (; j < occ.size() && floorDiv(occ[j].start, kDay) == day; ++j) {
            if (occ[j].allDay)
                continue;
            timed.push_back(j);
            ++counts[occ[j].event];
        }
        bool flooded = false;
        for (auto& c : counts)
            flooded = flooded || c.second > size_t(DayGrid::kFloodPerDay);
        if (flooded) {
            std::vector<int32_t>& in = entry[dayIndex];
            std::sort(in.begin(), in.end());
            in.erase(std::unique(in.begin(), in.end()), in.end());
            thinDay(occ, timed, day, counts, in, g, keep);
            size_t left = size_t(std::count(keep.begin() + long(i), keep.begin() + long(j), 0));
            if (left && rep) {
                rep->thinnedDays.push_back(day);
                rep->leftOut += left;
            }
        }
        i = j;
        ++dayIndex;
    }
    size_t w = 0;
    for (size_t k = 0; k < occ.size(); ++k)
        if (keep[k])
            occ[w++] = occ[k];
    occ.resize(w);
}

}  // namespace lfical
