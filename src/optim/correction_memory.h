// The limited memory of L-BFGS-B: the last pairs of step s and gradient change y, and products with the compact form of
// the matrix that they stand for (R. H. Byrd, P. Lu, J. Nocedal and C. Zhu, A limited memory algorithm for bound
// constrained optimization, SIAM J. Sci. Comput. 16, 1995, section 3):
//
//     B = theta I - W M W',   W = [Y  theta S],   M^-1 = [ -D      L'      ]
//                                                        [  L   theta S'S ]
//
// D is the diagonal and L the strictly lower triangle of S'Y. Pairs are numbered from 0, the oldest first; a vector of
// the order of M has the part of Y first, then that of S, and twice `count` elements.
#pragma once

#include <cstddef>
#include <span>

#include "optim/vector_kernels.h"

namespace voxlith {

// A view of the memory as it stands within one call of the engine.
struct CorrectionMemory {
    std::span<const double> s, y;  // columns of n; pair p lies in column (oldest + p) mod m
    std::size_t n = 0;             // variables
    std::size_t m = 0;             // pairs that find room
    std::size_t count = 0;         // pairs held
    std::size_t oldest = 0;        // column of pair 0
    double theta = 1.0;
    SmallMatrix sDotY;         // s_i'y_j, i >= j: D and L
    SmallMatrix sDotS;         // s_i's_j, i >= j
    SmallMatrix middleFactor;  // lower Cholesky factor J of theta S'S + L D^-1 L'

    std::size_t columnOf(std::size_t pair) const { return (oldest + pair) % m; }
    std::span<const double> step(std::size_t pair) const { return s.subspan(columnOf(pair) * n, n); }
    std::span<const double> change(std::size_t pair) const { return y.subspan(columnOf(pair) * n, n); }
};

// products := [Y S]'v over the first `pairs` pairs: y_p'v in element p, s_p'v in element pairs + p. One pass over the
// memory.
void multiplyByPairs(const CorrectionMemory& memory, std::size_t pairs, std::span<const double> v,
                     std::span<double> products);

// v := v + [Y S] coefficients over all pairs. One pass over the memory.
void addPairs(const CorrectionMemory& memory, std::span<const double> coefficients, std::span<double> v);

// result := M v by the factors of M^-1 (paper, section 3). result and v are different arrays of 2 count elements.
void multiplyByMiddleMatrix(const CorrectionMemory& memory, std::span<const double> v, std::span<double> result);

// Fills the rows of the newest pair, which is in s and y already, into S'Y and S'S. `curvature` is s'y and
// `lengthSquared` is s's of this pair, which the line search knows. `forgotten` says that the pair has displaced the
// oldest one. `products` is scratch for 2 count elements.
void updateInnerProducts(const CorrectionMemory& memory, double curvature, double lengthSquared, bool forgotten,
                         std::span<double> products);

// Forms and factors theta S'S + L D^-1 L'. False if it isn't positive definite, which only rounding can bring about.
bool factorMiddleMatrix(const CorrectionMemory& memory);

}  // namespace voxlith
