// How accurate a solution must be: near a target of the data misfit more than far from it.
#pragma once

namespace voxlith {

// Accuracies are distances of phi from its minimum, over phi.
struct AccuracyRule {
    double finalAccuracy = 1.0e-6;  // at the target, and everywhere when there is none
    double target = 0;              // of phi_d; 0 for none
    double tolerance = 0.01;        // of the root of phi_d
};

double accuracyAt(const AccuracyRule& rule, double misfit);

}  // namespace voxlith
