#include "inversion/inversion_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <new>
#include <sstream>

#include "inversion/gradient.h"
#include "inversion/objective.h"
#include "support/small_problem.h"
#include "support/temporary_folder.h"
#include "survey/dummy_value.h"

namespace {

// Allocations of the whole test program while counting is on.
bool counting = false;
long allocations = 0;

void* allocate(std::size_t size) {
    if (counting) {
        ++allocations;
    }
    if (void* place = std::malloc(size == 0 ? 1 : size)) {
        return place;
    }
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* place) noexcept {
    std::free(place);
}
void operator delete[](void* place) noexcept {
    std::free(place);
}
void operator delete(void* place, std::size_t) noexcept {
    std::free(place);
}
void operator delete[](void* place, std::size_t) noexcept {
    std::free(place);
}

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using testing_support::TemporaryFolder;
using Vector = std::vector<double>;

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> all;
    for (std::string line; std::getline(in, line);) {
        all.push_back(line);
    }
    return all;
}

struct Row {
    int iteration = 0;
    double misfit = 0, norm = 0, total = 0;
    std::string tail;  // after the time
};

class InversionLoop : public testing::Test {
protected:
    void SetUp() override { std::filesystem::current_path(folder_.path()); }
    void TearDown() override { std::filesystem::current_path(before_); }

    void run(SmallProblem& small) {
        ASSERT_TRUE(openLineFile(small.messages.log, "voxlith.log", LineFileMode::create));
        ASSERT_TRUE(openLineFile(small.progressTable, "voxlith.aux", LineFileMode::create));
        testing::internal::CaptureStdout();
        inversionLoop(small.problem(), small.messages, small.progressTable);
        screen_ = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(isOpen(small.messages.log));
        EXPECT_TRUE(isOpen(small.progressTable));
        closeLineFile(small.messages.log);
        closeLineFile(small.progressTable);
    }

    // Allocations of the iterations and the end.
    long allocationsOf(SmallProblem& small) {
        openLineFile(small.messages.log, "voxlith.log", LineFileMode::create);
        openLineFile(small.progressTable, "voxlith.aux", LineFileMode::create);
        testing::internal::CaptureStdout();
        {
            const InversionProblem& problem = small.problem();
            voxlith::InversionLoop loop{problem, small.messages, small.progressTable};
            beginInversion(loop);
            allocations = 0;
            counting = true;
            while (loop.state.continueFlag) {
                startIteration(loop);
                takeCycleStep(loop);
                finishIteration(loop);
                advanceCycle(loop.state);
            }
            finishInversion(loop);
            counting = false;
        }
        testing::internal::GetCapturedStdout();
        closeLineFile(small.messages.log);
        closeLineFile(small.progressTable);
        return allocations;
    }

    void runTo(SmallProblem& small, std::int32_t maxIterations) {
        small.inversion.maxIterations = maxIterations;
        run(small);
    }

    std::string log() const { return folder_.read("voxlith.log"); }
    std::string table() const { return folder_.read("voxlith.aux"); }
    const std::string& screen() const { return screen_; }
    bool exists(const std::string& name) const { return std::filesystem::exists(folder_.path() / name); }
    std::string read(const std::string& name) const { return folder_.read(name); }

    // The rows after the heading of the screen's table, start included.
    std::vector<Row> rows() const {
        std::vector<Row> all;
        for (const std::string& line : linesOf(screen_)) {
            if (line.size() < 64 || line.find_first_not_of(' ') == std::string::npos || !std::isdigit(line[11])) {
                continue;
            }
            all.push_back({std::stoi(line.substr(0, 12)), std::stod(line.substr(12, 14)),
                           std::stod(line.substr(26, 14)), std::stod(line.substr(40, 14)), line.substr(64)});
        }
        return all;
    }

    std::vector<int> rowsWithPlus() const {
        std::vector<int> all;
        for (const Row& row : rows()) {
            if (row.tail.find('+') != std::string::npos) {
                all.push_back(row.iteration);
            }
        }
        return all;
    }

    static std::size_t count(const std::string& text, const std::string& part) {
        std::size_t found = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++found;
        }
        return found;
    }

private:
    std::filesystem::path before_ = std::filesystem::current_path();
    TemporaryFolder folder_;
    std::string screen_;
};

TEST_F(InversionLoop, LowersTheObjectiveAndTellsEveryIteration) {
    const auto small = makeSmallProblem();
    runTo(*small, 8);
    const std::vector<Row> all = rows();
    ASSERT_EQ(all.size(), 9U);
    for (std::size_t n = 0; n < all.size(); ++n) {
        EXPECT_EQ(all[n].iteration, static_cast<int>(n));
        EXPECT_EQ(all[n].tail, "");
        if (n > 0) {
            EXPECT_LE(all[n].total, all[n - 1].total);
        }
    }
    EXPECT_LT(all.back().total, all.front().total);
    EXPECT_EQ(linesOf(table()).size(), 10U);
    EXPECT_EQ(count(log(), "\nIteration:"), 8U);
    EXPECT_LT(log().find("   Begin iterations"), log().find("tradeoff par"));
    EXPECT_LT(log().find("total objective:"), log().find(" OH calc_obj:"));
}

TEST_F(InversionLoop, LimitEqualToTheStartStillRunsOneIteration) {
    const auto small = makeSmallProblem();
    InversionOptions& asked = small->inversion;
    asked.startIteration = asked.maxIterations = 7;
    run(*small);
    const std::vector<Row> all = rows();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].iteration, 7);
    EXPECT_EQ(all[1].iteration, 8);
    // A continued run adds no heading to the table that it goes on with.
    EXPECT_EQ(linesOf(table()).size(), 1U);
}

TEST_F(InversionLoop, LargestStartEndsAfterOneIteration) {
    const auto small = makeSmallProblem();
    InversionOptions& asked = small->inversion;
    asked.startIteration = asked.maxIterations = std::numeric_limits<std::int32_t>::max();
    run(*small);
    EXPECT_EQ(linesOf(table()).size(), 1U);
}

TEST_F(InversionLoop, UpTo22IterationsNoConjugateGradientStepRuns) {
    for (const std::int32_t last : {12, 22, 23}) {
        const auto small = makeSmallProblem();
        runTo(*small, last);
        EXPECT_EQ(count(screen(), " nCGiter: "), last == 23 ? 1U : 0U) << last;
        // The row is marked all the same, and repeats the row before.
        ASSERT_FALSE(rowsWithPlus().empty());
        EXPECT_EQ(rowsWithPlus().front(), 12);
        EXPECT_EQ(small->timers.conjugateGradient > 0.0, last == 23);
        const std::vector<Row> all = rows();
        if (last != 23) {
            EXPECT_EQ(all[12].tail, "   0+");
            EXPECT_EQ(all[12].total, all[11].total);
        }
    }
}

TEST_F(InversionLoop, ConjugateGradientStepsComeEveryTenthPlace) {
    const auto small = makeSmallProblem();
    runTo(*small, 55);
    EXPECT_EQ(rowsWithPlus(), (std::vector<int>{12, 22, 32, 42, 52}));
    EXPECT_EQ(count(screen(), " nCGiter: "), 4U);
    EXPECT_EQ(count(log(), "time, steps+: "), 5U);
}

TEST_F(InversionLoop, ContinuedRunBeginsItsCycleAnew) {
    const auto small = makeSmallProblem();
    InversionOptions& asked = small->inversion;
    asked.startIteration = 5;
    asked.maxIterations = 45;
    run(*small);
    EXPECT_EQ(rowsWithPlus(), (std::vector<int>{17, 27, 37}));
    EXPECT_EQ(count(screen(), " nCGiter: "), 2U);
}

TEST_F(InversionLoop, SearchWithoutAcceptedTrialLeavesTheModel) {
    const auto small = makeSmallProblem();
    std::fill(small->bounds.fixedCell.begin(), small->bounds.fixedCell.end(), 1);
    const Vector start = small->arrays.model;
    runTo(*small, 30);
    EXPECT_EQ(small->arrays.model, start);
    EXPECT_EQ(rows()[12].tail, "   0+");
    EXPECT_EQ(count(screen(), " nCGiter: "), 1U);
    EXPECT_NE(log().find("     0\n", log().find("time, steps+: ")), std::string::npos);
}

// Nothing is fixed here: where no trial can lower the objective, free cells stay as they are, too.
TEST_F(InversionLoop, WithoutDataAndModelTermsFreeCellsStay) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    for (std::size_t station = 0; station < 12; ++station) {
        small->maskDatum(0, station);
    }
    const Vector start = small->arrays.model;
    runTo(*small, 30);
    EXPECT_EQ(small->arrays.model, start);
    EXPECT_EQ(count(screen(), " nCGiter: "), 1U);
    const std::vector<Row> all = rows();
    ASSERT_EQ(all.size(), 31U);
    for (const Row& row : all) {
        EXPECT_EQ(row.misfit, 0.0);
        EXPECT_GT(row.norm, 0.0);
        EXPECT_EQ(row.total, 0.0);
    }
    EXPECT_EQ(all[12].tail, "   0+");
}

TEST_F(InversionLoop, AllDataMaskedFitsTheReferenceAlone) {
    const auto small = makeSmallProblem();
    for (std::size_t station = 0; station < 12; ++station) {
        small->maskDatum(0, station);
    }
    runTo(*small, 30);
    const std::vector<Row> all = rows();
    ASSERT_EQ(all.size(), 31U);
    for (const Row& row : all) {
        EXPECT_EQ(row.misfit, 0.0);
        EXPECT_TRUE(std::isfinite(row.total));
    }
    EXPECT_LT(all.back().total, all.front().total);
}

TEST_F(InversionLoop, StyleFourRunsAsStyleZero) {
    Vector model;
    std::vector<Row> table;
    std::string prediction, gradient;
    for (const std::int32_t style : {0, 4}) {
        SmallOptions options;
        options.inversionStyle = InversionStyle{style};
        options.cellsZXY = {6, 3, 4};  // columns longer than the code: none of their cells is fixed
        options.paddedZXY = {8, 4, 4};
        const auto small = makeSmallProblem(options);
        runTo(*small, 26);
        if (style == 0) {
            model = small->arrays.model;
            table = rows();
            prediction = read("voxlith.pre");
            gradient = read("voxlith_grad.mod");
            continue;
        }
        EXPECT_EQ(small->arrays.model, model);
        EXPECT_EQ(read("voxlith.pre"), prediction);
        EXPECT_EQ(read("voxlith_grad.mod"), gradient);
        const std::vector<Row> all = rows();
        ASSERT_EQ(all.size(), table.size());
        for (std::size_t n = 0; n < all.size(); ++n) {
            EXPECT_EQ(all[n].misfit, table[n].misfit);
            EXPECT_EQ(all[n].norm, table[n].norm);
            EXPECT_EQ(all[n].total, table[n].total);
            EXPECT_EQ(all[n].tail, table[n].tail);
        }
    }
}

TEST_F(InversionLoop, DummyIsWrittenAndThenReplaced) {
    SmallOptions options;
    options.fold = false;
    const auto small = makeSmallProblem(options);
    small->arrays.model[3] = dummyValue;
    small->bounds.fixedCell[3] = 1;
    runTo(*small, 1);
    EXPECT_EQ(linesOf(read("voxlith.rho"))[3], " -0.100000E+33");
    EXPECT_EQ(small->arrays.model[3], 0.0);
    runTo(*small, 1);
    EXPECT_EQ(linesOf(read("voxlith.rho"))[3], "  0.000000E+00");
}

// The iteration model is written after the replacement, the running model before it.
TEST_F(InversionLoop, DummiesOfAllModelTypesAreReplacedBeforeTheIterationModel) {
    for (const std::int32_t last : {1, 2}) {
        SmallOptions options;
        options.fold = false;
        options.nModelTypes = options.nMtx = options.nDataTypes = 2;
        const auto small = makeSmallProblem(options);
        const std::size_t cell = small->cells() + 3;
        small->arrays.model[cell] = dummyValue;
        small->bounds.fixedCell[cell] = 1;
        InversionOptions& asked = small->inversion;
        asked.outputStep = 1;
        asked.maxIterations = last;
        run(*small);
        EXPECT_EQ(small->arrays.model[cell], 0.0);
        EXPECT_EQ(linesOf(read("voxlith_02.rho"))[3], last == 1 ? " -0.100000E+33" : "  0.000000E+00");
        EXPECT_EQ(exists("voxlith_iter_00102.den"), last == 2);
        if (last == 2) {
            EXPECT_EQ(linesOf(read("voxlith_iter_00102.den"))[3], "  0.000000E+00");
        }
    }
}

TEST_F(InversionLoop, IterationModelsComeAtEveryStepButTheLast) {
    const auto without = makeSmallProblem();
    runTo(*without, 4);
    for (int n = 0; n <= 4; ++n) {
        EXPECT_FALSE(exists("voxlith_iter_00" + std::to_string(n) + ".den"));
    }

    const auto small = makeSmallProblem();
    InversionOptions& asked = small->inversion;
    asked.outputStep = 2;
    asked.maxIterations = 6;
    run(*small);
    for (int n = 0; n <= 6; ++n) {
        EXPECT_EQ(exists("voxlith_iter_00" + std::to_string(n) + ".den"), n == 2 || n == 4) << n;
    }
}

TEST_F(InversionLoop, RunningFilesHoldTheLastModelAndPrediction) {
    const auto small = makeSmallProblem();
    small->obs.dataType[0] = DataType::tx;
    runTo(*small, 5);
    const std::vector<std::string> values = linesOf(read("voxlith.kap"));
    ASSERT_EQ(values.size(), small->cells());
    for (std::size_t n = 0; n < values.size(); ++n) {
        const double physical = small->arrays.model[n] / static_cast<double>(small->sensitivity.depthWeight[n]);
        EXPECT_NEAR(std::stod(values[n]), physical, 6e-6 * std::abs(physical));
    }
    EXPECT_TRUE(exists("voxlith.pre"));
    EXPECT_EQ(linesOf(read("voxlith_grad.mod")).size(), small->cells());
    EXPECT_FALSE(exists("voxlith.rho"));
}

TEST_F(InversionLoop, SeveralTypesWithAndWithoutLabels) {
    SmallOptions options;
    options.nModelTypes = options.nMtx = options.nDataTypes = 2;
    const auto small = makeSmallProblem(options);
    small->inversion.modelLabel[0] = "dens";
    InversionOptions& asked = small->inversion;
    asked.outputStep = 1;
    run(*small);
    for (const char* name :
         {"voxlith_dens.rho", "voxlith_02.rho", "voxlith_iter_001dens.den", "voxlith_iter_00202.den"}) {
        EXPECT_TRUE(exists(name)) << name;
    }
    EXPECT_FALSE(exists("voxlith.rho"));
    EXPECT_LT(rows().back().total, rows().front().total);
}

TEST_F(InversionLoop, EndsWithTheFinalGradientAndNoStepLimits) {
    const auto small = makeSmallProblem();
    runTo(*small, 4);
    Vector gradient(small->modelSize());
    calcObjective(small->problem(), {}, small->arrays.model);
    calcGradient(GradientMode::gradient, small->problem(), {}, small->arrays.model, gradient);
    for (std::size_t n = 0; n < gradient.size(); ++n) {
        EXPECT_EQ(small->arrays.delm[n], gradient[n]);
        EXPECT_EQ(small->arrays.maxStep[n], 0.0);
    }
}

TEST_F(InversionLoop, StepArrayMayBeLongerThanTheModel) {
    SmallOptions options;
    options.cellsZXY = {2, 1, 2};
    options.paddedZXY = {2, 1, 2};
    const auto small = makeSmallProblem(options);
    ASSERT_GT(small->arrays.delm.size(), small->modelSize());
    small->arrays.delm.back() = 77.0;
    runTo(*small, 26);
    EXPECT_EQ(small->arrays.delm.back(), 77.0);
    EXPECT_LT(rows().back().total, rows().front().total);
}

TEST_F(InversionLoop, SurfaceStylesMoveTheirFreeCellsAlone) {
    for (const std::int32_t style : {1, 2, 3}) {
        SmallOptions options;
        options.inversionStyle = InversionStyle{style};
        const auto small = makeSmallProblem(options);
        small->mesh.nzl = style;
        const Vector start = small->arrays.model;
        runTo(*small, 26);
        for (std::size_t n = 0; n < start.size(); ++n) {
            if (n % 4 >= static_cast<std::size_t>(style)) {
                EXPECT_EQ(small->arrays.model[n], start[n]);
            } else {
                EXPECT_NE(small->arrays.model[n], start[n]);
            }
        }
        EXPECT_LT(rows().back().total, rows().front().total);
    }
}

TEST_F(InversionLoop, BackgroundIsRemovedFromVersionTwoOn) {
    const auto small = makeSmallProblem();
    InversionOptions& asked = small->inversion;
    asked.iBackground = 1;
    small->sensitivity.header.version = 1;
    run(*small);
    EXPECT_FALSE(exists("obs_fit_pred.dat"));
    small->sensitivity.header.version = 2;
    run(*small);
    EXPECT_TRUE(exists("obs_fit_pred.dat"));
    EXPECT_TRUE(exists("obs_surafce_calc.dat"));
    EXPECT_LT(screen().find("   Begin iterations"), screen().find("  Background Value Removed: "));
    EXPECT_LT(screen().find("  Background Value Removed: "), screen().find("  Iterations "));
}

std::unique_ptr<SmallProblem> makeStrictlyPositive(SmallOptions options) {
    options.positivity = Positivity::strictlyPositive;
    auto small = makeSmallProblem(options);
    for (std::size_t n = 0; n < small->modelSize(); ++n) {
        small->bounds.boundType[n] = boundLower;
        small->bounds.lowerBound[n] = static_cast<double>(strictPositiveMinimum);
        small->arrays.model[n] = 0.01 + std::abs(small->arrays.model[n]);
    }
    return small;
}

TEST_F(InversionLoop, BarrierIsReportedAndNeverSpoilsTheModel) {
    for (unsigned seed = 1; seed < 6; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        SmallOptions options;
        options.seed = seed;
        const auto small = makeStrictlyPositive(options);
        runTo(*small, 50);
        EXPECT_NE(log().find("initial barrier: "), std::string::npos);
        EXPECT_EQ(count(log(), "     model barr: "), 50U);
        EXPECT_EQ(count(screen(), "NaN"), 3U);  // one for each conjugate-gradient step
        for (const double value : small->arrays.model) {
            EXPECT_GE(value, static_cast<double>(strictPositiveMinimum));
        }
    }
}

TEST_F(InversionLoop, BarrierChangesAfterAConjugateGradientStepAndThatIsReported) {
    const auto before = makeStrictlyPositive({});
    Barrier barrier = startBarrier(Positivity::strictlyPositive, before->mesh, before->arrays.model);
    runTo(*before, 11);
    const double misfit = calcObjective(before->problem(), barrier, before->arrays.model).misfit;
    const double unchanged = calcBarrier(Positivity::strictlyPositive, barrier, before->mesh, before->arrays.model);
    const double changed =
        updateBarrier(Positivity::strictlyPositive, barrier, before->mesh, before->arrays.model, misfit);
    ASSERT_GT(std::abs(changed - unchanged), 0.01);

    const auto small = makeStrictlyPositive({});
    runTo(*small, 23);
    const std::string words = "     model barr: ";
    std::vector<double> reported;
    for (const std::string& line : linesOf(log())) {
        if (line.starts_with(words)) {
            reported.push_back(std::stod(line.substr(words.size())));
        }
    }
    ASSERT_EQ(reported.size(), 23U);
    EXPECT_NEAR(reported[10], unchanged, 6e-5);
    EXPECT_NEAR(reported[11], changed, 6e-5);
}

TEST_F(InversionLoop, WithoutTheBarrierNothingIsSaidOfIt) {
    const auto small = makeSmallProblem();
    runTo(*small, 3);
    EXPECT_EQ(log().find("barr"), std::string::npos);
}

TEST_F(InversionLoop, GradientTimerBeginsWithTheWholeClock) {
    const auto small = makeSmallProblem();
    const double before = clockSeconds();
    runTo(*small, 30);
    const OverheadTimers& timers = small->timers;
    EXPECT_GE(timers.calcGradient, before);
    EXPECT_LT(timers.calcGradient, before + 600.0);
    for (const double timer :
         {timers.calcObjective, timers.stepSearch, timers.optimiser, timers.conjugateGradient, timers.output,
          timers.objectiveInside, timers.forwardData, timers.gradientInside, timers.smoothness}) {
        EXPECT_GT(timer, 0.0);
        EXPECT_LT(timer, 600.0);
    }
    EXPECT_EQ(timers.gtgProduct, 0.0);
}

TEST_F(InversionLoop, RefusalOfTheOptimiserStopsNothingAndRepeatsTheReports) {
    const auto small = makeSmallProblem();
    small->bounds.boundType[2] = 9;  // no code that the optimiser knows
    const Vector start = small->arrays.model;
    runTo(*small, 5);
    const std::vector<Row> all = rows();
    ASSERT_EQ(all.size(), 6U);
    for (const Row& row : all) {
        EXPECT_EQ(row.misfit, all[0].misfit);
        EXPECT_EQ(row.norm, all[0].norm);
        EXPECT_EQ(row.total, all[0].total);
    }
    EXPECT_EQ(small->arrays.model, start);
    EXPECT_FALSE(exists("voxlith_grad.mod"));
}

TEST_F(InversionLoop, OtherMethodsRunThroughTheSameLoop) {
    Vector usual;
    for (const std::int32_t method : {0, 1, 2, 3}) {
        SCOPED_TRACE(method);
        const auto small = makeSmallProblem();
        InversionOptions& asked = small->inversion;
        asked.InversionMethod = method;
        asked.maxIterations = 26;
        run(*small);
        ASSERT_EQ(rows().size(), 27U);
        EXPECT_LT(rows().back().total, rows().front().total);
        if (method == 0) {
            usual = small->arrays.model;
        }
        EXPECT_EQ(small->arrays.model == usual, method == 0 || method == 3);
    }
}

// Where the objective goes to 0, a gain between the tolerances of magnetic and of other data ends a run of the
// optimiser under the one and not under the other, and the models part. Data types after the first do not matter.
TEST_F(InversionLoop, OptimiserToleranceHangsOnTheFirstDataTypeAlone) {
    int parted = 0;
    for (const unsigned seed : {3U, 4U}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const auto lastModel = [&](std::int32_t first, std::int32_t second) {
            SmallOptions options;
            options.nMtx = options.nDataTypes = 2;
            options.nData = 3;
            options.multiplier = 0.0;
            options.seed = seed;
            const auto small = makeSmallProblem(options);
            small->explainDataBy(Vector(small->modelSize(), 0.3));
            small->obs.dataType[0] = DataType{first};
            small->obs.dataType[1] = DataType{second};
            runTo(*small, 40);
            return small->arrays.model;
        };
        const Vector gravity = lastModel(0, 0);
        const Vector magnetic = lastModel(1, 1);
        parted += gravity != magnetic;
        EXPECT_EQ(lastModel(0, 1), gravity);
        EXPECT_EQ(lastModel(19, 20), gravity);
        EXPECT_EQ(lastModel(1, 0), magnetic);
        EXPECT_EQ(lastModel(20, 19), magnetic);
    }
    EXPECT_GT(parted, 0);
}

TEST_F(InversionLoop, RepeatsItselfToTheBit) {
    Vector first;
    for (int n = 0; n < 2; ++n) {
        const auto small = makeSmallProblem();
        runTo(*small, 40);
        if (n == 0) {
            first = small->arrays.model;
        } else {
            EXPECT_EQ(small->arrays.model, first);
        }
    }
}

// From its first line to its last: neither preparation nor iterations take memory.
TEST_F(InversionLoop, ThatEndsEarlyLeavesTheFilesOfItsLastIteration) {
    constexpr std::int32_t last = 7;
    for (const bool failure : {false, true}) {
        const auto cutShort = makeSmallProblem(SmallOptions{});
        cutShort->inversion.maxIterations = 100;
        openLineFile(cutShort->messages.log, "voxlith.log", LineFileMode::create);
        openLineFile(cutShort->progressTable, "voxlith.aux", LineFileMode::create);
        testing::internal::CaptureStdout();
        {
            const InversionProblem problem = cutShort->problem();
            voxlith::InversionLoop loop{problem, cutShort->messages, cutShort->progressTable};
            beginInversion(loop);
            for (std::int32_t iteration = 0; iteration < last; ++iteration) {
                startIteration(loop);
                takeCycleStep(loop);
                finishIteration(loop);
                advanceCycle(loop.state);
            }
            if (failure) {  // the arrays are those of a step that was not finished
                keepUnwritten(problem, loop.unwritten);
                std::ranges::fill(problem.arrays.model, 9.0);
                std::ranges::fill(problem.arrays.delm, 9.0);
                std::ranges::fill(problem.obs.predData, 9.0);
            }
        }
        testing::internal::GetCapturedStdout();
        closeLineFile(cutShort->messages.log);
        closeLineFile(cutShort->progressTable);
        const std::string model = read("voxlith.rho");
        const std::string gradient = read("voxlith_grad.mod");
        const std::string prediction = read("voxlith.pre");
        const auto whole = makeSmallProblem(SmallOptions{});
        runTo(*whole, last);
        EXPECT_EQ(model, read("voxlith.rho"));
        EXPECT_EQ(gradient, read("voxlith_grad.mod"));
        EXPECT_EQ(prediction, read("voxlith.pre"));
    }
}

TEST_F(InversionLoop, AllocatesNothing) {
    for (const std::int32_t method : {0, 2}) {
        for (const int form : {0, 1, 2, 3}) {
            SmallOptions options;
            options.amplitude = form == 1;
            if (form == 2) {
                options.nModelTypes = options.nMtx = options.nDataTypes = 2;
            }
            const auto small = makeSmallProblem(options);
            if (form == 3) {
                small->setLines(2, 2.0F);
            }
            InversionOptions& asked = small->inversion;
            asked.maxIterations = 40;
            asked.outputStep = 5;
            asked.iBackground = 1;
            asked.InversionMethod = method;
            EXPECT_EQ(allocationsOf(*small), 0) << "method " << method << " form " << form;
            EXPECT_TRUE(exists(form == 2 ? "voxlith_iter_03502.den" : "voxlith_iter_035.den"));
        }
    }
}

}  // namespace
}  // namespace voxlith
