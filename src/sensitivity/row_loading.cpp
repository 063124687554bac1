#include "sensitivity/row_loading.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/messages.h"
#include "base/ranks.h"
#include "base/workers.h"

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
    MtxInput& mtxFile = sensitivity.files[file];
    if (mtxFile.input.handle < 0) {
        reopenMtxFile(mtxFile);
    }
    rewindMtxRows(mtxFile);
    std::pair<std::size_t, std::size_t> own{0, offsets.size() - 1};
    if (ranksOfRun().count > 1) {
        own = rowsOfRank(sensitivity.store, file, ranksOfRun().rank);
        skipMtxRows(mtxFile, own.first);
    }
    const std::size_t firstEntry = file * offsets.size() + own.first;
    const std::size_t endEntry = file * offsets.size() + own.second;
    std::array<RawRow, rowsAtOnce> rows;
    for (std::size_t entry = firstEntry; entry < endEntry;) {
        const std::size_t count = std::min(rowsAtOnce, endEntry - entry);
        for (std::size_t r = 0; r < count; ++r) {
            rows[r] = rawRowOf(sensitivity.store, entry + r);
        }
        readMtxRows(mtxFile, std::span(rows).first(count));
        entry += count;
    }
}

// The first row of each rank, and the number of rows.
std::vector<std::size_t> splitRows(std::span<const std::int64_t> offsets, std::size_t ranks) {
    const std::size_t rows = offsets.size() - 1;
    std::vector<std::int64_t> before;  // coefficients before each slab
    for (std::size_t row = 0; row < rows; row += slabRows) {
        before.push_back(offsets[row]);
    }
    before.push_back(offsets[rows]);
    std::vector<std::size_t> first(ranks + 1, rows);
    for (std::size_t rank = 0; rank < ranks; ++rank) {
        first[rank] = std::min(rows, startOfPiece(before, rank, ranks) * slabRows);
    }
    return first;
}

}  // namespace

void keepOwnRows(Sensitivity& sensitivity) {
    const Ranks& ranks = ranksOfRun();
    if (ranks.count == 1) {
        return;
    }
    sensitivity.store.firstRowOfRank.clear();
    std::int64_t end = 1;
    for (std::size_t file = 0; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
        const std::span<std::int64_t> offsets = offsetsOf(sensitivity, file);
        const std::vector<std::size_t> first = splitRows(offsets, ranks.count);
        std::vector<std::size_t>& all = sensitivity.store.firstRowOfRank;
        all.insert(all.end(), first.begin(), first.end());
        const std::int64_t removed = offsets[first[ranks.rank]] - end;
        const std::int64_t ownEnd = offsets[first[ranks.rank + 1]];
        for (std::int64_t& offset : offsets) {
            offset = std::clamp(offset, end + removed, ownEnd) - removed;
        }
        end = offsets.back();
    }
}

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
