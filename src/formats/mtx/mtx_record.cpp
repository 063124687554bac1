#include "formats/mtx/mtx_record.h"

#include <algorithm>
#include <array>
#include <new>
#include <string>
#include <vector>

#include "base/allocation_failure.h"
#include "formats/mtx/mtx_checks.h"
#include "sensitivity/wavelet/wavelet.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

constexpr std::int32_t countsLength = 20;    // payload of the first record
constexpr std::int64_t meshCountsByte = 12;  // ny
constexpr std::int64_t nodesByte = 28;       // frame of the second record
constexpr std::int32_t mostTaps = 24;

// The length of the record at the present position, which is the one given; the record with both its frames is there.
void beginRecord(BinaryInput& input, std::int64_t length, std::string_view what) {
    const std::int64_t byte = input.position;
    const std::int32_t found = readInt32(input, what);
    if (found != length) {
        throwDamageAt(input, byte, std::string(what) + " of length " + std::to_string(length), std::to_string(found));
    }
    requireBytes(input, length + 4, what);
}

void endRecord(BinaryInput& input, std::int64_t length, std::string_view what) {
    const std::int64_t byte = input.position;
    const std::int32_t found = readInt32(input, what);
    if (found != length) {
        throwDamageAt(input, byte, std::string(what) + " to end with its length " + std::to_string(length),
                      std::to_string(found));
    }
}

void passRecord(BinaryInput& input, std::int64_t length, std::string_view what) {
    beginRecord(input, length, what);
    seekBinary(input, input.position + length);
    endRecord(input, length, what);
}

std::int64_t nodesLength(const MeshGeometry& mesh) {
    return 4 * (std::int64_t{mesh.ny} + mesh.nx + mesh.nz + 4);
}

std::int64_t topographyLength(const MeshGeometry& mesh) {
    return 4 * std::int64_t{mesh.ny} * mesh.nx;
}

std::int64_t depthWeightLength(const MtxHeader& header) {
    return 4 + 4 * std::int64_t{header.nCells};
}

void readRecordTaps(Sensitivity& sensitivity, double& tally, Messages& messages) {
    BinaryInput& input = sensitivity.files[0];
    constexpr std::string_view what = "the record of the taps";
    const std::int64_t byte = input.position;
    const std::int32_t length = readInt32(input, what);
    const std::int32_t nCoef = readInt32(input, "the number of taps");
    if (nCoef < 1 || nCoef > mostTaps) {
        throwDamageAt(input, byte + 4, "a number of taps from 1 to 24", std::to_string(nCoef));
    }
    if (length != 4 + 4 * nCoef) {
        throwDamageAt(input, byte, std::string(what) + " of length " + std::to_string(4 + 4 * nCoef),
                      std::to_string(length));
    }
    allocateTaps(sensitivity, nCoef, tally, messages);
    readFinite(input, sensitivity.filter.coefLow, "the low-pass taps");
    endRecord(input, length, what);
    const std::vector<float> mirrored = mirrorTaps(sensitivity.filter.coefLow);
    std::copy(mirrored.begin(), mirrored.end(), sensitivity.filter.coefHigh.begin());
}

void readNodeRecord(BinaryInput& input, MeshGeometry& mesh, Messages& messages) {
    constexpr std::string_view what = "the record of the nodes";
    std::vector<float> nodes;
    try {
        nodes.resize(mesh.yNode.size() + mesh.xNode.size() + mesh.zNode.size());
    } catch (const std::bad_alloc& error) {
        fatalStop(messages, withAllocatorText("Error: Not enough memory for the UBC mesh node arrays", error));
    }
    beginRecord(input, nodesLength(mesh), what);
    readFinite(input, nodes, "the nodes");
    readReal32(input, "the number behind the nodes");  // nothing has a use for it
    endRecord(input, nodesLength(mesh), what);
    auto next = nodes.cbegin();
    for (std::vector<double>* axis : {&mesh.yNode, &mesh.xNode, &mesh.zNode}) {
        const auto last = next + static_cast<std::ptrdiff_t>(axis->size());
        std::copy(next, last, axis->begin());
        next = last;
    }
}

void readTopography(BinaryInput& input, MeshGeometry& mesh, Messages& messages) {
    constexpr std::string_view what = "the record of the topography";
    try {
        mesh.ubcTopo.resize(static_cast<std::size_t>(mesh.nx) * static_cast<std::size_t>(mesh.ny));
    } catch (const std::bad_alloc& error) {
        fatalStop(messages, withAllocatorText("Error: Not enough memory for the UBC mesh topo array", error));
    }
    beginRecord(input, topographyLength(mesh), what);
    readBytes(input, mesh.ubcTopo.data(), 4 * mesh.ubcTopo.size(), what);
    endRecord(input, topographyLength(mesh), what);
}

// Length and count of a row's record, which belong together.
std::int32_t beginRow(BinaryInput& input) {
    const std::int64_t byte = input.position;
    std::array<std::int32_t, 2> lengthAndCount{};
    readBytes(input, lengthAndCount.data(), sizeof lengthAndCount, "length and count of a row");
    const auto [length, count] = lengthAndCount;
    if (count < 0) {
        throwDamageAt(input, byte + 4, "the count of a row, 0 or more", std::to_string(count));
    }
    const std::int64_t expected = 4 + std::int64_t{8} * count;
    if (length != expected) {
        throwDamageAt(
            input, byte,
            "the record of a row of " + std::to_string(count) + " coefficients with length " + std::to_string(expected),
            std::to_string(length));
    }
    requireBytes(input, expected, "the coefficients of a row");
    return count;
}

void endRow(BinaryInput& input, std::int32_t count) {
    endRecord(input, 4 + std::int64_t{8} * count, "the record of a row");
}

}  // namespace

bool isRecordForm(const std::string& name) {
    BinaryInput input;
    if (!openBinaryInput(input, name)) {
        return false;
    }
    std::array<std::int32_t, 7> start{};
    if (input.size < static_cast<std::int64_t>(sizeof start)) {
        return false;
    }
    readBytes(input, start.data(), sizeof start, "the first record");
    const auto [length, nData, nCells, ny, nx, nz, lengthAgain] = start;
    if (length != countsLength || lengthAgain != countsLength || nData < 1 || ny < 1 || nx < 1 || nz < 1) {
        return false;
    }
    const std::int64_t plane = std::int64_t{nx} * ny;
    return plane <= nCells && plane * nz == nCells;
}

DataType recordDataType(std::string_view name) {
    const bool magnetic = name.find("MAG") != std::string_view::npos || name.find("mag") != std::string_view::npos;
    return magnetic ? DataType::totalMagnetic : DataType::gz;
}

void readRecordHead(Sensitivity& sensitivity, Messages& messages) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[0];
    header.version = 0;
    header.tagged = false;
    header.dataType[0] = recordDataType(input.name);
    logLine(messages, " Data type 1: " + std::string(dataTypeName(header.dataType[0])));
    beginRecord(input, countsLength, "the record of the counts");
    const std::int64_t byte = input.position;
    header.nData = readInt32(input, "the number of data");
    requirePositive(input, byte, header.nData, "a number of data");
    // A row takes twelve bytes without any coefficient.
    requireBytes(input, 12 * std::int64_t{header.nData}, "rows of " + std::to_string(header.nData) + " data");
}

void readRecordMesh(Sensitivity& sensitivity, MeshGeometry& mesh, double& tally, Messages& messages) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[0];
    seekBinary(input, meshCountsByte - 4);
    const std::int32_t nCells = readInt32(input, "the number of cells");
    acceptMeshCounts(input, meshCountsByte, readAxisCounts(input, "ny, nx, nz"), header, mesh);
    if (nCells != header.nCells) {
        throwDamageAt(input, meshCountsByte - 4, "the number of cells " + std::to_string(header.nCells),
                      std::to_string(nCells));
    }
    endRecord(input, countsLength, "the record of the counts");
    passRecord(input, nodesLength(mesh), "the record of the nodes");
    passRecord(input, topographyLength(mesh), "the record of the topography");
    readRecordTaps(sensitivity, tally, messages);
    constexpr std::int64_t paddedLength = 12;
    beginRecord(input, paddedLength, "the record of the padded mesh");
    const std::int64_t byte = input.position;
    acceptPaddedCounts(input, byte, readAxisCounts(input, "npy, npx, npz"), header, mesh);
    endRecord(input, paddedLength, "the record of the padded mesh");
    passRecord(input, depthWeightLength(header), "the record of the depth weights");
    requireBytes(input, 12 * std::int64_t{header.nData}, "rows of " + std::to_string(header.nData) + " data");
}

void readRecordNodes(Sensitivity& sensitivity, MeshGeometry& mesh, Messages& messages) {
    const MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[0];
    seekBinary(input, nodesByte);
    readNodeRecord(input, mesh, messages);
    readTopography(input, mesh, messages);
    passRecord(input, 4 + 4 * std::int64_t{header.nCoef}, "the record of the taps");
    passRecord(input, 12, "the record of the padded mesh");
    constexpr std::string_view what = "the record of the depth weights";
    beginRecord(input, depthWeightLength(header), what);
    readInt32(input, "the number before the depth weights");  // nothing has a use for it
    readBytes(input, sensitivity.depthWeight.data(), 4 * static_cast<std::size_t>(header.nCells), what);
    endRecord(input, depthWeightLength(header), what);
}

std::int32_t scanRecordRow(BinaryInput& input) {
    const std::int32_t count = beginRow(input);
    seekBinary(input, input.position + std::int64_t{8} * count);
    endRow(input, count);
    return count;
}

std::int32_t readRecordRow(BinaryInput& input, std::int64_t nPadded, std::span<std::int32_t> coefIndex,
                           std::span<std::int32_t> coefValue) {
    const std::int64_t byte = input.position;
    const std::int32_t count = beginRow(input);
    const auto taken = static_cast<std::size_t>(count);
    if (taken > coefIndex.size()) {
        throwDamageAt(input, byte + 4, "a row of at most " + std::to_string(coefIndex.size()) + " coefficients",
                      std::to_string(count));
    }
    const std::int64_t firstByte = input.position;
    readBytes(input, coefIndex.data(), 4 * taken, "the indices of a row");
    requireCoefIndices(input, firstByte, coefIndex.first(taken), nPadded);
    readBytes(input, coefValue.data(), 4 * taken, "the values of a row");
    endRow(input, count);
    return count;
}

}  // namespace voxlith
