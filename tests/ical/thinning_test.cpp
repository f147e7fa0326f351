// Queries with a day grid: what the reader could not show of an event that
// floods a day is left out, the reader's picture stays the same, and
// nothing else is ever left out.
#include <gtest/gtest.h>

#include <map>
#include <random>

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

std::map<int64_t, Picture> paint(const std::vector<Occurrence>& occ, const DayGrid& g)
{
    std::map<int64_t, Picture> days;
    int64_t prevDay = INT64_MIN;
    int64_t prevEnd = 0;
    for (const Occurrence& o : occ) {
        int64_t day = floorDiv(o.start, kDay);
        Picture& p = days[day];
        if (std::find(p.iconOrder.begin(), p.iconOrder.end(), o.event) == p.iconOrder.end())
            p.iconOrder.push_back(o.event);
        if (o.allDay)
            continue;
        int64_t s = o.start - day * kDay, e = o.end - day * kDay;
        auto bar = [&](int from, int to, int colour) {
            int width = to - from > 1 ? to - from : 1;
            for (int x = from; x < from + width && x < 28; ++x)
                p.pixels[size_t(x)] = colour;
        };
        int p1 = pixelOf(g, g.startPixel, s);
        bar(p1, pixelOf(g, g.endPixel, e), 1);
        bool marked = prevDay == day && prevEnd > s;
        if (marked)
            bar(p1, pixelOf(g, g.endPixel, prevEnd), 2);
        prevDay = day;
        if (!marked)
            prevEnd = e;
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
    // The 12th floods too, but a trip from the 11th reaches into it.
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
        // Only the flooding events lost occurrences, and not on the 12th.
        for (const char* uid : {"meeting", "short", "allday", "trip", "hourly"})
            for (int64_t day = at("20260301") / kDay; day < at("20260401") / kDay; ++day)
                EXPECT_EQ(countOf(s, thin, uid, day), countOf(s, full, uid, day)) << uid;
        EXPECT_EQ(countOf(s, thin, "late", at("20260312") / kDay), 600u);
        EXPECT_EQ(rep.thinnedDays, (std::vector<int64_t>{at("20260309") / kDay, at("20260310") / kDay}));
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
