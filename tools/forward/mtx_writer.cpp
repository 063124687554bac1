#include "forward/mtx_writer.h"

#include <algorithm>
#include <bit>
#include <limits>

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

// Length of the rows' largest record, of the node record and of the others that grow with the mesh or the taps.
std::int64_t longestRecord(const MtxContent& content) {
    const MeshGeometry& mesh = content.survey.mesh;
    const auto cells = static_cast<std::int64_t>(mesh.cellCount());
    const auto padded = static_cast<std::int64_t>(paddedExtentsOf(mesh).total());
    return std::max(4 + 4 * cells, 4 + 8 * padded);
}

// Bytes in front of the rows in a stream form.
std::int64_t headLength(const MtxContent& content) {
    const MeshGeometry& mesh = content.survey.mesh;
    const auto count = [](std::size_t size) { return static_cast<std::int64_t>(size); };
    std::int64_t bytes = 8 + 24 + 4 + 8 * count(content.filter.coefLow.size());
    bytes += 8 * count(mesh.xNode.size() + mesh.yNode.size() + mesh.zNode.size());
    bytes += 8 + 4 * count(mesh.cellCount());
    return content.form == MtxForm::tagged ? bytes + 32 + 28 * count(content.survey.stations.size()) : bytes;
}

void putTaggedStart(OutputFile& file, const MtxContent& content) {
    appendOutput(file, "VX3D");
    putValue(file, content.version);
}

void putFieldAndStations(OutputFile& file, const MtxContent& content) {
    putReal32(file, content.survey.field.strength);
    putReal32(file, content.survey.field.direction.incl);
    putReal32(file, content.survey.field.direction.decl);
    putValue(file, content.survey.idir);
    putReal32(file, content.survey.measured.incl);
    putReal32(file, content.survey.measured.decl);
    for (const Station& station : content.survey.stations) {
        putValue(file, station.point.x);
        putValue(file, station.point.y);
        putValue(file, station.elevation);
        putReal32(file, 0.0);
    }
}

void putPaddedCounts(OutputFile& file, const MeshGeometry& mesh) {
    putValue(file, mesh.npy);
    putValue(file, mesh.npx);
    putValue(file, mesh.npz);
}

void putMeshCounts(OutputFile& file, const MeshGeometry& mesh) {
    putValue(file, mesh.ny);
    putValue(file, mesh.nx);
    putValue(file, mesh.nz);
}

void writeStreamHead(OutputFile& file, const MtxContent& content) {
    const bool tagged = content.form == MtxForm::tagged;
    if (tagged) {
        putTaggedStart(file, content);
    }
    putValue(file, content.survey.code);
    putValue(file, asInt32(content.survey.stations.size()));
    if (tagged) {
        putFieldAndStations(file, content);
    }
    putMeshCounts(file, content.survey.mesh);
    putPaddedCounts(file, content.survey.mesh);
    putValue(file, asInt32(content.filter.coefLow.size()));
    putValues<float>(file, content.filter.coefLow);
    putValues<float>(file, content.filter.coefHigh);
    putValues<double>(file, content.survey.mesh.yNode);
    putValues<double>(file, content.survey.mesh.xNode);
    putValues<double>(file, content.survey.mesh.zNode);
    putReal32(file, content.depthWeight.z0);
    putReal32(file, content.depthWeight.beta);
    putValues<float>(file, content.cellWeights);
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

// The cells of air at the top of each column, y fastest.
void putTopography(OutputFile& file, const Survey& survey) {
    const std::size_t nx = survey.mesh.xCentre.size(), ny = survey.mesh.yCentre.size();
    for (std::size_t i = 0; i < nx; ++i) {
        for (std::size_t j = 0; j < ny; ++j) {
            putValue(file, survey.ground.hasInactive() ? survey.ground.inactiveCells[i + nx * j] : std::int32_t{0});
        }
    }
}

void writeRecordHead(OutputFile& file, const MtxContent& content) {
    const MeshGeometry& mesh = content.survey.mesh;
    putRecord(file, 20, [&] {
        putValue(file, asInt32(content.survey.stations.size()));
        putValue(file, asInt32(mesh.cellCount()));
        putMeshCounts(file, mesh);
    });
    putRecord(file, 4 * (mesh.xNode.size() + mesh.yNode.size() + mesh.zNode.size() + 1), [&] {
        putNodesReal32(file, mesh.yNode);
        putNodesReal32(file, mesh.xNode);
        putNodesReal32(file, mesh.zNode);
        putReal32(file, 0.0);
    });
    putRecord(file, 4 * mesh.xCentre.size() * mesh.yCentre.size(), [&] { putTopography(file, content.survey); });
    putRecord(file, 4 + 4 * content.filter.coefLow.size(), [&] {
        putValue(file, asInt32(content.filter.coefLow.size()));
        putValues<float>(file, content.filter.coefLow);
    });
    putRecord(file, 12, [&] { putPaddedCounts(file, mesh); });
    putRecord(file, 4 + 4 * content.cellWeights.size(), [&] {
        putValue(file, asInt32(content.cellWeights.size()));
        putValues<float>(file, content.cellWeights);
    });
}

void putRow(OutputFile& file, const CompressedRow& row) {
    putValue(file, asInt32(row.coefIndex.size()));
    putValues<std::int32_t>(file, row.coefIndex);
    putValues<float>(file, row.coefValue);
}

}  // namespace

void checkMtxLimits(const MtxContent& content) {
    constexpr std::size_t mostRecordTaps = 24;
    const auto padded = static_cast<std::int64_t>(paddedExtentsOf(content.survey.mesh).total());
    if (8 * padded > longestInt32) {
        throw RunError("the padded mesh has " + std::to_string(padded) + " cells; at most " +
                       std::to_string(longestInt32 / 8) + " can be stored");
    }
    if (content.form != MtxForm::record && headLength(content) > longestInt32) {
        throw RunError("mesh and stations take " + std::to_string(headLength(content)) +
                       " bytes of the file in front of the rows; at most " + std::to_string(longestInt32) +
                       " can be stored");
    }
    if (content.form != MtxForm::record) {
        return;
    }
    if (content.filter.coefLow.size() > mostRecordTaps) {
        throw RunError("the record form holds at most 24 taps");
    }
    if (longestRecord(content) > longestInt32) {
        throw RunError("the record form holds records of at most " + std::to_string(longestInt32) + " bytes; " +
                       std::to_string(longestRecord(content)) + " may be needed");
    }
}

void writeMtxHead(OutputFile& file, const MtxContent& content) {
    if (content.form == MtxForm::record) {
        writeRecordHead(file, content);
    } else {
        writeStreamHead(file, content);
    }
}

void writeMtxRow(OutputFile& file, const MtxContent& content, const CompressedRow& row) {
    if (content.form == MtxForm::record) {
        putRecord(file, 4 + 8 * row.coefIndex.size(), [&] { putRow(file, row); });
    } else {
        putRow(file, row);
    }
}

void writeMtxTail(OutputFile& file, const MtxContent& content, std::span<const double> gtgdiag,
                  std::span<const double> layerResponse) {
    if (content.form == MtxForm::record) {
        return;
    }
    putValues(file, gtgdiag);
    if (content.form == MtxForm::tagged && content.version > 1) {
        putValue(file, content.inversionStyle);
        putValues(file, layerResponse);
    }
}

}  // namespace voxlith
