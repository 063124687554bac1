#include "inversion/smoothness_terms.h"

#include <cstddef>
#include <vector>

namespace voxlith {

namespace {

// The mesh in counts that index arrays.
struct Counts {
    std::size_t nx, ny, nz, nzl, cells;
};

Counts countsOf(const MeshGeometry& mesh) {
    return {static_cast<std::size_t>(mesh.nx), static_cast<std::size_t>(mesh.ny), static_cast<std::size_t>(mesh.nz),
            static_cast<std::size_t>(mesh.nzl), mesh.cellCount()};
}

double distance(const std::vector<double>& width, std::size_t first) {
    return (width[first] + width[first + 1]) * 0.5;
}

const float* at(std::span<const float> depthWeight, std::size_t cell) {
    return depthWeight.empty() ? nullptr : depthWeight.data() + cell;
}

double value(const double* x, const float* depthWeight, std::size_t n) {
    return depthWeight == nullptr ? x[n] : x[n] / static_cast<double>(depthWeight[n]);
}

// One column of lateral pairs: cell k with the cell `stride` further on.
double addColumn(double sum, const double* x, const float* depthWeight, const float* weight, std::size_t count,
                 std::size_t stride, double apart) {
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (value(x, depthWeight, k) - value(x, depthWeight, k + stride)) / apart;
        sum += static_cast<double>(weight[k]) * (slope * slope);
    }
    return sum;
}

void spreadColumn(const double* x, const float* depthWeight, const float* weight, std::size_t count, std::size_t stride,
                  double apart, double* out) {
    for (std::size_t k = 0; k < count; ++k) {
        const double difference = value(x, depthWeight, k) - value(x, depthWeight, k + stride);
        const double pull = static_cast<double>(weight[k]) * difference / apart;
        out[k] += pull;
        out[k + stride] -= pull;
    }
}

}  // namespace

double roughnessY(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                  std::span<const float> wtN) {
    const Counts n = countsOf(mesh);
    double sum = 0.0;
    for (std::size_t type = 0; type < model.size(); type += n.cells)
        for (std::size_t j = 0; j + 1 < n.ny; ++j) {
            const double apart = distance(mesh.yWidth, j);
            for (std::size_t i = 0; i < n.nx; ++i) {
                const std::size_t cell = mesh.cell(0, i, j);
                sum = addColumn(sum, model.data() + type + cell, at(depthWeight, cell), wtN.data() + cell, n.nzl,
                                n.nz * n.nx, apart);
            }
        }
    return sum;
}

double roughnessX(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                  std::span<const float> wtE) {
    const Counts n = countsOf(mesh);
    double sum = 0.0;
    for (std::size_t type = 0; type < model.size(); type += n.cells)
        for (std::size_t j = 0; j < n.ny; ++j)
            for (std::size_t i = 0; i + 1 < n.nx; ++i) {
                const std::size_t cell = mesh.cell(0, i, j);
                sum = addColumn(sum, model.data() + type + cell, at(depthWeight, cell), wtE.data() + cell, n.nzl, n.nz,
                                distance(mesh.xWidth, i));
            }
    return sum;
}

double roughnessZ(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                  std::span<const float> wtZ) {
    const Counts n = countsOf(mesh);
    double sum = 0.0;
    for (std::size_t start = 0; start < model.size(); start += n.nz) {
        const std::size_t cell = start % n.cells;
        const double* x = model.data() + start;
        const float* columnWeight = at(depthWeight, cell);
        for (std::size_t k = 0; k + 1 < n.nz; ++k) {
            const double slope = (value(x, columnWeight, k) - value(x, columnWeight, k + 1)) / distance(mesh.zWidth, k);
            sum += static_cast<double>(wtZ[cell + k]) * (slope * slope);
        }
    }
    return sum;
}

void addDifferencesY(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                     std::span<const float> wtN, std::span<double> out) {
    const Counts n = countsOf(mesh);
    for (std::size_t type = 0; type < model.size(); type += n.cells)
        for (std::size_t j = 0; j + 1 < n.ny; ++j) {
            const double apart = distance(mesh.yWidth, j);
            for (std::size_t i = 0; i < n.nx; ++i) {
                const std::size_t cell = mesh.cell(0, i, j);
                spreadColumn(model.data() + type + cell, at(depthWeight, cell), wtN.data() + cell, n.nzl, n.nz * n.nx,
                             apart, out.data() + type + cell);
            }
        }
}

void addDifferencesX(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                     std::span<const float> wtE, std::span<double> out) {
    const Counts n = countsOf(mesh);
    for (std::size_t type = 0; type < model.size(); type += n.cells)
        for (std::size_t j = 0; j < n.ny; ++j)
            for (std::size_t i = 0; i + 1 < n.nx; ++i) {
                const std::size_t cell = mesh.cell(0, i, j);
                spreadColumn(model.data() + type + cell, at(depthWeight, cell), wtE.data() + cell, n.nzl, n.nz,
                             distance(mesh.xWidth, i), out.data() + type + cell);
            }
}

void addDifferencesZ(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                     std::span<const float> wtZ, std::span<double> out) {
    const Counts n = countsOf(mesh);
    for (std::size_t start = 0; start < model.size(); start += n.nz) {
        const std::size_t cell = start % n.cells;
        const double* x = model.data() + start;
        const float* columnWeight = at(depthWeight, cell);
        for (std::size_t k = 0; k + 1 < n.nz; ++k) {
            const double difference = value(x, columnWeight, k) - value(x, columnWeight, k + 1);
            const double pull = static_cast<double>(wtZ[cell + k]) * difference / distance(mesh.zWidth, k);
            out[start + k] += pull;
            out[start + k + 1] -= pull;
        }
    }
}

}  // namespace voxlith
