// Queries with a day grid: what the reader could not show of an event that
// floods a day is left out, the reader's picture stays the same, and
// nothing else is ever left out.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <tuple>

#include "helpers.h"

using namespace lfical;
using lftest::at;

namespace {

// The month view's bar for one day, painted from its rule (a bar from the
// start's pixel to the end's, at least one wide; one starting before the end
// of the last unmarked bar is marked from its start to that end), with each
// event's first occurrence noted for its icons.
struct Picture {
    std::vector<int> pixels = std::vector<int>(28, 0);  // 0 none, 1 busy, 2 marked
    std::vector<EventId> iconOrder;
    bool operator==(const Picture& o) const { return pixels == o.pixels && iconOrder == o.iconOrder; }
};

int pixelOf(const DayGrid& g, const std::vector<uint8_t>& table, int64_t secs)
{
    size_t i = size_t(std::upper_bound(g.marks.begin(), g.marks.end(), int32_t(secs)) - g.marks.begin());
    // A time on a mark reads as the stretch after it, as some readers do.
    return table[i];
}

int64_t lastDay(const Occurrence& o)
{
    int64_t first = floorDiv(o.start, kDay);
    int64_t last = o.end > o.start && o.end % kDay == 0 ? floorDiv(o.end - 1, kDay) : floorDiv(o.end, kDay);
    return last < first ? first : last;
}

// The reader draws only the days from `shownFrom` to `shownTo`; its state
// (the day it drew last, the end of its last unmarked bar) runs across them.
std::map<int64_t, Picture> paint(const std::vector<Occurrence>& occ, const DayGrid& g,
                                 int64_t shownFrom = INT64_MIN, int64_t shownTo = INT64_MAX)
{
    std::map<int64_t, Picture> days;
    int64_t prevDay = INT64_MIN;
    int64_t prevEnd = 0;
    for (const Occurrence& o : occ) {
        int64_t first = floorDiv(o.start, kDay), last = lastDay(o);
        int64_t t1 = o.start - first * kDay, t2 = o.end - last * kDay;
        for (int64_t day = first; day <= last; ++day) {
            if (day < shownFrom || day > shownTo)
                continue;
            Picture& p = days[day];
            if (std::find(p.iconOrder.begin(), p.iconOrder.end(), o.event) == p.iconOrder.end())
                p.iconOrder.push_back(o.event);
            if (o.allDay)
                continue;
            auto bar = [&](int from, int to, int colour) {
                int width = to - from > 1 ? to - from : 1;
                for (int x = from; x < from + width && x < 28; ++x)
                    p.pixels[size_t(x)] = colour;
            };
            int p1 = day > first ? 0 : pixelOf(g, g.startPixel, t1);
            int p2 = day < last ? 27 : pixelOf(g, g.endPixel, t2);
            bar(p1, p2, 1);
            bool marked = prevDay == day && prevEnd > t1;
            if (marked)
                bar(p1, pixelOf(g, g.endPixel, prevEnd), 2);
            prevDay = day;
            if (!marked)
                prevEnd = t2;
        }
    }
    return days;
}

// A grid like the month view's: four band boundaries on half hours, each
// band's nine pixels between them.
DayGrid barGrid(int a, int b, int c, int d)
{
    DayGrid g;
    int bands[] = {a * 1800, b * 1800, c * 1800, d * 1800};
    for (int i = 0; i < 4; ++i) {
        g.marks.push_back(bands[i]);
        if (i < 3)
            for (int k = 1; k < 9; ++k)
                g.marks.push_back(bands[i] + (bands[i + 1] - bands[i]) * k / 9);
    }
    std::sort(g.marks.begin(), g.marks.end());
    g.marks.erase(std::unique(g.marks.begin(), g.marks.end()), g.marks.end());
    for (size_t i = 0; i <= g.marks.size(); ++i) {
        int32_t mid = ((i == 0 ? 0 : g.marks[i - 1]) + (i == g.marks.size() ? 86400 : g.marks[i])) / 2;
        int p = 0;
        for (int k = 0; k < 3; ++k)
            if (mid >= bands[k] && mid < bands[k + 1])
                p = 9 * k + 9 * (mid - bands[k]) / (bands[k + 1] - bands[k]);
        if (mid >= bands[3])
            p = 27;
        g.startPixel.push_back(uint8_t(p >= 27 ? 26 : p));
        g.endPixel.push_back(uint8_t(mid < bands[0] ? 1 : p));
    }
    return g;
}

const char* kFlood =
    // Every minute, one minute long, from the 9th: two days.
    "BEGIN:VEVENT\nUID:minutely\nDTSTART:20260309T000000\nDTEND:20260309T000100\nRRULE:FREQ=MINUTELY;COUNT=2880\n"
    "CATEGORIES:Business\nEND:VEVENT\n"
    // Five minutes long every minute, three of them a minute apart: they overlap each other.
    "BEGIN:VEVENT\nUID:five-a\nDTSTART:20260309T060000\nDTEND:20260309T060500\nRRULE:FREQ=MINUTELY;COUNT=900\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:five-b\nDTSTART:20260309T060100\nDTEND:20260309T060600\nRRULE:FREQ=MINUTELY;COUNT=900\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:five-c\nDTSTART:20260309T060200\nDTEND:20260309T060700\nRRULE:FREQ=MINUTELY;COUNT=900\nEND:VEVENT\n"
    // A mistyped interval: every 30 seconds, no length, on the 10th.
    "BEGIN:VEVENT\nUID:seconds\nDTSTART:20260310T000000\nRRULE:FREQ=SECONDLY;INTERVAL=30;UNTIL=20260310T235959\n"
    "CATEGORIES:Personal\nEND:VEVENT\n"
    // Ordinary ones among them, and an all-day series.
    "BEGIN:VEVENT\nUID:meeting\nDTSTART:20260309T100000\nDTEND:20260309T110000\nCATEGORIES:Travel\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:short\nDTSTART:20260310T143010\nDTEND:20260310T143020\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:allday\nDTSTART;VALUE=DATE:20260301\nRRULE:FREQ=DAILY;COUNT=30\nEND:VEVENT\n"
    // The 12th floods too, and a trip from the 11th reaches into it.
    "BEGIN:VEVENT\nUID:late\nDTSTART:20260312T000000\nDTEND:20260312T000100\nRRULE:FREQ=MINUTELY;COUNT=600\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:trip\nDTSTART:20260311T200000\nDTEND:20260312T080000\nEND:VEVENT\n"
    // Hourly floods nothing.
    "BEGIN:VEVENT\nUID:hourly\nDTSTART:20260313T000000\nDTEND:20260313T001000\nRRULE:FREQ=HOURLY;COUNT=24\nEND:VEVENT\n";

size_t countOf(const Store& s, const std::vector<Occurrence>& occ, const char* uid, int64_t day)
{
    size_t n = 0;
    for (const Occurrence& o : occ)
        n += s.uid(o.event) == uid && floorDiv(o.start, kDay) == day;
    return n;
}

}  // namespace

TEST(Thinning, BarPictureIsTheFullWalks)
{
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.loadText(lftest::calendar(kFlood), "flood", &ps));
    const Zone z = Zone::utc();
    std::vector<Occurrence> full = s.query(z, at("20260301"), at("20260401"), Range::HalfOpen);
    std::mt19937 random(20260309);
    struct Case {
        const char* name;
        int a, b, c, d;
    };
    std::vector<Case> cases = {{"defaults", 12, 24, 34, 42}, {"half hours", 20, 21, 22, 23},
                               {"whole day", 0, 16, 32, 47}, {"out of order", 30, 20, 36, 40}};
    for (int i = 0; i < 6; ++i) {
        int v[4];
        for (int& x : v)
            x = int(random() % 48);
        std::sort(v, v + 4);
        cases.push_back({"random", v[0], v[1], v[2], v[3]});
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.a) + "," + std::to_string(c.b) + "," +
                     std::to_string(c.c) + "," + std::to_string(c.d));
        DayGrid g = barGrid(c.a, c.b, c.c, c.d);
        QueryReport rep;
        std::vector<Occurrence> thin = s.query(z, at("20260301"), at("20260401"), Range::HalfOpen, &rep, &g);
        EXPECT_TRUE(paint(thin, g) == paint(full, g));
        EXPECT_LT(thin.size() * 5, full.size()) << "the floods were not thinned";
        // Only the flooding events lost occurrences, the 12th's too, though the trip reaches into it.
        for (const char* uid : {"meeting", "short", "allday", "trip", "hourly"})
            for (int64_t day = at("20260301") / kDay; day < at("20260401") / kDay; ++day)
                EXPECT_EQ(countOf(s, thin, uid, day), countOf(s, full, uid, day)) << uid;
        EXPECT_LT(countOf(s, thin, "late", at("20260312") / kDay), 600u);
        EXPECT_EQ(rep.thinnedDays,
                  (std::vector<int64_t>{at("20260309") / kDay, at("20260310") / kDay, at("20260312") / kDay}));
    }
}

TEST(Thinning, ListShowsAFloodOncePerStretch)
{
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.loadText(lftest::calendar(kFlood), "flood", &ps));
    DayGrid halfHours;
    for (int32_t m = 1800; m < 86400; m += 1800)
        halfHours.marks.push_back(m);
    QueryReport rep;
    std::vector<Occurrence> day =
        s.query(Zone::utc(), at("20260310"), at("20260311"), Range::HalfOpen, &rep, &halfHours);
    const int64_t tenth = at("20260310") / kDay;
    EXPECT_EQ(countOf(s, day, "seconds", tenth), 48u);
    EXPECT_EQ(countOf(s, day, "minutely", tenth), 48u);
    EXPECT_EQ(countOf(s, day, "short", tenth), 1u);
    EXPECT_EQ(countOf(s, day, "allday", tenth), 1u);
    EXPECT_EQ(rep.thinnedDays, std::vector<int64_t>{tenth});
    // The first of each half hour: 00:00, 00:30, ...
    std::vector<int64_t> starts;
    for (const Occurrence& o : day)
        if (s.uid(o.event) == "seconds")
            starts.push_back(o.start - tenth * kDay);
    for (size_t i = 0; i < starts.size(); ++i)
        EXPECT_EQ(starts[i], int64_t(i) * 1800);

    // A day without a flood: everything, and no report.
    QueryReport quiet;
    std::vector<Occurrence> plain = s.query(Zone::utc(), at("20260313"), at("20260314"), Range::HalfOpen);
    EXPECT_EQ(s.query(Zone::utc(), at("20260313"), at("20260314"), Range::HalfOpen, &quiet, &halfHours).size(),
              plain.size());
    EXPECT_TRUE(quiet.thinnedDays.empty());

    // A grid no reader could mean leaves everything in.
    DayGrid broken = halfHours;
    broken.startPixel = {1, 2};
    broken.endPixel = {1, 2};
    EXPECT_EQ(s.query(Zone::utc(), at("20260310"), at("20260311"), Range::HalfOpen, nullptr, &broken).size(),
              s.query(Zone::utc(), at("20260310"), at("20260311"), Range::HalfOpen).size());
}

// Random floods: series of random lengths a random number of seconds apart,
// overlapping each other and ordinary appointments, read through random grids.
TEST(Thinning, RandomFloodsKeepThePicture)
{
    std::mt19937 random(5545);
    for (int round = 0; round < 12; ++round) {
        std::string ics;
        char line[400];
        int series = 1 + int(random() % 5);
        for (int i = 0; i < series; ++i) {
            int every = 20 + int(random() % 160), length = int(random() % 900), start = int(random() % 86400);
            snprintf(line, sizeof line,
                     "BEGIN:VEVENT\nUID:f%d\nDTSTART:20260309T%02d%02d%02d\nDURATION:PT%dS\n"
                     "RRULE:FREQ=SECONDLY;INTERVAL=%d;COUNT=%d\nCATEGORIES:c%d\nEND:VEVENT\n",
                     i, start / 3600, start / 60 % 60, start % 60, length, every, 200 + int(random() % 3000),
                     int(random() % 3));
            ics += line;
        }
        for (int i = 0; i < 20; ++i) {
            int start = int(random() % 86000), length = int(random() % (i < 15 ? 7200 : 200000));
            snprintf(line, sizeof line,
                     "BEGIN:VEVENT\nUID:o%d\nDTSTART:2026031%dT%02d%02d%02d\nDURATION:PT%dS\nEND:VEVENT\n", i,
                     int(random() % 3), start / 3600, start / 60 % 60, start % 60, length);
            ics += line;
        }
        Store s;
        std::vector<Problem> ps;
        ASSERT_TRUE(s.loadText(lftest::calendar(ics), "random", &ps));
        std::vector<Occurrence> full = s.query(Zone::utc(), at("20260301"), at("20260401"), Range::HalfOpen);
        for (int grid = 0; grid < 4; ++grid) {
            int v[4];
            for (int& x : v)
                x = int(random() % 48);
            std::sort(v, v + 4);
            SCOPED_TRACE("round " + std::to_string(round) + " grid " + std::to_string(v[0]) + "," +
                         std::to_string(v[1]) + "," + std::to_string(v[2]) + "," + std::to_string(v[3]));
            DayGrid g = barGrid(v[0], v[1], v[2], v[3]);
            std::vector<Occurrence> thin = s.query(Zone::utc(), at("20260301"), at("20260401"), Range::HalfOpen,
                                                   nullptr, &g);
            EXPECT_TRUE(paint(thin, g) == paint(full, g));
            // A reader that does not draw some days keeps its state over them.
            for (int64_t from : {at("20260310") / kDay, at("20260312") / kDay, INT64_MIN}) {
                DayGrid shown = g;
                shown.firstDay = from;
                shown.lastDay = from == INT64_MIN ? at("20260310") / kDay : INT64_MAX;
                std::vector<Occurrence> part = s.query(Zone::utc(), at("20260301"), at("20260401"),
                                                       Range::HalfOpen, nullptr, &shown);
                EXPECT_TRUE(paint(part, g, shown.firstDay, shown.lastDay) ==
                            paint(full, g, shown.firstDay, shown.lastDay));
            }
            EXPECT_LT(thin.size(), full.size()) << "the floods were not thinned";
            for (int i = 0; i < 20; ++i) {
                std::string uid = "o" + std::to_string(i);
                for (int64_t day = at("20260309") / kDay; day <= at("20260313") / kDay; ++day)
                    EXPECT_EQ(countOf(s, thin, uid.c_str(), day), countOf(s, full, uid.c_str(), day)) << uid;
            }
        }
    }
}

namespace {

// Random floods for the sampled queries: series every few seconds, counted
// or running to an end, one in New York's clock read in UTC, some with a
// deleted occurrence, beside a few ordinary appointments.
std::string randomFloods(std::mt19937& random, int series, int minEvery)
{
    std::string ics;
    char line[500];
    for (int i = 0; i < series; ++i) {
        int every = minEvery + int(random() % 150), length = int(random() % 1200), start = int(random() % 86400);
        bool counted = random() % 2, zoned = i == 0;
        snprintf(line, sizeof line,
                 "BEGIN:VEVENT\nUID:f%d\nDTSTART%s:20260309T%02d%02d%02d\nDURATION:PT%dS\n"
                 "RRULE:FREQ=SECONDLY;INTERVAL=%d;%s\nEXDATE%s:20260310T%02d%02d%02d\nEND:VEVENT\n",
                 i, zoned ? ";TZID=America/New_York" : "", start / 3600, start / 60 % 60, start % 60, length, every,
                 counted ? "COUNT=4000" : "UNTIL=20260312T120000Z", zoned ? ";TZID=America/New_York" : "",
                 start / 3600, start / 60 % 60, start % 60);
        ics += line;
    }
    for (int i = 0; i < 6; ++i) {
        int start = int(random() % 86000);
        snprintf(line, sizeof line,
                 "BEGIN:VEVENT\nUID:o%d\nDTSTART:2026031%dT%02d%02d%02d\nDURATION:PT%dS\nEND:VEVENT\n", i,
                 int(random() % 3), start / 3600, start / 60 % 60, start % 60, int(random() % 7200));
        ics += line;
    }
    return ics;
}

// The days on which some event has more than kFloodPerDay timed starts.
std::vector<int64_t> floodedDays(const std::vector<Occurrence>& occ)
{
    std::map<std::pair<EventId, int64_t>, size_t> perDay;
    std::vector<int64_t> days;
    for (const Occurrence& o : occ)
        if (!o.allDay && ++perDay[{o.event, floorDiv(o.start, kDay)}] == size_t(DayGrid::kFloodPerDay) + 1)
            days.push_back(floorDiv(o.start, kDay));
    std::sort(days.begin(), days.end());
    days.erase(std::unique(days.begin(), days.end()), days.end());
    return days;
}

std::vector<std::pair<EventId, int64_t>> keys(const std::vector<Occurrence>& occ)
{
    std::vector<std::pair<EventId, int64_t>> k;
    for (const Occurrence& o : occ)
        k.push_back({o.event, o.start});
    std::sort(k.begin(), k.end());
    return k;
}

}  // namespace

// A list's query never walks a flooding series whole: it takes a flooded
// day's first starts and then skips from stretch to stretch, and still
// answers exactly what the list shows (each flooding series' first
// occurrence in each stretch, everything else).
TEST(Thinning, ListSkipsThroughAFloodAndShowsTheSame)
{
    std::mt19937 random(2445);
    for (int round = 0; round < 8; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Store s;
        std::vector<Problem> ps;
        ASSERT_TRUE(s.loadText(lftest::calendar(randomFloods(random, 1 + int(random() % 4), 5)), "list", &ps));
        DayGrid g;
        for (int32_t m = int32_t(random() % 1800) + 1; m < 86400; m += 600 + int32_t(random() % 3000))
            g.marks.push_back(m);
        QueryReport whole, sampled;
        std::vector<Occurrence> full =
            s.query(Zone::utc(), at("20260308"), at("20260314"), Range::HalfOpen, &whole);
        std::vector<Occurrence> list =
            s.query(Zone::utc(), at("20260308"), at("20260314"), Range::HalfOpen, &sampled, &g);
        // The list's rule, applied to the full answer.
        std::vector<Occurrence> expected;
        std::map<std::pair<EventId, int64_t>, size_t> perDay;
        for (const Occurrence& o : full)
            perDay[{o.event, floorDiv(o.start, kDay)}] += !o.allDay;
        std::map<std::tuple<EventId, int64_t, size_t>, bool> seen;
        for (const Occurrence& o : full) {
            int64_t day = floorDiv(o.start, kDay);
            if (perDay[{o.event, day}] <= size_t(DayGrid::kFloodPerDay)) {
                expected.push_back(o);
                continue;
            }
            size_t stretch = size_t(std::upper_bound(g.marks.begin(), g.marks.end(), int32_t(o.start - day * kDay)) -
                                    g.marks.begin());
            if (seen.emplace(std::make_tuple(o.event, day, stretch), true).second)
                expected.push_back(o);
        }
        EXPECT_EQ(keys(list), keys(expected));
        EXPECT_EQ(sampled.thinnedDays, floodedDays(full));
        EXPECT_LT(sampled.instancesExamined * 3, whole.instancesExamined) << "the floods were walked whole";
    }
}

// A picture's query over more floods than it can thin whole samples them:
// its answer stays small however many series flood the view, each day's bar
// reaches exactly as far as the full walk's, every event's first occurrence
// of a day (its icons) is there, and ordinary appointments are all kept.
TEST(Thinning, ManyFloodsAreSampledToTheSameReach)
{
    std::mt19937 random(1905);
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.loadText(lftest::calendar(randomFloods(random, 60, 3)), "many", &ps));
    DayGrid g = barGrid(14, 24, 34, 44);
    QueryReport whole, sampled;
    std::vector<Occurrence> full = s.query(Zone::utc(), at("20260308"), at("20260314"), Range::HalfOpen, &whole);
    ASSERT_GT(full.size(), size_t(DayGrid::kThinWholeUpTo)) << "not enough of a flood to be sampled";
    std::vector<Occurrence> thin =
        s.query(Zone::utc(), at("20260308"), at("20260314"), Range::HalfOpen, &sampled, &g);
    // About a series' first occurrence of each day, beside the bar's stretches drawn once a day.
    EXPECT_LT(thin.size(), 60u * 7 + 7 * 31 * 8) << "of " << full.size();
    EXPECT_LT(sampled.instancesExamined, whole.instancesExamined / 10);
    std::map<int64_t, Picture> a = paint(thin, g), b = paint(full, g);
    ASSERT_EQ(a.size(), b.size());
    for (auto& [day, picture] : b) {
        SCOPED_TRACE("day " + formatCivil(day * kDay, true));
        std::vector<bool> reach, fullReach;
        for (size_t x = 0; x < 28; ++x) {
            reach.push_back(a[day].pixels[x] != 0);
            fullReach.push_back(picture.pixels[x] != 0);
        }
        EXPECT_EQ(reach, fullReach);
        EXPECT_EQ(a[day].iconOrder, picture.iconOrder);
    }
    EXPECT_EQ(sampled.thinnedDays, floodedDays(full));
    for (int i = 0; i < 6; ++i) {
        std::string uid = "o" + std::to_string(i);
        for (int64_t day = at("20260308") / kDay; day < at("20260314") / kDay; ++day)
            EXPECT_EQ(countOf(s, thin, uid.c_str(), day), countOf(s, full, uid.c_str(), day)) << uid;
    }
}
