#include "bigmem.h"

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
}

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
    // Mapped privately: the store never writes through it, and saving
    // replaces the file by rename, which leaves this mapping's pages intact.
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return false;
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && size_t(st.st_size) >= kBig) {
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
    return readWholeFile(path, owned_);
}

}  // namespace lfical
