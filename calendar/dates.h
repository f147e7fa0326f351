// Calendar routines that follow the user's locale or the platform's date
// conversions. The locale-free arithmetic lives in datecalc.h.
#pragma once

#include <windows.h>
#include "datecalc.h"

int LocaleFirstDayOfWeek();      // 0 = Monday ... 6 = Sunday
int LocaleMondayFirst();         // 1 when the week starts on Monday
int WeekdayColumn(int month, int day, int year);
WCHAR *WeekdayHeader(int column, WCHAR *buffer, int shortForm);
void LoadMonthNames(WCHAR names[12][20]);
BOOL AddDays(int *month, int *day, int *year, int days);
void LoadIndicatorTimes();
double SlotDayFraction(int slot);
