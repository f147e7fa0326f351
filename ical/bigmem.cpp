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

size_t mappedSize(size_t bytes) { return (bytes + kHuge - 1) & ~(kHuge - 1); }

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
// page is brought in at once.
void* mapBig(size_t bytes)
{
    size_t len = mappedSize(bytes);
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
#ifdef MADV_HUGEPAGE
    madvise(p, len, MADV_HUGEPAGE);
#endif
    if (hugePagesOn())
        return p;
    bool populated = false;
#ifdef MADV_POPULATE_WRITE
    populated = madvise(p, len, MADV_POPULATE_WRITE) == 0;
#endif
    if (!populated) {
        // Older kernels: touch each page.
        volatile char* v = p;
        for (size_t i = 0; i < len; i += 4096)
            v[i] = 0;
    }
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
    if (bytes >= kMid) {
        // Too small for huge pages, big enough that malloc would map it and
        // then take a fault on every page as the index is filled.
        void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (p == MAP_FAILED)
            throw std::bad_alloc();
        return p;
    }
#endif
    return ::operator new(bytes);
}

void bigFree(void* p, size_t bytes)
{
#ifndef _WIN32
    if (bytes >= kBig) {
        munmap(p, mappedSize(bytes));
        return;
    }
    if (bytes >= kMid) {
        munmap(p, bytes);
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
    if (big_)
        bigFree(big_, bigLen_);
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
    // machine costs more than the copy.
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return false;
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && size_t(st.st_size) >= kBig) {
        size_t n = size_t(st.st_size);
        char* buf = static_cast<char*>(mapBig(n));
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
            bigFree(buf, n);
        // Changed while being read, or no memory: read it plainly below.
    }
    close(fd);
#endif
    return readWholeFile(path, owned_);
}

}  // namespace lfical
