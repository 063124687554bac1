#include "forward/worker_count.h"

#include <oneapi/tbb/info.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>

namespace voxlith {

namespace {

constexpr std::size_t mostThreads = 256;

std::size_t memoryOfMachine() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long size = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && size > 0 ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(size) : SIZE_MAX;
}

// "max", or a file that is not there, is no limit.
std::size_t memoryOfGroup() {
    std::ifstream groups("/proc/self/cgroup");
    std::string line;
    while (std::getline(groups, line)) {
        if (!line.starts_with("0::")) {
            continue;
        }
        std::ifstream limit("/sys/fs/cgroup" + line.substr(3) + "/memory.max");
        std::size_t bytes = 0;
        limit >> bytes;
        return limit ? bytes : SIZE_MAX;
    }
    return SIZE_MAX;
}

}  // namespace

std::size_t defaultThreads(std::size_t bytesPerThread) {
    const auto cores = static_cast<std::size_t>(std::max(1, oneapi::tbb::info::default_concurrency()));
    const std::size_t usable = std::min(memoryOfMachine(), memoryOfGroup()) / 2;
    return std::clamp<std::size_t>(usable / std::max<std::size_t>(bytesPerThread, 1), 1, std::min(cores, mostThreads));
}

std::size_t rowWorkBytes(std::size_t cells, std::size_t paddedCells) {
    // The row on the mesh, on the padded mesh, and space for the candidates of the selection.
    return 8 * cells + 16 * paddedCells;
}

std::size_t datumWorkBytes(std::size_t cells) {
    return 8 * cells;
}

}  // namespace voxlith
