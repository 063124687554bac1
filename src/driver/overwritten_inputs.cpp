#include "driver/overwritten_inputs.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/free_format.h"
#include "base/staged_files.h"
#include "base/tokens.h"
#include "formats/apparent_density_table.h"
#include "formats/short_name.h"
#include "inversion/running_files.h"

namespace voxlith {

namespace {

// Lines of the control file.
constexpr std::size_t dataLine = 4, sensitivityLine = 5, boundsLine = 8, weightLine = 10, offsetLine = 11;

struct InputFile {
    std::string where;  // file and line that name it
    std::string_view kind;
    std::string name;
};

bool isSameFile(const std::string& a, const std::string& b) {
    struct stat first {
    }, second{};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// The hidden version before an output counts as that output.
void refuseIfSame(const InputFile& input, std::string_view output) {
    for (const std::string& name : {std::string(output), previousVersionName(output)}) {
        if (isSameFile(input.name, name)) {
            throw RunError(input.where + ": the " + std::string(input.kind) + " \"" + input.name +
                           "\" would be overwritten by the output " + name);
        }
    }
}

std::string atLine(const std::string& controlFileName, std::size_t line) {
    return fileNameOf(controlFileName) + ", line " + std::to_string(line);
}

// The whole text if that is a file, else its parts between separators. Words such as null and numbers are no files.
std::vector<std::string> namesIn(const std::string& text, std::string_view separators) {
    if (fileExists(fileNameOf(text))) {
        return {fileNameOf(text)};
    }
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find_first_of(separators, start), text.size());
        names.push_back(fileNameOf(text.substr(start, end - start)));
        start = end + 1;
    }
    return names;
}

std::vector<std::string> linesOf(TextInput& input) {
    std::vector<std::string> lines;
    std::string line;
    while (lines.size() < offsetLine && readLine(input, line)) {
        removeComment(line);
        lines.push_back(line);
    }
    lines.resize(offsetLine);
    rewindTextInput(input);
    return lines;
}

// Counts and labels of line 1, as far as they can be read.
InversionOptions modelTypesOf(std::string line) {
    std::array<std::int32_t, 4> counts{0, 1, 1, 1};
    std::string token;
    for (std::int32_t& count : counts) {
        nextToken(line, token);
        if (freeFormatRead(std::string_view(token), std::span(&count, 1)) != ReadStatus::good) {
            break;
        }
    }
    InversionOptions options;
    if (counts[3] > 1 && counts[3] <= maxFiles) {
        options.nModelTypes = counts[3];
        for (std::size_t type = 0; type < static_cast<std::size_t>(counts[3]); ++type) {
            nextToken(line, token);
            options.modelLabel[type] = token.substr(0, 8);
        }
    }
    return options;
}

bool writesLineSearch(const std::string& line) {
    std::int32_t iMode = 0;
    return freeFormatRead(std::string_view(line), std::span(&iMode, 1)) == ReadStatus::good && iMode == -1;
}

void refuseModelNames(const InputFile& input, const InversionOptions& options, DataType firstType) {
    for (std::size_t type = 0; type < static_cast<std::size_t>(options.nModelTypes); ++type) {
        refuseIfSame(input, runningModelName(firstType, options, type));
        refuseIfSame(input, finalModelName(firstType, options, type));
    }
}

// "voxlith_iter_", any number that is a multiple of the output step, the label and the suffix.
bool isNumberedModel(std::string_view name, const InversionOptions& options, DataType firstType, std::size_t type) {
    constexpr std::string_view digits = "0123456789";
    const TextLine sample = iterationModelName(firstType, options, 0, type);
    const std::size_t start = sample.view().find_first_of(digits);
    const std::size_t sampleEnd = std::min(sample.view().find_first_not_of('0', start), sample.view().size());
    const std::size_t zeros = sampleEnd - start;
    if (name.substr(0, start) != sample.view().substr(0, start) || name.size() < sample.view().size()) {
        return false;
    }
    const std::size_t rest = sample.view().size() - sampleEnd;
    const std::string_view number = name.substr(start, name.size() - start - rest);
    std::int32_t iteration = 0;
    return number.size() >= zeros && number.find_first_not_of(digits) == std::string_view::npos &&
           freeFormatRead(number, std::span(&iteration, 1)) == ReadStatus::good &&
           name.substr(name.size() - rest) == sample.view().substr(sampleEnd) && iteration > 0 &&
           iteration % options.outputStep == 0;
}

void refuseNumberedModels(const InputFile& input, const InversionOptions& options, DataType firstType) {
    std::error_code failure;
    const std::filesystem::path file = std::filesystem::canonical(input.name, failure);
    if (options.outputStep <= 0 || failure || file.parent_path() != std::filesystem::current_path(failure)) {
        return;
    }
    for (std::size_t type = 0; type < static_cast<std::size_t>(options.nModelTypes); ++type) {
        if (isNumberedModel(file.filename().string(), options, firstType, type)) {
            refuseIfSame(input, file.filename().string());
        }
    }
}

std::vector<InputFile> inputsOf(const std::string& controlFileName, const std::vector<std::string>& lines) {
    std::vector<InputFile> inputs{{"command line", "control file", fileNameOf(controlFileName)}};
    const auto add = [&](std::size_t line, std::string_view kind, const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            if (!name.empty()) {
                inputs.push_back({atLine(controlFileName, line), kind, name});
            }
        }
    };
    add(dataLine, "data file", {shortFileName(lines[dataLine - 1])});
    add(sensitivityLine, "sensitivity file", namesIn(lines[sensitivityLine - 1], "|, "));
    add(boundsLine, "bounds file", {shortFileName(lines[boundsLine - 1])});
    add(weightLine, "weighting file", namesIn(lines[weightLine - 1], "|"));
    add(offsetLine, "reference data file", {shortFileName(lines[offsetLine - 1])});
    return inputs;
}

std::vector<InputFile> inputsOf(const ControlValues& control) {
    const std::string& controlFileName = control.controlFileName;
    std::vector<InputFile> inputs{{"command line", "control file", fileNameOf(controlFileName)}};
    inputs.push_back({atLine(controlFileName, dataLine), "data file", shortFileName(control.obsFileText)});
    for (std::size_t file = 0; file < static_cast<std::size_t>(control.nMtx); ++file) {
        inputs.push_back(
            {atLine(controlFileName, sensitivityLine), "sensitivity file", fileNameOf(control.mtxFileText[file])});
    }
    inputs.push_back({atLine(controlFileName, boundsLine), "bounds file", shortFileName(control.boundsText)});
    for (const std::string& name : control.weightFileName) {
        inputs.push_back({atLine(controlFileName, weightLine), "weighting file", fileNameOf(name)});
    }
    inputs.push_back(
        {atLine(controlFileName, offsetLine), "reference data file", shortFileName(control.dataOffsetText)});
    return inputs;
}

}  // namespace

void refuseOverwrittenInputs(TextInput& input, const std::string& controlFileName) {
    const std::vector<std::string> lines = linesOf(input);
    const InversionOptions options = modelTypesOf(lines[0]);
    for (const InputFile& file : inputsOf(controlFileName, lines)) {
        for (const std::string_view output :
             {"voxlith.log", "voxlith.aux", "voxlith.pre", "voxlith_grad.mod", "voxlith_error.dat"}) {
            refuseIfSame(file, output);
        }
        if (writesLineSearch(lines[1])) {
            refuseIfSame(file, "voxlith.lsv");
        }
        // The data type decides the endings of the models and is not known yet; no data are named so.
        if (file.kind != "weighting file" && file.kind != "bounds file") {
            refuseModelNames(file, options, DataType{0});
            refuseModelNames(file, options, DataType{1});
        }
    }
}

void refuseOverwrittenModels(const RunState& run) {
    const InversionOptions& options = run.control.inversion;
    const DataType firstType = run.obs.dataType[0];
    for (const InputFile& file : inputsOf(run.control)) {
        refuseModelNames(file, options, firstType);
        refuseNumberedModels(file, options, firstType);
        if (hasApparentDensityTable(run.sensitivity.header.inversionStyle)) {
            refuseIfSame(file, "voxlith_appden.csv");
        }
    }
}

void refuseOverwrittenBy(const ControlValues& control, std::string_view output) {
    for (const InputFile& file : inputsOf(control)) {
        refuseIfSame(file, output);
    }
}

}  // namespace voxlith
