// "voxlith-tools init": a control file with comments for given data and sensitivity files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "init/init_choices.h"

namespace CLI {
class App;
}

namespace voxlith {

struct InitOptions {
    std::string dataFile;
    std::string meshFile;  // empty: not compared
    std::vector<std::string> mtxFiles;
    std::string outFile = "voxlith.inp";
    bool force = false;  // an earlier file is replaced
    std::string sign = "auto";
    InitOverrides overrides;
};

struct InitReport {
    InitChoices choices;
    std::string text;  // of the control file
    std::vector<std::string> notes, warnings;
};

CLI::App* addInitCommand(CLI::App& tools, InitOptions& options);

// Writes the file; under its own name it appears when it is whole. Throws RunError when data, mesh and sensitivity
// files do not belong together.
InitReport writeControlFile(const InitOptions& options);

// What was chosen and why on standard output, warnings on standard error.
void printInitReport(const InitReport& report, const InitOptions& options);

}  // namespace voxlith
