#include "session.h"

#include <shlobj.h>

#include <vector>

namespace poom {

namespace {

const UINT kStoreChangedMessage = WM_USER + 1;
const DWORD kWatchPeriodMs = 500;
// Reading a large store for its category names takes seconds and, beside the program's first
// month, takes a core and the store's lock from it: from about this size on (some 3,000
// appointments) the read waits until the first month has long been drawn.
const ULONGLONG kLargeStoreBytes = 1 << 20;
const DWORD kLargeStoreCategoryDelayMs = 2000;

// What a read of the store left out (a file of a directory store with no UID or several, a broken
// event) never reaches the calendar's user, who asked for the calendar, not for its files: each
// goes once to the debugger's output, where whoever looks for a missing appointment finds why.
void NoteStoreProblems(Store& store) {
    for (const std::string& problem : store.TakeNewProblems()) {
        std::wstring text = L"Lanternfields calendar server: " + WideFromUtf8(problem) + L"\n";
        OutputDebugStringW(text.c_str());
    }
}

// The iCalendar engine opens files through the C runtime's narrow calls,
// which take the ANSI code page on Windows. A path that code page cannot
// spell goes by its short (8.3) form, which always can.
std::string NarrowPath(const std::wstring& w) {
    auto ansi = [](const std::wstring& path, std::string& out) {
        BOOL lossy = FALSE;
        int n = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path.c_str(), -1, nullptr, 0, nullptr, &lossy);
        if (n <= 0 || lossy) return false;
        std::string s(static_cast<size_t>(n), '\0');
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path.c_str(), -1, &s[0], n, nullptr, &lossy);
        s.resize(static_cast<size_t>(n - 1));
        out = s;
        return !lossy;
    };
    std::string out;
    if (ansi(w, out)) return out;
    // Shorten the folder (which exists) and keep the file's own name when
    // the file itself is still to be made.
    std::wstring dir = w, name;
    if (GetFileAttributesW(w.c_str()) == INVALID_FILE_ATTRIBUTES) {
        size_t slash = w.find_last_of(L"\\/");
        if (slash != std::wstring::npos) {
            dir = w.substr(0, slash);
            name = w.substr(slash);
        }
    }
    wchar_t shortPath[MAX_PATH * 2] = {};
    DWORD n = GetShortPathNameW(dir.c_str(), shortPath, MAX_PATH * 2);
    if (n > 0 && n < MAX_PATH * 2 && ansi(std::wstring(shortPath) + name, out)) return out;
    return Utf8FromWide(w);  // the engine will report the store unreadable
}

lfical::Zone MachineZone() {
    TIME_ZONE_INFORMATION tzi = {};
    if (GetTimeZoneInformation(&tzi) == TIME_ZONE_ID_INVALID) return lfical::Zone::utc();
    lfical::WindowsZoneInfo info;
    info.bias = tzi.Bias;
    info.standardBias = tzi.StandardBias;
    info.daylightBias = tzi.DaylightBias;
    auto rule = [](const SYSTEMTIME& st) {
        lfical::WindowsRuleTime r;
        r.year = st.wYear;
        r.month = st.wMonth;
        r.dayOfWeek = st.wDayOfWeek;
        r.day = st.wDay;
        r.hour = st.wHour;
        r.minute = st.wMinute;
        r.second = st.wSecond;
        return r;
    };
    info.standardDate = rule(tzi.StandardDate);
    info.daylightDate = rule(tzi.DaylightDate);
    info.name = Utf8FromWide(tzi.StandardName);
    return lfical::Zone::fromWindows(info);
}

std::wstring ShortDatePicture() {
    wchar_t buf[80] = {};
    if (GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_SSHORTDATE, buf, 80) > 0) return buf;
    return L"M/d/yyyy";
}

// Abbreviated then full month names, for short dates that spell the month.
std::vector<std::wstring> MonthNames() {
    std::vector<std::wstring> names;
    for (LCTYPE first : {LOCALE_SABBREVMONTHNAME1, LOCALE_SMONTHNAME1}) {
        for (LCTYPE k = 0; k < 12; ++k) {
            wchar_t buf[80] = {};
            GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, first + k, buf, 80);
            names.push_back(buf);
        }
    }
    return names;
}

bool MakeDirectories(const std::wstring& dir) {
    if (dir.empty()) return false;
    DWORD a = GetFileAttributesW(dir.c_str());
    if (a != INVALID_FILE_ATTRIBUTES) return (a & FILE_ATTRIBUTE_DIRECTORY) != 0;
    size_t slash = dir.find_last_of(L"\\/");
    if (slash != std::wstring::npos && slash > 2) MakeDirectories(dir.substr(0, slash));
    return CreateDirectoryW(dir.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

bool WriteEmptyCalendar(const std::wstring& path) {
    static const char kEmpty[] =
        "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//Calendar server//EN\r\nEND:VCALENDAR\r\n";
    // CREATE_NEW: never overwrite a store another program made meanwhile.
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_EXISTS;
    DWORD written = 0;
    bool ok = WriteFile(h, kEmpty, sizeof(kEmpty) - 1, &written, nullptr) && written == sizeof(kEmpty) - 1 &&
              FlushFileBuffers(h);
    CloseHandle(h);
    if (!ok) DeleteFileW(path.c_str());
    return ok;
}

}  // namespace

std::wstring StorePath() {
    wchar_t buf[MAX_PATH * 2] = {};
    DWORD n = GetEnvironmentVariableW(L"LANTERNFIELDS_STORE", buf, MAX_PATH * 2);
    if (n > 0 && n < MAX_PATH * 2) return buf;
    wchar_t appdata[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, appdata))) return L"";
    return std::wstring(appdata) + L"\\Lanternfields\\calendar.ics";
}

Session::~Session() { Logoff(); }

HRESULT Session::Logon(HWND hwnd) {
    std::lock_guard<ObjectLock> lock(mu_);
    if (store_) {
        hwnd_ = hwnd;
        return S_OK;
    }
    std::wstring path = StorePath();
    if (path.empty()) return E_FAIL;
    while (path.size() > 3 && (path.back() == L'\\' || path.back() == L'/')) path.pop_back();

    DWORD attrs = GetFileAttributesW(path.c_str());
    bool isDirectory = attrs != INVALID_FILE_ATTRIBUTES && (attrs & FILE_ATTRIBUTE_DIRECTORY);
    if (attrs == INVALID_FILE_ATTRIBUTES) {
        DWORD err = GetLastError();
        if (err != ERROR_FILE_NOT_FOUND && err != ERROR_PATH_NOT_FOUND) return E_FAIL;
        // A store that does not exist yet starts empty; its folder is made
        // now so the first save has somewhere to go.
        size_t slash = path.find_last_of(L"\\/");
        if (slash != std::wstring::npos && !MakeDirectories(path.substr(0, slash))) return E_FAIL;
        // The new store is an empty calendar on disk from the first logon,
        // so other programs (and the user) find it where it is expected.
        if (!WriteEmptyCalendar(path)) return E_FAIL;
    }

    picture_ = DatePicture(ShortDatePicture(), MonthNames());
    auto store = std::make_shared<Store>(MachineZone());
    std::string error;
    if (!store->Open(NarrowPath(path), false, error, isDirectory)) {
        // Nothing is written to a store we could not read.
        return E_FAIL;
    }
    NoteStoreProblems(*store);
    store_ = store;
    path_ = path;
    hwnd_ = hwnd;
    lastSignature_ = Signature();
    ++generation_;
    AwaitDeviceCategories(categories_);
    stop_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (stop_) thread_ = CreateThread(nullptr, 0, &Session::WatchThread, this, 0, nullptr);
    // The watch brings the device's category list up to date first (for a large store once the
    // first month is drawn): reading a large store for it takes seconds, which the logon does
    // not wait for.
    if (!thread_) RebuildDeviceCategories(categories_, *store);
    return S_OK;
}

void Session::Logoff() {
    HANDLE thread = nullptr, stop = nullptr;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        thread = thread_;
        stop = stop_;
        thread_ = stop_ = nullptr;
    }
    if (thread) {
        SetEvent(stop);
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
    }
    if (stop) CloseHandle(stop);
    std::lock_guard<ObjectLock> lock(mu_);
    store_.reset();
    hwnd_ = nullptr;
    ++generation_;
}

std::shared_ptr<Store> Session::GetStore() const {
    std::lock_guard<ObjectLock> lock(mu_);
    return store_;
}

void Session::NoteOwnChange(std::uint32_t oid) {
    std::shared_ptr<Store> store;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        lastSignature_ = Signature();
        ++generation_;
        store = store_;
    }
    if (!store) return;
    // A save that read the store again first may have met a file to tell of.
    NoteStoreProblems(*store);
    UpdateDeviceCategories(categories_, *store, oid);
}

ULONGLONG Session::StoreBytes() const {
    WIN32_FILE_ATTRIBUTE_DATA fad;
    if (!GetFileAttributesExW(path_.c_str(), GetFileExInfoStandard, &fad)) return 0;
    if (!(fad.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return (ULONGLONG(fad.nFileSizeHigh) << 32) | fad.nFileSizeLow;
    ULONGLONG total = 0;
    WIN32_FIND_DATAW fd;
    HANDLE f = FindFirstFileW((path_ + L"\\*.ics").c_str(), &fd);
    if (f == INVALID_HANDLE_VALUE) return 0;
    do {
        total += (ULONGLONG(fd.nFileSizeHigh) << 32) | fd.nFileSizeLow;
    } while (total < kLargeStoreBytes && FindNextFileW(f, &fd));
    FindClose(f);
    return total;
}

std::uint64_t Session::Signature() const {
    // What changes when another program writes the store: the file's time
    // and size, or for a directory store every .ics file's name, time and
    // size, folded into one hash so a large directory costs no memory.
    std::uint64_t h = 1469598103934665603ull;
    auto mix = [&h](const void* data, size_t n) {
        const unsigned char* p = static_cast<const unsigned char*>(data);
        for (size_t i = 0; i < n; ++i) {
            h ^= p[i];
            h *= 1099511628211ull;
        }
    };
    WIN32_FILE_ATTRIBUTE_DATA fad;
    if (!GetFileAttributesExW(path_.c_str(), GetFileExInfoStandard, &fad)) return 0;  // missing
    if (!(fad.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        mix(&fad.ftLastWriteTime, sizeof fad.ftLastWriteTime);
        mix(&fad.nFileSizeHigh, sizeof fad.nFileSizeHigh);
        mix(&fad.nFileSizeLow, sizeof fad.nFileSizeLow);
        return h;
    }
    WIN32_FIND_DATAW fd;
    HANDLE f = FindFirstFileW((path_ + L"\\*.ics").c_str(), &fd);
    if (f == INVALID_HANDLE_VALUE) return 1;  // no calendars in it
    do {
        mix(fd.cFileName, wcslen(fd.cFileName) * sizeof(wchar_t));
        mix(&fd.ftLastWriteTime, sizeof fd.ftLastWriteTime);
        mix(&fd.nFileSizeHigh, sizeof fd.nFileSizeHigh);
        mix(&fd.nFileSizeLow, sizeof fd.nFileSizeLow);
    } while (FindNextFileW(f, &fd));
    FindClose(f);
    return h;
}

DWORD WINAPI Session::WatchThread(void* self) {
    static_cast<Session*>(self)->Watch();
    return 0;
}

void Session::Watch() {
    HANDLE stop = nullptr;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        stop = stop_;
    }
    bool large = false;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        large = StoreBytes() >= kLargeStoreBytes;
    }
    // A logoff meanwhile ends the wait and the watch.
    if (large && WaitForSingleObject(stop, kLargeStoreCategoryDelayMs) != WAIT_TIMEOUT) return;
    std::shared_ptr<Store> first;
    {
        std::lock_guard<ObjectLock> lock(mu_);
        first = store_;
    }
    if (first) RebuildDeviceCategories(categories_, *first);
    first.reset();
    while (WaitForSingleObject(stop, kWatchPeriodMs) == WAIT_TIMEOUT) {
        RetryDeviceCategories(categories_);
        HWND notify = nullptr;
        std::shared_ptr<Store> reloaded;
        {
            std::lock_guard<ObjectLock> lock(mu_);
            if (!store_) continue;
            std::uint64_t sig = Signature();
            if (sig == lastSignature_) continue;
            std::string error;
            // A store caught half-written by a careless program fails to
            // read; we keep what we have and try again next time.
            if (!store_->Reload(error)) continue;
            NoteStoreProblems(*store_);
            lastSignature_ = sig;
            ++generation_;
            notify = hwnd_;
            reloaded = store_;
        }
        if (reloaded) RebuildDeviceCategories(categories_, *reloaded);
        if (notify) PostMessageW(notify, kStoreChangedMessage, 0, 0);
    }
}

}  // namespace poom
