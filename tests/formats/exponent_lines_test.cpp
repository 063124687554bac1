#include "formats/exponent_lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/fixed_field.h"

namespace voxlith {
namespace {

std::string linesOf(const std::vector<double>& values, InstructionSet instructions) {
    std::string room(exponentLinesSize(values.size()), '\0');
    const char* const behind = putExponentLines(room.data(), values, instructions);
    room.resize(static_cast<std::size_t>(behind - room.data()));
    return room;
}

// With the instructions of the machine, once all narrower ones have given the same bytes.
std::string linesOf(const std::vector<double>& values) {
    const InstructionSet widest = widestInstructionSet();
    const std::string lines = linesOf(values, InstructionSet::plain);
    EXPECT_TRUE(linesOf(values, std::min(widest, InstructionSet::avx2)) == lines) << values.size() << " values";
    EXPECT_TRUE(linesOf(values, widest) == lines) << values.size() << " values";
    return lines;
}

std::string fieldsOf(const std::vector<double>& values) {
    std::string text(exponentLineBytes * values.size(), '\n');
    for (std::size_t n = 0; n < values.size(); ++n) {
        putExponent(text.data() + n * exponentLineBytes, values[n], exponentFieldWidth, exponentFieldDigits);
    }
    return text;
}

TEST(ExponentLines, writesTheFormOfModelFiles) {
    EXPECT_EQ(linesOf({1.23456, -0.5, 0.0, 1e-32, -1e32}),
              "  0.123456E+01\n -0.500000E+00\n  0.000000E+00\n  0.100000E-31\n -0.100000E+33\n");
    EXPECT_EQ(linesOf({}), "");
}

TEST(ExponentLines, givesTheFieldsOfTheExactWriterForAnyBits) {
    const std::uint64_t seed = 31;
    std::mt19937_64 generator(seed);
    std::vector<double> values(1000000);
    for (double& value : values) {
        value = std::bit_cast<double>(generator());
    }
    EXPECT_TRUE(linesOf(values) == fieldsOf(values)) << "seed " << seed;
}

// Where six digits end exactly or lie half-way, and a few units in the last place beside that.
TEST(ExponentLines, givesTheFieldsOfTheExactWriterBesideRoundNumbers) {
    const std::uint64_t seed = 32;
    std::mt19937_64 generator(seed);
    std::vector<double> values;
    for (int round = 0; round < 200000; ++round) {
        const double number = static_cast<double>(generator() % 1000001) + (round % 2 == 0 ? 0.5 : 0.0);
        double value = number * std::pow(10.0, static_cast<double>(generator() % 220) - 112.0);
        for (std::uint64_t step = generator() % 3; step > 0; --step) {
            value = std::nextafter(value, round % 4 < 2 ? 0.0 : std::numeric_limits<double>::infinity());
        }
        values.push_back(round % 3 == 0 ? -value : value);
    }
    EXPECT_TRUE(linesOf(values) == fieldsOf(values)) << "seed " << seed;
}

TEST(ExponentLines, givesTheFieldsOfTheExactWriterAtEveryPowerOfTen) {
    std::vector<double> values;
    for (int exponent = -323; exponent <= 308; ++exponent) {
        double value = std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
        values.push_back(std::nextafter(value, 0.0));
        values.push_back(value);
        values.push_back(std::nextafter(value, std::numeric_limits<double>::infinity()));
        values.push_back(0.9999995 * value);
        values.push_back(0.99999949 * value);
    }
    EXPECT_TRUE(linesOf(values) == fieldsOf(values));
}

// Lines are made in groups; what is left over must neither be missing nor reach beyond the room.
TEST(ExponentLines, putsAnyCountOfLines) {
    std::vector<double> values;
    for (int count = 0; count < 40; ++count) {
        EXPECT_EQ(linesOf(values), fieldsOf(values)) << count;
        values.push_back(count % 3 == 0 ? 0.0 : std::ldexp(-1.7, 9 * count - 200));
    }
}

// All digits of six-digit numbers, in fields that are not rounded.
TEST(ExponentLines, givesTheFieldsOfTheExactWriterForAllNumbersOfSixDigits) {
    std::vector<double> values;
    for (int number = 100000; number <= 1000000; ++number) {
        values.push_back(number);
    }
    EXPECT_TRUE(linesOf(values) == fieldsOf(values));
}

TEST(ExponentLines, givesTheFieldsOfTheExactWriterForSpecialValues) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> values{-0.0, infinity, -infinity, std::nan(""), 5e-324, -1.7976931348623157e308};
    EXPECT_EQ(linesOf(values), fieldsOf(values));
}

}  // namespace
}  // namespace voxlith
