#include "sensitivity/wavelet/wavelet_lanes.h"

#include <algorithm>
#include <utility>

#include "sensitivity/wavelet/wavelet_steps.h"

namespace voxlith {

namespace {

// Finished rows of adjacent lines go where they belong at once, those of others through a tile.
template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void forwardTile(double* values, const TileLocation& place, std::size_t length,
                                               const TapTable<fixedTaps>& taps, double* work) {
    const bool adjacent = lanes > laneCount || place.form == TileForm::adjacent;
    double* source = work;
    double* low = work + lanes * length;
    double* const outTile = work + 2 * lanes * length;
    double* const out = adjacent ? values + place.offset[0] : outTile;
    const std::size_t outStride = adjacent ? place.stride : lanes;
    loadTile<width, lanes>(values, place, length, source);
    std::size_t n = length;
    for (; n >= 4; n /= 2) {
        forwardLanes<width, lanes>(source, low, out, outStride, n, taps);
        std::swap(source, low);
    }
    for (std::size_t j = 0; j < n; ++j) {
        copyRow<width, lanes>(source + lanes * j, out + outStride * j);
    }
    if (!adjacent) {
        storeTile<width>(outTile, place, length, values);
    }
}

template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void inverseTile(double* values, const TileLocation& place, std::size_t length,
                                               const TapTable<fixedTaps>& taps, double* work) {
    const bool adjacent = lanes > laneCount || place.form == TileForm::adjacent;
    double* const tile = work;
    double* low = tile;
    double* target = work + lanes * length;
    double* spare = work + 2 * lanes * length;
    loadTile<width, lanes>(values, place, length, tile);
    std::size_t n = 4;
    for (; 2 * n <= length; n *= 2) {
        inverseLanes<width, lanes>(low, tile + lanes * n / 2, target, lanes, n, taps);
        low = target;
        std::swap(target, spare);
    }
    // The last level; of an extent that is no power of two the rest of the line stays as it is.
    const double* const high = tile + lanes * n / 2;
    if (adjacent) {
        inverseLanes<width, lanes>(low, high, values + place.offset[0], place.stride, n, taps);
    } else {
        inverseLanes<width, lanes>(low, high, target, lanes, n, taps);
        storeTile<width>(target, place, n, values);
    }
}

template <std::size_t width, std::size_t lanes, std::size_t fixedTaps>
[[gnu::always_inline]] inline void transformTile(double* values, const TileLocation& place, std::size_t length,
                                                 const TapTable<fixedTaps>& taps, WaveletDirection direction,
                                                 double* work) {
    if (direction == WaveletDirection::forward) {
        forwardTile<width, lanes>(values, place, length, taps, work);
    } else {
        inverseTile<width, lanes>(values, place, length, taps, work);
    }
}

template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void transformTiles(double* values, std::size_t inner, std::size_t length,
                                                  std::size_t lines, const WaveletFilter& filter,
                                                  WaveletDirection direction, double* work) {
    const TapTable<fixedTaps> taps(filter);
    std::size_t first = 0;
    while (first < lines) {
        const std::size_t lanes = lanesOfTile(first, inner, length);
        if (lanes == widestLaneCount) {
            transformTile<width, widestLaneCount>(values, wideTileLocation(first, inner, length), length, taps,
                                                  direction, work);
        } else if (lanes == wideLaneCount) {
            transformTile<width, wideLaneCount>(values, wideTileLocation(first, inner, length), length, taps, direction,
                                                work);
        } else {
            transformTile<width, laneCount>(values, tileLocation(first, inner, length, lines), length, taps, direction,
                                            work);
        }
        first += lanes;
    }
}

template <std::size_t width>
[[gnu::always_inline]] inline void chooseTaps(double* values, std::size_t inner, std::size_t length, std::size_t lines,
                                              const WaveletFilter& filter, WaveletDirection direction, double* work) {
    switch (filter.coefLow.size()) {
        case 4:
            return transformTiles<width, 4>(values, inner, length, lines, filter, direction, work);
        case 6:
            return transformTiles<width, 6>(values, inner, length, lines, filter, direction, work);
        case 8:
            return transformTiles<width, 8>(values, inner, length, lines, filter, direction, work);
        default:
            return transformTiles<width, 0>(values, inner, length, lines, filter, direction, work);
    }
}

void transformPlain(double* values, std::size_t inner, std::size_t length, std::size_t lines,
                    const WaveletFilter& filter, WaveletDirection direction, double* work) {
    chooseTaps<2>(values, inner, length, lines, filter, direction, work);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void transformAvx2(double* values, std::size_t inner, std::size_t length, std::size_t lines,
                                           const WaveletFilter& filter, WaveletDirection direction, double* work) {
    chooseTaps<4>(values, inner, length, lines, filter, direction, work);
}

[[gnu::target("avx512f")]] void transformAvx512(double* values, std::size_t inner, std::size_t length,
                                                std::size_t lines, const WaveletFilter& filter,
                                                WaveletDirection direction, double* work) {
    chooseTaps<8>(values, inner, length, lines, filter, direction, work);
}
#endif

}  // namespace

void transformAxis(double* values, std::size_t inner, std::size_t length, std::size_t outer,
                   const WaveletFilter& filter, WaveletDirection direction, InstructionSet instructions, double* work) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512) {
        return transformAvx512(values, inner, length, inner * outer, filter, direction, work);
    }
    if (instructions == InstructionSet::avx2) {
        return transformAvx2(values, inner, length, inner * outer, filter, direction, work);
    }
#endif
    static_cast<void>(instructions);
    transformPlain(values, inner, length, inner * outer, filter, direction, work);
}

}  // namespace voxlith
