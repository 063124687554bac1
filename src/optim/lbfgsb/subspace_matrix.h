// The small matrix of the subspace minimisation of L-BFGS-B (Byrd et al. 1995, section 5.1, and Zhu et al. 1997). With
// Z the unit vectors of the free variables and A those of the others, the inverse of the reduced matrix Z'BZ is
//
//     I/theta + (1/theta^2) Z'W K^-1 W'Z,   K = [ -D - Y'ZZ'Y/theta    (L_a - R_z)'   ]
//                                               [  L_a - R_z          theta S'AA'S    ]
//
// L_a is the strictly lower triangle of S'AA'Y, R_z the upper triangle of S'ZZ'Y with its diagonal. The inner products
// are stored in a table from one iteration to the next. It is updated by the newest pair and by the variables that have
// become free or have met a bound, so that an iteration costs O(m n). The table has order 2m: the lower triangle of
// Y'ZZ'Y; below it, in the columns of Y, L_a + R_z; in the columns of S, the lower triangle of S'AA'S.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "optim/lbfgsb/correction_memory.h"
#include "optim/vector_kernels.h"

namespace voxlith {

// Drops the oldest of `count` pairs from the table.
void forgetOldestInTable(const CorrectionMemory& memory, SmallMatrix table);

// row := elements of one variable in the first `pairs` changes, then in as many steps.
void gatherRow(const CorrectionMemory& memory, std::size_t pairs, std::size_t variable, std::span<double> row);

// Moves the terms of one variable between the sums over free and over fixed variables, for the first `pairs` pairs.
// `row` is that of gatherRow. Costs O(m^2).
void moveVariable(SmallMatrix table, std::size_t m, std::size_t pairs, std::span<const double> row, bool becomesFree);

// Fills the rows and columns of the newest pair. The products include those with its change where variables are free
// and with its step where they are fixed, both 0 elsewhere.
void storeNewestInTable(const CorrectionMemory& memory, const PairProducts& products, std::size_t freeChangeVector,
                        std::size_t fixedStepVector, SmallMatrix table);

// result := result + W'ZZ'W v, from the table and S'Y and S'S.
void addFreeProducts(const CorrectionMemory& memory, SmallMatrix table, std::span<const double> v,
                     std::span<double> result);

// Forms the factors of K from the table: K = [-A B'; B C] with A = J J' and C + B A^-1 B' = Q Q'. `factor` (order 2m)
// holds J in its first block, B J^-T below it and Q in the last block. False if a block is not positive definite.
bool factorSubspaceMatrix(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix factor);

// v := K^-1 v, in place, for 2 `count` elements.
void solveSubspaceMatrix(SmallMatrix factor, std::size_t m, std::size_t count, std::span<double> v);

}  // namespace voxlith
