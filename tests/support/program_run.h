// Runs the real program in a folder of its own, on a small survey that it writes there.
#pragma once

#include <string>
#include <vector>

#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith::testing_support {

struct ProgramResult {
    int exitStatus = -1;  // -1 when a signal ended the program
    int signal = 0;
    std::string screen;  // standard output
    std::string errors;  // standard error
};

// `addressSpace` limits the memory of the program, in bytes; 0 for no limit.
ProgramResult runProgram(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                         unsigned long addressSpace = 0, const std::string& program = VOXLITH_PROGRAM);

// A control file by its lines; lines are replaced before it is written.
struct ControlLines {
    std::vector<std::string> lines{
        "0",    "2 0 0", "1.0 0.02 0", "obs.dat", "g.mtx", "0.01", "0.0", "null", "0.001 0.0001 0.0001 0.0001",
        "null", "null",  "3"};
    ControlLines& set(std::size_t number, const std::string& text);  // counts from 1; further lines are appended
    ControlLines& cutBehind(std::size_t number);
    std::string text() const;
};

// Ten stations over 4 x 3 x 3 cells: padded extents of 4, so that rows act on cells directly.
MtxContents smallSurveyMtx(std::int32_t dataType = 0);

// Gravity data for the ten stations, one component with deviations.
std::string smallSurveyObs();
// The same with the header of a magnetic file.
std::string smallSurveyMagneticObs();
// `types` components.
std::string smallSurveyObs(int types);

// voxlith.inp, obs.dat and g.mtx.
void writeSurvey(const TemporaryFolder& folder, const ControlLines& control = {});

bool contains(const std::string& text, const std::string& part);
std::vector<std::string> linesOf(const std::string& text);

// All but dates and times: those lines are replaced by a fixed word.
std::string withoutTimes(const std::string& text);

}  // namespace voxlith::testing_support
