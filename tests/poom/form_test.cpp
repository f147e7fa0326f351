// The calendar server's appointment form, shown through IAppointment::Display on the real
// server over real store files (one .ics and a directory of them), driven as the user drives it
// and judged by what the store holds afterwards, read back through the engine.
#include "com_support.h"

#include <commctrl.h>

#include <functional>
#include <map>

#include "form/formids.h"
#include "ical.h"
#include "shell/input.h"
#include "support/drive.h"

namespace {

const char kFormIcs[] =
    "BEGIN:VCALENDAR\r\n"
    "VERSION:2.0\r\n"
    "PRODID:-//Example//Form test//EN\r\n"
    "BEGIN:VTIMEZONE\r\n"
    "TZID:Europe/Berlin\r\n"
    "BEGIN:STANDARD\r\n"
    "DTSTART:19701025T030000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU\r\n"
    "TZOFFSETFROM:+0200\r\n"
    "TZOFFSETTO:+0100\r\n"
    "END:STANDARD\r\n"
    "BEGIN:DAYLIGHT\r\n"
    "DTSTART:19700329T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU\r\n"
    "TZOFFSETFROM:+0100\r\n"
    "TZOFFSETTO:+0200\r\n"
    "END:DAYLIGHT\r\n"
    "END:VTIMEZONE\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:standup@example.com\r\n"
    "DTSTAMP:20260101T000000Z\r\n"
    "DTSTART;TZID=Europe/Berlin:20260105T093000\r\n"
    "DTEND;TZID=Europe/Berlin:20260105T094500\r\n"
    "RRULE:FREQ=WEEKLY;BYDAY=MO,WE\r\n"
    "SUMMARY:Standup\r\n"
    "CATEGORIES:Work\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:review@example.com\r\n"
    "DTSTAMP:20260101T000000Z\r\n"
    "DTSTART:20260210T140000\r\n"
    "DTEND:20260210T150000\r\n"
    "SUMMARY:Review\r\n"
    "LOCATION:Room 4\r\n"
    "CATEGORIES:Work,Projects\r\n"
    "X-ODD-PROPERTY;X-P=\"a;b\":value\\, kept\r\n"
    "ATTENDEE;CN=Someone:mailto:someone@example.com\r\n"
    "BEGIN:VALARM\r\n"
    "ACTION:EMAIL\r\n"
    "TRIGGER;VALUE=DATE-TIME:20260210T080000Z\r\n"
    "SUMMARY:mail\r\n"
    "DESCRIPTION:mail me\r\n"
    "ATTENDEE:mailto:me@example.com\r\n"
    "END:VALARM\r\n"
    "END:VEVENT\r\n"
    "END:VCALENDAR\r\n";

// The lines of a component as they stand in a store text, from its BEGIN to its END.
std::string Block(const std::string& text, const std::string& firstLine, const std::string& end) {
    size_t at = text.find(firstLine);
    if (at == std::string::npos) return std::string();
    size_t begin = text.rfind("BEGIN:", at);
    size_t stop = text.find(end, at);
    return stop == std::string::npos ? std::string() : text.substr(begin, stop + end.size() - begin);
}

// One store of the form tests: a single file, or the same events as a directory of files.
struct FormStore {
    bool directory;
    std::unique_ptr<TempStore> temp;
    std::wstring path;  // the file, or the directory

    FormStore(bool dir, const std::string& ics = kFormIcs) : directory(dir) {
        if (!dir) {
            temp.reset(new TempStore(ics));
            path = temp->path();
            return;
        }
        temp.reset(new TempStore(std::string(), L"unused.ics"));
        path = temp->dir() + L"\\vdir";
        CreateDirectoryW(path.c_str(), nullptr);
        // Split by UID: the time zone travels with each event that uses it.
        std::string head = ics.substr(0, ics.find("BEGIN:VEVENT"));
        size_t pos = 0;
        int n = 0;
        while ((pos = ics.find("BEGIN:VEVENT", pos)) != std::string::npos) {
            size_t end = ics.find("END:VEVENT\r\n", pos) + 12;
            WriteBytes(path + L"\\event" + std::to_wstring(++n) + L".ics",
                       head + ics.substr(pos, end - pos) + "END:VCALENDAR\r\n");
            pos = end;
        }
        SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", path.c_str());
    }

    // Every byte of the store, its files in name order.
    std::string Text() const {
        if (!directory) return ReadBytes(path);
        std::map<std::wstring, std::string> files;
        WIN32_FIND_DATAW fd;
        HANDLE h = FindFirstFileW((path + L"\\*.ics").c_str(), &fd);
        if (h != INVALID_HANDLE_VALUE) {
            do files[fd.cFileName] = ReadBytes(path + L"\\" + fd.cFileName);
            while (FindNextFileW(h, &fd));
            FindClose(h);
        }
        std::string all;
        for (const auto& f : files) all += f.second;
        return all;
    }

    // The store as the engine reads it.
    std::unique_ptr<lfical::Store> Engine() const {
        std::unique_ptr<lfical::Store> s(new lfical::Store);
        std::vector<lfical::Problem> problems;
        EXPECT_TRUE(s->load(Narrow(path), &problems)) << Narrow(path);
        return s;
    }
};

const char* StoreKind(bool directory) { return directory ? "directory store" : "single-file store"; }

// Runs the form on the appointment with the script; the script closes it.
void InForm(IAppointment* appt, const std::function<void(HWND)>& script) {
    HRESULT shown = E_FAIL;
    RunScripted([&] {
        shown = appt->Display();
        return (INT_PTR)0;
    }, script);
    EXPECT_EQ(shown, S_OK);
}

void SetText(HWND dlg, int id, const wchar_t* text) { SetDlgItemTextW(dlg, id, text); }

// A list's entry chosen as a click in its drop-down would: the selection, then the notice.
void Choose(HWND dlg, int id, int index) {
    SendDlgItemMessageW(dlg, id, CB_SETCURSEL, index, 0);
    SendMessageW(dlg, WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE), (LPARAM)GetDlgItem(dlg, id));
}

void SetDay(HWND dlg, int id, int y, int m, int d) {
    SYSTEMTIME st = {};
    st.wYear = (WORD)y;
    st.wMonth = (WORD)m;
    st.wDay = (WORD)d;
    DateTime_SetSystemtime(GetDlgItem(dlg, id), GDT_VALID, &st);
}

// The weekday box showing that weekday (0 Sunday), found by its text.
int WeekdayBox(HWND dlg, int weekday) {
    wchar_t name[40] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SABBREVDAYNAME1 + (weekday + 6) % 7, name, 40);
    for (int id = IDC_FORM_WEEKDAY0; id <= IDC_FORM_WEEKDAY6; ++id) {
        wchar_t text[40] = L"";
        GetDlgItemTextW(dlg, id, text, 40);
        if (lstrcmpW(text, name) == 0) return id;
    }
    ADD_FAILURE() << "no box for weekday " << weekday;
    return IDC_FORM_WEEKDAY0;
}

// The entry of a drop-down list whose text is `text`.
int EntryOf(HWND dlg, int id, const wchar_t* text) {
    return (int)SendDlgItemMessageW(dlg, id, CB_FINDSTRINGEXACT, (WPARAM)-1, (LPARAM)text);
}

int WeekdayEntry(HWND dlg, int weekday) {
    wchar_t name[40] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SDAYNAME1 + (weekday + 6) % 7, name, 40);
    return EntryOf(dlg, IDC_FORM_NTHWEEKDAY, name);
}

// A new appointment, not yet in the store, at the given day and times (a reference for the caller).
IAppointment* NewItem(Server& server, int y, int m, int d, int h1, int m1, int h2, int m2) {
    IDispatch* made = nullptr;
    EXPECT_EQ(server.app->CreateItem(olAppointmentItem, &made), S_OK);
    ComPtr<IAppointment> appt;
    AsAppointment(made, appt);
    if (made) made->Release();
    if (appt) {
        appt->put_Start(OleDate(server.app.get(), y, m, d, h1, m1));
        appt->put_End(OleDate(server.app.get(), y, m, d, h2, m2));
    }
    return appt.Detach();
}

IAppointment* ItemNamed(Server& server, const wchar_t* subject) {
    long oid = OidOf(server.calendar.get(), subject);
    EXPECT_NE(oid, 0) << Narrow(subject);
    IDispatch* d = nullptr;
    EXPECT_EQ(server.app->GetItemFromOid(oid, &d), S_OK);
    ComPtr<IAppointment> appt;
    AsAppointment(d, appt);
    if (d) d->Release();
    return appt.Detach();
}

std::vector<lfical::EventId> EventsTitled(const lfical::Store& s, const std::string& summary) {
    std::vector<lfical::EventId> out;
    for (auto id : s.events())
        if (s.info(id).summary == summary) out.push_back(id);
    return out;
}

std::wstring ServerText(UINT id) {
    wchar_t buf[400] = L"";
    LoadStringW(GetModuleHandleW(L"lfpoom.dll"), id, buf, 400);
    return buf;
}

}  // namespace

TEST(AppointmentForm, NewItemSavedOnOkOnlyWhenChanged) {
    for (bool directory : {false, true}) {
        SCOPED_TRACE(StoreKind(directory));
        FormStore store(directory);
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        std::string before = store.Text();

        // Cancel and Escape: nothing is added, even after typing.
        ComPtr<IAppointment> appt(NewItem(server, 2026, 3, 2, 9, 0, 10, 0));
        InForm(appt.get(), [&](HWND dlg) {
            Type(GetDlgItem(dlg, IDC_FORM_SUBJECT), L"Never saved");
            Click(dlg, IDCANCEL);
        });
        InForm(appt.get(), [&](HWND dlg) {
            Type(GetDlgItem(dlg, IDC_FORM_SUBJECT), L"Never saved");
            Key(GetFocus(), VK_ESCAPE);
        });
        // OK on a new appointment left as it came adds nothing either.
        InForm(appt.get(), [&](HWND) { Key(GetFocus(), VK_RETURN); });
        EXPECT_EQ(store.Text(), before);

        // A typed subject and Enter: one new event with the form's values.
        InForm(appt.get(), [&](HWND dlg) {
            EXPECT_EQ(GetFocus(), GetDlgItem(dlg, IDC_FORM_SUBJECT));
            Type(GetFocus(), L"Lunch with Ann");
            Key(GetFocus(), VK_TAB);
            EXPECT_EQ(GetFocus(), GetDlgItem(dlg, IDC_FORM_LOCATION));
            Type(GetFocus(), L"Cafe");
            Key(GetFocus(), VK_RETURN);
        });
        auto engine = store.Engine();
        auto made = EventsTitled(*engine, "Lunch with Ann");
        ASSERT_EQ(made.size(), 1u);
        lfical::EventInfo info = engine->info(made[0]);
        EXPECT_EQ(info.location, "Cafe");
        EXPECT_EQ(lfical::formatCivil(info.start.civil, false), "20260302T090000");
        EXPECT_EQ(lfical::formatCivil(info.end.civil, false), "20260302T100000");
        EXPECT_TRUE(info.rrule.empty());
        EXPECT_EQ(engine->eventCount(), 3u);
    }
}

TEST(AppointmentForm, EditsAPlainAppointmentAndKeepsWhatItDoesNotShow) {
    for (bool directory : {false, true}) {
        SCOPED_TRACE(StoreKind(directory));
        FormStore store(directory);
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        std::string before = store.Text();
        std::string alarm = Block(before, "ACTION:EMAIL", "END:VALARM\r\n");
        std::string zone = Block(before, "TZID:Europe/Berlin\r\n", "END:VTIMEZONE\r\n");
        std::string standup = Block(before, "UID:standup@example.com", "END:VEVENT\r\n");
        ASSERT_FALSE(alarm.empty());

        ComPtr<IAppointment> appt(ItemNamed(server, L"Review"));
        // OK with nothing changed writes nothing.
        InForm(appt.get(), [&](HWND) { Key(GetFocus(), VK_RETURN); });
        EXPECT_EQ(store.Text(), before);

        InForm(appt.get(), [&](HWND dlg) {
            SetText(dlg, IDC_FORM_SUBJECT, L"Design review");
            Click(dlg, IDOK);
        });
        std::string after = store.Text();
        EXPECT_NE(after.find("SUMMARY:Design review\r\n"), std::string::npos);
        EXPECT_EQ(after.find("SUMMARY:Review\r\n"), std::string::npos);
        for (const char* kept : {"X-ODD-PROPERTY;X-P=\"a;b\":value\\, kept\r\n",
                                 "ATTENDEE;CN=Someone:mailto:someone@example.com\r\n",
                                 "DTSTART:20260210T140000\r\n", "DTEND:20260210T150000\r\n",
                                 "LOCATION:Room 4\r\n", "CATEGORIES:Work,Projects\r\n"})
            EXPECT_NE(after.find(kept), std::string::npos) << kept;
        EXPECT_NE(after.find(alarm), std::string::npos) << "the alarm the form cannot show";
        EXPECT_NE(after.find(zone), std::string::npos) << "the time zone";
        EXPECT_NE(after.find(standup), std::string::npos) << "the untouched series";

        // Times, all day, busy status, sensitivity, reminder, categories and notes.
        InForm(appt.get(), [&](HWND dlg) {
            SetText(dlg, IDC_FORM_STARTTIME, L"3:15 pm");
            SetText(dlg, IDC_FORM_ENDTIME, L"16.45");
            Choose(dlg, IDC_FORM_BUSY, olOutOfOffice);
            Choose(dlg, IDC_FORM_SENSITIVITY, olPrivate);
            Choose(dlg, IDC_FORM_REMINDER, EntryOf(dlg, IDC_FORM_REMINDER, L"30 minutes"));
            HWND list = GetDlgItem(dlg, IDC_FORM_CATEGORIES);
            LVFINDINFOW find = {LVFI_STRING, L"Projects", 0, {0, 0}, 0};
            int at = ListView_FindItem(list, -1, &find);
            ASSERT_GE(at, 0);
            ListView_SetCheckState(list, at, FALSE);
            SetText(dlg, IDC_FORM_OTHERCATEGORIES, L"Urgent, Work");
            SetText(dlg, IDC_FORM_NOTES, L"first line\r\nsecond line");
            Click(dlg, IDOK);
        });
        auto engine = store.Engine();
        auto edited = EventsTitled(*engine, "Design review");
        ASSERT_EQ(edited.size(), 1u);
        lfical::EventInfo info = engine->info(edited[0]);
        EXPECT_EQ(lfical::formatCivil(info.start.civil, false), "20260210T151500");
        EXPECT_EQ(lfical::formatCivil(info.end.civil, false), "20260210T164500");
        EXPECT_EQ(info.busy, lfical::Busy::OutOfOffice);
        EXPECT_EQ(info.cls, "PRIVATE");
        EXPECT_EQ(info.alarmMinutes, 30);
        EXPECT_EQ(info.categories, (std::vector<std::string>{"Work", "Urgent"}));
        EXPECT_EQ(info.description, "first line\nsecond line");

        // All day over two days: DTEND is the day after the last.
        InForm(appt.get(), [&](HWND dlg) {
            Click(dlg, IDC_FORM_ALLDAY);
            EXPECT_FALSE(IsWindowEnabled(GetDlgItem(dlg, IDC_FORM_STARTTIME)));
            SetDay(dlg, IDC_FORM_ENDDATE, 2026, 2, 11);
            Click(dlg, IDOK);
        });
        engine = store.Engine();
        info = engine->info(EventsTitled(*engine, "Design review").at(0));
        EXPECT_TRUE(info.allDay);
        EXPECT_EQ(lfical::formatCivil(info.start.civil, true), "20260210");
        EXPECT_EQ(lfical::formatCivil(info.end.civil, true), "20260212");
    }
}

TEST(AppointmentForm, OneOccurrenceBecomesAnOverrideAndTheSeriesStays) {
    for (bool directory : {false, true}) {
        SCOPED_TRACE(StoreKind(directory));
        FormStore store(directory);
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        std::string standup = Block(store.Text(), "UID:standup@example.com", "END:VEVENT\r\n");
        long oid = OidOf(server.calendar.get(), L"Standup");
        ComPtr<IAppointment> series;
        {
            IDispatch* d = nullptr;
            ASSERT_EQ(server.app->GetItemFromOid(oid, &d), S_OK);
            AsAppointment(d, series);
            d->Release();
        }
        DATE seriesStart = 0;
        series->get_Start(&seriesStart);
        SYSTEMTIME st;
        server.app->VariantTimeToSystemTime(seriesStart, &st);
        // The Wednesday occurrence in the second week, wherever this machine's clock puts it.
        ComPtr<IAppointment> occurrence;
        ASSERT_EQ(OccurrenceOn(server.app.get(), oid, 2026, 1, st.wDay + 9, occurrence), S_OK);
        InForm(occurrence.get(), [&](HWND dlg) {
            EXPECT_FALSE(IsWindowEnabled(GetDlgItem(dlg, IDC_FORM_RECURS))) << "an occurrence does not recur";
            SetText(dlg, IDC_FORM_SUBJECT, L"Standup in the hall");
            Click(dlg, IDOK);
        });
        std::string after = store.Text();
        EXPECT_NE(after.find(standup), std::string::npos) << "the series keeps its bytes";
        auto engine = store.Engine();
        auto changed = EventsTitled(*engine, "Standup in the hall");
        ASSERT_EQ(changed.size(), 1u);
        lfical::EventInfo info = engine->info(changed[0]);
        EXPECT_TRUE(info.hasRecurrenceId);
        EXPECT_EQ(info.uid, "standup@example.com");
        EXPECT_NE(after.find("RECURRENCE-ID;TZID=Europe/Berlin:20260114T093000\r\n"), std::string::npos);
        EXPECT_EQ(EventsTitled(*engine, "Standup").size(), 1u);
    }
}

// Each kind of recurrence, set up in the form on a new appointment and read back through the
// engine's own expansion.
struct RecurrenceCase {
    const char* name;
    int y, m, d;  // the first occurrence
    std::function<void(HWND)> set;
    std::vector<const char*> expected;  // every occurrence's day from 2026 to 2028
};

TEST(AppointmentForm, EachRecurrenceKindGivesTheEnginesOccurrences) {
    const RecurrenceCase cases[] = {
        {"daily every 3 days, 5 times", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 1);
             SetText(dlg, IDC_FORM_INTERVAL, L"3");
             Click(dlg, IDC_FORM_ENDAFTER);
             SetText(dlg, IDC_FORM_COUNT, L"5");
         },
         {"20260106", "20260109", "20260112", "20260115", "20260118"}},
        {"daily until a date", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 1);
             Click(dlg, IDC_FORM_ENDUNTIL);
             SetDay(dlg, IDC_FORM_UNTILDATE, 2026, 1, 9);
         },
         {"20260106", "20260107", "20260108", "20260109"}},
        {"every other week on Tuesday and Thursday until a date", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 2);
             SetText(dlg, IDC_FORM_INTERVAL, L"2");
             Click(dlg, WeekdayBox(dlg, 4));
             Click(dlg, IDC_FORM_ENDUNTIL);
             SetDay(dlg, IDC_FORM_UNTILDATE, 2026, 2, 5);
         },
         {"20260106", "20260108", "20260120", "20260122", "20260203", "20260205"}},
        {"every weekday, 10 times", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 2);
             for (int wd = 1; wd <= 5; ++wd)
                 if (wd != 2) Click(dlg, WeekdayBox(dlg, wd));
             Click(dlg, IDC_FORM_ENDAFTER);
             SetText(dlg, IDC_FORM_COUNT, L"10");
         },
         {"20260106", "20260107", "20260108", "20260109", "20260112", "20260113", "20260114", "20260115",
          "20260116", "20260119"}},
        {"monthly on day 6, 4 times", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 3);
             Click(dlg, IDC_FORM_ENDAFTER);
             SetText(dlg, IDC_FORM_COUNT, L"4");
         },
         {"20260106", "20260206", "20260306", "20260406"}},
        {"monthly on the first Tuesday until the year's end", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 3);
             Click(dlg, IDC_FORM_ONNTH);
             Choose(dlg, IDC_FORM_INSTANCE, 0);
             Choose(dlg, IDC_FORM_NTHWEEKDAY, WeekdayEntry(dlg, 2));
             Click(dlg, IDC_FORM_ENDUNTIL);
             SetDay(dlg, IDC_FORM_UNTILDATE, 2026, 12, 31);
         },
         {"20260106", "20260203", "20260303", "20260407", "20260505", "20260602", "20260707", "20260804",
          "20260901", "20261006", "20261103", "20261201"}},
        {"every other month on the last Friday, 3 times", 2026, 1, 30,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 3);
             SetText(dlg, IDC_FORM_INTERVAL, L"2");
             Click(dlg, IDC_FORM_ONNTH);
             Choose(dlg, IDC_FORM_INSTANCE, 4);
             Choose(dlg, IDC_FORM_NTHWEEKDAY, WeekdayEntry(dlg, 5));
             Click(dlg, IDC_FORM_ENDAFTER);
             SetText(dlg, IDC_FORM_COUNT, L"3");
         },
         {"20260130", "20260327", "20260529"}},
        {"yearly on 6 January, 3 times", 2026, 1, 6,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 4);
             Click(dlg, IDC_FORM_ENDAFTER);
             SetText(dlg, IDC_FORM_COUNT, L"3");
         },
         {"20260106", "20270106", "20280106"}},
        {"yearly on the second Sunday of May, no end", 2026, 5, 10,
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 4);
             Click(dlg, IDC_FORM_ONNTH);
             Choose(dlg, IDC_FORM_INSTANCE, 1);
             Choose(dlg, IDC_FORM_NTHWEEKDAY, WeekdayEntry(dlg, 0));
             Choose(dlg, IDC_FORM_MONTH, 4);
         },
         {"20260510", "20270509", "20280514"}},
    };
    for (bool directory : {false, true}) {
        FormStore store(directory);
        Server server;
        ASSERT_EQ(server.logon, S_OK);
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + ", " + StoreKind(directory));
            ComPtr<IAppointment> appt(NewItem(server, c.y, c.m, c.d, 10, 0, 11, 0));
            InForm(appt.get(), [&](HWND dlg) {
                std::wstring subject(c.name, c.name + strlen(c.name));
                SetText(dlg, IDC_FORM_SUBJECT, subject.c_str());
                c.set(dlg);
                Click(dlg, IDOK);
                EXPECT_FALSE(IsWindow(dlg) && IsWindowVisible(dlg)) << "the form stayed open";
            });
            auto engine = store.Engine();
            auto made = EventsTitled(*engine, c.name);
            ASSERT_EQ(made.size(), 1u);
            std::vector<std::string> days;
            for (const auto& o : engine->query(lfical::Zone::utc(), lfical::civilSeconds(2026, 1, 1),
                                               lfical::civilSeconds(2029, 1, 1), lfical::Range::HalfOpen))
                if (o.series == made[0]) days.push_back(lfical::formatCivil(o.start, true));
            EXPECT_EQ(days, std::vector<std::string>(c.expected.begin(), c.expected.end()))
                << engine->info(made[0]).rrule;

            // Opened again, the form shows the same recurrence: OK leaves it alone.
            std::string before = store.Text();
            InForm(appt.get(), [&](HWND) { Key(GetFocus(), VK_RETURN); });
            EXPECT_EQ(store.Text(), before);
        }
    }
}

// Each bad input gets its message; the form stays open and nothing is saved.
struct BadInputCase {
    const char* name;
    std::function<void(HWND)> set;
    UINT message;
};

TEST(AppointmentForm, BadInputGetsAMessageAndSavesNothing) {
    const BadInputCase cases[] = {
        {"end before start", [](HWND dlg) { SetText(dlg, IDC_FORM_ENDTIME, L"1:00"); }, IDS_FORM_ENDBEFORESTART},
        {"end date before start",
         [](HWND dlg) { SetDay(dlg, IDC_FORM_ENDDATE, 2026, 2, 9); }, IDS_FORM_ENDBEFORESTART},
        {"not a time", [](HWND dlg) { SetText(dlg, IDC_FORM_STARTTIME, L"25:99"); }, IDS_FORM_BADSTARTTIME},
        {"weekly without a weekday",
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 2);
             for (int id = IDC_FORM_WEEKDAY0; id <= IDC_FORM_WEEKDAY6; ++id) CheckDlgButton(dlg, id, BST_UNCHECKED);
         },
         IDS_FORM_NOWEEKDAY},
        {"a count of 0",
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 1);
             Click(dlg, IDC_FORM_ENDAFTER);
             SetText(dlg, IDC_FORM_COUNT, L"0");
         },
         IDS_FORM_BADCOUNT},
        {"a recurrence ending before the start",
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 1);
             Click(dlg, IDC_FORM_ENDUNTIL);
             SetDay(dlg, IDC_FORM_UNTILDATE, 2026, 2, 1);
         },
         IDS_FORM_UNTILBEFORESTART},
        {"an interval of 0",
         [](HWND dlg) {
             Choose(dlg, IDC_FORM_RECURS, 1);
             SetText(dlg, IDC_FORM_INTERVAL, L"0");
         },
         IDS_FORM_BADINTERVAL},
    };
    FormStore store(false);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    std::string before = store.Text();
    ComPtr<IAppointment> appt(ItemNamed(server, L"Review"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        InForm(appt.get(), [&](HWND dlg) {
            SetText(dlg, IDC_FORM_SUBJECT, L"Changed");
            c.set(dlg);
            std::wstring said = MessageOnOk(dlg);
            EXPECT_EQ(said, ServerText(c.message));
            EXPECT_FALSE(said.empty());
            EXPECT_TRUE(IsWindowVisible(dlg)) << "the form stays open";
            Click(dlg, IDCANCEL);
        });
        EXPECT_EQ(store.Text(), before);
    }
}

TEST(AppointmentForm, TheProgramsPokeFocusesTheSubjectAndKeysReachEveryPart) {
    FormStore store(false);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    ComPtr<IAppointment> appt(ItemNamed(server, L"Review"));
    InForm(appt.get(), [&](HWND dlg) {
        wchar_t cls[40] = L"", title[40] = L"";
        GetClassNameW(dlg, cls, 40);
        GetWindowTextW(dlg, title, 40);
        EXPECT_STREQ(cls, L"Dialog");
        EXPECT_STREQ(title, L"Calendar");
        EXPECT_EQ(GetParent(dlg), nullptr);

        // What the program's timer does: find the form and poke its "Appointment" child.
        SetFocus(GetDlgItem(dlg, IDC_FORM_NOTES));
        PokeAppointmentForm();
        EXPECT_EQ(GetFocus(), GetDlgItem(dlg, IDC_FORM_SUBJECT));

        // Alt and a label's letter reach the field behind the label.
        const struct {
            wchar_t letter;
            int id;
        } mnemonics[] = {
            {L'l', IDC_FORM_LOCATION}, {L'a', IDC_FORM_STARTDATE}, {L'e', IDC_FORM_ENDDATE},
            {L'r', IDC_FORM_REMINDER}, {L'w', IDC_FORM_BUSY},      {L'i', IDC_FORM_SENSITIVITY},
            {L'c', IDC_FORM_CATEGORIES}, {L'o', IDC_FORM_OTHERCATEGORIES}, {L'p', IDC_FORM_RECURS},
            {L't', IDC_FORM_NOTES},    {L's', IDC_FORM_SUBJECT},
        };
        for (const auto& m : mnemonics) {
            PostMessageW(GetFocus(), WM_SYSCHAR, m.letter, 1 << 29);
            Pump(0);
            EXPECT_EQ(GetFocus(), GetDlgItem(dlg, m.id)) << "Alt+" << (char)m.letter;
        }
        // Tab walks the whole form and comes back.
        int steps = 0;
        do {
            Key(GetFocus(), VK_TAB);
        } while (GetFocus() != GetDlgItem(dlg, IDC_FORM_SUBJECT) && ++steps < 60);
        EXPECT_LT(steps, 60);
        EXPECT_GT(steps, 10);
        Key(GetFocus(), VK_ESCAPE);
    });
}

// With LF_SCREENSHOT_DIR set, writes the form on a new appointment and on a recurring one,
// form-new-<locale>.bmp and form-recurring-<locale>.bmp; otherwise skipped.
static bool SaveWindow(HWND w, const std::wstring& path) {
    RECT rc;
    GetWindowRect(w, &rc);
    int width = rc.right - rc.left, height = rc.bottom - rc.top;
    BITMAPINFOHEADER ih = {sizeof(ih), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* bits = nullptr;
    HDC dc = CreateCompatibleDC(nullptr), surface = GetWindowDC(w);
    HBITMAP bmp = CreateDIBSection(dc, (BITMAPINFO*)&ih, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(dc, bmp);
    BitBlt(dc, 0, 0, width, height, surface, 0, 0, SRCCOPY);
    GdiFlush();
    DWORD size = (DWORD)width * height * 4;
    for (DWORD i = 0; i < (DWORD)width * height; ++i) ((DWORD*)bits)[i] |= 0xFF000000;
    BITMAPFILEHEADER fh = {0x4D42, (DWORD)(sizeof(fh) + sizeof(ih)) + size, 0, 0, sizeof(fh) + sizeof(ih)};
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD done = 0;
    bool ok = f != INVALID_HANDLE_VALUE && WriteFile(f, &fh, sizeof(fh), &done, nullptr) &&
              WriteFile(f, &ih, sizeof(ih), &done, nullptr) && WriteFile(f, bits, size, &done, nullptr);
    if (f != INVALID_HANDLE_VALUE) CloseHandle(f);
    SelectObject(dc, old);
    DeleteObject(bmp);
    ReleaseDC(w, surface);
    DeleteDC(dc);
    return ok;
}

TEST(AppointmentForm, Screenshots) {
    wchar_t dir[MAX_PATH] = L"";
    if (!GetEnvironmentVariableW(L"LF_SCREENSHOT_DIR", dir, MAX_PATH))
        GTEST_SKIP() << "LF_SCREENSHOT_DIR names the folder for the screenshots";
    wchar_t locale[LOCALE_NAME_MAX_LENGTH] = L"";
    GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_SNAME, locale, LOCALE_NAME_MAX_LENGTH);
    std::wstring prefix = std::wstring(dir[0] == L'/' ? L"Z:" : L"") + dir + L"\\form-";
    FormStore store(false);
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    auto shoot = [&](IAppointment* appt, const std::wstring& name) {
        bool saved = false;
        InForm(appt, [&](HWND dlg) {
            RedrawWindow(dlg, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
            Pump(0);
            saved = SaveWindow(dlg, prefix + name + L"-" + locale + L".bmp");
            Click(dlg, IDCANCEL);
        });
        EXPECT_TRUE(saved) << "could not write the screenshot";
    };
    ComPtr<IAppointment> fresh(NewItem(server, 2026, 3, 2, 9, 0, 10, 0));
    shoot(fresh.get(), L"new");
    ComPtr<IAppointment> series(ItemNamed(server, L"Standup"));
    shoot(series.get(), L"recurring");
}
