// The DLL's entry points: the class factory for CLSID_Application and the
// registration that lets CoCreateInstance find us (regsvr32).
#include <windows.h>
#include <olectl.h>

#include <new>
#include <string>

#include "form/form.h"
#include "objects.h"
#include "pimstore_if.h"

namespace {

HMODULE g_module = nullptr;

const wchar_t kClassName[] = L"Lanternfields calendar server";
const wchar_t kProgId[] = L"PocketOutlook.Application";

class Factory : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
            *ppv = static_cast<IClassFactory*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    // The factory is a static object; its life is the DLL's.
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        return poom::CreateApplication(riid, ppv);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        if (lock)
            ++poom::g_serverLocks;
        else
            --poom::g_serverLocks;
        return S_OK;
    }
};

Factory g_factory;

std::wstring GuidText(const GUID& g) {
    wchar_t buf[64] = {};
    StringFromGUID2(g, buf, 64);
    return buf;
}

bool SetValue(HKEY root, const std::wstring& key, const wchar_t* name, const std::wstring& value) {
    HKEY h = nullptr;
    if (RegCreateKeyExW(root, key.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &h, nullptr) != ERROR_SUCCESS)
        return false;
    LONG r = RegSetValueExW(h, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                            static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(h);
    return r == ERROR_SUCCESS;
}

// COM classes live in HKEY_CLASSES_ROOT (HKLM\Software\Classes); Wine does
// not look in the per-user classes.
const wchar_t kClassesRoot[] = L"Software\\Classes\\";

}  // namespace

HMODULE poom::ServerModule() { return g_module; }

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    } else if (reason == DLL_PROCESS_DETACH && !reserved) {
        // Unloaded while the process goes on: a class left registered would point into
        // the unloaded DLL. At process exit the system cleans up itself.
        poom::ReleaseFormClass();
    }
    return TRUE;
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_Application)) return CLASS_E_CLASSNOTAVAILABLE;
    return g_factory.QueryInterface(riid, ppv);
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return poom::g_liveObjects.load() == 0 && poom::g_serverLocks.load() == 0 ? S_OK : S_FALSE;
}

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
    wchar_t path[MAX_PATH * 2] = {};
    DWORD n = GetModuleFileNameW(g_module, path, MAX_PATH * 2);
    if (n == 0 || n >= MAX_PATH * 2) return SELFREG_E_CLASS;
    std::wstring clsidKey = std::wstring(kClassesRoot) + L"CLSID\\" + GuidText(CLSID_Application);
    bool ok = SetValue(HKEY_LOCAL_MACHINE, clsidKey, nullptr, kClassName) &&
              SetValue(HKEY_LOCAL_MACHINE, clsidKey + L"\\InprocServer32", nullptr, path) &&
              SetValue(HKEY_LOCAL_MACHINE, clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Both") &&
              SetValue(HKEY_LOCAL_MACHINE, clsidKey + L"\\ProgID", nullptr, kProgId) &&
              SetValue(HKEY_LOCAL_MACHINE, std::wstring(kClassesRoot) + kProgId, nullptr, kClassName) &&
              SetValue(HKEY_LOCAL_MACHINE, std::wstring(kClassesRoot) + kProgId + L"\\CLSID", nullptr,
                       GuidText(CLSID_Application));
    return ok ? S_OK : SELFREG_E_CLASS;
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
    std::wstring clsidKey = std::wstring(kClassesRoot) + L"CLSID\\" + GuidText(CLSID_Application);
    LONG a = RegDeleteTreeW(HKEY_LOCAL_MACHINE, clsidKey.c_str());
    LONG b = RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(kClassesRoot) + kProgId).c_str());
    bool ok = (a == ERROR_SUCCESS || a == ERROR_FILE_NOT_FOUND) && (b == ERROR_SUCCESS || b == ERROR_FILE_NOT_FOUND);
    return ok ? S_OK : SELFREG_E_CLASS;
}
