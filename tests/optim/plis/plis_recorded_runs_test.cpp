// Recorded runs of PLIS: the sequence of words and points, the columns in use, the shift, the codes of the bounds.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/optimiser_problem.h"
#include "support/plis_run.h"

namespace voxlith {
namespace {

using nlohmann::json;
using testing_support::evaluateTestFunction;
using testing_support::PlisRun;
using testing_support::readOptimiserData;
using testing_support::relativeDifference;
using testing_support::Vector;

PlisRun startOf(const json& recording) {
    PlisRun run(recording.at("method"), recording.at("n"), recording.at("m"), 0.0);
    run.nb = recording.at("nb");
    run.x = recording.at("x").get<Vector>();
    run.l = recording.at("l").get<Vector>();
    run.u = recording.at("u").get<Vector>();
    run.nbd = recording.at("nbd").get<std::vector<std::int32_t>>();
    return run;
}

std::string wordOf(const PlisRun& run) {
    if (run.state == -1) {
        return "FG_START";
    }
    if (run.state == 3) {
        return "FG_LN";
    }
    if (run.stopCode == 0) {
        return "NEW_X";
    }
    return run.stopCode > 0 ? "CONVERGED" : "ERROR";
}

int stateOf(const std::string& word) {
    if (word == "START") {
        return -1;
    }
    return word == "FG_LN" ? 3 : 0;
}

class PlisRecording : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

// "replay": the recorded f and g are passed. "live": they are computed, and rounding feeds back.
TEST_P(PlisRecording, IsReproducedWithinItsSpread) {
    const json recording = readOptimiserData(std::get<0>(GetParam()));
    const std::string way = std::get<1>(GetParam());
    const json& spread = recording.at("spread").at(way);
    const std::size_t stableCalls = spread.at("stable_calls");
    const Vector spreads = spread.at("x_spread");
    const json& calls = recording.at("calls");
    PlisRun run = startOf(recording);
    std::size_t point = 0;
    double tolerance = 1.0e-12;
    for (std::size_t k = 0; k < stableCalls; ++k) {
        const json& call = calls.at(k);
        run.state = stateOf(call.at("in"));
        run.call();
        ASSERT_EQ(wordOf(run), call.at("out").get<std::string>()) << "call " << k;
        if (call.contains("x")) {
            tolerance = std::max(1.0e-12, 100.0 * spreads.at(point++));
            ASSERT_LE(relativeDifference(run.x, call.at("x")), tolerance) << "call " << k;
        }
        if (call.contains("nbd")) {
            ASSERT_EQ(run.nbd, call.at("nbd").get<std::vector<std::int32_t>>()) << "call " << k;
        }
        if (call.contains("columnsInUse")) {
            ASSERT_EQ(run.saved.columnsInUse, call.at("columnsInUse").get<std::int32_t>()) << "call " << k;
            // The shift depends on differences of points and gradients, and is less accurate than they are.
            const double shift = call.at("shift");
            ASSERT_NEAR(run.saved.shift, shift, 1.0e4 * tolerance * shift) << "call " << k;
        }
        if (!call.contains("f")) {
            continue;
        }
        run.f = call.at("f");
        run.g = call.at("g").get<Vector>();
        if (way == "live") {
            run.f = evaluateTestFunction(recording.at("function"), run.x, run.g);
        }
    }
    EXPECT_GT(point, 15u);
}

INSTANTIATE_TEST_SUITE_P(Plis, PlisRecording,
                         testing::Combine(testing::Values("plis_free_method1_gradient.json",
                                                          "plis_bounded_method2_gradient.json", "plis_codes_4_5_6.json",
                                                          "plis_codes_4_5_6_gradient.json"),
                                          testing::Values("replay", "live")));

}  // namespace
}  // namespace voxlith
