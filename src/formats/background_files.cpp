#include "formats/background_files.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/output_file.h"
#include "base/text_line.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

// Compatibility: programs that read the file know it by this name.
constexpr std::string_view surfaceFile = "obs_surafce_calc.dat";
constexpr std::string_view star = "           *";

bool bothValid(const ObsSet& obs, std::size_t n) {
    assert(n < obs.obsData.size() && n < obs.predData.size());
    return isValid(obs.obsData[n]) && isValid(obs.predData[n]);
}

// A normalised value in data units.
double scaled(const ObsSet& obs, std::size_t n, double value) {
    return static_cast<double>(obs.obsStd[n]) * value;
}

void addCoordinates(TextLine& line, const ObsSet& obs, std::size_t station) {
    line.fixed(obs.ObsX[station], 10, 1).fixed(obs.ObsY[station], 10, 1).fixed(obs.ObsZ[station], 10, 1);
}

TextLine rowStart(const ObsSet& obs, std::size_t station) {
    TextLine line;
    line.integer(static_cast<std::int64_t>(station) + 1, 6);
    addCoordinates(line, obs, station);
    return line;
}

TextLine rowStartAlongLine(const ObsSet& obs, std::size_t station) {
    const auto lineNumber = static_cast<std::size_t>(obs.dataLine[station]);
    TextLine line;
    line.integer(static_cast<std::int64_t>(station) + 1, 6).spaces(1);
    if (lineNumber > 0) {
        line.text({obs.lineName[lineNumber - 1].data(), lineNameWidth});
    } else {
        line.spaces(static_cast<int>(lineNameWidth));
    }
    line.fixed(obs.obsTime[station], 6, 1);
    addCoordinates(line, obs, station);
    return line;
}

std::string_view surfaceHeader(const ObsSet& obs) {
    return obs.nDataTypes == 1 ? "     I      X         Y         Z         OBS        Resp"
                               : "     I      X         Y         Z        OBS1       Resp1        OBS2       Resp2";
}

}  // namespace

void writeSurfaceResponse(const ObsSet& obs) {
    OutputFile file;
    openOutputFile(file, surfaceFile);
    appendOutputLine(file, surfaceHeader(obs));
    for (std::size_t station = 0; station < static_cast<std::size_t>(obs.nData); ++station) {
        TextLine line = rowStart(obs, station);
        for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
            const std::size_t n = obs.index(component, station);
            line.fixed(scaled(obs, n, obs.obsData[n]), 12, 4);
            if (bothValid(obs, n)) {
                line.fixed(obs.predData[n], 12, 4);
            } else {
                line.text(star);
            }
        }
        appendOutputLine(file, line);
    }
    finishOutputFile(file);
}

void writeSurfaceResponseAlongLines(const ObsSet& obs) {
    OutputFile file;
    openOutputFile(file, surfaceFile);
    appendOutputLine(file, surfaceHeader(obs));
    for (std::size_t station = 0; station < static_cast<std::size_t>(obs.nData); ++station) {
        TextLine line = rowStartAlongLine(obs, station);
        if (bothValid(obs, obs.index(0, station))) {
            for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
                const std::size_t n = obs.index(component, station);
                line.fixed(scaled(obs, n, obs.obsData[n]), 12, 4).fixed(obs.predData[n], 12, 4);
            }
        } else {
            line.fixed(scaled(obs, obs.index(0, station), obs.obsData[obs.index(0, station)]), 12, 4).text(star);
        }
        appendOutputLine(file, line);
    }
    finishOutputFile(file);
}

void writeBackgroundFit(const ObsSet& obs) {
    OutputFile file;
    openOutputFile(file, "obs_fit_pred.dat");
    appendOutputLine(file, obs.nDataTypes == 1
                               ? "     I      X         Y         Z         OBS        Pred        Diff"
                               : "     I      X         Y         Z        OBS1       Pred1       Diff1        OBS2   "
                                 "    Pred2       Diff2");
    for (std::size_t station = 0; station < static_cast<std::size_t>(obs.nData); ++station) {
        TextLine line = rowStart(obs, station);
        for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
            const std::size_t n = obs.index(component, station);
            line.fixed(scaled(obs, n, obs.obsData[n]), 12, 4);
            if (bothValid(obs, n)) {
                line.fixed(scaled(obs, n, obs.refData[n]), 12, 4);
                line.fixed(scaled(obs, n, obs.obsData[n] - obs.refData[n]), 12, 4);
            } else {
                line.text(star).text(star);
            }
        }
        appendOutputLine(file, line);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
