// The groups of arrays, their tally, and what happens when memory is refused.
#include "driver/memory_plan.h"

#include <gtest/gtest.h>

#include "support/program_run.h"

namespace voxlith {
namespace {

void setSizes(RunState& run, std::int32_t nData, std::int32_t nx, std::int32_t ny, std::int32_t nz) {
    run.sensitivity.header.nData = nData;
    run.mesh.nx = nx;
    run.mesh.ny = ny;
    run.mesh.nz = nz;
    run.mesh.nzl = nz;
    run.mesh.npx = run.mesh.npy = run.mesh.npz = 8;
    run.sensitivity.header.nCells = nx * ny * nz;
    run.sensitivity.header.nPadTotal = 512;
    run.sensitivity.nMtx = run.control.nMtx;
}

double modelTally(const RunState& run) {
    const double m = static_cast<double>(run.mesh.cellCount()) * run.control.inversion.nModelTypes;
    const double cells = static_cast<double>(run.mesh.cellCount());
    const double nData = run.obs.nData;
    const double nMtx = run.control.nMtx;
    const double steps = m > nData * nMtx ? m : nData * nMtx;
    const double cg = std::max(m, nData * run.control.nDataTypes);
    return 24 * m + 8 * steps + 16 * cells + 16 * cells + 24 * m + (8.0 * run.mesh.nzl + 8) * nData * nMtx +
           4 * (nData + 1) * nMtx + 8 * m + 8 * 512 + 8 * m + 40 * cg + 8 * (24 * m + 1320) + 12 * m;
}

TEST(MemoryPlan, TalliesEachGroupByItsFormula) {
    RunState run;
    run.control.nMtx = 2;
    run.control.nDataTypes = 2;
    run.control.inversion.nModelTypes = 2;
    setSizes(run, 7, 5, 4, 3);
    allocateObsArrays(run);
    EXPECT_EQ(run.memoryTally, 28.0 * 7 + 16.0 * 14 + 12.0 * 14 + 4.0 * 14);
    allocateMeshArrays(run);
    EXPECT_EQ(run.memoryTally, 24.0 * (5 + 4 + 3 + 2) + 4.0 * 2 * 60) << "the tally starts anew";
    allocateModelArrays(run);
    EXPECT_EQ(run.memoryTally, modelTally(run)) << "and once more";
    EXPECT_EQ(run.sensitivity.gtgdiag.size(), 120U) << "two files, of which the tally counts one";
}

TEST(MemoryPlan, CountsAnglesForTotalFieldDataAlone) {
    RunState run;
    setSizes(run, 7, 5, 4, 3);
    run.sensitivity.header.dataType[0] = DataType::totalMagnetic;
    allocateObsArrays(run);
    EXPECT_EQ(run.memoryTally, (28.0 + 16 + 12 + 8 + 4) * 7);
    EXPECT_EQ(run.obs.obsIncl.size(), 7U);
}

TEST(MemoryPlan, GivesStepsTheSizeOfTheDataWhenTheModelIsNoLarger) {
    for (const std::int32_t nData : {59, 60, 61}) {
        RunState run;
        setSizes(run, nData, 5, 4, 3);
        allocateObsArrays(run);
        allocateMeshArrays(run);
        allocateModelArrays(run);
        EXPECT_EQ(run.arrays.delm.size(), static_cast<std::size_t>(std::max(60, nData)));
        EXPECT_EQ(run.memoryTally, modelTally(run));
    }
}

TEST(MemoryPlan, WrapsTheTwoGroupsOf32Bits) {
    RunState run;
    run.control.nMtx = 1;
    setSizes(run, 3000000, 2, 2, 100);
    run.sensitivity.header.nPadTotal = 8;
    allocateObsArrays(run);
    allocateMeshArrays(run);
    allocateModelArrays(run);
    const double layers = (8.0 * 100 + 8) * 3000000;
    const double wrapped =
        static_cast<double>(static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(layers))));
    RunState one;
    one.mesh = run.mesh;
    const double m = 400;
    const double rest = 24 * m + 8 * 3000000.0 + 32 * m + 24 * m + 4 * 3000001.0 + 8 * m + 8 * 8 + 8 * m +
                        40 * 3000000.0 + 8 * (24 * m + 1320) + 12 * m;
    EXPECT_EQ(run.memoryTally, rest + wrapped);
}

TEST(MemoryPlan, CountsTheStoreInSinglePrecision) {
    RunState run;
    run.sensitivity.header.coefficientCount = {20000001, 5, 0, 0, 0, 0};
    run.sensitivity.store.rowOffset = {1, 20000002, 20000002, 20000007};
    allocateCoefStore(run);
    EXPECT_EQ(run.sensitivity.idisk, 0);
    EXPECT_EQ(run.memoryTally, static_cast<double>(8.0F * static_cast<float>(20000006)));
}

}  // namespace

namespace testing_support {
namespace {

TEST(MemoryLine, ShowsZeroForASmallMesh) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(12, "1"));
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_TRUE(contains(result.screen, "Memory allocated:        0MB"));
    EXPECT_TRUE(contains(folder.read("voxlith.log"), "MTX file accessed from memory"));
}

// The arrays of 2400 cells take about 0.85 MB.
TEST(MemoryLine, CutsOffTheFractionOfAMegabyte) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(12, "1"));
    writeMtx(folder.file("g.mtx"), smallMtxContents(10, {20, 12, 10}, {32, 16, 16}), MtxLayout::tagged);
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_TRUE(contains(result.screen, "Memory allocated:        0MB")) << result.screen;
    EXPECT_TRUE(contains(folder.read("voxlith.log"), "Memory allocated:        0MB"));
}

#if !defined(__SANITIZE_ADDRESS__)

// Rows of which each holds every padded position many times over: more than the limited address space takes.
MtxContents longRows() {
    MtxContents contents = smallSurveyMtx();
    for (MtxRow& row : contents.rows) {
        row.index.clear();
        row.value.clear();
        for (int i = 0; i < 1000000; ++i) {
            row.index.push_back(i % 64 + 1);
            row.value.push_back(1.0e-6F * static_cast<float>(i % 97));
        }
    }
    return contents;
}

constexpr unsigned long tightMemory = 60UL << 20;

TEST(ShortMemory, SwitchesToDiskWithOneFileAndGivesTheSameResult) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(12, "2"));
    writeMtx(folder.file("g.mtx"), longRows(), MtxLayout::tagged);
    const ProgramResult disk = runProgram(folder, {"voxlith.inp"}, tightMemory);
    EXPECT_EQ(disk.exitStatus, 0) << disk.errors;
    EXPECT_TRUE(contains(disk.screen, " Not enough memory available so idisk was switched to 1"));
    EXPECT_TRUE(contains(folder.read("voxlith.log"), "MTX file accessed from disk"));
    const std::string fromDisk = folder.read("voxlith.aux");
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
    EXPECT_EQ(withoutTimes(folder.read("voxlith.aux")), withoutTimes(fromDisk));
}

TEST(ShortMemory, EndsAJointRunOfTwoFilesAndSwitchesWithThree) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "0 2").set(5, "g.mtx|g.mtx"));
    folder.write("obs.dat", smallSurveyObs(2));
    writeMtx(folder.file("g.mtx"), longRows(), MtxLayout::tagged);
    const ProgramResult two = runProgram(folder, {"voxlith.inp"}, tightMemory);
    EXPECT_EQ(two.exitStatus, 0);
    EXPECT_EQ(linesOf(two.screen).back(), " Not enough memory available to run the joint inversion");
    EXPECT_EQ(linesOf(folder.read("voxlith.log")).back(), " Not enough memory available to run the joint inversion");

    folder.write("voxlith.inp", ControlLines().set(1, "0 3").set(5, "g.mtx|g.mtx|g.mtx").set(12, "1").text());
    folder.write("obs.dat", smallSurveyObs(3));
    const ProgramResult three = runProgram(folder, {"voxlith.inp"}, tightMemory);
    EXPECT_EQ(three.exitStatus, 0) << three.errors;
    EXPECT_TRUE(contains(three.screen, "idisk was switched to 1"));
}

TEST(ShortMemory, EndsWithTheMessageOfTheGroupThatIsRefused) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    MtxContents contents = smallMtxContents(10, {100, 100, 30}, {128, 128, 32});
    writeMtx(folder.file("g.mtx"), contents, MtxLayout::tagged);
    bool sawMessage = false;
    for (unsigned long megabytes = 8; megabytes < 160; megabytes += 4) {
        const ProgramResult result = runProgram(folder, {"voxlith.inp"}, megabytes << 20);
        ASSERT_EQ(result.signal, 0) << megabytes << " MB: " << result.errors;
        const std::vector<std::string> lines = linesOf(result.screen);
        if (lines.empty() || !lines.back().starts_with("Error: Not enough memory for the ")) {
            continue;
        }
        sawMessage = true;
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(linesOf(folder.read("voxlith.log")).back(), lines.back());
        EXPECT_TRUE(contains(lines.back(), "bad_alloc")) << lines.back();
    }
    EXPECT_TRUE(sawMessage);
}

#endif

}  // namespace
}  // namespace testing_support
}  // namespace voxlith
