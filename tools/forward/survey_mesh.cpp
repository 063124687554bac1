#include "forward/survey_mesh.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "base/messages.h"
#include "base/text_input.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

constexpr std::size_t longestLine = 1000000;

// The words of the file one by one, comments left out, with the line of the last one.
struct MeshWords {
    TextInput input;
    std::string line;
    std::vector<std::string_view> words;  // of `line`
    std::size_t next = 0;
    std::int64_t lineNumber = 0;
};

// Makes words available. False at the end of the file.
bool fillWords(MeshWords& source) {
    while (source.next == source.words.size()) {
        source.lineNumber = source.input.lineNumber;
        if (!readLine(source.input, source.line, longestLine + 1)) {
            return false;
        }
        if (source.line.size() > longestLine) {
            throw RunError(source.input.name + ", line " + std::to_string(source.lineNumber) +
                           ": expected a line of at most " + std::to_string(longestLine) + " characters");
        }
        source.line.resize(std::min(source.line.size(), source.line.find('!')));
        source.words = splitWords(source.line);
        source.next = 0;
    }
    return true;
}

[[noreturn]] void throwExpected(const MeshWords& source, const std::string& expected, std::string_view found) {
    throw RunError(source.input.name + ", line " + std::to_string(source.lineNumber) + ": expected " + expected +
                   ", found " + std::string(found));
}

std::string_view nextWord(MeshWords& source, const std::string& expected) {
    if (!fillWords(source)) {
        throwExpected(source, expected, "the end of the file");
    }
    return source.words[source.next++];
}

std::int32_t nextCount(MeshWords& source, const std::string& expected) {
    const std::string_view word = nextWord(source, expected);
    const std::optional<std::int32_t> count = parseInteger(word);
    if (!count || *count < 1) {
        throwExpected(source, expected, word);
    }
    return *count;
}

double nextNumber(MeshWords& source, const std::string& expected) {
    const std::string_view word = nextWord(source, expected);
    const std::optional<double> number = parseNumber(word);
    if (!number) {
        throwExpected(source, expected, word);
    }
    return *number;
}

// Nodes from the first one and `count` widths.
std::vector<double> readNodes(MeshWords& source, std::int32_t count, double first, const std::string& axis) {
    const std::string expected = std::to_string(count) + " cell widths above 0 " + axis;
    std::vector<double> nodes{first};
    std::int64_t missing = count;
    while (missing > 0) {
        const std::string_view word = nextWord(source, expected);
        const std::size_t star = word.find('*');
        const bool repeated = star != std::string_view::npos;
        const std::optional<std::int32_t> repeats = repeated ? parseInteger(word.substr(0, star)) : 1;
        const std::optional<double> width = parseNumber(repeated ? word.substr(star + 1) : word);
        if (!repeats || !width || *repeats < 1 || *width <= 0) {
            throwExpected(source, expected, word);
        }
        if (*repeats > missing) {
            throwExpected(source, std::to_string(missing) + " more cell widths " + axis, word);
        }
        for (std::int32_t n = 0; n < *repeats; ++n) {
            const double node = nodes.back() + *width;
            if (!(node > nodes.back()) || !std::isfinite(node)) {
                throwExpected(source, "a width that moves the node at " + numberText(nodes.back()), word);
            }
            nodes.push_back(node);
        }
        missing -= *repeats;
    }
    return nodes;
}

void checkCellCount(const MeshWords& source, const MeshGeometry& mesh) {
    const std::int64_t columns = std::int64_t{mesh.nx} * mesh.ny;
    if (columns > std::numeric_limits<std::int32_t>::max() / mesh.nz) {
        throwExpected(source, "at most 2147483647 cells",
                      std::to_string(mesh.nx) + " x " + std::to_string(mesh.ny) + " x " + std::to_string(mesh.nz));
    }
}

}  // namespace

MeshGeometry readSurveyMesh(const std::string& fileName) {
    MeshWords source;
    if (!openTextInput(source.input, fileName)) {
        throw RunError(fileName + ": the mesh file cannot be opened");
    }
    MeshGeometry mesh;
    mesh.nx = nextCount(source, "the number of cells to the east");
    mesh.ny = nextCount(source, "the number of cells to the north");
    mesh.nz = nextCount(source, "the number of cells downwards");
    checkCellCount(source, mesh);
    mesh.nzl = mesh.nz;
    const double west = nextNumber(source, "the easting of the top south-west corner");
    const double south = nextNumber(source, "the northing of the top south-west corner");
    const double top = nextNumber(source, "the elevation of the top south-west corner");
    mesh.xNode = readNodes(source, mesh.nx, west, "to the east");
    mesh.yNode = readNodes(source, mesh.ny, south, "to the north");
    mesh.zNode = readNodes(source, mesh.nz, top == 0.0 ? 0.0 : -top, "downwards");
    if (fillWords(source)) {
        throwExpected(source, "the end of the file", source.words[source.next]);
    }
    const auto resize = [](std::int32_t count, std::vector<double>& widths, std::vector<double>& centres) {
        widths.resize(static_cast<std::size_t>(count));
        centres.resize(static_cast<std::size_t>(count));
    };
    resize(mesh.nx, mesh.xWidth, mesh.xCentre);
    resize(mesh.ny, mesh.yWidth, mesh.yCentre);
    resize(mesh.nz, mesh.zWidth, mesh.zCentre);
    buildMeshArrays(mesh);
    return mesh;
}

}  // namespace voxlith
