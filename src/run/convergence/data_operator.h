// The data as a function of the inversion variable, with its exact derivative: what phi_d of the iteration table is
// made of.
//
//   predicted(x)  = all products combined to components, averaged along lines, as sensitivity/products.h computes them
//   J             = derivative of the predicted data by x; constant except for amplitude data
//   phi_d         = sum of (s_c (predicted - observed))^2 / N over the valid data; s_c scales component c and is 1
//                   unless components are fitted one by one
//
// The transposed product here is the exact transpose of the forward product for all runs: a product that several
// components share takes the residuals of all of them, and means along lines are transposed from the same splines.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "inversion/inversion_problem.h"

namespace voxlith {

// The means along lines as rows of a sparse matrix, one per station; empty when data are no means.
struct LineMeans {
    std::vector<std::size_t> rowStart;  // nData + 1
    std::vector<std::int32_t> station;
    std::vector<double> weight;
};

struct DataOperator {
    std::array<double, maxFiles> componentScale{};  // s_c
    std::int64_t productCount = 0;                  // forward and transposed products so far, one file each
    bool amplitude = false;

    LineMeans means;
    std::vector<double> validData;  // 1 where observed and predicted data count, else 0 (nData by component)
    std::vector<double> partSlope;  // amplitude: derivative of the datum by each of its three products
    std::vector<double> rows;       // work: nData
};

// Sizes the work arrays, all scales 1. The sensitivities take each file's own depth weight from here on. Throws
// RunError for combinations of amplitude data with other components, which have no exact derivative.
DataOperator makeDataOperator(const InversionProblem& problem);

// After calcObjective at a model: marks the valid data and takes the derivative there. Returns phi_d with the scales.
double linearise(const InversionProblem& problem, DataOperator& data);

// out (nData by component) = scales times J `direction`, 0 where data are not valid.
void applyJacobian(const InversionProblem& problem, DataOperator& data, std::span<const double> direction,
                   std::span<double> out);

// out (cells by model type) = J' times the scales times `residual` (nData by component). Overwrites arrays.trialModel.
void applyTransposedJacobian(const InversionProblem& problem, DataOperator& data, std::span<const double> residual,
                             std::span<double> out);

// out (nData by component) = scaled residuals, 0 where data are not valid, from obs.predData.
void scaledResiduals(const InversionProblem& problem, const DataOperator& data, std::span<double> out);

// out (cells by model type) = an estimate of the diagonal of J'J from the diagonals in the sensitivity files.
void estimateDataDiagonal(const InversionProblem& problem, const DataOperator& data, std::span<double> out);

// Valid data of each component, and the sum of their squared residuals without scales.
struct ComponentMisfit {
    std::int32_t count = 0;
    double squares = 0;
};
std::array<ComponentMisfit, maxFiles> componentMisfits(const InversionProblem& problem);

}  // namespace voxlith
