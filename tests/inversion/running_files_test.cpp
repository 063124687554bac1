#include "inversion/running_files.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

using Labels = std::array<std::string, maxFiles>;

InversionOptions optionsOf(std::int32_t types, const Labels& labels) {
    InversionOptions options;
    options.nModelTypes = types;
    options.modelLabel = labels;
    return options;
}

std::string running(std::int32_t code, std::int32_t types, const Labels& labels, std::size_t type = 0) {
    return std::string(runningModelName(DataType{code}, optionsOf(types, labels), type).view());
}

std::string finalName(std::int32_t code, std::int32_t types, const Labels& labels, std::size_t type = 0) {
    return std::string(finalModelName(DataType{code}, optionsOf(types, labels), type).view());
}

std::string ofIteration(std::int32_t iteration, std::int32_t last, std::int32_t code = 0, std::int32_t types = 1,
                        const Labels& labels = {}, std::size_t type = 0) {
    InversionOptions options = optionsOf(types, labels);
    options.maxIterations = last;
    return std::string(iterationModelName(DataType{code}, options, iteration, type).view());
}

TEST(RunningFiles, SuffixFollowsTheFirstDataType) {
    for (const std::int32_t code : {1, 20, 21, 22, 99}) {
        EXPECT_EQ(running(code, 1, {}), "voxlith.kap") << code;
    }
    for (const std::int32_t code : {0, 2, 6, 10, 15, 19}) {
        EXPECT_EQ(running(code, 1, {}), "voxlith.rho") << code;
    }
}

TEST(RunningFiles, SeveralTypesTakeLabelsOrNumbers) {
    const Labels labels{"dens    ", "", " x", "abcdefgh"};
    EXPECT_EQ(running(0, 4, labels, 0), "voxlith_dens.rho");
    EXPECT_EQ(running(0, 4, labels, 1), "voxlith_02.rho");
    EXPECT_EQ(running(1, 4, labels, 2), "voxlith_03.kap");
    EXPECT_EQ(running(1, 4, labels, 3), "voxlith_abcdefgh.kap");
    // A single type has no use for its label.
    EXPECT_EQ(running(1, 1, labels, 0), "voxlith.kap");
}

TEST(RunningFiles, FinalNamesHaveTheSuffixesOfTheIterationModels) {
    const Labels labels{"dens", ""};
    EXPECT_EQ(finalName(0, 1, labels), "voxlith.den");
    EXPECT_EQ(finalName(20, 1, labels), "voxlith.sus");
    EXPECT_EQ(finalName(0, 2, labels, 0), "voxlith_dens.den");
    EXPECT_EQ(finalName(1, 2, labels, 1), "voxlith_02.sus");
}

TEST(RunningFiles, IterationNamesHaveAFixedCountOfDigits) {
    EXPECT_EQ(ofIteration(7, 999, 1), "voxlith_iter_007.sus");
    EXPECT_EQ(ofIteration(7, 1000), "voxlith_iter_0007.den");
    EXPECT_EQ(ofIteration(1234, 9999), "voxlith_iter_1234.den");
    EXPECT_EQ(ofIteration(7, 10000), "voxlith_iter_00007.den");
    EXPECT_EQ(ofIteration(99999, 99999), "voxlith_iter_99999.den");
    EXPECT_EQ(ofIteration(7, 2000000000), "voxlith_iter_00007.den");
    EXPECT_EQ(ofIteration(123456, 2000000000), "voxlith_iter_123456.den");
}

TEST(RunningFiles, IterationNamesOfSeveralTypes) {
    const Labels labels{"dens", ""};
    EXPECT_EQ(ofIteration(20, 300, 0, 2, labels, 0), "voxlith_iter_020dens.den");
    EXPECT_EQ(ofIteration(20, 300, 1, 2, labels, 1), "voxlith_iter_02002.sus");
}

}  // namespace
}  // namespace voxlith
