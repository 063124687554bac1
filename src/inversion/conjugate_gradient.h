// Preconditioned conjugate gradients for a symmetric system H s = b, by reverse communication: the caller forms the
// products with H (Hestenes and Stiefel 1952; Nocedal and Wright, Numerical Optimization, algorithm 5.3).
#pragma once

#include <span>

namespace voxlith {

// Arrays of one solution, all of the same size.
struct ConjugateGradientVectors {
    std::span<double> solution;        // s
    std::span<double> residual;        // r = H s - b
    std::span<double> direction;       // p
    std::span<double> preconditioned;  // z = M r
    std::span<double> product;         // q = H p
};

// Begins with the residual of the starting solution in `residual`: fills `preconditioned` and `direction`. Returns r.z.
// `precond` is the diagonal of M; when it is shorter than the vectors it serves all parts of its length.
double startConjugateGradients(const ConjugateGradientVectors& vectors, std::span<const float> precond);

// One step, with `product` formed for `direction` and `rz` as the call before returned it. Changes all arrays but
// `product`. Returns the new r.z. Nothing is guarded: without curvature along the direction the values become no
// numbers.
double stepConjugateGradients(const ConjugateGradientVectors& vectors, std::span<const float> precond, double rz);

}  // namespace voxlith
