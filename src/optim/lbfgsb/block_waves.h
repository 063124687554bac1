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

// Calls compute(slot, first, length) for every block of n values, `slot` counting from 0 in each wave and below
// `slots`, and add(slot, first, length) after it. `costOfValue` is as in forEachRange. Allocates nothing.
template <class Compute, class Add>
void forEachBlock(std::size_t n, std::size_t slots, std::size_t costOfValue, const Compute& compute, const Add& add) {
    // Enough blocks for equal shares, few enough that their results stay in the second-level cache.
    constexpr std::size_t blocksOfWorker = 32;
    const std::size_t wave = std::min(slots, blocksOfWorker * workersOfProcess().count) * blockLength;
    const auto lengthFrom = [&](std::size_t first) { return std::min(blockLength, n - first); };
    for (std::size_t waveStart = 0; waveStart < n; waveStart += wave) {
        const std::size_t count = std::min(wave, n - waveStart);
        forEachRange(count, blockLength, costOfValue, [&](std::size_t start, std::size_t end) {
            for (std::size_t offset = start; offset < end; offset += blockLength) {
                compute(offset / blockLength, waveStart + offset, lengthFrom(waveStart + offset));
            }
        });
        for (std::size_t offset = 0; offset < count; offset += blockLength) {
            add(offset / blockLength, waveStart + offset, lengthFrom(waveStart + offset));
        }
    }
}

}  // namespace voxlith
