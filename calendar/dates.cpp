#include "dates.h"
#include "common/appstate.h"

#include <oleauto.h>

static WCHAR FirstDayChar()
{
    WCHAR buf[8] = L"";
    if (!GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IFIRSTDAYOFWEEK, buf, 8))
        return L'6';
    return buf[0];
}

int LocaleFirstDayOfWeek()
{
    WCHAR c = FirstDayChar();
    return (c >= L'0' && c <= L'6') ? c - L'0' : 6;
}

int LocaleMondayFirst()
{
    return FirstDayChar() == L'0' ? 1 : 0;
}

// The grid knows only two week layouts: a locale that starts its week on
// Sunday, and everything else, which is laid out from Monday.
int WeekdayColumn(int month, int day, int year)
{
    int d = DayOfWeek(month, day, year);
    if (FirstDayChar() == L'6')
        return d;
    return d == 0 ? 6 : d - 1;
}

// Unlike WeekdayColumn, the header follows the locale's first day exactly.
WCHAR *WeekdayHeader(int column, WCHAR *buffer, int shortForm)
{
    WCHAR name[20] = L"";
    int i = column + LocaleFirstDayOfWeek();
    if (i >= 7)
        i -= 7;
    if (i < 0 || i > 6)
        i = 0;
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SABBREVDAYNAME1 + i, name, 20);
    name[19] = 0;
    lstrcpyW(buffer, name);
    if (shortForm == 1 && lstrlenW(buffer) > 3)
        buffer[3] = 0;
    return buffer;
}

void LoadMonthNames(WCHAR names[12][20])
{
    for (int m = 0; m < 12; m++) {
        names[m][0] = 0;
        GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SMONTHNAME1 + m, names[m], 20);
        names[m][19] = 0;
    }
}

// The time of day of the moved date is the current one; callers use only
// the date part.
BOOL AddDays(int *month, int *day, int *year, int days)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    SYSTEMTIME st = SystemDate(*month, *day, *year, &now);
    double when;
    if (!SystemTimeToVariantTime(&st, &when))
        return FALSE;
    when += days;
    BOOL ok = VariantTimeToSystemTime(when, &st);
    if (ok) {
        *month = st.wMonth;
        *day = st.wDay;
        *year = st.wYear;
    }
    return ok;
}

SYSTEMTIME SystemDate(int month, int day, int year, const SYSTEMTIME *timeOfDay)
{
    SYSTEMTIME st = {};
    if (timeOfDay) {
        st.wHour = timeOfDay->wHour;
        st.wMinute = timeOfDay->wMinute;
        st.wSecond = timeOfDay->wSecond;
        st.wMilliseconds = timeOfDay->wMilliseconds;
    }
    st.wYear = (WORD)year;
    st.wMonth = (WORD)month;
    st.wDay = (WORD)day;
    return st;
}

// The day fraction of a half-hour slot as the platform's date conversion
// gives it: hour 24 of the zero date becomes the next midnight, so slots 0
// and 1 read as 0:00 and 0:30 of the day. Where the conversion refuses the
// record the same value is computed directly.
double SlotDayFraction(int slot)
{
    int hour, minute;
    TimeSlotToHourMinute(slot, &hour, &minute);
    SYSTEMTIME st = {};
    st.wHour = (WORD)hour;
    st.wMinute = (WORD)minute;
    double when;
    if (!SystemTimeToVariantTime(&st, &when))
        when = hour / 24.0 + minute / 1440.0;
    double frac = when - (double)(long long)when;
    if (frac < 0)
        frac = -frac;
    return (double)(float)frac;
}

// The indicator boundaries are kept in single precision, as the month view
// compares appointment times against them in single precision.
void LoadIndicatorTimes()
{
    AppSettings &s = g_app.settings;
    s.bandA = SlotDayFraction((int)s.timeA);
    s.bandB = SlotDayFraction((int)s.timeB);
    s.bandC = SlotDayFraction((int)s.timeC);
    s.bandD = SlotDayFraction((int)s.timeD);
    // The day view colours its rows by the same morning and afternoon ends.
    g_app.timeBandMorningEnd = (float)s.bandB;
    g_app.timeBandAfternoonEnd = (float)s.bandC;
}
