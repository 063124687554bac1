#include "driver/integration_windows.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "spline/voxlith_spline.h"

namespace voxlith {

namespace {

// Number (from 1) of the interval of `times` that holds `edge`, among the first n-1 times.
std::int32_t intervalOf(std::span<const double> times, double edge) {
    const auto size = static_cast<std::int32_t>(times.size()) - 1;
    std::int32_t left = 1;
    std::int32_t rangeFlag = 0;
    INTERV(times.data(), &size, &edge, &left, &rangeFlag);
    return left;
}

struct WindowEdges {
    double lower, upper;
    double snap;  // an edge this close to a station snaps to it
};

// Compatibility: half the interval and a hundredth of it are formed in single precision.
WindowEdges edgesAround(double time, float interval) {
    const auto half = static_cast<double>(0.5F * interval);
    return {time - half, time + half, static_cast<double>(0.01F * interval)};
}

// First station of the window (from 1), or -1. `previousEnd` is the end index of the station before, over all lines.
std::int32_t windowStart(std::span<const double> times, const WindowEdges& edges, std::int32_t previousEnd) {
    if (times.front() > edges.lower) {
        return -1;
    }
    const std::int32_t k = intervalOf(times, edges.lower);
    const auto n = static_cast<std::int32_t>(times.size());
    if (previousEnd < n && edges.lower > times[static_cast<std::size_t>(k)] - edges.snap) {
        return k + 1;
    }
    return k;
}

std::int32_t windowEnd(std::span<const double> times, const WindowEdges& edges) {
    if (edges.upper > times.back()) {
        return -1;
    }
    std::int32_t k = intervalOf(times, edges.upper);
    if (k > 1 && times[static_cast<std::size_t>(k) - 2] + edges.snap > edges.upper) {
        --k;
    }
    return k + 1;
}

// Exact integrals of the linear interpolant across the window, one weight a station.
void fillWeights(std::span<const double> times, const WindowEdges& edges, const StationWindow& window,
                 std::span<double> weights) {
    const auto first = static_cast<std::size_t>(window.first) - 1;
    const auto last = static_cast<std::size_t>(window.last) - 1;
    const auto squared = [](double value) { return value * value; };
    const double d1 = times[first + 1] - times[first];
    weights[0] += 0.5 * squared(times[first + 1] - edges.lower) / d1;
    weights[1] += 0.5 * (squared(d1) - squared(edges.lower - times[first])) / d1;
    for (std::size_t k = first + 1; k + 1 < last; ++k) {
        const double width = times[k + 1] - times[k];
        weights[k - first] += 0.5 * width;
        weights[k - first + 1] += 0.5 * width;
    }
    const double d2 = times[last] - times[last - 1];
    weights[last - first - 1] += 0.5 * (squared(d2) - squared(times[last] - edges.upper)) / d2;
    weights[last - first] += 0.5 * squared(edges.upper - times[last - 1]) / d2;
}

std::size_t stationsOf(const ObsSet& obs, std::size_t line) {
    return static_cast<std::size_t>(obs.lineCount[line]);
}

void fillLineTimes(const ObsSet& obs, LineIntegration& lines) {
    const auto maxLineData = static_cast<std::size_t>(obs.maxLineData);
    for (std::size_t line = 0; line < static_cast<std::size_t>(obs.nLines); ++line) {
        const auto first = static_cast<std::size_t>(obs.lineFirstLast[line][0]) - 1;
        for (std::size_t station = 0; station < stationsOf(obs, line); ++station) {
            lines.lineTime[line * maxLineData + station] = obs.obsTime[first + station];
        }
    }
}

void findWindows(const ObsSet& obs, LineIntegration& lines) {
    const auto maxLineData = static_cast<std::size_t>(obs.maxLineData);
    std::int32_t previousEnd = 0;
    for (std::size_t line = 0; line < static_cast<std::size_t>(obs.nLines); ++line) {
        const auto times = std::span(lines.lineTime).subspan(line * maxLineData, stationsOf(obs, line));
        if (times.size() < 2) {
            previousEnd = -1;  // the window of a lone station runs off its line at both ends
            continue;
        }
        for (std::size_t station = 0; station < times.size(); ++station) {
            const WindowEdges edges = edgesAround(times[station], lines.integrationInterval);
            const std::int32_t first = windowStart(times, edges, previousEnd);
            const std::int32_t last = windowEnd(times, edges);
            previousEnd = last;
            if (first < 0 || last < 0 || last <= first) {
                continue;
            }
            lines.windowRange[line * maxLineData + station] = {first, last, last - first + 1};
            lines.maxWindow = std::max(lines.maxWindow, last - first + 1);
            ++lines.nWindows;
        }
    }
}

void fillAllWeights(const ObsSet& obs, LineIntegration& lines) {
    const auto maxLineData = static_cast<std::size_t>(obs.maxLineData);
    const auto maxWindow = static_cast<std::size_t>(lines.maxWindow);
    for (std::size_t line = 0; line < static_cast<std::size_t>(obs.nLines); ++line) {
        const auto times = std::span(lines.lineTime).subspan(line * maxLineData, stationsOf(obs, line));
        for (std::size_t station = 0; station < times.size(); ++station) {
            const std::size_t at = line * maxLineData + station;
            const StationWindow& window = lines.windowRange[at];
            if (window.count > 0) {
                fillWeights(times, edgesAround(times[station], lines.integrationInterval), window,
                            std::span(lines.windowWeight).subspan(at * maxWindow, maxWindow));
            }
        }
    }
    for (double& weight : lines.windowWeight) {
        weight /= static_cast<double>(lines.integrationInterval);
    }
}

}  // namespace

void allocateLineTables(ObsSet& obs) {
    const auto n = static_cast<std::size_t>(obs.nData);
    obs.lineName.resize(n);
    obs.lineCount.assign(n, 0);
    obs.lineFirstLast.assign(n, {0, 0});
    obs.dataLine.assign(n, 0);
    obs.obsTime.assign(n, 0.0);
    obs.nLines = 0;
    obs.maxLineData = 0;
}

void buildIntegrationWindows(Messages& messages, const ObsSet& obs, LineIntegration& lines) {
    if (obs.nLines == 0 || obs.maxLineData == 0) {
        screenAndLogLine(messages, " No line numbers were read from the observed data file");
        plainStop();
    }
    const std::size_t entries = static_cast<std::size_t>(obs.nLines) * static_cast<std::size_t>(obs.maxLineData);
    lines.lineTime.assign(entries, 0.0);
    lines.windowRange.assign(entries, StationWindow{});
    lines.splineTable.assign(4 * static_cast<std::size_t>(obs.maxLineData), 0.0);
    fillLineTimes(obs, lines);
    findWindows(obs, lines);
    lines.windowWeight.assign(entries * static_cast<std::size_t>(lines.maxWindow), 0.0);
    fillAllWeights(obs, lines);
}

}  // namespace voxlith
