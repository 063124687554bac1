// Builds small sensitivity files of the three layouts, byte by byte, for tests. It has its own description of the
// layouts and shares no code with the reader.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace voxlith {

enum class MtxLayout { tagged, bare, record };

// One stored row: raw coefficients of the padded array.
struct MtxRow {
    std::vector<std::int32_t> index;  // from 1; not written for a dense row
    std::vector<float> value;
    bool dense = false;  // count -1, then `value`; does not exist in the record layout
};

struct MtxStation {
    double x = 0, y = 0, z = 0;
    float extra = 0;
};

// The content of a file, field by field. Nothing is checked, so that damaged files can be built, too; counts are
// written as they are here, arrays with the length that they have.
struct MtxContents {
    std::int32_t version = 2;  // tagged
    std::int32_t dataType = 0;
    std::int32_t nData = 0;
    float geomag = 50000, incl = 60, decl = 10;
    std::int32_t idir = 1;
    float aincl = 60, adecl = 10;
    std::vector<MtxStation> stations;
    std::int32_t ny = 0, nx = 0, nz = 0;
    std::int32_t nCells = 0;  // record
    std::int32_t npy = 0, npx = 0, npz = 0;
    std::vector<float> coefLow, coefHigh;
    std::vector<double> yNode, xNode, zNode;
    float weightParamA = 0, weightParamB = 0;
    std::vector<float> depthWeight;
    std::vector<MtxRow> rows;
    std::vector<double> gtgdiag;
    std::int32_t inversionStyle = 0;       // tagged, version above 1
    std::vector<double> layerResponse;     // tagged, version above 1
    std::vector<std::int32_t> topography;  // record
};

// Byte positions of the fields that tests damage.
struct MtxPlaces {
    std::size_t meshCounts = 0;    // ny
    std::size_t paddedCounts = 0;  // npy
    std::size_t tapCount = 0;
    std::size_t taps = 0;
    std::size_t nodes = 0;
    std::size_t depthWeight = 0;
    std::size_t rows = 0;               // where the first row begins, its frame included
    std::vector<std::size_t> rowCount;  // the count of each row
    std::size_t tail = 0;               // gtgdiag
};

struct MtxBytes {
    std::vector<unsigned char> bytes;
    MtxPlaces places;
};

// A valid file's contents: nData stations on a line, unit cells on the mesh {ny, nx, nz}, z nodes that rise downwards,
// the Daubechies filter of four taps, depth weights and gtgdiag of 1, and rows with two or three coefficients each that
// differ from row to row.
MtxContents smallMtxContents(std::int32_t nData, std::array<std::int32_t, 3> meshYXZ,
                             std::array<std::int32_t, 3> paddedYXZ);

MtxBytes buildMtx(const MtxContents& contents, MtxLayout layout);

// Writes the bytes under `name`; throws std::runtime_error when that fails.
void writeFileBytes(const std::string& name, const std::vector<unsigned char>& bytes);

// buildMtx and writeFileBytes; returns the byte positions.
MtxPlaces writeMtx(const std::string& name, const MtxContents& contents, MtxLayout layout);

}  // namespace voxlith
