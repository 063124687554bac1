// Products and sums of blocks: correct, and the same bytes with every instruction set.
#include "optim/lbfgsb/block_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "support/instruction_sets.h"

namespace voxlith {
namespace {

using testing_support::InstructionSetLimit;
using testing_support::setsOfThisMachine;

constexpr std::size_t stride = blockLength + 24;

std::vector<double> randomValues(std::size_t count, unsigned seed) {
    std::mt19937_64 generator(seed);
    std::uniform_real_distribution<double> exponent(-20.0, 20.0), sign(-1.0, 1.0);
    std::vector<double> values(count);
    for (double& value : values) {
        value = std::copysign(std::exp2(exponent(generator)), sign(generator));
    }
    return values;
}

struct BlockSize {
    std::size_t columns, vectors, length;
};

std::vector<BlockSize> blockSizes() {
    std::vector<BlockSize> sizes;
    for (const unsigned columns : {0U, 1U, 2U, 3U, 4U, 5U, 9U, 10U}) {
        for (std::size_t vectors = 1; vectors <= vectorsAtOnce; ++vectors) {
            for (const unsigned length : {1U, 7U, 8U, 9U, 16U, 63U, 511U, 512U}) {
                sizes.push_back({columns, vectors, length});
            }
        }
    }
    return sizes;
}

VectorBlock vectorsOf(const std::vector<double>& values, const BlockSize& size) {
    VectorBlock vectors;
    vectors.count = size.vectors;
    vectors.length = size.length;
    for (std::size_t v = 0; v < size.vectors; ++v) {
        vectors.vector[v] = values.data() + v * blockLength;
    }
    return vectors;
}

// The order of summation written out: eight lanes, one tree.
double productInLanes(const double* a, const double* b, std::size_t length) {
    double lane[8] = {};
    for (std::size_t i = 0; i < length; ++i) {
        lane[i % 8] += a[i] * b[i];
    }
    return ((lane[0] + lane[1]) + (lane[2] + lane[3])) + ((lane[4] + lane[5]) + (lane[6] + lane[7]));
}

TEST(BlockKernels, ProductsHaveOneOrderOfSummationWithAllInstructionSets) {
    const std::vector<double> columns = randomValues(11 * stride, 1);
    const std::vector<double> values = randomValues(vectorsAtOnce * blockLength, 2);
    for (const InstructionSet set : setsOfThisMachine()) {
        const InstructionSetLimit limit(set);
        for (const BlockSize& size : blockSizes()) {
            std::vector<double> products(vectorsAtOnce * 10, 0.5);
            blockKernels().addProducts({columns.data(), stride, size.columns}, vectorsOf(values, size),
                                       products.data());
            for (std::size_t c = 0; c < 10; ++c) {
                for (std::size_t v = 0; v < vectorsAtOnce; ++v) {
                    const bool wanted = c < size.columns && v < size.vectors;
                    const double* const column = columns.data() + c * stride;
                    const double product = productInLanes(column, values.data() + v * blockLength, size.length);
                    ASSERT_EQ(products[vectorsAtOnce * c + v], wanted ? 0.5 + product : 0.5)
                        << "set " << static_cast<int>(set) << ", " << size.columns << " columns, " << size.vectors
                        << " vectors of " << size.length << ", seeds 1 and 2";
                }
            }
        }
    }
}

TEST(BlockKernels, ColumnsAreAddedInAscendingOrderWithAllInstructionSets) {
    const std::vector<double> columns = randomValues(11 * stride, 3);
    const std::vector<double> factor = randomValues(10, 4);
    const std::vector<double> start = randomValues(blockLength, 5);
    for (const InstructionSet set : setsOfThisMachine()) {
        const InstructionSetLimit limit(set);
        for (const BlockSize& size : blockSizes()) {
            std::vector<double> out = start;
            blockKernels().addColumns({columns.data(), stride, size.columns}, factor.data(), size.length, out.data());
            for (std::size_t i = 0; i < blockLength; ++i) {
                double expected = start[i];
                for (std::size_t c = 0; c < size.columns && i < size.length; ++c) {
                    expected += columns[c * stride + i] * factor[c];
                }
                ASSERT_EQ(out[i], expected) << "set " << static_cast<int>(set) << ", " << size.columns << " columns of "
                                            << size.length << ", seeds 3 to 5";
            }
        }
    }
}

TEST(BlockKernels, LongProductsAddTheirBlocksInOrder) {
    for (const std::size_t length : {std::size_t{0}, std::size_t{5}, blockLength, 3 * blockLength + 13}) {
        const std::vector<double> a = randomValues(length, 6), b = randomValues(length, 7);
        double expected = 0.0;
        for (std::size_t first = 0; first < length; first += blockLength) {
            expected += productInLanes(a.data() + first, b.data() + first, std::min(blockLength, length - first));
        }
        for (const InstructionSet set : setsOfThisMachine()) {
            const InstructionSetLimit limit(set);
            EXPECT_EQ(longProduct(a, b), expected) << "set " << static_cast<int>(set) << " length " << length;
        }
    }
}

TEST(BlockKernels, InfinityAndNaNReachTheirProductsOnly) {
    std::vector<double> columns(2 * stride, 1.0), values(blockLength, 2.0);
    columns[3] = std::numeric_limits<double>::quiet_NaN();
    for (const InstructionSet set : setsOfThisMachine()) {
        const InstructionSetLimit limit(set);
        std::vector<double> products(2 * vectorsAtOnce, 0.0);
        blockKernels().addProducts({columns.data(), stride, 2}, {{values.data()}, 1, 20}, products.data());
        EXPECT_TRUE(std::isnan(products[0]));
        EXPECT_EQ(products[vectorsAtOnce], 40.0);
    }
}

}  // namespace
}  // namespace voxlith
