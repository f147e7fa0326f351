// The calendar server's store model over real iCalendar files: the month
// queries, OIDs, patterns and exceptions, deletions, saves that keep the
// bytes of what they did not change, and stores that cannot be read.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "month_store.h"
#include "store_model.h"

using namespace poom;
namespace fs = std::filesystem;

namespace {

class TempDir {
public:
    TempDir() {
        static int counter = 0;
        path_ = fs::temp_directory_path() /
                ("poom-store-test-" + std::to_string(std::rand()) + "-" + std::to_string(++counter));
        fs::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    fs::path operator/(const std::string& name) const { return path_ / name; }

private:
    fs::path path_;
};

void WriteFile(const fs::path& p, const std::string& bytes) {
    std::ofstream f(p, std::ios::binary);
    f << bytes;
}

std::string ReadFile(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

std::wstring UsDate(const monthstore::Day& d) {
    return std::to_wstring(d.m) + L"/" + std::to_wstring(d.d) + L"/" + std::to_wstring(d.y);
}

std::wstring Fill(const wchar_t* tmpl, const std::wstring& a, const std::wstring& b) {
    std::wstring s = tmpl;
    s.replace(s.find(L"%s"), 2, a);
    s.replace(s.find(L"%s"), 2, b);
    return s;
}

std::vector<ItemSnapshot> Ask(const Store& store, const std::wstring& text) {
    Restriction r;
    std::string error;
    EXPECT_TRUE(r.Parse(text, DatePicture(L"M/d/yyyy"), &error)) << error;
    return store.Query(true, {&r});
}

std::uint32_t OidOf(const Store& store, const std::wstring& subject) {
    for (const auto& s : store.Query(false, {}))
        if (s.f.subject == subject) return s.oid;
    return 0;
}

LocalSecs At(int y, int mo, int d, int h = 0, int mi = 0) { return ToSecs(CivilTime{y, mo, d, h, mi, 0}); }

}  // namespace

TEST(Store, MonthQueriesGiveEveryOccurrenceTouchingTheDays) {
    TempDir dir;
    fs::path file = dir / "calendar.ics";
    WriteFile(file, monthstore::kIcs);
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
    for (const auto& q : monthstore::Queries()) {
        std::wstring text = Fill(monthstore::kTemplates[q.kind], UsDate(q.first), UsDate(q.second));
        auto items = Ask(store, text);
        std::vector<std::wstring> got;
        for (const auto& i : items) got.push_back(i.f.subject);
        EXPECT_EQ(got, q.subjects) << q.name;
        for (size_t i = 1; i < items.size(); ++i) EXPECT_LE(items[i - 1].f.start, items[i].f.start) << q.name;
    }
}

TEST(Store, OidsAreStableAndOccurrencesReportTheSeries) {
    TempDir dir;
    fs::path file = dir / "calendar.ics";
    WriteFile(file, monthstore::kIcs);
    Store a(lfical::Zone::utc()), b(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(a.Open(file.string(), false, error)) << error;
    ASSERT_TRUE(b.Open(file.string(), false, error)) << error;
    EXPECT_EQ(a.Count(), 6u);  // the override belongs to its series
    std::uint32_t standup = OidOf(a, L"Standup");
    ASSERT_NE(standup, 0u);
    EXPECT_EQ(OidOf(b, L"Standup"), standup);
    EXPECT_EQ(OidOf(b, L"Dentist"), OidOf(a, L"Dentist"));
    auto month = Ask(a, L"[End] >= 11/1/2026 AND [Start] <= 11/30/2026");
    int occurrences = 0;
    for (const auto& s : month) {
        if (s.f.subject.rfind(L"Standup", 0) == 0) {
            EXPECT_EQ(s.oid, standup);
            EXPECT_TRUE(s.isOccurrence);
            ++occurrences;
        }
    }
    EXPECT_EQ(occurrences, 3);
    ItemSnapshot occ;
    ASSERT_TRUE(a.GetOccurrence(standup, At(2026, 11, 24, 9), occ));
    EXPECT_EQ(occ.f.end, At(2026, 11, 24, 9, 30));
    // The moved occurrence is reached by its original start.
    ASSERT_TRUE(a.GetOccurrence(standup, At(2026, 11, 17, 9), occ));
    EXPECT_EQ(occ.f.subject, L"Standup (moved)");
    EXPECT_EQ(occ.f.start, At(2026, 11, 18, 14));
    EXPECT_FALSE(a.GetOccurrence(standup, At(2026, 11, 10, 9), occ));  // deleted
    EXPECT_FALSE(a.GetOccurrence(standup, At(2026, 11, 24, 10), occ));  // no such start
}

TEST(Store, PatternAndExceptionsOfASeries) {
    TempDir dir;
    fs::path file = dir / "calendar.ics";
    WriteFile(file, monthstore::kIcs);
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
    std::uint32_t standup = OidOf(store, L"Standup");
    Pattern p;
    ASSERT_TRUE(store.GetPattern(standup, p));
    EXPECT_EQ(p.type, kRecursWeekly);
    EXPECT_EQ(p.dayOfWeekMask, 4);  // Tuesday
    EXPECT_EQ(p.interval, 1);
    EXPECT_TRUE(p.NoEnd());
    EXPECT_TRUE(p.exact);
    auto ex = store.Exceptions(standup);
    ASSERT_EQ(ex.size(), 2u);
    EXPECT_EQ(ex[0].originalStart, At(2026, 11, 10, 9));
    EXPECT_TRUE(ex[0].deleted);
    EXPECT_EQ(ex[1].originalStart, At(2026, 11, 17, 9));
    EXPECT_FALSE(ex[1].deleted);
    EXPECT_EQ(ex[1].item.f.subject, L"Standup (moved)");
    EXPECT_FALSE(store.GetPattern(OidOf(store, L"Dentist"), p));
}

TEST(Store, PatternsMapToRrulesAndBack) {
    struct Case {
        const char* rrule;
        long type;
        bool exact;
    } cases[] = {
        {"FREQ=DAILY", kRecursDaily, true},
        {"FREQ=DAILY;INTERVAL=3;COUNT=10", kRecursDaily, true},
        {"FREQ=WEEKLY;BYDAY=MO,WE,FR", kRecursWeekly, true},
        {"FREQ=WEEKLY;INTERVAL=2;BYDAY=TU;UNTIL=20261231", kRecursWeekly, true},
        {"FREQ=MONTHLY;BYMONTHDAY=15", kRecursMonthly, true},
        {"FREQ=MONTHLY;BYDAY=2TU", kRecursMonthNth, true},
        {"FREQ=MONTHLY;BYDAY=-1FR", kRecursMonthNth, true},
        {"FREQ=MONTHLY;BYDAY=MO,TU,WE,TH,FR;BYSETPOS=-1", kRecursMonthNth, true},
        {"FREQ=YEARLY;BYMONTH=3;BYMONTHDAY=1", kRecursYearly, true},
        {"FREQ=YEARLY;BYMONTH=11;BYDAY=4TH", kRecursYearNth, true},
        {"FREQ=HOURLY;INTERVAL=6", kRecursDaily, false},
        {"FREQ=MONTHLY;BYMONTHDAY=1,15", kRecursMonthly, false},
        {"FREQ=DAILY;BYHOUR=9,17", kRecursDaily, false},
        {"FREQ=YEARLY;BYWEEKNO=20", kRecursYearly, false},
    };
    LocalSecs start = At(2026, 11, 3, 9);
    for (const auto& c : cases) {
        lfical::Recur r;
        std::string error;
        ASSERT_TRUE(lfical::parseRecur(c.rrule, r, error)) << c.rrule << ": " << error;
        Pattern p = PatternFromRecur(r, start);
        EXPECT_EQ(p.type, c.type) << c.rrule;
        EXPECT_EQ(p.exact, c.exact) << c.rrule;
        if (!c.exact) continue;
        // The rule written back for the pattern means the same.
        std::string until = r.hasUntil ? lfical::formatCivil(r.until, true) : std::string();
        std::string back = RRuleFromPattern(p, start, until);
        lfical::Recur again;
        ASSERT_TRUE(lfical::parseRecur(back, again, error)) << c.rrule << " -> " << back;
        Pattern q = PatternFromRecur(again, start);
        EXPECT_EQ(q.type, p.type) << back;
        EXPECT_EQ(q.interval, p.interval) << back;
        EXPECT_EQ(q.dayOfWeekMask, p.dayOfWeekMask) << back;
        EXPECT_EQ(q.dayOfMonth, p.dayOfMonth) << back;
        EXPECT_EQ(q.instance, p.instance) << back;
        EXPECT_EQ(q.monthOfYear, p.monthOfYear) << back;
        EXPECT_EQ(q.occurrences, p.occurrences) << back;
        EXPECT_EQ(q.patternEnd, p.patternEnd) << back;
    }
}

TEST(Store, ChangesKeepTheBytesOfEverythingElse) {
    TempDir dir;
    fs::path file = dir / "calendar.ics";
    WriteFile(file, monthstore::kIcs);
    std::string error;
    {
        // Opening and querying writes nothing.
        Store store(lfical::Zone::utc());
        ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
        Ask(store, L"[End] >= 11/1/2026 AND [Start] <= 11/30/2026");
    }
    EXPECT_EQ(ReadFile(file), monthstore::kIcs);

    Store store(lfical::Zone::utc());
    ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
    std::uint32_t dentist = OidOf(store, L"Dentist");
    ItemSnapshot s;
    ASSERT_TRUE(store.Get(dentist, s));
    s.f.subject = L"Dentist, again";
    std::uint32_t oid = dentist;
    ASSERT_TRUE(store.SaveItem(oid, s.f, nullptr, false, error)) << error;
    EXPECT_EQ(oid, dentist);
    std::string after = ReadFile(file);
    EXPECT_NE(after.find("SUMMARY:Dentist\\, again"), std::string::npos);
    EXPECT_NE(after.find("X-UNKNOWN-THING;X-PARAM=1:keep me\r\n"), std::string::npos);
    // Every other event and the unknown component keep their bytes.
    std::string original = monthstore::kIcs;
    size_t from = original.find("BEGIN:VEVENT\r\nUID:holiday");
    size_t to = original.find("END:VCALENDAR");
    EXPECT_NE(after.find(original.substr(from, to - from)), std::string::npos);

    // Deleting one occurrence adds an EXDATE; deleting a series removes it.
    std::uint32_t standup = OidOf(store, L"Standup");
    ASSERT_TRUE(store.DeleteOccurrence(standup, At(2026, 11, 24, 9), error)) << error;
    Store reread(lfical::Zone::utc());
    ASSERT_TRUE(reread.Open(file.string(), false, error)) << error;
    EXPECT_TRUE(Ask(reread, L"[End] >= 11/24/2026 AND [Start] <= 11/24/2026").empty());
    EXPECT_EQ(Ask(reread, L"[End] >= 12/1/2026 AND [Start] <= 12/1/2026").size(), 2u);
    // Deleting the moved occurrence removes its override too.
    ASSERT_TRUE(store.DeleteOccurrence(standup, At(2026, 11, 17, 9), error)) << error;
    ASSERT_TRUE(reread.Reload(error)) << error;
    EXPECT_TRUE(Ask(reread, L"[End] >= 11/18/2026 AND [Start] <= 11/18/2026").empty());
    ASSERT_TRUE(store.DeleteItem(standup, error)) << error;
    ASSERT_TRUE(reread.Reload(error)) << error;
    EXPECT_EQ(OidOf(reread, L"Standup"), 0u);
    EXPECT_EQ(ReadFile(file).find("standup@example.com"), std::string::npos);
}

// A first change to one occurrence of a zoned series becomes an exception
// in the series' zone, and one of a series changed from some day on changes
// only itself.
TEST(Store, ChangingOneOccurrenceOfAZonedSeries) {
    TempDir dir;
    fs::path file = dir / "calendar.ics";
    WriteFile(file,
              "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//test//EN\r\n"
              "BEGIN:VTIMEZONE\r\nTZID:East\r\nBEGIN:STANDARD\r\nDTSTART:19700101T000000\r\n"
              "TZOFFSETFROM:-0500\r\nTZOFFSETTO:-0500\r\nEND:STANDARD\r\nEND:VTIMEZONE\r\n"
              "BEGIN:VEVENT\r\nUID:daily\r\nDTSTAMP:20260101T000000Z\r\n"
              "DTSTART;TZID=East:20261102T090000\r\nDTEND;TZID=East:20261102T100000\r\n"
              "RRULE:FREQ=DAILY;COUNT=10\r\nSUMMARY:Daily\r\nEND:VEVENT\r\n"
              "BEGIN:VEVENT\r\nUID:daily\r\nDTSTAMP:20260101T000000Z\r\n"
              "RECURRENCE-ID;TZID=East;RANGE=THISANDFUTURE:20261107T090000\r\n"
              "DTSTART;TZID=East:20261107T110000\r\nDTEND;TZID=East:20261107T120000\r\n"
              "SUMMARY:Daily later\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n");
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
    std::uint32_t daily = OidOf(store, L"Daily");
    auto change = [&](LocalSecs original, const wchar_t* subject, LocalSecs moveTo) {
        ItemSnapshot occ;
        ASSERT_TRUE(store.GetOccurrence(daily, original, occ));
        occ.f.subject = subject;
        if (moveTo) {
            occ.f.end += moveTo - occ.f.start;
            occ.f.start = moveTo;
        }
        ASSERT_TRUE(store.SaveOccurrence(daily, occ.originalStart, occ.f, error)) << error;
    };
    change(At(2026, 11, 3, 14), L"Third", 0);                         // 09:00 East is 14:00 UTC
    change(At(2026, 11, 7, 16), L"Seventh only", At(2026, 11, 7, 18));  // where the later ones begin
    change(At(2026, 11, 9, 16), L"Ninth", 0);
    std::string text = ReadFile(file);
    for (const char* rid : {"RECURRENCE-ID;TZID=East:20261103T090000\r\n", "RECURRENCE-ID;TZID=East:20261107T090000\r\n",
                            "RECURRENCE-ID;TZID=East:20261109T090000\r\n"})
        EXPECT_NE(text.find(rid), std::string::npos) << rid;
    Store reread(lfical::Zone::utc());
    ASSERT_TRUE(reread.Open(file.string(), false, error)) << error;
    std::vector<std::pair<std::wstring, LocalSecs>> got, want = {
        {L"Daily", At(2026, 11, 2, 14)},       {L"Third", At(2026, 11, 3, 14)},
        {L"Daily", At(2026, 11, 4, 14)},       {L"Daily", At(2026, 11, 5, 14)},
        {L"Daily", At(2026, 11, 6, 14)},       {L"Seventh only", At(2026, 11, 7, 18)},
        {L"Daily later", At(2026, 11, 8, 16)}, {L"Ninth", At(2026, 11, 9, 16)},
        {L"Daily later", At(2026, 11, 10, 16)}, {L"Daily later", At(2026, 11, 11, 16)},
    };
    for (const auto& s : Ask(reread, L"[End] >= 11/1/2026 AND [Start] <= 11/30/2026")) got.push_back({s.f.subject, s.f.start});
    EXPECT_EQ(got, want);
    ItemSnapshot ninth;
    ASSERT_TRUE(reread.GetOccurrence(daily, At(2026, 11, 9, 16), ninth));
    EXPECT_EQ(ninth.f.end, At(2026, 11, 9, 17));
}

TEST(Store, NewAppointmentsAndPatterns) {
    TempDir dir;
    fs::path file = dir / "new.ics";
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(file.string(), true, error)) << error;
    EXPECT_EQ(store.Count(), 0u);
    Fields f;
    f.subject = L"Gym \u00e9t\u00e9";
    f.start = At(2026, 11, 2, 18);
    f.end = At(2026, 11, 2, 19);
    Pattern p;
    p.type = kRecursWeekly;
    p.dayOfWeekMask = 2 | 8;  // Monday and Wednesday
    p.occurrences = 4;
    std::uint32_t oid = 0;
    ASSERT_TRUE(store.SaveItem(oid, f, &p, false, error)) << error;
    EXPECT_NE(oid, 0u);
    Store reread(lfical::Zone::utc());
    ASSERT_TRUE(reread.Open(file.string(), false, error)) << error;
    auto items = Ask(reread, L"[End] >= 11/1/2026 AND [Start] <= 11/30/2026");
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].f.subject, L"Gym \u00e9t\u00e9");
    EXPECT_EQ(items[1].f.start, At(2026, 11, 4, 18));
    EXPECT_EQ(items[3].f.start, At(2026, 11, 11, 18));
    for (const auto& i : items) EXPECT_EQ(i.oid, oid);

    // An all-day appointment covers whole days.
    Fields day;
    day.subject = L"Conference";
    day.allDay = true;
    day.start = At(2026, 11, 16, 10);
    day.end = At(2026, 11, 17, 12);
    std::uint32_t conf = 0;
    ASSERT_TRUE(store.SaveItem(conf, day, nullptr, false, error)) << error;
    ASSERT_TRUE(reread.Reload(error)) << error;
    ItemSnapshot s;
    ASSERT_TRUE(reread.Get(conf, s));
    EXPECT_TRUE(s.f.allDay);
    EXPECT_EQ(s.f.start, At(2026, 11, 16));
    EXPECT_EQ(s.f.end, At(2026, 11, 18));
    EXPECT_TRUE(Ask(reread, L"[End] >= 11/18/2026 AND [Start] <= 11/18/2026").empty());
    EXPECT_EQ(Ask(reread, L"[End] >= 11/17/2026 AND [Start] <= 11/17/2026").size(), 1u);

    // Clearing the pattern makes a one-off.
    ASSERT_TRUE(store.SaveItem(oid, f, nullptr, true, error)) << error;
    ASSERT_TRUE(reread.Reload(error)) << error;
    ASSERT_TRUE(reread.Get(oid, s));
    EXPECT_FALSE(s.recurring);
}

TEST(Store, UnreadableStoresFailAndStayUntouched) {
    struct Case {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"not a calendar", "this is not a calendar\r\n"},
        {"binary", std::string("\x00\x01\x02\xff\xfe", 5)},
        {"truncated", "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nBEGIN:VEVENT\r\nUID:x\r\nDTSTART:2026"},
    };
    for (const auto& c : cases) {
        TempDir dir;
        fs::path file = dir / "calendar.ics";
        WriteFile(file, c.bytes);
        Store store(lfical::Zone::utc());
        std::string error;
        EXPECT_FALSE(store.Open(file.string(), false, error)) << c.name;
        EXPECT_FALSE(error.empty()) << c.name;
        EXPECT_EQ(ReadFile(file), c.bytes) << c.name;
    }
    // A missing store, when it is not to be made, is unreadable too.
    TempDir dir;
    Store store(lfical::Zone::utc());
    std::string error;
    EXPECT_FALSE(store.Open((dir / "missing.ics").string(), false, error));
}

TEST(Store, OneMalformedEventIsSkippedAndKept) {
    std::string ics = monthstore::kIcs;
    std::string bad =
        "BEGIN:VEVENT\r\nUID:broken@example.com\r\nDTSTART:notadate\r\nSUMMARY:Broken\r\nEND:VEVENT\r\n";
    ics.insert(ics.find("BEGIN:X-SOMETHING-ELSE"), bad);
    TempDir dir;
    fs::path file = dir / "calendar.ics";
    WriteFile(file, ics);
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
    EXPECT_EQ(Ask(store, L"[End] >= 11/5/2026 AND [Start] <= 11/5/2026").size(), 1u);
    // A change elsewhere keeps the malformed event as it was.
    std::uint32_t oid = OidOf(store, L"Late");
    ItemSnapshot s;
    ASSERT_TRUE(store.Get(oid, s));
    s.f.location = L"Home";
    ASSERT_TRUE(store.SaveItem(oid, s.f, nullptr, false, error)) << error;
    EXPECT_NE(ReadFile(file).find(bad), std::string::npos);
}

TEST(Store, MonthQueriesStayFastOnALargeStore) {
    // 100,000 events over ten years, a few hundred of them weekly series.
    std::string ics = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//test//EN\r\n";
    char buf[512];
    for (int i = 0; i < 100000; ++i) {
        int day = i % 3650;
        int y = 0, m = 0, d = 0;
        CivilFromDays(DaysFromCivil(2020, 1, 1) + day, y, m, d);
        int hour = 8 + i % 10;
        std::snprintf(buf, sizeof buf,
                      "BEGIN:VEVENT\r\nUID:big-%d@example.com\r\nDTSTAMP:20200101T000000Z\r\n"
                      "DTSTART:%04d%02d%02dT%02d0000\r\nDTEND:%04d%02d%02dT%02d3000\r\nSUMMARY:Event %d\r\n%s"
                      "END:VEVENT\r\n",
                      i, y, m, d, hour, y, m, d, hour, i, i % 300 == 0 ? "RRULE:FREQ=WEEKLY\r\n" : "");
        ics += buf;
    }
    ics += "END:VCALENDAR\r\n";
    TempDir dir;
    fs::path file = dir / "big.ics";
    WriteFile(file, ics);
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(file.string(), false, error)) << error;
    struct Case {
        const char* name;
        const wchar_t* restriction;
    } cases[] = {
        {"leading days", L"[End] >= 10/25/2026 AND [Start] <  11/1/2026"},
        {"month", L"[End] >= 11/1/2026 AND [Start] <= 11/30/2026"},
        {"trailing days", L"[End] >  11/30/2026 AND [Start] <= 12/5/2026"},
        {"one day", L"[End] >= 11/18/2026 AND [Start] <= 11/18/2026"},
    };
    for (const auto& c : cases) {
        auto begin = std::chrono::steady_clock::now();
        auto items = Ask(store, c.restriction);
        auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
        EXPECT_FALSE(items.empty()) << c.name;
        std::printf("%s: %zu items in %lld ms\n", c.name, items.size(), static_cast<long long>(ms.count()));
        // Far below a frame even in unoptimised and sanitizer builds.
        EXPECT_LT(ms.count(), 1000) << c.name;
    }
}

TEST(Store, DirectoryStoreWithOneBadFileServesTheRest) {
    TempDir dir;
    fs::path vdir = dir / "vdir";
    fs::create_directories(vdir);
    WriteFile(vdir / "good.ics",
              "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//EN\r\nBEGIN:VEVENT\r\nUID:good@x\r\n"
              "DTSTAMP:20261001T120000Z\r\nDTSTART:20261105T100000\r\nDTEND:20261105T110000\r\n"
              "SUMMARY:Good\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n");
    WriteFile(vdir / "bad.ics", "this is not a calendar\r\n");
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(vdir.string(), false, error, true)) << error;
    EXPECT_EQ(Ask(store, L"[End] >= 11/5/2026 AND [Start] <= 11/5/2026").size(), 1u);
    // A change saves the good file and leaves the other as it was.
    std::uint32_t oid = OidOf(store, L"Good");
    ItemSnapshot s;
    ASSERT_TRUE(store.Get(oid, s));
    s.f.subject = L"Better";
    ASSERT_TRUE(store.SaveItem(oid, s.f, nullptr, false, error)) << error;
    EXPECT_NE(ReadFile(vdir / "good.ics").find("SUMMARY:Better"), std::string::npos);
    EXPECT_EQ(ReadFile(vdir / "bad.ics"), "this is not a calendar\r\n");
    // A directory with nothing readable is refused.
    fs::remove(vdir / "good.ics");
    Store none(lfical::Zone::utc());
    EXPECT_FALSE(none.Open(vdir.string(), false, error, true));
}

// What the infrared folder sends: the series with its override and the one zone it uses, in
// its own bytes, readable as a calendar of its own that gives the same occurrences.
TEST(Store, ExportCarriesASeriesWholeWithItsZone) {
    const std::string zone =
        "BEGIN:VTIMEZONE\r\nTZID:Test/Plus2\r\nBEGIN:STANDARD\r\nTZOFFSETFROM:+0200\r\nTZOFFSETTO:+0200\r\n"
        "DTSTART:19700101T000000\r\nEND:STANDARD\r\nEND:VTIMEZONE\r\n";
    const std::string unused =
        "BEGIN:VTIMEZONE\r\nTZID:Test/Minus5\r\nBEGIN:STANDARD\r\nTZOFFSETFROM:-0500\r\nTZOFFSETTO:-0500\r\n"
        "DTSTART:19700101T000000\r\nEND:STANDARD\r\nEND:VTIMEZONE\r\n";
    const std::string series =
        "BEGIN:VEVENT\r\nUID:s-1\r\nDTSTAMP:20300101T000000Z\r\nDTSTART;TZID=Test/Plus2:20300105T100000\r\n"
        "DTEND;TZID=Test/Plus2:20300105T110000\r\nRRULE:FREQ=DAILY;COUNT=5\r\nSUMMARY:Daily\r\n"
        "X-KEPT:as written\r\nEND:VEVENT\r\n";
    const std::string moved =
        "BEGIN:VEVENT\r\nUID:s-1\r\nDTSTAMP:20300101T000000Z\r\nRECURRENCE-ID;TZID=Test/Plus2:20300107T100000\r\n"
        "DTSTART;TZID=Test/Plus2:20300107T160000\r\nDTEND;TZID=Test/Plus2:20300107T170000\r\n"
        "SUMMARY:Daily (later)\r\nEND:VEVENT\r\n";
    const std::string other =
        "BEGIN:VEVENT\r\nUID:o-1\r\nDTSTAMP:20300101T000000Z\r\nDTSTART;TZID=Test/Minus5:20300105T100000\r\n"
        "DTEND;TZID=Test/Minus5:20300105T110000\r\nSUMMARY:Other\r\nEND:VEVENT\r\n";
    TempDir dir;
    WriteFile(dir / "cal.ics", "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//t//EN\r\n" + zone + unused + series +
                                   moved + other + "END:VCALENDAR\r\n");
    Store store(lfical::Zone::utc());
    std::string error, text;
    ASSERT_TRUE(store.Open((dir / "cal.ics").string(), false, error)) << error;
    std::uint32_t oid = lfical::oidForUid("s-1");
    ASSERT_TRUE(store.ExportCalendar({oid}, text, error)) << error;
    EXPECT_EQ(text, "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//Calendar server//EN\r\n"
                    "METHOD:PUBLISH\r\n" + zone + series + moved + "END:VCALENDAR\r\n");

    lfical::Store sent;
    std::vector<lfical::Problem> problems;
    ASSERT_TRUE(sent.loadText(text, "sent", &problems));
    EXPECT_TRUE(problems.empty());
    auto starts = [](const lfical::Store& s) {
        std::vector<int64_t> out;
        for (const auto& o : s.query(lfical::Zone::utc(), 0, INT64_C(4102444800), lfical::Range::HalfOpen))
            if (s.uid(o.series) == "s-1") out.push_back(o.start);
        return out;
    };
    lfical::Store kept;
    ASSERT_TRUE(kept.load((dir / "cal.ics").string(), &problems));
    EXPECT_EQ(starts(sent), starts(kept));
    EXPECT_EQ(starts(sent).size(), 5u);

    EXPECT_FALSE(store.ExportCalendar({oid, 12345u}, text, error));
    EXPECT_NE(error.find("12345"), std::string::npos) << error;
}

// A walk reads the texts of an appointment only when asked: what it then
// reads is the appointment's, whenever it asks and whatever happened since.
TEST(Store, TextsAreReadWhenAskedAndFollowTheStore) {
    auto event = [](const std::string& uid, const std::string& day, const std::string& subject,
                    const std::string& categories = "Work,Late") {
        return "BEGIN:VEVENT\r\nUID:" + uid + "\r\nDTSTAMP:20300101T000000Z\r\nDTSTART:203001" + day +
               "T100000\r\nDTEND:203001" + day + "T110000\r\nSUMMARY:" + subject +
               "\r\nLOCATION:Room " + day + "\r\nDESCRIPTION:Notes\\, of " + subject +
               "\r\nCATEGORIES:" + categories + "\r\nEND:VEVENT\r\n";
    };
    // Two UIDs with one hash: the smaller keeps it as its OID, the other
    // moves on, the same in every run.
    const std::string first = "uid-522789@collide", second = "uid-739192@collide";
    ASSERT_EQ(lfical::oidForUid(first), lfical::oidForUid(second));
    TempDir dir;
    WriteFile(dir / "cal.ics", "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//t//EN\r\n" +
                                   event(second, "06", "Second") + event(first, "05", "First") +
                                   event("kept", "07", "Kept", "Home") + event("gone", "08", "Gone") + "END:VCALENDAR\r\n");
    auto store = std::make_shared<Store>(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store->Open((dir / "cal.ics").string(), false, error)) << error;
    auto items = store->QueryItems(true, {});
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].oid, lfical::oidForUid(first));
    EXPECT_EQ(items[1].oid, lfical::oidForUid(second + "#1"));
    ItemSnapshot got;
    ASSERT_TRUE(store->Get(items[1].oid, got));
    EXPECT_EQ(got.f.subject, L"Second");
    EXPECT_EQ(store->UidOf(items[1].oid), second);
    EXPECT_EQ(store->Count(), 4u);

    // Categories come with the query; the rest is read on demand.
    EXPECT_EQ(items[0].Text(&Fields::categories), L"Work, Late");
    EXPECT_EQ(items[0].Text(&Fields::subject), L"First");
    EXPECT_EQ(items[0].Text(&Fields::location), L"Room 05");
    EXPECT_EQ(items[0].Text(&Fields::body), L"Notes, of First");

    // A restriction on a text finds by it.
    for (const wchar_t* text : {L"[Subject] = \"Kept\"", L"[Categories] = \"Home\""}) {
        Restriction byText;
        ASSERT_TRUE(byText.Parse(text, DatePicture(L"M/d/yyyy"), &error)) << error;
        auto kept = store->QueryItems(true, {&byText});
        ASSERT_EQ(kept.size(), 1u);
        EXPECT_EQ(kept[0].Text(&Fields::location), L"Room 07");
    }

    // Changed before its texts were read: the appointment as it is now.
    ItemSnapshot whole = items[2].Snapshot();
    whole.OwnTexts();  // read before the change: kept as read
    Fields f = whole.f;
    f.subject = L"Kept, renamed";
    f.location = L"Room 7";
    f.body = L"";
    std::uint32_t oid = items[2].oid;
    FoundItem keptBefore = items[2];
    ASSERT_TRUE(store->SaveItem(oid, f, nullptr, false, error)) << error;
    EXPECT_EQ(keptBefore.Text(&Fields::subject), L"Kept");
    FoundItem unread = store->QueryItems(true, {})[2];
    ASSERT_TRUE(store->SaveItem(oid, f, nullptr, false, error)) << error;
    EXPECT_EQ(unread.Text(&Fields::subject), L"Kept, renamed");
    EXPECT_EQ(unread.Text(&Fields::location), L"Room 7");

    // Deleted, or the store closed, before they were read: empty, not a crash.
    FoundItem deleted = store->QueryItems(true, {})[3], closed = store->QueryItems(true, {})[0];
    ASSERT_TRUE(store->DeleteItem(deleted.oid, error)) << error;
    EXPECT_EQ(deleted.Text(&Fields::subject), L"");
    EXPECT_EQ(deleted.Text(&Fields::categories), L"Work, Late");
    store.reset();
    EXPECT_EQ(closed.Text(&Fields::subject), L"");
    ItemSnapshot closedWhole = closed.Snapshot();
    closedWhole.OwnTexts();
    EXPECT_EQ(closedWhole.f.categories, L"Work, Late");
}

// A sync that changes or deletes an appointment or one occurrence of a series while the user edits
// it in the form: the save finds the other program's version, which stays, and keeps the user's
// beside it as an appointment of its own. A sync that changed something else of the series merges.
TEST(Store, AnEditThatASyncOvertookKeepsBothVersions) {
    const std::string series =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//EN\r\n"
        "BEGIN:VEVENT\r\nUID:standup\r\nDTSTAMP:20261001T120000Z\r\nDTSTART:20261102T090000\r\n"
        "DTEND:20261102T093000\r\nRRULE:FREQ=DAILY;COUNT=5\r\nEXDATE:20261105T090000\r\nSUMMARY:Standup\r\n"
        "X-TEAM-ROOM;X-FLOOR=3:Blue\r\nBEGIN:VALARM\r\nACTION:DISPLAY\r\nTRIGGER:-PT5M\r\nDESCRIPTION:x\r\n"
        "END:VALARM\r\nEND:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:standup\r\nDTSTAMP:20261001T120000Z\r\nRECURRENCE-ID:20261104T090000\r\n"
        "DTSTART:20261104T100000\r\nDTEND:20261104T103000\r\nSUMMARY:Standup late\r\nEND:VEVENT\r\n"
        "END:VCALENDAR\r\n";
    const std::string single =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//EN\r\nBEGIN:VEVENT\r\nUID:lunch\r\n"
        "DTSTAMP:20261001T120000Z\r\nDTSTART:20261103T120000\r\nDTEND:20261103T130000\r\nSUMMARY:Lunch\r\n"
        "END:VEVENT\r\nEND:VCALENDAR\r\n";
    enum Kept { kMerged, kBoth, kAlone };
    struct Case {
        const char* name;
        const char* file;      // which file the sync rewrites
        const char* from;      // ... replacing this text (none: deletes the file)
        const char* to;
        LocalSecs original;    // the occurrence edited (0: the single appointment)
        bool watchSawIt;       // the server's watch read the sync before OK
        Kept kept;
        std::vector<std::pair<std::wstring, LocalSecs>> after;  // the week, in order
        bool whole = false;    // the whole series edited, its pattern read as the form reads it
    } cases[] = {
        {"the series renamed, a plain occurrence edited", "standup.ics", "SUMMARY:Standup\r\n",
         "SUMMARY:Standup (server)\r\n", At(2026, 11, 3, 9), true, kBoth,
         {{L"Standup (server)", At(2026, 11, 2, 9)}, {L"Standup (server)", At(2026, 11, 3, 9)},
          {L"Mine", At(2026, 11, 3, 9)}, {L"Lunch", At(2026, 11, 3, 12)},
          {L"Standup late", At(2026, 11, 4, 10)}, {L"Standup (server)", At(2026, 11, 6, 9)}}},
        {"the exception changed before the watch looked", "standup.ics", "SUMMARY:Standup late\r\n",
         "SUMMARY:Standup later\r\n", At(2026, 11, 4, 9), false, kBoth,
         {{L"Standup", At(2026, 11, 2, 9)}, {L"Standup", At(2026, 11, 3, 9)}, {L"Lunch", At(2026, 11, 3, 12)},
          {L"Standup later", At(2026, 11, 4, 10)}, {L"Mine", At(2026, 11, 4, 10)},
          {L"Standup", At(2026, 11, 6, 9)}}},
        {"another occurrence deleted: merged", "standup.ics", "EXDATE:20261105T090000\r\n",
         "EXDATE:20261105T090000,20261106T090000\r\n", At(2026, 11, 3, 9), false, kMerged,
         {{L"Standup", At(2026, 11, 2, 9)}, {L"Mine", At(2026, 11, 3, 9)}, {L"Lunch", At(2026, 11, 3, 12)},
          {L"Standup late", At(2026, 11, 4, 10)}}},
        {"the appointment renamed", "lunch.ics", "SUMMARY:Lunch\r\n", "SUMMARY:Lunch (server)\r\n", 0, true, kBoth,
         {{L"Standup", At(2026, 11, 2, 9)}, {L"Standup", At(2026, 11, 3, 9)},
          {L"Lunch (server)", At(2026, 11, 3, 12)}, {L"Mine", At(2026, 11, 3, 12)},
          {L"Standup late", At(2026, 11, 4, 10)}, {L"Standup", At(2026, 11, 6, 9)}}},
        {"the occurrence deleted", "standup.ics", "EXDATE:20261105T090000\r\n",
         "EXDATE:20261105T090000,20261103T090000\r\n", At(2026, 11, 3, 9), false, kAlone,
         {{L"Standup", At(2026, 11, 2, 9)}, {L"Mine", At(2026, 11, 3, 9)}, {L"Lunch", At(2026, 11, 3, 12)},
          {L"Standup late", At(2026, 11, 4, 10)}, {L"Standup", At(2026, 11, 6, 9)}}},
        {"the series deleted", "standup.ics", nullptr, nullptr, At(2026, 11, 3, 9), true, kAlone,
         {{L"Mine", At(2026, 11, 3, 9)}, {L"Lunch", At(2026, 11, 3, 12)}}},
        {"the series deleted while the whole series was edited", "standup.ics", nullptr, nullptr, 0, true, kAlone,
         {{L"Mine", At(2026, 11, 2, 9)}, {L"Mine", At(2026, 11, 3, 9)}, {L"Lunch", At(2026, 11, 3, 12)},
          {L"Mine", At(2026, 11, 4, 9)}, {L"Mine", At(2026, 11, 5, 9)}, {L"Mine", At(2026, 11, 6, 9)}},
         true},
        {"the appointment deleted", "lunch.ics", nullptr, nullptr, 0, false, kAlone,
         {{L"Standup", At(2026, 11, 2, 9)}, {L"Standup", At(2026, 11, 3, 9)}, {L"Mine", At(2026, 11, 3, 12)},
          {L"Standup late", At(2026, 11, 4, 10)}, {L"Standup", At(2026, 11, 6, 9)}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        fs::path vdir = dir / "vdir";
        fs::create_directories(vdir);
        WriteFile(vdir / "standup.ics", series);
        WriteFile(vdir / "lunch.ics", single);
        auto store = std::make_shared<Store>(lfical::Zone::utc());
        std::string error;
        ASSERT_TRUE(store->Open(vdir.string(), false, error, true)) << error;
        std::uint32_t oid = OidOf(*store, c.original || c.whole ? L"Standup" : L"Lunch");
        ItemSnapshot read;
        ASSERT_TRUE(c.original ? store->GetOccurrence(oid, c.original, read) : store->Get(oid, read));
        Pattern pattern;
        if (c.whole) {
            ASSERT_TRUE(store->GetPattern(oid, pattern));
        }
        read.OwnTexts();
        // The sync writes the file as vdirsyncer does (a new file renamed over it).
        if (c.from) {
            std::string text = ReadFile(vdir / c.file);
            ASSERT_NE(text.find(c.from), std::string::npos);
            text.replace(text.find(c.from), strlen(c.from), c.to);
            WriteFile(vdir / (std::string(c.file) + ".tmp"), text);
            fs::rename(vdir / (std::string(c.file) + ".tmp"), vdir / c.file);
        } else {
            fs::remove(vdir / c.file);
        }
        if (c.watchSawIt) {
            ASSERT_TRUE(store->Reload(error)) << error;
        }
        Fields mine = read.f;
        mine.subject = L"Mine";
        bool saved = c.original ? store->SaveOccurrence(oid, read.originalStart, mine, error, &read.f)
                                : store->SaveItem(oid, mine, nullptr, false, error, &read.f,
                                                  c.whole ? &pattern : nullptr);
        EXPECT_EQ(saved, c.kept == kMerged) << error;
        auto conflicts = store->LastConflicts();
        EXPECT_EQ(conflicts.size() == 1 && conflicts[0] == (c.original ? "standup" : "lunch"), c.kept == kBoth);
        EXPECT_EQ(store->KeptAfterDelete() != 0, c.kept == kAlone);
        if (c.to) {
            EXPECT_NE(ReadFile(vdir / c.file).find(c.to), std::string::npos) << "the sync's version stays";
        } else {
            EXPECT_FALSE(fs::exists(vdir / c.file)) << "the sync's delete stays";
        }
        // What the views show now, and after a fresh start.
        for (int pass = 0; pass < 2; ++pass) {
            Store reread(lfical::Zone::utc());
            const Store& shown = pass ? (reread.Open(vdir.string(), false, error, true), reread) : *store;
            std::vector<std::pair<std::wstring, LocalSecs>> got;
            for (const auto& s : Ask(shown, L"[End] >= 11/1/2026 AND [Start] <= 11/8/2026")) got.push_back({s.f.subject, s.f.start});
            auto byStart = [](const std::pair<std::wstring, LocalSecs>& a, const std::pair<std::wstring, LocalSecs>& b) {
                return a.second != b.second ? a.second < b.second : a.first < b.first;
            };
            std::sort(got.begin(), got.end(), byStart);
            auto want = c.after;
            std::sort(want.begin(), want.end(), byStart);
            EXPECT_EQ(got, want) << (pass ? "read again" : "the running store");
        }
        // The kept version is a one-off with what the user did not change: its alarm and the
        // property only another program knows; a whole series edited stays a series.
        size_t files = 0;
        for (const auto& f : fs::directory_iterator(vdir)) {
            ++files;
            std::string name = f.path().filename().string();
            if (name == "standup.ics" || name == "lunch.ics") continue;
            std::string copy = ReadFile(f.path());
            EXPECT_NE(copy.find("SUMMARY:Mine\r\n"), std::string::npos) << copy;
            for (const char* gone : {"RRULE", "EXDATE", "RECURRENCE-ID", "UID:standup", "UID:lunch"})
                if (!c.whole || strcmp(gone, "RRULE") != 0) {
                    EXPECT_EQ(copy.find(gone), std::string::npos) << gone << " in " << copy;
                }
            EXPECT_EQ(copy.find("RRULE:FREQ=DAILY") != std::string::npos, c.whole) << copy;
            if (c.original == At(2026, 11, 3, 9) && c.to) {
                for (const char* kept : {"X-TEAM-ROOM;X-FLOOR=3:Blue\r\n", "TRIGGER:-PT5M\r\n"})
                    EXPECT_NE(copy.find(kept), std::string::npos) << kept << " not in " << copy;
            }
        }
        EXPECT_EQ(files, (c.kept == kMerged ? 2u : 3u) - (c.to ? 0u : 1u));
    }
}

// A file of a directory store that cannot be one appointment is told once, by its name, however
// often the store is read again; a new such file is told when it comes.
TEST(Store, SkippedFilesAreToldOnceByName) {
    TempDir dir;
    fs::path vdir = dir / "vdir";
    fs::create_directories(vdir);
    auto event = [](const char* uid, const char* day) {
        return std::string("BEGIN:VEVENT\r\n") + (*uid ? std::string("UID:") + uid + "\r\n" : "") +
               "DTSTAMP:20261001T120000Z\r\nDTSTART:" + day + "T100000\r\nSUMMARY:x\r\nEND:VEVENT\r\n";
    };
    auto calendar = [](const std::string& events) {
        return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//EN\r\n" + events + "END:VCALENDAR\r\n";
    };
    WriteFile(vdir / "good.ics", calendar(event("good", "20261105")));
    WriteFile(vdir / "two.ics", calendar(event("one", "20261106") + event("other", "20261107")));
    Store store(lfical::Zone::utc());
    std::string error;
    ASSERT_TRUE(store.Open(vdir.string(), false, error, true)) << error;
    std::vector<std::string> told = store.TakeNewProblems();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NE(told[0].find("two.ics"), std::string::npos) << told[0];
    EXPECT_NE(told[0].find("UIDs"), std::string::npos) << told[0];
    EXPECT_EQ(store.Count(), 1u);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(store.Reload(error)) << error;
        EXPECT_TRUE(store.TakeNewProblems().empty()) << "read again";
    }
    WriteFile(vdir / "nouid.ics", calendar(event("", "20261108")));
    ASSERT_TRUE(store.Reload(error)) << error;
    told = store.TakeNewProblems();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NE(told[0].find("nouid.ics"), std::string::npos) << told[0];
    EXPECT_EQ(store.Count(), 1u);
}
