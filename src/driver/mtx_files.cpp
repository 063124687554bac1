#include "driver/mtx_files.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/tokens.h"
#include "driver/memory_plan.h"
#include "formats/mtx/mtx_reader.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

void setPaddedTotal(MtxHeader& header, const MeshGeometry& mesh) {
    header.nPadTotal = std::int64_t{mesh.npx} * mesh.npy * std::max(mesh.npz, mesh.nz);
}

void readMtxFile(RunState& run, std::size_t file) {
    Sensitivity& sensitivity = run.sensitivity;
    openMtxFile(sensitivity, file, fileNameOf(run.control.mtxFileText[file]), run.messages);
    if (file == 0)
        allocateObsArrays(run);
    readMtxMesh(sensitivity, file, run.mesh, run.obs, run.memoryTally, run.messages);
    if (file == 0)
        allocateMeshArrays(run);
    readMtxNodes(sensitivity, file, run.mesh, run.messages);
    if (file == 0) {
        setPaddedTotal(sensitivity.header, run.mesh);
        allocateModelArrays(run);
    }
    scanMtxRows(sensitivity, file);
    readMtxTail(sensitivity, file, run.mesh);
}

void echoFieldValues(RunState& run) {
    const ObsSet& obs = run.obs;
    logLine(run.messages, "");
    TextLine field(" Field values : ");
    field.fixed(static_cast<double>(obs.geomag), 10, 1).fixed(static_cast<double>(obs.incl), 10, 2);
    logLine(run.messages, field.fixed(static_cast<double>(obs.decl), 10, 2));
    TextLine measured(" Measurement values : ");
    measured.integer(obs.idir, 2).fixed(static_cast<double>(obs.aincl), 10, 2);
    logLine(run.messages, measured.fixed(static_cast<double>(obs.adecl), 10, 2));
}

// The type of the file that the first term of a component names; gravity where it names none.
DataType firstTermType(const RunState& run, std::size_t component) {
    const auto& terms = run.products.terms[component];
    if (terms.empty() || terms.front().mtx < 0)
        return DataType::gz;
    return run.sensitivity.header.dataType[static_cast<std::size_t>(terms.front().mtx)];
}

}  // namespace

void readMtxFiles(RunState& run) {
    const auto nMtx = static_cast<std::size_t>(run.control.nMtx);
    Sensitivity& sensitivity = run.sensitivity;
    sensitivity.nMtx = run.control.nMtx;
    sensitivity.header.coefficientCount.fill(0);
    sensitivity.header.recordForm = nMtx == 1 && detectMtxForm(fileNameOf(run.control.mtxFileText[0]));
    for (std::size_t file = 0; file < nMtx; ++file)
        readMtxFile(run, file);
    buildMeshArrays(run.mesh);
    allocateCoefStore(run);
    if (sensitivity.idisk == 0)
        loadMtxRows(sensitivity);
}

void setDataTypes(RunState& run) {
    ControlValues& control = run.control;
    std::copy_n(run.sensitivity.header.dataType.begin(), control.nDataTypes, run.obs.dataType.begin());
    const bool magnetic = isMagnetic(firstTermType(run, 0));
    if (control.tradeoffOverride > 0.0)
        control.inversion.multiplier = control.tradeoffOverride;
    else if (control.inversion.multiplier <= 0.0)
        control.inversion.multiplier = magnetic ? 1.0 : static_cast<double>(0.01F);
    if (control.inversion.positivity == Positivity::notGiven)
        control.inversion.positivity = magnetic ? Positivity::positive : Positivity::unconstrained;
    if (magnetic)
        echoFieldValues(run);
}

}  // namespace voxlith
