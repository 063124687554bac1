// Work that is done by several threads and handed over in order, so that the result does not depend on their number.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace voxlith {

// Calls compute(worker, item) for each item from 0 to count - 1, on `threads` threads at a time, `worker` being the
// number of the thread, and handOver(worker, item) behind it: one at a time and in the order of the items. The first
// exception of either ends the work and is thrown here.
template <class Compute, class HandOver>
void runInOrder(std::size_t count, std::size_t threads, const Compute& compute, const HandOver& handOver) {
    if (threads < 2) {
        for (std::size_t item = 0; item < count; ++item) {
            compute(std::size_t{0}, item);
            handOver(std::size_t{0}, item);
        }
        return;
    }
    std::mutex lock;
    std::condition_variable handedOver;
    std::size_t nextItem = 0;
    std::size_t nextToHandOver = 0;
    std::exception_ptr failure;

    const auto work = [&](std::size_t worker) {
        std::unique_lock holding(lock);
        try {
            while (nextItem < count && !failure) {
                const std::size_t item = nextItem++;
                holding.unlock();
                compute(worker, item);
                holding.lock();
                handedOver.wait(holding, [&] { return nextToHandOver == item || failure; });
                if (failure) {
                    return;
                }
                holding.unlock();
                handOver(worker, item);
                holding.lock();
                ++nextToHandOver;
                handedOver.notify_all();
            }
        } catch (...) {
            if (!holding.owns_lock()) {
                holding.lock();
            }
            failure = failure ? failure : std::current_exception();
            handedOver.notify_all();
        }
    };
    {
        std::vector<std::jthread> workers;
        for (std::size_t worker = 0; worker < threads; ++worker) {
            workers.emplace_back(work, worker);
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

}  // namespace voxlith
