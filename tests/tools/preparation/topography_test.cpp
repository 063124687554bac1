// The surface between and beyond its points, and the cells and stations above and below it.
#include "preparation/topography.h"

#include <gtest/gtest.h>

#include <random>

#include "base/messages.h"
#include "forward/survey_mesh.h"
#include "preparation/ground_surface.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

double elevationAt(const Topography& topography, double x, double y) {
    std::int32_t triangle = 0;
    return surfaceElevation(topography, x, y, triangle);
}

std::vector<SurfacePoint> scattered(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> coordinate(500000.0, 510000.0);
    std::vector<SurfacePoint> points;
    for (std::size_t n = 0; n < count; ++n) {
        const double x = coordinate(generator), y = coordinate(generator) + 7.0e6;
        points.push_back({x, y, 100.0 + 0.02 * (x - 500000.0) - 0.03 * (y - 7.5e6)});
    }
    return points;
}

TEST(Topography, aPlaneIsAPlaneWithinAndItsPointsAreMet) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        const std::vector<SurfacePoint> points = scattered(40, seed);
        const Topography topography = surfaceOf(points);
        for (std::size_t n = 0; n + 2 < points.size(); ++n) {
            EXPECT_NEAR(elevationAt(topography, points[n].x, points[n].y), points[n].elevation, 1e-9);
            // The middle of three points lies within their outline.
            const double x = (points[n].x + points[n + 1].x + points[n + 2].x) / 3;
            const double y = (points[n].y + points[n + 1].y + points[n + 2].y) / 3;
            const double expected = (points[n].elevation + points[n + 1].elevation + points[n + 2].elevation) / 3;
            EXPECT_NEAR(elevationAt(topography, x, y), expected, 1e-4) << "seed " << seed;
        }
    }
}

TEST(Topography, beyondThePointsTheNearestPlaceOfTheOutlineCounts) {
    const std::vector<SurfacePoint> square{{0, 0, 10}, {100, 0, 20}, {0, 100, 10}, {100, 100, 20}};
    const Topography topography = surfaceOf(square);
    EXPECT_NEAR(elevationAt(topography, 50, 50), 15, 1e-6);
    EXPECT_NEAR(elevationAt(topography, 25, -1000), 12.5, 1e-6);
    EXPECT_NEAR(elevationAt(topography, 1000, 40), 20, 1e-6);
    EXPECT_NEAR(elevationAt(topography, -5, -5), 10, 1e-6);
    EXPECT_NEAR(elevationAt(topography, 1e300, 50), 20, 1e-6);
}

TEST(Topography, aLineAndAPoint) {
    const std::vector<SurfacePoint> profile{{0, 0, 0}, {10, 10, 10}, {20, 20, 0}};
    EXPECT_NEAR(elevationAt(surfaceOf(profile), 5, 5), 5, 1e-6);
    EXPECT_NEAR(elevationAt(surfaceOf(profile), 0, 10), 5, 1e-6);
    EXPECT_NEAR(elevationAt(surfaceOf(profile), 40, 20), 0, 1e-6);
    const std::vector<SurfacePoint> single{{5, 5, 7}};
    EXPECT_EQ(elevationAt(surfaceOf(single), -100, 3), 7);
    const std::vector<SurfacePoint> twice{{0, 0, 4}, {0, 0, 8}, {10, 0, 6}, {0, 10, 6}};
    EXPECT_EQ(elevationAt(surfaceOf(twice), 0, 0), 6);
}

TEST(Topography, theFileIsReadWithAndWithoutItsCount) {
    const TemporaryFolder folder;
    for (const char* text :
         {"2\n1 2 3\n4 5 6\n", "1 2 3\n4,5,6", "! surface\n2 ! points\n\n1 2 3\r\n4 5 0.6d1 ! last\n"}) {
        const std::vector<SurfacePoint> points = readSurfacePoints(folder.write("t", text));
        ASSERT_EQ(points.size(), 2U) << text;
        EXPECT_EQ(points[1].x, 4);
        EXPECT_EQ(points[1].y, 5);
        EXPECT_EQ(points[1].elevation, 6);
    }
}

TEST(Topography, whatIsWrongInTheFileIsTold) {
    const TemporaryFolder folder;
    const std::string name = folder.file("t");
    for (const auto& [text, message] :
         {std::pair{"", ", line 1: expected x, y, elevation of point 1, found the end of the file"},
          {"3\n1 2 3\n", ", line 3: expected x, y, elevation of point 2, found the end of the file"},
          {"1\n1 2 3\n4 5 6\n", ", line 3: expected the end of the file behind 1 points, found \"4 5 6\""},
          {"0\n", ", line 1: expected the number of points, found \"0\""},
          {"x\n", ", line 1: expected the number of points, found \"x\""},
          {"1 2\n", ", line 1: expected x, y, elevation within 1e12, found \"1 2\""},
          {"1 2 nan\n", ", line 1: expected x, y, elevation within 1e12, found \"1 2 nan\""},
          {"1 2 3\n1 2 3 4\n", ", line 2: expected x, y, elevation within 1e12, found \"1 2 3 4\""},
          {"1e13 2 3\n", ", line 1: expected x, y, elevation within 1e12, found \"1e13 2 3\""}}) {
        folder.write("t", text);
        try {
            readSurfacePoints(name);
            ADD_FAILURE() << text;
        } catch (const RunError& error) {
            EXPECT_EQ(error.what(), name + message);
        }
    }
    EXPECT_THROW(readSurfacePoints(folder.file("absent")), RunError);
}

class GroundCells : public testing::Test {
protected:
    // Three columns along x, two along y, of 4 cells of 10 below elevation 40; the surface falls to the east.
    GroundCells() {
        mesh = readSurveyMesh(folder.write("m", "3 2 4\n0 0 40\n3*10\n2*10\n4*10\n"));
        const std::vector<SurfacePoint> points{{0, -50, 40}, {30, -50, 10}, {0, 50, 40}, {30, 50, 10}};
        topography = surfaceOf(points);
    }

    StationPosition place(double x, double y, double elevation) {
        const std::vector<Station> stations;
        return positionOfStation(groundBelow(topography, mesh, stations), mesh, {x, y, -elevation});
    }

    TemporaryFolder folder;
    MeshGeometry mesh;
    Topography topography;
};

TEST_F(GroundCells, centresAboveTheSurfaceAreAir) {
    // Surface at the centres 5, 15, 25: 35, 25, 15, on centres of cells, which then are ground.
    const Ground ground = groundBelow(topography, mesh, {});
    EXPECT_EQ(ground.inactiveCells, (std::vector<std::int32_t>{0, 1, 2, 0, 1, 2}));
    for (std::size_t j = 0; j < 2; ++j) {
        for (std::size_t i = 0; i < 3; ++i) {
            for (std::size_t k = 0; k < 4; ++k) {
                EXPECT_EQ(ground.isInactive(mesh.cellIndex(k, i, j), 4), k < i);
            }
        }
    }
    std::vector<double> cells(24, 1.0);
    clearInactive(ground, 4, cells);
    for (std::size_t cell = 0; cell < 24; ++cell) {
        EXPECT_EQ(cells[cell], ground.isInactive(cell, 4) ? 0.0 : 1.0);
    }
    EXPECT_EQ(columnsCutOff(topography, mesh), 0U);
    const std::vector<SurfacePoint> high{{0, 0, 45.1}};
    EXPECT_EQ(columnsCutOff(surfaceOf(high), mesh), 6U);
}

TEST_F(GroundCells, stationsStandInTheOpenInTheFirstCellOrDeeper) {
    EXPECT_EQ(place(5, 5, 41), StationPosition::aboveGround);
    EXPECT_EQ(place(5, 5, 40), StationPosition::aboveGround);   // on the top of the mesh
    EXPECT_EQ(place(15, 5, 30), StationPosition::aboveGround);  // on the first ground cell, below air
    EXPECT_EQ(place(15, 5, 35), StationPosition::aboveGround);
    EXPECT_EQ(place(10, 5, 35), StationPosition::aboveGround);  // on the side of a step
    EXPECT_EQ(place(-1, 5, 5), StationPosition::aboveGround);   // beyond the mesh
    EXPECT_EQ(place(5, 5, 39), StationPosition::inTopCell);
    EXPECT_EQ(place(5, 10, 39), StationPosition::inTopCell);  // between two columns of ground
    EXPECT_EQ(place(5, 5, 30), StationPosition::inTopCell);   // on its lower face
    EXPECT_EQ(place(25, 5, 19), StationPosition::inTopCell);
    EXPECT_EQ(place(5, 5, 29), StationPosition::belowTopCell);
    EXPECT_EQ(place(25, 5, 5), StationPosition::belowTopCell);
}

}  // namespace
}  // namespace voxlith
