#include "cli/init_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>

#include "base/messages.h"
#include "base/output_file.h"
#include "base/tokens.h"
#include "formats/short_name.h"
#include "forward/number_text.h"
#include "init/control_text.h"
#include "init/init_checks.h"
#include "survey/data_types.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr const char* initExamples =
    "Examples:\n"
    "  voxlith-tools init --data gz.obs --mtx gz.mtx\n"
    "  voxlith-tools init --data tmi.mag --mesh mesh.msh --mtx tmi.mtx --bounds 0,0.2 --out tmi.inp\n"
    "  voxlith-tools init --data joint.obs --mtx gz.mtx gzz.mtx --sign positive\n"
    "The names are written as they are given: run voxlith in the folder in which this command was run.";

// What a name may hold to stand in a control file and be found.
void checkName(const std::string& option, const std::string& name, std::size_t longest, bool several) {
    const bool good = !name.empty() && name.size() <= longest && name.find_first_of("!\n\r\t") == std::string::npos &&
                      trim(name) == name && (!several || name.find('|') == std::string::npos);
    if (!good) {
        throw RunError(option + " " + name + ": expected a name of at most " + std::to_string(longest) +
                       " characters without \"!\"" + (several ? " and \"|\"" : "") + " that a control file can hold");
    }
}

void checkOptions(const InitOptions& options) {
    checkName("--data", options.dataFile, shortNameWidth, false);
    for (const std::string& name : options.mtxFiles) {
        checkName("--mtx", name, longestMtxLine / options.mtxFiles.size(), options.mtxFiles.size() > 1);
    }
    if (!options.force && std::filesystem::exists(options.outFile)) {
        throw RunError(options.outFile + ": there is such a file already; --force replaces it");
    }
    if (!options.overrides.bounds.empty() && options.overrides.bounds != "null") {
        const std::vector<double> bounds =
            parseNumberList("--bounds", "lower,upper or null", options.overrides.bounds, 2);
        if (!(bounds[0] < bounds[1])) {
            throw RunError("--bounds " + options.overrides.bounds + ": expected a lower bound below the upper one");
        }
    }
}

std::vector<std::unique_ptr<MtxFile>> readFiles(const InitOptions& options) {
    std::vector<std::unique_ptr<MtxFile>> files;
    for (const std::string& name : options.mtxFiles) {
        files.push_back(std::make_unique<MtxFile>());
        readMtxFile(name, MtxRows::counted, *files.back());
    }
    return files;
}

SurveyTable readData(const InitOptions& options, const std::vector<std::unique_ptr<MtxFile>>& files) {
    ObsForm form;
    form.components = files.size();
    for (const auto& file : files) {
        form.codes.push_back(codeOf(file->sensitivity.header.dataType[0]));
    }
    std::int64_t countInFile = 0;
    SurveyTable data = readObservedData(options.dataFile, form, countInFile);
    const bool magnetic = hasMagneticLayout(DataType{form.codes.front()});
    if (magnetic != data.header.has_value()) {
        throw RunError(options.dataFile + ", line 1: expected the header of " +
                       (magnetic ? "magnetic data (incl, decl, geomag)" : "gravity data (the number of data)") +
                       " for a first sensitivity file of type " +
                       std::string(dataTypeName(DataType{form.codes.front()})));
    }
    return data;
}

void addDataNotes(const SurveyTable& data, InitReport& report) {
    std::size_t dummies = 0, without = 0;
    for (std::size_t n = 0; n < data.data.size(); ++n) {
        if (!isValid(data.data[n])) {
            ++dummies;
        } else if (data.deviation.empty() || !(data.deviation[n] > 0)) {
            ++without;
        }
    }
    report.notes.push_back(std::to_string(data.records()) + " records, " + std::to_string(dummies) + " dummies");
    if (dummies == data.data.size()) {
        report.warnings.push_back("no datum but dummies");
    }
    if (without > 0) {
        report.warnings.push_back(std::to_string(without) +
                                  " data have no standard deviation: 1 is taken for magnetic data, 0.01 for others; "
                                  "Misfit=(percent,floor) on the command line of voxlith gives better ones");
    }
}

}  // namespace

CLI::App* addInitCommand(CLI::App& tools, InitOptions& options) {
    CLI::App* command =
        tools.add_subcommand("init", "Write a control file with comments for data and sensitivity files");
    command->add_option("--data", options.dataFile, "Observed data file")->required();
    command->add_option("--mtx", options.mtxFiles, "Sensitivity file; several for a joint inversion")
        ->required()
        ->expected(1, maxFiles);
    command->add_option("--mesh", options.meshFile, "Mesh file; compared with the mesh in the sensitivity file");
    command->add_option("--out", options.outFile, "Control file to write")->capture_default_str();
    command->add_flag("--force", options.force, "Replace an earlier control file");
    command->add_option("--sign", options.sign, "Values of the model (auto: positive for magnetic data, else either)")
        ->check(CLI::IsMember({"auto", "negative", "either", "positive"}))
        ->capture_default_str();
    command->add_option("--bounds", options.overrides.bounds,
                        "lower,upper of the model, or null (default: by the sign)");
    command->add_option("--tradeoff", options.overrides.tradeoff, "Trade-off (default: by the data)")
        ->check(CLI::PositiveNumber);
    command
        ->add_option("--iterations", options.overrides.iterations,
                     "Iterations (default: 100; 200 with a sign or two models)")
        ->check(CLI::Range(1, 99999));
    command->footer(initExamples);
    return command;
}

InitReport writeControlFile(const InitOptions& options) {
    checkOptions(options);
    const std::vector<std::unique_ptr<MtxFile>> files = readFiles(options);
    checkFilesAgree(files, options.mtxFiles);
    if (!options.meshFile.empty()) {
        checkMeshAgrees(*files.front(), options.mtxFiles.front(), options.meshFile);
    }
    SurveyTable data = readData(options, files);
    for (std::size_t n = 0; n < files.size(); ++n) {
        checkDataAgree(*files[n], options.mtxFiles[n], data, options.dataFile);
    }
    InitReport report;
    addDataNotes(data, report);
    if (depthWeightsDiffer(files)) {
        report.warnings.push_back(
            "the depth weights of " + options.mtxFiles[0] + " and " + options.mtxFiles[1] +
            " differ: a run fits slowly without a common one; make both with the same --depth-weight");
    }
    InitOverrides overrides = options.overrides;
    overrides.sign = options.sign == "negative"   ? -1
                     : options.sign == "either"   ? 0
                     : options.sign == "positive" ? 1
                                                  : 2;
    report.choices = chooseInitValues(files, overrides);
    chooseTradeoff(options.mtxFiles, data, overrides, files, report.choices);
    report.warnings.insert(report.warnings.end(), report.choices.warnings.begin(), report.choices.warnings.end());
    report.text = controlText(report.choices, options.dataFile, options.mtxFiles);
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, options.outFile);
    appendOutput(*file, report.text);
    finishOutputFile(*file);
    return report;
}

void printInitReport(const InitReport& report, const InitOptions& options) {
    std::printf("%s for %s:\n", options.outFile.c_str(), options.dataFile.c_str());
    for (const std::string& note : report.notes) {
        std::printf("  %s\n", note.c_str());
    }
    std::printf("\n%s\nRun it with: voxlith %s\n", report.text.c_str(), options.outFile.c_str());
    std::fflush(stdout);
    for (const std::string& warning : report.warnings) {
        std::fprintf(stderr, "voxlith-tools: warning: %s: %s\n", options.dataFile.c_str(), warning.c_str());
    }
}

}  // namespace voxlith
