// The one connection to the calendar server: opened at start-up, kept for
// the life of the process, closed when the main window is destroyed.
#include "store.h"
#include "common/appstate.h"
#include "common/com.h"

void StoreError(HWND owner, const WCHAR *text)
{
    MessageBoxW(owner, text, L"Error", MB_OK);
}

int OpenStore(HWND hwnd)
{
    if (g_app.storeLoggedOn)
        return 1;

    // The multithreaded apartment lets the rendering thread run its month
    // queries on the same folder without marshalling.
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        StoreError(nullptr, L"Error in call to CoInitializeEx");
        return 0;
    }
    // The application object is kept only once the store is usable; a
    // failure on the way lets it go when this returns, after its message.
    ComPtr<IPOutlookApp> app;
    if (FAILED(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                reinterpret_cast<void **>(&app)))) {
        StoreError(nullptr, L"Error in call to CoCreateInstance.");
        return 0;
    }
    // Window handles are significant in their low 32 bits, which is what
    // the object model's Logon carries.
    if (FAILED(app->Logon((long)(LONG_PTR)hwnd))) {
        StoreError(nullptr, L"Failure to logon to app object.");
        return 0;
    }
    g_app.storeLoggedOn = 1;
    if (SUCCEEDED(app->GetDefaultFolder(olFolderCalendar, &g_app.calendarFolder)) &&
        g_app.calendarFolder) {
        g_app.outlookApp = app.Detach();
        return 1;
    }

    g_app.calendarFolder = nullptr;
    StoreError(nullptr, L"Failure to Obtain Calendar Folder");
    app->Logoff();
    g_app.storeLoggedOn = 0;
    return 0;
}

void CloseStore()
{
    g_app.storeLoggedOn = 0;
    if (g_app.calendarFolder) {
        g_app.calendarFolder->Release();
        g_app.calendarFolder = nullptr;
    }
    // A failed item fetch may already have logged off and let the
    // application object go (see items.cpp); then only COM is left.
    if (g_app.outlookApp) {
        g_app.outlookApp->Logoff();
        g_app.outlookApp->Release();
        g_app.outlookApp = nullptr;
    }
    CoUninitialize();
}
