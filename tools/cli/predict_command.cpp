#include "cli/predict_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include "base/messages.h"
#include "base/output_file.h"
#include "cli/error_text.h"
#include "cli/work_estimate.h"
#include "formats/observed_data.h"
#include "forward/cell_values.h"
#include "forward/number_text.h"
#include "forward/worker_count.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

Noise parseNoise(const std::string& text) {
    const std::vector<double> numbers = parseNumberList("--noise", "percent,floor", text, 2);
    if (numbers[0] < 0 || numbers[1] < 0) {
        throw RunError("--noise " + text + ": expected percent and floor not below 0");
    }
    return {numbers[0], numbers[1]};
}

std::vector<double> readModel(const std::string& model, std::size_t cells) {
    if (const std::optional<double> number = parseNumber(model)) {
        return std::vector<double>(cells, *number);
    }
    std::vector<double> values = readCellValues(model, "model", cells);
    std::replace_if(
        values.begin(), values.end(), [](double value) { return !isValid(value); }, 0.0);
    return values;
}

void announceData(const Survey& survey, std::size_t threads) {
    constexpr double bytesPerStation = 65.0;
    const std::size_t stations = survey.stations.size(), cells = survey.mesh.cellCount();
    announceWork({"stations", stations, cells, bytesPerStation * static_cast<double>(stations), "",
                  datumSeconds(cells) * static_cast<double>(stations) / static_cast<double>(threads)});
}

}  // namespace

CLI::App* addPredictCommand(CLI::App& tools, PredictOptions& options) {
    CLI::App* command = tools.add_subcommand("predict", "Compute data of a model by prisms, without compression");
    addSurveyOptions(*command, options.survey);
    command->add_option("--model", options.model, "Model file in cell order, or a number for all cells")
        ->required()
        ->type_name("FILE");
    command->add_option("--out", options.outFile, "Observed data file to write")->required()->type_name("FILE");
    command
        ->add_option_function<std::string>(
            "--noise", [&options](const std::string& text) { options.noise = parseNoise(text); },
            "Adds normal noise of standard deviation percent |d| / 100 + floor")
        ->type_name("PERCENT,FLOOR");
    command->add_option("--seed", options.seed, "Seed of the noise")->type_name("NUMBER")->capture_default_str();
    command->footer(
        "Example:\n"
        "  voxlith-tools predict --mesh m.msh --stations s.obs --type gz --model true.den --noise 1,0.005 --out "
        "gz.obs");
    return command;
}

void checkPredictOutput(const PredictOptions& options) {
    checkOutput({"--out", options.outFile}, options.survey, {{"--model", options.model}});
}

PredictReport writePrediction(const PredictOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    checkPredictOutput(options);
    // An output that cannot be written is found before the work, not after it.
    openOutputFile(*std::make_unique<OutputFile>(), options.outFile);
    const Survey survey = readSurvey(options.survey);
    const std::vector<double> model = readModel(options.model, survey.mesh.cellCount());
    const std::size_t threads = threadCount(options.survey, datumWorkBytes(survey.mesh.cellCount()));
    announceData(survey, threads);
    const std::vector<double> data = predictData(survey, model, threads);
    ObsSet obs;
    fillObservedData(survey, data, options.noise, options.seed, obs);
    writeObsFile(options.outFile, obs, obs.obsData);
    writeSideFile(options.outFile, options.survey);
    PredictReport report;
    report.warnings = survey.warnings;
    report.stations = obs.nData;
    const auto [smallest, largest] = std::minmax_element(data.begin(), data.end());
    report.smallest = *smallest;
    report.largest = *largest;
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
}

void printPredictReport(const PredictReport& report, const PredictOptions& options) {
    for (const std::string& warning : report.warnings) {
        warn(warning);
    }
    const std::string unit(unitOf(options.survey.type));
    std::printf("stations: %lld\n", static_cast<long long>(report.stations));
    std::printf("data:     %.6g to %.6g %s without noise\n", report.smallest, report.largest, unit.c_str());
    std::printf("time:     %.2f s\n", report.seconds);
}

}  // namespace voxlith
