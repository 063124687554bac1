#include "simd/instruction_set.h"

#include <algorithm>

#ifndef VOXLITH_WIDEST
#define VOXLITH_WIDEST avx512
#endif

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

}  // namespace

InstructionSet widestInstructionSet() {
    static const InstructionSet widest = std::min(instructionsOfMachine(), InstructionSet::VOXLITH_WIDEST);
    return widest;
}

}  // namespace voxlith
