#include "sensitivity/row_loading.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <stdexcept>

namespace voxlith {

namespace {

// The entries of rowOffset of one file: nData + 1.
std::span<std::int64_t> offsetsOf(Sensitivity& sensitivity, std::size_t file) {
    const auto entries = static_cast<std::size_t>(sensitivity.header.nData) + 1;
    return std::span(sensitivity.store.rowOffset).subspan(file * entries, entries);
}

void loadFile(Sensitivity& sensitivity, std::size_t file) {
    constexpr std::size_t rowsAtOnce = 256;
    const std::span<const std::int64_t> offsets = offsetsOf(sensitivity, file);
    if (offsets.back() - 1 > sensitivity.store.capacity) {
        throw std::logic_error("the store of the coefficients is smaller than the rows counted");
    }
    rewindMtxRows(sensitivity.files[file]);
    const std::size_t firstEntry = file * offsets.size();
    const std::size_t endEntry = firstEntry + offsets.size() - 1;
    std::array<RawRow, rowsAtOnce> rows;
    for (std::size_t entry = firstEntry; entry < endEntry;) {
        const std::size_t count = std::min(rowsAtOnce, endEntry - entry);
        for (std::size_t r = 0; r < count; ++r) {
            rows[r] = rawRowOf(sensitivity.store, entry + r);
        }
        readMtxRows(sensitivity.files[file], std::span(rows).first(count));
        entry += count;
    }
}

}  // namespace

void countRows(Sensitivity& sensitivity, std::size_t file) {
    const std::span<std::int64_t> offsets = offsetsOf(sensitivity, file);
    offsets[0] = file == 0 ? 1 : offsetsOf(sensitivity, file - 1).back();
    sensitivity.store.rowMax = scanMtxRows(sensitivity.files[file], offsets);
    sensitivity.header.coefficientCount[file] = offsets.back() - offsets.front();
}

void loadRows(Sensitivity& sensitivity) {
    for (std::size_t file = 0; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
        loadFile(sensitivity, file);
        closeBinaryInput(sensitivity.files[file].input);
    }
}

}  // namespace voxlith
