// Whether observed data, a mesh and sensitivity files belong to one run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "forward/mtx_file.h"
#include "preparation/survey_table.h"

namespace voxlith {

// Throws RunError when counts or cells of the files differ from those of the first.
void checkFilesAgree(const std::vector<std::unique_ptr<MtxFile>>& files, const std::vector<std::string>& names);

// Whether the depth weights of the first two files differ by more than the program lets pass: it then leaves the weight
// out of the variable that it optimises, and a run comes to its end much later.
bool depthWeightsDiffer(const std::vector<std::unique_ptr<MtxFile>>& files);

// Throws RunError when the nodes of the mesh file are not those of the sensitivity file.
void checkMeshAgrees(const MtxFile& file, const std::string& mtxName, const std::string& meshName);

// Throws RunError when there are too few records, or when they stand elsewhere than the stations of the sensitivity
// file, or in another order. Records beyond those of the sensitivity file are dropped, as the program does.
void checkDataAgree(const MtxFile& file, const std::string& mtxName, SurveyTable& data, const std::string& dataName);

}  // namespace voxlith
