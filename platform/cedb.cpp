#include "cedb.h"

#include "dbvol.h"

#include <shlobj.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <vector>

// This file closes the system's handles itself.
#undef CloseHandle

namespace {

// The Win32 error of the last failed file call, for the report of an Io failure.
DWORD g_ioError;

std::wstring Wide(const std::string &s) {
    int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), nullptr, 0);
    std::wstring w(n, L'\0');
    if (n)
        MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), &w[0], n);
    return w;
}
std::string Utf8(const std::wstring &w) {
    int n = WideCharToMultiByte(CP_UTF8, 0, w.data(), int(w.size()), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    if (n)
        WideCharToMultiByte(CP_UTF8, 0, w.data(), int(w.size()), &s[0], n, nullptr, nullptr);
    return s;
}

// A volume shared with another program (the object store is) can be held for a moment by its
// reads and writes; a call then waits a little and tries again.
bool Busy(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
}
const int kBusyTries = 100;
const DWORD kBusyWaitMs = 10;

dbvol::Status WinRead(const std::string &path, uint32_t limit, std::vector<uint8_t> &out) {
    HANDLE f = INVALID_HANDLE_VALUE;
    for (int tries = 0; f == INVALID_HANDLE_VALUE; tries++) {
        f = CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (f != INVALID_HANDLE_VALUE || !Busy(GetLastError()) || tries == kBusyTries)
            break;
        Sleep(kBusyWaitMs);
    }
    if (f == INVALID_HANDLE_VALUE) {
        g_ioError = GetLastError();
        return g_ioError == ERROR_FILE_NOT_FOUND ? dbvol::Status::NotFound : dbvol::Status::Io;
    }
    LARGE_INTEGER size;
    dbvol::Status s = dbvol::Status::Ok;
    if (!GetFileSizeEx(f, &size)) {
        g_ioError = GetLastError();
        s = dbvol::Status::Io;
    } else if (size.QuadPart > limit) {
        s = dbvol::Status::TooLarge;
    } else {
        out.resize(size_t(size.QuadPart));
        DWORD got = 0;
        if (!out.empty() && (!ReadFile(f, out.data(), DWORD(out.size()), &got, nullptr) || got != out.size())) {
            g_ioError = GetLastError();
            s = dbvol::Status::Io;
        }
    }
    ::CloseHandle(f);
    return s;
}

bool WinWrite(const std::string &path, const uint8_t *data, size_t n) {
    HANDLE f = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) {
        g_ioError = GetLastError();
        return false;
    }
    DWORD put = 0;
    bool ok = WriteFile(f, data, DWORD(n), &put, nullptr) && put == n && FlushFileBuffers(f);
    if (!ok)
        g_ioError = GetLastError();
    ::CloseHandle(f);
    if (!ok)
        DeleteFileW(Wide(path).c_str());
    return ok;
}

bool WinReplace(const std::string &from, const std::string &to) {
    // A read-only volume stays as it is. Windows refuses to replace a
    // read-only file; Wine replaces it, so the check is made here for both.
    DWORD attrs = GetFileAttributesW(Wide(to).c_str());
    if (attrs != INVALID_FILE_ATTRIBUTES && (attrs & FILE_ATTRIBUTE_READONLY)) {
        g_ioError = ERROR_ACCESS_DENIED;
        DeleteFileW(Wide(from).c_str());
        return false;
    }
    // A file open elsewhere cannot be replaced, even when it was opened to
    // allow it: another process looking at the volume (its readers open it
    // for a moment, without the writers' turn) holds the commit up briefly,
    // so it is tried again for a while before it is reported.
    for (int tries = 0;; tries++) {
        if (MoveFileExW(Wide(from).c_str(), Wide(to).c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return true;
        g_ioError = GetLastError();
        if (!Busy(g_ioError) || tries == kBusyTries)
            break;
        Sleep(kBusyWaitMs);
    }
    DeleteFileW(Wide(from).c_str());
    return false;
}

// The attributes come without opening the file, which under Wine costs
// far more than the lookup: the header is read only when asked for.
dbvol::Status WinStamp(const std::string &path, bool header, dbvol::Stamp &out) {
    std::wstring wide = Wide(path);
    WIN32_FILE_ATTRIBUTE_DATA a;
    if (!GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &a)) {
        g_ioError = GetLastError();
        return g_ioError == ERROR_FILE_NOT_FOUND || g_ioError == ERROR_PATH_NOT_FOUND ? dbvol::Status::NotFound
                                                                                       : dbvol::Status::Io;
    }
    out = dbvol::Stamp();
    out.present = true;
    out.size = uint64_t(a.nFileSizeHigh) << 32 | a.nFileSizeLow;
    out.modified = uint64_t(a.ftLastWriteTime.dwHighDateTime) << 32 | a.ftLastWriteTime.dwLowDateTime;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    uint64_t t = uint64_t(now.dwHighDateTime) << 32 | now.dwLowDateTime;
    out.recent = out.modified + dbvol::kSettleSeconds * 10000000ull > t;
    if (!header)
        return dbvol::Status::Ok;
    HANDLE f = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) {
        g_ioError = GetLastError();
        return g_ioError == ERROR_FILE_NOT_FOUND ? dbvol::Status::NotFound : dbvol::Status::Io;
    }
    DWORD got = 0;
    bool ok = ReadFile(f, out.header, sizeof out.header, &got, nullptr);
    if (!ok)
        g_ioError = GetLastError();
    ::CloseHandle(f);
    out.hasHeader = ok;
    return ok ? dbvol::Status::Ok : dbvol::Status::Io;
}

const dbvol::Io kIo = {WinRead, WinWrite, WinReplace, WinStamp};

// Reports a core result as the handheld's error code; true when it is Ok.
bool Report(dbvol::Status s) {
    using dbvol::Status;
    switch (s) {
    case Status::Ok: return true;
    case Status::NotFound: SetLastError(ERROR_FILE_NOT_FOUND); break;
    case Status::Exists: SetLastError(ERROR_ALREADY_EXISTS); break;
    case Status::Empty:
    case Status::Foreign: SetLastError(ERROR_BAD_FORMAT); break;
    case Status::Damaged: SetLastError(ERROR_FILE_CORRUPT); break;
    case Status::TooLarge: SetLastError(ERROR_FILE_TOO_LARGE); break;
    case Status::Full: SetLastError(ERROR_DISK_FULL); break;
    case Status::Invalid: SetLastError(ERROR_INVALID_PARAMETER); break;
    // A full disk reports 112 as the handheld's full object store does.
    case Status::Io: SetLastError(g_ioError ? g_ioError : ERROR_WRITE_FAULT); break;
    }
    return false;
}

int LocaleCompare(const char16_t *a, size_t na, const char16_t *b, size_t nb, bool ignoreCase) {
    int r = CompareStringW(LOCALE_USER_DEFAULT, ignoreCase ? NORM_IGNORECASE : 0, reinterpret_cast<LPCWSTR>(a),
                           int(na), reinterpret_cast<LPCWSTR>(b), int(nb));
    if (r == 0)
        return dbvol::OrdinalCompare(a, na, b, nb, ignoreCase);
    return r - CSTR_EQUAL;
}

uint64_t Now() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    return uint64_t(ft.dwHighDateTime) << 32 | ft.dwLowDateTime;
}

struct Mounted {
    DWORD serial;
    std::wstring path;   // as given, compared without regard to case
    int mounts;
    dbvol::Volume vol;
    // Counts the changes to vol (a write through any handle, a reload of the
    // file, a batch's change), so a handle knows when the order it sorted is
    // out of date.
    uint64_t generation;
    // Open batches: changes wait in memory for the last to end, which writes
    // them at once. The writers' turn is held from the first batch's start
    // to the last one's end, so nothing another writer commits in between is
    // undone by the batch's write.
    int batches;
    bool batchChanged;
    dbvol::Volume beforeBatch;
    HANDLE batchLock;
};
struct OpenDb {
    DWORD serial;        // the volume's
    CEOID db;
    CEPROPID sort;
    DWORD flags;
    CEOID current;       // 0 at the end
    size_t pos;
    // The records in this handle's order, as of the volume's generation:
    // sorting once per change rather than once per call keeps reading a
    // database in sequence linear.
    bool ordered;
    uint64_t orderGeneration;
    std::vector<size_t> order;
    // The current record was deleted (here or by another writer) under a
    // handle that does not move on by itself: the next read reports it.
    bool lost;
};
struct Enumeration {
    std::vector<CEOID> dbs;
    size_t next;
};

std::vector<std::unique_ptr<Mounted>> g_volumes;
std::map<HANDLE, std::unique_ptr<OpenDb>> g_open;
std::map<HANDLE, std::unique_ptr<Enumeration>> g_enums;
DWORD g_nextSerial = 1;
const DWORD kGuidMark = 0x4C464442;   // "LFDB" in the second word of our identifiers

// The object store's file: LANTERNFIELDS_OBJECTSTORE, else objectstore.vol in the user's
// Lanternfields application-data folder; empty when there is none.
std::wstring ObjectStorePath() {
    WCHAR path[MAX_PATH + 40];
    DWORD n = GetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) {
        if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, path))) {
            SetLastError(ERROR_PATH_NOT_FOUND);
            return L"";
        }
        lstrcatW(path, L"\\Lanternfields");
        CreateDirectoryW(path, nullptr);
        lstrcatW(path, L"\\objectstore.vol");
    }
    return path;
}

// The object store, mounted on first use. It is shared: the program and the
// calendar server (each with its own copy of these calls, one in the
// program, one in the server's DLL) and other programs write it, so every
// call brings it up to its file (see Fresh); a different file named since
// it was mounted is read in its place.
Mounted *ObjectStore() {
    std::wstring path = ObjectStorePath();
    if (path.empty())
        return nullptr;
    for (auto &m : g_volumes) {
        if (m->serial != 0)
            continue;
        if (m->batches || lstrcmpiW(m->path.c_str(), path.c_str()) == 0)
            return m.get();
        dbvol::Volume again;
        g_ioError = 0;
        if (!Report(dbvol::Open(kIo, Utf8(path), dbvol::Disposition::OpenAlways, again)))
            return nullptr;
        m->vol = std::move(again);
        m->path = path;
        m->generation++;
        return m.get();
    }
    std::unique_ptr<Mounted> m(new Mounted{0, path, 1, {}, 0, 0, false, {}, nullptr});
    if (!Report(dbvol::Open(kIo, Utf8(m->path), dbvol::Disposition::OpenAlways, m->vol)))
        return nullptr;
    g_volumes.push_back(std::move(m));
    return g_volumes.back().get();
}

// Brings a mounted volume up to its file: the calendar server (a copy of
// this code in its own DLL) and other processes write the same files.
// Inside a batch the writers' turn is held and memory is ahead of the file:
// nothing to read.
bool Fresh(Mounted *m) {
    if (m->batches)
        return true;
    bool reloaded = false;
    g_ioError = 0;
    if (!Report(dbvol::Refresh(kIo, m->vol, reloaded)))
        return false;
    if (reloaded)
        m->generation++;
    return true;
}

// The mounted volume the identifier names, brought up to its file.
Mounted *FindVolume(PCEGUID g) {
    if (!g) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Mounted *found = nullptr;
    if (CHECK_SYSTEMGUID(g)) {
        // The object store's file is looked up on every call: the program
        // may be pointed at another one since it was mounted.
        found = ObjectStore();
        if (!found)
            return nullptr;
    } else if (g->Data2 == kGuidMark && g->Data3 == 0 && g->Data4 == 0) {
        for (auto &m : g_volumes)
            if (m->serial == g->Data1 && m->serial != 0)
                found = m.get();
    }
    if (!found) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return Fresh(found) ? found : nullptr;
}

// The handheld reports a handle that is not an open database as a bad parameter.
OpenDb *FindOpen(HANDLE h) {
    auto it = g_open.find(h);
    if (it == g_open.end()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return it->second.get();
}

// The volume and database behind an open handle; the database may have been
// deleted or its volume unmounted since.
bool Resolve(OpenDb *o, Mounted *&m, dbvol::Database *&db) {
    m = nullptr;
    db = nullptr;
    for (auto &v : g_volumes)
        if (v->serial == o->serial)
            m = v.get();
    if (m && !Fresh(m))
        return false;
    // Found by its identifier, so a handle keeps working across a reload.
    db = m ? dbvol::FindDatabase(m->vol, o->db) : nullptr;
    if (!db) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return true;
}

// The records in the handle's order, sorted again only when the volume has
// changed since, with the position following its record.
const std::vector<size_t> &Order(OpenDb *o, const Mounted *m, const dbvol::Database &db) {
    if (!o->ordered || o->orderGeneration != m->generation) {
        o->order = dbvol::SortedOrder(db, o->sort, LocaleCompare);
        o->orderGeneration = m->generation;
        o->ordered = true;
    }
    const std::vector<size_t> &order = o->order;
    if (o->current) {
        // Reading in sequence finds its record where it left it.
        if (o->pos < order.size() && db.records[order[o->pos]].oid == o->current)
            return order;
        for (size_t i = 0; i < order.size(); i++)
            if (db.records[order[i]].oid == o->current) {
                o->pos = i;
                return order;
            }
        // Its record is gone: the position stays where it was, on the next
        // one; a handle that does not move on by itself is told first.
        if (!(o->flags & CEDB_AUTOINCREMENT))
            o->lost = true;
    }
    o->pos = std::min(o->pos, order.size());
    o->current = o->pos < order.size() ? db.records[order[o->pos]].oid : 0;
    return order;
}

void MoveTo(OpenDb *o, const dbvol::Database &db, const std::vector<size_t> &order, size_t pos) {
    o->pos = std::min(pos, order.size());
    o->current = o->pos < order.size() ? db.records[order[o->pos]].oid : 0;
    o->lost = false;
}

// Makes a change on a copy of the volume and keeps it only once it is on
// disk, so a failed write leaves memory as the file is.
// Inside a batch the change is kept in memory only, for the batch's end to write.
template <class F> bool ChangeHeld(Mounted *m, F change) {
    g_ioError = 0;
    dbvol::Volume copy = m->vol;
    if (!Report(change(copy)))
        return false;
    if (m->batches) {
        m->vol = std::move(copy);
        m->batchChanged = true;
        m->generation++;
        return true;
    }
    if (!Report(dbvol::Commit(kIo, copy)))
        return false;
    m->vol = std::move(copy);
    m->generation++;
    return true;
}

// The writers of one volume file (this copy, the calendar server's copy in
// its DLL, other processes) take turns through a mutex named after the file,
// so none commits between another's reload and its commit, which would undo
// the other's change.
HANDLE WriterLock(const Mounted *m) {
    WCHAR full[MAX_PATH];
    DWORD n = GetFullPathNameW(m->path.c_str(), MAX_PATH, full, nullptr);
    std::wstring path = n && n < MAX_PATH ? std::wstring(full) : m->path;
    if (!path.empty())
        CharLowerBuffW(&path[0], DWORD(path.size()));
    std::string bytes = Utf8(path);
    WCHAR name[64];
    wsprintfW(name, L"Local\\LanternfieldsVolume-%08lX",
              static_cast<unsigned long>(dbvol::Crc32(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size())));
    return CreateMutexW(nullptr, FALSE, name);
}

// Waits for the writers' turn on the volume's file; the mutex is returned
// held (null when none could be made: then the volume is written without
// turns, as it would be alone).
bool TakeTurn(const Mounted *m, HANDLE &lock) {
    lock = WriterLock(m);
    if (!lock)
        return true;
    // A writer that holds its turn this long has hung; better to report
    // the volume busy than to hang the program with it.
    DWORD w = WaitForSingleObject(lock, 30000);
    if (w != WAIT_OBJECT_0 && w != WAIT_ABANDONED) {
        ::CloseHandle(lock);
        lock = nullptr;
        SetLastError(ERROR_SHARING_VIOLATION);
        return false;
    }
    return true;
}

void GiveTurn(HANDLE &lock) {
    if (!lock)
        return;
    DWORD error = GetLastError();
    ReleaseMutex(lock);
    ::CloseHandle(lock);
    lock = nullptr;
    SetLastError(error);
}

// Makes a change on a copy of the volume as the file has it now, under the
// writers' turn, and keeps it only once it is on disk. A batch already holds
// the turn and has read the file at its start.
template <class F> bool Change(Mounted *m, F change) {
    if (m->batches)
        return ChangeHeld(m, change);
    HANDLE lock;
    if (!TakeTurn(m, lock))
        return false;
    bool ok = Fresh(m) && ChangeHeld(m, change);
    GiveTurn(lock);
    return ok;
}

// One lock over every call: the volumes and handles are shared by whatever
// threads the program gives the database work to.
std::recursive_mutex g_lock;

#define GUARD_BEGIN                                   \
    std::lock_guard<std::recursive_mutex> held(g_lock); \
    try {
#define GUARD_END(fail)                                   \
    }                                                     \
    catch (const std::bad_alloc &) {                      \
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);            \
        return fail;                                      \
    }

}  // namespace

BOOL CeMountDBVol(PCEGUID pceguid, LPWSTR lpszVol, DWORD dwFlags) {
    GUARD_BEGIN
    // A failed mount leaves the invalid identifier, which the program tests
    // before it unmounts.
    if (pceguid)
        CREATE_INVALIDGUID(pceguid);
    if (!pceguid || !lpszVol || !*lpszVol || dwFlags < CREATE_NEW || dwFlags > TRUNCATE_EXISTING) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    WCHAR full[MAX_PATH];
    DWORD n = GetFullPathNameW(lpszVol, MAX_PATH, full, nullptr);
    if (n == 0 || n >= MAX_PATH) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    for (auto &m : g_volumes)
        if (m->serial != 0 && lstrcmpiW(m->path.c_str(), full) == 0) {
            if (dwFlags == CREATE_NEW) {
                SetLastError(ERROR_ALREADY_EXISTS);
                return FALSE;
            }
            m->mounts++;
            *pceguid = CEGUID{m->serial, kGuidMark, 0, 0};
            return TRUE;
        }
    static const dbvol::Disposition kDisp[] = {dbvol::Disposition::CreateNew, dbvol::Disposition::CreateAlways,
                                               dbvol::Disposition::OpenExisting, dbvol::Disposition::OpenAlways,
                                               dbvol::Disposition::TruncateExisting};
    std::unique_ptr<Mounted> m(new Mounted{g_nextSerial, full, 1, {}, 0, 0, false, {}, nullptr});
    g_ioError = 0;
    if (!Report(dbvol::Open(kIo, Utf8(m->path), kDisp[dwFlags - CREATE_NEW], m->vol)))
        return FALSE;
    g_nextSerial++;
    *pceguid = CEGUID{m->serial, kGuidMark, 0, 0};
    g_volumes.push_back(std::move(m));
    return TRUE;
    GUARD_END(FALSE)
}

BOOL DesktopBeginVolumeBatch(PCEGUID pceguid) {
    GUARD_BEGIN
    Mounted *m = FindVolume(pceguid);
    if (!m)
        return FALSE;
    if (m->batches == 0) {
        // The batch's changes are made on the file as it is now, and no
        // other writer commits until the batch's end has written them.
        if (!TakeTurn(m, m->batchLock))
            return FALSE;
        if (!Fresh(m)) {
            GiveTurn(m->batchLock);
            return FALSE;
        }
        m->beforeBatch = m->vol;
        m->batchChanged = false;
    }
    m->batches++;
    return TRUE;
    GUARD_END(FALSE)
}

BOOL DesktopEndVolumeBatch(PCEGUID pceguid, BOOL keep) {
    GUARD_BEGIN
    Mounted *m = FindVolume(pceguid);
    if (!m || m->batches == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (--m->batches > 0)
        return TRUE;
    dbvol::Volume before = std::move(m->beforeBatch);
    m->beforeBatch = dbvol::Volume();
    BOOL ok = TRUE;
    if (m->batchChanged) {
        g_ioError = 0;
        if (!keep || !Report(dbvol::Commit(kIo, m->vol))) {
            // Memory goes back to the file as the batch found it.
            DWORD error = keep ? GetLastError() : ERROR_SUCCESS;
            m->vol = std::move(before);
            m->generation++;
            SetLastError(error);
            ok = !keep;
        }
    }
    GiveTurn(m->batchLock);
    return ok;
    GUARD_END(FALSE)
}

BOOL CeUnmountDBVol(PCEGUID pceguid) {
    std::lock_guard<std::recursive_mutex> held(g_lock);
    Mounted *m = pceguid && !CHECK_SYSTEMGUID(pceguid) ? FindVolume(pceguid) : nullptr;
    if (!m) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (--m->mounts == 0) {
        // A batch left open is dropped with the volume; its turn is given up.
        GiveTurn(m->batchLock);
        g_volumes.erase(std::find_if(g_volumes.begin(), g_volumes.end(),
                                     [&](const std::unique_ptr<Mounted> &p) { return p.get() == m; }));
    }
    return TRUE;
}

CEOID CeCreateDatabaseEx(PCEGUID pceguid, CEDBASEINFO *pInfo) {
    GUARD_BEGIN
    Mounted *m = FindVolume(pceguid);
    if (!m)
        return 0;
    if (!pInfo || !(pInfo->dwFlags & CEDB_VALIDNAME) ||
        ((pInfo->dwFlags & CEDB_VALIDSORTSPEC) && pInfo->wNumSortOrder > CEDB_MAXSORTORDER)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    size_t len = 0;
    while (len < CEDB_MAXDBASENAMELEN && pInfo->szDbaseName[len])
        len++;
    if (len == CEDB_MAXDBASENAMELEN) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::u16string name(reinterpret_cast<const char16_t *>(pInfo->szDbaseName), len);
    std::vector<dbvol::SortRule> sorts;
    if (pInfo->dwFlags & CEDB_VALIDSORTSPEC)
        for (WORD i = 0; i < pInfo->wNumSortOrder; i++)
            sorts.push_back({pInfo->rgSortSpecs[i].propid, pInfo->rgSortSpecs[i].dwFlags});
    DWORD type = pInfo->dwFlags & CEDB_VALIDTYPE ? pInfo->dwDbaseType : 0;
    DWORD flags = pInfo->dwFlags & CEDB_VALIDDBFLAGS ? pInfo->dwFlags & CEDB_NOCOMPRESS : 0;
    uint32_t oid = 0;
    bool ok = Change(m, [&](dbvol::Volume &v) {
        dbvol::Status s = dbvol::CreateDatabase(v, name, type, flags, sorts, Now(), oid);
        return s;
    });
    if (!ok && GetLastError() == ERROR_ALREADY_EXISTS)
        SetLastError(ERROR_DUP_NAME);
    return ok ? oid : 0;
    GUARD_END(0)
}

HANDLE CeOpenDatabaseEx(PCEGUID pguid, PCEOID poid, LPWSTR lpszName, CEPROPID propid, DWORD dwFlags,
                        CENOTIFYREQUEST *) {
    GUARD_BEGIN
    Mounted *m = FindVolume(pguid);
    if (!m)
        return INVALID_HANDLE_VALUE;
    if (!poid || (*poid == 0 && !lpszName) || (dwFlags & ~CEDB_AUTOINCREMENT)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    dbvol::Database *db = *poid ? dbvol::FindDatabase(m->vol, *poid)
                                : dbvol::FindDatabase(m->vol, std::u16string(reinterpret_cast<const char16_t *>(lpszName)));
    if (!db) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (propid != 0 && std::none_of(db->sorts.begin(), db->sorts.end(),
                                    [&](const dbvol::SortRule &s) { return s.prop == propid; })) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::unique_ptr<OpenDb> o(new OpenDb{m->serial, db->oid, propid, dwFlags, 0, 0, false, 0, {}, false});
    Order(o.get(), m, *db);
    HANDLE h = reinterpret_cast<HANDLE>(o.get());
    g_open[h] = std::move(o);
    *poid = db->oid;
    return h;
    GUARD_END(INVALID_HANDLE_VALUE)
}

BOOL CeCloseHandle(HANDLE h) {
    std::lock_guard<std::recursive_mutex> held(g_lock);
    if (g_open.erase(h) || g_enums.erase(h))
        return TRUE;
    return ::CloseHandle(h);
}

BOOL CeDeleteDatabaseEx(PCEGUID pguid, CEOID oid) {
    GUARD_BEGIN
    Mounted *m = FindVolume(pguid);
    if (!m)
        return FALSE;
    if (!dbvol::FindDatabase(m->vol, oid)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    for (auto &o : g_open)
        if (o.second->serial == m->serial && o.second->db == oid) {
            SetLastError(ERROR_SHARING_VIOLATION);
            return FALSE;
        }
    return Change(m, [&](dbvol::Volume &v) {
        return dbvol::FindDatabase(v, oid) ? dbvol::DeleteDatabase(v, oid) : dbvol::Status::Invalid;
    });
    GUARD_END(FALSE)
}

BOOL CeOidGetInfoEx(PCEGUID pguid, CEOID oid, CEOIDINFO *info) {
    std::lock_guard<std::recursive_mutex> held(g_lock);
    Mounted *m = FindVolume(pguid);
    if (!m)
        return FALSE;
    if (!info) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (dbvol::Database *db = dbvol::FindDatabase(m->vol, oid)) {
        memset(info, 0, sizeof *info);
        info->wObjType = OBJTYPE_DATABASE;
        CEDBASEINFO &d = info->infDatabase;
        d.dwFlags = CEDB_VALIDNAME | CEDB_VALIDTYPE | CEDB_VALIDSORTSPEC | CEDB_VALIDMODTIME | CEDB_VALIDDBFLAGS |
                    db->flags;
        memcpy(d.szDbaseName, db->name.data(), db->name.size() * 2);
        d.dwDbaseType = db->type;
        d.wNumRecords = WORD(db->records.size());
        d.wNumSortOrder = WORD(db->sorts.size());
        size_t bytes = 0;
        for (const dbvol::Record &r : db->records)
            for (const dbvol::Prop &p : r.props)
                bytes += sizeof(CEPROPVAL) + p.data.size();
        d.dwSize = DWORD(bytes);
        d.ftLastModified.dwLowDateTime = DWORD(db->modified);
        d.ftLastModified.dwHighDateTime = DWORD(db->modified >> 32);
        for (size_t i = 0; i < db->sorts.size(); i++)
            d.rgSortSpecs[i] = SORTORDERSPEC{db->sorts[i].prop, db->sorts[i].flags};
        return TRUE;
    }
    if (dbvol::Database *db = dbvol::DatabaseOfRecord(m->vol, oid)) {
        memset(info, 0, sizeof *info);
        info->wObjType = OBJTYPE_RECORD;
        info->infRecord.oidParent = db->oid;
        return TRUE;
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

HANDLE CeFindFirstDatabaseEx(PCEGUID pguid, DWORD dwDbaseType) {
    GUARD_BEGIN
    Mounted *m = FindVolume(pguid);
    if (!m)
        return INVALID_HANDLE_VALUE;
    std::unique_ptr<Enumeration> e(new Enumeration{{}, 0});
    for (const dbvol::Database &db : m->vol.dbs)
        if (dwDbaseType == 0 || db.type == dwDbaseType)
            e->dbs.push_back(db.oid);
    HANDLE h = reinterpret_cast<HANDLE>(e.get());
    g_enums[h] = std::move(e);
    return h;
    GUARD_END(INVALID_HANDLE_VALUE)
}

CEOID CeFindNextDatabaseEx(HANDLE hEnum, PCEGUID) {
    std::lock_guard<std::recursive_mutex> held(g_lock);
    auto it = g_enums.find(hEnum);
    if (it == g_enums.end()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    Enumeration &e = *it->second;
    if (e.next >= e.dbs.size()) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return 0;
    }
    return e.dbs[e.next++];
}

CEOID CeReadRecordPropsEx(HANDLE hDbase, DWORD dwFlags, LPWORD lpcPropID, CEPROPID *rgPropID, LPBYTE *lplpBuffer,
                          LPDWORD lpcbBuffer, HANDLE) {
    GUARD_BEGIN
    OpenDb *o = FindOpen(hDbase);
    Mounted *m;
    dbvol::Database *db;
    if (!o || !Resolve(o, m, db))
        return 0;
    if (!lpcPropID || !lplpBuffer || !lpcbBuffer || (rgPropID && *lpcPropID == 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::vector<size_t> &order = Order(o, m, *db);
    if (o->lost) {
        // Reported once; the handle then reads on from the next record.
        o->lost = false;
        SetLastError(ERROR_KEY_DELETED);
        return 0;
    }
    if (o->pos >= order.size()) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return 0;
    }
    const dbvol::Record &rec = db->records[order[o->pos]];
    // The properties asked for, in the order asked; a missing one is flagged.
    std::vector<const dbvol::Prop *> props;
    std::vector<CEPROPID> ids;
    if (rgPropID) {
        for (WORD i = 0; i < *lpcPropID; i++) {
            ids.push_back(rgPropID[i]);
            props.push_back(dbvol::FindProp(rec, rgPropID[i]));
        }
    } else {
        for (const dbvol::Prop &p : rec.props) {
            ids.push_back(p.id);
            props.push_back(&p);
        }
    }
    // The buffer: the CEPROPVAL array, then each text (terminated) and blob,
    // each aligned to 8 so the program may read them in place.
    // Never 0, so a record whose properties were all deleted still gets a buffer.
    size_t need = std::max<size_t>(props.size() * sizeof(CEPROPVAL), 1);
    for (const dbvol::Prop *p : props)
        if (p && (TypeFromPropID(p->id) == CEVT_LPWSTR || TypeFromPropID(p->id) == CEVT_BLOB))
            need += (p->data.size() + 2 + 7) & ~size_t(7);
    if (*lpcbBuffer < need || !*lplpBuffer) {
        if (!(dwFlags & CEDB_ALLOWREALLOC)) {
            *lpcbBuffer = DWORD(need);
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return 0;
        }
        HLOCAL mem = *lplpBuffer ? LocalReAlloc(HLOCAL(*lplpBuffer), need, LMEM_MOVEABLE)
                                 : LocalAlloc(LMEM_FIXED, need);
        if (!mem) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return 0;
        }
        *lplpBuffer = static_cast<LPBYTE>(mem);
        *lpcbBuffer = DWORD(need);
    }
    LPBYTE base = *lplpBuffer;
    CEPROPVAL *vals = reinterpret_cast<CEPROPVAL *>(base);
    size_t at = props.size() * sizeof(CEPROPVAL);
    for (size_t i = 0; i < props.size(); i++) {
        CEPROPVAL &v = vals[i];
        memset(&v, 0, sizeof v);
        v.propid = ids[i];
        const dbvol::Prop *p = props[i];
        if (!p) {
            v.wFlags = CEDB_PROPNOTFOUND;
            continue;
        }
        switch (TypeFromPropID(p->id)) {
        case CEVT_LPWSTR:
        case CEVT_BLOB: {
            LPBYTE dst = base + at;
            if (!p->data.empty())
                memcpy(dst, p->data.data(), p->data.size());
            dst[p->data.size()] = dst[p->data.size() + 1] = 0;
            if (TypeFromPropID(p->id) == CEVT_LPWSTR) {
                v.val.lpwstr = reinterpret_cast<LPWSTR>(dst);
            } else {
                v.val.blob.dwCount = DWORD(p->data.size());
                v.val.blob.lpb = dst;
            }
            at += (p->data.size() + 2 + 7) & ~size_t(7);
            break;
        }
        default:
            memcpy(&v.val, p->data.data(), p->data.size());
        }
    }
    *lpcPropID = WORD(props.size());
    CEOID oid = rec.oid;
    if (o->flags & CEDB_AUTOINCREMENT)
        MoveTo(o, *db, order, o->pos + 1);
    return oid;
    GUARD_END(0)
}

CEOID CeReadRecordProps(HANDLE hDbase, DWORD dwFlags, LPWORD lpcPropID, CEPROPID *rgPropID, LPBYTE *lplpBuffer,
                        LPDWORD lpcbBuffer) {
    return CeReadRecordPropsEx(hDbase, dwFlags, lpcPropID, rgPropID, lplpBuffer, lpcbBuffer, nullptr);
}

CEOID CeWriteRecordProps(HANDLE hDbase, CEOID oidRecord, WORD cPropID, CEPROPVAL *rgPropVal) {
    GUARD_BEGIN
    OpenDb *o = FindOpen(hDbase);
    Mounted *m;
    dbvol::Database *db;
    if (!o || !Resolve(o, m, db))
        return 0;
    if (cPropID == 0 || !rgPropVal || (oidRecord && !dbvol::FindRecord(*db, oidRecord))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::vector<dbvol::PropWrite> writes;
    for (WORD i = 0; i < cPropID; i++) {
        const CEPROPVAL &v = rgPropVal[i];
        dbvol::PropWrite w{dbvol::Prop{v.propid, {}}, (v.wFlags & CEDB_PROPDELETE) != 0};
        if (!dbvol::KnownType(v.propid)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        if (!w.remove) {
            const uint8_t *src = reinterpret_cast<const uint8_t *>(&v.val);
            size_t n = 0;
            switch (TypeFromPropID(v.propid)) {
            case CEVT_I2:
            case CEVT_UI2: n = 2; break;
            case CEVT_I4:
            case CEVT_UI4:
            case CEVT_BOOL: n = 4; break;
            case CEVT_R8:
            case CEVT_FILETIME: n = 8; break;
            case CEVT_LPWSTR:
                if (!v.val.lpwstr) {
                    SetLastError(ERROR_INVALID_PARAMETER);
                    return 0;
                }
                src = reinterpret_cast<const uint8_t *>(v.val.lpwstr);
                // Bounded so an unterminated text is refused, not read on and on.
                n = 0;
                while (n <= dbvol::kMaxValueBytes / 2 && v.val.lpwstr[n])
                    n++;
                n *= 2;
                break;
            case CEVT_BLOB:
                if (v.val.blob.dwCount && !v.val.blob.lpb) {
                    SetLastError(ERROR_INVALID_PARAMETER);
                    return 0;
                }
                src = v.val.blob.lpb;
                n = v.val.blob.dwCount;
                break;
            }
            if (n > dbvol::kMaxValueBytes) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return 0;
            }
            w.prop.data.assign(src, src + n);
        }
        writes.push_back(std::move(w));
    }
    Order(o, m, *db);
    uint32_t written = 0;
    CEOID dbOid = db->oid;
    // Looked up again: another writer may have deleted the database or
    // the record since this call first looked.
    bool ok = Change(m, [&](dbvol::Volume &v) {
        dbvol::Database *d = dbvol::FindDatabase(v, dbOid);
        if (!d || (oidRecord && !dbvol::FindRecord(*d, oidRecord)))
            return dbvol::Status::Invalid;
        return dbvol::WriteRecord(v, *d, oidRecord, writes, Now(), written);
    });
    return ok ? written : 0;
    GUARD_END(0)
}

CEOID CeSeekDatabase(HANDLE hDatabase, DWORD dwSeekType, DWORD_PTR dwValue, LPDWORD lpdwIndex) {
    GUARD_BEGIN
    OpenDb *o = FindOpen(hDatabase);
    Mounted *m;
    dbvol::Database *db;
    if (!o || !Resolve(o, m, db))
        return 0;
    const std::vector<size_t> &order = Order(o, m, *db);
    size_t n = order.size();
    long long target = -1;
    auto value = [&](size_t i) { return dbvol::FindProp(db->records[order[i]], o->sort); };
    const dbvol::SortRule *rule = dbvol::FindSortRule(*db, o->sort);
    switch (dwSeekType) {
    case CEDB_SEEK_CEOID:
        for (size_t i = 0; i < n; i++)
            if (db->records[order[i]].oid == CEOID(dwValue))
                target = (long long)i;
        break;
    case CEDB_SEEK_BEGINNING: target = (long long)DWORD(dwValue); break;
    case CEDB_SEEK_CURRENT: target = (long long)o->pos + LONG(DWORD(dwValue)); break;
    case CEDB_SEEK_END: target = (long long)n - 1 - (long long)DWORD(dwValue); break;
    case CEDB_SEEK_VALUESMALLER:
    case CEDB_SEEK_VALUEFIRSTEQUAL:
    case CEDB_SEEK_VALUEGREATER:
    case CEDB_SEEK_VALUENEXTEQUAL: {
        const CEPROPVAL *want = reinterpret_cast<const CEPROPVAL *>(dwValue);
        if (!want || !rule || want->propid != o->sort) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        std::vector<uint8_t> key;
        switch (TypeFromPropID(want->propid)) {
        case CEVT_LPWSTR:
            if (!want->val.lpwstr) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return 0;
            }
            for (size_t k = 0; want->val.lpwstr[k] && k < dbvol::kMaxValueBytes / 2; k++) {
                key.push_back(uint8_t(want->val.lpwstr[k]));
                key.push_back(uint8_t(want->val.lpwstr[k] >> 8));
            }
            break;
        case CEVT_BLOB:
            if (want->val.blob.lpb)
                key.assign(want->val.blob.lpb, want->val.blob.lpb + std::min<DWORD>(want->val.blob.dwCount, 65535));
            break;
        default: {
            const uint8_t *src = reinterpret_cast<const uint8_t *>(&want->val);
            key.assign(src, src + 8);
            size_t w = TypeFromPropID(want->propid) == CEVT_I2 || TypeFromPropID(want->propid) == CEVT_UI2 ? 2
                       : TypeFromPropID(want->propid) == CEVT_R8 || TypeFromPropID(want->propid) == CEVT_FILETIME ? 8
                                                                                                                   : 4;
            key.resize(w);
        }
        }
        bool fold = rule->flags & CEDB_SORT_CASEINSENSITIVE, desc = rule->flags & CEDB_SORT_DESCENDING;
        // Compared in the sort's direction: negative is "before" in the order.
        auto cmp = [&](size_t i) {
            int c = dbvol::CompareValues(o->sort, value(i)->data, key, fold, LocaleCompare);
            return desc ? -c : c;
        };
        if (dwSeekType == CEDB_SEEK_VALUEFIRSTEQUAL) {
            for (size_t i = 0; i < n && target < 0; i++)
                if (value(i) && cmp(i) == 0)
                    target = (long long)i;
        } else if (dwSeekType == CEDB_SEEK_VALUENEXTEQUAL) {
            if (o->pos + 1 < n && value(o->pos + 1) && cmp(o->pos + 1) == 0)
                target = (long long)o->pos + 1;
        } else if (dwSeekType == CEDB_SEEK_VALUESMALLER) {
            for (long long i = (long long)std::min(o->pos, n ? n - 1 : 0); n && i >= 0 && target < 0; i--)
                if (value(size_t(i)) && cmp(size_t(i)) < 0)
                    target = i;
        } else {
            for (size_t i = o->pos; i < n && target < 0; i++)
                if (value(i) && cmp(i) > 0)
                    target = (long long)i;
        }
        if (target < 0) {
            // A failed value seek leaves the position at the end, as on the handheld.
            MoveTo(o, *db, order, n);
            SetLastError(ERROR_NO_MORE_ITEMS);
            return 0;
        }
        break;
    }
    default: SetLastError(ERROR_INVALID_PARAMETER); return 0;
    }
    if (target < 0 || target >= (long long)n) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return 0;
    }
    MoveTo(o, *db, order, size_t(target));
    if (lpdwIndex)
        *lpdwIndex = DWORD(target);
    return o->current;
    GUARD_END(0)
}

BOOL CeDeleteRecord(HANDLE hDatabase, CEOID oidRecord) {
    GUARD_BEGIN
    OpenDb *o = FindOpen(hDatabase);
    Mounted *m;
    dbvol::Database *db;
    if (!o || !Resolve(o, m, db))
        return FALSE;
    if (!dbvol::FindRecord(*db, oidRecord)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    Order(o, m, *db);
    CEOID dbOid = db->oid;
    return Change(m, [&](dbvol::Volume &v) {
        dbvol::Database *d = dbvol::FindDatabase(v, dbOid);
        if (!d || !dbvol::FindRecord(*d, oidRecord))
            return dbvol::Status::Invalid;
        return dbvol::DeleteRecord(v, *d, oidRecord, Now());
    });
    GUARD_END(FALSE)
}

HANDLE CeFindFirstDatabase(DWORD dwDbaseType) {
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    return CeFindFirstDatabaseEx(&sys, dwDbaseType);
}

CEOID CeFindNextDatabase(HANDLE hEnum) {
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    return CeFindNextDatabaseEx(hEnum, &sys);
}

BOOL CeOidGetInfo(CEOID oid, CEOIDINFO *oidInfo) {
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    return CeOidGetInfoEx(&sys, oid, oidInfo);
}

HANDLE CeOpenDatabase(PCEOID poid, LPWSTR lpszName, CEPROPID propid, DWORD dwFlags, HWND) {
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    return CeOpenDatabaseEx(&sys, poid, lpszName, propid, dwFlags, nullptr);
}
