// "voxlith-tools bounds": a bounds file from a model of units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "preparation/bounds_pairs.h"

namespace CLI {
class App;
}

namespace voxlith {

struct BoundsOptions {
    std::string meshFile;
    std::string unitsFile;           // a whole number a cell
    std::string tableFile;           // lines "unit lower upper" or "unit fixed"
    std::vector<std::string> units;  // "unit=lower,upper" or "unit=fixed"
    std::string defaultPair;         // of units without bounds of their own; empty: there must be none
    std::string fixedMask;           // 1 holds a cell, 0 leaves it to its unit
    std::string outFile;
};

struct UnitBounds {
    std::int32_t unit = 0;
    BoundsPair pair;
    std::size_t cells = 0;  // with this unit, held ones not counted
};

struct BoundsReport {
    std::vector<UnitBounds> units;  // rising; those without a cell too
    std::size_t byDefault = 0;      // cells
    std::size_t fixedByMask = 0;
    std::size_t absent = 0;  // cells that hold the value for "no cell", held too
};

CLI::App* addBoundsCommand(CLI::App& tools, BoundsOptions& options);

// Writes the file; under its own name it appears when it is whole. Throws RunError.
BoundsReport writeBoundsFile(const BoundsOptions& options);

void printBoundsReport(const BoundsReport& report, const BoundsOptions& options);

}  // namespace voxlith
