// The diagonal of G'G for the file form that does not store it.
#pragma once

#include <cstddef>

#include "sensitivity/sensitivity.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

// Fills the slice of sensitivity.gtgdiag of a record-form file: the squares of all rows, each brought back to the mesh
// by the inverse transform. The rows must have been scanned; they are taken as stored, before any division by errors.
// Costs one transform for each datum; its memory is released. Throws RunError on damage and when memory is refused.
void computeGtgDiag(Sensitivity& sensitivity, std::size_t file, const MeshGeometry& mesh);

}  // namespace voxlith
