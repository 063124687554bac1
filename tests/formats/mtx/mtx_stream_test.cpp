#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
#include <stdexcept>

#include "formats/mtx/mtx_reading.h"
#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

constexpr std::array<std::int32_t, 3> smallMesh{3, 5, 2};
constexpr std::array<std::int32_t, 3> smallPadded{4, 8, 2};

MtxContents numberedContents(std::int32_t nData = 4, std::array<std::int32_t, 3> mesh = smallMesh,
                             std::array<std::int32_t, 3> padded = smallPadded) {
    MtxContents contents = smallMtxContents(nData, mesh, padded);
    for (std::size_t c = 0; c < contents.depthWeight.size(); ++c) {
        contents.depthWeight[c] = 1.0F + static_cast<float>(c);
        contents.gtgdiag[c] = 1000.5 + static_cast<double>(c);
    }
    std::iota(contents.layerResponse.begin(), contents.layerResponse.end(), 0.25);
    contents.yNode = {10.5, 11.25, 14, 20};
    if (mesh[0] != 3) {
        contents.yNode.assign(static_cast<std::size_t>(mesh[0]) + 1, 3.5);
    }
    contents.weightParamA = 2.5F;
    contents.weightParamB = -1.25F;
    return contents;
}

class MtxStreamTest : public testing::Test {
protected:
    testing_support::TemporaryFolder folder;

    std::string make(const MtxContents& contents, MtxLayout layout, const std::string& name = "a.mtx") {
        writeMtx(folder.file(name), contents, layout);
        return folder.file(name);
    }

    // What the second of two files is refused for.
    MtxQuantity mismatchOf(const MtxContents& first, const MtxContents& second) {
        MtxReading reading(2);
        try {
            reading.readFiles({make(first, MtxLayout::tagged), make(second, MtxLayout::tagged, "b.mtx")});
        } catch (const MtxMismatch& mismatch) {
            return mismatch.quantity;
        }
        throw std::runtime_error("the second file was read");
    }
};

TEST_F(MtxStreamTest, theTaggedFormGivesEveryField) {
    MtxContents contents = numberedContents();
    contents.inversionStyle = 4;
    contents.dataType = 12;
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::tagged)});
    const MtxHeader& header = reading.header();
    EXPECT_EQ(header.form, MtxForm::tagged);
    EXPECT_EQ(header.version, 2);
    EXPECT_EQ(header.nData, 4);
    EXPECT_EQ(header.nCells(), 30);
    EXPECT_EQ(header.coefLow.size(), 4U);
    EXPECT_EQ(header.nPadded(), 64);
    EXPECT_EQ(header.nPadTotal(), 64);
    EXPECT_EQ(header.dataType, DataType{12});
    EXPECT_EQ(header.weightParamA, 2.5F);
    EXPECT_EQ(header.weightParamB, -1.25F);
    EXPECT_EQ(header.inversionStyle, InversionStyle{4});
    EXPECT_EQ(reading.header().coefLow, contents.coefLow);
    EXPECT_EQ(reading.header().coefHigh, contents.coefHigh);
    EXPECT_EQ(reading.depthWeight, contents.depthWeight);
    EXPECT_EQ(reading.gtgdiag, contents.gtgdiag);
    EXPECT_EQ(reading.layerResponse, contents.layerResponse);
}

TEST_F(MtxStreamTest, theFileGivesTheYAxisFirstAndStationsInTheOrderXYZ) {
    const MtxContents contents = numberedContents();
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::tagged)});
    EXPECT_EQ(reading.mesh.ny, 3);
    EXPECT_EQ(reading.mesh.nx, 5);
    EXPECT_EQ(reading.mesh.nz, 2);
    EXPECT_EQ(reading.mesh.npy, 4);
    EXPECT_EQ(reading.mesh.npx, 8);
    EXPECT_EQ(reading.mesh.npz, 2);
    EXPECT_EQ(reading.mesh.yNode, contents.yNode);
    EXPECT_EQ(reading.mesh.xNode, contents.xNode);
    EXPECT_EQ(reading.mesh.zNode, contents.zNode);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(reading.x[i], contents.stations[i].x);
        EXPECT_EQ(reading.y[i], contents.stations[i].y);
        EXPECT_EQ(reading.z[i], contents.stations[i].z);
    }
    EXPECT_EQ(reading.header().field.geomag, contents.geomag);
    EXPECT_EQ(reading.header().field.incl, contents.incl);
    EXPECT_EQ(reading.header().field.decl, contents.decl);
    EXPECT_EQ(reading.header().field.idir, contents.idir);
    EXPECT_EQ(reading.header().field.aincl, contents.aincl);
    EXPECT_EQ(reading.header().field.adecl, contents.adecl);
}

TEST_F(MtxStreamTest, fixedPositionsOfTheHead) {
    const MtxBytes tagged = buildMtx(numberedContents(), MtxLayout::tagged);
    EXPECT_EQ(tagged.places.meshCounts, 40U + 4 * 28);
    const MtxBytes bare = buildMtx(numberedContents(), MtxLayout::bare);
    EXPECT_EQ(bare.places.meshCounts, 8U);
}

TEST_F(MtxStreamTest, aBareFileHasNeitherStationsNorField) {
    MtxContents contents = numberedContents();
    contents.dataType = -3;
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::bare)});
    EXPECT_EQ(reading.header().form, MtxForm::bare);
    EXPECT_EQ(reading.header().field.geomag, 0.0F);
    EXPECT_EQ(reading.header().field.idir, 0);
    EXPECT_EQ(reading.x, std::vector<double>(4, -77.0));
    EXPECT_EQ(reading.header().version, 0);
    EXPECT_EQ(reading.header(0).dataType, DataType{-3});
    EXPECT_EQ(reading.gtgdiag, contents.gtgdiag);
    EXPECT_EQ(reading.layerResponse, std::vector<double>(12, 0.0));
}

TEST_F(MtxStreamTest, versionsBelowTwoHaveNeitherStyleNorLayerResponses) {
    for (const std::int32_t version : {-1, 0, 1}) {
        MtxContents contents = numberedContents(4, {3, 5, 4}, {4, 8, 2});
        contents.version = version;
        MtxReading reading;
        reading.readFiles({make(contents, MtxLayout::tagged)});
        EXPECT_EQ(reading.header().inversionStyle, InversionStyle{3}) << version;
        EXPECT_EQ(reading.layerResponse, std::vector<double>(12, 0.0)) << version;
    }
}

TEST_F(MtxStreamTest, layersOfThePaddedMeshGiveTheStyle) {
    struct Case {
        std::int32_t nz, npz, style, nzl;
    };
    for (const Case& test :
         {Case{10, 1, 1, 1}, {10, 2, 3, 2}, {10, 8, 3, 8}, {10, 16, 0, 10}, {8, 8, 0, 8}, {1, 1, 0, 1}}) {
        MtxContents contents = numberedContents(2, {3, 5, test.nz}, {4, 8, test.npz});
        contents.version = 1;
        for (const MtxLayout layout : {MtxLayout::tagged, MtxLayout::bare}) {
            MtxReading reading;
            reading.readFiles({make(contents, layout)});
            EXPECT_EQ(reading.header().inversionStyle, InversionStyle{test.style}) << test.nz << ' ' << test.npz;
            EXPECT_EQ(reading.mesh.nzl, test.nzl);
            EXPECT_EQ(reading.header().nPadTotal(), 32 * std::max(test.nz, test.npz));
            EXPECT_EQ(reading.header().nPadded(), 32 * test.npz);
        }
    }
}

TEST_F(MtxStreamTest, theStoredStyleWinsEvenAgainstTheLayers) {
    for (const std::int32_t code : {0, 1, 2, 4, 99, -5}) {
        MtxContents contents = numberedContents(4, {3, 5, 4}, {4, 8, 1});
        contents.inversionStyle = code;
        MtxReading reading;
        reading.readFiles({make(contents, MtxLayout::tagged)});
        EXPECT_EQ(reading.header().inversionStyle, InversionStyle{code});
        EXPECT_EQ(reading.mesh.nzl, 1);
    }
}

TEST_F(MtxStreamTest, eachFileHasItsOwnStyleVersionAndLayerResponses) {
    MtxContents first = numberedContents(4, {3, 5, 4}, {4, 8, 1});
    first.inversionStyle = 2;
    MtxContents second = first;
    second.inversionStyle = 4;
    second.layerResponse.assign(8, 7.0);
    MtxContents third = first;
    third.version = 1;
    MtxReading reading(3);
    reading.readFiles(
        {make(first, MtxLayout::tagged), make(second, MtxLayout::tagged, "b"), make(third, MtxLayout::tagged, "c")});
    EXPECT_EQ(reading.header(0).inversionStyle, InversionStyle{2});
    EXPECT_EQ(reading.header(1).inversionStyle, InversionStyle{4});
    EXPECT_EQ(reading.header(2).inversionStyle, InversionStyle{1});
    EXPECT_TRUE(reading.header(1).holdsLayers());
    EXPECT_FALSE(reading.header(2).holdsLayers());
    EXPECT_EQ(reading.header(2).version, 1);
    std::vector<double> expected = first.layerResponse;
    expected.insert(expected.end(), 8, 7.0);
    expected.insert(expected.end(), 8, 0.0);
    EXPECT_EQ(reading.layerResponse, expected);
}

TEST_F(MtxStreamTest, theLayersOfABareFirstFileSizeTheResponsesOfATaggedSecond) {
    const MtxContents contents = numberedContents(4, {3, 5, 4}, {4, 8, 2});
    MtxReading reading(2);
    reading.readFiles({make(contents, MtxLayout::bare), make(contents, MtxLayout::tagged, "b")});
    EXPECT_EQ(reading.mesh.nzl, 2);
    std::vector<double> expected(12, 0.0);
    expected.insert(expected.end(), contents.layerResponse.begin(), contents.layerResponse.end());
    EXPECT_EQ(reading.layerResponse, expected);
}

TEST_F(MtxStreamTest, noBlockOfDirectionsPerStationIsRead) {
    MtxContents contents = numberedContents();
    contents.dataType = 1;
    for (const std::int32_t idir : {-1, 0, 2}) {
        contents.idir = idir;
        MtxReading reading;
        reading.readFiles({make(contents, MtxLayout::tagged)});
        EXPECT_EQ(reading.header().field.idir, idir);
        EXPECT_EQ(reading.mesh.nx, 5);
    }
}

TEST_F(MtxStreamTest, rowsAreScannedAndLoaded) {
    MtxContents contents = numberedContents();
    for (const MtxLayout layout : {MtxLayout::tagged, MtxLayout::bare}) {
        MtxReading reading;
        reading.readFiles({make(contents, layout)});
        EXPECT_EQ(reading.rowOffset, (std::vector<std::int64_t>{1, 3, 6, 8, 11}));
        EXPECT_EQ(reading.longestRow, 3);
        EXPECT_EQ(reading.files[0].input.position, reading.files[0].rowStart);
        reading.load();
        for (std::size_t r = 0; r < 4; ++r) {
            EXPECT_EQ(reading.rowIndices(0, r), contents.rows[r].index);
            EXPECT_EQ(reading.rowValues(0, r), contents.rows[r].value);
        }
    }
}

TEST_F(MtxStreamTest, taggedAndBareFilesStandInOneRun) {
    MtxContents first = numberedContents();
    MtxContents second = numberedContents();
    second.dataType = 20;
    second.rows[1] = {{64}, {9.5F}, false};
    second.weightParamA = 0.5F;
    second.xNode.assign(6, 42.0);  // nodes of later files are not compared
    second.coefLow.assign(4, 0.125F);
    MtxContents third = numberedContents();
    third.geomag = 777;
    MtxReading reading(3);
    reading.readFiles(
        {make(first, MtxLayout::tagged), make(second, MtxLayout::bare, "b"), make(third, MtxLayout::tagged, "c")});
    EXPECT_EQ(reading.header(0).form, MtxForm::tagged);
    EXPECT_EQ(reading.header(1).form, MtxForm::bare);
    EXPECT_EQ(reading.header(1).dataType, DataType{20});
    EXPECT_EQ(reading.header(1).coefLow, second.coefLow);
    EXPECT_EQ(reading.header(2).field.geomag, 777);
    EXPECT_EQ(reading.mesh.xNode, third.xNode);
    EXPECT_EQ(reading.header(1).weightParamA, 0.5F);
    EXPECT_EQ(reading.header(2).weightParamA, 2.5F);
    EXPECT_EQ(reading.rowOffset, (std::vector<std::int64_t>{1, 3, 6, 8, 11, 11, 13, 14, 16, 19, 19, 21, 24, 26, 29}));
    reading.load();
    EXPECT_EQ(reading.rowIndices(1, 1), (std::vector<std::int32_t>{64}));
    EXPECT_EQ(reading.rowValues(2, 3), third.rows[3].value);
}

TEST_F(MtxStreamTest, rowMaxIsThatOfTheLastFile) {
    MtxContents first = numberedContents();
    first.rows[0] = {{1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}, false};
    MtxReading reading(2);
    reading.readFiles({make(first, MtxLayout::tagged), make(numberedContents(), MtxLayout::tagged, "b")});
    EXPECT_EQ(reading.longestRow, 3);
}

TEST_F(MtxStreamTest, denseRowsHoldAllPositionsAndSetRowMax) {
    MtxContents contents = numberedContents(4, {3, 5, 4}, {4, 8, 2});  // nPadTotal 128, above the 64 of the padded mesh
    contents.rows[0].index.assign(150, 7);                             // longer than a dense row: repeated indices
    contents.rows[0].value.assign(150, 0.5F);
    contents.rows[2].dense = true;
    contents.rows[2].value.resize(128);
    std::iota(contents.rows[2].value.begin(), contents.rows[2].value.end(), 0.5F);
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::tagged)});
    EXPECT_EQ(reading.longestRow, 128);
    EXPECT_EQ(reading.rowOffset.back(), 1 + 150 + 3 + 128 + 3);
    reading.load();
    std::vector<std::int32_t> counting(128);
    std::iota(counting.begin(), counting.end(), 1);
    EXPECT_EQ(reading.rowIndices(0, 2), counting);
    EXPECT_EQ(reading.rowValues(0, 2), contents.rows[2].value);
    EXPECT_EQ(reading.rowValues(0, 3), contents.rows[3].value);
}

TEST_F(MtxStreamTest, sparseRowsReadAtOnceAndDenseOnesBetweenThemAreTheRowsOfTheFile) {
    MtxContents contents = numberedContents(900, {3, 5, 4}, {4, 8, 2});
    std::mt19937 generator(71);
    for (std::size_t r = 0; r < contents.rows.size(); ++r) {
        MtxRow& row = contents.rows[r];
        // One dense row early, two together late; one row longer than what is read at once.
        row.dense = r == 3 || r == 700 || r == 701;
        const std::size_t length = row.dense ? 128 : (r == 500 ? 300'000 : 1 + generator() % 40);
        row.index.assign(row.dense ? 0 : length, 1 + static_cast<std::int32_t>(r) % 64);
        row.value.resize(length);
        std::iota(row.value.begin(), row.value.end(), static_cast<float>(r));
    }
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::tagged)});
    reading.load();
    for (std::size_t r = 0; r < contents.rows.size(); ++r) {
        ASSERT_EQ(reading.rowValues(0, r), contents.rows[r].value) << "row " << r;
        if (!contents.rows[r].dense) {
            ASSERT_EQ(reading.rowIndices(0, r), contents.rows[r].index) << "row " << r;
        }
    }
}

TEST_F(MtxStreamTest, aWrongIndexAfterManyRowsIsReportedWithItsByte) {
    MtxContents contents = numberedContents(600);
    contents.rows[555].index[1] = 65;
    const MtxPlaces places = writeMtx(folder.file("a.mtx"), contents, MtxLayout::tagged);
    MtxReading reading;
    reading.readFiles({folder.file("a.mtx")});
    EXPECT_EQ(runErrorOf([&] { reading.load(); }), folder.file("a.mtx") + ": byte " +
                                                       std::to_string(places.rowCount[555] + 8) +
                                                       ": expected a coefficient index within 1 to 64, found 65");
}

TEST_F(MtxStreamTest, loadingAnEmptyRowConsumesADenseOneAndMisreadsWhatFollows) {
    // Padded array of 4: the empty row 1 takes the four words after its count. Row 2's count is 2, so its five words
    // are 2, 3, 4, and the values; the fifth is then misread as row 2's count: chosen to be 1, an index and a value
    // follow in row 3.
    MtxContents contents = numberedContents(4, {2, 2, 1}, {2, 2, 1});
    const auto asFloat = [](std::int32_t bits) {
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    };
    contents.rows[0] = {{4, 1}, {1.5F, 2.5F}, false};
    contents.rows[1] = {{}, {}, false};
    contents.rows[2] = {{3, 4}, {-7.0F, asFloat(1)}, false};
    contents.rows[3] = {
        {2}, {asFloat(0x40800000)}, false};  // read as value of row 2's one coefficient: count 1 is its index
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::bare)});
    EXPECT_EQ(reading.rowOffset, (std::vector<std::int64_t>{1, 3, 3, 5, 6}));
    // Words from row 1's count: 0 | 2 3 4 -7 | count 1, index 1, value bits 2 | count 0x40800000: does not fit the
    // file.
    const std::string message = runErrorOf([&] { reading.load(); });
    EXPECT_NE(message.find("expected the coefficients of a row"), std::string::npos) << message;
    EXPECT_EQ(reading.rowIndices(0, 0), contents.rows[0].index);
    EXPECT_EQ(reading.rowValues(0, 0), contents.rows[0].value);
    EXPECT_EQ(reading.rowIndices(0, 2), (std::vector<std::int32_t>{1, 1}));
    EXPECT_EQ(reading.rowValues(0, 2), (std::vector<float>{asFloat(2), 0.0F}));
}

TEST_F(MtxStreamTest, anEmptyLastRowReadsIntoTheTailAndHarmsNothing) {
    MtxContents contents = numberedContents(4, {2, 2, 1}, {2, 2, 1});
    contents.rows[3] = {{}, {}, false};
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::bare)});
    reading.load();
    EXPECT_EQ(reading.rowValues(0, 2), contents.rows[2].value);
    EXPECT_TRUE(reading.rowValues(0, 3).empty());
    EXPECT_EQ(reading.gtgdiag, contents.gtgdiag);
}

TEST_F(MtxStreamTest, anEmptyRowWhoseDenseReadingRunsOverTheFileIsDamage) {
    MtxContents contents = numberedContents(4, {2, 2, 1}, {64, 64, 1});
    contents.rows[3] = {{}, {}, false};
    MtxReading reading;
    reading.readFiles({make(contents, MtxLayout::bare)});
    const std::string message = runErrorOf([&] { reading.load(); });
    EXPECT_NE(message.find("expected the values of a dense row (16384 bytes)"), std::string::npos) << message;
}

TEST_F(MtxStreamTest, laterFilesMustHaveTheCountsOfTheFirst) {
    const MtxContents first = numberedContents();
    EXPECT_EQ(mismatchOf(first, numberedContents(5)), MtxQuantity::data);
    for (const auto& mesh : {std::array{2, 5, 2}, {3, 4, 2}, {3, 5, 1}}) {
        EXPECT_EQ(mismatchOf(first, smallMtxContents(4, mesh, smallPadded)), MtxQuantity::cells);
    }
    for (const auto& padded : {std::array{8, 8, 2}, {4, 16, 2}, {4, 8, 4}}) {
        EXPECT_EQ(mismatchOf(first, smallMtxContents(4, smallMesh, padded)), MtxQuantity::paddedCells);
    }
    MtxContents second = first;
    second.coefLow.resize(6);
    second.coefHigh.resize(6);
    EXPECT_EQ(mismatchOf(first, second), MtxQuantity::filterLength);
}

TEST_F(MtxStreamTest, aMismatchIsReportedBeforeImpossibleCounts) {
    MtxContents second = numberedContents();
    second.nx = -5;
    EXPECT_EQ(mismatchOf(numberedContents(), second), MtxQuantity::cells);
}

TEST_F(MtxStreamTest, aBareFileThatBeginsWithTwentyIsNoRecordForm) {
    for (const auto& [nData, mesh] : {std::pair{4, smallMesh}, {30, std::array{2, 3, 5}}}) {
        MtxContents contents = smallMtxContents(nData, mesh, {4, 8, 8});
        contents.dataType = 20;
        const std::string name = make(contents, MtxLayout::bare);
        EXPECT_FALSE(isMtxRecordForm(name));
        MtxReading reading;
        reading.readFiles({name});
        EXPECT_EQ(reading.header().form, MtxForm::bare);
        EXPECT_EQ(reading.header().nData, nData);
        EXPECT_EQ(reading.header().dataType, DataType{20});
        EXPECT_EQ(reading.mesh.nx, mesh[1]);
    }
}

TEST_F(MtxStreamTest, aFileThatIsNotThereIsNamed) {
    MtxReading reading;
    const std::string name = folder.file("gone.mtx");
    EXPECT_FALSE(isMtxRecordForm(name));
    EXPECT_EQ(runErrorOf([&] { reading.readFiles({name}); }),
              name + ": the sensitivity file cannot be opened: No such file or directory");
}

}  // namespace
}  // namespace voxlith
