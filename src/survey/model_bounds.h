// Bounds of the cells, and the rule by which a model is brought within them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "survey/positivity.h"

namespace voxlith {

// boundType codes
constexpr std::int32_t boundNone = 0, boundLower = 1, boundUpper = 2, boundBoth = 3, boundFixed = 5;

struct ModelBounds {
    // All by (k, i, j, model type)
    std::vector<std::int32_t> boundType;
    std::vector<std::int32_t> fixedCell;  // 0: free; any other value: fixed
    std::vector<double> lowerBound;       // 0 where the type has none
    std::vector<double> upperBound;
    std::int32_t nFixedCells = 0;
};

// Every free cell with a valid value is rounded to single precision and projected into its bounds; fixed cells and
// dummies do not change.
void projectModel(Positivity positivity, const ModelBounds& bounds, std::span<double> model);

}  // namespace voxlith
