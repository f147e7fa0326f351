// The texts of a day's rows, shared by the day view and the day popup: the clock by the locale
// (12-hour in en_US, 24-hour in de_DE), the time column's multi-day forms, and which
// appointments a day lists.
#include "daystore.h"
#include "dayview/daytext.h"
#include "store/store.h"

#include <gtest/gtest.h>

TEST(DayText, ClockTimes)
{
    struct {
        int hour, minute;
        const wchar_t *twelve, *twentyFour;
    } cases[] = {
        {0, 5, L"12:05a", L"0:05"},    {0, 0, L"12:00a", L"0:00"},    {9, 5, L"9:05a", L"9:05"},
        {11, 59, L"11:59a", L"11:59"}, {12, 30, L"12:30p", L"12:30"}, {13, 0, L"1:00p", L"13:00"},
        {17, 0, L"5:00p", L"17:00"},   {23, 45, L"11:45p", L"23:45"},
    };
    for (auto &c : cases) {
        WCHAR text[CLOCK_TEXT_LEN];
        FormatClockTime(c.hour, c.minute, text, CLOCK_TEXT_LEN);
        EXPECT_STREQ(text, TwelveHourClock() ? c.twelve : c.twentyFour)
            << c.hour << ":" << c.minute;
    }
}

TEST(DayText, TimeColumn)
{
    const double D = OleDayNumber(3, 10, 2031), h = 1.0 / 24, m = 1.0 / 1440;
    struct {
        const char *name;
        OleDate start, end;
        BOOL allDay;
        int day;
        const wchar_t *twelve, *twentyFour;
    } cases[] = {
        {"within the day", D + 9 * h, D + 10.5 * h, FALSE, 0, L"9:00a-10:30a", L"9:00-10:30"},
        {"from the day before", D - 2 * h, D + 2 * h, FALSE, 0, L"multiday-2:00a",
         L"multiday-2:00"},
        {"into the next day", D + 22 * h, D + 1 + h, FALSE, 0, L"10:00p-multiday",
         L"22:00-multiday"},
        {"across the whole day", D - 1 + 10 * h, D + 1 + 10 * h, FALSE, 0, L"multiday",
         L"multiday"},
        {"ending at midnight", D + 20 * h, D + 1, FALSE, 0, L"8:00p-12:00a", L"20:00-0:00"},
        {"a minute to midnight", D + 23 * h + 59 * m, D + 1, FALSE, 0, L"11:59p-12:00a",
         L"23:59-0:00"},
        {"all day", D, D + 1, TRUE, 0, L"All Day", L"All Day"},
        {"the middle of three whole days", D - 1, D + 2, TRUE, 0, L"All Day", L"All Day"},
        {"a time just short of a minute", D + 9 * h - 0.4 / 86400, D + 10 * h, FALSE, 0,
         L"9:00a-10:00a", L"9:00-10:00"},
        {"the store's no date", kNoDate, kNoDate + h, FALSE, (int)kNoDate, L"-------", L"-------"},
    };
    for (auto &c : cases) {
        WCHAR text[TIME_TEXT_LEN];
        DayTimeText(c.start, c.end, c.allDay, c.day ? c.day : (int)D, text, TIME_TEXT_LEN);
        EXPECT_STREQ(text, TwelveHourClock() ? c.twelve : c.twentyFour) << c.name;
    }
    WCHAR small[6];
    DayTimeText(D + 22 * h, D + 1 + h, FALSE, (int)D, small, 6);
    EXPECT_EQ(lstrlenW(small), 5) << "cut to the buffer, terminated";
}

// An end exactly at midnight belongs to the day before, so an all-day appointment and one up
// to midnight touch only their own days.
TEST(DayText, ListedDays)
{
    const double D = OleDayNumber(3, 10, 2031), h = 1.0 / 24;
    struct {
        const char *name;
        OleDate start, end;
        int before, on, after; // listed on D - 1, D, D + 1
    } cases[] = {
        {"within the day", D + 9 * h, D + 10 * h, 0, 1, 0},
        {"all day", D, D + 1, 0, 1, 0},
        {"up to midnight", D + 20 * h, D + 1, 0, 1, 0},
        {"past midnight", D + 20 * h, D + 1 + h, 0, 1, 1},
        {"from the evening before", D - 2 * h, D + 2 * h, 1, 1, 0},
        {"no length", D + 9 * h, D + 9 * h, 0, 1, 0},
        {"end before start", D + 9 * h, D + 8 * h, 0, 1, 0},
    };
    for (auto &c : cases) {
        EXPECT_EQ(ListsOnDay(c.start, c.end, (int)D - 1) != 0, c.before == 1) << c.name;
        EXPECT_EQ(ListsOnDay(c.start, c.end, (int)D) != 0, c.on == 1) << c.name;
        EXPECT_EQ(ListsOnDay(c.start, c.end, (int)D + 1) != 0, c.after == 1) << c.name;
    }
}
