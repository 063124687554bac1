// The checkpoint file: named blocks of bytes and a checksum over all of them. What the blocks hold is known to those
// who list them.
//
//   8 characters "VOXLITHC", int32 layout version, int32 number of blocks
//   for each block: name (24 characters, padded with zeros), int64 number of bytes, the bytes
//   uint32 checksum (CRC-32) of all that stands before
//
// Numbers have the byte order of the machine. The file is written beside its final name and renamed.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace voxlith {

// A part of the state of a run: where its bytes stand in memory.
struct StateBlock {
    std::string_view name;  // at most 24 characters
    std::span<std::byte> bytes;
    bool stored = true;  // false: holds nothing that matters at present, an empty block is written
};

template <typename T>
StateBlock blockOf(std::string_view name, T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    return {name, std::as_writable_bytes(std::span(&value, 1))};
}

template <typename T>
StateBlock blockOfArray(std::string_view name, std::span<T> values, bool stored = true) {
    static_assert(std::is_trivially_copyable_v<T>);
    return {name, std::as_writable_bytes(values), stored};
}

void writeCheckpoint(std::string_view fileName, std::span<const StateBlock> blocks);

// Reads the whole file and compares the checksum. Throws RunError when it is missing, cut or changed.
void verifyCheckpoint(const std::string& fileName);

enum class OtherBlocks { skipped, refused };

// Fills the bytes of each block from the block of that name. A block that was written empty leaves its bytes unchanged.
// Throws RunError when a block is missing or has another size, and where they are refused for blocks that are not asked
// for.
void readCheckpoint(const std::string& fileName, std::span<const StateBlock> blocks,
                    OtherBlocks others = OtherBlocks::skipped);

// Checksum of an array, to compare inputs.
std::uint32_t checksumOf(std::span<const std::byte> bytes, std::uint32_t start = 0);

}  // namespace voxlith
