#include <algorithm>
#include <array>
#include <cstddef>

#include "base/output_file.h"
#include "formats/exponent_lines.h"
#include "formats/model_file.h"

namespace voxlith {

namespace {

constexpr std::size_t linesAtOnce = 1024;  // within the room that the output buffer promises

// Values in cell order and the weights to divide them by; no weights, no division.
struct Cells {
    std::span<const double> value;
    std::span<const float> weight;
};

double cellValue(const Cells& cells, std::size_t k) {
    return cells.weight.empty() ? cells.value[k] : cells.value[k] / static_cast<double>(cells.weight[k]);
}

void writeCells(OutputFile& file, const Cells& cells, std::size_t first, std::size_t behind) {
    std::array<double, linesAtOnce> divided;
    while (first < behind) {
        const std::size_t count = std::min(behind - first, linesAtOnce);
        std::span<const double> values = cells.value.subspan(first, count);
        if (!cells.weight.empty()) {
            for (std::size_t n = 0; n < count; ++n) {
                divided[n] = cellValue(cells, first + n);
            }
            values = std::span<const double>(divided).first(count);
        }
        char* const start = reserveOutput(file, exponentLinesSize(count));
        commitOutput(file, static_cast<std::size_t>(putExponentLines(start, values, widestInstructionSet()) - start));
        first += count;
    }
}

void writeRepeated(OutputFile& file, double value, std::size_t count) {
    std::array<char, exponentLinesSize(1)> line;
    putExponentLines(line.data(), std::span(&value, 1), InstructionSet::plain);
    for (; count > 0; --count) {
        appendOutput(file, std::string_view(line.data(), exponentLineBytes));
    }
}

void writeColumns(OutputFile& file, const Cells& all, std::size_t nz, std::size_t ownLayers) {
    for (std::size_t first = 0; first < all.value.size(); first += nz) {
        writeCells(file, all, first, first + ownLayers);
        writeRepeated(file, cellValue(all, first + ownLayers - 1), nz - ownLayers);
    }
}

}  // namespace

void writeModelFile(std::string_view fileName, const MeshGeometry& mesh, std::int32_t modelType,
                    std::span<const double> source, std::span<const float> depthWeight, bool foldDepthWeight,
                    InversionStyle inversionStyle) {
    const std::size_t cells = mesh.cellCount();
    const std::size_t nz = static_cast<std::size_t>(mesh.nz);
    const std::span<const double> values = source.subspan(static_cast<std::size_t>(modelType) * cells, cells);
    OutputFile file;
    openOutputFile(file, fileName);
    expectOutput(file, exponentLineBytes * cells);
    const Cells all{values, foldDepthWeight ? depthWeight.first(cells) : std::span<const float>()};
    const std::size_t ownLayers = writtenCellsPerColumn(inversionStyle, nz);
    if (ownLayers == nz) {
        writeCells(file, all, 0, cells);
    } else {
        writeColumns(file, all, nz, ownLayers);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
