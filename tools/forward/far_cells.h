// Responses of cells far from a station by a series about their centres, where the differences of corner terms of
// forward/prism.h would lose their digits and cost more.
//
// The mean of a harmonic function f over a cell with the widths a, b, c is
//     f + sum a^2/24 f_xx + sum (a^4/1920 f_xxxx + a^2 b^2/576 f_xxyy) + ...
// at its centre, sums over the axes and pairs of axes (Blakely 1995, Potential Theory in Gravity and Magnetic
// Applications, section 7.2, for the general expansion). Derivatives to z are replaced by f_zz = -f_xx - f_yy, so that
// a column of cells needs one polynomial in x, y for each power of 1/R, of c^2 and of z.
//
// What is left out is of the sixth order. At `farDistance` times the largest width of the cell it is below 3e-10 of the
// largest response at that distance in any direction; it falls with the sixth power of the distance.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "forward/response_weights.h"

namespace voxlith {

// Distance in plan from the station to the centre of a column, over the largest width of its cells, from which on the
// series is used.
constexpr double farDistance = 30;

// The coefficients as polynomials in x: those of 1/R^(2 k + 1) c^(2 m), k from 1 to 6 and m from 0 to 2, at
// 3 (k - 1) + m, and after farCoefficients / 2 values those that are multiplied by z.
constexpr std::size_t farCoefficients = 48;
constexpr std::size_t farPowers = 7;

struct FarSeries {
    bool even = false, odd = false;  // in z; what is false has coefficients 0
    std::array<std::array<double, farCoefficients>, farPowers> byPower{};
};

// The series of all columns with the widths a along x and b along y whose centres are at `y` from the station.
FarSeries farSeries(const ResponseWeights& weights, double y, double a, double b);

// Layers of a column, relative to the station; in whole blocks of 8, the last filled with any finite layer.
struct FarLayers {
    std::span<const double> centre, width, squaredWidth;
};

struct FarKernels {
    // Responses of a column with its centre at x and at the distance `rho` in plan, of unit property, in whole blocks.
    void (*column)(const FarSeries& series, double x, double squaredRho, double area, const FarLayers& layers,
                   double* cells);
};

const FarKernels& farKernels();

}  // namespace voxlith
