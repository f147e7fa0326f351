// Calendar arithmetic that needs no locale and no Win32: day numbers, day of
// the week, week numbers and half-hour time slots. Dates are passed as
// month (1-12), day (1-31), year.
#pragma once

int DayNumber(int month, int day, int year);
int DayOfYear(int month, int day, int year);
int DayOfWeek(int month, int day, int year);
int IsLeapYear4(int year);
int LeapGregorian(int x);
int WeekNumber(int month, int day, int year, int mondayFirst);
int MonthLength(int month, int year);
void TimeSlotToHourMinute(int slot, int *hour, int *minute);

// A date packed into one integer, (year * 100 + month) * 100 + day, as dates cross a dialog's
// boundary: 15 March 2004 is 20040315. Unpacking does not check the date; 0 unpacks to all
// zeros.
int PackDate(int month, int day, int year);
void UnpackDate(int packed, int *month, int *day, int *year);
