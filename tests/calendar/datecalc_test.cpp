// The locale-free date arithmetic, over the edge cases the month grid and
// the day view depend on.
#include "datecalc.h"

#include <gtest/gtest.h>

TEST(DateCalc, DayNumbersAndWeekdays)
{
    EXPECT_EQ(DayNumber(1, 1, 2000), 2451545);
    EXPECT_EQ(DayNumber(12, 31, 1999) + 1, DayNumber(1, 1, 2000));
    EXPECT_EQ(DayNumber(3, 1, 1900) - DayNumber(2, 28, 1900), 1) << "the Gregorian day count has no 29 Feb 1900";
    EXPECT_EQ(DayOfYear(1, 1, 2004), 0);
    EXPECT_EQ(DayOfYear(12, 31, 2004), 365);
    EXPECT_EQ(DayOfYear(12, 31, 2003), 364);

    struct { int m, d, y, dow; } cases[] = {
        {1, 1, 2004, 4}, {1, 1, 2000, 6}, {12, 31, 1999, 5}, {2, 29, 2000, 2},
        {3, 1, 1900, 4}, {11, 22, 2026, 0}, {7, 4, 1776, 4}, {1, 1, 1601, 1},
    };
    for (auto &c : cases)
        EXPECT_EQ(DayOfWeek(c.m, c.d, c.y), c.dow) << c.m << "/" << c.d << "/" << c.y;
}

TEST(DateCalc, FebruaryFollowsTheFourYearRule)
{
    EXPECT_EQ(IsLeapYear4(1900), 1);
    EXPECT_EQ(IsLeapYear4(2000), 1);
    EXPECT_EQ(IsLeapYear4(2100), 1);
    EXPECT_EQ(IsLeapYear4(2001), 0);
    EXPECT_EQ(MonthLength(2, 1900), 29);
    EXPECT_EQ(MonthLength(2, 2023), 28);
    EXPECT_EQ(MonthLength(4, 2023), 30);
    EXPECT_EQ(MonthLength(12, 2023), 31);
    EXPECT_EQ(CalendarMonthLength(2, 1900), 28) << "the grid's 29th is no date";
    EXPECT_EQ(CalendarMonthLength(2, 2100), 28);
    EXPECT_EQ(CalendarMonthLength(2, 2000), 29);
    EXPECT_EQ(CalendarMonthLength(4, 2100), 30);
    EXPECT_EQ(LeapGregorian(1900), 0);
    EXPECT_EQ(LeapGregorian(2000), 1);
    EXPECT_EQ(LeapGregorian(2300), 0);
}

// Week numbers at the turns of the year, as the grid shows them with a
// Sunday-first (0) and a Monday-first (1) week. The year-turn checks use
// the shifted leap test, which counts 2000 as a common year.
TEST(DateCalc, WeekNumbersAroundTheYearTurns)
{
    struct { int m, d, y, sunday, monday; } cases[] = {
        {12, 25, 1999, 51, 51}, {12, 26, 1999, 52, 51}, {12, 27, 1999, 52, 52},
        {12, 31, 1999, 52, 52}, {1, 1, 2000, 52, 52},   {1, 2, 2000, 1, 52},
        {1, 3, 2000, 1, 1},     {1, 8, 2000, 1, 1},     {1, 9, 2000, 2, 1},
        {12, 24, 2000, 52, 51}, {12, 25, 2000, 52, 52}, {12, 30, 2000, 52, 52},
        {12, 31, 2000, 1, 52},  {1, 1, 2001, 1, 1},     {1, 6, 2001, 1, 1},
        {1, 7, 2001, 2, 1},     {1, 8, 2001, 2, 2},     {1, 1, 2004, 53, 1},
        {12, 31, 2004, 52, 53}, {1, 1, 2005, 52, 53},   {12, 31, 2008, 53, 1},
        {1, 3, 2010, 1, 53},    {1, 1, 2021, 53, 53},
        // 2101 looks back at 2400 through the shift, a leap year: week 53.
        {1, 1, 2101, 52, 53},
    };
    for (auto &c : cases) {
        EXPECT_EQ(WeekNumber(c.m, c.d, c.y, 0), c.sunday) << "Sunday-first " << c.m << "/" << c.d << "/" << c.y;
        EXPECT_EQ(WeekNumber(c.m, c.d, c.y, 1), c.monday) << "Monday-first " << c.m << "/" << c.d << "/" << c.y;
    }
    // Every day of a long span gets a week in range.
    for (int y = 1900; y <= 2100; y++)
        for (int m = 1; m <= 12; m++)
            for (int d = 1; d <= MonthLength(m, y); d++)
                for (int mf = 0; mf <= 1; mf++) {
                    int w = WeekNumber(m, d, y, mf);
                    ASSERT_TRUE(w >= 1 && w <= 53) << m << "/" << d << "/" << y << " gives " << w;
                }
}

// The days an appointment marks. Before 1899-12-30 the whole part of a
// date counts days back while the fraction counts the time forward, so
// -1.25 (29 December 1899, 6:00) comes before -1.75 (18:00).
TEST(DateCalc, DaysAnAppointmentOccupies)
{
    EXPECT_EQ(OleDayNumber(12, 30, 1899), 0);
    EXPECT_EQ(OleDayNumber(1, 1, 2000), 36526);
    const double jan1 = 36526, hour = 1.0 / 24;
    struct { const char *name; double start, end; int first, last; } cases[] = {
        {"9:00-10:00", jan1 + 9 * hour, jan1 + 10 * hour, 36526, 36526},
        {"22:00 to midnight", jan1 + 22 * hour, jan1 + 1, 36526, 36526},
        {"all day", jan1, jan1 + 1, 36526, 36526},
        {"two days all day", jan1, jan1 + 2, 36526, 36527},
        {"23:00 to 1:00", jan1 + 23 * hour, jan1 + 1 + hour, 36526, 36527},
        {"midnight a little early", jan1 + 12 * hour, jan1 + 1 - 1e-9, 36526, 36526},
        {"no length at midnight", jan1 + 1, jan1 + 1, 36527, 36527},
        {"end before start", jan1 + 1.5, jan1 + 0.5, 36527, 36527},
        {"29 December 1899, 6:00-18:00", -1.25, -1.75, -1, -1},
        {"29 December 18:00 to 30 December 6:00", -1.75, 0.25, -1, 0},
        {"28 December 12:00 to midnight", -2.5, -1.0, -2, -2},
    };
    for (auto &c : cases) {
        EXPECT_EQ(OleDayOf(c.start), c.first) << c.name;
        EXPECT_EQ(LastOleDayOf(c.start, c.end), c.last) << c.name;
    }
    EXPECT_DOUBLE_EQ(OleTimeOfDay(-1.25), 0.25);
}

TEST(DateCalc, HalfHourSlots)
{
    struct { int slot, hour, minute; } cases[] = {
        {0, 24, 0}, {1, 24, 30}, {2, 1, 0}, {3, 1, 30}, {24, 12, 0}, {25, 12, 30}, {46, 23, 0}, {47, 23, 30},
    };
    for (auto &c : cases) {
        int h = -1, m = -1;
        TimeSlotToHourMinute(c.slot, &h, &m);
        EXPECT_EQ(h, c.hour) << "slot " << c.slot;
        EXPECT_EQ(m, c.minute) << "slot " << c.slot;
    }
}

TEST(DateCalc, PackedDatesRoundTrip)
{
    struct { int m, d, y, packed; } cases[] = {
        {3, 15, 2004, 20040315}, {12, 31, 2004, 20041231}, {1, 1, 1601, 16010101},
        {2, 29, 2000, 20000229}, {12, 31, 9999, 99991231}, {0, 0, 0, 0},
    };
    for (auto &c : cases) {
        EXPECT_EQ(PackDate(c.m, c.d, c.y), c.packed) << c.m << "/" << c.d << "/" << c.y;
        int m = -1, d = -1, y = -1;
        UnpackDate(c.packed, &m, &d, &y);
        EXPECT_TRUE(m == c.m && d == c.d && y == c.y)
            << c.packed << " unpacks to " << m << "/" << d << "/" << y;
    }
}
