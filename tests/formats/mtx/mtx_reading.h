// Reads sensitivity files the way a run does: all stages in order, arrays sized between them.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/messages.h"
#include "formats/mtx/mtx_reader.h"
#include "survey/data_types.h"

namespace voxlith {

struct MtxReading {
    std::array<MtxInput, maxFiles> files;
    MeshGeometry mesh;
    std::vector<double> x, y, z;  // stations
    // By file
    std::vector<float> depthWeight;
    std::vector<double> gtgdiag, layerResponse;
    std::vector<std::int64_t> rowOffset;
    std::int32_t longestRow = 0;       // of the last file
    std::vector<std::int32_t> stored;  // of each row its indices, then its values

    explicit MtxReading(std::size_t fileCount = 1) : fileCount_(fileCount) {}

    const MtxHeader& header(std::size_t file = 0) const { return files[file].header; }

    void openAndReadHead(std::size_t file, const std::string& name, bool recordForm = false) {
        openMtxFile(files[file], name, recordForm);
        readMtxDataType(files[file]);
        readMtxDataCount(files[file], first(file));
        if (file == 0) {
            for (std::vector<double>* array : {&x, &y, &z}) {
                array->assign(nData(), -77.0);
            }
        }
        readMtxMesh(files[file], first(file), x, y, z);
        if (file == 0) {
            sizeArrays();
        }
        const std::size_t cells = mesh.cellCount();
        readMtxNodes(files[file], mesh, std::span(depthWeight).subspan(file * cells, cells));
    }

    void countRows(std::size_t file) {
        const std::size_t entries = nData() + 1;
        rowOffset[file * entries] = file == 0 ? 1 : rowOffset[file * entries - 1];
        longestRow = scanMtxRows(files[file], std::span(rowOffset).subspan(file * entries, entries));
    }

    void readTail(std::size_t file) {
        const std::size_t cells = mesh.cellCount();
        const auto values = static_cast<std::size_t>(files[file].header.layerValues());
        readMtxTail(files[file], std::span(gtgdiag).subspan(file * cells, cells),
                    std::span(layerResponse).subspan(file * values, values));
        rewindMtxRows(files[file]);
    }

    void readFile(std::size_t file, const std::string& name, bool recordForm = false) {
        openAndReadHead(file, name, recordForm);
        countRows(file);
        readTail(file);
    }

    void readFiles(const std::vector<std::string>& names) {
        const bool recordForm = names.size() == 1 && isMtxRecordForm(names[0]);
        for (std::size_t file = 0; file < names.size(); ++file) {
            readFile(file, names[file], recordForm);
        }
    }

    void load() {
        // Exactly as many as were counted, so that the address sanitizer sees any step beyond.
        std::vector<std::int32_t>(static_cast<std::size_t>(2 * (rowOffset.back() - 1))).swap(stored);
        for (std::size_t file = 0; file < fileCount_; ++file) {
            std::vector<RawRow> rows;
            for (std::size_t row = 0; row < nData(); ++row) {
                rows.push_back(rawRow(file, row));
            }
            rewindMtxRows(files[file]);
            readMtxRows(files[file], rows);
        }
    }

    RawRow rawRow(std::size_t file, std::size_t row) {
        const std::size_t entry = file * (nData() + 1) + row;
        const auto length = static_cast<std::size_t>(rowOffset[entry + 1] - rowOffset[entry]);
        const auto start = std::span(stored).subspan(static_cast<std::size_t>(2 * (rowOffset[entry] - 1)));
        return {start.first(length), start.subspan(length, length)};
    }

    std::vector<std::int32_t> rowIndices(std::size_t file, std::size_t row) {
        const RawRow raw = rawRow(file, row);
        return {raw.coefIndex.begin(), raw.coefIndex.end()};
    }

    std::vector<float> rowValues(std::size_t file, std::size_t row) {
        std::vector<float> values;
        for (const std::int32_t bits : rawRow(file, row).coefValue) {
            values.push_back(std::bit_cast<float>(bits));
        }
        return values;
    }

private:
    std::size_t nData() const { return static_cast<std::size_t>(files[0].header.nData); }

    const MtxHeader* first(std::size_t file) const { return file == 0 ? nullptr : &files[0].header; }

    void sizeArrays() {
        setMeshCounts(files[0].header, mesh);
        sizeMeshArrays(mesh);
        mesh.ubcTopo.assign(static_cast<std::size_t>(mesh.nx) * static_cast<std::size_t>(mesh.ny), 0);
        depthWeight.assign(mesh.cellCount() * fileCount_, 0.0F);
        gtgdiag.assign(mesh.cellCount() * fileCount_, 0.0);
        layerResponse.assign(static_cast<std::size_t>(files[0].header.layerValues()) * fileCount_, 0.0);
        rowOffset.assign((nData() + 1) * fileCount_, 0);
    }

    std::size_t fileCount_;
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
