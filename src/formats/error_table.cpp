#include "formats/error_table.h"

#include <cassert>
#include <cstddef>

#include "base/output_file.h"
#include "base/text_line.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::string_view oneHeader = " x,y,elev,actual,modelled,difference,zscore";
constexpr std::string_view twoHeader =
    " x,y,elev,actual1,modelled1,difference1,zscore1,actual2,modelled2,difference2,zscore2";
constexpr std::string_view fourStars = "             *             *             *             *";
constexpr double noValue = -99999.0;
constexpr int coordinateWidth = 12, valueWidth = 14;

void putFourValues(TextLine& line, const ObsSet& obs, std::size_t datum) {
    const double observed = obs.obsData[datum];
    const double predicted = obs.predData[datum];
    const auto std = static_cast<double>(obs.obsStd[datum]);
    line.fixed(std * observed, valueWidth, 2).fixed(std * predicted, valueWidth, 2);
    line.fixed((predicted - observed) * std, valueWidth, 2).fixed(predicted - observed, valueWidth, 2);
}

void putFourMissing(TextLine& line) {
    for (int column = 0; column < 4; ++column) {
        line.fixed(noValue, valueWidth, 2);
    }
}

// Compatibility: a record whose first component is a dummy shows nothing of the second either.
void putTwoComponents(TextLine& line, const ObsSet& obs, std::size_t record) {
    const std::size_t second = obs.index(1, record);
    const bool firstValid = isValid(obs.obsData[record]);
    if (firstValid) {
        putFourValues(line, obs, record);
    } else {
        putFourMissing(line);
    }
    if (firstValid && isValid(obs.obsData[second])) {
        putFourValues(line, obs, second);
    } else {
        putFourMissing(line);
    }
}

}  // namespace

void writeErrorTable(const ObsSet& obs) {
    assert(obs.predData.size() == obs.obsData.size() && obs.obsStd.size() == obs.obsData.size());
    OutputFile file;
    openOutputFile(file, "voxlith_error.dat");
    appendOutputLine(file, obs.nDataTypes == 1 ? oneHeader : twoHeader);
    TextLine line;
    for (std::size_t record = 0; record < static_cast<std::size_t>(obs.nData); ++record) {
        line.clear();
        line.fixed(obs.ObsX[record], coordinateWidth, 2).fixed(obs.ObsY[record], coordinateWidth, 2);
        line.fixed(obs.ObsZ[record], coordinateWidth, 2);
        if (obs.nDataTypes > 1) {
            putTwoComponents(line, obs, record);
        } else if (isValid(obs.obsData[record])) {
            putFourValues(line, obs, record);
        } else {
            line.text(fourStars);
        }
        appendOutputLine(file, line);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
