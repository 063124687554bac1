#include <algorithm>
#include <cstddef>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/tokens.h"
#include "formats/model_file.h"
#include "formats/short_name.h"

namespace voxlith {

namespace {

// A text such as "/data/start.den", in which a read ends before any value, is the name of a file.
bool isNumber(std::string_view text, float& number) {
    std::int64_t valuesTaken = 0;
    const ReadStatus status = freeFormatRead(text, std::span(&number, 1), &valuesTaken);
    return status != ReadStatus::badText && valuesTaken > 0;
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

// Cells that a short file does not reach stay as they are.
void fillFromFile(Messages& messages, const std::string& name, std::span<double> cells) {
    TextInput input;
    if (!openTextInput(input, fileNameOf(name, shortNameWidth))) {
        fatalStop(messages, " Model File " + shownName(name) + " not found");
    }
    const ReadStatus status = freeFormatRead(input, cells);
    closeTextInput(input);
    if (status == ReadStatus::badText) {
        screenAndLogLine(messages, " An error occurred while reading the model " + shownName(name));
        plainStop();
    }
}

}  // namespace

void readModelFile(Messages& messages, Positivity positivity, const std::string& name, const MeshGeometry& mesh,
                   std::int32_t nModelTypes, std::span<double> target, const ModelBounds& bounds, float fillValue) {
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

}  // namespace voxlith
