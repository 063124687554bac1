// Sensitivity files of the bare form, one, or two of a joint run.
#include <cstddef>

#include "mtx_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    voxlith::fuzzing::runMtxInput({data, size}, {});
    return 0;
}
