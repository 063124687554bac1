// Which layers of the mesh a sensitivity file covers, and what the last of them represents.
//
// A full file covers all nz layers, padded to a power of two. A file for a surface style covers n layers, fewer than
// nz, and its rows have n values per column (npz = nzl = n). The program then inverts for the top cells of each column
// and keeps the rest fixed.
//
//   styles 0 and 4  cover the whole mesh.
//   style 1         equivalent source: value l is the response of layer l alone; deeper layers have none. The model
//                   that the program writes has the sources in the top layer and the initial values below.
//   style 2         apparent density, and
//   style 3         surface and apparent density: value n, the last, is the response of all layers from n down. With
//                   n = 1 (style 2) the column has one property from top to bottom, with n = 2 (style 3) the surface
//                   layer has one and all layers below have another. The program writes these models, so that a
//                   written model has the response that was fitted. More layers are possible, but the written model
//                   shows only the first value (style 2) or the first two (style 3) of a column.
#pragma once

#include <cstdint>
#include <optional>

#include "survey/inversion_style.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct LayerOptions {
    std::int32_t layers = 0;              // 0: as many as the style needs
    std::optional<InversionStyle> style;  // none: the one that readers derive from the counts
};

struct LayerPlan {
    InversionStyle inversionStyle = InversionStyle::standard;
    bool sumBelow = false;
    bool shownWhole = true;  // a written model shows all values that are inverted for
};

// Sets npx, npy, npz and nzl of the mesh. `storesStyle`: the layout and version of the file have the style code; where
// they have not, a style other than the one that readers derive is refused. Throws RunError for numbers of layers that
// cannot be stored.
LayerPlan planLayers(const LayerOptions& options, bool storesStyle, MeshGeometry& mesh);

}  // namespace voxlith
