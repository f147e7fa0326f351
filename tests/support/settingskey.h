// The program's settings key as a test found it, put back when the test ends: the tests run one
// after another in one Wine prefix, and a value one test's sheet wrote (the schedule bar's
// boundaries, an icon slot) would otherwise be what the next program reads at start-up.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

class SettingsKeyGuard {
  public:
    SettingsKeyGuard();
    ~SettingsKeyGuard();
    SettingsKeyGuard(const SettingsKeyGuard &) = delete;
    SettingsKeyGuard &operator=(const SettingsKeyGuard &) = delete;

  private:
    struct Value {
        std::wstring name;
        DWORD type;
        std::vector<BYTE> data;
    };
    std::vector<Value> values_;
};
