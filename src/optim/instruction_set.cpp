#include "optim/instruction_set.h"

namespace voxlith {

InstructionSet widestInstructionSet() {
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

}  // namespace voxlith
