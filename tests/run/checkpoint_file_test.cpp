#include "run/checkpoint_file.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

// A state of two arrays and a number.
struct State {
    std::int32_t number = 0;
    std::vector<double> reals;
    std::vector<std::int32_t> work;

    std::vector<StateBlock> blocks(bool workMatters = true) {
        return {blockOf("number", number), blockOfArray("reals", std::span(reals)),
                blockOfArray("work", std::span(work), workMatters)};
    }
};

std::string refusalOf(const std::string& name, std::span<const StateBlock> blocks) {
    try {
        verifyCheckpoint(name);
        readCheckpoint(name, blocks);
    } catch (const RunError& refusal) {
        return refusal.what();
    }
    return "";
}

class CheckpointFile : public testing::Test {
protected:
    TemporaryFolder folder;
    std::string name = folder.file("state");
    State written{7, {1.5, -2.5, 1e300}, {1, 2, 3, 4}};
    State restored{0, {0, 0, 0}, {9, 9, 9, 9}};
};

TEST_F(CheckpointFile, restoresWhatWasWritten) {
    writeCheckpoint(name, written.blocks());
    ASSERT_EQ(refusalOf(name, restored.blocks()), "");
    EXPECT_EQ(restored.number, 7);
    EXPECT_EQ(restored.reals, written.reals);
    EXPECT_EQ(restored.work, written.work);
}

TEST_F(CheckpointFile, leavesAloneWhatWasNotStored) {
    writeCheckpoint(name, written.blocks(false));
    ASSERT_EQ(refusalOf(name, restored.blocks(false)), "");
    EXPECT_EQ(restored.reals, written.reals);
    EXPECT_EQ(restored.work, (std::vector<std::int32_t>{9, 9, 9, 9}));
}

TEST_F(CheckpointFile, readsSomeOfTheBlocks) {
    writeCheckpoint(name, written.blocks());
    ASSERT_EQ(refusalOf(name, std::vector<StateBlock>{blockOf("number", restored.number)}), "");
    EXPECT_EQ(restored.number, 7);
}

TEST_F(CheckpointFile, readsMoreThanOneBlockOfTheReader) {
    written.reals.assign(400000, 0.25);
    written.reals.back() = -1;
    restored.reals.assign(400000, 0);
    writeCheckpoint(name, written.blocks());
    ASSERT_EQ(refusalOf(name, restored.blocks()), "");
    EXPECT_EQ(restored.reals, written.reals);
}

TEST_F(CheckpointFile, refusesEveryTruncationAndEveryDamagedByte) {
    writeCheckpoint(name, written.blocks());
    const std::string whole = folder.read("state");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        folder.write("cut", whole.substr(0, length));
        EXPECT_NE(refusalOf(folder.file("cut"), restored.blocks()), "") << length;
        std::string damaged = whole;
        damaged[length] = static_cast<char>(damaged[length] ^ 0x10);
        folder.write("damaged", damaged);
        EXPECT_NE(refusalOf(folder.file("damaged"), restored.blocks()), "") << length;
    }
}

TEST_F(CheckpointFile, refusesBlocksOfOtherSizesAndMissingOnes) {
    writeCheckpoint(name, written.blocks());
    restored.reals.resize(4);
    EXPECT_EQ(refusalOf(name, restored.blocks()),
              name + ": block \"reals\": expected 32 bytes, found 24; it belongs to another inversion");
    std::int32_t other = 0;
    EXPECT_EQ(refusalOf(name, std::vector<StateBlock>{blockOf("other", other)}),
              name + ": block \"other\" is missing; it belongs to an inversion with other options");
    EXPECT_THROW(readCheckpoint(name, std::vector<StateBlock>{blockOf("number", other)}, OtherBlocks::refused),
                 RunError);
    EXPECT_EQ(refusalOf(folder.file("nowhere"), {}), folder.file("nowhere") + ": cannot be opened");
}

}  // namespace
}  // namespace voxlith
