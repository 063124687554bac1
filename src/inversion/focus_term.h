// The focus term of the model norm, which counts the cells that differ from 0. Its threshold is 0 in every run, and the
// term is evaluated only above a large threshold: it is inert.
#pragma once

#include <span>

namespace voxlith {

struct FocusSettings {
    double focusThreshold = 0;
    double focusScale = 1;
};

void initFocus(FocusSettings& focus);

// `model` and `depthWeight` hold the cells of the first model type; an empty `depthWeight` divides nothing.
// Each value v = x/W adds 1 above the threshold T, otherwise 2 v^2/T^2 - v^4/T^4; the sum is scaled.
float focusTerm(const FocusSettings& focus, std::span<const double> model, std::span<const float> depthWeight);

}  // namespace voxlith
