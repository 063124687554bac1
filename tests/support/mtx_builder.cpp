#include "support/mtx_builder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace voxlith {

namespace {

template <typename T>
void put(MtxBytes& file, const T& value) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    file.bytes.insert(file.bytes.end(), raw, raw + sizeof(T));
}

template <typename T>
void putAll(MtxBytes& file, const std::vector<T>& values) {
    for (const T& value : values) {
        put(file, value);
    }
}

void putSinglePrecision(MtxBytes& file, const std::vector<double>& values) {
    for (const double value : values) {
        put(file, static_cast<float>(value));
    }
}

std::size_t openRecord(MtxBytes& file) {
    put(file, std::int32_t{0});
    return file.bytes.size();
}

void closeRecord(MtxBytes& file, std::size_t start) {
    const auto length = static_cast<std::int32_t>(file.bytes.size() - start);
    std::memcpy(file.bytes.data() + start - sizeof length, &length, sizeof length);
    put(file, length);
}

void putRow(MtxBytes& file, const MtxRow& row) {
    file.places.rowCount.push_back(file.bytes.size());
    put(file, row.dense ? std::int32_t{-1} : static_cast<std::int32_t>(row.index.size()));
    if (!row.dense) {
        putAll(file, row.index);
    }
    putAll(file, row.value);
}

void putCounts(MtxBytes& file, std::int32_t first, std::int32_t second, std::int32_t third) {
    put(file, first);
    put(file, second);
    put(file, third);
}

void putStreamHead(MtxBytes& file, const MtxContents& contents, bool tagged) {
    if (tagged) {
        for (const char letter : {'V', 'X', '3', 'D'}) {
            put(file, letter);
        }
        put(file, contents.version);
    }
    put(file, contents.dataType);
    put(file, contents.nData);
    if (!tagged) {
        return;
    }
    put(file, contents.geomag);
    put(file, contents.incl);
    put(file, contents.decl);
    put(file, contents.idir);
    put(file, contents.aincl);
    put(file, contents.adecl);
    for (const MtxStation& station : contents.stations) {
        put(file, station.x);
        put(file, station.y);
        put(file, station.z);
        put(file, station.extra);
    }
}

MtxBytes buildStream(const MtxContents& contents, bool tagged) {
    MtxBytes file;
    putStreamHead(file, contents, tagged);
    file.places.meshCounts = file.bytes.size();
    putCounts(file, contents.ny, contents.nx, contents.nz);
    file.places.paddedCounts = file.bytes.size();
    putCounts(file, contents.npy, contents.npx, contents.npz);
    file.places.tapCount = file.bytes.size();
    put(file, static_cast<std::int32_t>(contents.coefLow.size()));
    file.places.taps = file.bytes.size();
    putAll(file, contents.coefLow);
    putAll(file, contents.coefHigh);
    file.places.nodes = file.bytes.size();
    putAll(file, contents.yNode);
    putAll(file, contents.xNode);
    putAll(file, contents.zNode);
    put(file, contents.weightParamA);
    put(file, contents.weightParamB);
    file.places.depthWeight = file.bytes.size();
    putAll(file, contents.depthWeight);
    file.places.rows = file.bytes.size();
    for (const MtxRow& row : contents.rows) {
        putRow(file, row);
    }
    file.places.tail = file.bytes.size();
    putAll(file, contents.gtgdiag);
    if (tagged && contents.version > 1) {
        put(file, contents.inversionStyle);
        putAll(file, contents.layerResponse);
    }
    return file;
}

MtxBytes buildRecords(const MtxContents& contents) {
    MtxBytes file;
    std::size_t start = openRecord(file);
    put(file, contents.nData);
    put(file, contents.nCells);
    file.places.meshCounts = file.bytes.size();
    putCounts(file, contents.ny, contents.nx, contents.nz);
    closeRecord(file, start);
    file.places.nodes = start = openRecord(file);
    putSinglePrecision(file, contents.yNode);
    putSinglePrecision(file, contents.xNode);
    putSinglePrecision(file, contents.zNode);
    put(file, 0.0F);
    closeRecord(file, start);
    start = openRecord(file);
    putAll(file, contents.topography);
    closeRecord(file, start);
    file.places.tapCount = start = openRecord(file);
    put(file, static_cast<std::int32_t>(contents.coefLow.size()));
    file.places.taps = file.bytes.size();
    putAll(file, contents.coefLow);
    closeRecord(file, start);
    file.places.paddedCounts = start = openRecord(file);
    putCounts(file, contents.npy, contents.npx, contents.npz);
    closeRecord(file, start);
    start = openRecord(file);
    put(file, std::int32_t{7});
    file.places.depthWeight = file.bytes.size();
    putAll(file, contents.depthWeight);
    closeRecord(file, start);
    file.places.rows = file.bytes.size();
    for (const MtxRow& row : contents.rows) {
        start = openRecord(file);
        putRow(file, row);
        closeRecord(file, start);
    }
    file.places.tail = file.bytes.size();
    return file;
}

std::vector<double> countedNodes(std::int32_t cells, double first) {
    std::vector<double> nodes(static_cast<std::size_t>(cells) + 1);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        nodes[i] = first + static_cast<double>(i);
    }
    return nodes;
}

void setTaps(MtxContents& contents) {
    const double root = std::sqrt(3.0);
    const double scale = 4 * std::sqrt(2.0);
    const std::array<double, 4> low{(1 + root) / scale, (3 + root) / scale, (3 - root) / scale, (1 - root) / scale};
    contents.coefLow.resize(4);
    contents.coefHigh.resize(4);
    double sign = -1;
    for (std::size_t k = 0; k < 4; ++k) {
        contents.coefLow[k] = static_cast<float>(low[k]);
        contents.coefHigh[3 - k] = static_cast<float>(sign * low[k]);
        sign = -sign;
    }
}

}  // namespace

MtxContents smallMtxContents(std::int32_t nData, std::array<std::int32_t, 3> meshYXZ,
                             std::array<std::int32_t, 3> paddedYXZ) {
    MtxContents contents;
    contents.nData = nData;
    contents.ny = meshYXZ[0];
    contents.nx = meshYXZ[1];
    contents.nz = meshYXZ[2];
    contents.npy = paddedYXZ[0];
    contents.npx = paddedYXZ[1];
    contents.npz = paddedYXZ[2];
    contents.nCells = contents.ny * contents.nx * contents.nz;
    setTaps(contents);
    contents.yNode = countedNodes(contents.ny, 200);
    contents.xNode = countedNodes(contents.nx, 100);
    contents.zNode = countedNodes(contents.nz, 0);
    const auto cells = static_cast<std::size_t>(contents.nCells);
    contents.depthWeight.assign(cells, 1.0F);
    contents.gtgdiag.assign(cells, 1.0);
    contents.topography.assign(static_cast<std::size_t>(contents.nx) * static_cast<std::size_t>(contents.ny), 1);
    const std::int32_t padded = contents.npy * contents.npx * contents.npz;
    for (std::int32_t r = 0; r < nData; ++r) {
        contents.stations.push_back({100.0 + r, 200.5, -1.0, 0.25F});
        MtxRow row;
        for (std::int32_t k = 0; k < std::min(padded, 2 + r % 2); ++k) {
            row.index.push_back(1 + (r + 3 * k) % padded);
            row.value.push_back(0.5F + static_cast<float>(r) - 0.125F * static_cast<float>(k));
        }
        contents.rows.push_back(row);
    }
    const auto layers = static_cast<std::size_t>(std::min(contents.npz, contents.nz));
    contents.layerResponse.assign((layers + 1) * static_cast<std::size_t>(nData), 0.5);
    return contents;
}

MtxBytes buildMtx(const MtxContents& contents, MtxLayout layout) {
    return layout == MtxLayout::record ? buildRecords(contents) : buildStream(contents, layout == MtxLayout::tagged);
}

void writeFileBytes(const std::string& name, const std::vector<unsigned char>& bytes) {
    // A new file each time: some file systems wait for the disk when a file is truncated and written again.
    std::remove(name.c_str());
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error(name + " cannot be written");
    }
}

MtxPlaces writeMtx(const std::string& name, const MtxContents& contents, MtxLayout layout) {
    const MtxBytes file = buildMtx(contents, layout);
    writeFileBytes(name, file.bytes);
    return file.places;
}

}  // namespace voxlith
