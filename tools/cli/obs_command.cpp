#include "cli/obs_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/messages.h"
#include "forward/number_text.h"
#include "forward/survey_type.h"
#include "survey/data_types.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr const char* obsExamples =
    "Examples:\n"
    "  voxlith-tools obs survey.csv --x easting --y northing --z elevation --data gz:gz_err --out gz.obs\n"
    "  voxlith-tools obs flight.csv --x E --y N --z height --data tmi --floor 2 --percent 1 --field 65,10,50000 \\\n"
    "      --line line --time fid --out tmi.mag\n"
    "  voxlith-tools obs levels.csv --z depth --z-down --z-unit ft --data gxx:err --data gzz:err --type gxx gzz --out "
    "g.obs\n"
    "  voxlith-tools obs voxlith.pre --csv predicted.csv --x easting --y northing --z elevation --data gz:gz_err\n"
    "An empty field is a dummy. A deviation that no column gives is percent |d| / 100 + floor, or, without these "
    "options,\n"
    "1 for magnetic data and 0.01 for all others.";

void require(bool good, const std::string& words) {
    if (!good) {
        throw RunError(words);
    }
}

std::vector<std::int32_t> codesOf(const std::vector<std::string>& types) {
    std::vector<std::int32_t> codes;
    codes.reserve(types.size());
    for (const std::string& type : types) {
        codes.push_back(codeOf(parseDataType(type)));
    }
    return codes;
}

void checkCommonOptions(const ObsOptions& options) {
    require(options.outFile.empty() != options.csvFile.empty(), "expected one of --out and --csv");
    require(options.columns.line.empty() == options.columns.time.empty(), "expected --line and --time together");
    require(options.columns.data.size() <= static_cast<std::size_t>(maxFiles), "--data: expected at most 6 components");
}

void checkImportOptions(const ObsOptions& options) {
    const SurveyColumns& columns = options.columns;
    require(!columns.data.empty(), "expected --data with the column of the data");
    require(options.types.empty() || options.types.size() == 1 || options.types.size() == columns.data.size(),
            "--type: expected one kind of data, or one for each of the " + std::to_string(columns.data.size()) +
                " components");
    require(options.components == 0, "--components goes with --csv");
    require(std::isfinite(columns.percent) && std::isfinite(columns.floor), "--percent, --floor: expected numbers");
    const DataColumns angles = splitDataColumns(columns.angles);
    require(columns.angles.empty() || (!angles.datum.empty() && !angles.deviation.empty()),
            "--angles " + columns.angles + ": expected aincl:adecl");
    require(columns.angles.empty() || columns.line.empty(), "--angles and --line cannot stand together");
}

MagneticHeader headerOf(const ObsOptions& options) {
    const std::vector<double> field = parseNumberList("--field", "incl,decl,nT", options.field, 3);
    MagneticHeader header;
    header.field = {{field[0], field[1]}, field[2]};
    header.measured = header.field.direction;
    if (!options.direction.empty()) {
        const std::vector<double> direction = parseNumberList("--direction", "aincl,adecl", options.direction, 2);
        header.measured = {direction[0], direction[1]};
    }
    for (const FieldDirection& direction : {header.field.direction, header.measured}) {
        require(std::abs(direction.incl) <= 90.0 && std::abs(direction.decl) <= 360.0,
                "--field, --direction: expected an inclination within 90 degrees and a declination within 360, found " +
                    numberText(direction.incl) + ", " + numberText(direction.decl));
    }
    require(header.field.strength > 0, "--field " + options.field + ": expected a field strength above 0 nT");
    header.idir = options.columns.angles.empty() ? 1 : 0;
    return header;
}

ObsReport importCsv(const ObsOptions& options) {
    checkImportOptions(options);
    const std::string otherwise = options.field.empty() ? "gz" : "tmi";
    std::vector<std::string> types = options.types;
    types.resize(options.columns.data.size(), types.empty() ? otherwise : types.front());
    const std::vector<std::int32_t> codes = codesOf(types);
    const bool magnetic = hasMagneticLayout(DataType{codes.front()});
    require(magnetic || options.field.empty(), "--field: " + types.front() + " data have no inducing field");
    require(!magnetic || !options.field.empty(),
            "--type " + types.front() + ": expected --field incl,decl,nT with magnetic data");
    require(options.columns.angles.empty() || codes.front() == 1, "--angles: expected data of type tmi");
    std::optional<MagneticHeader> header;
    if (magnetic) {
        header = headerOf(options);
    }
    ObsReport report;
    constexpr double magneticDeviation = 1.0, otherDeviation = 0.01;
    report.table = readSurveyCsv(options.file, options.csv, options.columns,
                                 magnetic ? magneticDeviation : otherDeviation, report.summary);
    report.table.codes = codes;
    report.table.header = header;
    report.written = options.outFile;
    writeObservedData(options.outFile, report.table);
    return report;
}

CsvNames namesOf(const ObsOptions& options) {
    CsvNames names;
    names.x = options.columns.station.x;
    names.y = options.columns.station.y;
    names.z = options.columns.station.z;
    names.line = options.columns.line;
    names.time = options.columns.time;
    for (const std::string& text : options.columns.data) {
        const DataColumns columns = splitDataColumns(text);
        names.data.push_back(columns.datum);
        names.deviation.push_back(columns.deviation);
    }
    return names;
}

ObsReport exportCsv(const ObsOptions& options) {
    const SurveyColumns& columns = options.columns;
    require(columns.percent < 0 && columns.floor < 0 && options.field.empty() && options.direction.empty() &&
                columns.angles.empty() && columns.dummy.empty() && !columns.station.elevation &&
                !columns.station.zDown && columns.station.zUnit == "m",
            "--percent, --floor, --field, --direction, --angles, --dummy, --elevation, --z-down and --z-unit go with "
            "--out");
    const std::string& separator = options.csv.separator;
    require(separator != "blank" && !options.csv.decimalComma,
            "--separator blank and --decimal-comma go with --out: a CSV is written with commas, semicolons or tabs");
    ObsForm form;
    form.components = options.components > 0 ? options.components : columns.data.size();
    form.hasLineTime = !columns.line.empty();
    form.codes = codesOf(options.types);
    ObsReport report;
    report.table = readObservedData(options.file, form, report.countInFile);
    report.written = options.csvFile;
    writeCsv(options.csvFile, report.table, namesOf(options),
             separator == "semicolon" ? ';'
             : separator == "tab"     ? '\t'
                                      : ',');
    return report;
}

void printComponent(const SurveyTable& table, std::size_t component) {
    std::size_t valid = 0;
    double least = 0, most = 0, leastDeviation = 0, mostDeviation = 0;
    for (std::size_t record = 0; record < table.records(); ++record) {
        const std::size_t place = record * table.components + component;
        const double datum = table.data[place];
        if (!isValid(datum)) {
            continue;
        }
        const double deviation = table.deviation.empty() ? 0.0 : table.deviation[place];
        least = valid == 0 ? datum : std::min(least, datum);
        most = valid == 0 ? datum : std::max(most, datum);
        leastDeviation = valid == 0 ? deviation : std::min(leastDeviation, deviation);
        mostDeviation = valid == 0 ? deviation : std::max(mostDeviation, deviation);
        ++valid;
    }
    const bool known = component < table.codes.size();
    const std::string unit = known ? " " + std::string(unitOf(DataType{table.codes[component]})) : "";
    std::printf("component %zu:  %zu data, %zu dummies", component + 1, valid, table.records() - valid);
    if (valid > 0) {
        std::printf(", %.6g to %.6g%s", least, most, unit.c_str());
    }
    if (valid > 0 && !table.deviation.empty()) {
        std::printf(", deviations %.6g to %.6g", leastDeviation, mostDeviation);
    }
    std::printf("\n");
}

void printRange(const char* label, const std::vector<double>& values) {
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    std::printf("%s %s to %s\n", label, numberText(*least).c_str(), numberText(*most).c_str());
}

void warn(const std::string& text) {
    std::fprintf(stderr, "voxlith-tools: warning: %s\n", text.c_str());
}

}  // namespace

CLI::App* addObsCommand(CLI::App& tools, ObsOptions& options) {
    CLI::App* command = tools.add_subcommand("obs", "Convert a CSV to observed data, or observed data to a CSV");
    command->add_option("file", options.file, "CSV file (with --out) or observed data file (with --csv)")->required();
    auto* const out = command->add_option("--out", options.outFile, "Observed data file to write");
    command->add_option("--csv", options.csvFile, "CSV file to write")->excludes(out);
    addStationColumns(*command, options.columns.station);
    command->add_option("--data", options.columns.data,
                        "Columns datum or datum:deviation of each component, up to six");
    command->add_option(
        "--type", options.types,
        "Kind of each component: gz, gxx, gyy, gzz, gxy, gxz, gyz, tmi, tx, ty, tz, or a code (default: gz, "
        "or tmi with --field)");
    command->add_option("--percent", options.columns.percent, "Default deviation: percent of the datum")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--floor", options.columns.floor, "Default deviation: added to the percentage")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--field", options.field, "Inducing field incl,decl,nT of magnetic data");
    command->add_option("--direction", options.direction, "Measured direction aincl,adecl (default: along the field)");
    command->add_option("--angles", options.columns.angles,
                        "Columns aincl:adecl of a direction for each record: the downhole form");
    command->add_option("--line", options.columns.line, "Column of the line name; blanks in names become _");
    command->add_option("--time", options.columns.time, "Column of the time or distance along the line");
    command->add_option("--dummy", options.columns.dummy, "Text or number that stands for no datum, such as -9999");
    command->add_option("--components", options.components, "Components of the observed data file (with --csv)")
        ->check(CLI::Range(1, maxFiles));
    addCsvOptions(*command, options.csv);
    command->footer(obsExamples);
    return command;
}

ObsReport convertObservedData(const ObsOptions& options) {
    checkCommonOptions(options);
    return options.outFile.empty() ? exportCsv(options) : importCsv(options);
}

void printObsReport(const ObsReport& report) {
    const SurveyTable& table = report.table;
    std::printf("file:         %s\n", report.written.c_str());
    std::printf("records:      %zu\n", table.records());
    printRange("x:           ", table.x);
    printRange("y:           ", table.y);
    printRange("elevation:   ", table.elevation);
    for (std::size_t component = 0; component < table.components; ++component) {
        printComponent(table, component);
    }
    if (table.header) {
        const MagneticHeader& header = *table.header;
        std::printf("field:        %s,%s,%s\n", numberText(header.field.direction.incl).c_str(),
                    numberText(header.field.direction.decl).c_str(), numberText(header.field.strength).c_str());
        std::printf("direction:    %s,%s, direction flag %d\n", numberText(header.measured.incl).c_str(),
                    numberText(header.measured.decl).c_str(), header.idir);
    }
    if (report.summary.defaultDeviations > 0) {
        std::printf("deviations:   %lld by default\n", static_cast<long long>(report.summary.defaultDeviations));
    }
    std::fflush(stdout);
    if (table.header && !isStrengthOfTheEarth(table.header->field.strength)) {
        warn(report.written + ": a field of " + numberText(table.header->field.strength) +
             " nT is not that of the Earth");
    }
    if (report.summary.fallingTimes > 0) {
        warn(report.written + ": the time does not rise along its line in " +
             std::to_string(report.summary.fallingTimes) + " records; averages along lines need it to");
    }
    if (report.countInFile >= 0 && report.countInFile != static_cast<std::int64_t>(table.records())) {
        warn("the count line says " + std::to_string(report.countInFile) + ", the file holds " +
             std::to_string(table.records()) + " records");
    }
}

}  // namespace voxlith
