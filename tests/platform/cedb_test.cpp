// The handheld's property database calls over the volume file, as the
// program uses them: error codes, buffers, seek modes and sort order, and
// another writer's changes to the same file.
#include "cedb.h"
#include "dbvol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

const CEPROPID kName = 0x000A001F, kColour = 0x000B0003, kIcon = 0x000C0002;

// Every record's name from the handle's position on, as the program reads on.
std::wstring ReadOn(HANDLE h) {
    std::wstring out;
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 1;
    CEPROPID want = kName;
    while (CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, &want, &buf, &size)) {
        out += reinterpret_cast<CEPROPVAL *>(buf)->val.lpwstr;
        out += L",";
    }
    EXPECT_EQ(GetLastError(), DWORD(ERROR_NO_MORE_ITEMS));
    LocalFree(buf);
    return out;
}

class CeDb : public ::testing::Test {
protected:
    std::wstring dir, vol;
    CEGUID guid;
    void SetUp() override {
        WCHAR tmp[MAX_PATH];
        GetTempPathW(MAX_PATH, tmp);
        dir = std::wstring(tmp) + L"lf-cedb-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
              std::to_wstring(GetTickCount());
        ASSERT_TRUE(CreateDirectoryW(dir.c_str(), nullptr));
        vol = dir + L"\\settings.vol";
        CREATE_INVALIDGUID(&guid);
    }
    void TearDown() override {
        if (!CHECK_INVALIDGUID(&guid))
            while (CeUnmountDBVol(&guid)) {
            }
        WIN32_FIND_DATAW fd;
        HANDLE f = FindFirstFileW((dir + L"\\*").c_str(), &fd);
        if (f != INVALID_HANDLE_VALUE) {
            do {
                std::wstring p = dir + L"\\" + fd.cFileName;
                SetFileAttributesW(p.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW(p.c_str());
            } while (FindNextFileW(f, &fd));
            FindClose(f);
        }
        RemoveDirectoryW(dir.c_str());
    }
    void Mount() { ASSERT_TRUE(CeMountDBVol(&guid, &vol[0], OPEN_ALWAYS)) << GetLastError(); }
    // "categoryprops" as the program opens it: created on the first open that finds nothing.
    HANDLE OpenCategories() {
        CEOID oid = 0;
        HANDLE h = CeOpenDatabaseEx(&guid, &oid, const_cast<LPWSTR>(L"categoryprops"), kName, CEDB_AUTOINCREMENT, nullptr);
        if (h == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_NOT_FOUND) {
            CEDBASEINFO info = {};
            info.dwFlags = CEDB_VALIDCREATE;
            lstrcpyW(info.szDbaseName, L"categoryprops");
            info.wNumSortOrder = 1;
            info.rgSortSpecs[0].propid = kName;
            EXPECT_NE(CeCreateDatabaseEx(&guid, &info), 0u) << GetLastError();
            h = CeOpenDatabaseEx(&guid, &oid, const_cast<LPWSTR>(L"categoryprops"), kName, CEDB_AUTOINCREMENT, nullptr);
        }
        EXPECT_NE(h, INVALID_HANDLE_VALUE) << GetLastError();
        return h;
    }
    CEOID Add(HANDLE h, const wchar_t *name, LONG colour, short icon) {
        CEPROPVAL v[3] = {};
        v[0].propid = kName;
        v[0].val.lpwstr = const_cast<LPWSTR>(name);
        v[1].propid = kColour;
        v[1].val.lVal = colour;
        v[2].propid = kIcon;
        v[2].val.iVal = icon;
        CEOID oid = CeWriteRecordProps(h, 0, 3, v);
        EXPECT_NE(oid, 0u) << GetLastError();
        return oid;
    }
    // Every record's name in the handle's order, read from the start (an
    // empty database has no start to seek to).
    std::wstring Names(HANDLE h) {
        CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr);
        return ReadOn(h);
    }
};

TEST_F(CeDb, MountingReportsTheHandheldsErrors) {
    EXPECT_FALSE(CeMountDBVol(nullptr, &vol[0], OPEN_ALWAYS));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(CeMountDBVol(&guid, nullptr, OPEN_ALWAYS));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(CeMountDBVol(&guid, &vol[0], 99));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(CeMountDBVol(&guid, &vol[0], OPEN_EXISTING));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(CHECK_INVALIDGUID(&guid)) << "a failed mount gives the invalid identifier";

    Mount();
    EXPECT_NE(GetFileAttributesW(vol.c_str()), INVALID_FILE_ATTRIBUTES) << "OPEN_ALWAYS creates the file";
    CEGUID again;
    ASSERT_TRUE(CeMountDBVol(&again, &vol[0], OPEN_EXISTING));
    EXPECT_EQ(memcmp(&again, &guid, sizeof guid), 0) << "the same volume, the same identifier";
    EXPECT_TRUE(CeUnmountDBVol(&again));
    EXPECT_TRUE(CeUnmountDBVol(&guid));
    EXPECT_FALSE(CeUnmountDBVol(&guid));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    CEGUID bad;
    CREATE_INVALIDGUID(&bad);
    EXPECT_FALSE(CeUnmountDBVol(&bad));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    CREATE_INVALIDGUID(&guid);
}

TEST_F(CeDb, DamagedAndForeignVolumesAreReportedAndKept) {
    struct Case {
        const char *what;
        std::string bytes;
        DWORD error;
    } cases[] = {
        {"foreign", "BEGIN:VCALENDAR\r\n", ERROR_BAD_FORMAT},
        {"cut inside the header", std::string("LFDBVOL\x1a\x01\x00", 10), ERROR_FILE_CORRUPT},
        {"zeros", std::string(4096, '\0'), ERROR_BAD_FORMAT},
    };
    for (const Case &c : cases) {
        HANDLE f = CreateFileW(vol.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD put;
        WriteFile(f, c.bytes.data(), DWORD(c.bytes.size()), &put, nullptr);
        ::CloseHandle(f);
        for (DWORD disp : {OPEN_ALWAYS, CREATE_ALWAYS, OPEN_EXISTING}) {
            EXPECT_FALSE(CeMountDBVol(&guid, &vol[0], disp)) << c.what;
            EXPECT_EQ(GetLastError(), c.error) << c.what << " disposition " << disp;
        }
        WIN32_FILE_ATTRIBUTE_DATA a;
        ASSERT_TRUE(GetFileAttributesExW(vol.c_str(), GetFileExInfoStandard, &a));
        EXPECT_EQ(a.nFileSizeLow, c.bytes.size()) << c.what << ": the file is left as it was";
    }
    CREATE_INVALIDGUID(&guid);
}

TEST_F(CeDb, CreatingOpeningAndCountingAsTheProgramDoes) {
    Mount();
    CEOID oid = 0;
    EXPECT_EQ(CeOpenDatabaseEx(&guid, &oid, const_cast<LPWSTR>(L"categoryprops"), kName, 1, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
    HANDLE h = OpenCategories();
    CEOIDINFO info;
    CEOID dbOid = 0;
    HANDLE e = CeFindFirstDatabaseEx(&guid, 0);
    ASSERT_NE(e, INVALID_HANDLE_VALUE);
    dbOid = CeFindNextDatabaseEx(e, &guid);
    EXPECT_NE(dbOid, 0u);
    EXPECT_EQ(CeFindNextDatabaseEx(e, &guid), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_NO_MORE_ITEMS));
    EXPECT_TRUE(CloseHandle(e));
    ASSERT_TRUE(CeOidGetInfoEx(&guid, dbOid, &info));
    EXPECT_EQ(info.wObjType, OBJTYPE_DATABASE);
    EXPECT_STREQ(info.infDatabase.szDbaseName, L"categoryprops");
    EXPECT_EQ(info.infDatabase.wNumRecords, 0);
    EXPECT_EQ(info.infDatabase.wNumSortOrder, 1);
    EXPECT_EQ(info.infDatabase.rgSortSpecs[0].propid, kName);

    CEOID rec = Add(h, L"Work", 0x00FF7777, 3);
    ASSERT_TRUE(CeOidGetInfoEx(&guid, dbOid, &info));
    EXPECT_EQ(info.infDatabase.wNumRecords, 1);
    ASSERT_TRUE(CeOidGetInfoEx(&guid, rec, &info));
    EXPECT_EQ(info.wObjType, OBJTYPE_RECORD);
    EXPECT_EQ(info.infRecord.oidParent, dbOid);
    EXPECT_FALSE(CeOidGetInfoEx(&guid, 0xDEAD, &info));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));

    CEDBASEINFO dup = {};
    dup.dwFlags = CEDB_VALIDCREATE;
    lstrcpyW(dup.szDbaseName, L"CategoryProps");
    EXPECT_EQ(CeCreateDatabaseEx(&guid, &dup), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_DUP_NAME));
    EXPECT_EQ(CeOpenDatabaseEx(&guid, &oid, const_cast<LPWSTR>(L"categoryprops"), kColour, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER)) << "not a sort order of the database";

    // Deleting an open database is refused; closed, it goes.
    EXPECT_FALSE(CeDeleteDatabaseEx(&guid, dbOid));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
    EXPECT_TRUE(CloseHandle(h));
    EXPECT_TRUE(CeDeleteDatabaseEx(&guid, dbOid));
    EXPECT_FALSE(CeDeleteDatabaseEx(&guid, dbOid));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
}

TEST_F(CeDb, ReadingFillsOrAllocatesTheBufferAsTheHandheldDoes) {
    Mount();
    HANDLE h = OpenCategories();
    Add(h, L"Work", 0x00FF7777, 3);
    ASSERT_NE(CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr), 0u);

    // A buffer of our own that is too small, without reallocation: 122 and the size needed.
    BYTE small[16];
    LPBYTE p = small;
    DWORD size = sizeof small;
    WORD count = 0;
    EXPECT_EQ(CeReadRecordProps(h, 0, &count, nullptr, &p, &size), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_GT(size, 3 * sizeof(CEPROPVAL));
    EXPECT_EQ(p, small);

    // No buffer and CEDB_ALLOWREALLOC: the call allocates one with LocalAlloc.
    LPBYTE buf = nullptr;
    size = 0;
    CEOID got = CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size);
    ASSERT_NE(got, 0u) << GetLastError();
    ASSERT_NE(buf, nullptr);
    EXPECT_GE(LocalSize(buf), size);
    ASSERT_EQ(count, 3);
    CEPROPVAL *v = reinterpret_cast<CEPROPVAL *>(buf);
    EXPECT_EQ(v[0].propid, kName);
    EXPECT_STREQ(v[0].val.lpwstr, L"Work");
    EXPECT_EQ(v[1].propid, kColour);
    EXPECT_EQ(v[1].val.lVal, 0x00FF7777);
    EXPECT_EQ(v[2].propid, kIcon);
    EXPECT_EQ(v[2].val.iVal, 3);
    // Auto-increment moved past the only record.
    EXPECT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_NO_MORE_ITEMS));

    // Asked-for properties come in the order asked; a missing one is flagged.
    ASSERT_NE(CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr), 0u);
    CEPROPID want[3] = {kIcon, 0x00200013, kName};
    count = 3;
    ASSERT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, want, &buf, &size), got);
    v = reinterpret_cast<CEPROPVAL *>(buf);
    EXPECT_EQ(v[0].val.iVal, 3);
    EXPECT_EQ(v[1].propid, 0x00200013u);
    EXPECT_EQ(v[1].wFlags, CEDB_PROPNOTFOUND);
    EXPECT_STREQ(v[2].val.lpwstr, L"Work");
    EXPECT_EQ(LocalFree(buf), nullptr);

    // A LocalAlloc buffer too small is grown; a big enough one of our own is filled in place.
    struct Case {
        const char *what;
        DWORD flags;
        bool local;
        DWORD size;
    } cases[] = {
        {"small local buffer, reallocated", CEDB_ALLOWREALLOC, true, 8},
        {"large local buffer, kept", CEDB_ALLOWREALLOC, true, 4096},
        {"large own buffer, no flag", 0, false, 4096},
    };
    static BYTE own[4096];
    for (const Case &c : cases) {
        ASSERT_NE(CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr), 0u);
        LPBYTE b = c.local ? static_cast<LPBYTE>(LocalAlloc(LMEM_FIXED, c.size)) : own;
        DWORD sz = c.size;
        count = 0;
        EXPECT_EQ(CeReadRecordProps(h, c.flags, &count, nullptr, &b, &sz), got) << c.what;
        EXPECT_EQ(count, 3) << c.what;
        EXPECT_STREQ(reinterpret_cast<CEPROPVAL *>(b)[0].val.lpwstr, L"Work") << c.what;
        if (c.local) {
            EXPECT_GE(LocalSize(b), sz) << c.what;
            EXPECT_EQ(LocalFree(b), nullptr) << c.what;
        } else {
            EXPECT_EQ(b, own) << c.what;
        }
    }

    EXPECT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, nullptr, nullptr, &buf, &size), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(CeReadRecordProps(INVALID_HANDLE_VALUE, 0, &count, nullptr, &buf, &size), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    CloseHandle(h);
}

TEST_F(CeDb, WritingChangesInPlaceAddsAndDeletes) {
    Mount();
    HANDLE h = OpenCategories();
    CEOID work = Add(h, L"Work", 1, 0);
    CEPROPVAL colour = {};
    colour.propid = kColour;
    colour.val.lVal = 0x0080FFFF;
    EXPECT_EQ(CeWriteRecordProps(h, work, 1, &colour), work);
    CEPROPVAL gone = {};
    gone.propid = kIcon;
    gone.wFlags = CEDB_PROPDELETE;
    EXPECT_EQ(CeWriteRecordProps(h, work, 1, &gone), work);

    struct Bad {
        const char *what;
        CEOID oid;
        WORD count;
        CEPROPVAL val;
    } bad[] = {
        {"no properties", 0, 0, {kColour, 0, 0, {}}},
        {"a record that is not there", 0xDEAD, 1, {kColour, 0, 0, {}}},
        {"an unknown type", 0, 1, {0x00010099, 0, 0, {}}},
        {"a null text", 0, 1, {kName, 0, 0, {}}},
    };
    for (Bad &b : bad) {
        EXPECT_EQ(CeWriteRecordProps(h, b.oid, b.count, &b.val), 0u) << b.what;
        EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER)) << b.what;
    }
    std::vector<BYTE> big(70000);
    CEPROPVAL blob = {};
    blob.propid = 0x00300041;
    blob.val.blob.dwCount = DWORD(big.size());
    blob.val.blob.lpb = big.data();
    EXPECT_EQ(CeWriteRecordProps(h, 0, 1, &blob), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));

    // What was written is on disk: unmounted and mounted again, it reads back.
    CloseHandle(h);
    ASSERT_TRUE(CeUnmountDBVol(&guid));
    Mount();
    h = OpenCategories();
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 0;
    ASSERT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), work);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(reinterpret_cast<CEPROPVAL *>(buf)[1].val.lVal, 0x0080FFFF);
    LocalFree(buf);

    EXPECT_TRUE(CeDeleteRecord(h, work));
    EXPECT_FALSE(CeDeleteRecord(h, work));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Names(h), L"");
    CloseHandle(h);
}

TEST_F(CeDb, RecordsComeInTheSortOrderAndEverySeekModeMoves) {
    Mount();
    HANDLE h = OpenCategories();
    CEOID holiday = Add(h, L"Holiday", 2, 0);
    CEOID work = Add(h, L"Work", 1, 0);
    CEOID birthday = Add(h, L"Birthday", 3, 0);
    CEOID personal = Add(h, L"Personal", 4, 0);
    EXPECT_EQ(Names(h), L"Birthday,Holiday,Personal,Work,");

    auto key = [](const wchar_t *s) {
        CEPROPVAL v = {};
        v.propid = kName;
        v.val.lpwstr = const_cast<LPWSTR>(s);
        return v;
    };
    CEPROPVAL h1 = key(L"Holiday"), g = key(L"Gym"), z = key(L"Zoo"), p = key(L"Personal");
    struct Step {
        const char *what;
        DWORD type;
        DWORD_PTR value;
        CEOID want;        // 0: the seek fails
        DWORD index;
    } steps[] = {
        {"beginning 0", CEDB_SEEK_BEGINNING, 0, birthday, 0},
        {"beginning 2", CEDB_SEEK_BEGINNING, 2, personal, 2},
        {"current -1", CEDB_SEEK_CURRENT, DWORD(-1), holiday, 1},
        {"current +3", CEDB_SEEK_CURRENT, 3, 0, 0},              // would be past the last
        {"current +2", CEDB_SEEK_CURRENT, 2, work, 3},
        {"end 1", CEDB_SEEK_END, 1, personal, 2},
        {"beginning 4", CEDB_SEEK_BEGINNING, 4, 0, 0},
        {"by oid", CEDB_SEEK_CEOID, holiday, holiday, 1},
        {"first equal", CEDB_SEEK_VALUEFIRSTEQUAL, DWORD_PTR(&p), personal, 2},
        {"smaller than Personal from there", CEDB_SEEK_VALUESMALLER, DWORD_PTR(&p), holiday, 1},
        {"greater than Gym from Holiday", CEDB_SEEK_VALUEGREATER, DWORD_PTR(&g), holiday, 1},
        {"next equal to Holiday", CEDB_SEEK_VALUENEXTEQUAL, DWORD_PTR(&h1), 0, 0},
        {"first equal Zoo", CEDB_SEEK_VALUEFIRSTEQUAL, DWORD_PTR(&z), 0, 0},
        {"unknown seek", 0x1000, 0, 0, 0},
    };
    for (const Step &s : steps) {
        DWORD index = 0xFFFF;
        CEOID got = CeSeekDatabase(h, s.type, s.value, &index);
        EXPECT_EQ(got, s.want) << s.what;
        if (s.want) {
            EXPECT_EQ(index, s.index) << s.what;
        }
    }
    // A failed value seek leaves the position at the end.
    WORD count = 0;
    LPBYTE buf = nullptr;
    DWORD size = 0;
    EXPECT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_NO_MORE_ITEMS));
    LocalFree(buf);

    // Opened without a sort, records come in the order they were made.
    CloseHandle(h);
    CEOID oid = 0;
    h = CeOpenDatabaseEx(&guid, &oid, const_cast<LPWSTR>(L"categoryprops"), 0, CEDB_AUTOINCREMENT, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Names(h), L"Holiday,Work,Birthday,Personal,");
    CEPROPVAL any = key(L"Work");
    EXPECT_EQ(CeSeekDatabase(h, CEDB_SEEK_VALUEFIRSTEQUAL, DWORD_PTR(&any), nullptr), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER)) << "a value seek needs a sort";
    CloseHandle(h);
}

// A volume file that cannot be replaced: the write fails with the file's
// error, and the record stays as it was, in the file and in memory.
TEST_F(CeDb, AWriteThatCannotReachTheFileChangesNothing) {
    Mount();
    HANDLE h = OpenCategories();
    CEOID work = Add(h, L"Work", 1, 0);
    ASSERT_TRUE(SetFileAttributesW(vol.c_str(), FILE_ATTRIBUTE_READONLY));
    CEPROPVAL colour = {};
    colour.propid = kColour;
    colour.val.lVal = 2;
    EXPECT_EQ(CeWriteRecordProps(h, work, 1, &colour), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(CeDeleteRecord(h, work));
    ASSERT_NE(CeSeekDatabase(h, CEDB_SEEK_CEOID, work, nullptr), 0u);
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 0;
    ASSERT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), work);
    EXPECT_EQ(reinterpret_cast<CEPROPVAL *>(buf)[1].val.lVal, 1);
    LocalFree(buf);
    SetFileAttributesW(vol.c_str(), FILE_ATTRIBUTE_NORMAL);
    CloseHandle(h);
    EXPECT_EQ(GetFileAttributesW((vol + L".new").c_str()), INVALID_FILE_ATTRIBUTES) << "the new file is cleaned up";
}

// What a write cut short by a crash leaves beside the volume: it is never
// read, and the next write replaces it.
TEST_F(CeDb, AHalfWrittenNewFileFromACrashIsIgnored) {
    Mount();
    HANDLE h = OpenCategories();
    CEOID work = Add(h, L"Work", 1, 0);
    CloseHandle(h);
    ASSERT_TRUE(CeUnmountDBVol(&guid));
    HANDLE f = CreateFileW((vol + L".new").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD put;
    WriteFile(f, "LFDBVOL\x1a\x01", 9, &put, nullptr);
    ::CloseHandle(f);

    Mount();
    h = OpenCategories();
    EXPECT_EQ(Names(h), L"Work,");
    CEPROPVAL colour = {};
    colour.propid = kColour;
    colour.val.lVal = 9;
    EXPECT_EQ(CeWriteRecordProps(h, work, 1, &colour), work) << GetLastError();
    CloseHandle(h);
    EXPECT_EQ(GetFileAttributesW((vol + L".new").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(CeDb, AFullVolumeReportsDiskFull) {
    Mount();
    CEDBASEINFO info = {};
    info.dwFlags = CEDB_VALIDNAME;
    int made = 0;
    for (; made < 300; made++) {
        wsprintfW(info.szDbaseName, L"db%d", made);
        if (!CeCreateDatabaseEx(&guid, &info))
            break;
    }
    EXPECT_EQ(GetLastError(), DWORD(ERROR_DISK_FULL));
    EXPECT_EQ(made, 256);
}

TEST_F(CeDb, TheObjectStoreIsAVolumeOfItsOwn) {
    std::wstring store = dir + L"\\objectstore.vol";
    SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", store.c_str());
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    CEDBASEINFO info = {};
    info.dwFlags = CEDB_VALIDNAME;
    lstrcpyW(info.szDbaseName, L"Categories Database");
    CEOID db = CeCreateDatabaseEx(&sys, &info);
    ASSERT_NE(db, 0u) << GetLastError();
    HANDLE e = CeFindFirstDatabaseEx(&sys, 0);
    EXPECT_EQ(CeFindNextDatabaseEx(e, &sys), db);
    CloseHandle(e);
    EXPECT_NE(GetFileAttributesW(store.c_str()), INVALID_FILE_ATTRIBUTES);

    // The calls without a volume reach the same store, as on the handheld.
    e = CeFindFirstDatabase(0);
    ASSERT_NE(e, INVALID_HANDLE_VALUE);
    EXPECT_EQ(CeFindNextDatabase(e), db);
    EXPECT_EQ(CeFindNextDatabase(e), 0u);
    CloseHandle(e);
    CEOIDINFO found;
    ASSERT_TRUE(CeOidGetInfo(db, &found));
    EXPECT_STREQ(found.infDatabase.szDbaseName, L"Categories Database");
    CEOID oid = 0;
    HANDLE h = CeOpenDatabase(&oid, const_cast<LPWSTR>(L"Categories Database"), 0, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(oid, db);
    CloseHandle(h);
    EXPECT_TRUE(CeDeleteDatabaseEx(&sys, db));
}


CEPROPVAL NameKey(const wchar_t *s) {
    CEPROPVAL v = {};
    v.propid = kName;
    v.val.lpwstr = const_cast<LPWSTR>(s);
    return v;
}

// A handle reading in sequence while another handle writes: it reads on in
// the order as it is now, and seeks by value or place find the records where
// the changed order has them.
TEST_F(CeDb, WritesBetweenSequentialReadsKeepTheOrderAndTheSeeksRight) {
    Mount();
    HANDLE h = OpenCategories();
    Add(h, L"Holiday", 1, 0);
    CEOID work = Add(h, L"Work", 2, 0);
    CEOID birthday = Add(h, L"Birthday", 3, 0);
    CEOID personal = Add(h, L"Personal", 4, 0);
    CEOID oid = 0;
    HANDLE w = CeOpenDatabaseEx(&guid, &oid, const_cast<LPWSTR>(L"categoryprops"), kName, 0, nullptr);
    ASSERT_NE(w, INVALID_HANDLE_VALUE);

    CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr);
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 0;
    EXPECT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), birthday);
    LocalFree(buf);
    // One before the position, one after it.
    Add(w, L"Anniversary", 5, 0);
    CEOID music = Add(w, L"Music", 6, 0);
    EXPECT_EQ(ReadOn(h), L"Holiday,Music,Personal,Work,");

    CEPROPVAL zebra = NameKey(L"Zebra"), m = NameKey(L"Music");
    CEPROPVAL rename = zebra;
    EXPECT_EQ(CeWriteRecordProps(w, birthday, 1, &rename), birthday);
    struct Step {
        const char *what;
        HANDLE change;   // deletes `gone` first when set
        CEOID gone;
        DWORD type;
        DWORD_PTR value;
        CEOID want;
        DWORD index;
    } steps[] = {
        {"renamed to the end", nullptr, 0, CEDB_SEEK_VALUEFIRSTEQUAL, DWORD_PTR(&zebra), birthday, 5},
        {"music after the rename", nullptr, 0, CEDB_SEEK_VALUEFIRSTEQUAL, DWORD_PTR(&m), music, 2},
        {"the last by place", nullptr, 0, CEDB_SEEK_END, 0, birthday, 5},
        {"music after a delete before it", w, personal, CEDB_SEEK_VALUEFIRSTEQUAL, DWORD_PTR(&m), music, 2},
        {"the last after a delete", nullptr, 0, CEDB_SEEK_END, 0, birthday, 4},
        {"fourth by place", nullptr, 0, CEDB_SEEK_BEGINNING, 3, work, 3},
    };
    for (const Step &s : steps) {
        if (s.change) {
            EXPECT_TRUE(CeDeleteRecord(s.change, s.gone)) << s.what;
        }
        DWORD index = 0xFFFF;
        CEOID got = CeSeekDatabase(h, s.type, s.value, &index);
        EXPECT_EQ(got, s.want) << s.what;
        EXPECT_EQ(index, s.index) << s.what;
    }
    EXPECT_EQ(Names(h), L"Anniversary,Holiday,Music,Work,Zebra,");

    // A handle that does not move on by itself is told its record is gone,
    // then reads on from the next one.
    EXPECT_EQ(CeSeekDatabase(w, CEDB_SEEK_CEOID, music, nullptr), music);
    EXPECT_TRUE(CeDeleteRecord(h, music));
    buf = nullptr;
    size = 0;
    EXPECT_EQ(CeReadRecordProps(w, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_KEY_DELETED));
    EXPECT_NE(CeReadRecordProps(w, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size), 0u);
    EXPECT_STREQ(reinterpret_cast<CEPROPVAL *>(buf)[0].val.lpwstr, L"Work");
    LocalFree(buf);
    CloseHandle(w);
    CloseHandle(h);
}

// The calendar server writes the object store through its own copy of these
// calls, and another process may write a volume too: every call sees the
// file's latest commit, and a write keeps what the other writer added. The
// other writer here is the volume code itself, committing to the same path.
TEST_F(CeDb, AnotherWritersCommitsAreSeenAndKept) {
    Mount();
    HANDLE h = OpenCategories();
    Add(h, L"Work", 1, 0);
    CEOID holiday = Add(h, L"Holiday", 2, 0);

    static const dbvol::Io io = {
        dbvol::NativeIo().readAll, dbvol::NativeIo().writeNew,
        [](const std::string &from, const std::string &to) {
            return MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
        },
        nullptr};
    std::string path(vol.begin(), vol.end());
    auto other = [&](const char *what, auto change) {
        dbvol::Volume v;
        ASSERT_EQ(dbvol::Open(io, path, dbvol::Disposition::OpenExisting, v), dbvol::Status::Ok) << what;
        dbvol::Database *db = dbvol::FindDatabase(v, u"categoryprops");
        ASSERT_NE(db, nullptr) << what;
        ASSERT_EQ(change(v, *db), dbvol::Status::Ok) << what;
        ASSERT_EQ(dbvol::Commit(io, v), dbvol::Status::Ok) << what;
    };
    auto text = [](const char16_t *s) {
        std::u16string t(s);
        return std::vector<uint8_t>(reinterpret_cast<const uint8_t *>(t.data()),
                                    reinterpret_cast<const uint8_t *>(t.data() + t.size()));
    };
    uint32_t birthday = 0;
    other("add two", [&](dbvol::Volume &v, dbvol::Database &db) {
        uint32_t personal = 0;
        dbvol::WriteRecord(v, db, 0, {{{kName, text(u"Birthday")}, false}}, 1, birthday);
        return dbvol::WriteRecord(v, db, 0, {{{kName, text(u"Personal")}, false}}, 1, personal);
    });
    EXPECT_EQ(Names(h), L"Birthday,Holiday,Personal,Work,");
    CEOID zoo = Add(h, L"Zoo", 3, 0);
    EXPECT_NE(zoo, CEOID(birthday));
    {
        dbvol::Volume v;
        ASSERT_EQ(dbvol::Open(io, path, dbvol::Disposition::OpenExisting, v), dbvol::Status::Ok);
        EXPECT_EQ(dbvol::FindDatabase(v, u"categoryprops")->records.size(), 5u) << "the write kept the other's records";
    }

    // A change of one size at once: the colour read is the new one.
    other("recolour", [&](dbvol::Volume &v, dbvol::Database &db) {
        uint32_t same = 0;
        std::vector<uint8_t> colour = {0x44, 0x33, 0x22, 0x11};
        return dbvol::WriteRecord(v, db, holiday, {{{kColour, colour}, false}}, 2, same);
    });
    EXPECT_EQ(CeSeekDatabase(h, CEDB_SEEK_CEOID, holiday, nullptr), holiday);
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 1;
    CEPROPID want = kColour;
    EXPECT_EQ(CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, &want, &buf, &size), holiday);
    EXPECT_EQ(reinterpret_cast<CEPROPVAL *>(buf)[0].val.lVal, 0x11223344);
    LocalFree(buf);

    // A database the other writer made is found and listed.
    other("new database", [&](dbvol::Volume &v, dbvol::Database &) {
        uint32_t made = 0;
        return dbvol::CreateDatabase(v, u"Categories Database", 0, 0, {}, 3, made);
    });
    HANDLE e = CeFindFirstDatabaseEx(&guid, 0);
    int listed = 0;
    while (CeFindNextDatabaseEx(e, &guid))
        listed++;
    CloseHandle(e);
    EXPECT_EQ(listed, 2);

    // The file replaced by something that is no volume: reported, and a
    // write does not overwrite it.
    HANDLE f = CreateFileW(vol.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD put;
    WriteFile(f, "LFDBVOL\x1a damaged beyond repair, on purpose.", 46, &put, nullptr);
    ::CloseHandle(f);
    CEPROPVAL name = NameKey(L"Lost");
    EXPECT_EQ(CeWriteRecordProps(h, 0, 1, &name), 0u);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_CORRUPT));
    WIN32_FILE_ATTRIBUTE_DATA a;
    ASSERT_TRUE(GetFileAttributesExW(vol.c_str(), GetFileExInfoStandard, &a));
    EXPECT_EQ(a.nFileSizeLow, 46u) << "the damaged file is kept as it is";
    CloseHandle(h);
}

// Two processes writing one volume at once: each takes its turn, reloads
// and commits, so every record both wrote is in the file at the end. The
// other process is this test program again, running the writer below.
const int kEachWrites = 40;

void WriteNamed(HANDLE h, const wchar_t *who) {
    for (int i = 0; i < kEachWrites; i++) {
        wchar_t name[32];
        wsprintfW(name, L"%s %d", who, i);
        CEPROPVAL v = NameKey(name);
        EXPECT_NE(CeWriteRecordProps(h, 0, 1, &v), 0u) << GetLastError();
    }
}

TEST_F(CeDb, TwoProcessesWritingAtOnceLoseNothing) {
    Mount();
    HANDLE h = OpenCategories();
    std::wstring ready = L"Local\\lf-cedb-ready-" + std::to_wstring(GetCurrentProcessId());
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, ready.c_str());
    ASSERT_NE(event, nullptr);
    WCHAR exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring cmd = L"\"" + std::wstring(exe) + L"\" --gtest_filter=CeDbWriter.WritesItsShare";
    SetEnvironmentVariableW(L"LF_CEDB_WRITER_VOLUME", vol.c_str());
    SetEnvironmentVariableW(L"LF_CEDB_WRITER_READY", ready.c_str());
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    BOOL started = CreateProcessW(exe, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi);
    SetEnvironmentVariableW(L"LF_CEDB_WRITER_VOLUME", nullptr);
    SetEnvironmentVariableW(L"LF_CEDB_WRITER_READY", nullptr);
    ASSERT_TRUE(started) << GetLastError();
    // Both start writing once the other process is up; the limits only keep
    // a broken writer from hanging the suite.
    HANDLE both[2] = {event, pi.hProcess};
    EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, 120000), WAIT_OBJECT_0);
    WriteNamed(h, L"Here");
    EXPECT_EQ(WaitForSingleObject(pi.hProcess, 120000), WAIT_OBJECT_0);
    DWORD code = 1;
    GetExitCodeProcess(pi.hProcess, &code);
    EXPECT_EQ(code, 0u) << "the other writer failed";
    ::CloseHandle(pi.hProcess);
    ::CloseHandle(pi.hThread);
    ::CloseHandle(event);

    std::wstring names = Names(h);
    size_t count = std::count(names.begin(), names.end(), L',');
    EXPECT_EQ(count, size_t(2 * kEachWrites));
    for (const wchar_t *who : {L"Here 0,", L"Here 39,", L"There 0,", L"There 39,"})
        EXPECT_NE(names.find(who), std::wstring::npos) << who;
    CloseHandle(h);
}

// What a writer process of these tests opens: the volume its test names, and "categoryprops"
// there.
static HANDLE OpenWritersCategories(WCHAR *path, CEGUID *guid) {
    if (!CeMountDBVol(guid, path, OPEN_EXISTING)) {
        ADD_FAILURE() << "the volume does not mount: " << GetLastError();
        return INVALID_HANDLE_VALUE;
    }
    CEOID oid = 0;
    return CeOpenDatabaseEx(guid, &oid, const_cast<LPWSTR>(L"categoryprops"), kName, CEDB_AUTOINCREMENT, nullptr);
}

// The other process of the test above; nothing to do when run on its own.
TEST(CeDbWriter, WritesItsShare) {
    WCHAR path[MAX_PATH], ready[128];
    if (!GetEnvironmentVariableW(L"LF_CEDB_WRITER_VOLUME", path, MAX_PATH) ||
        !GetEnvironmentVariableW(L"LF_CEDB_WRITER_READY", ready, 128))
        GTEST_SKIP() << "run by TwoProcessesWritingAtOnceLoseNothing";
    CEGUID guid;
    HANDLE h = OpenWritersCategories(path, &guid);
    ASSERT_NE(h, INVALID_HANDLE_VALUE) << GetLastError();
    HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, ready);
    ASSERT_NE(event, nullptr);
    SetEvent(event);
    ::CloseHandle(event);
    WriteNamed(h, L"There");
    CloseHandle(h);
    CeUnmountDBVol(&guid);
}

// Kills of a writer under Wine: each starts a process, so far fewer than the 500 of the
// native volume test, which kills its writers at any moment of the same commit.
const int kWriterKills = 12;

// The record's name and colour as one read gives them.
static bool ReadNameAndColour(HANDLE h, CEOID record, std::wstring &name, LONG &colour) {
    if (!CeSeekDatabase(h, CEDB_SEEK_CEOID, record, nullptr))
        return false;
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 0;
    if (!CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size))
        return false;
    const CEPROPVAL *v = reinterpret_cast<const CEPROPVAL *>(buf);
    for (WORD i = 0; i < count; i++) {
        if (v[i].propid == kName)
            name = v[i].val.lpwstr;
        if (v[i].propid == kColour)
            colour = v[i].val.lVal;
    }
    LocalFree(buf);
    return true;
}

// A process writing the record over and over through these calls, killed at random moments in
// the middle of its writes: after every kill the volume mounts, and the record is one the writer
// wrote whole (its name carries its colour's number); the turn the killed writer held passes on.
TEST_F(CeDb, AWriterKilledMidWriteLeavesAWholeRecord) {
    Mount();
    HANDLE h = OpenCategories();
    CEOID record = Add(h, L"Work 0", 0, 0);
    CloseHandle(h);
    std::wstring committed = L"Local\\lf-cedb-committed-" + std::to_wstring(GetCurrentProcessId());
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, committed.c_str());
    ASSERT_NE(event, nullptr);
    WCHAR exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    // The writers' output goes nowhere: a killed gtest leaves half a report.
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE quiet = CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                               OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(quiet, INVALID_HANDLE_VALUE);
    unsigned seed = 2026;
    LONG last = 0;
    for (int kill = 0; kill < kWriterKills; kill++) {
        std::wstring cmd = L"\"" + std::wstring(exe) + L"\" --gtest_filter=CeDbWriter.WritesUntilKilled";
        SetEnvironmentVariableW(L"LF_CEDB_KILLED_VOLUME", vol.c_str());
        SetEnvironmentVariableW(L"LF_CEDB_KILLED_COMMITTED", committed.c_str());
        SetEnvironmentVariableW(L"LF_CEDB_KILLED_FROM", std::to_wstring((kill + 1) * 100000).c_str());
        // A commit the last writer made after its last awaited one must not count for this one.
        ResetEvent(event);
        STARTUPINFOW si = {};
        si.cb = sizeof si;
        si.dwFlags = STARTF_USESTDHANDLES;
        si.hStdInput = si.hStdOutput = si.hStdError = quiet;
        PROCESS_INFORMATION pi;
        BOOL started = CreateProcessW(exe, &cmd[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
        SetEnvironmentVariableW(L"LF_CEDB_KILLED_VOLUME", nullptr);
        SetEnvironmentVariableW(L"LF_CEDB_KILLED_COMMITTED", nullptr);
        SetEnvironmentVariableW(L"LF_CEDB_KILLED_FROM", nullptr);
        ASSERT_TRUE(started) << GetLastError();
        // One to three whole writes, then a kill somewhere inside a later one.
        seed = seed * 1103515245u + 12345u;
        HANDLE both[2] = {event, pi.hProcess};
        for (unsigned k = 0; k <= (seed >> 16) % 3; k++)
            ASSERT_EQ(WaitForMultipleObjects(2, both, FALSE, 60000), WAIT_OBJECT_0)
                << "kill " << kill << ": the writer stopped by itself";
        Sleep((seed >> 8) % 4);
        TerminateProcess(pi.hProcess, 9);
        WaitForSingleObject(pi.hProcess, 60000);
        ::CloseHandle(pi.hProcess);
        ::CloseHandle(pi.hThread);

        h = OpenCategories();
        ASSERT_NE(h, INVALID_HANDLE_VALUE) << "kill " << kill;
        std::wstring name;
        LONG colour = -1;
        ASSERT_TRUE(ReadNameAndColour(h, record, name, colour)) << "kill " << kill << ": " << GetLastError();
        CloseHandle(h);
        EXPECT_EQ(name, L"Work " + std::to_wstring(colour)) << "kill " << kill << ": a record mixed from two writes";
        EXPECT_GT(colour, last) << "kill " << kill << ": a reported write is lost";
        last = colour;
    }
    ::CloseHandle(quiet);
    ::CloseHandle(event);
}

// The writer of the test above; nothing to do when run on its own.
TEST(CeDbWriter, WritesUntilKilled) {
    WCHAR path[MAX_PATH], committed[128], from[32];
    if (!GetEnvironmentVariableW(L"LF_CEDB_KILLED_VOLUME", path, MAX_PATH) ||
        !GetEnvironmentVariableW(L"LF_CEDB_KILLED_COMMITTED", committed, 128) ||
        !GetEnvironmentVariableW(L"LF_CEDB_KILLED_FROM", from, 32))
        GTEST_SKIP() << "run by AWriterKilledMidWriteLeavesAWholeRecord";
    CEGUID guid;
    HANDLE h = OpenWritersCategories(path, &guid);
    ASSERT_NE(h, INVALID_HANDLE_VALUE) << GetLastError();
    CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr);
    LPBYTE buf = nullptr;
    DWORD size = 0;
    WORD count = 0;
    CEOID record = CeReadRecordProps(h, CEDB_ALLOWREALLOC, &count, nullptr, &buf, &size);
    LocalFree(buf);
    ASSERT_NE(record, 0u) << GetLastError();
    HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, committed);
    ASSERT_NE(event, nullptr);
    // A long name, so that a write takes a while to reach the file.
    std::wstring padding(2000, L'.');
    for (LONG n = _wtol(from);; n++) {
        std::wstring name = L"Work " + std::to_wstring(n);
        CEPROPVAL v[3] = {};
        v[0].propid = kName;
        v[0].val.lpwstr = &name[0];
        v[1].propid = kColour;
        v[1].val.lVal = n;
        v[2].propid = 0x000D001F;
        v[2].val.lpwstr = &padding[0];
        ASSERT_EQ(CeWriteRecordProps(h, record, 3, v), record) << GetLastError();
        SetEvent(event);
    }
}

static std::string FileBytes(const std::wstring &path) {
    std::string out;
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return out;
    char buf[4096];
    DWORD got = 0;
    while (ReadFile(f, buf, sizeof buf, &got, nullptr) && got)
        out.append(buf, got);
    ::CloseHandle(f);
    return out;
}

// Changes inside a batch wait in memory and reach the file in one write at its end; a batch
// dropped, or one whose write fails, leaves the volume as before it.
TEST_F(CeDb, ABatchWritesOnceOrNotAtAll) {
    Mount();
    HANDLE h = OpenCategories();
    Add(h, L"Work", 1, 0);
    std::string before = FileBytes(vol);
    struct {
        const char *name;
        BOOL keep;
        bool readOnly;
        BOOL ended;
        const wchar_t *names;
    } cases[] = {
        {"kept", TRUE, false, TRUE, L"Home,Travel,Work,"},
        {"dropped", FALSE, false, TRUE, L"Home,Travel,Work,"},
        {"write fails", TRUE, true, FALSE, L"Home,Travel,Work,"},
    };
    for (auto &c : cases) {
        before = FileBytes(vol);
        ASSERT_TRUE(DesktopBeginVolumeBatch(&guid)) << c.name;
        ASSERT_TRUE(DesktopBeginVolumeBatch(&guid)) << c.name << ": batches nest";
        if (std::string(c.name) == "kept") {
            Add(h, L"Travel", 2, 1);
            Add(h, L"Home", 3, 2);
        } else {
            Add(h, L"Zoo", 4, 3);
        }
        EXPECT_TRUE(DesktopEndVolumeBatch(&guid, TRUE)) << c.name;
        EXPECT_TRUE(FileBytes(vol) == before) << c.name << ": nothing written inside the batch";
        if (c.readOnly)
            SetFileAttributesW(vol.c_str(), FILE_ATTRIBUTE_READONLY);
        EXPECT_EQ(DesktopEndVolumeBatch(&guid, c.keep), c.ended) << c.name;
        SetFileAttributesW(vol.c_str(), FILE_ATTRIBUTE_NORMAL);
        EXPECT_EQ(Names(h), c.names) << c.name;
    }
    EXPECT_FALSE(DesktopEndVolumeBatch(&guid, TRUE)) << "no batch open";
    CloseHandle(h);
    ASSERT_TRUE(CeUnmountDBVol(&guid));
    CREATE_INVALIDGUID(&guid);
    Mount();
    h = OpenCategories();
    EXPECT_EQ(Names(h), L"Home,Travel,Work,") << "what the file holds";
    CloseHandle(h);
}

// The object store is written by other copies of these calls (the calendar server's DLL has
// its own) and other programs: a file changed since it was read is read again, even while one
// of its databases is open here; a damaged one is reported and left as it is.
TEST_F(CeDb, TheObjectStoreFollowsItsFile) {
    std::wstring store = dir + L"\\objectstore.vol", other = dir + L"\\other.vol";
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    auto names = [&]() {
        std::wstring out;
        HANDLE e = CeFindFirstDatabaseEx(&sys, 0);
        if (e == INVALID_HANDLE_VALUE)
            return std::wstring(L"<error>");
        CEOID db;
        while ((db = CeFindNextDatabaseEx(e, &sys)) != 0) {
            CEOIDINFO info;
            if (CeOidGetInfoEx(&sys, db, &info))
                out += std::wstring(info.infDatabase.szDbaseName) + L",";
        }
        CloseHandle(e);
        return out;
    };
    auto create = [&](const wchar_t *name) {
        CEDBASEINFO info = {};
        info.dwFlags = CEDB_VALIDNAME;
        lstrcpyW(info.szDbaseName, name);
        EXPECT_NE(CeCreateDatabaseEx(&sys, &info), 0u) << GetLastError();
    };
    // Another writer's volume, made here under another name.
    SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", other.c_str());
    create(L"Theirs");
    SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", store.c_str());
    create(L"Categories Database");
    EXPECT_EQ(names(), L"Categories Database,");

    CEOID oid = 0;
    HANDLE open = CeOpenDatabaseEx(&sys, &oid, const_cast<LPWSTR>(L"Categories Database"), 0, 0, nullptr);
    ASSERT_NE(open, INVALID_HANDLE_VALUE);
    ASSERT_TRUE(CopyFileW(other.c_str(), store.c_str(), FALSE));
    EXPECT_EQ(names(), L"Theirs,") << "read again while a database is open";
    CloseHandle(open);
    EXPECT_EQ(names(), L"Theirs,") << "and after it is closed";

    std::string damaged = "LFDBVOL\x1a" + std::string(60, 'x');
    HANDLE f = CreateFileW(store.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD put = 0;
    WriteFile(f, damaged.data(), DWORD(damaged.size()), &put, nullptr);
    ::CloseHandle(f);
    EXPECT_EQ(CeFindFirstDatabaseEx(&sys, 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_CORRUPT));
    CEDBASEINFO info = {};
    info.dwFlags = CEDB_VALIDNAME;
    lstrcpyW(info.szDbaseName, L"Mine");
    EXPECT_EQ(CeCreateDatabaseEx(&sys, &info), 0u);
    EXPECT_TRUE(FileBytes(store) == damaged) << "the damaged file is kept";
    SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", nullptr);
}

}  // namespace
