#include "row_patterns.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>

#include "base/messages.h"
#include "base/output_file.h"
#include "cli/mtx_command.h"
#include "forward/mtx_file.h"

namespace voxlith {

namespace {

constexpr int surveySide = 46;  // stations along each side of the survey

void writeText(const std::string& fileName, const std::string& text) {
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, fileName);
    appendOutput(*file, text);
    finishOutputFile(*file);
}

void makeSensitivityFile(const std::string& folder, const std::string& fileName) {
    MtxOptions options;
    options.survey.meshFile = folder + "/bench.msh";
    options.survey.stationFile = folder + "/bench.obs";
    options.survey.type = DataType::gz;
    options.outFile = fileName;
    writeText(options.survey.meshFile, "128 128 32\n0 0 0\n128*50\n128*50\n32*50\n");
    std::string stations = std::to_string(surveySide * surveySide) + "\n";
    for (int j = 0; j < surveySide; ++j) {
        for (int i = 0; i < surveySide; ++i) {
            const auto metres = [](int station) { return std::to_string(200.0 + 6000.0 * station / (surveySide - 1)); };
            stations += metres(i) + " " + metres(j) + " 25\n";
        }
    }
    writeText(options.survey.stationFile, stations);
    std::fprintf(stderr, "computing the sensitivity file once: %s\n", fileName.c_str());
    writeMtxFile(options);
}

}  // namespace

RowPattern readRealPattern(const BenchmarkOptions& options) {
    std::string fileName = options.mtxFile;
    if (fileName.empty()) {
        fileName = options.folder + "/bench.mtx";
        if (!std::filesystem::exists(fileName)) {
            makeSensitivityFile(options.folder, fileName);
        }
    }
    const auto file = std::make_unique<MtxFile>();
    readMtxFile(fileName, MtxRows::loaded, *file);
    RowPattern pattern;
    pattern.paddedCount = static_cast<std::size_t>(file->sensitivity.header.nPadded);
    for (std::size_t r = 0; r < static_cast<std::size_t>(file->sensitivity.header.nData); ++r) {
        for (const std::int32_t index : rawRowOf(file->sensitivity.store, r).coefIndex) {
            pattern.index.push_back(index - 1);
        }
        // Eigen needs rising column indices; files of other programs may have them unsorted.
        std::sort(pattern.index.begin() + pattern.offset.back(), pattern.index.end());
        pattern.offset.push_back(static_cast<std::int64_t>(pattern.index.size()));
    }
    if (pattern.index.empty()) {
        throw RunError(fileName + ": no coefficients");
    }
    return pattern;
}

RowPattern repeatRows(const RowPattern& pattern, std::int64_t coefficients) {
    RowPattern repeated;
    repeated.paddedCount = pattern.paddedCount;
    while (repeated.offset.back() < coefficients) {
        const std::int64_t start = repeated.offset.back();
        for (std::size_t r = 1; r < pattern.offset.size(); ++r) {
            repeated.offset.push_back(start + pattern.offset[r]);
        }
        repeated.index.insert(repeated.index.end(), pattern.index.begin(), pattern.index.end());
    }
    return repeated;
}

RowPattern drawRandomRows(const RowPattern& pattern, std::uint64_t seed) {
    std::mt19937_64 generator(seed);
    RowPattern random;
    random.paddedCount = pattern.paddedCount;
    for (std::size_t r = 0; r < pattern.rowCount(); ++r) {
        // Selection sampling (Knuth 1997, The Art of Computer Programming 2, section 3.4.2, algorithm S).
        auto wanted = static_cast<std::uint64_t>(pattern.offset[r + 1] - pattern.offset[r]);
        for (std::size_t column = 0; wanted > 0; ++column) {
            if (generator() % (pattern.paddedCount - column) < wanted) {
                random.index.push_back(static_cast<std::int32_t>(column));
                --wanted;
            }
        }
        random.offset.push_back(static_cast<std::int64_t>(random.index.size()));
    }
    return random;
}

}  // namespace voxlith
