// Bounds files, read back by the inversion program's own reader.
#include "cli/bounds_command.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "base/messages.h"
#include "formats/bounds_file.h"
#include "forward/survey_mesh.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

class BoundsCommand : public testing::Test {
protected:
    BoundsCommand() {
        options.meshFile = folder.write("m.msh", "3 2 2\n0 0 0\n3*1\n2*1\n2*1\n");
        options.unitsFile = folder.write("u.mod", "1 2 3 1 2 3\n1 2 3 1 2 -7\n");
        options.units = {"1=0,0.1", "2=-0.5,0.25", "3=fixed", "-7=-99,99"};
        options.outFile = folder.file("b.txt");
    }

    ModelBounds readBack(std::int32_t positivityFlag) const {
        const MeshGeometry mesh = readSurveyMesh(options.meshFile);
        ModelBounds bounds;
        bounds.fixedCell.resize(mesh.cellCount());
        bounds.boundType.resize(mesh.cellCount());
        bounds.lowerBound.resize(mesh.cellCount());
        bounds.upperBound.resize(mesh.cellCount());
        Messages messages;
        // The program takes 80 characters of a name.
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(folder.path());
        readBoundsFile(messages, Positivity{positivityFlag}, "b.txt", mesh, 1, bounds);
        std::filesystem::current_path(before);
        return bounds;
    }

    std::string error() const {
        try {
            writeBoundsFile(options);
        } catch (const RunError& error) {
            return error.what();
        }
        return "";
    }

    TemporaryFolder folder;
    BoundsOptions options;
};

TEST_F(BoundsCommand, everyCellGetsTheBoundsOfItsUnit) {
    const BoundsReport report = writeBoundsFile(options);
    EXPECT_EQ(report.units.size(), 4U);
    EXPECT_EQ(report.units[0].unit, -7);
    EXPECT_EQ(report.units[0].cells, 1U);
    EXPECT_EQ(report.units[1].cells, 4U);
    const ModelBounds bounds = readBack(0);
    const std::vector<int> units{1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, -7};
    for (std::size_t cell = 0; cell < units.size(); ++cell) {
        const int unit = units[cell];
        EXPECT_EQ(bounds.fixedCell[cell], unit == 3 ? 1 : 0) << cell;
        EXPECT_EQ(bounds.boundType[cell], unit == 3 ? boundFixed : unit == -7 ? boundNone : boundBoth) << cell;
        if (unit == 1 || unit == 2) {
            EXPECT_EQ(bounds.lowerBound[cell], unit == 1 ? 0.0 : -0.5) << cell;
            EXPECT_EQ(bounds.upperBound[cell], unit == 1 ? static_cast<double>(0.1F) : 0.25) << cell;
        }
    }
}

TEST_F(BoundsCommand, freeSidesAreReadAsFree) {
    for (const auto& [text, type, lower, upper] : {std::tuple{"-99,0.5", boundUpper, 0.0, 0.5},
                                                   {"0.5,99", boundLower, 0.5, 0.0},
                                                   {"-98.9,0.5", boundUpper, 0.0, 0.5},
                                                   {"0.5,98.9", boundLower, 0.5, 0.0},
                                                   {"-98.9,98.9", boundNone, 0.0, 0.0},
                                                   {"-1e30,1e30", boundNone, 0.0, 0.0},
                                                   {"-98,98", boundBoth, -98.0, 98.0},
                                                   {"-99,-1", boundUpper, 0.0, -1.0}}) {
        options.units = {"1=" + std::string(text)};
        options.defaultPair = text;
        writeBoundsFile(options);
        const ModelBounds bounds = readBack(0);
        for (std::size_t cell = 0; cell < 12; ++cell) {
            EXPECT_EQ(bounds.boundType[cell], type) << text;
            EXPECT_EQ(bounds.lowerBound[cell], lower) << text;
            EXPECT_EQ(bounds.upperBound[cell], upper) << text;
        }
    }
}

TEST_F(BoundsCommand, pairsMeanTheSameWhateverTheSigns) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        std::mt19937 generator(seed);
        std::uniform_real_distribution<double> value(-3.0, 3.0);
        const double lower = value(generator), upper = lower + 0.5 * std::abs(value(generator)) + 0.01;
        options.units.clear();
        options.defaultPair = std::to_string(lower) + "," + std::to_string(upper);
        writeBoundsFile(options);
        const ModelBounds bounds = readBack(0);
        EXPECT_EQ(bounds.boundType[7], boundBoth) << "seed " << seed;
        EXPECT_FLOAT_EQ(static_cast<float>(bounds.lowerBound[7]), std::stof(std::to_string(lower)));
        EXPECT_FLOAT_EQ(static_cast<float>(bounds.upperBound[7]), std::stof(std::to_string(upper)));
    }
}

TEST_F(BoundsCommand, aMaskHoldsCellsOfAnyUnit) {
    options.fixedMask = folder.write("mask.mod", "1 0 0 0 0 1\n5*0 1\n");
    options.units.pop_back();  // only a held cell is of unit -7
    const BoundsReport report = writeBoundsFile(options);
    EXPECT_EQ(report.fixedByMask, 3U);
    const ModelBounds bounds = readBack(0);
    for (const std::size_t cell : {0U, 2U, 5U, 8U, 11U}) {
        EXPECT_EQ(bounds.fixedCell[cell], 1) << cell;
    }
    EXPECT_EQ(bounds.nFixedCells, 12);
    EXPECT_EQ(bounds.fixedCell[1], 0);
}

TEST_F(BoundsCommand, absentCellsAreHeld) {
    options.unitsFile = folder.write("u.mod", "-1e32 11*1\n");
    EXPECT_EQ(writeBoundsFile(options).absent, 1U);
    EXPECT_EQ(readBack(0).fixedCell[0], 1);
    EXPECT_EQ(readBack(0).fixedCell[1], 0);
}

TEST_F(BoundsCommand, tableAndOptionsAreOneTable) {
    options.tableFile = folder.write("t.txt", "! unit lower upper\n1 0 0.1\n\n2,-0.5,0.25  # ore\n3 fixed\n");
    options.units = {"-7=-99,99"};
    writeBoundsFile(options);
    const std::string byTable = folder.read("b.txt");
    options.tableFile.clear();
    options.units = {"1=0,0.1", "2=-0.5,0.25", "3=fixed", "-7=-99,99"};
    writeBoundsFile(options);
    EXPECT_EQ(folder.read("b.txt"), byTable);
}

TEST_F(BoundsCommand, whatIsWrongIsTold) {
    const std::string units = options.unitsFile;
    const auto expectError = [&](auto change, const std::string& message) {
        const BoundsOptions kept = options;
        change();
        EXPECT_EQ(error(), message);
        EXPECT_FALSE(std::filesystem::exists(options.outFile));
        options = kept;
    };
    expectError([&] { options.units.pop_back(); },
                units +
                    ", line 2: expected a unit with bounds for cell 12, found -7; give --unit -7=lower,upper or "
                    "--default");
    expectError([&] { options.units[0] = "1=0.5,0.1"; },
                "--unit 1=0.5,0.1: expected a lower bound below the upper one (write fixed to hold cells), found "
                "0.5,0.1");
    expectError([&] { options.units[0] = "1=1,1.00000000001"; },
                "--unit 1=1,1.00000000001: expected a lower bound below the upper one (write fixed to hold cells), "
                "found 1,1.00000000001");
    expectError([&] { options.units[0] = "1=1"; }, "--unit 1=1: expected lower,upper or fixed, found 1");
    expectError([&] { options.units[0] = "1=1,x"; }, "--unit 1=1,x: expected lower,upper or fixed, found 1,x");
    expectError([&] { options.units[0] = "1"; }, "--unit 1: expected unit=lower,upper or unit=fixed");
    expectError([&] { options.units[0] = "1.5=0,1"; },
                "--unit 1.5=0,1: expected the whole number of a unit, found 1.5");
    expectError([&] { options.units.push_back("2=0,1"); }, "--unit 2=0,1: unit 2 has bounds already, -0.5 to 0.25");
    const std::string table = folder.write("t.txt", "4 0 1\n5 0\n");
    expectError([&] { options.tableFile = table; }, table + ", line 2: expected lower,upper or fixed, found 0");
    expectError([&] { options.tableFile = folder.file("no"); },
                folder.file("no") + ": the table of units cannot be opened");
    const std::string fraction = folder.write("f.mod", "11*1\n1.5\n");
    expectError([&] { options.unitsFile = fraction; },
                fraction + ", line 2: expected a whole number for cell 12, found 1.5");
    const std::string nan = folder.write("n.mod", "11*1\nnan\n");
    expectError([&] { options.unitsFile = nan; }, nan + ", line 2: expected a whole number for cell 12, found nan");
    const std::string large = folder.write("l.mod", "11*1\n3e9\n");
    expectError([&] { options.unitsFile = large; },
                large + ", line 2: expected a whole number for cell 12, found 3000000000");
    const std::string few = folder.write("few.mod", "11*1");
    expectError([&] { options.unitsFile = few; },
                few + ", line 1: expected 12 whole numbers, one a cell, found the end of the file");
    const std::string mask = folder.write("mask.mod", "11*1\n2\n");
    expectError([&] { options.fixedMask = mask; }, mask + ", line 2: expected 0 or 1 for cell 12, found 2");
    expectError([&] { options.defaultPair = "a"; }, "--default a: expected lower,upper or fixed, found a");
}

TEST_F(BoundsCommand, aDamagedFileIsNeitherReadNorEndsBadly) {
    const std::string whole = "1 2 3 1 2 3\n1 2 3 1 2 -7\n";
    for (unsigned seed = 1; seed <= 100; ++seed) {
        std::mt19937 generator(seed);
        std::string text = whole;
        for (int n = 0; n < 3; ++n) {
            text[generator() % text.size()] = static_cast<char>(generator() % 256);
        }
        folder.write("u.mod", text);
        folder.write("t.txt", text);
        options.tableFile = seed % 2 == 0 ? folder.file("t.txt") : "";
        std::filesystem::remove(options.outFile);
        EXPECT_EQ(error().empty(), std::filesystem::exists(options.outFile)) << "seed " << seed;
    }
}

}  // namespace
}  // namespace voxlith
