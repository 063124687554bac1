#include "inversion/conjugate_gradient.h"

#include <cassert>
#include <cstddef>

#include "optim/vector_kernels.h"

namespace voxlith {

namespace {

void addScaled(std::span<double> target, double scale, std::span<const double> direction) {
    for (std::size_t n = 0; n < target.size(); ++n) {
        target[n] += scale * direction[n];
    }
}

// z = M r.
void precondition(std::span<const float> precond, std::span<const double> residual, std::span<double> z) {
    const std::size_t cells = precond.size();
    for (std::size_t start = 0; start < residual.size(); start += cells) {
        for (std::size_t n = 0; n < cells; ++n) {
            z[start + n] = static_cast<double>(precond[n]) * residual[start + n];
        }
    }
}

[[maybe_unused]] bool haveOneSize(const ConjugateGradientVectors& vectors, std::span<const float> precond) {
    const std::size_t size = vectors.solution.size();
    return vectors.residual.size() == size && vectors.direction.size() == size &&
           vectors.preconditioned.size() == size && vectors.product.size() == size && !precond.empty() &&
           size % precond.size() == 0;
}

}  // namespace

double startConjugateGradients(const ConjugateGradientVectors& vectors, std::span<const float> precond) {
    assert(haveOneSize(vectors, precond));
    precondition(precond, vectors.residual, vectors.preconditioned);
    for (std::size_t n = 0; n < vectors.direction.size(); ++n) {
        vectors.direction[n] = -vectors.preconditioned[n];
    }
    return innerProduct(vectors.residual, vectors.preconditioned);
}

double stepConjugateGradients(const ConjugateGradientVectors& vectors, std::span<const float> precond, double rz) {
    assert(haveOneSize(vectors, precond));
    const double alpha = rz / innerProduct(vectors.direction, vectors.product);
    addScaled(vectors.solution, alpha, vectors.direction);
    addScaled(vectors.residual, alpha, vectors.product);
    precondition(precond, vectors.residual, vectors.preconditioned);
    const double rzNew = innerProduct(vectors.residual, vectors.preconditioned);
    // Negative where M is not positive: then the search begins anew. A ratio that is not a number stays one.
    const double ratio = rzNew / rz;
    const double beta = ratio < 0.0 ? 0.0 : ratio;
    for (std::size_t n = 0; n < vectors.direction.size(); ++n) {
        vectors.direction[n] = beta * vectors.direction[n] - vectors.preconditioned[n];
    }
    return rzNew;
}

}  // namespace voxlith
