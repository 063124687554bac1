// The set of coefficients kept is the smallest one within the tolerance.
#include "forward/row_compression.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "base/messages.h"

namespace voxlith {
namespace {

double norm(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) {
        sum += value * value;
    }
    return std::sqrt(sum);
}

// Number of coefficients that a full sort keeps.
std::size_t keptBySorting(std::vector<double> values, double tolerance) {
    std::sort(values.begin(), values.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
    const double allowed = std::pow(tolerance * norm(values), 2);
    double dropped = 0;
    std::size_t n = 0;
    while (n < values.size() && dropped + values[n] * values[n] <= allowed) {
        dropped += values[n] * values[n];
        ++n;
    }
    return values.size() - n;
}

TEST(RowCompression, keepsTheSmallestSetWithinTheTolerance) {
    CompressionWork work;
    CompressedRow row;
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 generator(seed);
        std::normal_distribution<double> normal;
        std::vector<double> padded(1 + seed % 97);
        for (double& value : padded) {
            value = std::pow(normal(generator), 5);
        }
        for (const double tolerance : {0.0, 1e-6, 0.01, 0.1, 0.5, 0.99}) {
            compressRow(padded, tolerance, work, row);
            std::vector<double> rest = padded;
            double smallestKept = std::numeric_limits<double>::infinity();
            ASSERT_EQ(row.coefIndex.size(), row.coefValue.size());
            for (std::size_t n = 0; n < row.coefIndex.size(); ++n) {
                const auto position = static_cast<std::size_t>(row.coefIndex[n]) - 1;
                EXPECT_EQ(row.coefValue[n], static_cast<float>(padded[position]));
                smallestKept = std::min(smallestKept, std::abs(padded[position]));
                rest[position] = 0;
            }
            EXPECT_TRUE(std::is_sorted(row.coefIndex.begin(), row.coefIndex.end()));
            EXPECT_LE(norm(rest), tolerance * norm(padded) * (1 + 1e-12)) << "seed " << seed << ", " << tolerance;
            EXPECT_NEAR(row.loss, norm(rest) / norm(padded), 1e-12);
            for (const double dropped : rest) {
                EXPECT_LE(std::abs(dropped), smallestKept);
            }
            EXPECT_EQ(row.coefIndex.size(), keptBySorting(padded, tolerance)) << "seed " << seed << ", " << tolerance;
        }
    }
}

TEST(RowCompression, equalMagnitudesAreKeptFromTheFront) {
    CompressionWork work;
    CompressedRow row;
    const std::vector<double> padded{1, -1, 1, -1, 1, 1, -1, 1, 1, 1};
    compressRow(padded, 0.55, work, row);  // three of ten may go: 0.3 is below 0.55^2, 0.4 is not
    EXPECT_EQ(row.coefIndex, (std::vector<std::int32_t>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_NEAR(row.loss, std::sqrt(0.3), 1e-15);
}

TEST(RowCompression, isNeverEmpty) {
    CompressionWork work;
    CompressedRow row;
    compressRow(std::vector<double>(16, 0.0), 0.01, work, row);
    EXPECT_EQ(row.coefIndex, (std::vector<std::int32_t>{1}));
    EXPECT_EQ(row.coefValue, (std::vector<float>{0.0F}));
    EXPECT_EQ(row.loss, 0.0);
    compressRow(std::vector<double>{0.0, 0.0, -1e-300}, 0.999, work, row);
    EXPECT_EQ(row.coefIndex, (std::vector<std::int32_t>{3}));
}

TEST(RowCompression, doesNotDependOnTheScaleOfTheRow) {
    CompressionWork work;
    CompressedRow large, small;
    std::vector<double> padded{5, 0.1, 3, 0.02, 0.3, 0.001};
    compressRow(padded, 0.05, work, small);
    for (double& value : padded) {
        value *= 0x1p+100;
    }
    compressRow(padded, 0.05, work, large);
    EXPECT_EQ(small.coefIndex, large.coefIndex);
    EXPECT_EQ(small.loss, large.loss);
}

TEST(RowCompression, refusesValuesBeyondSinglePrecision) {
    CompressionWork work;
    CompressedRow row;
    for (const double value : {1e39, -1e39, std::nan(""), std::numeric_limits<double>::infinity()}) {
        EXPECT_THROW(compressRow(std::vector<double>{1.0, value}, 0.01, work, row), RunError) << value;
    }
}

}  // namespace
}  // namespace voxlith
