// Which vector instructions the kernels use. Every kernel gives the same bytes with each set.
#pragma once

namespace voxlith {

enum class InstructionSet { plain, avx2, avx512 };

// The widest set that this machine has and no limit excludes. A build can set a limit, for comparing whole runs:
// VOXLITH_WIDEST is plain or avx2 when instruction_set.cpp is compiled.
InstructionSet widestInstructionSet();

// From here on `limit` is the widest set, or what the machine has if that is less. For tests that compare the sets; not
// while kernels run in another thread.
void limitInstructionSet(InstructionSet limit);

}  // namespace voxlith
