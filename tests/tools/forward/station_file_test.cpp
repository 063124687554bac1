// Stations of observed data files of all forms.
#include "forward/station_file.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

TEST(StationFile, gravityLayout) {
    const TemporaryFolder folder;
    const StationFile file = readStationFile(
        folder.write("s.obs", "  2   !! # of data\n1 2 3.5 9.0 0.1\n4,5,-6,*,*\nsurplus\n"), DataType::gz);
    ASSERT_EQ(file.stations.size(), 2U);
    EXPECT_EQ(file.stations[0].point.x, 1);
    EXPECT_EQ(file.stations[0].point.y, 2);
    EXPECT_EQ(file.stations[0].elevation, 3.5);
    EXPECT_EQ(file.stations[0].point.depth, -3.5);
    EXPECT_EQ(file.stations[1].point.depth, 6);
    EXPECT_FALSE(file.field.has_value());
    EXPECT_FALSE(file.measured.has_value());
}

TEST(StationFile, magneticLayout) {
    const TemporaryFolder folder;
    const StationFile file = readStationFile(folder.write("s.mag", "60 -5 48000.5 !! field\n50 -4 1\n1\n1\t2\t3\n"),
                                             DataType::totalMagnetic);
    ASSERT_TRUE(file.field.has_value() && file.measured.has_value());
    EXPECT_EQ(file.field->direction.incl, 60);
    EXPECT_EQ(file.field->direction.decl, -5);
    EXPECT_EQ(file.field->strength, 48000.5);
    EXPECT_EQ(file.measured->incl, 50);
    EXPECT_EQ(file.measured->decl, -4);
    EXPECT_EQ(file.stations.size(), 1U);
}

TEST(StationFile, aDirectionLineOfTextLeavesTheDirectionOpen) {
    const TemporaryFolder folder;
    const StationFile file =
        readStationFile(folder.write("s.mag", "60 -5 48000\n!! none\n1\n1 2 3\n"), DataType::totalMagnetic);
    EXPECT_TRUE(file.field.has_value());
    EXPECT_FALSE(file.measured.has_value());
    EXPECT_EQ(file.idir, 1);
}

TEST(StationFile, theLayoutIsThatOfTheFileNotThatOfTheType) {
    const TemporaryFolder folder;
    const std::string gravity = folder.write("s.obs", "1\n1 2 3\n");
    const std::string magnetic = folder.write("s.mag", "60 -5 48000\n50 -4 1\n1\n1 2 3\n");
    const std::string components =
        folder.write("c.obs", "1 2 0 12 !! # of data, # components, data types\n1 2 3 4 5 6 7\n");
    EXPECT_EQ(readStationFile(gravity, DataType::totalMagnetic).stations.size(), 1U);
    EXPECT_FALSE(readStationFile(gravity, DataType::totalMagnetic).field.has_value());
    EXPECT_EQ(readStationFile(magnetic, DataType::gz).stations.size(), 1U);
    EXPECT_TRUE(readStationFile(magnetic, DataType::gz).field.has_value());
    EXPECT_EQ(readStationFile(components, DataType::gz).stations.size(), 1U);
}

TEST(StationFile, downholeStationsHaveTheirOwnDirections) {
    const TemporaryFolder folder;
    const std::string name = folder.write("s.mag", "60 -5 48000\n50 -4 0\n2\n1 2 3 10 20 5 1\n4 5 6 30 40 5 1\n");
    const StationFile file = readStationFile(name, DataType::totalMagnetic);
    ASSERT_EQ(file.measuredHere.size(), 2U);
    EXPECT_EQ(file.measuredHere[1].incl, 30);
    EXPECT_EQ(file.measuredHere[1].decl, 40);
    EXPECT_EQ(file.idir, 0);
    EXPECT_TRUE(readStationFile(name, DataType::tx).measuredHere.empty());
}

TEST(StationFile, errorsNameFileAndLine) {
    const TemporaryFolder folder;
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "line 1: expected a header, found the end of the file"},
        {"\n1 2 3\n", "line 1: expected the number of stations, found \"\""},
        {"0\n", "line 1: expected the number of stations, found \"0\""},
        {"2.5\n", "line 1: expected the number of stations, found \"2.5\""},
        {"2\n1 2 3\n", "line 3: expected x, y, elevation of station 2, found the end of the file"},
        {"1\n1 2\n", "line 2: expected x, y, elevation of station 1, found \"1 2\""},
        {"1\n1 inf 3\n", "line 2: expected x, y, elevation of station 1, found \"1 inf 3\""},
        {"60 5 48000\n50 5\n1\n1 2 3\n", "line 2: expected aincl, adecl, idir, found \"50 5\""},
        {"60 5 48000\n50 5 1.5\n1\n1 2 3\n", "line 2: expected aincl, adecl, idir, found \"50 5 1.5\""},
        {"60 5 48000\n50 5 0\n1\n1 2 3\n",
         "line 4: expected x, y, elevation, aincl, adecl of station 1, found \"1 2 3\""},
    };
    for (const auto& [text, expected] : cases) {
        const std::string name = folder.write("bad.obs", text);
        try {
            readStationFile(name, DataType::totalMagnetic);
            ADD_FAILURE() << text;
        } catch (const RunError& error) {
            EXPECT_EQ(error.what(), name + ", " + expected);
        }
    }
    EXPECT_THROW(readStationFile(folder.file("absent.obs"), DataType::gz), RunError);
}

// A count beyond any file costs nothing: memory grows with the stations that are read.
TEST(StationFile, anAbsurdCountEndsAtTheEndOfTheFile) {
    const TemporaryFolder folder;
    EXPECT_THROW(readStationFile(folder.write("s.obs", "2147483647\n1 2 3\n"), DataType::gz), RunError);
}

}  // namespace
}  // namespace voxlith
