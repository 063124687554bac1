// What the products of a run have shown of its data term. With orthonormal directions Q in the space of the data and
// their transposed products V = J'Q,
//
//   |Q'(J x - d)|^2 / N    is the data misfit within the directions,   V V' / N  its Hessian
//
// for all models, bounds and trade-offs, and never more than the whole. Every gradient adds the direction of its
// residuals; a gradient whose residuals lie within the directions needs no product.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "inversion/inversion_problem.h"
#include "run/convergence/data_operator.h"

namespace voxlith {

struct DataSubspace {
    std::size_t dataSize = 0, modelSize = 0;
    std::size_t capacity = 0;                   // 0: not in use
    std::size_t count = 0;                      // of directions
    std::vector<double> directions;             // Q, dataSize by direction
    std::vector<double> images;                 // V, modelSize by direction
    std::vector<double> outside, coefficients;  // work: dataSize, capacity
};

// Sizes the arrays for `capacity` directions.
DataSubspace makeDataSubspace(std::size_t dataSize, std::size_t modelSize, std::size_t capacity);

// out = J' residual (scaled residuals). Adds a direction by one transposed product where `residual` is not within the
// directions; false, and nothing done, when the subspace is full.
bool applyTransposed(const InversionProblem& problem, DataOperator& data, std::span<const double> residual,
                     DataSubspace& subspace, std::span<double> out);

// out (count) = Q' residual
void projectResidual(const DataSubspace& subspace, std::span<const double> residual, std::span<double> out);

// out (count) = V' vector
void applyImages(const DataSubspace& subspace, std::span<const double> vector, std::span<double> out);

// out (modelSize) = V coefficients
void combineImages(const DataSubspace& subspace, std::span<const double> coefficients, std::span<double> out);

// Takes the transposed products of the first `count` directions, which stand in `directions`, once more.
void restoreImages(const InversionProblem& problem, DataOperator& data, std::size_t count, DataSubspace& subspace);

}  // namespace voxlith
