#include "run/input_checks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/free_format.h"
#include "base/messages.h"
#include "base/staged_files.h"
#include "base/text_input.h"
#include "base/text_line.h"
#include "base/tokens.h"
#include "driver/command_line.h"
#include "driver/control_file.h"
#include "driver/run_steps.h"
#include "formats/short_name.h"

namespace voxlith {

namespace {

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

std::string positionText(double x, double y, double z) {
    return numberText(x) + " " + numberText(y) + " " + numberText(z);
}

// Data files may have their coordinates rounded to centimetres, sensitivity files to single precision.
bool isSamePosition(double a, double b) {
    constexpr double rounding = 0.01;
    constexpr double singlePrecision = 1.2e-7;
    return std::fabs(a - b) <= rounding + singlePrecision * std::max(std::fabs(a), std::fabs(b));
}

void checkCount(const RunState& run, const std::string& dataFile, const std::string& sensitivityFile) {
    if (run.obs.countInFile != run.obs.nData) {
        throw RunError(dataFile + ": expected " + std::to_string(run.obs.nData) + " data, the stations of " +
                       sensitivityFile + ", found the count " + std::to_string(run.obs.countInFile) +
                       "; is it a file of another survey or data type?");
    }
}

void checkStations(const ObsSet& obs, const StationColumns& stations, const std::string& dataFile,
                   const std::string& sensitivityFile) {
    // Two of the three layouts of sensitivity files hold no positions.
    const auto isZero = [](double value) { return value == 0.0; };
    if (std::ranges::all_of(stations.x, isZero) && std::ranges::all_of(stations.y, isZero) &&
        std::ranges::all_of(stations.z, isZero)) {
        return;
    }
    for (std::size_t record = 0; record < stations.x.size(); ++record) {
        if (isSamePosition(obs.ObsX[record], stations.x[record]) &&
            isSamePosition(obs.ObsY[record], stations.y[record]) &&
            isSamePosition(obs.ObsZ[record], stations.z[record])) {
            continue;
        }
        std::string problem = dataFile;
        problem.append(", station ").append(std::to_string(record + 1)).append(": expected the position ");
        problem.append(positionText(stations.x[record], stations.y[record], stations.z[record]));
        problem.append(" of ").append(sensitivityFile).append(", found ");
        problem.append(positionText(obs.ObsX[record], obs.ObsY[record], obs.ObsZ[record]));
        throw RunError(problem);
    }
}

void checkField(const ObsSet& obs, const std::string& dataFile) {
    constexpr float vertical = 90.0F;
    constexpr float largestDeclination = 360.0F;
    if (!hasMagneticLayout(obs.dataType[0])) {
        return;
    }
    if (std::fabs(obs.incl) > vertical || std::fabs(obs.decl) > largestDeclination || !(obs.geomag > 0.0F)) {
        throw RunError(dataFile + ", line 1: expected inclination, declination and strength of the field, found " +
                       positionText(static_cast<double>(obs.incl), static_cast<double>(obs.decl),
                                    static_cast<double>(obs.geomag)) +
                       "; the sensitivities are those of magnetic data");
    }
}

void checkDeviations(const ObsSet& obs, const std::string& dataFile) {
    if (obs.negativeStdLine > 0) {
        throw RunError(dataFile + ", line " + std::to_string(obs.negativeStdLine) +
                       ": expected a standard deviation of 0 or above, found " +
                       numberText(static_cast<double>(obs.negativeStd)));
    }
}

void checkBounds(const RunState& run) {
    const ModelBounds& bounds = run.bounds;
    const std::size_t cells = run.mesh.cellCount();
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const std::int32_t type = bounds.boundType[cell];
        if ((type == boundBoth || type == boundFixed) && bounds.lowerBound[cell] > bounds.upperBound[cell]) {
            throw RunError(std::string(trim(shortText(run.control.boundsText))) + ", cell " + std::to_string(cell + 1) +
                           ": expected a lower bound of at most the upper one; they are reversed");
        }
    }
}

// Whether a text of the control file names a file: it is neither null nor a number (or two, for bounds).
bool namesFile(std::string_view text) {
    double number = 0;
    std::int64_t given = 0;
    const ReadStatus status = freeFormatRead(text, std::span(&number, 1), &given);
    return !isBlank(text) && !isNullWord(text) && (status == ReadStatus::badText || given == 0);
}

// Values in the file, counted up to `most`. A file that cannot be opened is left to its reader, and so is bad text.
// Throws RunError at a value that is no number.
std::int64_t countValues(const std::string& name, std::int64_t most) {
    TextInput input;
    if (!openTextInput(input, name)) {
        return most;
    }
    std::array<double, 4096> block{};
    FreeFormatRead read = beginFreeFormatRead(input);
    std::int64_t left = most;
    while (left > 0 && read.status == ReadStatus::good) {
        const auto next = std::min<std::int64_t>(left, static_cast<std::int64_t>(block.size()));
        block.fill(0.0);
        readValues(read, std::span(block).first(static_cast<std::size_t>(next)));
        const auto bad = std::find_if(block.begin(), block.end(), [](double value) { return std::isnan(value); });
        if (bad != block.end()) {
            throw RunError(name + ": value " + std::to_string(most - left + (bad - block.begin()) + 1) +
                           ": expected a number, found nan");
        }
        left -= next;
    }
    return read.status == ReadStatus::endOfText ? read.valuesRead : most;
}

std::string countText(const std::string& name, std::int64_t expected, std::int64_t found) {
    return name + ": expected " + std::to_string(expected) + " values, found " + std::to_string(found);
}

void checkValueCount(std::string_view text, std::int64_t expected) {
    if (!namesFile(shortText(text))) {
        return;
    }
    const std::string name = shortFileName(text);
    const std::int64_t found = countValues(name, expected);
    if (found < expected) {
        throw RunError(countText(name, expected, found));
    }
}

// A response that is the same at all stations leaves the background undetermined, and its fit divides 0 by 0.
void checkBackground(const RunState& run, const std::string& sensitivityFile) {
    const SensitivityHeader& header = run.sensitivity.header;
    if (run.control.inversion.iBackground != 1 || header.version < 2) {
        return;
    }
    const auto slots = static_cast<std::size_t>(run.mesh.nzl) + 1;
    const std::vector<double>& response = run.sensitivity.layerResponse;
    const auto nData = static_cast<std::size_t>(run.obs.nData);
    for (std::size_t station = 1; station < nData; ++station) {
        if (response[slots * station] != response[0]) {
            return;
        }
    }
    throw RunError(shortFileName(run.control.controlFileName) +
                   ", line 2: the background cannot be fitted, since the response of the whole mesh in " +
                   sensitivityFile + " is " + numberText(nData > 0 ? response[0] : 0.0) +
                   " at all stations; expected 0 as the second number");
}

// The running model, or the version before it.
std::string checkRunningModel(RunState& run, std::int64_t cells) {
    const std::string name = runningModelOf(run);
    const std::int64_t found = countValues(name, cells);
    if (found == cells) {
        return {};
    }
    const std::string before = previousVersionName(name);
    const std::string problem = countText(name, cells, found);
    if (!fileExists(before) || countValues(before, cells) < cells) {
        throw RunError(problem + "; there is no complete version before it");
    }
    run.control.continuedModel = before;
    return problem + "; the run continues from the previous version, " + before;
}

// A missing control file is mostly one of another folder, or another name: the files that are here help to see which.
void checkControlFileName(const std::string& name) {
    TextInput input;
    if (openTextInput(input, fileNameOf(name))) {
        return;
    }
    std::error_code problem;
    constexpr std::size_t mostNames = 5;
    std::vector<std::string> here;
    const std::filesystem::path folder = std::filesystem::path(name).parent_path();
    for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, problem)) {
        if (entry.path().extension() == ".inp") {
            here.push_back(entry.path().filename().string());
        }
    }
    std::ranges::sort(here);
    std::string text = name + ": expected a control file, found none that can be opened";
    for (std::size_t at = 0; at < std::min(here.size(), mostNames); ++at) {
        text += (at == 0 ? "; in this folder: " : ", ") + here[at];
    }
    throw RunError(text + (here.size() > mostNames ? ", ..." : ""));
}

}  // namespace

std::int32_t checkControlFile(std::span<const std::string> arguments) {
    Messages messages;
    messages.checkOnly = true;
    ControlValues control;
    readCommandLine(arguments, control);
    checkControlFileName(control.controlFileName);
    readControlFile(messages, DateTime{}, control);
    const std::vector<std::string>& doubts = control.doubts.lines;
    if (!doubts.empty()) {
        for (std::size_t at = 0; at + 1 < doubts.size(); ++at) {
            errorLine(TextLine("voxlith-run: ").text(doubts[at]));
        }
        throw RunError(doubts.back());
    }
    return control.iRestart;
}

std::string checkModelFiles(RunState& run) {
    const ControlValues& control = run.control;
    const auto cells = static_cast<std::int64_t>(run.mesh.cellCount());
    checkValueCount(control.referenceModelText, cells);
    checkValueCount(control.boundsText, 2 * cells);
    if (control.resumes) {
        return {};
    }
    if (control.iRestart > 0) {
        return checkRunningModel(run, cells);
    }
    checkValueCount(control.initialModelText, cells);
    return {};
}

StationColumns stationsOf(const ObsSet& obs) {
    return {obs.ObsX, obs.ObsY, obs.ObsZ};
}

void checkSurvey(const RunState& run, const StationColumns& sensitivityStations) {
    const std::string dataFile = shortFileName(run.control.obsFileText);
    const std::string sensitivityFile = fileNameOf(run.control.mtxFileText[0]);
    checkField(run.obs, dataFile);
    checkBackground(run, sensitivityFile);
    checkCount(run, dataFile, sensitivityFile);
    checkStations(run.obs, sensitivityStations, dataFile, sensitivityFile);
    checkDeviations(run.obs, dataFile);
    checkBounds(run);
}

}  // namespace voxlith
