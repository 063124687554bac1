#include "base/large_array.h"

#include <sys/mman.h>

#include <cstdint>

namespace voxlith {

namespace {

// Whole huge pages only, since the rest of the outer ones belongs to other arrays. The result changes nothing for the
// caller.
void advise(void* start, std::size_t bytes, int advice) {
    const auto address = reinterpret_cast<std::uintptr_t>(start);
    const std::uintptr_t first = (address + largePageBytes - 1) / largePageBytes * largePageBytes;
    const std::uintptr_t end = (address + bytes) / largePageBytes * largePageBytes;
    if (first < end) {
        static_cast<void>(::madvise(static_cast<std::byte*>(start) + (first - address), end - first, advice));
    }
}

}  // namespace

void adviseHugePages(void* start, std::size_t bytes) {
#if defined(MADV_HUGEPAGE)
    advise(start, bytes, MADV_HUGEPAGE);
#else
    static_cast<void>(start);
    static_cast<void>(bytes);
#endif
}

void releasePages(void* start, std::size_t bytes) {
    advise(start, bytes, MADV_DONTNEED);
}

}  // namespace voxlith
