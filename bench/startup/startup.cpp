// lfstartup STORE [RUNS]
//
// Times the program's start-up on a calendar store: from the creation of
// a fresh process to the end of its first complete month pass (the
// window, the calendar server's logon, the settings, the first month
// drawn), RUNS times (default 5), each in a new process started by this
// one, so the first start of Wine's prefix is not counted. Each child
// prints its own figures (the process's own start, before any of the
// program runs, and the first month); this prints them and the medians.
#include "shell/shell.h"
#include "common/appstate.h"
#include "support/winbench.h"

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

// Milliseconds since this process was created.
static double SinceProcessCreation()
{
    FILETIME created, exited, kernel, user, now;
    GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
    GetSystemTimePreciseAsFileTime(&now);
    ULARGE_INTEGER a, b;
    a.LowPart = created.dwLowDateTime, a.HighPart = created.dwHighDateTime;
    b.LowPart = now.dwLowDateTime, b.HighPart = now.dwHighDateTime;
    return (double)(b.QuadPart - a.QuadPart) / 10000.0;
}

static int Child(const wchar_t *store)
{
    // What Wine takes to start a process and load its DLLs, before any of the program runs.
    double started = SinceProcessCreation();
    if (!StartProgramOn(L"lfstartup", store))
        return 1;
    printf("process start %.1f ms, first month %.1f ms\n", started, SinceProcessCreation());
    fflush(stdout);
    DestroyWindow(g_app.hwndMain);
    return 0;
}

// Runs this program on the store as a child and reads its figure.
static double RunChild(const wchar_t *store, double *processStart)
{
    WCHAR self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring command = std::wstring(L"\"") + self + L"\" --child \"" + store + L"\"";
    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    HANDLE readEnd, writeEnd;
    if (!CreatePipe(&readEnd, &writeEnd, &sa, 0))
        return -1;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = writeEnd;
    si.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION pi = {};
    std::vector<WCHAR> line(command.begin(), command.end());
    line.push_back(0);
    BOOL started = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
    CloseHandle(writeEnd);
    if (!started) {
        CloseHandle(readEnd);
        return -1;
    }
    std::string out;
    char buffer[512];
    DWORD got;
    while (ReadFile(readEnd, buffer, sizeof buffer, &got, nullptr) && got)
        out.append(buffer, got);
    CloseHandle(readEnd);
    WaitForSingleObject(pi.hProcess, INFINITE);
    CloseHandle(pi.hProcess);
    CloseHandle(pi.hThread);
    fputs(out.c_str(), stdout);
    size_t at = out.find("first month ");
    size_t process = out.find("process start ");
    if (processStart)
        *processStart = process == std::string::npos ? -1 : atof(out.c_str() + process + 14);
    return at == std::string::npos ? -1 : atof(out.c_str() + at + 12);
}

int wmain(int argc, wchar_t **argv)
{
    if (argc >= 3 && wcscmp(argv[1], L"--child") == 0)
        return Child(argv[2]);
    if (argc < 2) {
        fprintf(stderr, "usage: lfstartup STORE [RUNS]\n"
                        "  STORE  an .ics file or a folder (Wine: Z:\\path\\to\\large.ics)\n"
                        "  RUNS   fresh processes started (default 5)\n");
        return 2;
    }
    int runs = argc > 2 ? _wtoi(argv[2]) : 5;
    if (runs < 1 || runs > 50) {
        fprintf(stderr, "lfstartup: RUNS 1-50\n");
        return 2;
    }
    std::vector<double> times, processStarts;
    for (int i = 0; i < runs; i++) {
        double processStart = -1;
        double ms = RunChild(argv[1], &processStart);
        processStarts.push_back(processStart);
        if (ms < 0) {
            fprintf(stderr, "lfstartup: run %d did not reach its first month\n", i + 1);
            return 1;
        }
        times.push_back(ms);
    }
    printf("start-up to the first complete month: median %.1f ms over %d runs (of it the process's own start "
           "%.1f ms)\n",
           Median(times), runs, Median(processStarts));
    return 0;
}
