// Sensitivity files of the record form: the first record is one of 20 bytes.
#include <array>
#include <cstddef>

#include "mtx_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::array<std::uint8_t, 4> frame{20, 0, 0, 0};
    voxlith::fuzzing::runMtxInput({data, size}, frame);
    return 0;
}
