// Compiles the kernels of a module once for each instruction set. A module writes them once, in a file NAME.inl, and
// its NAME.cpp has, after all other includes,
//
//     #define VOXLITH_KERNELS "module/NAME.inl"
//     #include "simd/compile_kernels.h"
//
// NAME.inl stands in namespace voxlith::VOXLITH_SET, where lanes.inl has declared registers and lanes. It ends with
// `kernels`, a constant record of pointers to its functions, whose type NAME.h declares. NAME.cpp hands out
// widestKernels(), the record for this machine.
//
// The target is an attribute of the functions in NAME.inl, not a flag of the compiler: inline functions of other
// headers stay compiled for any machine. With a flag, the linker could give all callers of such a function the copy
// with instructions that a machine may lack.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/instruction_set.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#ifndef VOXLITH_KERNELS
#error "VOXLITH_KERNELS must name the file of the kernels"
#endif

#define VOXLITH_PRAGMA(text) _Pragma(#text)
#if defined(__clang__)
#define VOXLITH_BEGIN_TARGET(set) \
    VOXLITH_PRAGMA(clang attribute push(__attribute__((target(set))), apply_to = function))
#define VOXLITH_END_TARGET VOXLITH_PRAGMA(clang attribute pop)
#else
#define VOXLITH_BEGIN_TARGET(set) VOXLITH_PRAGMA(GCC push_options) VOXLITH_PRAGMA(GCC target(set))
#define VOXLITH_END_TARGET VOXLITH_PRAGMA(GCC pop_options)
#endif

#define VOXLITH_SET plain
#define VOXLITH_REGISTER_BYTES 16
#include "simd/lanes.inl"

#include VOXLITH_KERNELS
#undef VOXLITH_SET
#undef VOXLITH_REGISTER_BYTES

#if defined(__x86_64__)
VOXLITH_BEGIN_TARGET("avx2")
#define VOXLITH_SET avx2
#define VOXLITH_REGISTER_BYTES 32
#include "simd/lanes.inl"

#include VOXLITH_KERNELS
#undef VOXLITH_SET
#undef VOXLITH_REGISTER_BYTES
VOXLITH_END_TARGET

VOXLITH_BEGIN_TARGET("avx512f")
#define VOXLITH_SET avx512
#define VOXLITH_REGISTER_BYTES 64
#include "simd/lanes.inl"

#include VOXLITH_KERNELS
#undef VOXLITH_SET
#undef VOXLITH_REGISTER_BYTES
VOXLITH_END_TARGET
#endif

namespace voxlith {

// Of one translation unit, like everything of the kernels.
namespace {  // NOLINT(cert-dcl59-cpp)

// The records of all sets, in the order of InstructionSet.
#if defined(__x86_64__)
constexpr std::array kernelsOfSets{plain::kernels, avx2::kernels, avx512::kernels};
#else
constexpr std::array kernelsOfSets{plain::kernels};
#endif

const auto& widestKernels() {
    return kernelsOfSets[static_cast<std::size_t>(widestInstructionSet())];
}

}  // namespace

}  // namespace voxlith
