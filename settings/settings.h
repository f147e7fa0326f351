// The user's display settings: named values under one registry key, read
// once at start-up and written back one at a time by the settings pages.
#pragma once

#include <windows.h>

extern const WCHAR kSettingsKey[]; // under HKEY_CLASSES_ROOT

// Registry operations answer 0 for success and 1 for failure and never
// show a message; the caller sets the default before reading.
void CreateSettingsKey();
int ReadSettingNumber(const WCHAR *name, DWORD *value);
int WriteSettingNumber(const WCHAR *name, DWORD value);
int ReadSettingText(const WCHAR *name, WCHAR *text);
int WriteSettingText(const WCHAR *name, const WCHAR *text);
void LoadSettings();
void FreeSettingsBitmaps();
// The directory of the running program, without a trailing backslash.
void ProgramDirectory(WCHAR *dir, int length);
