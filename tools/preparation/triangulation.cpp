#include "preparation/triangulation.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include "forward/progress_line.h"

namespace voxlith {

namespace {

__extension__ typedef __int128 WideInteger;

constexpr std::int32_t none = -1;

std::size_t at(std::int32_t index) {
    return static_cast<std::size_t>(index);
}

std::int32_t nextEdge(std::int32_t edge) {
    return edge % 3 == 2 ? edge - 2 : edge + 1;
}

std::int32_t previousEdge(std::int32_t edge) {
    return edge % 3 == 0 ? edge + 2 : edge - 1;
}

// The triangles so far and the ring of their outline, anticlockwise: by point the next one, the one before, and the
// edge to the next one.
struct Growth {
    Triangulation& made;
    std::vector<std::int32_t> ringNext, ringBefore, ringEdge;
    std::vector<std::int32_t> open;  // edges whose circles are to be tested

    const GridPoint& place(std::int32_t point) const { return made.point[at(point)]; }
};

void joinEdges(Growth& growth, std::int32_t edge, std::int32_t twin) {
    growth.made.twin[at(edge)] = twin;
    if (twin != none) {
        growth.made.twin[at(twin)] = edge;
    }
}

// Gives the edge a-b of the new triangle; b-c and c-a follow it.
std::int32_t addTriangle(Growth& growth, std::int32_t a, std::int32_t b, std::int32_t c) {
    const auto edge = static_cast<std::int32_t>(growth.made.corner.size());
    growth.made.corner.insert(growth.made.corner.end(), {a, b, c});
    growth.made.twin.insert(growth.made.twin.end(), 3, none);
    return edge;
}

void joinRing(Growth& growth, std::int32_t from, std::int32_t to, std::int32_t edge) {
    growth.ringNext[at(from)] = to;
    growth.ringBefore[at(to)] = from;
    growth.ringEdge[at(from)] = edge;
}

// The first points lie on a line, points 0 to apex - 1; the apex is the first one off it.
void startFan(Growth& growth, std::int32_t apex) {
    std::vector<std::int32_t> base(at(apex));
    std::iota(base.begin(), base.end(), 0);
    if (doubleArea(growth.place(0), growth.place(1), growth.place(apex)) < 0) {
        std::reverse(base.begin(), base.end());
    }
    std::int32_t edgeToApex = none;
    for (std::size_t n = 0; n + 1 < base.size(); ++n) {
        const std::int32_t edge = addTriangle(growth, base[n], base[n + 1], apex);
        joinRing(growth, base[n], base[n + 1], edge);
        if (edgeToApex == none) {
            joinRing(growth, apex, base[n], edge + 2);
        } else {
            joinEdges(growth, edge + 2, edgeToApex);
        }
        edgeToApex = edge + 1;
    }
    joinRing(growth, base.back(), apex, edgeToApex);
}

bool seesEdge(const Growth& growth, std::int32_t from, std::int32_t to, std::int32_t point) {
    return doubleArea(growth.place(from), growth.place(to), growth.place(point)) < 0;
}

// Joins the point to all edges of the outline that it sees. It stands behind all points so far, so it sees an edge at
// the one before it.
void joinPoint(Growth& growth, std::int32_t point) {
    std::int32_t first = point - 1;
    while (seesEdge(growth, growth.ringBefore[at(first)], first, point)) {
        first = growth.ringBefore[at(first)];
    }
    std::int32_t from = first, edgeToPoint = none, edgeFromFirst = none;
    for (std::int32_t to = growth.ringNext[at(from)]; seesEdge(growth, from, to, point);) {
        const std::int32_t edge = addTriangle(growth, to, from, point);
        joinEdges(growth, edge, growth.ringEdge[at(from)]);
        growth.open.push_back(edge);
        if (edgeToPoint == none) {
            edgeFromFirst = edge + 1;
        } else {
            joinEdges(growth, edge + 1, edgeToPoint);
        }
        edgeToPoint = edge + 2;
        from = to;
        to = growth.ringNext[at(from)];
    }
    joinRing(growth, first, point, edgeFromFirst);
    joinRing(growth, point, from, edgeToPoint);
}

// An edge of the outline may have changed its number.
void joinOutside(Growth& growth, std::int32_t edge, std::int32_t twin) {
    joinEdges(growth, edge, twin);
    if (twin == none) {
        growth.ringEdge[at(growth.made.corner[at(edge)])] = edge;
    }
}

// The edge a-b between the triangles a, b, c and b, a, d gives way to c-d when d lies in the circle of the first. c is
// the point added last, so that only edges across from it can be wrong.
void settleEdge(Growth& growth, std::int32_t edge) {
    const std::int32_t other = growth.made.twin[at(edge)];
    if (other == none) {
        return;
    }
    std::vector<std::int32_t>& corner = growth.made.corner;
    const std::int32_t edgeToC = previousEdge(edge), otherToD = previousEdge(other);
    const std::int32_t c = corner[at(edgeToC)], d = corner[at(otherToD)];
    if (circleSide(growth.place(corner[at(edge)]), growth.place(corner[at(other)]), growth.place(c), growth.place(d)) <=
        0) {
        return;
    }
    const std::int32_t outsideC = growth.made.twin[at(edgeToC)], outsideD = growth.made.twin[at(otherToD)];
    corner[at(edge)] = d;
    corner[at(other)] = c;
    joinOutside(growth, edge, outsideD);
    joinOutside(growth, other, outsideC);
    joinEdges(growth, edgeToC, otherToD);
    growth.open.push_back(edge);
    growth.open.push_back(nextEdge(other));
}

void collectOutline(const Growth& growth) {
    std::int32_t point = 0;
    do {
        const std::int32_t next = growth.ringNext[at(point)];
        growth.made.outline.push_back({point, next});
        point = next;
    } while (point != 0);
}

void collectLine(Triangulation& made) {
    const auto count = static_cast<std::int32_t>(made.point.size());
    if (count == 1) {
        made.outline.push_back({0, 0});
    }
    for (std::int32_t point = 1; point < count; ++point) {
        made.outline.push_back({point - 1, point});
    }
}

}  // namespace

std::int64_t doubleArea(GridPoint a, GridPoint b, GridPoint c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

int circleSide(GridPoint a, GridPoint b, GridPoint c, GridPoint d) {
    const std::int64_t ax = a.x - d.x, ay = a.y - d.y, bx = b.x - d.x, by = b.y - d.y, cx = c.x - d.x, cy = c.y - d.y;
    const WideInteger sum = WideInteger{ax * ax + ay * ay} * (bx * cy - by * cx) +
                            WideInteger{bx * bx + by * by} * (cx * ay - cy * ax) +
                            WideInteger{cx * cx + cy * cy} * (ax * by - ay * bx);
    return sum > 0 ? 1 : sum < 0 ? -1 : 0;
}

Triangulation triangulate(std::vector<GridPoint> points) {
    Triangulation made;
    std::sort(points.begin(), points.end(),
              [](const GridPoint& a, const GridPoint& b) { return std::pair(a.x, a.y) < std::pair(b.x, b.y); });
    made.point = std::move(points);
    const auto count = static_cast<std::int32_t>(made.point.size());
    std::int32_t apex = 2;
    while (apex < count && doubleArea(made.point[0], made.point[1], made.point[at(apex)]) == 0) {
        ++apex;
    }
    if (apex >= count) {
        collectLine(made);
        return made;
    }
    Growth growth{made, {}, {}, {}, {}};
    for (auto* ring : {&growth.ringNext, &growth.ringBefore, &growth.ringEdge}) {
        ring->assign(at(count), none);
    }
    startFan(growth, apex);
    ProgressLine progress("points of the surface", made.point.size());
    for (std::int32_t point = apex + 1; point < count; ++point) {
        progress.show(at(point));
        joinPoint(growth, point);
        while (!growth.open.empty()) {
            const std::int32_t edge = growth.open.back();
            growth.open.pop_back();
            settleEdge(growth, edge);
        }
    }
    collectOutline(growth);
    return made;
}

std::int32_t triangleOf(const Triangulation& triangulation, GridPoint place, std::int32_t start) {
    if (triangulation.corner.empty()) {
        return none;
    }
    std::int32_t triangle = std::max(start, 0);
    for (std::int32_t turn = 0; turn < 3;) {
        const std::int32_t edge = 3 * triangle + turn;
        const GridPoint& a = triangulation.point[at(triangulation.corner[at(edge)])];
        const GridPoint& b = triangulation.point[at(triangulation.corner[at(nextEdge(edge))])];
        if (doubleArea(a, b, place) >= 0) {
            ++turn;
            continue;
        }
        const std::int32_t neighbour = triangulation.twin[at(edge)];
        if (neighbour == none) {
            return none;
        }
        triangle = neighbour / 3;
        turn = 0;
    }
    return triangle;
}

}  // namespace voxlith
