// The Icons page, alone in a property sheet over the started program: a slot's icon chosen
// through the icon chooser and its label typed reach the registry and the month view on OK;
// Cancel writes nothing; a label stops at 14 characters; an icon number the program does not
// have is shown as the fallback and kept.
#include "settings/pages.h"
#include "settings/iconchooser.h"
#include "settings/settings.h"
#include "common/appstate.h"
#include "calendar/dates.h"
#include "support/settingskey.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "resource.h"

#include <commctrl.h>
#include <gtest/gtest.h>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

const int CELL = 20; // the chooser's cell

static std::map<std::wstring, std::vector<BYTE>> RegistryValues()
{
    std::map<std::wstring, std::vector<BYTE>> out;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, L"Oakfinder\\Lanternfields", 0, KEY_READ, &key))
        return out;
    for (DWORD i = 0;; i++) {
        WCHAR name[256];
        DWORD nameLen = 256, type = 0, size = 4096;
        std::vector<BYTE> data(4096);
        if (RegEnumValueW(key, i, name, &nameLen, nullptr, &type, data.data(), &size))
            break;
        data.resize(size);
        data.push_back((BYTE)type);
        out[name] = data;
    }
    RegCloseKey(key);
    return out;
}

static DWORD RegNumber(const WCHAR *name)
{
    DWORD value = 0xDEADBEEF, size = 4;
    RegGetValueW(HKEY_CLASSES_ROOT, L"Oakfinder\\Lanternfields", name, RRF_RT_REG_DWORD, nullptr, &value, &size);
    return value;
}

static std::wstring RegText(const WCHAR *name)
{
    WCHAR text[200] = L"";
    DWORD size = sizeof text;
    if (RegGetValueW(HKEY_CLASSES_ROOT, L"Oakfinder\\Lanternfields", name, RRF_RT_REG_SZ, nullptr, text, &size))
        return L"<missing>";
    return text;
}

static void ReloadSettings()
{
    EnterCriticalSection(&g_app.renderLock);
    FreeSettingsBitmaps();
    LoadSettings();
    LeaveCriticalSection(&g_app.renderLock);
}

// The page alone in a sheet, as the settings sheet will hold it.
static INT_PTR RunIconsSheet()
{
    return ShowPageAlone(IDD_ICONSPAGE, IconsPageProc, L"Icons", g_app.hwndMain);
}

static HWND Page(HWND sheet)
{
    return (HWND)SendMessageW(sheet, PSM_GETCURRENTPAGEHWND, 0, 0);
}

// A tap on slot `slot`'s row in the list.
static void TapSlot(HWND page, int slot)
{
    HWND list = GetDlgItem(page, IDC_ICONSLOTLIST);
    SendMessageW(list, LB_SETTOPINDEX, slot, 0);
    RECT rc;
    SendMessageW(list, LB_GETITEMRECT, slot, (LPARAM)&rc);
    Tap(list, rc.left + 40, (rc.top + rc.bottom) / 2);
    Pump(0);
}

// Opens the chooser from the page's icon button and taps `icon` in it, then OK.
static void ChooseWithButton(HWND page, int icon)
{
    RunScripted([&] { Click(page, IDC_ICONSLOTICON); return (INT_PTR)0; },
                [&](HWND chooser) {
                    HWND grid = GetDlgItem(chooser, IDC_ICONGRID);
                    RECT rc;
                    GetClientRect(grid, &rc);
                    int columns = rc.right / CELL, left = (rc.right - columns * CELL) / 2;
                    int row = icon / columns - GetScrollPos(grid, SB_VERT);
                    Tap(grid, left + icon % columns * CELL + 10, row * CELL + 10);
                    Click(chooser, IDOK);
                });
}

static void TypeLabel(HWND page, const wchar_t *text)
{
    HWND edit = GetDlgItem(page, IDC_ICONSLOTLABEL);
    SetFocus(edit);
    SendMessageW(edit, EM_SETSEL, 0, -1);
    Type(edit, text);
}

static std::wstring LabelField(HWND page)
{
    WCHAR text[64] = L"";
    GetDlgItemTextW(page, IDC_ICONSLOTLABEL, text, 64);
    return text;
}

// The icons-only month form: first icon of a day at (34c + 4, 34r + 81). Empty when the block
// shows built-in icon `icon` (its magenta pixels letting the cell through), else the difference.
static std::string MonthIconDiff(int month, int day, int year, int icon)
{
    int first = DayNumber(month, 1, year) - WeekdayColumn(month, 1, year);
    int index = DayNumber(month, day, year) - first, r = index / 7, c = index % 7;
    int x = 34 * c + 4, y = 34 * r + 81;
    HDC mem = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(mem, g_app.bmpIcons);
    std::string diff;
    for (int dy = 0; dy < 9 && diff.empty(); dy++)
        for (int dx = 0; dx < 9 && diff.empty(); dx++) {
            COLORREF want = GetPixel(mem, 9 * icon + dx, dy);
            if (want == RGB(255, 0, 255))
                continue;
            COLORREF got = BackPixel(x + dx, y + dy);
            if (got != want) {
                char text[96];
                snprintf(text, sizeof text, "pixel (%d,%d): got %06lX, want %06lX", dx, dy, (unsigned long)got,
                         (unsigned long)want);
                diff = text;
            }
        }
    SelectObject(mem, old);
    DeleteDC(mem);
    return diff;
}

// Empty when the picture shows built-in icon `icon` at (x, y) over `background`.
static std::string PictureIconDiff(const Picture &pic, int x, int y, int icon, COLORREF background)
{
    HDC mem = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(mem, g_app.bmpIcons);
    std::string diff;
    for (int dy = 0; dy < 9 && diff.empty(); dy++)
        for (int dx = 0; dx < 9 && diff.empty(); dx++) {
            COLORREF want = GetPixel(mem, 9 * icon + dx, dy);
            if (want == RGB(255, 0, 255))
                want = background;
            if (x + dx >= pic.width || y + dy >= pic.height || pic.At(x + dx, y + dy) != want) {
                char text[64];
                snprintf(text, sizeof text, "pixel (%d,%d) differs", dx, dy);
                diff = text;
            }
        }
    SelectObject(mem, old);
    DeleteDC(mem);
    return diff;
}

class IconsPage : public ::testing::Test {
protected:
    SettingsKeyGuard keep; // the key as the test found it, back when it ends
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//icons page tests//EN\r\n"
                         "BEGIN:VEVENT\r\nUID:trip\r\nDTSTAMP:20300101T000000Z\r\n"
                         "DTSTART:20320315T090000\r\nDTEND:20320315T100000\r\nSUMMARY:Trip\r\n"
                         "CATEGORIES:Business,Vacation\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n");
        ASSERT_TRUE(StartProgram());
        RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Oakfinder\\Lanternfields");
        CreateSettingsKey();
        ReloadSettings();
    }
};

TEST_F(IconsPage, ChosenIconAndLabelReachRegistryAndMonth)
{
    INT_PTR result = RunScripted(RunIconsSheet, [](HWND sheet) {
        HWND page = Page(sheet);
        ASSERT_TRUE(page);
        TapSlot(page, 30);
        ChooseWithButton(page, 23);
        TypeLabel(page, L"Vacation");
        // Another slot between, so the label is seen to stay with its own slot.
        TapSlot(page, 2);
        EXPECT_EQ(LabelField(page), L"");
        TypeLabel(page, L"(None)");
        TapSlot(page, 30);
        EXPECT_EQ(LabelField(page), L"Vacation");
        Click(sheet, IDOK);
    });
    EXPECT_GT(result, 0);
    EXPECT_EQ(RegNumber(L"displayicon30"), 23u);
    EXPECT_EQ(RegText(L"displayiconstring30"), L"Vacation");
    EXPECT_EQ(RegText(L"displayiconstring2"), L"(None)");
    for (int k : {0, 1, 29, 31, 47}) {
        WCHAR name[32];
        swprintf(name, 32, L"displayicon%d", k);
        EXPECT_EQ(RegNumber(name), (DWORD)k) << "slot " << k << " keeps its default icon";
        swprintf(name, 32, L"displayiconstring%d", k);
        EXPECT_EQ(RegText(name), L"") << "slot " << k << " is written empty, as shown";
    }
    EXPECT_EQ(g_app.settings.displayIcon[30], 23u);
    EXPECT_STREQ(g_app.settings.displayIconString[30], L"Vacation");

    g_app.settings.showindicator = 0;
    g_app.settings.showholiday = 1;
    g_app.viewMonth = 3;
    g_app.viewYear = 2032;
    ASSERT_TRUE(RedrawAndWait());
    EXPECT_EQ(MonthIconDiff(3, 15, 2032, 23), "") << "the Vacation appointment shows icon 23";
}

TEST_F(IconsPage, CancelWritesNothing)
{
    auto before = RegistryValues();
    DWORD icon5 = g_app.settings.displayIcon[5];
    INT_PTR result = RunScripted(RunIconsSheet, [](HWND sheet) {
        HWND page = Page(sheet);
        TapSlot(page, 5);
        ChooseWithButton(page, 11);
        TypeLabel(page, L"Changed");
        Click(sheet, IDCANCEL);
    });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(RegistryValues() == before) << "the registry is as it was";
    EXPECT_EQ(g_app.settings.displayIcon[5], icon5);
    EXPECT_STREQ(g_app.settings.displayIconString[5], L"");
}

TEST_F(IconsPage, LabelsStopAtFourteenCharacters)
{
    struct {
        const wchar_t *typed, *kept;
    } cases[] = {
        {L"Birthday", L"Birthday"},
        {L"FourteenLetter", L"FourteenLetter"},
        {L"Much too long a category", L"Much too long "},
    };
    int slot = 10;
    RunScripted(RunIconsSheet, [&](HWND sheet) {
        HWND page = Page(sheet);
        for (auto &c : cases) {
            TapSlot(page, slot);
            TypeLabel(page, c.typed);
            EXPECT_EQ(LabelField(page), c.kept);
            slot++;
        }
        Click(sheet, IDOK);
    });
    slot = 10;
    for (auto &c : cases) {
        WCHAR name[32];
        swprintf(name, 32, L"displayiconstring%d", slot++);
        EXPECT_EQ(RegText(name), c.kept) << "typed " << std::string(c.typed, c.typed + wcslen(c.typed));
    }
}

// An icon number from the registry past every icon the program has (an icons.bmp since removed)
// is drawn as the fallback, opens the chooser with nothing selected, and is written back as it was.
TEST_F(IconsPage, UnknownIconNumberIsKept)
{
    WriteSettingNumber(L"displayicon4", 9999);
    ReloadSettings();
    ASSERT_EQ(g_app.settings.displayIcon[4], 9999u);
    RunScripted(RunIconsSheet, [](HWND sheet) {
        HWND page = Page(sheet);
        TapSlot(page, 4);
        Picture button = PaintClient(GetDlgItem(page, IDC_ICONSLOTICON));
        EXPECT_EQ(PictureIconDiff(button, (button.width - 9) / 2, (button.height - 9) / 2, 2, RGB(255, 255, 255)), "")
            << "the button shows the fallback icon";
        RunScripted([&] { Click(page, IDC_ICONSLOTICON); return (INT_PTR)0; },
                    [](HWND chooser) {
                        WCHAR text[64] = L"";
                        GetDlgItemTextW(chooser, IDC_ICONNUMBER, text, 64);
                        EXPECT_STREQ(text, L"") << "no icon selected";
                        Click(chooser, IDOK);
                    });
        Click(sheet, IDOK);
    });
    EXPECT_EQ(RegNumber(L"displayicon4"), 9999u);
}

// The page as the user sees it, when LF_SHOTS names a folder.
TEST_F(IconsPage, Screenshot)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    lstrcpyW(g_app.settings.displayIconString[0], L"Business");
    lstrcpyW(g_app.settings.displayIconString[1], L"Personal");
    lstrcpyW(g_app.settings.displayIconString[2], L"(None)");
    g_app.settings.displayIcon[3] = 17;
    lstrcpyW(g_app.settings.displayIconString[3], L"Vacation");
    RunScripted(RunIconsSheet, [](HWND sheet) {
        HWND page = Page(sheet);
        TapSlot(page, 3);
        Pump(200);
        EXPECT_TRUE(SaveScreenShot({sheet}, ShotPath("iconspage")));
        Click(sheet, IDCANCEL);
    });
}
