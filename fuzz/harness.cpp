#include "harness.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace voxlith::fuzzing {

namespace {

std::string& workFolder() {
    static std::string folder;
    return folder;
}

void removeWorkFolder() {
    std::error_code ignored;
    std::filesystem::current_path("/", ignored);
    std::filesystem::remove_all(workFolder(), ignored);
}

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::abort();
}

void writeAll(int handle, const void* content, std::size_t size) {
    // In this order the pages of the file are used again.
    if (::pwrite(handle, content, size, 0) != static_cast<ssize_t>(size) ||
        ::ftruncate(handle, static_cast<off_t>(size)) != 0) {
        fail("input file");
    }
}

}  // namespace

void enterWorkFolder() {
    if (!workFolder().empty()) {
        return;
    }
    const bool inMemory = ::access("/dev/shm", W_OK | X_OK) == 0;
    std::string pattern =
        (inMemory ? std::string("/dev/shm") : std::filesystem::temp_directory_path().string()) + "/voxlith_fuzz_XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr || ::chdir(pattern.c_str()) != 0) {
        fail("work folder");
    }
    workFolder() = pattern;
    if (std::atexit(removeWorkFolder) != 0) {
        fail("atexit");
    }
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0) {
        fail("/dev/null");
    }
    ::close(nowhere);
}

InputFile::InputFile(const char* name) : name_(name), handle_(::open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (handle_ < 0) {
        fail(name);
    }
}

void InputFile::set(std::span<const std::uint8_t> content) const {
    writeAll(handle_, content.data(), content.size());
}

void InputFile::set(std::string_view content) const {
    writeAll(handle_, content.data(), content.size());
}

std::uint8_t Choices::byte() {
    if (rest_.empty()) {
        return 0;
    }
    const std::uint8_t taken = rest_.front();
    rest_ = rest_.subspan(1);
    return taken;
}

std::string_view Choices::textPart() {
    const std::string_view all = text();
    const std::size_t end = all.find('\0');
    const std::string_view part = all.substr(0, end);
    rest_ = rest_.subspan(end == std::string_view::npos ? rest_.size() : end + 1);
    return part;
}

void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "violated: %s\n", what);
        std::abort();
    }
}

}  // namespace voxlith::fuzzing
