// The shifted limited-memory update of the PLIS engine: lowRank and shift after an accepted step.
//
// The inverse Hessian is lowRank lowRank' + shift I. With the increments xo of x and go of g, the update makes
// lowRank lowRank' go = v (xo - shift go), v = 1 as long as a column is added (Vlcek and Luksan 2006, sections 2 and
// 3).
#pragma once

#include <cstdint>
#include <span>

namespace voxlith::plis {

// Vectors of n and of m that an update works on. All but go are changed.
struct UpdateVectors {
    std::span<double> s;               // in: the negated gradient at the start of the step, 0 where inactive
    std::span<double> xo;              // in: increment of x, 0 where inactive; out: xo - shift go
    std::span<const double> go;        // in: increment of g, 0 where inactive
    std::span<double> shiftedStep;     // scratch
    std::span<double> gradProjection;  // scratch
    std::span<double> stepProjection;  // scratch
};

// Updates lowRank, n x m with `columnsInUse` columns in use, and shift after a step of length r. Below m columns one is
// added and `method` has no influence; with all in use method 1 adds a matrix of rank 1, every other one of rank 2.
// False if the matrix is unchanged, because the increments have no positive curvature or give no finite update.
bool updateMatrix(std::int32_t method, double r, const UpdateVectors& vectors, std::span<double> lowRank,
                  std::int32_t& columnsInUse, double& shift);

}  // namespace voxlith::plis
