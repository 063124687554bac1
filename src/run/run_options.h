// The command line of voxlith-run.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "run/convergence/converged_mode.h"
#include "run/convergence/cross_gradient.h"
#include "run/convergence/sparse_norm.h"

namespace voxlith {

// --until-converged for --target-rms, where nothing else is given.
constexpr double toleranceOfSearch = 1.0e-4;

struct RunOptions {
    std::string program = "voxlith-run";  // in messages; set before the command line is parsed
    std::string controlFile;
    std::vector<std::string> keywords;  // those of voxlith: Misfit=(pct,floor), Tradeoff=val, ...
    bool continueRun = false;           // go on with the stopped run of this folder
    bool check = false;                 // read everything, run nothing
    bool quiet = false;                 // nothing on standard output
    bool keepArranged = false;          // keep the arranged rows in a file for later runs
    std::string jsonLog;                // file with a JSON object for each iteration; empty for none
    bool untilConverged = false;        // --until-converged, or --target-rms
    double tolerance = 1.0e-6;          // of the objective; toleranceOfSearch by default with --target-rms
    bool targetRms = false;             // --target-rms
    double rms = 1.0;
    bool perComponent = false;                // --per-component
    ModelNorm modelNorm = ModelNorm::smooth;  // --model-norm
    CrossGradientSettings cross;              // --cross-gradient
    std::size_t threads = 1;
    std::size_t smallestPiece = 4096;  // see Workers; tests set 1: small problems are shared, too,
                                       // and there may be more threads than cores
};

ConvergedSettings convergedSettingsOf(const RunOptions& options);

enum class ParseResult {
    run,    // `options` say what to run
    shown,  // --help or --version: the text is on standard output
    wrong,  // wrong use: one line is on standard error
};

ParseResult parseRunOptions(int argumentCount, const char* const* arguments, RunOptions& options);

}  // namespace voxlith
