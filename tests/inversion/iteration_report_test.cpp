#include "inversion/iteration_report.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

ObjectiveTerms terms() {
    ObjectiveTerms made;
    made.misfit = 6.25;
    made.refNorm = 0.5;
    made.barrierNorm = 0.125;
    made.smoothNorm = 1.75;
    made.smoothY = 1.0;
    made.smoothX = 0.5;
    made.smoothZ = 0.25;
    return made;
}

IterationRow row(bool byConjugateGradients) {
    return {12, terms(), 9.0, 3.25, byConjugateGradients, 7};
}

// Log, progress table and screen of what `write` does.
struct Written {
    std::string log, table, screen;
};

template <class Write>
Written written(Write write) {
    const TemporaryFolder folder;
    Messages messages;
    LineFile table;
    EXPECT_TRUE(openLineFile(messages.log, folder.file("log"), LineFileMode::create));
    EXPECT_TRUE(openLineFile(table, folder.file("table"), LineFileMode::create));
    testing::internal::CaptureStdout();
    write(messages, table);
    const std::string screen = testing::internal::GetCapturedStdout();
    closeLineFile(messages.log);
    closeLineFile(table);
    return {folder.read("log"), folder.read("table"), screen};
}

TEST(IterationReport, BeginsOnScreenAndInTheLog) {
    const Written got = written([](Messages& messages, LineFile&) { reportBeginning(messages); });
    EXPECT_EQ(got.screen, "\n   Begin iterations\n\n");
    EXPECT_EQ(got.log, got.screen);
}

TEST(IterationReport, StartingTermsGoToTheLogWithTheNormAsItIs) {
    const auto write = [](const Barrier& barrier) {
        return written([&](Messages& messages, LineFile&) { logStartingTerms(messages, terms(), barrier, 2.0); });
    };
    EXPECT_EQ(write({}).log,
              "tradeoff par   :         2.0000\n"
              "initial misfit :         2.5000\n"
              "initial ref    :         0.5000\n"
              "initial smth   :         1.7500        1.0000        0.5000        0.2500\n"
              "initial norm   :         2.2500\n"
              "initial total  :         3.2977\n");
    EXPECT_EQ(write({}).screen, "");
    EXPECT_NE(write({0.2, 1.0}).log.find("initial ref    :         0.5000\ninitial barrier:         0.1250\n"),
              std::string::npos);
}

TEST(IterationReport, FirstRowsDiffer) {
    const Written got = written([](Messages&, LineFile& table) {
        IterationRow first = row(false);
        first.iterTime = 0.0;
        startProgressTable(table, first);
        startScreenTable(first);
    });
    EXPECT_EQ(got.table,
              "   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time\n"
              "          12        2.5000        2.2500        3.0000\n");
    EXPECT_EQ(got.screen,
              "  Iterations    RMS Misfit    Model Norm    Total Norm      Time\n"
              "          12        2.5000        1.5000        3.0000       0.0\n");
}

TEST(IterationReport, OptimiserIteration) {
    const Written got = written([](Messages& messages, LineFile& table) {
        logIterationHeading(messages, 12);
        reportIteration(messages, table, row(false), {});
    });
    EXPECT_EQ(got.log,
              "\nIteration:   12\n"
              "achieved misfit:         2.5000\n"
              "     model ref :         0.5000\n"
              "     model smth:         1.7500        1.0000        0.5000        0.2500\n"
              "     model norm:         1.5000\n"
              "total objective:         3.0000\n");
    EXPECT_EQ(got.screen, "          12        2.5000        1.5000        3.0000       3.2\n");
    EXPECT_EQ(got.table, got.screen);
}

TEST(IterationReport, ConjugateGradientIteration) {
    const Written got = written([](Messages& messages, LineFile& table) {
        reportIteration(messages, table, row(true), {0.2, 1.0});
    });
    EXPECT_EQ(got.screen, "          12        2.5000        1.5000        3.0000       3.2   7+\n");
    EXPECT_EQ(got.table, got.screen);
    EXPECT_NE(got.log.find("     model barr:         0.1250\n"), std::string::npos);
    EXPECT_NE(got.log.find("total objective:         3.0000\ntime, steps+:        3.2     7\n"), std::string::npos);
}

TEST(IterationReport, OverheadInMinutesAfterTextsOfManyWidths) {
    OverheadTimers timers;
    double* const all[] = {&timers.calcObjective,   &timers.calcGradient,      &timers.stepSearch,
                           &timers.optimiser,       &timers.conjugateGradient, &timers.output,
                           &timers.objectiveInside, &timers.forwardData,       &timers.gradientInside,
                           &timers.smoothness,      &timers.products,          &timers.gtgProduct,
                           &timers.matrixPass,      &timers.transposePass};
    double minutes = 1.0;
    for (double* timer : all) {
        *timer = 60.0 * minutes++;
    }
    timers.calcGradient = 60.0 * 29920577.4;
    const Written got = written([&](Messages& messages, LineFile&) { reportOverhead(messages, timers); });
    EXPECT_EQ(got.screen,
              " OH calc_obj:         1.0\n"
              " OH calc_grad: 29920577.4\n"
              " OH update:           3.0\n"
              " OH set_ulb:        4.0\n"
              " OH CG:               5.0\n"
              " OH output:           6.0\n"
              " OH obj:           7.0\n"
              " OH misfit:           8.0\n"
              " OH grad:           9.0\n"
              " OH smth:          10.0\n"
              " OH mod prod:          11.0\n"
              " OH gtg prod:          12.0\n"
              " OH matmul:          13.0\n"
              " OH transp:          14.0\n");
    EXPECT_EQ(got.log, got.screen);
}

}  // namespace
}  // namespace voxlith
