// Local calendar time as the calendar server keeps it: whole seconds since
// 1899-12-30 00:00 local time, the epoch of the object model's DATE values.
// Integer seconds keep comparisons exact where DATE doubles would round.
// No Win32 here, so the restriction language and the recurrence rules build
// and are tested natively as well.
#pragma once

#include <cstdint>

namespace poom {

using LocalSecs = std::int64_t;

constexpr LocalSecs kSecsPerDay = 86400;
constexpr LocalSecs kNoTime = INT64_MIN;  // "no value" marker

struct CivilTime {
    int year = 1899, month = 12, day = 30;
    int hour = 0, minute = 0, second = 0;
};

// Days from 1899-12-30 to the given proleptic Gregorian date.
std::int64_t DaysFromCivil(int y, int m, int d);
void CivilFromDays(std::int64_t days, int& y, int& m, int& d);
// 0 = Sunday ... 6 = Saturday.
int WeekdayOfDays(std::int64_t days);
int DaysInMonth(int y, int m);

LocalSecs ToSecs(const CivilTime& t);
CivilTime FromSecs(LocalSecs s);

inline std::int64_t DayOf(LocalSecs s) {
    return s >= 0 ? s / kSecsPerDay : -((-s + kSecsPerDay - 1) / kSecsPerDay);
}

// DATE <-> seconds, with the OLE rule for dates before 1899-12-30 (the
// fraction always counts forward from midnight). Out-of-range DATEs give
// false rather than wrapping.
bool SecsFromOle(double ole, LocalSecs& out);
double OleFromSecs(LocalSecs s);

}  // namespace poom
