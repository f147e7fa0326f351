// What the category tests share: "settings.vol" beside the test and its bytes, and the device's
// category list in an object store of the test process's own.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

// Points the device's object store at a fresh file of this process; call before anything
// reads it (it is mounted once for the process).
void UseTestObjectStore();
// Makes the device's "Categories Database" hold these names, in this order.
void SetDeviceCategories(const std::vector<std::wstring> &names);
// Waits (up to ten seconds) until the device's list is one of these (the calendar server writes
// the categories of the store it serves once after its first logon, and again only when the
// store changes, so a test may then put a list of its own in its place).
bool WaitForDeviceCategories(const std::vector<std::vector<std::wstring>> &lists);
// Takes the device's "Categories Database" away.
void RemoveDeviceCategories();
// The same as SetDeviceCategories, written as the object store's file before the process has first read it.
void WriteDeviceStoreFile(const std::vector<std::wstring> &names);

std::wstring VolumePath();
void RemoveVolume();
struct StoredCategory {
    std::wstring name;
    COLORREF color;
    DWORD icon;
};
// Writes "settings.vol" whole, as the program would have left it after saving these.
void WriteVolume(const std::vector<StoredCategory> &categories);

bool FileExists(const std::wstring &path);
std::vector<BYTE> ReadAll(const std::wstring &path);
void WriteAll(const std::wstring &path, const std::vector<BYTE> &bytes);
// A file of that many zero bytes that takes no room on the disk.
void MakeSparseZeros(const std::wstring &path, unsigned long long size);
// A file's size and last write, to tell that a file too large to compare was not touched.
struct FileStamp {
    unsigned long long size;
    FILETIME written;
    bool operator==(const FileStamp &o) const
    {
        return size == o.size && CompareFileTime(&written, &o.written) == 0;
    }
};
FileStamp Stamp(const std::wstring &path);
