#include "preparation/topography.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

#include "base/messages.h"
#include "base/text_input.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

constexpr double largestCoordinate = 1.0e12;
constexpr std::size_t mostPoints = 100000000;

[[noreturn]] void throwExpected(const std::string& fileName, std::int64_t line, const std::string& expected,
                                const std::string& found) {
    throw RunError(fileName + ", line " + std::to_string(line) + ": expected " + expected + ", found " + found);
}

std::string shownLine(const std::string& line) {
    constexpr std::size_t shownWidth = 60;
    std::string shown(1, '"');
    shown.append(line, 0, shownWidth);
    return shown += '"';
}

SurfacePoint pointOf(const std::string& fileName, std::int64_t number, const std::string& line) {
    const std::vector<std::string_view> words = splitWords(line);
    std::vector<double> values;
    for (const std::string_view word : words) {
        const std::optional<double> value = parseNumber(word);
        if (value && std::abs(*value) <= largestCoordinate) {
            values.push_back(*value);
        }
    }
    if (words.size() != 3 || values.size() != 3) {
        throwExpected(fileName, number, "x, y, elevation within 1e12", shownLine(line));
    }
    return {values[0], values[1], values[2]};
}

// Points in the order of their places on the grid, those of one place together.
struct Placed {
    GridPoint place;
    double elevation = 0;
};

bool standsBefore(const Placed& a, const Placed& b) {
    return std::pair(a.place.x, a.place.y) < std::pair(b.place.x, b.place.y);
}

std::int64_t gridCoordinate(double value, double origin, double step) {
    return std::clamp<std::int64_t>(std::llround((value - origin) / step), 0, largestGridCoordinate);
}

double midway(double from, double to, double share) {
    return from + share * (to - from);
}

// The elevation of the nearest place of the outline; `x` and `y` in units of the grid.
double elevationBeyond(const Topography& topography, double x, double y) {
    double nearest = HUGE_VAL, elevation = 0;
    for (const auto& [first, last] : topography.triangles.outline) {
        const auto a = static_cast<std::size_t>(first), b = static_cast<std::size_t>(last);
        const auto ax = static_cast<double>(topography.triangles.point[a].x);
        const auto ay = static_cast<double>(topography.triangles.point[a].y);
        const double dx = static_cast<double>(topography.triangles.point[b].x) - ax;
        const double dy = static_cast<double>(topography.triangles.point[b].y) - ay;
        const double length = dx * dx + dy * dy;
        const double along = length > 0 ? std::clamp(((x - ax) * dx + (y - ay) * dy) / length, 0.0, 1.0) : 0.0;
        const double offX = x - (ax + along * dx), offY = y - (ay + along * dy);
        const double distance = offX * offX + offY * offY;
        if (distance < nearest) {
            nearest = distance;
            elevation = midway(topography.elevation[a], topography.elevation[b], along);
        }
    }
    return elevation;
}

double elevationWithin(const Topography& topography, std::int32_t triangle, GridPoint place) {
    const auto first = 3 * static_cast<std::size_t>(triangle);
    const auto corner = [&](std::size_t n) { return static_cast<std::size_t>(topography.triangles.corner[first + n]); };
    const std::size_t a = corner(0), b = corner(1), c = corner(2);
    const std::vector<GridPoint>& point = topography.triangles.point;
    const auto whole = static_cast<double>(doubleArea(point[a], point[b], point[c]));
    const double shareB = static_cast<double>(doubleArea(point[a], place, point[c])) / whole;
    const double shareC = static_cast<double>(doubleArea(point[a], point[b], place)) / whole;
    return topography.elevation[a] + shareB * (topography.elevation[b] - topography.elevation[a]) +
           shareC * (topography.elevation[c] - topography.elevation[a]);
}

}  // namespace

std::vector<SurfacePoint> readSurfacePoints(const std::string& fileName) {
    TextInput input;
    if (!openTextInput(input, fileName)) {
        throw RunError(fileName + ": the topography file cannot be opened");
    }
    std::vector<SurfacePoint> points;
    std::optional<std::int32_t> count;
    std::string line;
    std::int64_t number = input.lineNumber;
    for (; readLine(input, line); number = input.lineNumber) {
        line.resize(std::min(line.size(), line.find('!')));
        const std::vector<std::string_view> words = splitWords(line);
        if (words.empty()) {
            continue;
        }
        if (words.size() == 1 && points.empty() && !count) {
            count = parseInteger(words[0]);
            if (!count || *count < 1) {
                throwExpected(fileName, number, "the number of points", shownLine(line));
            }
            continue;
        }
        if (points.size() == (count ? static_cast<std::size_t>(*count) : mostPoints)) {
            throwExpected(fileName, number, "the end of the file behind " + std::to_string(points.size()) + " points",
                          shownLine(line));
        }
        points.push_back(pointOf(fileName, number, line));
    }
    if (points.size() < (count ? static_cast<std::size_t>(*count) : 1)) {
        throwExpected(fileName, number, "x, y, elevation of point " + std::to_string(points.size() + 1),
                      "the end of the file");
    }
    return points;
}

Topography surfaceOf(std::span<const SurfacePoint> points) {
    const auto [west, east] =
        std::minmax_element(points.begin(), points.end(), [](const auto& a, const auto& b) { return a.x < b.x; });
    const auto [south, north] =
        std::minmax_element(points.begin(), points.end(), [](const auto& a, const auto& b) { return a.y < b.y; });
    Topography topography;
    topography.x0 = west->x;
    topography.y0 = south->y;
    const double extent = std::max(east->x - west->x, north->y - south->y);
    topography.step = extent > 0 ? extent / static_cast<double>(largestGridCoordinate) : 1.0;
    std::vector<Placed> placed;
    for (const SurfacePoint& point : points) {
        placed.push_back({{gridCoordinate(point.x, topography.x0, topography.step),
                           gridCoordinate(point.y, topography.y0, topography.step)},
                          point.elevation});
    }
    std::stable_sort(placed.begin(), placed.end(), standsBefore);
    std::vector<GridPoint> places;
    for (std::size_t first = 0; first < placed.size();) {
        std::size_t behind = first;
        double sum = 0;
        for (; behind < placed.size() && placed[behind].place == placed[first].place; ++behind) {
            sum += placed[behind].elevation;
        }
        places.push_back(placed[first].place);
        topography.elevation.push_back(sum / static_cast<double>(behind - first));
        first = behind;
    }
    topography.triangles = triangulate(std::move(places));
    return topography;
}

double surfaceElevation(const Topography& topography, double x, double y, std::int32_t& triangle) {
    const auto largest = static_cast<double>(largestGridCoordinate);
    // Far off, the nearest place of the outline no longer depends on the distance.
    const double gridX = std::clamp((x - topography.x0) / topography.step, -1e4 * largest, 1e4 * largest);
    const double gridY = std::clamp((y - topography.y0) / topography.step, -1e4 * largest, 1e4 * largest);
    if (gridX >= -0.5 && gridX <= largest + 0.5 && gridY >= -0.5 && gridY <= largest + 0.5) {
        const GridPoint place{std::llround(gridX), std::llround(gridY)};
        const std::int32_t found = triangleOf(topography.triangles, place, triangle);
        if (found >= 0) {
            triangle = found;
            return elevationWithin(topography, found, place);
        }
    }
    return elevationBeyond(topography, gridX, gridY);
}

}  // namespace voxlith
