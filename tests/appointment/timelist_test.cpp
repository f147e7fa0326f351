// The half-hour time lists in a real combo box, in the clock of the locale the test runs in
// (en_US: 12-hour, de_DE: 24-hour).
#include "appointment/timelist.h"

#include <gtest/gtest.h>
#include <cwchar>
#include <string>

static std::wstring EntryText(HWND combo, int k)
{
    WCHAR text[32] = L"";
    if (SendMessageW(combo, CB_GETLBTEXTLEN, k, 0) < 32)
        SendMessageW(combo, CB_GETLBTEXT, k, (LPARAM)text);
    return text;
}

// The time of day an entry reads as, in minutes after midnight, as a user of either clock reads
// it: 12 AM and 24 both mean midnight. -1 when it is no time.
static int MinutesOf(const std::wstring &text)
{
    int hour = -1, minute = -1;
    WCHAR half[3] = L"";
    int fields = swscanf(text.c_str(), L"%d:%d %2ls", &hour, &minute, half);
    if (fields < 2 || minute % 30 != 0)
        return -1;
    if (fields == 3)
        hour = hour % 12 + (half[0] == L'P' ? 12 : 0);
    return hour % 24 * 60 + minute;
}

TEST(TimeList, TheDaysHalfHoursInTheUsersClock)
{
    static const struct {
        const wchar_t *locale;
        size_t width; // every entry, a single-digit hour with its leading blank
        const wchar_t *first, *last;
    } clocks[] = {
        {L"en-US", 8, L"12:00 AM", L"11:30 PM"},
        {L"de-DE", 5, L"24:00", L"23:30"},
    };
    WCHAR locale[LOCALE_NAME_MAX_LENGTH] = L"";
    GetUserDefaultLocaleName(locale, LOCALE_NAME_MAX_LENGTH);
    const auto *clock = &clocks[0];
    while (clock != std::end(clocks) && wcscmp(clock->locale, locale) != 0)
        clock++;
    if (clock == std::end(clocks))
        GTEST_SKIP() << "no expected clock for this locale";

    HWND parent = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPED, 0, 0, 200, 200, nullptr,
                                  nullptr, nullptr, nullptr);
    HWND combo = CreateWindowExW(0, L"COMBOBOX", L"", WS_CHILD | CBS_DROPDOWNLIST | WS_VSCROLL, 0,
                                 0, 120, 200, parent, nullptr, nullptr, nullptr);
    ASSERT_TRUE(combo);
    FillTimeCombo(combo);
    ASSERT_EQ(SendMessageW(combo, CB_GETCOUNT, 0, 0), TIME_ENTRIES);
    EXPECT_EQ(SendMessageW(combo, CB_GETCURSEL, 0, 0), CB_ERR) << "the caller selects";
    EXPECT_EQ(EntryText(combo, 0), clock->first);
    EXPECT_EQ(EntryText(combo, 47), clock->last);
    for (int k = 0; k < TIME_ENTRIES; k++) {
        std::wstring text = EntryText(combo, k);
        EXPECT_EQ(MinutesOf(text), k * 30) << "entry " << k << " \"" << text.c_str() << "\"";
        EXPECT_EQ(text.size(), clock->width) << "entry " << k;
    }

    // A second fill appends the same list again.
    FillTimeCombo(combo);
    ASSERT_EQ(SendMessageW(combo, CB_GETCOUNT, 0, 0), 2 * TIME_ENTRIES);
    for (int k = 0; k < TIME_ENTRIES; k++)
        EXPECT_EQ(EntryText(combo, TIME_ENTRIES + k), EntryText(combo, k)) << "entry " << k;
    DestroyWindow(parent);
}
