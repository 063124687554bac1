#include "survey/survey_lines.h"

#include <algorithm>
#include <cassert>

namespace voxlith {

namespace {

void openLine(ObsSet& obs, std::int32_t recordNumber, const LineName& name) {
    const std::size_t line = static_cast<std::size_t>(obs.nLines);
    obs.lineName[line] = name;
    obs.lineCount[line] = 1;
    obs.lineFirstLast[line] = {recordNumber, recordNumber};
    ++obs.nLines;
}

}  // namespace

LineName lineNameFrom(std::string_view text) {
    LineName name;
    name.fill(' ');
    std::copy_n(text.begin(), std::min(text.size(), name.size()), name.begin());
    return name;
}

void enterLineRecord(ObsSet& obs, std::size_t record, const LineName& name) {
    assert(record < obs.dataLine.size() && obs.lineName.size() >= obs.dataLine.size());
    const std::int32_t recordNumber = static_cast<std::int32_t>(record) + 1;
    if (record == 0) {
        obs.nLines = 0;
        openLine(obs, recordNumber, name);
        obs.maxLineData = 1;
    } else if (const std::size_t last = static_cast<std::size_t>(obs.nLines) - 1; obs.lineName[last] == name) {
        ++obs.lineCount[last];
        obs.maxLineData = std::max(obs.maxLineData, obs.lineCount[last]);
        obs.lineFirstLast[last][1] = recordNumber;
    } else {
        openLine(obs, recordNumber, name);
    }
    obs.dataLine[record] = obs.nLines;
}

}  // namespace voxlith
