#include "formats/weight_file.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/tokens.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

constexpr double differenceFactor = 1.0e8;  // (10 km)^2: a weight of 1 balances value and slope at this length

// One section of the weights: the cells (k, i, j) below the three counts.
struct Section {
    std::vector<float>& weight;
    std::size_t nz, nx, ny;
    float alpha;
    double factor;
    std::string_view content;  // for messages

    bool isEmpty() const { return nz == 0 || nx == 0 || ny == 0; }
};

// Part of a column of the section.
std::span<float> columnOf(const Section& section, const MeshGeometry& mesh, std::size_t i, std::size_t j) {
    return std::span(section.weight).subspan(mesh.cellIndex(0, i, j), section.nz);
}

// Compatibility: only the first four characters count, so a file called nullmodel.dat counts as null too.
bool isNullName(const std::string& name) {
    return isBlank(name) || startsWithNull(trim(name));
}

void openWeightFile(Messages& messages, const std::string& name, TextInput& input) {
    if (!openTextInput(input, fileNameOf(name))) {
        fatalStop(messages, " File " + std::string(trimRight(name)) + " not found");
    }
}

void fillWithOnes(const Section& section, const MeshGeometry& mesh) {
    for (std::size_t j = 0; j < section.ny; ++j) {
        for (std::size_t i = 0; i < section.nx; ++i) {
            std::ranges::fill(columnOf(section, mesh, i, j), 1.0F);
        }
    }
}

// A section without values consumes no line of the file.
void readSection(TextInput& input, const Section& section, const MeshGeometry& mesh) {
    if (section.isEmpty()) {
        return;
    }
    FreeFormatRead read = beginFreeFormatRead(input);
    for (std::size_t j = 0; j < section.ny; ++j) {
        for (std::size_t i = 0; i < section.nx; ++i) {
            if (readValues(read, columnOf(section, mesh, i, j)) != ReadStatus::good) {
                throwReadError(read, section.content);
            }
        }
    }
    endFreeFormatRead(read);
}

// From the weights of a section to factors of the model norm: weight alpha times cell volume over mesh volume.
void scaleSection(const Section& section, const MeshGeometry& mesh, double meshVolume) {
    for (std::size_t j = 0; j < section.ny; ++j) {
        for (std::size_t i = 0; i < section.nx; ++i) {
            const std::span<float> column = columnOf(section, mesh, i, j);
            const double area = section.factor * mesh.yWidth[j] * mesh.xWidth[i];
            for (std::size_t k = 0; k < section.nz; ++k) {
                const float weighted = column[k] * section.alpha;
                column[k] = static_cast<float>(area * mesh.zWidth[k] * static_cast<double>(weighted) / meshVolume);
            }
        }
    }
}

void dropAlphasWithoutDifferences(InversionStyle inversionStyle, const MeshGeometry& mesh, Alphas& alphas) {
    if (mesh.ny == 1) {
        alphas.alphaN = 0.0F;
    }
    if (mesh.nx == 1) {
        alphas.alphaE = 0.0F;
    }
    if (mesh.nz == 1 || isSurfaceStyle(inversionStyle)) {
        alphas.alphaZ = 0.0F;
    }
}

// Negative where the nodes of one or three axes fall.
double volumeOf(const MeshGeometry& mesh) {
    return (mesh.xNode.back() - mesh.xNode.front()) * (mesh.zNode.back() - mesh.zNode.front()) *
           (mesh.yNode.back() - mesh.yNode.front());
}

}  // namespace

void readWeightFiles(Messages& messages, InversionStyle inversionStyle, Alphas& alphas, std::int32_t nWeightFiles,
                     std::span<const std::string> names, const MeshGeometry& mesh, SmoothnessWeights& weights) {
    assert((nWeightFiles == 1 || nWeightFiles == maxWeightFiles) &&
           names.size() >= static_cast<std::size_t>(nWeightFiles));
    assert(weights.wtS.size() == mesh.cellCount() && weights.wtE.size() == mesh.cellCount());
    assert(weights.wtN.size() == mesh.cellCount() && weights.wtZ.size() == mesh.cellCount());
    dropAlphasWithoutDifferences(inversionStyle, mesh, alphas);
    const double meshVolume = volumeOf(mesh);
    const std::size_t nx = static_cast<std::size_t>(mesh.nx);
    const std::size_t ny = static_cast<std::size_t>(mesh.ny);
    const std::size_t nz = static_cast<std::size_t>(mesh.nz);
    const Section sections[] = {
        {weights.wtS, nz, nx, ny, alphas.alphaS, 1.0, "a weight of the smallest model"},
        {weights.wtE, nz, nx - 1, ny, alphas.alphaE, differenceFactor, "a weight of the x differences"},
        {weights.wtN, nz, nx, ny - 1, alphas.alphaN, differenceFactor, "a weight of the y differences"},
        {weights.wtZ, nz - 1, nx, ny, alphas.alphaZ, differenceFactor, "a weight of the z differences"},
    };
    // One file holds all sections in sequence; of four, each holds one.
    TextInput input;
    for (std::size_t part = 0; part < std::size(sections); ++part) {
        const Section& section = sections[part];
        const bool ownFile = nWeightFiles > 1;
        const std::string& name = names[ownFile ? part : 0];
        if (isNullName(name)) {
            fillWithOnes(section, mesh);
        } else {
            if (ownFile || part == 0) {
                openWeightFile(messages, name, input);
            }
            readSection(input, section, mesh);
        }
        scaleSection(section, mesh, meshVolume);
    }
}

}  // namespace voxlith
