#include "forward/prism.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace voxlith {

namespace {

constexpr double edgeFraction = 1.0e-4;

// ln((|along| + r) / across) with the sign of `along`; `across` is above 0.
double oddLog(double along, double r, double across) {
    const double value = std::log((std::abs(along) + r) / across);
    return along < 0 ? -value : value;
}

// x ln(R + y); its limit for x to 0 is 0.
double lengthTimesLog(double x, double y, double r, double across) {
    return x == 0.0 ? 0.0 : x * oddLog(y, r, across);
}

// atan(yz / xR); in the plane of the face 0, the mean of both sides.
double faceAngle(double x, double y, double z, double r) {
    return x == 0.0 ? 0.0 : std::atan(y * z / (x * r));
}

// ln(z + R); closer to the edge than edgeDistance, where it goes to infinity, as if at that distance.
double edgeLog(double along, double r, double across2, double edgeDistance) {
    const double across = std::sqrt(across2);
    if (across < edgeDistance) {
        return oddLog(along, std::sqrt(along * along + edgeDistance * edgeDistance), edgeDistance);
    }
    return oddLog(along, r, across);
}

double smallestWidth(std::span<const double> nodes) {
    double smallest = std::numeric_limits<double>::infinity();
    for (std::size_t n = 1; n < nodes.size(); ++n) {
        smallest = std::min(smallest, std::abs(nodes[n] - nodes[n - 1]));
    }
    return smallest;
}

// Corner terms of all nodes with y index j: z fastest, then x.
void cornerPlane(const MeshGeometry& mesh, std::size_t j, const StationPoint& station, const ResponseWeights& weights,
                 double edgeDistance, std::span<double> plane) {
    const double y = mesh.yNode[j] - station.y;
    std::size_t position = 0;
    for (const double xNode : mesh.xNode) {
        const double x = xNode - station.x;
        for (const double zNode : mesh.zNode) {
            plane[position++] = cornerTerm(x, y, zNode - station.depth, weights, edgeDistance);
        }
    }
}

}  // namespace

double cornerTerm(double x, double y, double z, const ResponseWeights& weights, double edgeDistance) {
    const double x2 = x * x;
    const double y2 = y * y;
    const double z2 = z * z;
    const double r = std::sqrt(x2 + y2 + z2);
    double sum = 0;
    if (weights.z != 0) {
        sum += weights.z * (z * faceAngle(z, x, y, r) - lengthTimesLog(x, y, r, std::sqrt(x2 + z2)) -
                            lengthTimesLog(y, x, r, std::sqrt(y2 + z2)));
    }
    if (weights.xx != 0) {
        sum -= weights.xx * faceAngle(x, y, z, r);
    }
    if (weights.yy != 0) {
        sum -= weights.yy * faceAngle(y, x, z, r);
    }
    if (weights.zz != 0) {
        sum -= weights.zz * faceAngle(z, x, y, r);
    }
    if (weights.xy != 0) {
        sum += weights.xy * edgeLog(z, r, x2 + y2, edgeDistance);
    }
    if (weights.xz != 0) {
        sum += weights.xz * edgeLog(y, r, x2 + z2, edgeDistance);
    }
    if (weights.yz != 0) {
        sum += weights.yz * edgeLog(x, r, y2 + z2, edgeDistance);
    }
    return sum;
}

double prismResponse(const Prism& prism, const StationPoint& station, const ResponseWeights& weights) {
    const std::array<double, 2> x{prism.x1 - station.x, prism.x2 - station.x};
    const std::array<double, 2> y{prism.y1 - station.y, prism.y2 - station.y};
    const std::array<double, 2> z{prism.depth1 - station.depth, prism.depth2 - station.depth};
    const double edgeDistance = edgeFraction * std::min({x[1] - x[0], y[1] - y[0], z[1] - z[0]});
    double sum = 0;
    for (std::size_t corner = 0; corner < 8; ++corner) {
        const std::size_t i = corner & 1U;
        const std::size_t j = (corner >> 1U) & 1U;
        const std::size_t k = corner >> 2U;
        const double term = cornerTerm(x[i], y[j], z[k], weights, edgeDistance);
        sum += (i + j + k) % 2 == 1 ? term : -term;
    }
    return sum;
}

double edgeDistanceOf(const MeshGeometry& mesh) {
    return edgeFraction * std::min({smallestWidth(mesh.xNode), smallestWidth(mesh.yNode), smallestWidth(mesh.zNode)});
}

std::size_t cornerWorkSize(const MeshGeometry& mesh) {
    return 2 * mesh.xNode.size() * mesh.zNode.size();
}

void meshResponses(const MeshGeometry& mesh, const StationPoint& station, const ResponseWeights& weights,
                   double edgeDistance, std::span<double> corners, std::span<double> cells) {
    const std::size_t nx = mesh.xNode.size() - 1;
    const std::size_t ny = mesh.yNode.size() - 1;
    const std::size_t nz = mesh.zNode.size() - 1;
    const std::size_t planeSize = (nx + 1) * (nz + 1);
    std::span<double> south = corners.first(planeSize);
    std::span<double> north = corners.subspan(planeSize, planeSize);
    cornerPlane(mesh, 0, station, weights, edgeDistance, south);
    std::size_t cell = 0;
    for (std::size_t j = 0; j < ny; ++j) {
        cornerPlane(mesh, j + 1, station, weights, edgeDistance, north);
        for (std::size_t i = 0; i < nx; ++i) {
            const std::size_t west = i * (nz + 1);
            const std::size_t east = west + nz + 1;
            double upper = (north[east] - north[west]) - (south[east] - south[west]);
            for (std::size_t k = 1; k <= nz; ++k) {
                const double lower = (north[east + k] - north[west + k]) - (south[east + k] - south[west + k]);
                cells[cell++] = lower - upper;
                upper = lower;
            }
        }
        std::swap(south, north);
    }
}

}  // namespace voxlith
