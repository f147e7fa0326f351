// What the store tests share: the program started against the real server,
// its error boxes watched and answered, and the store read through the
// same queries the views make.
#pragma once

#include "support/apphost.h"
#include "support/errorboxes.h"
#include "common/appstate.h"
#include "shell/render.h"
#include "store/store.h"
#include "calendar/dates.h"
#include "poom/month_store.h"
#include <gtest/gtest.h>
#include <commctrl.h>
#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace storetest {


// Lets a message box's dismissal come through before the next step.
inline void Settle()
{
    PumpMessages(200);
}

// ---- files and the server ----------------------------------------------------

inline std::string ReadBytes(const std::wstring &path)
{
    std::string out;
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return out;
    char buf[65536];
    DWORD got = 0;
    while (ReadFile(f, buf, sizeof buf, &got, nullptr) && got)
        out.append(buf, got);
    CloseHandle(f);
    return out;
}

inline void WriteBytes(const std::wstring &path, const std::string &bytes)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD done = 0;
    WriteFile(f, bytes.data(), (DWORD)bytes.size(), &done, nullptr);
    CloseHandle(f);
}

// The server's DLL as ctest names it, for the tests that unregister it.
inline HRESULT CallServer(const char *entry)
{
    WCHAR path[MAX_PATH * 2];
    if (!GetEnvironmentVariableW(L"LF_POOM", path, MAX_PATH * 2))
        return E_FAIL;
    HMODULE dll = LoadLibraryW(path);
    if (!dll)
        return E_FAIL;
    auto call = reinterpret_cast<HRESULT(STDAPICALLTYPE *)()>(reinterpret_cast<void *>(GetProcAddress(dll, entry)));
    return call ? call() : E_FAIL;
}

inline void CloseProgram()
{
    SendMessageW(g_app.hwndMain, WM_CLOSE, 0, 0);
    PumpMessages(100);
}

// Points the open program at another store: closed and opened again
// between passes, as at a restart.
inline void SwitchStore(const std::wstring &path)
{
    EnterCriticalSection(&g_app.renderLock);
    if (g_app.storeLoggedOn)
        CloseStore();
    SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", path.c_str());
    int opened = OpenStore(g_app.hwndMain);
    LeaveCriticalSection(&g_app.renderLock);
    ASSERT_EQ(opened, 1);
}

inline SYSTEMTIME Day(int y, int m, int d)
{
    return SystemDate(m, d, y);
}

inline OleDate OleDateOf(int y, int m, int d)
{
    SYSTEMTIME st = Day(y, m, d);
    OleDate v = 0;
    SystemTimeToVariantTime(&st, &v);
    return v;
}

// What a query found, in the order it was found.
struct Found {
    std::wstring subject;
    OleDate start, end;
    long oid;
    int recurring;
};

inline int Collect(IAppointment *item, void *context)
{
    Found f = {};
    BSTR s = nullptr;
    item->get_Subject(&s);
    f.subject = s ? s : L"";
    FreeStoreString(s);
    item->get_Start(&f.start);
    item->get_End(&f.end);
    item->get_Oid(&f.oid);
    VARIANT_BOOL r = VARIANT_FALSE;
    item->get_IsRecurring(&r);
    f.recurring = r != 0;
    static_cast<std::vector<Found> *>(context)->push_back(f);
    return 1;
}

inline std::vector<Found> Query(const SYSTEMTIME &first, const SYSTEMTIME &second, const WCHAR *tmpl)
{
    std::vector<Found> out;
    QueryAppointments(first, second, tmpl, Collect, &out);
    return out;
}

// The one-day query of the day list: the same day, the second with its
// hour set to 24.
inline std::vector<Found> OnDay(int y, int m, int d)
{
    SYSTEMTIME end = Day(y, m, d);
    end.wHour = 24;
    return Query(Day(y, m, d), end, RestrictOverlapClosed);
}

inline std::wstring Subjects(const std::vector<Found> &found)
{
    std::wstring out;
    for (const Found &f : found)
        out += (out.empty() ? L"" : L", ") + f.subject;
    return out;
}

inline std::wstring Joined(const std::vector<std::wstring> &list)
{
    std::wstring out;
    for (const auto &s : list)
        out += (out.empty() ? L"" : L", ") + s;
    return out;
}

inline std::string Narrow(const std::wstring &w)
{
    return std::string(w.begin(), w.end());
}

inline long OidOf(const wchar_t *subject, int y, int m, int d)
{
    for (const Found &f : OnDay(y, m, d))
        if (f.subject == subject)
            return f.oid;
    return 0;
}

inline double TimeOfDay(OleDate when)
{
    return when - (long)when;
}

const WCHAR *const kTemplates[] = {RestrictOverlapClosed, RestrictOverlapClosed, RestrictOverlapBeforeSecond,
                                   RestrictOverlapAfterFirst};

// ---- a server whose calendar folder cannot be had --------------------------

// Stands between the program and the real server, passing every call on
// except the request for the calendar folder, which fails; counts log-offs
// and tells when the program let it go.
}  // namespace storetest
