// What the sensitivity file of a survey holds besides its rows and what follows from them.
#pragma once

#include <cstdint>
#include <vector>

#include "base/output_file.h"
#include "formats/mtx/mtx_layout.h"
#include "forward/depth_weight.h"
#include "forward/survey.h"
#include "sensitivity/wavelet/wavelet.h"

namespace voxlith {

struct MtxContent {
    MtxForm form = MtxForm::tagged;
    std::int32_t version = 2;  // of the tagged form
    InversionStyle inversionStyle = InversionStyle::standard;
    Survey survey;  // its mesh with padded counts and nzl
    WaveletFilter filter;
    DepthWeight depthWeight;
    std::vector<float> cellWeights;  // W by cell
};

// The head of the file in the terms of its format.
MtxHeader headerOf(const MtxContent& content);

// All up to the rows.
void writeHead(OutputFile& file, const MtxContent& content);

}  // namespace voxlith
