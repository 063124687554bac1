#include "survey/mesh_interpolation.h"

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>

#include "spline/voxlith_spline.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

// The two neighbouring cell centres of a point along one axis and the weights of their values. Without a neighbour the
// weight of the second is not used.
struct CentrePair {
    std::size_t lower = 0;
    bool hasUpper = true;
    std::array<double, 2> weight{1.0, 0.0};
};

// Cell of the point, counted from 1; 0 when the point lies outside or on the last node.
std::int32_t cellNumberAt(std::span<const double> node, double position) {
    if (!(node.front() <= position && position <= node.back())) {
        return 0;
    }
    const auto count = static_cast<std::int32_t>(node.size());
    std::int32_t left = 0;
    std::int32_t rangeFlag = 0;
    INTERV(node.data(), &count, &position, &left, &rangeFlag);
    return rangeFlag == 0 ? left : 0;
}

// `cell` counts from 1. The weights are not clipped: between the outermost centre and the edge of the mesh the
// outermost pair is extrapolated.
CentrePair pairAround(std::span<const double> centre, std::int32_t cell, double position) {
    const auto count = static_cast<std::int32_t>(centre.size());
    std::int32_t lower = cell;
    if (cell < 2) {
        lower = 1;
    } else if (cell >= count) {
        lower = count - 1;
    } else if (centre[static_cast<std::size_t>(cell) - 1] > position) {
        lower = cell - 1;
    }
    CentrePair pair;
    pair.lower = static_cast<std::size_t>(lower) - 1;
    const double below = centre[pair.lower];
    const double above = centre[pair.lower + 1];
    pair.weight = {(above - position) / (above - below), (position - below) / (above - below)};
    return pair;
}

// Heights are those of the first centre, so that there is no other layer to interpolate with unless nodes coincide.
CentrePair heightPair(std::span<const double> centre, std::int32_t cell, double position) {
    if (cell < 2) {
        CentrePair pair;
        pair.hasUpper = false;
        return pair;
    }
    return pairAround(centre, cell, position);
}

double cornerValue(const MeshGeometry& mesh, std::span<const double> model, std::size_t k, std::size_t i,
                   std::size_t j) {
    const double value = model[mesh.cellIndex(k, i, j)];
    return isValid(value) ? value : 0.0;
}

double planeValue(const MeshGeometry& mesh, std::span<const double> model, std::size_t k, const CentrePair& x,
                  const CentrePair& y) {
    const auto alongY = [&](std::size_t i) {
        return y.weight[0] * cornerValue(mesh, model, k, i, y.lower) +
               y.weight[1] * cornerValue(mesh, model, k, i, y.lower + 1);
    };
    return x.weight[0] * alongY(x.lower) + x.weight[1] * alongY(x.lower + 1);
}

}  // namespace

double interpolateInFirstLayer(const MeshGeometry& mesh, std::span<const double> model, double x, double y) {
    assert(model.size() >= mesh.cellCount());
    if (mesh.nx < 2 || mesh.ny < 2) {
        return dummyValue;
    }
    const double z = mesh.zCentre[0];
    const std::int32_t j = cellNumberAt(mesh.yNode, y);
    const std::int32_t i = cellNumberAt(mesh.xNode, x);
    const std::int32_t k = cellNumberAt(mesh.zNode, z);
    if (i == 0 || j == 0 || k == 0) {
        return dummyValue;
    }
    const std::size_t own = mesh.cellIndex(static_cast<std::size_t>(k) - 1, static_cast<std::size_t>(i) - 1,
                                           static_cast<std::size_t>(j) - 1);
    if (!isValid(model[own])) {
        return dummyValue;
    }
    const CentrePair yPair = pairAround(mesh.yCentre, j, y);
    const CentrePair xPair = pairAround(mesh.xCentre, i, x);
    const CentrePair zPair = heightPair(mesh.zCentre, k, z);
    const double upper = planeValue(mesh, model, zPair.lower, xPair, yPair);
    if (!zPair.hasUpper) {
        return upper;
    }
    return zPair.weight[0] * upper + zPair.weight[1] * planeValue(mesh, model, zPair.lower + 1, xPair, yPair);
}

}  // namespace voxlith
