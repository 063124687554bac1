// Products of rows in their working form, without the transform, beside a pass over the coefficients as the file stores
// them (int32 position and real32 value, eight bytes) and beside a general library's compressed-row product.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>

#include "contest_groups.h"
#include "csr_peer.h"
#include "memory_pass.h"
#include "row_patterns.h"
#include "sensitivity/block_kernels.h"
#include "sensitivity/coef_store.h"
#include "text/messages.h"

namespace voxlith {

namespace {

struct ProductRig {
    SparseCoefStore store;
    LargeArray<std::int32_t> asInFile;  // the same coefficients as the file stores them, for the memory pass
    std::shared_ptr<CsrMatrix> matrix;
    std::vector<double> padded;  // the transformed model
    std::vector<double> residual;
    std::vector<double> rowSums;
    std::vector<double> columnSums;  // padded array
    std::uint64_t bits = 0;          // of the memory pass: used, so that the pass is not left out

    std::span<const std::int32_t> words() const { return wordsOf(store); }
};

std::vector<float> randomValues(std::size_t count) {
    std::mt19937_64 generator(1);
    std::normal_distribution<float> normal;
    std::vector<float> values(count);
    for (float& value : values) {
        value = normal(generator);
    }
    return values;
}

void fillStore(SparseCoefStore& store, const RowPattern& pattern, std::span<const float> values) {
    for (const std::int64_t offset : pattern.offset) {
        store.rowOffset.push_back(offset + 1);
    }
    reserveRows(store);
    for (std::size_t r = 0; r < pattern.rowCount(); ++r) {
        const RawRow row = rawRowOf(store, r);
        const auto first = static_cast<std::size_t>(pattern.offset[r]);
        for (std::size_t p = 0; p < row.coefIndex.size(); ++p) {
            row.coefIndex[p] = pattern.index[first + p] + 1;
            row.coefValue[p] = std::bit_cast<std::int32_t>(values[first + p]);
        }
    }
}

void multiply(ProductRig& rig) {
    const WorkingRows& rows = rig.store.working[0];
    gatherInUse(rows, rig.padded, rig.store.compact);
    rowsTimesCompact(rows, rig.words(), rig.store.compact, rig.rowSums, widestInstructionSet());
}

void multiplyTransposed(ProductRig& rig) {
    const WorkingRows& rows = rig.store.working[0];
    std::fill(rig.columnSums.begin(), rig.columnSums.end(), 0.0);
    std::fill(rig.store.compact.begin(), rig.store.compact.end(), 0.0);
    addRowsToCompact(rows, rig.words(), rig.residual, rig.store.compact, widestInstructionSet());
    scatterInUse(rows, rig.store.compact, rig.columnSums);
}

double largestDifference(std::span<const double> a, std::span<const double> b) {
    double largest = 0.0, size = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        largest = std::max(largest, std::abs(a[i] - b[i]));
        size = std::max(size, std::abs(b[i]));
    }
    return largest / size;
}

// A fast product of something else would be worth nothing.
void checkAgainstPeer(ProductRig& rig) {
    std::vector<double> rowSums(rig.rowSums.size()), columnSums(rig.columnSums.size());
    multiply(rig);
    csrTimes(*rig.matrix, rig.padded, rowSums);
    multiplyTransposed(rig);
    csrTransposedTimes(*rig.matrix, rig.residual, columnSums);
    if (!(largestDifference(rig.rowSums, rowSums) < 1e-10 && largestDifference(rig.columnSums, columnSums) < 1e-10)) {
        throw RunError("the products differ from those of the peer");
    }
}

std::shared_ptr<ProductRig> makeRig(const RowPattern& pattern) {
    auto rig = std::make_shared<ProductRig>();
    const std::vector<float> values = randomValues(pattern.index.size());
    fillStore(rig->store, pattern, values);
    const std::span<const std::int32_t> raw = rig->words().last(static_cast<std::size_t>(2 * rig->store.capacity));
    rig->asInFile.assign(raw.begin(), raw.end());
    arrangeStore(rig->store, pattern.rowCount(), 1, pattern.paddedCount);
    rig->matrix = makeCsrMatrix(pattern.paddedCount, pattern.offset, pattern.index, values);
    std::mt19937_64 generator(2);
    std::normal_distribution<double> normal;
    rig->padded.resize(pattern.paddedCount);
    std::generate(rig->padded.begin(), rig->padded.end(), [&] { return normal(generator); });
    rig->residual.resize(pattern.rowCount());
    std::generate(rig->residual.begin(), rig->residual.end(), [&] { return normal(generator); });
    rig->rowSums.resize(pattern.rowCount());
    rig->columnSums.resize(pattern.paddedCount);
    checkAgainstPeer(*rig);
    return rig;
}

// How far the merging of rows and the renumbering of positions went.
std::string describeWorkingForm(const ProductRig& rig) {
    const WorkingRows& rows = rig.store.working[0];
    std::int64_t words = 0;
    std::array<std::int64_t, 9> wordsInRunsOf{};
    for (const RowRun& run : rows.runs) {
        words += wordsOfRun(run);
        wordsInRunsOf.at(static_cast<std::size_t>(run.rowCount)) += wordsOfRun(run);
    }
    const auto percent = [&](std::size_t rowCount) {
        return 100.0 * static_cast<double>(wordsInRunsOf.at(rowCount)) / static_cast<double>(words);
    };
    std::array<char, 240> text{};
    const auto coefficients = static_cast<double>(rig.store.capacity);
    std::snprintf(text.data(), text.size(),
                  "%.1f million coefficients, %.2f bytes each in working form; %zu of %zu positions in use; bytes in "
                  "runs of 8 rows: %.0f %%, of 4: %.0f %%, of 2: %.0f %%, of one: %.0f %%",
                  1e-6 * coefficients, 4.0 * static_cast<double>(words) / coefficients, rows.positionsInUse.size(),
                  rig.padded.size(), percent(8), percent(4), percent(2), percent(1));
    return text.data();
}

std::vector<Contest> productContests(const RowPattern& pattern, const std::string& rows) {
    const std::shared_ptr<ProductRig> rig = makeRig(pattern);
    const auto forward = [rig] { return cpuSecondsOf([&] { multiply(*rig); }); };
    const auto transposed = [rig] { return cpuSecondsOf([&] { multiplyTransposed(*rig); }); };
    const auto pass = [rig] {
        return cpuSecondsOf([&] { rig->bits += readingPass(rig->asInFile); });
    };
    const auto csrForward = [rig] { return cpuSecondsOf([&] { csrTimes(*rig->matrix, rig->padded, rig->rowSums); }); };
    const auto csrTransposed = [rig] {
        return cpuSecondsOf([&] { csrTransposedTimes(*rig->matrix, rig->residual, rig->columnSums); });
    };
    return {
        {"model product, " + rows, "memory pass, 8 bytes a coefficient", 1.0, forward, pass, describeWorkingForm(*rig)},
        {"model product, " + rows, "Eigen CSR product", std::nullopt, forward, csrForward},
        {"transposed product, " + rows, "memory pass, 8 bytes a coefficient", 1.2, transposed, pass},
        {"transposed product, " + rows, "Eigen CSR product", std::nullopt, transposed, csrTransposed}};
}

}  // namespace

std::vector<Contest> realRowContests(const BenchOptions& options) {
    return productContests(repeatRows(readRealPattern(options), options.coefficients), "real rows");
}

std::vector<Contest> randomRowContests(const BenchOptions& options) {
    const RowPattern random = drawRandomRows(readRealPattern(options), 3);
    return productContests(repeatRows(random, options.coefficients), "random rows");
}

}  // namespace voxlith
