#include "cli/mtx_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "base/messages.h"
#include "cli/error_text.h"
#include "cli/work_estimate.h"
#include "formats/mtx/mtx_reader.h"
#include "formats/mtx/mtx_writer.h"
#include "forward/daubechies_taps.h"
#include "forward/mtx_content.h"
#include "forward/mtx_parts.h"
#include "forward/number_text.h"
#include "forward/row_journal.h"
#include "forward/sensitivity_rows.h"
#include "forward/worker_count.h"
#include "help/option_checks.h"
#include "survey/data_types.h"
#include "survey/inversion_style.h"

namespace voxlith {

namespace {

// One of the texts that the option accepts.
MtxForm formOf(const std::string& text) {
    return text == "record" ? MtxForm::record : text == "bare" ? MtxForm::bare : MtxForm::tagged;
}

DepthWeight parseDepthWeight(const std::string& text) {
    if (text == "none") {
        return {};
    }
    const std::vector<double> numbers = parseNumberList("--depth-weight", "z0,beta or none", text, 2);
    if (numbers[0] <= 0 || numbers[1] < 0) {
        throw RunError("--depth-weight " + text + ": expected z0 above 0 and beta not below 0");
    }
    return {numbers[0], numbers[1]};
}

// CLI11's ranges include their ends and let "nan" pass.
std::string checkTolerance(const std::string& text) {
    const std::optional<double> number = parseNumber(text);
    return number && *number >= 0 && *number < 1 ? "" : "expected a number from 0 to below 1, found " + text;
}

// Readers of the record form take the data type from the name of the file.
void warnOfRecordName(const MtxOptions& options) {
    const DataType seen = recordDataType(std::filesystem::path(options.outFile).filename().string());
    if (seen != options.survey.type) {
        warn(options.outFile + ": the record form stores no data type; by its name the file is read as type " +
             std::to_string(codeOf(seen)) +
             (isMagnetic(seen) ? " (\"mag\" in the name)" : " (no \"mag\" in the name)") + ", not as " +
             std::to_string(codeOf(options.survey.type)));
    }
}

void warnOfContent(const MtxOptions& options, const MtxContent& content, const LayerPlan& plan) {
    for (const std::string& warning : content.survey.warnings) {
        warn(warning);
    }
    if (content.form == MtxForm::record) {
        warnOfRecordName(options);
    }
    if (!plan.shownWhole) {
        warn("style " + std::to_string(codeOf(plan.inversionStyle)) + " with " +
             std::to_string(content.survey.mesh.nzl) + " layers: written models show only the first " +
             (writtenCellsPerColumn(plan.inversionStyle, 2) == 1 ? "value" : "two values") + " of a column");
    }
}

std::string boundsFileName(const MtxOptions& options) {
    if (!options.boundsFile.empty()) {
        return options.boundsFile;
    }
    const std::filesystem::path out(options.outFile);
    return (out.parent_path() / (out.stem().string() + "_bounds.txt")).string();
}

// The top layers of the mesh, which the surface styles invert for, must all be active.
void checkStyle(const MtxContent& content) {
    if (content.survey.ground.hasInactive() && isSurfaceStyle(content.inversionStyle)) {
        throw RunError("--topography: expected a file of style 0 or 4, found style " +
                       std::to_string(codeOf(content.inversionStyle)) + ", whose layers begin at the top of the mesh");
    }
}

MtxContent contentOf(const MtxOptions& options, LayerPlan& plan) {
    MtxContent content;
    content.form = options.form;
    content.version = options.version;
    content.survey = readSurvey(options.survey);
    const Survey& survey = content.survey;
    const bool storesStyle = content.form == MtxForm::tagged && content.version > 1;
    plan = planLayers(options.layers, storesStyle, content.survey.mesh);
    content.inversionStyle = plan.inversionStyle;
    checkStyle(content);
    content.filter = daubechiesFilter(static_cast<std::size_t>(options.taps));
    content.depthWeight = options.depthWeight
                              ? *options.depthWeight
                              : defaultDepthWeight(survey.type, survey.mesh, survey.stations, survey.ground);
    checkMtxLimits(headerOf(content));  // before an array of the size of the mesh is taken
    content.cellWeights = cellDepthWeights(content.depthWeight, survey.mesh, survey.ground);
    return content;
}

// Without an option the bounds of active cells are those that the inversion program has without a bounds file.
BoundsPair activeBounds(const MtxOptions& options) {
    const BoundsPair byType = isMagnetic(options.survey.type) ? BoundsPair{0.0, freePair.upper} : freePair;
    return options.activeBounds.value_or(byType);
}

void writeBounds(const MtxOptions& options, const Survey& survey, MtxReport& report) {
    const std::size_t nz = survey.mesh.zCentre.size();
    const BoundsPair active = activeBounds(options);
    report.boundsFile = boundsFileName(options);
    for (const std::int32_t cells : survey.ground.inactiveCells) {
        report.inactiveCells += cells;
    }
    writeBoundsPairs(report.boundsFile, survey.mesh.cellCount(),
                     [&](std::size_t cell) { return survey.ground.isInactive(cell, nz) ? fixedPair : active; });
}

// The options that say what is in the file.
void addContentOptions(CLI::App* command, MtxOptions& options) {
    addSurveyOptions(*command, options.survey);
    CLI::Option* const topography = command->get_option("--topography");
    command->add_option("--out", options.outFile, "Sensitivity file to write")->required()->type_name("FILE");
    command
        ->add_option_function<std::string>(
            "--depth-weight", [&options](const std::string& text) { options.depthWeight = parseDepthWeight(text); },
            "z0 in metres and beta of W = ((depth + z0)/z0)^(-beta/2), or none (default: z0 half the first layer plus "
            "the mean height of the stations, beta 2 for gz and 3 for all others)")
        ->type_name("Z0,BETA");
    command->add_option("--taps", options.taps, "Length of the wavelet filter")
        ->type_name("{4,6,8}")
        ->check(oneOf({"4", "6", "8"}))
        ->capture_default_str();
    command
        ->add_option("--tolerance", options.tolerance,
                     "Largest loss of a row: norm of the dropped coefficients over the norm of the row")
        ->type_name("NUMBER")
        ->check(checkTolerance)
        ->capture_default_str();
    command
        ->add_option_function<std::string>(
            "--form", [&options](const std::string& text) { options.form = formOf(text); }, "Layout of the file")
        ->type_name("{tagged,bare,record}")
        ->check(oneOf({"tagged", "bare", "record"}))
        ->default_str("tagged");
    command->add_option("--version", options.version, "Version of the tagged form")
        ->type_name("{0,1,2}")
        ->check(wholeNumber(0, 2))
        ->capture_default_str();
    command
        ->add_option("--layers", options.layers.layers,
                     "Layers that the file covers, for the surface styles (default: as the style needs)")
        ->type_name("COUNT")
        ->check(CLI::PositiveNumber);
    command
        ->add_option_function<std::int32_t>(
            "--style", [&options](std::int32_t code) { options.layers.style = InversionStyle{code}; },
            "Inversion style: 0 full, 1 equivalent source, 2 apparent density, 3 surface and apparent density, "
            "4 full with edge padding correction (default: by the layers)")
        ->type_name("{0,1,2,3,4}")
        ->check(wholeNumber(0, 4));
    command
        ->add_option("--bounds", options.boundsFile,
                     "Bounds file to write with --topography, in which inactive cells are fixed (default: "
                     "NAME_bounds.txt beside NAME.mtx)")
        ->type_name("FILE")
        ->needs(topography);
    command
        ->add_option_function<std::string>(
            "--ground-bounds",
            [&options](const std::string& text) {
                options.activeBounds = parseBoundsPair("--ground-bounds " + text, text);
            },
            "Bounds of the active cells in that file (default: 0,99 for magnetic types, else -99,99; 99 and -99 "
            "mean no bound)")
        ->type_name("LOWER,UPPER")
        ->needs(topography);
}

}  // namespace

CLI::App* addMtxJoinCommand(CLI::App& tools, MtxOptions& options) {
    CLI::App* command = tools.add_subcommand("mtx-join", "Join sensitivity files that contain parts of the rows");
    addContentOptions(command, options);
    command->add_option("FILE", options.parts, "Files that mtx --rows wrote, in any order")->required();
    command->footer(
        "Give the options of mtx without --rows: the file has the same bytes as that of a single mtx. Missing rows, "
        "and "
        "parts of another survey, mesh or option, are errors.\n\n"
        "Example:\n"
        "  voxlith-tools mtx --mesh m.msh --stations gz.obs --type gz --rows 1/2 --out part1.mtx\n"
        "  voxlith-tools mtx --mesh m.msh --stations gz.obs --type gz --rows 2/2 --out part2.mtx\n"
        "  voxlith-tools mtx-join --mesh m.msh --stations gz.obs --type gz --out gz.mtx part1.mtx part2.mtx");
    return command;
}

CLI::App* addMtxCommand(CLI::App& tools, MtxOptions& options) {
    CLI::App* command = tools.add_subcommand("mtx", "Compute the sensitivity file of a survey");
    addContentOptions(command, options);
    command
        ->add_option("--rows", options.rows,
                     "Rows to compute: A:B, from 1, or I/N, part I of N (default: all); see mtx-join")
        ->type_name("ROWS");
    command->footer(
        "With --topography, name the bounds file on line 8 of the control file and set the initial model to 0 "
        "in inactive cells; init does both. With positivity flag 2, whose barrier is infinite at 0, start from a small "
        "value above 0 "
        "instead: inactive cells keep it and have no response.\n\n"
        "Start a stopped run again with the same options: it continues after the last complete row. OUT.unfinished "
        "and OUT.unfinished.rows contain the rows so far.\n\n"
        "Examples:\n"
        "  voxlith-tools mtx --mesh m.msh --stations gz.obs --type gz --out gz.mtx\n"
        "  voxlith-tools mtx --mesh m.msh --stations tmi.obs --type tmi --field 60,10,50000 --out tmi.mtx\n"
        "  voxlith-tools mtx --mesh m.msh --stations gz.obs --type gz --topography hill.topo --ground-bounds 0,1 "
        "--out gz.mtx");
    return command;
}

namespace {

// Arrays that follow the rows.
struct TailArrays {
    std::vector<double> gtgdiag, layerResponse;
};

std::size_t threadsOf(const MtxOptions& options, const MtxContent& content) {
    const MeshGeometry& mesh = content.survey.mesh;
    return threadCount(options.survey, rowWorkBytes(mesh.cellCount(), paddedExtentsOf(mesh).total()));
}

TailArrays makeTail(const MtxContent& content) {
    const MeshGeometry& mesh = content.survey.mesh;
    return {std::vector<double>(mesh.cellCount()),
            std::vector<double>(content.survey.stations.size() * (static_cast<std::size_t>(mesh.nzl) + 1))};
}

void writeJoined(const MtxOptions& options, const MtxContent& content, bool sumBelow, OutputFile& file,
                 MtxReport& report) {
    const StoredRows stored = findRowsInParts(options.parts, content);
    openOutputFile(file, options.outFile);
    writeHead(file, content);
    TailArrays tail = makeTail(content);
    RowSources sources;
    sources.stored = &stored;
    report.statistics = writeAllRows(file, content, sumBelow, options.tolerance, threadsOf(options, content), sources,
                                     tail.gtgdiag, tail.layerResponse);
    writeMtxTail(file, headerOf(content), tail.gtgdiag, tail.layerResponse);
}

// After an error. What could not be written on, as on a full disk, is closed and stays with its journal.
void abandonFile(std::unique_ptr<OutputFile>& file, const RowJournal& journal) {
    if (file->handle >= 0 && !journal.failed) {
        file->kept = false;
        removeRowJournal(journal);
    }
    file.reset();
}

// Rows that an earlier run left cost no time.
void announceRows(const MtxOptions& options, const MtxContent& content, std::size_t rowsLeft) {
    const std::size_t rows = content.survey.stations.size(), cells = content.survey.mesh.cellCount();
    const std::size_t padded = paddedExtentsOf(content.survey.mesh).total();
    constexpr double bytesPerCoefficient = 8.0;
    const double seconds = rowSeconds(cells, padded) * static_cast<double>(rows - rowsLeft);
    announceWork({"rows", rows, cells, bytesPerCoefficient * static_cast<double>(rows) * static_cast<double>(padded),
                  " before compression", seconds / static_cast<double>(threadsOf(options, content))});
}

void writeComputed(const MtxOptions& options, const MtxContent& content, bool sumBelow, OutputFile& file,
                   RowJournal& journal, MtxReport& report) {
    const InterruptedRun run = findInterruptedRun(options.outFile, content, sumBelow, options.tolerance);
    report.continuedRows = static_cast<std::int64_t>(run.rows);
    if (run.rows > 0) {
        warn(options.outFile + ": continuing after row " + std::to_string(run.rows) + " of " +
             std::to_string(content.survey.stations.size()) + ", where an earlier run was stopped");
    }
    openUnfinishedFile(file, options.outFile, run);
    if (run.rows == 0) {
        writeHead(file, content);
    }
    openRowJournal(journal, options.outFile, content, sumBelow, options.tolerance, run);
    TailArrays tail = makeTail(content);
    const RowSources sources{&run.stored, run.rows, &journal};
    announceRows(options, content, run.rows);
    report.statistics = writeAllRows(file, content, sumBelow, options.tolerance, threadsOf(options, content), sources,
                                     tail.gtgdiag, tail.layerResponse);
    writeMtxTail(file, headerOf(content), tail.gtgdiag, tail.layerResponse);
}

}  // namespace

void checkMtxOutputs(const MtxOptions& options) {
    std::vector<NamedFile> parts;
    for (const std::string& part : options.parts) {
        parts.push_back({"the parts", part});
    }
    checkOutput({"--out", options.outFile}, options.survey, parts);
    if (!options.survey.topographyFile.empty()) {
        parts.push_back({"--out", options.outFile});
        checkOutput({"--bounds", boundsFileName(options)}, options.survey, parts);
    }
}

MtxReport writeMtxFile(const MtxOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    checkMtxOutputs(options);
    LayerPlan plan;
    MtxContent content = contentOf(options, plan);
    warnOfContent(options, content, plan);
    MtxReport report;
    report.allRows = static_cast<std::int64_t>(content.survey.stations.size());
    if (!options.rows.empty()) {
        const RowRange range = parseRows(options.rows, content.survey.stations.size());
        keepStations(range, content);
        report.firstRow = static_cast<std::int64_t>(range.first) + 1;
    }
    const std::size_t rows = content.survey.stations.size();
    auto file = std::make_unique<OutputFile>();
    RowJournal journal;
    try {
        if (options.parts.empty()) {
            writeComputed(options, content, plan.sumBelow, *file, journal, report);
        } else {
            writeJoined(options, content, plan.sumBelow, *file, report);
        }
        if (content.survey.ground.hasInactive() && options.rows.empty()) {
            writeBounds(options, content.survey, report);
        }
        finishOutputFile(*file);
    } catch (...) {
        abandonFile(file, journal);
        throw;
    }
    removeRowJournal(journal);
    writeSideFile(options.outFile, options.survey);

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
    if (report.rows < report.allRows) {
        std::printf("part:              rows %lld to %lld of %lld\n", static_cast<long long>(report.firstRow),
                    static_cast<long long>(report.firstRow + report.rows - 1), static_cast<long long>(report.allRows));
    }
    std::printf("coefficients kept: %lld of %.0f\n", static_cast<long long>(report.statistics.coefficients), all);
    std::printf("compression:       %.2f\n", all / kept);
    if (report.statistics.rowsWithLoss == report.rows) {
        std::printf("largest row loss:  %.6f\n", report.statistics.largestLoss);
        std::printf("mean row loss:     %.6f\n", report.statistics.meanLoss);
    }
    std::printf("file size:         %lld bytes\n", static_cast<long long>(report.fileSize));
    if (!report.boundsFile.empty()) {
        std::printf("inactive cells:    %lld, fixed by %s\n", static_cast<long long>(report.inactiveCells),
                    report.boundsFile.c_str());
    }
    std::printf("time:              %.2f s\n", report.seconds);
}

}  // namespace voxlith
