// The decisions that are taken on data, bounds and models before the inversion.
#include "driver/data_preparation.h"

#include <gtest/gtest.h>

#include "driver/mtx_files.h"
#include "support/program_run.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

void setTypeInputs(RunState& run, std::int32_t code) {
    run.sensitivity.header.dataType[0] = DataType{code};
    run.products.products = {{0, 0, 0}};
    run.products.terms[0] = {{0, 0, 0, 1.0}};
}

TEST(DataTypes, DefaultsFollowTheFirstDataType) {
    for (const std::int32_t code : {0, 1, 2, 7, 20, 23}) {
        RunState run;
        setTypeInputs(run, code);
        run.control.inversion.multiplier = 0.0;
        setDataTypes(run);
        const bool magnetic = code == 1 || code == 20;
        EXPECT_EQ(run.control.inversion.multiplier, magnetic ? 1.0 : 0.009999999776482582) << code;
        EXPECT_EQ(run.control.inversion.positivity, magnetic ? Positivity::positive : Positivity::unconstrained)
            << code;
    }
}

TEST(DataTypes, TradeoffOfTheCommandLineWins) {
    for (const std::int32_t code : {0, 1}) {
        RunState run;
        setTypeInputs(run, code);
        run.control.inversion.multiplier = 2.0;
        run.control.tradeoffOverride = 5.0;
        setDataTypes(run);
        EXPECT_EQ(run.control.inversion.multiplier, 5.0);
        EXPECT_EQ(run.control.inversion.positivity, Positivity{code});
    }
}

TEST(DataTypes, DefaultsFollowTheFileOfTheFirstTermAndLayoutsThatOfTheComponent) {
    RunState run;
    run.control.nMtx = 2;
    run.control.nDataTypes = 1;
    run.sensitivity.header.dataType[0] = DataType::gz;
    run.sensitivity.header.dataType[1] = DataType::totalMagnetic;
    run.products.products = {{1, 0, 0}, {0, 0, 0}};
    run.products.terms[0] = {{1, 0, 0, 1.0}, {0, 0, 1, 1.0}};
    setDataTypes(run);
    EXPECT_EQ(run.control.inversion.positivity, Positivity::positive) << "of file 2, which the first term uses";
    EXPECT_EQ(run.obs.dataType[0], DataType::gz) << "of file 1";
}

// Two data types over three stations; the last datum of the second is a dummy.
void setData(RunState& run, std::int32_t types) {
    run.control.nDataTypes = types;
    run.obs.nDataTypes = types;
    run.obs.nData = 3;
    const std::size_t n = 3 * static_cast<std::size_t>(types);
    run.obs.obsData.assign(n, 4.0);
    run.obs.obsData.back() = dummyValue;
    run.obs.obsStd.assign(n, 1.0F);
    run.obs.refData.assign(n, 9.0);
    run.obs.predData.assign(n, 0.0);
    run.obs.ObsX.assign(3, 0.0);
    run.obs.ObsY.assign(3, 0.0);
    run.obs.ObsZ.assign(3, 0.0);
}

TEST(DataOffset, BlankAndNullClearTheReference) {
    for (const char* text : {"", "   ", "null", "NULL ! x", "nullify", "! 5", "nothere.obs", "/nothere/5"}) {
        RunState run;
        setData(run, 1);
        run.control.dataOffsetText = text;
        applyDataOffset(run);
        EXPECT_EQ(run.obs.refData, std::vector<double>(3, 0.0)) << text;
        EXPECT_EQ(run.obs.predData, run.obs.obsData) << text;
    }
}

class InFolder : public ::testing::Test {
protected:
    InFolder() : before_(std::filesystem::current_path()) { std::filesystem::current_path(folder.path()); }
    ~InFolder() override { std::filesystem::current_path(before_); }
    testing_support::TemporaryFolder folder;

private:
    std::filesystem::path before_;
};

using DataOffsetNumber = InFolder;

TEST_F(DataOffsetNumber, OfOneDataTypeIsTakenAsItStandsAndWritesNoFile) {
    RunState run;
    setData(run, 1);
    run.obs.obsStd.assign(3, 2.0F);
    run.control.dataOffsetText = " 1.5 7 ! offset";
    applyDataOffset(run);
    EXPECT_EQ(run.obs.refData, std::vector<double>(3, 1.5));
    EXPECT_EQ(run.obs.predData, run.obs.obsData);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

using DataOffsetList = InFolder;

TEST_F(DataOffsetList, OfSeveralDataTypesGoesAsFarAsItCanBeRead) {
    const std::pair<const char*, std::pair<double, double>> cases[] = {
        {"1.5", {1.5, 1.5}}, {"1.5 2.5", {1.5, 2.5}}, {"1.5,x", {1.5, 1.5}}, {"1.5,,", {1.5, 1.5}}};
    for (const auto& [text, offsets] : cases) {
        RunState run;
        setData(run, 2);
        run.control.dataOffsetText = text;
        applyDataOffset(run);
        EXPECT_EQ(run.obs.refData[0], offsets.first) << text;
        EXPECT_EQ(run.obs.refData[3], offsets.second) << text;
        EXPECT_EQ(run.obs.predData[0], 4.0 - offsets.first) << text;
        EXPECT_EQ(run.obs.predData[5], dummyValue) << text;
        EXPECT_TRUE(std::filesystem::exists("voxlith_residual.obs"));
        std::filesystem::remove("voxlith_residual.obs");
    }
}

TEST(Folding, GoesOffWhenTheFirstTwoFilesDiffer) {
    const auto folds = [](std::int32_t types, float a, float b) {
        RunState run;
        run.control.nDataTypes = types;
        run.sensitivity.header.weightParamA[0] = 2.0F;
        run.sensitivity.header.weightParamA[1] = a;
        run.sensitivity.header.weightParamB[0] = 1.0F;
        run.sensitivity.header.weightParamB[1] = b;
        foldDepthWeights(run);
        return run.sensitivity.foldDepthWeight;
    };
    EXPECT_TRUE(folds(2, 2.0F, 1.0F));
    EXPECT_TRUE(folds(2, 2.005F, 0.995F));
    EXPECT_FALSE(folds(2, 2.02F, 1.0F));
    EXPECT_FALSE(folds(2, 2.0F, 0.98F));
    EXPECT_TRUE(folds(1, 7.0F, 7.0F)) << "one data type: nothing is compared";
    EXPECT_FALSE(folds(2, 0.0F, 0.0F)) << "a second file that is not there has parameters of 0";
}

TEST(Folding, LooksAtTheFirstTwoFilesOnly) {
    RunState run;
    run.control.nDataTypes = 3;
    run.sensitivity.header.weightParamA = {2.0F, 2.0F, 9.0F};
    run.sensitivity.header.weightParamB = {1.0F, 1.0F, -9.0F};
    foldDepthWeights(run);
    EXPECT_TRUE(run.sensitivity.foldDepthWeight);
    run.sensitivity.header.weightParamA = {2.0F, 9.0F, 2.0F};
    foldDepthWeights(run);
    EXPECT_FALSE(run.sensitivity.foldDepthWeight);
}

TEST(Folding, LeavesModelsAndBoundsAloneWhereItIsOff) {
    RunState run;
    run.mesh.nx = run.mesh.ny = 1;
    run.mesh.nz = 2;
    run.sensitivity.header.nCells = 2;
    run.sensitivity.depthWeight = {2.0F, 3.0F, 4.0F, 5.0F};
    run.control.nDataTypes = 2;
    run.sensitivity.header.weightParamA = {1.0F, 5.0F};
    run.arrays.model = {1.0, 1.5};
    run.arrays.refModel = {0.25, 0.5};
    run.bounds.lowerBound = {-1.0, -2.0};
    run.bounds.upperBound = {1.0, 2.0};
    run.bounds.fixedCell.assign(2, 0);
    foldDepthWeights(run);
    EXPECT_FALSE(run.sensitivity.foldDepthWeight);
    EXPECT_EQ(run.arrays.model, (std::vector<double>{1.0, 1.5}));
    EXPECT_EQ(run.arrays.refModel, (std::vector<double>{0.25, 0.5}));
    EXPECT_EQ(run.bounds.lowerBound, (std::vector<double>{-1.0, -2.0}));
    EXPECT_EQ(run.bounds.upperBound, (std::vector<double>{1.0, 2.0}));
}

TEST(Folding, MultipliesModelsAndBoundsButNoDummiesOfTheReference) {
    RunState run;
    run.mesh.nx = run.mesh.ny = 1;
    run.mesh.nz = 2;
    run.sensitivity.header.nCells = 2;
    run.sensitivity.depthWeight = {2.0F, 3.0F};
    run.control.inversion.nModelTypes = 2;
    run.arrays.model = {1.0, 1.0, 10.0, 10.0};
    run.arrays.refModel = {1.0, dummyValue, 5.0, 5.0};
    run.bounds.lowerBound = {-1.0, -9999.0, -1.0, -10000.0};
    run.bounds.upperBound = {1.0, 1.0, 1.0, 1.0};
    run.bounds.fixedCell.assign(4, 0);
    foldDepthWeights(run);
    EXPECT_EQ(run.arrays.model, (std::vector<double>{2, 3, 20, 30}));
    EXPECT_EQ(run.arrays.refModel, (std::vector<double>{2, dummyValue, 10, 15}));
    EXPECT_EQ(run.bounds.lowerBound, (std::vector<double>{-2, -9999, -2, -10000}));
    EXPECT_EQ(run.bounds.upperBound, (std::vector<double>{2, 3, 2, 3}));
}

TEST(Clipping, FixesLayersFromClipLayerDownInStyle0WithoutCounting) {
    for (const std::int32_t style : {0, 4}) {
        RunState run;
        run.mesh.nx = 2;
        run.mesh.ny = 1;
        run.mesh.nz = 3;
        run.control.clipLayer = 2;
        run.control.nDataTypes = 2;  // unfolded: acts all the same
        run.sensitivity.header.weightParamA = {1.0F, 5.0F};
        run.sensitivity.header.inversionStyle = InversionStyle{style};
        run.bounds.fixedCell.assign(6, 0);
        foldDepthWeights(run);
        const std::vector<std::int32_t> fixed =
            style == 0 ? std::vector<std::int32_t>{0, 1, 1, 0, 1, 1} : std::vector<std::int32_t>(6, 0);
        EXPECT_EQ(run.bounds.fixedCell, fixed);
        EXPECT_EQ(run.bounds.nFixedCells, 0);
    }
}

TEST(UncoveredLayers, AreFixedAndCountedInTheSurfaceStyles) {
    for (std::int32_t style = 0; style <= 4; ++style) {
        RunState run;
        run.mesh.nx = 2;
        run.mesh.ny = 1;
        run.mesh.nz = 3;
        run.mesh.nzl = 1;
        run.sensitivity.header.inversionStyle = InversionStyle{style};
        run.bounds.fixedCell.assign(12, 0);
        fixUncoveredLayers(run);
        EXPECT_EQ(run.bounds.nFixedCells, style >= 1 && style <= 3 ? 8 : 0) << style;
    }
}

}  // namespace

namespace testing_support {
namespace {

TEST(Statistics, ShowTheFirstValueOverTheCountAndStarsWithoutData) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "0 2").set(5, "g.mtx|g.mtx").set(12, "1"));
    std::string obs = "10\n";
    for (int i = 0; i < 10; ++i) {
        obs += "0 0 0 " + std::to_string(i + 20) + " 1.0 * *\n";
    }
    folder.write("obs.dat", obs);
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_TRUE(contains(result.screen, "                      10         20.00         29.00          2.00\n"));
    EXPECT_TRUE(contains(result.screen, "                0              *             *             *\n"));
}

TEST(ReferenceFile, ThatDoesNotExistIsIgnored) {
    const TemporaryFolder none;
    writeSurvey(none, ControlLines().set(11, "null").set(12, "1"));
    const ProgramResult expected = runProgram(none, {"voxlith.inp"});
    ASSERT_EQ(expected.exitStatus, 0) << expected.errors;
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(11, "nothere.obs").set(12, "1"));
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(withoutTimes(result.screen), withoutTimes(expected.screen));
    std::string log = folder.read("voxlith.log");
    const std::string echo = "match obs): nothere.obs";
    const std::size_t at = log.find(echo);
    ASSERT_NE(at, std::string::npos) << log;
    log.replace(at, echo.size(), "match obs): null");
    EXPECT_EQ(withoutTimes(log), withoutTimes(none.read("voxlith.log")));
    EXPECT_EQ(folder.read("voxlith.den"), none.read("voxlith.den"));
    EXPECT_FALSE(std::filesystem::exists(folder.file("voxlith_residual.obs")));
}

TEST(ReferenceFile, GivesResidualsAndIsTakenOffTheData) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(11, "ref.obs").set(12, "1"));
    folder.write("ref.obs", smallSurveyObs());
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_TRUE(contains(result.screen, "                      10          0.00          0.00          0.00\n"));
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith_residual.obs")));
}

}  // namespace
}  // namespace testing_support
}  // namespace voxlith
