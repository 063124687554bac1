// The data types that can be computed: codes, names, units, and how each depends on the derivatives of the potential.
//
//   0         gz             vertical attraction, positive downwards, mGal for 1 g/cm3
//   2, 12     gzz            gradients, Eotvos for 1 g/cm3; x east, y north, z down, so that gzz is positive above a
//   10, 11    gxx, gyy       dense body and gxz is the derivative of the downward attraction to the east
//   13 to 15  gxy, gxz, gyz
//   1         tmi            anomalous field along the measured direction, nT for a susceptibility of 1 SI
//   20 to 22  tx, ty, tz     anomalous field to the east, to the north and down, nT for 1 SI
//
// Magnetic cells have a magnetisation of 1 SI times the inducing field, strength / mu0 in A/m, along the field or in
// any other one direction. Inclinations are positive downwards, declinations clockwise from north.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "forward/prism.h"
#include "survey/data_types.h"

namespace voxlith {

struct FieldDirection {
    double incl = 0, decl = 0;  // degrees
};

struct InducingField {
    FieldDirection direction;
    double strength = 0;  // nT
};

// Whether a strength may be that of the Earth's field, 22000 to 67000 nT. It is not when its unit is another one or
// when it is another number of the field line.
bool isStrengthOfTheEarth(double strength);

// The data type of a name (any case) or code. Throws RunError with the list of all known ones.
DataType parseDataType(const std::string& text);

std::string_view unitOf(DataType type);

// Unit vector to the east, to the north and down. Components that are 0 but for rounding are 0.
std::array<double, 3> unitVector(const FieldDirection& direction);

// Weights for one datum of a known data type. Field and measured direction are used for magnetic types only; the
// direction of `field` is that of the magnetisation, its strength scales it.
ResponseWeights responseWeights(DataType type, const InducingField& field, const FieldDirection& measured);

}  // namespace voxlith
