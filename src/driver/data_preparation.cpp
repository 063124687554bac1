#include "driver/data_preparation.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/free_format.h"
#include "base/tokens.h"
#include "driver/overwritten_inputs.h"
#include "formats/observed_data.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

// A text counts as a number only when a value was really given: "/data/ref.obs" is a file name.
bool readsAsNumbers(std::string_view text, std::span<double> numbers) {
    std::int64_t valuesTaken = 0;
    return freeFormatRead(text, numbers, &valuesTaken) == ReadStatus::good && valuesTaken > 0;
}

void writeResidual(const Messages& messages, ObsSet& obs) {
    for (std::size_t i = 0; i < obs.predData.size(); ++i) {
        const bool bothValid = isValid(obs.obsData[i]) && isValid(obs.refData[i]);
        obs.predData[i] = bothValid ? obs.obsData[i] - obs.refData[i] : dummyValue;
    }
    if (!messages.checkOnly) {
        writeObsFile("voxlith_residual.obs", obs, obs.predData);
    }
}

void applyOffsetNumbers(const Messages& messages, ObsSet& obs, std::string_view text, double first) {
    const auto nDataTypes = static_cast<std::size_t>(obs.nDataTypes);
    std::array<double, maxFiles> offsets{};
    offsets.fill(first);
    // One number more is tried at a time; the list stands as far as it can be read.
    for (std::size_t count = 2; count <= nDataTypes; ++count) {
        if (freeFormatRead(text, std::span(offsets).first(count)) != ReadStatus::good) {
            break;
        }
    }
    for (std::size_t type = 0; type < nDataTypes; ++type) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(obs.nData); ++i) {
            obs.refData[obs.index(type, i)] = offsets[type];
        }
    }
    if (nDataTypes > 1) {
        writeResidual(messages, obs);
    }
}

void applyReferenceFile(RunState& run, const std::string& text) {
    if (!fileExists(fileNameOf(text))) {
        return;
    }
    refuseOverwrittenBy(run.control, "voxlith_residual.obs");
    readObsFile(run.messages, ObsReadMode::reference, text, run.obs, run.control.cleaning);
    if (run.obs.nMasked > 0 && !run.messages.checkOnly) {
        refuseOverwrittenBy(run.control, "voxlith_ref_masked.obs");
        writeObsFile("voxlith_ref_masked.obs", run.obs, run.obs.obsData);
    }
    writeResidual(run.messages, run.obs);
}

struct Statistics {
    std::int32_t count = 0;
    double first = 0, minimum = 0, maximum = 0;
};

Statistics statisticsOf(std::span<const double> values) {
    Statistics statistics;
    for (const double value : values) {
        if (!isValid(value)) {
            continue;
        }
        if (statistics.count == 0) {
            statistics.first = statistics.minimum = statistics.maximum = value;
        }
        statistics.minimum = value < statistics.minimum ? value : statistics.minimum;
        statistics.maximum = value > statistics.maximum ? value : statistics.maximum;
        ++statistics.count;
    }
    return statistics;
}

bool differs(float a, float b) {
    return std::fabs(a - b) > 0.01F;
}

void foldIntoModels(RunState& run) {
    const std::size_t cells = run.mesh.cellCount();
    const std::span<const float> depthWeight = run.sensitivity.depthWeightOf(0);
    for (std::size_t at = 0; at < run.arrays.model.size(); ++at) {
        const auto weight = static_cast<double>(depthWeight[at % cells]);
        run.arrays.model[at] *= weight;
        if (run.arrays.refModel[at] > dummyValue) {
            run.arrays.refModel[at] *= weight;
        }
        for (double* bound : {&run.bounds.lowerBound[at], &run.bounds.upperBound[at]}) {
            if (*bound > -9999.0) {
                *bound *= weight;
            }
        }
    }
}

// Fixes all layers from `firstLayer` (from 1) down, in all model types; returns how many cells these are.
std::int32_t fixLayersFrom(RunState& run, std::int32_t firstLayer) {
    std::int32_t count = 0;
    const auto nz = static_cast<std::size_t>(run.mesh.nz);
    const auto first = static_cast<std::size_t>(firstLayer) - 1;
    for (std::size_t column = 0; column < run.bounds.fixedCell.size(); column += nz) {
        for (std::size_t k = first; k < nz; ++k, ++count) {
            run.bounds.fixedCell[column + k] = 1;
        }
    }
    return count;
}

}  // namespace

void applyDataOffset(RunState& run) {
    ObsSet& obs = run.obs;
    obs.refData.assign(obs.refData.size(), 0.0);
    obs.predData = obs.obsData;
    std::string text = run.control.dataOffsetText;
    removeComment(text);
    if (isBlank(text) || startsWithNull(text)) {
        return;
    }
    double number = 0.0;
    if (readsAsNumbers(text, std::span(&number, 1))) {
        if (obs.nDataTypes > 1) {
            refuseOverwrittenBy(run.control, "voxlith_residual.obs");
        }
        applyOffsetNumbers(run.messages, obs, text, number);
    } else {
        applyReferenceFile(run, text);
    }
}

void reportStatistics(RunState& run) {
    constexpr std::string_view heading = " Observed data: NumValid       Minimum       Maximum       Average";
    logLine(run.messages, "");
    logLine(run.messages, heading);
    screenLine("");
    screenLine(heading);
    const ObsSet& obs = run.obs;
    const auto nData = static_cast<std::size_t>(obs.nData);
    for (std::size_t type = 0; type < static_cast<std::size_t>(obs.nDataTypes); ++type) {
        const Statistics statistics = statisticsOf(std::span(obs.predData).subspan(obs.index(type, 0), nData));
        if (statistics.count == 0) {
            screenAndLogLine(run.messages, "                0              *             *             *");
            continue;
        }
        TextLine row;
        row.spaces(15).integer(statistics.count, 9).fixed(statistics.minimum, 14, 2).fixed(statistics.maximum, 14, 2);
        // Compatibility: the column "Average" shows the first valid value over the count.
        screenAndLogLine(run.messages, row.fixed(statistics.first / statistics.count, 14, 2));
    }
}

void fixUncoveredLayers(RunState& run) {
    if (isSurfaceStyle(run.sensitivity.header.inversionStyle)) {
        run.bounds.nFixedCells += fixLayersFrom(run, run.mesh.nzl + 1);
    }
}

void foldDepthWeights(RunState& run) {
    Sensitivity& sensitivity = run.sensitivity;
    const SensitivityHeader& header = sensitivity.header;
    // Compatibility: the first two files decide, whatever the others hold.
    sensitivity.foldDepthWeight =
        !(run.control.nDataTypes > 1 && (differs(header.weightParamA[0], header.weightParamA[1]) ||
                                         differs(header.weightParamB[0], header.weightParamB[1])));
    if (sensitivity.foldDepthWeight) {
        foldIntoModels(run);
    }
    // Compatibility: only the standard style knows clipLayer, and its cells are not counted as fixed.
    if (header.inversionStyle == InversionStyle::standard && run.control.clipLayer > 0) {
        fixLayersFrom(run, run.control.clipLayer);
    }
}

}  // namespace voxlith
