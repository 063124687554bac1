#include "survey/obs_cleaning.h"

#include <cassert>
#include <cmath>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr float defaultMagneticStd = 1.0F;  // nT
constexpr float defaultGravityStd = 0.01F;  // mGal

void maskOutsideLimits(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, double& datum) {
    if (cleaning.obsClipOn[component] == 1 && isValid(datum) &&
        (datum < cleaning.obsClipMin[component] || datum > cleaning.obsClipMax[component])) {
        datum = dummyValue;
        ++obs.nMasked;
    }
}

}  // namespace

void cleanObserved(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, std::size_t record) {
    assert(obs.index(component, record) < obs.obsData.size());
    double& datum = obs.obsData[obs.index(component, record)];
    float& std = obs.obsStd[obs.index(component, record)];
    maskOutsideLimits(obs, cleaning, component, datum);
    if (!isValid(datum)) {
        std = 0.0F;
        return;
    }
    if (cleaning.dataShift != 0.0F) {
        datum += static_cast<double>(cleaning.dataShift);
    }
    if (!obs.hasStd || !(std > 0.0F)) {
        std = hasMagneticLayout(obs.dataType[0]) ? defaultMagneticStd : defaultGravityStd;
    }
    if (cleaning.misfitPercent >= 0.0F && cleaning.misfitFloor >= 0.0F) {
        std = static_cast<float>(static_cast<double>(cleaning.misfitPercent) * std::fabs(datum) / 100.0 +
                                 static_cast<double>(cleaning.misfitFloor));
    }
    datum /= static_cast<double>(std);
}

void cleanReference(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, std::size_t record) {
    assert(obs.index(component, record) < obs.refData.size());
    double& datum = obs.refData[obs.index(component, record)];
    const float std = obs.obsStd[obs.index(component, record)];
    maskOutsideLimits(obs, cleaning, component, datum);
    datum = isValid(datum) && std > 0.0F ? datum / static_cast<double>(std) : 0.0;
}

}  // namespace voxlith
