// Reads and writes models: plain lists of numbers in cell order.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/messages.h"
#include "base/output_file.h"
#include "survey/inversion_style.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"

namespace voxlith {

// `name` is the text of the control line: null, a number, or a file. `target` (cells times nModelTypes) is filled with
// `fillValue`, then as the text says (a file fills model type 1 alone), then projected into the bounds.
void readModelFile(Messages& messages, Positivity positivity, const std::string& name, const MeshGeometry& mesh,
                   std::int32_t nModelTypes, std::span<double> target, const ModelBounds& bounds, float fillValue);

// Writes the cells of one model type (`modelType` from 0) of `source`, divided by `depthWeight` (one slab of cells:
// file 1's) when `foldDepthWeight`. Styles 2 and 3 repeat the surface values down the column. The file is replaced
// whole. Throws RunError when it cannot be written. Allocates nothing.
void writeModelFile(std::string_view fileName, const MeshGeometry& mesh, std::int32_t modelType,
                    std::span<const double> source, std::span<const float> depthWeight, bool foldDepthWeight,
                    InversionStyle inversionStyle);

// The same content into an open file.
void appendModel(OutputFile& file, const MeshGeometry& mesh, std::int32_t modelType, std::span<const double> source,
                 std::span<const float> depthWeight, bool foldDepthWeight, InversionStyle inversionStyle);

}  // namespace voxlith
