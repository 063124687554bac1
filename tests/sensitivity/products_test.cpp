#include "sensitivity/products.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "base/messages.h"
#include "sensitivity/rows/row_kernels.h"
#include "support/dot.h"
#include "support/instruction_sets.h"
#include "support/random_sensitivity.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::daubechies;
using testing_support::dot;
using testing_support::filterOf;
using testing_support::InstructionSetLimit;
using testing_support::meshOf;
using testing_support::prepareSensitivity;
using testing_support::randomRows;
using testing_support::randomVector;
using testing_support::rowBytes;
using testing_support::setsOfThisMachine;
using testing_support::StoredRow;
using testing_support::storeRowsInMemory;
using testing_support::TemporaryFolder;

double norm(const std::vector<double>& a) {
    return std::sqrt(dot(a, a));
}

std::vector<float> randomErrors(std::size_t n, std::mt19937& random) {
    std::vector<float> errors(n);
    for (float& error : errors) {
        error = 0.5F + static_cast<float>(random() % 100) * 0.01F;
    }
    return errors;
}

std::vector<double> forward(Sensitivity& sensitivity, const MeshGeometry& mesh, const std::vector<double>& model,
                            std::size_t mtx = 0, const std::vector<float>& obsStd = {}) {
    std::vector<double> out(static_cast<std::size_t>(sensitivity.header.nData), -7.0);
    OverheadTimers timers;
    modelProduct(sensitivity, mesh, model, out, mtx, obsStd, timers);
    return out;
}

std::vector<double> transpose(Sensitivity& sensitivity, const MeshGeometry& mesh, const std::vector<double>& residual,
                              std::size_t mtx = 0, const std::vector<float>& obsStd = {}) {
    std::vector<double> gradient(mesh.cellCount(), -7.0);
    OverheadTimers timers;
    transposeProduct(sensitivity, mesh, residual, gradient, mtx, obsStd, timers);
    return gradient;
}

// Writes the rows of file `mtx` after some other bytes.
void openRowsOnDisk(Sensitivity& sensitivity, const TemporaryFolder& folder, std::size_t mtx,
                    const std::vector<StoredRow>& rows, const std::string& behind = std::string(64, '\7')) {
    const bool framed = sensitivity.files[mtx].header.form == MtxForm::record;
    const std::string name = folder.write("rows" + std::to_string(mtx), "some head" + rowBytes(rows, framed) + behind);
    ASSERT_TRUE(openBinaryInput(sensitivity.files[mtx].input, name));
    sensitivity.files[mtx].rowStart = 9;
    sensitivity.idisk = 1;
}

struct Shape {
    std::array<std::int32_t, 3> cells;
    std::array<std::int32_t, 3> padded;
};

const Shape manyShapes[] = {{{1, 5, 7}, {1, 8, 16}},   {{2, 13, 6}, {2, 16, 8}},  {{3, 3, 9}, {4, 4, 16}},
                            {{7, 6, 11}, {8, 8, 16}},  {{12, 9, 4}, {16, 16, 4}}, {{30, 5, 5}, {32, 8, 8}},
                            {{64, 2, 3}, {64, 2, 4}},  {{5, 6, 7}, {1, 8, 8}},    {{6, 9, 3}, {4, 16, 4}},
                            {{20, 7, 17}, {32, 8, 32}}};

TEST(Products, AreAdjointWhenFolded) {
    std::mt19937 random(101);
    const WaveletFilter filters[] = {daubechies(4), daubechies(6), daubechies(8), filterOf({0.3F, -1.7F, 0.9F, 2.1F}),
                                     filterOf({0.7F, 0.71F})};
    for (const Shape& shape : manyShapes) {
        for (const WaveletFilter& filter : filters) {
            const MeshGeometry mesh = meshOf(shape.cells, shape.padded);
            Sensitivity sensitivity;
            prepareSensitivity(sensitivity, mesh, 19, 1, filter);
            // Where layers are spread down the columns, cropping is not the transpose of padding: see below.
            const bool spread = mesh.nz > mesh.npz;
            storeRowsInMemory(sensitivity, {randomRows(19, paddedExtentsOf(mesh).total(), 60, random, 4)});
            const std::vector<double> m = randomVector(mesh.cellCount(), random);
            const std::vector<double> r = randomVector(19, random);
            for (const bool blocked : {false, true}) {
                if (blocked) {
                    buildBlockedRows(sensitivity);
                }
                const std::vector<double> gm = forward(sensitivity, mesh, m);
                std::vector<double> gr = transpose(sensitivity, mesh, r);
                for (std::size_t cell = 0; spread && cell < gr.size(); ++cell) {
                    if (cell % static_cast<std::size_t>(mesh.nz) >= static_cast<std::size_t>(mesh.npz)) {
                        gr[cell] = 0.0;
                    }
                }
                EXPECT_NEAR(dot(gm, r), dot(m, gr), 1e-12 * (norm(gm) * norm(r) + norm(m) * norm(gr)))
                    << "nz " << mesh.nz << ", npz " << mesh.npz << ", taps " << filter.coefLow.size()
                    << (blocked ? ", blocked" : ", raw");
            }
        }
    }
}

TEST(Products, ProductOfOneCoefficientByHand) {
    // No axis is transformed, so a coefficient is a cell: position 2 + 2 (1) + 2 * 4 (2) is cell (2, 2, 3).
    const MeshGeometry mesh = meshOf({2, 3, 4}, {2, 4, 4});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 3, 1, daubechies(4));
    storeRowsInMemory(sensitivity, {{{1, {2 + 2 * 1 + 8 * 2}, {0.5F}}, {0, {}, {}}, {2, {1, 20}, {3.0F, 2.0F}}}});
    std::vector<double> model(mesh.cellCount());
    std::iota(model.begin(), model.end(), 1.0);
    const double cell = model[mesh.cellIndex(1, 1, 2)];
    EXPECT_EQ(forward(sensitivity, mesh, model), (std::vector<double>{0.5 * cell, 0.0, 3.0 * 1.0 + 2.0 * cell}));
    const std::vector<double> gradient = transpose(sensitivity, mesh, {4.0, 100.0, 10.0});
    std::vector<double> expected(mesh.cellCount(), 0.0);
    expected[mesh.cellIndex(1, 1, 2)] = 0.5 * 4.0 + 2.0 * 10.0;
    expected[0] = 30.0;
    EXPECT_EQ(gradient, expected);
}

TEST(Products, CoefficientsOutsideTheMeshActThroughTheTransformOnly) {
    const MeshGeometry mesh = meshOf({2, 3, 3}, {2, 4, 4});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 1, 1, daubechies(4));
    storeRowsInMemory(sensitivity, {{{1, {1 + 2 * 3}, {5.0F}}}});
    EXPECT_EQ(forward(sensitivity, mesh, std::vector<double>(18, 1.0)), std::vector<double>{0.0});
    EXPECT_EQ(transpose(sensitivity, mesh, {1.0}), std::vector<double>(18, 0.0));
}

TEST(Products, DenseRowsWorkInMemory) {
    std::mt19937 random(103);
    const MeshGeometry mesh = meshOf({7, 8, 5}, {8, 8, 8});
    const std::size_t positions = paddedExtentsOf(mesh).total();
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 1, 1, daubechies(6));
    StoredRow dense;
    for (std::size_t p = 0; p < positions; ++p) {
        dense.index.push_back(static_cast<std::int32_t>(p) + 1);
        dense.value.push_back(static_cast<float>(randomVector(1, random)[0]));
    }
    storeRowsInMemory(sensitivity, {{dense}});
    const std::vector<double> m = randomVector(mesh.cellCount(), random);
    std::vector<double> padded(positions);
    std::vector<double> work(waveletWorkSize(paddedExtentsOf(mesh)));
    padCells(m, {}, mesh, padded);
    waveletTransform3D(padded, paddedExtentsOf(mesh), sensitivity.filter, WaveletDirection::forward, work);
    double sum = 0.0;
    for (std::size_t p = 0; p < positions; ++p) {
        sum += static_cast<double>(dense.value[p]) * padded[p];
    }
    EXPECT_NEAR(forward(sensitivity, mesh, m)[0], sum, 1e-12 * std::abs(sum));
}

// Positions after the padded mesh: each transposed product adds to the values there, and products with models use them.
TEST(Products, DenseRowsOfSurfaceStylesUseValuesOfEarlierTransposedProducts) {
    std::mt19937 random(104);
    const MeshGeometry mesh = meshOf({5, 3, 2}, {2, 4, 2});
    const std::size_t inMesh = paddedExtentsOf(mesh).total();
    for (const bool blocked : {false, true}) {
        Sensitivity sensitivity;
        prepareSensitivity(sensitivity, mesh, 2, 1, daubechies(4));
        ASSERT_EQ(sensitivity.paddedWork.size(), 40U);
        std::vector<StoredRow> rows(2);
        for (StoredRow& row : rows) {
            for (std::size_t p = 0; p < sensitivity.paddedWork.size(); ++p) {
                row.index.push_back(static_cast<std::int32_t>(p) + 1);
                row.value.push_back(static_cast<float>(random() % 64) - 31.5F);
            }
        }
        storeRowsInMemory(sensitivity, {rows});
        if (blocked) {
            buildBlockedRows(sensitivity);
        }
        const std::vector<double> model = randomVector(mesh.cellCount(), random);
        std::vector<double> expected = forward(sensitivity, mesh, model);  // nothing is left behind the mesh yet
        transpose(sensitivity, mesh, {1.0, 2.0});
        transpose(sensitivity, mesh, {-4.0, 0.5});
        for (std::size_t r = 0; r < 2; ++r) {
            for (std::size_t p = inMesh; p < sensitivity.paddedWork.size(); ++p) {
                const double left = (1.0 - 4.0) * static_cast<double>(rows[0].value[p]) +
                                    (2.0 + 0.5) * static_cast<double>(rows[1].value[p]);
                expected[r] += static_cast<double>(rows[r].value[p]) * left;
            }
        }
        const std::vector<double> got = forward(sensitivity, mesh, model);
        for (std::size_t r = 0; r < 2; ++r) {
            EXPECT_NEAR(got[r], expected[r], 1e-12 * std::abs(expected[r])) << (blocked ? "blocked" : "raw");
        }
    }
}

TEST(Products, WithoutFoldingForwardTakesTheFirstWeightAndTransposeItsOwn) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 1, 2, daubechies(4));
    const std::vector<StoredRow> rows{{1, {3}, {2.0F}}};
    storeRowsInMemory(sensitivity, {rows, rows});
    sensitivity.foldDepthWeight = false;
    sensitivity.depthWeight = {1, 2, 3, 4, 5, 6, 7, 8, 10, 20, 30, 40, 50, 60, 70, 80};
    std::vector<double> model(8, 0.0);
    model[2] = 5.0;
    for (const std::size_t mtx : {0U, 1U}) {
        EXPECT_EQ(forward(sensitivity, mesh, model, mtx)[0], 2.0 * 3.0 * 5.0) << mtx;
        EXPECT_EQ(transpose(sensitivity, mesh, {1.0}, mtx)[2], 2.0 * (mtx == 0 ? 3.0 : 30.0)) << mtx;
    }
}

TEST(Products, DiskEqualsMemory) {
    std::mt19937 random(107);
    for (const bool recordForm : {false, true}) {
        for (const Shape& shape : manyShapes) {
            const MeshGeometry mesh = meshOf(shape.cells, shape.padded);
            Sensitivity memory;
            Sensitivity disk;
            const std::size_t nMtx = recordForm ? 1 : 2;
            std::vector<std::vector<StoredRow>> files;
            for (std::size_t mtx = 0; mtx < nMtx; ++mtx) {
                files.push_back(randomRows(15, paddedExtentsOf(mesh).total(), mtx == 0 ? 90 : 20, random, 3));
            }
            prepareSensitivity(memory, mesh, 15, static_cast<std::int32_t>(nMtx), daubechies(4));
            prepareSensitivity(disk, mesh, 15, static_cast<std::int32_t>(nMtx), daubechies(4));
            disk.files[0].header.form = recordForm ? MtxForm::record : MtxForm::bare;
            storeRowsInMemory(memory, files);
            ObsSet obs;
            obs.nData = 15;
            obs.nDataTypes = 2;
            obs.obsStd = randomErrors(30, random);
            buildBlockedRows(memory, obs.obsStd);
            TemporaryFolder folder;
            for (std::size_t mtx = 0; mtx < nMtx; ++mtx) {
                openRowsOnDisk(disk, folder, mtx, files[mtx]);
            }
            for (std::size_t mtx = 0; mtx < nMtx; ++mtx) {
                const std::vector<float> column(obs.obsStd.begin() + static_cast<std::ptrdiff_t>(15 * mtx),
                                                obs.obsStd.begin() + static_cast<std::ptrdiff_t>(15 * mtx + 15));
                const std::vector<double> m = randomVector(mesh.cellCount(), random);
                const std::vector<double> r = randomVector(15, random);
                for (int time = 0; time < 2; ++time) {
                    const std::vector<double> gm = forward(memory, mesh, m, mtx);
                    const std::vector<double> gmDisk = forward(disk, mesh, m, mtx, column);
                    for (std::size_t i = 0; i < gm.size(); ++i) {
                        EXPECT_NEAR(gm[i], gmDisk[i], 1e-6 * norm(gm)) << mesh.npz << ' ' << i;
                    }
                    const std::vector<double> gr = transpose(memory, mesh, r, mtx);
                    const std::vector<double> grDisk = transpose(disk, mesh, r, mtx, column);
                    for (std::size_t i = 0; i < gr.size(); ++i) {
                        EXPECT_NEAR(gr[i], grDisk[i], 1e-6 * norm(gr)) << mesh.npz << ' ' << i;
                    }
                }
            }
        }
    }
}

TEST(Products, DiskIsAdjointAndDividesInDoublePrecision) {
    std::mt19937 random(109);
    const MeshGeometry mesh = meshOf({5, 6, 9}, {8, 8, 16});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 12, 1, daubechies(8));
    TemporaryFolder folder;
    const std::vector<StoredRow> rows = randomRows(12, 1024, 40, random);
    openRowsOnDisk(sensitivity, folder, 0, rows);
    const std::vector<float> obsStd = randomErrors(12, random);
    const std::vector<double> m = randomVector(mesh.cellCount(), random);
    const std::vector<double> r = randomVector(12, random);
    const std::vector<double> gm = forward(sensitivity, mesh, m, 0, obsStd);
    const std::vector<double> gr = transpose(sensitivity, mesh, r, 0, obsStd);
    EXPECT_NEAR(dot(gm, r), dot(m, gr), 1e-12 * (norm(gm) * norm(r) + norm(m) * norm(gr)));

    Sensitivity unscaled;
    prepareSensitivity(unscaled, mesh, 12, 1, daubechies(8));
    storeRowsInMemory(unscaled, {rows});
    const std::vector<double> plain = forward(unscaled, mesh, m);
    for (std::size_t i = 0; i < 12; ++i) {
        EXPECT_EQ(gm[i], plain[i] / static_cast<double>(obsStd[i])) << i;
    }
}

TEST(Products, ErrorOfZeroDividesOnDisk) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 2, 1, daubechies(4));
    TemporaryFolder folder;
    openRowsOnDisk(sensitivity, folder, 0, {{1, {1}, {2.0F}}, {1, {2}, {3.0F}}});
    const std::vector<float> obsStd{0.0F, 2.0F};
    const std::vector<double> out = forward(sensitivity, mesh, std::vector<double>(8, 1.0), 0, obsStd);
    EXPECT_TRUE(std::isinf(out[0]));
    EXPECT_EQ(out[1], 1.5);
    // A masked datum has the residual 0 and does not contribute.
    const std::vector<double> masked = transpose(sensitivity, mesh, {0.0, 1.0}, 0, obsStd);
    EXPECT_EQ(masked[0], 0.0);
    EXPECT_EQ(masked[1], 1.5);
    EXPECT_TRUE(std::isinf(transpose(sensitivity, mesh, {1.0, 1.0}, 0, obsStd)[0]));
}

TEST(Products, NegativeCountOnDiskGivesZeroAndItsValuesAreReadAsTheNextRow) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 3, 1, daubechies(4));
    TemporaryFolder folder;
    // The values after the dense row's count happen to read as: an empty row (0.0), a row of 1 coefficient (the
    // smallest denormal), its index 5 and its value.
    const StoredRow dense{-1, {}, {0.0F, 0x1p-149F, 0x1.4p-147F, 2.5F, 9.0F, 9.0F, 9.0F, 9.0F}};
    openRowsOnDisk(sensitivity, folder, 0, {dense});
    const std::vector<float> obsStd(3, 1.0F);
    EXPECT_EQ(forward(sensitivity, mesh, {1, 2, 3, 4, 5, 6, 7, 8}, 0, obsStd), (std::vector<double>{0.0, 0.0, 12.5}));
    EXPECT_EQ(transpose(sensitivity, mesh, {10.0, 10.0, 2.0}, 0, obsStd),
              (std::vector<double>{0, 0, 0, 0, 5, 0, 0, 0}));
}

TEST(Products, LongerRowOfAnEarlierFileEnlargesTheBuffer) {
    std::mt19937 random(113);
    const MeshGeometry mesh = meshOf({4, 8, 8}, {4, 8, 8});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 5, 2, daubechies(4));
    const std::vector<std::vector<StoredRow>> files{randomRows(5, 256, 200, random), randomRows(5, 256, 3, random)};
    // The store of a run after both files are scanned: space for the longest row of the last.
    sensitivity.store.rowMax = 3;
    reserveStore(sensitivity.store, 3, 0);
    TemporaryFolder folder;
    openRowsOnDisk(sensitivity, folder, 0, files[0]);
    openRowsOnDisk(sensitivity, folder, 1, files[1]);
    // As if every row were longer than what is read ahead: only such rows need the buffer.
    setReadAhead(sensitivity.files[0].input, 4);
    setReadAhead(sensitivity.files[1].input, 4);
    Sensitivity memory;
    prepareSensitivity(memory, mesh, 5, 2, daubechies(4));
    storeRowsInMemory(memory, files);
    const std::vector<float> obsStd(5, 1.0F);
    const std::vector<double> m = randomVector(256, random);
    for (const std::size_t mtx : {1U, 0U, 1U}) {
        EXPECT_EQ(forward(sensitivity, mesh, m, mtx, obsStd), forward(memory, mesh, m, mtx)) << mtx;
    }
    const std::vector<std::int32_t>::size_type longest =
        std::max_element(files[0].begin(), files[0].end(), [](const StoredRow& a, const StoredRow& b) {
            return a.count < b.count;
        })->index.size();
    EXPECT_GE(sensitivity.store.capacity, static_cast<std::int64_t>(longest));
}

std::string damageMessage(Sensitivity& sensitivity, const MeshGeometry& mesh, bool forwards) {
    const std::vector<float> obsStd(static_cast<std::size_t>(sensitivity.header.nData), 1.0F);
    try {
        if (forwards) {
            forward(sensitivity, mesh, std::vector<double>(mesh.cellCount(), 1.0), 0, obsStd);
        } else {
            transpose(sensitivity, mesh, std::vector<double>(obsStd.size(), 1.0), 0, obsStd);
        }
    } catch (const RunError& error) {
        return error.what();
    }
    return "";
}

TEST(Products, DamageOnDiskIsReported) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    const std::vector<std::vector<StoredRow>> damaged{
        {{1, {0}, {1.0F}}},                     // index below the first position
        {{2, {1, 9}, {1.0F, 1.0F}}},            // index after the last
        {{1, {-2147483647 - 1}, {1.0F}}},       // far below
        {{2147483647, {1}, {1.0F}}},            // count that cannot be
        {{1, {1}, {1.0F}}, {50, {1}, {1.0F}}},  // count that does not fit the file
    };
    for (const bool recordForm : {false, true}) {
        for (std::size_t i = 0; i < damaged.size(); ++i) {
            Sensitivity sensitivity;
            prepareSensitivity(sensitivity, mesh, static_cast<std::int32_t>(damaged[i].size()), 1, daubechies(4));
            sensitivity.files[0].header.form = recordForm ? MtxForm::record : MtxForm::bare;
            TemporaryFolder folder;
            openRowsOnDisk(sensitivity, folder, 0, damaged[i]);
            for (const bool forwards : {true, false}) {
                EXPECT_NE(damageMessage(sensitivity, mesh, forwards).find("rows0: byte "), std::string::npos) << i;
            }
        }
    }
}

TEST(Products, RowsCutShortAtAnyByteAreReported) {
    std::mt19937 random(127);
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    const std::vector<StoredRow> rows = randomRows(4, 8, 5, random);
    TemporaryFolder folder;
    for (const bool recordForm : {false, true}) {
        const std::string whole = rowBytes(rows, recordForm);
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            Sensitivity sensitivity;
            prepareSensitivity(sensitivity, mesh, 4, 1, daubechies(4));
            sensitivity.files[0].header.form = recordForm ? MtxForm::record : MtxForm::bare;
            sensitivity.idisk = 1;
            ASSERT_TRUE(openBinaryInput(sensitivity.files[0].input, folder.write("cut", whole.substr(0, length))));
            for (const bool forwards : {true, false}) {
                EXPECT_EQ(damageMessage(sensitivity, mesh, forwards).empty(), length == whole.size()) << length;
            }
        }
    }
}

TEST(Products, RecordsThatDoNotCloseAreReported) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    const std::string sound = rowBytes({{1, {1}, {1.0F}}}, true);
    TemporaryFolder folder;
    for (const std::size_t byte : {std::size_t{0}, std::size_t{3}, sound.size() - 4, sound.size() - 1}) {
        std::string bytes = sound;
        bytes[byte] = static_cast<char>(bytes[byte] ^ 0x41);
        Sensitivity sensitivity;
        prepareSensitivity(sensitivity, mesh, 1, 1, daubechies(4));
        sensitivity.files[0].header.form = MtxForm::record;
        sensitivity.idisk = 1;
        ASSERT_TRUE(
            openBinaryInput(sensitivity.files[0].input, folder.write("record", bytes + std::string(100, '\0'))));
        EXPECT_NE(damageMessage(sensitivity, mesh, true), "") << byte;
    }
}

TEST(Products, TimersCountMemoryPassesInMemoryOnly) {
    std::mt19937 random(131);
    const MeshGeometry mesh = meshOf({8, 8, 8}, {8, 8, 8});
    const std::vector<StoredRow> rows = randomRows(200, 512, 400, random);
    for (const bool onDisk : {false, true}) {
        Sensitivity sensitivity;
        prepareSensitivity(sensitivity, mesh, 200, 1, daubechies(4));
        TemporaryFolder folder;
        if (onDisk) {
            openRowsOnDisk(sensitivity, folder, 0, rows);
        } else {
            storeRowsInMemory(sensitivity, {rows});
        }
        const std::vector<float> obsStd(200, 1.0F);
        const std::vector<double> model(512, 1.0);
        std::vector<double> out(200);
        std::vector<double> gradient(512);
        OverheadTimers timers;
        modelProduct(sensitivity, mesh, model, out, 0, obsStd, timers);
        EXPECT_GT(timers.products, 0.0);
        EXPECT_EQ(timers.matrixPass > 0.0, !onDisk);
        EXPECT_EQ(timers.transposePass, 0.0);
        transposeProduct(sensitivity, mesh, out, gradient, 0, obsStd, timers);
        EXPECT_EQ(timers.transposePass > 0.0, !onDisk);
        EXPECT_GE(timers.products, timers.matrixPass + timers.transposePass);
        EXPECT_EQ(timers.gtgProduct, 0.0);
    }
}

std::vector<std::int32_t> bitsOf(const std::vector<float>& values) {
    std::vector<std::int32_t> bits;
    for (const float value : values) {
        bits.push_back(std::bit_cast<std::int32_t>(value));
    }
    return bits;
}

TEST(RowKernels, SumInEightLanesAddedInOneTree) {
    for (const InstructionSet set : setsOfThisMachine()) {
        const InstructionSetLimit limit(set);
        // Coefficients 1 and 9 share a lane: 1e16 - 1e16 vanishes before the 1 of another lane is added.
        const std::vector<std::int32_t> index{1, 2, 2, 2, 2, 2, 2, 2, 3};
        const std::vector<std::int32_t> value = bitsOf({1, 1, 0, 0, 0, 0, 0, 0, 1});
        const std::vector<double> padded{1e16, 1.0, -1e16};
        EXPECT_EQ(rowKernels().multiply(index.data(), value.data(), 9, padded.data()), 1.0);
        // In neighbouring lanes the 1 is lost.
        const std::vector<std::int32_t> apart{1, 2, 3};
        EXPECT_EQ(rowKernels().multiply(apart.data(), bitsOf({1, 1, 1}).data(), 3, padded.data()), (1e16 - 1e16) + 1.0);
        EXPECT_EQ(rowKernels().multiply(nullptr, nullptr, 0, padded.data()), 0.0);
    }
}

TEST(RowKernels, AddInTheOrderOfTheRow) {
    for (const InstructionSet set : setsOfThisMachine()) {
        const InstructionSetLimit limit(set);
        const std::vector<std::int32_t> index{2, 2, 2, 1, 1, 1, 1, 1, 2, 2};
        std::vector<double> padded(3, 0.0);
        rowKernels().addTransposed(index.data(), bitsOf({1e16F, 1.0F, -1e16F, 0, 0, 0, 0, 0, 1e16F, 1.0F}).data(), 10,
                                   1.0, padded.data());
        EXPECT_EQ(padded[1], static_cast<double>(1e16F));
    }
}

TEST(RowKernels, GiveTheSameBytesWithAllInstructionSets) {
    std::mt19937 random(137);
    for (std::size_t n = 0; n < 70; ++n) {
        std::vector<std::int32_t> index;
        std::vector<float> value;
        for (std::size_t p = 0; p < n; ++p) {
            index.push_back(static_cast<std::int32_t>(random() % 40) + 1);
            value.push_back(static_cast<float>(randomVector(1, random)[0]));
        }
        const std::vector<std::int32_t> bits = bitsOf(value);
        const std::vector<double> padded = randomVector(40, random);
        std::vector<double> plainSum, plainAdded;
        for (const InstructionSet set : setsOfThisMachine()) {
            const InstructionSetLimit limit(set);
            const std::vector<double> sum{rowKernels().multiply(index.data(), bits.data(), n, padded.data())};
            std::vector<double> added = padded;
            rowKernels().addTransposed(index.data(), bits.data(), n, 0.3, added.data());
            if (set == InstructionSet::plain) {
                plainSum = sum;
                plainAdded = added;
            }
            EXPECT_EQ(sum, plainSum) << n;
            EXPECT_EQ(added, plainAdded) << n;
        }
    }
}

// The coefficients of the blocked rows of a file, one after the other: products with a single 1 in the padded array.
// No axis of a mesh of 2 cells is transformed.
std::vector<double> coefficientsOf(Sensitivity& sensitivity, const MeshGeometry& mesh, std::size_t mtx,
                                   std::size_t row) {
    std::vector<double> coefficients;
    for (std::size_t cell = 0; cell < mesh.cellCount(); ++cell) {
        std::vector<double> model(mesh.cellCount(), 0.0);
        model[cell] = 1.0;
        const double value = forward(sensitivity, mesh, model, mtx)[row];
        if (value != 0.0) {
            coefficients.push_back(value);
        }
    }
    return coefficients;
}

TEST(BuildBlockedRows, DividesTheFilesThatHaveADataTypeInSinglePrecision) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    // The indices of the last row descend: it stays unsorted.
    const std::vector<StoredRow> rows{
        {2, {1, 2}, {1.0F, 2.0F}}, {0, {}, {}}, {1, {3}, {5.0F}}, {1, {4}, {7.0F}}, {2, {2, 1}, {4.0F, 3.0F}}};
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 5, 3, daubechies(4));
    storeRowsInMemory(sensitivity, {rows, rows, rows});
    buildBlockedRows(sensitivity, std::vector<float>{3.0F, 2.0F, 0.0F, -1.0F, 7.0F, 0.1F, 1.0F, 7.0F, 11.0F, 0.3F});
    const std::vector<std::vector<float>> divisor{
        {3.0F, 1.0F, 1.0F, 1.0F, 7.0F}, {0.1F, 1.0F, 7.0F, 11.0F, 0.3F}, {1.0F, 1.0F, 1.0F, 1.0F, 1.0F}};
    for (std::size_t mtx = 0; mtx < 3; ++mtx) {
        for (std::size_t r = 0; r < rows.size(); ++r) {
            std::vector<double> expected;
            for (const float value : rows[r].value) {
                expected.push_back(static_cast<double>(value / divisor[mtx][r]));
            }
            if (r == 4) {
                std::reverse(expected.begin(), expected.end());
            }
            EXPECT_EQ(coefficientsOf(sensitivity, mesh, mtx, r), expected) << mtx << ' ' << r;
        }
    }
}

TEST(BuildBlockedRows, AcceptsMoreDataTypesThanFiles) {
    const MeshGeometry mesh = meshOf({2, 2, 2}, {2, 2, 2});
    Sensitivity sensitivity;
    prepareSensitivity(sensitivity, mesh, 1, 1, daubechies(4));
    storeRowsInMemory(sensitivity, {{{1, {1}, {8.0F}}}});
    buildBlockedRows(sensitivity, std::vector<float>{2.0F, 4.0F, 4.0F});
    EXPECT_EQ(coefficientsOf(sensitivity, mesh, 0, 0), std::vector<double>{4.0});
}

}  // namespace
}  // namespace voxlith
