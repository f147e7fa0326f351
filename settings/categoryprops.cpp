// The category properties: a small property database in "settings.vol" beside the program,
// mounted for each operation and unmounted at its end, and the device's category names merged
// with it.
#include "categoryprops.h"
#include "settings.h"
#include "common/appstate.h"

#include <cwchar>

const WCHAR kCategoryDbName[] = L"categoryprops";
const WCHAR kDeviceCategoryDbName[] = L"Categories Database";
const COLORREF kDefaultCategoryColors[DEFAULT_CATEGORY_COLORS] = {
    0x00FF7777, 0x009FFF9F, 0x0080FFFF, 0x008484FF, 0x00FF80FF, 0x0062B0FF, 0x00CECECE, 0x00FFFFFF,
};

static int g_messagesShown;

static void Tell(const WCHAR *text, const WCHAR *caption = L"Error")
{
    g_messagesShown++;
    MessageBoxW(nullptr, text, caption, MB_OK);
}

int CategoryMessagesShown()
{
    return g_messagesShown;
}

void FreeCategoryArray(void *array)
{
    if (array)
        LocalFree(array);
}

// The name copied into its slot, cut and terminated: a longer stored name (the Category page
// never saves one) must not run over the next field.
static void CopyName(WCHAR *to, const WCHAR *from)
{
    lstrcpynW(to, from ? from : L"", CATEGORY_NAME_LEN);
}

void CategoryVolumePath(WCHAR *path, int length)
{
    WCHAR dir[MAX_PATH];
    ProgramDirectory(dir, MAX_PATH);
    _snwprintf(path, length, L"%s\\settings.vol", dir);
    path[length - 1] = 0;
}

static bool MountCategoryVolume(CEGUID *volume)
{
    WCHAR path[MAX_PATH + 16];
    CategoryVolumePath(path, MAX_PATH + 16);
    if (CeMountDBVol(volume, path, OPEN_ALWAYS))
        return true;
    // A damaged or foreign file is left alone and, as on the handheld, not reported: the
    // categories take their default colours.
    switch (GetLastError()) {
    case ERROR_DISK_FULL: Tell(L"Database mount failed: Disk Full"); break;
    case ERROR_NOT_ENOUGH_MEMORY: Tell(L"Database mount failed: Not Enough Memory"); break;
    case ERROR_INVALID_PARAMETER: Tell(L"Database mount failed: Invalid Parameter"); break;
    }
    return false;
}

static void UnmountCategoryVolume(CEGUID *volume)
{
    if (!CHECK_INVALIDGUID(volume))
        CeUnmountDBVol(volume);
}

static HANDLE OpenSorted(CEGUID *volume, CEOID *oid)
{
    *oid = 0;
    return CeOpenDatabaseEx(volume, oid, const_cast<LPWSTR>(kCategoryDbName), PROP_CATEGORY_NAME,
                            CEDB_AUTOINCREMENT, nullptr);
}

HANDLE OpenCreateCategoryDb(CEGUID *volume, DWORD *count)
{
    CEOID oid = 0;
    HANDLE db = OpenSorted(volume, &oid);
    if (db == INVALID_HANDLE_VALUE) {
        DWORD error = GetLastError();
        if (error == ERROR_NOT_ENOUGH_MEMORY) {
            Tell(L"Not enough memory!");
            return 0;
        }
        if (error != ERROR_FILE_NOT_FOUND)
            return INVALID_HANDLE_VALUE;
        CEDBASEINFO info = {};
        info.dwFlags = CEDB_VALIDCREATE;
        lstrcpyW(info.szDbaseName, kCategoryDbName);
        info.dwDbaseType = 0;
        info.wNumSortOrder = 1;
        info.rgSortSpecs[0].propid = PROP_CATEGORY_NAME;
        info.rgSortSpecs[0].dwFlags = 0;
        if (!CeCreateDatabaseEx(volume, &info)) {
            Tell(L"Database creation failed");
            return INVALID_HANDLE_VALUE;
        }
        db = OpenSorted(volume, &oid);
        if (db == INVALID_HANDLE_VALUE)
            return INVALID_HANDLE_VALUE;
    }
    CEOIDINFO info = {};
    *count = CeOidGetInfoEx(volume, oid, &info) && info.wObjType == OBJTYPE_DATABASE
                 ? info.infDatabase.wNumRecords
                 : 0;
    return db;
}

// Mounts the volume and opens the database; false (everything let go, the user told) when
// either fails.
static bool OpenCategories(CEGUID *volume, HANDLE *db, DWORD *count)
{
    CREATE_INVALIDGUID(volume);
    *db = INVALID_HANDLE_VALUE;
    *count = 0;
    if (!MountCategoryVolume(volume)) {
        UnmountCategoryVolume(volume);
        return false;
    }
    *db = OpenCreateCategoryDb(volume, count);
    // The handheld went on with the 0 that follows "Not enough memory!"; it is a failure here,
    // told once.
    if (*db == INVALID_HANDLE_VALUE || *db == 0) {
        if (*db == INVALID_HANDLE_VALUE)
            Tell(L"Error in call to OpenCreateDB");
        UnmountCategoryVolume(volume);
        return false;
    }
    return true;
}

static void CloseCategories(CEGUID *volume, HANDLE db)
{
    CloseHandle(db);
    UnmountCategoryVolume(volume);
}

// The next record with all its properties, in a buffer the platform grows; 0 at the end or on
// failure (GetLastError tells which).
static CEOID ReadNextRecord(HANDLE db, BYTE **buffer, DWORD *size, WORD *props)
{
    *props = 0;
    return CeReadRecordProps(db, CEDB_ALLOWREALLOC, props, nullptr, buffer, size);
}

CategoryProps *LoadCategoryProps(int *count)
{
    *count = -1;
    CEGUID volume;
    HANDLE db;
    DWORD records;
    if (!OpenCategories(&volume, &db, &records))
        return nullptr;
    CategoryProps *props =
        records ? (CategoryProps *)LocalAlloc(LPTR, records * sizeof(CategoryProps)) : nullptr;
    if (records && !props) {
        CloseCategories(&volume, db);
        return nullptr;
    }
    BYTE *buffer = nullptr;
    DWORD size = 0;
    DWORD read = 0;
    bool failed = false;
    for (; read < records; read++) {
        WORD n = 0;
        if (!ReadNextRecord(db, &buffer, &size, &n)) {
            Tell(L"Failed to read record", L"error");
            failed = true;
            break;
        }
        const CEPROPVAL *vals = (const CEPROPVAL *)buffer;
        CategoryProps &p = props[read];
        for (WORD i = 0; i < n; i++) {
            if (vals[i].wFlags & CEDB_PROPNOTFOUND)
                continue;
            switch (vals[i].propid) {
            case PROP_CATEGORY_NAME: CopyName(p.name, vals[i].val.lpwstr); break;
            case PROP_CATEGORY_COLOR: p.color = (COLORREF)vals[i].val.lVal; break;
            case PROP_CATEGORY_ICON: p.icon = (WORD)vals[i].val.iVal; break;
            }
        }
    }
    if (buffer)
        LocalFree(buffer);
    CloseCategories(&volume, db);
    if (failed) {
        FreeCategoryArray(props);
        return nullptr;
    }
    *count = (int)read;
    return props;
}

// Writes one property to a record (0: a new one) and reports a refusal as the handheld did.
static CEOID WriteProperty(HANDLE db, CEOID record, const CEPROPVAL &value)
{
    CEPROPVAL v = value;
    CEOID written = CeWriteRecordProps(db, record, 1, &v);
    if (!written) {
        switch (GetLastError()) {
        case ERROR_NOT_ENOUGH_MEMORY: Tell(L"Not enough memory"); break;
        case ERROR_INVALID_PARAMETER: Tell(L"Invalid Parameter"); break;
        default: Tell(L"Unknown Error"); break;
        }
    }
    return written;
}

static CEPROPVAL NameValue(const WCHAR *name)
{
    CEPROPVAL v = {};
    v.propid = PROP_CATEGORY_NAME;
    v.val.lpwstr = const_cast<LPWSTR>(name);
    return v;
}

static CEPROPVAL ColorValue(COLORREF color)
{
    CEPROPVAL v = {};
    v.propid = PROP_CATEGORY_COLOR;
    v.val.lVal = (long)color;
    return v;
}

static CEPROPVAL IconValue(int icon)
{
    CEPROPVAL v = {};
    v.propid = PROP_CATEGORY_ICON;
    v.val.iVal = (short)icon;
    return v;
}

// The record of that name, by reading the records in turn; 0 when there is none, -1 when a
// record could not be read.
static long FindCategoryRecord(HANDLE db, DWORD records, const WCHAR *name)
{
    BYTE *buffer = nullptr;
    DWORD size = 0;
    long found = 0;
    for (DWORD r = 0; r < records && !found; r++) {
        WORD n = 0;
        CEOID oid = ReadNextRecord(db, &buffer, &size, &n);
        if (!oid) {
            Tell(L"Failed to read record", L"error");
            found = -1;
            break;
        }
        const CEPROPVAL *vals = (const CEPROPVAL *)buffer;
        for (WORD i = 0; i < n; i++)
            if (vals[i].propid == PROP_CATEGORY_NAME && !(vals[i].wFlags & CEDB_PROPNOTFOUND) &&
                vals[i].val.lpwstr && lstrcmpW(vals[i].val.lpwstr, name) == 0) {
                found = (long)oid;
                break;
            }
    }
    if (buffer)
        LocalFree(buffer);
    return found;
}

int SaveCategoryProps(const WCHAR *name, COLORREF color, int icon)
{
    CEGUID volume;
    HANDLE db;
    DWORD records;
    if (!name || !OpenCategories(&volume, &db, &records))
        return 0;
    long record = FindCategoryRecord(db, records, name);
    bool written = false;
    if (record > 0) {
        written = WriteProperty(db, (CEOID)record, IconValue(icon)) &&
                  WriteProperty(db, (CEOID)record, ColorValue(color));
    } else if (record == 0) {
        CEOID added = WriteProperty(db, 0, NameValue(name));
        written = added && WriteProperty(db, added, ColorValue(color)) &&
                  WriteProperty(db, added, IconValue(icon));
    }
    CloseCategories(&volume, db);
    return written ? 1 : 0;
}

void DeleteCategoryDb()
{
    CEGUID volume;
    HANDLE db;
    DWORD records;
    if (!OpenCategories(&volume, &db, &records))
        return;
    CloseHandle(db);
    CEOID oid = 0;
    HANDLE again = OpenSorted(&volume, &oid);
    if (again != INVALID_HANDLE_VALUE)
        CloseHandle(again);
    if (!oid || !CeDeleteDatabaseEx(&volume, oid))
        Tell(L"Could not delete Database");
    UnmountCategoryVolume(&volume);
}

// The object identifier of "Categories Database" in the device's object store, 0 when it has
// none.
static CEOID FindDeviceCategoryDb(CEGUID *store)
{
    HANDLE list = CeFindFirstDatabaseEx(store, 0);
    if (list == INVALID_HANDLE_VALUE)
        return 0;
    CEOID found = 0;
    for (CEOID oid; !found && (oid = CeFindNextDatabaseEx(list, store)) != 0;) {
        CEOIDINFO info = {};
        if (CeOidGetInfoEx(store, oid, &info) && info.wObjType == OBJTYPE_DATABASE &&
            lstrcmpW(info.infDatabase.szDbaseName, kDeviceCategoryDbName) == 0)
            found = oid;
    }
    CloseHandle(list);
    return found;
}

CategoryName *ReadDeviceCategories(int *count, bool quiet)
{
    *count = 0;
    CEGUID store;
    CREATE_SYSTEMGUID(&store);
    CEOID oid = FindDeviceCategoryDb(&store);
    if (!oid) {
        if (!quiet)
            Tell(L"The database doesn't exist");
        return nullptr;
    }
    // Opened without a sort, the records come in the device's order, which is its display order.
    HANDLE db = CeOpenDatabaseEx(&store, &oid, nullptr, 0, CEDB_AUTOINCREMENT, nullptr);
    if (db == INVALID_HANDLE_VALUE) {
        if (!quiet)
            Tell(L"Handle Read Failure");
        return nullptr;
    }
    CEOIDINFO info = {};
    DWORD records = CeOidGetInfoEx(&store, oid, &info) ? info.infDatabase.wNumRecords : 0;
    CategoryName *names =
        records ? (CategoryName *)LocalAlloc(LPTR, records * sizeof(CategoryName)) : nullptr;
    int n = 0;
    BYTE *buffer = nullptr;
    DWORD size = 0;
    for (DWORD r = 0; names && r < records; r++) {
        WORD props = 0;
        if (!ReadNextRecord(db, &buffer, &size, &props))
            break;
        const CEPROPVAL *vals = (const CEPROPVAL *)buffer;
        for (WORD i = 0; i < props; i++)
            if (vals[i].propid == PROP_DEVICE_CATEGORY && !(vals[i].wFlags & CEDB_PROPNOTFOUND) &&
                vals[i].val.lpwstr && vals[i].val.lpwstr[0]) {
                CopyName(names[n].name, vals[i].val.lpwstr);
                names[n].cut = lstrlenW(vals[i].val.lpwstr) >= CATEGORY_NAME_LEN;
                n++;
                break;
            }
    }
    if (buffer)
        LocalFree(buffer);
    CloseHandle(db);
    if (!n) {
        FreeCategoryArray(names);
        names = nullptr;
    }
    *count = n;
    return names;
}

const CategoryProps *StoredCategoryProps(const WCHAR *name, const CategoryProps *props, int count)
{
    for (int k = 0; props && k < count; k++)
        if (lstrcmpW(props[k].name, name) == 0)
            return &props[k];
    return nullptr;
}

CategoryLook *MergeCategoryProps(const CategoryName *names, int nameCount, const CategoryProps *props,
                                 int propCount)
{
    if (nameCount <= 0 || !names)
        return nullptr;
    CategoryLook *looks = (CategoryLook *)LocalAlloc(LPTR, nameCount * sizeof(CategoryLook));
    if (!looks)
        return nullptr;
    int cycle = 0;
    for (int i = 0; i < nameCount; i++) {
        const CategoryProps *stored = StoredCategoryProps(names[i].name, props, propCount);
        if (stored) {
            looks[i].color = stored->color & 0x00FFFFFF;
            // An icon of a strip the user has taken away shows as the first one.
            looks[i].icon = (int)stored->icon < g_app.iconCount ? stored->icon : 0;
        } else {
            looks[i].color = kDefaultCategoryColors[cycle];
            looks[i].icon = 0;
            cycle = (cycle + 1) % DEFAULT_CATEGORY_COLORS;
        }
    }
    return looks;
}

void FreeCategories()
{
    FreeCategoryArray(g_app.categoryProps);
    FreeCategoryArray(g_app.deviceCategories);
    FreeCategoryArray(g_app.mergedCategories);
    g_app.categoryProps = nullptr;
    g_app.deviceCategories = nullptr;
    g_app.mergedCategories = nullptr;
    g_app.categoryCount = 0;
    g_app.deviceCategoryCount = 0;
}

// Whether two lists of the device's names are the same, name for name.
static bool SameNames(const CategoryName *a, int na, const CategoryName *b, int nb)
{
    if (na != nb)
        return false;
    for (int i = 0; i < na; i++)
        if (a[i].cut != b[i].cut || lstrcmpW(a[i].name, b[i].name) != 0)
            return false;
    return true;
}

// What tells one version of the device's list from another without reading its records: the
// database, its last change and its number of records, as last seen.
struct DeviceListStamp {
    CEOID list;
    FILETIME modified;
    DWORD records;
};
static DeviceListStamp g_seenList = {0, {0, 0}, 0xFFFFFFFF};

static DeviceListStamp StampDeviceList()
{
    DeviceListStamp stamp = {0, {0, 0}, 0};
    CEGUID store;
    CREATE_SYSTEMGUID(&store);
    stamp.list = FindDeviceCategoryDb(&store);
    CEOIDINFO info = {};
    if (stamp.list && CeOidGetInfoEx(&store, stamp.list, &info) && info.wObjType == OBJTYPE_DATABASE) {
        stamp.modified = info.infDatabase.ftLastModified;
        stamp.records = info.infDatabase.wNumRecords;
    }
    return stamp;
}

// Takes the device list's stamp as seen; whether it differs from the one seen before.
static bool SeeDeviceList()
{
    DeviceListStamp stamp = StampDeviceList();
    bool changed = stamp.list != g_seenList.list || stamp.records != g_seenList.records ||
                   CompareFileTime(&stamp.modified, &g_seenList.modified) != 0;
    g_seenList = stamp;
    return changed;
}

// The device's names (owned from here on) and their merge with the stored properties held, in
// place of the ones before.
static void UseDeviceCategories(CategoryName *device, int names)
{
    CategoryLook *merged = MergeCategoryProps(device, names, g_app.categoryProps, g_app.categoryCount);
    FreeCategoryArray(g_app.deviceCategories);
    FreeCategoryArray(g_app.mergedCategories);
    g_app.deviceCategories = device;
    g_app.mergedCategories = merged;
    g_app.deviceCategoryCount = merged ? names : 0;
}

void ReloadCategories(bool quiet)
{
    int count = 0;
    CategoryProps *props = LoadCategoryProps(&count);
    if (count >= 0) {
        FreeCategoryArray(g_app.categoryProps);
        g_app.categoryProps = props;
        g_app.categoryCount = count;
    }
    // Stamped before it is read, so a change while it is read is read again later.
    SeeDeviceList();
    int names = 0;
    CategoryName *device = ReadDeviceCategories(&names, quiet);
    UseDeviceCategories(device, names);
}

void RefreshDeviceCategories()
{
    // A list of a thousand categories takes a tenth of a second to read: it is read only when
    // it has changed.
    if (!SeeDeviceList())
        return;
    int names = 0;
    CategoryName *device = ReadDeviceCategories(&names, true);
    if (SameNames(device, names, g_app.deviceCategories, g_app.deviceCategoryCount)) {
        FreeCategoryArray(device);
        return;
    }
    UseDeviceCategories(device, names);
}

COLORREF CategoryColorOf(const WCHAR *categories, COLORREF fallback)
{
    if (!categories || !g_app.mergedCategories)
        return fallback;
    const WCHAR *p = categories;
    for (;;) {
        while (*p == L' ' || *p == L'\t')
            p++;
        const WCHAR *end = p;
        while (*end && *end != L',' && *end != L'\n')
            end++;
        size_t length = end - p;
        if (length > 0 && length < (size_t)CATEGORY_NAME_LEN)
            for (int i = 0; i < g_app.deviceCategoryCount; i++) {
                const WCHAR *name = g_app.deviceCategories[i].name;
                if (wcslen(name) == length && wcsncmp(name, p, length) == 0)
                    return g_app.mergedCategories[i].color;
            }
        if (!*end)
            return fallback;
        p = end + 1;
    }
}
