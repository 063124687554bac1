// The tables of survey lines, built record by record as the data are read.
#pragma once

#include <cstddef>
#include <string_view>

#include "survey/obs_set.h"

namespace voxlith {

// The first 16 characters of `text`, blank padded.
LineName lineNameFrom(std::string_view text);

// Enters a record (from 0, in order) under its line name. A name other than that of the record before opens a new line,
// even when an earlier line bears it. The tables have their sizes already.
void enterLineRecord(ObsSet& obs, std::size_t record, const LineName& name);

}  // namespace voxlith
