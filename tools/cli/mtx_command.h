// "voxlith-tools mtx": works out the sensitivity file of a survey.
#pragma once

#include <cstdint>
#include <string>

#include "forward/layer_plan.h"
#include "forward/sensitivity_rows.h"
#include "preparation/survey.h"

namespace CLI {
class App;
}

namespace voxlith {

struct MtxOptions {
    SurveyOptions survey;
    std::string outFile;
    std::string form = "tagged";  // tagged, bare, record
    std::int32_t version = 2;     // of the tagged form
    std::string depthWeight;      // "z0,beta", "none", or empty for the default
    std::int32_t taps = 4;
    double tolerance = 0.01;  // loss of a row over its norm
    LayerOptions layers;
    std::string boundsFile;    // with topography; empty: beside outFile, NAME_bounds.txt
    std::string groundBounds;  // "lower,upper" of the cells of ground; empty: as the type asks
};

struct MtxReport {
    std::int64_t rows = 0;
    std::int64_t paddedCells = 0;
    RowStatistics statistics;
    std::int64_t fileSize = 0;
    double seconds = 0;
    std::string boundsFile;  // written with topography
    std::int64_t inactiveCells = 0;
};

CLI::App* addMtxCommand(CLI::App& tools, MtxOptions& options);

// Writes the file, and with topography a bounds file that holds the cells of air; under their own names they appear
// when they are whole. Warnings go to standard error. Throws RunError.
MtxReport writeMtxFile(const MtxOptions& options);

// The report on standard output, one line each.
void printMtxReport(const MtxReport& report);

}  // namespace voxlith
