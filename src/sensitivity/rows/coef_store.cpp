#include "sensitivity/rows/coef_store.h"

#include <algorithm>
#include <cassert>
#include <stdexcept>

#include "base/ranks.h"

namespace voxlith {

namespace {

std::span<std::int32_t> allWords(const SparseCoefStore& store) {
    return {store.words.get(), static_cast<std::size_t>(2 * store.capacity + store.headroomWords)};
}

std::int64_t headroomFor(const SparseCoefStore& store, RankOrder order) {
    return order == RankOrder::inTurn ? headroomWordsInTurn(store.rowOffset) : headroomWordsFor(store.rowOffset);
}

}  // namespace

void reserveStore(SparseCoefStore& store, std::int64_t capacity, std::int64_t headroomWords) {
    assert(capacity >= 0 && headroomWords >= 0);
    store.words.reset();
    store.capacity = 0;
    store.headroomWords = 0;
    const auto words = static_cast<std::size_t>(2 * capacity + headroomWords);
    store.words = std::make_unique_for_overwrite<std::int32_t[]>(words);
    adviseHugePages(store.words.get(), words * sizeof(std::int32_t));
    store.capacity = capacity;
    store.headroomWords = headroomWords;
}

void reserveRows(SparseCoefStore& store, RankOrder order) {
    reserveStore(store, store.rowOffset.back() - 1, headroomFor(store, order));
}

std::pair<std::size_t, std::size_t> rowsOfRank(const SparseCoefStore& store, std::size_t file, std::size_t rank) {
    const std::size_t entry = file * (ranksOfRun().count + 1) + rank;
    assert(entry + 1 < store.firstRowOfRank.size());
    return {store.firstRowOfRank[entry], store.firstRowOfRank[entry + 1]};
}

std::span<const std::int32_t> wordsOf(const SparseCoefStore& store) {
    return store.mapped.empty() ? allWords(store) : store.mapped;
}

RawRow rawRowOf(SparseCoefStore& store, std::size_t entry) {
    assert(entry + 1 < store.rowOffset.size() && store.rowOffset[entry + 1] - 1 <= store.capacity);
    const auto first = static_cast<std::size_t>(store.headroomWords + 2 * (store.rowOffset[entry] - 1));
    const auto length = static_cast<std::size_t>(store.rowOffset[entry + 1] - store.rowOffset[entry]);
    std::int32_t* const row = store.words.get() + first;
    return {{row, length}, {row + length, length}};
}

bool buildBlockedRows(SparseCoefStore& store, std::size_t nData, std::size_t files, std::size_t paddedCount,
                      std::span<const float> divisor, RankOrder order) {
    assert(store.rowOffset.size() >= files * (nData + 1));
    if (store.headroomWords < headroomFor(store, order)) {
        throw std::logic_error("the store has not enough headroom to build blocked rows");
    }
    const std::span<std::int32_t> words = allWords(store);
    std::vector<BlockedRows> blocked(files);
    std::vector<std::int64_t> rowLength(nData);
    std::int64_t targetWord = 0;
    std::size_t mostColumns = 0;
    bool sameLayout = true;
    for (std::size_t file = 0; file < files; ++file) {
        const std::int64_t* const offset = store.rowOffset.data() + file * (nData + 1);
        for (std::size_t r = 0; r < nData; ++r) {
            rowLength[r] = offset[r + 1] - offset[r];
        }
        RawRows raw{store.headroomWords + 2 * (offset[0] - 1), rowLength, {}};
        if (divisor.size() >= (file + 1) * nData) {
            raw.divisor = divisor.subspan(file * nData, nData);
        }
        const BlockedEnd end = blockRows(words, raw, targetWord, paddedCount, order, blocked[file]);
        targetWord = end.word;
        sameLayout = sameLayout && end.everyTileFits;
        mostColumns = std::max(mostColumns, blocked[file].usedColumns.size());
    }
    releasePages(words.data() + targetWord, words.subspan(static_cast<std::size_t>(targetWord)).size_bytes());
    store.compact.assign(mostColumns, 0.0);
    store.blocked = std::move(blocked);
    return ranksOfRun().count == 1 || order == RankOrder::inTurn || sameLayout;
}

}  // namespace voxlith
