#include "base/staged_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

std::vector<std::string> namesIn(const TemporaryFolder& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void stage(const std::string& name, const std::string& text, StagedFiles& staged,
           PreviousVersion previous = PreviousVersion::kept) {
    OutputFile file;
    openOutputFile(file, name);
    appendOutput(file, text);
    stageOutputFile(file, previous, staged);
}

TEST(StagedFiles, getTheirNamesWhenPublished) {
    TemporaryFolder folder;
    const std::string model = folder.write("a.rho", "0"), data = folder.file("a.pre");
    StagedFiles staged;
    stage(model, "1", staged);
    stage(data, "2", staged);
    EXPECT_EQ(folder.read("a.rho"), "0");
    EXPECT_FALSE(std::filesystem::exists(data));
    publishStagedFiles(staged);
    EXPECT_EQ(folder.read("a.rho"), "1");
    EXPECT_EQ(folder.read("a.pre"), "2");
    EXPECT_EQ(namesIn(folder), (std::vector<std::string>{".a.rho.previous", "a.pre", "a.rho"}));
}

TEST(StagedFiles, keepTheVersionBeforeWhileTheRunLasts) {
    TemporaryFolder folder;
    const std::string name = folder.file("a.rho");
    EXPECT_EQ(previousVersionName(name), folder.file(".a.rho.previous"));
    EXPECT_EQ(previousVersionName("a.rho"), ".a.rho.previous");
    {
        StagedFiles staged;
        for (const char* text : {"1", "2", "3", "4"}) {
            stage(name, text, staged);
            if (std::string(text) != "3") {
                publishStagedFiles(staged);
            }
        }
        EXPECT_EQ(folder.read("a.rho"), "4");
        EXPECT_EQ(folder.read(".a.rho.previous"), "2");  // the last that was published
        stage(name, "5", staged);
    }
    EXPECT_EQ(folder.read("a.rho"), "5");
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"a.rho"});
}

TEST(StagedFiles, keepTheVersionBeforeADamagedFile) {
    TemporaryFolder folder;
    const std::string name = folder.write("a.rho", "1 2");
    const std::string hidden = folder.write(".a.rho.previous", "1 2 3 4");
    {
        StagedFiles staged;
        for (const char* content : {"5 6 7 8", "6 7 8 9"}) {
            stage(name, content, staged);
            publishStagedFiles(staged);
            EXPECT_EQ(folder.read("a.rho"), content);
            EXPECT_EQ(folder.read(".a.rho.previous"), "1 2 3 4");
        }
    }
    EXPECT_EQ(folder.read(".a.rho.previous"), "1 2 3 4") << "the run has not said that it ended well";
    removePreviousVersions(folder.file("a"));
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"a.rho"});
}

TEST(StagedFiles, withoutAVersionBeforeLeaveNoHiddenFile) {
    TemporaryFolder folder;
    StagedFiles staged;
    for (const char* text : {"1", "2"}) {
        stage(folder.file("iteration.den"), text, staged, PreviousVersion::dropped);
        publishStagedFiles(staged);
    }
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"iteration.den"});
}

TEST(StagedFiles, arePublishedWhenTheyAreMany) {
    TemporaryFolder folder;
    StagedFiles staged;
    for (int i = 0; i < 20; ++i) {
        stage(folder.file(std::to_string(i)), std::to_string(i), staged, PreviousVersion::dropped);
    }
    publishStagedFiles(staged);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(folder.read(std::to_string(i)), std::to_string(i));
    }
    EXPECT_EQ(namesIn(folder).size(), 20u);
}

TEST(StagedFiles, giveUpHiddenVersionsWhenTheyAreMany) {
    TemporaryFolder folder;
    {
        StagedFiles staged;
        for (int i = 0; i < 40; ++i) {
            stage(folder.file(std::to_string(i % 20)), std::to_string(i), staged);
        }
        publishStagedFiles(staged);
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(folder.read(std::to_string(i)), std::to_string(i + 20));
        }
        EXPECT_GT(namesIn(folder).size(), 20u);
    }
    EXPECT_EQ(namesIn(folder).size(), 20u);
}

TEST(StagedFiles, areDueAtFirstAndAfterTheInterval) {
    TemporaryFolder folder;
    StagedFiles staged;
    EXPECT_TRUE(publicationIsDue(staged, 1000.0));
    publishStagedFiles(staged);
    staged.publishSeconds = 1.0;  // a slow disk
    EXPECT_FALSE(publicationIsDue(staged, 1000.0));
    EXPECT_FALSE(publicationIsDue(staged, 0.2));
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_TRUE(publicationIsDue(staged, 0.2));
    EXPECT_FALSE(publicationIsDue(staged, 1000.0));
    staged.publishSeconds = 0.001;  // a fast disk
    EXPECT_TRUE(publicationIsDue(staged, 1000.0));
}

TEST(StagedFiles, ofARunThatFailsLeaveTheVersionBefore) {
    TemporaryFolder folder;
    const std::string name = folder.write("a.rho", "0");
    {
        StagedFiles staged;
        stage(name, "1", staged);
        ::close(staged.files.front().handle);
        EXPECT_THROW(publishStagedFiles(staged), RunError);
    }
    EXPECT_EQ(folder.read("a.rho"), "0");
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"a.rho"});
}

TEST(StagedFiles, leftHiddenByAKilledRunAreRemoved) {
    TemporaryFolder folder;
    for (const char* name :
         {".voxlith_old.rho.previous", ".other.previous", "voxlith.previous", ".voxlith.previous.x"}) {
        folder.write(name, "x");
    }
    removePreviousVersions(folder.file("voxlith"));
    EXPECT_EQ(namesIn(folder),
              (std::vector<std::string>{".other.previous", ".voxlith.previous.x", "voxlith.previous"}));
    removePreviousVersions(folder.file("none/voxlith"));
}

}  // namespace
}  // namespace voxlith
