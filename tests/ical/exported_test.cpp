// Calendars as other programs export them: zones named without their
// VTIMEZONE, files holding a bare VEVENT, one event written out twice, and
// rules whose instances fall at the edges of a year.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "helpers.h"

using namespace lfical;
using lftest::at;
using lftest::readFile;
using lftest::scratchDir;
using lftest::writeFile;
namespace fs = std::filesystem;

namespace {
bool mentions(const std::vector<Problem>& ps, const std::string& what)
{
    for (const Problem& p : ps)
        if (p.message.find(what) != std::string::npos)
            return true;
    return false;
}

// One named-zone case: a wall clock in a zone given only by name, and the
// instant every other calendar shows it at.
struct Named {
    const char* what;
    const char* tzid;
    const char* local;
    const char* utc;
};

const Named kNamed[] = {
    {"southern, no daylight time", "Australia/Brisbane", "20240115T090000", "20240114T230000"},
    {"southern summer", "Australia/Sydney", "20240115T090000", "20240114T220000"},
    {"southern winter", "Australia/Sydney", "20240715T090000", "20240714T230000"},
    {"southern fall back: the first 02:30", "Australia/Sydney", "20240407T023000", "20240406T153000"},
    {"southern spring forward: in the gap", "Australia/Sydney", "20241006T023000", "20241005T163000"},
    {"northern winter", "America/New_York", "20240115T090000", "20240115T140000"},
    {"northern spring forward: in the gap", "America/New_York", "20240310T023000", "20240310T073000"},
    {"northern fall back: the first 01:30", "America/New_York", "20241103T013000", "20241103T053000"},
    {"half-hour zone", "Asia/Kolkata", "20240715T090000", "20240715T033000"},
    {"alias", "US/Eastern", "20240715T090000", "20240715T130000"},
    {"old name of a zone", "Asia/Calcutta", "20240115T090000", "20240115T033000"},
    {"any case", "europe/berlin", "20240715T090000", "20240715T070000"},
    {"vendor prefix", "/mozilla.org/20050126_1/America/New_York", "20240715T090000", "20240715T130000"},
    {"vendor prefix, deeper", "/freeassociation.sourceforge.net/Tzfile/Europe/London", "20240715T090000",
     "20240715T080000"},
    {"Windows name", "W. Europe Standard Time", "20240115T090000", "20240115T080000"},
    {"Windows name, southern", "AUS Eastern Standard Time", "20240115T090000", "20240114T220000"},
    {"Windows name, northern DST", "Pacific Standard Time", "20240715T090000", "20240715T160000"},
};

std::string quoted(const char* tzid)
{
    std::string s = tzid;
    return s.find_first_of(":;,") == std::string::npos ? s : "\"" + s + "\"";
}
}  // namespace

TEST(NamedZones, ResolveThroughTheBuiltInTable)
{
    std::string body;
    for (size_t i = 0; i < sizeof kNamed / sizeof kNamed[0]; ++i)
        body += "BEGIN:VEVENT\nUID:n" + std::to_string(i) + "\nDTSTAMP:20240101T000000Z\nDTSTART;TZID=" +
                quoted(kNamed[i].tzid) + ":" + kNamed[i].local + "\nDURATION:PT1H\nEND:VEVENT\n";
    body += "BEGIN:VEVENT\nUID:unknown\nDTSTART;TZID=Mars/Olympus:20240115T090000\nEND:VEVENT\n";
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.loadText(lftest::calendar(body, false), "named", &ps));
    ASSERT_EQ(1u, ps.size()) << ps[0].message;
    EXPECT_TRUE(mentions(ps, "Mars/Olympus")) << ps[0].message;
    for (size_t i = 0; i < sizeof kNamed / sizeof kNamed[0]; ++i) {
        const Named& c = kNamed[i];
        EventInfo e = s.info(s.findUid("n" + std::to_string(i)));
        ASSERT_EQ(TimeKind::Zoned, e.start.kind) << c.what;
        auto occ = s.query(Zone::utc(), at(c.utc), at(c.utc) + 1, Range::HalfOpen);
        bool found = false;
        for (auto& o : occ)
            found = found || (s.uid(o.event) == "n" + std::to_string(i) && o.start == at(c.utc));
        EXPECT_TRUE(found) << c.what << " (" << c.tzid << "): not at " << c.utc << "Z";
        EXPECT_NE(-1, s.zoneIndex(c.tzid)) << c.what;
    }
    // An unknown name stays floating: the wall clock as written in every zone.
    Zone tokyo;
    ASSERT_TRUE(Zone::fromBuiltIn("Asia/Tokyo", tokyo));
    auto occ = s.query(tokyo, at("20240115T090000"), at("20240115T090001"), Range::HalfOpen);
    ASSERT_EQ(1u, occ.size());
    EXPECT_EQ("unknown", s.uid(occ[0].event));
    EXPECT_TRUE(occ[0].floating);
    // The names map to the zones they stand for.
    EXPECT_EQ("Europe/Berlin", Zone::builtInName("W. Europe Standard Time"));
    EXPECT_EQ("America/New_York", Zone::builtInName("/mozilla.org/20050126_1/America/New_York"));
    EXPECT_EQ("US/Eastern", Zone::builtInName("us/eastern"));
    for (const char* bad : {"", "/", "Mars/Olympus", "/vendor/Mars/Olympus", "America/", "W. Europe"})
        EXPECT_EQ("", Zone::builtInName(bad)) << bad;
}

// A zone whose rules changed while a series ran: the US moved its daylight
// time forward in 2007, and Moscow kept summer time from 2011 and went back
// to +3 in 2014. Each instance uses the rules of its own date.
TEST(NamedZones, SeriesAcrossAChangeOfTheZonesRules)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:us\nDTSTART;TZID=America/New_York:20050320T090000\n"
                                            "DURATION:PT1H\nRRULE:FREQ=YEARLY;COUNT=4\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:moscow\nDTSTART;TZID=Europe/Moscow:20100115T120000\n"
                                            "DURATION:PT1H\nRRULE:FREQ=YEARLY;COUNT=6\nEND:VEVENT\n",
                                            false),
                           "rules", nullptr));
    auto starts = [&](const char* uid) {
        std::string out;
        for (auto& o : s.query(Zone::utc(), at("20000101"), at("20300101"), Range::HalfOpen))
            if (s.uid(o.event) == uid)
                out += (out.empty() ? "" : " ") + formatCivil(o.start, false);
        return out;
    };
    EXPECT_EQ("20050320T140000 20060320T140000 20070320T130000 20080320T130000", starts("us"));
    EXPECT_EQ("20100115T090000 20110115T090000 20120115T080000 20130115T080000 20140115T080000 20150115T090000",
              starts("moscow"));
}

// A VTIMEZONE in the file wins over the table, wherever in the file it is;
// a changed time keeps the TZID it was written with and the file gains no
// VTIMEZONE it did not have.
TEST(NamedZones, TheFilesOwnDefinitionWinsAndEditsKeepTheName)
{
    const std::string fixedBerlin =
        "BEGIN:VTIMEZONE\nTZID:Europe/Berlin\nBEGIN:STANDARD\nDTSTART:19700101T000000\n"
        "TZOFFSETFROM:+0530\nTZOFFSETTO:+0530\nEND:STANDARD\nEND:VTIMEZONE\n";
    const std::string event = "BEGIN:VEVENT\nUID:b\nDTSTART;TZID=Europe/Berlin:20240715T090000\nEND:VEVENT\n";
    for (bool zoneFirst : {true, false}) {
        Store s;
        std::vector<Problem> ps;
        ASSERT_TRUE(s.loadText(lftest::calendar(zoneFirst ? fixedBerlin + event : event + fixedBerlin, false), "own", &ps));
        EXPECT_TRUE(ps.empty()) << ps[0].message;
        auto occ = s.query(Zone::utc(), at("20240715"), at("20240716"), Range::HalfOpen);
        ASSERT_EQ(1u, occ.size());
        EXPECT_EQ(at("20240715T033000"), occ[0].start) << zoneFirst;
    }

    fs::path dir = scratchDir("named");
    fs::path file = dir / "b.ics";
    const std::string text = lftest::calendar(
        "BEGIN:VEVENT\nUID:b\nDTSTAMP:20240101T000000Z\nDTSTART;TZID=Australia/Brisbane:20240715T090000\n"
        "DTEND;TZID=Australia/Brisbane:20240715T100000\nSUMMARY:call\nEND:VEVENT\n",
        false);
    writeFile(file, text);
    Store s;
    ASSERT_TRUE(s.load(file.string(), nullptr));
    EventId id = s.findUid("b");
    EventEdit ed;
    Time start = s.info(id).start;
    start.civil = at("20240716T140000");
    ed.start = start;
    ASSERT_TRUE(s.edit(id, ed));
    ASSERT_TRUE(s.save(nullptr));
    std::string saved = readFile(file);
    EXPECT_NE(std::string::npos, saved.find("DTSTART;TZID=Australia/Brisbane:20240716T140000")) << saved;
    EXPECT_EQ(std::string::npos, saved.find("VTIMEZONE")) << saved;
    Store again;
    ASSERT_TRUE(again.load(file.string(), nullptr));
    auto occ = again.query(Zone::utc(), at("20240716"), at("20240717"), Range::HalfOpen);
    ASSERT_EQ(1u, occ.size());
    EXPECT_EQ(at("20240716T040000"), occ[0].start);
    fs::remove_all(dir);
}

TEST(BareEvents, ASingleFileReadsAsWrappedAndIsWrittenWrapped)
{
    fs::path dir = scratchDir("bare");
    fs::path file = dir / "one.ics";
    // LF line ends and no line end at the very end, as a hand-written file has.
    const std::string bare = "BEGIN:VEVENT\nUID:bare-1\nDTSTAMP:20240101T000000Z\nDTSTART:20240510T100000Z\n"
                             "DTEND:bogus\nSUMMARY:bare\nEND:VEVENT";
    writeFile(file, bare);
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.load(file.string(), &ps));
    ASSERT_TRUE(mentions(ps, "no VCALENDAR around")) << (ps.empty() ? "" : ps[0].message);
    bool lineKept = false;
    for (auto& p : ps)
        lineKept = lineKept || (p.message.find("bogus") != std::string::npos && p.line == 5);
    EXPECT_TRUE(lineKept) << "problems keep the file's own line numbers";
    auto occ = s.query(Zone::utc(), at("20240510"), at("20240511"), Range::HalfOpen);
    ASSERT_EQ(1u, occ.size());
    EXPECT_EQ("bare", s.info(occ[0].event).summary);
    // Unchanged, nothing is written: the file stays as its program wrote it.
    ASSERT_TRUE(s.save(nullptr));
    EXPECT_EQ(bare, readFile(file));
    ASSERT_EQ(1u, s.texts().size());
    EXPECT_EQ(bare, s.texts()[0].second) << "and its text is the file's own";
    // Changed, it is written with its VCALENDAR, and adding works too.
    EventEdit ed;
    ed.summary = "changed";
    ASSERT_TRUE(s.edit(occ[0].event, ed));
    EventEdit add;
    Time t;
    t.kind = TimeKind::Utc;
    t.civil = at("20240511T100000");
    add.start = t;
    add.summary = "added";
    ASSERT_NE(kNoEvent, s.add(add));
    ASSERT_TRUE(s.save(nullptr));
    std::string saved = readFile(file);
    EXPECT_EQ(0u, saved.find("BEGIN:VCALENDAR\r\n")) << saved;
    EXPECT_EQ(saved.size() - 15, saved.rfind("END:VCALENDAR\r\n")) << saved;
    Store again;
    ps.clear();
    ASSERT_TRUE(again.load(file.string(), &ps));
    EXPECT_FALSE(mentions(ps, "no VCALENDAR"));
    EXPECT_EQ("changed", again.info(again.findUid("bare-1")).summary);
    EXPECT_EQ(2u, again.eventCount());
    fs::remove_all(dir);
}

TEST(BareEvents, ADirectoryStoreHoldingOne)
{
    fs::path dir = scratchDir("baredir");
    const std::string bare = "\xEF\xBB\xBF\r\nBEGIN:VEVENT\r\nUID:bare-2\r\nDTSTART;TZID=Europe/Paris:20240612T090000\r\n"
                             "SUMMARY:bare\r\nEND:VEVENT\r\n";
    const std::string wrapped = lftest::calendar("BEGIN:VEVENT\nUID:w\nDTSTART:20240612T120000Z\nSUMMARY:wrapped\nEND:VEVENT\n", false);
    writeFile(dir / "bare-2.ics", bare);
    writeFile(dir / "w.ics", wrapped);
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    auto occ = s.query(Zone::utc(), at("20240612"), at("20240613"), Range::HalfOpen);
    ASSERT_EQ(2u, occ.size());
    EXPECT_EQ("bare-2", s.uid(occ[0].event));
    EXPECT_EQ(at("20240612T070000"), occ[0].start);  // Paris in summer, from the table
    EventEdit ed;
    ed.summary = "changed";
    ASSERT_TRUE(s.edit(occ[0].event, ed));
    ASSERT_TRUE(s.save(nullptr));
    std::string saved = readFile(dir / "bare-2.ics");
    EXPECT_EQ(0u, saved.find("\xEF\xBB\xBF" "BEGIN:VCALENDAR\r\n")) << saved;
    EXPECT_NE(std::string::npos, saved.find("SUMMARY:changed"));
    EXPECT_NE(std::string::npos, saved.find("END:VCALENDAR\r\n"));
    EXPECT_EQ(wrapped, readFile(dir / "w.ics"));
    // Removing it leaves no bare file behind either.
    Store again;
    ASSERT_TRUE(again.load(dir.string(), nullptr));
    EXPECT_EQ("changed", again.info(again.findUid("bare-2")).summary);
    ASSERT_TRUE(again.remove(again.findUid("bare-2")));
    ASSERT_TRUE(again.save(nullptr));
    EXPECT_FALSE(fs::exists(dir / "bare-2.ics"));
    fs::remove_all(dir);
}

TEST(DuplicateUids, TheLatestRevisionIsShownAndTheOthersKept)
{
    struct Case {
        const char* what;
        std::vector<std::string> copies;  // extra properties of each copy, in file order
        const char* shown;
    } cases[] = {
        {"highest SEQUENCE", {"SEQUENCE:1\nDTSTAMP:20240301T000000Z", "SEQUENCE:3\nDTSTAMP:20240101T000000Z",
                              "SEQUENCE:2\nDTSTAMP:20240401T000000Z"}, "1"},
        {"same SEQUENCE: latest DTSTAMP", {"SEQUENCE:2\nDTSTAMP:20240301T000000Z", "SEQUENCE:2\nDTSTAMP:20240101T000000Z"}, "0"},
        {"no SEQUENCE: latest DTSTAMP", {"DTSTAMP:20240301T120000Z", "DTSTAMP:20240301T110000Z"}, "0"},
        {"nothing to tell them apart: the last", {"DTSTAMP:20240101T000000Z", "DTSTAMP:20240101T000000Z",
                                                  "DTSTAMP:20240101T000000Z"}, "2"},
        {"a series and a single event", {"SEQUENCE:1\nRRULE:FREQ=DAILY;COUNT=3", "SEQUENCE:0"}, "0"},
    };
    fs::path dir = scratchDir("dups");
    for (const Case& c : cases) {
        std::string body;
        for (size_t i = 0; i < c.copies.size(); ++i)
            body += "BEGIN:VEVENT\nUID:dup\n" + c.copies[i] + "\nDTSTART:20240510T1" + std::to_string(i) +
                    "0000Z\nSUMMARY:" + std::to_string(i) + "\nEND:VEVENT\n";
        body += "BEGIN:VEVENT\nUID:other\nDTSTART:20240510T080000Z\nSUMMARY:other\nEND:VEVENT\n";
        fs::path file = dir / "dups.ics";
        const std::string text = lftest::calendar(body, false);
        writeFile(file, text);
        Store s;
        std::vector<Problem> ps;
        ASSERT_TRUE(s.load(file.string(), &ps)) << c.what;
        EXPECT_EQ(c.copies.size() - 1, ps.size()) << c.what;
        EXPECT_TRUE(mentions(ps, "UID dup")) << c.what;
        auto occ = s.query(Zone::utc(), at("20240510"), at("20240511"), Range::HalfOpen);
        std::string shown;
        for (auto& o : occ)
            if (s.uid(o.event) == "dup")
                shown += s.info(o.event).summary;
        EXPECT_EQ(c.shown, shown) << c.what;
        EXPECT_EQ(c.shown, s.info(s.findUid("dup")).summary) << c.what;
        EXPECT_EQ(2u, s.eventCount()) << c.what;
        // A change to the shown copy leaves the other copies' bytes as they were.
        EventEdit ed;
        ed.summary = "changed";
        ASSERT_TRUE(s.edit(s.findUid("dup"), ed)) << c.what;
        ASSERT_TRUE(s.save(nullptr)) << c.what;
        std::string saved = readFile(file);
        for (size_t i = 0; i < c.copies.size(); ++i) {
            if (std::to_string(i) == c.shown)
                continue;
            std::string copy = "SUMMARY:" + std::to_string(i) + "\r\nEND:VEVENT";
            EXPECT_NE(std::string::npos, saved.find(copy)) << c.what << ": copy " << i << " lost";
        }
        Store again;
        ASSERT_TRUE(again.load(file.string(), nullptr));
        EXPECT_EQ("changed", again.info(again.findUid("dup")).summary) << c.what;
        // Deleting the event deletes every copy, or an older one would come back.
        ASSERT_TRUE(again.remove(again.findUid("dup")));
        ASSERT_TRUE(again.save(nullptr));
        EXPECT_EQ(std::string::npos, readFile(file).find("UID:dup")) << c.what;
        EXPECT_NE(std::string::npos, readFile(file).find("UID:other")) << c.what;
    }
    // Across the files of a directory store, and with an override for the series.
    writeFile(dir / "a.ics", lftest::calendar("BEGIN:VEVENT\nUID:s\nSEQUENCE:4\nDTSTART:20240601T090000Z\n"
                                              "RRULE:FREQ=DAILY;COUNT=3\nSUMMARY:newer\nEND:VEVENT\n"
                                              "BEGIN:VEVENT\nUID:s\nRECURRENCE-ID:20240602T090000Z\n"
                                              "DTSTART:20240602T150000Z\nSUMMARY:moved\nEND:VEVENT\n",
                                              false));
    writeFile(dir / "b.ics", lftest::calendar("BEGIN:VEVENT\nUID:s\nSEQUENCE:1\nDTSTART:20240601T100000Z\n"
                                              "RRULE:FREQ=DAILY;COUNT=3\nSUMMARY:older\nEND:VEVENT\n",
                                              false));
    fs::remove(dir / "dups.ics");
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    std::string got;
    for (auto& o : s.query(Zone::utc(), at("20240601"), at("20240605"), Range::HalfOpen))
        got += s.info(o.event).summary + "@" + formatCivil(o.start, false) + " ";
    EXPECT_EQ("newer@20240601T090000 moved@20240602T150000 newer@20240603T090000 ", got);
    fs::remove_all(dir);
}

// An override whose RECURRENCE-ID names no instance of its rule (the rule
// changed after the override was made) still shows, at its own time, as
// other calendars show it; the rule's instances stay as they are.
TEST(Overrides, OneForAnInstanceTheRuleDoesNotProduce)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:w\nDTSTART;TZID=Europe/Berlin:20240506T090000\n"
                                            "DURATION:PT1H\nRRULE:FREQ=WEEKLY;BYDAY=MO;COUNT=3\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:w\nRECURRENCE-ID;TZID=Europe/Berlin:20240508T090000\n"
                                            "DTSTART;TZID=Europe/Berlin:20240509T160000\nDURATION:PT1H\n"
                                            "SUMMARY:extra\nEND:VEVENT\n",
                                            false),
                           "off", nullptr));
    auto occ = s.query(Zone::utc(), at("20240501"), at("20240601"), Range::HalfOpen);
    EXPECT_EQ("20240506T070000 20240509T140000 20240513T070000 20240520T070000", lftest::starts(occ));
}

// Yearly rules whose instances fall in the last or first days of a year,
// asked for in windows around the turn of the year.
TEST(Recurrence, YearlyInstancesAtTheTurnOfTheYear)
{
    struct Case {
        const char* what;
        const char* dtstart;
        const char* rule;
        const char* from;
        const char* to;
        const char* want;
    } cases[] = {
        {"week 1 begins in December", "20230102T090000", "FREQ=YEARLY;BYWEEKNO=1;BYDAY=MO", "20241229", "20241231",
         "20241230T090000"},
        {"week 1 begins in December, UNTIL that day", "20230102T090000",
         "FREQ=YEARLY;BYWEEKNO=1;BYDAY=MO;UNTIL=20241230T235959", "20241201", "20250201", "20241230T090000"},
        {"week 1 of every other year", "20041227T070000", "FREQ=YEARLY;INTERVAL=2;BYWEEKNO=1;BYDAY=TU", "20131201",
         "20140201", "20131231T070000"},
        {"week 1 of a year outside the interval", "20041227T070000", "FREQ=YEARLY;INTERVAL=2;BYWEEKNO=1;BYDAY=TU",
         "20141201", "20150201", ""},
        {"the last week", "20041227T070000", "FREQ=YEARLY;BYWEEKNO=-1;BYDAY=SU", "20051201", "20060201",
         "20060101T070000"},
        {"week 53 ends in January", "20200101T090000", "FREQ=YEARLY;BYWEEKNO=53;BYDAY=FR", "20270101", "20270102",
         "20270101T090000"},
        {"week 53 ends in January, asked from later", "20200101T090000", "FREQ=YEARLY;BYWEEKNO=53;BYDAY=FR",
         "20270101T080000", "20270110", "20270101T090000"},
        {"last day of a leap year", "20201231T090000", "FREQ=YEARLY;BYYEARDAY=-1", "20241231", "20250101",
         "20241231T090000"},
        {"day 366", "20200101T090000", "FREQ=YEARLY;BYYEARDAY=366", "20241201", "20250201", "20241231T090000"},
        {"last weekday of the year", "20200101T090000", "FREQ=YEARLY;BYDAY=MO,TU,WE,TH,FR;BYSETPOS=-1", "20261231",
         "20270101", "20261231T090000"},
        {"last Friday of December", "20200101T090000", "FREQ=YEARLY;BYMONTH=12;BYDAY=-1FR", "20251226", "20251227",
         "20251226T090000"},
    };
    for (const Case& c : cases) {
        Store s;
        ASSERT_TRUE(s.loadText(lftest::calendar(std::string("BEGIN:VEVENT\nUID:y\nDTSTART:") + c.dtstart +
                                                    "\nDURATION:PT1H\nRRULE:" + c.rule + "\nEND:VEVENT\n",
                                                false),
                               "y", nullptr));
        auto occ = s.query(Zone::utc(), at(c.from), at(c.to), Range::HalfOpen);
        EXPECT_EQ(c.want, lftest::starts(occ)) << c.what;
    }
}
