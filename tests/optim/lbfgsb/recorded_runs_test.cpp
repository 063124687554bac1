// Runs of L-BFGS-B against recordings: whole sequences of task words and points, and the trial points of an independent
// peer, R's optim(method = "L-BFGS-B"), written by data/optim/record_trials.R.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/optimiser_problem.h"

namespace voxlith {
namespace {

using nlohmann::json;
using testing_support::evaluateTestFunction;
using testing_support::OptimiserRun;
using testing_support::readOptimiserData;
using testing_support::relativeDifference;

class RecordedCalls : public testing::TestWithParam<const char*> {};

// `live`: f and g are computed, and rounding feeds back. Otherwise the recorded f and g are passed.
void compareCalls(const json& recording, bool live) {
    OptimiserRun run(recording);
    const json& spread = recording.at("spread").at(live ? "live" : "replay");
    const std::size_t stableCalls = spread.at("stable_calls");
    const std::vector<double> spreads = spread.at("x_spread");
    const json& calls = recording.at("calls");
    std::size_t point = 0;
    for (std::size_t k = 0; k < std::min(stableCalls, calls.size()); ++k) {
        const json& call = calls[k];
        run.callWith(call.at("in").get<std::string>());
        ASSERT_EQ(run.word(), call.at("out").get<std::string>()) << "call " << k;
        if (!call.contains("x")) {
            continue;
        }
        const std::vector<double> expected = call.at("x");
        const double tolerance = std::max(1.0e-12, point < spreads.size() ? 100.0 * spreads[point] : 0.0);
        ++point;
        ASSERT_LE(relativeDifference(run.x, expected), tolerance) << "call " << k;
        if (call.contains("f")) {
            if (live) {
                run.f = evaluateTestFunction(recording.at("function"), run.x, run.g);
            } else {
                run.f = call.at("f");
                run.g = call.at("g").get<std::vector<double>>();
            }
        } else if (!live) {
            EXPECT_EQ(run.f, call.at("f_left").get<double>());
            EXPECT_EQ(run.g, call.at("g_left").get<std::vector<double>>());
        }
    }
}

TEST_P(RecordedCalls, AreReproducedWithTheRecordedValues) {
    compareCalls(readOptimiserData(GetParam()), false);
}
TEST_P(RecordedCalls, AreReproducedWithComputedValues) {
    compareCalls(readOptimiserData(GetParam()), true);
}

INSTANTIATE_TEST_SUITE_P(Lbfgsb, RecordedCalls,
                         testing::Values("lbfgsb_box30.json", "lbfgsb_chained25_lower.json",
                                         "lbfgsb_extrapolation.json", "lbfgsb_failed_searches_free.json",
                                         "lbfgsb_fixed1_no_bounds.json", "lbfgsb_rosenbrock2_free.json"));

class PeerTrials : public testing::TestWithParam<const char*> {};

TEST_P(PeerTrials, AgreeForFortyEvaluations) {
    const json recording = readOptimiserData(GetParam());
    const json& trials = recording.at("trials");
    OptimiserRun run(recording);
    run.callWith("START");
    std::size_t evaluations = 0;
    for (int call = 0; call < 1000 && evaluations < 40; ++call) {
        if (run.wantsEvaluation()) {
            ASSERT_LT(evaluations, trials.size()) << "the peer stopped here";
            const std::vector<double> expected = trials[evaluations];
            ASSERT_LE(relativeDifference(run.x, expected), 1.0e-9) << "evaluation " << evaluations + 1;
            run.f = evaluateTestFunction(recording.at("function"), run.x, run.g);
            ++evaluations;
        } else if (run.word() != "NEW_X") {
            break;
        }
        run.call();
    }
    EXPECT_EQ(evaluations, std::min<std::size_t>(trials.size(), 40));
}

INSTANTIATE_TEST_SUITE_P(Lbfgsb, PeerTrials,
                         testing::Values("trials_rosenbrock2.json", "trials_rosenbrock10.json",
                                         "trials_rosenbrock10_m1.json", "trials_rosenbrock10_m2.json",
                                         "trials_quadratic24.json", "trials_quadratic24_all_sides.json",
                                         "trials_chained25.json", "trials_rosenbrock25_bounded.json",
                                         "trials_rosenbrock25_m3.json"));

TEST(RecordedErrors, AreGivenBySingleStarts) {
    const json recording = readOptimiserData("lbfgsb_errors.json");
    for (const json& expected : recording.at("cases")) {
        OptimiserRun run(expected);
        run.callWith("START");
        EXPECT_EQ(run.word(), expected.at("out").get<std::string>()) << expected.at("name");
    }
}

}  // namespace
}  // namespace voxlith
