// Models as text: the writer beside a printf loop, the number reader beside a strtod loop over the same text.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "contest_groups.h"
#include "files/model_file.h"
#include "text/free_format.h"
#include "text/messages.h"

namespace voxlith {

namespace {

struct TextRig {
    MeshGeometry mesh;
    std::vector<double> model;
    std::vector<double> readBack;
    std::string text;
    std::string workFile, peerFile;
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

// Values of many sizes, with signs, as recovered models have them.
std::shared_ptr<TextRig> makeRig(const BenchOptions& options) {
    auto rig = std::make_shared<TextRig>();
    constexpr std::int32_t columnCells = 32;
    rig->mesh.nz = columnCells;
    rig->mesh.nx = (options.modelCells + columnCells - 1) / columnCells;
    rig->mesh.ny = 1;
    std::mt19937_64 generator(5);
    std::normal_distribution<double> normal;
    rig->model.resize(rig->mesh.cellCount());
    for (double& value : rig->model) {
        value = normal(generator) * std::exp(3.0 * normal(generator));
    }
    rig->readBack.resize(rig->model.size());
    rig->workFile = options.folder + "/bench-work.txt";
    rig->peerFile = options.folder + "/bench-peer.txt";
    return rig;
}

void readWithReader(TextRig& rig) {
    if (freeFormatRead(rig.text, rig.readBack) != ReadStatus::good) {
        throw RunError("the number reader failed");
    }
}

void readWithStrtod(TextRig& rig) {
    const char* at = rig.text.c_str();
    for (double& value : rig.readBack) {
        char* end = nullptr;
        value = std::strtod(at, &end);
        at = end;
    }
}

}  // namespace

std::vector<Contest> writerContests(const BenchOptions& options) {
    const std::shared_ptr<TextRig> rig = makeRig(options);
    const auto work = [rig] {
        return cpuSecondsOf([&] { writeModelFile(rig->workFile, rig->mesh, 0, rig->model, {}, false, 0); });
    };
    const auto peer = [rig] { return cpuSecondsOf([&] { printModel(rig->model, rig->peerFile); }); };
    return {{"model writer", "fprintf loop", 1.0 / 6.0, work, peer}};
}

std::vector<Contest> readerContests(const BenchOptions& options) {
    const std::shared_ptr<TextRig> rig = makeRig(options);
    rig->text = printedText(rig->model);
    readWithStrtod(*rig);
    const std::vector<double> expected = rig->readBack;
    readWithReader(*rig);
    if (rig->readBack != expected) {
        throw RunError("the number reader differs from strtod");
    }
    const auto work = [rig] { return cpuSecondsOf([&] { readWithReader(*rig); }); };
    const auto peer = [rig] { return cpuSecondsOf([&] { readWithStrtod(*rig); }); };
    return {{"number reader, real64", "strtod loop", 1.0 / 4.0, work, peer}};
}

}  // namespace voxlith
