// Which vector instructions the kernels may use. Every kernel gives the same bytes with each of them.
#pragma once

namespace voxlith {

enum class InstructionSet { plain, avx2, avx512 };

// The widest that this machine has; the environment variable VOXLITH_INSTRUCTIONS, set to "plain" or "avx2" when the program
// starts, holds it to narrower ones, so that whole runs can be compared. Any other value of it counts as not set.
InstructionSet widestInstructionSet();

}  // namespace voxlith
