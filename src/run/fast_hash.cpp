#include "run/fast_hash.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace voxlith {

namespace {

constexpr std::size_t prefetchBytes = 4096;  // farther than the hardware looks ahead: past the end of a page
constexpr std::size_t chunkBytes = std::size_t{1} << 18;

// Eight lanes of 64-bit words, each with its sum and the sum of its sums (the checksum of J. G. Fletcher), folded into
// one by FNV-1a: as fast as memory, so that reading stays all that a start costs. It finds damage by chance, not by
// intent.
constexpr std::uint64_t fnvPrime = 0x100000001b3U;
constexpr std::size_t hashLanes = 8;
typedef std::array<std::uint64_t, hashLanes> HashWords;

void addWords(const HashWords& words, HashWords& sum, HashWords& sumOfSums) {
    for (std::size_t l = 0; l < hashLanes; ++l) {
        sum[l] += words[l];
        sumOfSums[l] += sum[l];
    }
}

std::uint64_t hashOfChunk(std::span<const std::byte> bytes, std::uint64_t start) {
    HashWords words{}, sum{}, sumOfSums{};
    sum.fill(start);
    std::size_t at = 0;
    for (; at + sizeof words <= bytes.size(); at += sizeof words) {
        __builtin_prefetch(bytes.data() + at + prefetchBytes);
        std::memcpy(words.data(), bytes.data() + at, sizeof words);
        addWords(words, sum, sumOfSums);
    }
    if (at < bytes.size()) {
        words.fill(0);
        std::memcpy(words.data(), bytes.data() + at, bytes.size() - at);
        addWords(words, sum, sumOfSums);
    }
    std::uint64_t hash = (hashStart ^ start ^ bytes.size()) * fnvPrime;
    for (std::size_t l = 0; l < hashLanes; ++l) {
        for (const std::uint64_t part : {sum[l], sumOfSums[l]}) {
            hash = (hash ^ part ^ (part >> 32U)) * fnvPrime;
        }
    }
    return hash;
}

}  // namespace

std::uint64_t hashOf(std::span<const std::byte> bytes, std::uint64_t hash) {
    for (std::size_t at = 0; at < bytes.size(); at += chunkBytes) {
        hash = hashOfChunk(bytes.subspan(at, std::min(chunkBytes, bytes.size() - at)), hash);
    }
    return hash;
}

}  // namespace voxlith
