#include "inversion/fixed_cells.h"

#include <cassert>
#include <cstddef>

namespace voxlith {

void fixDeepCells(InversionStyle inversionStyle, const MeshGeometry& mesh, std::span<const double> model,
                  ModelBounds& bounds) {
    const auto height = static_cast<std::size_t>(mesh.nz);
    assert(model.size() <= bounds.fixedCell.size() && height > 0 && model.size() % height == 0);
    const auto freeCells = freeCellsPerColumn(inversionStyle, height);
    for (std::size_t column = 0; column < model.size(); column += height) {
        for (std::size_t k = freeCells; k < height; ++k) {
            bounds.fixedCell[column + k] = fixedByStyle;
            bounds.lowerBound[column + k] = model[column + k];
            bounds.upperBound[column + k] = model[column + k];
        }
    }
}

}  // namespace voxlith
