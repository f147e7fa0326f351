// Time zones from every source the server has: VTIMEZONE, zoneinfo,
// POSIX rules and Windows' TIME_ZONE_INFORMATION.
#include <gtest/gtest.h>

#include "helpers.h"

using namespace lfical;
using lftest::at;

namespace {
struct Conv {
    const char* name;
    const char* local;
    const char* utc;
};

void checkToUtc(const Zone& z, std::initializer_list<Conv> cases)
{
    for (const Conv& c : cases)
        EXPECT_EQ(formatCivil(at(c.utc), false), formatCivil(z.toUtc(at(c.local)), false)) << z.name << ": " << c.name;
}
}  // namespace

TEST(Zones, VtimezoneGapMovesForwardAndOverlapTakesTheFirst)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar(""), "z", nullptr));
    const Zone& ny = s.zone(s.zoneIndex("America/New_York"));
    checkToUtc(ny, {
                       {"winter", "20070101T120000", "20070101T170000"},
                       {"summer", "20070701T120000", "20070701T160000"},
                       {"before the gap", "20070311T015959", "20070311T065959"},
                       {"in the gap", "20070311T023000", "20070311T073000"},
                       {"after the gap", "20070311T030000", "20070311T070000"},
                       {"overlap is the first", "20071104T013000", "20071104T053000"},
                       {"after the overlap", "20071104T020000", "20071104T070000"},
                       {"old rules (April)", "19970406T030000", "19970406T070000"},
                       {"old rules (October)", "19971026T013000", "19971026T053000"},
                   });
    EXPECT_EQ(at("20071104T013000"), ny.fromUtc(at("20071104T063000")));  // second 01:30, in EST
}

TEST(Zones, ObservancesByRdateAndSingleOnset)
{
    // A zone described by explicit change dates, and one by a single onset
    // (a fixed offset since 1970), as some exporters write them.
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar(
                               "BEGIN:VTIMEZONE\nTZID:Listed\n"
                               "BEGIN:STANDARD\nDTSTART:20231029T030000\nRDATE:20241027T030000\n"
                               "TZOFFSETFROM:+0200\nTZOFFSETTO:+0100\nEND:STANDARD\n"
                               "BEGIN:DAYLIGHT\nDTSTART:20240331T020000\nRDATE:20250330T020000\n"
                               "TZOFFSETFROM:+0100\nTZOFFSETTO:+0200\nEND:DAYLIGHT\nEND:VTIMEZONE\n"
                               "BEGIN:VTIMEZONE\nTZID:Fixed\nBEGIN:STANDARD\nDTSTART:19700101T000000\n"
                               "TZOFFSETFROM:+0530\nTZOFFSETTO:+0530\nEND:STANDARD\nEND:VTIMEZONE\n",
                               false),
                           "z", nullptr));
    const Zone& listed = s.zone(s.zoneIndex("Listed"));
    checkToUtc(listed, {
                           {"winter", "20240115T120000", "20240115T110000"},
                           {"summer", "20240715T120000", "20240715T100000"},
                           {"in the gap", "20240331T023000", "20240331T013000"},
                           {"overlap is the first", "20241027T023000", "20241027T003000"},
                           {"summer 2025", "20250715T120000", "20250715T100000"},
                       });
    const Zone& fixed = s.zone(s.zoneIndex("Fixed"));
    checkToUtc(fixed, {{"any day", "20240715T120000", "20240715T063000"}});
}

TEST(Zones, ZoneinfoPosixAndWindowsRulesAgree)
{
    Zone berlin;
    std::string err;
    ASSERT_TRUE(Zone::fromIana("Europe/Berlin", berlin, err)) << err;
    Zone posix;
    ASSERT_TRUE(Zone::fromPosix("CET-1CEST,M3.5.0,M10.5.0/3", "cet", posix, err)) << err;
    WindowsZoneInfo w;
    w.bias = -60;
    w.daylightBias = -60;
    w.standardDate.month = 10; w.standardDate.day = 5; w.standardDate.hour = 3;
    w.daylightDate.month = 3; w.daylightDate.day = 5; w.daylightDate.hour = 2;
    w.name = "W. Europe";
    Zone win = Zone::fromWindows(w);
    for (const Zone* z : {&berlin, &posix, &win}) {
        checkToUtc(*z, {
                           {"winter", "20240115T120000", "20240115T110000"},
                           {"summer", "20240715T120000", "20240715T100000"},
                           {"in the gap", "20240331T023000", "20240331T013000"},
                           {"overlap is the first", "20241027T023000", "20241027T003000"},
                           {"after the overlap", "20241027T030000", "20241027T020000"},
                           {"far future summer", "21500715T120000", "21500715T100000"},
                       });
    }
    EXPECT_EQ(3600, berlin.offsetAtUtc(at("19800101")));
}

// The indexed lookups against a walk over every transition, at each
// transition and a second either side, for zones with few transitions, with
// decades of them, and with zoneinfo's far-past sentinels.
TEST(Zones, LookupsAgreeWithAWalkOverTheTransitions)
{
    std::string err;
    Zone berlin, posix, few = Zone::fixed(3600, "few");
    ASSERT_TRUE(Zone::fromIana("Europe/Berlin", berlin, err)) << err;
    ASSERT_TRUE(Zone::fromPosix("AEST-10AEDT,M10.1.0,M4.1.0/3", "sydney", posix, err)) << err;
    few.transitions = {{at("20000326T010000"), 7200, true}, {at("20001029T010000"), 3600, false}};
    few.finish();
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar(""), "z", nullptr));
    const Zone* zones[] = {&berlin, &posix, &few, &s.zone(s.zoneIndex("America/New_York"))};
    for (const Zone* z : zones) {
        ASSERT_FALSE(z->transitions.empty()) << z->name;
        auto offsetWalk = [&](int64_t utc) {
            int32_t off = z->initialOffset;
            for (const Transition& t : z->transitions)
                if (t.utc <= utc)
                    off = t.offset;
            return off;
        };
        auto toUtcWalk = [&](int64_t local) {
            int32_t prev = z->initialOffset;
            int64_t key = INT64_MIN;
            for (const Transition& t : z->transitions) {
                key = std::max(key, t.utc + std::max(prev, t.offset));
                if (key > local)
                    return local - prev;
                prev = t.offset;
            }
            return local - prev;
        };
        for (const Transition& t : z->transitions) {
            for (int64_t d : {-86400, -1, 0, 1, 3599, 3600, 86400}) {
                int64_t u = t.utc + d;
                ASSERT_EQ(offsetWalk(u), z->offsetAtUtc(u)) << z->name << " at " << u;
                int64_t l = t.utc + t.offset + d;
                ASSERT_EQ(toUtcWalk(l), z->toUtc(l)) << z->name << " at local " << l;
            }
        }
    }
}

TEST(Zones, SouthernHemisphereWindowsRules)
{
    WindowsZoneInfo w;  // AUS Eastern Standard Time
    w.bias = -600;
    w.daylightBias = -60;
    w.standardDate.month = 4; w.standardDate.day = 1; w.standardDate.hour = 3;
    w.daylightDate.month = 10; w.daylightDate.day = 1; w.daylightDate.hour = 2;
    Zone z = Zone::fromWindows(w);
    EXPECT_EQ(11 * 3600, z.offsetAtUtc(at("20240115")));
    EXPECT_EQ(10 * 3600, z.offsetAtUtc(at("20240715")));
    WindowsZoneInfo none;  // no daylight time at all
    none.bias = 300;
    EXPECT_EQ(-5 * 3600, Zone::fromWindows(none).offsetAtUtc(at("20240715")));
}

TEST(Zones, BadZoneDataIsRefused)
{
    std::string berlinBytes;
    Zone z;
    std::string err;
    const std::string bad[] = {"", "TZif", "garbage that is long enough to pass a size check for a header....",
                               std::string("TZif2") + std::string(39, '\0') + "\xff\xff\xff\xff"};
    for (const std::string& b : bad) {
        EXPECT_FALSE(Zone::fromTzif(b, "bad", z, err)) << b.size();
        EXPECT_FALSE(err.empty());
    }
    EXPECT_FALSE(Zone::fromIana("../../etc/passwd", z, err));
    EXPECT_FALSE(Zone::fromIana("No/Such_Zone", z, err));
    EXPECT_FALSE(Zone::fromPosix("CET-1CEST,M13.5.0,M10.5.0", "x", z, err));
}

TEST(Zones, AllDayEventsStayOnTheirDaysInEveryZone)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:d\nDTSTART;VALUE=DATE:20240505\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:u\nDTSTART:20240505T120000Z\nEND:VEVENT\n"),
                           "z", nullptr));
    for (int h = -12; h <= 14; ++h) {
        Zone z = Zone::fixed(h * 3600, "fixed");
        auto occ = s.query(z, at("20240505"), at("20240506"), Range::HalfOpen);
        bool sawDay = false;
        for (auto& o : occ) {
            if (s.uid(o.event) == "d") {
                sawDay = true;
                EXPECT_EQ(at("20240505"), o.start) << h;
                EXPECT_EQ(at("20240506"), o.end) << h;
                EXPECT_TRUE(o.allDay);
            } else {
                EXPECT_EQ(at("20240505T120000") + h * 3600, o.start) << h;
            }
        }
        EXPECT_TRUE(sawDay) << h;
    }
}

// The table built into the engine against the system's zoneinfo it was
// made from: every zone and link, at every transition from 1970 to 2037
// and the second before it, from either side's list of transitions.
TEST(BuiltInZones, EveryZoneMatchesTheSystemZoneinfoFrom1970To2037)
{
    const std::vector<std::string> names = Zone::builtInNames();
    EXPECT_GT(names.size(), 500u);
    const int64_t from = at("19700101"), to = at("20380101");
    size_t compared = 0;
    for (const std::string& name : names) {
        Zone table, system;
        std::string err;
        ASSERT_TRUE(Zone::fromBuiltIn(name, table)) << name;
        EXPECT_EQ(name, table.name);
        ASSERT_TRUE(Zone::fromIana(name, system, err, "/usr/share/zoneinfo")) << name << ": " << err;
        for (const Zone* z : {&system, &table}) {
            for (const Transition& t : z->transitions) {
                if (t.utc < from || t.utc >= to)
                    continue;
                for (int64_t u : {t.utc - 1, t.utc}) {
                    ASSERT_EQ(system.offsetAtUtc(u), table.offsetAtUtc(u))
                        << name << " at " << formatCivil(u, false) << "Z";
                    ++compared;
                }
            }
        }
        ASSERT_EQ(system.offsetAtUtc(from), table.offsetAtUtc(from)) << name;
    }
    printf("[          ] %zu zones and links of tzdata %s, %zu instants compared\n", names.size(),
           Zone::builtInVersion(), compared);
    // Every Windows name CLDR maps resolves, and a few map where Windows puts them.
    const char* windows[][2] = {{"W. Europe Standard Time", "Europe/Berlin"},
                                {"Eastern Standard Time", "America/New_York"},
                                {"AUS Eastern Standard Time", "Australia/Sydney"},
                                {"India Standard Time", "Asia/Calcutta"},
                                {"UTC", "Etc/UTC"}};
    for (auto& w : windows) {
        Zone byWindows, byIana;
        ASSERT_TRUE(Zone::fromBuiltIn(w[0], byWindows)) << w[0];
        ASSERT_TRUE(Zone::fromBuiltIn(w[1], byIana)) << w[1];
        for (int64_t t = at("20200101"); t < at("20300101"); t += 7 * kDay)
            ASSERT_EQ(byIana.offsetAtUtc(t), byWindows.offsetAtUtc(t)) << w[0];
    }
}
