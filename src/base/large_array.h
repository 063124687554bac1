// An array for values that are read and written all over at every product: it begins at a cache line, and a long one
// asks the system for large pages, which spare the look-up of thousands of small ones. Where there are none it is an
// array like any other.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace voxlith {

// A hint: what cannot be had is done without.
void adviseHugePages(void* start, std::size_t bytes);

// Tells the system that what is held there is no longer of use; the addresses stay valid. A hint, too.
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
