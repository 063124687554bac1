// A sensitivity file read by itself, outside a run, through the stages of the inversion program.
#pragma once

#include <string>

#include "sensitivity/sensitivity.h"
#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

struct MtxFile {
    Sensitivity sensitivity;
    MeshGeometry mesh;  // with widths and centres
    ObsSet obs;         // field and stations; those of files without them are 0
};

enum class MtxRows { counted, loaded };

// Header, mesh, weights, the count of each row (store.rowOffset), the diagonal of G'G and the layer responses;
// `loaded`: the rows themselves too, raw, in the store. A file in record form has no diagonal: it is worked out when
// the rows are loaded, and left at 0 otherwise. Throws RunError; PlainStop does not occur with a single file.
void readMtxFile(const std::string& fileName, MtxRows rows, MtxFile& file);

}  // namespace voxlith
