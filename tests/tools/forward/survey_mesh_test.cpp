// Forms and errors of tensor mesh files.
#include "forward/survey_mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;
using Nodes = std::vector<double>;

TEST(SurveyMesh, countsCornerAndWidths) {
    const TemporaryFolder folder;
    const MeshGeometry mesh = readSurveyMesh(folder.write("m.msh", "3 2 4\n100 200 50\n10 20 30\n5 6\n1 2 3 4\n"));
    EXPECT_EQ(mesh.nx, 3);
    EXPECT_EQ(mesh.ny, 2);
    EXPECT_EQ(mesh.nz, 4);
    EXPECT_EQ(mesh.xNode, (Nodes{100, 110, 130, 160}));
    EXPECT_EQ(mesh.yNode, (Nodes{200, 205, 211}));
    EXPECT_EQ(mesh.zNode, (Nodes{-50, -49, -47, -44, -40}));
    EXPECT_EQ(mesh.zWidth, (Nodes{1, 2, 3, 4}));
    EXPECT_EQ(mesh.xCentre, (Nodes{105, 120, 145}));
}

TEST(SurveyMesh, repeatsCommentsAndAnyLineBreaks) {
    const TemporaryFolder folder;
    const MeshGeometry mesh =
        readSurveyMesh(folder.write("m.msh",
                                    "! a mesh\r\n3 2\r\n4 ! counts\r\n\r\n100 200 50.0 2*10 30\r\n"
                                    "!5 5\n2*5.5 1*1\n3*2.0e0!end\n\n"));
    EXPECT_EQ(mesh.xNode, (Nodes{100, 110, 120, 150}));
    EXPECT_EQ(mesh.yNode, (Nodes{200, 205.5, 211}));
    EXPECT_EQ(mesh.zNode, (Nodes{-50, -49, -47, -45, -43}));
}

TEST(SurveyMesh, aLineLongerThanAnyTextBuffer) {
    const TemporaryFolder folder;
    std::string widths;
    for (int n = 0; n < 5000; ++n) {
        widths += "1 ";
    }
    const MeshGeometry mesh = readSurveyMesh(folder.write("m.msh", "5000 1 1\n0 0 0\n" + widths + "\n1\n1\n"));
    EXPECT_EQ(mesh.xNode.back(), 5000.0);
}

TEST(SurveyMesh, theTopAtElevationZeroIsAtDepthPlusZero) {
    const TemporaryFolder folder;
    EXPECT_FALSE(std::signbit(readSurveyMesh(folder.write("m.msh", "1 1 1\n0 0 0\n1\n1\n1\n")).zNode[0]));
}

TEST(SurveyMesh, errorsNameFileAndLine) {
    const TemporaryFolder folder;
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "line 1: expected the number of cells to the east, found the end of the file"},
        {"3 2", "line 1: expected the number of cells downwards, found the end of the file"},
        {"3 0 2\n", "line 1: expected the number of cells to the north, found 0"},
        {"3 2.5 2\n", "line 1: expected the number of cells to the north, found 2.5"},
        {"3 2 99999999999\n", "line 1: expected the number of cells downwards, found 99999999999"},
        {"2147483647 2 2\n", "line 1: expected at most 2147483647 cells, found 2147483647 x 2 x 2"},
        {"1 1 1\n0 a 0\n", "line 2: expected the northing of the top south-west corner, found a"},
        {"1 1 1\n0 nan 0\n", "line 2: expected the northing of the top south-west corner, found nan"},
        {"1 1 1\n0 0 0\n-1\n", "line 3: expected 1 cell widths above 0 to the east, found -1"},
        {"2 1 1\n0 0 0\n1 0\n", "line 3: expected 2 cell widths above 0 to the east, found 0"},
        {"2 1 1\n0 0 0\n3*1\n", "line 3: expected 2 more cell widths to the east, found 3*1"},
        {"2 1 1\n0 0 0\n*1\n", "line 3: expected 2 cell widths above 0 to the east, found *1"},
        {"2 1 1\n0 0 0\n2*\n", "line 3: expected 2 cell widths above 0 to the east, found 2*"},
        {"1 1 1\n1e20 0 0\n1\n", "line 3: expected a width that moves the node at 1e+20, found 1"},
        {"1 1 2\n0 0 0\n1\n1\n1\n", "line 6: expected 2 cell widths above 0 downwards, found the end of the file"},
        {"1 1 1\n0 0 0\n1\n1\n1\n7\n", "line 6: expected the end of the file, found 7"},
    };
    for (const auto& [text, expected] : cases) {
        const std::string name = folder.write("bad.msh", text);
        try {
            readSurveyMesh(name);
            ADD_FAILURE() << text;
        } catch (const RunError& error) {
            EXPECT_EQ(error.what(), name + ", " + expected);
        }
    }
    EXPECT_THROW(readSurveyMesh(folder.file("absent.msh")), RunError);
}

}  // namespace
}  // namespace voxlith
