#include "formats/mtx/mtx_stream.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <string>

#include "formats/mtx/mtx_checks.h"

namespace voxlith {

namespace {

void readFieldAndStations(MtxInput& file, std::span<double> x, std::span<double> y, std::span<double> z) {
    BinaryInput& input = file.input;
    MtxField& field = file.header.field;
    field.geomag = readReal32(input, "geomag");
    field.incl = readReal32(input, "incl");
    field.decl = readReal32(input, "decl");
    field.idir = readInt32(input, "idir");
    field.aincl = readReal32(input, "aincl");
    field.adecl = readReal32(input, "adecl");
    const auto nData = static_cast<std::size_t>(file.header.nData);
    assert(x.size() == nData && y.size() == nData && z.size() == nData);
    for (std::size_t i = 0; i < nData; ++i) {
        std::array<std::byte, mtxStationBytes> station{};
        readBytes(input, station.data(), station.size(), "a station");
        std::memcpy(&x[i], station.data(), 8);
        std::memcpy(&y[i], station.data() + 8, 8);
        std::memcpy(&z[i], station.data() + 16, 8);
    }
}

void readMeshCounts(MtxInput& file, const MtxHeader* first) {
    const std::int64_t byte = file.input.position;
    file.header.cells = readAxisCounts(file.input, "ny, nx, nz");
    if (first == nullptr) {
        requireMeshCounts(file.input, byte, file.header.cells);
    } else if (file.header.cells != first->cells) {
        throw MtxMismatch{MtxQuantity::cells};
    }
}

void readPaddedCounts(MtxInput& file, const MtxHeader* first) {
    const std::int64_t byte = file.input.position;
    file.header.padded = readAxisCounts(file.input, "npy, npx, npz");
    if (first == nullptr) {
        requirePaddedCounts(file.input, byte, file.header.cells, file.header.padded);
    } else if (file.header.padded != first->padded) {
        throw MtxMismatch{MtxQuantity::paddedCells};
    }
}

void readFilter(MtxInput& file, const MtxHeader* first) {
    BinaryInput& input = file.input;
    const std::int64_t byte = input.position;
    const std::int32_t nCoef = readInt32(input, "the filter length");
    if (first == nullptr) {
        requirePositive(input, byte, nCoef, "a filter length");
        requireBytes(input, std::int64_t{8} * nCoef, "the wavelet filter");
    } else if (nCoef != static_cast<std::int32_t>(first->coefLow.size())) {
        throw MtxMismatch{MtxQuantity::filterLength};
    }
    file.header.coefLow.resize(static_cast<std::size_t>(nCoef));
    file.header.coefHigh.resize(static_cast<std::size_t>(nCoef));
    readFinite(input, file.header.coefLow, "the low-pass filter");
    readFinite(input, file.header.coefHigh, "the high-pass filter");
}

// Bytes of style and layer responses; 0 when the file has none.
std::int64_t layerBytes(const MtxHeader& header) {
    if (!header.holdsLayers()) {
        return 0;
    }
    // Two counts of 31 bits: the number of values fits 64 bits, their bytes need not.
    constexpr std::int64_t largest = std::int64_t{1} << 60;
    return 4 + 8 * std::min(header.layerValues(), largest / 8);
}

// Everything after the filter, with rows of no coefficients: the caller's arrays are sized by these counts.
void requireBody(const MtxInput& file) {
    const MtxHeader& header = file.header;
    const std::int64_t nodes = std::int64_t{header.cells.y} + header.cells.x + header.cells.z + 3;
    const std::int64_t bytes =
        8 * nodes + 8 + 4 * header.nCells() + 4 * std::int64_t{header.nData} + 8 * header.nCells() + layerBytes(header);
    requireBytes(file.input, bytes, "nodes, weights, rows and tail of the mesh");
}

}  // namespace

void readStreamForm(MtxInput& file) {
    BinaryInput& input = file.input;
    std::array<char, mtxMagic.size()> start{};
    readBytes(input, start.data(), start.size(), "the magic or the data type");
    if (std::string_view(start.data(), start.size()) == mtxMagic) {
        file.header.form = MtxForm::tagged;
        file.header.version = readInt32(input, "the version");
    } else {
        file.header.form = MtxForm::bare;
        seekBinary(input, 0);
    }
}

void readStreamDataCount(MtxInput& file, const MtxHeader* first) {
    MtxHeader& header = file.header;
    const std::int64_t byte = file.input.position;
    header.nData = readInt32(file.input, "the number of data");
    if (first != nullptr) {
        if (header.nData != first->nData) {
            throw MtxMismatch{MtxQuantity::data};
        }
        return;
    }
    requirePositive(file.input, byte, header.nData, "a number of data");
    const std::int64_t smallest = header.form == MtxForm::tagged ? mtxStationBytes + 4 : 4;
    requireBytes(file.input, smallest * header.nData, "stations and rows of " + std::to_string(header.nData) + " data");
}

void readStreamMesh(MtxInput& file, const MtxHeader* first, std::span<double> x, std::span<double> y,
                    std::span<double> z) {
    if (file.header.form == MtxForm::tagged) {
        readFieldAndStations(file, x, y, z);
    }
    readMeshCounts(file, first);
    readPaddedCounts(file, first);
    readFilter(file, first);
    requireBody(file);
}

void readStreamNodes(MtxInput& file, MeshGeometry& mesh, std::span<float> depthWeight) {
    BinaryInput& input = file.input;
    assert(static_cast<std::int32_t>(mesh.yNode.size()) == file.header.cells.y + 1);
    assert(static_cast<std::int32_t>(mesh.xNode.size()) == file.header.cells.x + 1);
    assert(static_cast<std::int32_t>(mesh.zNode.size()) == file.header.cells.z + 1);
    readFinite(input, mesh.yNode, "the y nodes");
    readFinite(input, mesh.xNode, "the x nodes");
    readFinite(input, mesh.zNode, "the z nodes");
    file.header.weightParamA = readReal32(input, "the first weight parameter");
    file.header.weightParamB = readReal32(input, "the second weight parameter");
    readBytes(input, depthWeight.data(), depthWeight.size_bytes(), "the depth weights");
}

void readStreamTail(MtxInput& file, std::span<double> gtgdiag, std::span<double> layerResponse) {
    MtxHeader& header = file.header;
    BinaryInput& input = file.input;
    assert(static_cast<std::int64_t>(gtgdiag.size()) == header.nCells());
    requireBytes(input, 8 * header.nCells() + layerBytes(header), "gtgdiag and what follows it");
    readBytes(input, gtgdiag.data(), gtgdiag.size_bytes(), "gtgdiag");
    if (header.holdsLayers()) {
        assert(static_cast<std::int64_t>(layerResponse.size()) == header.layerValues());
        header.inversionStyle = InversionStyle{readInt32(input, "the inversion style")};
        readBytes(input, layerResponse.data(), layerResponse.size_bytes(), "the layer responses");
    }
}

}  // namespace voxlith
