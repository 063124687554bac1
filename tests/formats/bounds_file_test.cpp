#include "formats/bounds_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include "support/work_folder.h"

namespace voxlith {
namespace {

using testing_support::expectStop;
using testing_support::makeBounds;
using testing_support::makeMesh;
using testing_support::makeUnitMesh;
using testing_support::single;

const double strictMinimum = 9.999999747378752e-06;

class BoundsFile : public testing_support::WorkFolderTest {
protected:
    // Reads `name` for two cells and `nModelTypes` types, over arrays that are full of other things.
    ModelBounds bounds(const std::string& name, std::int32_t positivityFlag, std::int32_t nModelTypes = 1) {
        const MeshGeometry mesh = makeUnitMesh(2, 1, 1);
        ModelBounds result = makeBounds(mesh, nModelTypes);
        std::fill(result.fixedCell.begin(), result.fixedCell.end(), 1);
        result.nFixedCells = 77;
        readBoundsFile(messages_, Positivity{positivityFlag}, name, mesh, nModelTypes, result);
        return result;
    }

    // The same for a file of one pair and a mesh of one cell.
    ModelBounds boundsOfPair(const std::string& pair, std::int32_t positivityFlag) {
        write("one.bnd", pair + "\n");
        const MeshGeometry mesh = makeUnitMesh(1, 1, 1);
        ModelBounds result = makeBounds(mesh, 1);
        readBoundsFile(messages_, Positivity{positivityFlag}, "one.bnd", mesh, 1, result);
        return result;
    }
};

void expectAll(const ModelBounds& bounds, std::int32_t boundType, double lower, double upper, std::int32_t counted) {
    for (std::size_t cell = 0; cell < bounds.boundType.size(); ++cell) {
        EXPECT_EQ(bounds.fixedCell[cell], 0);
        EXPECT_EQ(bounds.boundType[cell], boundType);
        EXPECT_EQ(bounds.lowerBound[cell], lower);
        EXPECT_EQ(bounds.upperBound[cell], upper);
    }
    EXPECT_EQ(bounds.nFixedCells, counted);
}

void expectOne(const ModelBounds& bounds, std::int32_t boundType, double lower, double upper) {
    EXPECT_EQ(bounds.boundType[0], boundType);
    EXPECT_EQ(bounds.lowerBound[0], lower);
    EXPECT_EQ(bounds.upperBound[0], upper);
    EXPECT_EQ(bounds.fixedCell[0], boundType == boundFixed ? 1 : 0);
    EXPECT_EQ(bounds.nFixedCells, boundType == boundNone ? 0 : 1);
}

TEST_F(BoundsFile, NullGivesTheBoundsOfPositivity) {
    for (const std::int32_t types : {1, 3}) {
        for (const char* name : {"null", "NULL", "null   "}) {
            expectAll(bounds(name, 2, types), boundLower, strictMinimum, strictMinimum, 2 * types);
            expectAll(bounds(name, 1, types), boundLower, 0.0, 0.0, 2 * types);
            expectAll(bounds(name, -1, types), boundUpper, 0.0, 0.0, 2 * types);
            expectAll(bounds(name, -5, types), boundUpper, 0.0, 0.0, 2 * types);
            expectAll(bounds(name, 0, types), boundNone, 0.0, 0.0, 0);
            expectAll(bounds(name, 3, types), boundNone, 0.0, 0.0, 0);
        }
    }
}

TEST_F(BoundsFile, NullIsOneWordInTwoSpellings) {
    for (const std::string name : {"Null", "nulls", "null.bnd", "nullbounds"}) {
        expectStop(" Bounds File " + name + " not found", [&](Messages& messages) {
            ModelBounds result = makeBounds(makeUnitMesh(2, 1, 1), 1);
            readBoundsFile(messages, Positivity::unconstrained, name, makeUnitMesh(2, 1, 1), 1, result);
        });
    }
    // Text after column 80 does not count.
    expectAll(bounds("null" + std::string(76, ' ') + "x", 1), boundLower, 0.0, 0.0, 2);
}

TEST_F(BoundsFile, TwoNumbersWithoutPositivity) {
    expectAll(bounds("0.5,0.1", 0, 2), boundBoth, 0.5, single(0.1), 4);
    expectAll(bounds("-99,1.0", 0), boundUpper, 0.0, 1.0, 2);
    expectAll(bounds("0,99", 0), boundLower, 0.0, 0.0, 2);
    expectAll(bounds("99,99", 0), boundNone, 0.0, 0.0, 0);
    expectAll(bounds("-99 99", 0), boundNone, 0.0, 0.0, 0);
    expectAll(bounds("98.9 5", 0), boundUpper, 0.0, 5.0, 2);
    expectAll(bounds("5 98.9", 0), boundLower, 5.0, 0.0, 2);
    expectAll(bounds("98.8 98.89", 0), boundBoth, single(98.8), single(98.89), 2);
    expectAll(bounds("2*0.25", 0), boundBoth, 0.25, 0.25, 2);
    expectAll(bounds("1D-1 .2 ignored", 0), boundBoth, single(0.1), single(0.2), 2);
}

TEST_F(BoundsFile, TwoNumbersUnderPositivity) {
    expectAll(bounds("-1,1", 1), boundBoth, 0.0, 1.0, 2);
    expectAll(bounds("-1,1", 2), boundBoth, strictMinimum, 1.0, 2);
    expectAll(bounds("-1,1", 3), boundBoth, 0.0, 1.0, 2);
    expectAll(bounds("-99,1", 1), boundUpper, 0.0, 1.0, 2);
    expectAll(bounds("-98.95,1", 1), boundBoth, 0.0, 1.0, 2);
    expectAll(bounds("0.5,-2", 1), boundBoth, 0.5, 0.5, 2);
    expectAll(bounds("-3,-2", 2), boundBoth, strictMinimum, strictMinimum, 2);
    expectAll(bounds("0.5,-99", 1), boundLower, 0.5, 0.0, 2);
}

TEST_F(BoundsFile, TwoNumbersUnderNegativity) {
    expectAll(bounds("-1,1", -1), boundBoth, -1.0, 0.0, 2);
    expectAll(bounds("0.5,2", -1), boundBoth, 0.0, 0.0, 2);
    expectAll(bounds("-99,99", -1), boundUpper, 0.0, 0.0, 2);
    expectAll(bounds("99,99", -1), boundBoth, 0.0, 0.0, 2);
    expectAll(bounds("-99,-99", -1), boundNone, 0.0, 0.0, 0);
}

TEST_F(BoundsFile, ReversedNumbersPassWithoutAWord) {
    const testing_support::CallOutcome outcome = testing_support::outcomeOf([&](Messages& messages) {
        ModelBounds result = makeBounds(makeUnitMesh(2, 1, 1), 1);
        readBoundsFile(messages, Positivity::unconstrained, "50,-50", makeUnitMesh(2, 1, 1), 1, result);
        expectAll(result, boundBoth, 50.0, -50.0, 2);
    });
    EXPECT_FALSE(outcome.stopped);
    EXPECT_EQ(outcome.screen + outcome.log, "");
}

TEST_F(BoundsFile, AnythingElseIsAFile) {
    for (const std::string name : {"0.5", "0.5,", "/no/such.bnd", "/dev/zero", "0.5/bounds", ",0.5", "1 x"}) {
        expectStop(" Bounds File " + name + " not found", [&](Messages& messages) {
            ModelBounds result = makeBounds(makeUnitMesh(2, 1, 1), 1);
            readBoundsFile(messages, Positivity::unconstrained, name, makeUnitMesh(2, 1, 1), 1, result);
        });
    }
    std::filesystem::create_directory("folder");
    expectStop(" Bounds File folder not found", [&](Messages& messages) {
        ModelBounds result = makeBounds(makeUnitMesh(2, 1, 1), 1);
        readBoundsFile(messages, Positivity::unconstrained, "folder   ", makeUnitMesh(2, 1, 1), 1, result);
    });
}

TEST_F(BoundsFile, OnlyEightyCharactersOfTheNameCount) {
    const std::string cut = std::string(76, 'b') + ".bnd";
    write(cut, "1 2 3 4\n");
    EXPECT_EQ(bounds(cut + "more", 0).lowerBound, (std::vector<double>{1.0, 3.0}));
    const std::string missing(90, 'c');
    expectStop(" Bounds File " + std::string(80, 'c') + " not found", [&](Messages& messages) {
        ModelBounds result = makeBounds(makeUnitMesh(2, 1, 1), 1);
        readBoundsFile(messages, Positivity::unconstrained, missing, makeUnitMesh(2, 1, 1), 1, result);
    });
}

TEST_F(BoundsFile, NamesAreOpenedWithoutOuterSpaces) {
    write("b.bnd", "1 2 3 4\n");
    EXPECT_EQ(bounds("  b.bnd  ", 0).upperBound, (std::vector<double>{2.0, 4.0}));
}

TEST_F(BoundsFile, PairsWithoutPositivity) {
    expectOne(boundsOfPair("1.0 1.0", 0), boundFixed, 1.0, 1.0);
    expectOne(boundsOfPair("0.1 -0.3", 0), boundFixed, 0.1, -0.3);  // as read, not rounded
    expectOne(boundsOfPair("100 2.0", 0), boundBoth, 100.0, 2.0);
    expectOne(boundsOfPair("100000 2.0", 0), boundUpper, 0.0, 2.0);
    expectOne(boundsOfPair("-99990 2.0", 0), boundBoth, -99990.0, 2.0);
    expectOne(boundsOfPair("-99991 2.0", 0), boundUpper, 0.0, 2.0);
    expectOne(boundsOfPair("0.1 0.3", 0), boundBoth, single(0.1), single(0.3));
    expectOne(boundsOfPair("0.1 99", 0), boundLower, single(0.1), 0.0);
    expectOne(boundsOfPair("-99 99", 0), boundNone, 0.0, 0.0);
    expectOne(boundsOfPair("99 99", 0), boundNone, 0.0, 0.0);
    // 98.9 itself is a bound here, unlike on the control line.
    expectOne(boundsOfPair("0.5 98.9", 0), boundBoth, 0.5, single(98.9));
    expectOne(boundsOfPair("98.9 98.9", 0), boundFixed, 98.9, 98.9);
    expectOne(boundsOfPair("0.1 0.10000000001", 0), boundFixed, 0.1, 0.10000000001);  // equal as single numbers
}

TEST_F(BoundsFile, PairsUnderPositivity) {
    expectOne(boundsOfPair("-1 1", 1), boundBoth, 0.0, 1.0);
    expectOne(boundsOfPair("-1 1", 2), boundBoth, strictMinimum, 1.0);
    expectOne(boundsOfPair("-1 1", 7), boundBoth, 0.0, 1.0);
    expectOne(boundsOfPair("-3 -2", 2), boundBoth, strictMinimum, strictMinimum);
    expectOne(boundsOfPair("-98.9 1", 1), boundBoth, single(-98.9), 1.0);  // not below 98.9, so not raised
    expectOne(boundsOfPair("-99 1", 1), boundBoth, -99.0, 1.0);
    expectOne(boundsOfPair("-1 -99", 1), boundLower, 0.0, 0.0);
    expectOne(boundsOfPair("-200000 1", 1), boundUpper, 0.0, 1.0);
}

TEST_F(BoundsFile, PairsUnderNegativity) {
    expectOne(boundsOfPair("-1 1", -1), boundBoth, -1.0, 0.0);
    expectOne(boundsOfPair("-1 99", -1), boundBoth, -1.0, 0.0);
    expectOne(boundsOfPair("99 99", -1), boundBoth, 0.0, 0.0);
    expectOne(boundsOfPair("-99 99", -1), boundBoth, -99.0, 0.0);
    expectOne(boundsOfPair("-99 -99", -1), boundNone, 0.0, 0.0);
}

TEST_F(BoundsFile, AFileFillsTheFirstTypeAndTheOthersCopyItUncounted) {
    write("b.bnd", "1 1 0 2\n");
    const ModelBounds result = bounds("b.bnd", 0, 3);
    EXPECT_EQ(result.fixedCell, (std::vector<std::int32_t>{1, 0, 1, 0, 1, 0}));
    EXPECT_EQ(result.boundType, (std::vector<std::int32_t>{5, 3, 5, 3, 5, 3}));
    EXPECT_EQ(result.lowerBound, (std::vector<double>{1, 0, 1, 0, 1, 0}));
    EXPECT_EQ(result.upperBound, (std::vector<double>{1, 2, 1, 2, 1, 2}));
    EXPECT_EQ(result.nFixedCells, 2);
}

TEST_F(BoundsFile, AShortFileLeavesTheRestToWhatTheArraysHeld) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 1);
    ModelBounds result = makeBounds(mesh, 1);
    result.upperBound = {0.0, 7.0, 8.0, 0.0};
    write("short.bnd", "1 2\n3\n");
    readBoundsFile(messages_, Positivity::unconstrained, "short.bnd", mesh, 1, result);
    EXPECT_EQ(result.boundType, (std::vector<std::int32_t>{3, 3, 3, 5}));
    EXPECT_EQ(result.lowerBound, (std::vector<double>{1, 3, 0, 0}));
    EXPECT_EQ(result.upperBound, (std::vector<double>{2, 7, 8, 0}));
    EXPECT_EQ(result.nFixedCells, 4);
}

TEST_F(BoundsFile, NullValuesAndASlashKeepWhatTheArraysHeld) {
    const MeshGeometry mesh = makeUnitMesh(3, 1, 1);
    ModelBounds result = makeBounds(mesh, 1);
    result.lowerBound = {-1.0, -2.0, -3.0};
    result.upperBound = {1.0, 2.0, 3.0};
    write("slash.bnd", "-5,,2*,4/ 7 8 9\n");
    readBoundsFile(messages_, Positivity::unconstrained, "slash.bnd", mesh, 1, result);
    EXPECT_EQ(result.lowerBound, (std::vector<double>{-5, -2, 4}));
    EXPECT_EQ(result.upperBound, (std::vector<double>{1, 2, 3}));
}

TEST_F(BoundsFile, TextInAFileStopsWithTheWordModel) {
    write("text.bnd", "1 2\nabc 4\n");
    expectStop(" Error occurred while reading the model text.bnd", [&](Messages& messages) {
        ModelBounds result = makeBounds(makeUnitMesh(2, 1, 1), 1);
        readBoundsFile(messages, Positivity::unconstrained, "text.bnd  ", makeUnitMesh(2, 1, 1), 1, result);
    });
}

// Many cells, so that pairs lie across the borders of every block of the reader.
TEST_F(BoundsFile, RandomPairsAreClassifiedCellByCell) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> value(-120.0F, 120.0F);
        const MeshGeometry mesh = makeUnitMesh(13, 17, 11);
        std::string text;
        std::vector<std::array<float, 2>> pairs(mesh.cellCount());
        for (auto& pair : pairs) {
            for (float& side : pair) {
                side = std::round(value(random) * 4.0F) / 4.0F;
                text += std::to_string(side) + (random() % 3 == 0 ? "\n" : " , ");
            }
        }
        write("random.bnd", text);
        ModelBounds result = makeBounds(mesh, 1);
        readBoundsFile(messages_, Positivity::unconstrained, "random.bnd", mesh, 1, result);
        std::int32_t counted = 0;
        for (std::size_t cell = 0; cell < pairs.size(); ++cell) {
            const float lower = pairs[cell][0], upper = pairs[cell][1];
            const bool openLower = std::fabs(lower) > 98.9F, openUpper = std::fabs(upper) > 98.9F;
            const std::int32_t expected = !openLower && !openUpper && lower >= upper ? boundFixed
                                          : openLower && openUpper                   ? boundNone
                                          : openUpper                                ? boundLower
                                                                                     : boundBoth;
            ASSERT_EQ(result.boundType[cell], expected) << "seed " << seed << " cell " << cell;
            const bool hasLower = expected != boundNone;
            const bool hasUpper = hasLower && expected != boundLower;
            ASSERT_EQ(result.lowerBound[cell], hasLower ? static_cast<double>(lower) : 0.0) << "seed " << seed;
            ASSERT_EQ(result.upperBound[cell], hasUpper ? static_cast<double>(upper) : 0.0) << "seed " << seed;
            counted += expected != boundNone ? 1 : 0;
        }
        EXPECT_EQ(result.nFixedCells, counted) << "seed " << seed;
    }
}

}  // namespace
}  // namespace voxlith
