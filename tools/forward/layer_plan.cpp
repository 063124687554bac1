#include "forward/layer_plan.h"

#include <bit>
#include <string>

#include "base/messages.h"

namespace voxlith {

namespace {

// Axes up to this extent are not transformed and need no power of two.
constexpr std::int32_t longestUntransformedAxis = 4;
constexpr std::int32_t largestExtent = 1 << 30;

std::int32_t paddedCount(std::int32_t cells) {
    if (cells > largestExtent) {
        throw RunError("an axis of " + std::to_string(cells) + " cells is too long to be padded");
    }
    return static_cast<std::int32_t>(std::bit_ceil(static_cast<std::uint32_t>(cells)));
}

std::int32_t wantedLayers(const LayerOptions& options, std::int32_t nz) {
    if (options.layers > 0) {
        return options.layers;
    }
    if (!options.style || !isSurfaceStyle(*options.style)) {
        return nz;
    }
    return options.style == InversionStyle::surfaceAndApparentDensity && nz > 1 ? 2 : 1;
}

void checkLayers(std::int32_t layers, std::optional<InversionStyle> style, std::int32_t nz) {
    const std::string option = "--layers " + std::to_string(layers);
    if (layers > nz) {
        throw RunError(option + ": the mesh has " + std::to_string(nz) + " layers");
    }
    if (layers < nz && layers > longestUntransformedAxis && !std::has_single_bit(static_cast<std::uint32_t>(layers))) {
        throw RunError(option + ": expected at most 4, a power of two, or all " + std::to_string(nz) + " layers");
    }
    if (layers < nz && style && coversWholeMesh(*style)) {
        throw RunError(option + ": style " + std::to_string(codeOf(*style)) + " covers all " + std::to_string(nz) +
                       " layers of the mesh");
    }
}

}  // namespace

LayerPlan planLayers(const LayerOptions& options, bool storesStyle, MeshGeometry& mesh) {
    const std::int32_t layers = wantedLayers(options, mesh.nz);
    checkLayers(layers, options.style, mesh.nz);
    mesh.npx = paddedCount(mesh.nx);
    mesh.npy = paddedCount(mesh.ny);
    mesh.npz = layers < mesh.nz ? layers : paddedCount(mesh.nz);
    mesh.nzl = layers;
    LayerPlan plan;
    const InversionStyle derivedStyle = styleOfLayers(mesh.npz, mesh.nz);
    plan.inversionStyle = options.style.value_or(derivedStyle);
    if (plan.inversionStyle != derivedStyle && !storesStyle) {
        throw RunError("--style " + std::to_string(codeOf(plan.inversionStyle)) +
                       ": only the tagged form, version 2, stores the style; this file would be read as style " +
                       std::to_string(codeOf(derivedStyle)));
    }
    const bool columns = hasUniformColumns(plan.inversionStyle);
    plan.sumBelow = columns && layers < mesh.nz;
    plan.shownWhole =
        !columns || mesh.nz == 1 || static_cast<std::size_t>(layers) == writtenCellsPerColumn(plan.inversionStyle, 2);
    return plan;
}

}  // namespace voxlith
