// The day list as the user sees it: its rows and texts over a real store, the widths of its
// columns, and the colours its rows are painted in, read back from the list's pixels.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"
#include "dayview/daylist.h"

#include <commctrl.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class DayList : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(StartOnDayStore());
        WaitForPass();
    }
    void TearDown() override { ResetDaySettings(); }
};

static const COLORREF kBlue = RGB(0, 0, 255);
static const COLORREF kRed = RGB(255, 0, 0);
static const COLORREF kBlack = RGB(0, 0, 0);
static const COLORREF kWhite = RGB(255, 255, 255);
static const COLORREF kGrey = RGB(0x73, 0x73, 0x73);
static const COLORREF kRowLine = RGB(0xB5, 0xC6, 0xDE);
static const COLORREF kAlarmTile = RGB(0xFF, 0xE4, 0x8A); // resources/art/alarm.txt
static const COLORREF kNotesLine = RGB(0x1E, 0x5A, 0xB4); // resources/art/notes.txt

// How many pixels of a colour a row shows between two x positions.
static int CountIn(const Picture &pic, RECT row, int left, int right, COLORREF colour)
{
    int n = 0;
    for (int y = row.top; y < row.bottom && y < pic.height; y++)
        for (int x = left; x < right && x < pic.width; x++)
            n += pic.At(x, y) == colour;
    return n;
}

static int SubjectLeft(HWND list)
{
    return ColumnWidth(list, 0) + ColumnWidth(list, 1);
}

TEST_F(DayList, TimesAndSubjectsOfABusyDay)
{
    struct {
        const wchar_t *subject, *twelve, *twentyFour;
    } rows[] = {
        {L"Trip", L"multiday", L"multiday"},
        {L"Overnight", L"multiday-2:00a", L"multiday-2:00"},
        {L"Holiday", L"All Day", L"All Day"},
        {L"Breakfast", L"8:00a-9:00a", L"8:00-9:00"},
        {L"Lunch", L"12:30p-1:30p", L"12:30-13:30"},
        {L"To midnight", L"8:00p-12:00a", L"20:00-0:00"},
        {L"Late", L"10:00p-multiday", L"22:00-multiday"},
    };
    RunDayView(kBusyDay, [&](HWND, HWND list) {
        ASSERT_EQ(RowCount(list), 7);
        std::vector<LPARAM> items;
        for (int r = 0; r < 7; r++) {
            EXPECT_EQ(CellText(list, r, 2), rows[r].subject) << "row " << r;
            EXPECT_EQ(CellText(list, r, 0), TwelveHourClock() ? rows[r].twelve : rows[r].twentyFour)
                << "row " << r;
            LPARAM item = DayRowItem(list, r);
            EXPECT_NE(item, 0) << "row " << r;
            EXPECT_NE(item, NO_APPOINTMENTS_ITEM) << "row " << r;
            for (LPARAM other : items)
                EXPECT_NE(item, other) << "row " << r;
            items.push_back(item);
        }
        EXPECT_EQ(g_app.rowStart.size(), 7u);

        // The times stand to the right of their column: "All Day" begins well after the
        // longest time, and no time reaches into the marker column.
        Picture pic = PaintClient(list);
        int time = ColumnWidth(list, 0), shortest = 0, longest = 0;
        for (int r : {1, 2}) {
            RECT row = RowRect(list, r);
            int left = time, right = 0;
            for (int y = row.top + 1; y < row.bottom - 1; y++)
                for (int x = 0; x < time + 2; x++)
                    if (pic.At(x, y) == (r == 2 ? kBlue : kBlack)) {
                        left = x < left ? x : left;
                        right = x > right ? x : right;
                    }
            EXPECT_LT(right, time) << "row " << r;
            (r == 2 ? shortest : longest) = left;
        }
        EXPECT_GT(shortest - longest, 20);
    });
}

// One bold row, black on white, whatever the colouring, and nothing to select or edit.
TEST_F(DayList, NoAppointmentsRow)
{
    for (DWORD mode = 0; mode < 5; mode++) {
        g_app.settings.rowcolorindex = mode;
        RunDayView(kEmptyDay, [&](HWND, HWND list) {
            ASSERT_EQ(RowCount(list), 1);
            EXPECT_EQ(CellText(list, 0, 0), L"No Appointments");
            EXPECT_EQ(CellText(list, 0, 1), L"");
            EXPECT_EQ(CellText(list, 0, 2), L"");
            EXPECT_EQ(DayRowItem(list, 0), NO_APPOINTMENTS_ITEM);
            EXPECT_EQ(ColumnWidth(list, 0), 140);
            Picture pic = PaintClient(list);
            RECT row = RowRect(list, 0);
            row.top += 1; // the rule above the row
            // The list keeps a 2-pixel margin of its own before a row's first column.
            int black = CountIn(pic, row, 2, 140, kBlack);
            int other = 0;
            for (int y = row.top; y < row.bottom; y++)
                for (int x = 2; x < 140; x++) {
                    COLORREF c = pic.At(x, y);
                    other += !(GetRValue(c) == GetGValue(c) && GetGValue(c) == GetBValue(c));
                }
            EXPECT_GT(black, 20) << "mode " << mode;
            EXPECT_EQ(other, 0) << "mode " << mode << ": only black, white and their greys";
            EXPECT_EQ(pic.At(3, (row.top + row.bottom) / 2), kWhite) << "mode " << mode;
        });
    }
}

// The bold row draws heavier than the same text in the list's own font.
TEST_F(DayList, NoAppointmentsIsBold)
{
    RunDayView(kEmptyDay, [&](HWND, HWND list) {
        Picture pic = PaintClient(list);
        RECT row = RowRect(list, 0);
        int bold = CountIn(pic, row, 0, 140, kBlack);
        HDC dc = GetDC(list);
        HGDIOBJ old = SelectObject(dc, (HFONT)SendMessageW(list, WM_GETFONT, 0, 0));
        SIZE regular = {};
        GetTextExtentPoint32W(dc, L"No Appointments", 15, &regular);
        SelectObject(dc, old);
        ReleaseDC(list, dc);
        int inkRight = 0;
        for (int y = row.top + 1; y < row.bottom; y++)
            for (int x = 0; x < 140; x++)
                if (pic.At(x, y) != kWhite)
                    inkRight = x > inkRight ? x : inkRight;
        EXPECT_GT(bold, 40);
        EXPECT_GT(inkRight, regular.cx) << "wider than the regular font draws it";
    });
}

TEST_F(DayList, IconColumnWidth)
{
    struct {
        const char *name;
        Day day;
        DWORD alarmflag;
        int width;
    } cases[] = {
        {"neither notes nor alarms", kPlainDay, 1, 1},
        {"notes only", kNotesOnlyDay, 1, 10},
        {"notes and an alarm", kBusyDay, 1, 20},
        {"alarms not shown", kBusyDay, 0, 10},
    };
    for (auto &c : cases) {
        g_app.settings.alarmflag = c.alarmflag;
        RunDayView(c.day,
                   [&](HWND, HWND list) { EXPECT_EQ(ColumnWidth(list, 1), c.width) << c.name; });
    }
}

// The row background in each colouring mode, at the list's right edge: by rows alternating
// per appointment, by times (morning and evening alike, the afternoon apart), by category
// (none of the busy day's appointments has one: the plain first colour), and one colour.
TEST_F(DayList, RowColouringModes)
{
    const AppSettings &s = g_app.settings;
    // The busy day's rows: Trip, Overnight, Holiday, Breakfast, Lunch, To midnight, Late.
    struct {
        DWORD mode;
        COLORREF rows[7];
    } cases[] = {
        {0,
         {s.row1color, s.row2color, s.row1color, s.row2color, s.row1color, s.row2color,
          s.row1color}},
        {1,
         {s.row1color, s.row1color, s.row1color, s.row1color, s.row2color, s.row1color,
          s.row1color}},
        {2,
         {s.row1color, s.row1color, s.row1color, s.row1color, s.row1color, s.row1color,
          s.row1color}},
        {3,
         {s.row1color, s.row1color, s.row1color, s.row1color, s.row1color, s.row1color,
          s.row1color}},
    };
    for (auto &c : cases) {
        g_app.settings.rowcolorindex = c.mode;
        RunDayView(kBusyDay, [&](HWND, HWND list) {
            Picture pic = PaintClient(list);
            for (int r = 0; r < 7; r++) {
                RECT row = RowRect(list, r);
                EXPECT_EQ(pic.At(pic.width - 3, (row.top + row.bottom) / 2), c.rows[r])
                    << "mode " << c.mode << ", row " << r;
            }
        });
    }
}

// Text colours read from the rows' pixels: "All Day" in blue, and its wrapped rows with it;
// a location line in the location colour; rows gone by in grey when asked for.
TEST_F(DayList, TextColours)
{
    g_app.settings.wrapsubject = 1;
    g_app.settings.showlocation = 1;
    RunDayView(kLongTextDay, [&](HWND, HWND list) {
        // The all-day appointment comes first: its wrapped subject, then "[Hall]".
        int rows = RowCount(list);
        LPARAM first = DayRowItem(list, 0);
        int hall = -1;
        for (int r = 0; r < rows && DayRowItem(list, r) == first; r++)
            if (CellText(list, r, 2) == L"[Hall]")
                hall = r;
        ASSERT_GE(hall, 2) << "the subject wraps over two rows at least";
        Picture pic = PaintClient(list);
        int left = SubjectLeft(list);
        for (int r = 0; r < hall; r++) {
            RECT row = RowRect(list, r);
            EXPECT_GT(CountIn(pic, row, left, pic.width, kBlue), 10) << "row " << r;
            EXPECT_EQ(CountIn(pic, row, left, pic.width, kBlack), 0) << "row " << r;
        }
        RECT place = RowRect(list, hall);
        EXPECT_GT(CountIn(pic, place, left, pic.width, kRed), 5);
        EXPECT_EQ(CountIn(pic, place, left, pic.width, kBlue), 0);
        // The long appointment's own rows are black, its location red.
        RECT next = RowRect(list, hall + 1);
        EXPECT_GT(CountIn(pic, next, left, pic.width, kBlack), 10);
        EXPECT_EQ(CountIn(pic, next, left, pic.width, kBlue), 0);
        RECT last = RowRect(list, rows - 1);
        SendMessageW(list, LVM_ENSUREVISIBLE, rows - 1, FALSE);
        pic = PaintClient(list);
        last = RowRect(list, rows - 1);
        EXPECT_GT(CountIn(pic, last, left, pic.width, kRed), 5) << "the location's last row";
    });

    ResetDaySettings();
    for (DWORD expired : {0u, 1u}) {
        g_app.settings.colorexpired = expired;
        RunDayView(kPastDay, [&](HWND, HWND list) {
            Picture pic = PaintClient(list);
            RECT row = RowRect(list, 0);
            EXPECT_EQ(CountIn(pic, row, 0, pic.width, kGrey) > 10, expired == 1) << expired;
            EXPECT_EQ(CountIn(pic, row, 0, pic.width, kBlack) > 10, expired == 0) << expired;
        });
    }
}

// The markers over the marker column: the alarm tile and the notes sheet beside "Breakfast",
// nothing beside the others, and never the column's code text.
TEST_F(DayList, MarkersAndRules)
{
    RunDayView(kBusyDay, [&](HWND, HWND list) {
        Picture pic = PaintClient(list);
        int left = ColumnWidth(list, 0), right = left + ColumnWidth(list, 1) + 2;
        for (int r = 0; r < 7; r++) {
            RECT row = RowRect(list, r);
            bool markers = CellText(list, r, 2) == L"Breakfast";
            EXPECT_EQ(CountIn(pic, row, left, right, kAlarmTile) > 10, markers) << "row " << r;
            EXPECT_EQ(CountIn(pic, row, left, right, kNotesLine) > 3, markers) << "row " << r;
            EXPECT_EQ(CountIn(pic, row, left, right, kBlack), 0) << "row " << r;
            if (r > 0) {
                EXPECT_EQ(pic.At(left / 2, row.top - 1), kRowLine) << "a rule above row " << r;
            }
        }
    });
    // A selected row shows the selection's colours, with nothing of the marker codes.
    g_app.settings.showlocation = 1;
    RunDayView(kBusyDay, [&](HWND, HWND list) {
        int lunch = 4;
        ASSERT_EQ(CellText(list, lunch, 2), L"Lunch");
        RECT row = RowRect(list, lunch + 1);
        Tap(list, 150, (row.top + row.bottom) / 2);
        ASSERT_EQ(CellText(list, lunch + 1, 1).size(), 1u) << "the location line's code";
        Picture pic = PaintClient(list);
        int left = ColumnWidth(list, 0), right = left + ColumnWidth(list, 1);
        COLORREF highlight = GetSysColor(COLOR_HIGHLIGHT);
        EXPECT_EQ(CountIn(pic, row, left, right, highlight),
                  (right - left) * (row.bottom - row.top - 1))
            << "the location line's marker column is all selection colour";
        EXPECT_GT(CountIn(pic, row, right, pic.width, GetSysColor(COLOR_HIGHLIGHTTEXT)), 10);
    });
    g_app.settings.showlocation = 0;

    // Between an appointment's own rows there is no rule.
    g_app.settings.wrapsubject = 1;
    RunDayView(kLongTextDay, [&](HWND, HWND list) {
        Picture pic = PaintClient(list);
        RECT second = RowRect(list, 1);
        ASSERT_EQ(DayRowItem(list, 0), DayRowItem(list, 1));
        EXPECT_NE(pic.At(pic.width - 3, second.top - 1), kRowLine);
    });
}

// A 2,000-character subject and location wrap into rows that each fit the subject column,
// losing no word; unwrapped, the subject stays whole in one row.
TEST_F(DayList, LongTextsWrapWithinTheList)
{
    for (DWORD wrap : {0u, 1u}) {
        g_app.settings.wrapsubject = wrap;
        g_app.settings.showlocation = 1;
        RunDayView(kLongTextDay, [&](HWND, HWND list) {
            int rows = RowCount(list);
            LPARAM item = DayRowItem(list, rows - 1);
            std::wstring subject, place;
            int count = 0;
            for (int r = 0; r < rows; r++) {
                if (DayRowItem(list, r) != item)
                    continue;
                std::wstring text = CellText(list, r, 2);
                std::wstring &whole = text[0] == L'[' || !place.empty() ? place : subject;
                whole += (whole.empty() ? L"" : L" ") + text;
                count++;
                if (wrap) {
                    int width =
                        (int)SendMessageW(list, LVM_GETSTRINGWIDTHW, 0, (LPARAM)text.c_str());
                    EXPECT_LT(width, ColumnWidth(list, 2)) << "row " << r;
                }
            }
            EXPECT_EQ(subject.size(), (size_t)LONG_TEXT) << "wrap " << wrap;
            EXPECT_EQ(subject.substr(0, 8), L"Subject ");
            EXPECT_EQ(place.size(), (size_t)LONG_TEXT + 2) << "wrap " << wrap;
            if (wrap) {
                EXPECT_GT(count, 40);
                EXPECT_FALSE(GetWindowLongW(list, GWL_STYLE) & WS_HSCROLL) << "nothing sticks out";
                EXPECT_LE(SubjectLeft(list) + ColumnWidth(list, 2), 224);
            } else {
                EXPECT_EQ(count, 2);
            }
        });
    }
}

TEST_F(DayList, FiveHundredAppointments)
{
    RunDayView(kCrowdedDay, [&](HWND dlg, HWND list) {
        ASSERT_EQ(RowCount(list), CROWD);
        EXPECT_EQ(CellText(list, 0, 2), L"Crowd 0");
        EXPECT_EQ(CellText(list, CROWD - 1, 2), L"Crowd 499");
        SendMessageW(list, LVM_ENSUREVISIBLE, CROWD - 1, FALSE);
        Picture pic = PaintClient(list);
        EXPECT_GT(pic.Count(kBlack), 100);
        RECT last = RowRect(list, CROWD - 1);
        Tap(list, 60, (last.top + last.bottom) / 2);
        EXPECT_EQ(g_app.selectedRow, CROWD - 1);
        EXPECT_TRUE(IsWindowVisible(dlg));
    });
}
