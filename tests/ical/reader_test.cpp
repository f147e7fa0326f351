// Reading and writing: what a user stored comes back byte for byte, broken
// parts are reported with their line and do not spoil the rest.
#include <gtest/gtest.h>

#include "helpers.h"

using namespace lfical;
using lftest::at;

namespace {
std::string only(const Store& s)
{
    auto t = s.texts();
    return t.empty() ? std::string() : t[0].second;
}

bool mentions(const std::vector<Problem>& ps, const std::string& what, int line)
{
    for (const Problem& p : ps)
        if (p.message.find(what) != std::string::npos && (line == 0 || p.line == line))
            return true;
    return false;
}
}  // namespace

TEST(Reader, UnchangedFilesComeBackByteForByte)
{
    const struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"CRLF", lftest::calendar("BEGIN:VEVENT\nUID:1\nDTSTART:20240505T100000Z\nSUMMARY:a\nEND:VEVENT\n")},
        {"bare LF", "BEGIN:VCALENDAR\nVERSION:2.0\nBEGIN:VEVENT\nUID:1\nDTSTART:20240505\nEND:VEVENT\nEND:VCALENDAR\n"},
        {"BOM and no final newline",
         "\xEF\xBB\xBF" "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:1\r\nDTSTART:20240505\r\nEND:VEVENT\r\nEND:VCALENDAR"},
        {"folded with space and tab",
         "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:1\r\nDTST\r\n ART:20240505\r\nSUMMARY:long\r\n\ttext\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n"},
        {"invalid UTF-8 and unknown parts",
         "BEGIN:VCALENDAR\r\nX-WR-CALNAME:\xff\xfe\r\nBEGIN:VTODO\r\nUID:t\r\nEND:VTODO\r\nBEGIN:VJOURNAL\r\nUID:j\r\n"
         "END:VJOURNAL\r\nBEGIN:VFREEBUSY\r\nUID:f\r\nEND:VFREEBUSY\r\nBEGIN:X-THING\r\nX-A;X-P=\"q;:,\":v\r\n"
         "END:X-THING\r\nBEGIN:VEVENT\r\nUID:1\r\nDTSTART:20240505\r\nX-LF;FOO=bar:\xc3\x28\r\nBEGIN:VALARM\r\n"
         "ACTION:DISPLAY\r\nTRIGGER:-PT5M\r\nEND:VALARM\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n"},
        {"blank lines and comments between components",
         "BEGIN:VCALENDAR\r\n\r\nBEGIN:VEVENT\r\nUID:1\r\nDTSTART:20240505\r\nEND:VEVENT\r\n\r\n\r\nEND:VCALENDAR\r\n\r\n"},
        {"two calendars", "BEGIN:VCALENDAR\r\nEND:VCALENDAR\r\nBEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:1\r\n"
                          "DTSTART:20240505\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n"},
    };
    for (const auto& c : cases) {
        Store s;
        std::vector<Problem> ps;
        EXPECT_TRUE(s.loadText(c.text, "f", &ps)) << c.name;
        EXPECT_EQ(c.text, only(s)) << c.name;
        EXPECT_EQ(1u, s.eventCount()) << c.name;
    }
}

TEST(Reader, FieldsAreDecoded)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar(
                               "BEGIN:VEVENT\nuid:abc\nDTSTART;TZID=America/New_York:20240505T100000\n"
                               "DURATION:PT1H30M\nSUMMARY;LANGUAGE=en:Tea\\, cakes\\; and \\\\ more\\nnext\n"
                               "LOCATION:Room 1\nDESCRIPTION:multi\n line\nCATEGORIES:Work,Red\\,ish\n"
                               "CATEGORIES:Home\nCLASS:PRIVATE\nTRANSP:TRANSPARENT\nX-MICROSOFT-CDO-BUSYSTATUS:OOF\n"
                               "SEQUENCE:4\nRRULE:FREQ=WEEKLY;COUNT=3\nEXDATE;TZID=America/New_York:20240512T100000\n"
                               "BEGIN:VALARM\nACTION:DISPLAY\nTRIGGER:-PT15M\nEND:VALARM\nEND:VEVENT\n"),
                           "f", nullptr));
    EventInfo e = s.info(s.findUid("abc"));
    EXPECT_EQ("Tea, cakes; and \\ more\nnext", e.summary);
    EXPECT_EQ("Room 1", e.location);
    EXPECT_EQ("multiline", e.description);
    EXPECT_EQ((std::vector<std::string>{"Work", "Red,ish", "Home"}), e.categories);
    EXPECT_EQ("PRIVATE", e.cls);
    EXPECT_EQ(Busy::OutOfOffice, e.busy);
    EXPECT_TRUE(e.transparent);
    EXPECT_TRUE(e.hasAlarm);
    EXPECT_EQ(15, e.alarmMinutes);
    EXPECT_EQ(4, e.sequence);
    EXPECT_EQ(TimeKind::Zoned, e.start.kind);
    EXPECT_EQ(EndKind::Duration, e.endKind);
    EXPECT_EQ(at("20240505T113000"), e.end.civil);
    EXPECT_TRUE(e.recurring);
    ASSERT_EQ(1u, e.exdates.size());
    auto occ = s.query(Zone::utc(), at("20240501"), at("20240601"), Range::HalfOpen);
    EXPECT_EQ("20240505T140000 20240519T140000", lftest::starts(occ));
}

TEST(Reader, EndDefaultsFollowTheRfc)
{
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:d\nDTSTART;VALUE=DATE:20240505\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:t\nDTSTART:20240505T100000\nEND:VEVENT\n"
                                            "BEGIN:VEVENT\nUID:m\nDTSTART;VALUE=DATE:20240505\nDTEND;VALUE=DATE:20240508\nEND:VEVENT\n"),
                           "f", nullptr));
    auto occ = s.query(Zone::utc(), at("20240501"), at("20240601"), Range::HalfOpen);
    ASSERT_EQ(3u, occ.size());
    for (const auto& o : occ) {
        std::string uid = s.uid(o.event);
        int64_t expect = uid == "d" ? at("20240506") : uid == "t" ? o.start : at("20240508");
        EXPECT_EQ(expect, o.end) << uid;
    }
}

TEST(Reader, BrokenPartsAreReportedWithLinesAndSpareTheRest)
{
    const struct {
        const char* name;
        std::string text;
        bool readable;
        size_t events;
        const char* message;
        int line;
    } cases[] = {
        {"truncated", "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:1\r\nDTSTART:20240505\r\nEND:VEVENT\r\nBEGIN:VEVENT\r\nUID:2\r\n",
         false, 1, "cut short", 1},
        {"event without END", "BEGIN:VCALENDAR\nBEGIN:VEVENT\nUID:1\nDTSTART:20240505\nBEGIN:VEVENT\nUID:2\n"
                              "DTSTART:20240506\nEND:VEVENT\nEND:VCALENDAR\n",
         true, 1, "has no END", 2},
        {"bad date", "BEGIN:VCALENDAR\nBEGIN:VEVENT\nUID:1\nDTSTART:20240231\nEND:VEVENT\nBEGIN:VEVENT\nUID:2\n"
                     "DTSTART:20240506\nEND:VEVENT\nEND:VCALENDAR\n",
         true, 2, "unreadable date", 4},
        {"line without colon", "BEGIN:VCALENDAR\nBEGIN:VEVENT\nUID:1\nDTSTART:20240505\nGARBAGE\nEND:VEVENT\nEND:VCALENDAR\n",
         true, 1, "not a content line", 5},
        {"bad rule", "BEGIN:VCALENDAR\nBEGIN:VEVENT\nUID:1\nDTSTART:20240505\nRRULE:FREQ=SOMETIMES\nEND:VEVENT\nEND:VCALENDAR\n",
         true, 1, "RRULE not used", 5},
        {"not a calendar", "hello world\n", false, 0, "no VCALENDAR", 1},
        {"stray END", "BEGIN:VCALENDAR\nEND:VTODO\nBEGIN:VEVENT\nUID:1\nDTSTART:20240505\nEND:VEVENT\nEND:VCALENDAR\n",
         true, 1, "without BEGIN", 2},
    };
    for (const auto& c : cases) {
        Store s;
        std::vector<Problem> ps;
        EXPECT_EQ(c.readable, s.loadText(c.text, "f", &ps)) << c.name;
        EXPECT_EQ(c.events, s.eventCount()) << c.name;
        EXPECT_TRUE(mentions(ps, c.message, c.line)) << c.name << (ps.empty() ? "" : ": " + ps[0].message);
        EXPECT_EQ(c.text, only(s)) << c.name << ": bytes must survive";
    }
}

TEST(Reader, ZonesDefinedAfterTheirEvents)
{
    // Events wait for a VTIMEZONE further down; enough of them that the
    // waiting list grows (it once lost their text when it did).
    std::string body;
    for (int i = 0; i < 40; ++i)
        body += "BEGIN:VEVENT\nUID:" + std::to_string(i) + "\nDTSTART;TZID=America/New_York:20240505T1000" +
                (i < 10 ? "0" : "") + std::to_string(i % 60) + "\nEND:VEVENT\n";
    std::string text = lftest::calendar(body, false);
    text.insert(text.find("END:VCALENDAR"), lftest::kNewYork);
    Store s;
    std::vector<Problem> ps;
    ASSERT_TRUE(s.loadText(text, "late", &ps));
    EXPECT_TRUE(ps.empty()) << ps[0].message;
    auto occ = s.query(Zone::utc(), at("20240505T140000"), at("20240505T150000"), Range::HalfOpen);
    EXPECT_EQ(40u, occ.size());
    EXPECT_EQ(TimeKind::Zoned, s.info(s.findUid("39")).start.kind);
}

TEST(Reader, UnknownZoneIsFloatingAndReportedOnce)
{
    Store s;
    std::vector<Problem> ps;
    s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:1\nDTSTART;TZID=Mars/Olympus:20240505T100000\nEND:VEVENT\n"
                                "BEGIN:VEVENT\nUID:2\nDTSTART;TZID=Mars/Olympus:20240506T100000\nEND:VEVENT\n",
                                false),
               "f", &ps);
    int n = 0;
    for (auto& p : ps)
        n += p.message.find("Mars/Olympus") != std::string::npos;
    EXPECT_EQ(1, n);
    Zone plus5 = Zone::fixed(5 * 3600, "x");
    auto occ = s.query(plus5, at("20240505"), at("20240507"), Range::HalfOpen);
    EXPECT_EQ("20240505T100000 20240506T100000", lftest::starts(occ));
    EXPECT_TRUE(occ[0].floating);
}

TEST(Writer, FoldingKeepsUtf8SequencesWhole)
{
    for (int lead = 0; lead < 8; ++lead) {
        std::string v = "SUMMARY:" + std::string(size_t(lead), 'a');
        for (int i = 0; i < 60; ++i)
            v += "\xe2\x82\xac";  // euro sign, three octets
        std::string folded = foldLine(v);
        size_t pos = 0;
        std::string unfolded;
        while (pos < folded.size()) {
            size_t e = folded.find("\r\n", pos);
            ASSERT_NE(std::string::npos, e);
            std::string line = folded.substr(pos, e - pos);
            EXPECT_LE(line.size(), 75u) << lead;
            if (pos > 0) {
                ASSERT_EQ(' ', line[0]);
                line.erase(0, 1);
                EXPECT_NE(0x80, static_cast<unsigned char>(line[0]) & 0xC0) << "continuation splits a character, lead " << lead;
            }
            unfolded += line;
            pos = e + 2;
        }
        EXPECT_EQ(v, unfolded) << lead;
    }
}

TEST(Writer, TextEscapingRoundTrips)
{
    const char* texts[] = {"plain", "a,b;c\\d", "two\nlines", "tab\there", "\xc3\xa9t\xc3\xa9", ""};
    for (const char* t : texts) {
        EXPECT_EQ(t, unescapeText(escapeText(t))) << t;
        EXPECT_EQ(std::string::npos, escapeText(t).find('\n')) << t;
    }
}

TEST(Values, DurationsOffsetsAndRules)
{
    const struct {
        const char* text;
        bool ok;
        int64_t days, secs;
    } durs[] = {{"PT1H", true, 0, 3600}, {"P1D", true, 1, 0}, {"P2W", true, 14, 0}, {"-PT15M", true, 0, -900},
                {"P1DT2H3M4S", true, 1, 7384}, {"+P0D", true, 0, 0}, {"P", false, 0, 0}, {"PT", false, 0, 0},
                {"1H", false, 0, 0}, {"PT1D", false, 0, 0}, {"P99999999999D", false, 0, 0}};
    for (const auto& d : durs) {
        Duration out;
        EXPECT_EQ(d.ok, parseDuration(d.text, out)) << d.text;
        if (d.ok) {
            EXPECT_EQ(d.days, out.days) << d.text;
            EXPECT_EQ(d.secs, out.seconds) << d.text;
        }
    }
    // OIDs must not change between runs or versions: the server hands them out.
    EXPECT_EQ(0x1A47E90Bu, oidForUid("abc"));
    EXPECT_NE(oidForUid("abc@x"), oidForUid("abd@x"));
    int32_t off;
    EXPECT_TRUE(parseUtcOffset("-0430", off));
    EXPECT_EQ(-16200, off);
    EXPECT_FALSE(parseUtcOffset("0430", off));
    const struct {
        const char* rule;
        bool ok;
    } rules[] = {{"FREQ=DAILY", true}, {"freq=weekly;byday=mo,-1fr", true}, {"FREQ=DAILY;COUNT=2;UNTIL=20240101", false},
                 {"BYDAY=MO", false}, {"FREQ=MONTHLY;BYMONTHDAY=0", false}, {"FREQ=MONTHLY;BYMONTHDAY=32", false},
                 {"FREQ=YEARLY;BYDAY=54MO", false}, {"FREQ=DAILY;INTERVAL=0", false}, {"FREQ=DAILY;X-FOO=1", true},
                 {"FREQ=DAILY;UNTIL=2024", false}, {"FREQ=DAILY;BYDAY=XX", false}};
    for (const auto& r : rules) {
        Recur out;
        std::string err;
        EXPECT_EQ(r.ok, parseRecur(r.rule, out, err)) << r.rule;
    }
}
