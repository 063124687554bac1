// The files that a run writes of its models: at every iteration, so that a stopped run loses nothing, at numbered
// iterations, and at the end. Suffixes and layouts follow the first data type, for all model types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/large_array.h"
#include "base/staged_files.h"
#include "base/text_line.h"
#include "inversion/inversion_problem.h"
#include "survey/data_types.h"

namespace voxlith {

// Model types count from 0. A name holds the label of the type, or its number in two digits when the label is blank;
// with one model type it holds neither.

// "voxlith.kap" (magnetic) or "voxlith.rho"; with several model types "voxlith_" and the label.
TextLine runningModelName(DataType firstType, const InversionOptions& options, std::size_t modelType);

// "voxlith_iter_", the iteration in as many digits as options.maxIterations needs, the label, and ".sus" (magnetic) or
// ".den".
TextLine iterationModelName(DataType firstType, const InversionOptions& options, std::int32_t iteration,
                            std::size_t modelType);

// As the running name, with ".sus" or ".den".
TextLine finalModelName(DataType firstType, const InversionOptions& options, std::size_t modelType);

// Where the content of a running file is that an iteration was too fast to write.
enum class UnwrittenPlace { none, arrays, copy };

// What the running files say of an iteration that is too fast to write them; it is written when files are published. It
// stays in the arrays of the inversion for as long as these hold it.
struct UnwrittenFiles {
    UnwrittenPlace model = UnwrittenPlace::none, gradient = UnwrittenPlace::none;
    LargeArray<double> modelCopy, gradientCopy;  // (k, i, j, model type)
    std::vector<double> predDataCopy;
};

// Allocates the copies.
void reserveUnwritten(const InversionProblem& problem, UnwrittenFiles& unwritten);

// Before arrays.model, obs.predData or arrays.delm (the gradient) change in another way than by a step of the optimiser
// that cannot fail: copies what they hold for the files. Allocates nothing after reserveUnwritten.
void keepUnwritten(const InversionProblem& problem, UnwrittenFiles& unwritten);

// Stages the unwritten files, if there are any. Throws RunError.
void stageUnwritten(const InversionProblem& problem, UnwrittenFiles& unwritten, StagedFiles& staged);

// Each takes arrays shaped (k, i, j, model type), writes the models in physical units, allocates nothing and throws
// RunError when a file cannot be written. The first three stage their files, so that publishStagedFiles brings them
// under their names.
void stageRunningFiles(const InversionProblem& problem, std::span<const double> model, StagedFiles& staged);
void stageIterationModels(const InversionProblem& problem, std::int32_t iteration, std::span<const double> model,
                          StagedFiles& staged);
void stageGradientFile(const InversionProblem& problem, std::span<const double> gradient, StagedFiles& staged);
void writeFinalModels(const InversionProblem& problem, std::span<const double> model);

}  // namespace voxlith
