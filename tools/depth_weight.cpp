#include "depth_weight.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "number_text.h"
#include "text/messages.h"

namespace voxlith {

DepthWeight defaultDepthWeight(std::int32_t code, const MeshGeometry& mesh, std::span<const Station> stations) {
    double height = 0;
    for (const Station& station : stations) {
        height += mesh.zNode.front() - station.point.depth;
    }
    height /= static_cast<double>(std::max<std::size_t>(stations.size(), 1));
    return {0.5 * mesh.zWidth.front() + std::max(height, 0.0), code == 0 ? 2.0 : 3.0};
}

DepthWeight parseDepthWeight(const std::string& text) {
    if (text == "none") {
        return {};
    }
    const std::vector<double> numbers = parseNumberList("--depth-weight", "z0,beta or none", text, 2);
    if (numbers[0] <= 0 || numbers[1] < 0) {
        throw RunError("--depth-weight " + text + ": expected z0 above 0 and beta not below 0");
    }
    return {numbers[0], numbers[1]};
}

std::vector<float> cellDepthWeights(const DepthWeight& weight, const MeshGeometry& mesh) {
    const std::size_t nz = mesh.zCentre.size();
    std::vector<float> column(nz, 1.0F);
    if (weight.z0 > 0) {
        for (std::size_t k = 0; k < nz; ++k) {
            const double depth = mesh.zCentre[k] - mesh.zNode.front();
            column[k] = static_cast<float>(std::pow((depth + weight.z0) / weight.z0, -0.5 * weight.beta));
            if (!(column[k] >= std::numeric_limits<float>::min())) {
                throw RunError("--depth-weight " + numberText(weight.z0) + "," + numberText(weight.beta) +
                               ": the weight of layer " + std::to_string(k + 1) + " is too small to be stored");
            }
        }
    }
    std::vector<float> cells;
    cells.reserve(mesh.cellCount());
    while (cells.size() < mesh.cellCount()) {
        cells.insert(cells.end(), column.begin(), column.end());
    }
    return cells;
}

}  // namespace voxlith
