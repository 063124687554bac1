// The tables of survey lines, built record by record as the data are read.
#pragma once

#include <cstddef>
#include <string_view>

#include "survey/obs_set.h"

namespace voxlith {

// The first 16 characters of `text`, padded with spaces.
LineName lineNameFrom(std::string_view text);

// Enters a record (from 0, in order) under its line name. A name other than that of the previous record starts a new
// line, even when an earlier line has it. The tables have their sizes.
void enterLineRecord(ObsSet& obs, std::size_t record, const LineName& name);

}  // namespace voxlith
