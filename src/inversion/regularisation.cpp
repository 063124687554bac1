#include "inversion/regularisation.h"

#include <array>
#include <cassert>
#include <cstddef>
#include <vector>

#include "base/workers.h"

namespace voxlith {

namespace {

double distance(const std::vector<double>& width, std::size_t first) {
    return (width[first] + width[first + 1]) * 0.5;
}

ModelColumn columnOf(const Regularisation& regularisation, std::span<const double> model,
                     std::span<const double> refModel, std::size_t i, std::size_t j) {
    const MeshGeometry& mesh = regularisation.mesh;
    const std::size_t cell = mesh.cellIndex(0, i, j);
    const auto height = static_cast<std::size_t>(mesh.nz);
    const auto row = height * static_cast<std::size_t>(mesh.nx);
    const bool hasNextX = i + 1 < static_cast<std::size_t>(mesh.nx);
    const bool hasNextY = j + 1 < static_cast<std::size_t>(mesh.ny);
    ModelColumn column;
    column.model = model.data() + cell;
    column.reference = refModel.empty() ? nullptr : refModel.data() + cell;
    column.wtS = regularisation.weights.wtS.data() + cell;
    column.wtE = regularisation.weights.wtE.data() + cell;
    column.wtN = regularisation.weights.wtN.data() + cell;
    column.wtZ = regularisation.weights.wtZ.data() + cell;
    column.zWidth = regularisation.vertical ? mesh.zWidth.data() : nullptr;
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
    if (!regularisation.depthWeight.empty()) {
        column.depthWeight = regularisation.depthWeight.data() + cell;
        column.depthWeightNextX = hasNextX ? column.depthWeight + height : nullptr;
        column.depthWeightNextY = hasNextY ? column.depthWeight + row : nullptr;
    }
    return column;
}

// Where the gradient of a row goes.
struct RowOutput {
    double* block = nullptr;  // for each column, one over the other; null: to the gradient itself
    bool fresh = false;       // the row before has left nothing there
    bool toNextRow = false;
};

}  // namespace

void addModelNorms(const Regularisation& regularisation, std::span<const double> model,
                   std::span<const double> refModel, ModelNorms& norms) {
    const MeshGeometry& mesh = regularisation.mesh;
    assert(model.size() == mesh.cellCount() && refModel.size() == mesh.cellCount());
    const ColumnKernels& kernels = columnKernels();
    for (std::size_t j = 0; j < static_cast<std::size_t>(mesh.ny); ++j) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(mesh.nx); ++i) {
            kernels.addNorms(columnOf(regularisation, model, refModel, i, j), norms);
        }
    }
}

void addRegularisationGradient(const Regularisation& regularisation, std::span<const double> model,
                               std::span<const double> refModel, std::span<const float> referenceWeight,
                               std::span<const std::int32_t> fixedCell, double multiplier,
                               std::span<const double> adjoint, double nData, std::span<double> out) {
    const MeshGeometry& mesh = regularisation.mesh;
    assert(model.size() == mesh.cellCount() && fixedCell.size() == model.size() && adjoint.size() == model.size());
    assert(out.size() == model.size() && out.data() != model.data() && out.data() != adjoint.data());
    assert(referenceWeight.size() == regularisation.depthWeight.size());
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto height = static_cast<std::size_t>(mesh.nz);
    const auto gradientOfRow = [&](std::size_t j, std::size_t first, const RowOutput& output) {
        ColumnGradient gradient;
        gradient.firstRow = output.fresh;
        gradient.multiplier = multiplier;
        gradient.nData = nData;
        for (std::size_t i = 0; i < nx; ++i) {
            const std::size_t cell = mesh.cellIndex(0, i, j);
            gradient.adjoint = adjoint.data() + cell;
            gradient.fixedCell = fixedCell.data() + cell;
            gradient.referenceWeight = referenceWeight.empty() ? nullptr : referenceWeight.data() + cell;
            gradient.out = output.block == nullptr ? out.data() + cell + first : output.block;
            gradient.outNextY = output.toNextRow ? out.data() + cell + height * nx : nullptr;
            columnKernels().addGradient(columnOf(regularisation, model, refModel, i, j), first, gradient);
        }
    };
    // A worker repeats the row before its first one for what it leaves in that, and leaves nothing in the row after its
    // last one.
    forEachRange(ny, 1, height * nx, [&](std::size_t firstRow, std::size_t endRow) {
        std::array<double, columnBlock> unused;
        for (std::size_t first = 0; firstRow > 0 && first < height; first += columnBlock) {
            gradientOfRow(firstRow - 1, first, {unused.data(), true, true});
        }
        for (std::size_t j = firstRow; j < endRow; ++j) {
            for (std::size_t first = 0; first < height; first += columnBlock) {
                gradientOfRow(j, first, {nullptr, j == 0, j + 1 < endRow});
            }
        }
    });
}

}  // namespace voxlith
