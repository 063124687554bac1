#include "formats/obs_records.h"

#include <span>

#include "base/free_format.h"
#include "base/tokens.h"
#include "survey/dummy_value.h"
#include "survey/survey_lines.h"

namespace voxlith {

namespace {

constexpr std::string_view downholeValuesError = " There was an error while reading the downhole data values";
constexpr std::string_view referenceValuesError = " There was an error while reading the reference data values";

bool hasAsterisk(std::string_view token) {
    return token.find('*') != std::string_view::npos;
}

// The token in the buffer as a number. A blank one is no error.
template <class Number>
void parseToken(RecordSource& source, Number& target) {
    if (freeFormatRead(source.token, std::span(&target, 1)) == ReadStatus::badText) {
        fatalStop(source.messages, dataValuesError);
    }
}

void parseStation(RecordSource& source, ObsSet& obs, std::size_t record) {
    for (double* coordinate : {&obs.ObsX[record], &obs.ObsY[record], &obs.ObsZ[record]}) {
        nextToken(source.line, source.token);
        parseToken(source, *coordinate);
    }
}

void parseDatum(RecordSource& source, double& datum) {
    nextToken(source.line, source.token);
    if (hasAsterisk(source.token)) {
        datum = dummyValue;
    } else {
        parseToken(source, datum);
    }
}

void readPlain(RecordSource& source, ObsSet& obs, std::size_t record) {
    readRecordLine(source);
    parseStation(source, obs, record);
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        const std::size_t datum = obs.index(component, record);
        parseDatum(source, obs.obsData[datum]);
        if (!obs.hasStd) {
            continue;
        }
        nextToken(source.line, source.token);
        if (hasAsterisk(source.token)) {
            obs.obsStd[datum] = 0.0F;
        } else {
            parseToken(source, obs.obsStd[datum]);
        }
    }
}

void readLineTime(RecordSource& source, ObsSet& obs, std::size_t record) {
    readRecordLine(source);
    parseStation(source, obs, record);
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        const std::size_t datum = obs.index(component, record);
        parseDatum(source, obs.obsData[datum]);
        nextToken(source.line, source.token);
        if (hasAsterisk(source.token)) {
            obs.obsData[datum] = dummyValue;
        } else {
            parseToken(source, obs.obsStd[datum]);
        }
    }
    nextToken(source.line, source.token);
    const LineName name = lineNameFrom(source.token);
    nextToken(source.line, source.token);
    parseToken(source, obs.obsTime[record]);
    enterLineRecord(obs, record, name);
}

// One free-format read over the values of a record: targets are handed in one after the other.
struct ValueTaker {
    FreeFormatRead read;
    Messages& messages;
    std::string_view error;
};

template <class Number>
void parseValue(ValueTaker& taker, Number& target) {
    if (readValue(taker.read, target) == ReadStatus::badText) {
        fatalStop(taker.messages, taker.error);
    }
}

void takeFreeStation(ValueTaker& taker, ObsSet& obs, std::size_t record) {
    parseValue(taker, obs.ObsX[record]);
    parseValue(taker, obs.ObsY[record]);
    parseValue(taker, obs.ObsZ[record]);
}

// Compatibility: the angles of every record go to the last element, so only those of the last record are kept.
void parseAngles(ValueTaker& taker, ObsSet& obs) {
    float unused = 0.0F;
    parseValue(taker, obs.obsIncl.empty() ? unused : obs.obsIncl.back());
    parseValue(taker, obs.obsDecl.empty() ? unused : obs.obsDecl.back());
}

void readDownhole(RecordSource& source, ObsSet& obs, std::size_t record) {
    ValueTaker taker{beginFreeFormatRead(source.input), source.messages, downholeValuesError};
    takeFreeStation(taker, obs, record);
    parseAngles(taker, obs);
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        parseValue(taker, obs.obsData[obs.index(component, record)]);
        parseValue(taker, obs.obsStd[obs.index(component, record)]);
    }
    endFreeFormatRead(taker.read);
}

void readReference(RecordSource& source, ObsSet& obs, std::size_t record, bool downhole) {
    ValueTaker taker{beginFreeFormatRead(source.input), source.messages, referenceValuesError};
    takeFreeStation(taker, obs, record);
    if (downhole) {
        parseAngles(taker, obs);
    }
    float unused = 0.0F;
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        parseValue(taker, obs.refData[obs.index(component, record)]);
        if (obs.hasStd && !downhole) {
            parseValue(taker, unused);
        }
    }
    endFreeFormatRead(taker.read);
}

}  // namespace

void readRecordLine(RecordSource& source) {
    if (!readLine(source.input, source.line, lineWidth)) {
        source.line.clear();
    }
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

}  // namespace voxlith
