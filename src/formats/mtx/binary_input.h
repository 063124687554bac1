// A binary file read at given byte positions in large blocks. Damage (an early end, an impossible count) is a RunError
// that names the file, what was being read, and the byte.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/background_reads.h"

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
    std::int64_t position = 0;     // of the next byte
    std::int64_t bytesRead = 0;    // by system calls so far
    std::size_t readAhead = 0;     // bytes that a small read fetches at once
    std::vector<std::byte> block;  // read-ahead
    std::size_t blockFront = 0;    // unused bytes at the start of the block
    std::int64_t blockStart = 0;   // file position of block[blockFront]
    std::size_t blockLength = 0;
    // With background reads: what follows the block, being read. Bytes of the block that are still needed will be
    // copied in front of it.
    std::vector<std::byte> nextBlock;
    ReadRequest next;
    bool nextBegun = false;
};

constexpr std::size_t largeReadAhead = std::size_t{1} << 18;

// False: errno has the reason. Only regular files are opened, since rows are found by seeking.
bool openBinaryInput(BinaryInput& input, const std::string& name);

// Closes the file and frees the read-ahead; name and counts stay. Nothing happens while closed.
void closeBinaryInput(BinaryInput& input);

// Sets the position of the next read, without a system call. A position outside the file is found at that read.
void seekBinary(BinaryInput& input, std::int64_t position);

// How much a small read fetches: `bytes`, at most largeReadAhead. A pass over row counts alone needs little more than a
// count.
void setReadAhead(BinaryInput& input, std::size_t bytes);

// All throw RunError when the file ends early or cannot be read; `what` names what is being read.
std::int32_t readInt32(BinaryInput& input, std::string_view what);
float readReal32(BinaryInput& input, std::string_view what);
double readReal64(BinaryInput& input, std::string_view what);
// The position moves only when all bytes are there. A long read goes directly into the target, so that every byte of a
// file that is read in order is fetched once.
void readBytes(BinaryInput& input, void* target, std::size_t bytes, std::string_view what);

// The next bytes in the read-ahead, valid until the next read; saves a copy. A null pointer, with the position
// unchanged, when they are more than the read-ahead or are not aligned to four bytes. Throws like readBytes.
const std::byte* viewBytes(BinaryInput& input, std::size_t bytes, std::string_view what);

// Reads consecutive bytes into several buffers by one system call, past the read-ahead. False, with the position
// unchanged, when not all of them could be read; reading them one by one finds the reason.
bool readScattered(BinaryInput& input, std::span<const iovec> parts);

// Throws RunError unless `bytes` more bytes follow in the file: the check before anything of that size is allocated.
void requireBytes(const BinaryInput& input, std::int64_t bytes, std::string_view what);

// RunError "FILE: byte N: expected ..., found ...", for the byte at `position` or the one given. Bytes count from 0, as
// in descriptions of the format.
[[noreturn]] void throwDamage(const BinaryInput& input, std::string_view expected, std::string_view found);
[[noreturn]] void throwDamageAt(const BinaryInput& input, std::int64_t byte, std::string_view expected,
                                std::string_view found);

}  // namespace voxlith
