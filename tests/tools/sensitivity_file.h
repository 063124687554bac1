// A sensitivity file as the inversion program holds it: read by its own reader, multiplied by its own products.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "files/mesh_geometry.h"
#include "files/obs_set.h"
#include "sensitivity/mtx_reader.h"
#include "sensitivity/overhead_timers.h"
#include "sensitivity/products.h"
#include "sensitivity/sensitivity.h"

namespace voxlith::testing_support {

struct SensitivityFile {
    explicit SensitivityFile(const std::string& name) {
        Messages messages;
        MtxHeader& header = sensitivity.header;
        header.recordForm = detectMtxForm(name);
        openMtxFile(sensitivity, 0, name, messages);
        const auto nData = static_cast<std::size_t>(header.nData);
        obs.nData = header.nData;
        for (auto* array : {&obs.ObsX, &obs.ObsY, &obs.ObsZ}) {
            array->resize(nData);
        }
        double tally = 0;
        readMtxMesh(sensitivity, 0, mesh, obs, tally, messages);
        makeMeshRoom();
        readMtxNodes(sensitivity, 0, mesh, messages);
        header.nPadTotal = std::int64_t{mesh.npx} * mesh.npy * std::max(mesh.npz, mesh.nz);
        sensitivity.layerResponse.resize((static_cast<std::size_t>(mesh.nzl) + 1) * nData);
        sensitivity.store.rowOffset.resize(nData + 1);
        const auto padded = static_cast<std::size_t>(header.nPadTotal);
        sensitivity.paddedWork.resize(padded);
        sensitivity.paddedWork2.resize(padded);
        sensitivity.waveletWork.resize(waveletWorkSize(paddedExtentsOf(mesh)));
        scanMtxRows(sensitivity, 0);
        readMtxTail(sensitivity, 0, mesh);
        loadRows();
    }

    // Rows times a model that holds the depth weight already.
    std::vector<double> product(std::span<const double> weightedModel) {
        std::vector<double> out(static_cast<std::size_t>(sensitivity.header.nData));
        const std::vector<float> deviations(out.size(), 1.0F);
        OverheadTimers timers;
        modelProduct(sensitivity, mesh, weightedModel, out, 0, deviations, timers);
        return out;
    }

    std::vector<double> weighted(std::span<const double> model) const {
        std::vector<double> result(model.begin(), model.end());
        for (std::size_t cell = 0; cell < result.size(); ++cell) {
            result[cell] *= static_cast<double>(sensitivity.depthWeight[cell]);
        }
        return result;
    }

    Sensitivity sensitivity;
    MeshGeometry mesh;
    ObsSet obs;

private:
    void makeMeshRoom() {
        const auto room = [](std::int32_t count, auto& nodes, auto& widths, auto& centres) {
            nodes.resize(static_cast<std::size_t>(count) + 1);
            widths.resize(static_cast<std::size_t>(count));
            centres.resize(static_cast<std::size_t>(count));
        };
        room(mesh.nx, mesh.xNode, mesh.xWidth, mesh.xCentre);
        room(mesh.ny, mesh.yNode, mesh.yWidth, mesh.yCentre);
        room(mesh.nz, mesh.zNode, mesh.zWidth, mesh.zCentre);
        sensitivity.depthWeight.resize(mesh.cellCount());
        sensitivity.gtgdiag.resize(mesh.cellCount());
    }

    void loadRows() {
        SparseCoefStore& store = sensitivity.store;
        store.totalCoef = sensitivity.header.coefficientCount[0];
        store.capacity = store.totalCoef;
        store.coefIndex = std::make_unique<std::int32_t[]>(static_cast<std::size_t>(store.capacity));
        store.coefValue = std::make_unique<float[]>(static_cast<std::size_t>(store.capacity));
        loadMtxRows(sensitivity);
    }
};

}  // namespace voxlith::testing_support
