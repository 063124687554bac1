#include "sensitivity/wavelet_lanes.h"

#include <algorithm>
#include <array>

namespace voxlith {

namespace {

using LaneOffsets = std::array<std::size_t, laneCount>;

void forwardStep(double* tile, double* work, std::size_t n, const WaveletFilter& filter) {
    const std::size_t half = n / 2;
    const std::size_t nCoef = filter.coefLow.size();
    const std::size_t base = nCoef * n - nCoef / 2;
    for (std::size_t i = 0; i < half; ++i) {
        double low[laneCount] = {};
        double high[laneCount] = {};
        for (std::size_t k = 0; k < nCoef; ++k) {
            const double lowTap = static_cast<double>(filter.coefLow[k]);
            const double highTap = static_cast<double>(filter.coefHigh[k]);
            const double* a = tile + laneCount * ((base + 2 * i + k + 2) & (n - 1));
            for (std::size_t l = 0; l < laneCount; ++l) {
                low[l] += lowTap * a[l];
                high[l] += highTap * a[l];
            }
        }
        std::copy_n(low, laneCount, work + laneCount * i);
        std::copy_n(high, laneCount, work + laneCount * (i + half));
    }
    std::fill(work + laneCount * 2 * half, work + laneCount * n, 0.0);
    std::copy_n(work, laneCount * n, tile);
}

void inverseStep(double* tile, double* work, std::size_t n, const WaveletFilter& filter) {
    const std::size_t half = n / 2;
    const std::size_t nCoef = filter.coefLow.size();
    const std::size_t base = nCoef * n - nCoef / 2;
    std::fill_n(work, laneCount * n, 0.0);
    for (std::size_t i = 0; i < half; ++i) {
        const double* low = tile + laneCount * i;
        const double* high = tile + laneCount * (i + half);
        for (std::size_t k = 0; k < nCoef; ++k) {
            const double lowTap = static_cast<double>(filter.coefLow[k]);
            const double highTap = static_cast<double>(filter.coefHigh[k]);
            double* w = work + laneCount * ((base + 2 * i + k + 2) & (n - 1));
            for (std::size_t l = 0; l < laneCount; ++l) {
                w[l] += lowTap * low[l] + highTap * high[l];
            }
        }
    }
    std::copy_n(work, laneCount * n, tile);
}

void loadTile(const double* values, const LaneOffsets& offset, std::size_t count, std::size_t stride,
              std::size_t length, double* tile) {
    for (std::size_t j = 0; j < length; ++j) {
        for (std::size_t l = 0; l < count; ++l) {
            tile[j * laneCount + l] = values[offset[l] + j * stride];
        }
        for (std::size_t l = count; l < laneCount; ++l) {
            tile[j * laneCount + l] = 0.0;
        }
    }
}

void storeTile(const double* tile, const LaneOffsets& offset, std::size_t count, std::size_t stride, std::size_t length,
               double* values) {
    for (std::size_t j = 0; j < length; ++j) {
        for (std::size_t l = 0; l < count; ++l) {
            values[offset[l] + j * stride] = tile[j * laneCount + l];
        }
    }
}

}  // namespace

void transformLanes(double* tile, double* work, std::size_t length, const WaveletFilter& filter,
                    WaveletDirection direction) {
    if (direction == WaveletDirection::forward) {
        for (std::size_t n = length; n >= 4; n /= 2) {
            forwardStep(tile, work, n, filter);
        }
    } else {
        for (std::size_t n = 4; n <= length; n *= 2) {
            inverseStep(tile, work, n, filter);
        }
    }
}

void transformAxis(double* values, std::size_t inner, std::size_t length, std::size_t outer,
                   const WaveletFilter& filter, WaveletDirection direction, double* work) {
    const std::size_t lines = inner * outer;
    double* const tile = work;
    double* const accumulator = work + laneCount * length;
    for (std::size_t first = 0; first < lines; first += laneCount) {
        const std::size_t count = std::min(laneCount, lines - first);
        LaneOffsets offset{};
        for (std::size_t l = 0; l < count; ++l) {
            const std::size_t line = first + l;
            offset[l] = line % inner + line / inner * inner * length;
        }
        loadTile(values, offset, count, inner, length, tile);
        transformLanes(tile, accumulator, length, filter, direction);
        storeTile(tile, offset, count, inner, length, values);
    }
}

}  // namespace voxlith
