// The program's side of the sync test (tests/sync/sync_test.py runs it under Wine): the real
// program on a directory store that vdirsyncer keeps in step with a Radicale server. The script
// syncs and changes the server between the steps; the two sides take turns through marker files
// in the folder LF_SYNC_TURNS names: this side writes "NAME.done" when its step is done and
// waits for "NAME.go" before the next.
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "calendar/datecalc.h"
#include "calendar/dates.h"
#include "common/appstate.h"
#include "dayview/dayview.h"
#include "poom/form/formids.h"
#include "store/store.h"
#include "support/apphost.h"
#include "support/drive.h"

namespace {

std::wstring TurnFile(const char* name, const wchar_t* kind) {
    wchar_t dir[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"LF_SYNC_TURNS", dir, MAX_PATH);
    std::wstring path = std::wstring(dir) + L"\\";
    for (const char* p = name; *p; ++p) path += static_cast<wchar_t>(*p);
    return path + kind;
}

void Done(const char* step) {
    HANDLE f = CreateFileW(TurnFile(step, L".done").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE) << step;
    CloseHandle(f);
}

// Waits, pumping messages as the program's loop does, until the script's side has done its step.
bool WaitForGo(const char* step, DWORD timeoutMs = 60000) {
    DWORD start = GetTickCount();
    while (GetTickCount() - start < timeoutMs) {
        if (GetFileAttributesW(TurnFile(step, L".go").c_str()) != INVALID_FILE_ATTRIBUTES) return true;
        Pump(20);
    }
    ADD_FAILURE() << "the script never finished its step " << step;
    return false;
}

struct Row {
    std::wstring subject;
    long oid;
};

int CollectRow(IAppointment* item, void* context) {
    Row r;
    BSTR subject = nullptr;
    item->get_Subject(&subject);
    r.subject = subject ? subject : L"";
    FreeStoreString(subject);
    item->get_Oid(&r.oid);
    static_cast<std::vector<Row>*>(context)->push_back(r);
    return 1;
}

SYSTEMTIME Date(int y, int m, int d) {
    SYSTEMTIME st = {};
    st.wYear = static_cast<WORD>(y);
    st.wMonth = static_cast<WORD>(m);
    st.wDay = static_cast<WORD>(d);
    return st;
}

// The day's appointments as the program's day list asks for them.
std::vector<Row> DayRows(int y, int m, int d) {
    std::vector<Row> rows;
    SYSTEMTIME day = Date(y, m, d);
    QueryAppointments(day, day, RestrictOverlapClosed, CollectRow, &rows);
    return rows;
}

long OidOf(int y, int m, int d, const wchar_t* subject) {
    for (const Row& r : DayRows(y, m, d))
        if (r.subject == subject) return r.oid;
    return 0;
}

std::string Narrow(const std::wstring& w) {
    std::string s;
    for (wchar_t c : w) s += c < 128 ? static_cast<char>(c) : '?';
    return s;
}

std::string Listed(const std::vector<Row>& rows) {
    std::string s;
    for (const Row& r : rows) s += "[" + Narrow(r.subject) + "] ";
    return s;
}

void ShowDay(int y, int m, int d) {
    g_app.shownYear = y;
    g_app.shownMonth = m;
    g_app.shownDay = d;
}

// Opens the appointment (0: a new one on the shown day) in the server's form through the
// program's own Edit and New path, and runs the script in it.
void InForm(long oid, const std::function<void(HWND)>& script) {
    int shown = 0;
    RunScripted([&] {
        shown = OpenItemForEdit(oid);
        return (INT_PTR)0;
    }, script);
    EXPECT_EQ(shown, 1) << oid;
}

// The form's OK pressed after a sync changed what it edits: the message box it answers with
// (its text; written to `shot` when LF_SHOTS asks for pictures) is closed, and the form with it.
std::wstring SaveAfterSync(HWND dlg, const char* shot) {
    Pump(1000);  // the server's watch reads the synced files
    std::wstring message = MessageOnOk(dlg, [&](HWND box) {
        if (shot && GetEnvironmentVariableW(L"LF_SHOTS", nullptr, 0)) {
            Pump(300);  // the box paints its text first
            SaveScreenShot({dlg, box}, ShotPath(shot));
        }
    });
    // Ended by the form itself, so the script does not close it.
    EXPECT_FALSE(IsWindowVisible(dlg)) << "the form stays open after the sync's change";
    return message;
}

void Choose(HWND dlg, int id, int index) {
    SendDlgItemMessageW(dlg, id, CB_SETCURSEL, index, 0);
    SendMessageW(dlg, WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE), (LPARAM)GetDlgItem(dlg, id));
}

// Pumps until the day list's query shows every subject wanted and none unwanted; the time it
// took, or -1 after `limitMs`.
long ShowsWithin(int y, int m, int d, std::set<std::wstring> wanted, std::set<std::wstring> unwanted,
                 DWORD limitMs, HWND list = nullptr) {
    DWORD start = GetTickCount();
    for (;;) {
        std::set<std::wstring> seen;
        if (list) {
            wchar_t text[256];
            int n = (int)SendMessageW(list, LVM_GETITEMCOUNT, 0, 0);
            for (int row = 0; row < n; ++row) {
                for (int column = 0; column < 3; ++column) {
                    LVITEMW it = {};
                    it.iSubItem = column;
                    it.pszText = text;
                    it.cchTextMax = 256;
                    text[0] = 0;
                    SendMessageW(list, LVM_GETITEMTEXTW, row, (LPARAM)&it);
                    seen.insert(text);
                }
            }
        } else {
            for (const Row& r : DayRows(y, m, d)) seen.insert(r.subject);
        }
        bool ok = true;
        for (const auto& w : wanted) ok = ok && seen.count(w);
        for (const auto& u : unwanted) ok = ok && !seen.count(u);
        if (ok) return long(GetTickCount() - start);
        if (GetTickCount() - start > limitMs) return -1;
        Pump(20);
    }
}

const DWORD kLiveLimitMs = 2000;

// The month view's schedule bar of a day of March 2031, read from the back buffer: its 27 pixels
// through the middle of the bar's box (the indicator geometry: cells 34 pixels apart, bar pixel p
// at x 34c + 6 + p, y 34r + 86).
const COLORREF kBarFree = 0xFFFFFF, kBarBusy = 0xB5835A;
bool MarchBarBusy(int day) {
    int first = DayNumber(3, 1, 2031) - WeekdayColumn(3, 1, 2031);
    int index = DayNumber(3, day, 2031) - first, r = index / 7, c = index % 7;
    for (int p = 0; p < 26; ++p)
        if (BackPixel(34 * c + 6 + p, 34 * r + 86) == kBarBusy) return true;
    return false;
}

std::string MarchBars(const std::vector<int>& days) {
    std::string s;
    for (int d : days) s += std::to_string(d) + (MarchBarBusy(d) ? ":busy " : ":free ");
    return s;
}

// Pumps until the month view shows March with the days' bars as wanted; the time it took, or -1.
long BarsWithin(const std::vector<int>& days, const std::string& wanted, DWORD limitMs) {
    DWORD start = GetTickCount();
    for (;;) {
        if (g_app.viewMode == VIEW_MONTH && g_app.viewMonth == 3 && g_app.viewYear == 2031 && WaitForPass(0) &&
            MarchBars(days) == wanted)
            return long(GetTickCount() - start);
        if (GetTickCount() - start > limitMs) return -1;
        Pump(20);
    }
}

}  // namespace

// The dates: a Wednesday, Thursday and Friday of March 2031.
TEST(SyncedStore, FollowsTheServerBothWays) {
    HWND main = StartProgram();
    ASSERT_NE(main, nullptr);
    // The month view with its schedule bars, each cell one fill, the day parts from 6:00 to 21:00.
    AppSettings& settings = g_app.settings;
    settings.month1color = settings.month2color = settings.todaycolor = RGB(250, 250, 250);
    settings.calendarcolorstyle = 0;
    settings.showdays = settings.showweeknumber = 0;
    settings.showindicator = settings.showfree = 1;
    settings.timeA = 12, settings.timeB = 24, settings.timeC = 34, settings.timeD = 42;

    // What the first sync brought: events the server named as it liked.
    std::vector<Row> wednesday = DayRows(2031, 3, 12);
    long made = OidOf(2031, 3, 12, L"Made on the server");
    ASSERT_NE(made, 0) << Listed(wednesday);
    ASSERT_NE(OidOf(2031, 3, 12, L"Doomed"), 0) << Listed(wednesday);

    // The server's event edited in the form.
    ShowDay(2031, 3, 12);
    InForm(made, [](HWND dlg) {
        SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, L"Made on the server, edited");
        Click(dlg, IDOK);
    });
    // A weekly series made in the form: Thursdays, five times.
    ShowDay(2031, 3, 13);
    InForm(0, [](HWND dlg) {
        SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, L"Lantern weekly");
        Choose(dlg, IDC_FORM_RECURS, 2);  // weekly
        Click(dlg, IDC_FORM_ENDAFTER);
        SetDlgItemTextW(dlg, IDC_FORM_COUNT, L"5");
        Click(dlg, IDOK);
    });
    long weekly = OidOf(2031, 3, 13, L"Lantern weekly");
    ASSERT_NE(weekly, 0) << Listed(DayRows(2031, 3, 13));
    // One occurrence changed, another deleted: the series stays one file, one resource.
    ShowDay(2031, 3, 20);
    InForm(weekly, [](HWND dlg) {
        SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, L"Lantern weekly, this once");
        Click(dlg, IDOK);
    });
    ShowDay(2031, 3, 27);
    DeleteItem(weekly, DELETE_OCCURRENCE);
    EXPECT_EQ(Listed(DayRows(2031, 3, 27)), "");
    Done("made");

    // The server renames the series while its day is open in the day view.
    ShowDay(2031, 3, 13);
    g_app.viewMonth = 3;
    g_app.viewYear = 2031;
    long tookDayView = -2;
    RunScripted([&] { return (INT_PTR)ShowDayView(main, 13); }, [&](HWND dlg) {
        Done("dayview-open");
        if (WaitForGo("renamed"))
            tookDayView = ShowsWithin(2031, 3, 13, {L"Lantern weekly, renamed on the server", L"Added to the day"},
                                      {L"Lantern weekly", L"Day doomed"}, kLiveLimitMs, GetDlgItem(dlg, 222));
        Tap(dlg, 220, 8);  // the close button
    });
    EXPECT_GE(tookDayView, 0) << "the open day view did not show the server's change, addition and delete "
                              << "within 2 s: " << Listed(DayRows(2031, 3, 13));
    printf("day view showed the server's change, addition and delete after %ld ms\n", tookDayView);

    // Back in the month view: the program deletes one event and changes the series.
    ShowDay(2031, 3, 12);
    DeleteItem(made, DELETE_SERIES);
    weekly = OidOf(2031, 3, 13, L"Lantern weekly, renamed on the server");
    ASSERT_NE(weekly, 0);
    {
        IAppointment* series = FetchItem(weekly);
        ASSERT_NE(series, nullptr);
        BSTR hall = SysAllocString(L"Hall");
        EXPECT_EQ(series->put_Location(hall), S_OK);
        SysFreeString(hall);
        EXPECT_EQ(series->Save(), S_OK);
        series->Release();
    }
    // The month view's bars before the server deletes the 12th's last appointment, moves the
    // 17th's to the 18th and adds one on the 19th.
    const std::vector<int> barDays = {12, 17, 18, 19};
    RedrawAndWait();
    EXPECT_GE(BarsWithin(barDays, "12:busy 17:busy 18:free 19:free ", kLiveLimitMs), 0) << MarchBars(barDays);
    Done("changed");

    if (WaitForGo("deleted")) {
        long took = BarsWithin(barDays, "12:free 17:free 18:busy 19:busy ", kLiveLimitMs);
        EXPECT_GE(took, 0) << "the month view did not show the server's delete, move and addition within 2 s: "
                           << MarchBars(barDays);
        EXPECT_GE(ShowsWithin(2031, 3, 12, {}, {L"Doomed", L"Made on the server, edited"}, 0), 0)
            << Listed(DayRows(2031, 3, 12));
        printf("month view showed the server's delete, move and addition after %ld ms\n", took);
    }

    // The user edits an event in the form while a sync brings the server's change of it.
    long notes = OidOf(2031, 3, 14, L"Shared notes");
    ASSERT_NE(notes, 0) << Listed(DayRows(2031, 3, 14));
    ShowDay(2031, 3, 14);
    std::wstring message;
    InForm(notes, [&](HWND dlg) {
        SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, L"Shared notes, local");
        Done("editing");
        if (!WaitForGo("synced-while-editing")) return;
        message = SaveAfterSync(dlg, "formconflict");
    });
    wchar_t expected[400] = L"";
    LoadStringW(GetModuleHandleW(L"lfpoom.dll"), IDS_FORM_CONFLICT, expected, 400);
    EXPECT_EQ(message, expected);
    EXPECT_GE(ShowsWithin(2031, 3, 14, {L"Shared notes, server", L"Shared notes, local"}, {L"Shared notes"}, 0), 0)
        << Listed(DayRows(2031, 3, 14));
    Done("kept-both");

    // Both sides change one event between two syncs: the server's version wins, ours stays.
    if (WaitForGo("server-changed-again")) {
        notes = OidOf(2031, 3, 14, L"Shared notes, server");
        IAppointment* item = FetchItem(notes);
        ASSERT_NE(item, nullptr);
        BSTR subject = SysAllocString(L"Shared notes, local again");
        EXPECT_EQ(item->put_Subject(subject), S_OK);
        SysFreeString(subject);
        EXPECT_EQ(item->Save(), S_OK);
        item->Release();
        Done("local-changed-again");
    }
    if (WaitForGo("conflict-synced")) {
        long took = ShowsWithin(2031, 3, 14,
                                {L"Shared notes, server again", L"Shared notes, local again", L"Shared notes, local"},
                                {}, kLiveLimitMs);
        EXPECT_GE(took, 0) << Listed(DayRows(2031, 3, 14));
    }

    // One occurrence of the series edited in the form while a sync renames the series.
    ShowDay(2031, 4, 3);
    weekly = OidOf(2031, 4, 3, L"Lantern weekly, renamed on the server");
    ASSERT_NE(weekly, 0) << Listed(DayRows(2031, 4, 3));
    message.clear();
    InForm(weekly, [&](HWND dlg) {
        SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, L"Lantern weekly, my April");
        Done("editing-occurrence");
        if (!WaitForGo("synced-while-editing-occurrence")) return;
        message = SaveAfterSync(dlg, nullptr);
    });
    EXPECT_EQ(message, expected);
    EXPECT_GE(ShowsWithin(2031, 4, 3, {L"Lantern weekly, renamed again", L"Lantern weekly, my April"},
                          {L"Lantern weekly, renamed on the server"}, 0), 0)
        << Listed(DayRows(2031, 4, 3));
    EXPECT_GE(ShowsWithin(2031, 4, 10, {L"Lantern weekly, renamed again"}, {L"Lantern weekly, my April"}, 0), 0)
        << "the user's occurrence is one appointment, not a series: " << Listed(DayRows(2031, 4, 10));
    Done("kept-both-occurrence");
    WaitForGo("occurrence-synced");

    // An appointment the server deletes while the user edits it in the form.
    ShowDay(2031, 3, 19);
    long added = OidOf(2031, 3, 19, L"Added to the month");
    ASSERT_NE(added, 0) << Listed(DayRows(2031, 3, 19));
    message.clear();
    InForm(added, [&](HWND dlg) {
        SetDlgItemTextW(dlg, IDC_FORM_SUBJECT, L"Added to the month, mine");
        Done("editing-deleted");
        if (!WaitForGo("synced-while-editing-deleted")) return;
        message = SaveAfterSync(dlg, "formdeleted");
    });
    LoadStringW(GetModuleHandleW(L"lfpoom.dll"), IDS_FORM_DELETEDMEANWHILE, expected, 400);
    EXPECT_EQ(message, expected);
    EXPECT_GE(ShowsWithin(2031, 3, 19, {L"Added to the month, mine"}, {L"Added to the month"}, kLiveLimitMs), 0)
        << Listed(DayRows(2031, 3, 19));
    Done("kept-deleted");
    Done("finished");
}
