// Head and tail of sensitivity files of the tagged and the bare form: a plain stream of numbers without framing. The
// stages are those of mtx_reader.h.
#pragma once

#include <cstdint>

#include "formats/mtx/mtx_reader.h"

namespace voxlith {

// Magic and version, if there are any.
void readStreamForm(MtxInput& file);

void readStreamDataCount(MtxInput& file, const MtxHeader* first);

void readStreamMesh(MtxInput& file, const MtxHeader* first, std::span<double> x, std::span<double> y,
                    std::span<double> z);

void readStreamNodes(MtxInput& file, MeshGeometry& mesh, std::span<float> depthWeight);

void readStreamTail(MtxInput& file, std::span<double> gtgdiag, std::span<double> layerResponse);

}  // namespace voxlith
