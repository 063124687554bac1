#include "sensitivity/wavelet_lanes.h"

#include <algorithm>
#include <utility>

#include "sensitivity/wavelet_steps.h"

namespace voxlith {

namespace {

// Where the lines of a tile stand in the array.
struct TilePlace {
    std::size_t offset[laneCount];  // first value of each line
    std::size_t count;              // lines
    std::size_t stride;             // from one value of a line to the next
    bool adjacent;                  // a full tile whose lines begin side by side
};

[[gnu::always_inline]] inline TilePlace placeOfTile(std::size_t first, std::size_t inner, std::size_t length,
                                                    std::size_t lines) {
    TilePlace place{};
    place.count = std::min(laneCount, lines - first);
    place.stride = inner;
    for (std::size_t l = 0; l < place.count; ++l) {
        const std::size_t line = first + l;
        place.offset[l] = line % inner + line / inner * inner * length;
    }
    place.adjacent = place.count == laneCount && place.offset[laneCount - 1] == place.offset[0] + laneCount - 1;
    return place;
}

template <std::size_t width>
[[gnu::always_inline]] inline void copyRow(const double* from, double* to) {
    using Vector = typename LaneVector<width>::Type;
    for (std::size_t l = 0; l < laneCount; l += width) {
        *reinterpret_cast<Vector*>(to + l) = *reinterpret_cast<const Vector*>(from + l);
    }
}

template <std::size_t width>
[[gnu::always_inline]] inline void loadTile(const double* values, const TilePlace& place, std::size_t length,
                                            double* tile) {
    if (place.adjacent) {
        for (std::size_t j = 0; j < length; ++j) {
            copyRow<width>(values + place.offset[0] + j * place.stride, tile + j * laneCount);
        }
        return;
    }
    for (std::size_t j = 0; j < length; ++j) {
        for (std::size_t l = 0; l < laneCount; ++l) {
            tile[j * laneCount + l] = l < place.count ? values[place.offset[l] + j * place.stride] : 0.0;
        }
    }
}

template <std::size_t width>
[[gnu::always_inline]] inline void storeTile(const double* tile, const TilePlace& place, std::size_t length,
                                             double* values) {
    if (place.adjacent) {
        for (std::size_t j = 0; j < length; ++j) {
            copyRow<width>(tile + j * laneCount, values + place.offset[0] + j * place.stride);
        }
        return;
    }
    for (std::size_t l = 0; l < place.count; ++l) {
        for (std::size_t j = 0; j < length; ++j) {
            values[place.offset[l] + j * place.stride] = tile[j * laneCount + l];
        }
    }
}

// Finished rows go where they belong at once when the lines lie side by side, otherwise through a tile.
template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void forwardTile(double* values, const TilePlace& place, std::size_t length,
                                               const TapTable<fixedTaps>& taps, double* work) {
    double* source = work;
    double* low = work + laneCount * length;
    double* const outTile = work + 2 * laneCount * length;
    double* const out = place.adjacent ? values + place.offset[0] : outTile;
    const std::size_t outStride = place.adjacent ? place.stride : laneCount;
    loadTile<width>(values, place, length, source);
    std::size_t n = length;
    for (; n >= 4; n /= 2) {
        forwardLanes<width>(source, low, out, outStride, n, taps);
        std::swap(source, low);
    }
    for (std::size_t j = 0; j < n; ++j) {
        copyRow<width>(source + laneCount * j, out + outStride * j);
    }
    if (!place.adjacent) {
        storeTile<width>(outTile, place, length, values);
    }
}

template <std::size_t width, std::size_t fixedTaps>
[[gnu::always_inline]] inline void inverseTile(double* values, const TilePlace& place, std::size_t length,
                                               const TapTable<fixedTaps>& taps, double* work) {
    double* const tile = work;
    double* low = work + laneCount * length;
    double* target = work + 2 * laneCount * length;
    loadTile<width>(values, place, length, tile);
    inverseLanes<width>(tile, tile, low, 4, taps);
    std::size_t n = 4;
    for (; 2 * n <= length; n *= 2) {
        inverseLanes<width>(low, tile, target, 2 * n, taps);
        std::swap(low, target);
    }
    storeTile<width>(low, place, n, values);
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
