// Codes, units and signs of the data types.
#include "forward/survey_type.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>

#include "base/messages.h"

namespace voxlith {
namespace {

constexpr InducingField noField{};
constexpr double G = 6.67430e-11;

Prism cubeAt(double x, double y, double depth, double width) {
    const double half = 0.5 * width;
    return {x - half, x + half, y - half, y + half, depth - half, depth + half};
}

TEST(SurveyType, strengthsOfTheEarthsField) {
    for (const double strength : {22000.0, 50000.0, 67000.0}) {
        EXPECT_TRUE(isStrengthOfTheEarth(strength)) << strength;
    }
    for (const double strength : {0.5, 52.0, 0.00005, 5000.0, 520000.0}) {
        EXPECT_FALSE(isStrengthOfTheEarth(strength)) << strength;
    }
}

TEST(SurveyType, namesAndCodes) {
    EXPECT_EQ(codeOf(parseDataType("gz")), 0);
    EXPECT_EQ(codeOf(parseDataType("TMI")), 1);
    EXPECT_EQ(codeOf(parseDataType("gzz")), 12);
    EXPECT_EQ(codeOf(parseDataType("2")), 2);
    EXPECT_EQ(codeOf(parseDataType("Gxz")), 14);
    EXPECT_EQ(codeOf(parseDataType("22")), 22);
}

TEST(SurveyType, unknownNamesAreRefusedWithAListOfTheKnownOnes) {
    for (const char* text : {"vka", "3", "", "-1", "gz ", "00"}) {
        try {
            parseDataType(text);
            ADD_FAILURE() << '"' << text << '"';
        } catch (const RunError& error) {
            EXPECT_STREQ(error.what(), (std::string("--type ") + text +
                                        ": unknown; known are 0 gz, 1 tmi, 2 gzz, 10 gxx, 11 gyy, 12 gzz, 13 gxy, 14 "
                                        "gxz, 15 gyz, 20 tx, 21 ty, 22 tz")
                                           .c_str());
        }
    }
}

TEST(SurveyType, attractionInMilligalForOneGramACubicCentimetre) {
    const double mass = 1000.0 * 1.0e6;  // kg in a cube of 100 m
    const double expected = G * mass / (2000.0 * 2000.0) * 1.0e5;
    EXPECT_NEAR(prismResponse(cubeAt(0, 0, 2000, 100), {}, responseWeights(DataType{0}, noField, {})), expected,
                1e-3 * expected);
}

TEST(SurveyType, gradientsInEotvos) {
    const double mass = 1000.0 * 1.0e6;
    const double unit = G * mass / std::pow(2000.0, 3) * 1.0e9;
    const Prism below = cubeAt(0, 0, 2000, 100);
    for (const int code : {2, 12}) {
        EXPECT_NEAR(prismResponse(below, {}, responseWeights(DataType{code}, noField, {})), 2 * unit, 1e-2 * unit)
            << code;
    }
    EXPECT_NEAR(prismResponse(below, {}, responseWeights(DataType{10}, noField, {})), -unit, 1e-2 * unit);
    EXPECT_NEAR(prismResponse(below, {}, responseWeights(DataType{11}, noField, {})), -unit, 1e-2 * unit);
}

// A body to the north-east and below: the attraction grows towards it on every axis.
TEST(SurveyType, mixedGradientsArePositiveTowardsTheBody) {
    const Prism body = cubeAt(500, 600, 700, 100);
    for (const int code : {13, 14, 15}) {
        EXPECT_GT(prismResponse(body, {}, responseWeights(DataType{code}, noField, {})), 0) << code;
    }
    EXPECT_LT(prismResponse(cubeAt(-500, 600, 700, 100), {}, responseWeights(DataType{13}, noField, {})), 0);
    EXPECT_LT(prismResponse(cubeAt(-500, 600, 700, 100), {}, responseWeights(DataType{14}, noField, {})), 0);
    EXPECT_LT(prismResponse(cubeAt(500, -600, 700, 100), {}, responseWeights(DataType{15}, noField, {})), 0);
}

std::array<double, 3> cosinesOf(const FieldDirection& direction) {
    const double degree = std::numbers::pi / 180.0;
    return {std::cos(direction.incl * degree) * std::sin(direction.decl * degree),
            std::cos(direction.incl * degree) * std::cos(direction.decl * degree), std::sin(direction.incl * degree)};
}

double dot(const std::array<double, 3>& a, const std::array<double, 3>& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// A small body of susceptibility 1 is a dipole: F V / (4 pi r^3) (3 (f.u) u - f), u pointing from body to station.
TEST(SurveyType, magneticComponentsAreThoseOfADipole) {
    std::mt19937 generator(3);
    std::uniform_real_distribution<double> incl(-90, 90), decl(-180, 180);
    for (int trial = 0; trial < 50; ++trial) {
        const InducingField field{{incl(generator), decl(generator)}, 50000.0};
        const FieldDirection measured{incl(generator), decl(generator)};
        const std::array<double, 3> position{300.0, -400.0, 1200.0};
        const double r = std::sqrt(dot(position, position));
        const std::array<double, 3> u{-position[0] / r, -position[1] / r, -position[2] / r};
        const std::array<double, 3> f = cosinesOf(field.direction);
        const double scale = 50000.0 * 1.0e3 / (4 * std::numbers::pi * r * r * r);
        std::array<double, 3> b{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            b[axis] = scale * (3 * dot(f, u) * u[axis] - f[axis]);
        }
        const Prism body = cubeAt(position[0], position[1], position[2], 10.0);
        const auto response = [&](int code) {
            return prismResponse(body, {}, responseWeights(DataType{code}, field, measured));
        };
        const double tolerance = 1e-3 * scale;
        EXPECT_NEAR(response(20), b[0], tolerance) << "trial " << trial << ", seed 3";
        EXPECT_NEAR(response(21), b[1], tolerance) << "trial " << trial << ", seed 3";
        EXPECT_NEAR(response(22), b[2], tolerance) << "trial " << trial << ", seed 3";
        EXPECT_NEAR(response(1), dot(b, cosinesOf(measured)), tolerance) << "trial " << trial << ", seed 3";
    }
}

TEST(SurveyType, aVerticalFieldNeedsOneDerivative) {
    const ResponseWeights weights = responseWeights(DataType{1}, {{90.0, 30.0}, 4.0 * std::numbers::pi}, {90.0, 0.0});
    EXPECT_DOUBLE_EQ(weights.zz, 1.0);
    for (const double other : {weights.xx, weights.yy, weights.xy, weights.xz, weights.yz, weights.z}) {
        EXPECT_EQ(other, 0.0);
    }
}

TEST(SurveyType, units) {
    EXPECT_EQ(unitOf(DataType{0}), "mGal");
    EXPECT_EQ(unitOf(DataType{2}), "Eotvos");
    EXPECT_EQ(unitOf(DataType{21}), "nT");
}

}  // namespace
}  // namespace voxlith
