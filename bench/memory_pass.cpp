#include "memory_pass.h"

#include <array>
#include <cstddef>

// Also compiled for the widest instructions, chosen at run time, so that memory alone bounds the pass.
#define VOXLITH_BENCH_WIDE [[gnu::target_clones("avx512f", "avx2", "default")]]

namespace voxlith {

VOXLITH_BENCH_WIDE std::uint64_t readingPass(std::span<const std::int32_t> words) {
    constexpr std::size_t lanes = 64;  // several sums a vector register, so that no addition waits for another
    std::array<std::uint32_t, lanes> sum{};
    const std::size_t whole = words.size() - words.size() % lanes;
    for (std::size_t first = 0; first < whole; first += lanes) {
        for (std::size_t l = 0; l < lanes; ++l) {
            sum[l] += static_cast<std::uint32_t>(words[first + l]);
        }
    }
    std::uint64_t total = 0;
    for (const std::uint32_t part : sum) {
        total += part;
    }
    for (std::size_t n = whole; n < words.size(); ++n) {
        total += static_cast<std::uint32_t>(words[n]);
    }
    return total;
}

VOXLITH_BENCH_WIDE void readAndWritePass(std::span<double> values) {
    for (double& value : values) {
        value = -value;
    }
}

}  // namespace voxlith
