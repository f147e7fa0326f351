// The store as the calendar server uses it: queries over series with
// exceptions, bounded work, changes that touch only their own bytes, and
// saving (atomic, merging another program's changes by UID).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "helpers.h"

using namespace lfical;
using lftest::at;
using lftest::readFile;
using lftest::scratchDir;
using lftest::writeFile;
namespace fs = std::filesystem;

namespace {
std::string uids(const Store& s, const std::vector<Occurrence>& occ)
{
    std::string out;
    for (auto& o : occ)
        out += (out.empty() ? "" : " ") + s.uid(o.event) + "@" + formatCivil(o.start, o.allDay);
    return out;
}

const char* kSeries =
    "BEGIN:VEVENT\nUID:s\nDTSTART;TZID=America/New_York:20240101T090000\nDTEND;TZID=America/New_York:20240101T100000\n"
    "RRULE:FREQ=DAILY\nEXDATE;TZID=America/New_York:20240103T090000\nSUMMARY:daily\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:s\nRECURRENCE-ID;TZID=America/New_York:20240104T090000\n"
    "DTSTART;TZID=America/New_York:20240301T090000\nDTEND;TZID=America/New_York:20240301T100000\nSUMMARY:moved out\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:s\nRECURRENCE-ID;TZID=America/New_York:20240201T090000\n"
    "DTSTART;TZID=America/New_York:20240105T150000\nDTEND;TZID=America/New_York:20240105T160000\nSUMMARY:moved in\nEND:VEVENT\n"
    "BEGIN:VEVENT\nUID:r\nDTSTART:20240102T120000Z\nDURATION:PT1H\nRDATE;VALUE=PERIOD:20240104T200000Z/PT3H\n"
    "RDATE:20240105T070000Z\nEND:VEVENT\n";
}  // namespace

TEST(Query, SeriesWithExdatesOverridesAndRdates)
{
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.loadText(lftest::calendar(kSeries), "q", &ps));
    EXPECT_TRUE(ps.empty()) << ps[0].message;
    const Zone& ny = s.zone(s.zoneIndex("America/New_York"));
    auto occ = s.query(ny, at("20240101"), at("20240106"), Range::HalfOpen);
    std::string got = uids(s, occ);
    EXPECT_EQ("s@20240101T090000 r@20240102T070000 s@20240102T090000 r@20240104T150000 r@20240105T020000 "
              "s@20240105T090000 s@20240105T150000",
              got);
    // The moved-out instance shows up where it went, with its own summary.
    auto march = s.query(ny, at("20240301"), at("20240302"), Range::HalfOpen);
    ASSERT_EQ(2u, march.size());
    const Occurrence& out = march[0].event == s.findUid("s") ? march[1] : march[0];
    EXPECT_EQ("moved out", s.info(out.event).summary);
    EXPECT_EQ(s.findUid("s"), out.series);
    // The RDATE period keeps its own length.
    for (auto& o : occ) {
        if (s.uid(o.event) == "r" && o.start == at("20240104T150000")) {
            EXPECT_EQ(at("20240104T180000"), o.end);
        }
    }
    // 1 February is the moved-in instance's original slot: empty there.
    auto feb1 = s.query(ny, at("20240201"), at("20240202"), Range::HalfOpen);
    EXPECT_EQ("", uids(s, feb1));
}

TEST(Query, RangeKinds)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:a\nDTSTART:20240505T090000\nDTEND:20240505T100000\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:b\nDTSTART:20240505T100000\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:c\nDTSTART;VALUE=DATE:20240504\nEND:VEVENT\n"),
                           "r", nullptr));
    Zone z = Zone::utc();
    const struct {
        const char* name;
        const char* from;
        const char* to;
        Range range;
        const char* expect;
    } cases[] = {
        {"half-open ends before", "20240505T100000", "20240505T110000", Range::HalfOpen, "b@20240505T100000"},
        {"half-open excludes the end", "20240505T080000", "20240505T090000", Range::HalfOpen, ""},
        {"closed touches both", "20240505T100000", "20240505T110000", Range::Closed, "a@20240505T090000 b@20240505T100000"},
        {"whole days", "20240505T120000", "20240505T120000", Range::WholeDays, "a@20240505T090000 b@20240505T100000"},
        {"whole days before", "20240504T235959", "20240504T000000", Range::WholeDays, "c@20240504"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expect, uids(s, s.query(z, at(c.from), at(c.to), c.range))) << c.name;
}

TEST(Query, WorkGrowsWithTheWindowNotTheSeriesAge)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:old\nDTSTART;TZID=America/New_York:19900101T080000\n"
                                            "RRULE:FREQ=DAILY\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:sec\nDTSTART:19900101T000000Z\nRRULE:FREQ=SECONDLY\nEND:VEVENT\n"),
                           "w", nullptr));
    QueryReport rep;
    auto occ = s.query(Zone::utc(), at("20260301"), at("20260301T000100"), Range::HalfOpen, &rep);
    EXPECT_EQ(60u, occ.size());  // only the secondly series in that minute
    EXPECT_LT(rep.instancesExamined, 400u);
    rep = QueryReport();
    occ = s.query(Zone::utc(), at("20260301"), at("20260401"), Range::HalfOpen, &rep);
    EXPECT_FALSE(rep.cut.empty()) << "a month of seconds is cut and reported";
    EXPECT_EQ("sec", rep.cut[0]);
}

TEST(Query, PathologicalRulesAreBounded)
{
    const char* rules[] = {
        "FREQ=YEARLY;BYMONTH=2;BYMONTHDAY=30",
        "FREQ=SECONDLY;BYMONTH=2;BYMONTHDAY=30;COUNT=5",
        "FREQ=YEARLY;BYHOUR=0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23;BYMINUTE=0,1,2,3,4,5,6,7,8,"
        "9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31,32,33,34,35,36,37,38,39,40,41,42,43,44,"
        "45,46,47,48,49,50,51,52,53,54,55,56,57,58,59;BYSECOND=0,30;BYSETPOS=-1,1",
        "FREQ=MINUTELY;COUNT=1000000000",
        "FREQ=DAILY;BYDAY=MO;BYMONTHDAY=31;BYMONTH=2",
        "FREQ=MONTHLY;BYDAY=5MO;BYMONTH=2;INTERVAL=12",
    };
    for (const char* r : rules) {
        Store s;
        std::string text = lftest::calendar(std::string("BEGIN:VEVENT\nUID:p\nDTSTART:20240101T000000Z\nRRULE:") + r +
                                            "\nEND:VEVENT\n");
        ASSERT_TRUE(s.loadText(text, "p", nullptr)) << r;
        QueryReport rep;
        auto occ = s.query(Zone::utc(), at("20240101"), at("20300101"), Range::HalfOpen, &rep);
        EXPECT_LE(occ.size(), 200001u) << r;
        EXPECT_GE(occ.size(), 1u) << r << ": DTSTART is always the first instance";
    }
}

TEST(Query, ThisAndFutureOverrideShiftsTheRest)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:f\nDTSTART:20240101T090000Z\nDURATION:PT1H\n"
                                            "RRULE:FREQ=DAILY;COUNT=5\nSUMMARY:old\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:f\nRECURRENCE-ID;RANGE=THISANDFUTURE:20240103T090000Z\n"
                                            "DTSTART:20240103T110000Z\nDURATION:PT2H\nSUMMARY:new\nEND:VEVENT\n"),
                           "f", nullptr));
    auto occ = s.query(Zone::utc(), at("20240101"), at("20240110"), Range::HalfOpen);
    ASSERT_EQ(5u, occ.size());
    EXPECT_EQ("20240101T090000 20240102T090000 20240103T110000 20240104T110000 20240105T110000", lftest::starts(occ));
    EXPECT_EQ("new", s.info(occ[4].event).summary);
    EXPECT_EQ(occ[4].start + 7200, occ[4].end);
}

TEST(Changes, OnlyTheChangedEventsLinesChange)
{
    std::string text = lftest::calendar(std::string(kSeries) +
                                        "BEGIN:VEVENT\nUID:keep\nDTSTART:20240505T100000Z\nX-ODD;Q=\"a:b\":v\nSUMMARY:k\nEND:VEVENT\n");
    Store s;
    ASSERT_TRUE(s.loadText(text, "c", nullptr));
    EventId r = s.findUid("r");
    std::string before = s.bytes(r);
    EventEdit e;
    e.summary = std::string("New, title; with \\ and a very long tail that will need folding because it is long ") +
                "\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac";
    ASSERT_TRUE(s.edit(r, e));
    std::string after = s.texts()[0].second;
    std::string changed = s.bytes(r);
    size_t at1 = after.find(changed);
    ASSERT_NE(std::string::npos, at1);
    // Everything around the changed event is as it was.
    size_t was = text.find(before);
    EXPECT_EQ(text.substr(0, was), after.substr(0, at1));
    EXPECT_EQ(text.substr(was + before.size()), after.substr(at1 + changed.size()));
    EventInfo info = s.info(r);
    EXPECT_EQ(*e.summary, info.summary);
    EXPECT_EQ(1, info.sequence);
    EXPECT_FALSE(info.lastModified.empty());
    // Untouched lines of the changed event keep their bytes.
    EXPECT_NE(std::string::npos, changed.find("RDATE;VALUE=PERIOD:20240104T200000Z/PT3H\r\n"));
    auto occ = s.query(Zone::utc(), at("20240104"), at("20240105"), Range::HalfOpen);
    ASSERT_EQ(1u, occ.size());
    EXPECT_EQ(*e.summary, s.info(occ[0].event).summary);
}

TEST(Changes, AddDeleteExdateAndOverrideRemoval)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar(kSeries), "c", nullptr));
    const Zone& ny = s.zone(s.zoneIndex("America/New_York"));
    EventId series = s.findUid("s");
    // Deleting one occurrence adds an EXDATE.
    auto occ = s.query(ny, at("20240102T080000"), at("20240103"), Range::HalfOpen);
    ASSERT_EQ(1u, occ.size());
    ASSERT_TRUE(s.addExdate(series, occ[0].recurrenceId));
    EXPECT_EQ("", uids(s, s.query(ny, at("20240102T080000"), at("20240103"), Range::HalfOpen)));
    EXPECT_NE(std::string::npos, s.bytes(series).find("EXDATE;TZID=America/New_York:20240102T090000\r\n"));
    // Removing the moved-out override brings 4 January back.
    EventId moved = kNoEvent;
    for (EventId o : s.overridesOf(series))
        if (s.info(o).summary == "moved out")
            moved = o;
    ASSERT_NE(kNoEvent, moved);
    ASSERT_TRUE(s.removeOverride(moved));
    EXPECT_EQ("s@20240104T090000", uids(s, s.query(ny, at("20240104"), at("20240104T120000"), Range::HalfOpen)));
    EXPECT_EQ("s@20240301T090000", uids(s, s.query(ny, at("20240301"), at("20240302"), Range::HalfOpen)));
    // A new event gets a fresh UID and shows up at once.
    EventEdit add;
    add.start = Time{at("20240110"), TimeKind::Date, -1};
    add.summary = std::string("holiday");
    add.categories = std::vector<std::string>{"Off", "A,B"};
    add.alarmMinutes = 30;
    EventId id = s.add(add);
    ASSERT_NE(kNoEvent, id);
    EXPECT_NE(std::string::npos, s.uid(id).find('@'));
    EXPECT_NE(s.uid(id), s.uid(s.add(add)));
    EventInfo info = s.info(id);
    EXPECT_TRUE(info.allDay);
    EXPECT_EQ(at("20240111"), info.end.civil);
    EXPECT_EQ((std::vector<std::string>{"Off", "A,B"}), info.categories);
    EXPECT_EQ(30, info.alarmMinutes);
    EXPECT_EQ(3u, s.query(ny, at("20240110"), at("20240111"), Range::HalfOpen).size());  // two adds and the daily
    // Deleting the series takes its overrides with it.
    ASSERT_TRUE(s.remove(series));
    EXPECT_EQ("", uids(s, s.query(ny, at("20240105T140000"), at("20240105T170000"), Range::HalfOpen)));
    EXPECT_FALSE(s.edit(series, add));
    std::string text = s.texts()[0].second;
    EXPECT_EQ(std::string::npos, text.find("UID:s\r\n"));
    EXPECT_NE(std::string::npos, text.find("UID:r\r\n"));
    // The whole file still reads back cleanly.
    Store again;
    std::vector<Problem> ps;
    EXPECT_TRUE(again.loadText(text, "again", &ps));
    EXPECT_TRUE(ps.empty()) << ps[0].message;
    EXPECT_EQ(s.eventCount(), again.eventCount());
}

// A first change to one occurrence adds an override in the series' own
// form, for each kind of start a series can have.
TEST(Changes, OverrideOfOneOccurrence)
{
    const char* kAlarm = "BEGIN:VALARM\nACTION:DISPLAY\nDESCRIPTION:Reminder\nTRIGGER:-PT15M\nEND:VALARM\n";
    const struct {
        const char* name;
        std::string series;
        const char* occurrence;  // the third one, wall clock of the query zone (UTC)
        const char* rid;         // the RECURRENCE-ID line expected
        const char* start;       // the override's DTSTART line expected
        const char* end;         // ... and its DTEND or DURATION line
    } cases[] = {
        {"floating", "DTSTART:20240101T090000\nDTEND:20240101T093000\nRRULE:FREQ=DAILY;COUNT=5\n",
         "20240103T090000", "RECURRENCE-ID:20240103T090000", "DTSTART:20240103T090000", "DTEND:20240103T093000"},
        {"zoned", "DTSTART;TZID=America/New_York:20240101T090000\nDTEND;TZID=America/New_York:20240101T100000\n"
                  "RRULE:FREQ=DAILY\nEXDATE;TZID=America/New_York:20240102T090000\n",
         "20240104T140000", "RECURRENCE-ID;TZID=America/New_York:20240104T090000",
         "DTSTART;TZID=America/New_York:20240104T090000", "DTEND;TZID=America/New_York:20240104T100000"},
        {"UTC", "DTSTART:20240101T220000Z\nDURATION:PT2H\nRRULE:FREQ=WEEKLY;BYDAY=MO,WE,FR\n", "20240105T220000",
         "RECURRENCE-ID:20240105T220000Z", "DTSTART:20240105T220000Z", "DURATION:PT2H"},
        {"all-day", "DTSTART;VALUE=DATE:20240101\nDTEND;VALUE=DATE:20240102\nRRULE:FREQ=WEEKLY;UNTIL=20241231\n",
         "20240115", "RECURRENCE-ID;VALUE=DATE:20240115", "DTSTART;VALUE=DATE:20240115",
         "DTEND;VALUE=DATE:20240116"},
    };
    for (const auto& c : cases) {
        std::string text = lftest::calendar("BEGIN:VEVENT\nUID:s\nDTSTAMP:20230101T000000Z\nSEQUENCE:4\n" + c.series +
                                            "SUMMARY:series\nDESCRIPTION:a long description that is folded because "
                                            "it goes on and on past the\n  seventy-five octets of a line\n"
                                            "X-KEEP;X-P=1:kept\n" + kAlarm + "END:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:other\nDTSTART:20240103T120000Z\nSUMMARY:other\nEND:VEVENT\n");
        Store s;
        ASSERT_TRUE(s.loadText(text, "o", nullptr)) << c.name;
        EventId series = s.findUid("s");
        auto all = s.query(Zone::utc(), at("20240101"), at("20240201"), Range::HalfOpen);
        const Occurrence* third = nullptr;
        for (const auto& o : all)
            if (o.series == series && formatCivil(o.start, o.allDay) == c.occurrence)
                third = &o;
        ASSERT_NE(nullptr, third) << c.name;
        Time rid = third->recurrenceId;
        EventEdit e;
        e.summary = std::string("only this one");
        EventId ov = s.addOverride(series, rid, e);
        ASSERT_NE(kNoEvent, ov) << c.name;
        std::string bytes = s.bytes(ov);
        for (const char* line : {c.rid, c.start, c.end, "UID:s", "SUMMARY:only this one", "SEQUENCE:5",
                                 "X-KEEP;X-P=1:kept",
                                 "DESCRIPTION:a long description that is folded because it goes on and on past "
                                 "the\r\n  seventy-five octets of a line"})
            EXPECT_NE(std::string::npos, bytes.find(std::string(line) + "\r\n")) << c.name << ": " << line << "\n" << bytes;
        for (const char* gone : {"RRULE", "EXDATE", "DTSTAMP:20230101T000000Z"})
            EXPECT_EQ(std::string::npos, bytes.find(gone)) << c.name << ": " << gone;
        EXPECT_NE(std::string::npos, bytes.find("LAST-MODIFIED:")) << c.name;
        // Properties come before the alarm, which keeps its bytes.
        EXPECT_NE(std::string::npos, bytes.find("BEGIN:VALARM\r\nACTION:DISPLAY\r\nDESCRIPTION:Reminder\r\n"
                                                "TRIGGER:-PT15M\r\nEND:VALARM\r\nEND:VEVENT\r\n")) << c.name;
        EXPECT_LT(bytes.find("LAST-MODIFIED:"), bytes.find("BEGIN:VALARM")) << c.name;
        EventInfo info = s.info(ov);
        EXPECT_TRUE(info.hasRecurrenceId);
        EXPECT_EQ(rid.civil, info.recurrenceId.civil) << c.name;
        EXPECT_EQ(rid.kind, info.recurrenceId.kind) << c.name;
        // Nothing else in the file changed: the override is the only new text.
        std::string after = s.texts()[0].second;
        size_t endCal = text.rfind("END:VCALENDAR");
        EXPECT_EQ(text.substr(0, endCal) + bytes + text.substr(endCal), after) << c.name;
        // That occurrence shows the change, the others do not, before and
        // after the text is read again.
        Store again;
        ASSERT_TRUE(again.loadText(after, "again", nullptr));
        const Store* both[] = {&s, &again};
        for (const Store* st : both) {
            auto occ = st->query(Zone::utc(), at("20240101"), at("20240201"), Range::HalfOpen);
            ASSERT_EQ(all.size(), occ.size()) << c.name;
            for (size_t i = 0; i < occ.size(); ++i) {
                std::string want = all[i].series != series ? "other"
                                   : formatCivil(all[i].start, all[i].allDay) == c.occurrence ? "only this one"
                                                                                               : "series";
                EXPECT_EQ(want, st->info(occ[i].event).summary) << c.name << " at " << formatCivil(occ[i].start, false);
                EXPECT_EQ(all[i].start, occ[i].start) << c.name;
            }
        }
        // A second first change to the same occurrence is refused: the
        // override is there to be edited.
        EXPECT_EQ(kNoEvent, s.addOverride(series, rid, e)) << c.name;
    }
}

// Moving one occurrence, and what is refused.
TEST(Changes, OverrideMovesAndRefusals)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar(std::string(kSeries) +
                                            "BEGIN:VEVENT\nUID:one\nDTSTART:20240110T100000Z\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:f\nDTSTART:20240101T090000Z\nDURATION:PT1H\n"
                                            "RRULE:FREQ=DAILY;COUNT=5\nSUMMARY:old\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:f\nRECURRENCE-ID;RANGE=THISANDFUTURE:20240103T090000Z\n"
                                            "DTSTART:20240103T110000Z\nDURATION:PT2H\nSUMMARY:new\nEND:VEVENT\n"),
                           "m", nullptr));
    const Zone& ny = s.zone(s.zoneIndex("America/New_York"));
    EventId series = s.findUid("s");
    // Moved to the next day at 15:00; without an end it keeps its hour.
    EventEdit move;
    move.start = Time{at("20240107T150000"), TimeKind::Zoned, s.zoneIndex("America/New_York")};
    Time jan6{at("20240106T140000"), TimeKind::Utc, -1};  // 09:00 in New York, given in UTC
    ASSERT_NE(kNoEvent, s.addOverride(series, jan6, move));
    EXPECT_EQ("", uids(s, s.query(ny, at("20240106T080000"), at("20240106T120000"), Range::HalfOpen)));
    auto moved = s.query(ny, at("20240107T140000"), at("20240107T170000"), Range::HalfOpen);
    ASSERT_EQ(1u, moved.size());
    EXPECT_EQ(at("20240107T160000"), moved[0].end);
    EXPECT_EQ("daily", s.info(moved[0].event).summary);
    // An occurrence after a THISANDFUTURE override starts from that one.
    EventId f = s.findUid("f");
    EventEdit note;
    note.location = std::string("here");
    EventId ov = s.addOverride(f, Time{at("20240104T090000"), TimeKind::Utc, -1}, note);
    ASSERT_NE(kNoEvent, ov);
    EventInfo in = s.info(ov);
    EXPECT_EQ("new", in.summary);
    EXPECT_EQ("here", in.location);
    EXPECT_EQ(at("20240104T110000"), in.start.civil);
    EXPECT_EQ(at("20240104T130000"), in.end.civil);
    std::vector<Occurrence> ofF;
    for (const auto& o : s.query(Zone::utc(), at("20240101"), at("20240110"), Range::HalfOpen))
        if (o.series == f)
            ofF.push_back(o);
    EXPECT_EQ("20240101T090000 20240102T090000 20240103T110000 20240104T110000 20240105T110000", lftest::starts(ofF));
    // Refused: not an occurrence, a deleted one, an overridden one, a
    // single event, a rule for one occurrence.
    EventEdit e;
    e.summary = std::string("x");
    EventEdit rule = e;
    rule.rrule = std::string("FREQ=DAILY");
    const struct {
        const char* name;
        EventId id;
        Time when;
        const EventEdit& edit;
    } refused[] = {
        {"not an occurrence", series, Time{at("20240105T100000"), TimeKind::Zoned, s.zoneIndex("America/New_York")}, e},
        {"deleted by EXDATE", series, Time{at("20240103T090000"), TimeKind::Zoned, s.zoneIndex("America/New_York")}, e},
        {"already changed", series, Time{at("20240104T090000"), TimeKind::Zoned, s.zoneIndex("America/New_York")}, e},
        {"moved just now", series, jan6, e},
        {"a single event", s.findUid("one"), Time{at("20240110T100000"), TimeKind::Utc, -1}, e},
        {"a rule", series, Time{at("20240108T090000"), TimeKind::Zoned, s.zoneIndex("America/New_York")}, rule},
        {"no such event", kNoEvent, jan6, e},
    };
    std::string before = s.texts()[0].second;
    for (const auto& r : refused)
        EXPECT_EQ(kNoEvent, s.addOverride(r.id, r.when, r.edit)) << r.name;
    EXPECT_EQ(before, s.texts()[0].second);
}

TEST(Saving, AtomicSaveAndMergeWithAnotherProgramsChanges)
{
    fs::path dir = scratchDir("save");
    fs::path file = dir / "cal.ics";
    std::string original = lftest::calendar("BEGIN:VEVENT\nUID:a\nDTSTART:20240505T100000Z\nSUMMARY:A\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:b\nDTSTART:20240506T100000Z\nSUMMARY:B\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:c\nDTSTART:20240507T100000Z\nSUMMARY:C\nEND:VEVENT\n",
                                            false);
    writeFile(file, original);
    Store s;
    ASSERT_TRUE(s.load(file.string(), nullptr));
    EventEdit e;
    e.summary = std::string("A2");
    ASSERT_TRUE(s.edit(s.findUid("a"), e));
    std::vector<Problem> ps;
    EXPECT_FALSE(s.changedOnDisk());
    ASSERT_TRUE(s.save(&ps));
    EXPECT_FALSE(s.changedOnDisk()) << "our own save is not another program's change";
    std::string saved = readFile(file);
    EXPECT_NE(std::string::npos, saved.find("SUMMARY:A2\r\n"));
    EXPECT_EQ(original.substr(original.find("BEGIN:VEVENT\r\nUID:b")), saved.substr(saved.find("BEGIN:VEVENT\r\nUID:b")));
    EXPECT_FALSE(fs::exists(file.string() + ".lf-saving"));
    // Another program changes b and c; we change b and delete... a.
    std::string theirs = saved;
    theirs.replace(theirs.find("SUMMARY:B"), 9, "SUMMARY:B-theirs");
    theirs.replace(theirs.find("SUMMARY:C"), 9, "SUMMARY:C-theirs");
    writeFile(file, theirs);
    EXPECT_TRUE(s.changedOnDisk());
    EventEdit mine;
    mine.summary = std::string("B-mine");
    ASSERT_TRUE(s.edit(s.findUid("b"), mine));
    ASSERT_TRUE(s.remove(s.findUid("a")));
    std::vector<std::string> conflicts;
    ps.clear();
    ASSERT_TRUE(s.save(&ps, &conflicts));
    std::string merged = readFile(file);
    EXPECT_EQ(std::vector<std::string>{"b"}, conflicts);
    EXPECT_NE(std::string::npos, merged.find("SUMMARY:B-theirs"));
    EXPECT_NE(std::string::npos, merged.find("SUMMARY:C-theirs"));
    EXPECT_EQ(std::string::npos, merged.find("UID:a\r\n"));
    // Ours lost the conflict on b and is kept beside it under a new UID.
    EXPECT_NE(std::string::npos, merged.find("SUMMARY:B-mine"));
    EXPECT_EQ(3u, s.eventCount());
    EXPECT_EQ("B-theirs", s.info(s.findUid("b")).summary);
    EXPECT_EQ("C-theirs", s.info(s.findUid("c")).summary);
    EXPECT_FALSE(s.changedOnDisk());
    fs::remove_all(dir);
}

TEST(Saving, NewEmptyStoreIsWrittenOnFirstSave)
{
    fs::path dir = scratchDir("new");
    fs::path file = dir / "calendar.ics";
    Store s;
    s.create(file.string());
    EventEdit e;
    e.start = Time{at("20240505T100000"), TimeKind::Utc, -1};
    e.end = Time{at("20240505T110000"), TimeKind::Utc, -1};
    e.summary = std::string("first");
    ASSERT_NE(kNoEvent, s.add(e));
    ASSERT_TRUE(s.save(nullptr));
    Store again;
    std::vector<Problem> ps;
    ASSERT_TRUE(again.load(file.string(), &ps));
    EXPECT_TRUE(ps.empty()) << ps[0].message;
    ASSERT_EQ(1u, again.eventCount());
    EXPECT_EQ("first", again.info(again.events()[0]).summary);
    std::string text = readFile(file);
    EXPECT_EQ(0u, text.find("BEGIN:VCALENDAR\r\nVERSION:2.0\r\n"));
    EXPECT_NE(std::string::npos, text.find("DTSTART:20240505T100000Z\r\n"));
    fs::remove_all(dir);
}

TEST(Saving, UnreadableFilesAreNeverOverwritten)
{
    fs::path dir = scratchDir("trunc");
    fs::path file = dir / "cal.ics";
    std::string cut = "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:a\r\nDTSTART:20240505\r\nEND:VEVENT\r\nBEGIN:VEV";
    writeFile(file, cut);
    Store s;
    EXPECT_FALSE(s.load(file.string(), nullptr));
    EventEdit e;
    e.summary = std::string("x");
    EXPECT_FALSE(s.edit(s.findUid("a"), e));
    e.start = Time{at("20240505"), TimeKind::Date, -1};
    EXPECT_EQ(kNoEvent, s.add(e));
    s.save(nullptr);
    EXPECT_EQ(cut, readFile(file));
    EXPECT_FALSE(s.load((dir / "missing.ics").string(), nullptr));
    fs::remove_all(dir);
}

TEST(Saving, DirectoryStoreHasOneFilePerEvent)
{
    fs::path dir = scratchDir("vdir");
    writeFile(dir / "one.ics", lftest::calendar("BEGIN:VEVENT\nUID:1\nDTSTART;TZID=America/New_York:20240505T100000\nEND:VEVENT\n"));
    writeFile(dir / "two.ICS", lftest::calendar("BEGIN:VEVENT\nUID:2\nDTSTART:20240506\nEND:VEVENT\n", false));
    writeFile(dir / "notes.txt", "not a calendar");
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    EXPECT_EQ(2u, s.eventCount());
    EventEdit e;
    e.start = Time{at("20240507T100000"), TimeKind::Zoned, s.zoneIndex("America/New_York")};
    e.summary = std::string("new");
    EventId id = s.add(e);
    ASSERT_NE(kNoEvent, id);
    ASSERT_TRUE(s.remove(s.findUid("2")));
    ASSERT_TRUE(s.save(nullptr));
    EXPECT_FALSE(fs::exists(dir / "two.ICS"));
    EXPECT_FALSE(s.changedOnDisk());
    writeFile(dir / "three.ics", lftest::calendar("BEGIN:VEVENT\nUID:3\nDTSTART:20240508\nEND:VEVENT\n", false));
    EXPECT_TRUE(s.changedOnDisk()) << "a file another program added";
    Store again;
    ASSERT_TRUE(again.load(dir.string(), nullptr));
    EXPECT_EQ(3u, again.eventCount());
    EventId copy = again.findUid(s.uid(id));
    ASSERT_NE(kNoEvent, copy);
    // The new file carries its own VTIMEZONE, so the zone survives.
    EXPECT_EQ(TimeKind::Zoned, again.info(copy).start.kind);
    fs::remove_all(dir);
}

// An event's categories read from its text alone are what decoding it whole
// gives: folded lines, parameters, escapes, several lines, a lower-case
// name, names inside an alarm (not the event's), an END closing nothing,
// line ends CRLF or LF, and an event changed since it was read.
TEST(StoreCategories, ReadAloneAsDecodedWhole)
{
    const std::string body =
        "BEGIN:VEVENT\nUID:plain\nDTSTART:20240505T090000\nCATEGORIES:Business,Personal\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:none\nDTSTART:20240505T090000\nSUMMARY:CATEGORIES:not one\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:folded\nDTSTART:20240505T090000\nCATEGORIES;LANGUAGE=en:Trav\n el,Hol\n\tiday\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:escaped\nDTSTART:20240505T090000\ncategories:a\\,b,c\\;d\nCATEGORIES:Second\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:quoted\nDTSTART:20240505T090000\nCATEGORIES;X-NOTE=\"a:b\":Quoted\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:alarm\nDTSTART:20240505T090000\nBEGIN:VALARM\nACTION:DISPLAY\nCATEGORIES:Inner\n"
        "END:VALARM\nEND:VTODO\nCATEGORIES:Outer\nEND:VEVENT\n";
    std::string crlf = lftest::calendar(body), lf;
    for (char c : crlf)
        if (c != '\r')
            lf += c;
    const std::map<std::string, std::vector<std::string>> expected = {
        {"plain", {"Business", "Personal"}}, {"none", {}},          {"folded", {"Travel", "Holiday"}},
        {"escaped", {"a,b", "c;d", "Second"}}, {"quoted", {"Quoted"}}, {"alarm", {"Outer"}},
    };
    for (const auto& [name, text] : {std::pair<std::string, std::string>{"CRLF", crlf}, {"LF", lf}}) {
        Store s;
        std::vector<Problem> ps;
        ASSERT_TRUE(s.loadText(text, "c", &ps)) << name;
        ASSERT_EQ(s.events().size(), expected.size()) << name;
        for (EventId id : s.events()) {
            std::string uid = s.uid(id);
            EXPECT_EQ(s.categories(id), s.info(id).categories) << name << " " << uid;
            EXPECT_EQ(s.categories(id), expected.at(uid)) << name << " " << uid;
        }
        EventEdit edit;
        edit.categories = std::vector<std::string>{"Changed", "x,y"};
        EventId plain = s.findUid("plain");
        ASSERT_TRUE(s.edit(plain, edit)) << name;
        EXPECT_EQ(s.categories(plain), (std::vector<std::string>{"Changed", "x,y"})) << name << " after an edit";
        EXPECT_EQ(s.categories(plain), s.info(plain).categories) << name << " after an edit";
    }
    EXPECT_TRUE(Store().categories(0).empty()) << "no such event";
}
