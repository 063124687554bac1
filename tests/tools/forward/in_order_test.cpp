// Work handed over in order by any number of threads.
#include "forward/in_order.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>

namespace voxlith {
namespace {

TEST(InOrder, itemsAreHandedOverInOrderAndByTheirWorker) {
    for (const std::size_t threads : {1U, 2U, 3U, 8U}) {
        std::vector<std::size_t> result(threads);
        std::vector<std::size_t> order;
        runInOrder(
            200, threads,
            [&](std::size_t worker, std::size_t item) {
                if (item % 7 == 0) {
                    std::this_thread::sleep_for(std::chrono::microseconds(300));
                }
                result[worker] = item;
            },
            [&](std::size_t worker, std::size_t item) {
                EXPECT_EQ(result[worker], item);
                order.push_back(item);
            });
        ASSERT_EQ(order.size(), 200U);
        for (std::size_t item = 0; item < order.size(); ++item) {
            EXPECT_EQ(order[item], item) << threads << " threads";
        }
    }
}

TEST(InOrder, noItems) {
    runInOrder(
        0, 4, [](std::size_t, std::size_t) { FAIL(); }, [](std::size_t, std::size_t) { FAIL(); });
}

TEST(InOrder, aFailureEndsTheWorkAndIsThrown) {
    for (const std::size_t threads : {1U, 2U, 5U}) {
        for (const bool inHandOver : {false, true}) {
            std::atomic<int> computed{0};
            const auto fail = [](std::size_t item) {
                if (item == 10) {
                    throw std::runtime_error("item 10");
                }
            };
            try {
                runInOrder(
                    100000, threads,
                    [&](std::size_t, std::size_t item) {
                        ++computed;
                        if (!inHandOver) {
                            fail(item);
                        }
                    },
                    [&](std::size_t, std::size_t item) {
                        if (inHandOver) {
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
