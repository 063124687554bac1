#include "run/thread_team.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "run/run_options.h"
#include "sensitivity/products.h"
#include "sensitivity/rows/blocked_products.h"
#include "support/random_sensitivity.h"

namespace voxlith {
namespace {

TEST(ThreadTeam, everyPieceRunsOnceInEveryLoop) {
    for (const std::size_t threads : {2U, 3U, 7U}) {
        const SharedLoops shared(threads, 1);
        for (std::size_t pieces = 1; pieces <= threads; ++pieces) {
            for (int loop = 0; loop < 200; ++loop) {
                std::vector<std::atomic<int>> calls(pieces);
                forEachPiece(pieces, [&](std::size_t piece) { ++calls[piece]; });
                for (const std::atomic<int>& count : calls) {
                    ASSERT_EQ(count, 1);
                }
            }
        }
    }
}

TEST(ThreadTeam, aPieceStaysWithItsThread) {
    const SharedLoops shared(3, 1);
    std::vector<std::set<std::thread::id>> threadsOfPiece(3);
    for (int loop = 0; loop < 50; ++loop) {
        forEachPiece(3, [&](std::size_t piece) { threadsOfPiece[piece].insert(std::this_thread::get_id()); });
    }
    for (const std::set<std::thread::id>& threads : threadsOfPiece) {
        EXPECT_EQ(threads.size(), 1U);
    }
}

TEST(ThreadTeam, afterwardsLoopsAreNotShared) {
    { const SharedLoops shared(4, 1); }
    EXPECT_EQ(workersOfProcess().count, 1U);
    EXPECT_EQ(piecesFor(1000000), 1U);
}

TEST(ThreadTeam, theQuotaOfAControlGroupCountsWholeCores) {
    EXPECT_EQ(coresOfQuota("max 100000\n"), 0U);
    EXPECT_EQ(coresOfQuota("200000 100000\n"), 2U);
    EXPECT_EQ(coresOfQuota("150000 100000\n"), 2U);
    EXPECT_EQ(coresOfQuota("50000 100000\n"), 1U);
    EXPECT_EQ(coresOfQuota(""), 0U);
    EXPECT_EQ(coresOfQuota("200000"), 0U);
    EXPECT_EQ(coresOfQuota("1e300 1"), 0U);
}

// Products of random rows, of which one is empty and one unsorted; some values may be infinite.
struct Products {
    std::vector<double> forward, transposed, padded;
};

Products productsWith(std::size_t threads, bool finite) {
    const SharedLoops shared(threads, 1);
    std::mt19937 random(5);
    const MeshGeometry mesh = testing_support::meshOf({13, 30, 19}, {16, 32, 32});
    const std::size_t paddedCount = 16 * 32 * 32, nData = 333;
    SparseCoefStore store;
    const auto rows = testing_support::randomRows(nData, paddedCount, 900, random, 17);
    store.rowOffset = {1};
    for (const auto& row : rows) {
        store.rowOffset.push_back(store.rowOffset.back() + static_cast<std::int64_t>(row.index.size()));
    }
    reserveRows(store);
    for (std::size_t r = 0; r < nData; ++r) {
        const RawRow raw = rawRowOf(store, r);
        std::vector<std::int32_t> index = rows[r].index;
        if (r % 5 != 0) {  // the others stay unsorted
            std::sort(index.begin(), index.end());
        }
        std::copy(index.begin(), index.end(), raw.coefIndex.begin());
        for (std::size_t p = 0; p < index.size(); ++p) {
            raw.coefValue[p] = std::bit_cast<std::int32_t>(rows[r].value[p]);
        }
    }
    buildBlockedRows(store, nData, 1, paddedCount);
    const BlockedRows& blocked = store.blocked[0];
    std::vector<double> model = testing_support::randomVector(mesh.cellCount(), random);
    std::vector<double> residual = testing_support::randomVector(nData, random);
    if (!finite) {
        model[100] = std::numeric_limits<double>::infinity();
        residual[200] = std::numeric_limits<double>::infinity();
    }
    Products products{std::vector<double>(nData), std::vector<double>(mesh.cellCount()),
                      std::vector<double>(paddedCount, -1.0)};
    const PaddedExtents extents = paddedExtentsOf(mesh);
    const WaveletFilter filter = testing_support::daubechies(6);
    std::vector<double> work(threads * waveletWorkSize(extents));
    padCells(model, {}, mesh, products.padded);
    waveletTransform3D(products.padded, extents, filter, WaveletDirection::forward, work);
    gatherUsed(blocked, products.padded, store.compact);
    const std::span<const double> used = std::span<const double>(store.compact).first(blocked.usedColumns.size());
    multiplyShared(blocked, wordsOf(store), used, allFinite(used), products.forward);
    std::fill(store.compact.begin(), store.compact.end(), 0.0);
    multiplyTransposedShared(blocked, wordsOf(store), residual, allFinite(residual), store.compact);
    scatterUsed(blocked, store.compact, products.padded.size(), products.padded);
    waveletTransform3D(products.padded, extents, filter, WaveletDirection::inverse, work);
    cropCells(products.padded, {}, mesh, products.transposed);
    return products;
}

// Bytes, since values that are not numbers are equal to nothing.
void expectSameBytes(const std::vector<double>& a, const std::vector<double>& b) {
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(double)), 0);
}

TEST(ThreadTeam, productsAreTheSameBytesWithAnyNumberOfThreads) {
    for (const bool finite : {true, false}) {
        const Products one = productsWith(1, finite);
        for (const std::size_t threads : {2U, 3U, 7U, 40U}) {
            const Products many = productsWith(threads, finite);
            expectSameBytes(one.forward, many.forward);
            expectSameBytes(one.transposed, many.transposed);
            expectSameBytes(one.padded, many.padded);
        }
    }
}

std::size_t threadsOf(std::vector<const char*> words) {
    words.insert(words.begin(), "voxlith-run");
    words.push_back("voxlith.inp");
    RunOptions options;
    EXPECT_EQ(parseRunOptions(static_cast<int>(words.size()), words.data(), options), ParseResult::run);
    return options.threads;
}

// Three threads on two cores would take longer than two.
TEST(ThreadTeam, noMoreThreadsThanCoresAreStarted) {
    EXPECT_EQ(threadsOf({}), std::min(coresOfProcess(), mostWorkers));
    EXPECT_EQ(threadsOf({"--threads", "256"}), std::min(coresOfProcess(), mostWorkers));
    EXPECT_EQ(threadsOf({"--threads", "1"}), 1U);
    EXPECT_EQ(threadsOf({"--threads", "256", "--smallest-piece", "1"}), 256U);
}

}  // namespace
}  // namespace voxlith
