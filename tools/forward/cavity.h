// What a sensor inside a cell measures depends on the shape of the cavity in which it is.
//
// In a uniformly magnetised rock with the field H and the magnetisation M, all in the unit of B, a small cavity has the
// field H + L M. L is the demagnetisation tensor of the cavity, symmetric with the trace 1 (Thomson 1872, Reprint of
// Papers on Electrostatics and Magnetism; Blakely 1995, Potential Theory in Gravity and Magnetic Applications, section
// 5.3): 0 along a needle-shaped cavity, 1 across a disc, 1/3 in a sphere, and 1/2 across a long cylinder. Gravity
// gradients change in the same way with the density: the cavity holds none.
#pragma once

#include "forward/response_weights.h"
#include "forward/survey_type.h"

namespace voxlith {

// The tensor L.
struct CavityShares {
    double xx = 0, yy = 0, zz = 0;
    double xy = 0, xz = 0, yz = 0;
};

// A sphere, and a disc across the magnetisation, in which the field is the flux density B of the rock. The default, all
// 0, is a needle along the magnetisation: the field H of the rock.
constexpr CavityShares sphericalCavity{1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0, 0, 0, 0};
constexpr CavityShares discCavity{1, 1, 1, 0, 0, 0};

// A long hole along this axis: half of the component of M across it.
CavityShares boreholeCavity(const FieldDirection& axis);

// ResponseWeights::cavity for a datum with these weights.
double cavityWeight(const ResponseWeights& weights, const CavityShares& shares);

}  // namespace voxlith
