#include "formats/model_file.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>

#include "base/fixed_field.h"
#include "base/free_format.h"
#include "base/staged_files.h"
#include "base/text_input.h"
#include "base/text_line.h"
#include "base/tokens.h"
#include "formats/short_name.h"

namespace voxlith {

namespace {

constexpr int fieldWidth = 14, fieldDigits = 6;
constexpr std::size_t lineBytes = fieldWidth + 1;
constexpr std::size_t valuesAtOnce = 1024;  // their lines fit what reserveOutput promises

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

void writeValues(OutputFile& file, std::span<const double> values) {
    char* out = reserveOutput(file, lineBytes * values.size());
    for (const double value : values) {
        out = putExponent(out, value, fieldWidth, fieldDigits);
        *out++ = '\n';
    }
    commitOutput(file, lineBytes * values.size());
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
    std::array<double, valuesAtOnce> shown;
    for (std::size_t first = 0; first < cells; first += shown.size()) {
        const std::size_t count = std::min(shown.size(), cells - first);
        for (std::size_t n = 0; n < count; ++n) {
            const std::size_t k = ownLayers < nz ? (first + n) % nz : 0;
            const std::size_t cell = first + n - (k < ownLayers ? 0 : k - (ownLayers - 1));
            shown[n] = foldDepthWeight ? values[cell] / static_cast<double>(depthWeight[cell]) : values[cell];
        }
        writeValues(file, std::span(shown).first(count));
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
