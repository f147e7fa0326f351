#include "categorysupport.h"
#include "platform/cedb.h"
#include "platform/dbvol.h"
#include "settings/categoryprops.h"

#include <algorithm>
#include <gtest/gtest.h>

static std::wstring g_objectStore;
static bool g_objectStoreRead;

void UseTestObjectStore()
{
    if (!g_objectStore.empty())
        return;
    WCHAR tmp[MAX_PATH];
    GetTempPathW(MAX_PATH, tmp);
    g_objectStore = std::wstring(tmp) + L"lf-objectstore-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                    std::to_wstring(GetTickCount()) + L".vol";
    DeleteFileW(g_objectStore.c_str());
    SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", g_objectStore.c_str());
}

static std::vector<uint8_t> Bytes(const void *p, size_t n)
{
    const uint8_t *b = static_cast<const uint8_t *>(p);
    return std::vector<uint8_t>(b, b + n);
}

static std::vector<uint8_t> Text(const std::wstring &s)
{
    return Bytes(s.data(), s.size() * sizeof(wchar_t));
}

void WriteDeviceStoreFile(const std::vector<std::wstring> &names)
{
    UseTestObjectStore();
    ASSERT_FALSE(g_objectStoreRead) << "the object store is read once per process";
    dbvol::Volume v;
    uint32_t oid = 0;
    ASSERT_EQ(dbvol::CreateDatabase(v, u"Categories Database", 0, 0, {}, 0, oid), dbvol::Status::Ok);
    dbvol::Database *db = dbvol::FindDatabase(v, oid);
    for (const std::wstring &name : names) {
        uint32_t written = 0;
        ASSERT_EQ(dbvol::WriteRecord(v, *db, 0, {{{PROP_DEVICE_CATEGORY, Text(name)}, false}}, 0, written),
                  dbvol::Status::Ok);
    }
    std::vector<uint8_t> bytes = dbvol::Encode(v);
    WriteAll(g_objectStore, std::vector<BYTE>(bytes.begin(), bytes.end()));
}

void RemoveDeviceCategories()
{
    UseTestObjectStore();
    g_objectStoreRead = true;
    CEGUID store;
    CREATE_SYSTEMGUID(&store);
    HANDLE list = CeFindFirstDatabaseEx(&store, 0);
    ASSERT_NE(list, INVALID_HANDLE_VALUE);
    for (CEOID oid; (oid = CeFindNextDatabaseEx(list, &store)) != 0;) {
        CEOIDINFO info = {};
        if (CeOidGetInfoEx(&store, oid, &info) && !lstrcmpW(info.infDatabase.szDbaseName, kDeviceCategoryDbName))
            CeDeleteDatabaseEx(&store, oid);
    }
    CloseHandle(list);
}

bool WaitForDeviceCategories(const std::vector<std::vector<std::wstring>> &lists)
{
    for (int tries = 0; tries < 200; tries++) {
        int count = 0;
        CategoryName *found = ReadDeviceCategories(&count, true);
        std::vector<std::wstring> names;
        for (int i = 0; found && i < count; i++)
            names.push_back(found[i].name);
        FreeCategoryArray(found);
        for (const auto &list : lists)
            if (list.size() == names.size() &&
                std::equal(list.begin(), list.end(), names.begin(), [](const std::wstring &a, const std::wstring &b) {
                    return a.compare(0, CATEGORY_NAME_LEN - 1, b) == 0;
                }))
                return true;
        Sleep(50);
    }
    return false;
}

void SetDeviceCategories(const std::vector<std::wstring> &names)
{
    RemoveDeviceCategories();
    CEGUID store;
    CREATE_SYSTEMGUID(&store);
    CEDBASEINFO info = {};
    info.dwFlags = CEDB_VALIDNAME;
    lstrcpyW(info.szDbaseName, kDeviceCategoryDbName);
    CEOID oid = CeCreateDatabaseEx(&store, &info);
    ASSERT_NE(oid, 0u);
    HANDLE db = CeOpenDatabaseEx(&store, &oid, nullptr, 0, 0, nullptr);
    ASSERT_NE(db, INVALID_HANDLE_VALUE);
    for (const std::wstring &name : names) {
        CEPROPVAL v = {};
        v.propid = PROP_DEVICE_CATEGORY;
        v.val.lpwstr = const_cast<LPWSTR>(name.c_str());
        EXPECT_NE(CeWriteRecordProps(db, 0, 1, &v), 0u);
    }
    CloseHandle(db);
}

std::wstring VolumePath()
{
    WCHAR path[MAX_PATH + 16];
    CategoryVolumePath(path, MAX_PATH + 16);
    return path;
}

void RemoveVolume()
{
    SetFileAttributesW(VolumePath().c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileW(VolumePath().c_str());
}

void WriteVolume(const std::vector<StoredCategory> &categories)
{
    dbvol::Volume v;
    uint32_t oid = 0;
    ASSERT_EQ(dbvol::CreateDatabase(v, u"categoryprops", 0, 0, {{PROP_CATEGORY_NAME, 0}}, 0, oid),
              dbvol::Status::Ok);
    dbvol::Database *db = dbvol::FindDatabase(v, oid);
    for (const StoredCategory &c : categories) {
        long color = (long)c.color;
        short icon = (short)c.icon;
        std::vector<dbvol::PropWrite> props = {
            {{PROP_CATEGORY_NAME, Text(c.name)}, false},
            {{PROP_CATEGORY_COLOR, Bytes(&color, 4)}, false},
            {{PROP_CATEGORY_ICON, Bytes(&icon, 2)}, false},
        };
        uint32_t written = 0;
        ASSERT_EQ(dbvol::WriteRecord(v, *db, 0, props, 0, written), dbvol::Status::Ok);
    }
    std::vector<uint8_t> bytes = dbvol::Encode(v);
    WriteAll(VolumePath(), std::vector<BYTE>(bytes.begin(), bytes.end()));
}

bool FileExists(const std::wstring &path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::vector<BYTE> ReadAll(const std::wstring &path)
{
    std::vector<BYTE> bytes;
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return bytes;
    DWORD size = GetFileSize(f, nullptr), done = 0;
    bytes.resize(size);
    if (size)
        ReadFile(f, bytes.data(), size, &done, nullptr);
    bytes.resize(done);
    CloseHandle(f);
    return bytes;
}

void WriteAll(const std::wstring &path, const std::vector<BYTE> &bytes)
{
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE);
    DWORD done = 0;
    if (!bytes.empty())
        WriteFile(f, bytes.data(), (DWORD)bytes.size(), &done, nullptr);
    CloseHandle(f);
}

void MakeSparseZeros(const std::wstring &path, unsigned long long size)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE);
    LARGE_INTEGER at;
    at.QuadPart = (LONGLONG)size;
    SetFilePointerEx(f, at, nullptr, FILE_BEGIN);
    SetEndOfFile(f);
    CloseHandle(f);
}

FileStamp Stamp(const std::wstring &path)
{
    WIN32_FILE_ATTRIBUTE_DATA a = {};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &a);
    return {((unsigned long long)a.nFileSizeHigh << 32) | a.nFileSizeLow, a.ftLastWriteTime};
}
