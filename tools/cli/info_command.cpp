#include "cli/info_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "forward/mtx_file.h"
#include "forward/number_text.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

std::string_view styleName(InversionStyle style) {
    switch (style) {
        case InversionStyle::equivalentSource:
            return "equivalent source";
        case InversionStyle::apparentDensity:
            return "apparent density";
        case InversionStyle::surfaceAndApparentDensity:
            return "surface and apparent density";
        case InversionStyle::edgePadding:
            return "3D with edge padding correction";
        default:
            return "standard 3D";
    }
}

void addLine(std::string& text, std::string_view label, const std::string& value) {
    constexpr std::size_t labelWidth = 22;
    text += label;
    text += ':';
    text.append(labelWidth - std::min(labelWidth - 1, label.size() + 1), ' ');
    text += value + "\n";
}

std::string counts(std::int32_t x, std::int32_t y, std::int32_t z) {
    return std::to_string(x) + " x " + std::to_string(y) + " x " + std::to_string(z);
}

template <class Value>
std::string range(std::span<const Value> values) {
    const auto [smallest, largest] = std::minmax_element(values.begin(), values.end());
    return numberText(*smallest) + " to " + numberText(*largest);
}

std::string taps(const std::vector<float>& coefLow) {
    std::string text = std::to_string(coefLow.size()) + ":";
    for (const float tap : coefLow) {
        text += " " + numberText(tap);
    }
    return text;
}

void describeStart(const std::string& fileName, const MtxFile& file, std::string& text) {
    const SensitivityHeader& header = file.sensitivity.header;
    const MtxForm form = file.sensitivity.files[0].header.form;
    const ObsSet& obs = file.obs;
    addLine(text, "file", fileName);
    addLine(text, "file size", std::to_string(std::filesystem::file_size(fileName)) + " bytes");
    addLine(text, "layout",
            form == MtxForm::record   ? "record form"
            : form == MtxForm::tagged ? "tagged form, version " + std::to_string(header.version)
                                      : "bare form");
    addLine(text, "data type",
            std::to_string(codeOf(header.dataType[0])) + " " + std::string(dataTypeName(header.dataType[0])) +
                (form == MtxForm::record ? " (by the file's name)" : ""));
    addLine(text, "data", std::to_string(header.nData));
    if (form != MtxForm::tagged) {
        return;
    }
    addLine(text, "incl, decl, geomag",
            numberText(obs.incl) + ", " + numberText(obs.decl) + ", " + numberText(obs.geomag));
    addLine(text, "aincl, adecl, idir",
            numberText(obs.aincl) + ", " + numberText(obs.adecl) + ", " + std::to_string(obs.idir));
    addLine(text, "stations x", range<double>(obs.ObsX));
    addLine(text, "stations y", range<double>(obs.ObsY));
    addLine(text, "stations z", range<double>(obs.ObsZ));
}

void describeMesh(const MtxFile& file, std::string& text) {
    const MeshGeometry& mesh = file.mesh;
    const SensitivityHeader& header = file.sensitivity.header;
    addLine(text, "cells x, y, z", counts(mesh.nx, mesh.ny, mesh.nz));
    addLine(text, "padded x, y, z", counts(mesh.npx, mesh.npy, mesh.npz));
    addLine(text, "x nodes", numberText(mesh.xNode.front()) + " to " + numberText(mesh.xNode.back()));
    addLine(text, "y nodes", numberText(mesh.yNode.front()) + " to " + numberText(mesh.yNode.back()));
    addLine(text, "z nodes", numberText(mesh.zNode.front()) + " to " + numberText(mesh.zNode.back()));
    addLine(text, "taps", taps(file.sensitivity.filter.coefLow));
    if (file.sensitivity.files[0].header.form != MtxForm::record) {
        addLine(text, "weight parameters",
                numberText(header.weightParamA[0]) + ", " + numberText(header.weightParamB[0]));
    }
    addLine(text, "depth weights", range<float>(file.sensitivity.depthWeight));
}

void describeRows(const MtxFile& file, std::string& text) {
    const SensitivityHeader& header = file.sensitivity.header;
    const std::vector<std::int64_t>& offsets = file.sensitivity.store.rowOffset;
    std::vector<std::int64_t> lengths;
    for (std::size_t row = 1; row < offsets.size(); ++row) {
        lengths.push_back(offsets[row] - offsets[row - 1]);
    }
    const auto [shortest, longest] = std::minmax_element(lengths.begin(), lengths.end());
    const double all = static_cast<double>(header.nData) * static_cast<double>(header.nPadded);
    const auto kept = static_cast<double>(header.coefficientCount[0]);
    addLine(text, "coefficients", std::to_string(header.coefficientCount[0]));
    addLine(text, "coefficients a row", std::to_string(*shortest) + " to " + std::to_string(*longest));
    addLine(text, "compression", kept > 0 ? numberText(std::round(100.0 * all / kept) / 100.0) : "no coefficients");
}

void describeTail(const MtxFile& file, std::string& text) {
    const SensitivityHeader& header = file.sensitivity.header;
    const bool isRecordForm = file.sensitivity.files[0].header.form == MtxForm::record;
    const bool storesStyle = file.sensitivity.files[0].header.holdsLayers();
    addLine(text, "diagonal of G'G", isRecordForm ? "not stored" : range<double>(file.sensitivity.gtgdiag));
    addLine(text, "inversion style",
            std::to_string(codeOf(header.inversionStyle)) + " " + std::string(styleName(header.inversionStyle)) +
                (storesStyle ? "" : " (by the padded mesh)"));
    addLine(text, "layers covered", std::to_string(file.mesh.nzl));
    addLine(text, "layer responses", storesStyle ? std::to_string(file.mesh.nzl + 1) + " a datum" : "not stored");
}

}  // namespace

CLI::App* addInfoCommand(CLI::App& tools, InfoOptions& options) {
    CLI::App* command = tools.add_subcommand("info", "Print the header of a sensitivity file");
    command->add_option("file", options.fileName, "Sensitivity file of any layout")->required();
    command->footer(
        "Example:\n"
        "  voxlith-tools info gz.mtx");
    return command;
}

std::string describeMtxFile(const std::string& fileName) {
    const auto file = std::make_unique<MtxFile>();
    readMtxFile(fileName, MtxRows::counted, *file);
    std::string text;
    describeStart(fileName, *file, text);
    describeMesh(*file, text);
    describeRows(*file, text);
    describeTail(*file, text);
    return text;
}

}  // namespace voxlith
