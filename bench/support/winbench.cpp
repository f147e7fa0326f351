#include "winbench.h"
#include "common/appstate.h"
#include "shell/shell.h"
#include "store/store.h"

#include <algorithm>
#include <cstdio>

double NowMs()
{
    static LARGE_INTEGER freq = {};
    if (!freq.QuadPart)
        QueryPerformanceFrequency(&freq);
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return 1000.0 * (double)t.QuadPart / (double)freq.QuadPart;
}

double Median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n == 0 ? 0.0 : n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double Sum(const std::vector<double> &v)
{
    double total = 0;
    for (double x : v)
        total += x;
    return total;
}

// The calendar server must be registered, or start-up would stop at its error box with
// nobody to close it.
static bool ServerRegistered()
{
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return false;
    IPOutlookApp *app = nullptr;
    bool ok = SUCCEEDED(CoCreateInstance(CLSID_Application, nullptr, CLSCTX_INPROC_SERVER, IID_IPOutlookApp,
                                         reinterpret_cast<void **>(&app)));
    if (app)
        app->Release();
    CoUninitialize();
    return ok;
}

bool StartProgramOn(const wchar_t *tool, const wchar_t *path)
{
    if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) {
        fprintf(stderr, "%ls: no store at %ls\n", tool, path);
        return false;
    }
    if (!ServerRegistered()) {
        fprintf(stderr, "%ls: the calendar server is not registered (regsvr32 lfpoom.dll)\n", tool);
        return false;
    }
    SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", path);
    double t0 = NowMs();
    HINSTANCE inst = GetModuleHandleW(nullptr);
    if (!RegisterMainClass(inst) || !AppStartup(inst, SW_SHOWNORMAL) || !g_app.storeLoggedOn) {
        fprintf(stderr, "%ls: the program did not start on %ls\n", tool, path);
        return false;
    }
    // Let the first pass of start-up finish before anything is timed.
    while (g_app.renderState == RENDER_REQUESTED || g_app.renderDone != g_app.renderPasses)
        Sleep(5);
    printf("store %ls opened in %.0f ms\n", path, NowMs() - t0);
    return true;
}
