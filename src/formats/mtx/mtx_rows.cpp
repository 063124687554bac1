#include <algorithm>
#include <array>
#include <cassert>
#include <numeric>
#include <string>

#include "formats/mtx/mtx_checks.h"
#include "formats/mtx/mtx_reader.h"
#include "formats/mtx/mtx_record.h"

namespace voxlith {

namespace {

constexpr std::string_view rowCountText = "the count of a row";
constexpr std::string_view coefficientsText = "the coefficients of a row";
constexpr std::string_view indicesText = "the indices of a row";
constexpr std::string_view valuesText = "the values of a row";
constexpr std::string_view denseValuesText = "the values of a dense row";

void skip(BinaryInput& input, std::int64_t bytes, std::string_view what) {
    requireBytes(input, bytes, what);
    seekBinary(input, input.position + bytes);
}

// The count of the row at the present position, negative for a dense row; on to the next row.
std::int32_t scanRow(MtxInput& file) {
    BinaryInput& input = file.input;
    if (file.header.form == MtxForm::record) {
        const std::int32_t count = beginRecordRow(input);
        seekBinary(input, input.position + std::int64_t{8} * count);
        endRecordRow(input, count);
        return count;
    }
    const std::int32_t count = readInt32(input, rowCountText);
    skip(input, count < 0 ? 4 * file.header.nPadTotal() : std::int64_t{8} * count, coefficientsText);
    return count;
}

// Rows are read straight to where they belong, with one request to the system for about a megabyte of them. Returns
// how many; the position is after them. 0 where readStreamRow must take the next row: it is empty, may be dense, or is
// not what the scan has counted.
std::size_t readSparseRows(MtxInput& file, std::span<const RawRow> rows) {
    constexpr std::size_t rowsAtOnce = 256;
    constexpr std::size_t bytesAtOnce = std::size_t{1} << 20;  // still in the cache when the indices are checked
    BinaryInput& input = file.input;
    std::array<std::int32_t, rowsAtOnce> counts{};
    std::array<iovec, 3 * rowsAtOnce> parts{};
    std::size_t chosen = 0;
    for (std::size_t bytes = 0; chosen < std::min(rowsAtOnce, rows.size()) && bytes < bytesAtOnce; ++chosen) {
        const RawRow& row = rows[chosen];
        if (row.coefIndex.empty() || static_cast<std::int64_t>(row.coefIndex.size()) >= file.header.nPadTotal()) {
            break;
        }
        parts[3 * chosen] = {&counts[chosen], sizeof counts[chosen]};
        parts[3 * chosen + 1] = {row.coefIndex.data(), row.coefIndex.size_bytes()};
        parts[3 * chosen + 2] = {row.coefValue.data(), row.coefValue.size_bytes()};
        bytes += row.coefIndex.size_bytes() + row.coefValue.size_bytes();
    }
    std::int64_t byte = input.position;
    if (chosen == 0 || !readScattered(input, std::span(parts).first(3 * chosen))) {
        return 0;
    }
    std::size_t taken = 0;
    for (; taken < chosen; ++taken) {
        const RawRow& row = rows[taken];
        if (counts[taken] != static_cast<std::int32_t>(row.coefIndex.size())) {
            break;
        }
        requireCoefIndices(input, byte + 4, row.coefIndex, file.header.nPadded());
        byte += 4 + static_cast<std::int64_t>(row.coefIndex.size_bytes() + row.coefValue.size_bytes());
    }
    seekBinary(input, byte);
    return taken;
}

void readSparseRow(MtxInput& file, std::int64_t count, const RawRow& row) {
    BinaryInput& input = file.input;
    requireBytes(input, 8 * count, coefficientsText);
    const std::size_t taken = std::min(static_cast<std::size_t>(count), row.coefIndex.size());
    const std::int64_t left = 4 * (count - static_cast<std::int64_t>(taken));
    const std::int64_t firstByte = input.position;
    readBytes(input, row.coefIndex.data(), 4 * taken, indicesText);
    requireCoefIndices(input, firstByte, row.coefIndex.first(taken), file.header.nPadded());
    skip(input, left, indicesText);
    readBytes(input, row.coefValue.data(), 4 * taken, valuesText);
    skip(input, left, valuesText);
    // Counts differ only where an empty row has put the reading out of step: entries without a coefficient add nothing.
    std::fill(row.coefIndex.begin() + static_cast<std::ptrdiff_t>(taken), row.coefIndex.end(), 1);
    std::fill(row.coefValue.begin() + static_cast<std::ptrdiff_t>(taken), row.coefValue.end(), 0);
}

// Compatibility: a row of count 0 is empty for the scan but is read here like a dense one.
void readStreamRow(MtxInput& file, const RawRow& row) {
    BinaryInput& input = file.input;
    const std::int64_t byte = input.position;
    const std::int32_t count = readInt32(input, rowCountText);
    if (count > 0) {
        readSparseRow(file, count, row);
        return;
    }
    const std::int64_t denseCount = file.header.nPadTotal();
    if (static_cast<std::int64_t>(row.coefIndex.size()) > denseCount) {
        throwDamageAt(input, byte, "the count " + std::to_string(row.coefIndex.size()) + " of a row",
                      std::to_string(count));
    }
    std::iota(row.coefIndex.begin(), row.coefIndex.end(), 1);
    requireBytes(input, 4 * denseCount, denseValuesText);
    readBytes(input, row.coefValue.data(), row.coefValue.size_bytes(), denseValuesText);
    skip(input, 4 * (denseCount - static_cast<std::int64_t>(row.coefValue.size())), denseValuesText);
}

void readCountedRecordRow(MtxInput& file, const RawRow& row) {
    const std::int64_t byte = file.input.position;
    if (readRecordRow(file, row) != row.coefIndex.size()) {
        throwDamageAt(file.input, byte, "a row of " + std::to_string(row.coefIndex.size()) + " coefficients",
                      "another count than when the rows were counted");
    }
}

// Reads the count and the coefficients that follow it, up to byte `end` at most. The row stays in place until more than
// `bytesAfter` further bytes are read.
MtxRowView viewRow(MtxInput& file, std::int64_t end, std::size_t bytesAfter, std::span<std::int32_t> buffer) {
    BinaryInput& input = file.input;
    const std::int32_t rowCount = readInt32(input, "the count of a coefficient row");
    if (rowCount <= 0) {
        return {};
    }
    if (rowCount > (end - input.position) / 8) {
        throwDamage(input, "the count of a coefficient row that fits the file", std::to_string(rowCount));
    }
    const auto count = static_cast<std::size_t>(rowCount);
    const std::int64_t firstByte = input.position;
    if (const std::byte* const row = viewBytes(input, 8 * count + bytesAfter, coefficientsText)) {
        seekBinary(input, input.position - static_cast<std::int64_t>(bytesAfter));
        const auto* const coefIndex = reinterpret_cast<const std::int32_t*>(row);
        requireCoefIndices(input, firstByte, {coefIndex, count}, file.header.nPadded());
        return {coefIndex, coefIndex + count, count};
    }
    if (buffer.size() < 2 * count) {
        return {nullptr, nullptr, count};
    }
    readBytes(input, buffer.data(), count * sizeof(std::int32_t), "the indices of a coefficient row");
    requireCoefIndices(input, firstByte, buffer.first(count), file.header.nPadded());
    readBytes(input, buffer.data() + count, count * sizeof(float), "the values of a coefficient row");
    return {buffer.data(), buffer.data() + count, count};
}

MtxRowView viewFramedRow(MtxInput& file, std::span<std::int32_t> buffer) {
    constexpr std::int64_t frameBytes = 4;
    BinaryInput& input = file.input;
    const std::int32_t length = readInt32(input, "the length of a coefficient record");
    const std::int64_t end = input.position + length;
    if (length < frameBytes || end > input.size - frameBytes) {
        throwDamage(input, "the length of a coefficient record", std::to_string(length));
    }
    const MtxRowView row = viewRow(file, end, frameBytes, buffer);
    if (row.count > 0 && row.coefIndex == nullptr) {
        return row;
    }
    seekBinary(input, end);
    const std::int32_t closing = readInt32(input, "the closing length of a coefficient record");
    if (closing != length) {
        throwDamage(input, "the closing record length " + std::to_string(length), std::to_string(closing));
    }
    return row;
}

}  // namespace

std::int32_t scanMtxRows(MtxInput& file, std::span<std::int64_t> rowOffset) {
    assert(static_cast<std::int64_t>(rowOffset.size()) == std::int64_t{file.header.nData} + 1);
    const std::int64_t denseCount = file.header.nPadTotal();
    std::int32_t longest = 0;
    // Only counts are read: 4 bytes a row, or the frames with them, 12 bytes from the end of one record into the next.
    setReadAhead(file.input, file.header.form == MtxForm::record ? 12 : 4);
    for (std::size_t r = 0; r + 1 < rowOffset.size(); ++r) {
        const std::int32_t count = scanRow(file);
        // Compatibility: a dense row takes the place of a longer one before it.
        longest = count < 0 ? static_cast<std::int32_t>(denseCount) : std::max(longest, count);
        rowOffset[r + 1] = rowOffset[r] + (count < 0 ? denseCount : count);
    }
    setReadAhead(file.input, largeReadAhead);
    return longest;
}

std::size_t readRecordRow(MtxInput& file, const RawRow& row) {
    BinaryInput& input = file.input;
    const std::int64_t byte = input.position;
    const std::int32_t count = beginRecordRow(input);
    const auto taken = static_cast<std::size_t>(count);
    if (taken > row.coefIndex.size()) {
        throwDamageAt(input, byte + 4, "a row of at most " + std::to_string(row.coefIndex.size()) + " coefficients",
                      std::to_string(count));
    }
    const std::int64_t firstByte = input.position;
    readBytes(input, row.coefIndex.data(), 4 * taken, indicesText);
    requireCoefIndices(input, firstByte, row.coefIndex.first(taken), file.header.nPadded());
    readBytes(input, row.coefValue.data(), 4 * taken, valuesText);
    endRecordRow(input, count);
    return taken;
}

void readMtxRows(MtxInput& file, std::span<const RawRow> rows) {
    while (!rows.empty()) {
        assert(rows.front().coefIndex.size() == rows.front().coefValue.size());
        std::size_t taken = 0;
        if (file.header.form == MtxForm::record) {
            readCountedRecordRow(file, rows.front());
        } else {
            taken = readSparseRows(file, rows);
            if (taken == 0) {
                readStreamRow(file, rows.front());
            }
        }
        rows = rows.subspan(std::max<std::size_t>(taken, 1));
    }
}

// Compatibility: a row of count 0 is skipped like a dense one, as readStreamRow does.
void skipMtxRows(MtxInput& file, std::size_t rows) {
    BinaryInput& input = file.input;
    const bool inRecords = file.header.form == MtxForm::record;
    setReadAhead(input, inRecords ? 12 : 4);
    for (std::size_t r = 0; r < rows; ++r) {
        if (inRecords) {
            scanRow(file);
            continue;
        }
        const std::int32_t count = readInt32(input, rowCountText);
        skip(input, count > 0 ? std::int64_t{8} * count : 4 * file.header.nPadTotal(), coefficientsText);
    }
    setReadAhead(input, largeReadAhead);
}

MtxRowView nextMtxRow(MtxInput& file, std::span<std::int32_t> buffer) {
    const std::int64_t start = file.input.position;
    const MtxRowView row =
        file.header.form == MtxForm::record ? viewFramedRow(file, buffer) : viewRow(file, file.input.size, 0, buffer);
    if (row.count > 0 && row.coefIndex == nullptr) {
        seekBinary(file.input, start);
    }
    return row;
}

}  // namespace voxlith
