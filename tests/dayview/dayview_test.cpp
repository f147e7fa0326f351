// The day view dialog as the main window opens it: the day it shows, where it sits, its
// header and the taps on it, the menu bar while it is open, the refresh it takes over, and
// what it gives back when it closes.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "common/com.h"
#include "common/messages.h"
#include "dayview/dayview.h"
#include "settings/settings.h"
#include "store/store.h"
#include "resource.h"

#include <commctrl.h>
#include <gtest/gtest.h>

class DayViewDialog : public ::testing::Test {
protected:
    void SetUp() override
    {
        hwnd = StartOnDayStore();
        ASSERT_TRUE(hwnd);
        WaitForPass();
    }
    HWND hwnd = nullptr;
};

static bool ButtonGreyed(int command)
{
    LRESULT state = SendMessageW(g_app.hwndMenuBar, TB_GETSTATE, command, 0);
    return (state & TBSTATE_INDETERMINATE) && !(state & TBSTATE_ENABLED);
}

// Start-up leaves the day list with nothing selected and nothing to paste.
TEST_F(DayViewDialog, StartsWithAnEmptyClipboard)
{
    EXPECT_EQ(g_startedWith.selectedRow, -2);
    EXPECT_EQ(g_startedWith.copiedItem, 0);
    EXPECT_EQ(g_startedWith.cutItem, 0);
}

TEST_F(DayViewDialog, OpensOnTheTappedDay)
{
    struct {
        const char *name;
        int viewMonth, viewYear, param;
        Day shown;
        int dayParam;
    } cases[] = {
        {"the 3rd of the next month, in December", 12, 2004, 103, {1, 3, 2005}, 3},
        {"the 30th of the month before, in January", 1, 2005, 130, {12, 30, 2004}, 30},
        {"a day of the month", 3, 2031, 10, {3, 10, 2031}, 10},
        {"a 15th shown after the month", 2, 2031, 115, {3, 15, 2031}, 15},
        {"a 16th shown before the month", 3, 2031, 116, {2, 16, 2031}, 16},
    };
    for (auto &c : cases) {
        int mode = -1;
        Day shown = {};
        int param = 0;
        INT_PTR result = RunDayViewParam(c.viewMonth, c.viewYear, c.param, [&](HWND, HWND) {
            mode = g_app.viewMode;
            shown = {g_app.shownMonth, g_app.shownDay, g_app.shownYear};
            param = g_app.dayViewParam;
        });
        EXPECT_EQ(result, 0) << c.name;
        EXPECT_EQ(mode, VIEW_DAY) << c.name;
        EXPECT_EQ(g_app.viewMode, VIEW_MONTH) << c.name << ": put back on closing";
        EXPECT_EQ(shown.month, c.shown.month) << c.name;
        EXPECT_EQ(shown.day, c.shown.day) << c.name;
        EXPECT_EQ(shown.year, c.shown.year) << c.name;
        EXPECT_EQ(param, c.dayParam) << c.name;
    }
}

// Placed in the application area, the list inside it with its three columns, the keyboard in
// the list, and the menu bar's buttons greyed for as long as it is open.
TEST_F(DayViewDialog, LayoutAndMenuBar)
{
    RunDayView(kBusyDay, [&](HWND dlg, HWND list) {
        RECT rc;
        GetWindowRect(dlg, &rc);
        POINT origin = {0, 0};
        ClientToScreen(hwnd, &origin);
        EXPECT_EQ(rc.left - origin.x, 4);
        EXPECT_EQ(rc.top - origin.y, 5);
        EXPECT_EQ(rc.right - rc.left, 233);
        EXPECT_EQ(rc.bottom - rc.top, 264);

        ASSERT_TRUE(list);
        EXPECT_EQ(GetDlgCtrlID(list), IDC_DAYLIST);
        GetWindowRect(list, &rc);
        MapWindowPoints(HWND_DESKTOP, dlg, (POINT *)&rc, 2);
        EXPECT_EQ(rc.left, 4);
        EXPECT_EQ(rc.top, 22);
        EXPECT_EQ(rc.right - rc.left, 224);
        EXPECT_EQ(rc.bottom - rc.top, 237);
        LONG style = GetWindowLongW(list, GWL_STYLE);
        EXPECT_EQ(style & LVS_TYPEMASK, LVS_REPORT);
        EXPECT_TRUE(style & LVS_NOCOLUMNHEADER);
        EXPECT_TRUE(style & WS_BORDER);
        EXPECT_TRUE(SendMessageW(list, LVM_GETEXTENDEDLISTVIEWSTYLE, 0, 0) & LVS_EX_FULLROWSELECT);
        static const int formats[] = {LVCFMT_RIGHT, LVCFMT_CENTER, LVCFMT_LEFT};
        for (int c = 0; c < 3; c++) {
            LVCOLUMNW col = {};
            col.mask = LVCF_FMT;
            ASSERT_TRUE(SendMessageW(list, LVM_GETCOLUMNW, c, (LPARAM)&col)) << "column " << c;
            EXPECT_EQ(col.fmt & LVCFMT_JUSTIFYMASK, formats[c]) << "column " << c;
        }
        LOGFONTW lf = {};
        GetObjectW((HFONT)SendMessageW(list, WM_GETFONT, 0, 0), sizeof(lf), &lf);
        EXPECT_EQ(lf.lfHeight, 12);
        EXPECT_STREQ(lf.lfFaceName, L"Tahoma");
        EXPECT_EQ(SendMessageW(list, LVM_GETBKCOLOR, 0, 0), 0xEFDED6);
        EXPECT_EQ(GetFocus(), list);
        for (int command : {IDM_NEW, IDM_OPTIONS, IDM_EXIT})
            EXPECT_TRUE(ButtonGreyed(command)) << "button " << command;
        EXPECT_FALSE(ButtonGreyed(IDM_TOGGLEYEAR));
    });
    for (int command : {IDM_NEW, IDM_OPTIONS, IDM_EXIT})
        EXPECT_FALSE(ButtonGreyed(command)) << "button " << command << " after closing";
}

// The close test comes first, so x 208 closes in the strip; the switch does not look at the
// height. The mode is kept for the run only.
TEST_F(DayViewDialog, HeaderTaps)
{
    enum { NOTHING, CLOSES, SWITCHES };
    struct {
        int x, y, outcome;
    } taps[] = {
        {208, 10, CLOSES},   {231, 0, CLOSES},   {208, 17, CLOSES},   {200, 10, SWITCHES},
        {200, 19, SWITCHES}, {194, 5, SWITCHES}, {208, 18, SWITCHES}, {193, 10, NOTHING},
        {209, 19, NOTHING},  {190, 19, NOTHING},
    };
    DWORD stored = 0;
    int storedMissing = ReadSettingNumber(L"rowcolorindex", &stored);
    for (auto &t : taps) {
        bool open = true;
        DWORD before = 2, after = 0;
        g_app.settings.rowcolorindex = before;
        RunDayView(kPlainDay, [&](HWND dlg, HWND) {
            Tap(dlg, t.x, t.y);
            open = IsWindowVisible(dlg);
            after = g_app.settings.rowcolorindex;
        });
        EXPECT_EQ(open, t.outcome != CLOSES) << "tap at " << t.x << "," << t.y;
        EXPECT_EQ(after, t.outcome == SWITCHES ? before + 1 : before)
            << "tap at " << t.x << "," << t.y;
    }

    std::vector<DWORD> modes;
    g_app.settings.rowcolorindex = 1;
    RunDayView(kPlainDay, [&](HWND dlg, HWND) {
        for (int i = 0; i < 4; i++) {
            Tap(dlg, 200, 10);
            modes.push_back(g_app.settings.rowcolorindex);
        }
    });
    EXPECT_EQ(modes, (std::vector<DWORD>{2, 3, 0, 1})) << "four switches come round";
    DWORD now = 0;
    EXPECT_EQ(ReadSettingNumber(L"rowcolorindex", &now), storedMissing);
    EXPECT_EQ(now, stored) << "the mode is not saved";

    g_app.settings.rowcolorindex = 9; // a damaged setting starts over
    RunDayView(kPlainDay, [&](HWND dlg, HWND) { Tap(dlg, 200, 10); });
    EXPECT_EQ(g_app.settings.rowcolorindex, 0u);
}

// The header strip with the long date in white over it, and a black frame round the dialog.
TEST_F(DayViewDialog, HeaderPaint)
{
    RunDayView(kBusyDay, [&](HWND dlg, HWND) {
        Picture pic = PaintClient(dlg);
        ASSERT_EQ(pic.width, 233);
        ASSERT_EQ(pic.height, 264);
        const COLORREF black = RGB(0, 0, 0);
        for (int y : {0, 10, 100, 263})
            for (int x : {0, 232})
                EXPECT_EQ(pic.At(x, y), black) << x << "," << y;
        for (int x : {50, 150})
            EXPECT_EQ(pic.At(x, 263), black) << x;
        int white = 0, dark = 0;
        for (int y = 2; y < 17; y++)
            for (int x = 5; x < 190; x++) {
                COLORREF c = pic.At(x, y);
                white += c == RGB(255, 255, 255);
                dark += GetBValue(c) < 0xB0;
            }
        EXPECT_GT(white, 60) << "the date in white";
        EXPECT_GT(dark, 1000) << "over the dark strip";
        EXPECT_EQ(pic.At(116, 20), RGB(255, 255, 255)) << "white below the strip";
    });
}

// A change made through the list (an edit sends the private message) has the month drawn
// again when the day view closes; without one, closing draws nothing.
TEST_F(DayViewDialog, ChangesRedrawTheMonthOnClosing)
{
    for (bool edited : {false, true}) {
        WaitForPass();
        LONG before = g_app.renderPasses;
        LRESULT answer = 0;
        RunDayView(kBusyDay, [&](HWND dlg, HWND) {
            if (edited)
                answer = SendMessageW(dlg, WM_DAYVIEW_EDITED, 0, 0);
        });
        WaitForPass();
        EXPECT_EQ(g_app.renderPasses > before, edited) << (edited ? "edited" : "untouched");
        EXPECT_EQ(g_app.dayViewDirty, 0);
        EXPECT_EQ(answer, edited ? 1 : 0);
    }
}

static long AddAppointment(const wchar_t *subject, const Day &day, double startHour)
{
    IDispatch *made = nullptr;
    HRESULT hr = g_app.outlookApp->CreateItem(olAppointmentItem, &made);
    ComPtr<IAppointment> item(AsAppointment(hr, made));
    if (!item)
        return 0;
    OleDate start = OleDayNumber(day.month, day.day, day.year) + startHour / 24;
    item->put_Subject(Bstr(subject));
    item->put_Start(start);
    item->put_End(start + 1.0 / 24);
    item->Save();
    long oid = 0;
    item->get_Oid(&oid);
    return oid;
}

// While the day view is open the refresh codes fill its list again and draw no month.
TEST_F(DayViewDialog, RefreshFillsTheList)
{
    ASSERT_TRUE(g_app.outlookApp);
    static const UINT codes[] = {WM_USER + 6, WM_USER + 3, WM_USER + 1, WM_USER - 3};
    for (UINT code : codes) {
        long oid = 0;
        RunDayView(kEmptyDay, [&](HWND, HWND list) {
            ASSERT_EQ(RowCount(list), 1);
            EXPECT_EQ(CellText(list, 0, 0), L"No Appointments");
            oid = AddAppointment(L"Added", kEmptyDay, 9);
            WaitForPass();
            LONG before = g_app.renderPasses;
            EXPECT_EQ(SendMessageW(hwnd, code, 0, 0), 1) << "code " << code;
            EXPECT_EQ(RowCount(list), 1) << "code " << code;
            EXPECT_EQ(CellText(list, 0, 2), L"Added") << "code " << code;
            Pump(50);
            EXPECT_EQ(g_app.renderPasses, before) << "code " << code << ": no month drawn";
        });
        ComPtr<IAppointment> item(FetchItem(oid));
        ASSERT_TRUE(item) << "code " << code;
        item->Delete();
    }
}

static INT_PTR RunDayViewUnshown(const Day &day, std::function<void(HWND dlg)> script)
{
    g_app.viewMonth = day.month;
    g_app.viewYear = day.year;
    return RunUnshown([&] { return (INT_PTR)ShowDayView(g_app.hwndMain, day.day); }, script);
}

// Every GDI object the day view makes (header strip, list font, the bold row's font, pens)
// is let go again: each opening paints the header and every row, then closes by the button.
TEST_F(DayViewDialog, NoGdiObjectsLostOverManyOpenings)
{
    auto cycle = [](HWND dlg) {
        PaintClient(dlg);
        PaintClient(GetDlgItem(dlg, IDC_DAYLIST));
        Tap(dlg, 220, 8);
        EXPECT_EQ(g_app.viewMode, VIEW_MONTH);
    };
    WaitForPass();
    EXPECT_EQ(RunDayViewUnshown(kBusyDay, cycle), 0);
    WaitForPass();
    int before = CountGdiObjects();
    for (int i = 0; i < 60; i++)
        RunDayViewUnshown(i % 2 ? kBusyDay : kEmptyDay, cycle);
    WaitForPass();
    EXPECT_EQ(CountGdiObjects(), before) << GdiObjectSummary();
}
