#include "forward/depth_weight.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/messages.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

// Mean thickness of the first active cells of all columns that have one.
double firstThickness(const MeshGeometry& mesh, const Ground& ground) {
    if (!ground.hasInactive()) {
        return mesh.zWidth.front();
    }
    double sum = 0, columns = 0;
    for (const std::int32_t inactive : ground.inactiveCells) {
        if (inactive < mesh.nz) {
            sum += mesh.zWidth[static_cast<std::size_t>(inactive)];
            columns += 1;
        }
    }
    return sum / columns;
}

std::vector<float> columnWeights(const DepthWeight& weight, const MeshGeometry& mesh, std::size_t inactive) {
    std::vector<float> column(mesh.zCentre.size(), 1.0F);
    for (std::size_t k = inactive; k < column.size() && weight.z0 > 0; ++k) {
        const double depth = mesh.zCentre[k] - mesh.zNode[inactive];
        column[k] = static_cast<float>(std::pow((depth + weight.z0) / weight.z0, -0.5 * weight.beta));
        if (!(column[k] >= std::numeric_limits<float>::min())) {
            throw RunError("--depth-weight " + numberText(weight.z0) + "," + numberText(weight.beta) +
                           ": the weight of layer " + std::to_string(k + 1) + " is too small to be stored");
        }
    }
    return column;
}

}  // namespace

DepthWeight defaultDepthWeight(DataType type, const MeshGeometry& mesh, std::span<const Station> stations,
                               const Ground& ground) {
    double height = 0;
    for (std::size_t n = 0; n < stations.size(); ++n) {
        height += ground.hasInactive() ? ground.height[n] : mesh.zNode.front() - stations[n].point.depth;
    }
    height /= static_cast<double>(std::max<std::size_t>(stations.size(), 1));
    return {0.5 * firstThickness(mesh, ground) + std::max(height, 0.0), type == DataType::gz ? 2.0 : 3.0};
}

std::vector<float> cellDepthWeights(const DepthWeight& weight, const MeshGeometry& mesh, const Ground& ground) {
    const std::size_t nz = mesh.zCentre.size();
    std::vector<std::vector<float>> columns(nz + 1);  // by the number of inactive cells
    std::vector<float> cells;
    cells.reserve(mesh.cellCount());
    for (std::size_t column = 0; cells.size() < mesh.cellCount(); ++column) {
        const std::size_t inactive = ground.hasInactive() ? static_cast<std::size_t>(ground.inactiveCells[column]) : 0;
        if (columns[inactive].empty()) {
            columns[inactive] = columnWeights(weight, mesh, inactive);
        }
        cells.insert(cells.end(), columns[inactive].begin(), columns[inactive].end());
    }
    return cells;
}

}  // namespace voxlith
