// Files larger than 4 GiB: holes on the disk, so that nothing of that size is written or read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <numeric>

#include "formats/mtx/mtx_reading.h"
#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

// A new file of `size` bytes, all hole.
class SparseFile {
public:
    SparseFile(const std::string& name, std::int64_t size)
        : handle_(::open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
        EXPECT_GE(handle_, 0);
        EXPECT_EQ(::ftruncate(handle_, size), 0) << std::strerror(errno);
    }
    ~SparseFile() { ::close(handle_); }
    SparseFile(const SparseFile&) = delete;
    SparseFile& operator=(const SparseFile&) = delete;

    void put(std::int64_t position, const void* bytes, std::size_t count) {
        EXPECT_EQ(::pwrite(handle_, bytes, count, position), static_cast<ssize_t>(count));
    }
    void put(std::int64_t position, std::int32_t value) { put(position, &value, sizeof value); }

private:
    int handle_;
};

constexpr std::int32_t longRow = 268'435'454;  // 2^31 - 16 bytes of coefficients
constexpr std::int32_t nData = 3;

class MtxLargeFileTest : public testing::Test {
protected:
    testing_support::TemporaryFolder folder;
    const std::string name = folder.file("large.mtx");
    MtxContents contents = smallMtxContents(nData, {3, 5, 2}, {4, 8, 2});
};

TEST_F(MtxLargeFileTest, theScanOfAStreamReadsTheCountsAlone) {
    std::iota(contents.gtgdiag.begin(), contents.gtgdiag.end(), 3.5);
    contents.rows.clear();
    const MtxBytes file = buildMtx(contents, MtxLayout::tagged);
    const std::size_t head = file.places.rows;
    const std::int64_t rowBytes = 4 + std::int64_t{8} * longRow;
    const std::int64_t tail = static_cast<std::int64_t>(head) + nData * rowBytes;
    const std::size_t tailBytes = file.bytes.size() - head;
    ASSERT_GT(tail, std::int64_t{6'000'000'000});
    SparseFile sparse(name, tail + static_cast<std::int64_t>(tailBytes));
    sparse.put(0, file.bytes.data(), head);
    for (std::int64_t r = 0; r < nData; ++r) {
        sparse.put(static_cast<std::int64_t>(head) + r * rowBytes, longRow);
    }
    sparse.put(tail, file.bytes.data() + head, tailBytes);

    MtxReading reading;
    reading.openAndReadHead(0, name);
    BinaryInput& input = reading.files[0].input;
    // The read-ahead of the header holds the first row's count already.
    input.blockLength = 0;
    const std::int64_t before = input.bytesRead;
    reading.countRows(0);
    EXPECT_EQ(input.bytesRead - before, 4 * nData);
    reading.readTail(0);
    EXPECT_LT(input.bytesRead, std::int64_t{1} << 21);
    const std::int64_t length = longRow;
    EXPECT_EQ(reading.rowOffset, (std::vector<std::int64_t>{1, 1 + length, 1 + 2 * length, 1 + 3 * length}));
    EXPECT_EQ(reading.longestRow, longRow);
    EXPECT_EQ(reading.gtgdiag, contents.gtgdiag);
    EXPECT_EQ(reading.layerResponse, contents.layerResponse);
    EXPECT_EQ(input.position, static_cast<std::int64_t>(head));
}

TEST_F(MtxLargeFileTest, theScanOfRecordsReadsFramesAndCountsAlone) {
    contents.rows.clear();
    const MtxBytes file = buildMtx(contents, MtxLayout::record);
    const auto head = static_cast<std::int64_t>(file.bytes.size());
    const std::int32_t length = 4 + 8 * (longRow - 1);
    const std::int64_t recordBytes = std::int64_t{length} + 8;
    SparseFile sparse(name, head + nData * recordBytes);
    sparse.put(0, file.bytes.data(), file.bytes.size());
    for (std::int64_t r = 0; r < nData; ++r) {
        sparse.put(head + r * recordBytes, length);
        sparse.put(head + r * recordBytes + 4, longRow - 1);
        sparse.put(head + (r + 1) * recordBytes - 4, length);
    }
    MtxReading reading;
    ASSERT_TRUE(isMtxRecordForm(name));
    reading.openAndReadHead(0, name, true);
    BinaryInput& input = reading.files[0].input;
    input.blockLength = 0;
    const std::int64_t before = input.bytesRead;
    reading.countRows(0);
    // 12 bytes before the first row and across each boundary; the last one has the closing frame alone.
    EXPECT_EQ(input.bytesRead - before, 12 * nData + 4);
    EXPECT_EQ(reading.rowOffset.back(), 1 + std::int64_t{nData} * (longRow - 1));
}

TEST_F(MtxLargeFileTest, rowsAfterFourGibibytesAreLoaded) {
    // Three dense rows of 4 * 2^29 bytes would not fit the test; a long row of holes is skipped by hand instead.
    contents.dataType = 7;
    const MtxBytes file = buildMtx(contents, MtxLayout::bare);
    const std::int64_t shift = std::int64_t{5} << 30;
    SparseFile sparse(name, shift + static_cast<std::int64_t>(file.bytes.size()));
    sparse.put(0, file.bytes.data(), file.places.rows);
    sparse.put(shift + static_cast<std::int64_t>(file.places.rows), file.bytes.data() + file.places.rows,
               file.bytes.size() - file.places.rows);
    MtxReading reading;
    reading.openAndReadHead(0, name);
    reading.files[0].rowStart += shift;
    rewindMtxRows(reading.files[0]);
    reading.countRows(0);
    reading.load();
    for (std::size_t r = 0; r < static_cast<std::size_t>(nData); ++r) {
        EXPECT_EQ(reading.rowIndices(0, r), contents.rows[r].index);
        EXPECT_EQ(reading.rowValues(0, r), contents.rows[r].value);
    }
}

TEST_F(MtxLargeFileTest, rowsMustBeginWithinTwoGibibytes) {
    // 80 million stations of 28 bytes put the rows after byte 2147483647.
    contents.nData = 80'000'000;
    contents.stations.clear();
    contents.rows.clear();
    contents.version = 1;
    const MtxBytes bytes = buildMtx(contents, MtxLayout::tagged);
    constexpr std::int64_t fixedHead = 40;
    const std::int64_t stations = std::int64_t{28} * contents.nData;
    SparseFile sparse(name, 2 * stations);
    sparse.put(0, bytes.bytes.data(), static_cast<std::size_t>(fixedHead));
    sparse.put(fixedHead + stations, bytes.bytes.data() + fixedHead,
               bytes.bytes.size() - static_cast<std::size_t>(fixedHead));
    MtxInput file;
    openMtxFile(file, name, false);
    readMtxDataType(file);
    readMtxDataCount(file, nullptr);
    EXPECT_EQ(file.header.nData, contents.nData);
    // The stations are left out, which is what makes the test quick: the head goes on after them.
    file.header.form = MtxForm::bare;
    seekBinary(file.input, fixedHead + stations);
    readMtxMesh(file, nullptr, {}, {}, {});
    MeshGeometry mesh;
    setMeshCounts(file.header, mesh);
    sizeMeshArrays(mesh);
    std::vector<float> depthWeight(mesh.cellCount());
    EXPECT_NE(runErrorOf([&] {
                  readMtxNodes(file, mesh, depthWeight);
              }).find("expected the rows to begin within the first 2147483647 bytes"),
              std::string::npos);
}

TEST_F(MtxLargeFileTest, loadingReadsEveryByteOnce) {
    contents.rows.clear();
    for (std::int32_t r = 0; r < nData; ++r) {
        MtxRow row;
        row.index.assign(static_cast<std::size_t>(400'001 + r), 1 + r);
        row.value.assign(row.index.size(), 0.5F);
        contents.rows.push_back(row);
    }
    const MtxPlaces places = writeMtx(name, contents, MtxLayout::bare);
    MtxReading reading;
    reading.readFiles({name});
    reading.files[0].input.blockLength = 0;
    const std::int64_t before = reading.files[0].input.bytesRead;
    reading.load();
    const auto rowBytes = static_cast<std::int64_t>(places.tail - places.rows);
    EXPECT_LE(reading.files[0].input.bytesRead - before, rowBytes + static_cast<std::int64_t>(largeReadAhead));
    EXPECT_GE(reading.files[0].input.bytesRead - before, rowBytes);
}

}  // namespace
}  // namespace voxlith
