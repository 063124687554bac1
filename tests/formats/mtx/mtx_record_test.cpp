#include <gtest/gtest.h>

#include <cstring>

#include "formats/mtx/mtx_reading.h"
#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

MtxContents recordContents() {
    MtxContents contents = smallMtxContents(4, {3, 5, 4}, {4, 8, 2});
    contents.yNode = {0.1, 1.5, 2.25, 9};  // 0.1 is not a number of single precision
    for (std::size_t c = 0; c < contents.depthWeight.size(); ++c) {
        contents.depthWeight[c] = 1.0F + static_cast<float>(c);
    }
    for (std::size_t c = 0; c < contents.topography.size(); ++c) {
        contents.topography[c] = static_cast<std::int32_t>(c) - 3;
    }
    return contents;
}

void overwrite(std::vector<unsigned char>& bytes, std::size_t position, std::int32_t value) {
    std::memcpy(bytes.data() + position, &value, sizeof value);
}

class MtxRecordTest : public testing::Test {
protected:
    testing_support::TemporaryFolder folder;
    const std::string name = folder.file("r.mtx");
};

TEST_F(MtxRecordTest, everyRecordIsRead) {
    const MtxContents contents = recordContents();
    const MtxPlaces places = writeMtx(name, contents, MtxLayout::record);
    MtxReading reading;
    reading.readFiles({name});
    const MtxHeader& header = reading.header();
    EXPECT_EQ(header.form, MtxForm::record);
    EXPECT_EQ(header.version, 0);
    EXPECT_EQ(header.nData, 4);
    EXPECT_EQ(header.nCells(), 60);
    EXPECT_EQ(header.coefLow.size(), 4U);
    EXPECT_EQ(header.nPadded(), 64);
    EXPECT_EQ(header.weightParamA, 0.0F);
    EXPECT_EQ(header.weightParamB, 0.0F);
    EXPECT_EQ(header.inversionStyle, InversionStyle{3});
    EXPECT_EQ(reading.files[0].rowStart, static_cast<std::int64_t>(places.rows));
    EXPECT_EQ(reading.mesh.nzl, 2);
    EXPECT_EQ(reading.mesh.nx, 5);
    EXPECT_EQ(reading.mesh.ny, 3);
    EXPECT_EQ(reading.mesh.npx, 8);
    EXPECT_EQ(reading.mesh.npy, 4);
    EXPECT_EQ(reading.mesh.yNode[0], static_cast<double>(0.1F));
    EXPECT_EQ(reading.mesh.xNode, contents.xNode);
    EXPECT_EQ(reading.mesh.zNode, contents.zNode);
    EXPECT_EQ(reading.mesh.ubcTopo, contents.topography);
    EXPECT_EQ(reading.depthWeight, contents.depthWeight);
    EXPECT_EQ(reading.header().coefLow, contents.coefLow);
    EXPECT_EQ(reading.header().field.geomag, 0.0F);
    EXPECT_TRUE(header.coefHigh.empty());
    EXPECT_EQ(reading.x, std::vector<double>(4, -77.0));
    EXPECT_EQ(reading.layerResponse, std::vector<double>(12, 0.0));
}

TEST_F(MtxRecordTest, layersOfThePaddedMeshGiveTheStyle) {
    struct Case {
        std::int32_t nz, npz, style, nzl;
    };
    for (const Case& test : {Case{10, 1, 1, 1}, {10, 2, 3, 2}, {10, 8, 3, 8}, {10, 16, 0, 10}, {1, 1, 0, 1}}) {
        writeMtx(name, smallMtxContents(2, {3, 5, test.nz}, {4, 8, test.npz}), MtxLayout::record);
        MtxReading reading;
        reading.readFiles({name});
        EXPECT_EQ(reading.header().form, MtxForm::record);
        EXPECT_EQ(reading.header().inversionStyle, InversionStyle{test.style}) << test.nz << ' ' << test.npz;
        EXPECT_EQ(reading.mesh.nzl, test.nzl) << test.nz << ' ' << test.npz;
    }
}

TEST_F(MtxRecordTest, theNameGivesTheDataType) {
    for (const auto& [file, code] :
         {std::pair{"xMag.mtx", 0}, {"aMAG.mtx", 1}, {"image_mag", 1}, {"MaG", 0}, {"g", 0}}) {
        writeMtx(folder.file(file), recordContents(), MtxLayout::record);
        MtxReading reading;
        reading.readFiles({folder.file(file)});
        EXPECT_EQ(reading.header(0).dataType, DataType{code}) << file;
    }
}

TEST_F(MtxRecordTest, rowsAreScannedAndLoadedAndAnEmptyOneIsEmpty) {
    MtxContents contents = recordContents();
    contents.rows[1] = {{}, {}, false};
    writeMtx(name, contents, MtxLayout::record);
    MtxReading reading;
    reading.readFiles({name});
    EXPECT_EQ(reading.rowOffset, (std::vector<std::int64_t>{1, 3, 3, 5, 8}));
    EXPECT_EQ(reading.longestRow, 3);
    EXPECT_EQ(reading.files[0].input.position, reading.files[0].rowStart);
    reading.load();
    for (std::size_t r = 0; r < 4; ++r) {
        EXPECT_EQ(reading.rowIndices(0, r), contents.rows[r].index);
        EXPECT_EQ(reading.rowValues(0, r), contents.rows[r].value);
    }
}

TEST_F(MtxRecordTest, everyTestOfTheDetectionCounts) {
    const MtxBytes file = buildMtx(recordContents(), MtxLayout::record);
    writeFileBytes(name, file.bytes);
    EXPECT_TRUE(isMtxRecordForm(name));
    for (std::size_t position = 0; position < 28; position += 4) {
        for (const std::int32_t value : {0, -3, 21}) {
            MtxBytes changed = file;
            overwrite(changed.bytes, position, value);
            writeFileBytes(name, changed.bytes);
            // Any number of data above 0 will do.
            EXPECT_EQ(isMtxRecordForm(name), position == 4 && value > 0) << position << ' ' << value;
        }
    }
    for (std::size_t length = 0; length < 28; ++length) {
        writeFileBytes(name, {file.bytes.begin(), file.bytes.begin() + static_cast<std::ptrdiff_t>(length)});
        EXPECT_FALSE(isMtxRecordForm(name)) << length;
    }
    writeFileBytes(name, {file.bytes.begin(), file.bytes.begin() + 28});
    EXPECT_TRUE(isMtxRecordForm(name));
}

TEST_F(MtxRecordTest, countsWhoseProductWrapsRoundAreNoRecordForm) {
    MtxBytes file = buildMtx(recordContents(), MtxLayout::record);
    overwrite(file.bytes, 8, 65536);  // 65536 * 65536 * 65536 is 0 in 32 bits; 2^32 + 65536 wraps to 65536
    overwrite(file.bytes, 12, 65537);
    overwrite(file.bytes, 16, 65536);
    overwrite(file.bytes, 20, 1);
    writeFileBytes(name, file.bytes);
    EXPECT_FALSE(isMtxRecordForm(name));
}

TEST_F(MtxRecordTest, aDenseRowDoesNotExist) {
    MtxBytes file = buildMtx(recordContents(), MtxLayout::record);
    overwrite(file.bytes, file.places.rowCount[2], -1);
    writeFileBytes(name, file.bytes);
    MtxReading reading;
    EXPECT_EQ(runErrorOf([&] { reading.readFiles({name}); }), name + ": byte " +
                                                                  std::to_string(file.places.rowCount[2]) +
                                                                  ": expected the count of a row, 0 or more, found -1");
}

TEST_F(MtxRecordTest, aFilterLongerThanTwentyFourIsRefused) {
    MtxContents contents = recordContents();
    contents.coefLow.assign(25, 0.5F);
    const MtxPlaces places = writeMtx(name, contents, MtxLayout::record);
    MtxReading reading;
    EXPECT_EQ(runErrorOf([&] { reading.readFiles({name}); }),
              name + ": byte " + std::to_string(places.tapCount) + ": expected a filter length from 1 to 24, found 25");
}

TEST_F(MtxRecordTest, everyFrameIsChecked) {
    const MtxBytes file = buildMtx(recordContents(), MtxLayout::record);
    std::size_t frames = 0;
    for (std::size_t position = 0; position < file.bytes.size();) {
        std::int32_t length = 0;
        std::memcpy(&length, file.bytes.data() + position, sizeof length);
        for (const std::size_t frame : {position, position + 4 + static_cast<std::size_t>(length)}) {
            for (const std::int32_t wrong : {length - 4, length + 4, -length, 0, 2147483647}) {
                MtxBytes changed = file;
                overwrite(changed.bytes, frame, wrong);
                writeFileBytes(name, changed.bytes);
                MtxReading reading;
                const std::string message = runErrorOf([&] { reading.readFile(0, name, true); });
                EXPECT_NE(message.find(": byte " + std::to_string(frame) + ": "), std::string::npos)
                    << frame << ' ' << wrong << ": " << message;
                ++frames;
            }
        }
        position += 8 + static_cast<std::size_t>(length);
    }
    EXPECT_EQ(frames, 5U * 2 * (6 + 4));
}

}  // namespace
}  // namespace voxlith
