#include "base/temporary_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

typedef std::array<char, 4096> Name;

std::size_t filesIn(const TemporaryFolder& folder) {
    const std::filesystem::directory_iterator entries(folder.path());
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(TemporaryFile, liesBesideTheFileUnderANameOfItsOwn) {
    TemporaryFolder folder;
    const std::string name = folder.file("model.den");
    Name first{}, second{};
    const int a = createTemporaryFile(name.c_str(), first);
    const int b = createTemporaryFile(name.c_str(), second);
    ASSERT_GE(a, 0);
    ASSERT_GE(b, 0);
    EXPECT_EQ(std::string(first.data()), name + "." + std::to_string(::getpid()) + "-1.part");
    EXPECT_EQ(std::string(second.data()), name + "." + std::to_string(::getpid()) + "-2.part");
    ::close(a);
    ::close(b);
}

TEST(TemporaryFile, reportsANameThatIsTooLong) {
    std::array<char, 16> shortName{};
    EXPECT_EQ(createTemporaryFile("model.den", shortName), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(Leftovers, ofKilledWritersAreRemoved) {
    TemporaryFolder folder;
    const std::string name = folder.file("voxlith.rho");
    const pid_t writer = ::fork();
    if (writer == 0) {
        Name temporary{};
        ::_exit(createTemporaryFile(name.c_str(), temporary) >= 0 && ::raise(SIGKILL) == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(filesIn(folder), 1u);
    removeLeftovers(folder.file("other"));
    EXPECT_EQ(filesIn(folder), 1u);
    removeLeftovers(folder.file("voxlith"));
    EXPECT_EQ(filesIn(folder), 0u);
}

TEST(Leftovers, ofLivingWritersStay) {
    TemporaryFolder folder;
    Name temporary{};
    const int handle = createTemporaryFile(folder.file("voxlith.rho").c_str(), temporary);
    ASSERT_GE(handle, 0);
    removeLeftovers(folder.file("voxlith"));
    EXPECT_EQ(filesIn(folder), 1u);
    ::close(handle);
    removeLeftovers(folder.file("voxlith"));
    EXPECT_EQ(filesIn(folder), 0u);
}

TEST(Leftovers, areKnownByTheirWholeName) {
    TemporaryFolder folder;
    for (const char* name : {"voxlith.part", "voxlith.rho.part", "voxlith.rho.12.part", "voxlith.rho.-1.part",
                             "voxlith.rho.1-.part", "voxlith12-1.part", "voxlith.rho.12-1.part.old", "12-1.part"}) {
        folder.write(name, "mine");
    }
    ASSERT_EQ(::mkdir(folder.file("voxlith.rho.12-1.part").c_str(), 0700), 0);
    ASSERT_EQ(::mkfifo(folder.file("voxlith.rho.12-2.part").c_str(), 0600), 0);
    ASSERT_EQ(::symlink(folder.file("12-1.part").c_str(), folder.file("voxlith.rho.12-3.part").c_str()), 0);
    const std::size_t before = filesIn(folder);
    removeLeftovers(folder.file("voxlith"));
    EXPECT_EQ(filesIn(folder), before);
    folder.write("voxlith.rho.12-4.part", "unfinished");
    removeLeftovers(folder.file("voxlith"));
    EXPECT_EQ(filesIn(folder), before);
    removeLeftovers(folder.file("none/voxlith"));
}

}  // namespace
}  // namespace voxlith
