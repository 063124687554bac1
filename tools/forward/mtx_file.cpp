#include "forward/mtx_file.h"

#include "formats/mtx/mtx_reader.h"
#include "sensitivity/gtg_diagonal.h"
#include "sensitivity/row_loading.h"

namespace voxlith {

namespace {

void readStationsAndFilter(MtxFile& file) {
    Sensitivity& sensitivity = file.sensitivity;
    MtxInput& input = sensitivity.files[0];
    const auto nData = static_cast<std::size_t>(input.header.nData);
    ObsSet& obs = file.obs;
    for (std::vector<double>* array : {&obs.ObsX, &obs.ObsY, &obs.ObsZ}) {
        array->resize(nData);
    }
    obs.nData = input.header.nData;
    readMtxMesh(input, nullptr, obs.ObsX, obs.ObsY, obs.ObsZ);
    const MtxField& field = input.header.field;
    obs.geomag = field.geomag;
    obs.incl = field.incl;
    obs.decl = field.decl;
    obs.idir = field.idir;
    obs.aincl = field.aincl;
    obs.adecl = field.adecl;
    sensitivity.filter = {input.header.coefLow, input.header.coefHigh};
    if (input.header.form == MtxForm::record) {
        sensitivity.filter.coefHigh = mirrorTaps(input.header.coefLow);
    }
}

void sizeArrays(MtxFile& file) {
    Sensitivity& sensitivity = file.sensitivity;
    const MtxHeader& header = sensitivity.files[0].header;
    setMeshCounts(header, file.mesh);
    sizeMeshArrays(file.mesh);
    const std::size_t cells = file.mesh.cellCount();
    if (header.form == MtxForm::record) {
        file.mesh.ubcTopo.resize(static_cast<std::size_t>(file.mesh.nx) * static_cast<std::size_t>(file.mesh.ny));
    }
    sensitivity.depthWeight.resize(cells);
    sensitivity.gtgdiag.resize(cells);
    sensitivity.layerResponse.resize(static_cast<std::size_t>(header.layerValues()));
    sensitivity.store.rowOffset.resize(static_cast<std::size_t>(header.nData) + 1);
}

// The head as the record of a run has it.
void setHeader(const MtxHeader& mtxHeader, SensitivityHeader& header) {
    header.nData = mtxHeader.nData;
    header.nCells = static_cast<std::int32_t>(mtxHeader.nCells());
    header.nPadded = mtxHeader.nPadded();
    header.nPadTotal = mtxHeader.form == MtxForm::record ? mtxHeader.nPadded() : mtxHeader.nPadTotal();
    header.version = mtxHeader.version;
    header.dataType[0] = mtxHeader.dataType;
}

void loadAllRows(Sensitivity& sensitivity) {
    SparseCoefStore& store = sensitivity.store;
    store.totalCoef = store.rowOffset.back() - 1;
    reserveRows(store);
    loadRows(sensitivity);
}

}  // namespace

void readMtxFile(const std::string& fileName, MtxRows rows, MtxFile& file) {
    Sensitivity& sensitivity = file.sensitivity;
    MtxInput& input = sensitivity.files[0];
    openMtxFile(input, fileName, isMtxRecordForm(fileName));
    readMtxDataType(input);
    readMtxDataCount(input, nullptr);
    readStationsAndFilter(file);
    sizeArrays(file);
    setHeader(input.header, sensitivity.header);
    readMtxNodes(input, file.mesh, sensitivity.depthWeight);
    sensitivity.header.weightParamA[0] = input.header.weightParamA;
    sensitivity.header.weightParamB[0] = input.header.weightParamB;
    buildMeshArrays(file.mesh);
    countRows(sensitivity, 0);
    readMtxTail(input, sensitivity.gtgdiag, sensitivity.layerResponse);
    sensitivity.header.inversionStyle = input.header.inversionStyle;
    if (rows == MtxRows::loaded) {
        if (input.header.form == MtxForm::record) {
            computeGtgDiag(sensitivity, 0, file.mesh);
        }
        loadAllRows(sensitivity);
    }
}

}  // namespace voxlith
