#include "survey/line_average.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "spline/voxlith_spline.h"
#include "support/random_sensitivity.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::randomVector;

struct Survey {
    ObsSet obs;
    LineIntegration lines;
};

// Lines with the given station times, in sequence.
Survey surveyOf(const std::vector<std::vector<double>>& times, float interval) {
    Survey survey;
    std::int32_t record = 1;
    for (const std::vector<double>& line : times) {
        const auto count = static_cast<std::int32_t>(line.size());
        survey.obs.lineFirstLast.push_back({record, record + count - 1});
        survey.obs.lineCount.push_back(count);
        survey.obs.maxLineData = std::max(survey.obs.maxLineData, count);
        record += count;
    }
    survey.obs.nData = record - 1;
    survey.obs.nLines = static_cast<std::int32_t>(times.size());
    const auto widest = static_cast<std::size_t>(survey.obs.maxLineData);
    survey.lines.integrationInterval = interval;
    survey.lines.lineTime.assign(widest * times.size(), 0.0);
    for (std::size_t line = 0; line < times.size(); ++line) {
        std::copy(times[line].begin(), times[line].end(),
                  survey.lines.lineTime.begin() + static_cast<std::ptrdiff_t>(line * widest));
    }
    survey.lines.windowRange.resize(widest * times.size());
    survey.lines.splineTable.resize(4 * widest);
    return survey;
}

std::vector<double> risingTimes(std::size_t n, std::mt19937& random) {
    std::vector<double> times(n);
    double time = 100.0;
    for (double& t : times) {
        t = time;
        time += 1.5 + randomVector(1, random)[0];
    }
    return times;
}

// The integral of the spline through a line's values, interval by interval with Simpson's rule, which is exact for
// cubics.
double simpson(const std::vector<double>& times, const std::vector<double>& values, double from, double to) {
    const auto n = static_cast<std::int32_t>(times.size());
    std::vector<double> table(4 * times.size());
    for (std::size_t i = 0; i < times.size(); ++i) {
        table[4 * i] = values[i];
    }
    const std::int32_t none = 0;
    CUBSPL(&n, times.data(), table.data(), &none, &none);
    const auto value = [&](double x) { return CUBVAL(&n, times.data(), table.data(), &x); };
    std::vector<double> edges{from};
    std::copy_if(times.begin(), times.end(), std::back_inserter(edges), [&](double t) { return t > from && t < to; });
    edges.push_back(to);
    double sum = 0.0;
    for (std::size_t i = 0; i + 1 < edges.size(); ++i) {
        const double a = edges[i];
        const double b = edges[i + 1];
        sum += (b - a) / 6.0 * (value(a) + 4.0 * value(0.5 * (a + b)) + value(b));
    }
    return sum;
}

TEST(AverageAlongLines, IsTheMeanOfTheSplineOverAShiftedWindow) {
    for (const unsigned seed : {1U, 2U, 3U}) {
        std::mt19937 random(seed);
        const std::vector<std::vector<double>> times{risingTimes(12, random), risingTimes(5, random),
                                                     risingTimes(30, random)};
        const float interval = 4.3F;
        Survey survey = surveyOf(times, interval);
        const std::vector<double> before = randomVector(47, random);
        std::vector<double> after = before;
        averageAlongLines(survey.obs, survey.lines, after);
        std::size_t first = 0;
        for (const std::vector<double>& line : times) {
            const std::vector<double> values(before.begin() + static_cast<std::ptrdiff_t>(first),
                                             before.begin() + static_cast<std::ptrdiff_t>(first + line.size()));
            const auto length = static_cast<double>(interval);
            const bool fits = line.back() - line.front() >= length;
            for (std::size_t i = 0; i < line.size(); ++i) {
                double from = line[i] - length / 2;
                from = std::max(from, line.front());
                from = std::min(from, line.back() - length);
                if (fits) {
                    EXPECT_NEAR(after[first + i], simpson(line, values, from, from + length) / length, 1e-11)
                        << "seed " << seed << ", station " << i;
                } else {
                    EXPECT_EQ(after[first + i], dummyValue) << "seed " << seed;
                }
            }
            first += line.size();
        }
    }
}

TEST(AverageAlongLines, KeepsConstantsAndShiftsLinesInsideTheirEnds) {
    Survey survey = surveyOf({{0.0, 1.0, 2.0, 3.0, 4.0, 5.0}}, 2.0F);
    std::vector<double> constant(6, 7.5);
    averageAlongLines(survey.obs, survey.lines, constant);
    for (const double value : constant) {
        EXPECT_NEAR(value, 7.5, 1e-13);
    }
    std::vector<double> slope{0.0, 1.0, 2.0, 3.0, 4.0, 5.0};
    averageAlongLines(survey.obs, survey.lines, slope);
    const double expected[] = {1.0, 1.0, 2.0, 3.0, 4.0, 4.0};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(slope[i], expected[i], 1e-13) << i;
    }
}

TEST(AverageAlongLines, LineShorterThanTheIntervalGivesNulls) {
    Survey survey = surveyOf({{0.0, 1.0, 2.0}, {0.0, 2.0, 4.0}, {0.0, 1.0, 2.9990234375}}, 3.0F);
    std::vector<double> values(9, 1.0);
    averageAlongLines(survey.obs, survey.lines, values);
    for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(isValid(values[i]), i / 3 == 1) << i;
        if (i / 3 != 1) {
            EXPECT_EQ(values[i], dummyValue);
        }
    }
}

TEST(AverageAlongLines, LineAsLongAsTheIntervalGivesOneMean) {
    Survey survey = surveyOf({{0.0, 1.0, 2.0, 3.0}}, 3.0F);
    std::vector<double> values{0.0, 2.0, 4.0, 6.0};
    averageAlongLines(survey.obs, survey.lines, values);
    for (const double value : values) {
        EXPECT_NEAR(value, 3.0, 1e-13);
    }
}

TEST(AverageAlongLines, SingleStationGetsTheNull) {
    Survey survey = surveyOf({{5.0}, {0.0, 1.0, 2.0, 3.0}}, 2.0F);
    std::vector<double> values{1.0, 1.0, 1.0, 1.0, 1.0};
    averageAlongLines(survey.obs, survey.lines, values);
    EXPECT_EQ(values[0], dummyValue);
    EXPECT_NEAR(values[2], 1.0, 1e-13);
    // Even where the interval is lost in the rounding of the time.
    Survey narrow = surveyOf({{1.0e20}}, 1.0F);
    std::vector<double> single{1.0};
    averageAlongLines(narrow.obs, narrow.lines, single);
    EXPECT_EQ(single[0], dummyValue);
}

TEST(AverageAlongLines, StationsOutsideLinesAndRunsWithoutIntervalStayAsTheyAre) {
    Survey survey = surveyOf({{0.0, 1.0, 2.0, 3.0}}, 2.0F);
    std::vector<double> values{1.0, 4.0, 2.0, 9.0, -5.0};
    averageAlongLines(survey.obs, survey.lines, values);
    EXPECT_EQ(values[4], -5.0);
    EXPECT_NE(values[0], 1.0);
    for (const float interval : {0.0F, -1.0F}) {
        Survey plain = surveyOf({{0.0, 1.0, 2.0, 3.0}}, interval);
        std::vector<double> kept{1.0, 4.0, 2.0, 9.0};
        averageAlongLines(plain.obs, plain.lines, kept);
        EXPECT_EQ(kept, (std::vector<double>{1.0, 4.0, 2.0, 9.0}));
    }
}

// Windows of two stations to either side, none at the line ends, weights at random.
void fillWindows(Survey& survey, std::mt19937& random) {
    survey.lines.maxWindow = 3;
    const auto widest = static_cast<std::size_t>(survey.obs.maxLineData);
    survey.lines.windowWeight = randomVector(3 * widest * survey.obs.lineCount.size(), random);
    for (std::size_t line = 0; line < survey.obs.lineCount.size(); ++line) {
        for (std::int32_t s = 2; s < survey.obs.lineCount[line]; ++s) {
            const std::int32_t count = s % 2 == 0 ? 3 : 2;
            survey.lines.windowRange[line * widest + static_cast<std::size_t>(s - 1)] = {s - 1, s - 2 + count, count};
        }
    }
}

TEST(SpreadAlongLines, SumsTheWindowOfEachStation) {
    std::mt19937 random(5);
    Survey survey = surveyOf({{0.0, 1.0, 2.0, 3.0, 4.0}, {0.0, 1.0, 2.0}}, 2.0F);
    fillWindows(survey, random);
    std::vector<double> observed(8, 0.0);
    std::vector<double> predicted(8, 0.0);
    observed[2] = dummyValue;
    predicted[6] = dummyValue;
    const std::vector<double> before = randomVector(8, random);
    std::vector<double> after = before;
    std::vector<double> work(8, 77.0);
    spreadAlongLines(survey.obs, survey.lines, observed, predicted, after, work);
    const auto weight = [&](std::size_t line, std::size_t station, std::size_t l) {
        return survey.lines.windowWeight[3 * (5 * line + station) + l];
    };
    EXPECT_EQ(after[0], 0.0);                                                        // no window
    EXPECT_EQ(after[1], before[0] * weight(0, 1, 0) + before[1] * weight(0, 1, 1));  // its third station is masked
    EXPECT_EQ(after[2], before[1] * weight(0, 2, 0));
    EXPECT_EQ(after[3], before[3] * weight(0, 3, 1) + before[4] * weight(0, 3, 2));
    EXPECT_EQ(after[4], 0.0);
    EXPECT_EQ(after[5], 0.0);
    EXPECT_EQ(after[6], before[5] * weight(1, 1, 0) + before[7] * weight(1, 1, 2));
    EXPECT_EQ(after[7], 0.0);
}

TEST(BackgroundAlongLines, IsTheIntegralWithoutShiftOrDivision) {
    std::mt19937 random(9);
    const std::vector<std::vector<double>> times{risingTimes(15, random), risingTimes(8, random)};
    const float interval = 5.1F;
    Survey survey = surveyOf(times, interval);
    const std::vector<double> before = randomVector(23, random);
    std::vector<double> after = before;
    std::vector<double> first(23, 1.0);
    integrateBackgroundAlongLines(survey.obs, survey.lines, after, first);
    std::size_t record = 0;
    for (const std::vector<double>& line : times) {
        const std::vector<double> values(before.begin() + static_cast<std::ptrdiff_t>(record),
                                         before.begin() + static_cast<std::ptrdiff_t>(record + line.size()));
        for (std::size_t i = 0; i < line.size(); ++i) {
            const double half = static_cast<double>(interval * 0.5F);
            const double from = line[i] - half;
            const double to = line[i] + half;
            if (from >= line.front() && to <= line.back()) {
                EXPECT_NEAR(after[record + i], simpson(line, values, from, to), 1e-11) << i;
            } else {
                EXPECT_EQ(after[record + i], dummyValue) << i;
            }
            EXPECT_EQ(first[record + i], from < line.front() ? dummyValue : 1.0) << i;
        }
        record += line.size();
    }
}

TEST(BackgroundAlongLines, SingleStationMasksItselfAndTheFirstComponent) {
    Survey survey = surveyOf({{5.0}}, 2.0F);
    std::vector<double> values{1.0};
    std::vector<double> first{1.0};
    integrateBackgroundAlongLines(survey.obs, survey.lines, values, first);
    EXPECT_EQ(values[0], dummyValue);
    EXPECT_EQ(first[0], dummyValue);
}

TEST(BackgroundAlongLines, TheFirstComponentMayBeTheOneThatIsTreated) {
    Survey survey = surveyOf({{0.0, 1.0, 2.0, 3.0, 4.0}}, 2.0F);
    std::vector<double> values(5, 1.0);
    integrateBackgroundAlongLines(survey.obs, survey.lines, values, values);
    EXPECT_EQ(values[0], dummyValue);
    EXPECT_NEAR(values[1], 2.0, 1e-13);
    EXPECT_NEAR(values[3], 2.0, 1e-13);
    EXPECT_EQ(values[4], dummyValue);
}

}  // namespace
}  // namespace voxlith
