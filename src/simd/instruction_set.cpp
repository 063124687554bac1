#include "simd/instruction_set.h"

#include <algorithm>
#include <atomic>

#ifndef VOXLITH_WIDEST
#define VOXLITH_WIDEST avx512
#endif

namespace voxlith {

namespace {

InstructionSet machineInstructionSet() {
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

InstructionSet limitedTo(InstructionSet limit) {
    return std::min({limit, InstructionSet::VOXLITH_WIDEST, machineInstructionSet()});
}

std::atomic<InstructionSet>& widestSet() {
    static std::atomic<InstructionSet> widest = limitedTo(InstructionSet::avx512);
    return widest;
}

}  // namespace

InstructionSet widestInstructionSet() {
    return widestSet().load(std::memory_order_relaxed);
}

void limitInstructionSet(InstructionSet limit) {
    widestSet() = limitedTo(limit);
}

}  // namespace voxlith
