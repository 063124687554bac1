#include "spline/interval_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "spline/voxlith_spline.h"

namespace {

using voxlith::GridPosition;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

GridPosition interv(const std::vector<double>& grid, double x) {
    const auto gridSize = static_cast<std::int32_t>(grid.size());
    GridPosition found{-99, -99};
    INTERV(grid.data(), &gridSize, &x, &found.left, &found.rangeFlag);
    return found;
}

GridPosition rinterv(const std::vector<double>& grid, double x) {
    const auto gridSize = static_cast<std::int32_t>(grid.size());
    GridPosition found{-99, -99};
    RINTERV(grid.data(), &gridSize, &x, &found.left, &found.rangeFlag);
    return found;
}

// The answers by the standard library's search.
GridPosition expectedIncreasing(const std::vector<double>& grid, double x) {
    const auto notAbove = static_cast<std::int32_t>(std::upper_bound(grid.begin(), grid.end(), x) - grid.begin());
    if (notAbove == 0) {
        return {1, -1};
    }
    return {notAbove, notAbove == static_cast<std::int32_t>(grid.size()) ? 1 : 0};
}

GridPosition expectedDecreasing(const std::vector<double>& grid, double x) {
    const auto firstNotAbove = std::lower_bound(grid.begin(), grid.end(), x, std::greater<>());
    const auto above = static_cast<std::int32_t>(firstNotAbove - grid.begin());
    if (above == 0) {
        return {1, -1};
    }
    return {above, above == static_cast<std::int32_t>(grid.size()) ? 1 : 0};
}

bool same(const GridPosition& one, const GridPosition& other) {
    return one.left == other.left && one.rangeFlag == other.rangeFlag;
}

std::string text(const GridPosition& position) {
    return std::to_string(position.left) + "/" + std::to_string(position.rangeFlag);
}

void expectPosition(const GridPosition& found, std::int32_t left, std::int32_t rangeFlag) {
    EXPECT_EQ(found.left, left);
    EXPECT_EQ(found.rangeFlag, rangeFlag);
}

// Increasing, of random length, some steps 0.
std::vector<double> randomGrid(std::mt19937& generator) {
    std::vector<double> grid(std::uniform_int_distribution<std::size_t>(1, 300)(generator));
    std::uniform_real_distribution<double> step(0.0, 3.0);
    double at = step(generator) - 100.0;
    for (double& entry : grid) {
        entry = at;
        const double width = step(generator);
        at += width < 0.3 ? 0.0 : width;
    }
    return grid;
}

// Sweeps up, sweeps down, random jumps and small moves, with knots and points beyond the ends among them.
std::vector<double> randomQueries(const std::vector<double>& grid, std::mt19937& generator) {
    const auto [low, high] = std::minmax(grid.front(), grid.back());
    std::uniform_real_distribution<double> anywhere(low - 2.0, high + 2.0);
    std::uniform_int_distribution<std::size_t> anyKnot(0, grid.size() - 1);
    std::vector<double> queries;
    for (int i = 0; i < 60; ++i) {
        queries.push_back(anywhere(generator));
        queries.push_back(grid[anyKnot(generator)]);
    }
    queries.insert(queries.end(), {grid.front(), grid.back(), -infinity, infinity});
    switch (generator() % 3) {
        case 0:
            std::sort(queries.begin(), queries.end());
            break;
        case 1:
            std::sort(queries.begin(), queries.end(), std::greater<>());
            break;
        default:
            std::shuffle(queries.begin(), queries.end(), generator);
    }
    return queries;
}

TEST(Interv, agreesWithUpperBoundOverRandomGridsInAnyOrderOfQueries) {
    for (unsigned seed = 1; seed <= 400; ++seed) {
        std::mt19937 generator(seed);
        const std::vector<double> grid = randomGrid(generator);
        for (const double x : randomQueries(grid, generator)) {
            const GridPosition found = interv(grid, x);
            const GridPosition expected = expectedIncreasing(grid, x);
            ASSERT_TRUE(same(found, expected))
                << "seed " << seed << " x " << x << ": " << text(found) << " for " << text(expected);
        }
    }
}

TEST(Rinterv, agreesWithTheStandardSearchOverRandomGridsInAnyOrderOfQueries) {
    for (unsigned seed = 1; seed <= 400; ++seed) {
        std::mt19937 generator(seed);
        std::vector<double> grid = randomGrid(generator);
        std::reverse(grid.begin(), grid.end());
        for (const double x : randomQueries(grid, generator)) {
            const GridPosition found = rinterv(grid, x);
            const GridPosition expected = expectedDecreasing(grid, x);
            ASSERT_TRUE(same(found, expected))
                << "seed " << seed << " x " << x << ": " << text(found) << " for " << text(expected);
        }
    }
}

TEST(Interv, givesTheEndsTheirFlags) {
    const std::vector<double> grid = {1.0, 2.0, 4.0, 8.0};
    expectPosition(interv(grid, 8.0), 4, 1);
    expectPosition(interv(grid, 9.0), 4, 1);
    expectPosition(interv(grid, 7.999), 3, 0);
    expectPosition(interv(grid, 1.0), 1, 0);
    expectPosition(interv(grid, 0.999), 1, -1);
    expectPosition(interv(grid, 2.0), 2, 0);
}

TEST(Rinterv, givesTheEndsTheirFlags) {
    const std::vector<double> grid = {8.0, 4.0, 2.0, 1.0};
    expectPosition(rinterv(grid, 9.0), 1, -1);
    expectPosition(rinterv(grid, 8.0), 1, -1);
    expectPosition(rinterv(grid, 7.999), 1, 0);
    expectPosition(rinterv(grid, 4.0), 1, 0);
    expectPosition(rinterv(grid, 3.0), 2, 0);
    expectPosition(rinterv(grid, 1.0), 3, 0);
    expectPosition(rinterv(grid, 0.5), 4, 1);
}

TEST(Interv, farJumpsGiveTheAnswersOfAFreshStart) {
    std::vector<double> grid(5000);
    for (std::size_t i = 0; i < grid.size(); ++i) {
        grid[i] = static_cast<double>(i);
    }
    for (const double x : {0.5, 4998.5, 1.5, 2500.0, 4998.5, -3.0, 4998.0, 9999.0, 0.0, 17.25, 4999.0, 3.0}) {
        std::int32_t fresh = 1;
        EXPECT_TRUE(same(interv(grid, x), voxlith::searchIncreasing(grid, x, fresh))) << x;
    }
}

// Every start, also ones that no call saves, gives the same answer and an index that fits the grid.
TEST(Search, savedIndexNeverChangesTheAnswer) {
    const std::vector<double> increasing = {-3.0, -1.0, 0.0, 0.5, 0.5, 2.0, 7.0, 11.0, 11.5, 20.0, 21.0};
    const std::vector<double> decreasing(increasing.rbegin(), increasing.rend());
    const auto gridSize = static_cast<std::int32_t>(increasing.size());
    std::vector<std::int32_t> starts = {std::numeric_limits<std::int32_t>::min(),
                                        std::numeric_limits<std::int32_t>::max() - 1,
                                        std::numeric_limits<std::int32_t>::max()};
    for (std::int32_t start = -2; start <= gridSize + 2; ++start) {
        starts.push_back(start);
    }
    for (const double x : {-4.0, -3.0, -2.0, 0.0, 0.5, 0.7, 6.9, 7.0, 11.2, 20.0, 20.5, 21.0, 30.0}) {
        for (const std::int32_t start : starts) {
            std::int32_t saved = start;
            EXPECT_TRUE(same(voxlith::searchIncreasing(increasing, x, saved), expectedIncreasing(increasing, x)))
                << x << " from " << start;
            EXPECT_TRUE(saved >= 1 && saved < gridSize) << saved;
            saved = start;
            EXPECT_TRUE(same(voxlith::searchDecreasing(decreasing, x, saved), expectedDecreasing(decreasing, x)))
                << x << " from " << start;
            EXPECT_TRUE(saved >= 1 && saved < gridSize) << saved;
        }
    }
}

// A long grid saves a large index; a short one must not be read there. The arrays have their exact
// lengths, so that a build with the address sanitizer sees one entry too far.
TEST(Interv, gridsOfDifferentLengthsInTurnKeepInsideTheirArrays) {
    std::vector<double> longGrid(1000);
    for (std::size_t i = 0; i < longGrid.size(); ++i) {
        longGrid[i] = static_cast<double>(i);
    }
    const std::vector<double> longReversed(longGrid.rbegin(), longGrid.rend());
    for (std::size_t length = 1; length <= 4; ++length) {
        const std::vector<double> shortGrid(longGrid.begin(), longGrid.begin() + static_cast<std::ptrdiff_t>(length));
        const std::vector<double> shortReversed(shortGrid.rbegin(), shortGrid.rend());
        for (const double x : {-1.0, 0.0, 0.5, 1.0, 2.5, 3.0, 4.0}) {
            expectPosition(interv(longGrid, 997.5), 998, 0);
            EXPECT_TRUE(same(interv(shortGrid, x), expectedIncreasing(shortGrid, x))) << length << " " << x;
            expectPosition(rinterv(longReversed, 1.5), 998, 0);
            EXPECT_TRUE(same(rinterv(shortReversed, x), expectedDecreasing(shortReversed, x))) << length << " " << x;
        }
    }
}

TEST(Interv, gridOfOneEntry) {
    expectPosition(interv({5.0}, 4.0), 1, -1);
    expectPosition(interv({5.0}, 5.0), 1, 1);
    expectPosition(interv({5.0}, 6.0), 1, 1);
    expectPosition(rinterv({5.0}, 6.0), 1, -1);
    expectPosition(rinterv({5.0}, 5.0), 1, -1);
    expectPosition(rinterv({5.0}, 4.0), 1, 1);
}

TEST(Interv, emptyGridIsNotRead) {
    for (const std::int32_t gridSize : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
        const double x = 1.0;
        GridPosition found{-99, -99};
        INTERV(nullptr, &gridSize, &x, &found.left, &found.rangeFlag);
        expectPosition(found, 1, -1);
        RINTERV(nullptr, &gridSize, &x, &found.left, &found.rangeFlag);
        expectPosition(found, 1, -1);
    }
}

TEST(Interv, notANumberGetsOneAnswerWhateverWentBefore) {
    const std::vector<double> grid = {1.0, 2.0, 4.0, 8.0};
    const std::vector<double> reversed(grid.rbegin(), grid.rend());
    for (const double before : {0.0, 1.5, 5.0, 9.0}) {
        interv(grid, before);
        expectPosition(interv(grid, notANumber), 1, 0);
        rinterv(reversed, before);
        expectPosition(rinterv(reversed, notANumber), 3, 0);
    }
    expectPosition(interv({5.0}, notANumber), 1, -1);
    expectPosition(rinterv({5.0}, notANumber), 1, 1);
}

// What is found in such grids means nothing; the searches must end, inside the arrays.
TEST(Search, unsortedGridsAndNotANumbersInGridsAreSurvived) {
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937 generator(seed);
        std::vector<double> grid = randomGrid(generator);
        std::shuffle(grid.begin(), grid.end(), generator);
        for (double& entry : grid) {
            entry = generator() % 4 == 0 ? notANumber : entry;
        }
        const auto gridSize = static_cast<std::int32_t>(grid.size());
        std::uniform_real_distribution<double> anywhere(-110.0, 300.0);
        for (int i = 0; i < 40; ++i) {
            const double x = anywhere(generator);
            for (const GridPosition found : {interv(grid, x), rinterv(grid, x)}) {
                ASSERT_TRUE(found.left >= 1 && found.left <= gridSize) << "seed " << seed << " " << text(found);
            }
        }
    }
}

// A search near the saved index reads its neighbourhood alone: entries elsewhere are NaNs here and would mislead it.
TEST(Search, sweepOverNeighboursReadsOnlyTheNeighbourhood) {
    for (std::int32_t saved = 4; saved <= 96; ++saved) {
        std::vector<double> grid(100, notANumber);
        for (std::int32_t i = saved - 1; i <= saved + 2; ++i) {
            grid[static_cast<std::size_t>(i) - 1] = static_cast<double>(i);
        }
        for (std::int32_t left = saved - 1; left <= saved + 1; ++left) {
            std::int32_t index = saved;
            const GridPosition found = voxlith::searchIncreasing(grid, left + 0.5, index);
            expectPosition(found, left, 0);
            EXPECT_EQ(index, left);
        }
    }
}

}  // namespace
