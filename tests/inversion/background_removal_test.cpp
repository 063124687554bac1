#include "inversion/background_removal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "support/small_problem.h"
#include "support/temporary_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using testing_support::TemporaryFolder;

// The files go to the working folder.
class BackgroundRemoval : public testing::Test {
protected:
    void SetUp() override { std::filesystem::current_path(folder_.path()); }
    void TearDown() override { std::filesystem::current_path(before_); }

    std::string remove(SmallProblem& small, std::int32_t iBackground = 1, double BackVal = 0.0) {
        testing::internal::CaptureStdout();
        EXPECT_TRUE(openLineFile(small.messages.log, "voxlith.log", LineFileMode::create));
        small.inversion.iBackground = iBackground;
        small.inversion.BackVal = BackVal;
        removeBackground(small.messages, small.problem());
        closeLineFile(small.messages.log);
        return testing::internal::GetCapturedStdout();
    }

    std::vector<std::string> lines(const std::string& name) const {
        std::istringstream in(folder_.read(name));
        std::vector<std::string> all;
        for (std::string line; std::getline(in, line);) {
            all.push_back(line);
        }
        return all;
    }

private:
    std::filesystem::path before_ = std::filesystem::current_path();
    TemporaryFolder folder_;
};

double surface(const SmallProblem& small, std::size_t component, std::size_t station) {
    const std::size_t slots = static_cast<std::size_t>(small.mesh.nzl) + 1;
    return small.sensitivity.layerResponse[slots * (component * 12 + station)];
}

// Data = slope * response + level, exactly.
void setData(SmallProblem& small, std::size_t component, double slope, double level) {
    for (std::size_t n = 0; n < 12; ++n) {
        const std::size_t place = small.obs.index(component, n);
        small.obs.obsData[place] =
            (slope * surface(small, component, n) + level) / static_cast<double>(small.obs.obsStd[place]);
        small.obs.refData[place] = 0.0;
    }
}

TEST_F(BackgroundRemoval, FindsTheValueAndTakesTheLevelAlong) {
    const auto small = makeSmallProblem();
    setData(*small, 0, 2.75, 100.0);
    EXPECT_EQ(remove(*small), "  Background Value Removed:     2.7500\n\n");
    EXPECT_EQ(lines("voxlith.log"), (std::vector<std::string>{"  Background Value Removed:     2.7500", ""}));
    for (std::size_t n = 0; n < 12; ++n) {
        EXPECT_NEAR(small->obs.refData[n], small->obs.obsData[n], 1e-9 * std::abs(small->obs.obsData[n]));
    }
}

TEST_F(BackgroundRemoval, AddsToWhatTheReferenceDataHold) {
    const auto small = makeSmallProblem();
    setData(*small, 0, 1.0, 0.0);
    small->obs.refData.assign(12, 7.0);
    remove(*small);
    for (std::size_t n = 0; n < 12; ++n) {
        EXPECT_NEAR(small->obs.refData[n], 7.0 + small->obs.obsData[n], 1e-9);
    }
}

TEST_F(BackgroundRemoval, TakesAGivenValueOverTheFittedOne) {
    const auto small = makeSmallProblem();
    setData(*small, 0, 2.75, 100.0);
    EXPECT_EQ(remove(*small, 2, -1.5), "  Background Value Removed:    -1.5000\n\n");
    double responseMean = 0.0;
    for (std::size_t n = 0; n < 12; ++n) {
        responseMean += surface(*small, 0, n) / 12.0;
    }
    for (std::size_t n = 0; n < 12; ++n) {
        EXPECT_NEAR(small->obs.refData[n] * static_cast<double>(small->obs.obsStd[n]),
                    -1.5 * (surface(*small, 0, n) - responseMean) + 2.75 * responseMean + 100.0, 1e-9);
    }
}

TEST_F(BackgroundRemoval, ComponentsShareTheMeanValueAndKeepTheirLevels) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = 2;
    const auto small = makeSmallProblem(options);
    setData(*small, 0, 2.0, 10.0);
    setData(*small, 1, 4.0, -20.0);
    EXPECT_EQ(remove(*small), "  Background Value Removed:     3.0000\n\n");
    for (std::size_t component = 0; component < 2; ++component) {
        const double own = component == 0 ? 2.0 : 4.0;
        double mean = 0.0;
        for (std::size_t n = 0; n < 12; ++n) {
            mean += surface(*small, component, n) / 12.0;
        }
        for (std::size_t n = 0; n < 12; ++n) {
            const std::size_t place = small->obs.index(component, n);
            const double left =
                (small->obs.obsData[place] - small->obs.refData[place]) * static_cast<double>(small->obs.obsStd[place]);
            EXPECT_NEAR(left, (own - 3.0) * (surface(*small, component, n) - mean), 1e-9);
        }
    }
}

TEST_F(BackgroundRemoval, ComponentsWithoutAFileAreLeftAlone) {
    SmallOptions options;
    options.nDataTypes = 2;
    const auto small = makeSmallProblem(options);
    setData(*small, 0, 2.0, 10.0);
    const std::vector<double> second(small->obs.refData.begin() + 12, small->obs.refData.end());
    EXPECT_EQ(remove(*small), "  Background Value Removed:     2.0000\n\n");
    EXPECT_EQ(std::vector<double>(small->obs.refData.begin() + 12, small->obs.refData.end()), second);
    EXPECT_EQ(lines("obs_surafce_calc.dat")[1].substr(72), "           *");
}

TEST_F(BackgroundRemoval, MaskedDataTakeNoPart) {
    const auto small = makeSmallProblem();
    setData(*small, 0, 2.0, 10.0);
    small->maskDatum(0, 5);
    EXPECT_EQ(remove(*small), "  Background Value Removed:     2.0000\n\n");
    EXPECT_EQ(small->obs.refData[5], 0.0);
    EXPECT_EQ(lines("obs_surafce_calc.dat")[6].substr(48), "           *");
    EXPECT_EQ(lines("obs_fit_pred.dat")[6].substr(48), "           *           *");
}

TEST_F(BackgroundRemoval, FilesStandInTheirColumns) {
    const auto small = makeSmallProblem();
    small->obs.ObsX.assign(12, 1234.56);
    small->obs.ObsY.assign(12, -0.25);
    small->obs.ObsZ.assign(12, 99.96);
    setData(*small, 0, 2.0, 10.0);
    small->obs.obsStd[0] = 0.5F;
    small->obs.obsData[0] = 4.0;
    for (std::size_t slot = 0; slot < 2; ++slot) {
        small->sensitivity.layerResponse[slot] = 3.5 + static_cast<double>(slot);
    }
    remove(*small, 2, 0.0);
    const auto response = lines("obs_surafce_calc.dat"), fit = lines("obs_fit_pred.dat");
    ASSERT_EQ(response.size(), 13U);
    ASSERT_EQ(fit.size(), 13U);
    EXPECT_EQ(response[0], "     I      X         Y         Z         OBS        Resp");
    EXPECT_EQ(response[1], "     1    1234.6      -0.2     100.0      2.0000      3.5000");
    EXPECT_EQ(fit[0], "     I      X         Y         Z         OBS        Pred        Diff");
    EXPECT_EQ(fit[1].substr(0, 48), "     1    1234.6      -0.2     100.0      2.0000");
    EXPECT_EQ(fit[1].size(), 72U);
    EXPECT_NEAR(std::stod(fit[1].substr(48, 12)) + std::stod(fit[1].substr(60, 12)), 2.0, 2e-4);
}

TEST_F(BackgroundRemoval, SixComponentsFitTheRow) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = 6;
    const auto small = makeSmallProblem(options);
    remove(*small);
    const auto response = lines("obs_surafce_calc.dat"), fit = lines("obs_fit_pred.dat");
    EXPECT_EQ(response[0], "     I      X         Y         Z        OBS1       Resp1        OBS2       Resp2");
    EXPECT_EQ(fit[0],
              "     I      X         Y         Z        OBS1       Pred1       Diff1        OBS2       Pred2       "
              "Diff2");
    EXPECT_EQ(response[1].size(), 36U + 6 * 24);
    EXPECT_EQ(fit[1].size(), 36U + 6 * 36);
}

TEST_F(BackgroundRemoval, AlongLinesBlanksTheFirstComponentAtTheStartOfALine) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = 2;
    const auto small = makeSmallProblem(options);
    small->setLines(2, 2.0F);
    surfaceResponse(small->problem());
    for (std::size_t n = 0; n < 12; ++n) {
        const bool fits = n % 6 != 0 && n % 6 != 5;
        EXPECT_EQ(isValid(small->obs.predData[n]), fits) << n;
        EXPECT_EQ(isValid(small->obs.predData[12 + n]), fits) << n;
    }
    // Response 1 alone would leave the first station whole: the second component's window blanks it.
    for (std::size_t n = 0; n < 12; ++n) {
        small->lines.lineTime[n] = 10.0 * static_cast<double>(n / 6) + static_cast<double>(n % 6);
    }
    const auto first = std::span(small->obs.predData).first(12);
    std::fill(first.begin(), first.end(), 1.0);
    integrateBackgroundAlongLines(small->obs, small->lines, std::span(small->obs.predData).subspan(12), first);
    EXPECT_FALSE(isValid(first[0]));
    EXPECT_TRUE(isValid(first[1]));
    EXPECT_TRUE(isValid(first[5]));
    EXPECT_FALSE(isValid(first[6]));
}

TEST_F(BackgroundRemoval, AlongLinesTheResponseKeepsTheScaleOfTheIntegral) {
    const auto small = makeSmallProblem();
    small->setLines(2, 2.0F);
    std::fill(small->sensitivity.layerResponse.begin(), small->sensitivity.layerResponse.end(), 3.0);
    surfaceResponse(small->problem());
    EXPECT_NEAR(small->obs.predData[2], 6.0, 1e-12);
}

TEST_F(BackgroundRemoval, AlongLinesRowsShowLineAndTime) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = 2;
    const auto small = makeSmallProblem(options);
    small->setLines(2, 2.0F);
    small->obs.ObsX.assign(12, 1.0);
    small->obs.ObsY.assign(12, 2.0);
    small->obs.ObsZ.assign(12, 3.0);
    remove(*small);
    const auto rows = lines("obs_surafce_calc.dat");
    EXPECT_EQ(rows[1].substr(0, 59), "     1 L1                 0.0       1.0       2.0       3.0");
    EXPECT_EQ(rows[1].size(), 59U + 24);
    EXPECT_EQ(rows[1].substr(71), "           *");
    EXPECT_EQ(rows[2].size(), 59U + 48);
    EXPECT_EQ(rows[9].substr(0, 29), "     9 L2                12.0");
    // The fit has its plain columns.
    EXPECT_EQ(lines("obs_fit_pred.dat")[1].substr(0, 36), "     1       1.0       2.0       3.0");
}

TEST_F(BackgroundRemoval, UniformResponsesGiveNoNumber) {
    const auto small = makeSmallProblem();
    std::fill(small->sensitivity.layerResponse.begin(), small->sensitivity.layerResponse.end(), 3.0);
    surfaceResponse(small->problem());
    EXPECT_TRUE(std::isnan(fitBackground(small->obs, 0).background));
}

}  // namespace
}  // namespace voxlith
