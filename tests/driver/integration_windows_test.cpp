#include "driver/integration_windows.h"

#include <gtest/gtest.h>

#include <numeric>

#include "support/program_run.h"

namespace voxlith {
namespace {

// Lines of stations at the given times.
void setLines(ObsSet& obs, const std::vector<std::vector<double>>& times) {
    obs.nData = 0;
    for (const auto& line : times) {
        obs.nData += static_cast<std::int32_t>(line.size());
    }
    allocateLineTables(obs);
    std::int32_t record = 0;
    for (const auto& line : times) {
        const auto at = static_cast<std::size_t>(obs.nLines++);
        obs.lineCount[at] = static_cast<std::int32_t>(line.size());
        obs.lineFirstLast[at] = {record + 1, record + static_cast<std::int32_t>(line.size())};
        obs.maxLineData = std::max(obs.maxLineData, obs.lineCount[at]);
        for (const double time : line) {
            obs.obsTime[static_cast<std::size_t>(record++)] = time;
        }
    }
}

LineIntegration windowsOf(const std::vector<std::vector<double>>& times, float interval) {
    ObsSet obs;
    setLines(obs, times);
    LineIntegration lines;
    lines.integrationInterval = interval;
    Messages messages;
    buildIntegrationWindows(messages, obs, lines);
    return lines;
}

std::vector<double> uniform(int n, double step) {
    std::vector<double> times(static_cast<std::size_t>(n));
    for (std::size_t i = 0; i < times.size(); ++i) {
        times[i] = step * static_cast<double>(i);
    }
    return times;
}

TEST(IntegrationWindows, AreMissingWhereTheyWouldRunOffTheLine) {
    const LineIntegration lines = windowsOf({uniform(8, 1.0)}, 2.5F);
    for (const std::size_t station : {0U, 1U, 6U, 7U}) {
        EXPECT_EQ(lines.windowRange[station].first, -1) << station;
        EXPECT_EQ(lines.windowRange[station].count, 0) << station;
    }
    EXPECT_EQ(lines.windowRange[2].first, 1);
    EXPECT_EQ(lines.windowRange[2].last, 5);
    EXPECT_EQ(lines.windowRange[2].count, 5);
    EXPECT_EQ(lines.nWindows, 4);
    EXPECT_EQ(lines.maxWindow, 5);
}

TEST(IntegrationWindows, WeightsAddUpToOneAndIntegrateLinesExactly) {
    std::vector<double> times = uniform(12, 1.0);
    for (std::size_t i = 0; i < times.size(); ++i) {
        times[i] += 0.03 * static_cast<double>(i * i % 5);
    }
    const float interval = 3.4F;
    const LineIntegration lines = windowsOf({times}, interval);
    ASSERT_GT(lines.nWindows, 3);
    for (std::size_t station = 0; station < times.size(); ++station) {
        const StationWindow& window = lines.windowRange[station];
        if (window.count == 0) {
            continue;
        }
        double sum = 0;
        double moment = 0;
        for (std::int32_t l = 0; l < window.count; ++l) {
            const double weight =
                lines.windowWeight[station * static_cast<std::size_t>(lines.maxWindow) + static_cast<std::size_t>(l)];
            sum += weight;
            moment += weight * times[static_cast<std::size_t>(window.first - 1 + l)];
        }
        EXPECT_NEAR(sum, 1.0, 1e-6) << station;
        EXPECT_NEAR(moment, times[station], 1e-5) << station;
    }
}

TEST(IntegrationWindows, EdgesWithinOnePercentSnap) {
    // Half the interval is 1.005: the lower edge lies 0.005 below a station, within 0.0201 of it, and snaps. At the
    // upper edge the station before the edge's own interval would have to be that close: it takes stations closer than
    // 1% of the interval.
    const LineIntegration lines = windowsOf({uniform(8, 1.0)}, 2.01F);
    EXPECT_EQ(lines.windowRange[3].first, 3);
    EXPECT_EQ(lines.windowRange[3].last, 6);
    const LineIntegration close = windowsOf({{0.0, 1.0, 2.0, 3.0, 3.99, 4.0, 5.0, 6.0}}, 2.01F);
    EXPECT_EQ(close.windowRange[3].last, 6) << "3.99 snaps: the interval before that of 4.005";
    const LineIntegration wider = windowsOf({uniform(8, 1.0)}, 2.1F);
    EXPECT_EQ(wider.windowRange[3].first, 2);
    EXPECT_EQ(wider.windowRange[3].last, 6);
}

TEST(IntegrationWindows, OfLoneStationsDoNotExist) {
    const LineIntegration lines = windowsOf({{5.0}, uniform(6, 1.0), {7.0}}, 1.0F);
    EXPECT_EQ(lines.windowRange[0].count, 0);
    EXPECT_EQ(lines.windowRange[12].count, 0);
    EXPECT_EQ(lines.nWindows, 4);
}

TEST(IntegrationWindows, CopeWithTimesThatDoNotRise) {
    windowsOf({{3.0, 2.0, 1.0, 0.0}, {1.0, 1.0, 1.0}, {0.0, 5.0, 2.0, 9.0}}, 1.0F);
    const double notANumber = std::nan("");
    windowsOf({{0.0, notANumber, 2.0, 3.0}, {notANumber, notANumber}}, 1.0F);
}

}  // namespace

namespace testing_support {
namespace {

TEST(IntegrationInterval, WithoutLineAndTimeColumnsEndsTheRun) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(3, "1.0 0.02 0 2.5"));
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(linesOf(result.screen).back(), " The data file does not appear to have the required line/time values");
    EXPECT_TRUE(contains(folder.read("voxlith.log"), " Integration interval:      2.500"));
}

TEST(IntegrationInterval, WithoutLinesEndsTheRun) {
    ObsSet obs;
    LineIntegration lines;
    lines.integrationInterval = 1.0F;
    const TemporaryFolder folder;
    const std::string words = " No line numbers were read from the observed data file\n";
    Messages messages;
    ASSERT_TRUE(openLineFile(messages.log, folder.file("voxlith.log"), LineFileMode::create));
    ::testing::internal::CaptureStdout();
    EXPECT_THROW(buildIntegrationWindows(messages, obs, lines), PlainStop);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), words);
    EXPECT_EQ(folder.read("voxlith.log"), words);
}

}  // namespace
}  // namespace testing_support
}  // namespace voxlith
