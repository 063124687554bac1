// The test for the downhole form of data files, in which every record carries a direction of its own.
#pragma once

#include "survey/obs_set.h"

namespace voxlith {

inline bool isDownhole(const ObsSet& obs) {
    return obs.idir < 1 && obs.dataType[0] == DataType::totalMagnetic;
}

}  // namespace voxlith
