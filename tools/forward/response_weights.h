// How a datum depends on the derivatives of the potential, and where it is measured.
#pragma once

namespace voxlith {

// The weight of each derivative in a datum.
struct ResponseWeights {
    double z = 0;
    double xx = 0, yy = 0, zz = 0;
    double xy = 0, xz = 0, yz = 0;
    double cavity = 0;  // added inside a cell, times 4 pi: by the cavity around the sensor, see forward/cavity.h
};

struct StationPoint {
    double x = 0, y = 0;  // east, north
    double depth = 0;     // below the origin of elevation: minus the elevation
};

}  // namespace voxlith
