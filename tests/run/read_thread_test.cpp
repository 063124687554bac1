#include "run/read_thread.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "base/messages.h"
#include "formats/mtx/binary_input.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

std::string randomBytes(std::size_t count, std::mt19937& random) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

// Views, copies and jumps through a file, as the rows of a sensitivity file are read.
void readAround(const std::string& name, const std::string& content, std::mt19937& random) {
    BinaryInput input;
    ASSERT_TRUE(openBinaryInput(input, name));
    for (int turn = 0; turn < 2000; ++turn) {
        const auto left = content.size() - static_cast<std::size_t>(input.position);
        const std::size_t bytes = std::min<std::size_t>(left, 1 + random() % (turn % 50 == 0 ? 200000 : 6000));
        if (left == 0 || turn % 400 == 399) {
            seekBinary(input, static_cast<std::int64_t>(random() % content.size() / 4 * 4));
            continue;
        }
        const std::string_view wanted =
            std::string_view(content).substr(static_cast<std::size_t>(input.position), bytes);
        if (turn % 3 == 0) {
            std::string copy(bytes, '\0');
            readBytes(input, copy.data(), bytes, "a copy");
            ASSERT_EQ(copy, wanted) << "turn " << turn;
        } else if (const std::byte* const view = viewBytes(input, bytes, "a view")) {
            ASSERT_EQ(std::string_view(reinterpret_cast<const char*>(view), bytes), wanted) << "turn " << turn;
        }
    }
}

TEST(ReadThread, filesReadAheadAreTheSame) {
    const TemporaryFolder folder;
    std::mt19937 random(31);
    for (const std::size_t size : {std::size_t{1000}, largeReadAhead, 3 * largeReadAhead + 4, std::size_t{5000001}}) {
        const std::string content = randomBytes(size, random);
        const std::string name = folder.write("bytes", content);
        const ReadThread reader(true);
        readAround(name, content, random);
    }
}

// Rows of two files in turn, as in a joint inversion; each byte comes from the disk once.
TEST(ReadThread, twoFilesInTurn) {
    const TemporaryFolder folder;
    std::mt19937 random(32);
    const ReadThread reader(true);
    const std::string content = randomBytes(2000000, random);
    BinaryInput first, second;
    ASSERT_TRUE(openBinaryInput(first, folder.write("a", content)));
    ASSERT_TRUE(openBinaryInput(second, folder.write("b", content)));
    for (std::size_t start = 0; start < content.size(); start += 8000) {
        for (BinaryInput* input : {&first, &second}) {
            const std::byte* const view = viewBytes(*input, 8000, "a row");
            ASSERT_NE(view, nullptr);
            ASSERT_EQ(std::string_view(reinterpret_cast<const char*>(view), 8000), content.substr(start, 8000));
        }
    }
    EXPECT_EQ(first.bytesRead, 2000000);
    EXPECT_EQ(second.bytesRead, 2000000);
}

TEST(ReadThread, aFileThatWasCutIsReported) {
    const TemporaryFolder folder;
    std::mt19937 random(33);
    const ReadThread reader(true);
    const std::string name = folder.write("cut", randomBytes(1000000, random));
    BinaryInput input;
    ASSERT_TRUE(openBinaryInput(input, name));
    ASSERT_NE(viewBytes(input, 8000, "a row"), nullptr);
    std::filesystem::resize_file(name, 600000);
    EXPECT_THROW(
        {
            for (;;) {
                viewBytes(input, 8000, "a row");
            }
        },
        RunError);
}

}  // namespace
}  // namespace voxlith
