// Processes that work on one run together, called ranks. Each has a share of the rows of the sensitivity files, and
// takes the same steps in the same order as the others; what is not a product of the rows, each computes for itself,
// alike. The first one writes all files and the screen. There is one rank unless a program sets up more.
//
// Sums over rows are not added up from sums of the ranks: they are passed along, and each rank adds its rows to them.
// So a sum has the order of one process, and results are the same bytes for any number of ranks.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace voxlith {

constexpr std::size_t mostChunks = 256;

using ChunkCall = void (*)(const void* loop, std::size_t chunk);

// The exchanges between ranks; null with one rank. All ranks call the same one, with arrays of the same size.
struct Ranks {
    std::size_t rank = 0;  // of this process, from 0
    std::size_t count = 1;
    // Rank r has values[firstOfRank[r]] up to firstOfRank[r + 1]; afterwards all ranks have all of them.
    void (*gather)(std::span<double> values, std::span<const std::size_t> firstOfRank) = nullptr;
    // The bits that any rank has.
    void (*unite)(std::span<std::uint64_t> bits) = nullptr;
    std::int64_t (*largest)(std::int64_t value) = nullptr;
    // What the first rank has.
    void (*copyFirst)(std::span<std::byte> bytes) = nullptr;
    // Chunk c, from chunkStart[c] up to chunkStart[c + 1], is received from the rank before, changed by call(loop, c),
    // and sent to the rank after, while that one works on the chunk before. In the end all ranks have the values of the
    // last one.
    void (*passAlong)(std::span<double> values, std::span<const std::size_t> chunkStart, ChunkCall call,
                      const void* loop) = nullptr;
};

// Before the run begins.
void setRanks(const Ranks& ranks);
const Ranks& ranksOfRun();

inline bool isFirstRank() {
    return ranksOfRun().rank == 0;
}

inline std::int64_t largestOfRanks(std::int64_t value) {
    const Ranks& ranks = ranksOfRun();
    return ranks.count > 1 ? ranks.largest(value) : value;
}

template <class T>
void copyFirstRank(T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (ranksOfRun().count > 1) {
        ranksOfRun().copyFirst(std::as_writable_bytes(std::span(&value, 1)));
    }
}

// passAlong, where loop(c) is called for each chunk; at most mostChunks.
template <class Loop>
void passAlongRanks(std::span<double> values, std::span<const std::size_t> chunkStart, const Loop& loop) {
    const Ranks& ranks = ranksOfRun();
    assert(ranks.count > 1 && !chunkStart.empty() && chunkStart.size() <= mostChunks + 1);
    const ChunkCall call = [](const void* address, std::size_t chunk) { (*static_cast<const Loop*>(address))(chunk); };
    ranks.passAlong(values, chunkStart, call, &loop);
}

}  // namespace voxlith
