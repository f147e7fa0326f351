// Calendar arithmetic that needs no locale and no Win32: day numbers, day of
// the week, week numbers and half-hour time slots. Dates are passed as
// month (1-12), day (1-31), year.
#pragma once

// A date and time as the platform and the store give it: days since
// 1899-12-30, the time of day as the fraction.
typedef double OleDate;

int DayNumber(int month, int day, int year);
int DayOfYear(int month, int day, int year);
int DayOfWeek(int month, int day, int year);
int IsLeapYear4(int year);
int LeapGregorian(int x);
int WeekNumber(int month, int day, int year, int mondayFirst);
int MonthLength(int month, int year);
// The month's length in the calendar the platform and the store count in,
// where 1900 and 2100 have no 29 February.
int CalendarMonthLength(int month, int year);
void TimeSlotToHourMinute(int slot, int *hour, int *minute);

// The program's day numbers: whole days since 1899-12-30, so that an
// OleDate's calendar day is its day number.
int OleDayNumber(int month, int day, int year);
// The calendar day of a date and time, to the second.
int OleDayOf(OleDate when);
// The time of day as a fraction of the day.
double OleTimeOfDay(OleDate when);
// The last calendar day that a span from `start` to `end` occupies; never
// before the start's day.
int LastOleDayOf(OleDate start, OleDate end);
// A date packed into one integer, (year * 100 + month) * 100 + day, as dates cross a dialog's
// boundary: 15 March 2004 is 20040315. Unpacking does not check the date; 0 unpacks to all
// zeros.
int PackDate(int month, int day, int year);
void UnpackDate(int packed, int *month, int *day, int *year);
