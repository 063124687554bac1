// The small matrix of the subspace minimisation of L-BFGS-B (Byrd et al. 1995, section 5.1, and Zhu et al. 1997). With
// Z the unit vectors of the free variables and A those of the others, the inverse of the reduced matrix Z'BZ is
//
//     I/theta + (1/theta^2) Z'W K^-1 W'Z,   K = [ -D - Y'ZZ'Y/theta    (L_a - R_z)'   ]
//                                               [  L_a - R_z          theta S'AA'S    ]
//
// L_a is the strictly lower triangle of S'AA'Y, R_z the upper triangle of S'ZZ'Y with its diagonal. The inner products
// are kept from one iteration to the next and changed by the newest pair and by the variables that have become free or
// have met a bound, so that an iteration costs O(m n).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "optim/correction_memory.h"
#include "optim/vector_kernels.h"

namespace voxlith {

// Work arrays of an update; the contents of the scratch do not matter.
struct SubspaceTableArrays {
    SmallMatrix table;                       // order 2m: lower triangle of Y'ZZ'Y; below it, in the columns of Y,
                                             // L_a + R_z; in the columns of S, lower triangle of S'AA'S
    std::span<const std::int32_t> status;    // VariableStatus at the Cauchy point
    std::span<const std::int32_t> wasFree;   // 1 where the variable was free when the table was last right, else 0
    std::span<double> freeChange, heldStep;  // n each: scratch
    std::span<double> products;              // 2 m: scratch
};

// How the table lies behind the memory and the free variables.
struct TableLag {
    std::size_t newPairs = 0;  // pairs that came since
    bool forgotten = false;    // the newest of them has displaced the oldest pair
    bool stale = false;        // the table holds nothing of use
};

// Brings the table up to date. One new pair costs O(m n), each changed variable O(m^2). A stale table, or one that
// lacks several pairs, is formed anew in O(m^2 n).
void updateSubspaceTable(const CorrectionMemory& memory, const TableLag& lag, const SubspaceTableArrays& arrays);

// Forms the factors of K from the table: K = [-A B'; B C] with A = J J' and C + B A^-1 B' = Q Q'. `factor` (order 2m)
// holds J in its first block, B J^-T below it and Q in the last block. False if a block is not positive definite.
bool factorSubspaceMatrix(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix factor);

// v := K^-1 v, in place, for 2 `count` elements.
void solveSubspaceMatrix(SmallMatrix factor, std::size_t m, std::size_t count, std::span<double> v);

}  // namespace voxlith
