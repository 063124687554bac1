// Which cells a step changes.
#pragma once

#include <cstddef>
#include <span>

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

// Marks the cells that are not fixed, have any term, and are not held at a bound of `model` by work.gradient. Returns
// their number.
std::size_t findFreeCells(const InversionProblem& problem, NewtonWork& work, std::span<const double> model);

// work.residual = the negative gradient of the free cells, 0 in others.
void takeNegativeGradient(NewtonWork& work);

}  // namespace voxlith
