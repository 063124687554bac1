#include "base/text_input.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

std::vector<std::string> linesOf(TextInput& input, std::size_t width) {
    std::vector<std::string> lines;
    for (std::string line; readLine(input, line, width);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(TextInput, takesLines) {
    TextInput input;
    openTextInMemory(input, "one\n\ntwo  \r\nthree\r\r\nlast");
    EXPECT_EQ(linesOf(input, 256), (std::vector<std::string>{"one", "", "two  ", "three", "last"}));
    EXPECT_TRUE(atEnd(input));
    EXPECT_EQ(input.lineNumber, 5);
    rewindTextInput(input);
    EXPECT_EQ(linesOf(input, 2), (std::vector<std::string>{"on", "", "tw", "th", "la"}));
    openTextInMemory(input, "");
    EXPECT_TRUE(linesOf(input, 256).empty());
    openTextInMemory(input, "\n");
    EXPECT_EQ(linesOf(input, 256), std::vector<std::string>{""});
}

TEST(TextInput, takesTheSameLinesFromAFile) {
    TemporaryFolder folder;
    std::mt19937_64 generator(5);
    std::string text;
    while (text.size() < 700000) {
        const std::size_t length = generator() % 200 == 0 ? 150000 : generator() % 400;
        text.append(length, static_cast<char>('a' + generator() % 26)).append(generator() % 4 == 0 ? "\r\n" : "\n");
    }
    text += "no end";
    TextInput file;
    ASSERT_TRUE(openTextInput(file, folder.write("lines.txt", text)));
    TextInput memory;
    openTextInMemory(memory, text);
    const std::vector<std::string> expected = linesOf(memory, 256);
    EXPECT_EQ(linesOf(file, 256), expected);
    rewindTextInput(file);
    EXPECT_EQ(linesOf(file, 256), expected);
    EXPECT_EQ(file.lineNumber, memory.lineNumber);
    EXPECT_LT(file.block.size(), 400000u);
}

TEST(TextInput, reportsWhyAFileCannotBeOpened) {
    TemporaryFolder folder;
    TextInput input;
    EXPECT_FALSE(openTextInput(input, folder.file("gone")));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openTextInput(input, folder.path().string()));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_TRUE(atEnd(input));
}

TEST(TextInput, pipesAndDevicesAreNotOpened) {
    TemporaryFolder folder;
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
    TextInput input;
    EXPECT_FALSE(openTextInput(input, folder.file("pipe")));  // and does not wait for a writer
    EXPECT_EQ(errno, ESPIPE);
    EXPECT_FALSE(openTextInput(input, "/dev/zero"));
    EXPECT_EQ(errno, ESPIPE);
    EXPECT_EQ(input.handle, -1);
}

TEST(TextInput, aSymbolicLinkToAFileIsThatFile) {
    TemporaryFolder folder;
    std::filesystem::create_symlink(folder.write("a.txt", "first\n"), folder.file("link"));
    TextInput input;
    ASSERT_TRUE(openTextInput(input, folder.file("link")));
    std::string line;
    ASSERT_TRUE(readLine(input, line));
    EXPECT_EQ(line, "first");
}

TEST(TextInput, namesTheFileThatCannotBeRead) {
    TemporaryFolder folder;
    TextInput input;
    ASSERT_TRUE(openTextInput(input, folder.write("closed.txt", "1\n")));
    ::close(input.handle);
    input.handle = 1000000;
    try {
        atEnd(input);
        FAIL() << "a read from a closed descriptor went well";
    } catch (const RunError& error) {
        EXPECT_EQ(std::string(error.what()), folder.file("closed.txt") + ": cannot be read: Bad file descriptor");
    }
    input.handle = -1;
}

TEST(TextInput, readsAgainAfterItWasUsedForAnotherText) {
    TemporaryFolder folder;
    TextInput input;
    ASSERT_TRUE(openTextInput(input, folder.write("a.txt", "a\n")));
    EXPECT_EQ(linesOf(input, 256), std::vector<std::string>{"a"});
    openTextInMemory(input, "b");
    EXPECT_EQ(linesOf(input, 256), std::vector<std::string>{"b"});
    ASSERT_TRUE(openTextInput(input, folder.file("a.txt")));
    EXPECT_EQ(input.lineNumber, 1);
    EXPECT_EQ(linesOf(input, 256), std::vector<std::string>{"a"});
    closeTextInput(input);
    EXPECT_TRUE(linesOf(input, 256).empty());
}

}  // namespace
}  // namespace voxlith
