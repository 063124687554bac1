#include "sensitivity/gtg_diagonal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "base/messages.h"
#include "sensitivity/row_loading.h"
#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

class GtgDiagonalTest : public testing::Test {
protected:
    testing_support::TemporaryFolder folder;

    std::vector<double> diagonalOf(const MtxContents& contents) {
        const std::string name = folder.file("g.mtx");
        writeMtx(name, contents, MtxLayout::record);
        Sensitivity sensitivity;
        MtxInput& file = sensitivity.files[0];
        openMtxFile(file, name, true);
        readMtxDataCount(file, nullptr);
        readMtxMesh(file, nullptr, {}, {}, {});
        setMeshCounts(file.header, mesh);
        sizeMeshArrays(mesh);
        mesh.ubcTopo.resize(contents.topography.size());
        sensitivity.depthWeight.resize(mesh.cellCount());
        readMtxNodes(file, mesh, sensitivity.depthWeight);
        sensitivity.header.nData = file.header.nData;
        sensitivity.header.nCells = static_cast<std::int32_t>(file.header.nCells());
        sensitivity.filter = filter = {file.header.coefLow, mirrorTaps(file.header.coefLow)};
        sensitivity.gtgdiag.resize(mesh.cellCount());
        sensitivity.store.rowOffset.resize(static_cast<std::size_t>(file.header.nData) + 1);
        countRows(sensitivity, 0);
        computeGtgDiag(sensitivity, 0, mesh);
        return sensitivity.gtgdiag;
    }

    MeshGeometry mesh;
    WaveletFilter filter;
};

TEST_F(GtgDiagonalTest, withoutATransformTheDiagonalHasTheSquaresOfTheCoefficients) {
    // Padded extents of 4 and less are not transformed: position z + npz (x - 1) + npz npx (y - 1).
    MtxContents contents = smallMtxContents(2, {3, 2, 4}, {4, 3, 4});
    contents.rows[0] = {
        {1 + 4 * 1 + 12 * 2, 4 + 4 * 2 + 12 * 0}, {3.0F, 100.0F}, false};  // (1,2,3), and outside the mesh
    contents.rows[1] = {
        {1 + 4 * 1 + 12 * 2, 4, 4}, {0.5F, 9.0F, -2.0F}, false};  // a repeated index: the last value counts
    const std::vector<double> diagonal = diagonalOf(contents);
    for (std::size_t c = 0; c < diagonal.size(); ++c) {
        const double expected = c == mesh.cellIndex(0, 1, 2) ? 9.25 : (c == mesh.cellIndex(3, 0, 0) ? 4.0 : 0.0);
        EXPECT_EQ(diagonal[c], expected) << c;
    }
}

TEST_F(GtgDiagonalTest, isTheSumOfSquaresOfTheRowsAppliedToSingleCells) {
    // Element (r, cell) of G is the stored row times the forward transform of a model of 1 in that cell.
    constexpr unsigned seed = 77;
    std::mt19937 random(seed);
    MtxContents contents = smallMtxContents(5, {3, 7, 5}, {4, 8, 8});
    for (MtxRow& row : contents.rows) {
        row = {};
        for (std::int32_t position = 1; position <= 256; position += 1 + static_cast<std::int32_t>(random() % 9)) {
            row.index.push_back(position);
            row.value.push_back(static_cast<float>(random() % 2000) / 1000.0F - 1.0F);
        }
    }
    const std::vector<double> diagonal = diagonalOf(contents);
    const PaddedExtents extents = paddedExtentsOf(mesh);
    std::vector<double> work(waveletWorkSize(extents));
    std::vector<double> padded(extents.total());
    std::vector<double> model(mesh.cellCount(), 0.0);
    for (std::size_t c = 0; c < model.size(); ++c) {
        model[c] = 1.0;
        padCells(model, {}, mesh, padded);
        model[c] = 0.0;
        waveletTransform3D(padded, extents, filter, WaveletDirection::forward, work);
        double sum = 0;
        for (const MtxRow& row : contents.rows) {
            double element = 0;
            for (std::size_t k = 0; k < row.index.size(); ++k) {
                element += static_cast<double>(row.value[k]) * padded[static_cast<std::size_t>(row.index[k]) - 1];
            }
            sum += element * element;
        }
        EXPECT_NEAR(diagonal[c], sum, 1e-12 * (1 + sum)) << "cell " << c << " seed " << seed;
    }
}

TEST_F(GtgDiagonalTest, surfaceStylesRepeatTheLastLayerDownTheColumn) {
    MtxContents contents = smallMtxContents(2, {3, 5, 4}, {4, 8, 2});
    const std::vector<double> diagonal = diagonalOf(contents);
    for (std::size_t j = 0; j < 3; ++j) {
        for (std::size_t i = 0; i < 5; ++i) {
            EXPECT_EQ(diagonal[mesh.cellIndex(2, i, j)], diagonal[mesh.cellIndex(1, i, j)]);
            EXPECT_EQ(diagonal[mesh.cellIndex(3, i, j)], diagonal[mesh.cellIndex(1, i, j)]);
        }
    }
}

TEST_F(GtgDiagonalTest, emptyRowsAddNothing) {
    MtxContents contents = smallMtxContents(3, {3, 5, 4}, {4, 8, 4});
    for (MtxRow& row : contents.rows) {
        row = {};
    }
    EXPECT_EQ(diagonalOf(contents), std::vector<double>(60, 0.0));
}

TEST_F(GtgDiagonalTest, anIndexOutsideThePaddedArrayIsDamage) {
    MtxContents contents = smallMtxContents(3, {3, 5, 4}, {4, 8, 4});
    contents.rows[1].index[1] = 129;
    std::string message;
    try {
        diagonalOf(contents);
    } catch (const RunError& error) {
        message = error.what();
    }
    EXPECT_NE(message.find("expected a coefficient index within 1 to 128, found 129"), std::string::npos) << message;
}

}  // namespace
}  // namespace voxlith
