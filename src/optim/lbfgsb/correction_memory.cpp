#include "optim/lbfgsb/correction_memory.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace voxlith {

namespace {

void shiftTowardsOldest(SmallMatrix matrix, std::size_t order) {
    for (std::size_t i = 0; i + 1 < order; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            matrix(i, j) = matrix(i + 1, j + 1);
        }
    }
}

}  // namespace

void addPairProducts(const CorrectionMemory& memory, std::size_t first, const VectorBlock& vectors,
                     std::span<double> products) {
    assert(products.size() >= 2 * vectorsAtOnce * memory.m && first + vectors.length <= memory.n);
    double* const withSteps = products.data();
    double* const withChanges = withSteps + vectorsAtOnce * memory.m;
    const BlockKernels& kernels = blockKernels();
    kernels.addProducts({memory.s.data() + first, memory.n, memory.count}, vectors, withSteps);
    kernels.addProducts({memory.y.data() + first, memory.n, memory.count}, vectors, withChanges);
}

void gatherProducts(const CorrectionMemory& memory, const PairProducts& products, std::size_t vector,
                    std::span<double> result) {
    for (std::size_t pair = 0; pair < memory.count; ++pair) {
        result[pair] = products.withChange(memory, pair, vector);
        result[memory.count + pair] = memory.theta * products.withStep(memory, pair, vector);
    }
}

void multiplyByPairs(const CorrectionMemory& memory, std::span<const double> v, const PairProducts& products,
                     std::span<double> result) {
    std::fill(products.sums.begin(), products.sums.end(), 0.0);
    for (std::size_t first = 0; first < memory.n; first += blockLength) {
        addPairProducts(memory, first, {{v.data() + first}, 1, std::min(blockLength, memory.n - first)}, products.sums);
    }
    gatherProducts(memory, products, 0, result);
}

// With J J' = theta S'S + L D^-1 L', M^-1 is the product
//     [  D^1/2       0 ] [ -D^1/2   D^-1/2 L' ]
//     [ -L D^-1/2    J ] [  0       J'        ].
void multiplyByMiddleMatrix(const CorrectionMemory& memory, std::span<const double> v, std::span<double> result) {
    assert(v.size() >= 2 * memory.count && result.size() >= 2 * memory.count && v.data() != result.data());
    const std::size_t count = memory.count;
    const SmallMatrix& sDotY = memory.sDotY;
    double* const changePart = result.data();
    double* const stepPart = result.data() + count;
    for (std::size_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (std::size_t k = 0; k < i; ++k) {
            sum += sDotY(i, k) * v[k] / sDotY(k, k);
        }
        stepPart[i] = v[count + i] + sum;
    }
    solveLower(memory.middleFactor, count, stepPart);
    solveLowerTransposed(memory.middleFactor, count, stepPart);
    for (std::size_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (std::size_t k = i + 1; k < count; ++k) {
            sum += sDotY(k, i) * stepPart[k];
        }
        changePart[i] = (sum - v[i]) / sDotY(i, i);
    }
}

void forgetOldestProducts(const CorrectionMemory& memory) {
    shiftTowardsOldest(memory.sDotY, memory.count);
    shiftTowardsOldest(memory.sDotS, memory.count);
}

void storeNewestProducts(const CorrectionMemory& memory, const PairProducts& products, std::size_t stepVector,
                         double curvature, double lengthSquared) {
    const std::size_t newest = memory.count - 1;
    for (std::size_t pair = 0; pair < newest; ++pair) {
        memory.sDotY(newest, pair) = products.withChange(memory, pair, stepVector);
        memory.sDotS(newest, pair) = products.withStep(memory, pair, stepVector);
    }
    memory.sDotY(newest, newest) = curvature;
    memory.sDotS(newest, newest) = lengthSquared;
}

bool factorMiddleMatrix(const CorrectionMemory& memory) {
    const SmallMatrix& sDotY = memory.sDotY;
    for (std::size_t i = 0; i < memory.count; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (std::size_t k = 0; k < j; ++k) {
                sum += sDotY(i, k) * sDotY(j, k) / sDotY(k, k);
            }
            memory.middleFactor(i, j) = sum + memory.theta * memory.sDotS(i, j);
        }
    }
    return choleskyFactor(memory.middleFactor, memory.count);
}

}  // namespace voxlith
