#include "sensitivity/rows/disk_rows.h"

#include <string>

#include "formats/mtx/binary_input.h"
#include "formats/mtx/mtx_checks.h"

namespace voxlith {

namespace {

constexpr std::int64_t coefficientBytes = 8;
constexpr std::int64_t frameMarkBytes = 4;

void requireSpace(SparseCoefStore& store, std::size_t count) {
    if (store.capacity >= static_cast<std::int64_t>(count)) {
        return;
    }
    reserveStore(store, static_cast<std::int64_t>(count), 0);
}

// Reads the count and the coefficients that follow it, up to byte `end` at most. The row stands until more than
// `bytesAfter` further bytes are read.
DiskRow readRowBody(Sensitivity& sensitivity, BinaryInput& input, std::int64_t end, std::size_t bytesAfter) {
    const std::int32_t rowCount = readInt32(input, "the count of a coefficient row");
    if (rowCount <= 0) {
        return {};
    }
    if (rowCount > (end - input.position) / coefficientBytes) {
        throwDamage(input, "the count of a coefficient row that fits the file", std::to_string(rowCount));
    }
    const auto count = static_cast<std::size_t>(rowCount);
    const std::int64_t positions = sensitivity.header.nPadded;
    const std::int64_t firstByte = input.position;
    // Most rows are used where they were read to; only one longer than the read-ahead needs the buffers of the store.
    if (const std::byte* const held = viewBytes(input, 8 * count + bytesAfter, "the coefficients of a row")) {
        seekBinary(input, input.position - static_cast<std::int64_t>(bytesAfter));
        const auto* const coefIndex = reinterpret_cast<const std::int32_t*>(held);
        requireCoefIndices(input, firstByte, {coefIndex, count}, positions);
        return {coefIndex, coefIndex + count, count};
    }
    SparseCoefStore& store = sensitivity.store;
    requireSpace(store, count);
    std::int32_t* const coefIndex = store.words.get();
    std::int32_t* const coefValue = coefIndex + count;
    readBytes(input, coefIndex, count * sizeof(std::int32_t), "the indices of a coefficient row");
    requireCoefIndices(input, firstByte, {coefIndex, count}, positions);
    readBytes(input, coefValue, count * sizeof(float), "the values of a coefficient row");
    return {coefIndex, coefValue, count};
}

DiskRow readFramedRow(Sensitivity& sensitivity, BinaryInput& input) {
    const std::int32_t length = readInt32(input, "the length of a coefficient record");
    const std::int64_t end = input.position + length;
    if (length < frameMarkBytes || end > input.size - frameMarkBytes) {
        throwDamage(input, "the length of a coefficient record", std::to_string(length));
    }
    const DiskRow row = readRowBody(sensitivity, input, end, frameMarkBytes);
    if (input.position != end) {
        seekBinary(input, end);
    }
    const std::int32_t closing = readInt32(input, "the closing length of a coefficient record");
    if (closing != length) {
        throwDamage(input, "the closing record length " + std::to_string(length), std::to_string(closing));
    }
    return row;
}

}  // namespace

void rewindRows(Sensitivity& sensitivity, std::size_t mtx) {
    seekBinary(sensitivity.files[mtx], sensitivity.header.rowStart[mtx]);
}

DiskRow readNextRow(Sensitivity& sensitivity, std::size_t mtx) {
    BinaryInput& input = sensitivity.files[mtx];
    return sensitivity.header.recordForm ? readFramedRow(sensitivity, input)
                                         : readRowBody(sensitivity, input, input.size, 0);
}

}  // namespace voxlith
