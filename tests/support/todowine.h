// An assertion that Wine answers differently from Windows is kept, as Wine's own tests keep
// theirs under todo_wine, and marked with the reason:
//
//   TODO_WINE("Wine counts no GDI objects per process")
//       EXPECT_GT(GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS), 0u);
//
// Under Wine the block's failures are reported as "[ TODO_WINE ]" lines and do not fail the
// test; a block that passes under Wine fails it, so the marker goes once Wine agrees. Under
// Windows the block is an ordinary one.
#pragma once

#include <memory>

namespace testing {
class ScopedFakeTestPartResultReporter;
class TestPartResultArray;
} // namespace testing

bool RunningOnWine();

struct TodoWine {
    TodoWine(const char *reason, const char *file, int line);
    ~TodoWine();
    bool Once() { return !done++; }

    const char *reason;
    const char *file;
    int line;
    int done = 0;
    std::unique_ptr<testing::TestPartResultArray> failures;
    std::unique_ptr<testing::ScopedFakeTestPartResultReporter> catcher;
};

#define TODO_WINE(reason) for (TodoWine todo_wine_(reason, __FILE__, __LINE__); todo_wine_.Once();)
