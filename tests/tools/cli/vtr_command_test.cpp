// Grid files, read back by a small reader of the VTK format that knows nothing of the writer.
#include "cli/vtr_command.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>

#include "base/messages.h"
#include "forward/number_text.h"
#include "forward/survey_mesh.h"
#include "support/temporary_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

// The value of an attribute of the element that begins at `place`.
std::string attribute(const std::string& text, std::size_t place, const std::string& name) {
    const std::size_t start = text.find(" " + name + "=\"", place);
    if (start == std::string::npos || start > text.find('>', place)) {
        return "";
    }
    const std::size_t first = start + name.size() + 3;
    return text.substr(first, text.find('"', first) - first);
}

struct GridFile {
    explicit GridFile(const std::string& bytes) {
        const std::size_t appended = bytes.find("<AppendedData encoding=\"raw\">");
        const std::string head = bytes.substr(0, appended);
        data = bytes.substr(bytes.find('_', appended) + 1);
        std::istringstream(attribute(head, head.find("<RectilinearGrid "), "WholeExtent")) >> extent[0] >> extent[1] >>
            extent[2] >> extent[3] >> extent[4] >> extent[5];
        EXPECT_EQ(attribute(head, head.find("<VTKFile "), "header_type"), "UInt64");
        EXPECT_EQ(attribute(head, head.find("<VTKFile "), "byte_order"), "LittleEndian");
        EXPECT_EQ(attribute(head, head.find("<Piece "), "Extent"),
                  attribute(head, head.find("<RectilinearGrid "), "WholeExtent"));
        readArrays(head, "Coordinates", coordinates);
        readArrays(head, "CellData", cells);
        EXPECT_EQ(data.substr(end), "\n  </AppendedData>\n</VTKFile>\n");
    }

    void readArrays(const std::string& head, const std::string& section,
                    std::map<std::string, std::vector<double>>& arrays) {
        const std::size_t last = head.find("</" + section);
        for (std::size_t place = head.find("<DataArray", head.find("<" + section)); place < last;
             place = head.find("<DataArray", place + 1)) {
            EXPECT_EQ(attribute(head, place, "type"), "Float64");
            EXPECT_EQ(attribute(head, place, "format"), "appended");
            const std::size_t offset = std::stoul(attribute(head, place, "offset"));
            std::uint64_t length = 0;
            std::memcpy(&length, data.data() + offset, sizeof length);
            ASSERT_LE(offset + 8 + length, data.size());
            std::vector<double> values(length / 8);
            std::memcpy(values.data(), data.data() + offset + 8, length);
            arrays[attribute(head, place, "Name")] = values;
            end = std::max(end, offset + 8 + length);
        }
    }

    long extent[6] = {-1, -1, -1, -1, -1, -1};
    std::map<std::string, std::vector<double>> coordinates, cells;
    std::string data;
    std::size_t end = 0;
};

std::string errorOf(const VtrOptions& options) {
    try {
        writeVtrFile(options);
    } catch (const RunError& error) {
        return error.what();
    }
    return "";
}

class VtrCommand : public testing::Test {
protected:
    VtrCommand() {
        options.meshFile = folder.write("m.msh", "3 2 4\n100 200 50\n10 20 30\n5 6\n2*1 2 4\n");
        options.outFile = folder.file("out.vtr");
    }

    // A model whose value tells where the cell is: f(easting, northing, elevation) of its centre.
    static double placeValue(double x, double y, double z) { return 1e6 * x + 1e3 * y + z; }

    std::string writeModel(const std::string& name, std::size_t absentCell) const {
        const MeshGeometry mesh = readSurveyMesh(options.meshFile);
        std::string text;
        for (std::size_t j = 0; j < mesh.yCentre.size(); ++j) {
            for (std::size_t i = 0; i < mesh.xCentre.size(); ++i) {
                for (std::size_t k = 0; k < mesh.zCentre.size(); ++k) {
                    const double value = placeValue(mesh.xCentre[i], mesh.yCentre[j], -mesh.zCentre[k]);
                    text += (mesh.cellIndex(k, i, j) == absentCell ? "-1e32" : numberText(value)) + "\n";
                }
            }
        }
        return folder.write(name, text);
    }

    TemporaryFolder folder;
    VtrOptions options;
};

TEST_F(VtrCommand, everyCellLiesWhereItsModelValueSays) {
    options.models = {"here=" + writeModel("a.den", 1000)};
    writeVtrFile(options);
    GridFile grid(folder.read("out.vtr"));
    EXPECT_EQ(grid.extent[1], 3);
    EXPECT_EQ(grid.extent[3], 2);
    EXPECT_EQ(grid.extent[5], 4);
    const auto &x = grid.coordinates["x"], &y = grid.coordinates["y"], &z = grid.coordinates["z"];
    EXPECT_EQ(x, (std::vector<double>{100, 110, 130, 160}));
    EXPECT_EQ(y, (std::vector<double>{200, 205, 211}));
    EXPECT_EQ(z, (std::vector<double>{42, 46, 48, 49, 50}));
    const std::vector<double>& values = grid.cells["here"];
    ASSERT_EQ(values.size(), 24U);
    std::size_t cell = 0;
    for (std::size_t k = 0; k < 4; ++k) {
        for (std::size_t j = 0; j < 2; ++j) {
            for (std::size_t i = 0; i < 3; ++i, ++cell) {
                EXPECT_EQ(values[cell],
                          placeValue(0.5 * (x[i] + x[i + 1]), 0.5 * (y[j] + y[j + 1]), 0.5 * (z[k] + z[k + 1])))
                    << i << " " << j << " " << k;
            }
        }
    }
}

TEST_F(VtrCommand, randomMeshesKeepEveryCell) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 generator(seed);
        std::uniform_int_distribution<int> count(1, 6), width(1, 9), height(-50, 50);
        const int nx = count(generator), ny = count(generator), nz = count(generator);
        std::string text = std::to_string(nx) + " " + std::to_string(ny) + " " + std::to_string(nz) + "\n-40 7 " +
                           std::to_string(height(generator)) + "\n";
        for (const int cells : {nx, ny, nz}) {
            for (int n = 0; n < cells; ++n) {
                text += std::to_string(width(generator)) + " ";
            }
            text += "\n";
        }
        folder.write("m.msh", text);
        options.models = {writeModel("a.den", 1000)};
        writeVtrFile(options);
        GridFile grid(folder.read("out.vtr"));
        const auto &x = grid.coordinates["x"], &y = grid.coordinates["y"], &z = grid.coordinates["z"];
        const std::vector<double>& values = grid.cells["a.den"];
        ASSERT_EQ(values.size(), (x.size() - 1) * (y.size() - 1) * (z.size() - 1)) << "seed " << seed;
        for (std::size_t cell = 0; cell < values.size(); ++cell) {
            const std::size_t i = cell % (x.size() - 1), j = cell / (x.size() - 1) % (y.size() - 1);
            const std::size_t k = cell / (x.size() - 1) / (y.size() - 1);
            EXPECT_LT(z[k], z[k + 1]);
            EXPECT_EQ(values[cell],
                      placeValue(0.5 * (x[i] + x[i + 1]), 0.5 * (y[j] + y[j + 1]), 0.5 * (z[k] + z[k + 1])))
                << "seed " << seed << ", cell " << cell;
        }
    }
}

TEST_F(VtrCommand, absentCellsAreNaN) {
    options.models = {writeModel("a.den", 5), writeModel("b.den", 1000)};
    const std::vector<VtrModel> models = writeVtrFile(options);
    EXPECT_EQ(models[0].absentCells, 1);
    EXPECT_EQ(models[1].absentCells, 0);
    EXPECT_EQ(models[1].smallest, placeValue(105, 202.5, 44));
    EXPECT_EQ(models[1].largest, placeValue(145, 208, 49.5));
    GridFile grid(folder.read("out.vtr"));
    const std::vector<double>&a = grid.cells["a.den"], &b = grid.cells["b.den"];
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t cell = 0; cell < a.size(); ++cell) {
        // Cell 5 is the second from the top of the column i = 1, j = 0: layer 2 of 4 from below.
        EXPECT_TRUE(cell == 2 * 6 + 1 ? std::isnan(a[cell]) : a[cell] == b[cell]) << cell;
        EXPECT_FALSE(std::isnan(b[cell])) << cell;
    }
}

TEST_F(VtrCommand, namesAreThoseOfTheFilesOrGiven) {
    EXPECT_EQ(parseVtrModel("/some/where/voxlith.den").name, "voxlith.den");
    EXPECT_EQ(parseVtrModel("a b=c=d.den").name, "a b");
    EXPECT_EQ(parseVtrModel("a b=c=d.den").fileName, "c=d.den");
    options.models = {"<\"&\">=" + writeModel("a.den", 1000)};
    writeVtrFile(options);
    GridFile grid(folder.read("out.vtr"));
    EXPECT_EQ(grid.cells.count("&lt;&quot;&amp;&quot;&gt;"), 1U);
    EXPECT_EQ(parseVtrModel("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8C\x8D=f").name, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8C\x8D");
    for (const std::string name : {"", "a\nb", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                   "\xF5\x80\x80\x80", "\x80", "\x7F", "\xEF\xBF\xBF"}) {
        EXPECT_THROW(parseVtrModel(name + "=f"), RunError) << name;
    }
    EXPECT_THROW(parseVtrModel("name="), RunError);
    EXPECT_THROW(parseVtrModel("folder/"), RunError);
}

TEST_F(VtrCommand, whatIsWrongIsTold) {
    const std::string model = writeModel("a.den", 1000);
    const std::string longModel = folder.write("long.den", "25*1\n");
    const std::string shortModel = folder.write("short.den", "23*1\n");
    const std::string badModel = folder.write("bad.den", "10*1\nx\n");
    const std::string slashModel = folder.write("slash.den", "10*1 /\n");
    const std::string gapModel = folder.write("gap.den", "22*1,,1\n");
    for (const auto& [models, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{model, model}, "--model " + model + ": the name a.den is that of " + model + " already; give NAME=FILE"},
             {{folder.file("none")}, folder.file("none") + ": the model file cannot be opened"},
             {{shortModel}, shortModel + ", line 2: expected 24 cell values, found the end of the file"},
             {{longModel},
              longModel + ", line 1: expected the end of the file behind the 24 values of the mesh, "
                          "found more"},
             {{badModel}, badModel + ", line 2: expected 24 cell values, found \"x\""},
             {{slashModel}, slashModel + ", line 1: expected 24 cell values, found 10 before a slash"},
             {{gapModel}, gapModel + ", line 1: expected 24 cell values, found 23 and values left out between commas"},
         }) {
        options.models = models;
        EXPECT_EQ(errorOf(options), message);
        EXPECT_FALSE(std::filesystem::exists(options.outFile));
    }
}

}  // namespace
}  // namespace voxlith
