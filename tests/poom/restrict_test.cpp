// The restriction language of the calendar server: date pictures of the
// locales, the whole-day rule, operators, and text that must be refused.
#include <gtest/gtest.h>

#include <string>

#include "caltime.h"
#include "restrict.h"

using namespace poom;

namespace {

LocalSecs At(int y, int mo, int d, int h = 0, int mi = 0) { return ToSecs(CivilTime{y, mo, d, h, mi, 0}); }

RestrictRecord Appt(LocalSecs start, LocalSecs end, const wchar_t* subject = L"") {
    RestrictRecord r;
    r.start = start;
    r.end = end;
    r.subject = subject;
    r.duration = static_cast<long>((end - start) / 60);
    return r;
}

std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

}  // namespace

TEST(Caltime, DateValuesRoundTrip) {
    struct Case {
        const char* name;
        double ole;
        CivilTime t;
    } cases[] = {
        {"epoch", 0.0, {1899, 12, 30, 0, 0, 0}},
        {"day one", 1.0, {1899, 12, 31, 0, 0, 0}},
        {"y2k noon", 36526.5, {2000, 1, 1, 12, 0, 0}},
        {"before epoch", -1.25, {1899, 12, 29, 6, 0, 0}},
        {"leap day", 46082.75, {2026, 3, 1, 18, 0, 0}},
        {"1900 is no leap year", 61.0, {1900, 3, 1, 0, 0, 0}},
        {"2000 is one", 36585.0, {2000, 2, 29, 0, 0, 0}},
        {"year 100", -657433.25, {100, 1, 2, 6, 0, 0}},
        {"year 9999", 2958465.5, {9999, 12, 31, 12, 0, 0}},
    };
    for (const auto& c : cases) {
        LocalSecs s = 0;
        ASSERT_TRUE(SecsFromOle(c.ole, s)) << c.name;
        CivilTime t = FromSecs(s);
        EXPECT_EQ(t.year, c.t.year) << c.name;
        EXPECT_EQ(t.month, c.t.month) << c.name;
        EXPECT_EQ(t.day, c.t.day) << c.name;
        EXPECT_EQ(t.hour, c.t.hour) << c.name;
        EXPECT_DOUBLE_EQ(OleFromSecs(s), c.ole) << c.name;
        EXPECT_EQ(ToSecs(c.t), s) << c.name;
    }
    LocalSecs s = 0;
    EXPECT_FALSE(SecsFromOle(1e300, s));
    EXPECT_FALSE(SecsFromOle(-1e9, s));
    EXPECT_EQ(WeekdayOfDays(DaysFromCivil(2026, 11, 1)), 0);  // a Sunday
    EXPECT_EQ(WeekdayOfDays(DaysFromCivil(2026, 10, 31)), 6);
    EXPECT_EQ(WeekdayOfDays(DaysFromCivil(1899, 12, 29)), 5);  // before the epoch too
    EXPECT_EQ(DaysInMonth(1900, 2), 28);
    EXPECT_EQ(DaysInMonth(2024, 2), 29);
    EXPECT_EQ(DaysInMonth(2026, 13), 0);
}

TEST(DatePicture, ReadsEachLocalesShortDate) {
    struct Case {
        const char* name;
        const wchar_t* picture;
        const wchar_t* text;
        bool ok;
        LocalSecs expect;
        bool hasTime;
    } cases[] = {
        {"en_US", L"M/d/yyyy", L"11/5/2026", true, At(2026, 11, 5), false},
        {"en_US padded", L"M/d/yyyy", L"01/05/2026", true, At(2026, 1, 5), false},
        {"de_DE", L"dd.MM.yyyy", L"05.11.2026", true, At(2026, 11, 5), false},
        {"de_DE short numbers", L"dd.MM.yyyy", L"5.1.2026", true, At(2026, 1, 5), false},
        {"iso", L"yyyy-MM-dd", L"2026-11-05", true, At(2026, 11, 5), false},
        {"two-digit year", L"d/M/yy", L"5/11/26", true, At(2026, 11, 5), false},
        {"two-digit old year", L"d/M/yy", L"5/11/95", true, At(1995, 11, 5), false},
        {"quoted literal", L"d'.'M'.'yyyy", L"5.11.2026", true, At(2026, 11, 5), false},
        {"12-hour time", L"M/d/yyyy", L"11/5/2026 10:30 PM", true, At(2026, 11, 5, 22, 30), true},
        {"midnight AM", L"M/d/yyyy", L"11/5/2026 12:00 AM", true, At(2026, 11, 5), true},
        {"24-hour time", L"dd.MM.yyyy", L"05.11.2026 22:30", true, At(2026, 11, 5, 22, 30), true},
        {"seconds", L"dd.MM.yyyy", L"05.11.2026 22:30:15", true, At(2026, 11, 5, 22, 30) + 15, true},
        {"day out of range", L"M/d/yyyy", L"2/30/2026", false, 0, false},
        {"month out of range", L"dd.MM.yyyy", L"05.13.2026", false, 0, false},
        {"wrong order for picture", L"dd.MM.yyyy", L"11/5/2026", false, 0, false},
        {"letters", L"M/d/yyyy", L"tomorrow", false, 0, false},
        {"trailing junk", L"M/d/yyyy", L"11/5/2026 soon", false, 0, false},
        {"bad hour", L"M/d/yyyy", L"11/5/2026 25:00", false, 0, false},
        {"bad 12-hour", L"M/d/yyyy", L"11/5/2026 13:00 PM", false, 0, false},
        {"empty", L"M/d/yyyy", L"", false, 0, false},
    };
    for (const auto& c : cases) {
        DatePicture p(c.picture);
        LocalSecs got = 0;
        bool hasTime = false;
        bool ok = p.Parse(c.text, got, hasTime);
        EXPECT_EQ(ok, c.ok) << c.name;
        if (ok && c.ok) {
            EXPECT_EQ(got, c.expect) << c.name;
            EXPECT_EQ(hasTime, c.hasTime) << c.name;
        }
    }
}

TEST(DatePicture, SpelledMonthsAndDayNames) {
    std::vector<std::wstring> names = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun", L"Jul", L"Aug", L"Sep",
                                       L"Oct", L"Nov", L"Dec", L"January", L"February", L"March", L"April",
                                       L"May", L"June", L"July", L"August", L"September", L"October",
                                       L"November", L"December"};
    struct Case {
        const char* name;
        const wchar_t* picture;
        const wchar_t* text;
        bool ok;
        LocalSecs expect;
    } cases[] = {
        {"abbreviated", L"dd-MMM-yy", L"05-Nov-26", true, At(2026, 11, 5)},
        {"any case", L"dd-MMM-yy", L"05-NOV-26", true, At(2026, 11, 5)},
        {"full name", L"d MMMM yyyy", L"5 June 2026", true, At(2026, 6, 5)},
        {"day name", L"dddd, MMMM d, yyyy", L"Thursday, November 5, 2026", true, At(2026, 11, 5)},
        {"unknown month", L"dd-MMM-yy", L"05-Nox-26", false, 0},
    };
    for (const auto& c : cases) {
        DatePicture p(c.picture, names);
        LocalSecs got = 0;
        bool hasTime = false;
        EXPECT_EQ(p.Parse(c.text, got, hasTime), c.ok) << c.name;
        if (c.ok) {
            EXPECT_EQ(got, c.expect) << c.name;
        }
    }
}

TEST(Restriction, WholeDayRuleForDateLiterals) {
    // The program's one-day query and its three month templates, against
    // appointments at the edges of days.
    const wchar_t* oneDay = L"[End] >= 11/30/2026 AND [Start] <= 11/30/2026";
    const wchar_t* month = L"[End] >= 11/1/2026 AND [Start] <= 11/30/2026";
    const wchar_t* leading = L"[End] >= 10/25/2026 AND [Start] <  11/1/2026";
    const wchar_t* trailing = L"[End] >  11/30/2026 AND [Start] <= 12/5/2026";
    struct Case {
        const char* name;
        const wchar_t* restriction;
        RestrictRecord appt;
        bool match;
    } cases[] = {
        {"day: inside", oneDay, Appt(At(2026, 11, 30, 10), At(2026, 11, 30, 11)), true},
        {"day: late night into next day", oneDay, Appt(At(2026, 11, 30, 23), At(2026, 12, 1, 1)), true},
        {"day: from the day before", oneDay, Appt(At(2026, 11, 29, 23), At(2026, 11, 30, 1)), true},
        {"day: all-day that day", oneDay, Appt(At(2026, 11, 30), At(2026, 12, 1)), true},
        {"day: all-day the day before", oneDay, Appt(At(2026, 11, 29), At(2026, 11, 30)), false},
        {"day: all-day the day after", oneDay, Appt(At(2026, 12, 1), At(2026, 12, 2)), false},
        {"day: spans it", oneDay, Appt(At(2026, 11, 28, 9), At(2026, 12, 2, 9)), true},
        {"day: ends at its first minute", oneDay, Appt(At(2026, 11, 29, 22), At(2026, 11, 30, 0, 1)), true},
        {"day: zero length at midnight", oneDay, Appt(At(2026, 11, 30), At(2026, 11, 30)), true},
        {"day: the next day", oneDay, Appt(At(2026, 12, 1, 9), At(2026, 12, 1, 10)), false},
        {"month: last day late", month, Appt(At(2026, 11, 30, 23), At(2026, 12, 1, 1)), true},
        {"month: first day", month, Appt(At(2026, 11, 1, 0), At(2026, 11, 1, 1)), true},
        {"month: before", month, Appt(At(2026, 10, 31, 9), At(2026, 10, 31, 10)), false},
        {"month: across the start", month, Appt(At(2026, 10, 31, 22), At(2026, 11, 1, 2)), true},
        {"leading: in the leading days", leading, Appt(At(2026, 10, 27, 9), At(2026, 10, 27, 10)), true},
        {"leading: first of the month excluded", leading, Appt(At(2026, 11, 1, 9), At(2026, 11, 1, 10)), false},
        {"leading: across the start", leading, Appt(At(2026, 10, 31, 22), At(2026, 11, 1, 2)), true},
        {"trailing: late on the last day excluded", trailing, Appt(At(2026, 11, 30, 9), At(2026, 11, 30, 10)), false},
        {"trailing: across the end", trailing, Appt(At(2026, 11, 30, 23), At(2026, 12, 1, 1)), true},
        {"trailing: last shown day", trailing, Appt(At(2026, 12, 5, 23), At(2026, 12, 5, 23, 30)), true},
        {"trailing: after", trailing, Appt(At(2026, 12, 6, 9), At(2026, 12, 6, 10)), false},
    };
    DatePicture us(L"M/d/yyyy");
    for (const auto& c : cases) {
        Restriction r;
        std::string error;
        ASSERT_TRUE(r.Parse(c.restriction, us, &error)) << c.name << ": " << error;
        EXPECT_EQ(r.Matches(c.appt), c.match) << c.name;
        // Every match lies inside the bounds used to expand recurrences.
        LocalSecs lo = 0, hi = 0;
        r.Bounds(lo, hi);
        if (c.match) {
            EXPECT_GE(c.appt.end, lo) << c.name;
            EXPECT_LE(c.appt.start, hi) << c.name;
        }
    }
}

TEST(Restriction, OperatorsValuesAndGrouping) {
    RestrictRecord a = Appt(At(2026, 11, 5, 10), At(2026, 11, 5, 11), L"Dentist");
    a.location = L"Main St";
    a.busyStatus = 2;
    a.allDay = false;
    a.oid = -5;
    struct Case {
        const char* name;
        const wchar_t* text;
        bool match;
    } cases[] = {
        {"string equal, any case", L"[Subject] = \"dentist\"", true},
        {"string not equal", L"[Subject] <> \"Dentist\"", false},
        {"single quotes", L"[Location] = 'Main St'", true},
        {"doubled quote", L"[Subject] = \"Den\"\"tist\"", false},
        {"string order", L"[Subject] < \"E\"", true},
        {"number", L"[BusyStatus] = 2", true},
        {"number not", L"[BusyStatus] <> 2", false},
        {"duration", L"[Duration] >= 60", true},
        {"bool", L"[AllDayEvent] = FALSE", true},
        {"bool numeric", L"[AllDayEvent] = 0", true},
        {"negative oid", L"[Oid] = -5", true},
        {"unsigned oid", L"[Oid] = 4294967291", true},
        {"date with time, before", L"[Start] < \"11/5/2026 10:30 AM\"", true},
        {"date with time, exact", L"[Start] = \"11/5/2026 10:00 AM\"", true},
        {"date with time unquoted", L"[Start] > 11/5/2026 10:30 AM AND [Subject] = \"Dentist\"", false},
        {"date only equal", L"[Start] = 11/5/2026", true},
        {"or", L"[Subject] = \"x\" OR [BusyStatus] = 2", true},
        {"and binds tighter", L"[Subject] = \"x\" AND [BusyStatus] = 2 OR [Location] = \"Main St\"", true},
        {"parentheses", L"[Subject] = \"x\" AND ([BusyStatus] = 2 OR [Location] = \"Main St\")", false},
        {"lower-case keywords", L"[busystatus] = 2 and [subject] = \"Dentist\"", true},
        {"no blanks", L"([BusyStatus]=2)AND([Subject]=\"Dentist\")", true},
    };
    DatePicture us(L"M/d/yyyy");
    for (const auto& c : cases) {
        Restriction r;
        std::string error;
        ASSERT_TRUE(r.Parse(c.text, us, &error)) << c.name << ": " << error;
        EXPECT_EQ(r.Matches(a), c.match) << c.name;
    }
}

TEST(Restriction, RefusesMalformedText) {
    const wchar_t* bad[] = {
        L"",
        L"   ",
        L"[Start]",
        L"[Start] >=",
        L"[Start] >= ",
        L"[Nonsense] = 1",
        L"Start >= 11/1/2026",
        L"[Start >= 11/1/2026",
        L"[Start] ~ 11/1/2026",
        L"[Start] >= 31/12/2026",
        L"[Start] >= 11/1/2026 AND",
        L"[Start] >= 11/1/2026 OR OR [End] < 1/1/2027",
        L"([Start] >= 11/1/2026",
        L"[Start] >= 11/1/2026)",
        L"[Subject] = \"unterminated",
        L"[BusyStatus] = busy",
        L"[BusyStatus] = 99999999999",
        L"[Start] >= 11/1/2026 [End] < 12/1/2026",
        L"((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((((("
        L"[Start] >= 11/1/2026",
    };
    DatePicture us(L"M/d/yyyy");
    for (const wchar_t* text : bad) {
        Restriction r;
        std::string error;
        EXPECT_FALSE(r.Parse(text, us, &error)) << Narrow(text);
        EXPECT_FALSE(error.empty()) << Narrow(text);
        EXPECT_TRUE(r.Empty()) << Narrow(text);
    }
}

TEST(Restriction, MangledTextNeverCrashes) {
    // Every prefix of the program's restrictions, and random damage to them,
    // either parses or is refused; nothing else happens.
    const std::wstring base = L"([End] >= 11/1/2026 AND [Start] <  \"11/30/2026 10:00 PM\") OR [Subject] <> 'a''b'";
    DatePicture us(L"M/d/yyyy");
    RestrictRecord r = Appt(At(2026, 11, 5, 10), At(2026, 11, 5, 11), L"x");
    for (size_t n = 0; n <= base.size(); ++n) {
        Restriction x;
        if (x.Parse(base.substr(0, n), us)) x.Matches(r);
    }
    const wchar_t alphabet[] = L"[]()\"' <>=ANDORStartEnd0123456789/.:";
    unsigned seed = 12345;
    for (int i = 0; i < 20000; ++i) {
        std::wstring t = base;
        for (int k = 0; k < 3; ++k) {
            seed = seed * 1103515245u + 12345u;
            size_t at = (seed >> 8) % t.size();
            seed = seed * 1103515245u + 12345u;
            t[at] = alphabet[(seed >> 8) % (sizeof(alphabet) / sizeof(wchar_t) - 1)];
        }
        Restriction x;
        if (x.Parse(t, us)) x.Matches(r);
    }
}

TEST(Restriction, GermanShortDates) {
    DatePicture de(L"dd.MM.yyyy");
    Restriction r;
    std::string error;
    ASSERT_TRUE(r.Parse(L"[End] >= 01.11.2026 AND [Start] <= 30.11.2026", de, &error)) << error;
    EXPECT_TRUE(r.Matches(Appt(At(2026, 11, 30, 23), At(2026, 12, 1, 1))));
    EXPECT_FALSE(r.Matches(Appt(At(2026, 12, 1, 9), At(2026, 12, 1, 10))));
    // A US date is not a German one.
    EXPECT_FALSE(r.Parse(L"[End] >= 11/1/2026", de, &error));
}
