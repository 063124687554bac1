#include "formats/mtx/mtx_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "formats/mtx/mtx_checks.h"
#include "formats/mtx/mtx_record.h"
#include "formats/mtx/mtx_stream.h"
#include "sensitivity/gtg_diagonal.h"

namespace voxlith {

namespace {

// The entries of rowOffset of one file: nData + 1.
std::span<std::int64_t> offsetsOf(Sensitivity& sensitivity, std::size_t file) {
    const auto entries = static_cast<std::size_t>(sensitivity.header.nData) + 1;
    return std::span(sensitivity.store.rowOffset).subspan(file * entries, entries);
}

// Fewer padded layers than mesh layers: a surface style, which the tail of newer files may overrule.
void chooseStyle(MtxHeader& header, MeshGeometry& mesh) {
    mesh.nzl = std::min(mesh.npz, mesh.nz);
    header.inversionStyle = styleOfLayers(mesh.npz, mesh.nz);
}

void loadRecordRow(BinaryInput& input, const MtxHeader& header, const RawRow& row) {
    const std::int64_t byte = input.position;
    const std::int64_t count = readRecordRow(input, header.nPadded, row.coefIndex, row.coefValue);
    if (count != static_cast<std::int64_t>(row.coefIndex.size())) {
        throwDamageAt(input, byte, "a row of " + std::to_string(row.coefIndex.size()) + " coefficients",
                      "another count than when the rows were counted");
    }
}

void loadFile(Sensitivity& sensitivity, std::size_t file) {
    const MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[file];
    const std::span<const std::int64_t> offsets = offsetsOf(sensitivity, file);
    if (offsets.back() - 1 > sensitivity.store.capacity) {
        throw std::logic_error("the store of the coefficients is smaller than the rows scanned");
    }
    seekBinary(input, header.rowStart[file]);
    const std::size_t entry = file * offsets.size();
    const std::size_t rows = offsets.size() - 1;
    if (header.recordForm) {
        for (std::size_t r = 0; r < rows; ++r) {
            loadRecordRow(input, header, rawRowOf(sensitivity.store, entry + r));
        }
        return;
    }
    for (std::size_t r = 0; r < rows;) {
        const std::size_t taken = loadSparseRows(input, header, sensitivity.store, entry + r, entry + rows);
        if (taken == 0) {
            const auto [coefIndex, coefValue] = rawRowOf(sensitivity.store, entry + r);
            loadStreamRow(input, header, coefIndex, coefValue);
        }
        r += std::max<std::size_t>(taken, 1);
    }
}

}  // namespace

bool detectMtxForm(const std::string& name) {
    return isRecordForm(name);
}

void openMtxFile(Sensitivity& sensitivity, std::size_t file, const std::string& name, Messages& messages) {
    if (!openBinaryInput(sensitivity.files[file], name)) {
        throw RunError(name + ": the sensitivity file cannot be opened: " + std::strerror(errno));
    }
    if (sensitivity.header.recordForm) {
        readRecordHead(sensitivity, messages);
    } else {
        readStreamHead(sensitivity, file, messages);
    }
}

void readMtxMesh(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh, ObsSet& obs, double& tally,
                 Messages& messages) {
    if (sensitivity.header.recordForm) {
        readRecordMesh(sensitivity, mesh, tally, messages);
    } else {
        readStreamMesh(sensitivity, file, mesh, obs, tally, messages);
    }
}

void readMtxNodes(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh, Messages& messages) {
    if (sensitivity.header.recordForm) {
        readRecordNodes(sensitivity, mesh, messages);
    } else {
        readStreamNodes(sensitivity, file, mesh);
    }
    buildMeshArrays(mesh);
    markRowStart(sensitivity.files[file], sensitivity.header, file);
    if (file == 0) {
        chooseStyle(sensitivity.header, mesh);
        sensitivity.foldDepthWeight = true;
    }
}

void scanMtxRows(Sensitivity& sensitivity, std::size_t file) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[file];
    const std::span<std::int64_t> offsets = offsetsOf(sensitivity, file);
    offsets[0] = file == 0 ? 1 : offsetsOf(sensitivity, file - 1).back();
    std::int32_t& rowMax = sensitivity.store.rowMax;
    rowMax = 0;
    // Only counts are read: 4 bytes a row, or the frames with them, 12 bytes from the end of one record into the next.
    setReadAhead(input, header.recordForm ? 12 : 4);
    for (std::size_t r = 0; r + 1 < offsets.size(); ++r) {
        const std::int32_t count = header.recordForm ? scanRecordRow(input) : scanStreamRow(input, header);
        if (count < 0) {
            rowMax = static_cast<std::int32_t>(header.nPadTotal);
            offsets[r + 1] = offsets[r] + header.nPadTotal;
        } else {
            rowMax = std::max(rowMax, count);
            offsets[r + 1] = offsets[r] + count;
        }
    }
    header.coefficientCount[file] = offsets.back() - offsets.front();
    setReadAhead(input, largeReadAhead);
}

void readMtxTail(Sensitivity& sensitivity, std::size_t file, const MeshGeometry& mesh) {
    MtxHeader& header = sensitivity.header;
    if (header.recordForm) {
        computeGtgDiag(sensitivity, file, mesh);
        header.nPadTotal = header.nPadded;
    } else {
        readStreamTail(sensitivity, file, mesh);
    }
    seekBinary(sensitivity.files[file], header.rowStart[file]);
}

void loadMtxRows(Sensitivity& sensitivity) {
    for (std::size_t file = 0; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
        loadFile(sensitivity, file);
        closeBinaryInput(sensitivity.files[file]);
    }
}

}  // namespace voxlith
