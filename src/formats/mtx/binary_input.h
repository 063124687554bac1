// A binary file read at known byte positions in large blocks. Every damage (an early end, an impossible count) becomes
// a RunError that names the file, what was being read, and the byte.
#pragma once

#include <sys/uio.h>

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
    BinaryInput(BinaryInput&&) = delete;
    BinaryInput& operator=(BinaryInput&&) = delete;

    std::string name;
    int handle = -1;
    std::int64_t size = 0;         // bytes in the file
    std::int64_t position = 0;     // of the next byte to be handed out
    std::int64_t bytesRead = 0;    // asked of the system so far
    std::size_t readAhead = 0;     // bytes that a small read fetches at once
    std::vector<std::byte> block;  // read-ahead
    std::int64_t blockStart = 0;   // file position of block[0]
    std::size_t blockLength = 0;
};

constexpr std::size_t largeReadAhead = std::size_t{1} << 18;

// False: errno tells why. Only regular files are opened, since rows are found by seeking.
bool openBinaryInput(BinaryInput& input, const std::string& name);

// Closes and gives back the read-ahead; name and counts stay. Nothing happens while closed.
void closeBinaryInput(BinaryInput& input);

// Sets the position of the next read; the system is not asked. A position outside the file shows at that read.
void seekBinary(BinaryInput& input, std::int64_t position);

// How much a small read fetches: `bytes` at most largeReadAhead. Reading row counts alone wants little more than a
// count.
void setReadAhead(BinaryInput& input, std::size_t bytes);

// All throw RunError when the file ends early or cannot be read; `what` names what is being read.
std::int32_t readInt32(BinaryInput& input, std::string_view what);
float readReal32(BinaryInput& input, std::string_view what);
double readReal64(BinaryInput& input, std::string_view what);
// The position moves only when all bytes are there. A long read goes straight into the target, so that every byte of a
// file that is read in order is fetched once.
void readBytes(BinaryInput& input, void* target, std::size_t bytes, std::string_view what);

// The next bytes where they stand in the read-ahead, until the next read; spares a copy of what is used once. A null
// pointer, and nothing has moved, when they are more than the read-ahead holds or begin beside an address for numbers
// of four bytes. Throws like readBytes.
const std::byte* viewBytes(BinaryInput& input, std::size_t bytes, std::string_view what);

// Reads one stretch of the file into several places with one request, past the read-ahead: nothing is copied twice.
// False, and nothing has moved, when the stretch could not be had whole; reading it piece by piece tells why.
bool readScattered(BinaryInput& input, std::span<const iovec> parts);

// Throws RunError unless `bytes` more bytes follow in the file: the test before anything of that size is allocated.
void requireBytes(const BinaryInput& input, std::int64_t bytes, std::string_view what);

// RunError "FILE: byte N: expected ..., found ...", for the byte at `position` or the one given. Bytes count from 0, as
// in descriptions of the format.
[[noreturn]] void throwDamage(const BinaryInput& input, std::string_view expected, std::string_view found);
[[noreturn]] void throwDamageAt(const BinaryInput& input, std::int64_t byte, std::string_view expected,
                                std::string_view found);

}  // namespace voxlith
