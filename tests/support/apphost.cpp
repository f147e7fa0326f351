#include "apphost.h"
#include "drive.h"
#include "shell/shell.h"
#include "shell/render.h"
#include "common/appstate.h"


std::wstring UseTempStore(const std::string &ics, const wchar_t *name)
{
    static int counter = 0;
    wchar_t tmp[MAX_PATH];
    GetTempPathW(MAX_PATH, tmp);
    // Process ids come round again in one prefix, so a folder left by an
    // earlier test process is never reused: the first name not yet taken.
    std::wstring dir;
    do {
        dir = std::wstring(tmp) + L"lftest-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
              std::to_wstring(++counter);
    } while (!CreateDirectoryW(dir.c_str(), nullptr) && GetLastError() == ERROR_ALREADY_EXISTS);
    std::wstring path = dir + L"\\" + name;
    if (!ics.empty()) {
        HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD done = 0;
        if (f != INVALID_HANDLE_VALUE) {
            WriteFile(f, ics.data(), (DWORD)ics.size(), &done, nullptr);
            CloseHandle(f);
        }
    }
    SetEnvironmentVariableW(L"LANTERNFIELDS_STORE", path.c_str());
    return path;
}

HWND StartProgram()
{
    if (g_app.hwndMain && IsWindow(g_app.hwndMain))
        return g_app.hwndMain;
    if (!GetEnvironmentVariableW(L"LANTERNFIELDS_STORE", nullptr, 0))
        UseTempStore("");
    HINSTANCE inst = GetModuleHandleW(nullptr);
    RegisterMainClass(inst);
    if (!AppStartup(inst, SW_SHOWNORMAL))
        return nullptr;
    WaitForPass();
    return g_app.hwndMain;
}

void PumpMessages(DWORD ms)
{
    Pump(ms);
}

// Idle means no request is pending and every pass begun has ended; the
// pass counts are bumped in an order that makes this check race-free.
bool WaitForPass(DWORD timeoutMs)
{
    DWORD start = GetTickCount();
    while (GetTickCount() - start < timeoutMs) {
        PumpMessages(0);
        if (g_app.renderState != RENDER_REQUESTED && g_app.renderDone == g_app.renderPasses)
            break;
        Sleep(2);
    }
    return g_app.renderState == RENDER_SHOWN;
}

bool RedrawAndWait()
{
    RequestRedraw();
    return WaitForPass();
}

// Windows counts a process's GDI objects for us. Wine answers 0 there, so
// under Wine the handle table is probed: every live GDI object answers
// GetObjectType for its table index.
int CountGdiObjects()
{
    DWORD n = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS);
    if (n)
        return (int)n;
    int count = 0;
    for (ULONG_PTR i = 1; i < 0x10000; i++)
        if (GetObjectType((HGDIOBJ)i))
            count++;
    return count;
}

std::string GdiObjectSummary()
{
    int counts[16] = {};
    for (ULONG_PTR i = 1; i < 0x10000; i++) {
        DWORD type = GetObjectType((HGDIOBJ)i);
        if (type && type < 16)
            counts[type]++;
    }
    std::string out;
    for (int t = 1; t < 16; t++)
        if (counts[t])
            out += std::to_string(t) + ":" + std::to_string(counts[t]) + " ";
    return out;
}

// Read from the back buffer's pixels, as the window's paint copies them,
// never through the rendering thread's DC.
COLORREF BackPixel(int x, int y)
{
    if (!g_app.backBits || x < 0 || y < 0 || x >= g_app.backWidth || y >= g_app.backHeight)
        return CLR_INVALID;
    DWORD v = static_cast<const DWORD *>(g_app.backBits)[(size_t)y * g_app.backWidth + x];
    return RGB((v >> 16) & 0xFF, (v >> 8) & 0xFF, v & 0xFF);
}

bool SaveBackBuffer(const wchar_t *path)
{
    if (!g_app.backBits)
        return false;
    BITMAPINFOHEADER ih = {};
    ih.biSize = sizeof(ih);
    ih.biWidth = g_app.backWidth;
    ih.biHeight = -g_app.backHeight;
    ih.biPlanes = 1;
    ih.biBitCount = 32;
    DWORD size = (DWORD)g_app.backWidth * g_app.backHeight * 4;
    BITMAPFILEHEADER fh = {};
    fh.bfType = 0x4D42;
    fh.bfOffBits = sizeof(fh) + sizeof(ih);
    fh.bfSize = fh.bfOffBits + size;
    HANDLE f = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return false;
    DWORD done;
    WriteFile(f, &fh, sizeof(fh), &done, nullptr);
    WriteFile(f, &ih, sizeof(ih), &done, nullptr);
    WriteFile(f, g_app.backBits, size, &done, nullptr);
    CloseHandle(f);
    return true;
}
