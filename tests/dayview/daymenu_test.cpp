// The day list's context menu, held open by the stylus as the user holds it, and its commands
// carried out on a real store: what the menu offers in each situation, copy, cut and paste,
// and the messages of what cannot be done. The store's file is read after each change.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "support/errorboxes.h"
#include "common/appstate.h"
#include "common/com.h"
#include "poom/form/formids.h"
#include "store/store.h"
#include "dayview/daylist.h"
#include "resource.h"

#include <commctrl.h>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>

static const Day kCopyDay = {3, 1, 2032};
static const Day kCutDay = {3, 2, 2032};
static const Day kTwoDay = {3, 3, 2032};
static const Day kEmpty1 = {3, 20, 2032};
static const Day kEmpty2 = {3, 21, 2032};
static const Day kEmpty3 = {3, 22, 2032};
static const Day kNewDay = {3, 15, 2032};
static const Day kEditDay = {3, 4, 2032};
static const Day kDeleteDay = {3, 5, 2032};
static const Day kLocatedDay = {3, 6, 2032};
static const Day kStandupDay = {3, 9, 2032}; // the second of five

static std::string MenuStore()
{
    return Event("copyme", "20320301T090000", "20320301T100000", "SUMMARY:Copy me\r\n") +
           Event("cutme", "20320302T090000", "20320302T100000", "SUMMARY:Cut me\r\n") +
           Event("first", "20320303T090000", "20320303T100000", "SUMMARY:First\r\n") +
           Event("second", "20320303T110000", "20320303T120000", "SUMMARY:Second\r\n") +
           Event("editme", "20320304T090000", "20320304T100000", "SUMMARY:Edit me\r\n") +
           Event("deleteme", "20320305T090000", "20320305T100000", "SUMMARY:Delete me\r\n") +
           Event("located", "20320306T090000", "20320306T100000",
                 "SUMMARY:Located\r\nLOCATION:Room 4\r\n") +
           Event("standup", "20320308T100000", "20320308T101500",
                 "SUMMARY:Standup\r\nRRULE:FREQ=DAILY;COUNT=5\r\n");
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

static std::string ReadBytes(const std::wstring &path)
{
    std::ifstream f(path.c_str(), std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

// The store's text: its file, or every calendar file of a directory store in name order.
static std::string StoreFile()
{
    if (!DirectoryStore())
        return ReadBytes(g_dayStorePath);
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((g_dayStorePath + L"\\*.ics").c_str(), &fd);
    if (h != INVALID_HANDLE_VALUE) {
        do
            names.push_back(fd.cFileName);
        while (FindNextFileW(h, &fd));
        FindClose(h);
    }
    std::sort(names.begin(), names.end());
    std::string all;
    for (const std::wstring &n : names)
        all += ReadBytes(g_dayStorePath + L"\\" + n);
    return all;
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

// Runs `act` (which opens a dialog: the form, the confirmation, a message) and `answer` inside
// that dialog; false when no dialog opened.
static bool Answer(const std::function<void()> &act, const std::function<void(HWND)> &answer)
{
    bool opened = false;
    RunScripted(
        [&] {
            act();
            return (INT_PTR)0;
        },
        [&](HWND dlg) {
            opened = true;
            answer(dlg);
        });
    return opened;
}

// New from the menu opens the calendar's form on the shown day; what is typed there is saved
// and listed at once. Closed without a change, it adds nothing.
TEST_F(DayMenu, NewAppointmentOnTheShownDay)
{
    RunDayView(kNewDay, [&](HWND, HWND list) {
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, EmptySpace(list), IDM_NEWITEM); },
                           [](HWND form) {
                               EXPECT_EQ(GetFocus(), GetDlgItem(form, IDC_FORM_SUBJECT))
                                   << "the subject is ready for typing";
                               Type(GetFocus(), L"Planning");
                               Key(GetFocus(), VK_RETURN);
                           }));
        ASSERT_EQ(RowCount(list), 1) << "the list shows the new appointment: "
                                     << testing::PrintToString(CellText(list, 0, DAY_COL_SUBJECT)) << " "
                                     << testing::PrintToString(CellText(list, 1, DAY_COL_SUBJECT));
        EXPECT_EQ(CellText(list, 0, DAY_COL_SUBJECT), L"Planning");
        std::string before = StoreFile();
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, EmptySpace(list), IDM_NEWITEM); },
                           [](HWND) { Key(GetFocus(), VK_ESCAPE); }));
        EXPECT_EQ(RowCount(list), 1) << testing::PrintToString(CellText(list, 0, DAY_COL_SUBJECT)) << " "
                                     << testing::PrintToString(CellText(list, 1, DAY_COL_SUBJECT));
        EXPECT_EQ(StoreFile(), before) << "closed without a change: nothing added";
    });
    std::string file = StoreFile();
    EXPECT_EQ(Occurrences(file, "SUMMARY:Planning"), 1);
    EXPECT_EQ(Occurrences(file, "DTSTART:20320315T"), 1) << "on the day shown";
    EXPECT_EQ(g_app.editItem, 0);
}

// A double tap and the menu's Edit open the appointment in the form; the change is saved and
// listed, and the month is marked to be drawn again.
TEST_F(DayMenu, DoubleTapAndEditOpenTheAppointment)
{
    RunDayView(kEditDay, [&](HWND, HWND list) {
        POINT at = RowMiddle(list, 0);
        EXPECT_TRUE(Answer([&] { DoubleTap(list, at.x, at.y); },
                           [](HWND form) {
                               WCHAR subject[32] = L"";
                               GetDlgItemTextW(form, IDC_FORM_SUBJECT, subject, 32);
                               EXPECT_STREQ(subject, L"Edit me");
                               SetDlgItemTextW(form, IDC_FORM_SUBJECT, L"Edited once");
                               Key(GetFocus(), VK_RETURN);
                           }));
        EXPECT_EQ(g_app.dayViewDirty, 1);
        EXPECT_EQ(CellText(list, 0, DAY_COL_SUBJECT), L"Edited once");
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, RowMiddle(list, 0), IDM_EDIT); },
                           [](HWND form) {
                               SetDlgItemTextW(form, IDC_FORM_SUBJECT, L"Edited twice");
                               Key(GetFocus(), VK_RETURN);
                           }));
        EXPECT_EQ(CellText(list, 0, DAY_COL_SUBJECT), L"Edited twice");
    });
    EXPECT_EQ(Occurrences(StoreFile(), "SUMMARY:Edited twice"), 1);
    EXPECT_EQ(g_app.editItem, 0);
}

// The menu bar's New in the month view: the form opens on the day last shown, and the month is
// drawn again with what was saved. A failed edit says so, and leaves the next New to make a
// new appointment.
TEST_F(DayMenu, MenuBarNewAndAFailedEdit)
{
    g_app.shownMonth = kEmpty2.month;
    g_app.shownDay = 23;
    g_app.shownYear = kEmpty2.year;
    WaitForPass();
    long passes = g_app.renderPasses;
    EXPECT_TRUE(Answer([&] { SendMessageW(g_app.hwndMain, WM_COMMAND, IDM_NEW, 0); },
                       [](HWND form) {
                           Type(GetDlgItem(form, IDC_FORM_SUBJECT), L"From the menu bar");
                           Key(GetFocus(), VK_RETURN);
                       }));
    WaitForPass();
    EXPECT_GT(g_app.renderPasses, passes) << "the month is drawn again";
    std::string file = StoreFile();
    EXPECT_EQ(Occurrences(file, "SUMMARY:From the menu bar"), 1);
    EXPECT_EQ(Occurrences(file, "DTSTART:20320323T"), 1);

    g_app.editItem = 0x7FFFFFF0; // no such appointment
    {
        ErrorBoxes boxes;
        SendMessageW(g_app.hwndMain, WM_COMMAND, IDM_NEW, 0);
        Pump(200);
        std::vector<std::wstring> texts = boxes.Texts();
        ASSERT_FALSE(texts.empty());
        EXPECT_EQ(texts.back(), L"Error in editing appointment!");
    }
    EXPECT_EQ(g_app.editItem, 0) << "the next New makes a new appointment";
    if (!g_app.outlookApp) {
        EnterCriticalSection(&g_app.renderLock);
        CloseStore();
        LeaveCriticalSection(&g_app.renderLock);
        EXPECT_EQ(OpenStore(g_app.hwndMain), 1);
    }
}

// With the location shown an appointment takes two rows: a hold on its second selects both,
// and Edit opens that appointment.
TEST_F(DayMenu, EditFromAnAppointmentsSecondRow)
{
    g_app.settings.showlocation = 1;
    RunDayView(kLocatedDay, [&](HWND, HWND list) {
        ASSERT_EQ(RowCount(list), 2) << "the subject, then the location";
        HoldAndChoose(list, RowMiddle(list, 1), 0);
        EXPECT_EQ(SendMessageW(list, LVM_GETSELECTEDCOUNT, 0, 0), 2) << "both rows selected";
        EXPECT_EQ(g_app.selectedRow, 0) << "the commands act on its first row";
        std::wstring subject;
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, RowMiddle(list, 1), IDM_EDIT); },
                           [&](HWND form) {
                               WCHAR text[32] = L"";
                               GetDlgItemTextW(form, IDC_FORM_SUBJECT, text, 32);
                               subject = text;
                               Key(GetFocus(), VK_ESCAPE);
                           }));
        EXPECT_EQ(subject, L"Located");
    });
    g_app.settings.showlocation = 0;
}

// Delete asks first: Cancel keeps the appointment, OK deletes it; on a series the one day's
// occurrence goes (an exception date) and the rest stays.
TEST_F(DayMenu, DeleteThroughTheConfirmation)
{
    RunDayView(kDeleteDay, [&](HWND, HWND list) {
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, RowMiddle(list, 0), IDM_DELETE); },
                           [](HWND confirm) { Click(confirm, 1001); }));
        EXPECT_EQ(RowCount(list), 1) << "Cancel deletes nothing";
        EXPECT_EQ(CellText(list, 0, DAY_COL_SUBJECT), L"Delete me");
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, RowMiddle(list, 0), IDM_DELETE); },
                           [](HWND confirm) { Click(confirm, 1000); }));
        ASSERT_EQ(RowCount(list), 1);
        EXPECT_EQ(DayRowItem(list, 0), NO_APPOINTMENTS_ITEM) << "the list is filled again";
    });
    EXPECT_EQ(Occurrences(StoreFile(), "SUMMARY:Delete me"), 0);
    RunDayView(kStandupDay, [&](HWND, HWND list) {
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, RowMiddle(list, 0), IDM_DELETE); },
                           [](HWND confirm) { Click(confirm, 1054); }));
        EXPECT_EQ(DayRowItem(list, 0), NO_APPOINTMENTS_ITEM);
    });
    std::string file = StoreFile();
    EXPECT_EQ(Occurrences(file, "SUMMARY:Standup"), 1) << "the series stays";
    EXPECT_EQ(Occurrences(file, "EXDATE:20320309T100000"), 1) << "without its second day";
}

// The menu over the day view, for looking at: written only when LF_SHOTS names a folder.
static HWND g_shotDialog;
static void CALLBACK ShootMenu(HWND, UINT, UINT_PTR timer, DWORD)
{
    HWND menu = FindWindowW(L"#32768", nullptr);
    if (!menu || !IsWindowVisible(menu))
        return;
    KillTimer(nullptr, timer);
    EXPECT_TRUE(SaveScreenShot({g_shotDialog, menu}, ShotPath("daymenu")));
    PostMessageW(menu, WM_KEYDOWN, VK_ESCAPE, 0);
}

TEST_F(DayMenu, Screenshot)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    RunDayView(kTwoDay, [&](HWND dlg, HWND list) {
        HoldAndChoose(list, RowMiddle(list, 0), IDM_COPY);
        g_shotDialog = dlg;
        SetTimer(nullptr, 0, 50, ShootMenu);
        POINT at = RowMiddle(list, 1);
        Hold(list, at.x, at.y, 1500);
    });
}

// Beam sends the selected appointment to the outbox; with nothing selected it cannot, and says
// so. Last: the failure lets the store's application object go, and the test opens the store
// again.
TEST_F(DayMenu, Beam)
{
    WCHAR appData[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"APPDATA", appData, MAX_PATH);
    std::wstring outbox = std::wstring(appData) + L"\\Lanternfields\\Outbox\\*.ics";
    auto beamed = [&] {
        int n = 0;
        WIN32_FIND_DATAW fd;
        HANDLE h = FindFirstFileW(outbox.c_str(), &fd);
        if (h != INVALID_HANDLE_VALUE) {
            do
                n++;
            while (FindNextFileW(h, &fd));
            FindClose(h);
        }
        return n;
    };
    int before = beamed();
    RunDayView(kTwoDay, [&](HWND, HWND list) {
        EXPECT_FALSE(Answer([&] { HoldAndChoose(list, RowMiddle(list, 0), IDM_BEAM); }, [](HWND box) {
            ADD_FAILURE() << "unexpected message: " << testing::PrintToString(MessageBoxText(box));
            EndDialog(box, IDOK);
        }));
        EXPECT_EQ(beamed(), before + 1) << "one file in the outbox";
        std::wstring message;
        EXPECT_TRUE(Answer([&] { HoldAndChoose(list, EmptySpace(list), IDM_BEAM); }, [&](HWND box) {
            if (message.empty())
                message = MessageBoxText(box);
            EndDialog(box, IDOK);
        }));
        EXPECT_EQ(message, L"Could not beam appointment") << "nothing selected";
    });
    EXPECT_EQ(beamed(), before + 1);
    EnterCriticalSection(&g_app.renderLock);
    CloseStore();
    LeaveCriticalSection(&g_app.renderLock);
    EXPECT_EQ(OpenStore(g_app.hwndMain), 1);
}
