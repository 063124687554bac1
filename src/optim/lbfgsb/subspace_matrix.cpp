#include "optim/lbfgsb/subspace_matrix.h"

#include <algorithm>
#include <cassert>

namespace voxlith {

namespace {

// The three parts of the table.
struct TableParts {
    SmallMatrix freeChanges;  // Y'ZZ'Y, i >= j
    SmallMatrix mixed;        // L_a for i > j, R_z for i <= j; row: step, column: change
    SmallMatrix fixedSteps;   // S'AA'S, i >= j
};

TableParts partsOf(SmallMatrix table, std::size_t m) {
    return {table, table.block(m, 0), table.block(m, m)};
}

// Drops the oldest of `order` pairs.
void forgetOldest(const TableParts& parts, std::size_t order) {
    for (std::size_t i = 0; i + 1 < order; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            parts.freeChanges(i, j) = parts.freeChanges(i + 1, j + 1);
            parts.fixedSteps(i, j) = parts.fixedSteps(i + 1, j + 1);
        }
        for (std::size_t j = 0; j + 1 < order; ++j) {
            parts.mixed(i, j) = parts.mixed(i + 1, j + 1);
        }
    }
}

}  // namespace

void forgetOldestInTable(const CorrectionMemory& memory, SmallMatrix table) {
    forgetOldest(partsOf(table, memory.m), memory.count);
}

void gatherRow(const CorrectionMemory& memory, std::size_t pairs, std::size_t variable, std::span<double> row) {
    assert(pairs <= memory.count && variable < memory.n && row.size() >= 2 * pairs);
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        row[pair] = memory.change(pair, variable);
        row[pairs + pair] = memory.step(pair, variable);
    }
}

void moveVariable(SmallMatrix table, std::size_t m, std::size_t pairs, std::span<const double> row, bool becomesFree) {
    const TableParts parts = partsOf(table, m);
    const double sign = becomesFree ? 1.0 : -1.0;
    const double* const changes = row.data();
    const double* const steps = row.data() + pairs;
    for (std::size_t i = 0; i < pairs; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            parts.freeChanges(i, j) += sign * changes[i] * changes[j];
            parts.fixedSteps(i, j) -= sign * steps[i] * steps[j];
        }
        for (std::size_t j = 0; j < pairs; ++j) {
            parts.mixed(i, j) += (i <= j ? sign : -sign) * steps[i] * changes[j];
        }
    }
}

void storeNewestInTable(const CorrectionMemory& memory, const PairProducts& products, std::size_t freeChangeVector,
                        std::size_t fixedStepVector, SmallMatrix table) {
    const TableParts parts = partsOf(table, memory.m);
    const std::size_t newest = memory.count - 1;
    for (std::size_t j = 0; j <= newest; ++j) {
        parts.freeChanges(newest, j) = products.withChange(memory, j, freeChangeVector);
        parts.mixed(j, newest) = products.withStep(memory, j, freeChangeVector);
        if (j < newest) {
            parts.mixed(newest, j) = products.withChange(memory, j, fixedStepVector);
        }
        parts.fixedSteps(newest, j) = products.withStep(memory, j, fixedStepVector);
    }
}

// Where the table has the sums over fixed variables, those over free ones are S'Y and S'S less these.
void addFreeProducts(const CorrectionMemory& memory, SmallMatrix table, std::span<const double> v,
                     std::span<double> result) {
    const TableParts parts = partsOf(table, memory.m);
    const std::size_t count = memory.count;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j) {
            const std::size_t low = std::min(i, j), high = std::max(i, j);
            const double mixed = i > j ? memory.sDotY(i, j) - parts.mixed(i, j) : parts.mixed(i, j);
            const double steps = memory.sDotS(high, low) - parts.fixedSteps(high, low);
            result[i] += parts.freeChanges(high, low) * v[j];
            result[j] += memory.theta * mixed * v[count + i];
            result[count + i] += memory.theta * (mixed * v[j] + memory.theta * steps * v[count + j]);
        }
    }
}

bool factorSubspaceMatrix(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix factor) {
    const std::size_t count = memory.count;
    const TableParts parts = partsOf(table, memory.m);
    const SmallMatrix coupling = factor.block(memory.m, 0);
    const SmallMatrix last = factor.block(memory.m, memory.m);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            factor(i, j) = parts.freeChanges(i, j) / memory.theta;
        }
        factor(i, i) += memory.sDotY(i, i);
    }
    if (!choleskyFactor(factor, count)) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j) {
            coupling(i, j) = i > j ? parts.mixed(i, j) : -parts.mixed(i, j);
        }
        solveLower(factor, count, &coupling(i, 0));
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = memory.theta * parts.fixedSteps(i, j);
            for (std::size_t k = 0; k < count; ++k) {
                sum += coupling(i, k) * coupling(j, k);
            }
            last(i, j) = sum;
        }
    }
    return choleskyFactor(last, count);
}

// K v = w in blocks: v_2 solves (C + B A^-1 B') v_2 = w_2 + B A^-1 w_1, then A v_1 = B'v_2 - w_1.
void solveSubspaceMatrix(SmallMatrix factor, std::size_t m, std::size_t count, std::span<double> v) {
    assert(count <= m && v.size() >= 2 * count);
    const SmallMatrix coupling = factor.block(m, 0);
    const SmallMatrix last = factor.block(m, m);
    double* const first = v.data();
    double* const second = v.data() + count;
    solveLower(factor, count, first);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k < count; ++k) {
            second[i] += coupling(i, k) * first[k];
        }
    }
    solveLower(last, count, second);
    solveLowerTransposed(last, count, second);
    for (std::size_t k = 0; k < count; ++k) {
        double sum = -first[k];
        for (std::size_t i = 0; i < count; ++i) {
            sum += coupling(i, k) * second[i];
        }
        first[k] = sum;
    }
    solveLowerTransposed(factor, count, first);
}

}  // namespace voxlith
