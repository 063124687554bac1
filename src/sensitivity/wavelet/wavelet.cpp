#include "sensitivity/wavelet/wavelet.h"

#include <algorithm>
#include <cassert>
#include <memory>

#include "base/workers.h"
#include "sensitivity/wavelet/wavelet_lanes.h"

namespace voxlith {

namespace {

// Axes up to this extent are not transformed, though four values allow one step: the writers of sensitivity files do
// the same.
constexpr std::size_t longestUntransformedExtent = 4;

struct CellLines {
    std::size_t nx, ny, nz;
    std::size_t npx, npy, npz;
    std::size_t shared;  // cells of a z line that both arrays hold
};

CellLines cellLinesOf(const MeshGeometry& mesh) {
    const auto widen = [](std::int32_t n) { return static_cast<std::size_t>(n); };
    return {widen(mesh.nx),
            widen(mesh.ny),
            widen(mesh.nz),
            widen(mesh.npx),
            widen(mesh.npy),
            widen(mesh.npz),
            std::min(widen(mesh.nz), widen(mesh.npz))};
}

// The first address in `work` where a tile may begin; waveletWorkSize counts the values left out.
double* alignedTiles(std::span<double> work) {
    void* address = work.data();
    std::size_t bytes = work.size_bytes();
    return static_cast<double*>(std::align(tileAlignment, tileAlignment, address, bytes));
}

// z and x axes of the y planes firstPlane up to endPlane. Both axes of a group of planes follow each other, so that the
// group stays in cache between them.
void transformPlanes(double* padded, const PaddedExtents& extents, const WaveletFilter& filter,
                     WaveletDirection direction, std::size_t firstPlane, std::size_t endPlane, double* work) {
    const WaveletKernels& kernels = waveletKernels();
    const std::size_t plane = extents.npz * extents.npx;
    const std::size_t planesAtOnce = std::max<std::size_t>(1, tileLines / std::max<std::size_t>(1, extents.npz));
    for (std::size_t y = firstPlane; y < endPlane; y += planesAtOnce) {
        const std::size_t planes = std::min(planesAtOnce, endPlane - y);
        double* const group = padded + plane * y;
        if (extents.npz > longestUntransformedExtent) {
            const AxisLines lines{1, extents.npz, 0, extents.npx * planes};
            kernels.transformLines(group, lines, filter, direction, work);
        }
        if (extents.npx > longestUntransformedExtent) {
            const AxisLines lines{extents.npz, extents.npx, 0, extents.npz * planes};
            kernels.transformLines(group, lines, filter, direction, work);
        }
    }
}

}  // namespace

PaddedExtents paddedExtentsOf(const MeshGeometry& mesh) {
    return {static_cast<std::size_t>(mesh.npz), static_cast<std::size_t>(mesh.npx), static_cast<std::size_t>(mesh.npy)};
}

std::vector<float> mirrorTaps(std::span<const float> coefLow) {
    std::vector<float> coefHigh(coefLow.size());
    for (std::size_t k = 0; k < coefLow.size(); ++k) {
        coefHigh[coefLow.size() - 1 - k] = k % 2 == 0 ? -coefLow[k] : coefLow[k];
    }
    return coefHigh;
}

std::size_t waveletWorkSize(const PaddedExtents& extents) {
    return std::max({tileBufferSize(extents.npz), tileBufferSize(extents.npx), tileBufferSize(extents.npy)}) +
           tileAlignment / sizeof(double);
}

void waveletStep(std::span<double> a, std::size_t n, const WaveletFilter& filter, WaveletDirection direction,
                 std::span<double> work) {
    if (n < 4) {
        return;
    }
    const std::size_t half = n / 2;
    const std::size_t mask = n - 1;
    const std::size_t nCoef = filter.coefLow.size();
    // A multiple of n keeps the index above zero; the mask removes it.
    const std::size_t base = nCoef * n - nCoef / 2;
    std::fill_n(work.begin(), n, 0.0);
    for (std::size_t i = 0; i < half; ++i) {
        for (std::size_t k = 0; k < nCoef; ++k) {
            const std::size_t j = (base + 2 * i + k + 2) & mask;
            const double low = static_cast<double>(filter.coefLow[k]);
            const double high = static_cast<double>(filter.coefHigh[k]);
            if (direction == WaveletDirection::forward) {
                work[i] += low * a[j];
                work[i + half] += high * a[j];
            } else {
                work[j] += low * a[i] + high * a[i + half];
            }
        }
    }
    std::copy_n(work.begin(), n, a.begin());
}

void waveletTransform3D(std::span<double> padded, const PaddedExtents& extents, const WaveletFilter& filter,
                        WaveletDirection direction, std::span<double> work) {
    assert(padded.size() >= extents.total() && work.size() >= waveletWorkSize(extents));
    assert(filter.coefHigh.size() == filter.coefLow.size());
    const std::size_t pieces = std::min(piecesFor(extents.total()), work.size() / waveletWorkSize(extents));
    const auto tilesOf = [&](std::size_t piece) {
        return alignedTiles(work.subspan(piece * waveletWorkSize(extents), waveletWorkSize(extents)));
    };
    forEachPiece(pieces, [&](std::size_t piece) {
        const std::size_t first = startOfPiece(extents.npy, 1, piece, pieces);
        const std::size_t end = startOfPiece(extents.npy, 1, piece + 1, pieces);
        transformPlanes(padded.data(), extents, filter, direction, first, end, tilesOf(piece));
    });
    if (extents.npy <= longestUntransformedExtent) {
        return;
    }
    const std::size_t plane = extents.npz * extents.npx;
    forEachPiece(pieces, [&](std::size_t piece) {
        const std::size_t first = startOfPiece(plane, widestTileLines, piece, pieces);
        const std::size_t end = startOfPiece(plane, widestTileLines, piece + 1, pieces);
        const AxisLines lines{plane, extents.npy, first, end};
        waveletKernels().transformLines(padded.data(), lines, filter, direction, tilesOf(piece));
    });
}

void padCells(std::span<const double> model, std::span<const float> weight, const MeshGeometry& mesh,
              std::span<double> padded) {
    const CellLines c = cellLinesOf(mesh);
    const auto padPlane = [&](std::size_t y) {
        for (std::size_t x = 0; x < c.npx; ++x) {
            double* const line = padded.data() + c.npz * (x + c.npx * y);
            if (x >= c.nx || y >= c.ny) {
                std::fill_n(line, c.npz, 0.0);
                continue;
            }
            const std::size_t cell = mesh.cellIndex(0, x, y);
            if (weight.empty()) {
                std::copy_n(model.data() + cell, c.shared, line);
            } else {
                for (std::size_t z = 0; z < c.shared; ++z) {
                    line[z] = model[cell + z] * static_cast<double>(weight[cell + z]);
                }
            }
            std::fill_n(line + c.shared, c.npz - c.shared, 0.0);
        }
    };
    forEachRange(c.npy, 1, c.npz * c.npx, [&](std::size_t first, std::size_t end) {
        for (std::size_t y = first; y < end; ++y) {
            padPlane(y);
        }
    });
}

void cropCells(std::span<const double> padded, std::span<const float> weight, const MeshGeometry& mesh,
               std::span<double> model) {
    const CellLines c = cellLinesOf(mesh);
    const auto cropPlane = [&](std::size_t y) {
        for (std::size_t x = 0; x < c.nx; ++x) {
            const double* const line = padded.data() + c.npz * (x + c.npx * y);
            const std::size_t cell = mesh.cellIndex(0, x, y);
            if (weight.empty()) {
                std::copy_n(line, c.shared, model.data() + cell);
            } else {
                for (std::size_t z = 0; z < c.shared; ++z) {
                    model[cell + z] = line[z] * static_cast<double>(weight[cell + z]);
                }
            }
            // A surface layer is spread down its column with the weight of its own last cell.
            std::fill_n(model.data() + cell + c.shared, c.nz - c.shared, model[cell + c.shared - 1]);
        }
    };
    forEachRange(c.ny, 1, c.nz * c.nx, [&](std::size_t first, std::size_t end) {
        for (std::size_t y = first; y < end; ++y) {
            cropPlane(y);
        }
    });
}

}  // namespace voxlith
