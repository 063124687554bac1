// The timers of the overhead lines at the end of a run, in seconds of wall clock. The inner ones run during the outer
// ones.
#pragma once

namespace voxlith {

struct OverheadTimers {
    double calcObjective = 0;  // calls made by the loop
    double calcGradient = 0;   // calls made by the loop, and the clock reading of the first evaluation
    double stepSearch = 0;
    double optimiser = 0;
    double conjugateGradient = 0;
    double output = 0;
    double objectiveInside = 0;  // all calls
    double forwardData = 0;      // "OH misfit:"
    double gradientInside = 0;
    double smoothness = 0;
    double products = 0;       // "OH mod prod:"
    double gtgProduct = 0;     // printed, always 0
    double matrixPass = 0;     // "OH matmul:"
    double transposePass = 0;  // "OH transp:"
};

// Seconds of wall clock since a fixed moment in the past (the start of 1970).
double clockSeconds();

}  // namespace voxlith
