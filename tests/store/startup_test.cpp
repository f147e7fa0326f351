// Each start-up failure the user is told about, against the real calendar
// server. Each runs in a process of its own (ctest picks them by test
// name), as the program starts once per process.
#include "store_support.h"

using namespace storetest;

namespace {

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
