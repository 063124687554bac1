#include "forward/mtx_content.h"

#include <cstddef>

#include "formats/mtx/mtx_writer.h"

namespace voxlith {

namespace {

MtxField fieldOf(const Survey& survey) {
    MtxField field;
    field.geomag = static_cast<float>(survey.field.strength);
    field.incl = static_cast<float>(survey.field.direction.incl);
    field.decl = static_cast<float>(survey.field.direction.decl);
    field.idir = survey.idir;
    field.aincl = static_cast<float>(survey.measured.incl);
    field.adecl = static_cast<float>(survey.measured.decl);
    return field;
}

// The inactive cells at the top of each column, y fastest.
std::vector<std::int32_t> topographyOf(const Survey& survey) {
    const std::size_t nx = survey.mesh.xCentre.size(), ny = survey.mesh.yCentre.size();
    std::vector<std::int32_t> topography(nx * ny, 0);
    for (std::size_t i = 0; i < nx && survey.ground.hasInactive(); ++i) {
        for (std::size_t j = 0; j < ny; ++j) {
            topography[j + ny * i] = survey.ground.inactiveCells[i + nx * j];
        }
    }
    return topography;
}

}  // namespace

MtxHeader headerOf(const MtxContent& content) {
    const MeshGeometry& mesh = content.survey.mesh;
    MtxHeader header;
    header.form = content.form;
    header.version = content.version;
    header.dataType = content.survey.type;
    header.nData = static_cast<std::int32_t>(content.survey.stations.size());
    header.field = fieldOf(content.survey);
    header.cells = {mesh.ny, mesh.nx, mesh.nz};
    header.padded = {mesh.npy, mesh.npx, mesh.npz};
    header.coefLow = content.filter.coefLow;
    header.coefHigh = content.filter.coefHigh;
    header.weightParamA = static_cast<float>(content.depthWeight.z0);
    header.weightParamB = static_cast<float>(content.depthWeight.beta);
    header.inversionStyle = content.inversionStyle;
    return header;
}

void writeHead(OutputFile& file, const MtxContent& content) {
    std::vector<double> x, y, z;
    for (const Station& station : content.survey.stations) {
        x.push_back(station.point.x);
        y.push_back(station.point.y);
        z.push_back(station.elevation);
    }
    const std::vector<std::int32_t> topography = topographyOf(content.survey);
    writeMtxHead(file, headerOf(content), {x, y, z, content.survey.mesh, content.cellWeights, topography});
}

}  // namespace voxlith
