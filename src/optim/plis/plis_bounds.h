// Bounds of the PLIS engine. A code says what bounds a variable has: 0 none, 1 lower, 2 upper, 3 and 4 both, 5 and 6
// fixed; a negative code that the bound is active at present, -5 that the variable is fixed for the whole run.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith::plis {

// The box: bounds and codes of n variables each. The bounds of an unused side are never read.
struct Box {
    std::span<double> l, u;
    std::span<std::int32_t> nbd;
};

// Makes active codes positive, fixes variables (code 5, both bounds equal to x) whose code is 5 or 6 or whose bounds
// leave no interval, and projects all others into their bounds.
void startBounds(const Box& box, std::span<double> x);

// Projects x into its bounds. Values nearer to a bound than 1e-8 of it, at least of 1, become equal to it.
void projectIntoBounds(const Box& box, std::span<double> x);

// Marks the variables at a bound as active. Returns how many are new.
std::int32_t updateActiveSet(const Box& box, std::span<const double> x);

// Largest gradient components of free and of active variables. NaN if a component that enters is.
struct GradientNorms {
    double freeGradMax = 0.0;    // largest |g| of the free variables
    double activeGradMax = 0.0;  // largest |g| of the variables that would descend off their bound
    bool anyFree = false;
};
GradientNorms gradientNorms(std::int32_t boundSwitch, const Box& box, std::span<const double> x,
                            std::span<const double> g);

// Frees the variables that would descend off their bound. Returns how many.
std::int32_t releaseBounds(const Box& box, std::span<const double> x, std::span<const double> g);

// The largest step along s: the mean of `limit`, cut to the first bound that is met, and of the steps to all bounds
// ahead.
double stepToBounds(const Box& box, std::span<const double> x, std::span<const double> s, double limit);

}  // namespace voxlith::plis
