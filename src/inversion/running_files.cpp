#include "inversion/running_files.h"

#include "base/tokens.h"
#include "formats/model_file.h"
#include "formats/obs_writer.h"

namespace voxlith {

namespace {

void addTypeName(TextLine& name, const ModelNaming& naming, std::size_t modelType) {
    const std::string& label = naming.modelLabel[modelType];
    // Only the first character tells whether there is a label.
    if (label.empty() || label.front() == ' ')
        name.integerZeros(static_cast<std::int64_t>(modelType) + 1, 2, 2);
    else
        name.text(trimRight(label));
}

// A fixed count for the run, so that its names sort; a number beyond five digits takes what it needs.
int iterationDigits(std::int32_t iteration, std::int32_t maxIterations) {
    int digits = maxIterations < 1000 ? 3 : maxIterations < 10000 ? 4 : 5;
    for (std::int32_t rest = iteration / 100000; rest > 0; rest /= 10)
        ++digits;
    return digits;
}

void writeModel(const ModelWriting& writing, std::string_view name, std::size_t modelType,
                std::span<const double> model) {
    writeModelFile(name, writing.mesh, static_cast<std::int32_t>(modelType), model,
                   writing.sensitivity.depthWeightOf(0), writing.sensitivity.foldDepthWeight, writing.inversionStyle);
}

}  // namespace

TextLine runningModelName(const ModelNaming& naming, std::size_t modelType) {
    TextLine name("voxlith");
    if (naming.nModelTypes > 1) {
        name.text("_");
        addTypeName(name, naming, modelType);
    }
    return name.text(hasMagneticLayout(naming.dataType) ? ".kap" : ".rho");
}

TextLine iterationModelName(const ModelNaming& naming, std::int32_t iteration, std::int32_t maxIterations,
                            std::size_t modelType) {
    const int digits = iterationDigits(iteration, maxIterations);
    TextLine name("voxlith_iter_");
    name.integerZeros(iteration, digits, digits);
    if (naming.nModelTypes > 1)
        addTypeName(name, naming, modelType);
    return name.text(hasMagneticLayout(naming.dataType) ? ".sus" : ".den");
}

void writeRunningFiles(const ModelWriting& writing, const ModelNaming& naming, const ObsSet& obs,
                       std::span<const double> model) {
    writeObsFile("voxlith.pre", obs, obs.predData);
    for (std::size_t type = 0; type < static_cast<std::size_t>(naming.nModelTypes); ++type)
        writeModel(writing, runningModelName(naming, type), type, model);
}

void writeIterationModels(const ModelWriting& writing, const ModelNaming& naming, std::int32_t iteration,
                          std::int32_t maxIterations, std::span<const double> model) {
    for (std::size_t type = 0; type < static_cast<std::size_t>(naming.nModelTypes); ++type)
        writeModel(writing, iterationModelName(naming, iteration, maxIterations, type), type, model);
}

void writeGradientFile(const ModelWriting& writing, std::span<const double> gradient) {
    writeModel(writing, "voxlith_grad.mod", 0, gradient);
}

}  // namespace voxlith
