// Passes over the corners of cells that an analytical response is summed from (forward/prism.h). A plane has all
// corners with one y; its arrays have one value per corner in any order, coordinates relative to the station, and a
// whole number of blocks of `cornerBlock` values.
//
// Logarithm and arctangent are polynomials written out here (minimax by interpolation at Chebyshev points), because
// those of mathematical libraries differ between machines. Errors are at most 2 units in the last place. All
// instruction sets give the same bytes.
#pragma once

#include <cstddef>

namespace voxlith {

constexpr std::size_t cornerBlock = 8;

struct CornerKernels {
    // r = sqrt(squares + square)
    void (*distances)(const double* squares, double square, double* r, std::size_t count);

    // sum += factor scale atan(a b / (c r)), where c is 0: nothing. `scale` may be null for 1.
    void (*addAngles)(const double* a, const double* b, const double* c, const double* r, const double* scale,
                      double factor, double* sum, std::size_t count);

    // sum += factor scale ln((|along| + r) inverseAcross) with the sign of `along`; `scale` as above. The argument of
    // the logarithm must be 0 (for a meaningless finite number) or a normal number.
    void (*addLogarithms)(const double* along, const double* r, const double* inverseAcross, const double* scale,
                          double factor, double* sum, std::size_t count);

    // to = north - south
    void (*subtract)(const double* north, const double* south, double* to, std::size_t count);
};

// Those of the widest instruction set in use, see simd/instruction_set.h.
const CornerKernels& cornerKernels();

}  // namespace voxlith
