#include "cli/bounds_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <optional>

#include "base/messages.h"
#include "base/text_input.h"
#include "forward/cell_values.h"
#include "forward/number_text.h"
#include "forward/survey_mesh.h"

namespace voxlith {

namespace {

using UnitTable = std::vector<UnitBounds>;

UnitTable::iterator entryOf(UnitTable& table, std::int32_t unit) {
    return std::lower_bound(table.begin(), table.end(), unit,
                            [](const UnitBounds& entry, std::int32_t wanted) { return entry.unit < wanted; });
}

void addUnit(UnitTable& table, const std::string& source, std::string_view unitText, std::string_view pairText) {
    const std::optional<std::int32_t> unit = parseInteger(unitText);
    if (!unit || *unit == absentCode) {
        throw RunError(source + ": expected the whole number of a unit, found " + std::string(unitText));
    }
    const BoundsPair pair = parseBoundsPair(source, pairText);
    const auto place = entryOf(table, *unit);
    if (place != table.end() && place->unit == *unit) {
        throw RunError(source + ": unit " + std::to_string(*unit) + " has bounds already, " +
                       describePair(place->pair));
    }
    table.insert(place, UnitBounds{*unit, pair, 0});
}

void readTable(const std::string& fileName, UnitTable& table) {
    TextInput input;
    if (!openTextInput(input, fileName)) {
        throw RunError(fileName + ": the table of units cannot be opened");
    }
    std::string line;
    for (std::int64_t number = input.lineNumber; readLine(input, line); number = input.lineNumber) {
        line.resize(std::min(line.size(), line.find_first_of("!#")));
        const std::vector<std::string_view> words = splitWords(line);
        if (words.empty()) {
            continue;
        }
        const std::string source = fileName + ", line " + std::to_string(number);
        const std::string_view pair =
            words.size() > 1 ? std::string_view(line).substr(static_cast<std::size_t>(words[1].data() - line.data()))
                             : std::string_view("the end of the line");
        addUnit(table, source, words[0], pair);
    }
}

UnitTable unitTable(const BoundsOptions& options) {
    UnitTable table;
    if (!options.tableFile.empty()) {
        readTable(options.tableFile, table);
    }
    for (const std::string& text : options.units) {
        const std::size_t sign = text.find('=');
        if (sign == std::string::npos) {
            throw RunError("--unit " + text + ": expected unit=lower,upper or unit=fixed");
        }
        const std::string_view view = text;
        addUnit(table, "--unit " + text, view.substr(0, sign), view.substr(sign + 1));
    }
    return table;
}

// Whether the mask holds each cell.
std::vector<bool> readMask(const std::string& fileName, std::size_t cells) {
    std::vector<bool> held(cells, false);
    if (fileName.empty()) {
        return held;
    }
    const CellCodes mask = readCellCodes(fileName, "mask", cells);
    for (std::size_t cell = 0; cell < cells; ++cell) {
        if (mask.code[cell] != 0 && mask.code[cell] != 1) {
            throw RunError(fileName + ", line " + std::to_string(mask.line[cell]) + ": expected 0 or 1 for cell " +
                           std::to_string(cell + 1) + ", found " +
                           (mask.code[cell] == absentCode ? "an absent cell" : std::to_string(mask.code[cell])));
        }
        held[cell] = mask.code[cell] == 1;
    }
    return held;
}

// The pair of a cell that is neither held nor absent; counts it.
BoundsPair pairOfUnit(const BoundsOptions& options, const CellCodes& units, std::size_t cell,
                      const std::optional<BoundsPair>& others, BoundsReport& report) {
    const auto place = entryOf(report.units, units.code[cell]);
    if (place != report.units.end() && place->unit == units.code[cell]) {
        ++place->cells;
        return place->pair;
    }
    if (!others) {
        throw RunError(options.unitsFile + ", line " + std::to_string(units.line[cell]) +
                       ": expected a unit with bounds for cell " + std::to_string(cell + 1) + ", found " +
                       std::to_string(units.code[cell]) + "; give --unit " + std::to_string(units.code[cell]) +
                       "=lower,upper or --default");
    }
    ++report.byDefault;
    return *others;
}

std::vector<BoundsPair> cellPairs(const BoundsOptions& options, const CellCodes& units, const std::vector<bool>& held,
                                  BoundsReport& report) {
    std::optional<BoundsPair> others;
    if (!options.defaultPair.empty()) {
        others = parseBoundsPair("--default " + options.defaultPair, options.defaultPair);
    }
    std::vector<BoundsPair> pairs(units.code.size(), fixedPair);
    for (std::size_t cell = 0; cell < pairs.size(); ++cell) {
        if (held[cell]) {
            ++report.fixedByMask;
        } else if (units.code[cell] == absentCode) {
            ++report.absent;
        } else {
            pairs[cell] = pairOfUnit(options, units, cell, others, report);
        }
    }
    return pairs;
}

}  // namespace

CLI::App* addBoundsCommand(CLI::App& tools, BoundsOptions& options) {
    CLI::App* command = tools.add_subcommand("bounds", "Write a bounds file from a model of units");
    command->add_option("--mesh", options.meshFile, "UBC tensor mesh file")->required();
    command
        ->add_option("--units", options.unitsFile,
                     "File with a whole number a cell in cell order: its unit; values at or below -1e30 are absent "
                     "cells, which are held")
        ->required();
    command->add_option("--table", options.tableFile,
                        "Table of units, a line each: unit lower upper, or unit fixed; comments behind ! or #");
    command->add_option("--unit", options.units, "unit=lower,upper or unit=fixed, as often as there are units")
        ->allow_extra_args(false);
    command->add_option("--default", options.defaultPair,
                        "lower,upper or fixed for units without bounds of their own (default: there must be none)");
    command->add_option("--fixed", options.fixedMask,
                        "Mask, 0 or 1 a cell in cell order: 1 holds the cell at its starting value");
    command->add_option("--out", options.outFile, "Bounds file to write")->required();
    command->footer(
        "A bound of 99 or -99 leaves that side free; fixed holds cells at their starting values.\n\n"
        "Examples:\n"
        "  voxlith-tools bounds --mesh m.msh --units geology.mod --unit 1=0,0.1 --unit 2=0.2,0.6 --unit 9=fixed "
        "--out bounds.txt\n"
        "  voxlith-tools bounds --mesh m.msh --units geology.mod --table units.txt --default -99,99 "
        "--fixed known.mod --out bounds.txt");
    return command;
}

BoundsReport writeBoundsFile(const BoundsOptions& options) {
    BoundsReport report;
    report.units = unitTable(options);
    const std::size_t cells = readSurveyMesh(options.meshFile).cellCount();
    const CellCodes units = readCellCodes(options.unitsFile, "units", cells);
    const std::vector<bool> held = readMask(options.fixedMask, cells);
    const std::vector<BoundsPair> pairs = cellPairs(options, units, held, report);
    writeBoundsPairs(options.outFile, cells, [&](std::size_t cell) { return pairs[cell]; });
    return report;
}

void printBoundsReport(const BoundsReport& report, const BoundsOptions& options) {
    for (const UnitBounds& unit : report.units) {
        std::printf("unit %-10d %zu cells, %s\n", unit.unit, unit.cells, describePair(unit.pair).c_str());
    }
    if (report.byDefault > 0) {
        const BoundsPair pair = parseBoundsPair("--default", options.defaultPair);
        std::printf("other units     %zu cells, %s\n", report.byDefault, describePair(pair).c_str());
    }
    if (report.fixedByMask > 0) {
        std::printf("mask            %zu cells, held\n", report.fixedByMask);
    }
    if (report.absent > 0) {
        std::printf("absent          %zu cells, held\n", report.absent);
    }
}

}  // namespace voxlith
