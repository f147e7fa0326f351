// What the calendar server's COM tests share: stores in temporary folders,
// the logged-on server, and queries and item lookups made the way the
// program makes them.
#pragma once

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

// The server DLL under test, as a Windows path (main sets it).
inline std::wstring g_dllPath;

// Unix paths from ctest reach us as-is; Wine serves the root as drive Z:.
inline std::wstring WindowsPath(const char* arg) {
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
inline void AsAppointment(IDispatch* d, ComPtr<IAppointment>& out) {
    ASSERT_NE(d, nullptr);
    ASSERT_EQ(d->QueryInterface(IID_IAppointment, reinterpret_cast<void**>(&out)), S_OK);
}

inline std::string ReadBytes(const std::wstring& path) {
    std::ifstream f(path.c_str(), std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

inline void WriteBytes(const std::wstring& path, const std::string& bytes) {
    std::ofstream f(path.c_str(), std::ios::binary | std::ios::trunc);
    f << bytes;
}

inline std::string Narrow(const std::wstring& w) {
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

inline std::wstring ShortDate(int y, int m, int d) {
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
// recurrences, and a Find/FindNext walk that hands each appointment to
// `visit` and lets it go before asking for the next (a visitor that keeps
// one takes a reference of its own).
template <class Visit>
inline void WalkLikeTheProgram(IFolder* folder, const wchar_t* tmpl, monthstore::Day a, monthstore::Day b,
                               Visit visit, std::wstring* restrictionOut = nullptr) {
    wchar_t restriction[200];
    wsprintfW(restriction, tmpl, ShortDate(a.y, a.m, a.d).c_str(), ShortDate(b.y, b.m, b.d).c_str());
    if (restrictionOut) *restrictionOut = restriction;
    ComPtr<IPOutlookItemCollection> items;
    EXPECT_EQ(folder->get_Items(&items), S_OK);
    if (!items) return;
    EXPECT_EQ(items->Sort(Bstr(L"[Start]"), VARIANT_FALSE), S_OK);
    EXPECT_EQ(items->put_IncludeRecurrences(VARIANT_TRUE), S_OK);
    IDispatch* item = nullptr;
    HRESULT hr = items->Find(Bstr(restriction), &item);
    EXPECT_EQ(hr, S_OK) << Narrow(restriction);
    while (SUCCEEDED(hr) && item) {
        ComPtr<IAppointment> appt;
        AsAppointment(item, appt);
        item->Release();
        visit(appt.get());
        appt.Reset();
        item = nullptr;
        hr = items->FindNext(&item);
    }
}

inline std::vector<Found> QueryLikeTheProgram(IFolder* folder, const wchar_t* tmpl, monthstore::Day a,
                                              monthstore::Day b, std::wstring* restrictionOut = nullptr) {
    std::vector<Found> out;
    WalkLikeTheProgram(
        folder, tmpl, a, b,
        [&](IAppointment* appt) {
            Found f;
            BSTR subject = nullptr;
            EXPECT_EQ(appt->get_Subject(&subject), S_OK);
            f.subject = subject ? subject : L"";
            SysFreeString(subject);
            EXPECT_EQ(appt->get_Start(&f.start), S_OK);
            EXPECT_EQ(appt->get_End(&f.end), S_OK);
            EXPECT_EQ(appt->get_Oid(&f.oid), S_OK);
            out.push_back(f);
        },
        restrictionOut);
    return out;
}

inline std::vector<Found> OneDay(IFolder* folder, int y, int m, int d) {
    return QueryLikeTheProgram(folder, monthstore::kTemplates[0], {y, m, d}, {y, m, d});
}

inline long OidOf(IFolder* folder, const wchar_t* subject) {
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
inline std::multiset<std::wstring> AllSubjects(IFolder* folder) {
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

inline DATE OleDate(IPOutlookApp* app, int y, int m, int d, int h = 0, int mi = 0) {
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
inline HRESULT OccurrenceOn(IPOutlookApp* app, long oid, int y, int m, int d, ComPtr<IAppointment>& out) {
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

inline std::vector<std::wstring> Subjects(const std::vector<Found>& list) {
    std::vector<std::wstring> out;
    for (const auto& f : list) out.push_back(f.subject);
    return out;
}

inline std::string Joined(const std::vector<std::wstring>& list) {
    std::string s;
    for (const auto& w : list) s += "[" + Narrow(w) + "]";
    return s;
}

// The month store split into a directory with one file per UID.
inline void WriteVdir(const std::wstring& dir) {
    CreateDirectoryW(dir.c_str(), nullptr);
    for (const auto& file : monthstore::VdirFiles())
        WriteBytes(dir + L"\\" + std::wstring(file.first.begin(), file.first.end()), file.second);
}

// The child side of the interrupted-save test (com_store_test.cpp).
int SaveLoop(int first);
