#include "formats/model_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "formats/bounds_file.h"
#include "support/work_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::expectStop;
using testing_support::makeBounds;
using testing_support::makeUnitMesh;
using testing_support::single;

const std::string positivityText =
    "Error: the specified model value is invalid because it conflicts with the model positivity flag";

class ModelFile : public testing_support::WorkFolderTest {
protected:
    // Reads `name` for `nz` cells in one column without bounds.
    std::vector<double> model(const std::string& name, std::int32_t nz, std::int32_t nModelTypes = 1,
                              std::int32_t positivityFlag = 0, float fillValue = 0.0F) {
        const MeshGeometry mesh = makeUnitMesh(1, 1, nz);
        const ModelBounds bounds = makeBounds(mesh, nModelTypes);
        return model(name, mesh, bounds, nModelTypes, positivityFlag, fillValue);
    }

    std::vector<double> model(const std::string& name, const MeshGeometry& mesh, const ModelBounds& bounds,
                              std::int32_t nModelTypes, std::int32_t positivityFlag, float fillValue = 0.0F) {
        std::vector<double> target(mesh.cellCount() * static_cast<std::size_t>(nModelTypes), -55.0);
        readModelFile(messages_, Positivity{positivityFlag}, name, mesh, nModelTypes, target, bounds, fillValue);
        return target;
    }

    void expectModelStop(const std::string& text, const std::string& name, std::int32_t positivityFlag) {
        expectStop(text, [&](Messages& messages) {
            const MeshGeometry mesh = makeUnitMesh(1, 1, 2);
            std::vector<double> target(2);
            readModelFile(messages, Positivity{positivityFlag}, name, mesh, 1, target, makeBounds(mesh, 1), 0.0F);
        });
    }
};

TEST_F(ModelFile, NullGivesTheFillValue) {
    EXPECT_EQ(model("null", 2, 2, 0, 0.1F), std::vector<double>(4, single(0.1)));
    EXPECT_EQ(model("NULL  ", 2), std::vector<double>(2, 0.0));
    EXPECT_EQ(model("null" + std::string(76, ' ') + "x", 2), std::vector<double>(2, 0.0));
    expectModelStop(" Model File Null not found", "Null", 0);
    expectModelStop(" Model File null.mod not found", "null.mod", 0);
    expectModelStop(" Model File  null not found", " null", 0);
}

TEST_F(ModelFile, ANumberFillsAllTypesAsSinglePrecision) {
    EXPECT_EQ(model("0.001", 2, 3), std::vector<double>(6, single(0.001)));
    EXPECT_EQ(model("  -2.5D-1 and more", 2), std::vector<double>(2, -0.25));
    EXPECT_EQ(model("1*3", 2), std::vector<double>(2, 3.0));
}

TEST_F(ModelFile, ANameThatStartsLikeANumberIsThatNumber) {
    write("1.5,model.dat", "7 7\n");
    EXPECT_EQ(model("1.5,model.dat", 2), std::vector<double>(2, 1.5));
    EXPECT_EQ(model("2/model.dat", 2), std::vector<double>(2, 2.0));
    write("3d.mod", "7 8\n");
    EXPECT_EQ(model("3d.mod", 2), (std::vector<double>{7.0, 8.0}));
}

TEST_F(ModelFile, ATextWithoutAnyValueIsAName) {
    write("a.mod", "7 8\n");
    EXPECT_EQ(model((std::filesystem::current_path() / "a.mod").string(), 2), (std::vector<double>{7.0, 8.0}));
    expectModelStop(" Model File /no/such.mod not found", "/no/such.mod", 0);
    expectModelStop(" Model File , not found", ",", 0);
    expectModelStop(" Model File  not found", "", 0);
}

TEST_F(ModelFile, ANumberAgainstPositivityStops) {
    expectModelStop(positivityText, "-0.5", 1);
    expectModelStop(positivityText, "-0.5", 2);
    expectModelStop(positivityText, "0.5", -1);
    EXPECT_EQ(model("0.0", 1, 1, 1), std::vector<double>{0.0});
    EXPECT_EQ(model("0.0", 1, 1, -1), std::vector<double>{0.0});
    EXPECT_EQ(model("0.5", 1, 1, 1), std::vector<double>{0.5});
    EXPECT_EQ(model("-0.5", 1, 1, -1), std::vector<double>{-0.5});
}

TEST_F(ModelFile, AFileAgainstPositivityPassesAndIsClampedByTheBounds) {
    write("neg.mod", "-0.5 0.25\n");
    const MeshGeometry mesh = makeUnitMesh(1, 1, 2);
    ModelBounds bounds = makeBounds(mesh, 1);
    readBoundsFile(messages_, Positivity::positive, "null", mesh, 1, bounds);
    EXPECT_EQ(model("neg.mod", mesh, bounds, 1, 1), (std::vector<double>{0.0, 0.25}));
}

TEST_F(ModelFile, StrictPositivityRaisesSmallFills) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 2);
    ModelBounds bounds = makeBounds(mesh, 1);
    readBoundsFile(messages_, Positivity::strictlyPositive, "null", mesh, 1, bounds);
    EXPECT_EQ(bounds.boundType, std::vector<std::int32_t>(8, boundLower));
    EXPECT_EQ(model("0.0", mesh, bounds, 1, 2), std::vector<double>(8, 9.999999747378752e-06));
    EXPECT_EQ(model("0.001", mesh, bounds, 1, 2), std::vector<double>(8, single(0.001)));
}

TEST_F(ModelFile, ReversedBoundsClampToTheUpperOne) {
    const MeshGeometry mesh = makeUnitMesh(1, 1, 1);
    ModelBounds bounds = makeBounds(mesh, 1);
    readBoundsFile(messages_, Positivity::unconstrained, "0.5,0.1", mesh, 1, bounds);
    EXPECT_EQ(model("0.3", mesh, bounds, 1, 0), std::vector<double>{single(0.1)});
}

TEST_F(ModelFile, FixedCellsKeepTheirValueUnrounded) {
    write("fix.bnd", "1.0 1.0  0 0.5\n");
    write("fine.mod", "0.123456789012345 0.123456789012345\n");
    const MeshGeometry mesh = makeUnitMesh(1, 1, 2);
    ModelBounds bounds = makeBounds(mesh, 1);
    readBoundsFile(messages_, Positivity::unconstrained, "fix.bnd", mesh, 1, bounds);
    EXPECT_EQ(model("fine.mod", mesh, bounds, 1, 0),
              (std::vector<double>{0.123456789012345, single(0.123456789012345)}));
}

TEST_F(ModelFile, AFileFillsTheFirstTypeAlone) {
    write("m.mod", "1 2\n3\n");
    EXPECT_EQ(model("m.mod", 3, 2, 0, 0.5F), (std::vector<double>{1, 2, 3, 0.5, 0.5, 0.5}));
}

TEST_F(ModelFile, AShortFileLeavesTheFillValue) {
    write("short.mod", "1 2");
    EXPECT_EQ(model("short.mod", 4, 1, 0, 0.5F), (std::vector<double>{1, 2, 0.5, 0.5}));
    write("empty.mod", "");
    EXPECT_EQ(model("empty.mod", 2), (std::vector<double>{0, 0}));
}

TEST_F(ModelFile, FreeFormatHoldsInFiles) {
    write("free.mod", "2*1.5, ,3d0\n -1.0e32\t5+1,2*/ 8 9\n");
    EXPECT_EQ(model("free.mod", 9, 1, 0, 7.0F), (std::vector<double>{1.5, 1.5, 7, 3, -1.0e32, 50, 7, 7, 7}));
}

TEST_F(ModelFile, ADummyInAFileStaysAsItIsWritten) {
    write("dummy.mod", "-1.0e32 -0.1000000E+33 -1.0e31\n");
    EXPECT_EQ(model("dummy.mod", 3), (std::vector<double>{-1.0e32, -1.0e32, -1.0e31}));
    // The double next to -1.0e32 is not the single-precision dummy but lies above it.
    EXPECT_GT(-1.0e32, dummyValue);
}

TEST_F(ModelFile, TextInAFileStops) {
    write("text.mod", "1 two\n");
    expectModelStop(" An error occurred while reading the model text.mod", "text.mod   ", 0);
}

TEST_F(ModelFile, OnlyEightyCharactersOfTheNameCount) {
    write(std::string(80, 'm'), "1 2\n");
    EXPECT_EQ(model(std::string(200, 'm'), 2), (std::vector<double>{1, 2}));
    expectModelStop(" Model File " + std::string(80, 'n') + " not found", std::string(81, 'n'), 0);
    // A number but for the text after column 80.
    EXPECT_EQ(model("0.5" + std::string(77, ' ') + "x", 1), std::vector<double>{0.5});
}

TEST_F(ModelFile, ADeviceWithoutEndIsNoFile) {
    expectModelStop(" Model File /dev/zero not found", "/dev/zero", 0);
}

TEST_F(ModelFile, FilesMayEndLinesTheOtherWay) {
    write("dos.mod", "1\r\n2\r\n");
    EXPECT_EQ(model("dos.mod", 2), (std::vector<double>{1, 2}));
}

class ModelWriter : public testing_support::WorkFolderTest {
protected:
    // Two columns of three cells with values that a person recognises, and weights 1 to 6.
    MeshGeometry mesh_ = makeUnitMesh(2, 1, 3);
    std::vector<double> source_{1, 2, 3, 4, 5, 6, -10, -20, -30, -40, -50, -60};
    std::vector<float> weight_{1, 2, 4, 8, 16, 32};

    std::vector<double> written(std::int32_t modelType, bool fold, std::int32_t style) {
        writeModelFile("out.mod", mesh_, modelType, source_, weight_, fold, InversionStyle{style});
        std::vector<double> values;
        for (const std::string& line : lines("out.mod")) {
            EXPECT_EQ(line.size(), 14U);
            values.push_back(std::stod(line));
        }
        return values;
    }
};

TEST_F(ModelWriter, WritesOneExponentFieldPerLine) {
    mesh_ = makeUnitMesh(1, 1, 8);
    source_ = {1.23456, -0.0, 0.0, dummyValue, 1.0e100, -1.0e-5, 9.9999995, 12345678.0};
    writeModelFile("out.mod", mesh_, 0, source_, {}, false, InversionStyle::standard);
    EXPECT_EQ(read("out.mod"),
              "  0.123456E+01\n -0.000000E+00\n  0.000000E+00\n -0.100000E+33\n  0.100000+101\n"
              " -0.100000E-04\n  0.100000E+02\n  0.123457E+08\n");
}

TEST_F(ModelWriter, FullStylesWriteAllCells) {
    for (const std::int32_t style : {0, 1, 4}) {
        EXPECT_EQ(written(0, false, style), (std::vector<double>{1, 2, 3, 4, 5, 6})) << "style " << style;
        EXPECT_EQ(written(1, false, style), (std::vector<double>{-10, -20, -30, -40, -50, -60})) << "style " << style;
    }
}

TEST_F(ModelWriter, FoldedModelsAreDividedByTheWeightsOfTheCell) {
    EXPECT_EQ(written(0, true, 0), (std::vector<double>{1, 1, 0.75, 0.5, 0.3125, 0.1875}));
    // The second type by the same weights.
    EXPECT_EQ(written(1, true, 0), (std::vector<double>{-10, -10, -7.5, -5, -3.125, -1.875}));
}

TEST_F(ModelWriter, SurfaceStylesRepeatTheirLayersDownTheColumn) {
    EXPECT_EQ(written(0, false, 2), (std::vector<double>{1, 1, 1, 4, 4, 4}));
    EXPECT_EQ(written(0, false, 3), (std::vector<double>{1, 2, 2, 4, 5, 5}));
    EXPECT_EQ(written(0, true, 2), (std::vector<double>{1, 1, 1, 0.5, 0.5, 0.5}));
    EXPECT_EQ(written(0, true, 3), (std::vector<double>{1, 1, 1, 0.5, 0.3125, 0.3125}));
}

TEST_F(ModelWriter, OneLayerGivesOneLineInEveryStyle) {
    mesh_ = makeUnitMesh(3, 2, 1);
    for (std::int32_t style = 0; style <= 4; ++style) {
        EXPECT_EQ(written(0, false, style), (std::vector<double>{1, 2, 3, 4, 5, 6})) << "style " << style;
        EXPECT_EQ(written(0, true, style), (std::vector<double>{1, 1, 0.75, 0.5, 0.3125, 0.1875})) << "style " << style;
    }
}

TEST_F(ModelWriter, ReplacesAFileThatIsLonger) {
    write("out.mod", std::string(10000, 'x'));
    EXPECT_EQ(written(0, false, 0).size(), 6U);
}

TEST_F(ModelWriter, AFolderThatIsNotThereIsAnError) {
    EXPECT_THROW(writeModelFile("nowhere/out.mod", mesh_, 0, source_, weight_, false, InversionStyle::standard),
                 RunError);
}

TEST_F(ModelWriter, ValuesThatAreNoNumbersStayInTheirColumns) {
    mesh_ = makeUnitMesh(1, 1, 3);
    const double infinity = std::numeric_limits<double>::infinity();
    source_ = {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity};
    writeModelFile("out.mod", mesh_, 0, source_, {}, false, InversionStyle::standard);
    for (const std::string& line : lines("out.mod")) {
        EXPECT_EQ(line.size(), 14U);
    }
}

// Columns longer than a block of the writer, every value against the C library.
TEST_F(ModelWriter, LongColumnsAreWrittenWhole) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> size(-30.0, 30.0);
        mesh_ = makeUnitMesh(2, 2, 2500);
        source_.resize(mesh_.cellCount());
        for (double& value : source_) {
            value = std::pow(10.0, size(random)) * (random() % 2 == 0 ? 1.0 : -1.0);
        }
        writeModelFile("out.mod", mesh_, 0, source_, {}, false, InversionStyle::standard);
        const std::vector<std::string> all = lines("out.mod");
        ASSERT_EQ(all.size(), source_.size());
        for (std::size_t cell = 0; cell < all.size(); ++cell) {
            // d.ddddde+xx of the C library has its point one digit further right.
            char expected[32];
            std::snprintf(expected, sizeof expected, "%.5e", source_[cell]);
            ASSERT_EQ(std::stod(all[cell]), std::stod(expected)) << "seed " << seed << " cell " << cell;
        }
    }
}

// What the writer wrote the reader reads back, to the six digits of the file.
TEST_F(ModelWriter, TheReaderReadsItBack) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        std::normal_distribution<double> value(0.0, 3.0);
        mesh_ = makeUnitMesh(7, 5, 9);
        std::vector<double> source(mesh_.cellCount());
        std::generate(source.begin(), source.end(), [&] { return random() % 20 == 0 ? dummyValue : value(random); });
        writeModelFile("out.mod", mesh_, 0, source, {}, false, InversionStyle::standard);
        std::vector<double> back(source.size());
        readModelFile(messages_, Positivity::unconstrained, "out.mod", mesh_, 1, back, makeBounds(mesh_, 1), 0.0F);
        for (std::size_t cell = 0; cell < back.size(); ++cell) {
            EXPECT_NEAR(back[cell], source[cell], std::fabs(source[cell]) * 5.2e-6) << "seed " << seed;
            EXPECT_EQ(isValid(back[cell]), isValid(source[cell])) << "seed " << seed;
        }
    }
}

}  // namespace
}  // namespace voxlith
