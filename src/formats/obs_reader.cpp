#include "formats/obs_reader.h"

#include <algorithm>
#include <cstddef>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/tokens.h"
#include "formats/obs_records.h"
#include "formats/short_name.h"
#include "survey/downhole_form.h"
#include "survey/obs_cleaning.h"

namespace voxlith {

namespace {

constexpr int modeHeader = 0, modeObserved = 1;

constexpr std::string_view noLineTimeError = " The data file does not appear to have the required line/time values";
constexpr std::string_view tooFewError = " The number of data values in the file does not match the header count";

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

// Files of the older layout have no direction flag, or words in its place: 1 then stands for it.
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

void cleanRecord(bool observed, ObsSet& obs, const ObsCleaning& cleaning, std::size_t record) {
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        if (observed) {
            cleanObserved(obs, cleaning, component, record);
        } else {
            cleanReference(obs, cleaning, component, record);
        }
    }
}

}  // namespace

std::int32_t readObsFile(Messages& messages, int readMode, const std::string& fileName, ObsSet& obs,
                         const ObsCleaning& cleaning) {
    TextInput input;
    if (!openTextInput(input, fileNameOf(fileName, shortNameWidth))) {
        fatalStop(messages, " Data File " + shownName(fileName) + " not found");
    }
    RecordSource source{input, messages, {}, {}};
    const bool observed = readMode == modeObserved;
    const bool wantsLineTime = cleaning.integrationInterval > 0.0F;
    obs.nMasked = 0;
    if (observed) {
        detectForm(source, obs, wantsLineTime);
    }
    const std::int32_t countInFile = readHeader(input, obs);
    if (readMode == modeHeader) {
        return countInFile;
    }
    if (observed) {
        std::fill(obs.obsData.begin(), obs.obsData.end(), 0.0);
        std::fill(obs.obsStd.begin(), obs.obsStd.end(), 0.0F);
    }
    const RecordForm form = recordFormOf(observed, obs, wantsLineTime);
    const std::size_t records = static_cast<std::size_t>(obs.nData);
    for (std::size_t record = 0; record < records; ++record) {
        readRecord(source, form, obs, record);
        cleanRecord(observed, obs, cleaning, record);
        if (record + 1 < records && atEnd(input)) {
            fatalStop(messages, tooFewError);
        }
    }
    return countInFile;
}

}  // namespace voxlith
