#include "base/line_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

TEST(LineFile, replacesOrContinuesAFile) {
    TemporaryFolder folder;
    const std::string name = folder.write("run.log", "old\n");
    LineFile file;
    EXPECT_FALSE(isOpen(file));
    ASSERT_TRUE(openLineFile(file, name, LineFileMode::create));
    EXPECT_TRUE(isOpen(file));
    writeLine(file, " first");
    writeLine(file, "");
    syncLineFile(file);
    EXPECT_EQ(folder.read("run.log"), " first\n\n");
    closeLineFile(file);
    closeLineFile(file);
    EXPECT_FALSE(isOpen(file));
    ASSERT_TRUE(openLineFile(file, name, LineFileMode::append));
    writeLine(file, "second");
    EXPECT_EQ(folder.read("run.log"), " first\n\nsecond\n");
}

TEST(LineFile, completesALineThatWasCutOff) {
    TemporaryFolder folder;
    LineFile file;
    ASSERT_TRUE(openLineFile(file, folder.write("cut.aux", "row 1\nro"), LineFileMode::append));
    writeLine(file, "row 3");
    EXPECT_EQ(folder.read("cut.aux"), "row 1\nro\nrow 3\n");
    ASSERT_TRUE(openLineFile(file, folder.write("empty.aux", ""), LineFileMode::append));
    writeLine(file, "row 1");
    EXPECT_EQ(folder.read("empty.aux"), "row 1\n");
}

TEST(LineFile, cutsOffTheZerosOfAPowerFailure) {
    TemporaryFolder folder;
    for (const std::size_t zeros : {1U, 511U, 512U, 513U, 5000U}) {
        LineFile file;
        const std::string name = folder.write("zeros.aux", "row 1\nro" + std::string(zeros, '\0'));
        ASSERT_TRUE(openLineFile(file, name, LineFileMode::append));
        writeLine(file, "row 3");
        EXPECT_EQ(folder.read("zeros.aux"), "row 1\nro\nrow 3\n") << zeros;
    }
    LineFile file;
    ASSERT_TRUE(openLineFile(file, folder.write("only.aux", std::string(1024, '\0')), LineFileMode::append));
    writeLine(file, "row 1");
    EXPECT_EQ(folder.read("only.aux"), "row 1\n");
}

TEST(LineFile, reportsWhyItCannotBeOpened) {
    TemporaryFolder folder;
    LineFile file;
    EXPECT_FALSE(openLineFile(file, folder.file("gone"), LineFileMode::append));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openLineFile(file, folder.path().string(), LineFileMode::create));
    EXPECT_EQ(errno, EISDIR);
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(openLineFile(file, pipe, LineFileMode::append));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(openLineFile(file, std::string(5000, 'n'), LineFileMode::create));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_FALSE(openLineFile(file, "", LineFileMode::create));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(isOpen(file));
    EXPECT_FALSE(std::filesystem::exists(folder.file("gone")));
}

TEST(LineFile, doesNotWaitForTheReaderOfAPipe) {
    TemporaryFolder folder;
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
    LineFile file;
    EXPECT_FALSE(openLineFile(file, folder.file("pipe"), LineFileMode::create));
    EXPECT_EQ(errno, ENXIO);
    const int reader = ::open(folder.file("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_TRUE(openLineFile(file, folder.file("pipe"), LineFileMode::create));
    EXPECT_EQ(::fcntl(file.handle, F_GETFL) & (O_NONBLOCK | O_APPEND), O_APPEND);
    writeLine(file, "a line");
    std::array<char, 8> got{};
    EXPECT_EQ(::read(reader, got.data(), got.size()), 7);
    EXPECT_STREQ(got.data(), "a line\n");
    ::close(reader);
}

TEST(LineFile, reportsAFullDisk) {
    LineFile file;
    ASSERT_TRUE(openLineFile(file, "/dev/full", LineFileMode::create));
    try {
        writeLine(file, "a line");
        FAIL() << "a full device took a line";
    } catch (const RunError& error) {
        EXPECT_STREQ(error.what(), "/dev/full: cannot be written: No space left on device");
    }
    EXPECT_NO_THROW(syncLineFile(file));
}

TEST(LineFile, reportsAClosedDescriptor) {
    TemporaryFolder folder;
    LineFile file;
    EXPECT_THROW(writeLine(file, "a line"), RunError);
    EXPECT_NO_THROW(syncLineFile(file));
    ASSERT_TRUE(openLineFile(file, folder.file("x"), LineFileMode::create));
    ::close(file.handle);
    EXPECT_THROW(syncLineFile(file), RunError);
    EXPECT_THROW(writeLine(file, "a line"), RunError);
    EXPECT_THROW(closeLineFile(file), RunError);
    EXPECT_FALSE(isOpen(file));
}

TEST(LineFile, hasOneWriter) {
    TemporaryFolder folder;
    LineFile first, second;
    ASSERT_TRUE(openLineFile(first, folder.file("run.log"), LineFileMode::create));
    writeLine(first, "first");
    for (const LineFileMode mode : {LineFileMode::create, LineFileMode::append}) {
        EXPECT_FALSE(openLineFile(second, folder.file("run.log"), mode));
        EXPECT_EQ(errno, EWOULDBLOCK);
    }
    EXPECT_EQ(folder.read("run.log"), "first\n");
    closeLineFile(first);
    ASSERT_TRUE(openLineFile(second, folder.file("run.log"), LineFileMode::append));
    // Its own lock is no obstacle.
    EXPECT_TRUE(openLineFile(second, folder.file("run.log"), LineFileMode::create));
    EXPECT_EQ(folder.read("run.log"), "");
}

TEST(LineFile, isFreeWhenItsWriterWasKilled) {
    TemporaryFolder folder;
    const std::string name = folder.file("run.log");
    const pid_t writer = ::fork();
    if (writer == 0) {
        LineFile file;
        ::_exit(openLineFile(file, name, LineFileMode::create) && ::raise(SIGKILL) == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    LineFile file;
    EXPECT_TRUE(openLineFile(file, name, LineFileMode::append));
}

TEST(LineFile, writesThroughNoLink) {
    TemporaryFolder folder;
    const std::string other = folder.write("other", "mine\n");
    ASSERT_EQ(::symlink(other.c_str(), folder.file("run.log").c_str()), 0);
    LineFile file;
    EXPECT_FALSE(openLineFile(file, folder.file("run.log"), LineFileMode::append));
    EXPECT_EQ(errno, ELOOP);
    ASSERT_TRUE(openLineFile(file, folder.file("run.log"), LineFileMode::create));
    writeLine(file, "a line");
    EXPECT_EQ(folder.read("other"), "mine\n");
    EXPECT_EQ(folder.read("run.log"), "a line\n");
    EXPECT_FALSE(std::filesystem::is_symlink(folder.file("run.log")));
}

TEST(LineFile, writesLongLinesWhole) {
    TemporaryFolder folder;
    LineFile file;
    ASSERT_TRUE(openLineFile(file, folder.file("long"), LineFileMode::create));
    const std::string line(3000000, 'l');
    writeLine(file, line);
    EXPECT_EQ(folder.read("long"), line + "\n");
}

}  // namespace
}  // namespace voxlith
