// Triangles of random, gridded and collinear points: what makes them Delaunay triangles of the whole outline.
#include "preparation/triangulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace voxlith {
namespace {

const GridPoint& cornerOf(const Triangulation& made, std::size_t edge) {
    return made.point[static_cast<std::size_t>(made.corner[edge])];
}

std::size_t following(std::size_t edge) {
    return edge % 3 == 2 ? edge - 2 : edge + 1;
}

// Anticlockwise triangles, twins that agree, an area that is that of the outline, a convex outline, empty circles.
void expectDelaunay(const Triangulation& made, bool allCircles, const std::string& where) {
    std::int64_t area = 0, ring = 0;
    for (std::size_t edge = 0; edge < made.corner.size(); ++edge) {
        if (made.twin[edge] >= 0) {
            const auto twin = static_cast<std::size_t>(made.twin[edge]);
            ASSERT_EQ(made.twin[twin], static_cast<std::int32_t>(edge)) << where;
            ASSERT_EQ(made.corner[edge], made.corner[following(twin)]) << where;
            ASSERT_EQ(made.corner[following(edge)], made.corner[twin]) << where;
        }
    }
    for (std::size_t t = 0; t < made.corner.size(); t += 3) {
        const GridPoint &a = cornerOf(made, t), &b = cornerOf(made, t + 1), &c = cornerOf(made, t + 2);
        ASSERT_GT(doubleArea(a, b, c), 0) << where;
        area += doubleArea(a, b, c);
        for (std::size_t n = 0; n < 3; ++n) {
            const std::int32_t twin = made.twin[t + n];
            if (twin >= 0) {
                const std::size_t across = following(following(static_cast<std::size_t>(twin)));
                ASSERT_LE(circleSide(a, b, c, cornerOf(made, across)), 0) << where;
            }
        }
        for (std::size_t p = 0; allCircles && p < made.point.size(); ++p) {
            ASSERT_LE(circleSide(a, b, c, made.point[p]), 0) << where;
        }
    }
    for (const auto& [first, last] : made.outline) {
        const GridPoint &a = made.point[static_cast<std::size_t>(first)],
                        &b = made.point[static_cast<std::size_t>(last)];
        ring += a.x * b.y - b.x * a.y;
        for (const GridPoint& point : made.point) {
            ASSERT_GE(doubleArea(a, b, point), 0) << where;
        }
    }
    EXPECT_EQ(area, ring) << where;
    EXPECT_EQ(std::count(made.twin.begin(), made.twin.end(), -1), static_cast<std::ptrdiff_t>(made.outline.size()))
        << where;
    // Euler: triangles = 2 points - 2 - points of the outline.
    EXPECT_EQ(made.corner.size() / 3, 2 * made.point.size() - 2 - made.outline.size()) << where;
}

std::vector<GridPoint> randomPoints(std::size_t count, std::int64_t largest, unsigned seed) {
    std::mt19937_64 generator(seed);
    std::uniform_int_distribution<std::int64_t> coordinate(0, largest);
    std::set<std::pair<std::int64_t, std::int64_t>> places;
    while (places.size() < count) {
        places.insert({coordinate(generator), coordinate(generator)});
    }
    std::vector<GridPoint> points;
    for (const auto& [x, y] : places) {
        points.push_back({x, y});
    }
    std::shuffle(points.begin(), points.end(), generator);
    return points;
}

bool onOneLine(const std::vector<GridPoint>& points) {
    return std::all_of(points.begin(), points.end(),
                       [&](const GridPoint& point) { return doubleArea(points[0], points[1], point) == 0; });
}

TEST(Triangulation, randomPointsFarAndClose) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        // Few coordinates make many points on lines and circles.
        const std::int64_t largest = seed % 3 == 0 ? 5 : seed % 3 == 1 ? 40 : largestGridCoordinate;
        const std::vector<GridPoint> points = randomPoints(3 + seed % 30, largest, seed);
        const Triangulation made = triangulate(points);
        ASSERT_EQ(made.point.size(), points.size());
        if (!onOneLine(points)) {
            expectDelaunay(made, true, "seed " + std::to_string(seed));
        }
    }
    expectDelaunay(triangulate(randomPoints(3000, largestGridCoordinate, 7)), false, "3000 points");
}

TEST(Triangulation, regularGrids) {
    for (const auto& [nx, ny] : {std::pair{2, 2}, {2, 30}, {30, 2}, {17, 13}}) {
        std::vector<GridPoint> points;
        for (int i = 0; i < nx; ++i) {
            for (int j = 0; j < ny; ++j) {
                points.push_back({i * (largestGridCoordinate / 30), j * (largestGridCoordinate / 30)});
            }
        }
        const Triangulation made = triangulate(points);
        expectDelaunay(made, true, std::to_string(nx) + " x " + std::to_string(ny));
        EXPECT_EQ(made.corner.size() / 3, 2U * static_cast<unsigned>((nx - 1) * (ny - 1)));
    }
}

TEST(Triangulation, linesAndSinglePointsHaveNoTriangles) {
    for (const std::vector<GridPoint>& points : {std::vector<GridPoint>{{3, 4}},
                                                 {{0, 0}, {5, 5}},
                                                 {{5, 0}, {0, 0}, {3, 0}},
                                                 {{2, 9}, {2, 1}, {2, 5}, {2, 7}}}) {
        const Triangulation made = triangulate(points);
        EXPECT_TRUE(made.corner.empty());
        EXPECT_EQ(made.outline.size(), std::max<std::size_t>(points.size() - 1, 1));
        EXPECT_EQ(triangleOf(made, {3, 4}, 0), -1);
    }
}

TEST(Triangulation, placesAreFoundFromAnywhere) {
    const Triangulation made = triangulate(randomPoints(200, 1000, 3));
    std::mt19937 generator(5);
    const auto triangles = static_cast<std::int32_t>(made.corner.size() / 3);
    for (int n = 0; n < 2000; ++n) {
        const GridPoint place{static_cast<std::int64_t>(generator() % 1201) - 100,
                              static_cast<std::int64_t>(generator() % 1201) - 100};
        bool inside = true;
        for (const auto& [first, last] : made.outline) {
            inside = inside && doubleArea(made.point[static_cast<std::size_t>(first)],
                                          made.point[static_cast<std::size_t>(last)], place) >= 0;
        }
        const std::int32_t found =
            triangleOf(made, place, static_cast<std::int32_t>(generator() % static_cast<unsigned>(triangles)));
        ASSERT_EQ(found >= 0, inside) << place.x << " " << place.y;
        for (std::size_t edge = 0; inside && edge < 3; ++edge) {
            const std::size_t e = 3 * static_cast<std::size_t>(found) + edge;
            ASSERT_GE(doubleArea(cornerOf(made, e), cornerOf(made, following(e)), place), 0);
        }
    }
}

TEST(Triangulation, circlesAreExactAtTheLargestCoordinates) {
    constexpr std::int64_t far = largestGridCoordinate;
    const GridPoint a{0, 0}, b{far, 0}, c{far, far};
    EXPECT_EQ(circleSide(a, b, c, {0, far}), 0);
    EXPECT_EQ(circleSide(a, b, c, {1, far}), 1);
    EXPECT_EQ(circleSide(a, b, {far - 1, far}, {0, far}), -1);
    EXPECT_EQ(circleSide(a, b, c, {far / 2, far}), 1);
    EXPECT_EQ(circleSide({0, 1}, {1, 0}, {2, 1}, {1, 3}), -1);
}

}  // namespace
}  // namespace voxlith
