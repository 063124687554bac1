#include "sensitivity/coef_store.h"

#include <algorithm>
#include <new>

namespace voxlith {

void reserveStore(SparseCoefStore& store, std::int64_t capacity) {
    store.words.reset();
    store.capacity = 0;
    const auto words = 2 * static_cast<std::size_t>(capacity);
    store.words = std::make_unique_for_overwrite<std::int32_t[]>(words);
    askForLargePages(store.words.get(), words * sizeof(std::int32_t));
    store.capacity = capacity;
}

std::span<const std::int32_t> wordsOf(const SparseCoefStore& store) {
    return {store.words.get(), static_cast<std::size_t>(2 * store.capacity)};
}

RawRow rawRowOf(SparseCoefStore& store, std::size_t entry) {
    const auto first = static_cast<std::size_t>(store.rowOffset[entry] - 1);
    const auto length = static_cast<std::size_t>(store.rowOffset[entry + 1] - store.rowOffset[entry]);
    std::int32_t* const row = store.words.get() + 2 * first;
    return {{row, length}, {row + length, length}};
}

void arrangeStore(SparseCoefStore& store, std::size_t nData, std::size_t files, std::size_t paddedCount) {
    const std::span words(store.words.get(), static_cast<std::size_t>(2 * store.capacity));
    std::vector<WorkingRows> working(files);
    std::vector<std::int64_t> rowLength(nData);
    std::int64_t targetWord = 0;
    std::size_t mostInUse = 0;
    for (std::size_t file = 0; file < files; ++file) {
        const std::int64_t* const offset = store.rowOffset.data() + file * (nData + 1);
        for (std::size_t r = 0; r < nData; ++r) {
            rowLength[r] = offset[r + 1] - offset[r];
        }
        const std::int64_t rawWord = 2 * (offset[0] - 1);
        targetWord = arrangeRows(words, rawWord, targetWord, rowLength, paddedCount, working[file]);
        mostInUse = std::max(mostInUse, working[file].positionsInUse.size());
    }
    store.compact.assign(mostInUse, 0.0);
    store.working = std::move(working);
}

}  // namespace voxlith
