// The log for other programs: one JSON object per line and iteration.
//
//   {"iteration":1,"rms_misfit":8.2,"model_norm":0.4,"total_norm":8.2,"phi_d":67.2,"phi_r":0.01,"phi_x":0.05,"phi_y":0.05,
//    "phi_z":0.05,"phi_b":0,"tradeoff":0.01,"step":"optimiser","accepted_steps":0,"seconds":0.8}
//
// rms_misfit, model_norm and total_norm are the columns of the iteration table, the others the terms of
// inversion/objective.h. Numbers have all their digits; null stands for what is not finite.
#pragma once

#include <string>
#include <string_view>

#include "base/line_file.h"
#include "inversion/iteration_report.h"

namespace voxlith {

struct JsonLog {
    LineFile file;  // closed: nothing is written
};

// Replaces `name`, or appends to it where `continues` is set and it exists. Throws RunError.
void openJsonLog(JsonLog& log, const std::string& name, bool continues);

// `step` names the kind of step; "start" is the state before the first iteration.
void writeJsonRow(JsonLog& log, const IterationRow& row, double tradeoff, std::string_view step);

}  // namespace voxlith
