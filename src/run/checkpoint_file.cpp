#include "run/checkpoint_file.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "base/messages.h"
#include "base/output_file.h"

namespace voxlith {

namespace {

constexpr std::string_view magic = "VOXLITHC";
constexpr std::int32_t layoutVersion = 1;
constexpr std::size_t nameWidth = 24;
constexpr std::int32_t mostBlocks = 1000;

using FileHandle = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

[[noreturn]] void refuse(const std::string& name, const std::string& problem) {
    throw RunError(name + ": " + problem);
}

std::string_view textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Output with its running checksum.
struct ChecksummedOutput {
    OutputFile file;
    std::uint32_t checksum = 0;
};

void append(ChecksummedOutput& output, std::span<const std::byte> bytes) {
    output.checksum = checksumOf(bytes, output.checksum);
    appendOutput(output.file, textOf(bytes));
}

template <typename T>
void appendValue(ChecksummedOutput& output, const T& value) {
    append(output, std::as_bytes(std::span(&value, 1)));
}

FileHandle openForReading(const std::string& name) {
    FileHandle file(std::fopen(name.c_str(), "rb"), &std::fclose);
    if (file == nullptr) {
        refuse(name, "cannot be opened");
    }
    return file;
}

void readBytes(const std::string& name, std::FILE* file, std::span<std::byte> bytes) {
    if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
        refuse(name, "the file is cut");
    }
}

template <typename T>
T readNumber(const std::string& name, std::FILE* file) {
    T value{};
    readBytes(name, file, std::as_writable_bytes(std::span(&value, 1)));
    return value;
}

void readMagic(const std::string& name, std::FILE* file) {
    std::array<std::byte, magic.size()> start{};
    readBytes(name, file, start);
    if (textOf(start) != magic) {
        refuse(name, "expected a checkpoint of voxlith-run, found another file");
    }
}

// Reads the head; returns the number of blocks.
std::int32_t readHead(const std::string& name, std::FILE* file) {
    readMagic(name, file);
    const auto version = readNumber<std::int32_t>(name, file);
    if (version != layoutVersion) {
        refuse(name, "expected layout version " + std::to_string(layoutVersion) + ", found " + std::to_string(version));
    }
    const auto count = readNumber<std::int32_t>(name, file);
    if (count < 0 || count > mostBlocks) {
        refuse(name, "the file is damaged");
    }
    return count;
}

}  // namespace

std::uint32_t checksumOf(std::span<const std::byte> bytes, std::uint32_t start) {
    if (bytes.empty()) {
        return start;  // zlib starts anew where there is no address
    }
    return static_cast<std::uint32_t>(
        ::crc32_z(start, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

void writeCheckpoint(std::string_view fileName, std::span<const StateBlock> blocks) {
    ChecksummedOutput output;
    openOutputFile(output.file, fileName);
    append(output, std::as_bytes(std::span(magic)));
    appendValue(output, layoutVersion);
    appendValue(output, static_cast<std::int32_t>(blocks.size()));
    for (const StateBlock& block : blocks) {
        assert(block.name.size() <= nameWidth);
        std::array<char, nameWidth> name{};
        std::ranges::copy(block.name, name.begin());
        append(output, std::as_bytes(std::span(name)));
        const std::span<const std::byte> bytes = block.stored ? block.bytes : std::span<std::byte>{};
        appendValue(output, static_cast<std::int64_t>(bytes.size()));
        append(output, bytes);
    }
    const std::uint32_t checksum = output.checksum;
    appendOutput(output.file, textOf(std::as_bytes(std::span(&checksum, 1))));
    finishOutputFile(output.file);
}

void verifyCheckpoint(const std::string& fileName) {
    const FileHandle file = openForReading(fileName);
    readMagic(fileName, file.get());
    std::rewind(file.get());
    constexpr std::size_t checksumBytes = sizeof(std::uint32_t);
    std::vector<std::byte> block(std::size_t{1} << 20);
    std::size_t held = 0;  // bytes in the block: the last of the file are the checksum
    std::uint32_t checksum = 0;
    for (;;) {
        held += std::fread(block.data() + held, 1, block.size() - held, file.get());
        if (held < block.size()) {
            break;
        }
        checksum = checksumOf(std::span(block).first(held - checksumBytes), checksum);
        std::copy(block.end() - checksumBytes, block.end(), block.begin());
        held = checksumBytes;
    }
    if (std::ferror(file.get()) != 0) {
        refuse(fileName, "cannot be read");
    }
    std::uint32_t stored = 0;
    if (held < checksumBytes) {
        refuse(fileName, "the file is cut");
    }
    checksum = checksumOf(std::span(block).first(held - checksumBytes), checksum);
    std::memcpy(&stored, block.data() + held - checksumBytes, checksumBytes);
    if (checksum != stored) {
        refuse(fileName, "the file is damaged: its checksum differs");
    }
    std::rewind(file.get());
    readHead(fileName, file.get());
}

void readCheckpoint(const std::string& fileName, std::span<const StateBlock> blocks, OtherBlocks others) {
    const FileHandle file = openForReading(fileName);
    std::map<std::string_view, const StateBlock*> wanted;
    for (const StateBlock& block : blocks) {
        wanted.emplace(block.name, &block);
    }
    for (std::int32_t left = readHead(fileName, file.get()); left > 0; --left) {
        std::array<char, nameWidth + 1> name{};
        readBytes(fileName, file.get(), std::as_writable_bytes(std::span(name).first(nameWidth)));
        const auto length = readNumber<std::int64_t>(fileName, file.get());
        const auto found = wanted.find(name.data());
        if (found == wanted.end()) {
            if (others == OtherBlocks::refused) {
                refuse(fileName, "block \"" + std::string(name.data()) +
                                     "\" was not expected; it belongs to an inversion with other options");
            }
            if (length < 0 || ::fseeko(file.get(), static_cast<off_t>(length), SEEK_CUR) != 0) {
                refuse(fileName, "the file is damaged");
            }
            continue;
        }
        const std::span<std::byte> bytes = found->second->bytes;
        if (length != 0 && length != static_cast<std::int64_t>(bytes.size())) {
            refuse(fileName, "block \"" + std::string(name.data()) + "\": expected " + std::to_string(bytes.size()) +
                                 " bytes, found " + std::to_string(length) + "; it belongs to another inversion");
        }
        readBytes(fileName, file.get(), bytes.first(static_cast<std::size_t>(length)));
        wanted.erase(found);
    }
    if (!wanted.empty()) {
        refuse(fileName, "block \"" + std::string(wanted.begin()->first) +
                             "\" is missing; it belongs to an inversion with other options");
    }
}

}  // namespace voxlith
