#include "forward/mtx_file.h"

#include "base/messages.h"
#include "formats/mtx/mtx_reader.h"
#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

namespace {

void makeStationRoom(MtxFile& file) {
    const auto nData = static_cast<std::size_t>(file.sensitivity.header.nData);
    for (std::vector<double>* array : {&file.obs.ObsX, &file.obs.ObsY, &file.obs.ObsZ}) {
        array->resize(nData);
    }
    file.obs.nData = file.sensitivity.header.nData;
    file.sensitivity.store.rowOffset.resize(nData + 1);
}

void makeMeshRoom(MtxFile& file) {
    sizeMeshArrays(file.mesh);
    file.sensitivity.depthWeight.resize(file.mesh.cellCount());
    file.sensitivity.gtgdiag.resize(file.mesh.cellCount());
}

void loadRows(Sensitivity& sensitivity) {
    SparseCoefStore& store = sensitivity.store;
    store.totalCoef = store.rowOffset.back() - 1;
    reserveRows(store);
    loadMtxRows(sensitivity);
}

}  // namespace

void readMtxFile(const std::string& fileName, MtxRows rows, MtxFile& file) {
    Messages messages;  // without a log
    Sensitivity& sensitivity = file.sensitivity;
    sensitivity.header.recordForm = detectMtxForm(fileName);
    openMtxFile(sensitivity, 0, fileName, messages);
    makeStationRoom(file);
    double tally = 0;
    readMtxMesh(sensitivity, 0, file.mesh, file.obs, tally, messages);
    makeMeshRoom(file);
    readMtxNodes(sensitivity, 0, file.mesh, messages);
    buildMeshArrays(file.mesh);
    sensitivity.layerResponse.resize((static_cast<std::size_t>(file.mesh.nzl) + 1) *
                                     static_cast<std::size_t>(sensitivity.header.nData));
    scanMtxRows(sensitivity, 0);
    if (rows == MtxRows::loaded || !sensitivity.header.recordForm) {
        readMtxTail(sensitivity, 0, file.mesh);
    }
    if (rows == MtxRows::loaded) {
        loadRows(sensitivity);
    }
}

}  // namespace voxlith
