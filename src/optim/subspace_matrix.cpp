#include "optim/subspace_matrix.h"

#include "optim/bounds.h"

namespace voxlith {

namespace {

// The three parts of the table.
struct TableParts {
    SmallMatrix freeChanges;  // Y'ZZ'Y, i >= j
    SmallMatrix mixed;        // L_a for i > j, R_z for i <= j; row: step, column: change
    SmallMatrix heldSteps;    // S'AA'S, i >= j
};

TableParts partsOf(SmallMatrix table, std::size_t m) {
    return {table, table.block(m, 0), table.block(m, m)};
}

// Drops the oldest of `order` pairs.
void forgetOldest(const TableParts& parts, std::size_t order) {
    for (std::size_t i = 0; i + 1 < order; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            parts.freeChanges(i, j) = parts.freeChanges(i + 1, j + 1);
            parts.heldSteps(i, j) = parts.heldSteps(i + 1, j + 1);
        }
        for (std::size_t j = 0; j + 1 < order; ++j)
            parts.mixed(i, j) = parts.mixed(i + 1, j + 1);
    }
}

// Splits the newest pair: its change where variables are free, its step where they are held; 0 elsewhere. True if any
// variable is held.
bool splitPair(const CorrectionMemory& memory, std::size_t pair, const SubspaceTableArrays& arrays) {
    const std::span<const double> step = memory.step(pair);
    const std::span<const double> change = memory.change(pair);
    bool anyHeld = false;
    for (std::size_t i = 0; i < memory.n; ++i) {
        const bool free = isFree(arrays.status[i]);
        arrays.freeChange[i] = free ? change[i] : 0.0;
        arrays.heldStep[i] = free ? 0.0 : step[i];
        anyHeld |= !free;
    }
    return anyHeld;
}

// Rows and columns of `pair` with all pairs up to it.
void addPairToTable(const CorrectionMemory& memory, std::size_t pair, const SubspaceTableArrays& arrays) {
    const TableParts parts = partsOf(arrays.table, memory.m);
    const std::size_t pairs = pair + 1;
    const bool anyHeld = splitPair(memory, pair, arrays);
    multiplyByPairs(memory, pairs, arrays.freeChange, arrays.products);
    for (std::size_t j = 0; j < pairs; ++j) {
        parts.freeChanges(pair, j) = arrays.products[j];
        parts.mixed(j, pair) = arrays.products[pairs + j];
    }
    if (anyHeld) {
        multiplyByPairs(memory, pairs, arrays.heldStep, arrays.products);
    } else {
        for (std::size_t j = 0; j < 2 * pairs; ++j)
            arrays.products[j] = 0.0;
    }
    for (std::size_t j = 0; j < pairs; ++j) {
        if (j < pair)
            parts.mixed(pair, j) = arrays.products[j];
        parts.heldSteps(pair, j) = arrays.products[pairs + j];
    }
}

// Moves the share of one variable between the sums over free and over held variables, for the first `pairs` pairs.
void moveVariable(const CorrectionMemory& memory, std::size_t variable, bool becomesFree, std::size_t pairs,
                  const TableParts& parts, std::span<double> row) {
    const double sign = becomesFree ? 1.0 : -1.0;
    double* const changes = row.data();
    double* const steps = row.data() + pairs;
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        changes[pair] = memory.change(pair)[variable];
        steps[pair] = memory.step(pair)[variable];
    }
    for (std::size_t i = 0; i < pairs; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            parts.freeChanges(i, j) += sign * changes[i] * changes[j];
            parts.heldSteps(i, j) -= sign * steps[i] * steps[j];
        }
        for (std::size_t j = 0; j < pairs; ++j)
            parts.mixed(i, j) += (i <= j ? sign : -sign) * steps[i] * changes[j];
    }
}

}  // namespace

void updateSubspaceTable(const CorrectionMemory& memory, const TableLag& lag, const SubspaceTableArrays& arrays) {
    if (lag.stale || lag.newPairs > 1) {
        for (std::size_t pair = 0; pair < memory.count; ++pair)
            addPairToTable(memory, pair, arrays);
        return;
    }
    const TableParts parts = partsOf(arrays.table, memory.m);
    const std::size_t olderPairs = memory.count - lag.newPairs;
    if (lag.newPairs == 1 && lag.forgotten)
        forgetOldest(parts, memory.count);
    for (std::size_t i = 0; olderPairs > 0 && i < memory.n; ++i) {
        const bool free = isFree(arrays.status[i]);
        if (free != (arrays.wasFree[i] != 0))
            moveVariable(memory, i, free, olderPairs, parts, arrays.products);
    }
    if (lag.newPairs == 1)
        addPairToTable(memory, memory.count - 1, arrays);
}

bool factorSubspaceMatrix(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix factor) {
    const std::size_t count = memory.count;
    const TableParts parts = partsOf(table, memory.m);
    const SmallMatrix coupling = factor.block(memory.m, 0);
    const SmallMatrix last = factor.block(memory.m, memory.m);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j <= i; ++j)
            factor(i, j) = parts.freeChanges(i, j) / memory.theta;
        factor(i, i) += memory.sDotY(i, i);
    }
    if (!choleskyFactor(factor, count))
        return false;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j)
            coupling(i, j) = i > j ? parts.mixed(i, j) : -parts.mixed(i, j);
        solveLower(factor, count, &coupling(i, 0));
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = memory.theta * parts.heldSteps(i, j);
            for (std::size_t k = 0; k < count; ++k)
                sum += coupling(i, k) * coupling(j, k);
            last(i, j) = sum;
        }
    }
    return choleskyFactor(last, count);
}

// K v = w in blocks: v_2 solves (C + B A^-1 B') v_2 = w_2 + B A^-1 w_1, then A v_1 = B'v_2 - w_1.
void solveSubspaceMatrix(SmallMatrix factor, std::size_t m, std::size_t count, std::span<double> v) {
    const SmallMatrix coupling = factor.block(m, 0);
    const SmallMatrix last = factor.block(m, m);
    double* const first = v.data();
    double* const second = v.data() + count;
    solveLower(factor, count, first);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k < count; ++k)
            second[i] += coupling(i, k) * first[k];
    }
    solveLower(last, count, second);
    solveLowerTransposed(last, count, second);
    for (std::size_t k = 0; k < count; ++k) {
        double sum = -first[k];
        for (std::size_t i = 0; i < count; ++i)
            sum += coupling(i, k) * second[i];
        first[k] = sum;
    }
    solveLowerTransposed(factor, count, first);
}

}  // namespace voxlith
