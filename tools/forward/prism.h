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
// symmetric bodies. Of three angles only two are computed: at each corner the three add up to pi / 2 with the sign of
// xyz, which is 0 in the sum over the corners unless the station is inside the cell or on its surface.
//
// Inside a prism the second derivatives are those in the body itself, U_xx + U_yy + U_zz = -4 pi: the gradients in the
// rock, and of magnetised cells the field H. The weight `cavity` adds what the cavity of the sensor changes.
//
// Stations on the surface of a prism get finite values. On a face, where a second derivative jumps, it is the mean of
// the two sides. On an edge, where the mixed derivative of the two directions across it is infinite, the station
// is treated as if at `edgeDistance` from the edge.
//
// The differences of corner terms cancel: at distance D they have errors of about D^3 / volume units in the last
// place. From 30 times the largest width of a column on, the series of forward/far_cells.h is used. So the error stays
// below 1e-8 of the largest response at that distance, at any distance, for cells up to 100 times wider than thick and
// columns of up to 200 cells.
#pragma once

#include <span>
#include <vector>

#include "forward/response_weights.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct Prism {
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    double depth1 = 0, depth2 = 0;
};

// Response of one prism of unit property.
double prismResponse(const Prism& prism, const StationPoint& station, const ResponseWeights& weights);

// The edge distance for a mesh: a ten-thousandth of its smallest width.
double edgeDistanceOf(const MeshGeometry& mesh);

// Work memory of meshResponses, reused from station to station. Planes have all corners with one y, z fastest, then x,
// and some more values up to whole blocks.
struct PrismWork {
    std::vector<double> x, y, z;                    // coordinates in a plane
    std::vector<double> squaresXz;                  // x^2 + z^2
    std::vector<double> acrossX, acrossY, acrossZ;  // 1 / distance from the edge along this axis through the corner
    std::vector<double> r, edgeR;
    std::vector<double> south, north, difference;
    std::vector<double> layerCentre, layerWidth, squaredLayerWidth, farColumn;  // whole blocks of layers
};

// Responses of all cells of the mesh, each of unit property, in cell order. Each corner term is computed once for all
// cells that share the corner. zNode rises downwards. The same bytes on all machines.
void meshResponses(const MeshGeometry& mesh, const StationPoint& station, const ResponseWeights& weights,
                   double edgeDistance, PrismWork& work, std::span<double> cells);

}  // namespace voxlith
