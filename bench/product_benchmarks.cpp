// Products of blocked rows, without the transform, beside a pass over the coefficients as the file stores them (int32
// index and real32 value, eight bytes), beside Eigen's product with compressed rows, and with several threads.
#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <random>

#include "base/messages.h"
#include "base/workers.h"
#include "benchmark_groups.h"
#include "eigen_rows.h"
#include "memory_pass.h"
#include "row_patterns.h"
#include "run/thread_team.h"
#include "sensitivity/rows/blocked_products.h"
#include "sensitivity/rows/coef_store.h"

namespace voxlith {

namespace {

struct ProductSetup {
    SparseCoefStore store;
    LargeArray<std::int32_t> asInFile;  // the same coefficients as the file stores them, for the memory pass
    std::vector<double> padded;         // the transformed model
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

void clear(std::span<double> values) {
    forEachRange(values.size(), [&](std::size_t first, std::size_t end) {
        std::ranges::fill(values.subspan(first, end - first), 0.0);
    });
}

void multiply(ProductSetup& setup) {
    const BlockedRows& rows = setup.store.blocked[0];
    gatherUsed(rows, setup.padded, setup.store.compact);
    const bool finite = allFinite(std::span<const double>(setup.store.compact));
    multiplyShared(rows, setup.words(), setup.store.compact, finite, setup.rowSums);
}

void multiplyTransposed(ProductSetup& setup) {
    const BlockedRows& rows = setup.store.blocked[0];
    clear(setup.store.compact);
    multiplyTransposedShared(rows, setup.words(), setup.residual, allFinite(setup.residual), setup.store.compact);
    scatterUsed(rows, setup.store.compact, setup.columnSums.size(), setup.columnSums);
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
void checkAgainstEigen(ProductSetup& setup, const EigenRows& matrix) {
    std::vector<double> rowSums(setup.rowSums.size()), columnSums(setup.columnSums.size());
    multiply(setup);
    multiplyByEigen(matrix, setup.padded, rowSums);
    multiplyTransposed(setup);
    multiplyTransposedByEigen(matrix, setup.residual, columnSums);
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
    std::mt19937_64 generator(2);
    std::normal_distribution<double> normal;
    setup->padded.resize(pattern.paddedCount);
    std::generate(setup->padded.begin(), setup->padded.end(), [&] { return normal(generator); });
    setup->residual.resize(pattern.rowCount());
    std::generate(setup->residual.begin(), setup->residual.end(), [&] { return normal(generator); });
    setup->rowSums.resize(pattern.rowCount());
    setup->columnSums.resize(pattern.paddedCount);
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
    const std::shared_ptr<EigenRows> matrix =
        makeEigenRows(pattern.paddedCount, pattern.offset, pattern.index, randomValues(pattern.index.size()));
    checkAgainstEigen(*setup, *matrix);
    const auto forward = [setup] { return cpuSecondsOf([&] { multiply(*setup); }); };
    const auto transposed = [setup] { return cpuSecondsOf([&] { multiplyTransposed(*setup); }); };
    const auto pass = [setup] { return cpuSecondsOf([&] { setup->bits += readingPass(setup->asInFile); }); };
    const auto eigenForward = [setup, matrix] {
        return cpuSecondsOf([&] { multiplyByEigen(*matrix, setup->padded, setup->rowSums); });
    };
    const auto eigenTransposed = [setup, matrix] {
        return cpuSecondsOf([&] { multiplyTransposedByEigen(*matrix, setup->residual, setup->columnSums); });
    };
    return {{"model product, " + rows, "memory pass, 8 bytes a coefficient", goals.model, forward, pass,
             describeBlockedRows(*setup)},
            {"model product, " + rows, "Eigen CSR product", std::nullopt, forward, eigenForward},
            {"transposed product, " + rows, "memory pass, 8 bytes a coefficient", goals.transposed, transposed, pass},
            {"transposed product, " + rows, "Eigen CSR product", std::nullopt, transposed, eigenTransposed}};
}

struct SharedWork {
    std::string name;
    std::function<void()> work;
};

// Time of day: processor time of threads says nothing of what they gain.
std::function<double()> withThreads(std::size_t threads, const std::function<void()>& work) {
    return [threads, work] {
        const SharedLoops loops(threads, Workers{}.smallestPiece);
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
}

// Work on all cores beside a reference.
BenchmarkCase threadCase(const SharedWork& work, const SharedWork& reference, std::size_t referenceThreads,
                         std::optional<double> goal) {
    const auto nameOf = [](const std::string& name, std::size_t threads) {
        return name + ", " + std::to_string(threads) + (threads == 1 ? " thread" : " threads");
    };
    const std::size_t cores = coresOfProcess();
    BenchmarkCase benchmarkCase;
    benchmarkCase.work = nameOf(work.name, cores);
    benchmarkCase.reference = nameOf(reference.name, referenceThreads);
    benchmarkCase.goal = goal;
    benchmarkCase.runWork = withThreads(cores, work.work);
    benchmarkCase.runReference = withThreads(referenceThreads, reference.work);
    return benchmarkCase;
}

void readingPassShared(ProductSetup& setup) {
    const std::span<const std::int32_t> words = setup.asInFile;
    std::array<std::uint64_t, mostWorkers> sums{};
    const std::size_t pieces = workersOfProcess().count;
    forEachPiece(pieces, [&](std::size_t piece) {
        const std::size_t first = startOfPiece(words.size(), 64, piece, pieces);
        sums.at(piece) = readingPass(words.subspan(first, startOfPiece(words.size(), 64, piece + 1, pieces) - first));
    });
    setup.bits += std::accumulate(sums.begin(), sums.end(), std::uint64_t{0});
}

}  // namespace

std::vector<BenchmarkCase> realRowBenchmarks(const BenchmarkOptions& options) {
    return productBenchmarks(repeatRows(readRealPattern(options), options.coefficients), "real rows", {1.0, 1.15});
}

std::vector<BenchmarkCase> randomRowBenchmarks(const BenchmarkOptions& options) {
    const RowPattern random = drawRandomRows(readRealPattern(options), 3);
    return productBenchmarks(repeatRows(random, options.coefficients), "random rows", {1.8, 1.8});
}

std::vector<BenchmarkCase> threadBenchmarks(const BenchmarkOptions& options) {
    const std::shared_ptr<ProductSetup> setup = makeSetup(repeatRows(readRealPattern(options), options.coefficients));
    const SharedWork pass{"memory pass, 8 bytes a coefficient", [setup] { readingPassShared(*setup); }};
    const SharedWork forward{"model product", [setup] { multiply(*setup); }};
    const SharedWork transposed{"transposed product", [setup] { multiplyTransposed(*setup); }};
    const std::size_t cores = coresOfProcess();
    std::vector<BenchmarkCase> cases{threadCase(pass, pass, 1, std::nullopt), threadCase(forward, pass, cores, 1.0),
                                     threadCase(forward, forward, 1, std::nullopt),
                                     threadCase(transposed, pass, cores, 1.15),
                                     threadCase(transposed, transposed, 1, std::nullopt)};
    cases.front().note = std::to_string(setup->asInFile.size() * sizeof(std::int32_t)) + " bytes";
    return cases;
}

}  // namespace voxlith
