// The texts of the time lists. Single-digit hours carry one leading blank so that the times line
// up in the list, and the 24-hour clock writes the midnight hour as 24, as the program reads
// its first two half-hour slots everywhere else.
#include "timelist.h"

static const wchar_t *const kTimes12[TIME_ENTRIES] = {
    L"12:00 AM", L"12:30 AM", L" 1:00 AM", L" 1:30 AM", L" 2:00 AM", L" 2:30 AM", L" 3:00 AM",
    L" 3:30 AM", L" 4:00 AM", L" 4:30 AM", L" 5:00 AM", L" 5:30 AM", L" 6:00 AM", L" 6:30 AM",
    L" 7:00 AM", L" 7:30 AM", L" 8:00 AM", L" 8:30 AM", L" 9:00 AM", L" 9:30 AM", L"10:00 AM",
    L"10:30 AM", L"11:00 AM", L"11:30 AM", L"12:00 PM", L"12:30 PM", L" 1:00 PM", L" 1:30 PM",
    L" 2:00 PM", L" 2:30 PM", L" 3:00 PM", L" 3:30 PM", L" 4:00 PM", L" 4:30 PM", L" 5:00 PM",
    L" 5:30 PM", L" 6:00 PM", L" 6:30 PM", L" 7:00 PM", L" 7:30 PM", L" 8:00 PM", L" 8:30 PM",
    L" 9:00 PM", L" 9:30 PM", L"10:00 PM", L"10:30 PM", L"11:00 PM", L"11:30 PM",
};

static const wchar_t *const kTimes24[TIME_ENTRIES] = {
    L"24:00", L"24:30", L" 1:00", L" 1:30", L" 2:00", L" 2:30", L" 3:00", L" 3:30",
    L" 4:00", L" 4:30", L" 5:00", L" 5:30", L" 6:00", L" 6:30", L" 7:00", L" 7:30",
    L" 8:00", L" 8:30", L" 9:00", L" 9:30", L"10:00", L"10:30", L"11:00", L"11:30",
    L"12:00", L"12:30", L"13:00", L"13:30", L"14:00", L"14:30", L"15:00", L"15:30",
    L"16:00", L"16:30", L"17:00", L"17:30", L"18:00", L"18:30", L"19:00", L"19:30",
    L"20:00", L"20:30", L"21:00", L"21:30", L"22:00", L"22:30", L"23:00", L"23:30",
};

// The user's clock: "0" is the 12-hour clock; every other answer takes the 24-hour one.
void FillTimeCombo(HWND combo)
{
    WCHAR clock[2] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ITIME, clock, 2);
    const wchar_t *const *times = clock[0] == L'0' ? kTimes12 : kTimes24;
    for (int k = 0; k < TIME_ENTRIES; k++)
        SendMessageW(combo, CB_ADDSTRING, 0, (LPARAM)times[k]);
}
