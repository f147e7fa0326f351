// The calendar server's appointments through COM: patterns and
// exceptions, occurrences changed, moved and deleted, copies, OIDs, and
// every property of a new item.
#include "com_support.h"

#include <list>

TEST(Items, RulesThePatternCannotSayStillExpand) {
    const char ics[] =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Example//EN\r\n"
        "BEGIN:VEVENT\r\nUID:twice@example.com\r\nDTSTAMP:20261001T120000Z\r\n"
        "DTSTART:20261001T080000\r\nDTEND:20261001T083000\r\n"
        "RRULE:FREQ=MONTHLY;BYMONTHDAY=1,15\r\nSUMMARY:Rent\r\nEND:VEVENT\r\n"
        "END:VCALENDAR\r\n";
    TempStore store(ics);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    auto month = QueryLikeTheProgram(server.calendar.get(), monthstore::kTemplates[1], {2026, 11, 1}, {2026, 11, 30});
    ASSERT_EQ(month.size(), 2u);
    EXPECT_DOUBLE_EQ(month[0].start, OleDate(server.app.get(), 2026, 11, 1, 8));
    EXPECT_DOUBLE_EQ(month[1].start, OleDate(server.app.get(), 2026, 11, 15, 8));
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->GetItemFromOid(month[0].oid, &d), S_OK);
    ComPtr<IAppointment> series;
    AsAppointment(d, series);
    d->Release();
    ComPtr<IRecurrencePattern> pattern;
    ASSERT_EQ(series->GetRecurrencePattern(&pattern), S_OK);
    long type = -1;
    ASSERT_EQ(pattern->get_RecurrenceType(&type), S_OK);
    EXPECT_EQ(type, olRecursMonthly);  // the closest the object model has
    // Saving the series unchanged keeps its rule as written.
    ASSERT_EQ(series->put_Location(Bstr(L"Bank")), S_OK);
    ASSERT_EQ(series->Save(), S_OK);
    EXPECT_NE(ReadBytes(store.path()).find("RRULE:FREQ=MONTHLY;BYMONTHDAY=1,15\r\n"), std::string::npos);
    ComPtr<IAppointment> occ;
    EXPECT_EQ(OccurrenceOn(server.app.get(), month[0].oid, 2026, 11, 15, occ), S_OK);
}

TEST(Items, OidsStayTheSameAcrossLogons) {
    TempStore store;
    long first = 0;
    {
        Server a;
        ASSERT_EQ(a.logon, S_OK);
        first = OidOf(a.calendar.get(), L"Trip");
        ASSERT_NE(first, 0);
    }
    Server b;
    ASSERT_EQ(b.logon, S_OK);
    EXPECT_EQ(OidOf(b.calendar.get(), L"Trip"), first);
    IDispatch* d = nullptr;
    ASSERT_EQ(b.app->GetItemFromOid(first, &d), S_OK);
    ComPtr<IAppointment> trip;
    AsAppointment(d, trip);
    d->Release();
    BSTR cats = nullptr;
    ASSERT_EQ(trip->get_Categories(&cats), S_OK);
    EXPECT_STREQ(cats, L"Travel, Family");
    SysFreeString(cats);
    long duration = 0;
    ASSERT_EQ(trip->get_Duration(&duration), S_OK);
    EXPECT_EQ(duration, (2 * 24 + 15) * 60);
    d = nullptr;
    EXPECT_TRUE(FAILED(b.app->GetItemFromOid(first + 1, &d)));
    EXPECT_EQ(d, nullptr);
}

TEST(Items, PatternAndExceptionsOfASeries) {
    TempStore store;
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    long oid = OidOf(server.calendar.get(), L"Standup");
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->GetItemFromOid(oid, &d), S_OK);
    ComPtr<IAppointment> series;
    AsAppointment(d, series);
    d->Release();
    VARIANT_BOOL recurring = VARIANT_FALSE;
    ASSERT_EQ(series->get_IsRecurring(&recurring), S_OK);
    EXPECT_NE(recurring, VARIANT_FALSE);
    ComPtr<IRecurrencePattern> pattern;
    ASSERT_EQ(series->GetRecurrencePattern(&pattern), S_OK);
    long v = -1;
    struct Check {
        const char* name;
        HRESULT (STDMETHODCALLTYPE IRecurrencePattern::*get)(long*);
        long expect;
    } checks[] = {
        {"type", &IRecurrencePattern::get_RecurrenceType, olRecursWeekly},
        {"interval", &IRecurrencePattern::get_Interval, 1},
        {"mask", &IRecurrencePattern::get_DayOfWeekMask, olTuesday},
        {"duration", &IRecurrencePattern::get_Duration, 30},
        {"occurrences", &IRecurrencePattern::get_Occurrences, 0},
    };
    for (const auto& c : checks) {
        EXPECT_EQ((pattern.get()->*c.get)(&v), S_OK) << c.name;
        EXPECT_EQ(v, c.expect) << c.name;
    }
    VARIANT_BOOL noEnd = VARIANT_FALSE;
    ASSERT_EQ(pattern->get_NoEndDate(&noEnd), S_OK);
    EXPECT_NE(noEnd, VARIANT_FALSE);
    DATE startDate = 0;
    ASSERT_EQ(pattern->get_PatternStartDate(&startDate), S_OK);
    EXPECT_DOUBLE_EQ(startDate, OleDate(server.app.get(), 2026, 10, 6));

    ComPtr<IExceptions> exceptions;
    ASSERT_EQ(pattern->get_Exceptions(&exceptions), S_OK);
    int count = 0;
    ASSERT_EQ(exceptions->get_Count(&count), S_OK);
    ASSERT_EQ(count, 2);
    ComPtr<IException> deleted, moved;
    ASSERT_EQ(exceptions->Item(1, &deleted), S_OK);
    ASSERT_EQ(exceptions->Item(2, &moved), S_OK);
    VARIANT_BOOL flag = VARIANT_FALSE;
    ASSERT_EQ(deleted->get_Deleted(&flag), S_OK);
    EXPECT_NE(flag, VARIANT_FALSE);
    DATE original = 0;
    ASSERT_EQ(deleted->get_OriginalDate(&original), S_OK);
    EXPECT_DOUBLE_EQ(original, OleDate(server.app.get(), 2026, 11, 10, 9));
    ASSERT_EQ(moved->get_Deleted(&flag), S_OK);
    EXPECT_EQ(flag, VARIANT_FALSE);
    ComPtr<IAppointment> movedItem;
    ASSERT_EQ(moved->get_AppointmentItem(&movedItem), S_OK);
    DATE start = 0;
    movedItem->get_Start(&start);
    EXPECT_DOUBLE_EQ(start, OleDate(server.app.get(), 2026, 11, 18, 14));
    ComPtr<IException> none;
    EXPECT_EQ(exceptions->Item(3, &none), E_INVALIDARG);

    // GetOccurrence on a moment that is no occurrence fails.
    ComPtr<IAppointment> occ;
    EXPECT_TRUE(FAILED(pattern->GetOccurrence(OleDate(server.app.get(), 2026, 11, 25, 9), &occ)));
    EXPECT_FALSE(occ);
}

TEST(Items, DeleteOneOccurrenceThenTheSeries) {
    TempStore store;
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    long oid = OidOf(server.calendar.get(), L"Standup");
    ComPtr<IAppointment> occ;
    ASSERT_EQ(OccurrenceOn(server.app.get(), oid, 2026, 11, 24, occ), S_OK);
    long occOid = 0;
    occ->get_Oid(&occOid);
    EXPECT_EQ(occOid, oid);
    ASSERT_EQ(occ->Delete(), S_OK);
    EXPECT_TRUE(OneDay(server.calendar.get(), 2026, 11, 24).empty());
    EXPECT_EQ(Joined(Subjects(OneDay(server.calendar.get(), 2026, 12, 1))), "[Late][Standup]");
    EXPECT_NE(ReadBytes(store.path()).find("EXDATE:20261124T090000"), std::string::npos);

    // The whole series (the program's mode 3: the item itself).
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->GetItemFromOid(oid, &d), S_OK);
    ComPtr<IAppointment> series;
    AsAppointment(d, series);
    d->Release();
    ASSERT_EQ(series->Delete(), S_OK);
    EXPECT_EQ(Joined(Subjects(OneDay(server.calendar.get(), 2026, 12, 1))), "[Late]");
    EXPECT_TRUE(OneDay(server.calendar.get(), 2026, 11, 18).empty());
    d = nullptr;
    EXPECT_TRUE(FAILED(server.app->GetItemFromOid(oid, &d)));
    EXPECT_EQ(ReadBytes(store.path()).find("standup@"), std::string::npos);
}

TEST(Items, CopyAndMoveToAnotherDay) {
    // As the program pastes: copy, move start and end onto the target day
    // keeping their times of day, save; a cut also deletes the source.
    struct Case {
        const char* name;
        const wchar_t* subject;
        monthstore::Day source, target;
        bool cut;
        const char* sourceDayAfter;
    } cases[] = {
        {"copy one-off", L"Dentist", {2026, 11, 5}, {2026, 11, 7}, false, "[Dentist]"},
        {"move one-off", L"Dentist", {2026, 11, 5}, {2026, 11, 7}, true, ""},
        {"copy occurrence", L"Standup", {2026, 11, 24}, {2026, 11, 26}, false, "[Standup]"},
        {"move occurrence", L"Standup", {2026, 11, 24}, {2026, 11, 26}, true, ""},
    };
    for (const auto& c : cases) {
        TempStore store;
        Server server;
        ASSERT_EQ(server.logon, S_OK) << c.name;
        long oid = OidOf(server.calendar.get(), c.subject);
        ComPtr<IAppointment> source;
        if (std::wstring(c.subject) == L"Standup") {
            ASSERT_EQ(OccurrenceOn(server.app.get(), oid, c.source.y, c.source.m, c.source.d, source), S_OK) << c.name;
        } else {
            IDispatch* d = nullptr;
            ASSERT_EQ(server.app->GetItemFromOid(oid, &d), S_OK) << c.name;
            AsAppointment(d, source);
            d->Release();
        }
        ComPtr<IAppointment> copy;
        ASSERT_EQ(source->Copy(&copy), S_OK) << c.name;
        DATE start = 0, end = 0;
        copy->get_Start(&start);
        copy->get_End(&end);
        DATE target = OleDate(server.app.get(), c.target.y, c.target.m, c.target.d);
        ASSERT_EQ(copy->put_Start(start + (target - static_cast<long>(start))), S_OK) << c.name;
        ASSERT_EQ(copy->put_End(end + (target - static_cast<long>(end))), S_OK) << c.name;
        ASSERT_EQ(copy->Save(), S_OK) << c.name;
        if (c.cut) { ASSERT_EQ(source->Delete(), S_OK) << c.name; }
        long copyOid = 0;
        copy->get_Oid(&copyOid);
        EXPECT_NE(copyOid, 0) << c.name;
        EXPECT_NE(copyOid, oid) << c.name;
        VARIANT_BOOL recurring = VARIANT_TRUE;
        copy->get_IsRecurring(&recurring);
        EXPECT_EQ(recurring, VARIANT_FALSE) << c.name;
        auto onTarget = OneDay(server.calendar.get(), c.target.y, c.target.m, c.target.d);
        ASSERT_EQ(onTarget.size(), 1u) << c.name;
        EXPECT_EQ(onTarget[0].subject, c.subject) << c.name;
        EXPECT_EQ(onTarget[0].oid, copyOid) << c.name;
        EXPECT_DOUBLE_EQ(onTarget[0].start - static_cast<long>(onTarget[0].start), start - static_cast<long>(start))
            << c.name;
        EXPECT_EQ(Joined(Subjects(OneDay(server.calendar.get(), c.source.y, c.source.m, c.source.d))),
                  c.sourceDayAfter)
            << c.name;
    }
}

TEST(Items, NewItemsAndEveryProperty) {
    TempStore store("", L"sub\\new.ics");  // not there yet: made on logon
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->CreateItem(olAppointmentItem, &d), S_OK);
    ComPtr<IAppointment> appt;
    AsAppointment(d, appt);
    d->Release();
    long oid = -1;
    appt->get_Oid(&oid);
    EXPECT_EQ(oid, 0);
    std::wstring longSubject(500, L'x');
    longSubject += L"\u00fc\u20ac";
    ASSERT_EQ(appt->put_Subject(Bstr(longSubject.c_str())), S_OK);
    ASSERT_EQ(appt->put_Location(Bstr(L"Hall; \"B\", 2")), S_OK);
    ASSERT_EQ(appt->put_Body(Bstr(L"line one\r\nline two")), S_OK);
    ASSERT_EQ(appt->put_Categories(Bstr(L"Work, Personal")), S_OK);
    ASSERT_EQ(appt->put_Start(OleDate(server.app.get(), 2026, 11, 9, 13, 30)), S_OK);
    ASSERT_EQ(appt->put_End(OleDate(server.app.get(), 2026, 11, 9, 15)), S_OK);
    ASSERT_EQ(appt->put_BusyStatus(olOutOfOffice), S_OK);
    ASSERT_EQ(appt->put_Sensitivity(olPrivate), S_OK);
    ASSERT_EQ(appt->put_ReminderSet(VARIANT_TRUE), S_OK);
    ASSERT_EQ(appt->put_ReminderMinutesBeforeStart(30), S_OK);
    EXPECT_EQ(appt->put_BusyStatus(17), E_INVALIDARG);
    EXPECT_EQ(appt->put_End(OleDate(server.app.get(), 2026, 11, 9, 12)), E_INVALIDARG);
    ASSERT_EQ(appt->Save(), S_OK);
    appt->get_Oid(&oid);
    ASSERT_NE(oid, 0);

    Server again;
    ASSERT_EQ(again.logon, S_OK);
    d = nullptr;
    ASSERT_EQ(again.app->GetItemFromOid(oid, &d), S_OK);
    ComPtr<IAppointment> read;
    AsAppointment(d, read);
    d->Release();
    struct Text {
        const char* name;
        HRESULT (STDMETHODCALLTYPE IAppointment::*get)(BSTR*);
        std::wstring expect;
    } texts[] = {
        {"subject", &IAppointment::get_Subject, longSubject},
        {"location", &IAppointment::get_Location, L"Hall; \"B\", 2"},
        {"body", &IAppointment::get_Body, L"line one\r\nline two"},
        {"categories", &IAppointment::get_Categories, L"Work, Personal"},
    };
    for (const auto& t : texts) {
        BSTR b = nullptr;
        ASSERT_EQ((read.get()->*t.get)(&b), S_OK) << t.name;
        std::wstring got(b, SysStringLen(b));
        // The body's line ends may come back as the store writes them.
        if (std::string(t.name) == "body") {
            EXPECT_NE(got.find(L"line two"), std::wstring::npos) << t.name;
        } else {
            EXPECT_EQ(got, t.expect) << t.name;
        }
        again.app->SysFreeString(b);
    }
    struct Number {
        const char* name;
        HRESULT (STDMETHODCALLTYPE IAppointment::*get)(long*);
        long expect;
    } numbers[] = {
        {"busy", &IAppointment::get_BusyStatus, olOutOfOffice},
        {"sensitivity", &IAppointment::get_Sensitivity, olPrivate},
        {"duration", &IAppointment::get_Duration, 90},
        {"reminder minutes", &IAppointment::get_ReminderMinutesBeforeStart, 30},
    };
    for (const auto& n : numbers) {
        long v = -1;
        ASSERT_EQ((read.get()->*n.get)(&v), S_OK) << n.name;
        EXPECT_EQ(v, n.expect) << n.name;
    }
    VARIANT_BOOL b = VARIANT_FALSE;
    read->get_ReminderSet(&b);
    EXPECT_NE(b, VARIANT_FALSE);
    read->get_AllDayEvent(&b);
    EXPECT_EQ(b, VARIANT_FALSE);

    // Made recurring through its pattern: every second Monday, three times.
    ComPtr<IRecurrencePattern> pattern;
    ASSERT_EQ(read->GetRecurrencePattern(&pattern), S_OK);
    ASSERT_EQ(pattern->put_RecurrenceType(olRecursWeekly), S_OK);
    ASSERT_EQ(pattern->put_DayOfWeekMask(olMonday), S_OK);
    ASSERT_EQ(pattern->put_Interval(2), S_OK);
    ASSERT_EQ(pattern->put_Occurrences(3), S_OK);
    EXPECT_EQ(pattern->put_Interval(0), E_INVALIDARG);
    ASSERT_EQ(read->Save(), S_OK);
    auto december = QueryLikeTheProgram(again.calendar.get(), monthstore::kTemplates[1], {2026, 11, 1}, {2026, 12, 31});
    ASSERT_EQ(december.size(), 3u);
    EXPECT_DOUBLE_EQ(december[2].start, OleDate(again.app.get(), 2026, 12, 7, 13, 30));
    d = nullptr;
    EXPECT_EQ(again.app->CreateItem(olContactItem, &d), E_INVALIDARG);
}

TEST(Items, ChangingOneOccurrence) {
    TempStore store;
    {
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        IPOutlookApp* app = server.app.get();
        long oid = OidOf(server.calendar.get(), L"Standup");
        // An occurrence changed before (an exception of the series) changes again.
        ComPtr<IAppointment> moved;
        ASSERT_EQ(OccurrenceOn(app, oid, 2026, 11, 17, moved), S_OK);
        ASSERT_EQ(moved->put_Location(Bstr(L"Room 2")), S_OK);
        ASSERT_EQ(moved->Save(), S_OK);
        std::string file = ReadBytes(store.path());
        size_t override = file.find("RECURRENCE-ID:20261117T090000");
        ASSERT_NE(override, std::string::npos);
        EXPECT_NE(file.find("LOCATION:Room 2", override), std::string::npos);
        EXPECT_EQ(file.find("LOCATION:Room 2"), file.find("LOCATION:Room 2", override));
        // Saving an unchanged occurrence changes nothing.
        ComPtr<IAppointment> plain;
        ASSERT_EQ(OccurrenceOn(app, oid, 2026, 11, 24, plain), S_OK);
        ASSERT_EQ(plain->Save(), S_OK);
        EXPECT_EQ(ReadBytes(store.path()), file);
        // A first change to a plain occurrence makes it an exception of its
        // own: one new VEVENT, every other byte of the file as it was.
        ASSERT_EQ(plain->put_Subject(Bstr(L"Only this one")), S_OK);
        ASSERT_EQ(plain->Save(), S_OK);
        std::string after = ReadBytes(store.path());
        size_t rid = after.find("RECURRENCE-ID:20261124T090000\r\n");
        ASSERT_NE(rid, std::string::npos);
        size_t begin = after.rfind("BEGIN:VEVENT\r\n", rid);
        size_t end = after.find("END:VEVENT\r\n", rid) + 12;
        std::string added = after.substr(begin, end - begin);
        EXPECT_EQ(after.substr(0, begin) + after.substr(end), file);
        for (const char* line : {"UID:standup@example.com\r\n", "SUMMARY:Only this one\r\n",
                                 "DTSTART:20261124T090000\r\n", "DTEND:20261124T093000\r\n"})
            EXPECT_NE(added.find(line), std::string::npos) << line << added;
        EXPECT_EQ(added.find("RRULE"), std::string::npos) << added;
        EXPECT_EQ(added.find("EXDATE"), std::string::npos) << added;
        // Saved again, the same occurrence object changes its exception.
        ASSERT_EQ(plain->put_Location(Bstr(L"Roof")), S_OK);
        ASSERT_EQ(plain->Save(), S_OK);
        after = ReadBytes(store.path());
        EXPECT_EQ(after.find("RECURRENCE-ID:20261124T090000"), after.rfind("RECURRENCE-ID:20261124T090000"));
        EXPECT_NE(after.find("LOCATION:Roof"), std::string::npos);
        // Another occurrence moves to another day.
        ComPtr<IAppointment> dec1;
        ASSERT_EQ(OccurrenceOn(app, oid, 2026, 12, 1, dec1), S_OK);
        ASSERT_EQ(dec1->put_Start(OleDate(app, 2026, 12, 3, 14)), S_OK);
        ASSERT_EQ(dec1->put_End(OleDate(app, 2026, 12, 3, 15)), S_OK);
        ASSERT_EQ(dec1->Save(), S_OK);
        EXPECT_EQ(plain->ClearRecurrencePattern(), E_INVALIDARG);
    }
    // What the views ask, in this logon and in a fresh one.
    for (int logon = 0; logon < 2; ++logon) {
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        IFolder* cal = server.calendar.get();
        EXPECT_EQ(Joined(Subjects(OneDay(cal, 2026, 11, 24))), "[Only this one]") << logon;
        EXPECT_EQ(Joined(Subjects(OneDay(cal, 2026, 12, 1))), "[Late]") << logon;
        auto dec3 = OneDay(cal, 2026, 12, 3);
        ASSERT_EQ(Joined(Subjects(dec3)), "[Standup]") << logon;
        EXPECT_DOUBLE_EQ(dec3[0].start, OleDate(server.app.get(), 2026, 12, 3, 14)) << logon;
        EXPECT_DOUBLE_EQ(dec3[0].end, OleDate(server.app.get(), 2026, 12, 3, 15)) << logon;
        EXPECT_EQ(dec3[0].oid, OidOf(cal, L"Standup")) << logon;
        // The rest of the series is as it was.
        for (int day : {8, 15}) {
            auto list = OneDay(cal, 2026, 12, day);
            ASSERT_EQ(Joined(Subjects(list)), "[Standup]") << logon << " " << day;
            EXPECT_DOUBLE_EQ(list[0].start, OleDate(server.app.get(), 2026, 12, day, 9)) << logon;
        }
        EXPECT_EQ(Joined(Subjects(OneDay(cal, 2026, 11, 18))), "[Standup (moved)]") << logon;
        EXPECT_EQ(Joined(Subjects(OneDay(cal, 2026, 11, 3))), "[Standup]") << logon;
        // The series counts its exceptions: the deleted one, the one moved
        // before, and the two changed here.
        IDispatch* d = nullptr;
        ASSERT_EQ(server.app->GetItemFromOid(OidOf(cal, L"Standup"), &d), S_OK);
        ComPtr<IAppointment> series;
        AsAppointment(d, series);
        d->Release();
        ComPtr<IRecurrencePattern> pattern;
        ASSERT_EQ(series->GetRecurrencePattern(&pattern), S_OK);
        ComPtr<IExceptions> exceptions;
        ASSERT_EQ(pattern->get_Exceptions(&exceptions), S_OK);
        int count = 0;
        ASSERT_EQ(exceptions->get_Count(&count), S_OK);
        EXPECT_EQ(count, 4) << logon;
    }
}

// Occurrences handed out by a walk share their event's texts with each
// other: each keeps them through a change of its own, a save, and a copy,
// and an occurrence saved unchanged writes nothing.
TEST(Items, OccurrencesFromAWalkKeepTheirTexts) {
    const std::string ics =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//tests//EN\r\n"
        "BEGIN:VEVENT\r\nUID:walk@example.com\r\nDTSTAMP:20260101T000000Z\r\n"
        "DTSTART:20261102T080000\r\nDTEND:20261102T083000\r\nRRULE:FREQ=DAILY;COUNT=5\r\n"
        "SUMMARY:Run\r\nLOCATION:Park\r\nDESCRIPTION:Five k\r\nCATEGORIES:Personal,Sport\r\nEND:VEVENT\r\n"
        "END:VCALENDAR\r\n";
    TempStore store(ics);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    // The walk's appointments live in `held` (which never moves them) until the test ends.
    std::list<ComPtr<IAppointment>> held;
    auto walk = [&](std::vector<IAppointment*>& out) {
        WalkLikeTheProgram(server.calendar.get(), monthstore::kTemplates[0], {2026, 11, 1}, {2026, 11, 30},
                           [&](IAppointment* a) {
                               held.emplace_back(a);
                               a->AddRef();
                               out.push_back(a);
                           });
    };
    auto text = [](IAppointment* a, HRESULT (STDMETHODCALLTYPE IAppointment::*get)(BSTR*)) {
        BSTR b = nullptr;
        (a->*get)(&b);
        std::wstring w = b ? b : L"";
        SysFreeString(b);
        return Narrow(w);
    };
    std::vector<IAppointment*> found;
    walk(found);
    ASSERT_EQ(found.size(), 5u);
    std::string before = ReadBytes(store.path());
    ASSERT_EQ(found[1]->Save(), S_OK);
    EXPECT_EQ(ReadBytes(store.path()), before) << "an occurrence saved unchanged";

    // A later start for the third: its own exception, with every text.
    DATE start = 0, end = 0;
    found[2]->get_Start(&start);
    found[2]->get_End(&end);
    ASSERT_EQ(found[2]->put_Start(start + 1.0 / 24), S_OK);
    ASSERT_EQ(found[2]->Save(), S_OK);
    std::string after = ReadBytes(store.path());
    size_t rid = after.find("RECURRENCE-ID:20261104T080000");
    ASSERT_NE(rid, std::string::npos) << after;
    std::string added = after.substr(after.rfind("BEGIN:VEVENT", rid));
    for (const char* line : {"SUMMARY:Run\r\n", "LOCATION:Park\r\n", "DESCRIPTION:Five k\r\n", "Sport"})
        EXPECT_NE(added.find(line), std::string::npos) << line << added;

    // A new subject for the fourth leaves its other texts, and the others' subjects, alone.
    ASSERT_EQ(found[3]->put_Subject(Bstr(L"Long run")), S_OK);
    ASSERT_EQ(found[3]->Save(), S_OK);
    ComPtr<IAppointment> copy;
    ASSERT_EQ(found[4]->Copy(&copy), S_OK);
    struct {
        const char* name;
        IAppointment* item;
        const char *subject, *location, *body, *categories;
    } cases[] = {
        {"first, untouched", found[0], "Run", "Park", "Five k", "Personal, Sport"},
        {"third, moved", found[2], "Run", "Park", "Five k", "Personal, Sport"},
        {"fourth, renamed", found[3], "Long run", "Park", "Five k", "Personal, Sport"},
        {"copy of the fifth", copy.get(), "Run", "Park", "Five k", "Personal, Sport"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text(c.item, &IAppointment::get_Subject), c.subject) << c.name;
        EXPECT_EQ(text(c.item, &IAppointment::get_Location), c.location) << c.name;
        EXPECT_EQ(text(c.item, &IAppointment::get_Body), c.body) << c.name;
        EXPECT_EQ(text(c.item, &IAppointment::get_Categories), c.categories) << c.name;
    }
    // A fresh walk sees what was saved.
    std::vector<IAppointment*> again;
    walk(again);
    ASSERT_EQ(again.size(), 5u);
    std::vector<std::string> subjects;
    for (IAppointment* a : again) subjects.push_back(text(a, &IAppointment::get_Subject));
    EXPECT_EQ(subjects, (std::vector<std::string>{"Run", "Run", "Run", "Long run", "Run"}));
}

// A walk that lets each item go before asking for the next, as the views'
// walks do, reads every item as stored, however the item before it was
// left: changed and never saved, its pattern changed, or kept by the
// caller and changed on after the walk went on.
TEST(Items, AWalkThatLetsItemsGoReadsEachAsStored) {
    const std::string ics =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//tests//EN\r\n"
        "BEGIN:VEVENT\r\nUID:a@example.com\r\nDTSTAMP:20260101T000000Z\r\n"
        "DTSTART:20261102T080000\r\nDTEND:20261102T090000\r\nSUMMARY:Alpha\r\nTRANSP:TRANSPARENT\r\nEND:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:b@example.com\r\nDTSTAMP:20260101T000000Z\r\n"
        "DTSTART:20261103T100000\r\nDTEND:20261103T113000\r\nSUMMARY:Beta\r\nEND:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:c@example.com\r\nDTSTAMP:20260101T000000Z\r\n"
        "DTSTART:20261104T120000\r\nDTEND:20261104T123000\r\nRRULE:FREQ=DAILY;COUNT=3\r\n"
        "SUMMARY:Gamma\r\nCATEGORIES:Business\r\nEND:VEVENT\r\n"
        "END:VCALENDAR\r\n";
    TempStore store(ics);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    struct Seen {
        std::string subject, categories;
        DATE start = 0;
        long busy = -1;
        VARIANT_BOOL recurring = VARIANT_FALSE;
    };
    auto read = [](IAppointment* a) {
        Seen s;
        BSTR b = nullptr;
        a->get_Subject(&b);
        s.subject = Narrow(b ? b : L"");
        SysFreeString(b);
        b = nullptr;
        a->get_Categories(&b);
        s.categories = Narrow(b ? b : L"");
        SysFreeString(b);
        a->get_Start(&s.start);
        a->get_BusyStatus(&s.busy);
        a->get_IsRecurring(&s.recurring);
        return s;
    };
    std::vector<Seen> seen;
    ComPtr<IAppointment> kept;
    WalkLikeTheProgram(server.calendar.get(), monthstore::kTemplates[0], {2026, 11, 1}, {2026, 11, 30},
                       [&](IAppointment* item) {
                           seen.push_back(read(item));
                           switch (seen.size()) {
                           case 1:  // changed, never saved
                               item->put_Subject(Bstr(L"Unsaved"));
                               item->put_BusyStatus(3);
                               break;
                           case 2:  // kept past the walk
                               kept.Reset(item);
                               kept->AddRef();
                               break;
                           case 3: {  // its series' pattern changed, never saved
                               ComPtr<IRecurrencePattern> pattern;
                               if (SUCCEEDED(item->GetRecurrencePattern(&pattern)) && pattern)
                                   pattern->put_Occurrences(9);
                               break;
                           }
                           }
                       });
    ASSERT_EQ(seen.size(), 5u);
    const char* subjects[] = {"Alpha", "Beta", "Gamma", "Gamma", "Gamma"};
    const long busy[] = {0, 2, 2, 2, 2};
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].subject, subjects[i]) << i;
        EXPECT_EQ(seen[i].busy, busy[i]) << i;
        EXPECT_EQ(seen[i].recurring != VARIANT_FALSE, i >= 2) << i;
        EXPECT_EQ(seen[i].categories, i >= 2 ? "Business" : "") << i;
        if (i) {
            EXPECT_GT(seen[i].start, seen[i - 1].start) << i;
        }
    }
    // The kept item is still the second, and changes on its own.
    ASSERT_TRUE(kept);
    EXPECT_EQ(read(kept.get()).subject, "Beta");
    EXPECT_EQ(read(kept.get()).start, seen[1].start);
    // Saved changed, it writes its own change and nothing of the items
    // handed out before it.
    ASSERT_EQ(kept->put_Subject(Bstr(L"Beta two")), S_OK);
    ASSERT_EQ(kept->Save(), S_OK);
    std::string after = ReadBytes(store.path());
    EXPECT_NE(after.find("SUMMARY:Beta two"), std::string::npos) << after;
    for (const char* line : {"SUMMARY:Alpha\r\nTRANSP:TRANSPARENT", "SUMMARY:Gamma", "COUNT=3"})
        EXPECT_NE(after.find(line), std::string::npos) << line << after;
    for (const char* line : {"Unsaved", "OOF", "COUNT=9"}) EXPECT_EQ(after.find(line), std::string::npos) << line;
    EXPECT_EQ(after.find("Unsaved"), std::string::npos);
}
