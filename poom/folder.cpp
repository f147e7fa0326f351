// A folder: the calendar, or the infrared folder that stands in for beaming.
//
// The desktop has no infrared port. Beaming hands the appointments to another calendar as one
// iCalendar file in %APPDATA%\Lanternfields\Outbox, the format every calendar reads; whatever
// carries files on from there (a sync tool, a mail, a share) takes them from the folder.
#include "objects.h"

#include <shlobj.h>

#include <new>
#include <vector>

namespace poom {

namespace {

std::wstring OutboxFolder() {
    wchar_t appdata[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, appdata))) return L"";
    return std::wstring(appdata) + L"\\Lanternfields\\Outbox";
}

// The folder and the ones above it; false when it is not a folder (a file in its place).
bool MakeFolder(const std::wstring& dir) {
    if (dir.empty()) return false;
    DWORD a = GetFileAttributesW(dir.c_str());
    if (a != INVALID_FILE_ATTRIBUTES) return (a & FILE_ATTRIBUTE_DIRECTORY) != 0;
    size_t slash = dir.find_last_of(L"\\/");
    if (slash != std::wstring::npos && slash > 2) MakeFolder(dir.substr(0, slash));
    if (CreateDirectoryW(dir.c_str(), nullptr)) return true;
    a = GetFileAttributesW(dir.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

HRESULT LastError() {
    DWORD e = GetLastError();
    return e ? HRESULT_FROM_WIN32(e) : E_FAIL;
}

// Writes the file whole under a temporary name that does not end in .ics, so nothing that
// picks up .ics files from the outbox ever sees half of one, then gives it a new name of its
// own: beam-<local time>-<n>.ics, never replacing a file already there.
HRESULT WriteToOutbox(const std::string& text) {
    std::wstring dir = OutboxFolder();
    if (!MakeFolder(dir)) return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    wchar_t temp[MAX_PATH] = {};
    if (!GetTempFileNameW(dir.c_str(), L"lfb", 0, temp)) return LastError();
    HANDLE h = CreateFileW(temp, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        HRESULT hr = LastError();
        DeleteFileW(temp);
        return hr;
    }
    DWORD written = 0;
    bool ok = WriteFile(h, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
              written == text.size() && FlushFileBuffers(h);
    HRESULT hr = ok ? S_OK : LastError();
    CloseHandle(h);
    if (FAILED(hr)) {
        DeleteFileW(temp);
        return hr;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t stamp[40];
    wsprintfW(stamp, L"beam-%04u%02u%02u-%02u%02u%02u", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
              now.wSecond);
    for (unsigned n = 1; n <= 1000; ++n) {
        std::wstring name = dir + L"\\" + stamp + L"-" + std::to_wstring(n) + L".ics";
        if (MoveFileExW(temp, name.c_str(), MOVEFILE_WRITE_THROUGH)) return S_OK;
        DWORD e = GetLastError();
        if (e != ERROR_ALREADY_EXISTS && e != ERROR_FILE_EXISTS) {
            DeleteFileW(temp);
            return HRESULT_FROM_WIN32(e);
        }
    }
    DeleteFileW(temp);
    return HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
}

class Folder : public Dispatch<IFolder, IID_IFolder> {
public:
    Folder(const Origin& origin, int kind) : origin_(origin), kind_(kind) {}
    HRESULT STDMETHODCALLTYPE get_Items(IPOutlookItemCollection** pp) override {
        if (!pp) return E_POINTER;
        *pp = NewCollection(origin_, kind_ == olFolderInfrared);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_DefaultItemType(int* p) override {
        if (!p) return E_POINTER;
        *p = olAppointmentItem;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return origin_.app()->get_Application(pp); }
    HRESULT STDMETHODCALLTYPE AddItemToInfraredFolder(int olItem, IDispatch* item) override;
    HRESULT STDMETHODCALLTYPE SendToInfrared() override;
    HRESULT STDMETHODCALLTYPE ReceiveFromInfrared(IPOutlookItemCollection** pp) override {
        if (pp) *pp = nullptr;
        return E_NOTIMPL;
    }

private:
    Origin origin_;
    int kind_;
    ObjectLock mu_;
    std::vector<std::uint32_t> collected_;  // OIDs of the appointments (series) to send
};

// An occurrence reports its series' OID, so it brings its whole series. A new appointment
// that was never saved has no OID and nothing in the store to send.
HRESULT Folder::AddItemToInfraredFolder(int olItem, IDispatch* item) {
    if (kind_ != olFolderInfrared) return E_NOTIMPL;
    if (!item || olItem != olAppointmentItem) return E_INVALIDARG;
    IAppointment* appt = nullptr;
    if (FAILED(item->QueryInterface(IID_IAppointment, reinterpret_cast<void**>(&appt))) || !appt)
        return E_INVALIDARG;
    long oid = 0;
    HRESULT hr = appt->get_Oid(&oid);
    appt->Release();
    if (FAILED(hr) || oid == 0) return E_INVALIDARG;
    auto store = origin_.session().GetStore();
    if (!store) return kNotLoggedOn;
    ItemSnapshot s;
    if (!store->Get(static_cast<std::uint32_t>(oid), s)) return kNotFound;
    std::lock_guard<ObjectLock> lock(mu_);
    if (std::find(collected_.begin(), collected_.end(), s.oid) == collected_.end()) collected_.push_back(s.oid);
    return S_OK;
}

// The collection is kept when the file cannot be written, so the same folder can try again.
HRESULT Folder::SendToInfrared() {
    if (kind_ != olFolderInfrared) return E_NOTIMPL;
    std::lock_guard<ObjectLock> lock(mu_);
    if (collected_.empty()) return S_FALSE;  // nothing to send: no empty file either
    auto store = origin_.session().GetStore();
    if (!store) return kNotLoggedOn;
    std::string text, error;
    if (!store->ExportCalendar(collected_, text, error)) return kNotFound;
    HRESULT hr = WriteToOutbox(text);
    if (SUCCEEDED(hr)) collected_.clear();
    return hr;
}

}  // namespace

IFolder* NewFolder(const Origin& origin, int kind) { return new (std::nothrow) Folder(origin, kind); }

}  // namespace poom
