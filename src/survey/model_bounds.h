// Bounds of the cells, and the rule by which a model is brought within them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace voxlith {

// boundType codes
constexpr std::int32_t boundNone = 0, boundLower = 1, boundUpper = 2, boundBoth = 3, boundFixed = 5;

// Smallest value that positivityFlag 2 allows.
constexpr float strictPositiveMinimum = 1.0e-5F;

struct ModelBounds {
    // All by (k, i, j, model type)
    std::vector<std::int32_t> boundType;
    std::vector<std::int32_t> fixedCell;  // 0: free; anything else: held at its value
    std::vector<double> lowerBound;       // 0 where the type has none
    std::vector<double> upperBound;
    std::int32_t nFixedCells = 0;
};

// Every free cell with a valid value goes through single precision and its bounds; held cells and dummies stay.
void projectModel(std::int32_t positivityFlag, const ModelBounds& bounds, std::span<double> model);

}  // namespace voxlith
