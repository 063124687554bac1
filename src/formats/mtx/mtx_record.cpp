#include "formats/mtx/mtx_record.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <string>
#include <vector>

#include "formats/mtx/mtx_checks.h"

namespace voxlith {

namespace {

constexpr std::int32_t firstRecordLength = 20;  // payload of the first record
constexpr std::int64_t meshCountsByte = 12;     // ny
constexpr std::int64_t nodesByte = 28;          // frame of the second record
constexpr std::int64_t paddedLength = 12;
constexpr std::int64_t emptyRowBytes = 12;  // two frames and the count

constexpr std::string_view countsRecord = "the record of the counts";
constexpr std::string_view nodesRecord = "the record of the nodes";
constexpr std::string_view topographyRecord = "the record of the topography";
constexpr std::string_view filterRecord = "the record of the wavelet filter";
constexpr std::string_view paddedRecord = "the record of the padded mesh";
constexpr std::string_view weightsRecord = "the record of the depth weights";
constexpr std::string_view rowRecord = "the record of a row";

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

void skipRecord(BinaryInput& input, std::int64_t length, std::string_view what) {
    beginRecord(input, length, what);
    seekBinary(input, input.position + length);
    endRecord(input, length, what);
}

std::int64_t nodesLength(const MtxHeader& header) {
    return 4 * (std::int64_t{header.cells.y} + header.cells.x + header.cells.z + 4);
}

std::int64_t topographyLength(const MtxHeader& header) {
    return 4 * std::int64_t{header.cells.y} * header.cells.x;
}

std::int64_t filterLength(const MtxHeader& header) {
    return 4 + 4 * static_cast<std::int64_t>(header.coefLow.size());
}

std::int64_t weightsLength(const MtxHeader& header) {
    return 4 + 4 * header.nCells();
}

std::int64_t rowLength(std::int32_t count) {
    return 4 + std::int64_t{8} * count;
}

void requireRows(const BinaryInput& input, const MtxHeader& header) {
    requireBytes(input, emptyRowBytes * header.nData, "rows of " + std::to_string(header.nData) + " data");
}

void readFilter(MtxInput& file) {
    BinaryInput& input = file.input;
    const std::int64_t byte = input.position;
    const std::int32_t length = readInt32(input, filterRecord);
    const std::int32_t nCoef = readInt32(input, "the filter length");
    if (nCoef < 1 || nCoef > longestRecordFilter) {
        throwDamageAt(input, byte + 4, "a filter length from 1 to " + std::to_string(longestRecordFilter),
                      std::to_string(nCoef));
    }
    if (length != 4 + 4 * nCoef) {
        throwDamageAt(input, byte, std::string(filterRecord) + " of length " + std::to_string(4 + 4 * nCoef),
                      std::to_string(length));
    }
    file.header.coefLow.resize(static_cast<std::size_t>(nCoef));
    readFinite(input, file.header.coefLow, "the low-pass filter");
    endRecord(input, length, filterRecord);
}

void readNodes(MtxInput& file, MeshGeometry& mesh) {
    BinaryInput& input = file.input;
    std::vector<float> nodes(mesh.yNode.size() + mesh.xNode.size() + mesh.zNode.size());
    beginRecord(input, nodesLength(file.header), nodesRecord);
    readFinite(input, nodes, "the nodes");
    readReal32(input, "the number after the nodes");  // unused
    endRecord(input, nodesLength(file.header), nodesRecord);
    auto next = nodes.cbegin();
    for (std::vector<double>* axis : {&mesh.yNode, &mesh.xNode, &mesh.zNode}) {
        const auto end = next + static_cast<std::ptrdiff_t>(axis->size());
        std::copy(next, end, axis->begin());
        next = end;
    }
}

void readTopography(MtxInput& file, MeshGeometry& mesh) {
    BinaryInput& input = file.input;
    assert(static_cast<std::int64_t>(4 * mesh.ubcTopo.size()) == topographyLength(file.header));
    beginRecord(input, topographyLength(file.header), topographyRecord);
    readBytes(input, mesh.ubcTopo.data(), 4 * mesh.ubcTopo.size(), topographyRecord);
    endRecord(input, topographyLength(file.header), topographyRecord);
}

}  // namespace

bool isMtxRecordForm(const std::string& name) {
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
    if (length != firstRecordLength || lengthAgain != firstRecordLength || nData < 1 || ny < 1 || nx < 1 || nz < 1) {
        return false;
    }
    const std::int64_t plane = std::int64_t{nx} * ny;
    return plane <= nCells && plane * nz == nCells;
}

DataType recordDataType(std::string_view name) {
    const bool magnetic = name.find("MAG") != std::string_view::npos || name.find("mag") != std::string_view::npos;
    return magnetic ? DataType::totalMagnetic : DataType::gz;
}

void readRecordDataCount(MtxInput& file) {
    BinaryInput& input = file.input;
    beginRecord(input, firstRecordLength, countsRecord);
    const std::int64_t byte = input.position;
    file.header.nData = readInt32(input, "the number of data");
    requirePositive(input, byte, file.header.nData, "a number of data");
    requireRows(input, file.header);
}

void readRecordMesh(MtxInput& file) {
    MtxHeader& header = file.header;
    BinaryInput& input = file.input;
    seekBinary(input, meshCountsByte - 4);
    const std::int32_t nCells = readInt32(input, "the number of cells");
    header.cells = readAxisCounts(input, "ny, nx, nz");
    requireMeshCounts(input, meshCountsByte, header.cells);
    if (nCells != header.nCells()) {
        throwDamageAt(input, meshCountsByte - 4, "the number of cells " + std::to_string(header.nCells()),
                      std::to_string(nCells));
    }
    endRecord(input, firstRecordLength, countsRecord);
    skipRecord(input, nodesLength(header), nodesRecord);
    skipRecord(input, topographyLength(header), topographyRecord);
    readFilter(file);
    beginRecord(input, paddedLength, paddedRecord);
    const std::int64_t byte = input.position;
    header.padded = readAxisCounts(input, "npy, npx, npz");
    requirePaddedCounts(input, byte, header.cells, header.padded);
    endRecord(input, paddedLength, paddedRecord);
    skipRecord(input, weightsLength(header), weightsRecord);
    requireRows(input, header);
}

void readRecordNodes(MtxInput& file, MeshGeometry& mesh, std::span<float> depthWeight) {
    BinaryInput& input = file.input;
    seekBinary(input, nodesByte);
    readNodes(file, mesh);
    readTopography(file, mesh);
    skipRecord(input, filterLength(file.header), filterRecord);
    skipRecord(input, paddedLength, paddedRecord);
    beginRecord(input, weightsLength(file.header), weightsRecord);
    readInt32(input, "the number before the depth weights");  // unused
    readBytes(input, depthWeight.data(), depthWeight.size_bytes(), weightsRecord);
    endRecord(input, weightsLength(file.header), weightsRecord);
}

std::int32_t beginRecordRow(BinaryInput& input) {
    const std::int64_t byte = input.position;
    std::array<std::int32_t, 2> lengthAndCount{};
    readBytes(input, lengthAndCount.data(), sizeof lengthAndCount, "length and count of a row");
    const auto [length, count] = lengthAndCount;
    if (count < 0) {
        throwDamageAt(input, byte + 4, "the count of a row, 0 or more", std::to_string(count));
    }
    if (length != rowLength(count)) {
        throwDamageAt(input, byte,
                      std::string(rowRecord) + " of " + std::to_string(count) + " coefficients with length " +
                          std::to_string(rowLength(count)),
                      std::to_string(length));
    }
    requireBytes(input, rowLength(count), "the coefficients of a row");
    return count;
}

void endRecordRow(BinaryInput& input, std::int32_t count) {
    endRecord(input, rowLength(count), rowRecord);
}

}  // namespace voxlith
