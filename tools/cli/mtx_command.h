// "voxlith-tools mtx": computes the sensitivity file of a survey, or some of its rows; "voxlith-tools mtx-join": puts
// files of some rows each together.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/survey_options.h"
#include "forward/bounds_pairs.h"
#include "forward/layer_plan.h"
#include "forward/sensitivity_rows.h"

namespace CLI {
class App;
}

namespace voxlith {

struct MtxOptions {
    SurveyOptions survey;
    std::string outFile;
    MtxForm form = MtxForm::tagged;
    std::int32_t version = 2;                // of the tagged form
    std::optional<DepthWeight> depthWeight;  // none: defaultDepthWeight
    std::int32_t taps = 4;
    double tolerance = 0.01;  // loss of a row over its norm
    LayerOptions layers;
    std::string boundsFile;                  // with topography; empty: beside outFile, NAME_bounds.txt
    std::optional<BoundsPair> activeBounds;  // of the active cells in that file; none: by the data type
    std::string rows;                        // see parseRows; empty: all
    std::vector<std::string> parts;          // of mtx-join
};

struct MtxReport {
    std::int64_t rows = 0;
    std::int64_t firstRow = 1, allRows = 0;  // of the survey
    std::int64_t continuedRows = 0;          // from a run that was stopped
    std::int64_t paddedCells = 0;
    RowStatistics statistics;
    std::int64_t fileSize = 0;
    double seconds = 0;
    std::string boundsFile;  // written with topography
    std::int64_t inactiveCells = 0;
};

CLI::App* addMtxCommand(CLI::App& tools, MtxOptions& options);
CLI::App* addMtxJoinCommand(CLI::App& tools, MtxOptions& options);

// Throws RunError when a file to write is one that is read, or both are the same.
void checkMtxOutputs(const MtxOptions& options);

// Writes the file, and with topography a bounds file in which inactive cells are fixed. Both get their names when they
// are complete. Warnings go to standard error. Throws RunError.
MtxReport writeMtxFile(const MtxOptions& options);

// One line for each item on standard output.
void printMtxReport(const MtxReport& report);

}  // namespace voxlith
