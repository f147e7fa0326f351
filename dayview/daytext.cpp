#include "daytext.h"
#include "store/store.h"

#include <math.h>
#include <wchar.h>

void FormatClockTime(int hour, int minute, WCHAR *text, int length)
{
    WCHAR clock[2] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ITIME, clock, 2);
    if (clock[0] != L'0')
        swprintf(text, length, L"%d:%.2d", hour, minute);
    else if (hour < 12)
        swprintf(text, length, L"%d:%.2da", hour == 0 ? 12 : hour, minute);
    else
        swprintf(text, length, L"%d:%.2dp", hour == 12 ? 12 : hour - 12, minute);
}

// The clock time of a date and time, to the nearest minute: the store keeps
// whole minutes, and a day fraction rarely holds one exactly.
static void ClockOf(OleDate when, WCHAR *text, int length)
{
    long minutes = lround(OleTimeOfDay(when) * 1440.0);
    if (minutes >= 1440)
        minutes = 0; // a time that rounds up to the next midnight
    FormatClockTime((int)(minutes / 60), (int)(minutes % 60), text, length);
}

// An all-day appointment counts as ending at 23:59 of its last day: the
// store gives its end as the midnight after, which belongs to the day
// before, as any end exactly at midnight does.
BOOL ListsOnDay(OleDate start, OleDate end, int day)
{
    return OleDayOf(start) <= day && LastOleDayOf(start, end) >= day;
}

void DayTimeText(OleDate start, OleDate end, BOOL allDay, int day, WCHAR *text, int length)
{
    if (allDay) {
        lstrcpynW(text, L"All Day", length);
        return;
    }
    WCHAR from[CLOCK_TEXT_LEN] = L"---", to[CLOCK_TEXT_LEN] = L"---";
    if (start != kNoDate) {
        ClockOf(start, from, CLOCK_TEXT_LEN);
        ClockOf(end, to, CLOCK_TEXT_LEN);
    }
    BOOL before = OleDayOf(start)<day, after = LastOleDayOf(start, end)> day;
    if (before && after)
        lstrcpynW(text, L"multiday", length);
    else if (before)
        swprintf(text, length, L"multiday-%ls", to);
    else if (after)
        swprintf(text, length, L"%ls-multiday", from);
    else
        swprintf(text, length, L"%ls-%ls", from, to);
}
