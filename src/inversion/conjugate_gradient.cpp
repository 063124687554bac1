#include "inversion/conjugate_gradient.h"

#include <cmath>
#include <cstddef>

#include "base/messages.h"
#include "base/text_line.h"

namespace voxlith {

namespace {

double innerProduct(std::span<const double> a, std::span<const double> b) {
    double sum = 0.0;
    for (std::size_t n = 0; n < a.size(); ++n)
        sum += a[n] * b[n];
    return sum;
}

void addScaled(std::span<double> target, double scale, std::span<const double> direction) {
    for (std::size_t n = 0; n < target.size(); ++n)
        target[n] += scale * direction[n];
}

// z = precond r for every model type.
void precondition(std::span<const float> precond, std::span<const double> residual, std::span<double> z) {
    const std::size_t cells = precond.size();
    for (std::size_t start = 0; start < residual.size(); start += cells)
        for (std::size_t n = 0; n < cells; ++n)
            z[start + n] = static_cast<double>(precond[n]) * residual[start + n];
}

void reportResult(const ConjugateGradientResult& result) {
    screenLine(TextLine(" nCGiter: ").integer(result.iterations, 6).fixed(result.relativeResidual, 12, 4));
}

}  // namespace

ConjugateGradientResult conjugateGradient(const ObjectiveInputs& inputs, const Barrier& barrier,
                                          std::span<const double> model, std::span<double> delm,
                                          std::span<const float> precond, const ConjugateGradientLimits& limits,
                                          const GradientWork& gradientWork, const ConjugateGradientWork& work) {
    const std::span<double> residual = work.cgResidual, direction = work.cgDirection, z = work.cgPrecondResidual;
    calcGradient(GradientMode::gradient, inputs, barrier, model, gradientWork, work.cgRhs);
    for (double& value : work.cgRhs)
        value = -value;
    calcGradient(GradientMode::hessianProduct, inputs, barrier, delm, gradientWork, residual);
    for (std::size_t n = 0; n < residual.size(); ++n)
        residual[n] -= work.cgRhs[n];
    const double bNorm = innerProduct(work.cgRhs, work.cgRhs);
    precondition(precond, residual, z);
    double rz = innerProduct(residual, z);
    for (std::size_t n = 0; n < direction.size(); ++n)
        direction[n] = -z[n];

    ConjugateGradientResult result;
    do {
        ++result.iterations;
        calcGradient(GradientMode::hessianProduct, inputs, barrier, direction, gradientWork, work.cgProduct);
        const double alpha = rz / innerProduct(direction, work.cgProduct);
        addScaled(delm, alpha, direction);
        addScaled(residual, alpha, work.cgProduct);
        precondition(precond, residual, z);
        const double rzNew = innerProduct(residual, z);
        // A ratio that is not a number stays one.
        const double ratio = rzNew / rz;
        const double keep = ratio < 0.0 ? 0.0 : ratio;
        rz = rzNew;
        for (std::size_t n = 0; n < direction.size(); ++n)
            direction[n] = keep * direction[n] - z[n];
        result.relativeResidual = std::sqrt(rz / bNorm);
    } while (!(result.relativeResidual < limits.cgTolerance) && result.iterations < limits.cgMaxIterations);
    reportResult(result);
    return result;
}

}  // namespace voxlith
