// Calendar routines that follow the user's locale or the platform's date
// conversions. The locale-free arithmetic lives in datecalc.h.
#pragma once

#include <windows.h>
#include "datecalc.h"

int LocaleFirstDayOfWeek(); // 0 = Monday ... 6 = Sunday
int LocaleMondayFirst();    // 1 when the week starts on Monday
int WeekdayColumn(int month, int day, int year);
WCHAR *WeekdayHeader(int column, WCHAR *buffer, int shortForm);
void LoadMonthNames(WCHAR names[12][20]);
BOOL AddDays(int *month, int *day, int *year, int days);
// The platform's record of a date, at midnight or at the time of day of
// `timeOfDay`; the day of the week is left 0.
SYSTEMTIME SystemDate(int month, int day, int year, const SYSTEMTIME *timeOfDay = nullptr);
void LoadIndicatorTimes();
double SlotDayFraction(int slot);
