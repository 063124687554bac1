#include "optim/correction_memory.h"

#include <algorithm>
#include <cmath>

namespace voxlith {

namespace {

// Pieces of a vector that stay in the nearest cache while the columns of the memory pass by; a multiple of the number
// of partial sums.
constexpr std::size_t pieceLength = 1024;

// Pairs treated in one pass; more than that take several passes.
constexpr std::size_t pairsInOnePass = 16;

// products[p] and products[pairs + p] for the pairs first <= p < last.
void multiplyByGroup(const CorrectionMemory& memory, std::size_t first, std::size_t last, std::size_t pairs,
                     std::span<const double> v, std::span<double> products) {
    double changeSums[pairsInOnePass][partialSumCount] = {};
    double stepSums[pairsInOnePass][partialSumCount] = {};
    for (std::size_t start = 0; start < memory.n; start += pieceLength) {
        const std::size_t length = std::min(pieceLength, memory.n - start);
        for (std::size_t pair = first; pair < last; ++pair) {
            addProducts(memory.change(pair).data() + start, v.data() + start, length, changeSums[pair - first]);
            addProducts(memory.step(pair).data() + start, v.data() + start, length, stepSums[pair - first]);
        }
    }
    for (std::size_t pair = first; pair < last; ++pair) {
        products[pair] = sumOfPartials(changeSums[pair - first]);
        products[pairs + pair] = sumOfPartials(stepSums[pair - first]);
    }
}

void shiftTowardsOldest(SmallMatrix matrix, std::size_t order) {
    for (std::size_t i = 0; i + 1 < order; ++i) {
        for (std::size_t j = 0; j <= i; ++j)
            matrix(i, j) = matrix(i + 1, j + 1);
    }
}

}  // namespace

void multiplyByPairs(const CorrectionMemory& memory, std::size_t pairs, std::span<const double> v,
                     std::span<double> products) {
    for (std::size_t first = 0; first < pairs; first += pairsInOnePass)
        multiplyByGroup(memory, first, std::min(first + pairsInOnePass, pairs), pairs, v, products);
}

void addPairs(const CorrectionMemory& memory, std::span<const double> coefficients, std::span<double> v) {
    for (std::size_t start = 0; start < memory.n; start += pieceLength) {
        const std::size_t length = std::min(pieceLength, memory.n - start);
        double* const piece = v.data() + start;
        for (std::size_t pair = 0; pair < memory.count; ++pair) {
            const double changeFactor = coefficients[pair];
            const double stepFactor = coefficients[memory.count + pair];
            const double* const change = memory.change(pair).data() + start;
            const double* const step = memory.step(pair).data() + start;
            for (std::size_t i = 0; i < length; ++i)
                piece[i] += change[i] * changeFactor + step[i] * stepFactor;
        }
    }
}

// With J J' = theta S'S + L D^-1 L', M^-1 is the product
//     [  D^1/2       0 ] [ -D^1/2   D^-1/2 L' ]
//     [ -L D^-1/2    J ] [  0       J'        ].
void multiplyByMiddleMatrix(const CorrectionMemory& memory, std::span<const double> v, std::span<double> result) {
    const std::size_t count = memory.count;
    const SmallMatrix& sDotY = memory.sDotY;
    double* const changePart = result.data();
    double* const stepPart = result.data() + count;
    for (std::size_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (std::size_t k = 0; k < i; ++k)
            sum += sDotY(i, k) * v[k] / sDotY(k, k);
        stepPart[i] = v[count + i] + sum;
    }
    solveLower(memory.middleFactor, count, stepPart);
    solveLowerTransposed(memory.middleFactor, count, stepPart);
    for (std::size_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (std::size_t k = i + 1; k < count; ++k)
            sum += sDotY(k, i) * stepPart[k];
        changePart[i] = (sum - v[i]) / sDotY(i, i);
    }
}

void updateInnerProducts(const CorrectionMemory& memory, double curvature, double lengthSquared, bool forgotten,
                         std::span<double> products) {
    const std::size_t newest = memory.count - 1;
    if (forgotten) {
        shiftTowardsOldest(memory.sDotY, memory.count);
        shiftTowardsOldest(memory.sDotS, memory.count);
    }
    multiplyByPairs(memory, newest, memory.step(newest), products);
    for (std::size_t pair = 0; pair < newest; ++pair) {
        memory.sDotY(newest, pair) = products[pair];
        memory.sDotS(newest, pair) = products[newest + pair];
    }
    memory.sDotY(newest, newest) = curvature;
    memory.sDotS(newest, newest) = lengthSquared;
}

bool factorMiddleMatrix(const CorrectionMemory& memory) {
    const SmallMatrix& sDotY = memory.sDotY;
    for (std::size_t i = 0; i < memory.count; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (std::size_t k = 0; k < j; ++k)
                sum += sDotY(i, k) * sDotY(j, k) / sDotY(k, k);
            memory.middleFactor(i, j) = sum + memory.theta * memory.sDotS(i, j);
        }
    }
    return choleskyFactor(memory.middleFactor, memory.count);
}

}  // namespace voxlith
