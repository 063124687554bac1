// Removal of the background: the data d are fitted by the line R b + c, with R the response of the surface layer per
// unit of its property and b the background value; the fitted part joins the reference data, which the model need not
// explain.
#pragma once

#include <cstddef>

#include "base/messages.h"
#include "inversion/inversion_problem.h"
#include "survey/obs_set.h"

namespace voxlith {

// The straight line through data and responses of one component.
struct BackgroundFit {
    double responseMean = 0;  // data unit per model unit
    double dataMean = 0;      // data unit
    double background = 0;    // b, model unit
};

// The response of the first layer slot of every file (integrated over line time when there is an integration interval)
// into obs.predData. Components without a file get dummies. Returns the number of components that have a response.
std::size_t surfaceResponse(const InversionProblem& problem);

// The least squares fit of component `component` over the stations where datum and response are valid. Not a number
// when there is no such station or all responses are uniform.
BackgroundFit fitBackground(const ObsSet& obs, std::size_t component);

// The whole removal. `iBackground` 2 takes `BackVal` in place of the fitted value. The mean of the data is removed with
// the fit. Changes obs.refData and obs.predData; writes "obs_surafce_calc.dat" and "obs_fit_pred.dat" and reports b.
void removeBackground(Messages& messages, const InversionProblem& problem);

}  // namespace voxlith
