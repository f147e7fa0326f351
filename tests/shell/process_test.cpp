// Lanternfields.exe as separate processes: a single running copy, and a
// clean exit through the menu.
#include <windows.h>
#include "resource.h"

#include <gtest/gtest.h>
#include <cstdio>
#include <string>

// Unbuffered, so a run that ends early still shows how far it came.
static const int kUnbuffered = setvbuf(stdout, nullptr, _IONBF, 0);

static std::wstring ProgramPath()
{
    WCHAR buf[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"LF_EXE", buf, MAX_PATH);
    std::wstring path = buf;
    for (auto &c : path)
        if (c == L'/')
            c = L'\\';
    return path;
}

static PROCESS_INFORMATION Start()
{
    std::wstring cmd = L"\"" + ProgramPath() + L"\"";
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    EXPECT_TRUE(CreateProcessW(nullptr, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        << "cannot start " << std::string(cmd.begin(), cmd.end());
    return pi;
}

static HWND WaitForMainWindow(DWORD ms)
{
    for (DWORD waited = 0; waited < ms; waited += 50) {
        HWND h = FindWindowW(L"Lanternfields", L"Lanternfields");
        if (h)
            return h;
        Sleep(50);
    }
    return nullptr;
}

static DWORD WaitExit(const PROCESS_INFORMATION &pi, DWORD ms)
{
    DWORD code = 0xDEAD;
    if (WaitForSingleObject(pi.hProcess, ms) == WAIT_OBJECT_0)
        GetExitCodeProcess(pi.hProcess, &code);
    return code;
}

static int CountMainWindows()
{
    int n = 0;
    HWND h = nullptr;
    while ((h = FindWindowExW(nullptr, h, L"Lanternfields", nullptr)))
        n++;
    return n;
}

TEST(Process, SecondCopyRaisesTheFirstAndExits16)
{
    PROCESS_INFORMATION first = Start();
    HWND main = WaitForMainWindow(20000);
    ASSERT_TRUE(main) << "the first copy shows its window";

    // Something else comes to the front before the second start.
    HWND other = CreateWindowExW(0, L"STATIC", L"other", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100, 100,
                                 nullptr, nullptr, nullptr, nullptr);
    SetForegroundWindow(other);

    PROCESS_INFORMATION second = Start();
    EXPECT_EQ(WaitExit(second, 20000), 16u);
    EXPECT_EQ(CountMainWindows(), 1) << "the second copy made no window";
    // Wine hands the foreground over through the X server, so it may land just after the
    // second copy has gone; give it a moment on a busy machine.
    for (int i = 0; i < 50 && GetForegroundWindow() != main; i++)
        Sleep(100);
    EXPECT_EQ(GetForegroundWindow(), main) << "the first copy was brought to the front";
    DestroyWindow(other);

    PostMessageW(main, WM_COMMAND, IDM_EXIT, 0);
    EXPECT_EQ(WaitExit(first, 20000), 0u) << "Exit closes with code 0";
    EXPECT_EQ(CountMainWindows(), 0);
    CloseHandle(first.hProcess);
    CloseHandle(first.hThread);
    CloseHandle(second.hProcess);
    CloseHandle(second.hThread);
}
