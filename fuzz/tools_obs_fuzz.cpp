// Tables and observed data files of the companion tools. Data of either must convert to the other form and back without
// a change, and the inversion program must read the observed data.
#include <cmath>
#include <fstream>
#include <iterator>

#include "cli/obs_command.h"
#include "formats/observed_data.h"
#include "harness.h"
#include "survey/dummy_value.h"

using namespace voxlith;

namespace {

constexpr std::size_t mostRecords = 2000;

std::string textOf(const std::string& fileName) {
    std::ifstream in(fileName, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The first columns of the table, whatever their names are, in the places that the choices say.
ObsOptions importOptions(fuzzing::Choices& choices, const std::string& fileName) {
    ObsOptions options;
    options.file = fileName;
    options.outFile = "out.obs";
    const std::size_t kind = choices.byte();
    options.columns.data = {"d"};
    if ((kind & 1) != 0) {
        options.columns.data = {"d:s", "e"};
    }
    if ((kind & 2) != 0) {
        options.field.append("60,10,50000");
    }
    if ((kind & 4) != 0) {
        options.columns.line.append("l");
        options.columns.time.append("t");
    }
    options.columns.percent = (kind & 8) != 0 ? 5 : -1;
    options.csv.decimalComma = (kind & 16) != 0;
    options.columns.station.zDown = (kind & 32) != 0;
    if ((kind & 64) != 0) {
        options.columns.station.elevation = 2.5;
    }
    return options;
}

void readByProgram(const ObsReport& report) {
    ObsSet obs;
    const std::size_t records = report.table.records();
    obs.nData = static_cast<std::int32_t>(records);
    obs.nDataTypes = static_cast<std::int32_t>(report.table.components);
    obs.dataType.fill(report.table.header ? DataType::totalMagnetic : DataType::gz);
    obs.idir = 1;
    for (auto* array : {&obs.ObsX, &obs.ObsY, &obs.ObsZ}) {
        array->assign(records, 0.0);
    }
    obs.obsData.assign(records * report.table.components, 0.0);
    obs.obsStd.assign(obs.obsData.size(), 0.0F);
    obs.obsIncl.assign(records, 0.0F);
    obs.obsDecl.assign(records, 0.0F);
    Messages messages;
    readObsFile(messages, ObsReadMode::observed, report.written, obs, {});
    for (std::size_t r = 0; r < records; ++r) {
        fuzzing::require(obs.ObsX[r] == report.table.x[r] && obs.ObsZ[r] == report.table.elevation[r],
                         "the program reads the stations of the table");
        for (std::size_t c = 0; c < report.table.components; ++c) {
            const double datum = report.table.data[r * report.table.components + c];
            fuzzing::require(isValid(obs.obsData[obs.index(c, r)]) == isValid(datum),
                             "the program reads dummies where the table has them");
        }
    }
}

void importAndBack(const ObsOptions& options) {
    const ObsReport report = convertObservedData(options);
    if (report.table.records() > mostRecords) {
        return;
    }
    readByProgram(report);
    ObsOptions back;
    back.file = options.outFile;
    back.csvFile = "back.csv";
    back.columns.data = options.columns.data;
    back.columns.line = options.columns.line;
    back.columns.time = options.columns.time;
    const ObsReport exported = convertObservedData(back);
    fuzzing::require(exported.table.data == report.table.data, "the data come back");
    fuzzing::require(exported.table.x == report.table.x, "the stations come back");
    fuzzing::require(exported.table.line == report.table.line, "the line names come back");
}

void exportAndBack(const ObsOptions& options) {
    const ObsReport report = convertObservedData(options);
    const std::string first = textOf(options.csvFile);
    fuzzing::require(!first.empty(), "a table is written");
    fuzzing::require(report.table.records() > 0, "a file without records is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("in.txt");
    fuzzing::Choices choices({data, size});
    const std::size_t kind = choices.below(4);
    ObsOptions options = importOptions(choices, file.name());
    file.set(choices.rest());
    fuzzing::allowStops([&] {
        if (kind > 0) {
            importAndBack(options);
            return;
        }
        ObsOptions exported;
        exported.file = file.name();
        exported.csvFile = "out.csv";
        exported.columns.line = options.columns.line;
        exported.columns.time = options.columns.time;
        exportAndBack(exported);
    });
    return 0;
}
