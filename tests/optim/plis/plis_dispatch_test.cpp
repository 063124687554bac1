// PLIS through the optimiser call: the word of each state, and the arguments that the engine does not read.
#include <gtest/gtest.h>

#include <limits>

#include "optim/optimiser_step.h"
#include "support/plis_run.h"

namespace voxlith {
namespace {

using testing_support::PlisRun;
using testing_support::rosenbrockChain;
using testing_support::Vector;

struct DispatchedRun {
    std::int32_t n = 4;
    std::int32_t m = 3;
    std::int32_t nb = 0;
    Vector x{-1.2, 1.0, -1.2, 1.0};
    Vector l, u, g, maxStep;
    std::vector<std::int32_t> nbd, fixedFlag, iwa;
    Vector wa;
    double f = 0.0;
    double factr = 0.1;
    TaskWord task{};
    OptimiserState state;

    DispatchedRun() : nbd(4, 0), fixedFlag(4, 0) {
        l.assign(4, 0.0);
        u.assign(4, 0.0);
        g.assign(4, 0.0);
        maxStep.assign(4, 0.0);
        wa.assign(static_cast<std::size_t>(optimiserRealWorkspace(n, m)), 0.0);
        iwa.assign(static_cast<std::size_t>(optimiserIntegerWorkspace(n)), 0);
    }

    std::string_view call(int method) {
        optimiserStep(method, 7, n, m, x, l, u, nb, nbd, fixedFlag, maxStep, f, g, factr, 0.0, wa, iwa, task, -1,
                      state);
        return taskText(task);
    }

    std::string_view callWith(std::string_view word, int method) {
        setTask(task, word);
        return call(method);
    }

    void evaluate() { f = rosenbrockChain(x, g); }
};

TEST(PlisDispatch, WordsMapToStates) {
    DispatchedRun run;
    EXPECT_EQ(run.callWith("START", 1), "FG_START");
    EXPECT_EQ(run.f, -1.0e60);
    EXPECT_EQ(run.state.plis.method, 1);
    run.evaluate();
    EXPECT_EQ(run.call(1), "FG_LN");
    int trials = 0;
    while (taskIs(run.task, "FG_LN") && ++trials < 50) {
        run.evaluate();
        run.call(1);
    }
    EXPECT_EQ(taskText(run.task), "NEW_X");
    EXPECT_EQ(run.call(1), "FG_LN");
    EXPECT_EQ(run.callWith("START", 2), "FG_START");
    EXPECT_EQ(run.state.plis.method, 2);
}

// Every word but "START" and "FG_LN" continues with an iteration.
TEST(PlisDispatch, OtherWordsBeginAnIteration) {
    for (const char* word : {"FG_START", "NEW_X", "SKIP", "FG_", "FG_LNSRCH", "START NOW", "CONVERGED", ""}) {
        DispatchedRun run;
        run.callWith("START", 1);
        run.evaluate();
        EXPECT_EQ(run.callWith(word, 1), "FG_LN") << word;
        EXPECT_EQ(run.state.plis.iterationCount, 1) << word;
    }
}

TEST(PlisDispatch, EndsMapToWords) {
    DispatchedRun converged;
    converged.x.assign(4, 1.0);
    converged.callWith("START", 2);
    converged.evaluate();
    EXPECT_EQ(converged.call(2), "CONVERGED");
    DispatchedRun broken;
    broken.callWith("START", 2);
    broken.f = 1.0;
    broken.g.assign(4, std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(broken.call(2), "ERROR");
}

TEST(PlisDispatch, FlagsAndTolerancesOfTheOtherEngineAreIgnored) {
    DispatchedRun plain;
    DispatchedRun loaded;
    loaded.fixedFlag.assign(4, 1);
    loaded.maxStep.assign(4, 1.0e-6);
    loaded.factr = -1.0;
    for (DispatchedRun* run : {&plain, &loaded}) {
        run->callWith("START", 1);
        for (int call = 0; call < 60; ++call) {
            if (taskBegins(run->task, "FG")) {
                run->evaluate();
            }
            run->call(1);
        }
    }
    EXPECT_EQ(plain.x, loaded.x);
    EXPECT_NE(plain.x, (Vector{-1.2, 1.0, -1.2, 1.0}));
}

// The optimiser call adds nothing: its points are those of the engine.
TEST(PlisDispatch, PointsAreThoseOfTheEngine) {
    for (const int method : {1, 2}) {
        DispatchedRun dispatched;
        dispatched.nb = 4;
        dispatched.nbd = {1, 2, 3, 5};
        dispatched.l.assign(4, -1.0);
        dispatched.u.assign(4, 0.5);
        PlisRun direct(method, 4, 3, 0.0);
        direct.nb = 4;
        direct.x = dispatched.x;
        direct.nbd = dispatched.nbd;
        direct.l = dispatched.l;
        direct.u = dispatched.u;
        direct.call();
        dispatched.callWith("START", method);
        int calls = 0;
        do {
            ASSERT_EQ(direct.x, dispatched.x) << "call " << calls;
            ASSERT_EQ(direct.nbd, dispatched.nbd) << "call " << calls;
            if (taskBegins(dispatched.task, "FG")) {
                dispatched.evaluate();
            }
            dispatched.call(method);
            ++calls;
        } while (direct.advance(rosenbrockChain) && calls < 5000);
        EXPECT_NE(direct.stopCode, 0);
    }
}

}  // namespace
}  // namespace voxlith
