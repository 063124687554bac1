// The pairs of a bounds file, as the inversion program takes them: a pair "lower upper" a cell in cell order. A side of
// magnitude 98.9 and more has no bound, and a lower bound at or above the upper one holds the cell at its starting
// value.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/output_file.h"

namespace voxlith {

struct BoundsPair {
    double lower = 0;
    double upper = 0;
    friend bool operator==(const BoundsPair&, const BoundsPair&) = default;
};

constexpr BoundsPair fixedPair{0.0, 0.0};
constexpr BoundsPair freePair{-99.0, 99.0};

// The pair that "lower,upper" or "fixed" stands for; 99 and -99 leave a side free, as on the bounds line of a control
// file. A free lower side beside an upper bound becomes -100000, since -99 would be taken for a bound there. `source`
// (an option, or a file and line) begins the message of the RunError for any other text and for bounds that are not
// below each other in single precision, in which they are read.
BoundsPair parseBoundsPair(const std::string& source, std::string_view text);

// One line of a bounds file.
std::string boundsLine(const BoundsPair& pair);

// Writes a line a cell; `pairOfCell(cell)` gives the pair. Throws RunError.
template <class PairOfCell>
void writeBoundsPairs(const std::string& fileName, std::size_t cells, const PairOfCell& pairOfCell) {
    OutputFile file;
    openOutputFile(file, fileName);
    std::string line;
    BoundsPair last;
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const BoundsPair pair = pairOfCell(cell);
        if (line.empty() || !(pair == last)) {
            line = boundsLine(pair);
            last = pair;
        }
        appendOutput(file, line);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
