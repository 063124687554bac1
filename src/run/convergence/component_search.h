// Factors of the data misfits of the components, so that each component is fitted to the target RMS misfit:
//
//   phi = sum over components of f_c phi_c + mu phi_m
//
// A sequence of solutions, each from the model of the one before. The misfit of a component falls with its factor;
// log(phi_c) over log(f_c) is followed by secants, all components at once.
//
// The record is plain data, so that a checkpoint can hold it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

#include "survey/data_types.h"

namespace voxlith {

enum class ComponentEnd : std::int32_t {
    searching = 0,
    reached,   // all components, within the tolerance
    noBetter,  // the worst component comes no nearer to the target
};

struct ComponentTrial {
    std::array<double, maxFiles> factor{}, rms{};  // RMS misfit of each component
    double multiplier = 0;                         // mu
    std::int64_t products = 0;                     // since the start of the run
    std::int32_t iteration = 0;                    // the last one with these factors
};

constexpr std::int32_t mostComponentTrials = 40;

struct ComponentSearch {
    double tolerance = 0.01;  // of the RMS misfit of a component
    std::array<double, maxFiles> factor{};
    // Of the solution before; 0 for none.
    std::array<double, maxFiles> lastFactor{}, lastMisfit{};
    double nearest = 0;        // largest |log(phi_c / target)| so far that counts as progress
    std::int32_t without = 0;  // solutions since then
    ComponentEnd end = ComponentEnd::searching;
    std::int32_t trialCount = 0;
    std::array<ComponentTrial, mostComponentTrials> trials{};
};
static_assert(std::is_trivially_copyable_v<ComponentSearch>);

// All factors 1.
ComponentSearch makeComponentSearch();

// The accuracy (estimate of phi less its minimum, over phi) that the next decision needs; misfits are RMS misfits
// squared over the target squared, 0 for a component without valid data.
double neededAccuracy(const ComponentSearch& search, std::span<const double> misfits, double finalAccuracy);

// Moves the factors towards the target by small steps; false when each misfit is within `tolerance` (of the RMS
// misfit).
bool adjustFactors(ComponentSearch& search, std::span<const double> misfits, double tolerance);

// Takes a solution with its misfits, and changes the factors or sets search.end. The trial's factors are filled in.
void chooseFactors(ComponentSearch& search, const ComponentTrial& trial, std::span<const double> misfits);

// "voxlith_components.csv": one row per trial. Throws RunError.
void writeComponentTable(const std::string& fileName, const ComponentSearch& search, std::size_t components);

}  // namespace voxlith
