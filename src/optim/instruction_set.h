// Which vector instructions the kernels may use. Every kernel gives the same bytes with each of them.
#pragma once

namespace voxlith {

enum class InstructionSet { plain, avx2, avx512 };

// The widest that this machine has.
InstructionSet widestInstructionSet();

}  // namespace voxlith
