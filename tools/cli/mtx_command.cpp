#include "cli/mtx_command.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "base/messages.h"
#include "cli/progress_line.h"
#include "forward/daubechies_taps.h"
#include "forward/mtx_writer.h"
#include "preparation/bounds_pairs.h"
#include "survey/data_types.h"
#include "survey/inversion_style.h"

namespace voxlith {

namespace {

MtxForm formOf(const std::string& text) {
    if (text == "tagged" || text == "bare" || text == "record") {
        return text == "tagged" ? MtxForm::tagged : text == "bare" ? MtxForm::bare : MtxForm::record;
    }
    throw RunError("--form " + text + ": expected tagged, bare or record");
}

WaveletFilter filterOf(std::int32_t taps) {
    WaveletFilter filter;
    for (const double tap : daubechiesTaps(static_cast<std::size_t>(taps))) {
        filter.coefLow.push_back(static_cast<float>(tap));
    }
    filter.coefHigh = mirrorTaps(filter.coefLow);
    return filter;
}

void warn(const std::string& text) {
    std::fprintf(stderr, "voxlith-tools: warning: %s\n", text.c_str());
}

// Readers of the record form take the data type from the name of the file.
void warnOfRecordName(const MtxOptions& options, std::int32_t code) {
    const std::string name = std::filesystem::path(options.outFile).filename().string();
    const bool namedMagnetic = name.find("MAG") != std::string::npos || name.find("mag") != std::string::npos;
    const std::int32_t seen = namedMagnetic ? 1 : 0;
    if (seen != code) {
        warn(options.outFile + ": the record form holds no data type; by its name the file is read as type " +
             std::to_string(seen) + (namedMagnetic ? " (\"mag\" in the name)" : " (no \"mag\" in the name)") +
             ", not as " + std::to_string(code));
    }
}

std::string boundsFileName(const MtxOptions& options) {
    if (!options.boundsFile.empty()) {
        return options.boundsFile;
    }
    const std::filesystem::path out(options.outFile);
    return (out.parent_path() / (out.stem().string() + "_bounds.txt")).string();
}

void checkOptions(const MtxOptions& options) {
    if (!(options.tolerance >= 0 && options.tolerance < 1)) {
        throw RunError("--tolerance: expected a number from 0 to below 1");
    }
    if (options.version < 0 || options.version > 2) {
        throw RunError("--version " + std::to_string(options.version) + ": expected 0, 1 or 2");
    }
    const bool topography = !options.survey.topographyFile.empty();
    if (!topography && !(options.boundsFile.empty() && options.groundBounds.empty())) {
        throw RunError("--bounds and --ground-bounds: expected --topography beside them");
    }
    if (topography && boundsFileName(options) == options.outFile) {
        throw RunError("--bounds " + options.outFile + ": expected another file than that of --out");
    }
}

// The free cells of a surface style are the first ones of the mesh, which air must not take.
void checkStyle(const MtxContent& content) {
    const std::int32_t style = content.inversionStyle;
    if (content.survey.ground.hasInactive() && isSurfaceStyle(InversionStyle{style})) {
        throw RunError("--topography: expected a file of style 0 or 4, found style " + std::to_string(style) +
                       ", whose layers begin at the top of the mesh");
    }
}

// Without an option, cells of ground are free, or not below zero, as the inversion program has it without a bounds
// file.
BoundsPair groundPair(const MtxOptions& options, std::int32_t code) {
    if (!options.groundBounds.empty()) {
        return parseBoundsPair("--ground-bounds " + options.groundBounds, options.groundBounds);
    }
    return isMagnetic(DataType{code}) ? BoundsPair{0.0, freePair.upper} : freePair;
}

// Air has no response, and a diagonal of zero would leave the inversion's preconditioner to the regularisation alone,
// which may be zero too. The mean of the ground is finite and of the right size.
void fillInactiveDiagonal(const Survey& survey, std::span<double> gtgdiag) {
    if (!survey.ground.hasInactive()) {
        return;
    }
    const std::size_t nz = survey.mesh.zCentre.size();
    double sum = 0, cells = 0;
    for (std::size_t cell = 0; cell < gtgdiag.size(); ++cell) {
        if (!survey.ground.isInactive(cell, nz)) {
            sum += gtgdiag[cell];
            cells += 1;
        }
    }
    const double mean = sum > 0 ? sum / cells : 1.0;
    for (std::size_t cell = 0; cell < gtgdiag.size(); ++cell) {
        gtgdiag[cell] = survey.ground.isInactive(cell, nz) ? mean : gtgdiag[cell];
    }
}

void writeInactiveBounds(const MtxOptions& options, const Survey& survey, const BoundsPair& ground, MtxReport& report) {
    const std::size_t nz = survey.mesh.zCentre.size();
    report.boundsFile = boundsFileName(options);
    for (const std::int32_t air : survey.ground.inactiveCells) {
        report.inactiveCells += air;
    }
    writeBoundsPairs(report.boundsFile, survey.mesh.cellCount(),
                     [&](std::size_t cell) { return survey.ground.isInactive(cell, nz) ? fixedPair : ground; });
}

MtxContent contentOf(const MtxOptions& options, LayerPlan& plan) {
    MtxContent content;
    content.form = formOf(options.form);
    content.version = options.version;
    content.survey = readSurvey(options.survey);
    const bool storesStyle = content.form == MtxForm::tagged && content.version > 1;
    plan = planLayers(options.layers, storesStyle, content.survey.mesh);
    content.inversionStyle = plan.inversionStyle;
    checkStyle(content);
    content.filter = filterOf(options.taps);
    content.depthWeight = options.depthWeight.empty()
                              ? defaultDepthWeight(content.survey.code, content.survey.mesh, content.survey.stations,
                                                   content.survey.ground)
                              : parseDepthWeight(options.depthWeight);
    content.cellWeights = cellDepthWeights(content.depthWeight, content.survey.mesh, content.survey.ground);
    checkMtxLimits(content);
    return content;
}

void warnOfContent(const MtxOptions& options, const MtxContent& content, const LayerPlan& plan) {
    for (const std::string& warning : content.survey.warnings) {
        warn(warning);
    }
    if (content.form == MtxForm::record) {
        warnOfRecordName(options, content.survey.code);
    }
    if (!plan.shownWhole) {
        warn("style " + std::to_string(plan.inversionStyle) + " with " + std::to_string(content.survey.mesh.nzl) +
             " layers: written models show the first " +
             (writtenCellsPerColumn(InversionStyle{plan.inversionStyle}, 2) == 1 ? "value" : "two values") +
             " of a column alone");
    }
}

}  // namespace

CLI::App* addMtxCommand(CLI::App& tools, MtxOptions& options) {
    CLI::App* command = tools.add_subcommand("mtx", "Work out the sensitivity file of a survey");
    addSurveyOptions(*command, options.survey);
    command->add_option("--out", options.outFile, "Sensitivity file to write")->required();
    command->add_option(
        "--depth-weight", options.depthWeight,
        "z0,beta of W = ((depth + z0)/z0)^(-beta/2), or none (default: z0 half the first layer plus the "
        "mean height of the stations, beta 2 for gz and 3 for all others)");
    command->add_option("--taps", options.taps, "Wavelet taps: 4, 6 or 8")
        ->check(CLI::IsMember({4, 6, 8}))
        ->capture_default_str();
    command->add_option("--tolerance", options.tolerance, "Largest loss of a row over its norm")->capture_default_str();
    command->add_option("--form", options.form, "Layout of the file")
        ->check(CLI::IsMember({"tagged", "bare", "record"}))
        ->capture_default_str();
    command->add_option("--version", options.version, "Version of the tagged form")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    command
        ->add_option("--layers", options.layers.layers,
                     "Layers that the file covers, for the surface styles (default: as the style asks)")
        ->check(CLI::PositiveNumber);
    command
        ->add_option(
            "--style", options.layers.style,
            "Inversion style: 0 full, 1 equivalent source, 2 apparent density, 3 surface and apparent density, "
            "4 full with edge padding correction (default: by the layers)")
        ->check(CLI::Range(0, 4));
    command->add_option("--bounds", options.boundsFile,
                        "Bounds file to write with --topography: cells of air are held (default: NAME_bounds.txt "
                        "beside NAME.mtx)");
    command->add_option("--ground-bounds", options.groundBounds,
                        "lower,upper of the cells of ground in that file (default: 0,99 for magnetic types, else "
                        "-99,99; 99 and -99 leave a side free)");
    command->footer(
        "With --topography the bounds line of the control file names the bounds file, and the initial model is 0 in "
        "the cells of air. With positivity flag 2, whose barrier is infinite at 0, start from a small value above 0 "
        "instead: air keeps it and has no response.\n\n"
        "Examples:\n"
        "  voxlith-tools mtx --mesh m.msh --stations gz.obs --type gz --out gz.mtx\n"
        "  voxlith-tools mtx --mesh m.msh --stations tmi.obs --type tmi --field 60,10,50000 --out tmi.mtx\n"
        "  voxlith-tools mtx --mesh m.msh --stations gz.obs --type gz --topography hill.topo --ground-bounds 0,1 "
        "--out gz.mtx");
    return command;
}

MtxReport writeMtxFile(const MtxOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    checkOptions(options);
    LayerPlan plan;
    const MtxContent content = contentOf(options, plan);
    const BoundsPair ground = groundPair(options, content.survey.code);
    warnOfContent(options, content, plan);
    const std::size_t rows = content.survey.stations.size();
    std::vector<double> gtgdiag(content.survey.mesh.cellCount());
    std::vector<double> layerResponse(rows * (static_cast<std::size_t>(content.survey.mesh.nzl) + 1));

    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, options.outFile);
    writeMtxHead(*file, content);
    MtxReport report;
    report.statistics = writeAllRows(*file, content, plan.sumBelow, options.tolerance, threadCount(options.survey),
                                     gtgdiag, layerResponse);
    fillInactiveDiagonal(content.survey, gtgdiag);
    writeMtxTail(*file, content, gtgdiag, layerResponse);
    if (content.survey.ground.hasInactive()) {
        writeInactiveBounds(options, content.survey, ground, report);
    }
    finishOutputFile(*file);

    report.rows = static_cast<std::int64_t>(rows);
    report.paddedCells = static_cast<std::int64_t>(paddedExtentsOf(content.survey.mesh).total());
    report.fileSize = static_cast<std::int64_t>(std::filesystem::file_size(options.outFile));
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
}

void printMtxReport(const MtxReport& report) {
    const auto kept = static_cast<double>(report.statistics.coefficients);
    const auto all = static_cast<double>(report.rows) * static_cast<double>(report.paddedCells);
    std::printf("rows:              %lld\n", static_cast<long long>(report.rows));
    std::printf("coefficients kept: %lld of %.0f\n", static_cast<long long>(report.statistics.coefficients), all);
    std::printf("compression:       %.2f\n", all / kept);
    std::printf("largest row loss:  %.6f\n", report.statistics.largestLoss);
    std::printf("mean row loss:     %.6f\n", report.statistics.meanLoss);
    std::printf("file size:         %lld bytes\n", static_cast<long long>(report.fileSize));
    if (!report.boundsFile.empty()) {
        std::printf("cells of air:      %lld, held by %s\n", static_cast<long long>(report.inactiveCells),
                    report.boundsFile.c_str());
    }
    std::printf("time:              %.2f s\n", report.seconds);
}

}  // namespace voxlith
