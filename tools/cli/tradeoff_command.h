// "tradeoff": the trade-off at which the data of one model are fitted, for "voxlith-tools init". Internal: help does
// not show it.
#pragma once

#include <string>
#include <vector>

#include "tradeoff/tradeoff_search.h"

namespace CLI {
class App;
}

namespace voxlith {

struct TradeoffOptions {
    std::vector<std::string> mtxFiles;  // of one model
    std::string dataFile;               // real64: the data of each file, then the standard deviations of each
    TradeoffProblem problem;
};

CLI::App* addTradeoffCommand(CLI::App& tools, TradeoffOptions& options);

// Throws RunError.
TradeoffResult findTradeoff(const TradeoffOptions& options);

// One line: trade-off, misfit, 1 where the target was reached (else 0), smallest and largest value of the model.
void printTradeoff(const TradeoffResult& result);

}  // namespace voxlith
