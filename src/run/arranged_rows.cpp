#include "run/arranged_rows.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

#include "base/messages.h"
#include "base/output_file.h"
#include "run/fast_hash.h"
#include "sensitivity/products.h"
#include "sensitivity/row_loading.h"

namespace voxlith {

namespace {

constexpr std::string_view magic = "VOXLITHR";
constexpr std::int32_t layoutVersion = 2;
constexpr int unusableFile = 2;  // exit status

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

// Where SIGBUS comes from a mapped file and not from anything else. A handler can reach nothing but globals.
std::span<const std::byte> watchedBytes;

void endWithoutFile(int signal, siginfo_t* info, void* /*context*/) {
    constexpr std::string_view text =
        "voxlith-run: voxlith.arranged: a part of the file can no longer be read; voxlith-run --continue goes on from "
        "the last checkpoint\n";
    const auto* const address = static_cast<const std::byte*>(info->si_addr);
    if (std::less<>()(address, watchedBytes.data()) ||
        !std::less<>()(address, watchedBytes.data() + watchedBytes.size())) {
        std::signal(signal, SIG_DFL);  // what caused it happens again
        return;
    }
    static_cast<void>(::write(STDERR_FILENO, text.data(), text.size()));
    ::_exit(unusableFile);
}

void watchPages(std::span<const std::byte> bytes) {
    watchedBytes = bytes;
    struct sigaction action {};
    action.sa_sigaction = endWithoutFile;
    action.sa_flags = SA_SIGINFO;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGBUS, &action, nullptr);
}

// The mapped file with its running hash; `problem` has the first reason why it is no use.
struct HashedInput {
    std::span<const std::byte> left;
    std::uint64_t hash = hashStart;
    std::string problem;
};

// The next bytes; nothing when the file does not hold so many.
std::span<const std::byte> takePlain(HashedInput& input, std::size_t bytes) {
    if (bytes > input.left.size()) {
        input.problem = "the file is cut";
        return {};
    }
    const std::span<const std::byte> taken = input.left.first(bytes);
    input.left = input.left.subspan(bytes);
    return taken;
}

std::span<const std::byte> take(HashedInput& input, std::size_t bytes) {
    const std::span<const std::byte> taken = takePlain(input, bytes);
    input.hash = hashOf(taken, input.hash);
    return taken;
}

template <typename T>
bool readValue(HashedInput& input, T& value) {
    const std::span<const std::byte> taken = take(input, sizeof value);
    if (!taken.empty()) {
        std::memcpy(&value, taken.data(), sizeof value);
    }
    return !taken.empty();
}

// False when the file does not hold `count` more elements.
template <typename T>
bool holds(HashedInput& input, std::int64_t count) {
    if (count < 0 || static_cast<std::uint64_t>(count) > input.left.size() / sizeof(T)) {
        input.problem = "the file is damaged";
    }
    return input.problem.empty();
}

template <typename T>
bool readArray(HashedInput& input, std::int64_t count, std::vector<T>& values) {
    if (!holds<T>(input, count)) {
        return false;
    }
    values.resize(static_cast<std::size_t>(count));
    const std::span<const std::byte> taken = take(input, values.size() * sizeof(T));
    std::copy(taken.begin(), taken.end(), std::as_writable_bytes(std::span(values)).begin());
    return true;
}

void unmap(MappedRows& file) {
    if (!file.bytes.empty()) {
        ::munmap(const_cast<std::byte*>(file.bytes.data()), file.bytes.size());
        file.bytes = {};
        watchedBytes = {};
    }
    if (file.handle >= 0) {
        ::close(file.handle);
        file.handle = -1;
    }
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

bool readRows(HashedInput& input, std::vector<BlockedRows>& blocked, std::span<const std::int32_t>& words) {
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
    if (!holds<std::int32_t>(input, wordCount)) {
        return false;
    }
    // All that stands before is a whole number of words.
    const auto count = static_cast<std::size_t>(wordCount);
    words = {reinterpret_cast<const std::int32_t*>(take(input, count * sizeof(std::int32_t)).data()), count};
    return true;
}

bool checkHash(HashedInput& input) {
    const std::span<const std::byte> stored = takePlain(input, sizeof input.hash);
    if (stored.empty()) {
        return false;
    }
    if (std::memcmp(stored.data(), &input.hash, stored.size()) != 0 || !input.left.empty()) {
        input.problem = "the file is damaged: its hash differs";
    }
    return input.problem.empty();
}

// Output with its running hash.
struct HashedOutput {
    OutputFile file;
    std::uint64_t hash = hashStart;
};

void append(HashedOutput& output, std::span<const std::byte> bytes) {
    output.hash = hashOf(bytes, output.hash);
    appendOutput(output.file, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
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
    std::uint64_t key = hashOf(std::as_bytes(obsStd), hashStart);
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

std::string mapFile(const std::string& name, MappedRows& file) {
    file.handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file.handle < 0 || ::fstat(file.handle, &file.state) != 0) {
        return errno == ENOENT ? "not found" : std::strerror(errno);
    }
    if (!S_ISREG(file.state.st_mode)) {
        return "not a regular file";
    }
    if (file.state.st_size == 0) {
        return "the file is cut";
    }
    const auto bytes = static_cast<std::size_t>(file.state.st_size);
    void* const start = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED | MAP_POPULATE, file.handle, 0);
    if (start == MAP_FAILED) {
        return std::strerror(errno);
    }
    file.bytes = {static_cast<const std::byte*>(start), bytes};
    watchPages(file.bytes);
    return {};
}

MappedRows::~MappedRows() {
    unmap(*this);
}

bool readArrangedRows(const std::string& name, std::uint64_t key, MappedRows& file, Sensitivity& sensitivity,
                      std::string& reason) {
    SparseCoefStore& store = sensitivity.store;
    HashedInput input;
    input.problem = mapFile(name, file);
    input.left = file.bytes;
    std::vector<BlockedRows> blocked(static_cast<std::size_t>(sensitivity.nMtx));
    std::span<const std::int32_t> words;
    if (!input.problem.empty() || !readHead(input, sensitivity.nMtx, key) || !readRows(input, blocked, words) ||
        !checkHash(input)) {
        reason = name + ": " + input.problem;
        unmap(file);
        return false;
    }
    store.mapped = words;
    std::size_t mostColumns = 0;
    for (const BlockedRows& rows : blocked) {
        mostColumns = std::max(mostColumns, rows.usedColumns.size());
    }
    store.compact.assign(mostColumns, 0.0);
    store.blocked = std::move(blocked);
    return true;
}

void requireUnchanged(const MappedRows& file) {
    struct stat now {};
    if (file.bytes.empty() || ::fstat(file.handle, &now) != 0) {
        return;
    }
    if (now.st_size != file.state.st_size || now.st_mtim.tv_sec != file.state.st_mtim.tv_sec ||
        now.st_mtim.tv_nsec != file.state.st_mtim.tv_nsec) {
        throw RunError(std::string(arrangedRowsName) +
                       ": was written to while the run used it: the results may be wrong; run again");
    }
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

void readOrBuildRows(Sensitivity& sensitivity, std::span<const float> obsStd, MappedRows& file) {
    if (sensitivity.idisk != 0) {
        return;
    }
    const std::uint64_t key = arrangedKeyOf(sensitivity, obsStd);
    std::string reason;
    sensitivity.store.words.reset();  // address space for the file
    if (readArrangedRows(arrangedRowsName, key, file, sensitivity, reason)) {
        for (std::size_t mtx = 0; mtx < static_cast<std::size_t>(sensitivity.nMtx); ++mtx) {
            closeBinaryInput(sensitivity.files[mtx].input);
        }
        return;
    }
    reserveRows(sensitivity.store);
    loadRows(sensitivity);
    buildBlockedRows(sensitivity, obsStd);
    warningLine(reason + "; the rows are arranged anew and written there");
    writeArrangedRows(arrangedRowsName, key, sensitivity);
}

}  // namespace voxlith
