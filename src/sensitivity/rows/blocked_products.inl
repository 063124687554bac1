// The kernels of blocked_products.h, compiled for each instruction set by simd/compile_kernels.h.
namespace voxlith::VOXLITH_SET {

namespace {

// Single loads: they are faster than the gather instruction.
Lanes loadModel(const std::int32_t* block, const double* band) {
    return makeLanes(band[columnAt(block, 0)], band[columnAt(block, 1)], band[columnAt(block, 2)],
                     band[columnAt(block, 3)], band[columnAt(block, 4)], band[columnAt(block, 5)],
                     band[columnAt(block, 6)], band[columnAt(block, 7)]);
}

// Fetches the words of a later block. They are read once and in order, but the hardware prefetcher ends at every page,
// and so much is computed with each word that the processor does not look far ahead by itself.
template <std::size_t rows>
void prefetchWords(const std::int32_t* block) {
    constexpr std::int64_t wordsAhead = 1024, wordsOfLine = 16;
    constexpr int read = 0, toSecondLevel = 2;
    for (std::int64_t word = 0; word < wordsOfBlock(rows); word += wordsOfLine) {
        __builtin_prefetch(block + wordsAhead + word, read, toSecondLevel);
    }
}

template <std::size_t rows>
void multiplyBlocks(const std::int32_t* block, std::int64_t blocks, const double* band, double* rowLanes) {
    Lanes sum[rows];
    for (std::size_t g = 0; g < rows; ++g) {
        sum[g] = loadLanes(rowLanes + blockWidth * g);
    }
    for (; blocks > 0; --blocks, block += wordsOfBlock(rows)) {
        prefetchWords<rows>(block);
        const Lanes model = loadModel(block, band);
        for (std::size_t g = 0; g < rows; ++g) {
            sum[g] += loadSingles(block + indexWords + blockWidth * g) * model;
        }
    }
    for (std::size_t g = 0; g < rows; ++g) {
        storeLanes(sum[g], rowLanes + blockWidth * g);
    }
}

// The entries that fill up a block are added like the others, one after the other: their sums are 0.
template <std::size_t rows>
void addBlocks(const std::int32_t* block, std::int64_t blocks, const double* factor, double* band) {
    for (; blocks > 0; --blocks, block += wordsOfBlock(rows)) {
        prefetchWords<rows>(block);
        Lanes sum = loadSingles(block + indexWords) * factor[0];
        for (std::size_t g = 1; g < rows; ++g) {
            sum += loadSingles(block + indexWords + blockWidth * g) * factor[g];
        }
        double lane[laneCount];
        storeLanes(sum, lane);
        for (std::size_t l = 0; l < laneCount; ++l) {
            band[columnAt(block, l)] += lane[l];
        }
    }
}

void multiplyGroups(std::span<const RowGroup> groups, const std::int32_t* words, const double* compact,
                    std::size_t firstRow, double* rowLanes) {
    for (const RowGroup& group : groups) {
        const std::int32_t* const block = words + group.firstWord;
        const double* const band = compact + group.firstColumn;
        double* const lanes = rowLanes + blockWidth * (static_cast<std::size_t>(group.firstRow) - firstRow);
        if (group.rowCount == 8) {
            multiplyBlocks<8>(block, group.count, band, lanes);
        } else if (group.rowCount == 4) {
            multiplyBlocks<4>(block, group.count, band, lanes);
        } else if (group.rowCount == 2) {
            multiplyBlocks<2>(block, group.count, band, lanes);
        } else {
            multiplyBlocks<1>(block, group.count, band, lanes);
        }
    }
}

void addGroups(std::span<const RowGroup> groups, const std::int32_t* words, const double* factor, double* compact) {
    for (const RowGroup& group : groups) {
        const std::int32_t* const block = words + group.firstWord;
        double* const band = compact + group.firstColumn;
        const double* const rowFactor = factor + group.firstRow;
        if (group.rowCount == 8) {
            addBlocks<8>(block, group.count, rowFactor, band);
        } else if (group.rowCount == 4) {
            addBlocks<4>(block, group.count, rowFactor, band);
        } else if (group.rowCount == 2) {
            addBlocks<2>(block, group.count, rowFactor, band);
        } else {
            addBlocks<1>(block, group.count, rowFactor, band);
        }
    }
}

constexpr BlockedRowKernels kernels{multiplyGroups, addGroups};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
