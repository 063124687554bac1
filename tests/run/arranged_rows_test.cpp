#include "run/arranged_rows.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

TEST(ArrangedRows, afterAWriteTheMappedFileIsRefused) {
    const TemporaryFolder folder;
    const std::string name = folder.write("rows", std::string(5000, 'r'));
    MappedRows file;
    EXPECT_NO_THROW(requireUnchanged(file)) << "not in use";
    ASSERT_EQ(mapFile(name, file), "");
    EXPECT_EQ(file.bytes.size(), 5000U);
    EXPECT_NO_THROW(requireUnchanged(file));
    ASSERT_EQ(::truncate(name.c_str(), 4999), 0);
    EXPECT_THROW(requireUnchanged(file), RunError);
}

TEST(ArrangedRows, whatCannotBeMappedHasAReason) {
    const TemporaryFolder folder;
    MappedRows missing, folderItself, empty;
    EXPECT_EQ(mapFile(folder.file("rows"), missing), "not found");
    EXPECT_EQ(mapFile(folder.path(), folderItself), "not a regular file");
    EXPECT_EQ(mapFile(folder.write("rows", ""), empty), "the file is cut");
}

// What a run does when the file is cut while it uses the rows.
void useALostPage(const std::string& name) {
    MappedRows file;
    if (!mapFile(name, file).empty() || ::truncate(name.c_str(), 1) != 0) {
        std::_Exit(0);
    }
    const volatile std::byte last = file.bytes.back();
    std::_Exit(last == std::byte{'r'} ? 0 : 1);
}

TEST(ArrangedRowsDeathTest, aLostPageEndsTheRunWithAMessage) {
    const TemporaryFolder folder;
    const std::string name = folder.write("rows", std::string(20000, 'r'));
    EXPECT_EXIT(useALostPage(name), testing::ExitedWithCode(2), "can no longer be read; voxlith-run --continue");
}

TEST(ArrangedRowsDeathTest, otherBusErrorsEndTheProcess) {
    const TemporaryFolder folder;
    const std::string name = folder.write("rows", std::string(20000, 'r'));
    const auto end = [&] {
        MappedRows file;
        static_cast<void>(mapFile(name, file));
        static_cast<void>(std::raise(SIGBUS));
        static_cast<void>(std::raise(SIGBUS));
    };
    EXPECT_EXIT(end(), testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
}  // namespace voxlith
