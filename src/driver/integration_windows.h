// Line times and integration windows of measurements that average over a stretch of the survey line.
#pragma once

#include "base/messages.h"
#include "survey/line_average.h"
#include "survey/obs_set.h"

namespace voxlith {

// Sizes the line tables for nData records, before the observed data are read.
void allocateLineTables(ObsSet& obs);

// Fills lineTime, windowRange and windowWeight from the times of the stations. Times rise along a line. A station whose
// window would run off its line has none. Ends the run when the data file gave no lines.
void buildIntegrationWindows(Messages& messages, const ObsSet& obs, LineIntegration& lines);

}  // namespace voxlith
