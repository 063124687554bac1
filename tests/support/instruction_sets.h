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

// Kernels use no wider set than this as long as the object exists.
struct InstructionSetLimit {
    explicit InstructionSetLimit(InstructionSet limit) { limitInstructionSet(limit); }
    ~InstructionSetLimit() { limitInstructionSet(InstructionSet::avx512); }
    InstructionSetLimit(const InstructionSetLimit&) = delete;
    InstructionSetLimit& operator=(const InstructionSetLimit&) = delete;
};

}  // namespace voxlith::testing_support
