// Passes over long vectors whose sums keep their order with any number of workers: the blocks of a wave are computed by
// all workers, then what they have computed is added by one, block by block in ascending order.
#pragma once

#include <algorithm>
#include <cstddef>

#include "base/workers.h"
#include "optim/lbfgsb/block_kernels.h"

namespace voxlith {

// Blocks of a wave at most: their results have a fixed place.
constexpr std::size_t mostSlots = 256;

// Values of a wave of at most `slots` blocks: enough blocks for equal shares of several workers, few enough that their
// results stay in the second-level cache; so few for one worker that all their vectors stay there.
inline std::size_t waveLength(std::size_t slots) {
    constexpr std::size_t blocksOfOne = 4, blocksOfEach = 32;
    const std::size_t workers = workersOfProcess().count;
    return std::min(slots, workers == 1 ? blocksOfOne : blocksOfEach * workers) * blockLength;
}

// Calls compute(slot, first, length) for every block of the values `start`, a multiple of blockLength, to `end`, `slot`
// counting from 0 in each wave and below `slots`, and add(slot, first, length) after it. `costOfValue` is as in
// forEachRange. Allocates nothing.
template <class Compute, class Add>
void forEachBlock(std::size_t start, std::size_t end, std::size_t slots, std::size_t costOfValue,
                  const Compute& compute, const Add& add) {
    const auto lengthFrom = [&](std::size_t first) { return std::min(blockLength, end - first); };
    for (std::size_t waveStart = start; waveStart < end; waveStart += waveLength(slots)) {
        const std::size_t count = std::min(waveLength(slots), end - waveStart);
        forEachRange(count, blockLength, costOfValue, [&](std::size_t first, std::size_t last) {
            for (std::size_t offset = first; offset < last; offset += blockLength) {
                compute(offset / blockLength, waveStart + offset, lengthFrom(waveStart + offset));
            }
        });
        for (std::size_t offset = 0; offset < count; offset += blockLength) {
            add(offset / blockLength, waveStart + offset, lengthFrom(waveStart + offset));
        }
    }
}

}  // namespace voxlith
