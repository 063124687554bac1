// The header of a sensitivity file of any form, as the companion tools show it.
#include "cli/info_command.h"
#include "harness.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("g.mtx");
    file.set(std::span(data, size));
    fuzzing::allowStops([&] { fuzzing::require(!describeMtxFile(file.name()).empty(), "a good file is described"); });
    return 0;
}
