#include "base/fixed_field.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>

namespace voxlith {
namespace {

std::string fixedField(double value, int width, int decimals) {
    std::array<char, 1200> out;
    out.fill('#');
    const char* const end = putFixed(out.data(), value, width, decimals);
    EXPECT_EQ(end, out.data() + width);
    EXPECT_EQ(*end, '#');
    return std::string(out.data(), static_cast<std::size_t>(width));
}

std::string exponentField(double value, int width, int digits) {
    std::array<char, 1200> out;
    out.fill('#');
    const char* const end = putExponent(out.data(), value, width, digits);
    EXPECT_EQ(end, out.data() + width);
    EXPECT_EQ(*end, '#');
    return std::string(out.data(), static_cast<std::size_t>(width));
}

std::string integerField(std::int64_t value, int width, int digits) {
    std::array<char, 100> out;
    out.fill('#');
    const char* const end = putIntegerZeros(out.data(), value, width, digits);
    EXPECT_EQ(end, out.data() + width);
    EXPECT_EQ(*end, '#');
    return std::string(out.data(), static_cast<std::size_t>(width));
}

TEST(FixedField, agreesWithTheRecordedFields) {
    std::ifstream file(VOXLITH_TEST_DATA "/base/fixed_field_recorded.txt");
    int compared = 0;
    for (std::string line; std::getline(file, line); ++compared) {
        std::istringstream words(line);
        std::uint64_t bits = 0;
        char form = ' ';
        char point = ' ';
        int width = 0;
        int decimals = 0;
        words >> std::hex >> bits >> std::dec >> form >> width >> point >> decimals;
        const double value = std::bit_cast<double>(bits);
        const std::string expected = line.substr(line.find('[') + 1, static_cast<std::size_t>(width));
        EXPECT_EQ(form == 'F' ? fixedField(value, width, decimals) : exponentField(value, width, decimals), expected)
            << line;
    }
    EXPECT_GT(compared, 3000);
}

TEST(FixedField, writesTheFormsOfTheFiles) {
    EXPECT_EQ(exponentField(1.23456, 14, 6), "  0.123456E+01");
    EXPECT_EQ(exponentField(-1.0e32, 14, 6), " -0.100000E+33");
    EXPECT_EQ(exponentField(1e100, 14, 6), "  0.100000+101");
    EXPECT_EQ(exponentField(1e-101, 14, 6), "  0.100000-100");
    EXPECT_EQ(exponentField(9.9999995, 14, 6), "  0.100000E+02");
    EXPECT_EQ(exponentField(0.0, 14, 6), "  0.000000E+00");
    EXPECT_EQ(fixedField(-0.001, 10, 2), "     -0.00");
    EXPECT_EQ(fixedField(0.123, 4, 3), ".123");
    EXPECT_EQ(fixedField(0.123, 5, 3), "0.123");
    EXPECT_EQ(fixedField(1e8, 10, 2), "**********");
    EXPECT_EQ(fixedField(2.5, 10, 0), "        2.");
    EXPECT_EQ(fixedField(3.5, 10, 0), "        4.");
    EXPECT_EQ(fixedField(-std::numeric_limits<double>::infinity(), 8, 2), "    -Inf");
    EXPECT_EQ(fixedField(std::numeric_limits<double>::quiet_NaN(), 2, 1), "**");
}

TEST(FixedField, writesIntegers) {
    EXPECT_EQ(integerField(0, 4, 1), "   0");
    EXPECT_EQ(integerField(-12, 4, 1), " -12");
    EXPECT_EQ(integerField(12345, 4, 1), "****");
    EXPECT_EQ(integerField(-1234, 4, 1), "****");
    EXPECT_EQ(integerField(5, 4, 2), "  05");
    EXPECT_EQ(integerField(-5, 4, 3), "-005");
    EXPECT_EQ(integerField(-5, 4, 4), "****");
    EXPECT_EQ(integerField(0, 2, 2), "00");
    EXPECT_EQ(integerField(std::numeric_limits<std::int64_t>::min(), 20, 1), "-9223372036854775808");
    EXPECT_EQ(integerField(std::numeric_limits<std::int64_t>::min(), 19, 1), std::string(19, '*'));
    std::array<char, 8> out{};
    putInteger(out.data(), 42, 7);
    EXPECT_STREQ(out.data(), "     42");
}

TEST(FixedField, neverLeavesItsWidth) {
    const std::array<double, 8> values = {0.0,   -0.0,   0.5,          -9.96,
                                          1e300, 5e-324, std::nan(""), -std::numeric_limits<double>::infinity()};
    for (const double value : values) {
        for (int width = 0; width < 60; ++width) {
            for (int decimals = -1; decimals < 60; ++decimals) {
                fixedField(value, width, decimals);
                exponentField(value, width, decimals);
            }
        }
        fixedField(value, 1100, 1000);
        exponentField(value, 1100, 1000);
    }
}

double drawValue(std::mt19937_64& generator) {
    switch (generator() % 5) {
        case 0:
            return std::bit_cast<double>(generator());
        case 1:  // few decimal digits: near the middles between shorter numbers
            return std::ldexp(static_cast<double>(generator() % 2000000), -static_cast<int>(generator() % 12));
        case 2:
            return -static_cast<double>(generator() % 100000000) / 1000.0;
        case 3:
            return static_cast<double>(generator() % 1000000) *
                   std::pow(10.0, static_cast<double>(generator() % 40) - 20.0);
        default:
            return std::ldexp(static_cast<double>(static_cast<std::int64_t>(generator())),
                              -static_cast<int>(generator() % 100));
    }
}

// What the C library prints, brought into the form of the field.
std::string exponentByLibrary(double value, int width, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*e", digits - 1, std::fabs(value));
    const char* const letter = std::strchr(text.data(), 'e');
    const int exponent = value == 0 ? 0 : std::atoi(letter + 1) + 1;
    std::string number(1, text[0]);
    number.append(digits > 1 ? std::string(text.data() + 2, static_cast<std::size_t>(digits - 1)) : "");
    std::array<char, 64> whole{};
    std::snprintf(whole.data(), whole.size(), std::abs(exponent) < 100 ? "%s0.%sE%+03d" : "%s0.%s%+04d",
                  std::signbit(value) ? "-" : "", number.c_str(), exponent);
    std::string field(whole.data());
    return std::string(static_cast<std::size_t>(width) - field.size(), ' ') + field;
}

TEST(FixedField, roundsExponentFormsLikeTheLibrary) {
    const std::uint64_t seed = 11;
    std::mt19937_64 generator(seed);
    for (int round = 0; round < 1000000; ++round) {
        const double value = drawValue(generator);
        if (!std::isfinite(value)) {
            continue;
        }
        const int digits = round % 4 != 0 ? 6 : 1 + static_cast<int>(generator() % 17);
        std::array<char, 40> out{};
        putExponent(out.data(), value, 30, digits);
        ASSERT_EQ(std::string(out.data()), exponentByLibrary(value, 30, digits))
            << "digits " << digits << " round " << round << " seed " << seed;
    }
}

void expectExponentFormOfLibrary(double value, int digits) {
    std::array<char, 40> out{};
    putExponent(out.data(), value, 30, digits);
    ASSERT_EQ(std::string(out.data()), exponentByLibrary(value, 30, digits)) << "digits " << digits;
}

// Where the digits end exactly or half-way, and a few units in the last place from there.
TEST(FixedField, roundsExponentFormsNearRoundNumbersLikeTheLibrary) {
    const std::uint64_t seed = 32;
    std::mt19937_64 generator(seed);
    for (int round = 0; round < 400000; ++round) {
        const int digits = round % 2 == 0 ? 6 : 1 + static_cast<int>(generator() % 10);
        const double limit = std::pow(10.0, digits);
        const double number = std::floor(limit * std::ldexp(static_cast<double>(generator() >> 11), -53));
        double value =
            (number + (round % 3 == 0 ? 0.0 : 0.5)) * std::pow(10.0, static_cast<double>(generator() % 60) - 30.0);
        for (std::uint64_t step = generator() % 3; step > 0; --step) {
            value = std::nextafter(value, round % 4 < 2 ? 0.0 : std::numeric_limits<double>::infinity());
        }
        SCOPED_TRACE(seed);
        expectExponentFormOfLibrary(round % 5 == 0 ? -value : value, digits);
    }
}

TEST(FixedField, roundsExponentFormsAtEveryPowerOfTenLikeTheLibrary) {
    for (int exponent = -323; exponent <= 308; ++exponent) {
        const double value = std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
        for (int digits = 1; digits <= 10; ++digits) {
            for (const double near :
                 {value, std::nextafter(value, 0.0), std::nextafter(value, std::numeric_limits<double>::infinity()),
                  0.9999995 * value, 0.99999949 * value, 0.95 * value}) {
                expectExponentFormOfLibrary(near, digits);
            }
        }
    }
}

TEST(FixedField, roundsFixedFormsLikeTheLibrary) {
    const std::uint64_t seed = 12;
    std::mt19937_64 generator(seed);
    std::array<char, 1024> out{};
    std::array<char, 1024> library{};
    for (int round = 0; round < 1000000; ++round) {
        const double value = drawValue(generator);
        if (!std::isfinite(value)) {
            continue;
        }
        const int decimals = 1 + static_cast<int>(generator() % (round % 4 != 0 ? 6 : 14));
        const int width = round % 10 == 0 ? 400 : 40;
        const int length = std::snprintf(library.data(), library.size(), "%*.*f", width, decimals, value);
        *putFixed(out.data(), value, width, decimals) = '\0';
        const std::string expected =
            length > width ? std::string(static_cast<std::size_t>(width), '*') : library.data();
        ASSERT_EQ(std::string(out.data()), expected)
            << "decimals " << decimals << " round " << round << " seed " << seed;
    }
}

}  // namespace
}  // namespace voxlith
