// Reads sensitivity files: three layouts, told apart here. The stages of a file are separate routines because the run
// allocates its arrays between them: stations after stage 1, mesh arrays and depth weights after stage 2, gtgdiag,
// layer responses and rowOffset after stage 3, the coefficient arrays before the second pass.
//
// Damage of any kind (an early end, counts that cannot be, indices outside the padded array, taps or nodes that are not
// finite) throws RunError with file and byte, before room is made for what the file cannot hold. A later file whose
// counts differ from the first's ends the run by PlainStop, after the message in the log and on the screen.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/messages.h"
#include "sensitivity/sensitivity.h"
#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

// True when the run's only file is in record form.
bool detectMtxForm(const std::string& name);

// Stage 1: opens file `file` (from 0), finds its form, logs version and data type, reads the number of data. File 0
// sets header.nData, later ones are compared. sensitivity.header.recordForm is set before.
void openMtxFile(Sensitivity& sensitivity, std::size_t file, const std::string& name, Messages& messages);

// Stage 2: field values and stations (into `obs`), mesh and padded mesh counts, taps. Compares later files with the
// first. `tally` gets the bytes of the taps.
void readMtxMesh(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh, ObsSet& obs, double& tally,
                 Messages& messages);

// Stage 3: nodes (mesh arrays have their sizes), weight parameters, depth weights; for file 0 the style rule: style and
// nzl.
void readMtxNodes(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh, Messages& messages);

// Stage 4, first pass over the rows: fills rowOffset and the counts without touching the coefficients.
void scanMtxRows(Sensitivity& sensitivity, std::size_t file);

// Stage 5: gtgdiag and, from version 2 on, style and layer responses; returns to the rows. For a record-form file
// gtgdiag is computed from the rows.
void readMtxTail(Sensitivity& sensitivity, std::size_t file, const MeshGeometry& mesh);

// Second pass, memory mode: all rows of all files into the store, which has its size already; closes the files.
void loadMtxRows(Sensitivity& sensitivity);

}  // namespace voxlith
