// The calendar server through real COM activation under Wine: the DLL is
// registered into the throw-away prefix, created with CoCreateInstance and
// driven the way the program drives it, on real store files.
//
// Usage: poom_com_test PATH-TO-lfpoom.dll [gtest flags]
#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/com.h"
#include "month_store.h"
#include "pimstore_if.h"

namespace {

std::wstring g_dllPath;

// Unix paths from ctest reach us as-is; Wine serves the root as drive Z:.
std::wstring WindowsPath(const char* arg) {
    std::wstring w;
    for (const char* p = arg; *p; ++p) w += static_cast<wchar_t>(static_cast<unsigned char>(*p));
    if (!w.empty() && w[0] == L'/') {
        w = L"Z:" + w;
        for (auto& c : w)
            if (c == L'/') c = L'\\';
    }
    return w;
}

// An IDispatch handed out for an appointment, as IAppointment.
void AsAppointment(IDispatch* d, ComPtr<IAppointment>& out) {
    ASSERT_NE(d, nullptr);
    ASSERT_EQ(d->QueryInterface(IID_IAppointment, reinterpret_cast<void**>(&out)), S_OK);
}

std::string ReadBytes(const std::wstring& path) {
    std::ifstream f(path.c_str(), std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
    std::ofstream f(path.c_str(), std::ios::binary | std::ios::trunc);
    f << bytes;
}

std::string Narrow(const std::wstring& w) {
    std::string s;
    for (wchar_t c : w) s += c < 128 ? static_cast<char>(c) : '?';
    return s;
}

// A store in a fresh temporary folder, chosen through LANTERNFIELDS_STORE.
class TempStore {
public:
    explicit TempStore(const std::string& ics = monthstore::kIcs, const wchar_t* name = L"calendar.ics") {
        wchar_t tmp[MAX_PATH];
        GetTempPathW(MAX_PATH, tmp);
        static int counter = 0;
        dir_ = std::wstring(tmp) + L"poomtest-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
               std::to_wstring(++counter);
        CreateDirectoryW(dir_.c_str(), nullptr);
        path_ = dir_ + L"\\" + name;
        if (!ics.empty()) WriteBytes(path_, ics);
        SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", path_.c_str());
    }
    ~TempStore() {
        SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", nullptr);
        RemoveTree(dir_);
    }
    const std::wstring& path() const { return path_; }
    const std::wstring& dir() const { return dir_; }

    static void RemoveTree(const std::wstring& dir) {
        WIN32_FIND_DATAW fd;
        HANDLE h = FindFirstFileW((dir + L"\\*").c_str(), &fd);
        if (h != INVALID_HANDLE_VALUE) {
            do {
                std::wstring name = fd.cFileName;
                if (name == L"." || name == L"..") continue;
                std::wstring full = dir + L"\\" + name;
                if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                    RemoveTree(full);
                else
                    DeleteFileW(full.c_str());
            } while (FindNextFileW(h, &fd));
            FindClose(h);
        }
        RemoveDirectoryW(dir.c_str());
    }

private:
    std::wstring dir_, path_;
};

// The application object logged on to the current store, with its calendar.
struct Server {
    ComPtr<IPOutlookApp> app;
    ComPtr<IFolder> calendar;
    HRESULT logon = E_FAIL;

    explicit Server(HWND hwnd = nullptr) {
        HRESULT hr = CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                      reinterpret_cast<void**>(&app));
        EXPECT_EQ(hr, S_OK);
        if (FAILED(hr)) return;
        logon = app->Logon(static_cast<long>(reinterpret_cast<LONG_PTR>(hwnd)));
        if (SUCCEEDED(logon)) { EXPECT_EQ(app->GetDefaultFolder(olFolderCalendar, &calendar), S_OK); }
    }
    ~Server() {
        calendar.Reset();
        if (app && SUCCEEDED(logon)) app->Logoff();
    }
};

std::wstring ShortDate(int y, int m, int d) {
    SYSTEMTIME st = {};
    st.wYear = static_cast<WORD>(y);
    st.wMonth = static_cast<WORD>(m);
    st.wDay = static_cast<WORD>(d);
    wchar_t buf[50] = {};
    GetDateFormatW(LOCALE_SYSTEM_DEFAULT, DATE_SHORTDATE, &st, nullptr, buf, 50);
    return buf;
}

struct Found {
    std::wstring subject;
    DATE start = 0, end = 0;
    long oid = 0;
};

// A date-range query exactly as the program makes it: the restriction from
// its template and the locale's short dates, a fresh sorted collection with
// recurrences, and a Find/FindNext walk.
std::vector<Found> QueryLikeTheProgram(IFolder* folder, const wchar_t* tmpl, monthstore::Day a,
                                       monthstore::Day b, std::wstring* restrictionOut = nullptr) {
    std::vector<Found> out;
    wchar_t restriction[200];
    wsprintfW(restriction, tmpl, ShortDate(a.y, a.m, a.d).c_str(), ShortDate(b.y, b.m, b.d).c_str());
    if (restrictionOut) *restrictionOut = restriction;
    ComPtr<IPOutlookItemCollection> items;
    EXPECT_EQ(folder->get_Items(&items), S_OK);
    if (!items) return out;
    EXPECT_EQ(items->Sort(Bstr(L"[Start]"), VARIANT_FALSE), S_OK);
    EXPECT_EQ(items->put_IncludeRecurrences(VARIANT_TRUE), S_OK);
    IDispatch* item = nullptr;
    HRESULT hr = items->Find(Bstr(restriction), &item);
    EXPECT_EQ(hr, S_OK) << Narrow(restriction);
    while (SUCCEEDED(hr) && item) {
        ComPtr<IAppointment> appt;
        AsAppointment(item, appt);
        item->Release();
        Found f;
        BSTR subject = nullptr;
        EXPECT_EQ(appt->get_Subject(&subject), S_OK);
        f.subject = subject ? subject : L"";
        SysFreeString(subject);
        EXPECT_EQ(appt->get_Start(&f.start), S_OK);
        EXPECT_EQ(appt->get_End(&f.end), S_OK);
        EXPECT_EQ(appt->get_Oid(&f.oid), S_OK);
        out.push_back(f);
        item = nullptr;
        hr = items->FindNext(&item);
    }
    return out;
}

std::vector<Found> OneDay(IFolder* folder, int y, int m, int d) {
    return QueryLikeTheProgram(folder, monthstore::kTemplates[0], {y, m, d}, {y, m, d});
}

long OidOf(IFolder* folder, const wchar_t* subject) {
    ComPtr<IPOutlookItemCollection> items;
    EXPECT_EQ(folder->get_Items(&items), S_OK);
    int count = 0;
    EXPECT_EQ(items->get_Count(&count), S_OK);
    for (int i = 1; i <= count; ++i) {
        IDispatch* d = nullptr;
        EXPECT_EQ(items->Item(i, &d), S_OK);
        ComPtr<IAppointment> appt;
        AsAppointment(d, appt);
        d->Release();
        BSTR s = nullptr;
        appt->get_Subject(&s);
        bool same = s && std::wstring(s) == subject;
        SysFreeString(s);
        long oid = 0;
        appt->get_Oid(&oid);
        if (same) return oid;
    }
    return 0;
}

// Every subject in the store, once per item.
std::multiset<std::wstring> AllSubjects(IFolder* folder) {
    std::multiset<std::wstring> out;
    ComPtr<IPOutlookItemCollection> items;
    EXPECT_EQ(folder->get_Items(&items), S_OK);
    int count = 0;
    EXPECT_EQ(items->get_Count(&count), S_OK);
    for (int i = 1; i <= count; ++i) {
        IDispatch* d = nullptr;
        EXPECT_EQ(items->Item(i, &d), S_OK);
        ComPtr<IAppointment> appt;
        AsAppointment(d, appt);
        d->Release();
        BSTR s = nullptr;
        appt->get_Subject(&s);
        out.insert(s ? s : L"");
        SysFreeString(s);
    }
    return out;
}

DATE OleDate(IPOutlookApp* app, int y, int m, int d, int h = 0, int mi = 0) {
    SYSTEMTIME st = {};
    st.wYear = static_cast<WORD>(y);
    st.wMonth = static_cast<WORD>(m);
    st.wDay = static_cast<WORD>(d);
    st.wHour = static_cast<WORD>(h);
    st.wMinute = static_cast<WORD>(mi);
    DATE out = 0;
    EXPECT_EQ(app->SystemTimeToVariantTime(&st, &out), S_OK);
    return out;
}

// The occurrence of a series on a given day, as the program reaches it: the
// series' start moved to that day, then GetOccurrence.
HRESULT OccurrenceOn(IPOutlookApp* app, long oid, int y, int m, int d, ComPtr<IAppointment>& out) {
    IDispatch* disp = nullptr;
    HRESULT hr = app->GetItemFromOid(oid, &disp);
    if (FAILED(hr)) return hr;
    ComPtr<IAppointment> series;
    AsAppointment(disp, series);
    disp->Release();
    DATE start = 0;
    series->get_Start(&start);
    SYSTEMTIME st;
    app->VariantTimeToSystemTime(start, &st);
    st.wYear = static_cast<WORD>(y);
    st.wMonth = static_cast<WORD>(m);
    st.wDay = static_cast<WORD>(d);
    app->SystemTimeToVariantTime(&st, &start);
    ComPtr<IRecurrencePattern> pattern;
    hr = series->GetRecurrencePattern(&pattern);
    if (FAILED(hr)) return hr;
    return pattern->GetOccurrence(start, &out);
}

std::vector<std::wstring> Subjects(const std::vector<Found>& list) {
    std::vector<std::wstring> out;
    for (const auto& f : list) out.push_back(f.subject);
    return out;
}

std::string Joined(const std::vector<std::wstring>& list) {
    std::string s;
    for (const auto& w : list) s += "[" + Narrow(w) + "]";
    return s;
}

// The month store split into a directory with one file per UID.
void WriteVdir(const std::wstring& dir) {
    CreateDirectoryW(dir.c_str(), nullptr);
    for (const auto& file : monthstore::VdirFiles())
        WriteBytes(dir + L"\\" + std::wstring(file.first.begin(), file.first.end()), file.second);
}

}  // namespace

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
    EXPECT_EQ(appt->Display(), E_NOTIMPL);
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
    // Ours is still held, and saved over theirs when asked again.
    BSTR s = nullptr;
    mine->get_Subject(&s);
    EXPECT_STREQ(s, L"Dentist (mine)");
    SysFreeString(s);
    EXPECT_EQ(Joined(Subjects(OneDay(a.calendar.get(), 2026, 11, 5))), "[Dentist (theirs)]");
    ASSERT_EQ(mine->Save(), S_OK);
    EXPECT_NE(ReadBytes(store.path()).find("SUMMARY:Dentist (mine)"), std::string::npos);
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
