// Meshes planned around surveys.
#include "cli/mesh_command.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "base/messages.h"
#include "forward/survey_mesh.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

class MeshCommand : public testing::Test {
protected:
    MeshCommand() {
        options.extent = "0,1600,100,900";
        options.cell = "50";
        options.depth = 800;
        options.outFile = folder.file("m.msh");
    }

    std::string failure() {
        try {
            writeMeshFile(options);
        } catch (const RunError& error) {
            return error.what();
        }
        return "none";
    }

    TemporaryFolder folder;
    MeshOptions options;
};

TEST_F(MeshCommand, theCoreFitsTheExtent) {
    options.paddingCells = 0;
    const MeshReport report = writeMeshFile(options);
    EXPECT_EQ(folder.read("m.msh"),
              "32 16 16 ! cells to the east, to the north, downwards\n"
              "0 100 0 ! top south-west corner: easting, northing, elevation\n"
              "32*50\n16*50\n16*50\n");
    EXPECT_EQ(report.mesh.npx, 32);
    EXPECT_EQ(report.mesh.zNode.back(), 800.0);
}

TEST_F(MeshCommand, stationsLieAmidTheCore) {
    options.extent.clear();
    options.csvFile = folder.write("s.csv", "E;N;h\n1000;2000;-20\n1300;2100;-15\n1200;2050;-30\n");
    options.columns.x = "E";
    options.columns.y = "N";
    options.columns.z = "h";
    options.cell = "100,25";
    options.paddingFactor = 2;
    options.paddingDistance = 250;
    const MeshReport report = writeMeshFile(options);
    EXPECT_EQ(report.stations, 3);
    EXPECT_EQ(report.stationsBelowTop, 0);
    // Half a cell beyond the outermost stations; 200 and 400 of padding at the sides, 50, 100, 200 below.
    EXPECT_EQ(report.mesh.xNode, (std::vector<double>{350, 750, 950, 1050, 1150, 1250, 1350, 1550, 1950}));
    EXPECT_EQ(report.mesh.yNode.front(), 1950 - 600);
    EXPECT_EQ(report.mesh.zNode.front(), 30.0);
    EXPECT_EQ(report.mesh.zNode.back(), 30.0 + 800 + 50 + 100 + 200);
    options.top = "highest";
    EXPECT_EQ(writeMeshFile(options).stationsBelowTop, 2);
    options.top = "-17.5";
    EXPECT_EQ(writeMeshFile(options).mesh.zNode.front(), 17.5);
}

TEST_F(MeshCommand, readsObservedData) {
    options.extent.clear();
    options.stationFile = folder.write("s.obs", "2\n0 0 5 1 1\n100 300 7 1 1\n");
    options.margin = 0;
    options.paddingCells = 2;
    const MeshReport report = writeMeshFile(options);
    EXPECT_EQ(report.mesh.nx, 2 + 4);
    EXPECT_EQ(report.mesh.ny, 6 + 4);
    EXPECT_EQ(report.mesh.nz, 16 + 2);
    EXPECT_EQ(report.mesh.xWidth, (std::vector<double>{84.5, 65, 50, 50, 65, 84.5}));
    EXPECT_EQ(report.mesh.zNode.front(), -5.0);
}

// What must hold for any plan: the core is covered by cells of the size asked for, widths grow outwards, and the file
// reads back as it was planned.
TEST_F(MeshCommand, plansHoldForRandomSurveys) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 generator(seed);
        const auto draw = [&](double from, double to) {
            return std::uniform_real_distribution<double>(from, to)(generator);
        };
        MeshPlan plan;
        const double size = std::pow(10.0, draw(-1, 3));
        plan.east.least = draw(-1e6, 1e6);
        plan.east.most = plan.east.least + size * draw(0, 30);
        plan.north.least = draw(-1e6, 1e6);
        plan.north.most = plan.north.least + size * draw(0, 30);
        plan.top = draw(-500, 500);
        plan.depth = size * draw(0.1, 20);
        plan.cell = {size, size * draw(0.5, 2), size * draw(0.2, 1)};
        plan.layerFactor = seed % 3 == 0 ? 1.0 : draw(1, 1.3);
        plan.sides = {draw(1, 2), size * draw(0, 20), seed % 4 == 0 ? 3 : -1};
        plan.below = plan.sides;
        const MeshWidths widths = planMesh(plan);
        const MeshGeometry mesh = readSurveyMesh(folder.write("r.msh", meshFileText(widths)));
        ASSERT_EQ(mesh.xWidth.size(), widths.east.size()) << "seed " << seed;
        ASSERT_EQ(mesh.zWidth.size(), widths.down.size()) << "seed " << seed;
        const double slack = 1e-6 * size;
        EXPECT_LE(widths.coreEast.least, plan.east.least + slack) << "seed " << seed;
        EXPECT_GE(widths.coreNorth.most, plan.north.most - slack) << "seed " << seed;
        EXPECT_LE(widths.coreElevation.least, plan.top - plan.depth + slack) << "seed " << seed;
        for (std::size_t n = 0; n < widths.down.size(); ++n) {
            EXPECT_NEAR(mesh.zWidth[n], widths.down[n], slack) << "seed " << seed;
            EXPECT_GE(widths.down[n], plan.cell[2] * 0.999) << "seed " << seed;
            EXPECT_TRUE(n == 0 || widths.down[n] >= widths.down[n - 1] * 0.999) << "seed " << seed;
        }
        const std::size_t count = widths.east.size();
        for (std::size_t n = 0; n < count; ++n) {
            EXPECT_EQ(widths.east[n], widths.east[count - 1 - n]) << "seed " << seed;
        }
        if (plan.sides.cells < 0) {
            EXPECT_LE(mesh.xNode.front(), plan.east.least - plan.sides.distance + slack) << "seed " << seed;
            EXPECT_GE(mesh.zNode.back(), -plan.top + plan.depth + plan.below.distance - slack) << "seed " << seed;
        }
    }
}

TEST_F(MeshCommand, refusesWhatCannotBeAMesh) {
    options.cell = "0";
    EXPECT_EQ(failure(), "--cell 0: expected widths above 0");
    options.cell = "1e-9";
    EXPECT_NE(failure().find("too many cells to the east"), std::string::npos) << failure();
    options.cell = "50,50,x";
    EXPECT_EQ(failure(), "--cell 50,50,x: expected w, or w,h, or dx,dy,dz");
    options.cell = "50";
    options.depth = 1e300;
    EXPECT_NE(failure().find("too many cells downwards"), std::string::npos) << failure();
    options.depth = 800;
    options.paddingCells = 100000;
    EXPECT_NE(failure().find("padding cells grow beyond"), std::string::npos) << failure();
    options.paddingCells = -1;
    options.extent = "1e17,1.00000000000001e17,0,1";
    options.cell = "5";
    options.margin = 0;
    EXPECT_NE(failure().find("does not move the node"), std::string::npos) << failure();
    options.extent = "5,1,0,1";
    EXPECT_NE(failure().find("west below east"), std::string::npos) << failure();
    options.extent = "0,1,0,1";
    options.top = "high";
    EXPECT_EQ(failure(), "--top high: expected an elevation, lowest or highest");
    options.top = "0";
    options.csvFile = "s.csv";
    EXPECT_EQ(failure(), "expected one of --stations, --csv and --extent, found 2");
    EXPECT_FALSE(std::filesystem::exists(options.outFile));
}

}  // namespace
}  // namespace voxlith
