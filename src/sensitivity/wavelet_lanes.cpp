#include "sensitivity/wavelet_lanes.h"

#include <algorithm>
#include <utility>

#include "sensitivity/wavelet_steps.h"

namespace voxlith {

namespace {

// Finished rows of adjacent lines go where they belong at once, those of others through a tile.
template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void forwardTile(double* values, const TilePlace& place, std::size_t length,
                                               const TapTable<fixedTaps>& taps, double* work) {
    const bool adjacent = place.form == TileForm::adjacent;
    double* source = work;
    double* low = work + laneCount * length;
    double* const outTile = work + 2 * laneCount * length;
    double* const out = adjacent ? values + place.offset[0] : outTile;
    const std::size_t outStride = adjacent ? place.stride : laneCount;
    loadTile<width>(values, place, length, source);
    std::size_t n = length;
    for (; n >= 4; n /= 2) {
        forwardLanes<width>(source, low, out, outStride, n, taps);
        std::swap(source, low);
    }
    for (std::size_t j = 0; j < n; ++j) {
        copyRow<width>(source + laneCount * j, out + outStride * j);
    }
    if (!adjacent) {
        storeTile<width>(outTile, place, length, values);
    }
}

template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void inverseTile(double* values, const TilePlace& place, std::size_t length,
                                               const TapTable<fixedTaps>& taps, double* work) {
    const bool adjacent = place.form == TileForm::adjacent;
    double* const tile = work;
    double* low = tile;
    double* target = work + laneCount * length;
    double* spare = work + 2 * laneCount * length;
    loadTile<width>(values, place, length, tile);
    std::size_t n = 4;
    for (; 2 * n <= length; n *= 2) {
        inverseLanes<width>(low, tile + laneCount * n / 2, target, laneCount, n, taps);
        low = target;
        std::swap(target, spare);
    }
    // The last level; of an extent that is no power of two the rest of the line stays as it is.
    const double* const high = tile + laneCount * n / 2;
    if (adjacent) {
        inverseLanes<width>(low, high, values + place.offset[0], place.stride, n, taps);
    } else {
        inverseLanes<width>(low, high, target, laneCount, n, taps);
        storeTile<width>(target, place, n, values);
    }
}

template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void transformTiles(double* values, std::size_t inner, std::size_t length,
                                                  std::size_t lines, const WaveletFilter& filter,
                                                  WaveletDirection direction, double* work) {
    const TapTable<fixedTaps> taps(filter);
    for (std::size_t first = 0; first < lines; first += laneCount) {
        const TilePlace place = placeOfTile(first, inner, length, lines);
        if (direction == WaveletDirection::forward) {
            forwardTile<width>(values, place, length, taps, work);
        } else {
            inverseTile<width>(values, place, length, taps, work);
        }
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
