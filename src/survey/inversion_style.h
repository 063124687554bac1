// Inversion styles: what a column of the model stands for. The code is stored in sensitivity files of version 2 and is
// derived from the padded mesh otherwise.
//
// A file may hold any code. Codes without a name count as standard 3D, except that they have no differences along z.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace voxlith {

enum class InversionStyle : std::int32_t {
    standard = 0,                   // 3-D model
    equivalentSource = 1,           // one layer of sources
    apparentDensity = 2,            // one property per column
    surfaceAndApparentDensity = 3,  // surface layer, and one property for everything below it
    edgePadding = 4,                // 3-D model with edge padding correction
};

constexpr std::int32_t codeOf(InversionStyle style) {
    return static_cast<std::int32_t>(style);
}

constexpr bool isSurfaceStyle(InversionStyle style) {
    return style == InversionStyle::equivalentSource || style == InversionStyle::apparentDensity ||
           style == InversionStyle::surfaceAndApparentDensity;
}

// The styles whose sensitivities cover all layers of the mesh.
constexpr bool coversWholeMesh(InversionStyle style) {
    return style == InversionStyle::standard || style == InversionStyle::edgePadding;
}

// Whether the model norm has differences along z.
constexpr bool hasVerticalTerms(InversionStyle style) {
    return coversWholeMesh(style);
}

// The styles whose written models repeat a value down the column.
constexpr bool hasUniformColumns(InversionStyle style) {
    return style == InversionStyle::apparentDensity || style == InversionStyle::surfaceAndApparentDensity;
}

// The styles whose runs end with a table of one density per station.
constexpr bool hasApparentDensityTable(InversionStyle style) {
    return style == InversionStyle::equivalentSource || style == InversionStyle::apparentDensity;
}

// Cells at the top of each column of nz cells that the inversion may change.
constexpr std::size_t freeCellsPerColumn(InversionStyle style, std::size_t nz) {
    // Compatibility: a surface style frees as many cells as its code says, one more than its written model shows.
    return isSurfaceStyle(style) ? std::min(static_cast<std::size_t>(codeOf(style)), nz) : nz;
}

// Cells at the top of each column of nz cells that a written model shows as they are; the last of them is repeated
// below.
constexpr std::size_t writtenCellsPerColumn(InversionStyle style, std::size_t nz) {
    switch (style) {
        case InversionStyle::apparentDensity:
            return std::min<std::size_t>(1, nz);
        case InversionStyle::surfaceAndApparentDensity:
            return std::min<std::size_t>(2, nz);
        default:
            return nz;
    }
}

// The style of files that store none: fewer padded layers than mesh layers make a surface style.
constexpr InversionStyle styleOfLayers(std::int32_t npz, std::int32_t nz) {
    if (npz >= nz) {
        return InversionStyle::standard;
    }
    return npz == 1 ? InversionStyle::equivalentSource : InversionStyle::surfaceAndApparentDensity;
}

}  // namespace voxlith
