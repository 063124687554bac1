// Largest magnitude and sum of squares of each block of a long array, from which the selection of a row's coefficients
// knows at once which blocks have nothing to keep.
#pragma once

#include <cstddef>

namespace voxlith {

constexpr std::size_t energyBlock = 64;

struct BlockEnergy {
    double largest = 0;  // magnitude
    double squares = 0;
};

struct BlockEnergyKernels {
    // Of `blocks` whole blocks. A block with NaN has squares that are NaN. The same bytes with all instruction sets.
    void (*blockEnergies)(const double* values, std::size_t blocks, BlockEnergy* energies);
};

const BlockEnergyKernels& blockEnergyKernels();

}  // namespace voxlith
