#include "formats/mtx/mtx_checks.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace voxlith {
namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

TEST(MtxIndices, anIndexOutsideIsSeenWhereverItStands) {
    for (const std::int32_t bad : {0, -1, 41, lowest, lowest + 1, lowest + 40, highest}) {
        for (std::size_t at = 0; at < 37; ++at) {
            std::vector<std::int32_t> index(37, 40);
            index[(at + 5) % 37] = 1;
            EXPECT_TRUE(indicesInside(index, 40));
            index[at] = bad;
            EXPECT_FALSE(indicesInside(index, 40)) << bad << ' ' << at;
        }
    }
}

TEST(MtxIndices, theLargestArrayHoldsEveryPositiveIndex) {
    for (const std::int32_t index : {1, 2, highest - 1, highest}) {
        EXPECT_TRUE(indicesInside(std::vector<std::int32_t>(5, index), highest)) << index;
    }
    for (const std::int32_t index : {0, -1, lowest, lowest + 1}) {
        EXPECT_FALSE(indicesInside(std::vector<std::int32_t>(5, index), highest)) << index;
    }
}

TEST(MtxIndices, noIndexIsInsideAnEmptyArray) {
    EXPECT_TRUE(indicesInside({}, 0));
    EXPECT_FALSE(indicesInside(std::vector<std::int32_t>(1, 1), 0));
    EXPECT_FALSE(indicesInside(std::vector<std::int32_t>(1, 0), 0));
}

}  // namespace
}  // namespace voxlith
