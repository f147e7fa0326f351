// The settings sheet over the running program, scripted from inside its modal loop: its pages
// read the settings, write them to the registry of the test's Wine prefix when the sheet is
// accepted and nothing when it is cancelled, and what they change shows in the month view.
#include "categorysupport.h"
#include "settings/settingssheet.h"
#include "settings/categoryprops.h"
#include "settings/colorpicker.h"
#include "settings/settings.h"
#include "common/appstate.h"
#include "month/monthgrid.h"
#include "platform/aygshell.h"
#include "support/settingskey.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "support/errorboxes.h"
#include "resource.h"

#include <commctrl.h>
#include <prsht.h>
#include <gtest/gtest.h>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

enum { PAGE_OPTIONS = 0, PAGE_TIMES = 1, PAGE_COLOR = 2, PAGE_CATEGORY = 3, PAGE_ICONS = 4 };

// The store the sheet's program serves: two categories, far from the month the tests look at,
// which the calendar server lists in the device's category list for the Category page.
static const char kStore[] =
    "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields tests//EN\r\n"
    "BEGIN:VEVENT\r\nUID:sheet-1\r\nDTSTAMP:20310101T000000Z\r\nDTSTART:20310310T090000\r\n"
    "DTEND:20310310T100000\r\nSUMMARY:Meeting\r\nCATEGORIES:Business,Holiday\r\nEND:VEVENT\r\n"
    "END:VCALENDAR\r\n";

// Every value under the settings key, by name: its type and bytes.
typedef std::map<std::wstring, std::pair<DWORD, std::vector<BYTE>>> RegistrySnapshot;

static RegistrySnapshot Snapshot()
{
    RegistrySnapshot values;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, kSettingsKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return values;
    for (DWORD i = 0;; i++) {
        WCHAR name[256];
        DWORD nameLen = 256, type = 0, size = 1024;
        std::vector<BYTE> data(size);
        if (RegEnumValueW(key, i, name, &nameLen, nullptr, &type, data.data(), &size) !=
            ERROR_SUCCESS)
            break;
        data.resize(size);
        values[name] = {type, data};
    }
    RegCloseKey(key);
    return values;
}

static DWORD Stored(const WCHAR *name)
{
    DWORD value = 0xDEADBEEF;
    ReadSettingNumber(name, &value);
    return value;
}

static HWND Page(HWND sheet, int index)
{
    PropSheet_SetCurSel(sheet, nullptr, index);
    Pump(0);
    return PropSheet_GetCurrentPageHwnd(sheet);
}

// The user picks a list's entry: the selection, then the notification the list sends.
static void Choose(HWND page, int id, int index)
{
    HWND combo = GetDlgItem(page, id);
    SendMessageW(combo, CB_SETCURSEL, index, 0);
    SendMessageW(page, WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE), (LPARAM)combo);
    Pump(0);
}

static int Chosen(HWND page, int id)
{
    return (int)SendDlgItemMessageW(page, id, CB_GETCURSEL, 0, 0);
}

static std::wstring ItemText(HWND page, int id, int index)
{
    WCHAR text[64] = L"";
    SendDlgItemMessageW(page, id, CB_GETLBTEXT, index, (LPARAM)text);
    return text;
}

class SettingsSheet : public ::testing::Test {
  protected:
    SettingsKeyGuard keep; // the key as the test found it, back when it ends
    void SetUp() override
    {
        if (!g_app.hwndMain) {
            UseTestObjectStore();
            UseTempStore(kStore);
        }
        owner = StartProgram();
        ASSERT_TRUE(owner);
        // The calendar server lists the store's categories after its logon, which start-up
        // may have come before.
        ASSERT_TRUE(WaitForDeviceCategories({{L"Business", L"Holiday"}}));
        ReloadCategories(true);
    }
    INT_PTR Run(const std::function<void(HWND)> &script)
    {
        return RunScripted([&] { return ShowSettingsSheet(owner); }, script);
    }
    HWND owner = nullptr;
};

struct OptionCase {
    int id;
    const WCHAR *name;
    DWORD AppSettings::*field;
    const WCHAR *label;
};
static const OptionCase kOptions[] = {
    {IDC_OPTSHOWDAYS, L"showdays", &AppSettings::showdays, L"Show all dates"},
    {IDC_OPTCLEARTYPE, L"cleartype", &AppSettings::cleartype, L"ClearType text"},
    {IDC_OPTCOLOREXPIRED, L"colorexpired", &AppSettings::colorexpired, L"Color expired appointments"},
    {IDC_OPTSHOWINDICATOR, L"showindicator", &AppSettings::showindicator, L"Show schedule indicator"},
    {IDC_OPTSHOWFREE, L"showfree", &AppSettings::showfree,
     L"Schedule indicator with All Day \"Free\" Appointments"},
    {IDC_OPTSHOWHOLIDAY, L"showholiday", &AppSettings::showholiday, L"Show month view icons"},
    {IDC_OPTSHOWLOCATION, L"showlocation", &AppSettings::showlocation, L"Show location in daily view"},
    {IDC_OPTWRAPSUBJECT, L"wrapsubject", &AppSettings::wrapsubject, L"Wrap subject text"},
    {IDC_OPTSHOWWEEKNUMBER, L"showweeknumber", &AppSettings::showweeknumber, L"Show week number"},
    {IDC_OPTCOLORYEARVIEW, L"coloryearview", &AppSettings::coloryearview,
     L"Color days w/ appointments in year view"},
    {IDC_OPTALARMFLAG, L"alarmflag", &AppSettings::alarmflag, L"Show alarm icon in daily view"},
};

// Each box shows its setting, and the flipped boxes reach the registry and the running settings
// when the sheet is accepted; twice, so every box goes both ways.
TEST_F(SettingsSheet, OptionsRoundTripThroughTheRegistry)
{
    for (int round = 0; round < 2; round++) {
        for (size_t i = 0; i < sizeof(kOptions) / sizeof(kOptions[0]); i++)
            g_app.settings.*kOptions[i].field = (i + round) % 2;
        g_app.yearDataYear = 0;
        INT_PTR ended = Run([&](HWND sheet) {
            HWND page = Page(sheet, PAGE_OPTIONS);
            for (size_t i = 0; i < sizeof(kOptions) / sizeof(kOptions[0]); i++) {
                const OptionCase &o = kOptions[i];
                EXPECT_EQ(IsDlgButtonChecked(page, o.id) == BST_CHECKED, (i + round) % 2 == 1)
                    << "round " << round << ": " << testing::PrintToString(std::wstring(o.name));
                Click(page, o.id);
            }
            Click(sheet, IDOK);
        });
        EXPECT_GT(ended, 0) << "round " << round;
        for (size_t i = 0; i < sizeof(kOptions) / sizeof(kOptions[0]); i++) {
            DWORD want = (i + round + 1) % 2;
            std::wstring name = kOptions[i].name;
            EXPECT_EQ(Stored(kOptions[i].name), want)
                << "round " << round << ": " << std::string(name.begin(), name.end());
            EXPECT_EQ(g_app.settings.*kOptions[i].field, want)
                << "round " << round << ": " << std::string(name.begin(), name.end());
        }
        EXPECT_EQ(g_app.yearDataYear, g_app.viewYear)
            << "the year's colouring was worked out again";
    }
    // The labels as the user reads them.
    Run([&](HWND sheet) {
        HWND page = Page(sheet, PAGE_OPTIONS);
        for (const OptionCase &o : kOptions) {
            WCHAR text[128];
            GetDlgItemTextW(page, o.id, text, 128);
            EXPECT_STREQ(text, o.label);
        }
        Click(sheet, IDCANCEL);
    });
}

// Start 23:30 moves the end to 24:30, any other start to the half hour after it; the lists read
// as the locale's clock has them; accepting writes the times and the boundaries.
TEST_F(SettingsSheet, TimesStartMovesTheEndAlong)
{
    WCHAR clock[4] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ITIME, clock, 4);
    bool twelve = clock[0] == L'0';
    g_app.settings.timeA = 14;
    Run([&](HWND sheet) {
        HWND page = Page(sheet, PAGE_TIMES);
        for (int id : {IDC_TIMEA, IDC_TIMEB, IDC_TIMEC, IDC_TIMED, IDC_TIMESTART, IDC_TIMEEND})
            EXPECT_EQ(SendDlgItemMessageW(page, id, CB_GETCOUNT, 0, 0), 48) << id;
        EXPECT_EQ(Chosen(page, IDC_TIMEA), 14);
        EXPECT_EQ(ItemText(page, IDC_TIMEEND, 47), twelve ? L"11:30 PM" : L"23:30");
        struct {
            int start, end;
        } moves[] = {{10, 11}, {0, 1}, {46, 47}, {47, 1}, {24, 25}, {47, 1}};
        for (const auto &m : moves) {
            Choose(page, IDC_TIMESTART, m.start);
            EXPECT_EQ(Chosen(page, IDC_TIMEEND), m.end) << "start " << m.start;
        }
        EXPECT_EQ(ItemText(page, IDC_TIMEEND, Chosen(page, IDC_TIMEEND)),
                  twelve ? L"12:30 AM" : L"24:30");
        // The two frames, black outside and green inside, and the headings in dark blue.
        Picture p = PaintClient(page);
        for (int y : {60, 180}) {
            EXPECT_EQ(p.At(6, y), 0x000000u) << y;
            EXPECT_EQ(p.At(7, y), 0x00FF00u) << y;
            EXPECT_EQ(p.At(233, y), 0x000000u) << y;
            EXPECT_EQ(p.At(232, y), 0x00FF00u) << y;
        }
        EXPECT_EQ(p.At(100, 7), 0x000000u);
        EXPECT_EQ(p.At(100, 225 - 1), 0x000000u);
        EXPECT_EQ(p.At(100, 137), p.At(100, 3)) << "the page between the frames";
        for (int id : {IDC_TIMESHEADING1, IDC_TIMESHEADING2}) {
            EXPECT_GT(PaintClient(GetDlgItem(page, id)).Count(0x990000), 20) << id;
            LOGFONTW font = {};
            GetObjectW((HFONT)SendDlgItemMessageW(page, id, WM_GETFONT, 0, 0), sizeof font, &font);
            EXPECT_GE(font.lfWeight, FW_BOLD) << id << ": the headings are bold";
            EXPECT_EQ(abs(font.lfHeight), 12) << id;
        }
        Choose(page, IDC_TIMEB, 26);
        Click(sheet, IDOK);
    });
    EXPECT_EQ(Stored(L"defaultStartTimeIndex"), 47u);
    EXPECT_EQ(Stored(L"defaultEndTimeIndex"), 1u);
    EXPECT_EQ(Stored(L"timeA"), 14u);
    EXPECT_EQ(Stored(L"timeB"), 26u);
    EXPECT_EQ(g_app.settings.timeB, 26u);
    EXPECT_NEAR(g_app.settings.bandB, 13.0 / 24, 1e-6) << "the boundaries are worked out again";
    EXPECT_EQ(g_app.settings.defaultStartTime.wHour, 23);
    EXPECT_EQ(g_app.settings.defaultStartTime.wMinute, 30);
    EXPECT_EQ(g_app.settings.defaultEndTime.wHour, 24);
    EXPECT_EQ(g_app.settings.defaultEndTime.wMinute, 30);
}

// An end at the start is refused with the message, over the page, and the end goes to
// the half hour after the start.
TEST_F(SettingsSheet, TimesEndNotAfterStartIsRefused)
{
    ErrorBoxes boxes;
    HWND timesPage = nullptr;
    Run([&](HWND sheet) {
        HWND page = timesPage = Page(sheet, PAGE_TIMES);
        Choose(page, IDC_TIMESTART, 20);
        ASSERT_EQ(Chosen(page, IDC_TIMEEND), 21);
        EXPECT_TRUE(boxes.Seen().empty());
        struct {
            int end;
            bool refused;
        } ends[] = {{20, true}, {30, false}, {21, false}};
        for (const auto &e : ends) {
            boxes.Clear();
            Choose(page, IDC_TIMEEND, e.end);
            std::vector<ErrorBoxes::Box> seen = boxes.Seen();
            ASSERT_EQ(seen.size(), e.refused ? 1u : 0u) << "end " << e.end;
            if (e.refused) {
                EXPECT_EQ(seen[0].text, L"Default End time must be greater than Start time!");
                // Given the page, the box is owned by the page's top-level window, the sheet.
                EXPECT_EQ(seen[0].owner, sheet);
            }
            EXPECT_EQ(Chosen(page, IDC_TIMEEND), e.refused ? 21 : e.end) << "end " << e.end;
        }
        Click(sheet, IDCANCEL);
    });
    EXPECT_TRUE(timesPage);
}

// Values no list holds (a damaged registry, an end before its start) show as safe choices: a
// boundary as its default, a shading as the first way, the end after the start.
TEST_F(SettingsSheet, OutOfRangeSettingsShowSafeChoices)
{
    AppSettings saved = g_app.settings;
    g_app.settings.timeA = 99;
    g_app.settings.timeD = 0xFFFFFFFF;
    g_app.settings.calendarcolorstyle = 7;
    g_app.settings.rowcolorindex = 4;
    DWORD start = 24, end = 25;
    ReadSettingNumber(L"defaultStartTimeIndex", &start);
    ReadSettingNumber(L"defaultEndTimeIndex", &end);
    WriteSettingNumber(L"defaultStartTimeIndex", 30);
    WriteSettingNumber(L"defaultEndTimeIndex", 10);
    Run([&](HWND sheet) {
        HWND page = Page(sheet, PAGE_TIMES);
        EXPECT_EQ(Chosen(page, IDC_TIMEA), 12);
        EXPECT_EQ(Chosen(page, IDC_TIMED), 42);
        EXPECT_EQ(Chosen(page, IDC_TIMESTART), 30);
        EXPECT_EQ(Chosen(page, IDC_TIMEEND), 31);
        page = Page(sheet, PAGE_COLOR);
        EXPECT_EQ(Chosen(page, IDC_COLORCELLSTYLE), 0);
        EXPECT_EQ(Chosen(page, IDC_COLORROWSTYLE), 0);
        EXPECT_EQ(ItemText(page, IDC_COLORROWSTYLE, 1), L"Afternoons");
        Click(sheet, IDCANCEL);
    });
    g_app.settings = saved;
    WriteSettingNumber(L"defaultStartTimeIndex", start);
    WriteSettingNumber(L"defaultEndTimeIndex", end);
}

// The picker opened by a click on `id` takes its swatch `k`; `look` sees the picker first.
static void PickSwatch(HWND page, int id, int k, const std::function<void(HWND)> &look = nullptr)
{
    RunScripted(
        [&] {
            Click(page, id);
            return (INT_PTR)0;
        },
        [&](HWND picker) {
            if (look)
                look(picker);
            RECT rc = PickerSwatchRect(k);
            Tap(picker, rc.left + 3, rc.top + 3);
            Click(picker, IDC_PICKEROK);
        });
}

// The picker opened by a click on `id` takes its fifth swatch, red.
static void PickRed(HWND page, int id)
{
    PickSwatch(page, id, 4);
}

// The icon chooser opened by a click on `id` takes its last icon.
static void ChooseLastIcon(HWND page, int id)
{
    RunScripted(
        [&] {
            Click(page, id);
            return (INT_PTR)0;
        },
        [](HWND chooser) {
            Key(GetDlgItem(chooser, IDC_ICONGRID), VK_END);
            Click(chooser, IDOK);
        });
}

// A list's row chosen as the list reports it.
static void SelectRow(HWND page, int id, int row)
{
    HWND list = GetDlgItem(page, id);
    SendMessageW(list, LB_SETCURSEL, row, 0);
    SendMessageW(page, WM_COMMAND, MAKEWPARAM(id, LBN_SELCHANGE), (LPARAM)list);
    Pump(0);
}

// Every page visited and changed (colours and a category's colour picked, icons chosen, a label
// typed), and then Cancel: the registry, "settings.vol" and the running settings and categories
// are as they were.
TEST_F(SettingsSheet, CancelWritesNothing)
{
    RegistrySnapshot before = Snapshot();
    AppSettings settings = g_app.settings;
    std::vector<BYTE> volume = ReadAll(VolumePath());
    FileStamp volumeStamp = Stamp(VolumePath());
    ASSERT_FALSE(volume.empty()) << "start-up made the volume";
    ASSERT_EQ(g_app.deviceCategoryCount, 2);
    std::vector<CategoryLook> looks(g_app.mergedCategories, g_app.mergedCategories + 2);
    INT_PTR ended = Run([&](HWND sheet) {
        HWND page = Page(sheet, PAGE_OPTIONS);
        for (const OptionCase &o : kOptions)
            Click(page, o.id);
        page = Page(sheet, PAGE_TIMES);
        Choose(page, IDC_TIMEA, 3);
        Choose(page, IDC_TIMESTART, 30);
        page = Page(sheet, PAGE_COLOR);
        Choose(page, IDC_COLORROWSTYLE, 2);
        Choose(page, IDC_COLORCELLSTYLE, 1);
        PickRed(page, IDC_COLORTODAY);
        page = Page(sheet, PAGE_CATEGORY);
        ASSERT_EQ(SendDlgItemMessageW(page, IDC_CATEGORYLIST, LB_GETCOUNT, 0, 0), 2);
        SelectRow(page, IDC_CATEGORYLIST, 1);
        PickRed(page, IDC_CATEGORYCOLOR);
        ChooseLastIcon(page, IDC_CATEGORYICON);
        EXPECT_GT(PaintClient(GetDlgItem(page, IDC_CATEGORYCOLOR)).Count(PickerSwatchColour(4)), 20)
            << "the page shows the colour picked";
        page = Page(sheet, PAGE_ICONS);
        SelectRow(page, IDC_ICONSLOTLIST, 5);
        ChooseLastIcon(page, IDC_ICONSLOTICON);
        HWND label = GetDlgItem(page, IDC_ICONSLOTLABEL);
        SetFocus(label);
        Type(label, L"Changed");
        Click(sheet, IDCANCEL);
    });
    EXPECT_EQ(ended, 0);
    EXPECT_TRUE(Snapshot() == before) << "the registry changed";
    EXPECT_EQ(memcmp(&settings, &g_app.settings, sizeof(settings)), 0)
        << "the running settings changed";
    EXPECT_EQ(ReadAll(VolumePath()), volume) << "\"settings.vol\" changed";
    EXPECT_TRUE(Stamp(VolumePath()) == volumeStamp) << "\"settings.vol\" was written";
    ASSERT_EQ(g_app.deviceCategoryCount, 2);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(g_app.mergedCategories[i].color, looks[i].color) << i;
        EXPECT_EQ(g_app.mergedCategories[i].icon, looks[i].icon) << i;
    }
}

// A cell colour and the way of shading picked on the Color page show in the month view's pixels
// once the sheet is accepted; the day view's colours reach the registry too.
TEST_F(SettingsSheet, ColorPageReachesTheMonthView)
{
    const COLORREF red = PickerSwatchColour(4), navy = PickerSwatchColour(7);
    ASSERT_EQ(red, 0x0000FFu);
    Run([&](HWND sheet) {
        HWND page = Page(sheet, PAGE_COLOR);
        Choose(page, IDC_COLORCELLSTYLE, 1); // weekends
        for (auto pick : {std::make_pair(IDC_COLORMONTH2, 4), std::make_pair(IDC_COLORROW2, 7)})
            PickSwatch(page, pick.first, pick.second);
        Picture p = PaintClient(GetDlgItem(page, IDC_COLORMONTH2));
        EXPECT_GT(p.Count(red), p.width * p.height / 2) << "the swatch shows the colour picked";
        Click(sheet, IDOK);
    });
    EXPECT_EQ(Stored(L"month2color"), red);
    EXPECT_EQ(Stored(L"row2color"), navy);
    EXPECT_EQ(Stored(L"calendarcolorstyle"), 1u);
    EXPECT_EQ(g_app.settings.month2color, red);
    EXPECT_EQ(g_app.settings.calendarcolorstyle, 1u);
    ASSERT_TRUE(RedrawAndWait());
    // Saturday's column is the last in either locale; a cell's inside away from its date.
    int x = GRID_LEFT + GRID_PITCH * 6 + 5, reds = 0;
    for (int r = 0; r < GRID_ROWS; r++)
        reds += BackPixel(x, GRID_TOP + GRID_PITCH * r + 25) == red;
    EXPECT_GE(reds, 4) << "Saturdays are red";
    EXPECT_NE(BackPixel(GRID_LEFT + GRID_PITCH * 2 + 5, GRID_TOP + GRID_PITCH * 2 + 25), red)
        << "a midweek day is not";
}

// Each of the nine colour swatches opens the picker on its own setting's colour, and the colour
// picked there is what the sheet's OK writes for that setting, and only for it.
TEST_F(SettingsSheet, EveryColourSwatchWritesItsSetting)
{
    struct {
        int id;
        const WCHAR *name;
        COLORREF AppSettings::*field;
    } swatches[] = {
        {IDC_COLORMONTH1, L"month1color", &AppSettings::month1color},
        {IDC_COLORMONTH2, L"month2color", &AppSettings::month2color},
        {IDC_COLORTODAY, L"todaycolor", &AppSettings::todaycolor},
        {IDC_COLORDATE, L"datecolor", &AppSettings::datecolor},
        {IDC_COLORALLDAY, L"alldaycolor", &AppSettings::alldaycolor},
        {IDC_COLORTEXT, L"textcolor", &AppSettings::textcolor},
        {IDC_COLORLOCATION, L"locationcolor", &AppSettings::locationcolor},
        {IDC_COLORROW1, L"row1color", &AppSettings::row1color},
        {IDC_COLORROW2, L"row2color", &AppSettings::row2color},
    };
    AppSettings saved = g_app.settings;
    Run([&](HWND sheet) {
        HWND page = Page(sheet, PAGE_COLOR);
        for (int k = 0; k < 9; k++)
            PickSwatch(page, swatches[k].id, k, [&](HWND picker) {
                Picture p = PaintClient(picker);
                EXPECT_EQ(p.At(kPickerPreview.left + 2, kPickerPreview.top + 2), saved.*swatches[k].field)
                    << "swatch " << k << " opens on its colour";
            });
        Click(sheet, IDOK);
    });
    for (int k = 0; k < 9; k++) {
        std::wstring name = swatches[k].name;
        EXPECT_EQ(Stored(swatches[k].name), PickerSwatchColour(k)) << std::string(name.begin(), name.end());
        EXPECT_EQ(g_app.settings.*swatches[k].field, PickerSwatchColour(k)) << std::string(name.begin(), name.end());
    }
    g_app.settings = saved;
}

// The menu's Settings... command opens the sheet over the application area with its pages in
// order; it ends in a redraw.
TEST_F(SettingsSheet, SettingsCommandOpensTheSheet)
{
    LONG passes = g_app.renderPasses;
    bool opened = false;
    RunScripted(
        [&] {
            SendMessageW(owner, WM_COMMAND, MAKEWPARAM(IDM_SETTINGS, 0), 0);
            return (INT_PTR)0;
        },
        [&](HWND sheet) {
            opened = true;
            WCHAR text[64];
            GetWindowTextW(sheet, text, 64);
            EXPECT_STREQ(text, L"Lanternfields");
            EXPECT_EQ(GetWindow(sheet, GW_OWNER), owner);
            EXPECT_TRUE(SendMessageW(sheet, WM_GETICON, ICON_SMALL, 0) ||
                        SendMessageW(sheet, WM_GETICON, ICON_BIG, 0))
                << "the lantern is the sheet's icon";
            HWND tab = PropSheet_GetTabControl(sheet);
            ASSERT_TRUE(tab);
            const WCHAR *titles[] = {L"Options", L"Times", L"Color", L"Category", L"Icons"};
            ASSERT_EQ(TabCtrl_GetItemCount(tab), 5);
            for (int i = 0; i < 5; i++) {
                TCITEMW item = {};
                item.mask = TCIF_TEXT;
                item.pszText = text;
                item.cchTextMax = 64;
                TabCtrl_GetItem(tab, i, &item);
                EXPECT_STREQ(text, titles[i]) << i;
            }
            Pump(50);
            // Every title fits its tab with room to spare for the selected tab drawn over its
            // neighbours' edges, and the row fits the width.
            HDC dc = GetDC(tab);
            HGDIOBJ old = SelectObject(dc, (HFONT)SendMessageW(tab, WM_GETFONT, 0, 0));
            RECT tabClient;
            GetClientRect(tab, &tabClient);
            for (int i = 0; i < 5; i++) {
                SIZE title = {};
                GetTextExtentPoint32W(dc, titles[i], lstrlenW(titles[i]), &title);
                RECT item = {};
                TabCtrl_GetItemRect(tab, i, &item);
                EXPECT_GE(item.right - item.left, title.cx + 6) << "tab " << i;
                EXPECT_LE(item.right, tabClient.right) << "tab " << i;
            }
            SelectObject(dc, old);
            ReleaseDC(tab, dc);
            RECT area, rc;
            AppAreaRect(&area);
            GetWindowRect(sheet, &rc);
            EXPECT_TRUE(EqualRect(&rc, &area)) << "the sheet covers the application area";
            RECT tr, br;
            GetWindowRect(tab, &tr);
            for (int id : {IDOK, IDCANCEL}) {
                GetWindowRect(GetDlgItem(sheet, id), &br);
                EXPECT_GE(br.top, tr.bottom) << "button " << id << " lies below the tabs";
                EXPECT_LE(br.bottom, area.bottom) << "button " << id;
                EXPECT_LE(br.right, area.right) << "button " << id;
            }
            for (int i = 0; i < 5; i++) {
                HWND page = Page(sheet, i);
                RECT pr;
                GetWindowRect(page, &pr);
                EXPECT_EQ(pr.right - pr.left, area.right - area.left)
                    << "page " << i << " is full width";
                EXPECT_LE(pr.bottom, tr.top) << "page " << i << " stays above the tabs";
            }
            Click(sheet, IDCANCEL);
        });
    EXPECT_TRUE(opened);
    EXPECT_TRUE(WaitForPass());
    EXPECT_GT(g_app.renderPasses, passes) << "the month is drawn again";
}

// The pages' fonts and the swatches' brushes and pens go with each opening of the sheet.
TEST_F(SettingsSheet, NothingLostOverManyOpenings)
{
    int baseline = -1;
    for (int round = 0; round < 3; round++) {
        Run([&](HWND sheet) {
            for (int i : {PAGE_TIMES, PAGE_COLOR, PAGE_OPTIONS})
                PaintClient(Page(sheet, i));
            Click(sheet, IDCANCEL);
        });
        Pump(0);
        if (round == 0)
            baseline = CountGdiObjects();
        else
            EXPECT_LE(CountGdiObjects(), baseline)
                << "round " << round << ": " << GdiObjectSummary();
    }
}

// The picker and every page, for looking at: written only when LF_SHOTS names a folder.
TEST_F(SettingsSheet, Screenshots)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    const char *names[] = {"sheet-options", "sheet-times", "sheet-color", "sheet-category",
                           "sheet-icons"};
    Run([&](HWND sheet) {
        Pump(100);
        for (int i = 0; i < 5; i++) {
            Page(sheet, i);
            Pump(100);
            EXPECT_TRUE(SaveScreenShot({sheet}, ShotPath(names[i])));
        }
        HWND page = Page(sheet, PAGE_COLOR);
        RunScripted(
            [&] {
                Click(page, IDC_COLORMONTH1);
                return (INT_PTR)0;
            },
            [&](HWND picker) {
                Pump(100);
                EXPECT_TRUE(SaveScreenShot({sheet, picker}, ShotPath("colorpicker")));
                Click(picker, IDC_PICKERCANCEL);
            });
        Click(sheet, IDCANCEL);
    });
}
