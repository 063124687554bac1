#include "run/convergence/cross_gradient.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <string>

#include "base/messages.h"

namespace voxlith {

namespace {

constexpr double lengthToFourth = 1.0e16;
constexpr std::size_t axes = 3;

bool areAlike(const std::vector<double>& widths, std::size_t first, std::size_t second, std::size_t count) {
    constexpr double tolerance = 1.0e-6;
    for (std::size_t n = 0; n < count; ++n) {
        if (!(std::abs(widths[first + n] - widths[second + n]) <= tolerance * widths[first + n])) {
            return false;
        }
    }
    return true;
}

std::size_t indexOf(std::int32_t number, std::size_t count, const std::string& what) {
    if (number < 1 || static_cast<std::size_t>(number) > count) {
        throw RunError("--cross-gradient: expected a property from 1 to " + std::to_string(count) + ", the number of " +
                       what + ", found " + std::to_string(number));
    }
    return static_cast<std::size_t>(number) - 1;
}

// The planes of both properties along y.
struct Planes {
    std::size_t first = 0, second = 0, count = 0;
};

Planes findPlanes(const InversionProblem& problem, const CrossGradientSettings& settings) {
    const auto ny = static_cast<std::size_t>(problem.mesh.ny);
    if (problem.modelTypes() > 1) {
        indexOf(settings.first, problem.modelTypes(), "model types");
        indexOf(settings.second, problem.modelTypes(), "model types");
        return {0, 0, ny};
    }
    const std::vector<std::size_t> parts = partsAlongY(problem);
    if (parts.size() < 3) {
        throw RunError(
            "--cross-gradient: expected several model types, or properties side by side along y in one model with "
            "weights of 0 at the seams; found one property");
    }
    const std::size_t a = indexOf(settings.first, parts.size() - 1, "parts between planes without weights");
    const std::size_t b = indexOf(settings.second, parts.size() - 1, "parts between planes without weights");
    const Planes planes{parts[a], parts[b], parts[a + 1] - parts[a]};
    if (parts[b + 1] - parts[b] != planes.count ||
        !areAlike(problem.mesh.yWidth, planes.first, planes.second, planes.count)) {
        throw RunError("--cross-gradient: expected properties on cells of the same widths along y, found others");
    }
    return planes;
}

std::vector<double> inverseDistances(const std::vector<double>& widths, std::size_t first, std::size_t count) {
    std::vector<double> distances(count, 0.0);
    for (std::size_t n = 0; n + 1 < count; ++n) {
        distances[n] = 2.0 / (widths[first + n] + widths[first + n + 1]);
    }
    return distances;
}

// Which cells have a difference to the next one in both properties.
void findLinks(const InversionProblem& problem, std::size_t cellA, std::size_t cellB, CrossGradient& cross) {
    const std::array<const std::vector<float>*, axes> weights{&problem.weights.wtZ, &problem.weights.wtE,
                                                              &problem.weights.wtN};
    const std::array<std::size_t, axes> extent{cross.nz, cross.nx, cross.ny};
    for (std::size_t axis = 0; axis < axes; ++axis) {
        cross.linked[axis].assign(cross.cellWeight.size(), 0);
        for (std::size_t n = 0; n < cross.cellWeight.size(); ++n) {
            const std::array<std::size_t, axes> at{n % cross.nz, n / cross.nz % cross.nx, n / (cross.nz * cross.nx)};
            const bool last = at[axis] + 1 == extent[axis];
            cross.linked[axis][n] =
                !last && (*weights[axis])[cellA + n] > 0.0F && (*weights[axis])[cellB + n] > 0.0F ? 1 : 0;
        }
    }
}

std::size_t strideOf(const CrossGradient& cross, std::size_t axis) {
    return axis == 0 ? 1 : axis == 1 ? cross.nz : cross.nz * cross.nx;
}

std::size_t positionOf(const CrossGradient& cross, std::size_t axis, std::size_t n) {
    return axis == 0 ? n % cross.nz : axis == 1 ? n / cross.nz % cross.nx : n / (cross.nz * cross.nx);
}

double propertyOf(double variable, const std::vector<float>& depthWeight, std::size_t n) {
    return depthWeight.empty() ? variable : variable / static_cast<double>(depthWeight[n]);
}

// field = D times the property (0 or 1) of a model.
void differentiate(CrossGradient& cross, std::span<const double> model, std::size_t property, VectorField& field) {
    const double* const variable = model.data() + (property == 0 ? cross.firstCell : cross.secondCell);
    for (std::size_t n = 0; n < cross.values.size(); ++n) {
        cross.values[n] = propertyOf(variable[n], cross.depthWeight[property], n);
    }
    for (std::size_t axis = 0; axis < axes; ++axis) {
        const std::size_t stride = strideOf(cross, axis);
        for (std::size_t n = 0; n < cross.values.size(); ++n) {
            field[axis][n] = cross.linked[axis][n] != 0 ? (cross.values[n + stride] - cross.values[n]) *
                                                              cross.inverseDistance[axis][positionOf(cross, axis, n)]
                                                        : 0.0;
        }
    }
}

// out += weight D' field, by the variable of the property.
void addTransposed(const CrossGradient& cross, const VectorField& field, std::size_t property, std::vector<double>& sum,
                   std::span<double> out) {
    std::fill(sum.begin(), sum.end(), 0.0);
    for (std::size_t axis = 0; axis < axes; ++axis) {
        const std::size_t stride = strideOf(cross, axis);
        for (std::size_t n = 0; n < sum.size(); ++n) {
            if (cross.linked[axis][n] != 0) {
                const double flow = field[axis][n] * cross.inverseDistance[axis][positionOf(cross, axis, n)];
                sum[n] -= flow;
                sum[n + stride] += flow;
            }
        }
    }
    double* const target = out.data() + (property == 0 ? cross.firstCell : cross.secondCell);
    for (std::size_t n = 0; n < sum.size(); ++n) {
        target[n] += cross.weight * propertyOf(sum[n], cross.depthWeight[property], n);
    }
}

// out = factor a x b in each cell. The axes (z, x, y) are a cyclic permutation of (x, y, z).
void crossProduct(const VectorField& a, const VectorField& b, const std::vector<double>* factor, VectorField& out) {
    for (std::size_t n = 0; n < a[0].size(); ++n) {
        const double w = factor != nullptr ? (*factor)[n] : 1.0;
        const double first = a[1][n] * b[2][n] - a[2][n] * b[1][n];
        const double second = a[2][n] * b[0][n] - a[0][n] * b[2][n];
        const double third = a[0][n] * b[1][n] - a[1][n] * b[0][n];
        out[0][n] = w * first;
        out[1][n] = w * second;
        out[2][n] = w * third;
    }
}

// Adds the transposed derivative of t, times `t` in each cell.
void addAdjoint(CrossGradient& cross, const VectorField& t, VectorField& flow, std::span<double> out) {
    crossProduct(cross.gradientB, t, &cross.cellWeight, flow);
    addTransposed(cross, flow, 0, cross.values, out);
    crossProduct(t, cross.gradientA, &cross.cellWeight, flow);
    addTransposed(cross, flow, 1, cross.values, out);
}

}  // namespace

std::vector<std::size_t> partsAlongY(const InversionProblem& problem) {
    const auto ny = static_cast<std::size_t>(problem.mesh.ny);
    const std::size_t plane = problem.mesh.cellCount() / ny;
    std::vector<std::size_t> parts{0};
    for (std::size_t j = 0; j + 1 < ny; ++j) {
        const float* const weights = problem.weights.wtN.data() + j * plane;
        if (std::all_of(weights, weights + plane, [](float weight) { return weight == 0.0F; })) {
            parts.push_back(j + 1);
        }
    }
    parts.push_back(ny);
    return parts;
}

CrossGradient makeCrossGradient(const InversionProblem& problem, const CrossGradientSettings& settings) {
    CrossGradient cross;
    if (!(settings.weight > 0)) {
        return cross;
    }
    const MeshGeometry& mesh = problem.mesh;
    if (settings.first == settings.second) {
        throw RunError("--cross-gradient: expected two different properties");
    }
    const Planes planes = findPlanes(problem, settings);
    cross.weight = settings.weight;
    cross.nz = static_cast<std::size_t>(mesh.nz);
    cross.nx = static_cast<std::size_t>(mesh.nx);
    cross.ny = planes.count;
    const std::size_t plane = cross.nz * cross.nx, cells = plane * cross.ny;
    const std::size_t cellA = planes.first * plane, cellB = planes.second * plane;  // in the mesh
    const bool types = problem.modelTypes() > 1;
    cross.firstCell = types ? static_cast<std::size_t>(settings.first - 1) * mesh.cellCount() : cellA;
    cross.secondCell = types ? static_cast<std::size_t>(settings.second - 1) * mesh.cellCount() : cellB;
    cross.inverseDistance = {inverseDistances(mesh.zWidth, 0, cross.nz), inverseDistances(mesh.xWidth, 0, cross.nx),
                             inverseDistances(mesh.yWidth, planes.first, cross.ny)};
    cross.cellWeight.resize(cells);
    double volume = 0;
    for (std::size_t n = 0; n < cells; ++n) {
        cross.cellWeight[n] =
            mesh.zWidth[n % cross.nz] * mesh.xWidth[n / cross.nz % cross.nx] * mesh.yWidth[planes.first + n / plane];
        volume += cross.cellWeight[n];
    }
    for (double& weight : cross.cellWeight) {
        weight *= lengthToFourth / volume;
    }
    findLinks(problem, cellA, cellB, cross);
    const std::span<const float> depthWeight = problem.foldedWeight(0);
    if (!depthWeight.empty()) {
        const auto part = [&](std::size_t first) {
            const auto begin = depthWeight.begin() + static_cast<std::ptrdiff_t>(first);
            return std::vector<float>(begin, begin + static_cast<std::ptrdiff_t>(cells));
        };
        cross.depthWeight[0] = part(cellA);
        cross.depthWeight[1] = part(cellB);
    }
    for (VectorField* field : {&cross.gradientA, &cross.gradientB, &cross.work[0], &cross.work[1], &cross.work[2]}) {
        for (std::vector<double>& component : *field) {
            component.assign(cells, 0.0);
        }
    }
    cross.values.assign(cells, 0.0);
    return cross;
}

double crossGradientNorm(CrossGradient& cross, std::span<const double> model) {
    if (!cross.isUsed()) {
        return 0.0;
    }
    differentiate(cross, model, 0, cross.work[0]);
    differentiate(cross, model, 1, cross.work[1]);
    VectorField& t = cross.work[2];
    crossProduct(cross.work[0], cross.work[1], nullptr, t);
    double sum = 0;
    for (std::size_t n = 0; n < cross.cellWeight.size(); ++n) {
        sum += cross.cellWeight[n] * (t[0][n] * t[0][n] + t[1][n] * t[1][n] + t[2][n] * t[2][n]);
    }
    return sum;
}

void addCrossGradient(CrossGradient& cross, std::span<const double> model, std::span<double> gradient) {
    if (!cross.isUsed()) {
        return;
    }
    assert(model.size() == gradient.size());
    differentiate(cross, model, 0, cross.gradientA);
    differentiate(cross, model, 1, cross.gradientB);
    crossProduct(cross.gradientA, cross.gradientB, nullptr, cross.work[0]);
    addAdjoint(cross, cross.work[0], cross.work[1], gradient);
}

void addCrossHessian(CrossGradient& cross, std::span<const double> direction, std::span<double> out) {
    if (!cross.isUsed()) {
        return;
    }
    VectorField& change = cross.work[0];
    differentiate(cross, direction, 0, cross.work[1]);
    crossProduct(cross.work[1], cross.gradientB, nullptr, change);
    differentiate(cross, direction, 1, cross.work[1]);
    crossProduct(cross.gradientA, cross.work[1], nullptr, cross.work[2]);
    for (std::size_t axis = 0; axis < axes; ++axis) {
        for (std::size_t n = 0; n < change[axis].size(); ++n) {
            change[axis][n] += cross.work[2][axis][n];
        }
    }
    addAdjoint(cross, change, cross.work[1], out);
}

}  // namespace voxlith
