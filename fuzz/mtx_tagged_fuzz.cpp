// Sensitivity files of the tagged form, one, or two of a joint run.
#include <array>
#include <cstddef>

#include "mtx_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::array<std::uint8_t, 4> magic{'V', 'X', '3', 'D'};
    voxlith::fuzzing::runMtxInput({data, size}, magic);
    return 0;
}
