#include "formats/mtx/binary_input.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>

#include "formats/mtx/mtx_reading.h"
#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

std::vector<unsigned char> countingBytes(std::size_t count) {
    std::vector<unsigned char> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 31 + (i >> 8));
    }
    return bytes;
}

class BinaryInputTest : public testing::Test {
protected:
    testing_support::TemporaryFolder folder;
    const std::string name = folder.file("numbers.bin");
    BinaryInput input;
};

TEST_F(BinaryInputTest, numbersComeInOrderOfTheirBytes) {
    writeFileBytes(name, {0x01, 0x02, 0x00, 0x80, 0x00, 0x00, 0x80, 0x3F, 0, 0, 0, 0, 0, 0, 0xF0, 0xBF});
    ASSERT_TRUE(openBinaryInput(input, name));
    EXPECT_EQ(input.size, 16);
    EXPECT_EQ(readInt32(input, "a"), -2147483135);
    EXPECT_EQ(readReal32(input, "b"), 1.0F);
    EXPECT_EQ(readReal64(input, "c"), -1.0);
    EXPECT_EQ(input.position, 16);
}

TEST_F(BinaryInputTest, aReadThatRunsOverTheEndNamesFileByteAndNumber) {
    writeFileBytes(name, countingBytes(10));
    ASSERT_TRUE(openBinaryInput(input, name));
    readReal64(input, "the first");
    EXPECT_EQ(runErrorOf([&] { readInt32(input, "the second"); }),
              name + ": byte 8: expected the second (4 bytes), found only 2 to the end of the file");
    EXPECT_EQ(input.position, 8);
    char two[2];
    readBytes(input, two, 2, "the rest");
    EXPECT_EQ(runErrorOf([&] { readBytes(input, two, 1, "more"); }),
              name + ": byte 10: expected more (1 byte), found only 0 to the end of the file");
}

TEST_F(BinaryInputTest, viewsReadsAndSeeksInAnyOrderGiveTheBytesOfTheFile) {
    const std::uint64_t seed = 41;
    std::mt19937_64 generator(seed);
    const std::vector<unsigned char> bytes = countingBytes(3 * largeReadAhead + 12);
    writeFileBytes(name, bytes);
    ASSERT_TRUE(openBinaryInput(input, name));
    int viewed = 0;
    for (int round = 0; round < 3000; ++round) {
        if (round % 7 == 0) {
            seekBinary(input, static_cast<std::int64_t>(4 * (generator() % (bytes.size() / 4))));
        }
        const auto start = static_cast<std::size_t>(input.position);
        const std::size_t count =
            std::min<std::size_t>(generator() % (round % 5 == 0 ? 400000 : 9000), bytes.size() - start);
        std::vector<unsigned char> found(count);
        const std::byte* const view = round % 3 == 0 ? nullptr : viewBytes(input, count, "a view");
        if (view != nullptr) {
            std::copy_n(reinterpret_cast<const unsigned char*>(view), count, found.begin());
            ++viewed;
        } else {
            ASSERT_EQ(input.position, static_cast<std::int64_t>(start));
            readBytes(input, found.data(), count, "a read");
        }
        ASSERT_EQ(input.position, static_cast<std::int64_t>(start + count));
        ASSERT_TRUE(std::equal(found.begin(), found.end(), bytes.begin() + static_cast<std::ptrdiff_t>(start)))
            << "round " << round << " seed " << seed;
    }
    EXPECT_GT(viewed, 100);
}

TEST_F(BinaryInputTest, aFileViewedInOrderIsFetchedOnce) {
    const std::vector<unsigned char> bytes = countingBytes(5 * largeReadAhead / 2);
    writeFileBytes(name, bytes);
    ASSERT_TRUE(openBinaryInput(input, name));
    constexpr std::size_t part = 40000;
    while (input.position + static_cast<std::int64_t>(part) <= input.size) {
        ASSERT_NE(viewBytes(input, part, "a view"), nullptr);
    }
    EXPECT_LE(input.bytesRead, input.size);
}

TEST_F(BinaryInputTest, aViewOverTheEndIsDamageAndALongOneIsNone) {
    writeFileBytes(name, countingBytes(10));
    ASSERT_TRUE(openBinaryInput(input, name));
    seekBinary(input, 4);
    EXPECT_EQ(runErrorOf([&] { viewBytes(input, 8, "the row"); }),
              name + ": byte 4: expected the row (8 bytes), found only 6 to the end of the file");
    EXPECT_EQ(viewBytes(input, largeReadAhead + 1, "a long row"), nullptr);
    EXPECT_EQ(input.position, 4);
}

TEST_F(BinaryInputTest, aStretchIsReadIntoSeveralPlacesWholeOrNotAtAll) {
    const std::vector<unsigned char> bytes = countingBytes(100);
    writeFileBytes(name, bytes);
    ASSERT_TRUE(openBinaryInput(input, name));
    readInt32(input, "the first");  // the read-ahead holds the file now
    std::vector<unsigned char> first(30);
    std::vector<unsigned char> second(20);
    const std::array<iovec, 3> parts{{{first.data(), 30}, {nullptr, 0}, {second.data(), 20}}};
    ASSERT_TRUE(readScattered(input, parts));
    EXPECT_TRUE(std::equal(first.begin(), first.end(), bytes.begin() + 4));
    EXPECT_TRUE(std::equal(second.begin(), second.end(), bytes.begin() + 34));
    EXPECT_EQ(input.position, 54);
    EXPECT_FALSE(readScattered(input, parts));
    EXPECT_EQ(input.position, 54);
    EXPECT_EQ(static_cast<unsigned char>(readInt32(input, "what follows") & 0xFF), bytes[54]);
}

TEST_F(BinaryInputTest, positionsOutsideTheFileAreDamage) {
    writeFileBytes(name, countingBytes(10));
    ASSERT_TRUE(openBinaryInput(input, name));
    seekBinary(input, 4'000'000'000'000);
    EXPECT_NE(runErrorOf([&] { readInt32(input, "a number"); }).find("byte 4000000000000"), std::string::npos);
    seekBinary(input, -4);
    EXPECT_NE(runErrorOf([&] { readInt32(input, "a number"); }).find("byte -4"), std::string::npos);
}

TEST_F(BinaryInputTest, whatIsNoRegularFileIsNotOpened) {
    EXPECT_FALSE(openBinaryInput(input, folder.file("missing")));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openBinaryInput(input, folder.path().string()));
    EXPECT_EQ(errno, EISDIR);
    ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
    EXPECT_FALSE(openBinaryInput(input, name));  // and does not wait for a writer
    EXPECT_EQ(errno, ESPIPE);
    EXPECT_EQ(input.handle, -1);
}

TEST_F(BinaryInputTest, anySequenceOfReadsAndSeeksHandsOutTheBytesOfTheFile) {
    const std::vector<unsigned char> bytes = countingBytes(3 * largeReadAhead + 777);
    writeFileBytes(name, bytes);
    ASSERT_TRUE(openBinaryInput(input, name));
    constexpr unsigned seed = 20131;
    std::mt19937 random(seed);
    for (int trial = 0; trial < 2000; ++trial) {
        const std::size_t from = random() % bytes.size();
        const std::size_t longest =
            trial % 10 == 0 ? bytes.size() - from : std::min<std::size_t>(64, bytes.size() - from);
        const std::size_t count = random() % (longest + 1);
        if (trial % 3 == 0) {
            setReadAhead(input, 1 + random() % 100);
        } else if (trial % 3 == 1) {
            setReadAhead(input, largeReadAhead);
        }
        std::vector<unsigned char> got(count, 0);
        seekBinary(input, static_cast<std::int64_t>(from));
        readBytes(input, got.data(), count, "some bytes");
        ASSERT_TRUE(count == 0 || std::memcmp(got.data(), bytes.data() + from, count) == 0)
            << "seed " << seed << " trial " << trial;
        ASSERT_EQ(input.position, static_cast<std::int64_t>(from + count));
    }
}

TEST_F(BinaryInputTest, readingInOrderFetchesEveryByteOnce) {
    const std::vector<unsigned char> bytes = countingBytes(5 * largeReadAhead + 3);
    writeFileBytes(name, bytes);
    ASSERT_TRUE(openBinaryInput(input, name));
    std::vector<unsigned char> got(bytes.size());
    std::size_t done = 0;
    for (std::size_t step = 1; done < got.size(); step = step * 3 % 700001 + 1) {
        const std::size_t count = std::min(step, got.size() - done);
        readBytes(input, got.data() + done, count, "bytes");
        done += count;
    }
    EXPECT_EQ(got, bytes);
    EXPECT_EQ(input.bytesRead, static_cast<std::int64_t>(bytes.size()));
}

TEST_F(BinaryInputTest, smallReadAheadFetchesNoMore) {
    writeFileBytes(name, countingBytes(100000));
    ASSERT_TRUE(openBinaryInput(input, name));
    setReadAhead(input, 4);
    for (std::int64_t position = 0; position < 100000; position += 1000) {
        seekBinary(input, position);
        readInt32(input, "a count");
    }
    EXPECT_EQ(input.bytesRead, 4 * 100);
}

TEST_F(BinaryInputTest, sizesThatTheFileCannotHoldAreFoundBeforehand) {
    writeFileBytes(name, countingBytes(100));
    ASSERT_TRUE(openBinaryInput(input, name));
    seekBinary(input, 40);
    EXPECT_NO_THROW(requireBytes(input, 60, "an array"));
    EXPECT_EQ(runErrorOf([&] { requireBytes(input, 61, "an array"); }),
              name + ": byte 40: expected an array (61 bytes), found only 60 to the end of the file");
    EXPECT_EQ(input.bytesRead, 0);
}

TEST_F(BinaryInputTest, closingGivesBackAndAFileCanBeOpenedAgain) {
    writeFileBytes(name, countingBytes(100));
    ASSERT_TRUE(openBinaryInput(input, name));
    const std::int32_t first = readInt32(input, "a number");
    closeBinaryInput(input);
    EXPECT_EQ(input.handle, -1);
    EXPECT_EQ(input.block.capacity(), 0U);
    closeBinaryInput(input);
    ASSERT_TRUE(openBinaryInput(input, name));
    EXPECT_EQ(readInt32(input, "a number"), first);
}

TEST_F(BinaryInputTest, aFileThatShrinksWhileItIsReadIsDamage) {
    writeFileBytes(name, countingBytes(2 * largeReadAhead));
    ASSERT_TRUE(openBinaryInput(input, name));
    readInt32(input, "a number");
    std::filesystem::resize_file(name, largeReadAhead + 7);
    seekBinary(input, static_cast<std::int64_t>(largeReadAhead) + 5);
    EXPECT_EQ(runErrorOf([&] { readInt32(input, "a late number"); }),
              name + ": byte 262149: expected a late number (4 bytes), found only 2 to the end of the file");
}

}  // namespace
}  // namespace voxlith
