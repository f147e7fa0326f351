// The go-to-date popup the day view opens from its header: the month calendar alone, set to the
// day shown; a tap on a day ends it with that day.
#pragma once

#include <windows.h>

enum {
    GOTODATE_NEW = 0,  // another day was picked; it is in the outputs
    GOTODATE_KEPT = 1, // the day shown was picked again, or the popup could not be opened
    GOTODATE_NONE = 2, // the popup ended without a day
};

// Opens the popup on month/day/year (month 0: on today) and returns one of the above. Only
// GOTODATE_NEW writes the outputs; the day view treats every other answer as nothing to do.
int GoToDate(HWND owner, int month, int day, int year, int *outMonth, int *outDay, int *outYear);
