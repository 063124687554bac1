#include "sensitivity/large_array.h"

#include <sys/mman.h>

#include <cstdint>

namespace voxlith {

void askForLargePages(void* start, std::size_t bytes) {
#if defined(MADV_HUGEPAGE)
    // Whole pages only: what stands beside them belongs to others.
    const auto first = (reinterpret_cast<std::uintptr_t>(start) + largePageBytes - 1) / largePageBytes * largePageBytes;
    const auto behind = (reinterpret_cast<std::uintptr_t>(start) + bytes) / largePageBytes * largePageBytes;
    if (first < behind) {
        // The answer changes nothing for the caller.
        static_cast<void>(::madvise(reinterpret_cast<void*>(first), behind - first, MADV_HUGEPAGE));
    }
#else
    static_cast<void>(start);
    static_cast<void>(bytes);
#endif
}

}  // namespace voxlith
