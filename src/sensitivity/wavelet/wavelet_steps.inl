// One level of the transform on the lines of a tile, written once for every vector width and inlined into the routines
// that are compiled for a given instruction set. Private to wavelet_lanes.cpp.
#pragma once

#include <algorithm>
#include <cstddef>

#include "sensitivity/wavelet/wavelet_tiles.h"

namespace voxlith {

// The widened taps: in a table where their number is known when the program is compiled, otherwise taken from the
// filter.
template <std::size_t fixedTaps>
struct TapTable {
    double low[fixedTaps];
    double high[fixedTaps];

    [[gnu::always_inline]] explicit TapTable(const WaveletFilter& filter) {
        for (std::size_t k = 0; k < fixedTaps; ++k) {
            low[k] = static_cast<double>(filter.coefLow[k]);
            high[k] = static_cast<double>(filter.coefHigh[k]);
        }
    }
    [[gnu::always_inline]] static constexpr std::size_t count() { return fixedTaps; }
    [[gnu::always_inline]] double lowTap(std::size_t k) const { return low[k]; }
    [[gnu::always_inline]] double highTap(std::size_t k) const { return high[k]; }
};
template <>
struct TapTable<0> {
    const WaveletFilter& filter;

    [[gnu::always_inline]] explicit TapTable(const WaveletFilter& taps) : filter(taps) {}
    [[gnu::always_inline]] std::size_t count() const { return filter.coefLow.size(); }
    [[gnu::always_inline]] double lowTap(std::size_t k) const { return static_cast<double>(filter.coefLow[k]); }
    [[gnu::always_inline]] double highTap(std::size_t k) const { return static_cast<double>(filter.coefHigh[k]); }
};

// The first n rows of `source`: the low half goes to `low`, the high half to rows n/2 and on of `high`, whose rows lie
// `highStride` values apart.
template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void forwardLanes(const double* source, double* low, double* high, std::size_t highStride,
                                                std::size_t n, const TapTable<fixedTaps>& taps) {
    using Vector = typename LaneVector<width>::Type;
    using Unaligned = typename LaneVector<width>::Unaligned;
    const std::size_t half = n / 2;
    const std::size_t base = taps.count() * n - taps.count() / 2 + 2;
    for (std::size_t i = 0; i < half; ++i) {
        double* const highRow = high + highStride * (i + half);
        for (std::size_t l = 0; l < lanes; l += width) {
            Vector lowSum = {};
            Vector highSum = {};
            for (std::size_t k = 0; k < taps.count(); ++k) {
                const std::size_t j = (base + 2 * i + k) & (n - 1);
                const Vector a = *reinterpret_cast<const Unaligned*>(source + lanes * j + l);
                lowSum += taps.lowTap(k) * a;
                highSum += taps.highTap(k) * a;
            }
            *reinterpret_cast<Unaligned*>(low + lanes * i + l) = lowSum;
            *reinterpret_cast<Unaligned*>(highRow + l) = highSum;
        }
    }
    for (std::size_t l = 0; 2 * half < n && l < lanes; ++l) {
        high[highStride * (n - 1) + l] = 0.0;
    }
}

// Adds what values i of both halves give to an output under tap k.
template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void addTap(const double* low, const double* high, std::size_t k,
                                          const TapTable<fixedTaps>& taps, typename LaneVector<width>::Type& sum) {
    using Unaligned = typename LaneVector<width>::Unaligned;
    sum += taps.lowTap(k) * *reinterpret_cast<const Unaligned*>(low) +
           taps.highTap(k) * *reinterpret_cast<const Unaligned*>(high);
}

// Outputs that the filter reaches round the end of the line, in the order of the plain step: by i, then by k. `m`
// numbers the pair of outputs; the first of a pair takes the even taps, the second one the odd taps.
template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void sumWrappedPair(const double* low, const double* high, std::size_t n, std::size_t m,
                                                  const TapTable<fixedTaps>& taps,
                                                  typename LaneVector<width>::Type& even,
                                                  typename LaneVector<width>::Type& odd) {
    const std::size_t half = n / 2;
    const std::size_t reach = (taps.count() + 1) / 2;  // values i that a pair sees
    for (std::size_t i = 0; i < half; ++i) {
        if (i == m + 1 && reach <= half) {
            i = half + m + 1 - reach;  // nothing in between reaches this pair
        }
        const double* const lowRow = low + lanes * i;
        const double* const highRow = high + lanes * i;
        for (std::size_t k = (n + 2 * m - 2 * i) & (n - 1); k < taps.count(); k += n) {
            addTap<width>(lowRow, highRow, k, taps, even);
            if (k + 1 < taps.count()) {
                addTap<width>(lowRow, highRow, k + 1, taps, odd);
            }
        }
    }
}

// The same for all other outputs.
template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void sumPair(const double* low, const double* high, std::size_t m,
                                           const TapTable<fixedTaps>& taps, typename LaneVector<width>::Type& even,
                                           typename LaneVector<width>::Type& odd) {
    const std::size_t reach = (taps.count() + 1) / 2;
    for (std::size_t t = 0; t < reach; ++t) {
        const std::size_t row = lanes * (m + 1 - reach + t);
        const std::size_t k = 2 * (reach - 1 - t);
        addTap<width>(low + row, high + row, k, taps, even);
        if (k + 1 < taps.count()) {
            addTap<width>(low + row, high + row, k + 1, taps, odd);
        }
    }
}

// `low` and `high` (n/2 rows each, n a power of two) become the n rows of `target`, which lie `targetStride` values
// apart.
template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void inverseLanes(const double* low, const double* high, double* target,
                                                std::size_t targetStride, std::size_t n,
                                                const TapTable<fixedTaps>& taps) {
    using Vector = typename LaneVector<width>::Type;
    using Unaligned = typename LaneVector<width>::Unaligned;
    const std::size_t half = n / 2;
    const std::size_t wrapped = std::min(half, (taps.count() + 1) / 2 - std::min<std::size_t>(taps.count(), 1));
    const std::size_t base = taps.count() * n - taps.count() / 2 + 2;
    // Two loops and not one with a branch: the long one keeps its taps in registers.
    for (std::size_t m = 0; m < wrapped; ++m) {
        double* const evenRow = target + targetStride * ((base + 2 * m) & (n - 1));
        double* const oddRow = target + targetStride * ((base + 2 * m + 1) & (n - 1));
        for (std::size_t l = 0; l < lanes; l += width) {
            Vector even = {};
            Vector odd = {};
            sumWrappedPair<width, lanes>(low + l, high + l, n, m, taps, even, odd);
            *reinterpret_cast<Unaligned*>(evenRow + l) = even;
            *reinterpret_cast<Unaligned*>(oddRow + l) = odd;
        }
    }
    for (std::size_t m = wrapped; m < half; ++m) {
        double* const evenRow = target + targetStride * ((base + 2 * m) & (n - 1));
        double* const oddRow = target + targetStride * ((base + 2 * m + 1) & (n - 1));
        for (std::size_t l = 0; l < lanes; l += width) {
            Vector even = {};
            Vector odd = {};
            sumPair<width, lanes>(low + l, high + l, m, taps, even, odd);
            *reinterpret_cast<Unaligned*>(evenRow + l) = even;
            *reinterpret_cast<Unaligned*>(oddRow + l) = odd;
        }
    }
}

}  // namespace voxlith
