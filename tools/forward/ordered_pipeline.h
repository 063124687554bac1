// Items computed by several threads and consumed in their order, so that a result does not depend on the number of
// threads.
#pragma once

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_pipeline.h>
#include <oneapi/tbb/task_arena.h>

#include <cstddef>

namespace voxlith {

// Calls compute(slot, item) for each item from 0 to count - 1, on `threads` threads, and consume(slot, item) after it,
// one at a time in ascending order of the items. A slot (0 to threads - 1) belongs to one item from its computation to
// the end of its consumption: work arrays are indexed by it. The first exception of either ends the work and is thrown
// here.
template <class Compute, class Consume>
void computeInOrder(std::size_t count, std::size_t threads, const Compute& compute, const Consume& consume) {
    namespace tbb = oneapi::tbb;
    // At most `threads` items are under way and they are consecutive, so that their remainders are all different.
    const auto slotOf = [threads](std::size_t item) { return item % threads; };
    std::size_t next = 0;
    const auto nextItem = [&](tbb::flow_control& control) {
        if (next == count) {
            control.stop();
        }
        return next++;
    };
    const auto computeItem = [&](std::size_t item) {
        compute(slotOf(item), item);
        return item;
    };
    const auto consumeItem = [&](std::size_t item) { consume(slotOf(item), item); };
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    tbb::task_arena(static_cast<int>(threads)).execute([&] {
        tbb::parallel_pipeline(threads,
                               tbb::make_filter<void, std::size_t>(tbb::filter_mode::serial_in_order, nextItem) &
                                   tbb::make_filter<std::size_t, std::size_t>(tbb::filter_mode::parallel, computeItem) &
                                   tbb::make_filter<std::size_t, void>(tbb::filter_mode::serial_in_order, consumeItem));
    });
}

}  // namespace voxlith
