// Items consumed in order, whatever the number of threads.
#include "forward/ordered_pipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace voxlith {
namespace {

TEST(OrderedPipeline, itemsAreConsumedInOrderFromTheirSlot) {
    for (const std::size_t threads : {1U, 2U, 3U, 8U}) {
        std::vector<std::size_t> result(threads);
        std::vector<std::size_t> order;
        computeInOrder(
            200, threads,
            [&](std::size_t slot, std::size_t item) {
                if (item % 7 == 0) {
                    std::this_thread::sleep_for(std::chrono::microseconds(300));
                }
                result[slot] = item;
            },
            [&](std::size_t slot, std::size_t item) {
                EXPECT_EQ(result[slot], item);
                order.push_back(item);
            });
        ASSERT_EQ(order.size(), 200U);
        for (std::size_t item = 0; item < order.size(); ++item) {
            EXPECT_EQ(order[item], item) << threads << " threads";
        }
    }
}

TEST(OrderedPipeline, asManyThreadsAsAskedForComputeAtATime) {
    for (const int threads : {1, 2, 4}) {
        std::atomic<int> working{0}, most{0};
        computeInOrder(
            60, static_cast<std::size_t>(threads),
            [&](std::size_t, std::size_t) {
                const int now = ++working;
                for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                --working;
            },
            [](std::size_t, std::size_t) {});
        EXPECT_EQ(most, threads);
    }
}

TEST(OrderedPipeline, noItems) {
    computeInOrder(
        0, 4, [](std::size_t, std::size_t) { FAIL(); }, [](std::size_t, std::size_t) { FAIL(); });
}

TEST(OrderedPipeline, aFailureEndsTheWorkAndIsThrown) {
    for (const std::size_t threads : {1U, 2U, 5U}) {
        for (const bool inConsume : {false, true}) {
            std::atomic<int> computed{0};
            const auto fail = [](std::size_t item) {
                if (item == 10) {
                    throw std::runtime_error("item 10");
                }
            };
            try {
                computeInOrder(
                    100000, threads,
                    [&](std::size_t, std::size_t item) {
                        ++computed;
                        if (!inConsume) {
                            fail(item);
                        }
                    },
                    [&](std::size_t, std::size_t item) {
                        if (inConsume) {
                            fail(item);
                        }
                    });
                ADD_FAILURE() << threads << " threads";
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "item 10");
            }
            EXPECT_LE(computed.load(), 11 + static_cast<int>(threads));
        }
    }
}

}  // namespace
}  // namespace voxlith
