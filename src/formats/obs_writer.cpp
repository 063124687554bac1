#include "formats/obs_writer.h"

#include <cstddef>

#include "base/output_file.h"
#include "base/text_line.h"
#include "survey/downhole_form.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr int coordinateWidth = 12, angleWidth = 8, dataWidth = 14;
constexpr int dataDigits = 6;
constexpr int countLineWidth = 512;  // of files with several components
constexpr std::size_t mostStarPairs = 3;
constexpr std::string_view starPair = "             *             *";  // a datum and its standard deviation

void writeFieldHeader(OutputFile& file, const ObsSet& obs) {
    TextLine line;
    line.fixed(static_cast<double>(obs.incl), 10, 2).fixed(static_cast<double>(obs.decl), 10, 2);
    line.fixed(static_cast<double>(obs.geomag), 10, 2).text("  !! incl, decl, geomag");
    appendOutputLine(file, line);
    line.clear();
    line.fixed(static_cast<double>(obs.aincl), 10, 2).fixed(static_cast<double>(obs.adecl), 10, 2).blanks(5);
    line.integer(obs.idir, 2).blanks(3).text("  !! aincl, adecl, idir");
    appendOutputLine(file, line);
}

void writeCountLine(OutputFile& file, const ObsSet& obs) {
    TextLine line;
    line.integer(obs.nData, 7);
    if (obs.nDataTypes > 1) {
        line.integer(obs.nDataTypes, 4);
        for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
            line.integer(codeOf(obs.dataType[component]), 4);
        }
        line.text("  !! # of data, # components, data types").padTo(countLineWidth);
    } else {
        line.blanks(23).text("  !! # of data");
    }
    appendOutputLine(file, line);
}

void putAngle(TextLine& line, std::span<const float> angles, std::size_t record) {
    line.fixed(angles.empty() ? 0.0 : static_cast<double>(angles[record]), angleWidth, 2);
}

void putStation(TextLine& line, const ObsSet& obs, std::size_t record, bool downhole) {
    line.fixed(obs.ObsX[record], coordinateWidth, 2).fixed(obs.ObsY[record], coordinateWidth, 2);
    line.fixed(obs.ObsZ[record], coordinateWidth, 2);
    if (downhole) {
        putAngle(line, obs.obsIncl, record);
        putAngle(line, obs.obsDecl, record);
    }
}

// The first component decides for the whole record whether values go back to data units: a dummy in a later component
// becomes a zero product, as its standard deviation is 0.
void putValues(TextLine& line, const ObsSet& obs, std::span<const double> dataArray, std::size_t record,
               bool normalised) {
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        const std::size_t datum = obs.index(component, record);
        const double deviation = static_cast<double>(obs.obsStd[datum]);
        line.exponent(normalised ? dataArray[datum] * deviation : dataArray[datum], dataWidth, dataDigits);
        line.exponent(deviation, dataWidth, dataDigits);
    }
}

void putStars(TextLine& line, const ObsSet& obs) {
    for (std::size_t pair = 0; pair < static_cast<std::size_t>(obs.nDataTypes) && pair < mostStarPairs; ++pair) {
        line.text(starPair);
    }
}

// Of the lines of all records.
std::size_t expectedBytes(const ObsSet& obs, bool downhole) {
    constexpr std::size_t station = std::size_t{3} * coordinateWidth;
    constexpr std::size_t angles = std::size_t{2} * angleWidth;
    constexpr std::size_t datum = std::size_t{2} * dataWidth;
    const std::size_t line = station + (downhole ? angles : 0) + datum * static_cast<std::size_t>(obs.nDataTypes) + 1;
    return line * static_cast<std::size_t>(obs.nData);
}

}  // namespace

void writeObsFile(std::string_view fileName, const ObsSet& obs, std::span<const double> dataArray) {
    OutputFile file;
    openOutputFile(file, fileName);
    const bool downhole = isDownhole(obs);
    expectOutput(file, expectedBytes(obs, downhole));
    if (hasMagneticLayout(obs.dataType[0])) {
        writeFieldHeader(file, obs);
    }
    writeCountLine(file, obs);
    TextLine line;
    for (std::size_t record = 0; record < static_cast<std::size_t>(obs.nData); ++record) {
        line.clear();
        putStation(line, obs, record, downhole);
        const bool normalised = obs.obsStd[record] > 0.0F;
        if (normalised || downhole || isValid(dataArray[record])) {
            putValues(line, obs, dataArray, record, normalised);
        } else {
            putStars(line, obs);
        }
        appendOutputLine(file, line);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
