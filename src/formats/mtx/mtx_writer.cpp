#include "formats/mtx/mtx_writer.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <limits>
#include <string>

#include "base/messages.h"

namespace voxlith {

namespace {

static_assert(std::endian::native == std::endian::little, "values are written as they stand in memory");

constexpr std::int64_t longestInt32 = std::numeric_limits<std::int32_t>::max();

template <class Value>
void putValues(OutputFile& file, std::span<const Value> values) {
    appendOutput(file, {reinterpret_cast<const char*>(values.data()), values.size_bytes()});
}

template <class Value>
void putValue(OutputFile& file, Value value) {
    putValues(file, std::span<const Value>(&value, 1));
}

void putReal32(OutputFile& file, double value) {
    putValue(file, static_cast<float>(value));
}

std::int32_t asInt32(std::size_t value) {
    return static_cast<std::int32_t>(value);
}

std::int64_t nodesOf(const MtxHeader& header) {
    return std::int64_t{header.cells.y} + header.cells.x + header.cells.z + 3;
}

// The longest records that a record form may need: the depth weights, or a row with all positions.
std::int64_t longestRecord(const MtxHeader& header) {
    return std::max(4 + 4 * header.nCells(), 4 + 8 * header.nPadded());
}

// Bytes before the rows in a stream form.
std::int64_t headLength(const MtxHeader& header) {
    const std::int64_t bytes = 8 + 24 + 4 + 8 * static_cast<std::int64_t>(header.coefLow.size()) + 8 * nodesOf(header) +
                               8 + 4 * header.nCells();
    return header.form == MtxForm::tagged ? bytes + 32 + mtxStationBytes * header.nData : bytes;
}

void putCounts(OutputFile& file, AxisCounts counts) {
    putValue(file, counts.y);
    putValue(file, counts.x);
    putValue(file, counts.z);
}

void putFieldAndStations(OutputFile& file, const MtxHeader& header, const MtxHeadArrays& arrays) {
    putValue(file, header.field.geomag);
    putValue(file, header.field.incl);
    putValue(file, header.field.decl);
    putValue(file, header.field.idir);
    putValue(file, header.field.aincl);
    putValue(file, header.field.adecl);
    const auto nData = static_cast<std::size_t>(header.nData);
    assert(arrays.x.size() == nData && arrays.y.size() == nData && arrays.z.size() == nData);
    for (std::size_t i = 0; i < nData; ++i) {
        putValue(file, arrays.x[i]);
        putValue(file, arrays.y[i]);
        putValue(file, arrays.z[i]);
        putReal32(file, 0.0);
    }
}

void writeStreamHead(OutputFile& file, const MtxHeader& header, const MtxHeadArrays& arrays) {
    if (header.form == MtxForm::tagged) {
        appendOutput(file, mtxMagic);
        putValue(file, header.version);
    }
    putValue(file, codeOf(header.dataType));
    putValue(file, header.nData);
    if (header.form == MtxForm::tagged) {
        putFieldAndStations(file, header, arrays);
    }
    putCounts(file, header.cells);
    putCounts(file, header.padded);
    putValue(file, asInt32(header.coefLow.size()));
    putValues<float>(file, header.coefLow);
    putValues<float>(file, header.coefHigh);
    putValues<double>(file, arrays.mesh.yNode);
    putValues<double>(file, arrays.mesh.xNode);
    putValues<double>(file, arrays.mesh.zNode);
    putValue(file, header.weightParamA);
    putValue(file, header.weightParamB);
    putValues(file, arrays.depthWeight);
}

// A record: its length in bytes, what `putPayload` writes, the length again.
template <class PutPayload>
void putRecord(OutputFile& file, std::size_t bytes, const PutPayload& putPayload) {
    putValue(file, asInt32(bytes));
    putPayload();
    putValue(file, asInt32(bytes));
}

void putNodesReal32(OutputFile& file, std::span<const double> nodes) {
    for (const double node : nodes) {
        putReal32(file, node);
    }
}

void writeRecordHead(OutputFile& file, const MtxHeader& header, const MtxHeadArrays& arrays) {
    const MeshGeometry& mesh = arrays.mesh;
    putRecord(file, 20, [&] {
        putValue(file, header.nData);
        putValue(file, static_cast<std::int32_t>(header.nCells()));
        putCounts(file, header.cells);
    });
    putRecord(file, 4 * (mesh.xNode.size() + mesh.yNode.size() + mesh.zNode.size() + 1), [&] {
        putNodesReal32(file, mesh.yNode);
        putNodesReal32(file, mesh.xNode);
        putNodesReal32(file, mesh.zNode);
        putReal32(file, 0.0);
    });
    assert(static_cast<std::int64_t>(arrays.topography.size()) == std::int64_t{header.cells.y} * header.cells.x);
    putRecord(file, arrays.topography.size_bytes(), [&] { putValues(file, arrays.topography); });
    putRecord(file, 4 + 4 * header.coefLow.size(), [&] {
        putValue(file, asInt32(header.coefLow.size()));
        putValues<float>(file, header.coefLow);
    });
    putRecord(file, 12, [&] { putCounts(file, header.padded); });
    putRecord(file, 4 + arrays.depthWeight.size_bytes(), [&] {
        putValue(file, asInt32(arrays.depthWeight.size()));
        putValues(file, arrays.depthWeight);
    });
}

}  // namespace

void checkMtxLimits(const MtxHeader& header) {
    if (8 * header.nPadded() > longestInt32) {
        throw RunError("the padded mesh has " + std::to_string(header.nPadded()) + " cells; at most " +
                       std::to_string(longestInt32 / 8) + " can be stored");
    }
    if (header.form != MtxForm::record) {
        if (headLength(header) > longestInt32) {
            throw RunError("mesh and stations take " + std::to_string(headLength(header)) +
                           " bytes of the file before the rows; at most " + std::to_string(longestInt32) +
                           " can be stored");
        }
        return;
    }
    if (static_cast<std::int32_t>(header.coefLow.size()) > longestRecordFilter) {
        throw RunError("the record form holds a filter length of at most " + std::to_string(longestRecordFilter));
    }
    if (longestRecord(header) > longestInt32) {
        throw RunError("the record form holds records of at most " + std::to_string(longestInt32) + " bytes; " +
                       std::to_string(longestRecord(header)) + " may be needed");
    }
}

void writeMtxHead(OutputFile& file, const MtxHeader& header, const MtxHeadArrays& arrays) {
    assert(static_cast<std::int64_t>(arrays.depthWeight.size()) == header.nCells());
    assert(header.form == MtxForm::record || header.coefHigh.size() == header.coefLow.size());
    if (header.form == MtxForm::record) {
        writeRecordHead(file, header, arrays);
    } else {
        writeStreamHead(file, header, arrays);
    }
}

void writeMtxRow(OutputFile& file, MtxForm form, std::span<const std::int32_t> coefIndex,
                 std::span<const float> coefValue) {
    assert(coefIndex.size() == coefValue.size());
    const auto putRow = [&] {
        putValue(file, asInt32(coefIndex.size()));
        putValues(file, coefIndex);
        putValues(file, coefValue);
    };
    if (form == MtxForm::record) {
        putRecord(file, 4 + 8 * coefIndex.size(), putRow);
    } else {
        putRow();
    }
}

void writeMtxTail(OutputFile& file, const MtxHeader& header, std::span<const double> gtgdiag,
                  std::span<const double> layerResponse) {
    if (header.form == MtxForm::record) {
        return;
    }
    assert(static_cast<std::int64_t>(gtgdiag.size()) == header.nCells());
    putValues(file, gtgdiag);
    if (header.holdsLayers()) {
        assert(static_cast<std::int64_t>(layerResponse.size()) == header.layerValues());
        putValue(file, codeOf(header.inversionStyle));
        putValues(file, layerResponse);
    }
}

}  // namespace voxlith
