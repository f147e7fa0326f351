// The calendar server through real COM activation under Wine: the DLL is
// registered into the throw-away prefix, created with CoCreateInstance and
// driven the way the program drives it, on real store files.
//
// Usage: poom_com_test PATH-TO-lfpoom.dll [gtest flags]
#include "com_support.h"

TEST(Activation, RegisteredAndCreatedThroughCom) {
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID\\{05058F23-20BE-11D2-8F18-0000F87A4335}\\InprocServer32", 0,
                            KEY_READ, &key),
              ERROR_SUCCESS);
    wchar_t value[MAX_PATH * 2] = {};
    DWORD size = sizeof(value);
    ASSERT_EQ(RegQueryValueExW(key, L"ThreadingModel", nullptr, nullptr, reinterpret_cast<BYTE*>(value), &size),
              ERROR_SUCCESS);
    EXPECT_STREQ(value, L"Both");
    size = sizeof(value);
    ASSERT_EQ(RegQueryValueExW(key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(value), &size), ERROR_SUCCESS);
    EXPECT_EQ(lstrcmpiW(value, g_dllPath.c_str()), 0) << Narrow(value);
    RegCloseKey(key);

    ComPtr<IPOutlookApp> app;
    ASSERT_EQ(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                               reinterpret_cast<void**>(&app)),
              S_OK);
    ComPtr<IFolder> notAFolder;
    EXPECT_EQ(app->QueryInterface(IID_IFolder, reinterpret_cast<void**>(&notAFolder)), E_NOINTERFACE);
    // Nothing is served before logon.
    ComPtr<IFolder> folder;
    EXPECT_TRUE(FAILED(app->GetDefaultFolder(olFolderCalendar, &folder)));
    EXPECT_FALSE(folder);
}

TEST(Activation, UnregisteredServerCannotBeCreated) {
    HMODULE dll = GetModuleHandleW(g_dllPath.c_str());
    ASSERT_NE(dll, nullptr);
    auto call = [dll](const char* name) {
        auto f = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(GetProcAddress(dll, name)));
        return f ? f() : E_FAIL;
    };
    ASSERT_EQ(call("DllUnregisterServer"), S_OK);
    HKEY key = nullptr;
    EXPECT_NE(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID\\{05058F23-20BE-11D2-8F18-0000F87A4335}", 0, KEY_READ, &key),
              ERROR_SUCCESS);
    ComPtr<IPOutlookApp> app;
    EXPECT_TRUE(FAILED(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                        reinterpret_cast<void**>(&app))));
    EXPECT_EQ(call("DllUnregisterServer"), S_OK);  // twice is fine
    ASSERT_EQ(call("DllRegisterServer"), S_OK);
    EXPECT_EQ(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                               reinterpret_cast<void**>(&app)),
              S_OK);
}

TEST(Queries, MonthAndDayInThisLocale) {
    TempStore store;
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    for (const auto& q : monthstore::Queries()) {
        std::wstring restriction;
        auto found = QueryLikeTheProgram(server.calendar.get(), monthstore::kTemplates[q.kind], q.first, q.second,
                                         &restriction);
        EXPECT_EQ(Joined(Subjects(found)), Joined(q.subjects)) << q.name << ": " << Narrow(restriction);
        for (size_t i = 1; i < found.size(); ++i) EXPECT_LE(found[i - 1].start, found[i].start) << q.name;
    }
    // An occurrence answers with the series' OID and its own times.
    long standup = OidOf(server.calendar.get(), L"Standup");
    ASSERT_NE(standup, 0);
    auto dec1 = OneDay(server.calendar.get(), 2026, 12, 1);
    ASSERT_EQ(dec1.size(), 2u);
    EXPECT_EQ(dec1[1].oid, standup);
    EXPECT_DOUBLE_EQ(dec1[1].start, OleDate(server.app.get(), 2026, 12, 1, 9));
    EXPECT_DOUBLE_EQ(dec1[1].end, OleDate(server.app.get(), 2026, 12, 1, 9, 30));
}

TEST(Queries, SameThroughADirectoryStore) {
    TempStore store("", L"vdir");
    WriteVdir(store.path());
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    for (const auto& q : monthstore::Queries()) {
        auto found = QueryLikeTheProgram(server.calendar.get(), monthstore::kTemplates[q.kind], q.first, q.second);
        EXPECT_EQ(Joined(Subjects(found)), Joined(q.subjects)) << q.name;
    }
    // Changes go to the event's own file, new events to a file of their own.
    std::string dentist = ReadBytes(store.path() + L"\\dentist.ics");
    ComPtr<IAppointment> occ;
    ASSERT_EQ(OccurrenceOn(server.app.get(), OidOf(server.calendar.get(), L"Standup"), 2026, 11, 24, occ), S_OK);
    ASSERT_EQ(occ->Delete(), S_OK);
    EXPECT_NE(ReadBytes(store.path() + L"\\standup.ics").find("EXDATE"), std::string::npos);
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->CreateItem(olAppointmentItem, &d), S_OK);
    ComPtr<IAppointment> added;
    AsAppointment(d, added);
    d->Release();
    added->put_Subject(Bstr(L"Added"));
    added->put_Start(OleDate(server.app.get(), 2026, 11, 24, 12));
    added->put_End(OleDate(server.app.get(), 2026, 11, 24, 13));
    ASSERT_EQ(added->Save(), S_OK);
    EXPECT_EQ(ReadBytes(store.path() + L"\\dentist.ics"), dentist);
    int files = 0;
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((store.path() + L"\\*.ics").c_str(), &fd);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    do {
        ++files;
    } while (FindNextFileW(h, &fd));
    FindClose(h);
    EXPECT_EQ(files, 7);
    Server again;
    ASSERT_EQ(again.logon, S_OK);
    EXPECT_EQ(Joined(Subjects(OneDay(again.calendar.get(), 2026, 11, 24))), "[Added]");
}

TEST(Queries, MalformedRestrictionsAreRefused) {
    TempStore store;
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    const wchar_t* bad[] = {L"", L"[End] >=", L"[Nope] = 1", L"[Start] >= 99/99/2026", L"([Start] > 1/1/2026",
                            L"[Subject] = \"open", L"garbage"};
    for (const wchar_t* text : bad) {
        ComPtr<IPOutlookItemCollection> items;
        ASSERT_EQ(server.calendar->get_Items(&items), S_OK);
        IDispatch* item = reinterpret_cast<IDispatch*>(1);
        EXPECT_EQ(items->Find(Bstr(text), &item), E_INVALIDARG) << Narrow(text);
        EXPECT_EQ(item, nullptr) << Narrow(text);
        ComPtr<IPOutlookItemCollection> restricted;
        EXPECT_EQ(items->Restrict(Bstr(text), &restricted), E_INVALIDARG) << Narrow(text);
        EXPECT_FALSE(restricted) << Narrow(text);
    }
    ComPtr<IPOutlookItemCollection> items;
    ASSERT_EQ(server.calendar->get_Items(&items), S_OK);
    EXPECT_EQ(items->Sort(Bstr(L"[Colour]"), VARIANT_FALSE), E_INVALIDARG);
}

TEST(Queries, RestrictCountAndItem) {
    TempStore store;
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    ComPtr<IPOutlookItemCollection> items;
    ASSERT_EQ(server.calendar->get_Items(&items), S_OK);
    int count = 0;
    ASSERT_EQ(items->get_Count(&count), S_OK);
    EXPECT_EQ(count, 6);  // the series counts once without recurrences
    ASSERT_EQ(items->put_IncludeRecurrences(VARIANT_TRUE), S_OK);
    ASSERT_EQ(items->Sort(Bstr(L"[Start]"), VARIANT_TRUE), S_OK);
    std::wstring r = L"[Start] >= \"" + ShortDate(2026, 11, 1) + L"\" AND [Start] < \"" + ShortDate(2026, 12, 1) +
                     L"\" AND [AllDayEvent] = FALSE";
    ComPtr<IPOutlookItemCollection> november;
    ASSERT_EQ(items->Restrict(Bstr(r.c_str()), &november), S_OK);
    ASSERT_EQ(november->get_Count(&count), S_OK);
    EXPECT_EQ(count, 6);  // Standup x3, Dentist, Trip, Late
    IDispatch* d = nullptr;
    ASSERT_EQ(november->Item(1, &d), S_OK);  // descending: the latest first
    ComPtr<IAppointment> first;
    AsAppointment(d, first);
    d->Release();
    BSTR s = nullptr;
    first->get_Subject(&s);
    EXPECT_STREQ(s, L"Late");
    server.app->SysFreeString(s);
    d = nullptr;
    EXPECT_EQ(november->Item(0, &d), E_INVALIDARG);
    EXPECT_EQ(november->Item(count + 1, &d), E_INVALIDARG);
    // Remove deletes the item from the store.
    ASSERT_EQ(november->Remove(1), S_OK);
    ASSERT_EQ(november->get_Count(&count), S_OK);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(ReadBytes(store.path()).find("late@"), std::string::npos);
    EXPECT_EQ(november->Remove(99), E_INVALIDARG);
}

TEST(Queries, ZonedAndUtcTimesShowInTheMachinesTime) {
    const char ics[] =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Example//EN\r\n"
        "BEGIN:VTIMEZONE\r\nTZID:America/New_York\r\n"
        "BEGIN:DAYLIGHT\r\nTZOFFSETFROM:-0500\r\nTZOFFSETTO:-0400\r\nTZNAME:EDT\r\n"
        "DTSTART:20070311T020000\r\nRRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=2SU\r\nEND:DAYLIGHT\r\n"
        "BEGIN:STANDARD\r\nTZOFFSETFROM:-0400\r\nTZOFFSETTO:-0500\r\nTZNAME:EST\r\n"
        "DTSTART:20071104T020000\r\nRRULE:FREQ=YEARLY;BYMONTH=11;BYDAY=1SU\r\nEND:STANDARD\r\n"
        "END:VTIMEZONE\r\n"
        "BEGIN:VEVENT\r\nUID:ny@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
        "DTSTART;TZID=America/New_York:20261105T100000\r\nDTEND;TZID=America/New_York:20261105T110000\r\n"
        "SUMMARY:New York\r\nEND:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:utc@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
        "DTSTART:20260701T120000Z\r\nDTEND:20260701T130000Z\r\nSUMMARY:Summer UTC\r\nEND:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:allday@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
        "DTSTART;VALUE=DATE:20261105\r\nSUMMARY:All day\r\nEND:VEVENT\r\n"
        "END:VCALENDAR\r\n";
    TempStore store(ics);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    struct Case {
        const char* name;
        const wchar_t* subject;
        SYSTEMTIME utcStart;
    } cases[] = {
        {"zoned", L"New York", {2026, 11, 0, 5, 15, 0, 0, 0}},     // 10:00 EST
        {"utc in summer", L"Summer UTC", {2026, 7, 0, 1, 12, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        SYSTEMTIME local = {};
        ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &c.utcStart, &local)) << c.name;
        IDispatch* d = nullptr;
        ASSERT_EQ(server.app->GetItemFromOid(OidOf(server.calendar.get(), c.subject), &d), S_OK) << c.name;
        ComPtr<IAppointment> appt;
        AsAppointment(d, appt);
        d->Release();
        DATE start = 0;
        appt->get_Start(&start);
        EXPECT_DOUBLE_EQ(start, OleDate(server.app.get(), local.wYear, local.wMonth, local.wDay, local.wHour,
                                        local.wMinute))
            << c.name;
        long duration = 0;
        appt->get_Duration(&duration);
        EXPECT_EQ(duration, 60) << c.name;
    }
    // An all-day event (a DATE without DTEND: one day) stays on its day.
    auto day = OneDay(server.calendar.get(), 2026, 11, 5);
    bool allDaySeen = false;
    for (const auto& f : day) {
        if (f.subject != L"All day") continue;
        allDaySeen = true;
        EXPECT_DOUBLE_EQ(f.start, OleDate(server.app.get(), 2026, 11, 5));
        EXPECT_DOUBLE_EQ(f.end, OleDate(server.app.get(), 2026, 11, 6));
    }
    EXPECT_TRUE(allDaySeen);
    EXPECT_TRUE(OneDay(server.calendar.get(), 2026, 11, 6).empty() ||
                Joined(Subjects(OneDay(server.calendar.get(), 2026, 11, 6))).find("All day") == std::string::npos);
}

// Many exporters name the zone and leave its VTIMEZONE out: the server
// resolves the name through the zone table built into the engine, so the
// event shows at the machine's wall clock for that instant in the day list
// and in the month view's query, as other calendars show it.
TEST(Queries, ZonesNamedWithoutAVtimezoneShowInTheMachinesTime) {
    const char ics[] =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Example//EN\r\n"
        "BEGIN:VEVENT\r\nUID:brisbane@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
        "DTSTART;TZID=Australia/Brisbane:20261105T090000\r\nDTEND;TZID=Australia/Brisbane:20261105T100000\r\n"
        "SUMMARY:Brisbane\r\nEND:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:windows@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
        "DTSTART;TZID=W. Europe Standard Time:20260710T180000\r\n"
        "DTEND;TZID=W. Europe Standard Time:20260710T190000\r\nSUMMARY:Windows name\r\nEND:VEVENT\r\n"
        "END:VCALENDAR\r\n";
    TempStore store(ics);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    struct Case {
        const char* name;
        const wchar_t* subject;
        SYSTEMTIME utcStart;
    } cases[] = {
        {"IANA name", L"Brisbane", {2026, 11, 0, 4, 23, 0, 0, 0}},     // 09:00 AEST, no daylight time
        {"Windows name", L"Windows name", {2026, 7, 0, 10, 16, 0, 0, 0}},  // 18:00 CEST
    };
    for (const auto& c : cases) {
        SYSTEMTIME local = {};
        ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &c.utcStart, &local)) << c.name;
        const DATE want = OleDate(server.app.get(), local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute);
        const DATE wantEnd = want + 1.0 / 24;
        auto day = OneDay(server.calendar.get(), local.wYear, local.wMonth, local.wDay);
        bool inDay = false;
        for (const auto& f : day) {
            if (f.subject != c.subject) continue;
            inDay = true;
            EXPECT_DOUBLE_EQ(f.start, want) << c.name;
            EXPECT_NEAR(f.end, wantEnd, 1e-9) << c.name;
        }
        EXPECT_TRUE(inDay) << c.name << ": not in the day list of its local day";
        int lastDay = local.wMonth == 2 ? 28 : (local.wMonth == 4 || local.wMonth == 6 || local.wMonth == 9 ||
                                                local.wMonth == 11) ? 30 : 31;
        auto month = QueryLikeTheProgram(server.calendar.get(), monthstore::kTemplates[1],
                                         {local.wYear, local.wMonth, 1}, {local.wYear, local.wMonth, lastDay});
        bool inMonth = false;
        for (const auto& f : month)
            if (f.subject == c.subject) {
                inMonth = true;
                EXPECT_DOUBLE_EQ(f.start, want) << c.name;
            }
        EXPECT_TRUE(inMonth) << c.name << ": not in the month view's query";
    }
}

TEST(Conversions, VariantTimesBothWays) {
    TempStore store;
    Server server;
    struct Case {
        const char* name;
        SYSTEMTIME st;
        bool ok;
    } cases[] = {
        {"noon", {2026, 11, 0, 5, 12, 0, 0, 0}, true},
        {"leap day", {2024, 2, 0, 29, 23, 59, 59, 0}, true},
        {"not a leap day", {2026, 2, 0, 29, 0, 0, 0, 0}, false},
        {"month 13", {2026, 13, 0, 1, 0, 0, 0, 0}, false},
        {"hour 24", {2026, 11, 0, 5, 24, 0, 0, 0}, false},
    };
    for (auto c : cases) {
        DATE d = 0;
        HRESULT hr = server.app->SystemTimeToVariantTime(&c.st, &d);
        EXPECT_EQ(SUCCEEDED(hr), c.ok) << c.name;
        if (!c.ok) continue;
        DATE system = 0;
        ASSERT_TRUE(::SystemTimeToVariantTime(&c.st, &system)) << c.name;
        EXPECT_NEAR(d, system, 1e-9) << c.name;
        SYSTEMTIME back = {};
        ASSERT_EQ(server.app->VariantTimeToSystemTime(d, &back), S_OK) << c.name;
        EXPECT_EQ(back.wYear, c.st.wYear) << c.name;
        EXPECT_EQ(back.wDay, c.st.wDay) << c.name;
        EXPECT_EQ(back.wHour, c.st.wHour) << c.name;
        EXPECT_EQ(back.wSecond, c.st.wSecond) << c.name;
    }
    SYSTEMTIME st;
    EXPECT_EQ(server.app->VariantTimeToSystemTime(1e12, &st), E_INVALIDARG);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc == 4 && std::string(argv[2]) == "--save-loop") return SaveLoop(std::atoi(argv[3]));
    if (argc < 2) {
        std::fprintf(stderr, "usage: poom_com_test PATH-TO-lfpoom.dll\n");
        return 2;
    }
    g_dllPath = WindowsPath(argv[1]);
    // Register the server into this prefix as regsvr32 would.
    HMODULE dll = LoadLibraryW(g_dllPath.c_str());
    if (!dll) {
        std::fprintf(stderr, "cannot load %s (error %lu)\n", argv[1], GetLastError());
        return 1;
    }
    auto reg = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
        reinterpret_cast<void*>(GetProcAddress(dll, "DllRegisterServer")));
    if (!reg || FAILED(reg())) {
        std::fprintf(stderr, "DllRegisterServer failed\n");
        return 1;
    }
    wchar_t picture[80] = {};
    GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_SSHORTDATE, picture, 80);
    TIME_ZONE_INFORMATION tzi = {};
    GetTimeZoneInformation(&tzi);
    std::printf("short date picture of this locale: %s; time zone %s (bias %ld min)\n", Narrow(picture).c_str(),
                Narrow(tzi.StandardName).c_str(), tzi.Bias);
    // The program's apartment: multithreaded, shared by its two threads.
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int result = RUN_ALL_TESTS();
    CoUninitialize();
    return result;
}
