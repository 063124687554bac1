#include "forward/survey.h"

#include <cmath>

#include "base/messages.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

std::string stationText(const Survey& survey, std::size_t station) {
    const Station& here = survey.stations[station];
    return "station " + std::to_string(station + 1) + " at x " + numberText(here.point.x) + ", y " +
           numberText(here.point.y) + ", elevation " + numberText(here.elevation);
}

std::string countText(std::size_t count, const Survey& survey) {
    return std::to_string(count) + " of " + std::to_string(survey.stations.size()) + " stations are ";
}

// Stations of the downhole form are meant to be below the surface, too.
bool areMeantBelowGround(const Survey& survey) {
    return survey.mayBeBelowGround || !survey.measuredHere.empty();
}

void checkAgainstGround(const std::string& stationFile, Survey& survey) {
    std::size_t inside = 0, first = 0;
    for (std::size_t n = 0; n < survey.stations.size() && !areMeantBelowGround(survey); ++n) {
        const StationPosition position = positionOfStation(survey.ground, survey.mesh, survey.stations[n].point);
        if (position == StationPosition::belowTopCell) {
            throw RunError(stationFile + ": " + stationText(survey, n) +
                           ": expected a station on or above the surface, found one " +
                           numberText(static_cast<float>(-survey.ground.height[n])) +
                           " below the surface; give --boreholes where that is meant");
        }
        if (position == StationPosition::inTopCell) {
            first = inside == 0 ? n : first;
            ++inside;
        }
    }
    if (inside > 0) {
        survey.warnings.push_back(stationFile + ": " + countText(inside, survey) +
                                  "inside the first active cell of their column, the first being " +
                                  stationText(survey, first) +
                                  ", as cells whose centre is below the surface reach above it; thinner layers make "
                                  "the part above the station smaller");
    }
}

// Coordinates of another system and elevations that count downwards give sensitivities that look like any others.
void checkAgainstMesh(const std::string& stationFile, Survey& survey) {
    const MeshGeometry& mesh = survey.mesh;
    const bool mayBeInside = survey.ground.hasInactive() || areMeantBelowGround(survey);
    std::vector<std::size_t> outside, below;
    for (std::size_t n = 0; n < survey.stations.size(); ++n) {
        const StationPoint& point = survey.stations[n].point;
        if (point.x < mesh.xNode.front() || point.x > mesh.xNode.back() || point.y < mesh.yNode.front() ||
            point.y > mesh.yNode.back()) {
            outside.push_back(n);
        } else if (!mayBeInside && survey.stations[n].elevation < -mesh.zNode.front()) {
            below.push_back(n);
        }
    }
    const auto warn = [&](const std::vector<std::size_t>& stations, const std::string& where) {
        if (!stations.empty()) {
            survey.warnings.push_back(stationFile + ": " + countText(stations.size(), survey) + where +
                                      ", the first being " + stationText(survey, stations.front()));
        }
    };
    const auto range = [](const std::vector<double>& nodes) {
        const auto toMillimetres = [](double value) { return numberText(std::round(1000.0 * value) / 1000.0); };
        return toMillimetres(nodes.front()) + " to " + toMillimetres(nodes.back());
    };
    warn(outside, "outside the mesh, which covers x " + range(mesh.xNode) + ", y " + range(mesh.yNode));
    warn(below, "below the top of the mesh, " + numberText(0.0 - mesh.zNode.front()) + ", among its cells");
}

}  // namespace

ResponseWeights weightsOfStation(const Survey& survey, std::size_t station) {
    const FieldDirection& measured = survey.measuredHere.empty() ? survey.measured : survey.measuredHere[station];
    ResponseWeights weights = responseWeights(survey.type, {survey.magnetisation, survey.field.strength}, measured);
    weights.cavity = cavityWeight(weights, survey.cavity);
    return weights;
}

void checkStations(const std::string& stationFile, Survey& survey) {
    if (survey.ground.hasInactive()) {
        checkAgainstGround(stationFile, survey);
    }
    checkAgainstMesh(stationFile, survey);
}

}  // namespace voxlith
