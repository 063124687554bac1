// Which layers of the mesh a sensitivity file covers, and what the last of them stands for.
//
// A full file covers all nz layers, padded to a power of two. A file for a surface style covers n layers, fewer than
// nz, and its rows hold n values a column (npz = nzl = n); the program then frees the top cells of each column and
// holds the rest.
//
//   style 1, equivalent source: value l is the response of layer l alone; what lies below has none. The model that the
//   program
//     writes holds the sources in the top layer, with the starting values below.
//   style 2, apparent density, and style 3, surface and apparent density: value n, the last, is the response of all
//   layers from n
//     down. With n = 1 (style 2) the column has one property from top to bottom, with n = 2 (style 3) the surface layer
//     has one and everything below it another; these are the models that the program writes, so that a written model
//     has the response that was fitted. More layers are possible, but the written model shows only the first value
//     (style 2) or the first two (style 3) of a column.
//   styles 0 and 4 cover the whole mesh.
#pragma once

#include <cstdint>

#include "survey/mesh_geometry.h"

namespace voxlith {

struct LayerOptions {
    std::int32_t layers = 0;  // 0: as many as the style asks for
    std::int32_t style = -1;  // -1: the one that readers take from the counts
};

struct LayerPlan {
    std::int32_t inversionStyle = 0;
    bool sumBelow = false;
    bool shownWhole = true;  // the model that the program writes shows all free values of a column
};

// Sets npx, npy, npz and nzl of the mesh. `storesStyle`: the form and version of the file hold the style code; where
// they do not, a style other than the one that readers work out is refused. Throws RunError for numbers of layers that
// cannot be stored.
LayerPlan planLayers(const LayerOptions& options, bool storesStyle, MeshGeometry& mesh);

}  // namespace voxlith
