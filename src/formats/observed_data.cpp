#include "formats/observed_data.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/text_line.h"
#include "base/tokens.h"
#include "formats/short_name.h"
#include "survey/downhole_form.h"
#include "survey/dummy_value.h"
#include "survey/obs_cleaning.h"
#include "survey/survey_lines.h"

namespace voxlith {

namespace {

constexpr std::string_view dataValuesError = " There was an error while reading the data values";
constexpr std::string_view downholeValuesError = " There was an error while reading the downhole data values";
constexpr std::string_view referenceValuesError = " There was an error while reading the reference data values";
constexpr std::string_view noLineTimeError = " The data file does not appear to have the required line/time values";
constexpr std::string_view tooFewError = " The number of data values in the file does not match the header count";

constexpr int coordinateWidth = 12, angleWidth = 8, dataWidth = 14;
constexpr int dataDigits = 6;
constexpr int countLineWidth = 512;  // of files with several components
constexpr std::size_t mostStarPairs = 3;
constexpr std::string_view starPair = "             *             *";  // a datum and its standard deviation

enum class RecordForm {
    plain,              // x y z and, for each component, a datum and perhaps its standard deviation
    lineTime,           // the same with standard deviations, then line name and time
    downhole,           // x y z, two angles, data with standard deviations
    reference,          // reference data in the plain form
    referenceDownhole,  // reference data in the downhole form, without standard deviations
};

// What records are read from, and the buffers for it.
struct RecordSource {
    TextInput& input;
    Messages& messages;
    std::string line;
    std::string token;
};

std::size_t componentsOf(const ObsSet& obs) {
    return static_cast<std::size_t>(obs.nDataTypes);
}

// Reads the next line into the buffer, which is blank at the end of the file.
void readRecordLine(RecordSource& source) {
    if (!readLine(source.input, source.line, lineWidth)) {
        source.line.clear();
    }
}

// Records of plain lines, token by token. A blank or missing token leaves its target unchanged.

template <class Number>
void parseToken(RecordSource& source, Number& target) {
    if (freeFormatRead(source.token, std::span(&target, 1)) == ReadStatus::badText) {
        fatalStop(source.messages, dataValuesError);
    }
}

template <class Number>
void parseNextToken(RecordSource& source, Number& target) {
    nextToken(source.line, source.token);
    parseToken(source, target);
}

// False for a token with an asterisk, which stands for a missing value.
template <class Number>
bool parseOptional(RecordSource& source, Number& target) {
    nextToken(source.line, source.token);
    if (source.token.find('*') != std::string::npos) {
        return false;
    }
    parseToken(source, target);
    return true;
}

void parseStation(RecordSource& source, ObsSet& obs, std::size_t record) {
    parseNextToken(source, obs.ObsX[record]);
    parseNextToken(source, obs.ObsY[record]);
    parseNextToken(source, obs.ObsZ[record]);
}

void parseDatum(RecordSource& source, double& datum) {
    if (!parseOptional(source, datum)) {
        datum = dummyValue;
    }
}

void readPlain(RecordSource& source, ObsSet& obs, std::size_t record) {
    readRecordLine(source);
    parseStation(source, obs, record);
    for (std::size_t component = 0; component < componentsOf(obs); ++component) {
        const std::size_t datum = obs.index(component, record);
        parseDatum(source, obs.obsData[datum]);
        if (obs.hasStd && !parseOptional(source, obs.obsStd[datum])) {
            obs.obsStd[datum] = 0.0F;
        }
    }
}

void readLineTime(RecordSource& source, ObsSet& obs, std::size_t record) {
    readRecordLine(source);
    parseStation(source, obs, record);
    for (std::size_t component = 0; component < componentsOf(obs); ++component) {
        const std::size_t datum = obs.index(component, record);
        parseDatum(source, obs.obsData[datum]);
        if (!parseOptional(source, obs.obsStd[datum])) {
            obs.obsData[datum] = dummyValue;
        }
    }
    nextToken(source.line, source.token);
    const LineName name = lineNameFrom(source.token);
    parseNextToken(source, obs.obsTime[record]);
    enterLineRecord(obs, record, name);
}

// Downhole and reference records: one free-format read over the values of a record.

struct ValueReader {
    FreeFormatRead read;
    Messages& messages;
    std::string_view error;
};

template <class Number>
void readNext(ValueReader& reader, Number& target) {
    if (readValue(reader.read, target) == ReadStatus::badText) {
        fatalStop(reader.messages, reader.error);
    }
}

void readStation(ValueReader& reader, ObsSet& obs, std::size_t record) {
    readNext(reader, obs.ObsX[record]);
    readNext(reader, obs.ObsY[record]);
    readNext(reader, obs.ObsZ[record]);
}

// Compatibility: the angles of every record go to the last element, so only those of the last record are kept.
void readAngles(ValueReader& reader, ObsSet& obs) {
    float unused = 0.0F;
    readNext(reader, obs.obsIncl.empty() ? unused : obs.obsIncl.back());
    readNext(reader, obs.obsDecl.empty() ? unused : obs.obsDecl.back());
}

void readDownhole(RecordSource& source, ObsSet& obs, std::size_t record) {
    ValueReader reader{beginFreeFormatRead(source.input), source.messages, downholeValuesError};
    readStation(reader, obs, record);
    readAngles(reader, obs);
    for (std::size_t component = 0; component < componentsOf(obs); ++component) {
        readNext(reader, obs.obsData[obs.index(component, record)]);
        readNext(reader, obs.obsStd[obs.index(component, record)]);
    }
    endFreeFormatRead(reader.read);
}

void readReference(RecordSource& source, ObsSet& obs, std::size_t record, bool downhole) {
    ValueReader reader{beginFreeFormatRead(source.input), source.messages, referenceValuesError};
    readStation(reader, obs, record);
    if (downhole) {
        readAngles(reader, obs);
    }
    float unused = 0.0F;
    for (std::size_t component = 0; component < componentsOf(obs); ++component) {
        readNext(reader, obs.refData[obs.index(component, record)]);
        if (obs.hasStd && !downhole) {
            readNext(reader, unused);
        }
    }
    endFreeFormatRead(reader.read);
}

void readRecord(RecordSource& source, RecordForm form, ObsSet& obs, std::size_t record) {
    switch (form) {
        case RecordForm::plain:
            return readPlain(source, obs, record);
        case RecordForm::lineTime:
            return readLineTime(source, obs, record);
        case RecordForm::downhole:
            return readDownhole(source, obs, record);
        case RecordForm::reference:
            return readReference(source, obs, record, false);
        case RecordForm::referenceDownhole:
            return readReference(source, obs, record, true);
    }
}

// Counts the columns of the first data record, which decides for all: sets hasStd and hasLineTime.
void inspectFirstRecord(RecordSource& source, ObsSet& obs, bool wantsLineTime) {
    // Two lines of a magnetic file, the count line, the record.
    const int lines = hasMagneticLayout(obs.dataType[0]) ? 4 : 2;
    for (int line = 0; line < lines; ++line) {
        readRecordLine(source);
    }
    for (std::int32_t column = 0; column < 3 + obs.nDataTypes; ++column) {
        nextToken(source.line, source.token);
    }
    if (isBlank(source.line)) {
        obs.hasStd = false;
        return;
    }
    for (std::int32_t component = 0; component < obs.nDataTypes; ++component) {
        if (isBlank(source.line)) {
            obs.hasStd = false;
        } else {
            nextToken(source.line, source.token);
        }
    }
    if (wantsLineTime && !isBlank(source.line)) {
        nextToken(source.line, source.token);
        obs.hasLineTime = !isBlank(source.line);
    }
}

void detectForm(RecordSource& source, ObsSet& obs, bool wantsLineTime) {
    obs.hasStd = true;
    obs.hasLineTime = false;
    if (!isDownhole(obs)) {
        inspectFirstRecord(source, obs, wantsLineTime);
    }
    if (wantsLineTime && !obs.hasLineTime) {
        fatalStop(source.messages, noLineTimeError);
    }
    rewindTextInput(source.input);
}

void readFieldLine(TextInput& input, ObsSet& obs) {
    FreeFormatRead read = beginFreeFormatRead(input);
    for (float* target : {&obs.incl, &obs.decl, &obs.geomag}) {
        if (readValue(read, *target) != ReadStatus::good) {
            throwReadError(read, "inclination, declination and strength of the field");
        }
    }
    endFreeFormatRead(read);
}

// Files of the older layout have no direction flag, or words instead: the flag is 1 then.
void readDirectionLine(TextInput& input, ObsSet& obs) {
    FreeFormatRead read = beginFreeFormatRead(input);
    const bool complete = readValue(read, obs.aincl) == ReadStatus::good &&
                          readValue(read, obs.adecl) == ReadStatus::good &&
                          readValue(read, obs.idir) == ReadStatus::good;
    if (!complete) {
        obs.idir = 1;
    }
    endFreeFormatRead(read);
}

std::int32_t readHeader(TextInput& input, ObsSet& obs) {
    if (hasMagneticLayout(obs.dataType[0])) {
        readFieldLine(input, obs);
        readDirectionLine(input, obs);
    }
    std::int32_t count = 0;
    FreeFormatRead read = beginFreeFormatRead(input);
    if (readValue(read, count) != ReadStatus::good) {
        throwReadError(read, "the number of data");
    }
    endFreeFormatRead(read);
    return count;
}

RecordForm recordFormOf(bool observed, const ObsSet& obs, bool wantsLineTime) {
    if (observed && wantsLineTime) {
        return RecordForm::lineTime;
    }
    if (isDownhole(obs)) {
        return observed ? RecordForm::downhole : RecordForm::referenceDownhole;
    }
    return observed ? RecordForm::plain : RecordForm::reference;
}

// Remembers the first standard deviation below 0; cleaning replaces it.
void noteNegativeStd(const TextInput& input, ObsSet& obs, std::size_t record) {
    for (std::size_t component = 0; component < componentsOf(obs) && obs.negativeStdLine == 0; ++component) {
        const float std = obs.obsStd[obs.index(component, record)];
        if (obs.hasStd && std < 0.0F) {
            obs.negativeStdLine = input.lineNumber - 1;
            obs.negativeStd = std;
        }
    }
}

void cleanRecord(bool observed, ObsSet& obs, const ObsCleaning& cleaning, std::size_t record) {
    for (std::size_t component = 0; component < componentsOf(obs); ++component) {
        if (observed) {
            cleanObserved(obs, cleaning, component, record);
        } else {
            cleanReference(obs, cleaning, component, record);
        }
    }
}

void writeFieldHeader(OutputFile& file, const ObsSet& obs) {
    TextLine line;
    line.fixed(static_cast<double>(obs.incl), 10, 2).fixed(static_cast<double>(obs.decl), 10, 2);
    line.fixed(static_cast<double>(obs.geomag), 10, 2).text("  !! incl, decl, geomag");
    appendOutputLine(file, line);
    line.clear();
    line.fixed(static_cast<double>(obs.aincl), 10, 2).fixed(static_cast<double>(obs.adecl), 10, 2).spaces(5);
    line.integer(obs.idir, 2).spaces(3).text("  !! aincl, adecl, idir");
    appendOutputLine(file, line);
}

void writeCountLine(OutputFile& file, const ObsSet& obs) {
    TextLine line;
    line.integer(obs.nData, 7);
    if (obs.nDataTypes > 1) {
        line.integer(obs.nDataTypes, 4);
        for (std::size_t component = 0; component < componentsOf(obs); ++component) {
            line.integer(codeOf(obs.dataType[component]), 4);
        }
        line.text("  !! # of data, # components, data types").padTo(countLineWidth);
    } else {
        line.spaces(23).text("  !! # of data");
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

// `normalised` is decided by the first component. A dummy in a later one has the standard deviation 0.
// Compatibility: such a dummy is multiplied by it and written as 0.
void putValues(TextLine& line, const ObsSet& obs, std::span<const double> dataArray, std::size_t record,
               bool normalised) {
    for (std::size_t component = 0; component < componentsOf(obs); ++component) {
        const std::size_t datum = obs.index(component, record);
        const auto std = static_cast<double>(obs.obsStd[datum]);
        line.exponent(normalised ? dataArray[datum] * std : dataArray[datum], dataWidth, dataDigits);
        line.exponent(std, dataWidth, dataDigits);
    }
}

void putStars(TextLine& line, const ObsSet& obs) {
    for (std::size_t pair = 0; pair < componentsOf(obs) && pair < mostStarPairs; ++pair) {
        line.text(starPair);
    }
}

void assertShapes([[maybe_unused]] const ObsSet& obs, [[maybe_unused]] std::size_t values) {
    assert(obs.ObsX.size() >= static_cast<std::size_t>(obs.nData));
    assert(obs.ObsY.size() == obs.ObsX.size() && obs.ObsZ.size() == obs.ObsX.size());
    assert(values >= componentsOf(obs) * static_cast<std::size_t>(obs.nData));
    assert(obs.obsStd.size() >= componentsOf(obs) * static_cast<std::size_t>(obs.nData));
}

}  // namespace

std::int32_t readObsFile(Messages& messages, ObsReadMode mode, const std::string& fileName, ObsSet& obs,
                         const ObsCleaning& cleaning) {
    TextInput input;
    if (!openTextInput(input, shortFileName(fileName))) {
        fatalStop(messages, " Data File " + shownName(fileName) + " not found");
    }
    RecordSource source{input, messages, {}, {}};
    const bool observed = mode == ObsReadMode::observed;
    const bool wantsLineTime = cleaning.integrationInterval > 0.0F;
    obs.nMasked = 0;
    if (observed) {
        detectForm(source, obs, wantsLineTime);
    }
    const std::int32_t countInFile = readHeader(input, obs);
    if (mode == ObsReadMode::header) {
        return countInFile;
    }
    assertShapes(obs, observed ? obs.obsData.size() : obs.refData.size());
    if (observed) {
        obs.countInFile = countInFile;
        obs.negativeStdLine = 0;
        std::ranges::fill(obs.obsData, 0.0);
        std::ranges::fill(obs.obsStd, 0.0F);
    }
    const RecordForm form = recordFormOf(observed, obs, wantsLineTime);
    const auto records = static_cast<std::size_t>(obs.nData);
    for (std::size_t record = 0; record < records; ++record) {
        readRecord(source, form, obs, record);
        if (observed) {
            noteNegativeStd(input, obs, record);
        }
        cleanRecord(observed, obs, cleaning, record);
        if (record + 1 < records && atEnd(input)) {
            fatalStop(messages, tooFewError);
        }
    }
    return countInFile;
}

void appendObs(OutputFile& file, const ObsSet& obs, std::span<const double> dataArray) {
    assertShapes(obs, dataArray.size());
    const bool downhole = isDownhole(obs);
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
}

void writeObsFile(std::string_view fileName, const ObsSet& obs, std::span<const double> dataArray) {
    OutputFile file;
    openOutputFile(file, fileName);
    appendObs(file, obs, dataArray);
    finishOutputFile(file);
}

}  // namespace voxlith
