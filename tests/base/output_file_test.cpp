#include "base/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "base/messages.h"
#include "support/run_error.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::errorOf;
using testing_support::TemporaryFolder;

std::size_t filesIn(const TemporaryFolder& folder) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        count += entry.exists() || entry.is_symlink() ? 1u : 0u;
    }
    return count;
}

TEST(OutputFile, appearsWhenItIsComplete) {
    TemporaryFolder folder;
    const std::string name = folder.write("model.den", "old");
    OutputFile file;
    openOutputFile(file, name);
    appendOutputLine(file, "new");
    std::memcpy(reserveOutput(file, 16384), "abc", 3);
    commitOutput(file, 3);
    EXPECT_EQ(folder.read("model.den"), "old");
    finishOutputFile(file);
    EXPECT_EQ(folder.read("model.den"), "new\nabc");
    EXPECT_EQ(filesIn(folder), 1u);
    openOutputFile(file, folder.file("second"));
    finishOutputFile(file);
    EXPECT_EQ(folder.read("second"), "");
}

TEST(OutputFile, keepsThePermissionsOfTheFileItReplaces) {
    TemporaryFolder folder;
    const std::string name = folder.write("model.den", "old");
    for (const mode_t permissions : {0600u, 0664u, 0444u}) {
        ASSERT_EQ(::chmod(name.c_str(), permissions), 0);
        OutputFile file;
        openOutputFile(file, name);
        finishOutputFile(file);
        struct stat state {};
        ASSERT_EQ(::stat(name.c_str(), &state), 0);
        EXPECT_EQ(state.st_mode & 07777u, permissions);
    }
}

TEST(OutputFile, twoWritersDoNotMix) {
    TemporaryFolder folder;
    OutputFile first, second;
    openOutputFile(first, folder.file("model.den"));
    openOutputFile(second, folder.file("model.den"));
    appendOutput(first, "one");
    appendOutput(second, "two");
    finishOutputFile(second);
    EXPECT_EQ(folder.read("model.den"), "two");
    finishOutputFile(first);
    EXPECT_EQ(folder.read("model.den"), "one");
    EXPECT_EQ(filesIn(folder), 1u);
}

TEST(OutputFile, holdsMoreThanItsBuffer) {
    TemporaryFolder folder;
    OutputFile file;
    openOutputFile(file, folder.file("large"));
    std::string expected;
    for (int i = 0; i < 40000; ++i) {
        const std::string part = std::to_string(i) + "\n";
        if (i % 2 == 0) {
            appendOutput(file, part);
        } else {
            std::memcpy(reserveOutput(file, 16384), part.data(), part.size());
            commitOutput(file, part.size());
        }
        expected += part;
    }
    const std::string block(3 * file.buffer.size() + 1, 'b');
    appendOutput(file, block);
    finishOutputFile(file);
    EXPECT_EQ(folder.read("large"), expected + block);
}

TEST(OutputFile, leavesNothingWhenItIsNotFinished) {
    TemporaryFolder folder;
    const std::string name = folder.write("kept", "old");
    {
        OutputFile file;
        openOutputFile(file, name);
        appendOutput(file, std::string(100000, 'x'));
    }
    EXPECT_EQ(folder.read("kept"), "old");
    EXPECT_EQ(filesIn(folder), 1u);
}

TEST(OutputFile, keepsTheEarlierVersionWhenTheDiskIsFull) {
    TemporaryFolder folder;
    const std::string name = folder.write("kept", "old");
    const std::string cause = name + ": cannot be written: No space left on device";
    OutputFile file;
    const auto openOnFullDevice = [&] {
        openOutputFile(file, name);
        ::close(file.handle);
        file.handle = ::open("/dev/full", O_WRONLY);
    };
    openOnFullDevice();
    appendOutput(file, "small");
    EXPECT_EQ(errorOf([&] { finishOutputFile(file); }), cause);
    openOnFullDevice();
    EXPECT_EQ(errorOf([&] { appendOutput(file, std::string(file.buffer.size() + 1, 'x')); }), cause);
    openOnFullDevice();
    appendOutput(file, std::string(file.buffer.size() - 100, 'x'));
    EXPECT_EQ(errorOf([&] { reserveOutput(file, 16384); }), cause);
    EXPECT_EQ(folder.read("kept"), "old");
    EXPECT_EQ(filesIn(folder), 1u);
}

TEST(OutputFile, keepsTheEarlierVersionWhenTheDiskFails) {
    TemporaryFolder folder;
    const std::string name = folder.write("kept", "old");
    OutputFile file;
    openOutputFile(file, name);
    ::close(file.handle);
    EXPECT_EQ(errorOf([&] { finishOutputFile(file); }), name + ": cannot be written: Bad file descriptor");
    EXPECT_EQ(folder.read("kept"), "old");
    EXPECT_EQ(filesIn(folder), 1u);
}

TEST(OutputFile, reportsWhyItCannotBeCreated) {
    TemporaryFolder folder;
    OutputFile file;
    const std::string inNoFolder = folder.file("none/x");
    EXPECT_EQ(errorOf([&] { openOutputFile(file, inNoFolder); }),
              inNoFolder + ": cannot be created: No such file or directory");
    const std::string itself = folder.path().string();
    EXPECT_EQ(errorOf([&] { openOutputFile(file, itself); }), itself + ": cannot be created: Is a directory");
    const std::string longName(1024, 'n');
    EXPECT_EQ(errorOf([&] { openOutputFile(file, longName); }), longName + ": cannot be created: File name too long");
    EXPECT_EQ(errorOf([&] { openOutputFile(file, ""); }), ": cannot be created: No such file or directory");
    EXPECT_EQ(errorOf([&] { openOutputFile(file, "/dev/null"); }), "/dev/null: cannot be created: Invalid argument");
    EXPECT_EQ(filesIn(folder), 0u);
}

TEST(OutputFile, reportsThatItCannotBeRenamed) {
    TemporaryFolder folder;
    OutputFile file;
    openOutputFile(file, folder.file("late"));
    ASSERT_EQ(::mkdir(folder.file("late").c_str(), 0700), 0);
    EXPECT_EQ(errorOf([&] { finishOutputFile(file); }), folder.file("late") + ": cannot be written: Is a directory");
    EXPECT_EQ(filesIn(folder), 1u);
}

TEST(OutputFile, followsNoLinks) {
    TemporaryFolder folder;
    const std::string precious = folder.write("precious", "mine");
    const std::string temporary = "out." + std::to_string(::getpid()) + "-1.part";
    ASSERT_EQ(::symlink(precious.c_str(), folder.file(temporary).c_str()), 0);
    ASSERT_EQ(::symlink(precious.c_str(), folder.file("out").c_str()), 0);
    OutputFile file;
    openOutputFile(file, folder.file("out"));
    appendOutput(file, "written");
    finishOutputFile(file);
    EXPECT_EQ(folder.read("precious"), "mine");
    EXPECT_EQ(folder.read("out"), "written");
    EXPECT_FALSE(std::filesystem::is_symlink(folder.file("out")));
}

}  // namespace
}  // namespace voxlith
