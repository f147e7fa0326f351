#include "beeps.h"

#include <windows.h>
#include <gtest/gtest.h>

static volatile LONG g_beeps;
static BOOL(WINAPI *g_realBeep)(UINT);

static BOOL WINAPI CountedBeep(UINT type)
{
    InterlockedIncrement(&g_beeps);
    return g_realBeep(type);
}

// The program is linked into the test executable and calls MessageBeep through the executable's
// import table; its entry is pointed at the counter, which beeps on.
static bool CountBeeps()
{
    bool found = false;
    BYTE *base = (BYTE *)GetModuleHandleW(nullptr);
    IMAGE_NT_HEADERS *nt = (IMAGE_NT_HEADERS *)(base + ((IMAGE_DOS_HEADER *)base)->e_lfanew);
    DWORD imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto *dll = (IMAGE_IMPORT_DESCRIPTOR *)(base + imports); dll->Name; dll++) {
        if (lstrcmpiA((const char *)(base + dll->Name), "user32.dll") != 0)
            continue;
        auto *name = (IMAGE_THUNK_DATA *)(base + dll->OriginalFirstThunk);
        auto *slot = (IMAGE_THUNK_DATA *)(base + dll->FirstThunk);
        for (; name->u1.AddressOfData; name++, slot++) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal))
                continue;
            auto *byName = (IMAGE_IMPORT_BY_NAME *)(base + name->u1.AddressOfData);
            if (lstrcmpA((const char *)byName->Name, "MessageBeep") != 0)
                continue;
            DWORD was;
            VirtualProtect(&slot->u1.Function, sizeof(slot->u1.Function), PAGE_READWRITE, &was);
            g_realBeep = (BOOL(WINAPI *)(UINT))slot->u1.Function;
            slot->u1.Function = (ULONG_PTR)CountedBeep;
            VirtualProtect(&slot->u1.Function, sizeof(slot->u1.Function), was, &was);
            found = true;
        }
    }
    return found;
}

int BeepsSoFar()
{
    static bool counting = CountBeeps();
    EXPECT_TRUE(counting) << "the program's MessageBeep import was not found";
    return g_beeps;
}
