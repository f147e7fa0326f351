#include "bigmem.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "internal.h"

#ifndef _WIN32
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace lfical {

namespace {
const size_t kBig = size_t(1) << 20;
const size_t kMid = size_t(64) << 10;

#ifndef _WIN32
#if defined(__linux__) && !defined(MADV_POPULATE_WRITE)
#define MADV_POPULATE_WRITE 23
#endif
const size_t kHuge = size_t(2) << 20;

size_t mappedSize(size_t bytes, bool exact = false)
{
    size_t unit = exact ? 4096 : kHuge;
    return (bytes + unit - 1) & ~(unit - 1);
}

void populate(char* p, size_t len)
{
    bool done = false;
#ifdef MADV_POPULATE_WRITE
    done = madvise(p, len, MADV_POPULATE_WRITE) == 0;
#endif
    if (!done) {
        // Older kernels: touch each page.
        volatile char* v = p;
        for (size_t i = 0; i < len; i += 4096)
            v[i] = 0;
    }
}

// Whether the kernel gives huge pages to regions that ask for them.
bool hugePagesOn()
{
    static const bool on = [] {
        FILE* f = fopen("/sys/kernel/mm/transparent_hugepage/enabled", "r");
        if (!f)
            return false;
        char buf[128] = {0};
        size_t n = fread(buf, 1, sizeof buf - 1, f);
        fclose(f);
        std::string_view v(buf, n);
        return v.find("[always]") != std::string_view::npos || v.find("[madvise]") != std::string_view::npos;
    }();
    return on;
}

// Whole 2 MiB pages, aligned so the kernel can back them with huge pages.
// On a virtual machine each 4 KiB page costs a fault to bring in and a walk
// of two page tables on a TLB miss: writing a hundred thousand event records
// into 4 KiB pages took longer than parsing the calendar they came from.
// With huge pages a fault brings in 2 MiB, so pages are left to come in as
// they are used (the arrays are reserved generously); without them every
// page is brought in at once. An exact block (a file's text, written whole)
// ends in 4 KiB pages instead of a last huge page mostly unused.
void* mapBig(size_t bytes, bool exact = false)
{
    size_t len = mappedSize(bytes, exact);
    void* m = mmap(nullptr, len + kHuge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED)
        return nullptr;
    char* raw = static_cast<char*>(m);
    char* p = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(raw) + kHuge - 1) & ~uintptr_t(kHuge - 1));
    size_t head = size_t(p - raw);
    if (head)
        munmap(raw, head);
    if (kHuge - head)
        munmap(p + len, kHuge - head);
    size_t huge = exact ? len & ~(kHuge - 1) : len;
#ifdef MADV_HUGEPAGE
    if (huge)
        madvise(p, huge, MADV_HUGEPAGE);
#endif
    if (!hugePagesOn())
        populate(p, len);
    else if (huge < len)
        populate(p + huge, len - huge);
    return p;
}
#endif
}  // namespace

void* bigAlloc(size_t bytes)
{
#ifndef _WIN32
    if (bytes >= kBig) {
        void* p = mapBig(bytes);
        if (!p)
            throw std::bad_alloc();
        return p;
    }
#endif
    return ::operator new(bytes);
}

void prefault(void* p, size_t bytes)
{
#if !defined(_WIN32) && defined(MADV_POPULATE_WRITE)
    // Whole pages inside [p, p + bytes) only: the ones at the edges may be
    // shared with other data and are left to fault as usual.
    uintptr_t from = (reinterpret_cast<uintptr_t>(p) + 4095) & ~uintptr_t(4095);
    uintptr_t to = (reinterpret_cast<uintptr_t>(p) + bytes) & ~uintptr_t(4095);
    if (to > from && to - from >= kMid)
        madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
#else
    (void)p;
    (void)bytes;
#endif
}

void bigFree(void* p, size_t bytes)
{
#ifndef _WIN32
    if (bytes >= kBig) {
        munmap(p, mappedSize(bytes));
        return;
    }
#else
    (void)bytes;
#endif
    ::operator delete(p);
}

FileText& FileText::operator=(FileText&& o) noexcept
{
    if (this != &o) {
        release();
        owned_ = std::move(o.owned_);
        big_ = o.big_;
        bigLen_ = o.bigLen_;
        o.big_ = nullptr;
        o.bigLen_ = 0;
    }
    return *this;
}

void FileText::release()
{
#ifndef _WIN32
    if (big_)
        munmap(big_, mappedSize(bigLen_, true));
#endif
    big_ = nullptr;
    bigLen_ = 0;
}

std::string& FileText::edit()
{
    if (big_) {
        std::string copy(big_, bigLen_);
        release();
        owned_ = std::move(copy);
    }
    return owned_;
}

bool FileText::read(const std::string& path)
{
    release();
    owned_.clear();
#ifndef _WIN32
    // A large file is read into huge pages rather than mapped: the scan
    // then walks it without a TLB miss every 4 KiB, which on a virtual
    // machine costs more than the copy. A smaller one gets pages brought in
    // with one call rather than a string that faults them in one by one.
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return false;
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && size_t(st.st_size) >= kMid) {
        size_t n = size_t(st.st_size);
        char* buf = static_cast<char*>(mapBig(n, true));
        size_t got = 0;
        while (buf && got < n) {
            ssize_t r = ::read(fd, buf + got, n - got);
            if (r < 0 && errno == EINTR)
                continue;
            if (r <= 0)
                break;
            got += size_t(r);
        }
        if (buf && got == n) {
            close(fd);
            big_ = buf;
            bigLen_ = n;
            return true;
        }
        if (buf)
            munmap(buf, mappedSize(n, true));
        // Changed while being read, or no memory: read it plainly below.
    }
    close(fd);
#endif
    return readWholeFile(path, owned_);
}

}  // namespace lfical
