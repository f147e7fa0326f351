// Times reading every record of a sorted database in sequence, the way the
// program loads "categoryprops": a fresh volume of N named records (written
// in a scrambled order so the sort has work to do), then ROUNDS passes that
// seek to the start and read to the end. Prints the median milliseconds of
// one whole pass and of one record, just after the last write and once
// the file has settled.
#include "cedb.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const CEPROPID kName = 0x000A001F, kColour = 0x000B0003;

double Ms(const LARGE_INTEGER &a, const LARGE_INTEGER &b) {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return double(b.QuadPart - a.QuadPart) * 1000.0 / double(f.QuadPart);
}

}  // namespace

int wmain(int argc, wchar_t **argv) {
    int count = argc > 1 ? _wtoi(argv[1]) : 1000;
    int rounds = argc > 2 ? _wtoi(argv[2]) : 5;
    if (count < 1 || count > 60000 || rounds < 1) {
        fprintf(stderr, "usage: lfcedbread [records (1-60000)] [rounds]\n");
        return 2;
    }
    WCHAR tmp[MAX_PATH];
    GetTempPathW(MAX_PATH, tmp);
    std::wstring vol = std::wstring(tmp) + L"lf-cedbread-" + std::to_wstring(GetCurrentProcessId()) + L".vol";
    DeleteFileW(vol.c_str());
    CEGUID guid;
    if (!CeMountDBVol(&guid, &vol[0], CREATE_ALWAYS)) {
        fprintf(stderr, "cannot make the volume: error %lu\n", GetLastError());
        return 1;
    }
    CEDBASEINFO info = {};
    info.dwFlags = CEDB_VALIDCREATE;
    lstrcpyW(info.szDbaseName, L"categoryprops");
    info.wNumSortOrder = 1;
    info.rgSortSpecs[0].propid = kName;
    CEOID oid = CeCreateDatabaseEx(&guid, &info);
    HANDLE h = CeOpenDatabaseEx(&guid, &oid, nullptr, kName, CEDB_AUTOINCREMENT, nullptr);
    if (!oid || h == INVALID_HANDLE_VALUE) {
        fprintf(stderr, "cannot make the database: error %lu\n", GetLastError());
        return 1;
    }
    // Every write commits the whole volume, so filling takes a while; it is not timed.
    for (int i = 0; i < count; i++) {
        wchar_t name[32];
        swprintf(name, 32, L"Category %05d", (i * 7919) % count);
        CEPROPVAL v[2] = {};
        v[0].propid = kName;
        v[0].val.lpwstr = name;
        v[1].propid = kColour;
        v[1].val.lVal = i;
        if (!CeWriteRecordProps(h, 0, 2, v)) {
            fprintf(stderr, "write %d failed: error %lu\n", i, GetLastError());
            return 1;
        }
    }
    // A volume changed moments ago is checked down to its header on every
    // call (its time could hide another change); one that has settled by
    // its attributes alone. Both are timed.
    LPBYTE buf = nullptr;
    DWORD size = 0;
    double medians[2];
    for (int phase = 0; phase < 2; phase++) {
        if (phase == 1)
            Sleep(3000);
        std::vector<double> passes;
        for (int r = 0; r < rounds; r++) {
            LARGE_INTEGER a, b;
            QueryPerformanceCounter(&a);
            CeSeekDatabase(h, CEDB_SEEK_BEGINNING, 0, nullptr);
            int read = 0;
            WORD n = 0;
            while (CeReadRecordProps(h, CEDB_ALLOWREALLOC, &n, nullptr, &buf, &size))
                read++;
            QueryPerformanceCounter(&b);
            if (read != count) {
                fprintf(stderr, "read %d of %d records: error %lu\n", read, count, GetLastError());
                return 1;
            }
            passes.push_back(Ms(a, b));
        }
        std::sort(passes.begin(), passes.end());
        medians[phase] = passes[passes.size() / 2];
    }
    LocalFree(buf);
    CloseHandle(h);
    CeUnmountDBVol(&guid);
    DeleteFileW(vol.c_str());
    printf("records %d, rounds %d: median pass just after a write %.2f ms (%.4f ms a record), "
           "settled %.2f ms (%.4f ms a record)\n",
           count, rounds, medians[0], medians[0] / count, medians[1], medians[1] / count);
    return 0;
}
