#include "base/messages.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>

#include "support/run_error.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::errorOf;
using testing_support::TemporaryFolder;

// Runs `work` with standard output led to the descriptor `target`; -1 closes it.
void withStandardOutput(int target, const std::function<void()>& work) {
    ::fflush(stdout);
    const int saved = ::dup(STDOUT_FILENO);
    if (target >= 0) {
        ::dup2(target, STDOUT_FILENO);
    } else {
        ::close(STDOUT_FILENO);
    }
    work();
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
}

TEST(Messages, writesOnScreenAndLog) {
    TemporaryFolder folder;
    const int screen = ::open(folder.file("both").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    withStandardOutput(screen, [&] {
        Messages messages;
        logLine(messages, "goes nowhere");
        screenAndLogLine(messages, "screen only, the log is closed");
        ASSERT_TRUE(openLineFile(messages.log, folder.file("both"), LineFileMode::append));
        logLine(messages, "log");
        screenLine("screen");
        screenAndLogLine(messages, "twice");
        logAndScreenLine(messages, "");
    });
    ::close(screen);
    EXPECT_EQ(folder.read("both"), "screen only, the log is closed\nlog\nscreen\ntwice\ntwice\n\n\n");
}

TEST(Messages, stopsWithTheMessageOnScreenAndLog) {
    TemporaryFolder folder;
    const int screen = ::open(folder.file("screen").c_str(), O_WRONLY | O_CREAT, 0600);
    Messages messages;
    ASSERT_TRUE(openLineFile(messages.log, folder.file("log"), LineFileMode::create));
    withStandardOutput(screen, [&] { EXPECT_THROW(fatalStop(messages, " File x not found"), PlainStop); });
    ::close(screen);
    EXPECT_EQ(folder.read("screen"), " File x not found\n");
    EXPECT_EQ(folder.read("log"), " File x not found\n");
    EXPECT_TRUE(isOpen(messages.log));
    EXPECT_THROW(plainStop(), PlainStop);
}

TEST(Messages, reportsAFullLog) {
    Messages messages;
    ASSERT_TRUE(openLineFile(messages.log, "/dev/full", LineFileMode::create));
    EXPECT_EQ(errorOf([&] { logLine(messages, "x"); }), "/dev/full: cannot be written: No space left on device");
}

TEST(Messages, reportsAStandardOutputThatCannotBeWritten) {
    std::string closed;
    withStandardOutput(-1, [&] { closed = errorOf([] { screenLine("x"); }); });
    EXPECT_EQ(closed, "standard output: cannot be written: Bad file descriptor");

    const int full = ::open("/dev/full", O_WRONLY);
    std::string noSpace;
    withStandardOutput(full, [&] { noSpace = errorOf([] { screenLine("x"); }); });
    ::close(full);
    EXPECT_EQ(noSpace, "standard output: cannot be written: No space left on device");

    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    std::string broken;
    withStandardOutput(ends[1], [&] { broken = errorOf([] { screenLine("x"); }); });
    std::signal(SIGPIPE, before);
    ::close(ends[1]);
    EXPECT_EQ(broken, "standard output: cannot be written: Broken pipe");
}

}  // namespace
}  // namespace voxlith
