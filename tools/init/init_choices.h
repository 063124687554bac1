// Values of a control file that suit the data, the mesh and the sensitivity files of a run.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "forward/mtx_file.h"
#include "preparation/survey_table.h"

namespace voxlith {

// What the user has said; the rest is chosen.
struct InitOverrides {
    std::int32_t sign = 2;        // -1, 0, 1; 2: by the data type
    double tradeoff = 0;          // 0: by the data
    std::int32_t iterations = 0;  // 0: the usual number
    std::string bounds;           // "lower,upper" or "null"; empty: by the data type
};

struct InitChoices {
    std::string unit;  // of the model
    std::int32_t sign = 0;
    double tradeoff = 0;
    std::string tradeoffReason;
    double initial = 0;
    std::string bounds;
    double alphaS = 0;
    double cell = 0;  // size of the core's cells
    std::int32_t iterations = 0;
    std::int32_t modelTypes = 1;
    std::vector<std::size_t> modelOf;   // model type (from 0) of each file
    double factor = 1.0;                // of the products with model 2, which is counted in units of it
    std::string factorReason;           // empty with one model type
    std::vector<std::string> warnings;  // what the models without bounds make suspect
};

// All but trade-off and factor. `files`: the sensitivity files in the order of the components of the data; their heads
// will do.
InitChoices chooseInitValues(const std::vector<std::unique_ptr<MtxFile>>& files, const InitOverrides& overrides);

// The trade-off: the wish, or that at which an inversion without bounds fits the data, or, for files whose rows
// together are too many to be held for that, the one that the program takes for the data type. With two model types
// the factor makes the trade-off of the first serve the second, too: a model in units of f has 1/f^2 of its norm
// squared, so f is the root of the one's trade-off over the other's. Where data of one type are not fitted with any
// trade-off, f is the ratio of the largest values of both models. Reads `names` again, with the rows that it needs.
// Throws RunError.
void chooseTradeoff(const std::vector<std::string>& names, const SurveyTable& data, const InitOverrides& overrides,
                    const std::vector<std::unique_ptr<MtxFile>>& files, InitChoices& choices);

}  // namespace voxlith
