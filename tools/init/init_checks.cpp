#include "init/init_checks.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/messages.h"
#include "forward/number_text.h"
#include "forward/survey_mesh.h"

namespace voxlith {

namespace {

std::string countsText(const MeshGeometry& mesh) {
    return std::to_string(mesh.nx) + " x " + std::to_string(mesh.ny) + " x " + std::to_string(mesh.nz);
}

double smallestCell(const MeshGeometry& mesh) {
    double smallest = std::numeric_limits<double>::max();
    for (const auto* widths : {&mesh.xWidth, &mesh.yWidth, &mesh.zWidth}) {
        for (const double width : *widths) {
            smallest = std::min(smallest, std::abs(width));
        }
    }
    return smallest;
}

// What the error says in front of the number of a value, and behind it.
struct ColumnWords {
    std::string before, behind;
};

// Throws RunError for the first value that is further than `slack` from that of the sensitivity file.
void requireSame(const std::vector<double>& found, const std::vector<double>& expected, double slack,
                 const std::string& mtxName, const ColumnWords& words) {
    for (std::size_t n = 0; n < found.size(); ++n) {
        if (std::abs(found[n] - expected[n]) > slack) {
            std::string text = words.before + std::to_string(n + 1) + words.behind;
            text.append(numberText(expected[n])).append(" as in ").append(mtxName);
            throw RunError(text.append(", found ").append(numberText(found[n])));
        }
    }
}

}  // namespace

void checkFilesAgree(const std::vector<std::unique_ptr<MtxFile>>& files, const std::vector<std::string>& names) {
    const MtxFile& first = *files.front();
    for (std::size_t n = 1; n < files.size(); ++n) {
        const MtxFile& file = *files[n];
        if (file.sensitivity.header.nData != first.sensitivity.header.nData) {
            throw RunError(names[n] + ": expected " + std::to_string(first.sensitivity.header.nData) + " data as in " +
                           names[0] + ", found " + std::to_string(file.sensitivity.header.nData));
        }
        if (countsText(file.mesh) != countsText(first.mesh)) {
            throw RunError(names[n] + ": expected " + countsText(first.mesh) + " cells as in " + names[0] + ", found " +
                           countsText(file.mesh));
        }
        if (file.sensitivity.files[0].header.form == MtxForm::record ||
            first.sensitivity.files[0].header.form == MtxForm::record) {
            throw RunError(names[n] + ": a file in record form can be used only by itself");
        }
    }
}

bool depthWeightsDiffer(const std::vector<std::unique_ptr<MtxFile>>& files) {
    if (files.size() < 2) {
        return false;
    }
    const auto differ = [](float a, float b) { return std::abs(a - b) > 0.01F; };
    const SensitivityHeader& first = files[0]->sensitivity.header;
    const SensitivityHeader& second = files[1]->sensitivity.header;
    return differ(first.weightParamA[0], second.weightParamA[0]) ||
           differ(first.weightParamB[0], second.weightParamB[0]);
}

void checkMeshAgrees(const MtxFile& file, const std::string& mtxName, const std::string& meshName) {
    const MeshGeometry mesh = readSurveyMesh(meshName);
    if (countsText(mesh) != countsText(file.mesh)) {
        throw RunError(meshName + ": expected " + countsText(file.mesh) + " cells as in " + mtxName + ", found " +
                       countsText(mesh));
    }
    const double slack = 0.01 * smallestCell(mesh);
    requireSame(mesh.xNode, file.mesh.xNode, slack, mtxName, {meshName + ": expected node ", " of x at "});
    requireSame(mesh.yNode, file.mesh.yNode, slack, mtxName, {meshName + ": expected node ", " of y at "});
    requireSame(mesh.zNode, file.mesh.zNode, slack, mtxName, {meshName + ": expected node ", " of z at "});
}

void checkDataAgree(const MtxFile& file, const std::string& mtxName, SurveyTable& data, const std::string& dataName) {
    const auto wanted = static_cast<std::size_t>(file.sensitivity.header.nData);
    if (data.records() < wanted) {
        throw RunError(dataName + ": expected " + std::to_string(wanted) + " records as in " + mtxName + ", found " +
                       std::to_string(data.records()));
    }
    for (auto* array : {&data.x, &data.y, &data.elevation}) {
        array->resize(wanted);
    }
    data.data.resize(wanted * data.components);
    if (!data.deviation.empty()) {
        data.deviation.resize(wanted * data.components);
    }
    if (file.sensitivity.files[0].header.form != MtxForm::tagged) {
        return;  // these files do not hold their stations
    }
    const double slack = 0.1 * smallestCell(file.mesh);
    const std::string record = dataName + ", record ";
    requireSame(data.x, file.obs.ObsX, slack, mtxName, {record, ": expected x "});
    requireSame(data.y, file.obs.ObsY, slack, mtxName, {record, ": expected y "});
    requireSame(data.elevation, file.obs.ObsZ, slack, mtxName, {record, ": expected elevation "});
}

}  // namespace voxlith
