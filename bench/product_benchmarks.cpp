// Products of blocked rows, without the transform, beside a pass over the coefficients as the file stores them (int32
// index and real32 value, eight bytes) and beside Eigen's product with compressed rows.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>

#include "base/messages.h"
#include "benchmark_groups.h"
#include "eigen_rows.h"
#include "memory_pass.h"
#include "row_patterns.h"
#include "sensitivity/rows/blocked_products.h"
#include "sensitivity/rows/coef_store.h"

namespace voxlith {

namespace {

struct ProductSetup {
    SparseCoefStore store;
    LargeArray<std::int32_t> asInFile;  // the same coefficients as the file stores them, for the memory pass
    std::shared_ptr<EigenRows> matrix;
    std::vector<double> padded;  // the transformed model
    std::vector<double> residual;
    std::vector<double> rowSums;
    std::vector<double> columnSums;  // padded array
    std::uint64_t bits = 0;          // result of the memory pass, kept so that the compiler cannot drop the pass

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

void multiply(ProductSetup& setup) {
    const BlockedRows& rows = setup.store.blocked[0];
    gatherUsed(rows, setup.padded, setup.store.compact);
    const bool finite = allFinite(std::span<const double>(setup.store.compact));
    multiply(rows, setup.words(), setup.store.compact, finite, 0, setup.rowSums.size(), setup.rowSums);
}

void multiplyTransposed(ProductSetup& setup) {
    const BlockedRows& rows = setup.store.blocked[0];
    std::fill(setup.columnSums.begin(), setup.columnSums.end(), 0.0);
    std::fill(setup.store.compact.begin(), setup.store.compact.end(), 0.0);
    multiplyTransposed(rows, setup.words(), setup.residual, allFinite(setup.residual), 0, bandCount(rows),
                       setup.store.compact);
    scatterUsed(rows, setup.store.compact, setup.columnSums);
}

double largestDifference(std::span<const double> a, std::span<const double> b) {
    double largest = 0.0, size = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        largest = std::max(largest, std::abs(a[i] - b[i]));
        size = std::max(size, std::abs(b[i]));
    }
    return largest / size;
}

// Times of products that differ could not be compared.
void checkAgainstEigen(ProductSetup& setup) {
    std::vector<double> rowSums(setup.rowSums.size()), columnSums(setup.columnSums.size());
    multiply(setup);
    multiplyByEigen(*setup.matrix, setup.padded, rowSums);
    multiplyTransposed(setup);
    multiplyTransposedByEigen(*setup.matrix, setup.residual, columnSums);
    if (!(largestDifference(setup.rowSums, rowSums) < 1e-10 &&
          largestDifference(setup.columnSums, columnSums) < 1e-10)) {
        throw RunError("the products differ from those of Eigen");
    }
}

std::shared_ptr<ProductSetup> makeSetup(const RowPattern& pattern) {
    auto setup = std::make_shared<ProductSetup>();
    const std::vector<float> values = randomValues(pattern.index.size());
    fillStore(setup->store, pattern, values);
    const std::span<const std::int32_t> raw = setup->words().last(static_cast<std::size_t>(2 * setup->store.capacity));
    setup->asInFile.assign(raw.begin(), raw.end());
    buildBlockedRows(setup->store, pattern.rowCount(), 1, pattern.paddedCount);
    setup->matrix = makeEigenRows(pattern.paddedCount, pattern.offset, pattern.index, values);
    std::mt19937_64 generator(2);
    std::normal_distribution<double> normal;
    setup->padded.resize(pattern.paddedCount);
    std::generate(setup->padded.begin(), setup->padded.end(), [&] { return normal(generator); });
    setup->residual.resize(pattern.rowCount());
    std::generate(setup->residual.begin(), setup->residual.end(), [&] { return normal(generator); });
    setup->rowSums.resize(pattern.rowCount());
    setup->columnSums.resize(pattern.paddedCount);
    checkAgainstEigen(*setup);
    return setup;
}

// How many rows share one list of column indices.
std::string describeBlockedRows(const ProductSetup& setup) {
    const BlockedRows& rows = setup.store.blocked[0];
    std::int64_t words = 0;
    std::array<std::int64_t, 9> wordsInGroupsOf{};
    for (const RowGroup& group : rows.groups) {
        words += wordsOfGroup(group);
        wordsInGroupsOf.at(static_cast<std::size_t>(group.rowCount)) += wordsOfGroup(group);
    }
    const auto percent = [&](std::size_t rowCount) {
        return 100.0 * static_cast<double>(wordsInGroupsOf.at(rowCount)) / static_cast<double>(words);
    };
    std::array<char, 240> text{};
    const auto coefficients = static_cast<double>(setup.store.capacity);
    std::snprintf(text.data(), text.size(),
                  "%.1f million coefficients, %.2f bytes each as blocked rows; %zu of %zu columns used; bytes in "
                  "groups of 8 rows: %.0f %%, of 4: %.0f %%, of 2: %.0f %%, of one: %.0f %%",
                  1e-6 * coefficients, 4.0 * static_cast<double>(words) / coefficients, rows.usedColumns.size(),
                  setup.padded.size(), percent(8), percent(4), percent(2), percent(1));
    return text.data();
}

struct ProductGoals {
    double model = 0.0, transposed = 0.0;
};

std::vector<BenchmarkCase> productBenchmarks(const RowPattern& pattern, const std::string& rows,
                                             const ProductGoals& goals) {
    const std::shared_ptr<ProductSetup> setup = makeSetup(pattern);
    const auto forward = [setup] { return cpuSecondsOf([&] { multiply(*setup); }); };
    const auto transposed = [setup] { return cpuSecondsOf([&] { multiplyTransposed(*setup); }); };
    const auto pass = [setup] { return cpuSecondsOf([&] { setup->bits += readingPass(setup->asInFile); }); };
    const auto eigenForward = [setup] {
        return cpuSecondsOf([&] { multiplyByEigen(*setup->matrix, setup->padded, setup->rowSums); });
    };
    const auto eigenTransposed = [setup] {
        return cpuSecondsOf([&] { multiplyTransposedByEigen(*setup->matrix, setup->residual, setup->columnSums); });
    };
    return {{"model product, " + rows, "memory pass, 8 bytes a coefficient", goals.model, forward, pass,
             describeBlockedRows(*setup)},
            {"model product, " + rows, "Eigen CSR product", std::nullopt, forward, eigenForward},
            {"transposed product, " + rows, "memory pass, 8 bytes a coefficient", goals.transposed, transposed, pass},
            {"transposed product, " + rows, "Eigen CSR product", std::nullopt, transposed, eigenTransposed}};
}

}  // namespace

std::vector<BenchmarkCase> realRowBenchmarks(const BenchmarkOptions& options) {
    return productBenchmarks(repeatRows(readRealPattern(options), options.coefficients), "real rows", {1.0, 1.15});
}

std::vector<BenchmarkCase> randomRowBenchmarks(const BenchmarkOptions& options) {
    const RowPattern random = drawRandomRows(readRealPattern(options), 3);
    return productBenchmarks(repeatRows(random, options.coefficients), "random rows", {1.8, 1.8});
}

}  // namespace voxlith
