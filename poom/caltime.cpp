#include "caltime.h"

#include <cmath>

#include "civil.h"

namespace poom {

namespace {
// The engine counts days from 1970-01-01, the object model from 1899-12-30.
constexpr std::int64_t kUnixToOleDays = 25569;
}  // namespace

std::int64_t DaysFromCivil(int y, int m, int d) { return lfical::daysFromCivil(y, m, d) + kUnixToOleDays; }

void CivilFromDays(std::int64_t days, int& y, int& m, int& d) {
    lfical::civilFromDays(days - kUnixToOleDays, y, m, d);
}

int WeekdayOfDays(std::int64_t days) {
    // The engine's week starts on Monday, the object model's on Sunday.
    return (lfical::weekdayOfDay(days - kUnixToOleDays) + 1) % 7;
}

int DaysInMonth(int y, int m) {
    if (m < 1 || m > 12) return 0;
    return lfical::daysInMonth(y, m);
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
