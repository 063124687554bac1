#include "run/arranged_rows.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/messages.h"
#include "base/output_file.h"
#include "sensitivity/products.h"
#include "sensitivity/row_loading.h"

namespace voxlith {

namespace {

constexpr std::string_view magic = "VOXLITHR";
constexpr std::int32_t layoutVersion = 1;
constexpr std::size_t chunkBytes = std::size_t{1} << 18;  // hashed while it is in the cache

// Eight chains of FNV-1a over 64-bit words, folded into one: as fast as memory, so that reading stays all that a start
// costs. It finds damage by chance, not by intent.
constexpr std::uint64_t fnvStart = 0xcbf29ce484222325U, fnvPrime = 0x100000001b3U;

std::uint64_t hashOfChunk(std::span<const std::byte> bytes, std::uint64_t start) {
    constexpr std::size_t lanes = 8;
    std::array<std::uint64_t, lanes> lane{};
    for (std::size_t l = 0; l < lanes; ++l) {
        lane[l] = start + l;
    }
    std::array<std::uint64_t, lanes> words{};
    std::size_t at = 0;
    for (; at + sizeof words <= bytes.size(); at += sizeof words) {
        std::memcpy(words.data(), bytes.data() + at, sizeof words);
        for (std::size_t l = 0; l < lanes; ++l) {
            lane[l] = (lane[l] ^ words[l]) * fnvPrime;
        }
    }
    words.fill(0);
    if (at < bytes.size()) {
        std::memcpy(words.data(), bytes.data() + at, bytes.size() - at);
    }
    std::uint64_t hash = (fnvStart ^ bytes.size()) * fnvPrime;
    for (std::size_t l = 0; l < lanes; ++l) {
        lane[l] = (lane[l] ^ words[l]) * fnvPrime;
        hash = (hash ^ lane[l] ^ (lane[l] >> 32U)) * fnvPrime;
    }
    return hash;
}

std::uint64_t hashOf(std::span<const std::byte> bytes, std::uint64_t hash) {
    for (std::size_t at = 0; at < bytes.size(); at += chunkBytes) {
        hash = hashOfChunk(bytes.subspan(at, std::min(chunkBytes, bytes.size() - at)), hash);
    }
    return hash;
}

template <typename T>
std::span<const std::byte> bytesOf(const T& value) {
    return std::as_bytes(std::span(&value, 1));
}

// Samples find a file that was computed anew within the resolution of its time, or copied with its time.
std::uint64_t hashOfSamples(const BinaryInput& input, std::uint64_t hash) {
    constexpr std::int64_t samples = 64;
    std::array<std::byte, 4096> bytes;
    for (std::int64_t n = 0; n < samples; ++n) {
        const std::int64_t last = std::max<std::int64_t>(0, input.size - static_cast<std::int64_t>(bytes.size()));
        const ssize_t length = ::pread(input.handle, bytes.data(), bytes.size(), last / (samples - 1) * n);
        if (length < 0) {
            throw RunError(input.name + ": cannot be read: " + std::strerror(errno));
        }
        hash = hashOf(std::span(bytes).first(static_cast<std::size_t>(length)), hash);
    }
    return hash;
}

// Input with its running hash; `problem` has the first reason why it is no use.
struct HashedInput {
    int handle = -1;
    std::int64_t left = 0;  // bytes
    std::uint64_t hash = fnvStart;
    std::string problem;

    HashedInput() = default;
    ~HashedInput() {
        if (handle >= 0) {
            ::close(handle);
        }
    }
    HashedInput(const HashedInput&) = delete;
    HashedInput& operator=(const HashedInput&) = delete;
};

bool readPlain(HashedInput& input, std::span<std::byte> bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const ssize_t length = ::read(input.handle, bytes.data() + at, bytes.size() - at);
        if (length <= 0) {
            input.problem = length < 0 ? std::strerror(errno) : "the file is cut";
            return false;
        }
        at += static_cast<std::size_t>(length);
    }
    input.left -= static_cast<std::int64_t>(bytes.size());
    return true;
}

bool read(HashedInput& input, std::span<std::byte> bytes) {
    for (std::size_t at = 0; at < bytes.size(); at += chunkBytes) {
        const std::span<std::byte> chunk = bytes.subspan(at, std::min(chunkBytes, bytes.size() - at));
        if (!readPlain(input, chunk)) {
            return false;
        }
        input.hash = hashOfChunk(chunk, input.hash);
    }
    return true;
}

template <typename T>
bool readValue(HashedInput& input, T& value) {
    return read(input, std::as_writable_bytes(std::span(&value, 1)));
}

// False when the file does not hold `count` more elements.
template <typename T>
bool readArray(HashedInput& input, std::int64_t count, std::vector<T>& values) {
    if (count < 0 || count > input.left / static_cast<std::int64_t>(sizeof(T))) {
        input.problem = "the file is damaged";
        return false;
    }
    values.resize(static_cast<std::size_t>(count));
    return read(input, std::as_writable_bytes(std::span(values)));
}

void openArranged(const std::string& name, HashedInput& input) {
    input.handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat state {};
    if (input.handle < 0 || ::fstat(input.handle, &state) != 0) {
        input.problem = errno == ENOENT ? "not found" : std::strerror(errno);
    } else if (!S_ISREG(state.st_mode)) {
        input.problem = "not a regular file";
    }
    input.left = state.st_size;
}

bool readHead(HashedInput& input, std::int32_t files, std::uint64_t key) {
    std::array<char, magic.size()> start{};
    std::int32_t version = 0, foundFiles = 0;
    std::uint64_t foundKey = 0;
    if (!readValue(input, start) || !readValue(input, version) || !readValue(input, foundFiles) ||
        !readValue(input, foundKey)) {
        return false;
    }
    if (std::string_view(start.data(), start.size()) != magic || version != layoutVersion) {
        input.problem = "not a file of arranged rows of this version";
    } else if (foundFiles != files || foundKey != key) {
        input.problem = "made from other sensitivity files or standard deviations";
    }
    return input.problem.empty();
}

typedef std::array<std::int64_t, 5> Counts;

Counts countsOf(const BlockedRows& rows) {
    const auto sizeOf = [](const auto& values) { return static_cast<std::int64_t>(values.size()); };
    return {sizeOf(rows.slabs), sizeOf(rows.groups), sizeOf(rows.usedColumns), sizeOf(rows.wordsBeforeTile),
            sizeOf(rows.wordsBeforeBand)};
}

bool readLists(HashedInput& input, const Counts& counts, BlockedRows& rows) {
    return readArray(input, counts[0], rows.slabs) && readArray(input, counts[1], rows.groups) &&
           readArray(input, counts[2], rows.usedColumns) && readArray(input, counts[3], rows.wordsBeforeTile) &&
           readArray(input, counts[4], rows.wordsBeforeBand);
}

bool readRows(HashedInput& input, std::span<std::int32_t> words, std::vector<BlockedRows>& blocked) {
    std::vector<Counts> counts(blocked.size());
    std::int64_t wordCount = 0;
    for (Counts& of : counts) {
        if (!readValue(input, of)) {
            return false;
        }
    }
    if (!readValue(input, wordCount)) {
        return false;
    }
    for (std::size_t file = 0; file < blocked.size(); ++file) {
        if (!readLists(input, counts[file], blocked[file])) {
            return false;
        }
    }
    if (wordCount < 0 || wordCount > static_cast<std::int64_t>(words.size())) {
        input.problem = "the file is damaged";
        return false;
    }
    return read(input, std::as_writable_bytes(words.first(static_cast<std::size_t>(wordCount))));
}

bool checkHash(HashedInput& input) {
    std::uint64_t stored = 0;
    const std::uint64_t computed = input.hash;
    if (!readPlain(input, std::as_writable_bytes(std::span(&stored, 1)))) {
        return false;
    }
    if (stored != computed || input.left != 0) {
        input.problem = "the file is damaged: its hash differs";
    }
    return input.problem.empty();
}

// Output with its running hash.
struct HashedOutput {
    OutputFile file;
    std::uint64_t hash = fnvStart;
};

void append(HashedOutput& output, std::span<const std::byte> bytes) {
    for (std::size_t at = 0; at < bytes.size(); at += chunkBytes) {
        const std::span<const std::byte> chunk = bytes.subspan(at, std::min(chunkBytes, bytes.size() - at));
        output.hash = hashOfChunk(chunk, output.hash);
        appendOutput(output.file, {reinterpret_cast<const char*>(chunk.data()), chunk.size()});
    }
}

std::size_t wordsInUse(const Sensitivity& sensitivity) {
    std::int64_t end = 0;
    for (const BlockedRows& rows : sensitivity.store.blocked) {
        for (const RowGroup& group : rows.groups) {
            end = std::max(end, group.firstWord + wordsOfGroup(group));
        }
    }
    return static_cast<std::size_t>(end);
}

}  // namespace

std::uint64_t arrangedKeyOf(const Sensitivity& sensitivity, std::span<const float> obsStd) {
    std::uint64_t key = hashOf(std::as_bytes(obsStd), fnvStart);
    key = hashOf(std::as_bytes(std::span(sensitivity.store.rowOffset)), key);
    key = hashOf(bytesOf(sensitivity.header.nPadTotal), key);
    for (std::int32_t file = 0; file < sensitivity.nMtx; ++file) {
        const BinaryInput& input = sensitivity.files[static_cast<std::size_t>(file)].input;
        struct stat state {};
        if (::fstat(input.handle, &state) != 0) {
            throw RunError(input.name + ": cannot be read: " + std::strerror(errno));
        }
        const std::array<std::int64_t, 3> numbers{state.st_size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec};
        key = hashOfSamples(input, hashOf(bytesOf(numbers), key));
    }
    return key;
}

bool readArrangedRows(const std::string& name, std::uint64_t key, Sensitivity& sensitivity, std::string& reason) {
    SparseCoefStore& store = sensitivity.store;
    HashedInput input;
    openArranged(name, input);
    std::vector<BlockedRows> blocked(static_cast<std::size_t>(sensitivity.nMtx));
    const std::span<std::int32_t> words(store.words.get(), wordsOf(store).size());
    if (!input.problem.empty() || !readHead(input, sensitivity.nMtx, key) || !readRows(input, words, blocked) ||
        !checkHash(input)) {
        reason = name + ": " + input.problem;
        return false;
    }
    std::size_t mostColumns = 0;
    for (const BlockedRows& rows : blocked) {
        mostColumns = std::max(mostColumns, rows.usedColumns.size());
    }
    store.compact.assign(mostColumns, 0.0);
    store.blocked = std::move(blocked);
    return true;
}

void writeArrangedRows(const std::string& name, std::uint64_t key, const Sensitivity& sensitivity) {
    HashedOutput output;
    openOutputFile(output.file, name);
    append(output, std::as_bytes(std::span(magic)));
    append(output, bytesOf(layoutVersion));
    append(output, bytesOf(sensitivity.nMtx));
    append(output, bytesOf(key));
    const std::vector<BlockedRows>& blocked = sensitivity.store.blocked;
    for (const BlockedRows& rows : blocked) {
        append(output, bytesOf(countsOf(rows)));
    }
    const std::size_t wordCount = wordsInUse(sensitivity);
    append(output, bytesOf(static_cast<std::int64_t>(wordCount)));
    for (const BlockedRows& rows : blocked) {
        append(output, std::as_bytes(std::span(rows.slabs)));
        append(output, std::as_bytes(std::span(rows.groups)));
        append(output, std::as_bytes(std::span(rows.usedColumns)));
        append(output, std::as_bytes(std::span(rows.wordsBeforeTile)));
        append(output, std::as_bytes(std::span(rows.wordsBeforeBand)));
    }
    append(output, std::as_bytes(wordsOf(sensitivity.store).first(wordCount)));
    const std::span<const std::byte> hash = bytesOf(output.hash);
    appendOutput(output.file, {reinterpret_cast<const char*>(hash.data()), hash.size()});
    finishOutputFile(output.file);
}

void readOrBuildRows(Sensitivity& sensitivity, std::span<const float> obsStd) {
    if (sensitivity.idisk != 0) {
        return;
    }
    const std::uint64_t key = arrangedKeyOf(sensitivity, obsStd);
    std::string reason;
    if (readArrangedRows(arrangedRowsName, key, sensitivity, reason)) {
        for (std::size_t file = 0; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
            closeBinaryInput(sensitivity.files[file].input);
        }
        return;
    }
    loadRows(sensitivity);
    buildBlockedRows(sensitivity, obsStd);
    warningLine(reason + "; the rows are arranged anew and written there");
    writeArrangedRows(arrangedRowsName, key, sensitivity);
}

}  // namespace voxlith
