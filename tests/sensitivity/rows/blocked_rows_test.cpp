// Blocked rows, and the products with them.
#include "sensitivity/rows/blocked_rows.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "sensitivity/rows/blocked_products.h"
#include "sensitivity/rows/coef_store.h"
#include "sensitivity/rows/row_kernels.h"
#include "support/instruction_sets.h"

namespace voxlith {
namespace {

using testing_support::InstructionSetLimit;
using testing_support::setsOfThisMachine;

struct Row {
    std::vector<std::int32_t> index;
    std::vector<float> value;
};

struct Example {
    std::vector<Row> rows;
    SparseCoefStore store;
    std::size_t paddedCount = 0;
};

void storeRow(SparseCoefStore& store, std::size_t entry, const Row& row) {
    const RawRow raw = rawRowOf(store, entry);
    for (std::size_t p = 0; p < row.index.size(); ++p) {
        raw.coefIndex[p] = row.index[p];
        raw.coefValue[p] = std::bit_cast<std::int32_t>(row.value[p]);
    }
}

void blockRows(Example& example, std::vector<Row> rows, std::size_t paddedCount) {
    example.rows = std::move(rows);
    example.paddedCount = paddedCount;
    SparseCoefStore& store = example.store;
    store.rowOffset = {1};
    for (const Row& row : example.rows) {
        store.rowOffset.push_back(store.rowOffset.back() + static_cast<std::int64_t>(row.index.size()));
    }
    reserveRows(store);
    for (std::size_t r = 0; r < example.rows.size(); ++r) {
        storeRow(store, r, example.rows[r]);
    }
    buildBlockedRows(store, example.rows.size(), 1, paddedCount);
}

// The product with all rows at once, or a few tiles at a time from the last ones to the first.
std::vector<double> forward(Example& example, const std::vector<double>& padded, InstructionSet set, bool split) {
    const InstructionSetLimit limit(set);
    const BlockedRows& blocked = example.store.blocked[0];
    std::vector<double> out(example.rows.size(), -7.0);
    gatherUsed(blocked, padded, example.store.compact);
    const std::span<const double> compact(example.store.compact.data(), blocked.usedColumns.size());
    const bool finite = allFinite(compact);
    constexpr std::size_t rowsAtOnce = 11 * tileRows;
    for (std::size_t end = out.size(); split && end > 0;) {
        const std::size_t first = (end - 1) / rowsAtOnce * rowsAtOnce;
        multiply(blocked, wordsOf(example.store), compact, finite, first, end, out);
        end = first;
    }
    if (!split) {
        multiply(blocked, wordsOf(example.store), compact, finite, 0, out.size(), out);
    }
    return out;
}

// The transposed product with all bands at once, or band by band from the last one to the first.
std::vector<double> transposed(Example& example, const std::vector<double>& factor, InstructionSet set, bool split) {
    const InstructionSetLimit limit(set);
    const BlockedRows& blocked = example.store.blocked[0];
    std::vector<double> padded(example.paddedCount, 0.0);
    gatherUsed(blocked, padded, example.store.compact);
    const bool finite = allFinite(factor);
    const std::size_t bands = bandCount(blocked);
    for (std::size_t first = bands; split && first-- > 0;) {
        multiplyTransposed(blocked, wordsOf(example.store), factor, finite, first, first + 1, example.store.compact);
    }
    if (!split) {
        multiplyTransposed(blocked, wordsOf(example.store), factor, finite, 0, bands, example.store.compact);
    }
    std::ranges::fill(padded, -1.0);
    scatterUsed(blocked, example.store.compact, padded.size(), padded);
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

// Products by plain loops over the rows as they were, within rounding; and the same bytes from all instruction sets and
// from products that are split.
void expectRightProducts(Example& example, std::mt19937& random, const std::string& where) {
    const std::vector<double> model = randomNumbers(example.paddedCount, random);
    const std::vector<double> factor = randomNumbers(example.rows.size(), random);
    const std::vector<double> out = forward(example, model, InstructionSet::plain, false);
    const std::vector<double> back = transposed(example, factor, InstructionSet::plain, false);
    std::vector<double> expected(example.paddedCount, 0.0);
    std::vector<double> expectedSize(example.paddedCount, 0.0);
    for (std::size_t r = 0; r < example.rows.size(); ++r) {
        const Row& row = example.rows[r];
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
        for (const bool split : {false, true}) {
            expectSameBytes(forward(example, model, set, split), out, where + ", forward");
            expectSameBytes(transposed(example, factor, set, split), back, where + ", transposed");
        }
    }
}

TEST(BlockedRows, GiveTheProductsOfTheRowsForAllKindsOfPatterns) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        std::mt19937 random(seed);
        const double kept = seed % 3 == 0 ? 0.2 : seed % 3 == 1 ? 0.7 : 0.97;
        Example example;
        blockRows(example, similarRows(3 + 5 * seed, 200 + 37 * seed, kept, random), 200 + 37 * seed);
        expectRightProducts(example, random, "seed " + std::to_string(seed));
    }
}

TEST(BlockedRows, MergeSimilarRowsAndLeaveOthersSingle) {
    std::mt19937 random(5);
    Example similar;
    blockRows(similar, std::vector<Row>(32, similarRows(1, 4000, 0.98, random)[0]), 4000);
    for (const RowGroup& group : similar.store.blocked[0].groups) {
        EXPECT_EQ(group.rowCount, 8);
    }
    EXPECT_EQ(similar.store.blocked[0].groups.size(), 4U);

    std::vector<Row> disjoint(16);
    for (std::size_t r = 0; r < disjoint.size(); ++r) {
        for (std::int32_t p = 0; p < 40; ++p) {
            disjoint[r].index.push_back(static_cast<std::int32_t>(r) + 1 + 16 * p);
            disjoint[r].value.push_back(1.0F);
        }
    }
    Example different;
    blockRows(different, disjoint, 640);
    EXPECT_EQ(different.store.blocked[0].groups.size(), 16U);
    expectRightProducts(different, random, "rows without a common position");
}

TEST(BlockedRows, MergeFourWhereTwoHalvesDiffer) {
    std::mt19937 random(6);
    std::vector<Row> rows = similarRows(4, 3000, 0.98, random);
    const std::vector<Row> others = similarRows(4, 3000, 0.98, random);
    rows.insert(rows.end(), others.begin(), others.end());
    Example example;
    blockRows(example, rows, 3000);
    ASSERT_EQ(example.store.blocked[0].groups.size(), 2U);
    EXPECT_EQ(example.store.blocked[0].groups[0].rowCount, 4);
    expectRightProducts(example, random, "two halves");
}

TEST(BlockedRows, AcceptUnsortedRowsWithRepeatedPositions) {
    std::mt19937 random(7);
    std::vector<Row> rows = similarRows(19, 300, 0.9, random);
    std::shuffle(rows[3].index.begin(), rows[3].index.end(), random);
    rows[11].index.assign(rows[11].index.size(), 17);
    rows[12] = {};
    Example example;
    blockRows(example, rows, 300);
    expectRightProducts(example, random, "unsorted");
}

TEST(BlockedRows, AcceptEmptyRowsAndFilesWithoutCoefficients) {
    std::mt19937 random(8);
    Example nothing;
    blockRows(nothing, std::vector<Row>(20), 64);
    expectRightProducts(nothing, random, "no coefficients");
    Example few;
    std::vector<Row> rows(20);
    rows[9] = {{64}, {2.0F}};
    blockRows(few, rows, 64);
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

TEST(BlockedRows, NeverHaveMoreWordsThanTheRawRows) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937 random(seed);
        for (const bool sparse : {false, true}) {
            Example example;
            const std::size_t padded = sparse ? 70000 : 90;
            blockRows(example, sparse ? sparseRows(41, padded, random) : similarRows(41, padded, 0.1 * seed, random),
                      padded);
            std::vector<RowGroup> groups = example.store.blocked[0].groups;
            std::sort(groups.begin(), groups.end(),
                      [](const RowGroup& first, const RowGroup& second) { return first.firstWord < second.firstWord; });
            std::int64_t words = 0;
            for (const RowGroup& group : groups) {
                EXPECT_EQ(group.firstWord, words) << "seed " << seed;
                words += wordsOfGroup(group);
            }
            EXPECT_LE(words, 2 * example.store.capacity) << "seed " << seed;
            expectRightProducts(example, random, "seed " + std::to_string(seed) + (sparse ? ", sparse" : ", dense"));
        }
    }
}

TEST(BlockedRows, ReachOverSeveralBandsAndSlabs) {
    std::mt19937 random(11);
    Example example;
    blockRows(example, similarRows(2 * slabRows + 13, 60000, 0.8, random), 60000);
    const BlockedRows& working = example.store.blocked[0];
    EXPECT_GT(working.usedColumns.size(), 2 * bandWidth);
    EXPECT_GT(working.slabs.size(), 2U);
    std::size_t nextRow = 0, nextGroup = 0;
    for (const RowSlab& slab : working.slabs) {
        EXPECT_EQ(slab.firstRow, nextRow);
        EXPECT_EQ(slab.firstGroup, nextGroup);
        EXPECT_LE(slab.rowCount, slabRows);
        nextRow += slab.rowCount;
        EXPECT_EQ(slab.firstUnsorted, slab.endGroup);
        nextGroup = slab.endGroup;
    }
    EXPECT_EQ(nextRow, example.rows.size());
    EXPECT_EQ(nextGroup, working.groups.size());
    expectRightProducts(example, random, "bands and slabs");
}

TEST(BlockedRows, KeepUnsortedRowsBesideBlocks) {
    std::mt19937 random(12);
    std::vector<Row> rows = similarRows(300, 20000, 0.9, random);
    for (const std::size_t r : {0U, 9U, 255U, 299U}) {
        std::shuffle(rows[r].index.begin(), rows[r].index.end(), random);
    }
    Example example;
    blockRows(example, rows, 20000);
    std::size_t unsorted = 0;
    for (const RowGroup& group : example.store.blocked[0].groups) {
        unsorted += group.form == GroupForm::unsorted ? 1 : 0;
    }
    EXPECT_EQ(unsorted, 4U);
    expectRightProducts(example, random, "unsorted beside blocks");
}

// Words, row, band, size and form of each group, whatever word it begins at.
std::vector<std::vector<std::int64_t>> layoutOf(const BlockedRows& rows, std::span<const std::int32_t> words) {
    std::vector<std::vector<std::int64_t>> layout;
    for (const RowGroup& group : rows.groups) {
        layout.push_back(
            {group.count, group.firstRow, group.firstColumn, group.rowCount, static_cast<int>(group.form)});
        const auto own =
            words.subspan(static_cast<std::size_t>(group.firstWord), static_cast<std::size_t>(wordsOfGroup(group)));
        layout.back().insert(layout.back().end(), own.begin(), own.end());
    }
    return layout;
}

// Neither the headroom of the store nor the rows of another file change the groups or their order.
TEST(BlockedRows, DependOnTheRowsOfTheirFileAlone) {
    std::mt19937 random(13);
    constexpr std::size_t count = 300, padded = 20000;
    std::vector<Row> rows = similarRows(count, padded, 0.9, random);
    // Too sparse for blocks: they stay unsorted, unless they share a batch with enough others.
    const std::vector<Row> sparse = sparseRows(200, padded, random);
    std::copy(sparse.begin(), sparse.end(), rows.begin());
    Example single;
    blockRows(single, rows, padded);

    std::vector<Row> both = similarRows(count, padded, 0.99, random);
    both.insert(both.end(), rows.begin(), rows.end());
    SparseCoefStore store;
    store.rowOffset = {1};
    for (std::size_t r = 0; r < both.size(); ++r) {
        if (r == count) {
            store.rowOffset.push_back(store.rowOffset.back());
        }
        store.rowOffset.push_back(store.rowOffset.back() + static_cast<std::int64_t>(both[r].index.size()));
    }
    reserveStore(store, store.rowOffset.back() - 1, 3 * headroomWordsFor(store.rowOffset));
    for (std::size_t r = 0; r < both.size(); ++r) {
        storeRow(store, r < count ? r : r + 1, both[r]);
    }
    buildBlockedRows(store, count, 2, padded);
    EXPECT_EQ(layoutOf(store.blocked[1], wordsOf(store)), layoutOf(single.store.blocked[0], wordsOf(single.store)));
}

TEST(BlockedRows, KeepInfinitiesToTheCoefficientsThatRowsHave) {
    std::mt19937 random(9);
    Example example;
    std::vector<Row> rows = similarRows(16, 500, 0.95, random);
    rows[2].index = {1, 5};
    rows[2].value = {1.0F, 2.0F};
    blockRows(example, rows, 500);
    std::vector<double> factor(16, 1.0);
    factor[2] = std::numeric_limits<double>::infinity();
    const std::vector<double> back = transposed(example, factor, widestInstructionSet(), false);
    EXPECT_TRUE(std::isinf(back[0]));
    EXPECT_TRUE(std::isinf(back[4]));
    for (std::size_t position = 5; position < back.size(); ++position) {
        EXPECT_TRUE(std::isfinite(back[position])) << position;
    }
    std::vector<double> model(500, 1.0);
    model[0] = std::nan("");
    const std::vector<double> out = forward(example, model, widestInstructionSet(), false);
    for (std::size_t r = 0; r < out.size(); ++r) {
        const bool has = !rows[r].index.empty() && rows[r].index.front() == 1;
        EXPECT_EQ(std::isnan(out[r]), has) << r;
    }
}

TEST(BlockedRows, OfOneRowSumLikeTheRawRow) {
    std::mt19937 random(10);
    // A single row, and one that stays unsorted.
    std::vector<Row> rows = similarRows(2, 700, 0.9, random);
    std::shuffle(rows[1].index.begin(), rows[1].index.end(), random);
    Example example;
    blockRows(example, rows, 700);
    const std::vector<double> model = randomNumbers(700, random);
    const std::vector<double> out = forward(example, model, widestInstructionSet(), false);
    for (std::size_t r = 0; r < rows.size(); ++r) {
        std::vector<std::int32_t> bits;
        for (const float value : rows[r].value) {
            bits.push_back(std::bit_cast<std::int32_t>(value));
        }
        EXPECT_EQ(out[r], rowKernels().multiply(rows[r].index.data(), bits.data(), bits.size(), model.data()));
    }
}

}  // namespace
}  // namespace voxlith
