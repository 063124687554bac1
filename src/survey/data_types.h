// Data type codes of the sensitivity files: their names, their classes, and the separate rule by which file layouts are
// chosen.
#pragma once

#include <cstdint>
#include <string_view>

namespace voxlith {

constexpr int maxFiles = 6;  // sensitivity files, data types and model types of a run
constexpr int maxWeightFiles = 4;

// "Gz", "TMI", ...; every code without a name of its own is "Gz".
std::string_view dataTypeName(std::int32_t code);

// 1 magnetic (1, 20, 21, 22), 2 gravity gradients (2 to 6, 10 to 15), 0 all others.
std::int32_t dataClassOf(std::int32_t code);

// 1 for the codes 1, 20, 21, 22, otherwise 0.
std::int32_t isMagneticCode(std::int32_t code);

// The rule for file layouts and names: code 1, or 20 and above. Not the same as the class.
constexpr bool isMagneticLayout(std::int32_t code) {
    return code == 1 || code >= 20;
}

}  // namespace voxlith
