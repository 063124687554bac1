// One level of the transform on the lines of a tile, written once for every vector width and inlined into the routines
// that are compiled for a given instruction set. Private to wavelet_lanes.cpp.
#pragma once

#include <cstddef>

#include "sensitivity/wavelet_lanes.h"

namespace voxlith {

// Vectors of `width` doubles that may be read and written at any double's address.
template <std::size_t width>
struct LaneVector;
template <>
struct LaneVector<2> {
    typedef double Type __attribute__((vector_size(16), aligned(8), may_alias));
};
template <>
struct LaneVector<4> {
    typedef double Type __attribute__((vector_size(32), aligned(8), may_alias));
};
template <>
struct LaneVector<8> {
    typedef double Type __attribute__((vector_size(64), aligned(8), may_alias));
};

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
template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void forwardLanes(const double* source, double* low, double* high, std::size_t highStride,
                                                std::size_t n, const TapTable<fixedTaps>& taps) {
    using Vector = typename LaneVector<width>::Type;
    const std::size_t half = n / 2;
    const std::size_t base = taps.count() * n - taps.count() / 2 + 2;
    for (std::size_t i = 0; i < half; ++i) {
        double* const highRow = high + highStride * (i + half);
        for (std::size_t l = 0; l < laneCount; l += width) {
            Vector lowSum = {};
            Vector highSum = {};
            for (std::size_t k = 0; k < taps.count(); ++k) {
                const std::size_t j = (base + 2 * i + k) & (n - 1);
                const Vector a = *reinterpret_cast<const Vector*>(source + laneCount * j + l);
                lowSum += taps.lowTap(k) * a;
                highSum += taps.highTap(k) * a;
            }
            *reinterpret_cast<Vector*>(low + laneCount * i + l) = lowSum;
            *reinterpret_cast<Vector*>(highRow + l) = highSum;
        }
    }
    for (std::size_t l = 0; 2 * half < n && l < laneCount; ++l) {
        high[highStride * (n - 1) + l] = 0.0;
    }
}

// `low` (n/2 rows) and rows n/2 and on of `high` become the n rows of `target`.
template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void inverseLanes(const double* low, const double* high, double* target, std::size_t n,
                                                const TapTable<fixedTaps>& taps) {
    using Vector = typename LaneVector<width>::Type;
    const std::size_t half = n / 2;
    const std::size_t base = taps.count() * n - taps.count() / 2 + 2;
    for (std::size_t p = 0; p < laneCount * n; p += width) {
        *reinterpret_cast<Vector*>(target + p) = Vector{};
    }
    for (std::size_t i = 0; i < half; ++i) {
        for (std::size_t l = 0; l < laneCount; l += width) {
            const Vector lowValue = *reinterpret_cast<const Vector*>(low + laneCount * i + l);
            const Vector highValue = *reinterpret_cast<const Vector*>(high + laneCount * (i + half) + l);
            for (std::size_t k = 0; k < taps.count(); ++k) {
                const std::size_t j = (base + 2 * i + k) & (n - 1);
                *reinterpret_cast<Vector*>(target + laneCount * j + l) +=
                    taps.lowTap(k) * lowValue + taps.highTap(k) * highValue;
            }
        }
    }
}

}  // namespace voxlith
