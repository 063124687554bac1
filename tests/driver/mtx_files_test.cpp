// The pass over the sensitivity files of a run: what is logged, compared between files, and kept of which file.
#include "driver/mtx_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

constexpr std::array<std::int32_t, 3> smallMesh{3, 5, 2};
constexpr std::array<std::int32_t, 3> smallPadded{4, 8, 2};

MtxContents contentsOf(std::int32_t nData = 4, std::array<std::int32_t, 3> mesh = smallMesh,
                       std::array<std::int32_t, 3> padded = smallPadded) {
    MtxContents contents = smallMtxContents(nData, mesh, padded);
    contents.weightParamA = 2.5F;
    contents.weightParamB = -1.25F;
    return contents;
}

class MtxFilesTest : public testing::Test {
protected:
    testing_support::TemporaryFolder folder;

    void add(RunState& run, const MtxContents& contents, MtxLayout layout, const std::string& name) {
        writeMtx(folder.file(name), contents, layout);
        run.control.mtxFileText[count_++] = folder.file(name);
        run.control.nMtx = static_cast<std::int32_t>(count_);
    }

    // Reads the files of the run, with a log.
    void read(RunState& run) {
        count_ = 0;
        ASSERT_TRUE(openLineFile(run.messages.log, folder.file("log"), LineFileMode::create));
        readMtxFiles(run);
    }

    // Screen and log of a run whose second file does not match the first.
    std::pair<std::string, std::string> textsOfMismatch(const MtxContents& first, const MtxContents& second,
                                                        MtxLayout secondLayout = MtxLayout::tagged) {
        RunState run;
        add(run, first, MtxLayout::tagged, "a.mtx");
        add(run, second, secondLayout, "b.mtx");
        testing::internal::CaptureStdout();
        EXPECT_THROW(read(run), PlainStop);
        EXPECT_FALSE(isOpen(run.messages.log));
        return {testing::internal::GetCapturedStdout(), folder.read("log")};
    }

private:
    std::size_t count_ = 0;
};

TEST_F(MtxFilesTest, logsVersionsAndDataTypes) {
    MtxContents second = contentsOf();
    second.dataType = 20;
    RunState run;
    add(run, contentsOf(), MtxLayout::tagged, "a.mtx");
    add(run, second, MtxLayout::bare, "b.mtx");
    add(run, contentsOf(), MtxLayout::tagged, "c.mtx");
    read(run);
    EXPECT_EQ(folder.read("log"),
              " MTX version:   2\n Data type 1: Gz\n MTX version: 0\n Data type 2: Tx\n MTX version:   2\n Data type "
              "3: Gz\n");
}

TEST_F(MtxFilesTest, logsAsterisksForAVersionThatDoesNotFitItsColumns) {
    for (const auto& [version, text] : {std::pair{100, "100"}, {-12, "-12"}, {1234, "***"}}) {
        MtxContents contents = contentsOf();
        contents.version = version;
        RunState run;
        add(run, contents, MtxLayout::tagged, "a.mtx");
        read(run);
        EXPECT_EQ(folder.read("log"), std::string(" MTX version: ") + text + "\n Data type 1: Gz\n");
        EXPECT_EQ(run.sensitivity.header.version, version);
    }
}

TEST_F(MtxFilesTest, logsTheVersionBeforeDamageEndsTheRun) {
    writeFileBytes(folder.file("cut.mtx"), {'V', 'X', '3', 'D', 2, 0, 0, 0, 9});
    RunState run;
    run.control.mtxFileText[0] = folder.file("cut.mtx");
    EXPECT_THROW(read(run), RunError);
    EXPECT_EQ(folder.read("log"), " MTX version:   2\n");
}

TEST_F(MtxFilesTest, aMismatchStopsWithTheLongerTextInTheLog) {
    const std::string head = " MTX version:   2\n Data type 1: Gz\n MTX version:   2\n Data type 2: Gz\n";
    const std::string data = "Error: the number of data for the second mtx file is different to the first\n";
    EXPECT_EQ(textsOfMismatch(contentsOf(), contentsOf(5)), std::pair(data, head + data));
    EXPECT_EQ(textsOfMismatch(contentsOf(), contentsOf(4, {3, 4, 2})),
              std::pair(std::string("Error: the number of mesh for the second mtx file is different to the first\n"),
                        head + "Error: the number of mesh cells for the second mtx file is different to the first\n"));
    EXPECT_EQ(
        textsOfMismatch(contentsOf(), contentsOf(4, smallMesh, {8, 8, 2})),
        std::pair(std::string("Error: the number of padded mesh for the second mtx file is different to the first\n"),
                  head + "Error: the number of padded mesh cells for the second mtx file is different to the first\n"));
    MtxContents longer = contentsOf();
    longer.coefLow.resize(6);
    longer.coefHigh.resize(6);
    const std::string filter =
        "Error: the number of wavelet coefficients for the second mtx file is different to the first\n";
    EXPECT_EQ(textsOfMismatch(contentsOf(), longer), std::pair(filter, head + filter));
}

TEST_F(MtxFilesTest, withTwoFilesTheRecordFormIsReadAsBare) {
    EXPECT_EQ(
        textsOfMismatch(contentsOf(), contentsOf(), MtxLayout::record),
        std::pair(std::string("Error: the number of mesh for the second mtx file is different to the first\n"),
                  std::string(" MTX version:   2\n Data type 1: Gz\n MTX version: 0\n Data type 2: Tx\nError: the "
                              "number of mesh cells for the second mtx file is different to the first\n")));
}

TEST_F(MtxFilesTest, fieldNodesAndFilterOfTheLastFileStand) {
    MtxContents second = contentsOf();
    second.geomag = 777;
    second.idir = 3;
    MtxContents third = contentsOf();  // bare: without a field
    third.xNode.assign(6, 42.0);
    third.coefLow.assign(4, 0.125F);
    third.coefHigh.assign(4, -0.5F);
    third.weightParamA = 0.5F;
    third.stations[2].x = 1e6;
    RunState run;
    add(run, contentsOf(), MtxLayout::tagged, "a.mtx");
    add(run, second, MtxLayout::tagged, "b.mtx");
    add(run, third, MtxLayout::bare, "c.mtx");
    read(run);
    EXPECT_EQ(run.obs.geomag, 777);
    EXPECT_EQ(run.obs.idir, 3);
    EXPECT_EQ(run.obs.ObsX[2], second.stations[2].x);
    EXPECT_EQ(run.mesh.xNode, third.xNode);
    EXPECT_EQ(run.mesh.xWidth, std::vector<double>(5, 0.0));
    EXPECT_EQ(run.sensitivity.filter.coefLow, third.coefLow);
    EXPECT_EQ(run.sensitivity.filter.coefHigh, third.coefHigh);
    EXPECT_EQ(run.sensitivity.header.weightParamA[0], 2.5F);
    EXPECT_EQ(run.sensitivity.header.weightParamA[2], 0.5F);
    EXPECT_EQ(run.sensitivity.header.weightParamB[2], -1.25F);
    EXPECT_EQ(run.sensitivity.header.coefficientCount[1], 10);
    EXPECT_EQ(run.sensitivity.store.rowOffset.back(), 31);
    EXPECT_TRUE(run.sensitivity.foldDepthWeight);
}

TEST_F(MtxFilesTest, theStyleOfTheLastFileThatHoldsOneStands) {
    MtxContents first = contentsOf(4, {3, 5, 4}, {4, 8, 1});
    first.inversionStyle = 2;
    MtxContents second = first;
    second.inversionStyle = 4;
    MtxContents third = first;
    third.version = 1;
    RunState run;
    add(run, first, MtxLayout::tagged, "a.mtx");
    add(run, second, MtxLayout::tagged, "b.mtx");
    add(run, third, MtxLayout::tagged, "c.mtx");
    read(run);
    EXPECT_EQ(run.sensitivity.header.inversionStyle, InversionStyle{4});
    EXPECT_EQ(run.sensitivity.header.version, 1);
    EXPECT_EQ(run.mesh.nzl, 1);
}

TEST_F(MtxFilesTest, coefficientsAreInTheStoreAndTheFilesClosed) {
    const MtxContents contents = contentsOf();
    RunState run;
    add(run, contents, MtxLayout::tagged, "a.mtx");
    read(run);
    const RawRow row = rawRowOf(run.sensitivity.store, 3);
    EXPECT_EQ(std::vector<std::int32_t>(row.coefIndex.begin(), row.coefIndex.end()), contents.rows[3].index);
    EXPECT_EQ(run.sensitivity.files[0].input.handle, -1);
    EXPECT_EQ(run.sensitivity.gtgdiag, contents.gtgdiag);
    EXPECT_EQ(run.sensitivity.layerResponse, contents.layerResponse);
}

TEST_F(MtxFilesTest, aRecordFormGetsItsHighPassFilterAndItsDiagonal) {
    for (const std::size_t length : {1U, 2U, 5U, 24U}) {
        MtxContents contents = smallMtxContents(4, {3, 5, 4}, {4, 8, 2});
        contents.coefLow.resize(length);
        for (std::size_t k = 0; k < length; ++k) {
            contents.coefLow[k] = 1.5F + static_cast<float>(k);
        }
        RunState run;
        run.obs.geomag = 5;
        add(run, contents, MtxLayout::record, "r.mtx");
        read(run);
        EXPECT_EQ(folder.read("log"), " Data type 1: Gz\n");
        EXPECT_EQ(run.obs.geomag, 5);
        EXPECT_EQ(run.sensitivity.header.inversionStyle, InversionStyle{3});
        EXPECT_EQ(run.sensitivity.header.nPadTotal, 64) << "without the larger of npz and nz";
        EXPECT_EQ(run.mesh.ubcTopo, contents.topography);
        EXPECT_GT(*std::ranges::max_element(run.sensitivity.gtgdiag), 0.0);
        const std::vector<float>& high = run.sensitivity.filter.coefHigh;
        ASSERT_EQ(high.size(), length);
        float sign = -1;
        for (std::size_t k = 0; k < length; ++k, sign = -sign) {
            EXPECT_EQ(high[length - 1 - k], sign * contents.coefLow[k]) << length << ' ' << k;
        }
    }
}

}  // namespace
}  // namespace voxlith
