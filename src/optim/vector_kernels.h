// Short vectors and small dense factorisations of the L-BFGS-B engine. Every sum has one fixed order, written out, so
// that all compilers, optimisation levels and instruction sets give the same bytes.
#pragma once

#include <cstddef>
#include <span>

namespace voxlith {

// A view of a small square matrix, row by row in an array that the caller owns.
struct SmallMatrix {
    double* data = nullptr;
    std::size_t stride = 0;

    double& operator()(std::size_t row, std::size_t column) const { return data[row * stride + column]; }

    // The part that begins at (row, column).
    SmallMatrix block(std::size_t row, std::size_t column) const { return {data + row * stride + column, stride}; }
};

// a'b of two short vectors of the same length.
double innerProduct(std::span<const double> a, std::span<const double> b);

// Replaces the lower triangle of the positive definite matrix a (order n) by its Cholesky factor L, a = L L'. The upper
// triangle is neither read nor changed. False, with the factor unfinished, if a pivot is not above 0.
bool choleskyFactor(SmallMatrix a, std::size_t n);

// b := L^-1 b and b := L^-T b for a lower triangular L of order n with a diagonal without zeros.
void solveLower(SmallMatrix factor, std::size_t n, double* b);
void solveLowerTransposed(SmallMatrix factor, std::size_t n, double* b);

}  // namespace voxlith
