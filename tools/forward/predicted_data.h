// Data of a model by the prisms directly, without compression, and with noise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "forward/survey.h"
#include "survey/obs_set.h"

namespace voxlith {

// Data of all stations for the model (one value per cell in cell order), in the unit of the data type. Throws RunError
// for a datum too large for the file.
std::vector<double> predictData(const Survey& survey, std::span<const double> model, std::size_t threads);

struct Noise {
    double percent = 0;
    double floor = 0;
};

// An observed data set of the stations of the survey with these data and standard deviations s. With noise,
// s = percent |d| / 100 + floor of the noise-free datum, and each datum gets a normally distributed error of that size
// from a generator started with the seed: the same data for the same seed. Without noise s is a thousandth of the
// largest datum.
void fillObservedData(const Survey& survey, std::span<const double> data, const std::optional<Noise>& noise,
                      std::uint64_t seed, ObsSet& obs);

}  // namespace voxlith
