// Data types, by the codes of the sensitivity files: their names, and the two rules by which they count as magnetic.
//
// A file may hold any code. Codes without a name count as Gz.
#pragma once

#include <cstdint>
#include <string_view>

namespace voxlith {

constexpr int maxFiles = 6;  // sensitivity files, data types and model types of a run
constexpr int maxWeightFiles = 4;

enum class DataType : std::int32_t {
    gz = 0,             // vertical gravity, mGal
    totalMagnetic = 1,  // total field anomaly, nT
    gzz = 2,            // gravity gradients, Eotvos
    vka = 3,
    vkc = 4,
    gne = 5,
    guv = 6,
    gxx = 10,
    gyy = 11,
    tensorGzz = 12,
    gxy = 13,
    gxz = 14,
    gyz = 15,
    tx = 20,  // components of the magnetic field, nT
    ty = 21,
    tz = 22,
};

constexpr std::int32_t codeOf(DataType type) {
    return static_cast<std::int32_t>(type);
}

// "Gz", "TMI", ...
std::string_view dataTypeName(DataType type);

// Data of the magnetic field, whose models are susceptibilities.
constexpr bool isMagnetic(DataType type) {
    return type == DataType::totalMagnetic || type == DataType::tx || type == DataType::ty || type == DataType::tz;
}

// The rule for layouts and names of files.
constexpr bool hasMagneticLayout(DataType type) {
    // Compatibility: every code from 20 on has the magnetic layout, also those that are no magnetic data type.
    return type == DataType::totalMagnetic || codeOf(type) >= codeOf(DataType::tx);
}

}  // namespace voxlith
