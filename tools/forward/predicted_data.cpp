#include "forward/predicted_data.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <string>

#include "base/messages.h"
#include "forward/ordered_pipeline.h"
#include "forward/prism.h"
#include "forward/progress_line.h"

namespace voxlith {

namespace {

constexpr double deviationWithoutNoise = 1.0e-3;  // of the largest datum
constexpr double smallestDeviation = 1.0e-6;      // of the largest datum: 0 would mean that there is none

// One normally distributed number (Box and Muller 1958, Annals of Mathematical Statistics 29, 610-611). The
// distribution of the standard library differs between libraries.
double normalDeviate(std::mt19937_64& generator) {
    constexpr double step = 1.0 / 9007199254740992.0;  // 2^-53
    const double first = (static_cast<double>(generator() >> 11U) + 0.5) * step;
    const double second = static_cast<double>(generator() >> 11U) * step;
    return std::sqrt(-2.0 * std::log(first)) * std::cos(2.0 * std::numbers::pi * second);
}

void copyStations(const Survey& survey, ObsSet& obs) {
    obs.nData = static_cast<std::int32_t>(survey.stations.size());
    obs.nDataTypes = 1;
    obs.dataType[0] = survey.type;
    for (const Station& station : survey.stations) {
        obs.ObsX.push_back(station.point.x);
        obs.ObsY.push_back(station.point.y);
        obs.ObsZ.push_back(station.elevation);
    }
    for (const FieldDirection& direction : survey.measuredHere) {
        obs.obsIncl.push_back(static_cast<float>(direction.incl));
        obs.obsDecl.push_back(static_cast<float>(direction.decl));
    }
    obs.incl = static_cast<float>(survey.field.direction.incl);
    obs.decl = static_cast<float>(survey.field.direction.decl);
    obs.geomag = static_cast<float>(survey.field.strength);
    obs.aincl = static_cast<float>(survey.measured.incl);
    obs.adecl = static_cast<float>(survey.measured.decl);
    obs.idir = survey.measuredHere.empty() ? 1 : survey.idir;
}

// Work memory of one station.
struct StationWork {
    PrismWork prisms;
    std::vector<double> cells;
    double datum = 0;
};

void computeDatum(const Survey& survey, std::span<const double> model, std::size_t station, StationWork& work) {
    work.cells.resize(survey.mesh.cellCount());
    meshResponses(survey.mesh, survey.stations[station].point, weightsOfStation(survey, station), survey.edgeDistance,
                  work.prisms, work.cells);
    clearInactive(survey.ground, survey.mesh.zCentre.size(), work.cells);
    work.datum = 0;
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        work.datum += work.cells[cell] * model[cell];
    }
}

}  // namespace

std::vector<double> predictData(const Survey& survey, std::span<const double> model, std::size_t threads) {
    const std::size_t count = survey.stations.size();
    std::vector<double> data;
    std::vector<StationWork> work(std::min(threads, count));
    ProgressLine progress("stations", count);
    computeInOrder(
        count, work.size(),
        [&](std::size_t slot, std::size_t station) { computeDatum(survey, model, station, work[slot]); },
        [&](std::size_t slot, std::size_t station) {
            if (!(std::abs(work[slot].datum) <= static_cast<double>(std::numeric_limits<float>::max()))) {
                throw RunError("station " + std::to_string(station + 1) + ": the datum is too large to be written");
            }
            data.push_back(work[slot].datum);
            progress.show(station + 1);
        });
    return data;
}

void fillObservedData(const Survey& survey, std::span<const double> data, const std::optional<Noise>& noise,
                      std::uint64_t seed, ObsSet& obs) {
    copyStations(survey, obs);
    double largest = 0;
    for (const double datum : data) {
        largest = std::max(largest, std::abs(datum));
    }
    const double scale = largest > 0 ? largest : 1.0;
    std::mt19937_64 generator(seed);
    for (const double datum : data) {
        const double wanted = noise ? noise->percent * std::abs(datum) / 100.0 + noise->floor : 0.0;
        const double least = (noise ? smallestDeviation : deviationWithoutNoise) * scale;
        const auto deviation = static_cast<float>(std::max(wanted, least));
        const double noisy = noise ? datum + wanted * normalDeviate(generator) : datum;
        obs.obsStd.push_back(deviation);
        obs.obsData.push_back(noisy / static_cast<double>(deviation));
    }
}

}  // namespace voxlith
