// Constants of the PLIS engine. They are fixed: the engine has no options.
#pragma once

#include <cstdint>

namespace voxlith::plis {

// Termination.
constexpr double stepTol = 1.0e-16;                // step test, relative change of x
constexpr double valueTol = 1.0e-14;               // value test, relative change of f
constexpr double gradTol = 1.0e-8;                 // gradient test
constexpr double valueFloor = -1.0e60;             // value that ends a search
constexpr double floorTol = valueFloor + 1.0e-16;  // value that ends the run
constexpr std::int32_t stepPassesNeeded = 2;       // step tests passed in a row that end the run
constexpr std::int32_t valuePassesNeeded = 2;      // value tests passed in a row that end the run
constexpr std::int32_t maxIterationCount = 9000;
constexpr std::int32_t maxValueCount = 9000;
constexpr std::int32_t maxGradientCount = 9000;
constexpr std::int64_t restartFactor = 999;  // restart after restartFactor n + restartOffset iterations
constexpr std::int64_t restartOffset = 0;

// Direction and limits of the step.
constexpr double descentTol = 1.0e-4;      // least cosine between direction and steepest descent
constexpr double stepLimit = 1.0;          // largest length of a step
constexpr double stepFactorLow = 1.0e-10;  // lower limit of the step, in units of the gradient
constexpr double stepFactorHigh = 1.0e10;  // upper limit
constexpr double hugeValue = 1.0e120;      // used as infinity
constexpr double boundTol = 1.0e-8;        // values nearer to a bound become equal to it

// Line search.
constexpr double firstStep = 1.0e-4;        // first step of every search
constexpr double decreaseTol = 1.0e-4;      // value test
constexpr double slopeTol = 0.9;            // slope test
constexpr double valueCeiling = 1.0e20;     // values from here on are not interpolated
constexpr std::int32_t maxReductions = 10;  // reductions, or extensions, of the step

}  // namespace voxlith::plis
