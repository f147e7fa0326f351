// The device's category list in the object store, kept by the calendar server (categorydb.h
// gives the layout and the order). The object store is the property database stand-in's system
// volume. A change rewrites the records from the first that differs, in one write of the
// volume file; an unchanged list writes nothing.
#include "categorydb.h"

#include <windows.h>

#include <algorithm>
#include <mutex>
#include <unordered_set>

#include "cedb.h"

namespace poom {
namespace {

// Failures of the object store never reach the calendar's user: the calendar is what he
// asked for. They go to the debugger's output.
void Note(const wchar_t* what) {
    DWORD error = GetLastError();
    wchar_t text[160];
    swprintf(text, 160, L"Lanternfields calendar server: %ls (error %lu)\n", what, error);
    OutputDebugStringW(text);
    SetLastError(error);
}

// Another program holding the object store lets go of it in a moment; a damaged or full one
// stays as it is until the user does something about it.
bool Passing(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
}

int CompareIgnoringCase(const std::wstring& a, const std::wstring& b) {
    int r = CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, a.c_str(), int(a.size()), b.c_str(),
                           int(b.size()));
    if (r == 0) return _wcsicmp(a.c_str(), b.c_str());
    return r - CSTR_EQUAL;
}

// Opens the list, made anew when it is missing or is not the layout its readers expect.
HANDLE OpenCategoryDatabase(CEGUID* store) {
    CEOID oid = 0;
    HANDLE db = CeOpenDatabaseEx(store, &oid, const_cast<LPWSTR>(kCategoriesDatabase), 0, CEDB_AUTOINCREMENT,
                                 nullptr);
    if (db != INVALID_HANDLE_VALUE) {
        CEOIDINFO info = {};
        if (CeOidGetInfoEx(store, oid, &info) && info.infDatabase.dwDbaseType == 0 &&
            info.infDatabase.wNumSortOrder == 0)
            return db;
        CloseHandle(db);
        if (!CeDeleteDatabaseEx(store, oid)) {
            Note(L"the category list has another layout and could not be replaced");
            return INVALID_HANDLE_VALUE;
        }
    } else if (GetLastError() != ERROR_FILE_NOT_FOUND) {
        Note(L"the object store could not be opened");
        return INVALID_HANDLE_VALUE;
    }
    CEDBASEINFO create = {};
    create.dwFlags = CEDB_VALIDNAME | CEDB_VALIDTYPE | CEDB_VALIDSORTSPEC;
    lstrcpynW(create.szDbaseName, kCategoriesDatabase, CEDB_MAXDBASENAMELEN);
    create.dwDbaseType = 0;
    create.wNumSortOrder = 0;
    if (!CeCreateDatabaseEx(store, &create)) {
        Note(L"the category list could not be made");
        return INVALID_HANDLE_VALUE;
    }
    oid = 0;
    db = CeOpenDatabaseEx(store, &oid, const_cast<LPWSTR>(kCategoriesDatabase), 0, CEDB_AUTOINCREMENT, nullptr);
    if (db == INVALID_HANDLE_VALUE) Note(L"the new category list could not be opened");
    return db;
}

struct ListedRecord {
    CEOID oid;
    std::wstring name;  // empty when the record holds no name
};

bool ReadRecords(HANDLE db, std::vector<ListedRecord>& out) {
    LPBYTE buffer = nullptr;
    DWORD size = 0;
    bool ok = true;
    for (;;) {
        WORD props = 0;
        CEOID oid = CeReadRecordProps(db, CEDB_ALLOWREALLOC, &props, nullptr, &buffer, &size);
        if (!oid) {
            ok = GetLastError() == ERROR_NO_MORE_ITEMS;
            break;
        }
        ListedRecord r = {oid, L""};
        const CEPROPVAL* vals = reinterpret_cast<const CEPROPVAL*>(buffer);
        for (WORD i = 0; i < props; i++)
            if (vals[i].propid == kCategoryNameProp && !(vals[i].wFlags & CEDB_PROPNOTFOUND) && vals[i].val.lpwstr)
                r.name = vals[i].val.lpwstr;
        out.push_back(std::move(r));
    }
    if (buffer) LocalFree(buffer);
    if (!ok) Note(L"the category list could not be read");
    return ok;
}

// One record's name: written into record `oid`, or a new record at the end when oid is 0.
bool WriteName(HANDLE db, CEOID oid, const std::wstring& name) {
    CEPROPVAL prop = {};
    prop.propid = kCategoryNameProp;
    prop.val.lpwstr = const_cast<LPWSTR>(name.c_str());
    if (CeWriteRecordProps(db, oid, 1, &prop)) return true;
    Note(L"a category could not be written");
    return false;
}

std::mutex g_syncLock;  // one rewrite at a time, from whichever thread saved

}  // namespace

std::vector<std::wstring> DeviceCategoryList(const std::vector<std::wstring>& namesInUse) {
    std::vector<std::wstring> list;
    std::unordered_set<std::wstring> seen;
    for (const std::wstring& name : namesInUse) {
        std::wstring kept = name.substr(0, kMaxCategoryChars);
        if (seen.insert(kept).second) list.push_back(std::move(kept));
    }
    // Names equal but for case end up side by side, the ordinal first of them first.
    std::sort(list.begin(), list.end(), [](const std::wstring& a, const std::wstring& b) {
        int r = CompareIgnoringCase(a, b);
        return r != 0 ? r < 0 : a < b;
    });
    list.erase(std::unique(list.begin(), list.end(),
                           [](const std::wstring& a, const std::wstring& b) { return CompareIgnoringCase(a, b) == 0; }),
               list.end());
    if (list.size() > kMaxCategories) list.resize(kMaxCategories);
    return list;
}

bool WriteDeviceCategories(const std::vector<std::wstring>& list) {
    CEGUID store;
    CREATE_SYSTEMGUID(&store);
    // The whole rewrite is one write of the object store: all of it or, on a failure, none.
    if (!DesktopBeginVolumeBatch(&store)) {
        Note(L"the object store could not be read");
        return false;
    }
    HANDLE db = OpenCategoryDatabase(&store);
    bool ok = db != INVALID_HANDLE_VALUE;
    std::vector<ListedRecord> records;
    if (ok) ok = ReadRecords(db, records);
    size_t same = 0;
    while (ok && same < records.size() && same < list.size() && records[same].name == list[same]) same++;
    for (size_t i = same; ok && i < list.size(); i++)
        ok = WriteName(db, i < records.size() ? records[i].oid : 0, list[i]);
    for (size_t i = list.size(); ok && i < records.size(); i++) {
        ok = CeDeleteRecord(db, records[i].oid) != FALSE;
        if (!ok) Note(L"a category no longer used could not be removed");
    }
    DWORD error = ok ? ERROR_SUCCESS : GetLastError();
    if (db != INVALID_HANDLE_VALUE) CloseHandle(db);
    if (!DesktopEndVolumeBatch(&store, ok) && ok) {
        error = GetLastError();
        Note(L"the category list could not be written");
        ok = false;
    }
    SetLastError(error);
    return ok;
}

namespace {

const int kRetries = 120;  // a minute of the watch's half seconds

// A list that could not be written for a passing reason is tried again by RetryDeviceCategories.
void WriteIndex(CategoryIndex& index, bool byWatch = false) {
    std::vector<std::wstring> names;
    names.reserve(index.uses.size());
    for (const auto& use : index.uses) names.push_back(use.first);
    std::lock_guard<std::mutex> lock(g_syncLock);
    bool unwritten = !WriteDeviceCategories(DeviceCategoryList(names)) && Passing(GetLastError());
    if (unwritten && !byWatch) index.retriesLeft = kRetries;
    index.unwritten = unwritten;
}

// Counts an appointment's names once each; true when a name came or went.
bool Count(CategoryIndex& index, const std::vector<std::wstring>& names, int step) {
    std::unordered_set<std::wstring> once(names.begin(), names.end());
    bool changed = false;
    for (const std::wstring& name : once) {
        int& uses = index.uses[name];
        uses += step;
        if (uses <= 0) {
            index.uses.erase(name);
            changed = true;
        } else if (uses == step) {
            changed = true;  // the first use of a name
        }
    }
    return changed;
}

}  // namespace

void RebuildDeviceCategories(CategoryIndex& index, const Store& store) {
    {
        std::lock_guard<std::mutex> lock(index.mu);
        index.rebuilding = true;
        index.touched.clear();
    }
    std::map<std::uint32_t, std::vector<std::wstring>> byItem = store.CategoryNamesByItem();
    std::lock_guard<std::mutex> lock(index.mu);
    for (std::uint32_t oid : index.touched) {
        std::vector<std::wstring> now = store.CategoryNamesOf(oid);
        if (now.empty())
            byItem.erase(oid);
        else
            byItem[oid] = std::move(now);
    }
    index.touched.clear();
    index.rebuilding = false;
    index.byItem = std::move(byItem);
    index.uses.clear();
    for (const auto& item : index.byItem) Count(index, item.second, 1);
    WriteIndex(index);
}

void AwaitDeviceCategories(CategoryIndex& index) {
    std::lock_guard<std::mutex> lock(index.mu);
    index.rebuilding = true;
}

void RetryDeviceCategories(CategoryIndex& index) {
    std::lock_guard<std::mutex> lock(index.mu);
    if (!index.unwritten || index.rebuilding || index.retriesLeft <= 0) return;
    index.retriesLeft--;
    WriteIndex(index, true);
}

void UpdateDeviceCategories(CategoryIndex& index, const Store& store, std::uint32_t oid) {
    std::vector<std::wstring> now = store.CategoryNamesOf(oid);
    std::lock_guard<std::mutex> lock(index.mu);
    if (index.rebuilding) {
        index.touched.push_back(oid);
        return;
    }
    auto it = index.byItem.find(oid);
    std::vector<std::wstring> before = it == index.byItem.end() ? std::vector<std::wstring>() : it->second;
    if (before == now) {
        if (index.unwritten) WriteIndex(index);
        return;
    }
    // Counted up first, so a name the appointment keeps never drops to nothing on the way.
    bool changed = Count(index, now, 1);
    changed = Count(index, before, -1) || changed;
    if (now.empty())
        index.byItem.erase(oid);
    else
        index.byItem[oid] = std::move(now);
    if (changed || index.unwritten) WriteIndex(index);
}

}  // namespace poom
