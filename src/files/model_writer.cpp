#include <algorithm>
#include <array>
#include <cstddef>

#include "files/model_file.h"
#include "text/exponent_lines.h"
#include "text/output_file.h"

namespace voxlith {

namespace {

constexpr std::size_t linesAtOnce = 1024;  // within the room that the output buffer promises

// The values of one column and the weights to divide them by; no weights, no division.
struct Column {
    std::span<const double> value;
    std::span<const float> weight;
};

double cellValue(const Column& column, std::size_t k) {
    return column.weight.empty() ? column.value[k] : column.value[k] / static_cast<double>(column.weight[k]);
}

void writeCells(OutputFile& file, const Column& column, std::size_t first, std::size_t behind) {
    std::array<double, linesAtOnce> divided;
    while (first < behind) {
        const std::size_t count = std::min(behind - first, linesAtOnce);
        std::span<const double> values = column.value.subspan(first, count);
        if (!column.weight.empty()) {
            for (std::size_t n = 0; n < count; ++n) {
                divided[n] = cellValue(column, first + n);
            }
            values = std::span<const double>(divided).first(count);
        }
        char* const start = reserveOutput(file, exponentLinesRoom(count));
        commitOutput(file, static_cast<std::size_t>(putExponentLines(start, values) - start));
        first += count;
    }
}

void writeRepeated(OutputFile& file, double value, std::size_t count) {
    std::array<char, exponentLinesRoom(1)> line;
    putExponentLines(line.data(), std::span(&value, 1));
    for (; count > 0; --count) {
        appendOutput(file, std::string_view(line.data(), exponentLineBytes));
    }
}

// The surface styles invert one or two layers; a file of theirs shows the deepest of them all the way down.
void writeColumn(OutputFile& file, const Column& column, std::int32_t inversionStyle) {
    const std::size_t nz = column.value.size();
    const std::size_t ownLayers = inversionStyle == 2 ? 1 : inversionStyle == 3 ? 2 : nz;
    writeCells(file, column, 0, std::min(ownLayers, nz));
    if (nz > ownLayers) {
        writeRepeated(file, cellValue(column, ownLayers - 1), nz - ownLayers);
    }
}

}  // namespace

void writeModelFile(std::string_view fileName, const MeshGeometry& mesh, std::int32_t modelType,
                    std::span<const double> source, std::span<const float> depthWeight, bool foldDepthWeight,
                    std::int32_t inversionStyle) {
    const std::size_t cells = mesh.cellCount();
    const std::size_t nz = static_cast<std::size_t>(mesh.nz);
    const std::span<const double> values = source.subspan(static_cast<std::size_t>(modelType) * cells, cells);
    OutputFile file;
    openOutputFile(file, fileName);
    for (std::size_t first = 0; first < cells; first += nz) {
        const std::span<const float> weight =
            foldDepthWeight ? depthWeight.subspan(first, nz) : std::span<const float>();
        writeColumn(file, Column{values.subspan(first, nz), weight}, inversionStyle);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
