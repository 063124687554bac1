// The record forms of data files: how one record is taken from the file into the ObsSet, as the file gives it.
#pragma once

#include <cstddef>
#include <string>

#include "base/messages.h"
#include "base/text_input.h"
#include "survey/obs_set.h"

namespace voxlith {

enum class RecordForm {
    plain,              // x y z and, for each component, a datum and perhaps its standard deviation
    lineTime,           // the same with standard deviations, line name and time behind
    downhole,           // x y z, two angles, data with standard deviations
    reference,          // reference data in the plain form
    referenceDownhole,  // reference data in the downhole form, without standard deviations
};

// What a record is read from, and the buffers for it.
struct RecordSource {
    TextInput& input;
    Messages& messages;
    std::string line;
    std::string token;
};

constexpr std::string_view dataValuesError = " There was an error while reading the data values";

// Takes the next line into the buffer; at the end of the file the buffer becomes blank.
void readRecordLine(RecordSource& source);

// Reads record `record` (from 0). What is blank or missing leaves its target as it is. Text that is no number ends the
// run through fatalStop.
void readRecord(RecordSource& source, RecordForm form, ObsSet& obs, std::size_t record);

}  // namespace voxlith
