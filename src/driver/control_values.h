// What the command line and the control file say, and the defaults of what they leave out.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "driver/control_doubts.h"
#include "formats/weight_file.h"
#include "inversion/inversion_problem.h"
#include "survey/data_types.h"
#include "survey/obs_set.h"

namespace voxlith {

struct ControlValues {
    std::string controlFileName;
    // Set before the control file is read
    bool continues = false;  // as if iRestart were 1 at least
    bool resumes = false;    // goes on from a saved state, and reads no initial model
    bool rowsLater = false;  // the program reads and arranges the rows itself, after the survey
    // Set before the models are read. The model that a continued run starts from; empty for the running model
    std::string continuedModel;

    ControlDoubts doubts;  // what the run takes in silence

    // Command line
    double tradeoffOverride = -1.0;  // above 0: replaces multiplier
    std::int32_t clipLayer = 0;      // above 0, standard 3D: cells from this layer down are fixed
    std::string obsClipText;         // decoded once the number of data types is known
    ObsCleaning cleaning;            // limits, target misfit, shift, integration interval

    // Line 1
    std::int32_t iRestart = 0;
    std::int32_t nMtx = 1;
    std::int32_t nDataTypes = 1;
    // Line 2
    std::int32_t iMode = 0;
    // Of lines 1, 2, 3 and 12
    InversionOptions inversion;
    // Lines 4 to 8, as they stand
    std::string obsFileText;
    std::array<std::string, maxFiles> mtxFileText;
    std::string initialModelText;
    std::string referenceModelText;
    std::string boundsText;
    // Line 9
    Alphas alphas{1.0e-4F, 1.0F, 1.0F, 1.0F};
    // Line 10
    std::int32_t nWeightFiles = 1;
    std::array<std::string, maxWeightFiles> weightFileName;
    // Line 11
    std::string dataOffsetText;
    // Lines 13 on
    std::array<std::string, maxFiles> productDefinition;
    std::int32_t nProductDefinitions = 0;
};

}  // namespace voxlith
