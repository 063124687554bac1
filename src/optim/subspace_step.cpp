#include "optim/subspace_step.h"

#include <cstddef>

#include "optim/subspace_matrix.h"

namespace voxlith {

namespace {

// The factor that keeps point + factor d in the box, and the variable that sets it.
struct Truncation {
    double factor = 1.0;
    std::size_t variable = 0;
};

Truncation truncate(const BoxProblem& problem, std::span<const double> point, std::span<const double> d) {
    Truncation truncation;
    for (std::size_t i = 0; i < point.size(); ++i) {
        const std::int32_t code = problem.nbd[i];
        double reach = truncation.factor;
        if (d[i] < 0.0 && hasLowerBound(code)) {
            const double room = problem.l[i] - point[i];
            if (room >= 0.0)
                reach = 0.0;
            else if (d[i] * truncation.factor < room)
                reach = room / d[i];
        } else if (d[i] > 0.0 && hasUpperBound(code)) {
            const double room = problem.u[i] - point[i];
            if (room <= 0.0)
                reach = 0.0;
            else if (d[i] * truncation.factor > room)
                reach = room / d[i];
        }
        if (reach < truncation.factor)
            truncation = {reach, i};
    }
    return truncation;
}

}  // namespace

void reducedGradient(const CorrectionMemory& memory, bool constrained, std::span<const double> x,
                     std::span<const double> g, std::span<const double> point, std::span<const std::int32_t> status,
                     std::span<const double> c, std::span<double> products, std::span<double> r) {
    if (!constrained) {
        for (std::size_t i = 0; i < r.size(); ++i)
            r[i] = -g[i];
        return;
    }
    for (std::size_t i = 0; i < r.size(); ++i)
        r[i] = -memory.theta * (point[i] - x[i]) - g[i];
    multiplyByMiddleMatrix(memory, c, products);
    for (std::size_t k = memory.count; k < 2 * memory.count; ++k)
        products[k] *= memory.theta;
    addPairs(memory, products, r);
    for (std::size_t i = 0; i < r.size(); ++i)
        r[i] = isFree(status[i]) ? r[i] : 0.0;
}

bool subspaceStep(const BoxProblem& problem, const CorrectionMemory& memory, SmallMatrix factor,
                  std::span<const std::int32_t> status, std::span<double> products, std::span<double> r,
                  std::span<double> point) {
    const double theta = memory.theta;
    multiplyByPairs(memory, memory.count, r, products);
    for (std::size_t k = memory.count; k < 2 * memory.count; ++k)
        products[k] *= theta;
    solveSubspaceMatrix(factor, memory.m, memory.count, products);
    for (std::size_t k = 0; k < memory.count; ++k)
        products[k] /= theta;
    addPairs(memory, products, r);
    for (std::size_t i = 0; i < r.size(); ++i)
        r[i] = isFree(status[i]) ? r[i] / theta : 0.0;

    const Truncation truncation = truncate(problem, point, r);
    for (std::size_t i = 0; i < point.size(); ++i)
        point[i] += truncation.factor * r[i];
    const bool shortened = truncation.factor < 1.0;
    if (shortened) {
        const std::size_t i = truncation.variable;
        point[i] = r[i] > 0.0 ? problem.u[i] : problem.l[i];
    }
    clampToBounds(problem, point);
    return shortened;
}

}  // namespace voxlith
