#include "survey/model_bounds.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

// All values are rounded to single precision, whether a bound clamps them or not: model files have no more digits, so
// that a run that continues from its files starts from the values it ended with.
double projectedValue(Positivity positivity, std::int32_t boundType, double lower, double upper, double value) {
    const float rounded = static_cast<float>(value);
    const double single = static_cast<double>(rounded);
    switch (boundType) {
        case boundNone:
            return isStrict(positivity) && rounded < strictPositiveMinimum ? static_cast<double>(strictPositiveMinimum)
                                                                           : single;
        case boundLower:
            return std::max(single, lower);
        case boundUpper:
            return std::min(single, upper);
        default:
            return std::min(std::max(single, lower), upper);
    }
}

}  // namespace

void projectModel(Positivity positivity, const ModelBounds& bounds, std::span<double> model) {
    assert(bounds.fixedCell.size() >= model.size() && bounds.boundType.size() >= model.size());
    assert(bounds.lowerBound.size() >= model.size() && bounds.upperBound.size() >= model.size());
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        if (bounds.fixedCell[cell] == 0 && isValid(model[cell])) {
            model[cell] = projectedValue(positivity, bounds.boundType[cell], bounds.lowerBound[cell],
                                         bounds.upperBound[cell], model[cell]);
        }
    }
}

}  // namespace voxlith
