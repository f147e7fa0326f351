// The program's side of the calendar store, run against the real calendar
// server through COM: opening and closing, each failure the user is told
// about at start-up, the date-range queries the views make, and the
// operations on one appointment.
//
// Each start-up failure runs in a process of its own (ctest picks them by
// test name), as the program starts once per process.
#include "support/apphost.h"
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

namespace {

// ---- message boxes ---------------------------------------------------------

// Watches for the program's "Error" boxes, notes their text and owner and
// presses OK, so a failure shown during start-up does not stop the test.
class ErrorBoxes {
public:
    struct Box {
        std::wstring text;
        HWND owner;
    };
    ErrorBoxes() { thread_ = CreateThread(nullptr, 0, Watch, this, 0, nullptr); }
    ~ErrorBoxes()
    {
        stop_ = true;
        WaitForSingleObject(thread_, 5000);
        CloseHandle(thread_);
    }
    std::vector<Box> Seen()
    {
        std::lock_guard<std::mutex> lock(mu_);
        return seen_;
    }
    std::vector<std::wstring> Texts()
    {
        std::vector<std::wstring> out;
        for (const Box &b : Seen())
            out.push_back(b.text);
        return out;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> lock(mu_);
        seen_.clear();
    }

private:
    static DWORD WINAPI Watch(void *self)
    {
        auto *me = static_cast<ErrorBoxes *>(self);
        while (!me->stop_) {
            EnumWindows(Found, (LPARAM)me);
            Sleep(20);
        }
        return 0;
    }
    static BOOL CALLBACK LongestStatic(HWND child, LPARAM out)
    {
        WCHAR cls[32], text[512];
        GetClassNameW(child, cls, 32);
        GetWindowTextW(child, text, 512);
        auto *best = reinterpret_cast<std::wstring *>(out);
        if (!lstrcmpiW(cls, L"Static") && wcslen(text) > best->size())
            *best = text;
        return TRUE;
    }
    static BOOL CALLBACK Found(HWND h, LPARAM self)
    {
        auto *me = reinterpret_cast<ErrorBoxes *>(self);
        DWORD pid = 0;
        GetWindowThreadProcessId(h, &pid);
        WCHAR cls[32], caption[64];
        GetClassNameW(h, cls, 32);
        GetWindowTextW(h, caption, 64);
        if (pid != GetCurrentProcessId() || lstrcmpW(cls, L"#32770") || lstrcmpW(caption, L"Error") ||
            !IsWindowVisible(h) || me->handled_.count(h))
            return TRUE;
        Box box;
        EnumChildWindows(h, LongestStatic, (LPARAM)&box.text);
        box.owner = GetWindow(h, GW_OWNER);
        me->handled_.insert(h);
        {
            std::lock_guard<std::mutex> lock(me->mu_);
            me->seen_.push_back(box);
        }
        PostMessageW(h, WM_COMMAND, IDOK, 0);
        return TRUE;
    }
    HANDLE thread_;
    std::atomic<bool> stop_{false};
    std::mutex mu_;
    std::vector<Box> seen_;
    std::set<HWND> handled_;
};

// Lets a message box's dismissal come through before the next step.
void Settle()
{
    PumpMessages(200);
}

// ---- files and the server ----------------------------------------------------

std::string ReadBytes(const std::wstring &path)
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

void WriteBytes(const std::wstring &path, const std::string &bytes)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD done = 0;
    WriteFile(f, bytes.data(), (DWORD)bytes.size(), &done, nullptr);
    CloseHandle(f);
}

// The server's DLL as ctest names it, for the tests that unregister it.
HRESULT CallServer(const char *entry)
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

void CloseProgram()
{
    SendMessageW(g_app.hwndMain, WM_CLOSE, 0, 0);
    PumpMessages(100);
}

// Points the open program at another store: closed and opened again
// between passes, as at a restart.
void SwitchStore(const std::wstring &path)
{
    EnterCriticalSection(&g_app.renderLock);
    if (g_app.storeLoggedOn)
        CloseStore();
    SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", path.c_str());
    int opened = OpenStore(g_app.hwndMain);
    LeaveCriticalSection(&g_app.renderLock);
    ASSERT_EQ(opened, 1);
}

SYSTEMTIME Day(int y, int m, int d)
{
    return SystemDate(m, d, y);
}

OleDate OleDateOf(int y, int m, int d)
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

int Collect(IAppointment *item, void *context)
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

std::vector<Found> Query(const SYSTEMTIME &first, const SYSTEMTIME &second, const WCHAR *tmpl)
{
    std::vector<Found> out;
    QueryAppointments(first, second, tmpl, Collect, &out);
    return out;
}

// The one-day query of the day list: the same day, the second with its
// hour set to 24.
std::vector<Found> OnDay(int y, int m, int d)
{
    SYSTEMTIME end = Day(y, m, d);
    end.wHour = 24;
    return Query(Day(y, m, d), end, RestrictOverlapClosed);
}

std::wstring Subjects(const std::vector<Found> &found)
{
    std::wstring out;
    for (const Found &f : found)
        out += (out.empty() ? L"" : L", ") + f.subject;
    return out;
}

std::wstring Joined(const std::vector<std::wstring> &list)
{
    std::wstring out;
    for (const auto &s : list)
        out += (out.empty() ? L"" : L", ") + s;
    return out;
}

std::string Narrow(const std::wstring &w)
{
    return std::string(w.begin(), w.end());
}

long OidOf(const wchar_t *subject, int y, int m, int d)
{
    for (const Found &f : OnDay(y, m, d))
        if (f.subject == subject)
            return f.oid;
    return 0;
}

double TimeOfDay(OleDate when)
{
    return when - (long)when;
}

const WCHAR *const kTemplates[] = {RestrictOverlapClosed, RestrictOverlapClosed, RestrictOverlapBeforeSecond,
                                   RestrictOverlapAfterFirst};

// ---- a server whose calendar folder cannot be had --------------------------

// Stands between the program and the real server, passing every call on
// except the request for the calendar folder, which fails; counts log-offs
// and tells when the program let it go.
class FolderlessApp final : public IPOutlookApp {
public:
    explicit FolderlessApp(IPOutlookApp *inner) : inner_(inner) {}
    virtual ~FolderlessApp() = default;
    static std::atomic<int> logoffs, alive;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **pv) override
    {
        if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IPOutlookApp) {
            *pv = static_cast<IPOutlookApp *>(this);
            AddRef();
            return S_OK;
        }
        *pv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG n = --refs_;
        if (!n) {
            inner_->Release();
            --alive;
            delete this;
        }
        return n;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT *n) override { return inner_->GetTypeInfoCount(n); }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT i, LCID l, ITypeInfo **t) override
    {
        return inner_->GetTypeInfo(i, l, t);
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID r, LPOLESTR *n, UINT c, LCID l, DISPID *d) override
    {
        return inner_->GetIDsOfNames(r, n, c, l, d);
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID d, REFIID r, LCID l, WORD f, DISPPARAMS *p, VARIANT *v, EXCEPINFO *e,
                                     UINT *a) override
    {
        return inner_->Invoke(d, r, l, f, p, v, e, a);
    }
    HRESULT STDMETHODCALLTYPE Logon(long h) override { return inner_->Logon(h); }
    HRESULT STDMETHODCALLTYPE Logoff() override
    {
        ++logoffs;
        return inner_->Logoff();
    }
    HRESULT STDMETHODCALLTYPE get_Version(BSTR *v) override { return inner_->get_Version(v); }
    HRESULT STDMETHODCALLTYPE GetDefaultFolder(int, IFolder **f) override
    {
        *f = nullptr;
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE CreateItem(int k, IDispatch **i) override { return inner_->CreateItem(k, i); }
    HRESULT STDMETHODCALLTYPE GetItemFromOid(long o, IDispatch **i) override { return inner_->GetItemFromOid(o, i); }
    HRESULT STDMETHODCALLTYPE get_HomeCity(ICity **c) override { return inner_->get_HomeCity(c); }
    HRESULT STDMETHODCALLTYPE put_HomeCity(ICity *c) override { return inner_->put_HomeCity(c); }
    HRESULT STDMETHODCALLTYPE get_VisitingCity(ICity **c) override { return inner_->get_VisitingCity(c); }
    HRESULT STDMETHODCALLTYPE put_VisitingCity(ICity *c) override { return inner_->put_VisitingCity(c); }
    HRESULT STDMETHODCALLTYPE get_CurrentCityIndex(long *i) override { return inner_->get_CurrentCityIndex(i); }
    HRESULT STDMETHODCALLTYPE put_CurrentCityIndex(long i) override { return inner_->put_CurrentCityIndex(i); }
    HRESULT STDMETHODCALLTYPE ReceiveFromInfrared() override { return inner_->ReceiveFromInfrared(); }
    HRESULT STDMETHODCALLTYPE get_OutlookCompatible(VARIANT_BOOL *c) override
    {
        return inner_->get_OutlookCompatible(c);
    }
    HRESULT STDMETHODCALLTYPE GetTimeZoneFromIndex(int i, ITimeZone **t) override
    {
        return inner_->GetTimeZoneFromIndex(i, t);
    }
    HRESULT STDMETHODCALLTYPE GetTimeZoneInformationFromIndex(int i, TIME_ZONE_INFORMATION *t) override
    {
        return inner_->GetTimeZoneInformationFromIndex(i, t);
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp **a) override { return inner_->get_Application(a); }
    HRESULT STDMETHODCALLTYPE SysFreeString(BSTR s) override { return inner_->SysFreeString(s); }
    HRESULT STDMETHODCALLTYPE VariantTimeToSystemTime(DATE d, SYSTEMTIME *s) override
    {
        return inner_->VariantTimeToSystemTime(d, s);
    }
    HRESULT STDMETHODCALLTYPE SystemTimeToVariantTime(SYSTEMTIME *s, DATE *d) override
    {
        return inner_->SystemTimeToVariantTime(s, d);
    }

private:
    IPOutlookApp *inner_;
    std::atomic<ULONG> refs_{1};
};
std::atomic<int> FolderlessApp::logoffs{0};
std::atomic<int> FolderlessApp::alive{0};

// Registered for this process only, in front of the server's own class.
class FolderlessFactory : public IClassFactory {
public:
    explicit FolderlessFactory(IClassFactory *real) : real_(real) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **pv) override
    {
        if (iid == IID_IUnknown || iid == IID_IClassFactory) {
            *pv = this;
            return S_OK;
        }
        *pv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown *outer, REFIID iid, void **pv) override
    {
        IPOutlookApp *inner = nullptr;
        HRESULT hr = real_->CreateInstance(outer, IID_IPOutlookApp, reinterpret_cast<void **>(&inner));
        if (FAILED(hr))
            return hr;
        auto *app = new FolderlessApp(inner);
        ++FolderlessApp::alive;
        hr = app->QueryInterface(iid, pv);
        app->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    IClassFactory *real_;
};

}  // namespace

// ---- start-up failures, one process each -------------------------------------

// Asserts the program came up and draws, on an empty calendar.
static void ExpectRunningWithoutStore()
{
    ASSERT_TRUE(g_app.hwndMain && IsWindow(g_app.hwndMain));
    EXPECT_EQ(g_app.storeLoggedOn, 0);
    EXPECT_EQ(g_app.outlookApp, nullptr);
    EXPECT_EQ(g_app.calendarFolder, nullptr);
    EXPECT_TRUE(RedrawAndWait());
    EXPECT_TRUE(OnDay(2026, 11, 5).empty());
}

TEST(StartUp, UnregisteredServer)
{
    ASSERT_EQ(CallServer("DllUnregisterServer"), S_OK);
    ErrorBoxes boxes;
    StartProgram();
    Settle();
    ExpectRunningWithoutStore();
    auto seen = boxes.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(Narrow(seen[0].text), "Error in call to CoCreateInstance.");
    EXPECT_EQ(seen[0].owner, nullptr);
    CloseProgram();
    EXPECT_EQ(boxes.Seen().size(), 1u) << "nothing more is shown at exit";
    EXPECT_EQ(CallServer("DllRegisterServer"), S_OK);
}

TEST(StartUp, UnreadableStore)
{
    const std::string bytes = "hello, world\r\nthis is not a calendar\r\n";
    std::wstring path = UseTempStore(bytes);
    ErrorBoxes boxes;
    StartProgram();
    Settle();
    ExpectRunningWithoutStore();
    EXPECT_EQ(Joined(boxes.Texts()), L"Failure to logon to app object.");
    CloseProgram();
    EXPECT_EQ(boxes.Seen().size(), 1u);
    EXPECT_EQ(ReadBytes(path), bytes) << "the store is left as it was";
}

TEST(StartUp, ComAlreadyInAnotherApartment)
{
    // Another part of the process took this thread into the single-threaded
    // apartment first; the store needs the multithreaded one.
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    ErrorBoxes boxes;
    StartProgram();
    Settle();
    ExpectRunningWithoutStore();
    EXPECT_EQ(Joined(boxes.Texts()), L"Error in call to CoInitializeEx");
    CloseProgram();
    EXPECT_EQ(boxes.Seen().size(), 1u);
    CoUninitialize();
}

TEST(StartUp, NoCalendarFolder)
{
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    IClassFactory *real = nullptr;
    ASSERT_EQ(CoGetClassObject(CLSID_Application, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                               reinterpret_cast<void **>(&real)),
              S_OK);
    FolderlessFactory factory(real);
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(CLSID_Application, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
              S_OK);
    ErrorBoxes boxes;
    StartProgram();
    Settle();
    ExpectRunningWithoutStore();
    EXPECT_EQ(Joined(boxes.Texts()), L"Failure to Obtain Calendar Folder");
    EXPECT_EQ(FolderlessApp::logoffs, 1) << "logged off after the failure";
    EXPECT_EQ(FolderlessApp::alive, 0) << "the application object was let go";
    CloseProgram();
    EXPECT_EQ(FolderlessApp::logoffs, 1) << "no second log-off at exit";
    CoRevokeClassObject(cookie);
    real->Release();
    CoUninitialize();
}

// ---- the open store ----------------------------------------------------------

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

TEST_F(Store, EditingWithoutAFormAddsNothing)
{
    std::wstring path = FreshStore();
    ErrorBoxes boxes;
    EXPECT_EQ(OpenItemForEdit(0x7FFFFFF0), 0);
    Settle();
    auto seen = boxes.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(Narrow(seen[0].text), "Error in getting appointment handle");
    EXPECT_EQ(seen[0].owner, g_app.hwndMain);

    // The server has no form to show yet: a new appointment that was
    // never shown is not left behind.
    boxes.Clear();
    ShowDay(2026, 11, 9);
    std::string before = ReadBytes(path);
    EXPECT_EQ(OpenItemForEdit(0), 0);
    Settle();
    EXPECT_EQ(boxes.Seen().size(), 1u);
    EXPECT_EQ(Narrow(Subjects(OnDay(2026, 11, 9))), "");
    EXPECT_EQ(ReadBytes(path).find("BEGIN:VEVENT", before.rfind("END:VEVENT")), std::string::npos);
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
