#include "run/loop_checkpoint.h"

#include <unistd.h>

#include <cstddef>
#include <span>
#include <utility>

#include "base/messages.h"
#include "base/tokens.h"

namespace voxlith {

namespace {

class Checksum {
public:
    template <typename T>
    Checksum& value(const T& item) {
        sum_ = checksumOf(std::as_bytes(std::span(&item, 1)), sum_);
        return *this;
    }
    template <typename T>
    Checksum& array(const std::vector<T>& items) {
        sum_ = checksumOf(std::as_bytes(std::span(items)), sum_);
        return value(items.size());
    }
    operator std::uint32_t() const { return sum_; }

private:
    std::uint32_t sum_ = 0;
};

struct ComparedInput {
    std::string_view name;
    std::uint32_t InputChecksums::*checksum;
};

constexpr std::array<ComparedInput, 6> comparedInputs{
    {{"the observed data or their uncertainties", &InputChecksums::data},
     {"the sensitivities", &InputChecksums::sensitivities},
     {"the weights", &InputChecksums::weights},
     {"the bounds", &InputChecksums::bounds},
     {"the reference model", &InputChecksums::referenceModel},
     {"trade-off, background, positivity or product definitions", &InputChecksums::options}}};

std::vector<StateBlock> headBlocks(CheckpointHead& head) {
    return {blockOf("iteration", head.iteration), blockOf("startIteration", head.startIteration)};
}

void addBlocks(std::vector<StateBlock>& blocks, std::vector<StateBlock> more) {
    blocks.insert(blocks.end(), more.begin(), more.end());
}

}  // namespace

InputChecksums checksumsOf(const InversionProblem& problem) {
    const InversionOptions& options = problem.options;
    const Sensitivity& sensitivity = problem.sensitivity;
    InputChecksums inputs;
    Checksum chosen;
    chosen.value(options.nModelTypes).value(options.positivity).value(options.multiplier).value(options.iBackground);
    chosen.value(options.BackVal).value(options.InversionMethod);
    for (const std::vector<ProductTerm>& terms : problem.products.terms) {
        for (const ProductTerm& term : terms) {
            chosen.value(term.mtx).value(term.model).value(term.coefficient);
        }
    }
    inputs.options = chosen;
    // Reference data are left out: the background that an inversion removes is added to them, and the checkpoint has
    // both.
    inputs.data = Checksum().array(problem.obs.obsData).array(problem.obs.obsStd);
    inputs.sensitivities =
        Checksum().array(sensitivity.depthWeight).array(sensitivity.gtgdiag).array(sensitivity.layerResponse);
    const SmoothnessWeights& weights = problem.weights;
    inputs.weights = Checksum().array(weights.wtS).array(weights.wtE).array(weights.wtN).array(weights.wtZ);
    const ModelBounds& bounds = problem.bounds;
    inputs.bounds =
        Checksum().array(bounds.boundType).array(bounds.fixedCell).array(bounds.lowerBound).array(bounds.upperBound);
    inputs.referenceModel = Checksum().array(problem.arrays.refModel);
    return inputs;
}

std::vector<StateBlock> blocksOf(InversionLoop& loop) {
    LoopState& state = loop.state;
    InversionArrays& arrays = loop.problem.arrays;
    // Left out is the state of PLIS, which no control file can choose.
    // An optimiser that starts anew reads none of its arrays: three quarters of the file.
    const bool optimiserRuns = !taskIs(state.task, "START");
    return {
        blockOf("loop.iteration", state.iteration),
        blockOf("loop.cyclePhase", state.cyclePhase),
        blockOf("loop.continueFlag", state.continueFlag),
        blockOf("loop.task", state.task),
        blockOf("loop.barrier", state.barrier),
        blockOf("loop.fgTerms", state.fgTerms),
        blockOf("loop.iterTerms", state.iterTerms),
        blockOf("loop.objective", state.objective),
        blockOf("loop.factr", state.factr),
        blockOf("loop.stepCount", state.stepCount),
        blockOf("optimiser.csave", state.optimiser.csave),
        blockOf("optimiser.lsave", state.optimiser.lsave),
        blockOf("optimiser.isave", state.optimiser.isave),
        blockOf("optimiser.dsave", state.optimiser.dsave),
        blockOfArray("model", std::span(arrays.model)),
        blockOfArray("delm", std::span(arrays.delm), optimiserRuns),
        blockOfArray("waBFGS", std::span(arrays.waBFGS), optimiserRuns),
        blockOfArray("iwaBFGS", std::span(arrays.iwaBFGS), optimiserRuns),
        blockOfArray("refData", std::span(loop.problem.obs.refData)),
        blockOfArray("predData", std::span(loop.problem.obs.predData)),
        blockOfArray("productResponse", std::span(loop.problem.sensitivity.productResponse)),
    };
}

bool checkpointExists() {
    return fileExists(std::string(checkpointName));
}

CheckpointHead readCheckpointHead() {
    verifyCheckpoint(std::string(checkpointName));
    CheckpointHead head;
    readCheckpoint(std::string(checkpointName), headBlocks(head));
    return head;
}

void saveCheckpoint(InversionLoop& loop, const InputChecksums& inputs, std::vector<StateBlock> more) {
    CheckpointHead head{loop.state.iteration, loop.problem.options.startIteration};
    InputChecksums stored = inputs;
    std::vector<StateBlock> blocks = headBlocks(head);
    blocks.push_back(blockOf("inputs", stored));
    addBlocks(blocks, blocksOf(loop));
    addBlocks(blocks, std::move(more));
    writeCheckpoint(checkpointName, blocks);
}

void restoreCheckpoint(InversionLoop& loop, const InputChecksums& inputs, std::vector<StateBlock> more) {
    const std::string name(checkpointName);
    InputChecksums stored;
    readCheckpoint(name, std::vector<StateBlock>{blockOf("inputs", stored)});
    for (const ComparedInput& input : comparedInputs) {
        if (stored.*input.checksum != inputs.*input.checksum) {
            throw RunError(name + ": belongs to another inversion: " + std::string(input.name) +
                           " changed after it was written");
        }
    }
    CheckpointHead head;
    std::vector<StateBlock> blocks = headBlocks(head);
    blocks.push_back(blockOf("inputs", stored));
    addBlocks(blocks, blocksOf(loop));
    addBlocks(blocks, std::move(more));
    // A block too many is the state of another kind of step.
    readCheckpoint(name, blocks, OtherBlocks::refused);
    loop.state.continueFlag = loop.state.iteration < loop.problem.options.maxIterations;
}

void removeCheckpoint() {
    ::unlink(std::string(checkpointName).c_str());
}

}  // namespace voxlith
