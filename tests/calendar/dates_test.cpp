// The locale-dependent date routines, run once per test locale: the
// environment's LC_ALL decides which expectations hold.
#include "calendar/dates.h"
#include "common/appstate.h"

#include <gtest/gtest.h>
#include <string>

static bool German()
{
    WCHAR buf[64] = L"";
    GetEnvironmentVariableW(L"LC_ALL", buf, 64);
    return std::wstring(buf).rfind(L"de_DE", 0) == 0;
}

TEST(Dates, TheLocaleIsTheOneAskedFor)
{
    WCHAR name[LOCALE_NAME_MAX_LENGTH] = L"";
    GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH);
    EXPECT_STREQ(name, German() ? L"de-DE" : L"en-US");
}

TEST(Dates, WeekLayoutFollowsTheLocale)
{
    // 22 November 2026 is a Sunday, the 23rd a Monday, the 28th a Saturday.
    if (German()) {
        EXPECT_EQ(LocaleMondayFirst(), 1);
        EXPECT_EQ(WeekdayColumn(11, 22, 2026), 6);
        EXPECT_EQ(WeekdayColumn(11, 23, 2026), 0);
        EXPECT_EQ(WeekdayColumn(11, 28, 2026), 5);
    } else {
        EXPECT_EQ(LocaleMondayFirst(), 0);
        EXPECT_EQ(WeekdayColumn(11, 22, 2026), 0);
        EXPECT_EQ(WeekdayColumn(11, 23, 2026), 1);
        EXPECT_EQ(WeekdayColumn(11, 28, 2026), 6);
    }
    // The header's first column is the locale's first day, cut to three
    // characters in the short form.
    WCHAR full[20], shortForm[20];
    for (int c = 0; c < 7; c++) {
        WeekdayHeader(c, full, 0);
        WeekdayHeader(c, shortForm, 1);
        EXPECT_GT(lstrlenW(shortForm), 0) << "column " << c;
        EXPECT_LE(lstrlenW(shortForm), 3) << "column " << c;
        EXPECT_EQ(std::wstring(full).substr(0, 3), std::wstring(shortForm)) << "column " << c;
    }
    WeekdayHeader(0, shortForm, 1);
    WCHAR expected[20];
    GetLocaleInfoW(LOCALE_USER_DEFAULT, German() ? LOCALE_SABBREVDAYNAME1 : LOCALE_SABBREVDAYNAME7, expected, 20);
    expected[3] = 0;
    EXPECT_STREQ(shortForm, expected);
}

TEST(Dates, MonthNames)
{
    WCHAR names[12][20];
    LoadMonthNames(names);
    EXPECT_STREQ(names[0], German() ? L"Januar" : L"January");
    EXPECT_STREQ(names[2], German() ? L"M\u00e4rz" : L"March");
    EXPECT_STREQ(names[11], German() ? L"Dezember" : L"December");
}

TEST(Dates, AddDaysCrossesMonthsAndYears)
{
    struct { int m, d, y, days, em, ed, ey; } cases[] = {
        {12, 31, 1999, 1, 1, 1, 2000}, {3, 1, 2004, -1, 2, 29, 2004}, {3, 1, 1900, -1, 2, 28, 1900},
        {1, 31, 2026, 30, 3, 2, 2026}, {6, 15, 2026, 0, 6, 15, 2026},  {1, 1, 2026, -365, 1, 1, 2025},
    };
    for (auto &c : cases) {
        int m = c.m, d = c.d, y = c.y;
        EXPECT_TRUE(AddDays(&m, &d, &y, c.days));
        EXPECT_EQ(m * 1000000 + d * 10000 + y, c.em * 1000000 + c.ed * 10000 + c.ey)
            << c.m << "/" << c.d << "/" << c.y << " + " << c.days;
    }
}

// The boundaries are day fractions rounded through single precision; the
// first two slots read as midnight of the day (hour 24 of the zero date).
TEST(Dates, IndicatorTimesAreSinglePrecisionDayFractions)
{
    struct { int slot; double fraction; } cases[] = {
        {12, 0.25}, {24, 0.5}, {34, (double)(float)(17.0 / 24)}, {42, (double)(float)(21.0 / 24)},
        {0, 0.0},   {1, (double)(float)(0.5 / 24)}, {47, (double)(float)(23.5 / 24)},
    };
    for (auto &c : cases)
        EXPECT_DOUBLE_EQ(SlotDayFraction(c.slot), c.fraction) << "slot " << c.slot;

    g_app.settings.timeA = 12;
    g_app.settings.timeB = 24;
    g_app.settings.timeC = 34;
    g_app.settings.timeD = 200; // out of range: read as given, never a crash
    LoadIndicatorTimes();
    EXPECT_DOUBLE_EQ(g_app.settings.bandA, 0.25);
    EXPECT_DOUBLE_EQ(g_app.settings.bandB, 0.5);
    EXPECT_GE(g_app.settings.bandD, 0.0);
    EXPECT_LT(g_app.settings.bandD, 1.0);
}
