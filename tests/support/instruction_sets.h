// The instruction sets that kernels can be run with here.
#pragma once

#include <vector>

#include "simd/instruction_set.h"

namespace voxlith::testing_support {

inline std::vector<InstructionSet> setsOfThisMachine() {
    std::vector<InstructionSet> sets{InstructionSet::plain};
    if (widestInstructionSet() != InstructionSet::plain) {
        sets.push_back(InstructionSet::avx2);
    }
    if (widestInstructionSet() == InstructionSet::avx512) {
        sets.push_back(InstructionSet::avx512);
    }
    return sets;
}

}  // namespace voxlith::testing_support
