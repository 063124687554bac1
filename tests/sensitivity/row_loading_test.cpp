#include "sensitivity/row_loading.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include "base/ranks.h"

namespace voxlith {
namespace {

// One of several processes; what is tested here exchanges nothing.
struct AsRank {
    AsRank(std::size_t rank, std::size_t count) {
        Ranks ranks;
        ranks.rank = rank;
        ranks.count = count;
        ranks.passAlong = [](std::span<double>, std::span<const std::size_t>, ChunkCall, const void*) {};
        setRanks(ranks);
    }
    ~AsRank() { setRanks({}); }
    AsRank(const AsRank&) = delete;
    AsRank& operator=(const AsRank&) = delete;
    AsRank(AsRank&&) = delete;
    AsRank& operator=(AsRank&&) = delete;
};

void countRandomRows(Sensitivity& sensitivity, std::size_t files, std::size_t nData, std::uint32_t seed) {
    std::mt19937 random(seed);
    sensitivity.nMtx = static_cast<std::int32_t>(files);
    sensitivity.header.nData = static_cast<std::int32_t>(nData);
    std::int64_t offset = 1;
    for (std::size_t file = 0; file < files; ++file) {
        sensitivity.store.rowOffset.push_back(offset);
        for (std::size_t row = 0; row < nData; ++row) {
            offset += static_cast<std::int64_t>(random() % 500);
            sensitivity.store.rowOffset.push_back(offset);
        }
    }
}

std::vector<std::int64_t> lengthsOf(const Sensitivity& sensitivity) {
    std::vector<std::int64_t> lengths;
    const std::vector<std::int64_t>& offset = sensitivity.store.rowOffset;
    for (std::size_t entry = 1; entry < offset.size(); ++entry) {
        lengths.push_back(offset[entry] - offset[entry - 1]);
    }
    return lengths;
}

TEST(RowLoading, everyRowBelongsToOneProcess) {
    for (const std::size_t nData : {1U, 255U, 256U, 257U, 3000U}) {
        for (const std::size_t count : {2U, 3U, 5U, 40U}) {
            Sensitivity counted;
            countRandomRows(counted, 2, nData, 7);
            const std::vector<std::int64_t> all = lengthsOf(counted);
            std::vector<std::int64_t> sum(all.size(), 0);
            for (std::size_t rank = 0; rank < count; ++rank) {
                const AsRank as(rank, count);
                Sensitivity sensitivity;
                countRandomRows(sensitivity, 2, nData, 7);
                keepOwnRows(sensitivity);
                const std::vector<std::int64_t> own = lengthsOf(sensitivity);
                for (std::size_t entry = 0; entry < own.size(); ++entry) {
                    EXPECT_TRUE(own[entry] == 0 || own[entry] == all[entry]);
                    sum[entry] += own[entry];
                }
                for (std::size_t file = 0; file < 2; ++file) {
                    const auto [first, end] = rowsOfRank(sensitivity.store, file, rank);
                    EXPECT_TRUE(first % slabRows == 0 || first == nData);
                    EXPECT_TRUE(end % slabRows == 0 || end == nData);
                }
            }
            EXPECT_EQ(sum, all) << nData << " rows, " << count << " processes";
        }
    }
}

TEST(RowLoading, processesGetLikeShares) {
    const std::size_t count = 4;
    Sensitivity counted;
    countRandomRows(counted, 1, 20000, 9);
    const std::int64_t all = counted.store.rowOffset.back() - 1;
    for (std::size_t rank = 0; rank < count; ++rank) {
        const AsRank as(rank, count);
        Sensitivity sensitivity;
        countRandomRows(sensitivity, 1, 20000, 9);
        keepOwnRows(sensitivity);
        const std::int64_t slab = 500 * static_cast<std::int64_t>(slabRows);
        EXPECT_NEAR(static_cast<double>(sensitivity.store.rowOffset.back() - 1),
                    static_cast<double>(all) / static_cast<double>(count), static_cast<double>(slab));
    }
}

TEST(RowLoading, oneProcessKeepsAllRows) {
    Sensitivity sensitivity;
    countRandomRows(sensitivity, 2, 700, 11);
    const std::vector<std::int64_t> before = sensitivity.store.rowOffset;
    keepOwnRows(sensitivity);
    EXPECT_EQ(sensitivity.store.rowOffset, before);
    EXPECT_TRUE(sensitivity.store.firstRowOfRank.empty());
}

}  // namespace
}  // namespace voxlith
