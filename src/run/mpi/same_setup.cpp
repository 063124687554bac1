#include "run/mpi/same_setup.h"

#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/messages.h"
#include "base/ranks.h"

namespace voxlith {

namespace {

std::uint64_t checksumOfProgram() {
    std::ifstream file("/proc/self/exe", std::ios::binary);
    std::array<char, 65536> part{};
    std::uint64_t sum = crc32(0, nullptr, 0);
    while (file.read(part.data(), part.size()) || file.gcount() > 0) {
        sum = crc32(sum, reinterpret_cast<const Bytef*>(part.data()), static_cast<uInt>(file.gcount()));
    }
    return sum;
}

struct MarkerName {
    std::array<char, 64> text{};  // empty where the first rank cannot write
};

MarkerName putMarker() {
    MarkerName name;
    std::snprintf(name.text.data(), name.text.size(), "voxlith-run-mpi.%ld", static_cast<long>(getpid()));
    std::FILE* const file = std::fopen(name.text.data(), "wx");
    if (file == nullptr) {
        return {};
    }
    std::fclose(file);
    return name;
}

}  // namespace

void requireSameSetup() {
    const std::uint64_t program = checksumOfProgram();
    std::uint64_t programOfFirst = program;
    copyFirstRank(programOfFirst);
    MarkerName marker = isFirstRank() ? putMarker() : MarkerName{};
    copyFirstRank(marker);
    const bool marked = marker.text[0] != '\0';
    const bool seen = !marked || ::access(marker.text.data(), F_OK) == 0;
    largestOfRanks(seen ? 0 : 1);  // all have looked
    if (marked && isFirstRank()) {
        std::remove(marker.text.data());
    }
    const std::string process = "process " + std::to_string(ranksOfRun().rank + 1);
    if (program != programOfFirst) {
        throw RunError(process + " runs another build of the program than the first: all must be the same");
    }
    if (!seen) {
        throw RunError(process + " works in another folder than the first: " +
                       std::filesystem::current_path().string() + "; all must share one");
    }
}

}  // namespace voxlith
