// The day list's context menu, held open by the stylus as the user holds it, and its commands
// carried out on a real store: what the menu offers in each situation, copy, cut and paste,
// and the messages of what cannot be done. The store's file is read after each change.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "dayview/daylist.h"
#include "resource.h"

#include <commctrl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

static const Day kCopyDay = {3, 1, 2032};
static const Day kCutDay = {3, 2, 2032};
static const Day kTwoDay = {3, 3, 2032};
static const Day kEmpty1 = {3, 20, 2032};
static const Day kEmpty2 = {3, 21, 2032};
static const Day kEmpty3 = {3, 22, 2032};

static std::string MenuStore()
{
    return Event("copyme", "20320301T090000", "20320301T100000", "SUMMARY:Copy me\r\n") +
           Event("cutme", "20320302T090000", "20320302T100000", "SUMMARY:Cut me\r\n") +
           Event("first", "20320303T090000", "20320303T100000", "SUMMARY:First\r\n") +
           Event("second", "20320303T110000", "20320303T120000", "SUMMARY:Second\r\n");
}

class DayMenu : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(StartOnDayStore(MenuStore()));
        WaitForPass();
        g_app.copiedItem = g_app.cutItem = 0;
    }
    void TearDown() override { ResetDaySettings(); }
};

static std::string StoreFile()
{
    std::ifstream f(g_dayStorePath.c_str(), std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

static int Occurrences(const std::string &text, const std::string &what)
{
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        n++;
    return n;
}

static POINT RowMiddle(HWND list, int row)
{
    RECT rc = RowRect(list, row);
    return {120, (rc.top + rc.bottom) / 2};
}

// Holds the stylus on the list until its menu opens, and chooses `command` there (a greyed or
// missing one cancels the menu). What the menu held is in LastMenu().
static void HoldAndChoose(HWND list, POINT at, UINT command)
{
    ChooseMenuItem(command);
    Hold(list, at.x, at.y, 1500);
}

static POINT EmptySpace(HWND list)
{
    RECT rc;
    GetClientRect(list, &rc);
    return {120, rc.bottom - 10};
}

static std::vector<UINT> Enabled(const MenuSeen &m)
{
    std::vector<UINT> ids;
    for (const MenuItemSeen &i : m.items)
        if (!i.greyed)
            ids.push_back(i.id);
    return ids;
}

TEST_F(DayMenu, ItemsFollowTheSelectionAndTheClipboard)
{
    RunDayView(kTwoDay, [&](HWND dlg, HWND list) {
        ASSERT_EQ(RowCount(list), 2);
        HoldAndChoose(list, RowMiddle(list, 1), 0);
        ASSERT_TRUE(LastMenu().opened) << "a hold on an appointment opens the menu";
        EXPECT_EQ(Enabled(LastMenu()),
                  (std::vector<UINT>{IDM_COPY, IDM_CUT, IDM_BEAM, IDM_DELETE, IDM_EDIT, IDM_NEWITEM}))
            << "Paste greyed while nothing waits to be pasted";
        EXPECT_EQ(g_app.selectedRow, 1);

        HoldAndChoose(list, EmptySpace(list), 0);
        ASSERT_TRUE(LastMenu().opened);
        EXPECT_EQ(Enabled(LastMenu()), (std::vector<UINT>{IDM_BEAM, IDM_NEWITEM}))
            << "empty space, empty clipboard";
        POINT fixed = {100, 100};
        ClientToScreen(dlg, &fixed);
        EXPECT_EQ(LastMenu().at.x, fixed.x) << "at (100, 100) of the day view";
        EXPECT_EQ(LastMenu().at.y, fixed.y);
        EXPECT_EQ(SendMessageW(list, LVM_GETSELECTEDCOUNT, 0, 0), 0) << "the selection is cleared";

        HoldAndChoose(list, RowMiddle(list, 0), IDM_COPY);
        EXPECT_EQ(g_app.copiedItem, (long)DayRowItem(list, 0));
        HoldAndChoose(list, EmptySpace(list), 0);
        EXPECT_EQ(Enabled(LastMenu()), (std::vector<UINT>{IDM_PASTE, IDM_BEAM, IDM_NEWITEM}))
            << "empty space with something to paste";
        EXPECT_EQ(SendMessageW(list, LVM_GETSELECTEDCOUNT, 0, 0), 1) << "the copied row stays in sight";
        EXPECT_EQ(g_app.selectedRow, -1);
    });
}

// A quick tap lifts the stylus before the hold timer fires: no menu.
TEST_F(DayMenu, QuickTapOpensNoMenu)
{
    RunDayView(kTwoDay, [&](HWND, HWND list) {
        ChooseMenuItem(0);
        POINT at = RowMiddle(list, 0);
        Tap(list, at.x, at.y);
        Pump(600);
        EXPECT_FALSE(LastMenu().opened);
        EXPECT_EQ(g_app.selectedRow, 0);
    });
}

// A copy pastes into one day after another; a cut moves once, the source going only when the
// copy is in the store; the day it came from refuses it with a message and keeps the
// clipboard.
TEST_F(DayMenu, CopyCutAndPaste)
{
    RunDayView(kCopyDay, [&](HWND, HWND list) {
        HoldAndChoose(list, RowMiddle(list, 0), IDM_COPY);
    });
    ASSERT_NE(g_app.copiedItem, 0);
    EXPECT_EQ(g_app.clipDay, kCopyDay.day);
    for (const Day &target : {kEmpty1, kEmpty2}) {
        g_app.dayViewDirty = 0;
        RunDayView(target, [&](HWND, HWND list) {
            HoldAndChoose(list, EmptySpace(list), IDM_PASTE);
            ASSERT_EQ(RowCount(list), 1) << "the list is filled again with the pasted copy";
            EXPECT_EQ(CellText(list, 0, DAY_COL_SUBJECT), L"Copy me");
            EXPECT_EQ(g_app.dayViewDirty, 1) << "the month is drawn again on closing";
        });
    }
    std::string file = StoreFile();
    EXPECT_EQ(Occurrences(file, "SUMMARY:Copy me"), 3) << "pasted twice";
    EXPECT_EQ(Occurrences(file, "DTSTART:20320321T090000"), 1) << "at the same time of day";
    EXPECT_NE(g_app.copiedItem, 0) << "a copy can be pasted again";

    bool refused = false;
    RunDayView(kCopyDay, [&](HWND, HWND list) {
        RunScripted(
            [&] {
                HoldAndChoose(list, EmptySpace(list), IDM_PASTE);
                return (INT_PTR)0;
            },
            [&](HWND box) {
                WCHAR text[64] = L"", caption[16] = L"";
                GetDlgItemTextW(box, 0xFFFF, text, 64);
                GetWindowTextW(box, caption, 16);
                refused = lstrcmpW(caption, L"Error") == 0;
                EXPECT_STREQ(text, L"Cannot copy into same day");
                EndDialog(box, IDOK);
            });
        EXPECT_EQ(RowCount(list), 1);
    });
    EXPECT_TRUE(refused) << "the same day refuses the paste";
    EXPECT_NE(g_app.copiedItem, 0) << "and keeps the clipboard";

    RunDayView(kCutDay, [&](HWND, HWND list) {
        HoldAndChoose(list, RowMiddle(list, 0), IDM_CUT);
        EXPECT_EQ(RowCount(list), 1) << "nothing goes before the paste";
    });
    EXPECT_EQ(g_app.copiedItem, 0);
    ASSERT_NE(g_app.cutItem, 0);
    RunDayView(kEmpty3, [&](HWND, HWND list) {
        HoldAndChoose(list, EmptySpace(list), IDM_PASTE);
        EXPECT_EQ(CellText(list, 0, DAY_COL_SUBJECT), L"Cut me");
        HoldAndChoose(list, EmptySpace(list), 0);
        EXPECT_TRUE(LastMenu().Greyed(IDM_PASTE)) << "a cut appointment is pasted once";
    });
    file = StoreFile();
    EXPECT_EQ(Occurrences(file, "SUMMARY:Cut me"), 1);
    EXPECT_EQ(Occurrences(file, "DTSTART:20320322T090000"), 1) << "moved";
    EXPECT_EQ(Occurrences(file, "DTSTART:20320302T090000"), 0) << "gone from its day";
}
