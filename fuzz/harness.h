// Shared by the fuzz targets: a work folder in memory, inputs as files in it, and choices taken from an input.
//
// Each target is one file with LLVMFuzzerTestOneInput. Built with libFuzzer it searches for inputs that crash, leak,
// read outside an array, or need too much memory or time; built with replay_main.cpp it runs the stored inputs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/messages.h"

namespace voxlith::fuzzing {

// Creates a folder below /dev/shm, makes it the current one and redirects standard output to /dev/null. The folder is
// removed at the end of the process. Further calls do nothing.
void enterWorkFolder();

// A file of the work folder that stays open, so that new content needs only two system calls.
class InputFile {
public:
    explicit InputFile(const char* name);
    ~InputFile() = default;  // open until the end of the process
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    void set(std::span<const std::uint8_t> content) const;
    void set(std::string_view content) const;
    const std::string& name() const { return name_; }

private:
    std::string name_;
    int handle_;
};

// Takes choices from the front of an input; after its end every choice is 0.
class Choices {
public:
    explicit Choices(std::span<const std::uint8_t> input) : rest_(input) {}
    std::uint8_t byte();
    // 0 .. count - 1
    std::size_t below(std::size_t count) { return byte() % count; }
    std::span<const std::uint8_t> rest() const { return rest_; }
    std::string_view text() const { return {reinterpret_cast<const char*>(rest_.data()), rest_.size()}; }
    // The rest up to the first zero byte, which is skipped.
    std::string_view textPart();

private:
    std::span<const std::uint8_t> rest_;
};

// Runs `action`, which may end like a run: by a stop with a message, or by an error of a file.
template <typename Action>
void allowStops(Action action) {
    try {
        action();
    } catch (const PlainStop&) {
    } catch (const RunError&) {
    }
}

// Ends the process with a report when `condition` is false.
void require(bool condition, const char* what);

}  // namespace voxlith::fuzzing
