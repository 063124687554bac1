#include "optim/instruction_set.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace voxlith {

namespace {

InstructionSet instructionsOfMachine() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f")) {
        return InstructionSet::avx512;
    }
    if (__builtin_cpu_supports("avx2")) {
        return InstructionSet::avx2;
    }
#endif
    return InstructionSet::plain;
}

InstructionSet instructionsAskedFor() {
    const char* const text = std::getenv("VOXLITH_INSTRUCTIONS");
    const std::string_view asked = text == nullptr ? "" : text;
    if (asked == "plain") {
        return InstructionSet::plain;
    }
    return asked == "avx2" ? InstructionSet::avx2 : InstructionSet::avx512;
}

}  // namespace

InstructionSet widestInstructionSet() {
    static const InstructionSet widest = std::min(instructionsOfMachine(), instructionsAskedFor());
    return widest;
}

}  // namespace voxlith
