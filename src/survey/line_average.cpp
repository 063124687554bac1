#include "survey/line_average.h"

#include <algorithm>
#include <cassert>

#include "spline/voxlith_spline.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::size_t splineColumns = 4;

struct LineRange {
    std::size_t record;   // first record, from 0
    std::size_t station;  // first element in the tables by line
    std::size_t count;    // stations
};

LineRange rangeOfLine(const ObsSet& obs, std::size_t line) {
    const auto [first, last] = obs.lineFirstLast[line];
    const std::int32_t count = std::max(last - first + 1, 0);
    return {static_cast<std::size_t>(first - 1), line * static_cast<std::size_t>(obs.maxLineData),
            static_cast<std::size_t>(count)};
}

// The spline through the values of a line over its times.
struct LineSpline {
    std::int32_t count;
    const double* time;
    double* table;

    double start() const { return time[0]; }
    double end() const { return time[count - 1]; }
    double integral(double from, double to) const { return CUBINT(&count, time, table, &from, &to); }
};

LineSpline fitLine(const LineRange& range, LineIntegration& lines, std::span<const double> values) {
    assert(lines.splineTable.size() >= splineColumns * range.count);
    assert(lines.lineTime.size() >= range.station + range.count && values.size() >= range.record + range.count);
    const LineSpline spline{static_cast<std::int32_t>(range.count), lines.lineTime.data() + range.station,
                            lines.splineTable.data()};
    for (std::size_t i = 0; i < range.count; ++i) {
        spline.table[splineColumns * i] = values[range.record + i];
    }
    // A single station has no spline; its window never fits.
    if (range.count > 1) {
        const std::int32_t noCondition = 0;
        CUBSPL(&spline.count, spline.time, spline.table, &noCondition, &noCondition);
    }
    return spline;
}

// Compatibility: L/2 is formed in single precision.
double halfWindow(const LineIntegration& lines) {
    return static_cast<double>(lines.integrationInterval * 0.5F);
}

double runningMean(const LineSpline& spline, double time, double half, double interval) {
    double from = time - half;
    double to = time + half;
    if (spline.start() > from) {
        from = spline.start();
        to = spline.start() + interval;
    }
    if (to > spline.end()) {
        to = spline.end();
        from = spline.end() - interval;
    }
    const bool fits = spline.count > 1 && from >= spline.start() && spline.end() >= to;
    return fits ? spline.integral(from, to) / interval : dummyValue;
}

}  // namespace

void averageAlongLines(const ObsSet& obs, LineIntegration& lines, std::span<double> values) {
    if (!(lines.integrationInterval > 0.0F)) {
        return;
    }
    assert(values.size() >= static_cast<std::size_t>(obs.nData));
    const double half = halfWindow(lines);
    const auto interval = static_cast<double>(lines.integrationInterval);
    for (std::size_t line = 0; line < static_cast<std::size_t>(obs.nLines); ++line) {
        const LineRange range = rangeOfLine(obs, line);
        const LineSpline spline = fitLine(range, lines, values);
        for (std::size_t i = 0; i < range.count; ++i) {
            values[range.record + i] = runningMean(spline, spline.time[i], half, interval);
        }
    }
}

void spreadAlongLines(const ObsSet& obs, const LineIntegration& lines, std::span<const double> observed,
                      std::span<const double> predicted, std::span<double> residual, std::span<double> work) {
    assert(observed.size() == residual.size() && predicted.size() == residual.size());
    assert(work.size() >= residual.size());
    std::fill_n(work.begin(), residual.size(), 0.0);
    for (std::size_t line = 0; line < static_cast<std::size_t>(obs.nLines); ++line) {
        const LineRange range = rangeOfLine(obs, line);
        for (std::size_t i = 0; i < range.count; ++i) {
            const StationWindow& window = lines.windowRange[range.station + i];
            const double* const weight =
                lines.windowWeight.data() + static_cast<std::size_t>(lines.maxWindow) * (range.station + i);
            for (std::int32_t l = 0; l < window.count; ++l) {
                const std::size_t n = range.record + static_cast<std::size_t>(window.first - 1 + l);
                if (isValid(observed[n]) && isValid(predicted[n])) {
                    work[range.record + i] += residual[n] * weight[l];
                }
            }
        }
    }
    std::copy_n(work.begin(), residual.size(), residual.begin());
}

void integrateBackgroundAlongLines(const ObsSet& obs, LineIntegration& lines, std::span<double> values,
                                   std::span<double> firstComponent) {
    const double half = halfWindow(lines);
    for (std::size_t line = 0; line < static_cast<std::size_t>(obs.nLines); ++line) {
        const LineRange range = rangeOfLine(obs, line);
        const LineSpline spline = fitLine(range, lines, values);
        for (std::size_t i = 0; i < range.count; ++i) {
            const double from = spline.time[i] - half;
            const double to = spline.time[i] + half;
            const bool fits = range.count > 1 && from >= spline.start() && to <= spline.end();
            // Compatibility: the integral is not divided by its interval.
            values[range.record + i] = fits ? spline.integral(from, to) : dummyValue;
            // Compatibility: component 1 loses the station whichever component is being treated.
            if (from < spline.start()) {
                firstComponent[range.record + i] = dummyValue;
            }
        }
    }
}

}  // namespace voxlith
