#include "driver/run_steps.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include "base/staged_files.h"
#include "base/tokens.h"
#include "driver/command_line.h"
#include "driver/continuation.h"
#include "driver/control_file.h"
#include "driver/data_preparation.h"
#include "driver/integration_windows.h"
#include "driver/mtx_files.h"
#include "driver/overwritten_inputs.h"
#include "driver/product_definitions.h"
#include "driver/run_log.h"
#include "driver/run_state.h"
#include "driver/usage.h"
#include "formats/apparent_density_table.h"
#include "formats/bounds_file.h"
#include "formats/error_table.h"
#include "formats/model_file.h"
#include "formats/observed_data.h"
#include "inversion/inversion_loop.h"
#include "inversion/running_files.h"
#include "sensitivity/products.h"

namespace voxlith {

namespace {

template <typename WriteLine>
void writeSizes(const RunState& run, WriteLine write) {
    write(TextLine());
    write(TextLine(" number of data   : ").integer(run.obs.nData, 8));
    write(TextLine());
    write(TextLine(" total model cells: ").integer(run.sensitivity.header.nCells, 8));
    write(TextLine());
    write(TextLine(" number of x cells: ").integer(run.mesh.nx, 8));
    write(TextLine(" number of y cells: ").integer(run.mesh.ny, 8));
    write(TextLine(" number of z cells: ").integer(run.mesh.nz, 8));
}

void reportSummary(RunState& run) {
    Messages& messages = run.messages;
    logLine(messages, "");
    logLine(messages, TextLine(" Inversion style: ").integer(codeOf(run.sensitivity.header.inversionStyle), 4));
    writeSizes(run, [](const TextLine& line) { screenLine(line); });
    writeSizes(run, [&](const TextLine& line) { logLine(messages, line); });
    logLine(messages, "");
    logLine(messages, run.sensitivity.idisk == 0 ? "MTX file accessed from memory" : "MTX file accessed from disk");
    logLine(messages, "");
    constexpr double perKilo = 0.0009765625;
    const auto megabytes = static_cast<std::int64_t>(run.memoryTally * perKilo * perKilo);
    const TextLine allocated = TextLine("Memory allocated: ").integer(megabytes, 8).text("MB");
    screenLine("");
    screenLine(allocated);
    logLine(messages, "");
    logLine(messages, allocated);
}

void readObservedData(RunState& run) {
    ObsSet& obs = run.obs;
    const ObsCleaning& cleaning = run.control.cleaning;
    run.lines.integrationInterval = cleaning.integrationInterval;
    const bool averaged = cleaning.integrationInterval > 0.0F;
    if (averaged) {
        allocateLineTables(obs);
    }
    readObsFile(run.messages, ObsReadMode::observed, run.control.obsFileText, obs, cleaning);
    if (obs.nMasked > 0 && !run.messages.checkOnly) {
        refuseOverwrittenBy(run.control, "voxlith_obs_masked.obs");
        writeObsFile("voxlith_obs_masked.obs", obs, obs.obsData);
    }
    if (averaged) {
        buildIntegrationWindows(run.messages, obs, run.lines);
    }
}

void readModels(RunState& run) {
    const ControlValues& control = run.control;
    const Positivity positivity = control.inversion.positivity;
    readBoundsFile(run.messages, positivity, control.boundsText, run.mesh, control.inversion.nModelTypes, run.bounds);
    fixUncoveredLayers(run);
    std::string initialModel = control.resumes ? "null" : control.initialModelText;
    // Compatibility: a continued run reads this one file, which a run with several model types does not write.
    if (control.iRestart > 0 && !control.resumes) {
        initialModel = control.continuedModel.empty() ? runningModelOf(run) : control.continuedModel;
    }
    readModelFile(run.messages, positivity, initialModel, run.mesh, control.inversion.nModelTypes, run.arrays.model,
                  run.bounds, 0.0F);
    readModelFile(run.messages, positivity, control.referenceModelText, run.mesh, control.inversion.nModelTypes,
                  run.arrays.refModel, run.bounds, 0.0F);
    foldDepthWeights(run);
}

std::string_view styleLabel(InversionStyle style) {
    switch (style) {
        case InversionStyle::equivalentSource:
            return "Inversion Style : Equivalent source";
        case InversionStyle::apparentDensity:
            return "Inversion Style : Apparent density";
        case InversionStyle::surfaceAndApparentDensity:
            return "Inversion Style : Surface+Apparent density";
        case InversionStyle::edgePadding:
            return "Inversion Style : 3D with edge padding correction";
        default:
            return "Inversion Style : Standard 3D";
    }
}

}  // namespace

std::string runningModelOf(const RunState& run) {
    return hasMagneticLayout(run.obs.dataType[0]) ? "voxlith.kap" : "voxlith.rho";
}

void readInputs(RunState& run, std::span<const std::string> arguments) {
    run.startedAt = currentDateTime();
    readCommandLine(arguments, run.control);
    screenLine("");
    screenLine(" Reading the input parameters");
    screenLine("");
    readControlFile(run.messages, run.startedAt, run.control);
    buildProductTables(run.messages, run.control, run.products);
}

void readSensitivities(RunState& run) {
    readMtxFiles(run);
    setDataTypes(run);
    refuseOverwrittenModels(run);
    reportSummary(run);
}

void readSurvey(RunState& run) {
    readWeightFiles(run.messages, run.sensitivity.header.inversionStyle, run.control.alphas, run.control.nWeightFiles,
                    run.control.weightFileName, run.mesh, run.weights);
    readObservedData(run);
    applyDataOffset(run);
    reportStatistics(run);
    if (!run.control.rowsLater) {
        buildBlockedRows(run.sensitivity, run.obs.obsStd);
    }
    readModels(run);
}

void openProgress(RunState& run, const ResumedRun& resumed) {
    if (run.control.resumes) {
        resumeProgressFiles(run.messages, run.control.iMode, resumed, run.control.inversion, run.progressTable,
                            run.lineSearchTable);
    } else if (run.control.iRestart > 0) {
        recoverProgressFiles(run.messages, run.control.iMode, run.control.inversion, run.progressTable,
                             run.lineSearchTable);
    } else {
        openProgressFiles(run.messages, run.control.iMode, run.progressTable, run.lineSearchTable);
    }
    TextLine label(styleLabel(run.sensitivity.header.inversionStyle));
    screenAndLogLine(run.messages, label.padTo(static_cast<int>(lineWidth)));
}

InversionProblem inversionProblemOf(RunState& run) {
    return {run.control.inversion,
            run.mesh,
            run.weights,
            run.products,
            run.sensitivity,
            run.obs,
            run.lines,
            run.bounds,
            run.arrays,
            run.timers};
}

void closeInversion(RunState& run) {
    closeLineFile(run.progressTable);
    if (run.sensitivity.idisk == 1) {
        closeBinaryInput(run.sensitivity.files[0].input);
    }
}

void writeResults(const InversionProblem& problem) {
    const ObsSet& obs = problem.obs;
    writeFinalModels(problem, problem.arrays.model);
    writeObsFile("voxlith.pre", obs, obs.predData);
    writeErrorTable(obs);
    if (hasApparentDensityTable(problem.style())) {
        writeApparentDensityTable("voxlith_appden.csv", problem.mesh, problem.arrays.model, obs);
    }
    removePreviousVersions("voxlith");
}

void reportCompletion(RunState& run, double cpuStart, double julianStart) {
    screenLine("");
    screenLine("Inversion completed");
    screenLine("");
    closeLog(run.messages, cpuStart, julianStart);
}

}  // namespace voxlith
