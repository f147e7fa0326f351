// Civil-day arithmetic on the proleptic Gregorian calendar: day numbers
// (0 = 1970-01-01), weekdays, month lengths. Header-only and without
// platform headers, so the calendar server's own time code counts days
// with the engine's arithmetic without linking the engine.
#pragma once

#include <cstdint>

namespace lfical {

constexpr int64_t kDay = 86400;

inline int64_t floorDiv(int64_t a, int64_t b)
{
    int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0)))
        --q;
    return q;
}

// Proleptic Gregorian day count (Howard Hinnant's algorithm); 0 = 1970-01-01.
inline int64_t daysFromCivil(int64_t y, int m, int d)
{
    y -= m <= 2;
    const int64_t era = floorDiv(y, 400);
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

inline void civilFromDays(int64_t z, int& y, int& m, int& d)
{
    z += 719468;
    const int64_t era = floorDiv(z, 146097);
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = int(doy - (153 * mp + 2) / 5 + 1);
    m = int(mp < 10 ? mp + 3 : mp - 9);
    y = int(yoe + era * 400 + (m <= 2));
}

inline int64_t civilSeconds(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
{
    return daysFromCivil(y, mo, d) * kDay + h * 3600 + mi * 60 + s;
}

// 0 = Monday ... 6 = Sunday
inline int weekdayOfDay(int64_t day)
{
    return int(floorDiv(day + 3, 7) * -7 + day + 3);  // 1970-01-01 was a Thursday
}

inline bool isLeap(int64_t y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

inline int daysInMonth(int y, int m)
{
    static const int len[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && isLeap(y) ? 29 : len[(m - 1) % 12];
}

}  // namespace lfical
