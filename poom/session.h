// One logon of the calendar server: the open store, the locale's date
// picture for restrictions, and the thread that watches the store for
// changes made by other programs. It lasts while the application object
// stays logged on or anything handed out under the logon lives; the last
// of them to go closes it.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "restrict.h"
#include "store_model.h"
#include "categorydb.h"
#include "lock.h"

namespace poom {

class Session {
public:
    Session() = default;
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Opens the store (LANTERNFIELDS_STORE, else the default store) and
    // starts watching it; change notices go to hwnd as WM_USER + 1.
    HRESULT Logon(HWND hwnd);
    void Logoff();
    bool LoggedOn() const { return store_ != nullptr; }

    // Null before Logon and after Logoff.
    std::shared_ptr<Store> GetStore() const;
    const DatePicture& Picture() const { return picture_; }
    // Bumped whenever the store's content changes (our saves, reloads), so
    // collections know their cached answers are stale.
    unsigned Generation() const { return generation_.load(); }
    // Called after every change this server makes (to the appointment with
    // that OID), so the watch does not take our own save for another
    // program's, and the device's category list follows.
    void NoteOwnChange(std::uint32_t oid);

private:
    static DWORD WINAPI WatchThread(void* self);
    void Watch();
    std::uint64_t Signature() const;
    // The store's bytes (a directory store's counted up to a large store's).
    ULONGLONG StoreBytes() const;

    mutable ObjectLock mu_;
    std::shared_ptr<Store> store_;
    std::wstring path_;
    std::uint64_t lastSignature_ = 0;
    HWND hwnd_ = nullptr;
    HANDLE thread_ = nullptr;
    HANDLE stop_ = nullptr;
    DatePicture picture_;
    std::atomic<unsigned> generation_{0};
    CategoryIndex categories_;
};

// The store's location: LANTERNFIELDS_STORE, else
// %APPDATA%\Lanternfields\calendar.ics.
std::wstring StorePath();

}  // namespace poom
