// The lock every COM object of the server guards its state with.
#pragma once

#include <windows.h>

#include <atomic>

namespace poom {

// A word that is 0 when free, 1 when held and 2 when held with a thread
// waiting on it; a thread that must wait sleeps on the word itself. A walk
// hands out an appointment per found item and reads it under its lock, so
// the lock is taken a few times per item: here that costs one exchange to
// take and one to give back. The C++ runtime's mutex of this toolchain
// takes a heap block on first use, a critical section's end costs Wine a
// call to its server, and a slim reader/writer lock wakes sleepers on every
// release whether any wait or not.
class ObjectLock {
public:
    ObjectLock() = default;
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

    void lock() {
        if (state_.exchange(kHeld, std::memory_order_acquire) == kFree) return;
        // Marked as waited on while we sleep, so that the holder wakes us.
        while (state_.exchange(kWaited, std::memory_order_acquire) != kFree) {
            LONG waited = kWaited;
            WaitOnAddress(&state_, &waited, sizeof waited, INFINITE);
        }
    }
    void unlock() {
        if (state_.exchange(kFree, std::memory_order_release) == kWaited) WakeByAddressSingle(&state_);
    }

private:
    enum : LONG { kFree = 0, kHeld = 1, kWaited = 2 };
    std::atomic<LONG> state_{kFree};
};

}  // namespace poom
