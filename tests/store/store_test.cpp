// The program's side of the calendar store, run against the real calendar
// server through COM: opening and closing, the date-range queries the views
// make, and the operations on one appointment.
#include "store_support.h"
#include "support/drive.h"

using namespace storetest;

class Store : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore(monthstore::kIcs);
        ASSERT_TRUE(StartProgram());
        ASSERT_EQ(g_app.storeLoggedOn, 1);
    }
    // A fresh copy of the month store for a test that changes it.
    std::wstring FreshStore()
    {
        std::wstring path = UseTempStore(monthstore::kIcs);
        SwitchStore(path);
        return path;
    }
    void ShowDay(int y, int m, int d)
    {
        g_app.shownYear = y;
        g_app.shownMonth = m;
        g_app.shownDay = d;
    }
};

TEST_F(Store, OpeningAgainCreatesNothing)
{
    IPOutlookApp *app = g_app.outlookApp;
    IFolder *folder = g_app.calendarFolder;
    app->AddRef();
    ULONG refs = app->Release();
    EXPECT_EQ(OpenStore(g_app.hwndMain), 1);
    EXPECT_EQ(g_app.outlookApp, app);
    EXPECT_EQ(g_app.calendarFolder, folder);
    app->AddRef();
    EXPECT_EQ(app->Release(), refs);
}

// The month's restriction texts with each template, for the given first
// and last date texts.
static void ExpectRestrictions(const std::string &first, const std::string &last)
{
    // An hour of 24 on the second day prints the same date: the texts
    // never carry a time.
    SYSTEMTIME endOfDay = Day(2026, 11, 30);
    endOfDay.wHour = 24;
    struct {
        const WCHAR *tmpl;
        std::string text;
    } cases[] = {
        {RestrictOverlapClosed, "[End] >= " + first + " AND [Start] <= " + last},
        {RestrictOverlapBeforeSecond, "[End] >= " + first + " AND [Start] <  " + last},
        {RestrictOverlapAfterFirst, "[End] >  " + first + " AND [Start] <= " + last},
    };
    for (const auto &c : cases) {
        WCHAR text[RESTRICTION_LEN];
        BuildRestriction(Day(2026, 11, 1), endOfDay, c.tmpl, text);
        EXPECT_EQ(Narrow(text), c.text);
    }
}

TEST_F(Store, RestrictionTextsFollowTheShortDateSetting)
{
    // Both locales the tests run in, in whichever the system now writes
    // (Wine keeps the last locale's settings for a moment after a switch;
    // German with or without the leading zero, by Wine's version).
    WCHAR probe[DATE_TEXT_LEN];
    ShortDateText(Day(2026, 11, 1), probe, DATE_TEXT_LEN);
    std::string now = Narrow(probe);
    if (now == "11/1/2026")
        ExpectRestrictions("11/1/2026", "11/30/2026");
    else if (now == "1.11.2026" || now == "01.11.2026")
        ExpectRestrictions(now, "30.11.2026");
    else
        ADD_FAILURE() << "an unexpected short date: " << now;
    auto before = Query(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed);

    // Another short date setting changes the texts and nothing else.
    WCHAR saved[80] = {};
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SSHORTDATE, saved, 80);
    ASSERT_TRUE(SetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SSHORTDATE, L"yyyy-MM-dd"));
    ExpectRestrictions("2026-11-01", "2026-11-30");
    SwitchStore(UseTempStore(monthstore::kIcs));  // the store reads the setting when it opens
    auto after = Query(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed);
    SetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SSHORTDATE, saved);
    EXPECT_EQ(Narrow(Subjects(after)), Narrow(Subjects(before)));
    SwitchStore(UseTempStore(monthstore::kIcs));
}

TEST_F(Store, MonthAndDayQueriesFindEveryOccurrenceInOrder)
{
    auto check = [](const char *store) {
        for (const auto &q : monthstore::Queries()) {
            auto found = Query(Day(q.first.y, q.first.m, q.first.d), Day(q.second.y, q.second.m, q.second.d),
                               kTemplates[q.kind]);
            EXPECT_EQ(Narrow(Subjects(found)), Narrow(Joined(q.subjects))) << store << ": " << q.name;
            for (size_t i = 1; i < found.size(); i++)
                EXPECT_LE(found[i - 1].start, found[i].start) << store << ": " << q.name;
        }
        // Each occurrence comes with its own times and the series' identity.
        auto month = Query(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed);
        std::vector<const Found *> standups;
        for (const Found &f : month)
            if (f.subject == L"Standup")
                standups.push_back(&f);
        ASSERT_EQ(standups.size(), 2u) << store;
        EXPECT_EQ((long)standups[0]->start, (long)OleDateOf(2026, 11, 3)) << store;
        EXPECT_EQ((long)standups[1]->start, (long)OleDateOf(2026, 11, 24)) << store;
        EXPECT_EQ(standups[0]->oid, standups[1]->oid) << store;
        EXPECT_TRUE(standups[0]->recurring) << store;
    };
    check("one file");

    std::wstring dir = UseTempStore("", L"vdir");
    CreateDirectoryW(dir.c_str(), nullptr);
    for (const auto &file : monthstore::VdirFiles())
        WriteBytes(dir + L"\\" + std::wstring(file.first.begin(), file.first.end()), file.second);
    SwitchStore(dir);
    check("directory");
}

TEST_F(Store, RenderingWalkStopsForARedrawRequest)
{
    struct Walk {
        int seen = 0, stopAfter = 0;
    };
    auto visit = [](IAppointment *, void *context) {
        auto *w = static_cast<Walk *>(context);
        if (++w->seen == w->stopAfter)
            g_app.renderState = RENDER_REQUESTED;
        return 1;
    };
    // Keep the rendering thread out while the request flag is played with.
    EnterCriticalSection(&g_app.renderLock);
    LONG state = g_app.renderState;
    Walk ui{0, 2}, rendering{0, 2}, early{0, 0};
    EXPECT_EQ(QueryAppointments(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed, visit, &ui, QUERY_UI),
              1);
    EXPECT_EQ(ui.seen, 7) << "the UI thread's walk does not stop for a redraw";
    g_app.renderState = RENDER_DRAWING;
    EXPECT_EQ(QueryAppointments(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed, visit, &rendering,
                                QUERY_RENDERING),
              0);
    EXPECT_EQ(rendering.seen, 2) << "stopped before the third appointment";
    auto refuse = [](IAppointment *, void *context) { return ++static_cast<Walk *>(context)->seen, 0; };
    g_app.renderState = RENDER_DRAWING;
    EXPECT_EQ(QueryAppointments(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed, refuse, &early,
                                QUERY_RENDERING),
              0);
    EXPECT_EQ(early.seen, 1);
    g_app.renderState = state;
    LeaveCriticalSection(&g_app.renderLock);
    EXPECT_TRUE(RedrawAndWait());
}

TEST_F(Store, SubjectsAreCutAndTerminated)
{
    long dentist = OidOf(L"Dentist", 2026, 11, 5);
    long standup = OidOf(L"Standup", 2026, 11, 24);
    ASSERT_NE(dentist, 0);
    ASSERT_NE(standup, 0);
    HWND list = CreateWindowExW(0, WC_LISTVIEWW, L"", WS_CHILD | LVS_REPORT, 0, 0, 100, 100, g_app.hwndMain,
                                nullptr, GetModuleHandleW(nullptr), nullptr);
    ASSERT_TRUE(list);
    LVCOLUMNW col = {};
    col.mask = LVCF_WIDTH;
    col.cx = 50;
    SendMessageW(list, LVM_INSERTCOLUMNW, 0, (LPARAM)&col);
    for (int row = 0; row < 2; row++) {
        LVITEMW item = {};
        item.mask = LVIF_PARAM | LVIF_TEXT;
        item.iItem = row;
        item.pszText = const_cast<WCHAR *>(L"");
        item.lParam = row ? standup : dentist;
        SendMessageW(list, LVM_INSERTITEMW, 0, (LPARAM)&item);
    }
    g_app.dayList = list;

    WCHAR text[100];
    wmemset(text, L'#', 100);
    GetItemSubject(0, text, 4);
    EXPECT_EQ(Narrow(text), "Den");
    GetItemSubject(1, text, 100);
    EXPECT_EQ(Narrow(text), "Standup");

    int recurring = -1;
    wmemset(text, L'#', 100);
    EXPECT_EQ(GetItemSubjectAndRecurrence(standup, text, 5, &recurring), 1);
    EXPECT_EQ(Narrow(text), "Stan");
    EXPECT_EQ(recurring, 1);
    EXPECT_EQ(GetItemSubjectAndRecurrence(dentist, text, 100, &recurring), 1);
    EXPECT_EQ(Narrow(text), "Dentist");
    EXPECT_EQ(recurring, 0);

    g_app.dayList = nullptr;
    DestroyWindow(list);
}

TEST_F(Store, DeleteAnOccurrenceOrTheSeries)
{
    std::wstring path = FreshStore();
    long standup = OidOf(L"Standup", 2026, 11, 24);
    long dentist = OidOf(L"Dentist", 2026, 11, 5);
    ASSERT_NE(standup, 0);

    // One occurrence: only that day loses it.
    ShowDay(2026, 11, 24);
    DeleteItem(standup, DELETE_OCCURRENCE);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 24))), "");
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 12, 1))), "Late, Standup");
    EXPECT_NE(ReadBytes(path).find("20261124T090000"), std::string::npos) << "kept as an exception date";

    // An occurrence moved onto its day from another is found there.
    ShowDay(2026, 11, 18);
    DeleteItem(standup, DELETE_OCCURRENCE);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 18))), "");

    // A day without an occurrence deletes nothing.
    ShowDay(2026, 11, 25);
    DeleteItem(standup, DELETE_OCCURRENCE);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 3))), "Standup");

    // A one-off goes whatever the mode.
    ShowDay(2026, 11, 5);
    DeleteItem(dentist, DELETE_OCCURRENCE);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 5))), "");

    // The whole series.
    ShowDay(2026, 11, 3);
    DeleteItem(standup, DELETE_SERIES);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 3))), "");
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 12, 1))), "Late");
    EXPECT_EQ(ReadBytes(path).find("UID:standup@example.com"), std::string::npos);
    EXPECT_NE(ReadBytes(path).find("X-DATA:untouched"), std::string::npos) << "what the store does not know stays";
}

TEST_F(Store, CopyAndMoveToAnotherDay)
{
    FreshStore();
    long dentist = OidOf(L"Dentist", 2026, 11, 5);
    long standup = OidOf(L"Standup", 2026, 11, 24);
    long trip = OidOf(L"Trip", 2026, 11, 21);

    // A copy of a one-off keeps its times; the source stays.
    CopyItemToDay(dentist, 0, 11, 26, 2026, 11, 5, 2026);
    auto day26 = OnDay(2026, 11, 26);
    ASSERT_EQ(Narrow(Subjects(day26)), "Dentist");
    EXPECT_NEAR(TimeOfDay(day26[0].start), 10 / 24.0, 1e-6);
    EXPECT_NEAR(TimeOfDay(day26[0].end), 11 / 24.0, 1e-6);
    EXPECT_NE(day26[0].oid, dentist);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 5))), "Dentist");

    // A moved occurrence leaves its series and becomes a one-off.
    CopyItemToDay(standup, 1, 11, 27, 2026, 11, 24, 2026);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 24))), "");
    auto day27 = OnDay(2026, 11, 27);
    ASSERT_EQ(Narrow(Subjects(day27)), "Standup");
    EXPECT_FALSE(day27[0].recurring);
    EXPECT_NEAR(TimeOfDay(day27[0].start), 9 / 24.0, 1e-6);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 12, 1))), "Late, Standup") << "the rest of the series stays";

    // A moved one-off leaves its day.
    CopyItemToDay(dentist, 1, 11, 4, 2026, 11, 5, 2026);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 5))), "");
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 4))), "Dentist");

    // A multi-day appointment starts on the target day at its own time.
    // Its end time of day (9:00) comes before its start's (18:00), which
    // the store refuses as an end, so the copy keeps its length.
    CopyItemToDay(trip, 0, 12, 9, 2026, 11, 21, 2026);
    auto day9 = OnDay(2026, 12, 9);
    ASSERT_EQ(Narrow(Subjects(day9)), "Trip");
    EXPECT_EQ((long)day9[0].start, (long)OleDateOf(2026, 12, 9));
    EXPECT_NEAR(TimeOfDay(day9[0].start), 18 / 24.0, 1e-6);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 12, 8))), "Standup");
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 21))), "Trip");

    // A series with no occurrence on the source day copies nothing.
    CopyItemToDay(standup, 0, 12, 16, 2026, 11, 25, 2026);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 12, 16))), "");
}

TEST_F(Store, NewItemClosedWithoutChangeAddsNothing)
{
    std::wstring path = FreshStore();
    ErrorBoxes boxes;
    EXPECT_EQ(OpenItemForEdit(0x7FFFFFF0), 0);
    Settle();
    auto seen = boxes.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(Narrow(seen[0].text), "Error in getting appointment handle");
    EXPECT_EQ(seen[0].owner, g_app.hwndMain);

    // The server's form opens on the new appointment; closed with Escape, or with OK and
    // nothing typed, the untitled appointment saved before it is not left behind.
    boxes.Clear();
    ShowDay(2026, 11, 9);
    std::string before = ReadBytes(path);
    for (UINT key : {VK_ESCAPE, VK_RETURN}) {
        int shown = -1;
        RunScripted(
            [&] {
                shown = OpenItemForEdit(0);
                return (INT_PTR)0;
            },
            [&](HWND form) {
                WCHAR cls[40] = L"", title[40] = L"";
                GetClassNameW(form, cls, 40);
                GetWindowTextW(form, title, 40);
                EXPECT_STREQ(cls, L"Dialog");
                EXPECT_STREQ(title, L"Calendar");
                Key(GetFocus(), key);
            });
        Settle();
        EXPECT_EQ(shown, 1) << key;
        EXPECT_TRUE(boxes.Seen().empty()) << key;
        EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 9))), "") << key;
        EXPECT_EQ(ReadBytes(path).find("BEGIN:VEVENT", before.rfind("END:VEVENT")), std::string::npos) << key;
    }
}

// The rendering thread draws the month with its three queries over and
// over while the UI thread copies and deletes appointments: no crash, no
// deadlock, and the store ends exactly as the changes leave it.
// STORE_STRESS_SECONDS sets the length (a few seconds by default).
TEST_F(Store, DrawingWhileChangingTheStore)
{
    FreshStore();
    g_app.viewMode = VIEW_MONTH;
    g_app.viewMonth = 11;
    g_app.viewYear = 2026;
    g_app.settings.showindicator = 1;
    g_app.settings.showholiday = 1;
    long dentist = OidOf(L"Dentist", 2026, 11, 5);
    long standup = OidOf(L"Standup", 2026, 11, 24);
    ASSERT_NE(dentist, 0);
    WCHAR seconds[16] = {};
    DWORD ms = 5000;
    if (GetEnvironmentVariableW(L"STORE_STRESS_SECONDS", seconds, 16))
        ms = 1000 * _wtoi(seconds);
    LONG passesBefore = g_app.renderDone;
    int rounds = 0;
    DWORD until = GetTickCount() + ms;
    while ((LONG)(GetTickCount() - until) < 0) {
        int day = 2 + rounds % 20;
        RequestRedraw();
        CopyItemToDay(rounds % 2 ? standup : dentist, 0, 12, day, 2026, 11, rounds % 2 ? 24 : 5, 2026);
        RequestRedraw();
        PumpMessages(0);
        auto copies = OnDay(2026, 12, day);
        bool removed = false;
        for (const Found &f : copies)
            if (!f.recurring && f.oid != dentist) {
                ShowDay(2026, 12, day);
                DeleteItem(f.oid, DELETE_OCCURRENCE);
                removed = true;
            }
        ASSERT_TRUE(removed) << "round " << rounds << ": the copy was not found";
        rounds++;
    }
    EXPECT_TRUE(WaitForPass(20000));
    EXPECT_GT(g_app.renderDone - passesBefore, 1) << "the month was drawn meanwhile";
    EXPECT_GT(rounds, 1);
    auto month = Query(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed);
    EXPECT_EQ(Narrow(Subjects(month)), "Standup, Dentist, Holiday, Standup (moved), Trip, Standup, Late");
    EXPECT_EQ(Narrow(Subjects(Query(Day(2026, 12, 2), Day(2026, 12, 31), RestrictOverlapClosed))),
              "Standup, Standup, Standup, Standup") << "only the series is left in December";
}

// The month grid's day cells as the back buffer shows them, a row of the
// grid a line: 'b' a schedule bar with a busy time, 'a' an all-day line, '.'
// neither.
static std::string MonthMarks()
{
    const COLORREF busy = 0xB5835A;
    std::string s;
    for (int r = 0; r < 6; r++) {
        for (int c = 0; c < 7; c++) {
            char mark = '.';
            for (int p = 0; p < 27; p++) {
                if (BackPixel(34 * c + 6 + p, 34 * r + 86) == busy)
                    mark = 'b';
                else if (mark == '.' &&
                         BackPixel(34 * c + 6 + p, 34 * r + 82) == g_app.settings.alldaycolor)
                    mark = 'a';
            }
            s += mark;
        }
        s += '\n';
    }
    return s;
}

// An appointment the program listed is removed by another program; its
// fetch fails and the program lets the application object go, but keeps
// the calendar folder, which goes on serving the month and the queries.
TEST_F(Store, FailedFetchLeavesTheMonthShowing)
{
    std::wstring path = FreshStore();
    g_app.viewMode = VIEW_MONTH;
    g_app.viewMonth = 11;
    g_app.viewYear = 2026;
    g_app.settings.showindicator = 1;
    long dentist = OidOf(L"Dentist", 2026, 11, 5);
    ASSERT_NE(dentist, 0);

    std::string ics = monthstore::kIcs;
    size_t at = ics.find("BEGIN:VEVENT\r\nUID:dentist@");
    ics.erase(at, ics.find("END:VEVENT\r\n", at) + 12 - at);
    WriteBytes(path, ics);
    DWORD until = GetTickCount() + 10000;
    while (OidOf(L"Dentist", 2026, 11, 5) && (LONG)(GetTickCount() - until) < 0)
        PumpMessages(50);
    ASSERT_EQ(OidOf(L"Dentist", 2026, 11, 5), 0) << "the server did not take up the change";
    ASSERT_TRUE(RedrawAndWait());
    std::string shown = MonthMarks();
    ASSERT_NE(shown.find('b'), std::string::npos) << "the month shows its appointments";
    auto month = [] {
        return Narrow(Subjects(Query(Day(2026, 11, 1), Day(2026, 11, 30), RestrictOverlapClosed)));
    };
    EXPECT_EQ(month(), "Standup, Holiday, Standup (moved), Trip, Standup, Late");

    WCHAR text[20];
    int recurring = 0;
    EXPECT_EQ(GetItemSubjectAndRecurrence(dentist, text, 20, &recurring), 0);
    EXPECT_EQ(g_app.outlookApp, nullptr) << "the application object was let go";
    ASSERT_NE(g_app.calendarFolder, nullptr);

    EXPECT_TRUE(RedrawAndWait());
    EXPECT_EQ(MonthMarks(), shown) << "the month still shows its appointments";
    EXPECT_EQ(month(), "Standup, Holiday, Standup (moved), Trip, Standup, Late");

    FreshStore(); // a whole connection again for the tests after this one
}

// Last: a failed fetch lets the application object go for good.
TEST_F(Store, ZFailedFetchLetsTheConnectionGo)
{
    WCHAR text[20] = L"unchanged";
    int recurring = 0;
    ErrorBoxes boxes;
    EXPECT_EQ(GetItemSubjectAndRecurrence(0x7FFFFFF0, text, 20, &recurring), 0);
    Settle();
    EXPECT_TRUE(boxes.Seen().empty()) << "this one fails quietly";
    EXPECT_EQ(g_app.outlookApp, nullptr);
    EXPECT_EQ(g_app.storeLoggedOn, 1) << "the flag stays as it was";

    DeleteItem(12345, DELETE_SERIES);
    Settle();
    auto seen = boxes.Seen();
    ASSERT_EQ(seen.size(), 1u) << Narrow(Joined(boxes.Texts()));
    EXPECT_EQ(Narrow(seen[0].text), "Failure to Obtain Appointment Item");
    EXPECT_EQ(seen[0].owner, nullptr);

    // Closing the program after this neither crashes nor shows anything.
    CloseProgram();
    EXPECT_FALSE(IsWindow(g_app.hwndMain));
    EXPECT_EQ(g_app.storeLoggedOn, 0);
    EXPECT_EQ(boxes.Seen().size(), 1u);
}
