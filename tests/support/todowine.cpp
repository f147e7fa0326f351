#include "todowine.h"

#include <gtest/gtest.h>
#include <gtest/gtest-spi.h>
#include <windows.h>
#include <cstdio>

// Wine's ntdll exports its version; Windows' does not.
bool RunningOnWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

TodoWine::TodoWine(const char *reason, const char *file, int line)
    : reason(reason), file(file), line(line)
{
    if (!RunningOnWine())
        return;
    failures.reset(new testing::TestPartResultArray);
    catcher.reset(new testing::ScopedFakeTestPartResultReporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, failures.get()));
}

TodoWine::~TodoWine()
{
    if (!catcher)
        return;
    catcher.reset();
    int n = failures->size();
    if (n == 0) {
        ADD_FAILURE_AT(file, line) << "TODO_WINE block passed under Wine (" << reason
                                   << "): Wine now answers as Windows, drop the marker";
        return;
    }
    printf("[ TODO_WINE ] %s:%d: %s (%d assertion%s kept)\n", file, line, reason, n,
           n == 1 ? "" : "s");
    testing::Test::RecordProperty("todo_wine", reason);
}
