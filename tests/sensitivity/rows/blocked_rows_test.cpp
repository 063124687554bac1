// The working form of the rows, and the kernels that run over it.
#include "sensitivity/rows/blocked_rows.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "sensitivity/rows/block_kernels.h"
#include "sensitivity/rows/coef_store.h"
#include "sensitivity/rows/row_kernels.h"
#include "support/instruction_sets.h"

namespace voxlith {
namespace {

using testing_support::setsOfThisMachine;

struct Row {
    std::vector<std::int32_t> index;
    std::vector<float> value;
};

struct Arranged {
    std::vector<Row> rows;
    SparseCoefStore store;
    std::size_t paddedCount = 0;
};

void arrange(Arranged& arranged, std::vector<Row> rows, std::size_t paddedCount) {
    arranged.rows = std::move(rows);
    arranged.paddedCount = paddedCount;
    SparseCoefStore& store = arranged.store;
    store.rowOffset = {1};
    for (const Row& row : arranged.rows) {
        store.rowOffset.push_back(store.rowOffset.back() + static_cast<std::int64_t>(row.index.size()));
    }
    reserveRows(store);
    for (std::size_t r = 0; r < arranged.rows.size(); ++r) {
        const RawRow raw = rawRowOf(store, r);
        for (std::size_t p = 0; p < raw.coefIndex.size(); ++p) {
            raw.coefIndex[p] = arranged.rows[r].index[p];
            raw.coefValue[p] = std::bit_cast<std::int32_t>(arranged.rows[r].value[p]);
        }
    }
    buildBlockedRows(store, arranged.rows.size(), 1, paddedCount);
}

std::vector<double> forward(Arranged& arranged, const std::vector<double>& padded, InstructionSet set) {
    const BlockedRows& working = arranged.store.working[0];
    std::vector<double> out(arranged.rows.size(), -7.0);
    gatherUsed(working, padded, arranged.store.compact);
    multiply(working, wordsOf(arranged.store), arranged.store.compact, out, set);
    return out;
}

std::vector<double> transposed(Arranged& arranged, const std::vector<double>& factor, InstructionSet set) {
    const BlockedRows& working = arranged.store.working[0];
    std::vector<double> padded(arranged.paddedCount, 0.0);
    gatherUsed(working, padded, arranged.store.compact);
    multiplyTransposed(working, wordsOf(arranged.store), factor, arranged.store.compact, set);
    scatterUsed(working, arranged.store.compact, padded);
    return padded;
}

// Rows like those of neighbouring stations: each keeps most positions of a common pattern and some of its own.
std::vector<Row> similarRows(std::size_t count, std::size_t paddedCount, double kept, std::mt19937& random) {
    std::bernoulli_distribution inPattern(0.15);
    std::bernoulli_distribution keep(kept);
    std::bernoulli_distribution own(0.01);
    std::normal_distribution<float> value;
    std::vector<char> pattern(paddedCount);
    for (char& position : pattern) {
        position = inPattern(random) ? 1 : 0;
    }
    std::vector<Row> rows(count);
    for (Row& row : rows) {
        for (std::size_t position = 0; position < paddedCount; ++position) {
            if ((pattern[position] != 0 && keep(random)) || own(random)) {
                row.index.push_back(static_cast<std::int32_t>(position) + 1);
                row.value.push_back(value(random));
            }
        }
    }
    return rows;
}

std::vector<double> randomNumbers(std::size_t count, std::mt19937& random) {
    std::normal_distribution<double> normal;
    std::vector<double> numbers(count);
    std::generate(numbers.begin(), numbers.end(), [&] { return normal(random); });
    return numbers;
}

void expectSameBytes(const std::vector<double>& a, const std::vector<double>& b, const std::string& where) {
    ASSERT_EQ(a.size(), b.size()) << where;
    for (std::size_t i = 0; i < a.size(); ++i) {
        ASSERT_EQ(std::bit_cast<std::uint64_t>(a[i]), std::bit_cast<std::uint64_t>(b[i])) << where << ", " << i;
    }
}

// Products by plain loops over the rows as they were, within rounding; and the same bytes from all instructions.
void expectRightProducts(Arranged& arranged, std::mt19937& random, const std::string& where) {
    const std::vector<double> model = randomNumbers(arranged.paddedCount, random);
    const std::vector<double> factor = randomNumbers(arranged.rows.size(), random);
    const std::vector<double> out = forward(arranged, model, InstructionSet::plain);
    const std::vector<double> back = transposed(arranged, factor, InstructionSet::plain);
    std::vector<double> expected(arranged.paddedCount, 0.0);
    std::vector<double> expectedSize(arranged.paddedCount, 0.0);
    for (std::size_t r = 0; r < arranged.rows.size(); ++r) {
        const Row& row = arranged.rows[r];
        double sum = 0;
        double size = 0;
        for (std::size_t p = 0; p < row.index.size(); ++p) {
            const auto at = static_cast<std::size_t>(row.index[p]) - 1;
            sum += static_cast<double>(row.value[p]) * model[at];
            size += std::fabs(static_cast<double>(row.value[p]) * model[at]);
            expected[at] += static_cast<double>(row.value[p]) * factor[r];
            expectedSize[at] += std::fabs(static_cast<double>(row.value[p]) * factor[r]);
        }
        ASSERT_NEAR(out[r], sum, 1e-14 * size) << where << ", row " << r;
    }
    for (std::size_t position = 0; position < expected.size(); ++position) {
        ASSERT_NEAR(back[position], expected[position], 1e-14 * expectedSize[position])
            << where << ", position " << position;
    }
    for (const InstructionSet set : setsOfThisMachine()) {
        expectSameBytes(forward(arranged, model, set), out, where + ", forward");
        expectSameBytes(transposed(arranged, factor, set), back, where + ", transposed");
    }
}

TEST(BlockedRows, GiveTheProductsOfTheRowsForAllKindsOfPatterns) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        std::mt19937 random(seed);
        const double kept = seed % 3 == 0 ? 0.2 : seed % 3 == 1 ? 0.7 : 0.97;
        Arranged arranged;
        arrange(arranged, similarRows(3 + 5 * seed, 200 + 37 * seed, kept, random), 200 + 37 * seed);
        expectRightProducts(arranged, random, "seed " + std::to_string(seed));
    }
}

TEST(BlockedRows, MergeSimilarRowsAndLeaveOthersAlone) {
    std::mt19937 random(5);
    Arranged similar;
    arrange(similar, std::vector<Row>(32, similarRows(1, 4000, 0.98, random)[0]), 4000);
    for (const RowGroup& run : similar.store.working[0].runs) {
        EXPECT_EQ(run.rowCount, 8);
    }
    EXPECT_EQ(similar.store.working[0].runs.size(), 4U);

    std::vector<Row> apart(16);
    for (std::size_t r = 0; r < apart.size(); ++r) {
        for (std::int32_t p = 0; p < 40; ++p) {
            apart[r].index.push_back(static_cast<std::int32_t>(r) + 1 + 16 * p);
            apart[r].value.push_back(1.0F);
        }
    }
    Arranged different;
    arrange(different, apart, 640);
    EXPECT_EQ(different.store.working[0].runs.size(), 16U);
    expectRightProducts(different, random, "rows without a common position");
}

TEST(BlockedRows, MergeFourWhereTwoHalvesDiffer) {
    std::mt19937 random(6);
    std::vector<Row> rows = similarRows(4, 3000, 0.98, random);
    const std::vector<Row> others = similarRows(4, 3000, 0.98, random);
    rows.insert(rows.end(), others.begin(), others.end());
    Arranged arranged;
    arrange(arranged, rows, 3000);
    ASSERT_EQ(arranged.store.working[0].runs.size(), 2U);
    EXPECT_EQ(arranged.store.working[0].runs[0].rowCount, 4);
    expectRightProducts(arranged, random, "two halves");
}

TEST(BlockedRows, TakeRowsInAnyOrderWithRepeatedPositions) {
    std::mt19937 random(7);
    std::vector<Row> rows = similarRows(19, 300, 0.9, random);
    std::shuffle(rows[3].index.begin(), rows[3].index.end(), random);
    rows[11].index.assign(rows[11].index.size(), 17);
    rows[12] = {};
    Arranged arranged;
    arrange(arranged, rows, 300);
    expectRightProducts(arranged, random, "any order");
}

TEST(BlockedRows, TakeEmptyRowsAndFilesWithoutCoefficients) {
    std::mt19937 random(8);
    Arranged nothing;
    arrange(nothing, std::vector<Row>(20), 64);
    expectRightProducts(nothing, random, "no coefficients");
    Arranged few;
    std::vector<Row> rows(20);
    rows[9] = {{64}, {2.0F}};
    arrange(few, rows, 64);
    expectRightProducts(few, random, "one coefficient");
}

// Rows without a common position that reach over several bands, and rows of all lengths: one coefficient a band makes
// blocks far longer than the raw row.
std::vector<Row> sparseRows(std::size_t count, std::size_t paddedCount, std::mt19937& random) {
    std::uniform_int_distribution<std::int32_t> step(1, 6000);
    std::normal_distribution<float> value;
    std::vector<Row> rows(count);
    for (Row& row : rows) {
        for (std::int32_t at = step(random); at <= static_cast<std::int32_t>(paddedCount); at += step(random)) {
            row.index.push_back(at);
            row.value.push_back(value(random));
        }
    }
    return rows;
}

TEST(BlockedRows, NeverTakeMoreWordsThanTheRawRows) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937 random(seed);
        for (const bool sparse : {false, true}) {
            Arranged arranged;
            const std::size_t padded = sparse ? 70000 : 90;
            arrange(arranged, sparse ? sparseRows(41, padded, random) : similarRows(41, padded, 0.1 * seed, random),
                    padded);
            std::int64_t words = 0;
            for (const RowGroup& run : arranged.store.working[0].runs) {
                EXPECT_EQ(run.firstWord, words) << "seed " << seed;
                words += wordsOfRun(run);
            }
            EXPECT_LE(words, 2 * arranged.store.capacity) << "seed " << seed;
            expectRightProducts(arranged, random, "seed " + std::to_string(seed) + (sparse ? ", sparse" : ", dense"));
        }
    }
}

TEST(BlockedRows, ReachOverSeveralBandsAndSlabs) {
    std::mt19937 random(11);
    Arranged arranged;
    arrange(arranged, similarRows(2 * slabRows + 13, 60000, 0.8, random), 60000);
    const BlockedRows& working = arranged.store.working[0];
    EXPECT_GT(working.usedColumns.size(), 2 * bandWidth);
    EXPECT_GT(working.slabs.size(), 2U);
    std::size_t nextRow = 0, nextRun = 0;
    for (const RowSlab& slab : working.slabs) {
        EXPECT_EQ(slab.firstRow, nextRow);
        EXPECT_EQ(slab.firstRun, nextRun);
        EXPECT_LE(slab.rowCount, slabRows);
        nextRow += slab.rowCount;
        nextRun += slab.runCount;
    }
    EXPECT_EQ(nextRow, arranged.rows.size());
    EXPECT_EQ(nextRun, working.runs.size());
    expectRightProducts(arranged, random, "bands and slabs");
}

TEST(BlockedRows, OfRowsInAnyOrderStandBesideBlocks) {
    std::mt19937 random(12);
    std::vector<Row> rows = similarRows(300, 20000, 0.9, random);
    for (const std::size_t r : {0U, 9U, 255U, 299U}) {
        std::shuffle(rows[r].index.begin(), rows[r].index.end(), random);
    }
    Arranged arranged;
    arrange(arranged, rows, 20000);
    std::size_t inAnyOrder = 0;
    for (const RowGroup& run : arranged.store.working[0].runs) {
        inAnyOrder += run.form == RunForm::unsorted ? 1 : 0;
    }
    EXPECT_EQ(inAnyOrder, 4U);
    expectRightProducts(arranged, random, "any order beside blocks");
}

TEST(BlockedRows, KeepInfinitiesToTheCoefficientsThatRowsHave) {
    std::mt19937 random(9);
    Arranged arranged;
    std::vector<Row> rows = similarRows(16, 500, 0.95, random);
    rows[2].index = {1, 5};
    rows[2].value = {1.0F, 2.0F};
    arrange(arranged, rows, 500);
    std::vector<double> factor(16, 1.0);
    factor[2] = std::numeric_limits<double>::infinity();
    const std::vector<double> back = transposed(arranged, factor, widestInstructionSet());
    EXPECT_TRUE(std::isinf(back[0]));
    EXPECT_TRUE(std::isinf(back[4]));
    for (std::size_t position = 5; position < back.size(); ++position) {
        EXPECT_TRUE(std::isfinite(back[position])) << position;
    }
    std::vector<double> model(500, 1.0);
    model[0] = std::nan("");
    const std::vector<double> out = forward(arranged, model, widestInstructionSet());
    for (std::size_t r = 0; r < out.size(); ++r) {
        const bool has = !rows[r].index.empty() && rows[r].index.front() == 1;
        EXPECT_EQ(std::isnan(out[r]), has) << r;
    }
}

TEST(BlockedRows, OfOneRowSumLikeTheRawRow) {
    std::mt19937 random(10);
    // A row alone, and one that stays as it came.
    std::vector<Row> rows = similarRows(2, 700, 0.9, random);
    std::shuffle(rows[1].index.begin(), rows[1].index.end(), random);
    Arranged arranged;
    arrange(arranged, rows, 700);
    const std::vector<double> model = randomNumbers(700, random);
    const std::vector<double> out = forward(arranged, model, widestInstructionSet());
    for (std::size_t r = 0; r < rows.size(); ++r) {
        std::vector<std::int32_t> bits;
        for (const float value : rows[r].value) {
            bits.push_back(std::bit_cast<std::int32_t>(value));
        }
        EXPECT_EQ(out[r],
                  rowTimesPadded(rows[r].index.data(), bits.data(), bits.size(), model.data(), InstructionSet::plain));
    }
}

}  // namespace
}  // namespace voxlith
