#include "forward/stored_rows.h"

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/messages.h"

namespace voxlith {

namespace {

void readAt(const StoredFile& file, void* to, std::size_t bytes, std::int64_t offset) {
    auto* next = static_cast<char*>(to);
    while (bytes > 0) {
        const ssize_t got = ::pread(file.handle, next, bytes, offset);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            throw RunError(file.name + ": expected a row at byte " + std::to_string(offset) + ", found " +
                           (got == 0 ? "the end of the file" : std::strerror(errno)));
        }
        next += got;
        offset += got;
        bytes -= static_cast<std::size_t>(got);
    }
}

bool indicesRise(const std::vector<std::int32_t>& coefIndex, std::size_t paddedCells) {
    std::int32_t last = 0;
    for (const std::int32_t index : coefIndex) {
        if (index <= last || static_cast<std::size_t>(index) > paddedCells) {
            return false;
        }
        last = index;
    }
    return true;
}

}  // namespace

StoredFile::StoredFile(const std::string& fileName)
    : name(fileName), handle(::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (handle < 0) {
        throw RunError(name + ": cannot be opened: " + std::strerror(errno));
    }
}

StoredFile::~StoredFile() {
    if (handle >= 0) {
        ::close(handle);
    }
}

StoredFile::StoredFile(StoredFile&& other) noexcept
    : name(std::move(other.name)), handle(std::exchange(other.handle, -1)) {}

namespace {

constexpr std::uint64_t checkPrime = 0x100000001b3U;

}  // namespace

std::uint64_t addToCheck(std::uint64_t check, std::span<const double> values) {
    for (const double value : values) {
        check = (check ^ std::bit_cast<std::uint64_t>(value)) * checkPrime;
    }
    return check;
}

std::uint64_t rowCheck(const std::vector<std::int32_t>& coefIndex, const std::vector<float>& coefValue) {
    constexpr std::uint64_t start = 0xcbf29ce484222325U;
    std::uint64_t check = start;
    for (std::size_t n = 0; n < coefIndex.size(); ++n) {
        check = (check ^ static_cast<std::uint32_t>(coefIndex[n])) * checkPrime;
        check = (check ^ std::bit_cast<std::uint32_t>(coefValue[n])) * checkPrime;
    }
    return check;
}

void readStoredRow(const StoredRows& stored, std::size_t row, std::size_t paddedCells, CompressedRow& compressed) {
    const StoredRow& place = stored.rows[row];
    const StoredFile& file = stored.files[place.file];
    const auto count = static_cast<std::size_t>(place.count);
    std::int32_t found = 0;
    readAt(file, &found, sizeof found, place.offset);
    compressed.coefIndex.resize(count);
    compressed.coefValue.resize(count);
    const auto first = static_cast<std::int64_t>(sizeof found);
    readAt(file, compressed.coefIndex.data(), 4 * count, place.offset + first);
    readAt(file, compressed.coefValue.data(), 4 * count, place.offset + first + static_cast<std::int64_t>(4 * count));
    if (found != place.count || !indicesRise(compressed.coefIndex, paddedCells) ||
        (place.checked && rowCheck(compressed.coefIndex, compressed.coefValue) != place.check)) {
        throw RunError(file.name + ": the row at byte " + std::to_string(place.offset) + " is damaged");
    }
    compressed.loss = stored.loss[row];
}

std::int64_t storedRowLength(MtxForm form, std::int32_t count) {
    return 4 + 8 * std::int64_t{count} + 2 * bytesBeforeCount(form);
}

std::int64_t bytesBeforeCount(MtxForm form) {
    return form == MtxForm::record ? 4 : 0;
}

}  // namespace voxlith
