// An array for values that every product reads and writes in no order: it begins at a cache line, and a long one asks
// the system for huge pages, so that the address translation needs few entries. Where there are none it is an array
// like any other.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace voxlith {

// Best effort.
void adviseHugePages(void* start, std::size_t bytes);

// Gives the memory back to the system: the contents are lost, the addresses stay valid. Best effort.
void releasePages(void* start, std::size_t bytes);

constexpr std::size_t largePageBytes = std::size_t{1} << 21;

template <typename T>
struct LargeArrayAllocator {
    typedef T value_type;

    LargeArrayAllocator() = default;
    template <typename U>
    explicit LargeArrayAllocator(const LargeArrayAllocator<U>&) {}

    static std::align_val_t alignmentOf(std::size_t count) {
        constexpr std::size_t cacheLine = 64;
        return std::align_val_t{count >= largePageBytes / sizeof(T) ? largePageBytes : cacheLine};
    }
    T* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) {
            throw std::bad_array_new_length();
        }
        void* const start = ::operator new(count * sizeof(T), alignmentOf(count));
        adviseHugePages(start, count * sizeof(T));
        return static_cast<T*>(start);
    }
    void deallocate(T* start, std::size_t count) { ::operator delete(start, alignmentOf(count)); }
    friend bool operator==(const LargeArrayAllocator&, const LargeArrayAllocator&) { return true; }
};

template <typename T>
using LargeArray = std::vector<T, LargeArrayAllocator<T>>;

}  // namespace voxlith
