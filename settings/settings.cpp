#include "settings.h"
#include "common/appstate.h"
#include "platform/aygshell.h"
#include "calendar/dates.h"
#include "resource.h"

#include <cstdio>
#include <cwchar>

const WCHAR kSettingsKey[] = L"Oakfinder\\Lanternfields";

// The handheld passed access 0, which it ignored; the desktop asks for the
// rights each call needs.
static HKEY OpenSettings(REGSAM access)
{
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, kSettingsKey, 0, access, &key) != ERROR_SUCCESS)
        return nullptr;
    return key;
}

void CreateSettingsKey()
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CLASSES_ROOT, kSettingsKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key,
                        nullptr) == ERROR_SUCCESS)
        RegCloseKey(key);
}

// A key that cannot be opened answers success and leaves the default; a
// missing value answers failure and leaves it too. The value's type is not
// looked at, so a number written as text is read as its first four bytes.
int ReadSettingNumber(const WCHAR *name, DWORD *value)
{
    HKEY key = OpenSettings(KEY_READ);
    if (!key)
        return 0;
    BYTE buf[4] = {};
    DWORD size = sizeof(buf);
    LONG rc = RegQueryValueExW(key, name, nullptr, nullptr, buf, &size);
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS || size != sizeof(buf))
        return 1;
    memcpy(value, buf, 4);
    return 0;
}

int WriteSettingNumber(const WCHAR *name, DWORD value)
{
    HKEY key = OpenSettings(KEY_WRITE);
    if (!key)
        return 1;
    LONG rc = RegSetValueExW(key, name, 0, REG_DWORD, (const BYTE *)&value, sizeof(value));
    RegCloseKey(key);
    return rc == ERROR_SUCCESS ? 0 : 1;
}

// Texts are read through a 128-unit buffer; a missing text reads as empty.
// The caller's buffer is as long as the setting it stands for, so the text
// is cut to ICON_LABEL_LEN units, the longest text the program keeps.
int ReadSettingText(const WCHAR *name, WCHAR *text)
{
    text[0] = 0;
    HKEY key = OpenSettings(KEY_READ);
    if (!key)
        return 1;
    WCHAR buf[129] = {};
    DWORD size = 256;
    DWORD type = 0;
    LONG rc = RegQueryValueExW(key, name, nullptr, &type, (BYTE *)buf, &size);
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ))
        return 1;
    buf[128] = 0;
    lstrcpynW(text, buf, ICON_LABEL_LEN);
    return 0;
}

// Always writes 256 bytes, whatever the text's length: the settings pages
// and other tools read the value back with that size.
int WriteSettingText(const WCHAR *name, const WCHAR *text)
{
    WCHAR buf[128] = {};
    lstrcpynW(buf, text, 128);
    HKEY key = OpenSettings(KEY_WRITE);
    if (!key)
        return 1;
    LONG rc = RegSetValueExW(key, name, 0, REG_SZ, (const BYTE *)buf, 256);
    RegCloseKey(key);
    return rc == ERROR_SUCCESS ? 0 : 1;
}

struct NumberSetting {
    const WCHAR *name;
    DWORD AppSettings::*field;
    DWORD defaultValue;
};

// In the order they are loaded.
static const NumberSetting kNumbers[] = {
    {L"cleartype", &AppSettings::cleartype, 0},
    {L"showdays", &AppSettings::showdays, 0},
    {L"colorexpired", &AppSettings::colorexpired, 0},
    {L"showindicator", &AppSettings::showindicator, 0},
    {L"showfree", &AppSettings::showfree, 1},
    {L"showholiday", &AppSettings::showholiday, 0},
    {L"showlocation", &AppSettings::showlocation, 0},
    {L"wrapsubject", &AppSettings::wrapsubject, 0},
    {L"showweeknumber", &AppSettings::showweeknumber, 0},
    {L"coloryearview", &AppSettings::coloryearview, 0},
    {L"timeA", &AppSettings::timeA, 12},
    {L"timeB", &AppSettings::timeB, 24},
    {L"timeC", &AppSettings::timeC, 34},
    {L"timeD", &AppSettings::timeD, 42},
};

static const NumberSetting kColours[] = {
    {L"rowcolorindex", &AppSettings::rowcolorindex, 0},
    {L"calendarcolorstyle", &AppSettings::calendarcolorstyle, 0},
    {L"textcolor", &AppSettings::textcolor, 0x00000000},
    {L"locationcolor", &AppSettings::locationcolor, 0x000000FF},
    {L"row1color", &AppSettings::row1color, 0x00EFDED6},
    {L"row2color", &AppSettings::row2color, 0x00F7FFF7},
    {L"month1color", &AppSettings::month1color, 0x00FFFFFF},
    {L"month2color", &AppSettings::month2color, 0x00CBE4E4},
    {L"todaycolor", &AppSettings::todaycolor, 0x008CE8FF},
    {L"alldaycolor", &AppSettings::alldaycolor, 0x00007AF4},
    {L"datecolor", &AppSettings::datecolor, 0x00000000},
};

static void LoadNumbers(const NumberSetting *table, int count)
{
    AppSettings &s = g_app.settings;
    for (int i = 0; i < count; i++) {
        s.*table[i].field = table[i].defaultValue;
        ReadSettingNumber(table[i].name, &(s.*table[i].field));
    }
}

void ProgramDirectory(WCHAR *dir, int length)
{
    WCHAR path[MAX_PATH] = L"";
    DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        path[0] = 0;
    WCHAR *slash = wcsrchr(path, L'\\');
    if (slash)
        *slash = 0;
    else
        path[0] = 0;
    lstrcpynW(dir, path, length);
}

static HBITMAP LoadProgramBitmap(int id)
{
    return (HBITMAP)LoadImageW(g_app.hInstance, MAKEINTRESOURCEW(id), IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
}

static void LoadUserIcons()
{
    WCHAR dir[MAX_PATH];
    ProgramDirectory(dir, MAX_PATH);
    WCHAR path[MAX_PATH + 16];
    swprintf(path, MAX_PATH + 16, L"%ls\\icons.bmp", dir);
    g_app.userIconsPresent = 0;
    g_app.userIconsBitmap = nullptr;
    if (GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES) {
        g_app.userIconsBitmap = SHLoadDIBitmap(path);
        g_app.userIconsPresent = g_app.userIconsBitmap ? 1 : 0;
    }
    g_app.iconCount = BUILTIN_ICONS;
    if (g_app.userIconsPresent) {
        BITMAP bm = {};
        GetObjectW(g_app.userIconsBitmap, sizeof(bm), &bm);
        g_app.iconCount += bm.bmWidth / 9;
    }
}

void LoadSettings()
{
    AppSettings &s = g_app.settings;
    LoadNumbers(kNumbers, sizeof(kNumbers) / sizeof(kNumbers[0]));
    LoadIndicatorTimes();
    LoadNumbers(kColours, sizeof(kColours) / sizeof(kColours[0]));

    g_app.bmpBackground = LoadProgramBitmap(IDB_BACKGROUND);
    g_app.bmpAlarm = LoadProgramBitmap(IDB_ALARM);
    g_app.bmpNotes = LoadProgramBitmap(IDB_NOTES);
    g_app.bmpIcons = LoadProgramBitmap(IDB_ICONS);
    g_app.bmpYearNext = LoadProgramBitmap(IDB_YEARNEXT);
    g_app.bmpYearPrev = LoadProgramBitmap(IDB_YEARPREV);
    g_app.bmpBadge = LoadProgramBitmap(IDB_BADGE);
    LoadUserIcons();

    // A label never written reads as empty: the "None" set first lasts
    // only until the read, which empties it when the value is missing.
    for (int k = 0; k < ICON_SLOTS; k++)
        s.displayIcon[k] = (DWORD)k;
    for (int k = 0; k < ICON_SLOTS; k++) {
        WCHAR name[32];
        swprintf(name, 32, L"displayicon%d", k);
        ReadSettingNumber(name, &s.displayIcon[k]);
        lstrcpyW(s.displayIconString[k], L"None");
        swprintf(name, 32, L"displayiconstring%d", k);
        ReadSettingText(name, s.displayIconString[k]);
    }

    int hour, minute;
    DWORD index = 24;
    ReadSettingNumber(L"defaultStartTimeIndex", &index);
    TimeSlotToHourMinute((int)index, &hour, &minute);
    s.defaultStartTime = SYSTEMTIME{};
    s.defaultStartTime.wHour = (WORD)hour;
    s.defaultStartTime.wMinute = (WORD)minute;
    index = 25;
    ReadSettingNumber(L"defaultEndTimeIndex", &index);
    TimeSlotToHourMinute((int)index, &hour, &minute);
    s.defaultEndTime = SYSTEMTIME{};
    s.defaultEndTime.wHour = (WORD)hour;
    s.defaultEndTime.wMinute = (WORD)minute;

    s.alarmflag = 1;
    ReadSettingNumber(L"alarmflag", &s.alarmflag);
}

void FreeSettingsBitmaps()
{
    HBITMAP *all[] = {&g_app.bmpBackground, &g_app.bmpAlarm, &g_app.bmpNotes, &g_app.bmpIcons,
                      &g_app.bmpYearNext, &g_app.bmpYearPrev, &g_app.bmpBadge, &g_app.userIconsBitmap};
    for (HBITMAP *b : all) {
        if (*b)
            DeleteObject(*b);
        *b = nullptr;
    }
    g_app.userIconsPresent = 0;
}
