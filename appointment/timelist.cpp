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

static bool TwelveHourClock()
{
    WCHAR clock[2] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ITIME, clock, 2);
    return clock[0] == L'0';
}

void FormatTimeText(int minutes, wchar_t *text)
{
    int h = minutes / 60 % 24, m = minutes % 60;
    if (TwelveHourClock())
        wsprintfW(text, L"%2d:%02d %s", h % 12 == 0 ? 12 : h % 12, m, h < 12 ? L"AM" : L"PM");
    else
        wsprintfW(text, L"%2d:%02d", h == 0 ? 24 : h, m);
}

// Case-blind match of `word` at the start of `p`; true when it is there.
static bool StartsWithWord(const wchar_t *p, const wchar_t *word)
{
    int n = lstrlenW(word);
    return n > 0 && CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, p, n, word, n) == CSTR_EQUAL;
}

int ParseTimeText(const wchar_t *text)
{
    const wchar_t *p = text;
    while (*p == L' ')
        p++;
    int h = 0, m = 0, digits = 0;
    for (; *p >= L'0' && *p <= L'9'; p++, digits++)
        h = h * 10 + (*p - L'0');
    if (digits == 0 || digits > 2)
        return -1;
    if (*p == L':' || *p == L'.') {
        p++;
        digits = 0;
        for (; *p >= L'0' && *p <= L'9'; p++, digits++)
            m = m * 10 + (*p - L'0');
        if (digits != 2 || m > 59)
            return -1;
    }
    while (*p == L' ')
        p++;
    WCHAR am[16] = L"", pm[16] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_S1159, am, 16);
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_S2359, pm, 16);
    int half = 0; // 1 morning, 2 afternoon
    if (StartsWithWord(p, L"AM") || StartsWithWord(p, am)) {
        half = 1;
        p += StartsWithWord(p, L"AM") ? 2 : lstrlenW(am);
    } else if (StartsWithWord(p, L"PM") || StartsWithWord(p, pm)) {
        half = 2;
        p += StartsWithWord(p, L"PM") ? 2 : lstrlenW(pm);
    }
    while (*p == L' ')
        p++;
    if (*p)
        return -1;
    if (half) {
        if (h < 1 || h > 12)
            return -1;
        h = h % 12 + (half == 2 ? 12 : 0);
    } else if (h == 24) {
        h = 0; // the 24-hour lists' midnight hour
    } else if (h > 23) {
        return -1;
    }
    return h * 60 + m;
}
