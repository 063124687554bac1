#include "preparation/mesh_plan.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "base/messages.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

// Of a padded array whose rows stay below 2 GiB: what a sensitivity file can have.
constexpr double mostCells = 268435455.0;  // 2147483647 bytes of eight-byte coefficients

[[noreturn]] void throwTooMany(const std::string& axis) {
    throw RunError("the mesh would have too many cells " + axis + ": expected at most " + numberText(mostCells) +
                   " in all; larger cells or less depth or padding are needed");
}

// To four significant digits, as a person would write a width.
double roundedWidth(double width) {
    if (!(width > 0) || !std::isfinite(width)) {
        throw RunError("the padding cells grow beyond what can be written: expected a smaller factor or fewer cells");
    }
    const double scale = std::pow(10.0, 3.0 - std::floor(std::log10(width)));
    const double rounded = std::round(width * scale) / scale;
    return std::isfinite(rounded) && rounded > 0 ? rounded : width;
}

std::int32_t cellsFor(double length, double width, const std::string& axis) {
    constexpr double slack = 1.0e-9;  // a length of ten widths and a rounding error is ten cells
    const double cells = std::max(1.0, std::ceil(length / width - slack));
    if (!(cells <= mostCells)) {
        throwTooMany(axis);
    }
    return static_cast<std::int32_t>(cells);
}

std::vector<double> paddingWidths(const PaddingPlan& plan, double innermost, const std::string& axis) {
    std::vector<double> widths;
    double width = innermost;
    double covered = 0;
    const auto wanted = [&] {
        return plan.cells >= 0 ? widths.size() < static_cast<std::size_t>(plan.cells) : covered < plan.distance;
    };
    while (wanted()) {
        width = plan.factor == 1.0 ? innermost : roundedWidth(width * plan.factor);
        covered += width;
        widths.push_back(width);
        if (static_cast<double>(widths.size()) > mostCells) {
            throwTooMany(axis);
        }
    }
    return widths;
}

std::vector<double> layerWidths(const MeshPlan& plan) {
    if (plan.layerFactor == 1.0) {
        const std::int32_t layers = cellsFor(plan.depth, plan.cell[2], "downwards");
        return std::vector<double>(static_cast<std::size_t>(layers), plan.cell[2]);
    }
    const double first = plan.cell[2];
    std::vector<double> widths{first};
    PaddingPlan growing;
    growing.factor = plan.layerFactor;
    growing.distance = plan.depth - first * (1.0 + 1.0e-9);
    const std::vector<double> rest = paddingWidths(growing, first, "downwards");
    widths.insert(widths.end(), rest.begin(), rest.end());
    return widths;
}

// Widths along a horizontal axis and where they begin.
std::vector<double> sideWidths(const MeshPlan& plan, const Extent& extent, double cell, const std::string& axis,
                               Extent& core, std::int32_t& coreCells, double& start) {
    const std::int32_t cells = cellsFor(extent.most - extent.least, cell, axis);
    coreCells = cells;
    const std::vector<double> padding = paddingWidths(plan.sides, cell, axis);
    std::vector<double> widths(padding.rbegin(), padding.rend());
    widths.insert(widths.end(), static_cast<std::size_t>(cells), cell);
    widths.insert(widths.end(), padding.begin(), padding.end());
    const double length = cells * cell;
    core.least = extent.least - 0.5 * (length - (extent.most - extent.least));
    core.most = core.least + length;
    start = plainCoordinate(core.least - std::accumulate(padding.begin(), padding.end(), 0.0));
    return widths;
}

// The nodes that readers make of the numbers must rise.
void checkNodes(double start, const std::vector<double>& widths, const std::string& axis) {
    double node = start;
    for (const double width : widths) {
        const double next = node + width;
        if (!std::isfinite(next) || !(next > node)) {
            throw RunError("a cell of width " + numberText(width) + " " + axis + " does not move the node at " +
                           numberText(node));
        }
        node = next;
    }
}

void appendWidths(std::string& text, const std::vector<double>& widths) {
    constexpr std::size_t lineLength = 100;
    std::string line;
    for (std::size_t n = 0; n < widths.size();) {
        std::size_t end = n;
        while (end < widths.size() && widths[end] == widths[n]) {
            ++end;
        }
        const std::string width = numberText(widths[n]);
        const std::string word = end - n > 1 ? std::to_string(end - n) + "*" + width : width;
        if (!line.empty() && line.size() + 1 + word.size() > lineLength) {
            text += line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
        n = end;
    }
    text += line + "\n";
}

}  // namespace

MeshWidths planMesh(const MeshPlan& plan) {
    MeshWidths mesh;
    mesh.east = sideWidths(plan, plan.east, plan.cell[0], "to the east", mesh.coreEast, mesh.coreCells[0], mesh.west);
    mesh.north =
        sideWidths(plan, plan.north, plan.cell[1], "to the north", mesh.coreNorth, mesh.coreCells[1], mesh.south);
    mesh.down = layerWidths(plan);
    mesh.top = plan.top;
    mesh.coreCells[2] = static_cast<std::int32_t>(mesh.down.size());
    mesh.coreElevation = {mesh.top - std::accumulate(mesh.down.begin(), mesh.down.end(), 0.0), mesh.top};
    const std::vector<double> below = paddingWidths(plan.below, mesh.down.back(), "downwards");
    mesh.down.insert(mesh.down.end(), below.begin(), below.end());
    const auto count = [](const std::vector<double>& widths) { return static_cast<double>(widths.size()); };
    if (count(mesh.east) * count(mesh.north) * count(mesh.down) > mostCells) {
        throwTooMany("in all");
    }
    checkNodes(mesh.west, mesh.east, "to the east");
    checkNodes(mesh.south, mesh.north, "to the north");
    checkNodes(mesh.top == 0.0 ? 0.0 : -mesh.top, mesh.down, "downwards");
    return mesh;
}

double plainCoordinate(double value) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.12g", value);
    return parseNumber(text.data()).value_or(value);
}

std::string meshFileText(const MeshWidths& mesh) {
    std::string text = std::to_string(mesh.east.size()) + " " + std::to_string(mesh.north.size()) + " " +
                       std::to_string(mesh.down.size()) + " ! cells to the east, to the north, downwards\n";
    text += numberText(mesh.west) + " " + numberText(mesh.south) + " " + numberText(mesh.top) +
            " ! top south-west corner: easting, northing, elevation\n";
    for (const auto* widths : {&mesh.east, &mesh.north, &mesh.down}) {
        appendWidths(text, *widths);
    }
    return text;
}

}  // namespace voxlith
