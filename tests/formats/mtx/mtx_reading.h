// Reads sensitivity files the way a run does: all stages in order, arrays made between them.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/mtx/mtx_reader.h"

namespace voxlith {

struct MtxReading {
    Sensitivity sensitivity;
    MeshGeometry mesh;
    ObsSet obs;
    Messages messages;
    double tally = 0;

    explicit MtxReading(std::int32_t nMtx = 1) { sensitivity.nMtx = nMtx; }

    void openAndReadHeader(std::size_t file, const std::string& name) {
        openMtxFile(sensitivity, file, name, messages);
        if (file == 0) {
            makeObsArrays();
        }
        readMtxMesh(sensitivity, file, mesh, obs, tally, messages);
        if (file == 0) {
            makeMeshArrays();
        }
        readMtxNodes(sensitivity, file, mesh, messages);
        if (file == 0) {
            makeModelArrays();
        }
    }

    void readFile(std::size_t file, const std::string& name) {
        openAndReadHeader(file, name);
        scanMtxRows(sensitivity, file);
        readMtxTail(sensitivity, file, mesh);
    }

    void readFiles(const std::vector<std::string>& names) {
        sensitivity.header.recordForm = names.size() == 1 && detectMtxForm(names[0]);
        for (std::size_t file = 0; file < names.size(); ++file) {
            readFile(file, names[file]);
        }
    }

    void load() {
        SparseCoefStore& store = sensitivity.store;
        store.totalCoef = store.rowOffset.back() - 1;
        // Exactly as many as the scan found, so that the address sanitizer sees any step beyond.
        reserveStore(store, store.totalCoef, 0);
        loadMtxRows(sensitivity);
    }

    std::vector<std::int32_t> rowIndices(std::size_t file, std::size_t row) {
        const RawRow raw = rawRowOf(sensitivity.store, entryOf(file, row));
        return {raw.coefIndex.begin(), raw.coefIndex.end()};
    }

    std::vector<float> rowValues(std::size_t file, std::size_t row) {
        std::vector<float> values;
        for (const std::int32_t bits : rawRowOf(sensitivity.store, entryOf(file, row)).coefValue) {
            values.push_back(std::bit_cast<float>(bits));
        }
        return values;
    }

private:
    std::size_t entryOf(std::size_t file, std::size_t row) const {
        return file * (static_cast<std::size_t>(sensitivity.header.nData) + 1) + row;
    }

    void makeObsArrays() {
        const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
        obs.nData = sensitivity.header.nData;
        obs.ObsX.assign(nData, -77.0);
        obs.ObsY.assign(nData, -77.0);
        obs.ObsZ.assign(nData, -77.0);
    }

    void makeMeshArrays() {
        const auto makeAxis = [](std::int32_t cells, auto& node, auto& width, auto& centre) {
            node.assign(static_cast<std::size_t>(cells) + 1, 0.0);
            width.assign(static_cast<std::size_t>(cells), 0.0);
            centre.assign(static_cast<std::size_t>(cells), 0.0);
        };
        makeAxis(mesh.nx, mesh.xNode, mesh.xWidth, mesh.xCentre);
        makeAxis(mesh.ny, mesh.yNode, mesh.yWidth, mesh.yCentre);
        makeAxis(mesh.nz, mesh.zNode, mesh.zWidth, mesh.zCentre);
        sensitivity.depthWeight.assign(mesh.cellCount() * nFiles(), 0.0F);
    }

    void makeModelArrays() {
        const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
        sensitivity.gtgdiag.assign(mesh.cellCount() * nFiles(), 0.0);
        sensitivity.layerResponse.assign((static_cast<std::size_t>(mesh.nzl) + 1) * nData * nFiles(), 0.0);
        sensitivity.store.rowOffset.assign((nData + 1) * nFiles(), 0);
    }

    std::size_t nFiles() const { return static_cast<std::size_t>(sensitivity.nMtx); }
};

// The message of the RunError that `action` must end with; empty when it ends without one.
template <typename Action>
std::string runErrorOf(Action action) {
    try {
        action();
    } catch (const RunError& error) {
        return error.what();
    }
    return {};
}

}  // namespace voxlith
