// The Category page in a property sheet of its own over the running program: the device's
// categories with their colours, a colour chosen in the colour picker saved on OK and shown in
// the day view's rows by category, and nothing written on Cancel.
#include "categorysupport.h"
#include "dayview/daystore.h"
#include "support/settingskey.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "support/errorboxes.h"
#include "common/appstate.h"
#include "settings/categoryprops.h"
#include "settings/pages.h"
#include "resource.h"

#include <commctrl.h>
#include <cstdlib>
#include <gtest/gtest.h>

static const Day kCategoryDay = {3, 10, 2031};
static const COLORREF kPickerRed = 0x0000FF; // the picker's fifth swatch

static std::string Events()
{
    return Event("meeting", "20310310T090000", "20310310T100000", "SUMMARY:Meeting\r\nCATEGORIES:Business\r\n") +
           Event("beach", "20310310T110000", "20310310T120000",
                 "SUMMARY:Beach\r\nCATEGORIES:Unknown,Holiday\r\n") +
           Event("plain", "20310310T130000", "20310310T140000", "SUMMARY:Plain\r\n");
}

class CategoryPage : public ::testing::Test {
protected:
    SettingsKeyGuard keep; // the key as the test found it, back when it ends
    void SetUp() override
    {
        UseTestObjectStore();
        RemoveVolume();
        ASSERT_TRUE(StartOnDayStore(Events()));
        // The device's list is the test's own, not the one the calendar server derives from the
        // store, so the page can show a name no appointment uses and the rows a category the
        // device does not know.
        const std::vector<std::wstring> own = {L"Business", L"Holiday", std::wstring(200, L'L'),
                                               L"Personal"};
        ASSERT_TRUE(WaitForDeviceCategories({{L"Business", L"Holiday", L"Unknown"}, own}));
        SetDeviceCategories(own);
        ReloadCategories(true);
    }
    void TearDown() override
    {
        ResetDaySettings();
        RemoveVolume();
        ReloadCategories(true);
    }
};

// Runs a sheet holding the Category page alone, as the settings sheet holds it, and calls
// `script` with the sheet and the page from inside the sheet's modal loop.
static INT_PTR RunCategoryPage(const std::function<void(HWND sheet, HWND page)> &script)
{
    return RunScripted([] { return ShowPageAlone(IDD_CATEGORYPAGE, CategoryPageProc, L"Category", g_app.hwndMain); },
                       [&](HWND sheet) { script(sheet, (HWND)SendMessageW(sheet, PSM_GETCURRENTPAGEHWND, 0, 0)); });
}

// Selects a row of the page's list as the stylus does.
static void SelectRow(HWND page, int row)
{
    HWND list = GetDlgItem(page, IDC_CATEGORYLIST);
    RECT rc = {};
    SendMessageW(list, LB_GETITEMRECT, row, (LPARAM)&rc);
    Tap(list, rc.left + 40, (rc.top + rc.bottom) / 2);
}

// The colour button opens the picker; its fifth swatch is taken with Ok.
static void PickRed(HWND page)
{
    RunScripted(
        [&] {
            Click(page, IDC_CATEGORYCOLOR);
            return (INT_PTR)0;
        },
        [&](HWND picker) {
            Tap(picker, 8 + 22 * 4 + 8, 8 + 8);
            Click(picker, 1000);
        });
}

// The icon button opens the icon chooser; its last icon is taken with OK.
static void ChooseLastIcon(HWND page)
{
    RunScripted(
        [&] {
            Click(page, IDC_CATEGORYICON);
            return (INT_PTR)0;
        },
        [&](HWND chooser) {
            Key(GetDlgItem(chooser, IDC_ICONGRID), VK_END);
            Click(chooser, IDOK);
        });
}

static COLORREF RowBack(const Picture &pic, HWND list, int row)
{
    RECT rc = RowRect(list, row);
    return pic.At(pic.width - 3, (rc.top + rc.bottom) / 2);
}

TEST_F(CategoryPage, ChosenColourColoursTheDayRows)
{
    ErrorBoxes boxes;
    RunCategoryPage([&](HWND sheet, HWND page) {
        HWND list = GetDlgItem(page, IDC_CATEGORYLIST);
        ASSERT_EQ(SendMessageW(list, LB_GETCOUNT, 0, 0), 4);
        WCHAR name[64] = L"";
        SendMessageW(list, LB_GETTEXT, 1, (LPARAM)name);
        EXPECT_STREQ(name, L"Holiday");
        // The over-long name cannot be given a colour.
        SelectRow(page, 2);
        EXPECT_FALSE(IsWindowEnabled(GetDlgItem(page, IDC_CATEGORYCOLOR)));
        SelectRow(page, 1);
        EXPECT_TRUE(IsWindowEnabled(GetDlgItem(page, IDC_CATEGORYCOLOR)));
        PickRed(page);
        Picture pic = PaintClient(list);
        RECT rc = {};
        SendMessageW(list, LB_GETITEMRECT, 1, (LPARAM)&rc);
        EXPECT_EQ(pic.At(rc.left + 8, (rc.top + rc.bottom) / 2), kPickerRed) << "the row's swatch";
        ChooseLastIcon(page);
        Click(sheet, IDOK);
    });
    EXPECT_TRUE(boxes.Texts().empty());

    // Only the changed category was saved.
    CategoryProps *props = nullptr;
    int count = 0;
    props = LoadCategoryProps(&count);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(props[0].name, L"Holiday");
    EXPECT_EQ(props[0].color, kPickerRed);
    EXPECT_EQ(props[0].icon, (DWORD)BUILTIN_ICONS - 1);
    FreeCategoryArray(props);
    ASSERT_EQ(g_app.deviceCategoryCount, 4);
    EXPECT_EQ(g_app.mergedCategories[1].icon, (DWORD)BUILTIN_ICONS - 1) << "merged again on OK";

    g_app.settings.rowcolorindex = 2;
    RunDayView(kCategoryDay, [&](HWND, HWND list) {
        ASSERT_EQ(RowCount(list), 3);
        Picture pic = PaintClient(list);
        struct {
            const wchar_t *subject;
            COLORREF back;
        } rows[] = {
            {L"Meeting", kDefaultCategoryColors[0]}, // Business: the first default colour
            {L"Beach", kPickerRed},                  // its first known category, Holiday
            {L"Plain", g_app.settings.row1color},    // no category
        };
        for (int r = 0; r < 3; r++) {
            EXPECT_EQ(CellText(list, r, 2), rows[r].subject);
            EXPECT_EQ(RowBack(pic, list, r), rows[r].back) << "row " << r;
        }
    });
}

// The device's list changed after start-up (the calendar server lists a category an appointment
// was just given): the day's rows by category follow it when the day is shown, with the stored
// colours kept.
TEST_F(CategoryPage, DayRowsFollowTheDevicesListAsItChanges)
{
    WriteVolume({{L"Holiday", RGB(10, 20, 30), 4}});
    ReloadCategories(true);
    SetDeviceCategories({L"Personal", L"Business"});
    g_app.settings.rowcolorindex = 2;
    for (int round = 0; round < 2; round++) {
        RunDayView(kCategoryDay, [&](HWND, HWND list) {
            ASSERT_EQ(RowCount(list), 3);
            Picture pic = PaintClient(list);
            // Business: after Personal the second default colour, then the first.
            EXPECT_EQ(RowBack(pic, list, 0), kDefaultCategoryColors[round ? 0 : 1]) << "round " << round;
            EXPECT_EQ(RowBack(pic, list, 1), round ? RGB(10, 20, 30) : g_app.settings.row1color)
                << "round " << round;
        });
        SetDeviceCategories({L"Business", L"Holiday"});
    }
    // The server's list of the store back, as the next test expects to find it.
    SetDeviceCategories({L"Business", L"Holiday", L"Unknown"});
}

// A stored icon past the icons the program has (an "icons.bmp" since removed) shows as the first
// icon, and is kept when only the category's colour changes; an icon chosen replaces it.
TEST_F(CategoryPage, AnIconTheProgramLacksIsKept)
{
    WriteVolume({{L"Holiday", RGB(10, 20, 30), 300}});
    ReloadCategories(true);
    ASSERT_EQ(g_app.mergedCategories[1].icon, 0u);
    for (bool chooseIcon : {false, true}) {
        RunCategoryPage([&](HWND sheet, HWND page) {
            SelectRow(page, 1);
            PickRed(page);
            if (chooseIcon)
                ChooseLastIcon(page);
            Click(sheet, IDOK);
        });
        int count = 0;
        CategoryProps *props = LoadCategoryProps(&count);
        ASSERT_EQ(count, 1);
        EXPECT_EQ(props[0].color, kPickerRed);
        EXPECT_EQ(props[0].icon, chooseIcon ? (DWORD)BUILTIN_ICONS - 1 : 300u);
        FreeCategoryArray(props);
        WriteVolume({{L"Holiday", RGB(10, 20, 30), 300}});
        ReloadCategories(true);
    }
}

TEST_F(CategoryPage, CancelAndUnchangedOkWriteNothing)
{
    WriteVolume({{L"Personal", RGB(10, 20, 30), 4}});
    ReloadCategories(true);
    std::vector<BYTE> before = ReadAll(VolumePath());
    FileStamp stamp = Stamp(VolumePath());
    RunCategoryPage([&](HWND sheet, HWND page) {
        SelectRow(page, 0);
        PickRed(page);
        Click(sheet, IDCANCEL);
    });
    RunCategoryPage([&](HWND sheet, HWND) { Click(sheet, IDOK); });
    EXPECT_EQ(ReadAll(VolumePath()), before);
    EXPECT_TRUE(Stamp(VolumePath()) == stamp);
    ASSERT_EQ(g_app.deviceCategoryCount, 4);
    EXPECT_EQ(g_app.mergedCategories[0].color, kDefaultCategoryColors[0]);
    EXPECT_EQ(g_app.mergedCategories[3].color, RGB(10, 20, 30));
}

// A "settings.vol" of another program is left as it is; the user is told his change was not kept.
TEST_F(CategoryPage, ForeignVolumeIsReportedAndKept)
{
    std::string text = "not a volume of ours";
    std::vector<BYTE> foreign(text.begin(), text.end());
    WriteAll(VolumePath(), foreign);
    ErrorBoxes boxes;
    RunCategoryPage([&](HWND sheet, HWND page) {
        ASSERT_EQ(SendDlgItemMessageW(page, IDC_CATEGORYLIST, LB_GETCOUNT, 0, 0), 4);
        SelectRow(page, 0);
        PickRed(page);
        Click(sheet, IDOK);
    });
    EXPECT_EQ(boxes.Texts(), std::vector<std::wstring>{L"The category colors and icons could not be saved."});
    EXPECT_EQ(ReadAll(VolumePath()), foreign);
    EXPECT_EQ(g_app.mergedCategories[0].color, kDefaultCategoryColors[0]);
}

// Every pen and brush the page's rows and buttons are drawn with is let go again: each opening
// paints the list and both buttons, then cancels. (A shown sheet takes Wine's window manager a
// while to open and close, so a few openings.)
TEST_F(CategoryPage, NoGdiObjectsLostOverManyOpenings)
{
    WriteVolume({{L"Holiday", RGB(255, 200, 0), 12}});
    auto cycle = [](HWND sheet, HWND page) {
        SelectRow(page, 1);
        PaintClient(GetDlgItem(page, IDC_CATEGORYLIST));
        PaintClient(GetDlgItem(page, IDC_CATEGORYCOLOR));
        PaintClient(GetDlgItem(page, IDC_CATEGORYICON));
        Click(sheet, IDCANCEL);
    };
    RunCategoryPage(cycle);
    int before = CountGdiObjects();
    for (int i = 0; i < 8; i++)
        RunCategoryPage(cycle);
    EXPECT_EQ(CountGdiObjects(), before) << GdiObjectSummary();
}

// The page with a stored colour, an icon and an over-long name, for looking at: run with
// LF_SHOTS set to a folder.
TEST_F(CategoryPage, Screenshot)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    WriteVolume({{L"Personal", RGB(10, 160, 30), 5}, {L"Holiday", RGB(255, 200, 0), 12}});
    RunCategoryPage([&](HWND sheet, HWND page) {
        SelectRow(page, 1);
        Pump(300);
        EXPECT_TRUE(SaveScreenShot({sheet}, ShotPath("categorypage")));
        SelectRow(page, 2);
        Pump(300);
        EXPECT_TRUE(SaveScreenShot({sheet}, ShotPath("categorypage-long")));
        Click(sheet, IDCANCEL);
    });
}

// Start-up over a "settings.vol" of 1 GB of zeros, on a store one of whose categories has a name
// of 200 characters: no message, the month is drawn and the day's appointments listed, every
// category takes its default colour, and a Category page change is refused with a word while the
// file stays as it was. At exit the categories are let go. Runs in a process of its own, as the
// program starts once per process.
TEST(CategoriesAtStartUp, ABadVolumeLeavesTheRestWhole)
{
    std::wstring longName(200, L'L');
    std::string longText(200, 'L');
    UseTestObjectStore();
    // The list as the calendar server makes it of this store, so start-up reads the same list
    // whether or not the server has written it yet.
    WriteDeviceStoreFile({L"Business", L"Holiday", longName});
    RemoveVolume();
    MakeSparseZeros(VolumePath(), 1ull << 30);
    FileStamp stamp = Stamp(VolumePath());
    std::string events =
        Event("meeting", "20310310T090000", "20310310T100000", "SUMMARY:Meeting\r\nCATEGORIES:Business\r\n") +
        Event("long", "20310310T110000", "20310310T120000", "SUMMARY:Long\r\nCATEGORIES:" + longText + "\r\n") +
        Event("trip", "20310310T130000", "20310310T140000", "SUMMARY:Trip\r\nCATEGORIES:Holiday\r\n");
    {
        ErrorBoxes boxes;
        ASSERT_TRUE(StartOnDayStore(events));
        EXPECT_TRUE(WaitForPass()) << "the month is drawn";
        EXPECT_TRUE(boxes.Texts().empty()) << "start-up tells nothing";
    }
    EXPECT_EQ(g_app.storeLoggedOn, 1);
    EXPECT_EQ(g_app.categoryCount, 0);
    EXPECT_EQ(g_app.categoryProps, nullptr);
    ASSERT_EQ(g_app.deviceCategoryCount, 3);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(g_app.mergedCategories[i].color, kDefaultCategoryColors[i]) << i;
    EXPECT_TRUE(g_app.deviceCategories[2].cut);

    g_app.settings.rowcolorindex = 2;
    RunDayView(kCategoryDay, [&](HWND, HWND list) {
        ASSERT_EQ(RowCount(list), 3);
        Picture pic = PaintClient(list);
        EXPECT_EQ(RowBack(pic, list, 0), kDefaultCategoryColors[0]);
        EXPECT_EQ(RowBack(pic, list, 1), g_app.settings.row1color)
            << "a name too long for its slot matches no category";
        EXPECT_EQ(RowBack(pic, list, 2), kDefaultCategoryColors[1]);
    });
    ResetDaySettings();

    {
        ErrorBoxes boxes;
        RunCategoryPage([&](HWND sheet, HWND page) {
            SelectRow(page, 0);
            PickRed(page);
            Click(sheet, IDOK);
        });
        EXPECT_EQ(boxes.Texts(), std::vector<std::wstring>{L"The category colors and icons could not be saved."});
    }
    EXPECT_TRUE(Stamp(VolumePath()) == stamp) << "the file is left as it was";
    EXPECT_EQ(g_app.mergedCategories[0].color, kDefaultCategoryColors[0]);

    ASSERT_TRUE(g_app.deviceCategories && g_app.mergedCategories);
    SendMessageW(g_app.hwndMain, WM_COMMAND, IDM_EXIT, 0);
    EXPECT_FALSE(IsWindow(g_app.hwndMain) && IsWindowVisible(g_app.hwndMain));
    EXPECT_EQ(g_app.deviceCategories, nullptr) << "let go at exit";
    EXPECT_EQ(g_app.mergedCategories, nullptr) << "let go at exit";
    EXPECT_EQ(g_app.deviceCategoryCount, 0);
    RemoveVolume();
}
