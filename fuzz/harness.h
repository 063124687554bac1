// What the fuzz targets share: a folder in memory to work in, inputs as files in it, and a way to take an input apart.
//
// Each target is one file with LLVMFuzzerTestOneInput. Built with libFuzzer it looks for inputs that crash, leak, read
// outside an array, or take memory or time out of proportion; built with replay_main.cpp it goes through the inputs
// that are kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/messages.h"

namespace voxlith::fuzzing {

// Makes a new folder below /dev/shm the current one and sends standard output to /dev/null. It is removed at the end of
// the process. Further calls do nothing.
void enterWorkFolder();

// A file of the work folder that stays open, so that each new content costs two calls of the system.
class InputFile {
public:
    explicit InputFile(const char* name);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    void set(std::span<const std::uint8_t> content) const;
    void set(std::string_view content) const;
    const std::string& name() const { return name_; }

private:
    std::string name_;
    int handle_;
};

// Takes choices off the front of an input; past its end every choice is 0.
class Choices {
public:
    explicit Choices(std::span<const std::uint8_t> input) : rest_(input) {}
    std::uint8_t byte();
    // 0 .. count - 1
    std::size_t below(std::size_t count) { return byte() % count; }
    std::span<const std::uint8_t> rest() const { return rest_; }
    std::string_view text() const { return {reinterpret_cast<const char*>(rest_.data()), rest_.size()}; }
    // The rest up to the first zero byte, which is dropped.
    std::string_view textPart();

private:
    std::span<const std::uint8_t> rest_;
};

// Runs `action`, which may end as a run may: by a stop with a message, or by the error of a file.
template <typename Action>
void allowStops(Action action) {
    try {
        action();
    } catch (const PlainStop&) {
    } catch (const RunError&) {
    }
}

// Ends the process with a report when `holds` is false.
void require(bool holds, const char* what);

}  // namespace voxlith::fuzzing
