// Which vector instructions the kernels may use. Every kernel gives the same bytes with each of them.
#pragma once

namespace voxlith {

enum class InstructionSet { plain, avx2, avx512 };

// The widest that this machine has. Builds for comparing whole runs hold it to narrower ones: there VOXLITH_WIDEST is
// plain or avx2 when instruction_set.cpp is compiled.
InstructionSet widestInstructionSet();

}  // namespace voxlith
