#include "forward/prism.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>

#include "forward/corner_kernels.h"
#include "forward/far_cells.h"

namespace voxlith {

namespace {

constexpr double edgeFraction = 1.0e-4;

// The attraction has no edge distance: its logarithms are multiplied by a length that is 0 on the edge.
constexpr double leastDistance = 1.0e-150;

// Powers of distances in the series stay within real64 between these.
constexpr double leastFarDistance = 1.0e-20, largestFarDistance = 1.0e20;

double smallestWidth(std::span<const double> nodes) {
    double smallest = std::numeric_limits<double>::infinity();
    for (std::size_t n = 1; n < nodes.size(); ++n) {
        smallest = std::min(smallest, std::abs(nodes[n] - nodes[n - 1]));
    }
    return smallest;
}

std::size_t wholeBlocks(std::size_t count) {
    return (count + cornerBlock - 1) / cornerBlock * cornerBlock;
}

bool hasSecondDerivatives(const ResponseWeights& w) {
    return w.xx != 0 || w.yy != 0 || w.zz != 0 || w.xy != 0 || w.xz != 0 || w.yz != 0;
}

// A range of columns along x, [first, end).
struct ColumnRange {
    std::size_t first = 0, end = 0;
    bool empty() const { return first == end; }
};

ColumnRange unionOf(const ColumnRange& a, const ColumnRange& b) {
    if (a.empty() || b.empty()) {
        return a.empty() ? b : a;
    }
    return {std::min(a.first, b.first), std::max(a.end, b.end)};
}

// What does not change from plane to plane.
struct StationCase {
    const MeshGeometry& mesh;
    const StationPoint& station;
    ResponseWeights weights;   // with at most two angles
    double edgeDistance = 0;   // of the logarithms in use
    std::size_t height = 0;    // corners above each other
    double leastSquareXz = 0;  // of all corners
    double largestLayerWidth = 0;
    double heightAbove = 0;  // vertical distance from the station to the nearest centre of a layer
    double angleSum = 0;     // weight of pi / 2 at each corner with the sign of xyz; less the cavity
};

// Fills the arrays of a plane that are the same for all planes, and those of the layers.
void prepareStation(StationCase& c, PrismWork& work) {
    const MeshGeometry& mesh = c.mesh;
    c.height = mesh.zNode.size();
    const std::size_t size = mesh.xNode.size() * c.height;
    for (std::vector<double>* const plane :
         {&work.x, &work.y, &work.z, &work.squaresXz, &work.acrossX, &work.acrossY, &work.acrossZ, &work.r, &work.edgeR,
          &work.south, &work.north, &work.difference}) {
        plane->assign(size + cornerBlock, 0.0);
    }
    c.leastSquareXz = std::numeric_limits<double>::infinity();
    std::size_t n = 0;
    for (const double xNode : mesh.xNode) {
        for (const double zNode : mesh.zNode) {
            const double x = xNode - c.station.x, z = zNode - c.station.depth;
            const double square = x * x + z * z;
            work.x[n] = x;
            work.z[n] = z;
            work.squaresXz[n] = square;
            work.acrossY[n] = 1.0 / std::max(std::sqrt(square), c.edgeDistance);
            c.leastSquareXz = std::min(c.leastSquareXz, square);
            ++n;
        }
    }
    const std::size_t layers = c.height - 1;
    work.layerCentre.assign(wholeBlocks(layers), 0.0);
    work.layerWidth.assign(wholeBlocks(layers), 0.0);
    work.squaredLayerWidth.assign(wholeBlocks(layers), 0.0);
    work.farColumn.assign(wholeBlocks(layers), 0.0);
    c.heightAbove = std::numeric_limits<double>::infinity();
    for (std::size_t k = 0; k < layers; ++k) {
        const double width = mesh.zNode[k + 1] - mesh.zNode[k];
        work.layerCentre[k] = 0.5 * ((mesh.zNode[k] - c.station.depth) + (mesh.zNode[k + 1] - c.station.depth));
        work.layerWidth[k] = width;
        work.squaredLayerWidth[k] = width * width;
        c.largestLayerWidth = std::max(c.largestLayerWidth, width);
        c.heightAbove = std::min(c.heightAbove, std::abs(work.layerCentre[k]));
    }
    const bool within = mesh.zNode.front() <= c.station.depth && c.station.depth <= mesh.zNode.back();
    c.heightAbove = within ? 0.0 : c.heightAbove;
}

double centreOf(std::span<const double> nodes, std::size_t cell, double origin) {
    return 0.5 * ((nodes[cell] - origin) + (nodes[cell + 1] - origin));
}

bool isFar(const StationCase& c, double x, double y, double dx, double dy) {
    const double distance = std::sqrt(x * x + y * y + c.heightAbove * c.heightAbove);
    return distance >= farDistance * std::max({dx, dy, c.largestLayerWidth}) && distance > leastFarDistance &&
           std::sqrt(x * x + y * y) < largestFarDistance && c.heightAbove < largestFarDistance;
}

// The columns of a row of cells (index j along y) from the first to the last that is not far.
ColumnRange nearColumns(const StationCase& c, std::size_t j) {
    const double y = centreOf(c.mesh.yNode, j, c.station.y);
    const double dy = c.mesh.yNode[j + 1] - c.mesh.yNode[j];
    ColumnRange range;
    for (std::size_t i = 0; i + 1 < c.mesh.xNode.size(); ++i) {
        const double dx = c.mesh.xNode[i + 1] - c.mesh.xNode[i];
        if (!isFar(c, centreOf(c.mesh.xNode, i, c.station.x), y, dx, dy)) {
            range = range.empty() ? ColumnRange{i, i + 1} : ColumnRange{range.first, i + 1};
        }
    }
    return range;
}

// The distances to be used in a logarithm along an axis: closer to the edge than edgeDistance they are those at that
// distance. squareAcross(n) is that of corner n.
template <class SquareAcross>
const double* distancesFromEdge(const StationCase& c, double leastSquare, const SquareAcross& squareAcross,
                                const std::vector<double>& along, std::size_t first, std::size_t count,
                                PrismWork& work) {
    const double limit = c.edgeDistance * c.edgeDistance;
    if (leastSquare >= limit) {
        return work.r.data() + first;
    }
    for (std::size_t n = first; n < first + count; ++n) {
        const bool onEdge = squareAcross(n) < limit;
        work.edgeR[n] = onEdge ? std::sqrt(along[n] * along[n] + limit) : work.r[n];
    }
    return work.edgeR.data() + first;
}

// The corners of a plane that are computed, and how they are summed.
struct PlanePart {
    std::size_t first = 0, count = 0;
    double* sum = nullptr;  // of corner `first`
};

void addAttraction(const PlanePart& part, double weight, const PrismWork& work) {
    const CornerKernels& kernels = cornerKernels();
    const std::size_t n = part.first;
    const double* const x = work.x.data() + n;
    const double* const y = work.y.data() + n;
    const double* const z = work.z.data() + n;
    const double* const r = work.r.data() + n;
    kernels.addAngles(x, y, z, r, z, weight, part.sum, part.count);
    kernels.addLogarithms(y, r, work.acrossY.data() + n, x, -weight, part.sum, part.count);
    kernels.addLogarithms(x, r, work.acrossX.data() + n, y, -weight, part.sum, part.count);
}

void addAnglesOfFaces(const PlanePart& part, const ResponseWeights& w, const PrismWork& work) {
    const CornerKernels& kernels = cornerKernels();
    const double* const x = work.x.data() + part.first;
    const double* const y = work.y.data() + part.first;
    const double* const z = work.z.data() + part.first;
    const double* const r = work.r.data() + part.first;
    if (w.xx != 0) {
        kernels.addAngles(y, z, x, r, nullptr, -w.xx, part.sum, part.count);
    }
    if (w.yy != 0) {
        kernels.addAngles(x, z, y, r, nullptr, -w.yy, part.sum, part.count);
    }
    if (w.zz != 0) {
        kernels.addAngles(x, y, z, r, nullptr, -w.zz, part.sum, part.count);
    }
}

void addLogarithmsOfEdges(const StationCase& c, const PlanePart& part, double y, PrismWork& work) {
    const CornerKernels& kernels = cornerKernels();
    const ResponseWeights& w = c.weights;
    const std::size_t n = part.first;
    // Whether a corner is at an edge is known from the smallest coordinates of the plane, but for rare ones.
    const double near = std::abs(y) < c.edgeDistance ? 0.0 : std::numeric_limits<double>::infinity();
    if (w.xy != 0) {
        const auto square = [&](std::size_t p) { return work.x[p] * work.x[p] + y * y; };
        const double* const r = distancesFromEdge(c, near, square, work.z, n, part.count, work);
        kernels.addLogarithms(work.z.data() + n, r, work.acrossZ.data() + n, nullptr, w.xy, part.sum, part.count);
    }
    if (w.xz != 0) {
        const auto square = [&](std::size_t p) { return work.squaresXz[p]; };
        const double* const r = distancesFromEdge(c, c.leastSquareXz, square, work.y, n, part.count, work);
        kernels.addLogarithms(work.y.data() + n, r, work.acrossY.data() + n, nullptr, w.xz, part.sum, part.count);
    }
    if (w.yz != 0) {
        const auto square = [&](std::size_t p) { return y * y + work.z[p] * work.z[p]; };
        const double* const r = distancesFromEdge(c, near, square, work.x, n, part.count, work);
        kernels.addLogarithms(work.x.data() + n, r, work.acrossX.data() + n, nullptr, w.yz, part.sum, part.count);
    }
}

// Fills y and the inverse distances from the edges along x and z for the plane at `y`.
void preparePlane(const StationCase& c, const ColumnRange& columns, double y, PrismWork& work) {
    const std::size_t height = c.height;
    const std::size_t first = columns.first * height;
    const std::size_t end = (columns.end + 1) * height;
    std::fill(work.y.begin() + static_cast<std::ptrdiff_t>(first), work.y.end(), y);
    for (std::size_t n = first; n < first + height; ++n) {
        work.acrossX[n] = 1.0 / std::max(std::sqrt(y * y + work.z[n] * work.z[n]), c.edgeDistance);
    }
    for (std::size_t line = first; line < end; line += height) {
        if (line > first) {
            std::copy_n(work.acrossX.data() + first, height, work.acrossX.data() + line);
        }
        const double across = 1.0 / std::max(std::sqrt(work.x[line] * work.x[line] + y * y), c.edgeDistance);
        std::fill_n(work.acrossZ.data() + line, height, across);
    }
}

// Corner terms of the plane with y index j, around these columns.
void cornerPlane(const StationCase& c, std::size_t j, const ColumnRange& columns, PrismWork& work,
                 std::vector<double>& plane) {
    const double y = c.mesh.yNode[j] - c.station.y;
    preparePlane(c, columns, y, work);
    PlanePart part;
    part.first = columns.first * c.height;
    part.count = wholeBlocks((columns.end + 1 - columns.first) * c.height);
    part.sum = plane.data() + part.first;
    std::fill_n(part.sum, part.count, 0.0);
    cornerKernels().distances(work.squaresXz.data() + part.first, y * y, work.r.data() + part.first, part.count);
    if (c.weights.z != 0) {
        addAttraction(part, c.weights.z, work);
    }
    addAnglesOfFaces(part, c.weights, work);
    addLogarithmsOfEdges(c, part, y, work);
}

// Responses of near columns from the planes south and north of them.
void differenceColumns(const StationCase& c, std::size_t j, const ColumnRange& columns, PrismWork& work,
                       std::span<double> cells) {
    const std::size_t height = c.height;
    const std::size_t first = columns.first * height;
    cornerKernels().subtract(work.north.data() + first, work.south.data() + first, work.difference.data() + first,
                             wholeBlocks((columns.end + 1 - columns.first) * height));
    const std::size_t nx = c.mesh.xNode.size() - 1;
    for (std::size_t i = columns.first; i < columns.end; ++i) {
        const double* const west = work.difference.data() + i * height;
        const double* const east = west + height;
        double* const column = cells.data() + (j * nx + i) * (height - 1);
        for (std::size_t k = 0; k + 1 < height; ++k) {
            column[k] = (east[k + 1] - west[k + 1]) - (east[k] - west[k]);
        }
    }
}

void farColumns(const StationCase& c, std::size_t j, const ColumnRange& nearby, PrismWork& work,
                std::span<double> cells) {
    const std::size_t nx = c.mesh.xNode.size() - 1;
    const std::size_t layers = c.height - 1;
    const double y = centreOf(c.mesh.yNode, j, c.station.y);
    const double dy = c.mesh.yNode[j + 1] - c.mesh.yNode[j];
    const FarLayers farLayers{work.layerCentre, work.layerWidth, work.squaredLayerWidth};
    FarSeries series;
    double seriesWidth = 0;  // along x; not yet any
    for (std::size_t i = 0; i < nx; ++i) {
        if (i >= nearby.first && i < nearby.end) {
            continue;
        }
        const double dx = c.mesh.xNode[i + 1] - c.mesh.xNode[i];
        if (dx != seriesWidth) {
            series = farSeries(c.weights, y, dx, dy);
            seriesWidth = dx;
        }
        const double x = centreOf(c.mesh.xNode, i, c.station.x);
        farKernels().column(series, x, x * x + y * y, dx * dy, farLayers, work.farColumn.data());
        std::copy_n(work.farColumn.begin(), layers, cells.begin() + static_cast<std::ptrdiff_t>((j * nx + i) * layers));
    }
}

// Cells between two nodes that the station is between or on, with the difference of the signs of the two, 1 or 2.
struct TouchingCell {
    std::size_t index = 0;
    double signs = 0;
};

std::vector<TouchingCell> touchingCells(std::span<const double> nodes, double station) {
    const auto sign = [&](double node) { return static_cast<double>(node > station) - (node < station ? 1.0 : 0.0); };
    std::vector<TouchingCell> touching;
    for (std::size_t n = 0; n + 1 < nodes.size(); ++n) {
        const double signs = sign(nodes[n + 1]) - sign(nodes[n]);
        if (signs != 0) {
            touching.push_back({n, signs});
        }
    }
    return touching;
}

// The sum of the three angles over the corners of the cells around the station.
void addAngleSums(const StationCase& c, std::span<double> cells) {
    const std::size_t nx = c.mesh.xNode.size() - 1;
    const std::size_t layers = c.height - 1;
    const std::vector<TouchingCell> alongX = touchingCells(c.mesh.xNode, c.station.x);
    const std::vector<TouchingCell> alongZ = touchingCells(c.mesh.zNode, c.station.depth);
    for (const TouchingCell& y : touchingCells(c.mesh.yNode, c.station.y)) {
        for (const TouchingCell& x : alongX) {
            for (const TouchingCell& z : alongZ) {
                cells[(y.index * nx + x.index) * layers + z.index] -=
                    c.angleSum * (std::numbers::pi / 2) * (x.signs * y.signs * z.signs);
            }
        }
    }
}

void computeResponses(StationCase& c, PrismWork& work, std::span<double> cells) {
    prepareStation(c, work);
    const std::size_t ny = c.mesh.yNode.size() - 1;
    ColumnRange nearby = nearColumns(c, 0);
    if (!nearby.empty()) {
        cornerPlane(c, 0, nearby, work, work.south);
    }
    for (std::size_t j = 0; j < ny; ++j) {
        const ColumnRange next = j + 1 < ny ? nearColumns(c, j + 1) : ColumnRange{};
        const ColumnRange inPlane = unionOf(nearby, next);
        if (!inPlane.empty()) {
            cornerPlane(c, j + 1, inPlane, work, work.north);
        }
        if (!nearby.empty()) {
            differenceColumns(c, j, nearby, work, cells);
        }
        farColumns(c, j, nearby, work, cells);
        std::swap(work.south, work.north);
        nearby = next;
    }
    if (c.angleSum != 0) {
        addAngleSums(c, cells);
    }
}

}  // namespace

double edgeDistanceOf(const MeshGeometry& mesh) {
    return edgeFraction * std::min({smallestWidth(mesh.xNode), smallestWidth(mesh.yNode), smallestWidth(mesh.zNode)});
}

void meshResponses(const MeshGeometry& mesh, const StationPoint& station, const ResponseWeights& weights,
                   double edgeDistance, PrismWork& work, std::span<double> cells) {
    StationCase c{mesh, station, weights};
    c.edgeDistance = edgeDistance;
    if (!hasSecondDerivatives(weights)) {
        c.edgeDistance = leastDistance;
    } else if (weights.xx != 0 && weights.yy != 0 && weights.zz != 0) {
        c.weights.xx -= weights.zz;
        c.weights.yy -= weights.zz;
        c.weights.zz = 0;
        c.angleSum = weights.zz;
    }
    c.angleSum -= weights.cavity;
    computeResponses(c, work, cells);
}

double prismResponse(const Prism& prism, const StationPoint& station, const ResponseWeights& weights) {
    MeshGeometry mesh;
    mesh.xNode = {prism.x1, prism.x2};
    mesh.yNode = {prism.y1, prism.y2};
    mesh.zNode = {prism.depth1, prism.depth2};
    PrismWork work;
    double response = 0;
    meshResponses(mesh, station, weights, edgeDistanceOf(mesh), work, {&response, 1});
    return response;
}

}  // namespace voxlith
