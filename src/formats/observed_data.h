// Observed data files and reference data files: reads them into the ObsSet, cleaned, and writes any data array of the
// ObsSet in the same form.
//
//   incl decl geomag        magnetic layouts only: field, degrees and nT
//   aincl adecl idir        magnetic layouts only: measured direction; idir below 1 with type 1: the downhole form
//   nData [nTypes codes]    records, and of several components their count and data types
//   x y z [incl decl] datum std [datum std ...] [line time]     one record per station; angles in the downhole form
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/messages.h"
#include "base/output_file.h"
#include "survey/obs_set.h"

namespace voxlith {

enum class ObsReadMode {
    header,    // the header alone
    observed,  // into obsData, obsStd and the line tables
    reference  // into refData; coordinates are overwritten, obsStd and hasStd are used as they were read
};

// Returns the count of the file's header. The arrays of `obs` have their sizes (nData times components); nData is not
// changed. Ends the run with its own texts through fatalStop; text in the header is a RunError.
std::int32_t readObsFile(Messages& messages, ObsReadMode mode, const std::string& fileName, ObsSet& obs,
                         const ObsCleaning& cleaning);

// `dataArray` is shaped like obs.obsData and normalised like it. The file is replaced. Throws RunError when it cannot
// be written. Allocates nothing.
void writeObsFile(std::string_view fileName, const ObsSet& obs, std::span<const double> dataArray);

// The same content into an open file.
void appendObs(OutputFile& file, const ObsSet& obs, std::span<const double> dataArray);

}  // namespace voxlith
