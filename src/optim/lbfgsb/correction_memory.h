// The limited memory of L-BFGS-B: the last pairs of step s and gradient change y, and products with the compact form of
// the matrix that they represent (R. H. Byrd, P. Lu, J. Nocedal and C. Zhu, A limited memory algorithm for bound
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

#include "optim/lbfgsb/block_kernels.h"
#include "optim/vector_kernels.h"

namespace voxlith {

// A view of the memory within one call of the engine.
struct CorrectionMemory {
    std::span<const double> s, y;  // columns of n; pair p is column (oldest + p) mod m
    std::size_t n = 0;             // variables
    std::size_t m = 0;             // pairs at most
    std::size_t count = 0;         // pairs stored
    std::size_t oldest = 0;        // column of pair 0
    double theta = 1.0;
    SmallMatrix sDotY;         // s_i'y_j, i >= j: D and L
    SmallMatrix sDotS;         // s_i's_j, i >= j
    SmallMatrix middleFactor;  // lower Cholesky factor J of theta S'S + L D^-1 L'

    std::size_t columnOf(std::size_t pair) const { return (oldest + pair) % m; }
    double step(std::size_t pair, std::size_t variable) const { return s[columnOf(pair) * n + variable]; }
    double change(std::size_t pair, std::size_t variable) const { return y[columnOf(pair) * n + variable]; }
};

// Products of all columns with up to four vectors, summed block by block.
struct PairProducts {
    std::span<double> sums;  // 2 m * vectorsAtOnce: first the columns of s in the order of memory, then those of y

    double withStep(const CorrectionMemory& memory, std::size_t pair, std::size_t vector) const {
        return sums[vectorsAtOnce * memory.columnOf(pair) + vector];
    }
    double withChange(const CorrectionMemory& memory, std::size_t pair, std::size_t vector) const {
        return sums[vectorsAtOnce * (memory.m + memory.columnOf(pair)) + vector];
    }
};

// Adds the products of the block that begins at variable `first` to `products`, which are laid out as
// PairProducts::sums.
void addPairProducts(const CorrectionMemory& memory, std::size_t first, const VectorBlock& vectors,
                     std::span<double> products);

// result := W'v from the products with v, which is vector number `vector`.
void gatherProducts(const CorrectionMemory& memory, const PairProducts& products, std::size_t vector,
                    std::span<double> result);

// result := W'v. One pass over the memory; `products` is scratch.
void multiplyByPairs(const CorrectionMemory& memory, std::span<const double> v, const PairProducts& products,
                     std::span<double> result);

// result := M v by the factors of M^-1 (paper, section 3). result and v are different arrays of 2 count elements.
void multiplyByMiddleMatrix(const CorrectionMemory& memory, std::span<const double> v, std::span<double> result);

// Drops the oldest of `count` pairs from S'Y and S'S.
void forgetOldestProducts(const CorrectionMemory& memory);

// Fills the rows of the newest pair in S'Y and S'S from its products; vector `stepVector` is its step. `curvature` is
// s'y and `lengthSquared` is s's of this pair, known from the line search.
void storeNewestProducts(const CorrectionMemory& memory, const PairProducts& products, std::size_t stepVector,
                         double curvature, double lengthSquared);

// Forms and factors theta S'S + L D^-1 L'. False if it is not positive definite, which only rounding can cause.
bool factorMiddleMatrix(const CorrectionMemory& memory);

}  // namespace voxlith
