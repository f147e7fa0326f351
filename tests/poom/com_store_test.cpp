// The calendar server's store files through COM: the default store, byte
// for byte round trips, unreadable stores, logons that outlive their
// application, two servers and other programs on one store, saves cut
// short, and two threads at once.
#include "com_support.h"

TEST(Store, DefaultStoreIsMadeOnFirstLogon) {
    wchar_t appdata[MAX_PATH] = {};
    ASSERT_EQ(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, appdata), S_OK);
    std::wstring dir = std::wstring(appdata) + L"\\Lanternfields";
    std::wstring path = dir + L"\\calendar.ics";
    DeleteFileW(path.c_str());
    RemoveDirectoryW(dir.c_str());
    SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", nullptr);
    {
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        std::string empty = ReadBytes(path);
        EXPECT_EQ(empty.rfind("BEGIN:VCALENDAR\r\n", 0), 0u);
        EXPECT_NE(empty.find("END:VCALENDAR"), std::string::npos);
        EXPECT_TRUE(AllSubjects(server.calendar.get()).empty());
        IDispatch* d = nullptr;
        ASSERT_EQ(server.app->CreateItem(olAppointmentItem, &d), S_OK);
        ComPtr<IAppointment> appt;
        AsAppointment(d, appt);
        d->Release();
        appt->put_Subject(Bstr(L"First"));
        ASSERT_EQ(appt->Save(), S_OK);
        EXPECT_NE(ReadBytes(path).find("SUMMARY:First"), std::string::npos);
    }
    DeleteFileW(path.c_str());
    RemoveDirectoryW(dir.c_str());
}

TEST(Store, RoundTripLeavesTheFileAsItWas) {
    TempStore store;
    {
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        for (const auto& q : monthstore::Queries())
            QueryLikeTheProgram(server.calendar.get(), monthstore::kTemplates[q.kind], q.first, q.second);
        OidOf(server.calendar.get(), L"Trip");
    }
    EXPECT_EQ(ReadBytes(store.path()), monthstore::kIcs);

    // Changing one event rewrites only that event.
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->GetItemFromOid(OidOf(server.calendar.get(), L"Late"), &d), S_OK);
    ComPtr<IAppointment> late;
    AsAppointment(d, late);
    d->Release();
    ASSERT_EQ(late->put_Subject(Bstr(L"Later")), S_OK);
    ASSERT_EQ(late->Save(), S_OK);
    std::string after = ReadBytes(store.path());
    std::string before = monthstore::kIcs;
    size_t lateAt = before.find("BEGIN:VEVENT\r\nUID:late@");
    size_t lateEnd = before.find("END:VEVENT\r\n", lateAt) + 12;
    EXPECT_EQ(after.substr(0, lateAt), before.substr(0, lateAt));
    EXPECT_NE(after.find(before.substr(lateEnd)), std::string::npos);
    EXPECT_NE(after.find("SUMMARY:Later"), std::string::npos);
}

TEST(Store, UnreadableStoreFailsLogonAndStaysUntouched) {
    struct Case {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"not a calendar", "hello, world\r\n"},
        {"truncated", std::string(monthstore::kIcs).substr(0, 300)},
    };
    for (const auto& c : cases) {
        TempStore store(c.bytes);
        Server server;
        EXPECT_TRUE(FAILED(server.logon)) << c.name;
        ComPtr<IFolder> folder;
        EXPECT_TRUE(FAILED(server.app->GetDefaultFolder(olFolderCalendar, &folder))) << c.name;
        EXPECT_EQ(ReadBytes(store.path()), c.bytes) << c.name;
    }
    // A store file another program holds exclusively cannot be read either.
    TempStore store;
    HANDLE h = CreateFileW(store.path().c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    {
        Server server;
        EXPECT_TRUE(FAILED(server.logon));
    }
    CloseHandle(h);
    EXPECT_EQ(ReadBytes(store.path()), monthstore::kIcs);
}

// After a failed fetch the program logs off and lets the application go
// but keeps its calendar folder: what it still holds goes on working, while
// the application itself serves nothing until it logs on again.
TEST(Store, HeldFolderOutlivesTheApplicationsLogoff) {
    TempStore store;
    ComPtr<IFolder> folder;
    ComPtr<IPOutlookItemCollection> items;
    ComPtr<IAppointment> dentist;
    int count = 0;
    {
        ComPtr<IPOutlookApp> app;
        ASSERT_EQ(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                   reinterpret_cast<void**>(&app)),
                  S_OK);
        ASSERT_EQ(app->Logon(0), S_OK);
        ASSERT_EQ(app->GetDefaultFolder(olFolderCalendar, &folder), S_OK);
        ASSERT_EQ(folder->get_Items(&items), S_OK);
        ASSERT_EQ(items->get_Count(&count), S_OK);
        long trip = OidOf(folder.get(), L"Trip");
        IDispatch* d = nullptr;
        ASSERT_EQ(app->GetItemFromOid(OidOf(folder.get(), L"Dentist"), &d), S_OK);
        AsAppointment(d, dentist);
        d->Release();

        ASSERT_EQ(app->Logoff(), S_OK);
        ComPtr<IFolder> another;
        EXPECT_TRUE(FAILED(app->GetDefaultFolder(olFolderCalendar, &another)));
        d = nullptr;
        EXPECT_TRUE(FAILED(app->GetItemFromOid(trip, &d)));
        EXPECT_EQ(d, nullptr);
        EXPECT_TRUE(FAILED(app->CreateItem(olAppointmentItem, &d)));
        EXPECT_EQ(d, nullptr);
    }

    for (const auto& q : monthstore::Queries()) {
        auto found = QueryLikeTheProgram(folder.get(), monthstore::kTemplates[q.kind], q.first, q.second);
        EXPECT_EQ(Joined(Subjects(found)), Joined(q.subjects)) << q.name;
    }
    int again = -1;
    EXPECT_EQ(items->get_Count(&again), S_OK);
    EXPECT_EQ(again, count);
    ASSERT_EQ(dentist->put_Location(Bstr(L"Side St")), S_OK);
    EXPECT_EQ(dentist->Save(), S_OK);
    EXPECT_NE(ReadBytes(store.path()).find("LOCATION:Side St"), std::string::npos);

    // The folder's application is the one that logged off; a new logon
    // serves again.
    ComPtr<IPOutlookApp> app;
    ASSERT_EQ(folder->get_Application(&app), S_OK);
    ComPtr<IFolder> another;
    EXPECT_TRUE(FAILED(app->GetDefaultFolder(olFolderCalendar, &another)));
    ASSERT_EQ(app->Logon(0), S_OK);
    ASSERT_EQ(app->GetDefaultFolder(olFolderCalendar, &another), S_OK);
    EXPECT_EQ(Joined(Subjects(OneDay(another.get(), 2026, 11, 5))), "[Dentist]");
    another.Reset();
    EXPECT_EQ(app->Logoff(), S_OK);
}

TEST(Store, TwoServersOnOneStoreLoseNothing) {
    TempStore store;
    Server a, b;
    ASSERT_EQ(a.logon, S_OK);
    ASSERT_EQ(b.logon, S_OK);
    struct Add {
        Server* server;
        const wchar_t* subject;
        int day;
    } adds[] = {{&a, L"From A", 3}, {&b, L"From B", 4}};
    for (const auto& add : adds) {
        IDispatch* d = nullptr;
        ASSERT_EQ(add.server->app->CreateItem(olAppointmentItem, &d), S_OK);
        ComPtr<IAppointment> appt;
        AsAppointment(d, appt);
        d->Release();
        appt->put_Subject(Bstr(add.subject));
        appt->put_Start(OleDate(add.server->app.get(), 2026, 11, add.day, 8));
        appt->put_End(OleDate(add.server->app.get(), 2026, 11, add.day, 9));
        ASSERT_EQ(appt->Save(), S_OK) << Narrow(add.subject);
    }
    Server c;
    ASSERT_EQ(c.logon, S_OK);
    EXPECT_NE(OidOf(c.calendar.get(), L"From A"), 0);
    EXPECT_NE(OidOf(c.calendar.get(), L"From B"), 0);
    EXPECT_NE(OidOf(c.calendar.get(), L"Dentist"), 0);
}

TEST(Store, SameAppointmentChangedByTwoIsReportedNotLost) {
    TempStore store;
    Server a, b;
    ASSERT_EQ(a.logon, S_OK);
    ASSERT_EQ(b.logon, S_OK);
    long oid = OidOf(a.calendar.get(), L"Dentist");
    ComPtr<IAppointment> mine, theirs;
    IDispatch* d = nullptr;
    ASSERT_EQ(a.app->GetItemFromOid(oid, &d), S_OK);
    AsAppointment(d, mine);
    d->Release();
    d = nullptr;
    ASSERT_EQ(b.app->GetItemFromOid(oid, &d), S_OK);
    AsAppointment(d, theirs);
    d->Release();
    ASSERT_EQ(theirs->put_Subject(Bstr(L"Dentist (theirs)")), S_OK);
    ASSERT_EQ(theirs->Save(), S_OK);
    ASSERT_EQ(mine->put_Subject(Bstr(L"Dentist (mine)")), S_OK);
    HRESULT hr = mine->Save();
    EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_FILE_INVALID));
    std::string file = ReadBytes(store.path());
    EXPECT_NE(file.find("SUMMARY:Dentist (theirs)"), std::string::npos);
    // Ours is kept beside theirs as an appointment of its own, still held,
    // and saved over theirs when asked again.
    BSTR s = nullptr;
    mine->get_Subject(&s);
    EXPECT_STREQ(s, L"Dentist (mine)");
    SysFreeString(s);
    EXPECT_EQ(Joined(Subjects(OneDay(a.calendar.get(), 2026, 11, 5))), "[Dentist (theirs)][Dentist (mine)]");
    ASSERT_EQ(mine->Save(), S_OK);
    EXPECT_NE(ReadBytes(store.path()).find("SUMMARY:Dentist (mine)"), std::string::npos);
}

// The child side of the interrupted-save test: adds appointments one after
// another and reports each one whose Save returned.
int SaveLoop(int first) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ComPtr<IPOutlookApp> app;
    if (FAILED(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                reinterpret_cast<void**>(&app))) ||
        FAILED(app->Logon(0)))
        return 3;
    for (int n = first;; ++n) {
        IDispatch* d = nullptr;
        if (FAILED(app->CreateItem(olAppointmentItem, &d))) return 4;
        ComPtr<IAppointment> appt;
        d->QueryInterface(IID_IAppointment, reinterpret_cast<void**>(&appt));
        d->Release();
        std::wstring subject = L"Saved " + std::to_wstring(n);
        appt->put_Subject(Bstr(subject.c_str()));
        appt->put_Start(OleDate(app.get(), 2026, 11, 1 + n % 28, 7));
        appt->put_End(OleDate(app.get(), 2026, 11, 1 + n % 28, 8));
        if (FAILED(appt->Save())) return 5;
        std::printf("%d\n", n);
        std::fflush(stdout);
    }
}

TEST(Store, SavesInterruptedAtAnyPointLoseNothing) {
    TempStore store;
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::vector<int> saved;
    int next = 0;
    for (int round = 0; round < 6; ++round) {
        std::wstring log = store.dir() + L"\\round" + std::to_wstring(round) + L".txt";
        SECURITY_ATTRIBUTES sa = {sizeof(sa), nullptr, TRUE};
        HANDLE out = CreateFileW(log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &sa, CREATE_ALWAYS, 0, nullptr);
        ASSERT_NE(out, INVALID_HANDLE_VALUE);
        STARTUPINFOW si = {};
        si.cb = sizeof(si);
        si.dwFlags = STARTF_USESTDHANDLES;
        si.hStdOutput = out;
        si.hStdError = out;
        si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        PROCESS_INFORMATION pi = {};
        std::wstring cmd = L"\"" + std::wstring(exe) + L"\" \"" + g_dllPath + L"\" --save-loop " + std::to_wstring(next);
        ASSERT_TRUE(CreateProcessW(exe, &cmd[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi));
        CloseHandle(out);
        // Kill it somewhere in the middle of its saves, as a crash would.
        Sleep(700 + 137 * round);
        TerminateProcess(pi.hProcess, 9);
        WaitForSingleObject(pi.hProcess, INFINITE);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
        std::istringstream lines(ReadBytes(log));
        int n = 0;
        while (lines >> n) {
            saved.push_back(n);
            next = n + 1;
        }
        // The store still loads, with every reported save and every original event.
        Server server;
        ASSERT_EQ(server.logon, S_OK) << "round " << round;
        auto subjects = AllSubjects(server.calendar.get());
        for (int s : saved) {
            std::wstring subject = L"Saved " + std::to_wstring(s);
            EXPECT_EQ(subjects.count(subject), 1u) << "round " << round << " lost " << s;
        }
        for (const wchar_t* original : {L"Dentist", L"Holiday", L"Trip", L"Standup", L"Late", L"Halloween"})
            EXPECT_EQ(subjects.count(original), 1u) << "round " << round << " lost " << Narrow(original);
        next += 1000;  // a save killed after replacing but before reporting is not counted twice
    }
    EXPECT_GT(saved.size(), 0u);
    std::printf("%zu saves reported across the interrupted runs\n", saved.size());
}

TEST(Store, ChangesByOthersAreNoticedAndAnnounced) {
    TempStore store;
    HWND hwnd = CreateWindowExW(0, L"STATIC", L"poom test", 0, 0, 0, 10, 10, HWND_MESSAGE, nullptr, nullptr, nullptr);
    ASSERT_NE(hwnd, nullptr);
    {
        Server server(hwnd);
        ASSERT_EQ(server.logon, S_OK);
        EXPECT_TRUE(OneDay(server.calendar.get(), 2026, 11, 6).empty());
        // Another program replaces the store with one more event.
        Sleep(1100);  // a new modification time even on coarse clocks
        std::string ics = monthstore::kIcs;
        ics.insert(ics.find("BEGIN:X-SOMETHING-ELSE"),
                   "BEGIN:VEVENT\r\nUID:other@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
                   "DTSTART:20261106T120000\r\nDTEND:20261106T130000\r\nSUMMARY:Lunch\r\nEND:VEVENT\r\n");
        std::wstring temp = store.path() + L".other";
        WriteBytes(temp, ics);
        ASSERT_TRUE(MoveFileExW(temp.c_str(), store.path().c_str(), MOVEFILE_REPLACE_EXISTING));
        bool announced = false;
        DWORD until = GetTickCount() + 10000;
        while (!announced && GetTickCount() < until) {
            MSG msg;
            while (PeekMessageW(&msg, hwnd, 0, 0, PM_REMOVE))
                if (msg.message == WM_USER + 1) announced = true;
            Sleep(50);
        }
        EXPECT_TRUE(announced);
        EXPECT_EQ(Joined(Subjects(OneDay(server.calendar.get(), 2026, 11, 6))), "[Lunch]");
    }
    DestroyWindow(hwnd);
}

TEST(Store, TwoThreadsQueryAndChangeAtOnce) {
    TempStore store;
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    IFolder* folder = server.calendar.get();
    IPOutlookApp* app = server.app.get();
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0}, queries{0};
    // The rendering thread: month queries, over and over.
    std::thread render([&] {
        while (!stop) {
            for (int kind = 1; kind <= 3; ++kind) {
                ComPtr<IPOutlookItemCollection> items;
                if (FAILED(folder->get_Items(&items))) ++failures;
                items->Sort(Bstr(L"[Start]"), VARIANT_FALSE);
                items->put_IncludeRecurrences(VARIANT_TRUE);
                wchar_t r[200];
                wsprintfW(r, monthstore::kTemplates[kind], ShortDate(2026, 11, 1).c_str(),
                          ShortDate(2026, 11, 30).c_str());
                IDispatch* item = nullptr;
                if (FAILED(items->Find(Bstr(r), &item))) ++failures;
                while (item) {
                    ComPtr<IAppointment> a;
                    if (FAILED(item->QueryInterface(IID_IAppointment, reinterpret_cast<void**>(&a)))) ++failures;
                    item->Release();
                    BSTR s = nullptr;
                    if (FAILED(a->get_Subject(&s))) ++failures;
                    app->SysFreeString(s);
                    item = nullptr;
                    items->FindNext(&item);
                }
                ++queries;
            }
        }
    });
    // The UI thread: add and delete appointments meanwhile.
    int added = 0;
    // A few seconds by default; POOM_STRESS_SECONDS=60 for the minute-long run.
    wchar_t seconds[16] = {};
    DWORD stressMs = 4000;
    if (GetEnvironmentVariableW(L"POOM_STRESS_SECONDS", seconds, 16) > 0) stressMs = 1000 * _wtoi(seconds);
    DWORD until = GetTickCount() + stressMs;
    while (GetTickCount() < until) {
        IDispatch* d = nullptr;
        ASSERT_EQ(app->CreateItem(olAppointmentItem, &d), S_OK);
        ComPtr<IAppointment> appt;
        AsAppointment(d, appt);
        d->Release();
        appt->put_Subject(Bstr(L"Busy"));
        appt->put_Start(OleDate(app, 2026, 11, 1 + added % 28, 10));
        appt->put_End(OleDate(app, 2026, 11, 1 + added % 28, 11));
        ASSERT_EQ(appt->Save(), S_OK);
        if (added % 2 == 1) { ASSERT_EQ(appt->Delete(), S_OK); }
        ++added;
    }
    stop = true;
    render.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_GT(queries.load(), 0);
    ComPtr<IPOutlookItemCollection> items;
    ASSERT_EQ(folder->get_Items(&items), S_OK);
    ComPtr<IPOutlookItemCollection> busy;
    ASSERT_EQ(items->Restrict(Bstr(L"[Subject] = \"Busy\""), &busy), S_OK);
    int count = 0;
    busy->get_Count(&count);
    EXPECT_EQ(count, (added + 1) / 2);
}
