#include "inversion/focus_term.h"

#include <cmath>
#include <cstddef>

namespace voxlith {

void initFocus(FocusSettings& focus) {
    focus.focusScale = 1.0;
}

float focusTerm(const FocusSettings& focus, std::span<const double> model, std::span<const float> depthWeight) {
    constexpr double smallestActiveThreshold = 10000.0;
    const double threshold = focus.focusThreshold;
    if (!(threshold > smallestActiveThreshold))
        return 0.0F;
    const double square = threshold * threshold;
    double sum = 0.0;
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double value = depthWeight.empty() ? model[n] : model[n] / static_cast<double>(depthWeight[n]);
        const double valueSquare = value * value;
        if (std::abs(value) > threshold)
            sum += 1.0;
        else
            sum += 2.0 / square * valueSquare - valueSquare * valueSquare / (square * square);
    }
    return static_cast<float>(sum * focus.focusScale);
}

}  // namespace voxlith
