// Directions of magnetisation and cavities around the sensor, compared with dipoles, with finite differences of the
// attraction, and with bodies from which a hole was cut.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <string>

#include "base/messages.h"
#include "cli/survey_options.h"
#include "forward/cavity.h"
#include "forward/survey.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

constexpr double strength = 50000.0;  // nT
constexpr Prism brick{-30.0, 40.0, -20.0, 35.0, 10.0, 70.0};
constexpr FieldDirection east{0, 90}, north{0, 0}, down{90, 0}, inclined{-20, 200}, fieldDirection{65, 10};
constexpr std::array<DataType, 4> magneticTypes{DataType::totalMagnetic, DataType::tx, DataType::ty, DataType::tz};

double response(const Prism& prism, const StationPoint& station, DataType type, const FieldDirection& magnetisation,
                const CavityShares& cavity = {}) {
    ResponseWeights weights = responseWeights(type, {magnetisation, strength}, fieldDirection);
    weights.cavity = cavityWeight(weights, cavity);
    return prismResponse(prism, station, weights);
}

std::array<double, 3> measuredVector(DataType type) {
    return unitVector(type == DataType::tx   ? east
                      : type == DataType::ty ? north
                      : type == DataType::tz ? down
                                             : fieldDirection);
}

StationPoint randomStation(std::mt19937& generator) {
    std::uniform_real_distribution<double> plan(-120.0, 120.0), height(-60.0, -1.0);
    return {plan(generator), plan(generator), height(generator)};
}

TEST(Magnetisation, isTheSumOfItsComponents) {
    std::mt19937 generator(3);
    const std::array<double, 3> m = unitVector(inclined);
    for (int trial = 0; trial < 50; ++trial) {
        const StationPoint station = randomStation(generator);
        for (const DataType type : magneticTypes) {
            const double sum = m[0] * response(brick, station, type, east) +
                               m[1] * response(brick, station, type, north) +
                               m[2] * response(brick, station, type, down);
            EXPECT_NEAR(response(brick, station, type, inclined), sum, 1e-9)
                << codeOf(type) << ", trial " << trial << ", seed 3";
        }
    }
}

// A dipole of the moment V F / mu0 in direction m: B = F V / (4 pi) (3 (m r) r - m) / r^3.
TEST(Magnetisation, ofASmallBodyIsADipole) {
    const Prism small{-1.0, 1.0, -1.0, 1.0, 99.0, 101.0};
    std::mt19937 generator(7);
    for (int trial = 0; trial < 20; ++trial) {
        const StationPoint station = randomStation(generator);
        const std::array<double, 3> d{station.x, station.y, station.depth - 100.0};  // from the dipole to the station
        const double r = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        for (const FieldDirection& direction : {east, north, down, inclined}) {
            const std::array<double, 3> m = unitVector(direction);
            const double along = (m[0] * d[0] + m[1] * d[1] + m[2] * d[2]) / r;
            for (const DataType type : magneticTypes) {
                const std::array<double, 3> t = measuredVector(type);
                double expected = 0;
                for (std::size_t n = 0; n < 3; ++n) {
                    expected += t[n] * (3 * along * d[n] / r - m[n]);
                }
                expected *= strength * 8.0 / (4 * std::numbers::pi * r * r * r);
                EXPECT_NEAR(response(small, station, type, direction), expected,
                            1e-7 * strength * 8.0 / (r * r * r) * 10)
                    << codeOf(type) << ", trial " << trial << ", seed 7";
            }
        }
    }
}

// Poisson's relation: the vertical field of a magnetisation along an axis is the derivative of the attraction along it.
TEST(Magnetisation, givesTheDerivativeOfTheAttraction) {
    ResponseWeights attraction;
    attraction.z = strength / (4 * std::numbers::pi);
    const StationPoint station{12.0, -7.0, -15.0};
    const std::array<FieldDirection, 3> axes{east, north, down};
    std::array<double, 3> lastError{};
    for (const double step : {1.0, 0.5, 0.25}) {
        for (std::size_t n = 0; n < 3; ++n) {
            const std::array<double, 3> d{n == 0 ? step : 0, n == 1 ? step : 0, n == 2 ? step : 0};
            const double slope =
                (prismResponse(brick, {station.x + d[0], station.y + d[1], station.depth + d[2]}, attraction) -
                 prismResponse(brick, {station.x - d[0], station.y - d[1], station.depth - d[2]}, attraction)) /
                (2 * step);
            const double error = slope - response(brick, station, DataType::tz, axes[n]);
            if (step < 1.0) {
                EXPECT_NEAR(lastError[n] / error, 4.0, 0.4) << "axis " << n << ", step " << step;
            }
            lastError[n] = error;
        }
    }
}

// The body without the part that the hole takes away.
double withHole(const Prism& hole, const StationPoint& station, DataType type, const FieldDirection& magnetisation) {
    return response(brick, station, type, magnetisation) - response(hole, station, type, magnetisation);
}

TEST(Cavity, isThatOfAHoleOfItsShape) {
    const StationPoint station{5.0, 6.0, 40.0};
    const auto around = [&](double halfX, double halfY, double halfZ) {
        return Prism{station.x - halfX, station.x + halfX,     station.y - halfY,
                     station.y + halfY, station.depth - halfZ, station.depth + halfZ};
    };
    struct Shape {
        const char* name;
        Prism hole;
        CavityShares shares;
    };
    // At the centre of a cube and across a square column the shares are those of the sphere and of the cylinder.
    const double small = 1e-3, large = 10.0;
    const Shape shapes[] = {{"sphere", around(small, small, small), sphericalCavity},
                            {"vertical hole", around(small, small, large), boreholeCavity(down)},
                            {"hole to the east", around(large, small, small), boreholeCavity(east)},
                            {"hole to the north", around(small, large, small), boreholeCavity(north)}};
    for (const Shape& shape : shapes) {
        for (const FieldDirection& direction : {east, north, down, inclined, fieldDirection}) {
            for (const DataType type : magneticTypes) {
                EXPECT_NEAR(response(brick, station, type, direction, shape.shares),
                            withHole(shape.hole, station, type, direction), 1e-3 * strength)
                    << shape.name << ", type " << codeOf(type);
            }
        }
        for (const DataType type : {DataType::gxx, DataType::gyy, DataType::tensorGzz, DataType::gxz}) {
            const double unit = response(brick, {5.0, 6.0, 8.0}, DataType::tensorGzz, down);
            EXPECT_NEAR(response(brick, station, type, down, shape.shares), withHole(shape.hole, station, type, down),
                        1e-3 * std::abs(unit))
                << shape.name << ", type " << codeOf(type);
        }
    }
    // A disc across the magnetisation, and a needle along it.
    EXPECT_NEAR(response(brick, station, DataType::tz, down, discCavity),
                withHole(around(large, large, small), station, DataType::tz, down), 1e-3 * strength);
    EXPECT_NEAR(response(brick, station, DataType::tz, down),
                withHole(around(small, small, large), station, DataType::tz, down), 1e-3 * strength);
}

TEST(Cavity, addsItsShareOfTheMagnetisation) {
    const StationPoint inside{0.0, 0.0, 30.0}, onFace{0.0, 0.0, 10.0}, outside{0.0, 0.0, 9.0};
    const auto change = [](const StationPoint& station, DataType type, const FieldDirection& m, const CavityShares& c) {
        return response(brick, station, type, m, c) - response(brick, station, type, m);
    };
    EXPECT_NEAR(change(inside, DataType::tz, down, discCavity), strength, 1e-8 * strength);
    EXPECT_NEAR(change(inside, DataType::tz, down, sphericalCavity), strength / 3, 1e-8 * strength);
    EXPECT_NEAR(change(inside, DataType::tz, east, discCavity), 0, 1e-8 * strength);
    EXPECT_NEAR(change(inside, DataType::tx, east, boreholeCavity(down)), strength / 2, 1e-8 * strength);
    EXPECT_NEAR(change(inside, DataType::tz, down, boreholeCavity(down)), 0, 1e-8 * strength);
    // A hole at 45 degrees to the east: half of the part of M across it.
    EXPECT_NEAR(change(inside, DataType::tx, down, boreholeCavity({45, 90})), -strength / 4, 1e-8 * strength);
    EXPECT_NEAR(change(onFace, DataType::tz, down, discCavity), strength / 2, 1e-8 * strength);
    EXPECT_EQ(change(outside, DataType::tz, down, discCavity), 0);
}

class BoreholeSurvey : public testing::Test {
protected:
    BoreholeSurvey() {
        options.meshFile = folder.write("m.msh", "3 3 4\n0 0 40\n3*10\n3*10\n4*10\n");
        options.stationFile = folder.write("s.obs", "65 10 50000\n65 10 1\n2\n15 15 45 0 1\n15 15 5 0 1\n");
        options.type = DataType::tz;
    }

    std::string refusal() const {
        try {
            readSurvey(options);
        } catch (const RunError& error) {
            return error.what();
        }
        return {};
    }

    testing_support::TemporaryFolder folder;
    SurveyOptions options;
};

TEST_F(BoreholeSurvey, stationsAmongTheCellsAreWarnedOfUnlessTheyAreMeant) {
    EXPECT_EQ(readSurvey(options).warnings.size(), 1U);
    options.boreholes = true;
    EXPECT_TRUE(readSurvey(options).warnings.empty());
}

TEST_F(BoreholeSurvey, optionsThatDoNotGoWithTheTypeAreRefused) {
    options.type = DataType::gz;
    options.magnetisation = down;
    EXPECT_EQ(refusal(), "--magnetisation: expected a magnetic type (tmi, tx, ty, tz), found Gz");
    options.magnetisation.reset();
    options.cavity = sphericalCavity;
    EXPECT_EQ(refusal(), "--cavity: expected a magnetic type or a gradient, found gz, which no cavity changes");
}

TEST_F(BoreholeSurvey, magnetisationAndCavityReachTheWeights) {
    options.magnetisation = east;
    options.cavity = boreholeCavity(down);
    options.type = DataType::tx;
    const Survey survey = readSurvey(options);
    const ResponseWeights weights = weightsOfStation(survey, 1);
    EXPECT_EQ(weights.zz, 0);
    EXPECT_DOUBLE_EQ(weights.xx, strength / (4 * std::numbers::pi));
    EXPECT_DOUBLE_EQ(weights.cavity, 0.5 * weights.xx);
}

}  // namespace
}  // namespace voxlith
