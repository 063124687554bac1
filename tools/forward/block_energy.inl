// The kernel of block_energy.h, compiled for each instruction set by simd/compile_kernels.h.
#include "forward/real_registers.inl"

namespace voxlith::VOXLITH_SET {

namespace {

void blockEnergies(const double* values, std::size_t blocks, BlockEnergy* energies) {
    for (std::size_t block = 0; block < blocks; ++block) {
        Lanes squares{};
        Lanes largest{};
        for (std::size_t n = block * energyBlock; n < (block + 1) * energyBlock; n += laneCount) {
            for (std::size_t p = 0; p < Lanes::parts; ++p) {
                const Register magnitude = absolute(loadRegister(values + n + p * registerWidth));
                squares.part[p] += magnitude * magnitude;
                largest.part[p] = magnitude > largest.part[p] ? magnitude : largest.part[p];
            }
        }
        double square[laneCount], magnitude[laneCount];
        storeLanes(squares, square);
        storeLanes(largest, magnitude);
        energies[block].squares =
            ((square[0] + square[1]) + (square[2] + square[3])) + ((square[4] + square[5]) + (square[6] + square[7]));
        energies[block].largest = *std::max_element(magnitude, magnitude + laneCount);
    }
}

constexpr BlockEnergyKernels kernels{blockEnergies};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
