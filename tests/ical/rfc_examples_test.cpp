// Every recurrence example of RFC 5545 section 3.8.5.3, with the instances
// the RFC lists, expanded in America/New_York as the RFC does.
#include <gtest/gtest.h>

#include <sstream>

#include "helpers.h"

using namespace lfical;
using lftest::at;

namespace {

struct Example {
    const char* name;
    const char* dtstart;  // wall clock in New York
    const char* rule;     // RRULE value
    const char* until;    // window end (exclusive), wall clock in New York
    std::string expected; // starts, "YYYYMMDDTHHMMSS" words
    const char* extra = "";
};

// "19970902 19970903" -> the same days at 09:00
std::string at9(const std::string& days)
{
    std::istringstream in(days);
    std::string d, out;
    while (in >> d)
        out += (out.empty() ? "" : " ") + d + "T090000";
    return out;
}

std::string dayRange(const char* first, const char* last, int step = 1, const char* time = "T090000")
{
    std::string out;
    int64_t a = at(first) / kDay, b = at(last) / kDay;
    for (int64_t d = a; d <= b; d += step)
        out += (out.empty() ? "" : " ") + formatCivil(d * kDay, true) + time;
    return out;
}

std::string join(std::initializer_list<std::string> parts)
{
    std::string out;
    for (const std::string& p : parts)
        if (!p.empty())
            out += (out.empty() ? "" : " ") + p;
    return out;
}

std::vector<std::string> expand(const Example& ex)
{
    std::string ev = std::string("BEGIN:VEVENT\nUID:x\nDTSTART;TZID=America/New_York:") + ex.dtstart +
                     "\nRRULE:" + ex.rule + "\n" + ex.extra + "END:VEVENT\n";
    Store s;
    std::vector<Problem> problems;
    EXPECT_TRUE(s.loadText(lftest::calendar(ev), "rfc", &problems)) << ex.name;
    EXPECT_TRUE(problems.empty()) << ex.name << ": " << (problems.empty() ? "" : problems[0].message);
    const Zone& ny = s.zone(s.zoneIndex("America/New_York"));
    QueryReport rep;
    auto occ = s.query(ny, at(ex.dtstart), at(ex.until), Range::HalfOpen, &rep);
    EXPECT_TRUE(rep.cut.empty()) << ex.name;
    std::vector<std::string> out;
    for (auto& o : occ)
        out.push_back(formatCivil(o.start, false));
    return out;
}

std::vector<std::string> words(const std::string& s)
{
    std::istringstream in(s);
    std::vector<std::string> out;
    std::string w;
    while (in >> w)
        out.push_back(w);
    return out;
}

}  // namespace

TEST(RfcExamples, EveryRuleGivesTheListedInstances)
{
    std::string every20min;
    for (const char* day : {"19970902", "19970903"})
        for (int h = 9; h <= 16; ++h)
            for (int m = 0; m < 60; m += 20) {
                char buf[32];
                snprintf(buf, sizeof buf, "%sT%02d%02d00", day, h, m);
                every20min += (every20min.empty() ? "" : " ") + std::string(buf);
            }
    std::string januaries = join({dayRange("19980101", "19980131"), dayRange("19990101", "19990131"),
                                  dayRange("20000101", "20000131")});
    const Example examples[] = {
        {"daily for 10", "19970902T090000", "FREQ=DAILY;COUNT=10", "19980101", dayRange("19970902", "19970911")},
        {"daily until Dec 24", "19970902T090000", "FREQ=DAILY;UNTIL=19971224T000000Z", "19980101",
         dayRange("19970902", "19971223")},
        {"every other day", "19970902T090000", "FREQ=DAILY;INTERVAL=2", "19971202",
         join({dayRange("19970902", "19970930", 2), dayRange("19971002", "19971031", 2),
               dayRange("19971101", "19971129", 2), "19971201T090000"})},
        {"every 10 days, 5 times", "19970902T090000", "FREQ=DAILY;INTERVAL=10;COUNT=5", "19980101",
         at9("19970902 19970912 19970922 19971002 19971012")},
        {"every day in January (yearly)", "19980101T090000",
         "FREQ=YEARLY;UNTIL=20000131T140000Z;BYMONTH=1;BYDAY=SU,MO,TU,WE,TH,FR,SA", "20010101", januaries},
        {"every day in January (daily)", "19980101T090000", "FREQ=DAILY;UNTIL=20000131T140000Z;BYMONTH=1",
         "20010101", januaries},
        {"weekly for 10", "19970902T090000", "FREQ=WEEKLY;COUNT=10", "19990101",
         at9("19970902 19970909 19970916 19970923 19970930 19971007 19971014 19971021 19971028 19971104")},
        {"weekly until Dec 24", "19970902T090000", "FREQ=WEEKLY;UNTIL=19971224T000000Z", "19990101",
         dayRange("19970902", "19971223", 7)},
        {"every other week", "19970902T090000", "FREQ=WEEKLY;INTERVAL=2;WKST=SU", "19980218",
         at9("19970902 19970916 19970930 19971014 19971028 19971111 19971125 19971209 19971223 19980106 "
             "19980120 19980203 19980217")},
        {"Tue and Thu for five weeks (until)", "19970902T090000",
         "FREQ=WEEKLY;UNTIL=19971007T000000Z;WKST=SU;BYDAY=TU,TH", "19990101",
         at9("19970902 19970904 19970909 19970911 19970916 19970918 19970923 19970925 19970930 19971002")},
        {"Tue and Thu for five weeks (count)", "19970902T090000", "FREQ=WEEKLY;COUNT=10;WKST=SU;BYDAY=TU,TH",
         "19990101",
         at9("19970902 19970904 19970909 19970911 19970916 19970918 19970923 19970925 19970930 19971002")},
        {"every other week Mon Wed Fri", "19970901T090000",
         "FREQ=WEEKLY;INTERVAL=2;UNTIL=19971224T000000Z;WKST=SU;BYDAY=MO,WE,FR", "19990101",
         at9("19970901 19970903 19970905 19970915 19970917 19970919 19970929 19971001 19971003 19971013 "
             "19971015 19971017 19971027 19971029 19971031 19971110 19971112 19971114 19971124 19971126 "
             "19971128 19971208 19971210 19971212 19971222")},
        {"every other week Tue Thu, 8 times", "19970902T090000",
         "FREQ=WEEKLY;INTERVAL=2;COUNT=8;WKST=SU;BYDAY=TU,TH", "19990101",
         at9("19970902 19970904 19970916 19970918 19970930 19971002 19971014 19971016")},
        {"first Friday, 10 times", "19970905T090000", "FREQ=MONTHLY;COUNT=10;BYDAY=1FR", "19990101",
         at9("19970905 19971003 19971107 19971205 19980102 19980206 19980306 19980403 19980501 19980605")},
        {"first Friday until Dec 24", "19970905T090000", "FREQ=MONTHLY;UNTIL=19971224T000000Z;BYDAY=1FR",
         "19990101", at9("19970905 19971003 19971107 19971205")},
        {"every other month first and last Sunday", "19970907T090000",
         "FREQ=MONTHLY;INTERVAL=2;COUNT=10;BYDAY=1SU,-1SU", "19990101",
         at9("19970907 19970928 19971102 19971130 19980104 19980125 19980301 19980329 19980503 19980531")},
        {"second-to-last Monday, 6 months", "19970922T090000", "FREQ=MONTHLY;COUNT=6;BYDAY=-2MO", "19990101",
         at9("19970922 19971020 19971117 19971222 19980119 19980216")},
        {"third-to-last day", "19970928T090000", "FREQ=MONTHLY;BYMONTHDAY=-3", "19980227",
         at9("19970928 19971029 19971128 19971229 19980129 19980226")},
        {"2nd and 15th, 10 times", "19970902T090000", "FREQ=MONTHLY;COUNT=10;BYMONTHDAY=2,15", "19990101",
         at9("19970902 19970915 19971002 19971015 19971102 19971115 19971202 19971215 19980102 19980115")},
        {"first and last day, 10 times", "19970930T090000", "FREQ=MONTHLY;COUNT=10;BYMONTHDAY=1,-1", "19990101",
         at9("19970930 19971001 19971031 19971101 19971130 19971201 19971231 19980101 19980131 19980201")},
        {"every 18 months 10th to 15th", "19970910T090000",
         "FREQ=MONTHLY;INTERVAL=18;COUNT=10;BYMONTHDAY=10,11,12,13,14,15", "20000101",
         at9("19970910 19970911 19970912 19970913 19970914 19970915 19990310 19990311 19990312 19990313")},
        {"every Tuesday every other month", "19970902T090000", "FREQ=MONTHLY;INTERVAL=2;BYDAY=TU", "19980401",
         at9("19970902 19970909 19970916 19970923 19970930 19971104 19971111 19971118 19971125 19980106 "
             "19980113 19980120 19980127 19980303 19980310 19980317 19980324 19980331")},
        {"June and July, 10 times", "19970610T090000", "FREQ=YEARLY;COUNT=10;BYMONTH=6,7", "20030101",
         at9("19970610 19970710 19980610 19980710 19990610 19990710 20000610 20000710 20010610 20010710")},
        {"every other year Jan Feb Mar", "19970310T090000", "FREQ=YEARLY;INTERVAL=2;COUNT=10;BYMONTH=1,2,3",
         "20050101",
         at9("19970310 19990110 19990210 19990310 20010110 20010210 20010310 20030110 20030210 20030310")},
        {"every third year days 1 100 200", "19970101T090000",
         "FREQ=YEARLY;INTERVAL=3;COUNT=10;BYYEARDAY=1,100,200", "20100101",
         at9("19970101 19970410 19970719 20000101 20000409 20000718 20030101 20030410 20030719 20060101")},
        {"20th Monday", "19970519T090000", "FREQ=YEARLY;BYDAY=20MO", "20000101", at9("19970519 19980518 19990517")},
        {"Monday of week 20", "19970512T090000", "FREQ=YEARLY;BYWEEKNO=20;BYDAY=MO", "20000101",
         at9("19970512 19980511 19990517")},
        {"every Thursday in March", "19970313T090000", "FREQ=YEARLY;BYMONTH=3;BYDAY=TH", "20000101",
         at9("19970313 19970320 19970327 19980305 19980312 19980319 19980326 19990304 19990311 19990318 19990325")},
        {"Thursdays in June July August", "19970605T090000", "FREQ=YEARLY;BYDAY=TH;BYMONTH=6,7,8", "20000101",
         at9("19970605 19970612 19970619 19970626 19970703 19970710 19970717 19970724 19970731 19970807 "
             "19970814 19970821 19970828 19980604 19980611 19980618 19980625 19980702 19980709 19980716 "
             "19980723 19980730 19980806 19980813 19980820 19980827 19990603 19990610 19990617 19990624 "
             "19990701 19990708 19990715 19990722 19990729 19990805 19990812 19990819 19990826")},
        {"Friday the 13th", "19970902T090000", "FREQ=MONTHLY;BYDAY=FR;BYMONTHDAY=13", "20001014",
         at9("19980213 19980313 19981113 19990813 20001013"), "EXDATE;TZID=America/New_York:19970902T090000\n"},
        {"Saturday after first Sunday", "19970913T090000", "FREQ=MONTHLY;BYDAY=SA;BYMONTHDAY=7,8,9,10,11,12,13",
         "19980614",
         at9("19970913 19971011 19971108 19971213 19980110 19980207 19980307 19980411 19980509 19980613")},
        {"US presidential election day", "19961105T090000",
         "FREQ=YEARLY;INTERVAL=4;BYMONTH=11;BYDAY=TU;BYMONTHDAY=2,3,4,5,6,7,8", "20050101",
         at9("19961105 20001107 20041102")},
        {"third Tue/Wed/Thu, 3 months", "19970904T090000", "FREQ=MONTHLY;COUNT=3;BYDAY=TU,WE,TH;BYSETPOS=3",
         "19990101", at9("19970904 19971007 19971106")},
        {"second-to-last weekday", "19970929T090000", "FREQ=MONTHLY;BYDAY=MO,TU,WE,TH,FR;BYSETPOS=-2",
         "19980331", at9("19970929 19971030 19971127 19971230 19980129 19980226 19980330")},
        // The RFC lists 15:00 as well, but its UNTIL (17:00Z = 13:00 EDT) ends
        // the set before it - a known erratum; the rule's own UNTIL decides.
        {"every 3 hours until 17:00Z", "19970902T090000", "FREQ=HOURLY;INTERVAL=3;UNTIL=19970902T170000Z",
         "19970903", "19970902T090000 19970902T120000"},
        {"every 15 minutes, 6 times", "19970902T090000", "FREQ=MINUTELY;INTERVAL=15;COUNT=6", "19970903",
         "19970902T090000 19970902T091500 19970902T093000 19970902T094500 19970902T100000 19970902T101500"},
        {"every 90 minutes, 4 times", "19970902T090000", "FREQ=MINUTELY;INTERVAL=90;COUNT=4", "19970903",
         "19970902T090000 19970902T103000 19970902T120000 19970902T133000"},
        {"every 20 minutes 9 to 16:40 (daily)", "19970902T090000",
         "FREQ=DAILY;BYHOUR=9,10,11,12,13,14,15,16;BYMINUTE=0,20,40", "19970904", every20min},
        {"every 20 minutes 9 to 16:40 (minutely)", "19970902T090000",
         "FREQ=MINUTELY;INTERVAL=20;BYHOUR=9,10,11,12,13,14,15,16", "19970904", every20min},
        {"WKST=MO", "19970805T090000", "FREQ=WEEKLY;INTERVAL=2;COUNT=4;BYDAY=TU,SU;WKST=MO", "19990101",
         at9("19970805 19970810 19970819 19970824")},
        {"WKST=SU", "19970805T090000", "FREQ=WEEKLY;INTERVAL=2;COUNT=4;BYDAY=TU,SU;WKST=SU", "19990101",
         at9("19970805 19970817 19970819 19970831")},
        {"30 February skipped", "20070115T090000", "FREQ=MONTHLY;BYMONTHDAY=15,30;COUNT=5", "20080101",
         at9("20070115 20070130 20070215 20070315 20070330")},
    };
    for (const Example& ex : examples)
        EXPECT_EQ(words(ex.expected), expand(ex)) << ex.name;

    // A query's expansion keeps one iterator per thread and starts it over
    // on each series: started over on every rule in turn, forwards with
    // times and backwards on dates, it gives what a new iterator does.
    auto instances = [](RecurIter& it) {
        std::vector<int64_t> out;
        int64_t t;
        while (out.size() < 400 && it.next(t))
            out.push_back(t);
        return out;
    };
    RecurIter kept;
    const size_t n = sizeof examples / sizeof examples[0];
    for (int pass = 0; pass < 2; ++pass)
        for (size_t k = 0; k < n; ++k) {
            const Example& ex = examples[pass ? n - 1 - k : k];
            Recur r;
            std::string error;
            ASSERT_TRUE(parseRecur(ex.rule, r, error)) << ex.name;
            const bool dates = pass == 1;
            int64_t start = dates ? at(ex.dtstart) / kDay * kDay : at(ex.dtstart);
            int64_t until = r.hasUntil ? r.until : INT64_MAX;
            RecurIter fresh(r, start, dates, until);
            kept.reset(r, start, dates, until);
            EXPECT_EQ(instances(fresh), instances(kept)) << ex.name << (dates ? " on dates" : "");
        }
}

TEST(RfcExamples, InstancesKeepTheirWallClockAcrossDaylightChanges)
{
    // Daily at 09:00 New York time across 26 October 1997: still 09:00
    // local, but 13:00 UTC before and 14:00 UTC after.
    Store s;
    ASSERT_TRUE(s.loadText(lftest::calendar("BEGIN:VEVENT\nUID:x\nDTSTART;TZID=America/New_York:19971025T090000\n"
                                            "RRULE:FREQ=DAILY;COUNT=2\nEND:VEVENT\n"),
                           "dst", nullptr));
    auto occ = s.query(Zone::utc(), at("19971001"), at("19971101"), Range::HalfOpen);
    EXPECT_EQ("19971025T130000 19971026T140000", lftest::starts(occ));
}
