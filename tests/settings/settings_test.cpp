// The settings as the registry of the test's Wine prefix holds them, and
// the user's icon strip beside the program.
#include "settings/settings.h"
#include "common/appstate.h"
#include "support/drive.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

static void DeleteKey()
{
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Oakfinder\\Lanternfields");
}

static HKEY Key()
{
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_CLASSES_ROOT, L"Oakfinder\\Lanternfields", 0, KEY_ALL_ACCESS, &key);
    return key;
}

static std::wstring IconsPath()
{
    WCHAR dir[MAX_PATH];
    ProgramDirectory(dir, MAX_PATH);
    return std::wstring(dir) + L"\\icons.bmp";
}

static void Load()
{
    g_app.hInstance = GetModuleHandleW(nullptr);
    FreeSettingsBitmaps();
    LoadSettings();
}

TEST(Settings, FirstStartGivesEveryDefault)
{
    DeleteKey();
    DeleteFileW(IconsPath().c_str());
    CreateSettingsKey();
    HKEY key = Key();
    ASSERT_TRUE(key) << "the key is created";
    DWORD values = 99;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                     nullptr);
    EXPECT_EQ(values, 0u) << "and left empty";
    RegCloseKey(key);
    Load();

    const AppSettings &s = g_app.settings;
    struct { const char *name; DWORD value, expected; } table[] = {
        {"cleartype", s.cleartype, 0}, {"showdays", s.showdays, 0}, {"colorexpired", s.colorexpired, 0},
        {"showindicator", s.showindicator, 0}, {"showfree", s.showfree, 1}, {"showholiday", s.showholiday, 0},
        {"showlocation", s.showlocation, 0}, {"wrapsubject", s.wrapsubject, 0},
        {"showweeknumber", s.showweeknumber, 0}, {"coloryearview", s.coloryearview, 0}, {"timeA", s.timeA, 12},
        {"timeB", s.timeB, 24}, {"timeC", s.timeC, 34}, {"timeD", s.timeD, 42},
        {"rowcolorindex", s.rowcolorindex, 0}, {"calendarcolorstyle", s.calendarcolorstyle, 0},
        {"textcolor", s.textcolor, 0}, {"locationcolor", s.locationcolor, 0x0000FF},
        {"row1color", s.row1color, 0xEFDED6}, {"row2color", s.row2color, 0xF7FFF7},
        {"month1color", s.month1color, 0xFFFFFF}, {"month2color", s.month2color, 0xCBE4E4},
        {"todaycolor", s.todaycolor, 0x8CE8FF}, {"alldaycolor", s.alldaycolor, 0x007AF4},
        {"datecolor", s.datecolor, 0}, {"alarmflag", s.alarmflag, 1},
    };
    for (auto &t : table)
        EXPECT_EQ(t.value, t.expected) << t.name;
    for (int k = 0; k < ICON_SLOTS; k++) {
        EXPECT_EQ(s.displayIcon[k], (DWORD)k) << "slot " << k;
        EXPECT_STREQ(s.displayIconString[k], L"") << "slot " << k << ": a label never written reads as empty";
    }
    EXPECT_EQ(s.defaultStartTime.wHour, 12);
    EXPECT_EQ(s.defaultStartTime.wMinute, 0);
    EXPECT_EQ(s.defaultEndTime.wHour, 12);
    EXPECT_EQ(s.defaultEndTime.wMinute, 30);
    EXPECT_DOUBLE_EQ(s.bandA, 0.25);
    EXPECT_EQ(g_app.iconCount, 39);
    EXPECT_EQ(g_app.userIconsPresent, 0);
    for (HBITMAP b : {g_app.bmpBackground, g_app.bmpAlarm, g_app.bmpNotes, g_app.bmpIcons, g_app.bmpYearPrev,
                      g_app.bmpYearNext, g_app.bmpBadge})
        EXPECT_TRUE(b) << "every program bitmap loads";
    BITMAP bm = {};
    GetObjectW(g_app.bmpIcons, sizeof(bm), &bm);
    EXPECT_EQ(bm.bmWidth, 351);
    EXPECT_EQ(bm.bmHeight, 9);
}

TEST(Settings, StoredValuesAndBadOnes)
{
    DeleteKey();
    CreateSettingsKey();
    EXPECT_EQ(WriteSettingNumber(L"showdays", 1), 0);
    EXPECT_EQ(WriteSettingNumber(L"timeA", 100), 0);               // out of range: kept as read
    EXPECT_EQ(WriteSettingNumber(L"calendarcolorstyle", 7), 0);
    EXPECT_EQ(WriteSettingNumber(L"defaultStartTimeIndex", 0), 0);
    EXPECT_EQ(WriteSettingNumber(L"defaultEndTimeIndex", 47), 0);
    EXPECT_EQ(WriteSettingNumber(L"displayicon3", 5000), 0);
    EXPECT_EQ(WriteSettingText(L"displayiconstring2", L"Business"), 0);
    EXPECT_EQ(WriteSettingText(L"displayiconstring5", L"A label far longer than fifteen units"), 0);
    HKEY key = Key();
    ASSERT_TRUE(key);
    // A number stored as text, and a 2-byte binary: both keep the default.
    RegSetValueExW(key, L"todaycolor", 0, REG_SZ, (const BYTE *)L"red", 8);
    BYTE two[2] = {1, 2};
    RegSetValueExW(key, L"showfree", 0, REG_BINARY, two, 2);
    DWORD type = 0, size = 0;
    RegQueryValueExW(key, L"displayiconstring2", nullptr, &type, nullptr, &size);
    EXPECT_EQ(type, (DWORD)REG_SZ);
    EXPECT_EQ(size, 256u) << "texts always take 256 bytes";
    RegCloseKey(key);

    Load();
    const AppSettings &s = g_app.settings;
    EXPECT_EQ(s.showdays, 1u);
    EXPECT_EQ(s.timeA, 100u);
    EXPECT_EQ(s.calendarcolorstyle, 7u);
    EXPECT_EQ(s.todaycolor, 0x8CE8FFu);
    EXPECT_EQ(s.showfree, 1u);
    EXPECT_EQ(s.defaultStartTime.wHour, 24);
    EXPECT_EQ(s.defaultStartTime.wMinute, 0);
    EXPECT_EQ(s.defaultEndTime.wHour, 23);
    EXPECT_EQ(s.defaultEndTime.wMinute, 30);
    EXPECT_EQ(s.displayIcon[3], 5000u);
    EXPECT_STREQ(s.displayIconString[2], L"Business");
    EXPECT_EQ(lstrlenW(s.displayIconString[5]), ICON_LABEL_LEN - 1) << "cut to the slot, terminated";

    DWORD value = 77;
    EXPECT_EQ(ReadSettingNumber(L"no such value", &value), 1);
    EXPECT_EQ(value, 77u) << "a failed read leaves the default";
    WCHAR text[ICON_LABEL_LEN] = L"x";
    EXPECT_EQ(ReadSettingText(L"no such value", text), 1);
    EXPECT_STREQ(text, L"");
    DeleteKey();
    value = 78;
    EXPECT_EQ(ReadSettingNumber(L"showdays", &value), 0) << "no key: success, default kept";
    EXPECT_EQ(value, 78u);
    EXPECT_EQ(WriteSettingNumber(L"showdays", 1), 1);
}

static void WriteFileBytes(const std::wstring &path, const std::vector<BYTE> &bytes)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE);
    DWORD done = 0;
    if (!bytes.empty())
        WriteFile(f, bytes.data(), (DWORD)bytes.size(), &done, nullptr);
    CloseHandle(f);
}

// A 24-bit strip of the given width, 9 pixels high.
static std::vector<BYTE> Strip(int width, int height = 9)
{
    return BmpFile24(width, height, [](int, int) { return RGB(255, 255, 255); });
}

TEST(Settings, UserIconStrip)
{
    DeleteKey();
    CreateSettingsKey();
    std::vector<BYTE> truncated = Strip(90);
    truncated.resize(200);
    std::vector<BYTE> zeroWide = Strip(90);
    *(LONG *)(zeroWide.data() + 18) = 0;
    std::vector<BYTE> lying = Strip(9);
    *(LONG *)(lying.data() + 18) = 100000; // claims a width its data lacks
    std::vector<BYTE> notBmp(500, 'x');
    struct { const char *name; std::vector<BYTE> bytes; int count; } cases[] = {
        {"90 pixels", Strip(90), 49},     {"17 pixels", Strip(17), 40},       {"8 pixels", Strip(8), 39},
        {"100000 pixels", Strip(100000), 39 + 11111}, {"truncated", truncated, 39}, {"not a bitmap", notBmp, 39},
        {"0 pixels wide", zeroWide, 39},  {"lies about its width", lying, 39}, {"empty file", {}, 39},
    };
    for (auto &c : cases) {
        WriteFileBytes(IconsPath(), c.bytes);
        Load();
        EXPECT_EQ(g_app.iconCount, c.count) << c.name;
        EXPECT_EQ(g_app.userIconsPresent, c.count > 39 || c.bytes.size() == Strip(8).size() ? 1 : 0) << c.name;
    }
    DeleteFileW(IconsPath().c_str());
    Load();
    EXPECT_EQ(g_app.iconCount, 39);
    EXPECT_FALSE(g_app.userIconsBitmap);
    FreeSettingsBitmaps();
    DeleteKey();
}
