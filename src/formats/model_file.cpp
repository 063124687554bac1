#include "formats/model_file.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <vector>

#include "base/fixed_field.h"
#include "base/free_format.h"
#include "base/staged_files.h"
#include "base/text_input.h"
#include "base/text_line.h"
#include "base/tokens.h"
#include "base/workers.h"
#include "formats/short_name.h"

namespace voxlith {

namespace {

constexpr int fieldWidth = 14, fieldDigits = 6;
constexpr std::size_t lineBytes = fieldWidth + 1;
constexpr std::size_t valuesAtOnce = 1024;   // their lines fit what reserveOutput promises
constexpr std::size_t valuesShared = 32768;  // at once by several workers
constexpr std::size_t costOfValue = 8;       // writing its line takes as long as reading so many values

// A text such as "/data/start.den", in which the read ends before any value, is the name of a file.
bool isNumber(std::string_view text, float& number) {
    std::int64_t valuesRead = 0;
    const ReadStatus status = freeFormatRead(text, std::span(&number, 1), &valuesRead);
    return status != ReadStatus::badText && valuesRead > 0;
}

void fillWithNumber(Messages& messages, Positivity positivity, float number, std::span<double> target) {
    if ((requiresPositive(positivity) && number < 0.0F) || (requiresNegative(positivity) && number > 0.0F)) {
        screenAndLogLine(
            messages,
            "Error: the specified model value is invalid because it conflicts with the model positivity flag");
        plainStop();
    }
    std::fill(target.begin(), target.end(), static_cast<double>(number));
}

// Such a file may be what a power failure left.
void warnOfMissingValues(const std::string& name, std::size_t expected, std::int64_t found) {
    TextLine text(shownName(name));
    text.text(": expected ").text(std::to_string(expected)).text(" values, found ").text(std::to_string(found));
    text.text("; the others are 0");
    const std::string previous = previousVersionName(shortFileName(name));
    if (fileExists(previous)) {
        text.text("; the version before is in ").text(previous);
    }
    warningLine(text);
}

// Cells that a short file does not reach stay as they are.
void fillFromFile(Messages& messages, const std::string& name, std::span<double> cells) {
    TextInput input;
    if (!openTextInput(input, shortFileName(name))) {
        fatalStop(messages, " Model File " + shownName(name) + " not found");
    }
    FreeFormatRead read = beginFreeFormatRead(input);
    const ReadStatus status = readValues(read, cells);
    closeTextInput(input);
    if (status == ReadStatus::endOfText) {
        warnOfMissingValues(name, cells.size(), read.valuesRead);
    }
    if (status == ReadStatus::badText) {
        screenAndLogLine(messages, " An error occurred while reading the model " + shownName(name));
        plainStop();
    }
}

void putLine(char* out, double value) {
    *putExponent(out, value, fieldWidth, fieldDigits) = '\n';
}

}  // namespace

void readModelFile(Messages& messages, Positivity positivity, const std::string& name, const MeshGeometry& mesh,
                   std::int32_t nModelTypes, std::span<double> target, const ModelBounds& bounds, float fillValue) {
    assert(target.size() >= mesh.cellCount() * static_cast<std::size_t>(nModelTypes));
    const std::span<double> allTypes = target.first(mesh.cellCount() * static_cast<std::size_t>(nModelTypes));
    std::fill(allTypes.begin(), allTypes.end(), static_cast<double>(fillValue));
    const std::string_view text = shortText(name);
    if (!isNullWord(text)) {
        float number = 0.0F;
        if (isNumber(text, number)) {
            fillWithNumber(messages, positivity, number, allTypes);
        } else {
            fillFromFile(messages, name, allTypes.first(mesh.cellCount()));
        }
    }
    projectModel(positivity, bounds, allTypes);
}

void appendModel(OutputFile& file, const MeshGeometry& mesh, std::int32_t modelType, std::span<const double> source,
                 std::span<const float> depthWeight, bool foldDepthWeight, InversionStyle inversionStyle) {
    const std::size_t cells = mesh.cellCount();
    const auto nz = static_cast<std::size_t>(mesh.nz);
    assert(source.size() >= (static_cast<std::size_t>(modelType) + 1) * cells);
    assert(!foldDepthWeight || depthWeight.size() >= cells);
    const std::span<const double> values = source.subspan(static_cast<std::size_t>(modelType) * cells, cells);
    const std::size_t ownLayers = writtenCellsPerColumn(inversionStyle, nz);
    const auto shownValue = [&](std::size_t n) {
        const std::size_t k = ownLayers < nz ? n % nz : 0;
        const std::size_t cell = n - (k < ownLayers ? 0 : k - (ownLayers - 1));
        return foldDepthWeight ? values[cell] / static_cast<double>(depthWeight[cell]) : values[cell];
    };
    // Lines have one length, so every worker knows where its own begin.
    const bool shared = piecesFor(cells * costOfValue) > 1;
    std::vector<char> text(shared ? lineBytes * std::min(cells, valuesShared) : 0);
    const std::size_t atOnce = shared ? valuesShared : valuesAtOnce;
    for (std::size_t first = 0; first < cells; first += atOnce) {
        const std::size_t count = std::min(atOnce, cells - first);
        char* const lines = shared ? text.data() : reserveOutput(file, lineBytes * count);
        forEachRange(count, 64, costOfValue, [&](std::size_t start, std::size_t end) {
            for (std::size_t n = start; n < end; ++n) {
                putLine(lines + lineBytes * n, shownValue(first + n));
            }
        });
        if (shared) {
            appendOutput(file, {lines, lineBytes * count});
        } else {
            commitOutput(file, lineBytes * count);
        }
    }
}

void writeModelFile(std::string_view fileName, const MeshGeometry& mesh, std::int32_t modelType,
                    std::span<const double> source, std::span<const float> depthWeight, bool foldDepthWeight,
                    InversionStyle inversionStyle) {
    OutputFile file;
    openOutputFile(file, fileName);
    appendModel(file, mesh, modelType, source, depthWeight, foldDepthWeight, inversionStyle);
    finishOutputFile(file);
}

}  // namespace voxlith
