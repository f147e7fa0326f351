#include "bigmem.h"

#include <cstdint>
#include <cstdlib>

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
}  // namespace

// Huge pages were tried here and dropped: on a virtual machine that hands
// free memory back to its host, a fresh huge page comes from memory the host
// has taken back, and a load after a few idle seconds ran twice as slow as
// with small pages brought in at once.
void* bigAlloc(size_t bytes)
{
#ifndef _WIN32
    if (bytes >= kBig) {
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
        munmap(p, bytes);
        return;
    }
#else
    (void)bytes;
#endif
    ::operator delete(p);
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

FileText& FileText::operator=(FileText&& o) noexcept
{
    if (this != &o) {
        unmap();
        owned_ = std::move(o.owned_);
        map_ = o.map_;
        mapLen_ = o.mapLen_;
        o.map_ = nullptr;
        o.mapLen_ = 0;
    }
    return *this;
}

void FileText::unmap()
{
#ifndef _WIN32
    if (map_)
        munmap(const_cast<char*>(map_), mapLen_);
#endif
    map_ = nullptr;
    mapLen_ = 0;
}

std::string& FileText::edit()
{
    if (map_) {
        std::string copy(map_, mapLen_);
        unmap();
        owned_ = std::move(copy);
    }
    return owned_;
}

bool FileText::read(const std::string& path)
{
    unmap();
    owned_.clear();
#ifndef _WIN32
    // Mapped privately and brought in with one call: the store never writes
    // through it, and saving replaces the file by rename, which leaves this
    // mapping's pages intact. A string would fault its pages in one by one.
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return false;
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && size_t(st.st_size) >= kMid) {
        void* p = mmap(nullptr, size_t(st.st_size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
        if (p != MAP_FAILED) {
            close(fd);
            map_ = static_cast<const char*>(p);
            mapLen_ = size_t(st.st_size);
            return true;
        }
    }
    close(fd);
#endif
    // Elsewhere the bytes are copied into the process, in 64 KiB pieces
    // through the C runtime. Under Wine that copy is most of what a load
    // costs beyond the native one (a large store's 36 MB: some 150-250 ms,
    // against a few for the mapping above), and one ReadFile of the whole
    // file was no faster: the time goes to the fresh pages the copy lands
    // in, not to the calls. A mapping kept for the store's life is not
    // used there: Windows refuses to replace a mapped file, which every
    // save (ours and a sync tool's) does.
    return readWholeFile(path, owned_);
}

}  // namespace lfical
