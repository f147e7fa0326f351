#include "caltime.h"

#include <cmath>

namespace poom {

namespace {
// Days from 1970-01-01 (Howard Hinnant's civil calendar algorithms).
std::int64_t DaysFromCivilUnix(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}
constexpr std::int64_t kUnixToOleDays = 25569;  // 1899-12-30 -> 1970-01-01
}  // namespace

std::int64_t DaysFromCivil(int y, int m, int d) {
    return DaysFromCivilUnix(y, static_cast<unsigned>(m), static_cast<unsigned>(d)) + kUnixToOleDays;
}

void CivilFromDays(std::int64_t days, int& y, int& m, int& d) {
    std::int64_t z = days - kUnixToOleDays + 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2));
}

int WeekdayOfDays(std::int64_t days) {
    // 1899-12-30 was a Saturday.
    std::int64_t w = (days + 6) % 7;
    if (w < 0) w += 7;
    return static_cast<int>(w);
}

int DaysInMonth(int y, int m) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (m < 1 || m > 12) return 0;
    if (m == 2 && ((y % 4 == 0 && y % 100 != 0) || y % 400 == 0)) return 29;
    return kDays[m - 1];
}

LocalSecs ToSecs(const CivilTime& t) {
    return DaysFromCivil(t.year, t.month, t.day) * kSecsPerDay + t.hour * 3600 + t.minute * 60 + t.second;
}

CivilTime FromSecs(LocalSecs s) {
    CivilTime t;
    std::int64_t days = DayOf(s);
    LocalSecs rest = s - days * kSecsPerDay;
    CivilFromDays(days, t.year, t.month, t.day);
    t.hour = static_cast<int>(rest / 3600);
    t.minute = static_cast<int>(rest / 60 % 60);
    t.second = static_cast<int>(rest % 60);
    return t;
}

bool SecsFromOle(double ole, LocalSecs& out) {
    // The object model's DATE range: years 100 to 9999.
    if (!std::isfinite(ole) || ole < -657434.0 || ole >= 2958466.0) return false;
    double whole = std::trunc(ole);
    double frac = std::fabs(ole - whole);
    LocalSecs secs = static_cast<LocalSecs>(std::llround(frac * kSecsPerDay));
    out = static_cast<LocalSecs>(whole) * kSecsPerDay + secs;
    return true;
}

double OleFromSecs(LocalSecs s) {
    std::int64_t days = DayOf(s);
    double frac = static_cast<double>(s - days * kSecsPerDay) / kSecsPerDay;
    if (days >= 0) return static_cast<double>(days) + frac;
    // Before the epoch the fraction counts forward from the day's midnight
    // while the whole part is the (negative) day: -1.25 is 1899-12-29 06:00.
    return static_cast<double>(days) - frac;
}

}  // namespace poom
