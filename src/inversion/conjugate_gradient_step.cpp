#include "inversion/conjugate_gradient_step.h"

#include <cassert>
#include <cmath>
#include <cstddef>

#include "base/messages.h"
#include "base/text_line.h"
#include "inversion/conjugate_gradient.h"
#include "inversion/gradient.h"
#include "optim/vector_kernels.h"

namespace voxlith {

namespace {

void reportResult(const ConjugateGradientResult& result) {
    screenLine(TextLine(" nCGiter: ").integer(result.iterations, 6).fixed(result.relativeResidual, 12, 4));
}

ConjugateGradientVectors vectorsOf(ConjugateGradientArrays& arrays, std::span<double> solution) {
    const auto first = [&](std::vector<double>& array) { return std::span(array).first(solution.size()); };
    return {solution, first(arrays.residual), first(arrays.direction), first(arrays.preconditioned),
            first(arrays.product)};
}

}  // namespace

ConjugateGradientResult conjugateGradientStep(const InversionProblem& problem, const Barrier& barrier,
                                              std::span<const double> model, const ConjugateGradientLimits& limits,
                                              std::span<double> step) {
    assert(model.size() == problem.modelSize() && step.size() == model.size());
    const std::span<const float> precond = problem.arrays.precond;
    const std::span<double> rightSide = std::span(problem.arrays.conjugateGradient.rightSide).first(step.size());
    const ConjugateGradientVectors vectors = vectorsOf(problem.arrays.conjugateGradient, step);

    calcGradient(GradientMode::gradient, problem, barrier, model, rightSide);
    for (double& value : rightSide) {
        value = -value;
    }
    calcGradient(GradientMode::hessianProduct, problem, barrier, step, vectors.residual);
    for (std::size_t n = 0; n < rightSide.size(); ++n) {
        vectors.residual[n] -= rightSide[n];
    }
    const double bNorm = innerProduct(rightSide, rightSide);
    double rz = startConjugateGradients(vectors, precond);
    ConjugateGradientResult result;
    do {
        ++result.iterations;
        calcGradient(GradientMode::hessianProduct, problem, barrier, vectors.direction, vectors.product);
        rz = stepConjugateGradients(vectors, precond, rz);
        // Compatibility: the stopping value compares the preconditioned residual with the plain right-hand side.
        result.relativeResidual = std::sqrt(rz / bNorm);
    } while (!(result.relativeResidual < limits.cgTolerance) && result.iterations < limits.cgMaxIterations);
    reportResult(result);
    return result;
}

}  // namespace voxlith
