// The application object: logon and logoff, the default folders, items by
// OID and new items, and the object model's time conversions.
#include "objects.h"

#include <new>

namespace poom {

std::atomic<long> g_liveObjects{0};
std::atomic<long> g_serverLocks{0};

namespace {

class App : public Dispatch<IPOutlookApp, IID_IPOutlookApp> {
public:
    HRESULT STDMETHODCALLTYPE Logon(long hWnd) override {
        // A window handle is 32-bit significant; widen it back.
        HWND hwnd = reinterpret_cast<HWND>(static_cast<LONG_PTR>(hWnd));
        std::lock_guard<ObjectLock> lock(mu_);
        if (session_) return session_->Logon(hwnd);  // already on: only the window changes
        auto session = std::make_shared<Session>();
        HRESULT hr = session->Logon(hwnd);
        if (SUCCEEDED(hr)) session_ = session;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Logoff() override {
        // The application serves nothing more from here on; what it handed
        // out keeps the logon until it is let go (see Origin). The last
        // holder closes the store, outside the lock.
        std::shared_ptr<Session> was;
        {
            std::lock_guard<ObjectLock> lock(mu_);
            was.swap(session_);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Version(BSTR* pVersion) override {
        return OutString(L"Lanternfields calendar server 1.0", pVersion);
    }
    HRESULT STDMETHODCALLTYPE GetDefaultFolder(int olFolder, IFolder** ppIFolder) override;
    HRESULT STDMETHODCALLTYPE CreateItem(int olItem, IDispatch** ppPOOMItem) override;
    HRESULT STDMETHODCALLTYPE GetItemFromOid(long oid, IDispatch** ppPOOMItem) override;
    // World-clock cities and time-zone objects are not part of the calendar.
    HRESULT STDMETHODCALLTYPE get_HomeCity(ICity** p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE put_HomeCity(ICity*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_VisitingCity(ICity** p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE put_VisitingCity(ICity*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_CurrentCityIndex(long* p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE put_CurrentCityIndex(long) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveFromInfrared() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_OutlookCompatible(VARIANT_BOOL* p) override {
        if (!p) return E_POINTER;
        *p = VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTimeZoneFromIndex(int, ITimeZone** p) override { return NotServed(p); }
    HRESULT STDMETHODCALLTYPE GetTimeZoneInformationFromIndex(int, TIME_ZONE_INFORMATION*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override {
        if (!pp) return E_POINTER;
        AddRef();
        *pp = this;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SysFreeString(BSTR bstr) override {
        ::SysFreeString(bstr);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE VariantTimeToSystemTime(DATE date, SYSTEMTIME* pst) override {
        if (!pst) return E_POINTER;
        LocalSecs s = 0;
        if (!SecsFromOle(date, s)) return E_INVALIDARG;
        CivilTime t = FromSecs(s);
        pst->wYear = static_cast<WORD>(t.year);
        pst->wMonth = static_cast<WORD>(t.month);
        pst->wDay = static_cast<WORD>(t.day);
        pst->wDayOfWeek = static_cast<WORD>(WeekdayOfDays(DayOf(s)));
        pst->wHour = static_cast<WORD>(t.hour);
        pst->wMinute = static_cast<WORD>(t.minute);
        pst->wSecond = static_cast<WORD>(t.second);
        pst->wMilliseconds = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SystemTimeToVariantTime(SYSTEMTIME* pst, DATE* pDate) override {
        if (!pst || !pDate) return E_POINTER;
        if (pst->wYear < 100 || pst->wYear > 9999 || pst->wMonth < 1 || pst->wMonth > 12 || pst->wDay < 1 ||
            pst->wDay > DaysInMonth(pst->wYear, pst->wMonth) || pst->wHour > 23 || pst->wMinute > 59 ||
            pst->wSecond > 59)
            return E_INVALIDARG;
        CivilTime t{pst->wYear, pst->wMonth, pst->wDay, pst->wHour, pst->wMinute, pst->wSecond};
        *pDate = OleFromSecs(ToSecs(t));
        return S_OK;
    }

private:
    template <class T>
    static HRESULT NotServed(T* p) {
        if (p) *p = T();
        return E_NOTIMPL;
    }
    // The current logon, null when logged off.
    std::shared_ptr<Session> Current() {
        std::lock_guard<ObjectLock> lock(mu_);
        return session_;
    }

    ObjectLock mu_;
    std::shared_ptr<Session> session_;
};

HRESULT App::GetDefaultFolder(int olFolder, IFolder** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (olFolder != olFolderCalendar && olFolder != olFolderInfrared) return E_INVALIDARG;
    auto session = Current();
    if (!session) return kNotLoggedOn;
    *pp = NewFolder(Origin(this, session), olFolder);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

HRESULT App::CreateItem(int olItem, IDispatch** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (olItem != olAppointmentItem) return E_INVALIDARG;  // contacts and tasks are not kept
    auto session = Current();
    if (!session) return kNotLoggedOn;
    *pp = new (std::nothrow) Appointment(Origin(this, session));
    return *pp ? S_OK : E_OUTOFMEMORY;
}

HRESULT App::GetItemFromOid(long oid, IDispatch** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto session = Current();
    auto store = session ? session->GetStore() : nullptr;
    if (!store) return kNotLoggedOn;
    ItemSnapshot s;
    if (!store->Get(static_cast<std::uint32_t>(oid), s)) return kNotFound;
    *pp = new (std::nothrow) Appointment(Origin(this, session), s);
    return *pp ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

HRESULT CreateApplication(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    auto* app = new (std::nothrow) App();
    if (!app) return E_OUTOFMEMORY;
    HRESULT hr = app->QueryInterface(riid, ppv);
    app->Release();
    return hr;
}

}  // namespace poom
