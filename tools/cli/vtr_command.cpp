#include "cli/vtr_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string_view>

#include "base/messages.h"
#include "base/output_file.h"
#include "forward/cell_values.h"
#include "forward/number_text.h"
#include "forward/progress_line.h"
#include "forward/survey_mesh.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

static_assert(std::endian::native == std::endian::little, "values are written as they stand in memory");

// Length of the UTF-8 character at the head of the text; 0 when there is none that XML can hold.
std::size_t characterLength(std::string_view text) {
    const auto byte = [&](std::size_t n) {
        return n < text.size() ? static_cast<unsigned>(static_cast<unsigned char>(text[n])) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const std::size_t length = first >= 0xC2 && first < 0xE0 ? 2 : first >= 0xE0 && first < 0xF0 ? 3 : 4;
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    unsigned code = first & (0x7FU >> length);
    for (std::size_t n = 1; n < length; ++n) {
        if ((byte(n) & 0xC0U) != 0x80U) {
            return 0;
        }
        code = code << 6U | (byte(n) & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool refused = (code >= 0xD800 && code < 0xE000) || code == 0xFFFE || code == 0xFFFF || code > 0x10FFFF;
    return overlong || refused ? 0 : length;
}

void checkName(const std::string& text, std::string_view name) {
    if (name.empty()) {
        throw RunError("--model " + text + ": expected FILE or NAME=FILE");
    }
    for (std::size_t place = 0; place < name.size();) {
        const std::size_t length = characterLength(name.substr(place));
        if (length == 0) {
            throw RunError("--model: expected a name in UTF-8 without control characters, found character " +
                           std::to_string(place + 1) + " of code " +
                           std::to_string(static_cast<unsigned char>(name[place])));
        }
        place += length;
    }
}

std::string xmlText(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::vector<VtrModel> namedModels(const std::vector<std::string>& texts) {
    std::vector<VtrModel> models;
    for (const std::string& text : texts) {
        VtrModel model = parseVtrModel(text);
        for (const VtrModel& other : models) {
            if (other.name == model.name) {
                throw RunError("--model " + text + ": the name " + model.name + " is that of " + other.fileName +
                               " already; give NAME=FILE");
            }
        }
        models.push_back(std::move(model));
    }
    return models;
}

// One array's element, and the offset of the next array.
std::string arrayElement(const std::string& name, std::uint64_t count, std::uint64_t& offset) {
    std::string text = "        <DataArray type=\"Float64\" Name=\"" + xmlText(name) +
                       "\" format=\"appended\" offset=\"" + std::to_string(offset) + "\"/>\n";
    offset += sizeof(std::uint64_t) + count * sizeof(double);
    return text;
}

std::string headText(const MeshGeometry& mesh, const std::vector<VtrModel>& models) {
    const std::string extent =
        "\"0 " + std::to_string(mesh.nx) + " 0 " + std::to_string(mesh.ny) + " 0 " + std::to_string(mesh.nz) + "\"";
    std::uint64_t offset = 0;
    std::string text =
        "<?xml version=\"1.0\"?>\n"
        "<VTKFile type=\"RectilinearGrid\" version=\"1.0\" byte_order=\"LittleEndian\" header_type=\"UInt64\">\n"
        "  <RectilinearGrid WholeExtent=" +
        extent + ">\n    <Piece Extent=" + extent + ">\n      <Coordinates>\n";
    text += arrayElement("x", mesh.xNode.size(), offset);
    text += arrayElement("y", mesh.yNode.size(), offset);
    text += arrayElement("z", mesh.zNode.size(), offset);
    text += "      </Coordinates>\n      <CellData";
    text += models.empty() ? std::string(">\n") : " Scalars=\"" + xmlText(models.front().name) + "\">\n";
    for (const VtrModel& model : models) {
        text += arrayElement(model.name, mesh.cellCount(), offset);
    }
    return text +
           "      </CellData>\n    </Piece>\n  </RectilinearGrid>\n"
           "  <AppendedData encoding=\"raw\">\n_";
}

void putArray(OutputFile& file, std::span<const double> values) {
    const std::uint64_t length = values.size_bytes();
    appendOutput(file, {reinterpret_cast<const char*>(&length), sizeof length});
    appendOutput(file, {reinterpret_cast<const char*>(values.data()), values.size_bytes()});
}

// zNode is the depth below the origin of elevation and rises downwards.
std::vector<double> elevationsUpwards(const MeshGeometry& mesh) {
    std::vector<double> elevations;
    for (auto depth = mesh.zNode.rbegin(); depth != mesh.zNode.rend(); ++depth) {
        elevations.push_back(*depth == 0.0 ? 0.0 : -*depth);
    }
    return elevations;
}

void countModel(std::span<const double> values, VtrModel& model) {
    bool found = false;
    for (const double value : values) {
        if (!isValid(value)) {
            ++model.absentCells;
            continue;
        }
        model.smallest = found ? std::min(model.smallest, value) : value;
        model.largest = found ? std::max(model.largest, value) : value;
        found = true;
    }
}

}  // namespace

VtrModel parseVtrModel(const std::string& text) {
    VtrModel model;
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos) {
        model.fileName = text;
        model.name = std::filesystem::path(text).filename().string();
    } else {
        model.name = text.substr(0, sign);
        model.fileName = text.substr(sign + 1);
    }
    checkName(text, model.name);
    checkName(text, model.fileName.empty() ? std::string_view() : std::string_view("file"));
    return model;
}

std::vector<double> vtkCellOrder(const MeshGeometry& mesh, std::span<const double> values) {
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto nz = static_cast<std::size_t>(mesh.nz);
    std::vector<double> ordered;
    ordered.reserve(values.size());
    for (std::size_t layer = nz; layer-- > 0;) {
        for (std::size_t j = 0; j < ny; ++j) {
            for (std::size_t i = 0; i < nx; ++i) {
                const double value = values[mesh.cellIndex(layer, i, j)];
                ordered.push_back(isValid(value) ? value : std::numeric_limits<double>::quiet_NaN());
            }
        }
    }
    return ordered;
}

CLI::App* addVtrCommand(CLI::App& tools, VtrOptions& options) {
    CLI::App* command = tools.add_subcommand("vtr", "Write mesh and models as a VTK rectilinear grid (.vtr)");
    command->add_option("--mesh", options.meshFile, "UBC tensor mesh file")->required();
    command
        ->add_option("--model", options.models,
                     "Model file, or NAME=FILE to name its data; as often as there are models (default of the name: "
                     "that of the file)")
        ->required();
    command->add_option("--out", options.outFile, "Grid file to write")->required();
    command->footer(
        "x is the easting, y the northing, z the elevation. Absent cells (values at or below -1e30) are NaN.\n\n"
        "Examples:\n"
        "  voxlith-tools vtr --mesh m.msh --model voxlith.den --out model.vtr\n"
        "  voxlith-tools vtr --mesh m.msh --model true=true.den --model recovered=voxlith.den --out both.vtr");
    return command;
}

std::vector<VtrModel> writeVtrFile(const VtrOptions& options) {
    const MeshGeometry mesh = readSurveyMesh(options.meshFile);
    std::vector<VtrModel> models = namedModels(options.models);
    OutputFile file;
    openOutputFile(file, options.outFile);
    appendOutput(file, headText(mesh, models));
    putArray(file, mesh.xNode);
    putArray(file, mesh.yNode);
    putArray(file, elevationsUpwards(mesh));
    ProgressLine progress("models", models.size());
    std::size_t done = 0;
    for (VtrModel& model : models) {
        const std::vector<double> values = readCellValues(model.fileName, "model", mesh.cellCount());
        countModel(values, model);
        putArray(file, vtkCellOrder(mesh, values));
        progress.show(++done);
    }
    appendOutput(file, "\n  </AppendedData>\n</VTKFile>\n");
    finishOutputFile(file);
    return models;
}

void printVtrReport(const std::vector<VtrModel>& models) {
    for (const VtrModel& model : models) {
        std::printf("%s: %s to %s", model.name.c_str(), numberText(model.smallest).c_str(),
                    numberText(model.largest).c_str());
        if (model.absentCells > 0) {
            std::printf(", %lld absent cells", static_cast<long long>(model.absentCells));
        }
        std::printf("\n");
    }
}

}  // namespace voxlith
