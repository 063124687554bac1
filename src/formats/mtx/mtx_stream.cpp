#include "formats/mtx/mtx_stream.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <string>
#include <string_view>

#include "base/fixed_field.h"
#include "formats/mtx/mtx_checks.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

constexpr std::string_view magic = "VX3D";
constexpr std::int64_t stationBytes = 28;

constexpr std::string_view rowCountText = "the count of a row";

[[noreturn]] void stopAtMismatch(Messages& messages, std::string_view logText, std::string_view screenText) {
    logLine(messages, logText);
    screenLine(screenText);
    closeLineFile(messages.log);
    plainStop();
}

void readForm(BinaryInput& input, MtxHeader& header, Messages& messages) {
    std::array<char, magic.size()> start{};
    readBytes(input, start.data(), start.size(), "the magic or the data type");
    header.tagged = std::string_view(start.data(), start.size()) == magic;
    if (!header.tagged) {
        seekBinary(input, 0);
        header.version = 0;
        logLine(messages, " MTX version: 0");
        return;
    }
    header.version = readInt32(input, "the version");
    std::array<char, 3> number{};
    putInteger(number.data(), header.version, 3);
    logLine(messages, " MTX version: " + std::string(number.data(), number.size()));
}

void readFieldAndStations(BinaryInput& input, ObsSet& obs, std::size_t nData) {
    obs.geomag = readReal32(input, "geomag");
    obs.incl = readReal32(input, "incl");
    obs.decl = readReal32(input, "decl");
    obs.idir = readInt32(input, "idir");
    obs.aincl = readReal32(input, "aincl");
    obs.adecl = readReal32(input, "adecl");
    for (std::size_t i = 0; i < nData; ++i) {
        std::array<std::byte, stationBytes> station{};
        readBytes(input, station.data(), station.size(), "a station");
        std::memcpy(&obs.ObsX[i], station.data(), 8);
        std::memcpy(&obs.ObsY[i], station.data() + 8, 8);
        std::memcpy(&obs.ObsZ[i], station.data() + 16, 8);
        // The four bytes left are a number for each station that nothing has a use for.
    }
}

void readMeshCounts(BinaryInput& input, std::size_t file, MtxHeader& header, MeshGeometry& mesh, Messages& messages) {
    const std::int64_t byte = input.position;
    const AxisCounts counts = readAxisCounts(input, "ny, nx, nz");
    if (file == 0) {
        acceptMeshCounts(input, byte, counts, header, mesh);
    } else if (counts != AxisCounts{mesh.ny, mesh.nx, mesh.nz}) {
        stopAtMismatch(messages, "Error: the number of mesh cells for the second mtx file is different to the first",
                       "Error: the number of mesh for the second mtx file is different to the first");
    }
}

void readPaddedCounts(BinaryInput& input, std::size_t file, MtxHeader& header, MeshGeometry& mesh, Messages& messages) {
    const std::int64_t byte = input.position;
    const AxisCounts counts = readAxisCounts(input, "npy, npx, npz");
    if (file == 0) {
        acceptPaddedCounts(input, byte, counts, header, mesh);
    } else if (counts != AxisCounts{mesh.npy, mesh.npx, mesh.npz}) {
        stopAtMismatch(messages,
                       "Error: the number of padded mesh cells for the second mtx file is different to the first",
                       "Error: the number of padded mesh for the second mtx file is different to the first");
    }
}

void readTaps(Sensitivity& sensitivity, std::size_t file, double& tally, Messages& messages) {
    BinaryInput& input = sensitivity.files[file];
    const std::int64_t byte = input.position;
    const std::int32_t nCoef = readInt32(input, "the number of taps");
    if (file == 0) {
        requirePositive(input, byte, nCoef, "a number of taps");
        requireBytes(input, std::int64_t{8} * nCoef, "the taps");
        allocateTaps(sensitivity, nCoef, tally, messages);
    } else if (nCoef != sensitivity.header.nCoef) {
        constexpr std::string_view text =
            "Error: the number of wavelet coefficients for the second mtx file is different to the first";
        stopAtMismatch(messages, text, text);
    }
    readFinite(input, sensitivity.filter.coefLow, "the low-pass taps");
    readFinite(input, sensitivity.filter.coefHigh, "the high-pass taps");
}

// Bytes of style and layer responses; 0 when the file has none.
std::int64_t layerBytes(const MtxHeader& header, std::int32_t nzl) {
    if (header.version <= 1) {
        return 0;
    }
    // Two counts of 31 bits: the number of values fits 64 bits, their bytes need not.
    const std::int64_t values = (std::int64_t{nzl} + 1) * header.nData;
    constexpr std::int64_t largest = std::int64_t{1} << 60;
    return 4 + 8 * std::min(values, largest / 8);
}

// Everything behind the taps, with rows of no coefficients: the arrays of the run are made to these counts.
void requireBody(const BinaryInput& input, const MtxHeader& header, const MeshGeometry& mesh) {
    const std::int64_t nodes = std::int64_t{mesh.ny} + mesh.nx + mesh.nz + 3;
    const std::int64_t cells = header.nCells;
    const std::int64_t bytes = 8 * nodes + 8 + 4 * cells + 4 * std::int64_t{header.nData} + 8 * cells;
    requireBytes(input, bytes + layerBytes(header, std::min(mesh.npz, mesh.nz)),
                 "nodes, weights, rows and tail of the mesh");
}

}  // namespace

void readStreamHead(Sensitivity& sensitivity, std::size_t file, Messages& messages) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[file];
    readForm(input, header, messages);
    header.dataType[file] = DataType{readInt32(input, "the data type")};
    logLine(messages,
            " Data type " + std::to_string(file + 1) + ": " + std::string(dataTypeName(header.dataType[file])));
    const std::int64_t byte = input.position;
    const std::int32_t nData = readInt32(input, "the number of data");
    if (file == 0) {
        requirePositive(input, byte, nData, "a number of data");
        const std::int64_t least = header.tagged ? stationBytes + 4 : 4;
        requireBytes(input, least * nData, "stations and rows of " + std::to_string(nData) + " data");
        header.nData = nData;
    } else if (nData != header.nData) {
        constexpr std::string_view text = "Error: the number of data for the second mtx file is different to the first";
        stopAtMismatch(messages, text, text);
    }
}

void readStreamMesh(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh, ObsSet& obs, double& tally,
                    Messages& messages) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[file];
    if (header.tagged) {
        readFieldAndStations(input, obs, static_cast<std::size_t>(header.nData));
    }
    readMeshCounts(input, file, header, mesh, messages);
    readPaddedCounts(input, file, header, mesh, messages);
    readTaps(sensitivity, file, tally, messages);
    requireBody(input, header, mesh);
}

void readStreamNodes(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[file];
    readFinite(input, mesh.yNode, "the y nodes");
    readFinite(input, mesh.xNode, "the x nodes");
    readFinite(input, mesh.zNode, "the z nodes");
    header.weightParamA[file] = readReal32(input, "the first weight parameter");
    header.weightParamB[file] = readReal32(input, "the second weight parameter");
    const auto cells = static_cast<std::size_t>(header.nCells);
    readBytes(input, sensitivity.depthWeight.data() + file * cells, 4 * cells, "the depth weights");
}

std::int32_t scanStreamRow(BinaryInput& input, const MtxHeader& header) {
    const std::int32_t count = readInt32(input, rowCountText);
    const std::int64_t bytes = count < 0 ? (4 * header.nPadTotal) : (std::int64_t{8} * count);
    requireBytes(input, bytes, "the coefficients of a row");
    seekBinary(input, input.position + bytes);
    return count;
}

void readStreamTail(Sensitivity& sensitivity, std::size_t file, const MeshGeometry& mesh) {
    MtxHeader& header = sensitivity.header;
    BinaryInput& input = sensitivity.files[file];
    const auto cells = static_cast<std::size_t>(header.nCells);
    requireBytes(input, 8 * std::int64_t{header.nCells} + layerBytes(header, mesh.nzl), "gtgdiag and what follows it");
    readBytes(input, sensitivity.gtgdiag.data() + file * cells, 8 * cells, "gtgdiag");
    if (header.version > 1) {
        header.inversionStyle = InversionStyle{readInt32(input, "the inversion style")};
        const std::size_t values = (static_cast<std::size_t>(mesh.nzl) + 1) * static_cast<std::size_t>(header.nData);
        readBytes(input, sensitivity.layerResponse.data() + file * values, 8 * values, "the layer responses");
    }
}

namespace {

void skip(BinaryInput& input, std::int64_t bytes, std::string_view what) {
    requireBytes(input, bytes, what);
    seekBinary(input, input.position + bytes);
}

void loadSparseRow(BinaryInput& input, const MtxHeader& header, std::int64_t count, std::span<std::int32_t> coefIndex,
                   std::span<std::int32_t> coefValue) {
    requireBytes(input, 8 * count, "the coefficients of a row");
    const std::size_t taken = std::min(static_cast<std::size_t>(count), coefIndex.size());
    const std::int64_t left = 4 * (count - static_cast<std::int64_t>(taken));
    const std::int64_t firstByte = input.position;
    readBytes(input, coefIndex.data(), 4 * taken, "the indices of a row");
    requireCoefIndices(input, firstByte, coefIndex.first(taken), header.nPadded);
    skip(input, left, "the indices of a row");
    readBytes(input, coefValue.data(), 4 * taken, "the values of a row");
    skip(input, left, "the values of a row");
    // Counts differ only where an empty row has put the reading out of step: places without a coefficient add nothing.
    std::fill(coefIndex.begin() + static_cast<std::ptrdiff_t>(taken), coefIndex.end(), 1);
    std::fill(coefValue.begin() + static_cast<std::ptrdiff_t>(taken), coefValue.end(), 0);
}

}  // namespace

std::size_t loadSparseRows(BinaryInput& input, const MtxHeader& header, SparseCoefStore& store, std::size_t entry,
                           std::size_t behind) {
    constexpr std::size_t rowsAtOnce = 256;
    constexpr std::size_t bytesAtOnce = std::size_t{1} << 20;  // still in the cache when the indices are looked at
    std::array<std::int32_t, rowsAtOnce> counts{};
    std::array<iovec, 3 * rowsAtOnce> parts{};
    std::size_t rows = 0;
    for (std::size_t bytes = 0; rows < rowsAtOnce && entry + rows < behind && bytes < bytesAtOnce; ++rows) {
        const RawRow row = rawRowOf(store, entry + rows);
        if (row.coefIndex.empty() || static_cast<std::int64_t>(row.coefIndex.size()) >= header.nPadTotal) {
            break;
        }
        parts[3 * rows] = {&counts[rows], sizeof counts[rows]};
        parts[3 * rows + 1] = {row.coefIndex.data(), row.coefIndex.size_bytes()};
        parts[3 * rows + 2] = {row.coefValue.data(), row.coefValue.size_bytes()};
        bytes += row.coefIndex.size_bytes() + row.coefValue.size_bytes();
    }
    const std::int64_t firstByte = input.position;
    if (rows == 0 || !readScattered(input, std::span(parts).first(3 * rows))) {
        return 0;
    }
    std::int64_t byte = firstByte;
    std::size_t taken = 0;
    for (; taken < rows; ++taken) {
        const RawRow row = rawRowOf(store, entry + taken);
        if (counts[taken] != static_cast<std::int32_t>(row.coefIndex.size())) {
            break;
        }
        requireCoefIndices(input, byte + 4, row.coefIndex, header.nPadded);
        byte += 4 + static_cast<std::int64_t>(row.coefIndex.size_bytes() + row.coefValue.size_bytes());
    }
    seekBinary(input, byte);
    return taken;
}

// A row of count 0 is empty for the scan but is read here like a dense one, as it always was: results from files that
// hold one stay what they were, and whoever writes such a row finds out.
void loadStreamRow(BinaryInput& input, const MtxHeader& header, std::span<std::int32_t> coefIndex,
                   std::span<std::int32_t> coefValue) {
    const std::int64_t byte = input.position;
    const std::int32_t count = readInt32(input, rowCountText);
    if (count > 0) {
        loadSparseRow(input, header, count, coefIndex, coefValue);
        return;
    }
    if (static_cast<std::int64_t>(coefIndex.size()) > header.nPadTotal) {
        throwDamageAt(input, byte, "the count " + std::to_string(coefIndex.size()) + " of a row",
                      std::to_string(count));
    }
    std::iota(coefIndex.begin(), coefIndex.end(), 1);
    requireBytes(input, 4 * header.nPadTotal, "the values of a dense row");
    readBytes(input, coefValue.data(), coefValue.size_bytes(), "the values of a dense row");
    skip(input, 4 * (header.nPadTotal - static_cast<std::int64_t>(coefValue.size())), "the values of a dense row");
}

}  // namespace voxlith
