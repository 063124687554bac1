#include "sensitivity/rows/row_kernels.h"

#include <array>
#include <bit>
#include <cstring>

namespace voxlith {

namespace {

constexpr std::size_t laneCount = 8;

double term(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t p, const double* padded) {
    return static_cast<double>(std::bit_cast<float>(coefValue[p])) * padded[coefIndex[p] - 1];
}

double sumOfLanes(const std::array<double, laneCount>& sum) {
    return ((sum[0] + sum[4]) + (sum[2] + sum[6])) + ((sum[1] + sum[5]) + (sum[3] + sum[7]));
}

double multiplyPlain(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n,
                     const double* padded) {
    std::array<double, laneCount> sum{};
    std::size_t p = 0;
    for (; p + laneCount <= n; p += laneCount) {
        for (std::size_t l = 0; l < laneCount; ++l) {
            sum[l] += term(coefIndex, coefValue, p + l, padded);
        }
    }
    for (std::size_t l = 0; p + l < n; ++l) {
        sum[l] += term(coefIndex, coefValue, p + l, padded);
    }
    return sumOfLanes(sum);
}

void addPlain(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, double factor,
              double* padded) {
    for (std::size_t p = 0; p < n; ++p) {
        padded[coefIndex[p] - 1] += static_cast<double>(std::bit_cast<float>(coefValue[p])) * factor;
    }
}

#if defined(__x86_64__)
using Lanes = double __attribute__((vector_size(64)));

// Lane by lane: of this, compilers make one conversion.
[[gnu::target("avx512f"), gnu::always_inline]] inline void loadValues(const std::int32_t* coefValue, Lanes& values) {
    std::array<float, laneCount> narrow;
    std::memcpy(narrow.data(), coefValue, sizeof narrow);
    for (std::size_t l = 0; l < laneCount; ++l) {
        values[l] = static_cast<double>(narrow[l]);
    }
}

// Single loads: they are faster than the gather instruction. With registers of half the width nothing is gained.
[[gnu::target("avx512f")]] double multiplyAvx512(const std::int32_t* coefIndex, const std::int32_t* coefValue,
                                                 std::size_t n, const double* padded) {
    Lanes lanes{};
    std::size_t p = 0;
    for (; p + laneCount <= n; p += laneCount) {
        const std::int32_t* const i = coefIndex + p;
        const Lanes model{padded[i[0] - 1], padded[i[1] - 1], padded[i[2] - 1], padded[i[3] - 1],
                          padded[i[4] - 1], padded[i[5] - 1], padded[i[6] - 1], padded[i[7] - 1]};
        Lanes values{};
        loadValues(coefValue + p, values);
        lanes += values * model;
    }
    std::array<double, laneCount> sum;
    std::memcpy(sum.data(), &lanes, sizeof sum);
    for (std::size_t l = 0; p + l < n; ++l) {
        sum[l] += term(coefIndex, coefValue, p + l, padded);
    }
    return sumOfLanes(sum);
}

// Products of eight at once, additions one after the other: an index may occur twice.
[[gnu::target("avx512f")]] void addAvx512(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n,
                                          double factor, double* padded) {
    std::size_t p = 0;
    for (; p + laneCount <= n; p += laneCount) {
        Lanes values{};
        loadValues(coefValue + p, values);
        values *= factor;
        std::array<double, laneCount> product;
        std::memcpy(product.data(), &values, sizeof product);
        for (std::size_t l = 0; l < laneCount; ++l) {
            padded[coefIndex[p + l] - 1] += product[l];
        }
    }
    addPlain(coefIndex + p, coefValue + p, n - p, factor, padded);
}
#endif

// Without a branch in the loop: only a damaged file pays for finding the culprit.
[[gnu::always_inline]] inline bool allInside(const std::int32_t* coefIndex, std::size_t n, std::uint32_t positions) {
    std::uint32_t outside = 0;
    for (std::size_t p = 0; p < n; ++p) {
        outside |= static_cast<std::uint32_t>(static_cast<std::uint32_t>(coefIndex[p]) - 1U >= positions);
    }
    return outside == 0;
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] bool allInsideAvx2(const std::int32_t* coefIndex, std::size_t n, std::uint32_t positions) {
    return allInside(coefIndex, n, positions);
}
#endif

}  // namespace

double rowTimesPadded(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, const double* padded,
                      InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512) {
        return multiplyAvx512(coefIndex, coefValue, n, padded);
    }
#endif
    static_cast<void>(instructions);
    return multiplyPlain(coefIndex, coefValue, n, padded);
}

void addRowTransposed(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, double factor,
                      double* padded, InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512) {
        addAvx512(coefIndex, coefValue, n, factor, padded);
        return;
    }
#endif
    static_cast<void>(instructions);
    addPlain(coefIndex, coefValue, n, factor, padded);
}

bool indicesInside(const std::int32_t* coefIndex, std::size_t n, std::uint32_t positions, InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions != InstructionSet::plain) {
        return allInsideAvx2(coefIndex, n, positions);
    }
#endif
    static_cast<void>(instructions);
    return allInside(coefIndex, n, positions);
}

}  // namespace voxlith
