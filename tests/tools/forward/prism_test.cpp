// The analytical responses compared with quadrature, point masses, potential theory and their own symmetries.
#include "forward/prism.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "support/instruction_sets.h"

namespace voxlith {
namespace {

struct Component {
    const char* name;
    ResponseWeights weights;
    // Response to a unit point at (x, y, z) relative to the station, at distance r.
    std::function<double(double, double, double, double)> pointResponse;
};

std::vector<Component> allComponents() {
    const auto component = [](const char* name, double ResponseWeights::*member,
                              std::function<double(double, double, double, double)> response) {
        ResponseWeights weights;
        weights.*member = 1.0;
        return Component{name, weights, std::move(response)};
    };
    return {
        component("z", &ResponseWeights::z, [](double, double, double z, double r) { return z / std::pow(r, 3); }),
        component("xx", &ResponseWeights::xx,
                  [](double x, double, double, double r) { return (3 * x * x - r * r) / std::pow(r, 5); }),
        component("yy", &ResponseWeights::yy,
                  [](double, double y, double, double r) { return (3 * y * y - r * r) / std::pow(r, 5); }),
        component("zz", &ResponseWeights::zz,
                  [](double, double, double z, double r) { return (3 * z * z - r * r) / std::pow(r, 5); }),
        component("xy", &ResponseWeights::xy,
                  [](double x, double y, double, double r) { return 3 * x * y / std::pow(r, 5); }),
        component("xz", &ResponseWeights::xz,
                  [](double x, double, double z, double r) { return 3 * x * z / std::pow(r, 5); }),
        component("yz", &ResponseWeights::yz,
                  [](double, double y, double z, double r) { return 3 * y * z / std::pow(r, 5); }),
    };
}

double pointAt(const Component& component, const StationPoint& station, double x, double y, double depth) {
    const double dx = x - station.x;
    const double dy = y - station.y;
    const double dz = depth - station.depth;
    return component.pointResponse(dx, dy, dz, std::sqrt(dx * dx + dy * dy + dz * dz));
}

// Gauss-Legendre quadrature with 6 points per axis over each of 4 x 4 x 4 parts.
double quadrature(const Component& component, const Prism& prism, const StationPoint& station) {
    constexpr std::array<double, 6> points{-0.932469514203152, -0.661209386466265, -0.238619186083197,
                                           0.238619186083197,  0.661209386466265,  0.932469514203152};
    constexpr std::array<double, 6> shares{0.171324492379170, 0.360761573048139, 0.467913934572691,
                                           0.467913934572691, 0.360761573048139, 0.171324492379170};
    constexpr int parts = 4;
    const auto along = [&](double low, double high, int part, std::size_t n) {
        const double width = (high - low) / parts;
        return low + width * (part + 0.5 * (1.0 + points[n]));
    };
    double sum = 0;
    for (int part = 0; part < parts * parts * parts; ++part) {
        for (std::size_t n = 0; n < 216; ++n) {
            const double x = along(prism.x1, prism.x2, part % parts, n % 6);
            const double y = along(prism.y1, prism.y2, part / parts % parts, n / 6 % 6);
            const double z = along(prism.depth1, prism.depth2, part / parts / parts, n / 36);
            sum += shares[n % 6] * shares[n / 6 % 6] * shares[n / 36] * pointAt(component, station, x, y, z);
        }
    }
    const double volume = (prism.x2 - prism.x1) * (prism.y2 - prism.y1) * (prism.depth2 - prism.depth1);
    return sum * volume / (8.0 * parts * parts * parts);
}

constexpr Prism brick{-1.0, 2.0, -0.5, 1.5, 1.0, 2.2};

TEST(Prism, agreesWithQuadratureAllAroundTheBody) {
    std::mt19937 generator(11);
    std::uniform_real_distribution<double> angle(-1.0, 1.0);
    for (int trial = 0; trial < 60; ++trial) {
        const double dx = angle(generator), dy = angle(generator), dz = angle(generator);
        const double length = std::sqrt(dx * dx + dy * dy + dz * dz);
        const StationPoint station{0.5 + 4 * dx / length, 0.5 + 4 * dy / length, 1.6 + 4 * dz / length};
        for (const Component& component : allComponents()) {
            EXPECT_NEAR(prismResponse(brick, station, component.weights), quadrature(component, brick, station), 1e-9)
                << component.name << ", trial " << trial << ", seed 11";
        }
    }
}

TEST(Prism, isAPointMassFarAway) {
    const double volume = 3.0 * 2.0 * 1.2;
    const StationPoint station{300.0, -400.0, -350.0};
    for (const Component& component : allComponents()) {
        const double expected = volume * pointAt(component, station, 0.5, 0.5, 1.6);
        EXPECT_NEAR(prismResponse(brick, station, component.weights), expected, 1e-3 * std::abs(expected))
            << component.name;
    }
}

TEST(Prism, secondDerivativesAreDifferencesOfTheAttraction) {
    ResponseWeights attraction, xz, yz, zz;
    attraction.z = xz.xz = yz.yz = zz.zz = 1.0;
    const StationPoint station{0.3, 2.4, 0.2};
    // Halving the step must quarter the error: the difference is of second order.
    std::array<double, 3> lastError{};
    for (const double step : {1e-1, 5e-2, 2.5e-2}) {
        const auto slope = [&](double dx, double dy, double dz) {
            const StationPoint plus{station.x + dx * step, station.y + dy * step, station.depth + dz * step};
            const StationPoint minus{station.x - dx * step, station.y - dy * step, station.depth - dz * step};
            return (prismResponse(brick, plus, attraction) - prismResponse(brick, minus, attraction)) / (2 * step);
        };
        const std::array<double, 3> error{slope(1, 0, 0) - prismResponse(brick, station, xz),
                                          slope(0, 1, 0) - prismResponse(brick, station, yz),
                                          slope(0, 0, 1) - prismResponse(brick, station, zz)};
        for (std::size_t n = 0; n < 3; ++n) {
            if (step < 1e-1) {
                EXPECT_NEAR(lastError[n] / error[n], 4.0, 0.3) << "direction " << n << ", step " << step;
            }
            lastError[n] = error[n];
        }
    }
}

double trace(const Prism& prism, const StationPoint& station) {
    ResponseWeights weights;
    weights.xx = weights.yy = weights.zz = 1.0;
    return prismResponse(prism, station, weights);
}

TEST(Prism, obeysLaplaceOutsideAndPoissonInside) {
    std::mt19937 generator(5);
    std::uniform_real_distribution<double> coordinate(-4.0, 5.0);
    int inside = 0;
    for (int trial = 0; trial < 2000; ++trial) {
        const StationPoint station{coordinate(generator), coordinate(generator), coordinate(generator)};
        const bool within = station.x > brick.x1 && station.x < brick.x2 && station.y > brick.y1 &&
                            station.y < brick.y2 && station.depth > brick.depth1 && station.depth < brick.depth2;
        inside += within ? 1 : 0;
        EXPECT_NEAR(trace(brick, station), within ? -4.0 * std::numbers::pi : 0.0, 1e-12)
            << "trial " << trial << ", seed 5";
    }
    EXPECT_GT(inside, 3);
}

TEST(Prism, mirroredStationsGetMirroredResponses) {
    const Prism cube{-1.0, 1.0, -1.0, 1.0, 2.0, 4.0};
    for (const Component& component : allComponents()) {
        const StationPoint east{0.7, 0.4, 0.5}, west{-0.7, 0.4, 0.5}, south{0.7, -0.4, 0.5};
        const double response = prismResponse(cube, east, component.weights);
        const std::string name = component.name;
        const auto odd = [&](char axis) { return name.size() == 2 && name[0] != name[1] && name.find(axis) < 2; };
        EXPECT_NEAR(prismResponse(cube, west, component.weights), odd('x') ? -response : response, 1e-14) << name;
        EXPECT_NEAR(prismResponse(cube, south, component.weights), odd('y') ? -response : response, 1e-14) << name;
    }
}

TEST(Prism, theSumOfPartsIsTheWhole) {
    const StationPoint station{0.1, 0.2, -0.3};
    const Prism west{brick.x1, 0.4, brick.y1, brick.y2, brick.depth1, brick.depth2};
    const Prism east{0.4, brick.x2, brick.y1, brick.y2, brick.depth1, brick.depth2};
    for (const Component& component : allComponents()) {
        EXPECT_NEAR(prismResponse(west, station, component.weights) + prismResponse(east, station, component.weights),
                    prismResponse(brick, station, component.weights), 1e-13)
            << component.name;
    }
}

// Every station whose coordinates are those of a corner, the middle of the body, or outside, in all combinations.
TEST(Prism, isFiniteOnCornersEdgesAndFacesAndInTheirContinuations) {
    for (const double x : {brick.x1 - 1, brick.x1, 0.5, brick.x2, brick.x2 + 1}) {
        for (const double y : {brick.y1 - 1, brick.y1, 0.5, brick.y2, brick.y2 + 1}) {
            for (const double z : {brick.depth1 - 1, brick.depth1, 1.6, brick.depth2, brick.depth2 + 1}) {
                for (const Component& component : allComponents()) {
                    EXPECT_TRUE(std::isfinite(prismResponse(brick, {x, y, z}, component.weights)))
                        << component.name << " at " << x << ", " << y << ", " << z;
                }
            }
        }
    }
}

TEST(Prism, attractionIsContinuousOnTheSurface) {
    ResponseWeights weights;
    weights.z = 1.0;
    for (const StationPoint& station :
         {StationPoint{0.5, 0.5, brick.depth1}, StationPoint{brick.x1, 0.5, brick.depth1},
          StationPoint{brick.x1, brick.y1, brick.depth1}, StationPoint{brick.x2, brick.y2, 1.4}}) {
        const double here = prismResponse(brick, station, weights);
        const StationPoint near{station.x + 1e-7, station.y - 1e-7, station.depth - 1e-7};
        EXPECT_NEAR(prismResponse(brick, near, weights), here, 1e-4) << station.x << ", " << station.y;
    }
}

TEST(Prism, aFaceTakesTheMeanOfItsTwoSides) {
    ResponseWeights weights;
    weights.zz = 1.0;
    const double above = prismResponse(brick, {0.3, 0.6, brick.depth1 - 1e-9}, weights);
    const double below = prismResponse(brick, {0.3, 0.6, brick.depth1 + 1e-9}, weights);
    EXPECT_NEAR(above - below, 4.0 * std::numbers::pi, 1e-6);
    EXPECT_NEAR(prismResponse(brick, {0.3, 0.6, brick.depth1}, weights), 0.5 * (above + below), 1e-6);
}

TEST(Prism, theContinuationOfAnEdgeIsNothingSpecial) {
    for (const Component& component : allComponents()) {
        const StationPoint on{brick.x1, brick.y1, brick.depth1 - 1.0};
        const StationPoint beside{brick.x1 - 1e-8, brick.y1 + 1e-8, brick.depth1 - 1.0};
        EXPECT_NEAR(prismResponse(brick, on, component.weights), prismResponse(brick, beside, component.weights), 1e-6)
            << component.name;
    }
}

MeshGeometry unevenMesh() {
    MeshGeometry mesh;
    mesh.xNode = {500000.0, 500010.0, 500030.0, 500035.0};
    mesh.yNode = {-20.0, 0.0, 7.0, 30.0, 44.0};
    mesh.zNode = {-100.0, -95.0, -80.0};
    mesh.nx = 3;
    mesh.ny = 4;
    mesh.nz = 2;
    return mesh;
}

TEST(MeshResponses, areThoseOfTheSinglePrismsInCellOrder) {
    const MeshGeometry mesh = unevenMesh();
    PrismWork work;
    std::vector<double> cells(mesh.cellCount());
    for (const Component& component : allComponents()) {
        const StationPoint station{500012.0, 3.0, -104.0};
        meshResponses(mesh, station, component.weights, edgeDistanceOf(mesh), work, cells);
        for (std::size_t j = 0; j < 4; ++j) {
            for (std::size_t i = 0; i < 3; ++i) {
                for (std::size_t k = 0; k < 2; ++k) {
                    const Prism prism{mesh.xNode[i],     mesh.xNode[i + 1], mesh.yNode[j],
                                      mesh.yNode[j + 1], mesh.zNode[k],     mesh.zNode[k + 1]};
                    const double expected = prismResponse(prism, station, component.weights);
                    EXPECT_NEAR(cells[mesh.cellIndex(k, i, j)], expected, 1e-11 * (1 + std::abs(expected)))
                        << component.name << " of cell " << i << ", " << j << ", " << k;
                }
            }
        }
    }
}

TEST(MeshResponses, sumToTheWholeBodyAlsoForStationsOnNodes) {
    const MeshGeometry mesh = unevenMesh();
    const Prism whole{500000.0, 500035.0, -20.0, 44.0, -100.0, -80.0};
    PrismWork work;
    std::vector<double> cells(mesh.cellCount());
    // A node inside the mesh, where edges of four cells meet: the infinite terms cancel in the sum.
    const StationPoint station{500010.0, 7.0, -95.0};
    for (const Component& component : allComponents()) {
        meshResponses(mesh, station, component.weights, edgeDistanceOf(mesh), work, cells);
        double sum = 0;
        for (const double cell : cells) {
            ASSERT_TRUE(std::isfinite(cell)) << component.name;
            sum += cell;
        }
        EXPECT_NEAR(sum, prismResponse(whole, station, component.weights), 1e-9) << component.name;
    }
}

// The corner sums in 64-bit precision with the functions of the library, for stations that are on no face.
long double termOfCorner(long double x, long double y, long double z, const ResponseWeights& w) {
    const long double r = std::sqrt(x * x + y * y + z * z);
    return w.z * (z * std::atan(x * y / (z * r)) - x * std::asinh(y / std::hypot(x, z)) -
                  y * std::asinh(x / std::hypot(y, z))) -
           w.xx * std::atan(y * z / (x * r)) - w.yy * std::atan(x * z / (y * r)) - w.zz * std::atan(x * y / (z * r)) +
           w.xy * std::asinh(z / std::hypot(x, y)) + w.xz * std::asinh(y / std::hypot(x, z)) +
           w.yz * std::asinh(x / std::hypot(y, z));
}

double exactResponse(const Prism& prism, const StationPoint& station, const ResponseWeights& weights) {
    long double sum = 0;
    for (std::size_t corner = 0; corner < 8; ++corner) {
        const long double x = (corner & 1U) != 0 ? prism.x2 : prism.x1;
        const long double y = (corner & 2U) != 0 ? prism.y2 : prism.y1;
        const long double z = (corner & 4U) != 0 ? prism.depth2 : prism.depth1;
        const long double term = termOfCorner(x - station.x, y - station.y, z - station.depth, weights);
        sum += (corner == 1 || corner == 2 || corner == 4 || corner == 7) ? term : -term;
    }
    return static_cast<double>(sum);
}

std::vector<Component> allComponentsAndTheirSums() {
    std::vector<Component> components = allComponents();
    ResponseWeights inclined;
    inclined.xx = 0.1, inclined.yy = 0.7, inclined.zz = 0.9, inclined.xy = -0.4, inclined.xz = 0.3, inclined.yz = 1.1;
    components.push_back({"all second derivatives", inclined, {}});
    ResponseWeights odd;
    odd.xz = 0.5, odd.yz = -0.8;
    components.push_back({"xz and yz", odd, {}});
    return components;
}

// A mesh with columns near and far from any station above it, with padding cells.
MeshGeometry wideMesh() {
    MeshGeometry mesh;
    mesh.nx = 120;
    mesh.ny = 9;
    mesh.nz = 5;
    for (int n = 0; n <= mesh.nx; ++n) {
        mesh.xNode.push_back(n < 110 ? 20.0 * n : mesh.xNode.back() * 1.05);
    }
    for (int n = 0; n <= mesh.ny; ++n) {
        mesh.yNode.push_back(25.0 * n);
    }
    mesh.zNode = {-130.0, -118.0, -100.0, -80.0, -55.0, -25.0};
    return mesh;
}

struct RowErrors {
    double inNorm = 0;      // norm of the errors over that of the row
    double inResponse = 0;  // largest error of a response over the largest of any direction at its distance
};

RowErrors errorsOfRow(const MeshGeometry& mesh, const StationPoint& station, const Component& component,
                      std::span<const double> cells) {
    double errors = 0, squares = 0;
    RowErrors worst;
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        const auto nx = static_cast<std::size_t>(mesh.nx), nz = static_cast<std::size_t>(mesh.nz);
        const std::size_t k = cell % nz, i = cell / nz % nx, j = cell / nz / nx;
        const Prism prism{mesh.xNode[i],     mesh.xNode[i + 1], mesh.yNode[j],
                          mesh.yNode[j + 1], mesh.zNode[k],     mesh.zNode[k + 1]};
        const double expected = exactResponse(prism, station, component.weights);
        const double error = std::abs(cells[cell] - expected);
        const double distance = std::hypot(prism.x1 - station.x, prism.y1 - station.y, prism.depth1 - station.depth);
        const double volume = (prism.x2 - prism.x1) * (prism.y2 - prism.y1) * (prism.depth2 - prism.depth1);
        worst.inResponse =
            std::max(worst.inResponse, error * std::pow(distance, component.weights.z != 0 ? 2 : 3) / volume);
        errors += error * error;
        squares += expected * expected;
    }
    worst.inNorm = std::sqrt(errors / squares);
    return worst;
}

TEST(MeshResponses, haveSmallErrorsInNearAndFarColumns) {
    const MeshGeometry mesh = wideMesh();
    PrismWork work;
    std::vector<double> cells(mesh.cellCount());
    for (const StationPoint& station : {StationPoint{73.0, 101.0, -133.0}, StationPoint{1210.0, 11.0, -150.0},
                                        StationPoint{-1900.0, 3700.0, -200.0}}) {
        for (const Component& component : allComponentsAndTheirSums()) {
            meshResponses(mesh, station, component.weights, edgeDistanceOf(mesh), work, cells);
            const RowErrors errors = errorsOfRow(mesh, station, component, cells);
            EXPECT_LT(errors.inNorm, station.x < 0 ? 1e-10 : 1e-12) << component.name << " at " << station.x;
            EXPECT_LT(errors.inResponse, 1e-8) << component.name << " at " << station.x;
        }
    }
}

TEST(Prism, keepsItsDigitsAtAnyDistance) {
    std::mt19937 generator(17);
    std::uniform_real_distribution<double> coordinate(-1.0, 1.0);
    const Prism plate{-5.0, 5.0, -4.0, 4.0, 0.0, 1.0};
    for (const double distance : {20.0, 39.0, 41.0, 60.0, 300.0, 1e3, 1e4, 1e5}) {
        for (int trial = 0; trial < 40; ++trial) {
            const double x = coordinate(generator), y = coordinate(generator), z = coordinate(generator);
            const double scale = 10.0 * distance / std::sqrt(x * x + y * y + z * z);
            const StationPoint station{x * scale, y * scale, z * scale};
            for (const Component& component : allComponents()) {
                const double expected = quadrature(component, plate, station);
                const double largest = 80.0 / std::pow(10.0 * distance, component.weights.z != 0 ? 2 : 3);
                EXPECT_NEAR(prismResponse(plate, station, component.weights), expected, 1e-9 * largest)
                    << component.name << " at " << distance << " widths, trial " << trial << ", seed 17";
            }
        }
    }
}

TEST(MeshResponses, areTheSameBytesWithAllInstructionSets) {
    const MeshGeometry mesh = wideMesh();
    PrismWork work;
    for (const StationPoint& station : {StationPoint{73.0, 101.0, -133.0}, StationPoint{1200.0, 25.0, -130.0}}) {
        for (const Component& component : allComponentsAndTheirSums()) {
            std::vector<std::vector<double>> ofSet;
            for (const InstructionSet set : testing_support::setsOfThisMachine()) {
                const testing_support::InstructionSetLimit limit(set);
                ofSet.emplace_back(mesh.cellCount());
                meshResponses(mesh, station, component.weights, edgeDistanceOf(mesh), work, ofSet.back());
                EXPECT_EQ(ofSet.back(), ofSet.front()) << component.name << ", set " << static_cast<int>(set);
            }
        }
    }
}

}  // namespace
}  // namespace voxlith
