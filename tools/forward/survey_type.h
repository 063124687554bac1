// The kinds of data that the tools can work out: codes, names, units, and how each is made of the derivatives of the
// potential.
//
//   0         gz                        vertical attraction, positive downwards, mGal for 1 g/cm3
//   2, 12     gzz                       gradients, Eotvos for 1 g/cm3; x east, y north, z down, so that gzz is positive
//   10, 11    gxx, gyy                  above a dense body and gxz is the change of the downward attraction to the east
//   13 to 15  gxy, gxz, gyz
//   1         tmi                       anomalous field along the measured direction, nT for a susceptibility of 1 SI
//   20 to 22  tx, ty, tz                anomalous field to the east, to the north and down, nT for 1 SI
//
// Magnetisation is induced alone, along the inducing field. Inclinations are positive downwards, declinations clockwise
// from north.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "forward/prism.h"

namespace voxlith {

struct FieldDirection {
    double incl = 0, decl = 0;  // degrees
};

struct InducingField {
    FieldDirection direction;
    double strength = 0;  // nT
};

// Whether a strength may be that of the field of the Earth, of 22000 to 67000 nT: not in another unit, and no other
// number of the field line.
bool isStrengthOfTheEarth(double strength);

// The code that a name (any case) or a number stands for. Throws RunError with the list of all known ones.
std::int32_t surveyTypeCode(const std::string& text);

bool isMagneticSurvey(std::int32_t code);
std::string_view surveyUnit(std::int32_t code);

// Weights for one datum of a known code. Field and measured direction count for magnetic codes alone.
ResponseWeights responseWeights(std::int32_t code, const InducingField& field, const FieldDirection& measured);

}  // namespace voxlith
