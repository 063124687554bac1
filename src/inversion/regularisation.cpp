#include "inversion/regularisation.h"

#include <cstddef>
#include <vector>

namespace voxlith {

namespace {

double distance(const std::vector<double>& width, std::size_t first) {
    return (width[first] + width[first + 1]) * 0.5;
}

// Column (i, j) of the model type that begins at element `type` of the models.
ModelColumn columnOf(const ModelTerms& terms, std::span<const double> model, std::span<const double> refModel,
                     std::size_t type, std::size_t i, std::size_t j) {
    const MeshGeometry& mesh = terms.mesh;
    const std::size_t cell = mesh.cell(0, i, j);
    const auto height = static_cast<std::size_t>(mesh.nz);
    const auto row = height * static_cast<std::size_t>(mesh.nx);
    const bool hasNextX = i + 1 < static_cast<std::size_t>(mesh.nx);
    const bool hasNextY = j + 1 < static_cast<std::size_t>(mesh.ny);
    ModelColumn column;
    column.model = model.data() + type + cell;
    column.reference = refModel.empty() ? nullptr : refModel.data() + type + cell;
    column.wtS = terms.weights.wtS.data() + cell;
    column.wtE = terms.weights.wtE.data() + cell;
    column.wtN = terms.weights.wtN.data() + cell;
    column.wtZ = terms.weights.wtZ.data() + cell;
    column.zWidth = terms.vertical ? mesh.zWidth.data() : nullptr;
    column.height = height;
    column.used = static_cast<std::size_t>(mesh.nzl);
    if (hasNextX) {
        column.nextX = column.model + height;
        column.distanceX = distance(mesh.xWidth, i);
    }
    if (hasNextY) {
        column.nextY = column.model + row;
        column.distanceY = distance(mesh.yWidth, j);
    }
    if (!terms.depthWeight.empty()) {
        column.depthWeight = terms.depthWeight.data() + cell;
        column.depthWeightNextX = hasNextX ? column.depthWeight + height : nullptr;
        column.depthWeightNextY = hasNextY ? column.depthWeight + row : nullptr;
    }
    return column;
}

}  // namespace

ModelNorms modelNorms(const ModelTerms& terms, std::span<const double> model, std::span<const double> refModel) {
    ModelNorms norms;
    for (std::size_t type = 0; type < model.size(); type += terms.mesh.cellCount())
        for (std::size_t j = 0; j < static_cast<std::size_t>(terms.mesh.ny); ++j)
            for (std::size_t i = 0; i < static_cast<std::size_t>(terms.mesh.nx); ++i)
                addColumnNorms(columnOf(terms, model, refModel, type, i, j), terms.instructions, norms);
    return norms;
}

void addRegularisationGradient(const ModelTerms& terms, std::span<const double> model, std::span<const double> refModel,
                               std::span<const float> referenceWeight, std::span<const std::int32_t> fixedCell,
                               double multiplier, std::span<const double> adjoint, double nData,
                               std::span<double> out) {
    const MeshGeometry& mesh = terms.mesh;
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto height = static_cast<std::size_t>(mesh.nz);
    for (std::size_t j = 0; j < ny; ++j)
        for (std::size_t first = 0; first < height; first += columnBlock) {
            ColumnGradient gradient;
            gradient.firstRow = j == 0;
            gradient.multiplier = multiplier;
            gradient.nData = nData;
            for (std::size_t i = 0; i < nx; ++i) {
                const std::size_t cell = mesh.cell(0, i, j);
                gradient.adjoint = adjoint.data() + cell;
                gradient.fixedCell = fixedCell.data() + cell;
                gradient.referenceWeight = referenceWeight.empty() ? nullptr : referenceWeight.data() + cell;
                gradient.out = out.data() + cell;
                gradient.outNextY = j + 1 < ny ? gradient.out + height * nx : nullptr;
                addColumnGradient(columnOf(terms, model, refModel, 0, i, j), first, terms.instructions, gradient);
            }
        }
}

}  // namespace voxlith
