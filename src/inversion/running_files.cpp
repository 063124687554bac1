#include "inversion/running_files.h"

#include <string>
#include <string_view>

#include "base/tokens.h"
#include "formats/model_file.h"
#include "formats/observed_data.h"

namespace voxlith {

namespace {

// Adds `separator` and the label or number of the type where there are several types.
void addTypeName(TextLine& name, std::string_view separator, const InversionOptions& options, std::size_t modelType) {
    if (options.nModelTypes < 2) {
        return;
    }
    name.text(separator);
    const std::string& label = options.modelLabel[modelType];
    // Labels are words: one that begins with a blank is blank.
    if (label.empty() || label.front() == ' ') {
        name.integerZeros(static_cast<std::int64_t>(modelType) + 1, 2, 2);
    } else {
        name.text(trimRight(label));
    }
}

std::string_view finalSuffix(DataType firstType) {
    return hasMagneticLayout(firstType) ? ".sus" : ".den";
}

// A fixed count for the run, so that its names sort; a number beyond five digits takes what it needs.
int iterationDigits(std::int32_t iteration, std::int32_t maxIterations) {
    int digits = maxIterations < 1000 ? 3 : maxIterations < 10000 ? 4 : 5;
    for (std::int32_t rest = iteration / 100000; rest > 0; rest /= 10) {
        ++digits;
    }
    return digits;
}

void stageModel(const InversionProblem& problem, std::string_view name, std::size_t modelType,
                std::span<const double> model, PreviousVersion previous, StagedFiles& staged) {
    if (staged.discarded) {
        return;
    }
    OutputFile file;
    openOutputFile(file, name);
    appendModel(file, problem.mesh, static_cast<std::int32_t>(modelType), model, problem.sensitivity.depthWeightOf(0),
                problem.sensitivity.foldDepthWeight, problem.style());
    stageOutputFile(file, previous, staged);
}

void stagePrediction(const InversionProblem& problem, std::span<const double> predData, StagedFiles& staged) {
    if (staged.discarded) {
        return;
    }
    OutputFile file;
    openOutputFile(file, "voxlith.pre");
    appendObs(file, problem.obs, predData);
    stageOutputFile(file, PreviousVersion::kept, staged);
}

void stageModelAndPrediction(const InversionProblem& problem, std::span<const double> model,
                             std::span<const double> predData, StagedFiles& staged) {
    stagePrediction(problem, predData, staged);
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        stageModel(problem, runningModelName(problem.obs.dataType[0], problem.options, type), type, model,
                   PreviousVersion::kept, staged);
    }
}

}  // namespace

TextLine runningModelName(DataType firstType, const InversionOptions& options, std::size_t modelType) {
    TextLine name("voxlith");
    addTypeName(name, "_", options, modelType);
    return name.text(hasMagneticLayout(firstType) ? ".kap" : ".rho");
}

TextLine iterationModelName(DataType firstType, const InversionOptions& options, std::int32_t iteration,
                            std::size_t modelType) {
    const int digits = iterationDigits(iteration, options.maxIterations);
    TextLine name("voxlith_iter_");
    name.integerZeros(iteration, digits, digits);
    addTypeName(name, "", options, modelType);
    return name.text(finalSuffix(firstType));
}

TextLine finalModelName(DataType firstType, const InversionOptions& options, std::size_t modelType) {
    TextLine name("voxlith");
    addTypeName(name, "_", options, modelType);
    return name.text(finalSuffix(firstType));
}

void reserveUnwritten(const InversionProblem& problem, UnwrittenFiles& unwritten) {
    unwritten.modelCopy.reserve(problem.modelSize());
    unwritten.gradientCopy.reserve(problem.modelSize());
    unwritten.predDataCopy.reserve(problem.obs.predData.size());
}

void keepUnwritten(const InversionProblem& problem, UnwrittenFiles& unwritten) {
    const auto size = static_cast<std::ptrdiff_t>(problem.modelSize());
    if (unwritten.model == UnwrittenPlace::arrays) {
        unwritten.modelCopy.assign(problem.arrays.model.begin(), problem.arrays.model.begin() + size);
        unwritten.predDataCopy.assign(problem.obs.predData.begin(), problem.obs.predData.end());
        unwritten.model = UnwrittenPlace::copy;
    }
    if (unwritten.gradient == UnwrittenPlace::arrays) {
        unwritten.gradientCopy.assign(problem.arrays.delm.begin(), problem.arrays.delm.begin() + size);
        unwritten.gradient = UnwrittenPlace::copy;
    }
}

void stageUnwritten(const InversionProblem& problem, UnwrittenFiles& unwritten, StagedFiles& staged) {
    const std::size_t size = problem.modelSize();
    if (unwritten.gradient != UnwrittenPlace::none) {
        const bool copied = unwritten.gradient == UnwrittenPlace::copy;
        const std::span<const double> gradient = copied ? unwritten.gradientCopy : std::span(problem.arrays.delm);
        stageGradientFile(problem, gradient.first(size), staged);
        unwritten.gradient = UnwrittenPlace::none;
    }
    if (unwritten.model != UnwrittenPlace::none) {
        const bool copied = unwritten.model == UnwrittenPlace::copy;
        const std::span<const double> model = copied ? unwritten.modelCopy : std::span(problem.arrays.model);
        stageModelAndPrediction(problem, model.first(size), copied ? unwritten.predDataCopy : problem.obs.predData,
                                staged);
        unwritten.model = UnwrittenPlace::none;
    }
}

void stageRunningFiles(const InversionProblem& problem, std::span<const double> model, StagedFiles& staged) {
    stageModelAndPrediction(problem, model, problem.obs.predData, staged);
}

void stageIterationModels(const InversionProblem& problem, std::int32_t iteration, std::span<const double> model,
                          StagedFiles& staged) {
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        stageModel(problem, iterationModelName(problem.obs.dataType[0], problem.options, iteration, type), type, model,
                   PreviousVersion::dropped, staged);
    }
}

void stageGradientFile(const InversionProblem& problem, std::span<const double> gradient, StagedFiles& staged) {
    stageModel(problem, "voxlith_grad.mod", 0, gradient, PreviousVersion::kept, staged);
}

void writeFinalModels(const InversionProblem& problem, std::span<const double> model) {
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        writeModelFile(finalModelName(problem.obs.dataType[0], problem.options, type), problem.mesh,
                       static_cast<std::int32_t>(type), model, problem.sensitivity.depthWeightOf(0),
                       problem.sensitivity.foldDepthWeight, problem.style());
    }
}

}  // namespace voxlith
