#include "settingskey.h"
#include "settings/settings.h"

static std::vector<std::wstring> ValueNames(HKEY key)
{
    std::vector<std::wstring> names;
    WCHAR name[256];
    for (DWORD i = 0;; i++) {
        DWORD len = 256;
        if (RegEnumValueW(key, i, name, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.push_back(name);
    }
    return names;
}

SettingsKeyGuard::SettingsKeyGuard()
{
    HKEY key;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, kSettingsKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return;
    for (const std::wstring &name : ValueNames(key)) {
        Value v = {name, 0, {}};
        DWORD size = 0;
        if (RegQueryValueExW(key, name.c_str(), nullptr, &v.type, nullptr, &size) != ERROR_SUCCESS)
            continue;
        v.data.resize(size);
        if (RegQueryValueExW(key, name.c_str(), nullptr, &v.type, v.data.data(), &size) == ERROR_SUCCESS)
            values_.push_back(v);
    }
    RegCloseKey(key);
}

SettingsKeyGuard::~SettingsKeyGuard()
{
    HKEY key;
    if (RegCreateKeyExW(HKEY_CLASSES_ROOT, kSettingsKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                        &key, nullptr) != ERROR_SUCCESS)
        return;
    for (const std::wstring &name : ValueNames(key))
        RegDeleteValueW(key, name.c_str());
    for (const Value &v : values_)
        RegSetValueExW(key, v.name.c_str(), 0, v.type, v.data.data(), (DWORD)v.data.size());
    RegCloseKey(key);
}
