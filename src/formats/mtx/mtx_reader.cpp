#include "formats/mtx/mtx_reader.h"

#include <cassert>
#include <cerrno>
#include <cstring>
#include <limits>

#include "base/messages.h"
#include "formats/mtx/mtx_record.h"
#include "formats/mtx/mtx_stream.h"

namespace voxlith {

namespace {

void markRowStart(MtxInput& file) {
    constexpr std::int64_t largestStart = std::numeric_limits<std::int32_t>::max();
    if (file.input.position > largestStart) {
        throwDamage(file.input, "the rows to begin within the first 2147483647 bytes", "their beginning here");
    }
    file.rowStart = file.input.position;
}

}  // namespace

void openMtxFile(MtxInput& file, const std::string& name, bool recordForm) {
    file.header = {};
    file.rowStart = 0;
    if (!openBinaryInput(file.input, name)) {
        throw RunError(name + ": the sensitivity file cannot be opened: " + std::strerror(errno));
    }
    if (recordForm) {
        file.header.form = MtxForm::record;
    } else {
        readStreamForm(file);
    }
}

void reopenMtxFile(MtxInput& file) {
    const std::string name = file.input.name;
    if (!openBinaryInput(file.input, name)) {
        throw RunError(name + ": the sensitivity file cannot be opened: " + std::strerror(errno));
    }
}

void readMtxDataType(MtxInput& file) {
    if (file.header.form == MtxForm::record) {
        file.header.dataType = recordDataType(file.input.name);
    } else {
        file.header.dataType = DataType{readInt32(file.input, "the data type")};
    }
}

void readMtxDataCount(MtxInput& file, const MtxHeader* first) {
    if (file.header.form == MtxForm::record) {
        assert(first == nullptr);
        readRecordDataCount(file);
    } else {
        readStreamDataCount(file, first);
    }
}

void readMtxMesh(MtxInput& file, const MtxHeader* first, std::span<double> x, std::span<double> y,
                 std::span<double> z) {
    if (file.header.form == MtxForm::record) {
        readRecordMesh(file);
    } else {
        readStreamMesh(file, first, x, y, z);
    }
    file.header.inversionStyle = styleOfLayers(file.header.padded.z, file.header.cells.z);
}

void readMtxNodes(MtxInput& file, MeshGeometry& mesh, std::span<float> depthWeight) {
    assert(static_cast<std::int64_t>(depthWeight.size()) == file.header.nCells());
    if (file.header.form == MtxForm::record) {
        readRecordNodes(file, mesh, depthWeight);
    } else {
        readStreamNodes(file, mesh, depthWeight);
    }
    markRowStart(file);
}

void readMtxTail(MtxInput& file, std::span<double> gtgdiag, std::span<double> layerResponse) {
    if (file.header.form != MtxForm::record) {
        readStreamTail(file, gtgdiag, layerResponse);
    }
}

void rewindMtxRows(MtxInput& file) {
    seekBinary(file.input, file.rowStart);
}

}  // namespace voxlith
