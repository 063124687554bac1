// The kernels of wavelet_lanes.h, compiled for each instruction set by simd/compile_kernels.h.
#include "sensitivity/wavelet/wavelet_steps.inl"
#include "sensitivity/wavelet/wavelet_tiles.inl"
namespace voxlith::VOXLITH_SET {

namespace {

// Lines of zeros, as in the padding and where a row has no coefficients, are left as they are: their transform has the
// same bytes. The high half of every level is final. Of adjacent lines it is written to the array at once, of others
// through a tile.
template <std::size_t lanes, std::size_t fixedTaps>
void forwardTile(double* values, const TileLocation& tile, std::size_t length, const TapTable<fixedTaps>& taps,
                 double* work) {
    const bool adjacent = lanes > tileLines || tile.form == TileForm::adjacent;
    double* source = work;
    double* low = work + lanes * length;
    double* const outTile = work + 2 * lanes * length;
    double* const out = adjacent ? values + tile.offset[0] : outTile;
    const std::size_t outStride = adjacent ? tile.stride : lanes;
    loadTile<lanes>(values, tile, length, source);
    if (isZero<lanes>(source, length)) {
        return;
    }
    std::size_t n = length;
    for (; n >= 4; n /= 2) {
        forwardLanes<lanes>(source, low, out, outStride, n, taps);
        std::swap(source, low);
    }
    for (std::size_t j = 0; j < n; ++j) {
        copyRow<lanes>(source + lanes * j, out + outStride * j);
    }
    if (!adjacent) {
        storeTile(outTile, tile, length, values);
    }
}

template <std::size_t lanes, std::size_t fixedTaps>
void inverseTile(double* values, const TileLocation& tile, std::size_t length, const TapTable<fixedTaps>& taps,
                 double* work) {
    const bool adjacent = lanes > tileLines || tile.form == TileForm::adjacent;
    double* const source = work;
    double* low = source;
    double* target = work + lanes * length;
    double* other = work + 2 * lanes * length;
    loadTile<lanes>(values, tile, length, source);
    if (isZero<lanes>(source, length)) {
        return;
    }
    std::size_t n = 4;
    for (; 2 * n <= length; n *= 2) {
        inverseLanes<lanes>(low, source + lanes * n / 2, target, lanes, n, taps);
        low = target;
        std::swap(target, other);
    }
    // The last level; of an extent that is not a power of two the rest of the line stays as it is.
    const double* const high = source + lanes * n / 2;
    if (adjacent) {
        inverseLanes<lanes>(low, high, values + tile.offset[0], tile.stride, n, taps);
    } else {
        inverseLanes<lanes>(low, high, target, lanes, n, taps);
        storeTile(target, tile, n, values);
    }
}

template <std::size_t lanes, std::size_t fixedTaps>
void transformTile(double* values, const TileLocation& tile, std::size_t length, const TapTable<fixedTaps>& taps,
                   WaveletDirection direction, double* work) {
    if (direction == WaveletDirection::forward) {
        forwardTile<lanes>(values, tile, length, taps, work);
    } else {
        inverseTile<lanes>(values, tile, length, taps, work);
    }
}

template <std::size_t fixedTaps>
void transformTiles(double* values, const AxisLines& lines, const WaveletFilter& filter, WaveletDirection direction,
                    double* work) {
    const TapTable<fixedTaps> taps(filter);
    const std::size_t length = lines.length;
    for (std::size_t first = lines.first; first < lines.end;) {
        const std::size_t lanes = lanesOfTile(first, lines);
        if (lanes == widestTileLines) {
            transformTile<widestTileLines>(values, wideTileLocation(first, lines), length, taps, direction, work);
        } else if (lanes == wideTileLines) {
            transformTile<wideTileLines>(values, wideTileLocation(first, lines), length, taps, direction, work);
        } else {
            transformTile<tileLines>(values, tileLocation(first, lines), length, taps, direction, work);
        }
        first += lanes;
    }
}

// The usual filter lengths are known to the compiler: their loops are unrolled, and the taps stay in registers.
void transformLines(double* values, const AxisLines& lines, const WaveletFilter& filter, WaveletDirection direction,
                    double* work) {
    switch (filter.coefLow.size()) {
        case 4:
            transformTiles<4>(values, lines, filter, direction, work);
            break;
        case 6:
            transformTiles<6>(values, lines, filter, direction, work);
            break;
        case 8:
            transformTiles<8>(values, lines, filter, direction, work);
            break;
        default:
            transformTiles<0>(values, lines, filter, direction, work);
            break;
    }
}

constexpr WaveletKernels kernels{transformLines};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
