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
