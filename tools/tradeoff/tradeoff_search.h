// The trade-off at which data are fitted to their standard deviations: found by solving the inversion without bounds
// for a falling row of trade-offs.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "forward/mtx_file.h"

namespace voxlith {

struct TradeoffProblem {
    double alphaS = 1.0e-4;  // the other alphas are 1
    double target = 1.0;     // RMS misfit, over all components together
};

struct TradeoffResult {
    double tradeoff = 0;
    double misfit = 0;                 // RMS misfit that was reached with it
    bool reached = false;              // whether that is the target
    double smallest = 0, largest = 0;  // values of a model near it; both 0 where the data ask for none
};

// The data of one component, one value per row of its file. A standard deviation of 0 masks its datum.
struct ComponentData {
    std::vector<double> value, standardDeviation;
};

// `files`, all of one model, hold their rows, which are put into working form; `data` has a component for each of them.
// The objective is the program's: squares of misfits over standard deviations by the number of data, and the smallest
// and smoothest model norm. Minimised by preconditioned conjugate gradients (Hestenes and Stiefel 1952), each trade-off
// from the model of the last.
TradeoffResult searchTradeoff(std::vector<std::unique_ptr<MtxFile>>& files, const std::vector<ComponentData>& data,
                              const TradeoffProblem& problem);

}  // namespace voxlith
