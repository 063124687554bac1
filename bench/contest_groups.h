// The contests of each group; see contest.h.
#pragma once

#include <vector>

#include "contest.h"

namespace voxlith {

// Products of rows whose positions come from a real sensitivity file.
std::vector<Contest> realRowContests(const BenchOptions& options);
// The same with positions drawn at random: neighbouring rows have next to nothing in common.
std::vector<Contest> randomRowContests(const BenchOptions& options);
std::vector<Contest> transformContests();
std::vector<Contest> writerContests(const BenchOptions& options);
std::vector<Contest> readerContests(const BenchOptions& options);
std::vector<Contest> optimiserContests(const BenchOptions& options);

}  // namespace voxlith
