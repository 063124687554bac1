// A binary file read at known byte positions in large blocks. Every damage (an early end, an impossible count) becomes a RunError that
// names the file, what was being read, and the byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace voxlith {

struct BinaryInput {
    BinaryInput() = default;
    ~BinaryInput();
    BinaryInput(const BinaryInput&) = delete;
    BinaryInput& operator=(const BinaryInput&) = delete;

    std::string name;
    int handle = -1;
    std::int64_t size = 0;        // bytes in the file
    std::int64_t position = 0;    // of the next byte to be handed out
    std::int64_t bytesRead = 0;   // asked of the system so far
    std::vector<std::byte> block; // read-ahead
    std::int64_t blockStart = 0;  // file position of block[0]
    std::size_t blockLength = 0;
};

bool openBinaryInput(BinaryInput& input, const std::string& name);  // false: errno tells why
void closeBinaryInput(BinaryInput& input);
void seekBinary(BinaryInput& input, std::int64_t position);

// All throw RunError when the file ends early or cannot be read; `what` names what is being read.
std::int32_t readInt32(BinaryInput& input, std::string_view what);
float readReal32(BinaryInput& input, std::string_view what);
double readReal64(BinaryInput& input, std::string_view what);
void readBytes(BinaryInput& input, void* target, std::size_t bytes, std::string_view what);

// "FILE: byte N: expected ..., found ..."
[[noreturn]] void throwDamage(const BinaryInput& input, std::string_view expected, std::string_view found);

}  // namespace voxlith
