// The calendar server's COM objects: the application object and what it
// hands out (folders, item collections, appointments, recurrence patterns,
// exceptions).
#pragma once

#include <atomic>

#include "pimstore_if.h"

namespace poom {

// Live objects and server locks, for DllCanUnloadNow.
extern std::atomic<long> g_liveObjects;
extern std::atomic<long> g_serverLocks;

// A new application object (one reference held by the caller).
HRESULT CreateApplication(REFIID riid, void** ppv);

}  // namespace poom
