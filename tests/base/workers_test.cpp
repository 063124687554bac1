#include "base/workers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace voxlith {
namespace {

// Runs the pieces one after the other, the last one first.
void runBackwards(void*, std::size_t pieces, PieceCall call, const void* loop) {
    for (std::size_t piece = pieces; piece-- > 0;) {
        call(loop, piece);
    }
}

struct WorkersForTest {
    explicit WorkersForTest(std::size_t count) { setWorkers({count, 1, runBackwards, nullptr}); }
    ~WorkersForTest() { setWorkers({}); }
    WorkersForTest(const WorkersForTest&) = delete;
    WorkersForTest& operator=(const WorkersForTest&) = delete;
};

TEST(Workers, oneWorkerTakesEverythingAtOnce) {
    std::vector<std::size_t> calls;
    forEachRange(100000, [&](std::size_t first, std::size_t end) {
        calls.push_back(first);
        calls.push_back(end);
    });
    EXPECT_EQ(calls, (std::vector<std::size_t>{0, 100000}));
}

TEST(Workers, rangesCoverEveryValueOnceAndBeginAtSteps) {
    for (const std::size_t workers : {2U, 3U, 7U}) {
        const WorkersForTest team(workers);
        for (const std::size_t size : {0U, 1U, 5U, 8U, 63U, 64U, 65U, 1000U}) {
            for (const std::size_t step : {1U, 8U, 64U}) {
                std::vector<int> visits(size);
                std::size_t ranges = 0;
                forEachRange(size, step, 1, [&](std::size_t first, std::size_t end) {
                    EXPECT_EQ(first % step, 0U);
                    EXPECT_LT(first, end);
                    ++ranges;
                    for (std::size_t n = first; n < end; ++n) {
                        ++visits[n];
                    }
                });
                EXPECT_EQ(visits, std::vector<int>(size, 1)) << workers << " " << size << " " << step;
                EXPECT_LE(ranges, workers);
            }
        }
    }
}

TEST(Workers, aShortLoopStaysWithOneWorker) {
    setWorkers({4, 1000, runBackwards, nullptr});
    EXPECT_EQ(piecesFor(999), 1U);
    EXPECT_EQ(piecesFor(2500), 2U);
    EXPECT_EQ(piecesFor(1000000), 4U);
    setWorkers({});
    EXPECT_EQ(piecesFor(1000000), 1U);
}

TEST(Workers, sharesOfUnequalPartsAreAsEqualAsThePartsAllow) {
    const std::vector<std::int64_t> before{0, 10, 20, 100, 110, 200};
    EXPECT_EQ(startOfPiece(before, 0, 2), 0U);
    EXPECT_EQ(startOfPiece(before, 1, 2), 3U);  // 100 of 200
    EXPECT_EQ(startOfPiece(before, 2, 2), 5U);
}

TEST(Workers, partsWithoutWorkAreNotLost) {
    for (const std::vector<std::int64_t>& before :
         {std::vector<std::int64_t>{0, 0, 0, 0}, {0, 0, 5, 5}, {0, 7, 7, 7}, {0}}) {
        for (const std::size_t pieces : {1U, 2U, 3U, 7U}) {
            std::size_t next = 0;
            for (std::size_t piece = 0; piece < pieces; ++piece) {
                EXPECT_EQ(startOfPiece(before, piece, pieces), next);
                next = startOfPiece(before, piece + 1, pieces);
            }
            EXPECT_EQ(next, before.size() - 1);
        }
    }
}

}  // namespace
}  // namespace voxlith
