// Models as text: the writer beside a printf loop, the number reader beside a strtod loop over the same text.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "base/free_format.h"
#include "base/messages.h"
#include "benchmark_groups.h"
#include "formats/model_file.h"

namespace voxlith {

namespace {

struct TextSetup {
    MeshGeometry mesh;
    std::vector<double> model;
    std::vector<double> readBack;
    std::string text;
    std::string workFile, referenceFile;
};

void printModel(const std::vector<double>& model, const std::string& fileName) {
    std::FILE* const file = std::fopen(fileName.c_str(), "w");
    if (file == nullptr) {
        throw RunError(fileName + ": cannot be written");
    }
    for (const double value : model) {
        std::fprintf(file, "%14.5E\n", value);
    }
    if (std::fclose(file) != 0) {
        throw RunError(fileName + ": cannot be written");
    }
}

std::string printedText(const std::vector<double>& model) {
    std::string text;
    char line[32];
    for (const double value : model) {
        std::snprintf(line, sizeof line, "%14.5E\n", value);
        text += line;
    }
    return text;
}

// Values of many magnitudes and both signs, as recovered models have them.
std::shared_ptr<TextSetup> makeSetup(const BenchmarkOptions& options) {
    auto setup = std::make_shared<TextSetup>();
    constexpr std::int32_t columnCells = 32;
    setup->mesh.nz = columnCells;
    setup->mesh.nx = (options.modelCells + columnCells - 1) / columnCells;
    setup->mesh.ny = 1;
    std::mt19937_64 generator(5);
    std::normal_distribution<double> normal;
    setup->model.resize(setup->mesh.cellCount());
    for (double& value : setup->model) {
        value = normal(generator) * std::exp(3.0 * normal(generator));
    }
    setup->readBack.resize(setup->model.size());
    setup->workFile = options.folder + "/bench-work.txt";
    setup->referenceFile = options.folder + "/bench-reference.txt";
    return setup;
}

void readWithReader(TextSetup& setup) {
    if (freeFormatRead(setup.text, setup.readBack) != ReadStatus::good) {
        throw RunError("the number reader failed");
    }
}

void readWithStrtod(TextSetup& setup) {
    const char* at = setup.text.c_str();
    for (double& value : setup.readBack) {
        char* end = nullptr;
        value = std::strtod(at, &end);
        at = end;
    }
}

}  // namespace

std::vector<BenchmarkCase> writerBenchmarks(const BenchmarkOptions& options) {
    const std::shared_ptr<TextSetup> setup = makeSetup(options);
    const auto work = [setup] {
        return cpuSecondsOf([&] {
            writeModelFile(setup->workFile, setup->mesh, 0, setup->model, {}, false, InversionStyle::standard);
        });
    };
    const auto reference = [setup] { return cpuSecondsOf([&] { printModel(setup->model, setup->referenceFile); }); };
    return {{"model writer", "fprintf loop", 1.0 / 6.0, work, reference}};
}

std::vector<BenchmarkCase> readerBenchmarks(const BenchmarkOptions& options) {
    const std::shared_ptr<TextSetup> setup = makeSetup(options);
    setup->text = printedText(setup->model);
    readWithStrtod(*setup);
    const std::vector<double> expected = setup->readBack;
    readWithReader(*setup);
    if (setup->readBack != expected) {
        throw RunError("the number reader differs from strtod");
    }
    const auto work = [setup] { return cpuSecondsOf([&] { readWithReader(*setup); }); };
    const auto reference = [setup] { return cpuSecondsOf([&] { readWithStrtod(*setup); }); };
    return {{"number reader, real64", "strtod loop", 1.0 / 4.0, work, reference}};
}

}  // namespace voxlith
