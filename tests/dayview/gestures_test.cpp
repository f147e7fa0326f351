// The stylus and the keys in the day list: days by the arrow keys, Enter closing, whole
// appointments selected by a tap, the hold timer, and the notes popup.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "common/com.h"
#include "common/messages.h"
#include "dayview/daylist.h"
#include "dayview/notes.h"
#include "store/store.h"
#include "resource.h"

#include <commctrl.h>
#include <gtest/gtest.h>

class DayGestures : public ::testing::Test {
protected:
    void SetUp() override
    {
        hwnd = StartOnDayStore();
        ASSERT_TRUE(hwnd);
        WaitForPass();
        g_app.copiedItem = g_app.cutItem = 0;
    }
    void TearDown() override { ResetDaySettings(); }
    HWND hwnd = nullptr;
};

static int SelectedCount(HWND list)
{
    return (int)SendMessageW(list, LVM_GETSELECTEDCOUNT, 0, 0);
}

static bool Selected(HWND list, int row)
{
    return SendMessageW(list, LVM_GETITEMSTATE, row, LVIS_SELECTED) & LVIS_SELECTED;
}

static POINT RowPoint(HWND list, int row, int x)
{
    RECT rc = RowRect(list, row);
    return {x, (rc.top + rc.bottom) / 2};
}

static void TapRow(HWND list, int row, int x = 120)
{
    POINT at = RowPoint(list, row, x);
    Tap(list, at.x, at.y);
}

// Left and right a day, up and down a week, over month and year ends; the list is filled for
// the new day, the header shows it, and the list's own highlight never moves.
TEST_F(DayGestures, ArrowKeysMoveThroughDays)
{
    struct {
        UINT key;
        Day after;
    } steps[] = {
        {VK_RIGHT, {1, 1, 2005}}, {VK_LEFT, {12, 31, 2004}}, {VK_DOWN, {1, 7, 2005}},
        {VK_UP, {12, 31, 2004}},  {VK_UP, {12, 24, 2004}},   {VK_DOWN, {12, 31, 2004}},
    };
    RunDayView({12, 31, 2004}, [&](HWND dlg, HWND list) {
        for (auto &s : steps) {
            Picture before = PaintClient(dlg);
            Key(list, s.key);
            EXPECT_EQ(g_app.shownMonth, s.after.month) << "key " << s.key;
            EXPECT_EQ(g_app.shownDay, s.after.day) << "key " << s.key;
            EXPECT_EQ(g_app.shownYear, s.after.year) << "key " << s.key;
            EXPECT_TRUE(IsWindowVisible(dlg));
            Picture after = PaintClient(dlg);
            int changed = 0;
            for (int y = 2; y < 17; y++)
                for (int x = 5; x < 190; x++)
                    changed += before.At(x, y) != after.At(x, y);
            EXPECT_GT(changed, 10) << "the header shows the new date, key " << s.key;
        }
    });

    // From the busy day to the next and back: the rows follow, nothing is highlighted.
    RunDayView(kBusyDay, [&](HWND, HWND list) {
        TapRow(list, 3);
        ASSERT_TRUE(Selected(list, 3));
        Key(list, VK_RIGHT);
        ASSERT_EQ(RowCount(list), 3);
        EXPECT_EQ(CellText(list, 0, 2), L"Trip");
        EXPECT_EQ(CellText(list, 1, 2), L"Late");
        EXPECT_EQ(CellText(list, 2, 2), L"Notes only");
        EXPECT_EQ(SelectedCount(list), 0);
        Key(list, VK_LEFT);
        EXPECT_EQ(RowCount(list), 7);
        EXPECT_EQ(SelectedCount(list), 0);
        Key(list, VK_DOWN);
        Key(list, VK_UP);
        EXPECT_EQ(SelectedCount(list), 0) << "no row highlighted by the keys";
        EXPECT_EQ(g_app.shownDay, kBusyDay.day);
    });
}

TEST_F(DayGestures, EnterClosesLikeTheCloseButton)
{
    bool open = true;
    INT_PTR result = RunDayView(kBusyDay, [&](HWND dlg, HWND list) {
        Key(list, VK_RETURN);
        open = IsWindowVisible(dlg);
    });
    EXPECT_FALSE(open);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(g_app.viewMode, VIEW_MONTH);
}

// A tap on any row of an appointment selects all its rows; the first row is the one the
// commands act on. With one row per appointment only the tapped row is selected.
TEST_F(DayGestures, TapSelectsTheWholeAppointment)
{
    g_app.settings.wrapsubject = 1;
    g_app.settings.showlocation = 1;
    RunDayView(kLongTextDay, [&](HWND, HWND list) {
        LPARAM first = DayRowItem(list, 0);
        int rows = 0;
        while (DayRowItem(list, rows) == first)
            rows++;
        ASSERT_GE(rows, 3);
        TapRow(list, 1);
        EXPECT_EQ(g_app.selectedRow, 0);
        for (int r = 0; r < RowCount(list); r++)
            EXPECT_EQ(Selected(list, r), r < rows) << "row " << r;
        TapRow(list, rows + 2);
        EXPECT_EQ(g_app.selectedRow, rows);
        EXPECT_FALSE(Selected(list, 0));
        EXPECT_TRUE(Selected(list, rows));
    });
    ResetDaySettings();
    RunDayView(kBusyDay, [&](HWND, HWND list) {
        TapRow(list, 4);
        EXPECT_EQ(g_app.selectedRow, 4);
        EXPECT_EQ(SelectedCount(list), 1);
        EXPECT_TRUE(Selected(list, 4));
        EXPECT_EQ(GetFocus(), list);
    });
}

// Empty space clears the selection unless something waits to be pasted; "No Appointments"
// cannot be selected. A tap's release kills the hold timer; a stylus still down keeps it.
TEST_F(DayGestures, TapsOnEmptySpaceAndTheHoldTimer)
{
    RunDayView(kPlainDay, [&](HWND dlg, HWND list) {
        RECT last = RowRect(list, 1);
        TapRow(list, 0);
        Tap(list, 100, last.bottom + 40);
        EXPECT_EQ(g_app.selectedRow, -2);
        EXPECT_EQ(SelectedCount(list), 0);
        TapRow(list, 0);
        g_app.copiedItem = DayRowItem(list, 0);
        Tap(list, 100, last.bottom + 40);
        EXPECT_EQ(g_app.selectedRow, -1);
        EXPECT_TRUE(Selected(list, 0)) << "kept in sight while there is something to paste";
        g_app.copiedItem = 0;

        TapRow(list, 1);
        EXPECT_FALSE(KillTimer(dlg, TIMER_DAYLIST_HOLD)) << "the release killed it";
        POINT at = RowPoint(list, 1, 100);
        SendMessageW(list, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(at.x, at.y));
        EXPECT_TRUE(KillTimer(dlg, TIMER_DAYLIST_HOLD)) << "running while the stylus is down";
        SendMessageW(list, WM_LBUTTONUP, 0, MAKELPARAM(at.x, at.y));
        ChooseMenuItem(0); // the hold's menu, cancelled
        Hold(list, at.x, at.y, 1000);
        EXPECT_TRUE(LastMenu().opened) << "a hold opens the menu";
        EXPECT_FALSE(KillTimer(dlg, TIMER_DAYLIST_HOLD)) << "it fires once";
    });
    RunDayView(kEmptyDay, [&](HWND dlg, HWND list) {
        g_app.selectedRow = 5;
        POINT at = RowPoint(list, 0, 50);
        SendMessageW(list, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(at.x, at.y));
        EXPECT_EQ(g_app.selectedRow, 5);
        EXPECT_EQ(SelectedCount(list), 0);
        EXPECT_FALSE(KillTimer(dlg, TIMER_DAYLIST_HOLD)) << "no hold on \"No Appointments\"";
        SendMessageW(list, WM_LBUTTONUP, 0, MAKELPARAM(at.x, at.y));
    });
}

static std::wstring NotesText(HWND notes)
{
    HWND text = GetDlgItem(notes, IDC_NOTESTEXT);
    int length = GetWindowTextLengthW(text);
    std::wstring s(length + 1, L'\0');
    GetWindowTextW(text, &s[0], length + 1);
    s.resize(length);
    return s;
}

static bool OnScreen(HWND w)
{
    RECT rc, work;
    GetWindowRect(w, &rc);
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0);
    return rc.left >= work.left && rc.top >= work.top && rc.right <= work.right &&
           rc.bottom <= work.bottom;
}

// Taps a row's marker column (or another point of the row); the notes popup's script runs if
// one opens. True when it opened.
static bool TapForNotes(HWND list, int row, int x, const std::function<void(HWND)> &script)
{
    bool opened = false;
    RunScripted(
        [&] {
            TapRow(list, row, x);
            return (INT_PTR)0;
        },
        [&](HWND notes) {
            opened = true;
            script(notes);
        });
    return opened;
}

TEST_F(DayGestures, NotesPopup)
{
    RunDayView(kBusyDay, [&](HWND, HWND list) {
        const int breakfast = 3;
        ASSERT_EQ(CellText(list, breakfast, 2), L"Breakfast");
        int marker = ColumnWidth(list, 0) + 5;
        bool closed = false;
        EXPECT_TRUE(TapForNotes(list, breakfast, marker, [&](HWND notes) {
            EXPECT_EQ(NotesText(notes), L"Bring the figures");
            EXPECT_TRUE(OnScreen(notes));
            RECT box;
            EXPECT_EQ(GetWindowRgnBox(notes, &box), COMPLEXREGION) << "a balloon, not a box";
            Tap(notes, 20, 20);
            closed = !IsWindowVisible(notes);
        }));
        EXPECT_TRUE(closed) << "a tap closes it";
        EXPECT_TRUE(Selected(list, breakfast));
        EXPECT_FALSE(TapForNotes(list, breakfast, 150, [](HWND) {})) << "the subject: no notes";
        EXPECT_FALSE(TapForNotes(list, 4, marker, [](HWND) {})) << "a row without notes";
        EXPECT_TRUE(TapForNotes(list, breakfast, marker, [&](HWND notes) {
            ActivateAnotherWindow();
            closed = !IsWindowVisible(notes);
        }));
        EXPECT_TRUE(closed) << "turning to another window closes it";
        EXPECT_TRUE(TapForNotes(list, breakfast, marker, [&](HWND notes) {
            EXPECT_FALSE(IsWindowVisible(GetDlgItem(notes, IDC_NOTESSCROLL))) << "short notes";
            Picture text = PaintClient(GetDlgItem(notes, IDC_NOTESTEXT));
            EXPECT_GT(text.Count(RGB(0, 0, 0)), 20) << "the notes in black";
            EXPECT_GT(text.Count(RGB(255, 255, 225)), 200) << "on pale yellow";
            Key(notes, VK_RETURN);
            closed = !IsWindowVisible(notes);
        }));
        EXPECT_TRUE(closed) << "Enter closes it too";
    });
}

// The notes popup lets go of all it makes (its region, fonts and brushes), with notes or
// without, over many openings.
TEST_F(DayGestures, NoGdiObjectsLostOverManyNotes)
{
    RunDayView(kBusyDay, [&](HWND dlg, HWND list) {
        const int breakfast = 3, lunch = 4;
        auto cycle = [](HWND notes) {
            PaintClient(notes);
            PaintClient(GetDlgItem(notes, IDC_NOTESTEXT));
            EndDialog(notes, 0);
        };
        RunUnshown([&] { ShowNotes(dlg, breakfast); return (INT_PTR)0; }, cycle);
        int before = CountGdiObjects();
        for (int i = 0; i < 60; i++)
            RunUnshown([&] { ShowNotes(dlg, i % 2 ? breakfast : lunch); return (INT_PTR)0; }, cycle);
        EXPECT_EQ(CountGdiObjects(), before) << GdiObjectSummary();
        (void)list;
    });
}

// Notes of 100,000 characters open at once, whole, and scroll; the balloon stays on the
// screen.
TEST_F(DayGestures, HugeNotes)
{
    RunDayView(kHugeNotesDay, [&](HWND, HWND list) {
        int marker = ColumnWidth(list, 0) + 5;
        DWORD tapped = GetTickCount();
        EXPECT_TRUE(TapForNotes(list, 0, marker, [&](HWND notes) {
            EXPECT_LT(GetTickCount() - tapped, 3000u) << "it opens at once";
            EXPECT_EQ(NotesText(notes).size(), (size_t)HUGE_NOTES);
            EXPECT_EQ(NotesText(notes).substr(0, 5), L"Note ");
            HWND bar = GetDlgItem(notes, IDC_NOTESSCROLL);
            ASSERT_TRUE(IsWindowVisible(bar));
            SCROLLINFO si = {};
            si.cbSize = sizeof(si);
            si.fMask = SIF_ALL;
            GetScrollInfo(bar, SB_CTL, &si);
            EXPECT_GT(si.nMax, 1000) << "lines";
            HWND text = GetDlgItem(notes, IDC_NOTESTEXT);
            Picture top = PaintClient(text);
            Key(notes, VK_END);
            EXPECT_GT(GetScrollPos(bar, SB_CTL), 1000);
            Picture end = PaintClient(text);
            EXPECT_NE(top.pixels, end.pixels) << "the end of the notes in sight";
            Key(notes, VK_HOME);
            EXPECT_EQ(GetScrollPos(bar, SB_CTL), 0);
            SendMessageW(notes, WM_MOUSEWHEEL, MAKEWPARAM(0, -WHEEL_DELTA), 0);
            EXPECT_EQ(GetScrollPos(bar, SB_CTL), 3);
            EXPECT_TRUE(OnScreen(notes));
            RECT rc;
            GetWindowRect(notes, &rc);
            EXPECT_LE(rc.bottom - rc.top, 200);
            Key(notes, VK_ESCAPE);
            EXPECT_FALSE(IsWindowVisible(notes));
        }));
    });
}

static long AddNotedAppointment(const Day &day)
{
    IDispatch *made = nullptr;
    HRESULT hr = g_app.outlookApp->CreateItem(olAppointmentItem, &made);
    ComPtr<IAppointment> item(AsAppointment(hr, made));
    if (!item)
        return 0;
    OleDate start = OleDayNumber(day.month, day.day, day.year) + 0.5;
    item->put_Subject(Bstr(L"Going"));
    item->put_Body(Bstr(L"soon gone"));
    item->put_Start(start);
    item->put_End(start + 0.05);
    item->Save();
    long oid = 0;
    item->get_Oid(&oid);
    return oid;
}

// An appointment taken from the store after the list was filled: the store's failure is shown
// and no popup opens. Last in the file: the failure lets the store's application object go,
// and the test opens the store again.
TEST_F(DayGestures, NotesOfAVanishedAppointment)
{
    ASSERT_TRUE(g_app.outlookApp);
    long oid = AddNotedAppointment(kEmptyDay);
    ASSERT_NE(oid, 0);
    RunDayView(kEmptyDay, [&](HWND dlg, HWND list) {
        ASSERT_EQ(CellText(list, 0, 2), L"Going");
        ComPtr<IAppointment> item(FetchItem(oid));
        ASSERT_TRUE(item);
        item->Delete();
        item.Reset();
        std::wstring message;
        int boxes = 0;
        RunScripted(
            [&] {
                TapRow(list, 0, ColumnWidth(list, 0) + 5);
                return (INT_PTR)0;
            },
            [&](HWND box) {
                boxes++;
                EnumChildWindows(
                    box,
                    [](HWND child, LPARAM found) {
                        WCHAR text[128] = L"";
                        GetWindowTextW(child, text, 128);
                        if (wcsstr(text, L"Appointment"))
                            *(std::wstring *)found = text;
                        return TRUE;
                    },
                    (LPARAM)&message);
                Key(box, VK_RETURN);
            });
        EXPECT_EQ(boxes, 1);
        EXPECT_EQ(message, L"Failure to Obtain Appointment Item");
        EXPECT_TRUE(IsWindowVisible(dlg));
    });
    EnterCriticalSection(&g_app.renderLock);
    CloseStore();
    LeaveCriticalSection(&g_app.renderLock);
    EXPECT_EQ(OpenStore(hwnd), 1);
}

// The user picks a day in the go-to-date popup: its calendar reports the selection.
static void PickInGoToDate(HWND popup, const Day &day)
{
    HWND cal = FindWindowExW(popup, nullptr, MONTHCAL_CLASSW, nullptr);
    ASSERT_TRUE(cal);
    SYSTEMTIME st = {};
    st.wYear = (WORD)day.year;
    st.wMonth = (WORD)day.month;
    st.wDay = (WORD)day.day;
    SendMessageW(cal, MCM_SETCURSEL, 0, (LPARAM)&st);
    NMSELCHANGE sel = {};
    sel.nmhdr.hwndFrom = cal;
    sel.nmhdr.idFrom = (UINT_PTR)GetDlgCtrlID(cal);
    sel.nmhdr.code = MCN_SELECT;
    sel.stSelStart = sel.stSelEnd = st;
    SendMessageW(popup, WM_NOTIFY, sel.nmhdr.idFrom, (LPARAM)&sel);
    Pump(0);
}

// A tap on the date opens the go-to-date popup on the shown day; the day picked there is shown,
// and picking the shown day again changes nothing. Taps beside the date open nothing.
TEST_F(DayGestures, GoToDateFromTheHeader)
{
    RunDayView(kBusyDay, [&](HWND dlg, HWND list) {
        struct {
            int x, y;
            bool opens;
        } taps[] = {{100, 8, true}, {179, 17, true}, {180, 8, false}, {100, 18, false}};
        for (auto &t : taps) {
            bool opened = false;
            RunScripted(
                [&] {
                    Tap(dlg, t.x, t.y);
                    return (INT_PTR)0;
                },
                [&](HWND popup) {
                    opened = true;
                    PickInGoToDate(popup, kBusyDay);
                });
            EXPECT_EQ(opened, t.opens) << t.x << "," << t.y;
        }

        TapRow(list, 2);
        RunScripted(
            [&] {
                Tap(dlg, 60, 8);
                return (INT_PTR)0;
            },
            [&](HWND popup) { PickInGoToDate(popup, kBusyDay); });
        EXPECT_TRUE(Selected(list, 2)) << "the same day: the list is not filled again";

        RunScripted(
            [&] {
                Tap(dlg, 60, 8);
                return (INT_PTR)0;
            },
            [&](HWND popup) { PickInGoToDate(popup, kPlainDay); });
        EXPECT_EQ(g_app.shownMonth, kPlainDay.month);
        EXPECT_EQ(g_app.shownDay, kPlainDay.day);
        EXPECT_EQ(g_app.shownYear, kPlainDay.year);
        ASSERT_EQ(RowCount(list), 2);
        EXPECT_EQ(CellText(list, 0, 2), L"Plain one");
        EXPECT_EQ(GetFocus(), list);
        EXPECT_TRUE(IsWindowVisible(dlg));
    });
}
