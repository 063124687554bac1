// Analytical responses of right rectangular prisms of constant density or magnetisation.
//
// Axes: x east, y north, z down. Coordinates of a corner are taken relative to the station. With U the integral of 1/R
// over the prism (R the distance from the station), every response is a weighted sum of U_z, the vertical attraction,
// and the six second derivatives of U, derivatives being taken at the station:
//     U_z  = sum  z atan(xy / zR) - x ln(R + y) - y ln(R + x)
//     U_xx = sum  -atan(yz / xR)           U_xy = sum  ln(R + z)           and so on by permutation,
// over the eight corners, with the sign changed for each lower coordinate of a corner (Nagy 1966, Geophysics 31,
// 362-371; Blakely 1995, Potential Theory in Gravity and Magnetic Applications, sections 9.1 and 9.3). U_z is positive
// above a prism, U_zz is positive above and below it.
//
// The logarithms are written as ln((|y| + R) / sqrt(x^2 + z^2)) with the sign of y. They differ from the above by terms
// that cancel in the sum over the corners, are accurate where R + y would cancel, and give symmetric numbers for
// symmetric bodies.
//
// Stations on the surface of a prism get finite values. On a face, where a second derivative jumps, it is the mean of
// the two sides. On an edge, where the mixed derivative of the two directions across it is infinite, the station
// is treated as if at `edgeDistance` from the edge.
#pragma once

#include <span>

#include "survey/mesh_geometry.h"

namespace voxlith {

// The weight of each derivative in a datum.
struct ResponseWeights {
    double z = 0;
    double xx = 0, yy = 0, zz = 0;
    double xy = 0, xz = 0, yz = 0;
};

struct StationPoint {
    double x = 0, y = 0;  // east, north
    double depth = 0;     // below the origin of elevation: minus the elevation
};

struct Prism {
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    double depth1 = 0, depth2 = 0;
};

// The term of one corner at (x, y, z) relative to the station.
double cornerTerm(double x, double y, double z, const ResponseWeights& weights, double edgeDistance);

// Response of one prism of unit property.
double prismResponse(const Prism& prism, const StationPoint& station, const ResponseWeights& weights);

// The edge distance for a mesh: a ten-thousandth of its smallest width.
double edgeDistanceOf(const MeshGeometry& mesh);

// Values of work memory that meshResponses needs: two planes of corners.
std::size_t cornerWorkSize(const MeshGeometry& mesh);

// Responses of all cells of the mesh, each of unit property, in cell order. Each corner term is computed once for all
// cells that share the corner. zNode rises downwards. `corners` is work memory of cornerWorkSize values.
//
// The differences of corner terms cancel: for cells of width h at distance D the vertical attraction and the second
// derivatives have errors of about (D/h)^3 units in the last place.
void meshResponses(const MeshGeometry& mesh, const StationPoint& station, const ResponseWeights& weights,
                   double edgeDistance, std::span<double> corners, std::span<double> cells);

}  // namespace voxlith
