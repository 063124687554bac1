// The checkpoint of a run: everything that its next iteration depends on, beside the running files. A run that goes on
// from it leaves the same bytes as one that never stopped.
//
// What the input files determine is not stored. Checksums of it are, so that a checkpoint is not combined with other
// data, sensitivities, weights, bounds or options.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "inversion/inversion_loop.h"
#include "run/checkpoint_file.h"

namespace voxlith {

constexpr std::string_view checkpointName = "voxlith.checkpoint";

// Checksums of what the input files determine.
struct InputChecksums {
    std::uint32_t options = 0, data = 0, sensitivities = 0, weights = 0, bounds = 0, referenceModel = 0;
};

InputChecksums checksumsOf(const InversionProblem& problem);

// The numbers of the run that its continuation has to know before it reads anything else.
struct CheckpointHead {
    std::int32_t iteration = 0;       // the last one that is complete
    std::int32_t startIteration = 0;  // iterations done by runs before
};

// Blocks of the loop: its state and the arrays of the problem. Other kinds of steps add `more` blocks to them.
std::vector<StateBlock> blocksOf(InversionLoop& loop);

bool checkpointExists();

// Verifies the file and reads its head. Throws RunError.
CheckpointHead readCheckpointHead();

void saveCheckpoint(InversionLoop& loop, const InputChecksums& inputs, std::vector<StateBlock> more = {});

// Puts the state back into `loop` and the arrays of its problem. Throws RunError, which names what differs, when the
// checkpoint belongs to other inputs.
void restoreCheckpoint(InversionLoop& loop, const InputChecksums& inputs, std::vector<StateBlock> more = {});

void removeCheckpoint();

}  // namespace voxlith
