// Memory for the store's large arrays and file texts. Natively, a file is
// mapped and its pages brought in with one call, and big arrays are
// allocated with their pages brought in: on virtual machines a page fault
// per 4 KiB costs more than parsing. The Windows build reads and allocates
// plainly.
#pragma once

#include <cstddef>
#include <new>
#include <string>
#include <string_view>

namespace lfical {

void* bigAlloc(size_t bytes);
void bigFree(void* p, size_t bytes);
// Brings in the pages of memory about to be written whole (an index bucket,
// a chunk of records): one call instead of a fault per 4 KiB page, which a
// virtual machine makes dear. Small ranges are left alone.
void prefault(void* p, size_t bytes);

template <class T>
struct BigAllocator {
    using value_type = T;
    BigAllocator() = default;
    template <class U>
    BigAllocator(const BigAllocator<U>&) {}
    T* allocate(size_t n) { return static_cast<T*>(bigAlloc(n * sizeof(T))); }
    void deallocate(T* p, size_t n) { bigFree(p, n * sizeof(T)); }
    template <class U>
    bool operator==(const BigAllocator<U>&) const { return true; }
    template <class U>
    bool operator!=(const BigAllocator<U>&) const { return false; }
};

// A file's bytes as read: mapped read-only where the platform allows, or
// held in a string; becomes a string once something is appended.
class FileText {
public:
    FileText() = default;
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;
    FileText(FileText&& o) noexcept { *this = std::move(o); }
    FileText& operator=(FileText&& o) noexcept;
    ~FileText() { unmap(); }

    bool read(const std::string& path);
    void assign(std::string s)
    {
        unmap();
        owned_ = std::move(s);
    }
    std::string& edit();  // the bytes as a string, copying a mapping first

    std::string_view view() const { return map_ ? std::string_view(map_, mapLen_) : std::string_view(owned_); }
    operator std::string_view() const { return view(); }
    size_t size() const { return view().size(); }
    bool empty() const { return view().empty(); }
    std::string substr(size_t pos, size_t n) const { return std::string(view().substr(pos, n)); }

private:
    void unmap();
    std::string owned_;
    const char* map_ = nullptr;
    size_t mapLen_ = 0;
};

}  // namespace lfical
