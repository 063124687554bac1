#include "cli/predict_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <optional>
#include <random>

#include "base/free_format.h"
#include "base/messages.h"
#include "base/text_input.h"
#include "cli/progress_line.h"
#include "formats/obs_writer.h"
#include "forward/in_order.h"
#include "preparation/number_text.h"
#include "survey/dummy_value.h"
#include "survey/obs_set.h"

namespace voxlith {

namespace {

constexpr double deviationWithoutNoise = 1.0e-3;  // of the largest datum
constexpr double smallestDeviation = 1.0e-6;      // of the largest datum: one of 0 would be taken for none

struct Noise {
    double percent = 0;
    double floor = 0;
};

std::optional<Noise> noiseOf(const std::string& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    const std::vector<double> numbers = parseNumberList("--noise", "percent,floor", text, 2);
    if (numbers[0] < 0 || numbers[1] < 0) {
        throw RunError("--noise " + text + ": expected percent and floor not below 0");
    }
    return Noise{numbers[0], numbers[1]};
}

// One normally distributed number (Box and Muller 1958). The library's own distribution differs between libraries.
double normalDeviate(std::mt19937_64& generator) {
    constexpr double step = 1.0 / 9007199254740992.0;  // 2^-53
    const double first = (static_cast<double>(generator() >> 11U) + 0.5) * step;
    const double second = static_cast<double>(generator() >> 11U) * step;
    return std::sqrt(-2.0 * std::log(first)) * std::cos(2.0 * std::numbers::pi * second);
}

void copyStations(const Survey& survey, ObsSet& obs) {
    obs.nData = static_cast<std::int32_t>(survey.stations.size());
    obs.nDataTypes = 1;
    obs.dataType[0] = DataType{survey.code};
    for (const Station& station : survey.stations) {
        obs.ObsX.push_back(station.point.x);
        obs.ObsY.push_back(station.point.y);
        obs.ObsZ.push_back(station.elevation);
    }
    for (const FieldDirection& direction : survey.measuredHere) {
        obs.obsIncl.push_back(static_cast<float>(direction.incl));
        obs.obsDecl.push_back(static_cast<float>(direction.decl));
    }
    obs.incl = static_cast<float>(survey.field.direction.incl);
    obs.decl = static_cast<float>(survey.field.direction.decl);
    obs.geomag = static_cast<float>(survey.field.strength);
    obs.aincl = static_cast<float>(survey.measured.incl);
    obs.adecl = static_cast<float>(survey.measured.decl);
    obs.idir = survey.measuredHere.empty() ? 1 : survey.idir;
}

// Fills data (divided by the deviations) and deviations.
void addNoise(const std::vector<double>& data, const std::optional<Noise>& noise, std::uint64_t seed, ObsSet& obs) {
    double largest = 0;
    for (const double datum : data) {
        largest = std::max(largest, std::abs(datum));
    }
    const double scale = largest > 0 ? largest : 1.0;
    std::mt19937_64 generator(seed);
    for (const double datum : data) {
        const double wanted = noise ? noise->percent * std::abs(datum) / 100.0 + noise->floor : 0.0;
        const double least = (noise ? smallestDeviation : deviationWithoutNoise) * scale;
        const auto deviation = static_cast<float>(std::max(wanted, least));
        const double noisy = noise ? datum + wanted * normalDeviate(generator) : datum;
        obs.obsStd.push_back(deviation);
        obs.obsData.push_back(noisy / static_cast<double>(deviation));
    }
}

}  // namespace

CLI::App* addPredictCommand(CLI::App& tools, PredictOptions& options) {
    CLI::App* command = tools.add_subcommand("predict", "Make data from a model by prisms, without compression");
    addSurveyOptions(*command, options.survey);
    command->add_option("--model", options.model, "Model file in cell order, or a number for all cells")->required();
    command->add_option("--out", options.outFile, "Observed data file to write")->required();
    command->add_option("--noise", options.noise,
                        "percent,floor: adds normal noise of standard deviation percent |d| / 100 + floor");
    command->add_option("--seed", options.seed, "Seed of the noise")->capture_default_str();
    command->footer(
        "Example:\n"
        "  voxlith-tools predict --mesh m.msh --stations s.obs --type gz --model true.den --noise 1,0.005 --out "
        "gz.obs");
    return command;
}

std::vector<double> readCellModel(const std::string& model, std::size_t cells) {
    if (const std::optional<double> number = parseNumber(model)) {
        return std::vector<double>(cells, *number);
    }
    TextInput input;
    if (!openTextInput(input, model)) {
        throw RunError(model + ": the model file cannot be opened");
    }
    std::vector<double> values(cells);
    FreeFormatRead read = beginFreeFormatRead(input);
    if (readValues(read, std::span(values)) != ReadStatus::good) {
        throwReadError(read, std::to_string(cells) + " cell values");
    }
    double surplus = 0;
    if (readValue(read, surplus) == ReadStatus::good) {
        throw RunError(model + ": more than the " + std::to_string(cells) + " values of the mesh");
    }
    std::replace_if(
        values.begin(), values.end(), [](double value) { return !isValid(value); }, 0.0);
    return values;
}

std::vector<double> predictData(const Survey& survey, std::span<const double> model, std::size_t threads) {
    struct Work {
        std::vector<double> corners, cells;
        double datum = 0;
    };
    const std::size_t count = survey.stations.size();
    std::vector<double> data;
    std::vector<Work> work(std::min(threads, count));
    ProgressLine progress("stations", count);
    runInOrder(
        count, work.size(),
        [&](std::size_t worker, std::size_t station) {
            Work& mine = work[worker];
            mine.corners.resize(cornerWorkSize(survey.mesh));
            mine.cells.resize(survey.mesh.cellCount());
            meshResponses(survey.mesh, survey.stations[station].point, weightsOfStation(survey, station),
                          survey.edgeDistance, mine.corners, mine.cells);
            clearInactive(survey.ground, survey.mesh.zCentre.size(), mine.cells);
            mine.datum = 0;
            for (std::size_t cell = 0; cell < model.size(); ++cell) {
                mine.datum += mine.cells[cell] * model[cell];
            }
        },
        [&](std::size_t worker, std::size_t station) {
            if (!(std::abs(work[worker].datum) <= static_cast<double>(std::numeric_limits<float>::max()))) {
                throw RunError("station " + std::to_string(station + 1) + ": the datum is too large to be written");
            }
            data.push_back(work[worker].datum);
            progress.show(station + 1);
        });
    return data;
}

PredictReport writePrediction(const PredictOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    const std::optional<Noise> noise = noiseOf(options.noise);
    const Survey survey = readSurvey(options.survey);
    const std::vector<double> model = readCellModel(options.model, survey.mesh.cellCount());
    const std::vector<double> data = predictData(survey, model, threadCount(options.survey));
    ObsSet obs;
    copyStations(survey, obs);
    addNoise(data, noise, options.seed, obs);
    writeObsFile(options.outFile, obs, obs.obsData);
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
        std::fprintf(stderr, "voxlith-tools: warning: %s\n", warning.c_str());
    }
    const std::string unit(surveyUnit(surveyTypeCode(options.survey.type)));
    std::printf("stations: %lld\n", static_cast<long long>(report.stations));
    std::printf("data:     %.6g to %.6g %s without noise\n", report.smallest, report.largest, unit.c_str());
    std::printf("time:     %.2f s\n", report.seconds);
}

}  // namespace voxlith
