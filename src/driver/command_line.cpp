#include "driver/command_line.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/free_format.h"
#include "base/messages.h"
#include "base/tokens.h"

namespace voxlith {

namespace {

using Spellings = std::array<std::string_view, 3>;

bool beginsWithOneOf(std::string_view argument, const Spellings& spellings) {
    return std::any_of(spellings.begin(), spellings.end(),
                       [&](std::string_view spelling) { return argument.starts_with(spelling); });
}

// The text between the first "(" and the first ")".
std::optional<std::string_view> textInParentheses(std::string_view argument) {
    const std::size_t open = argument.find('(');
    const std::size_t close = argument.find(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
        return std::nullopt;
    }
    return argument.substr(open + 1, close - open - 1);
}

std::optional<std::string_view> textAfterEquals(std::string_view argument) {
    const std::size_t equals = argument.find('=');
    if (equals == std::string_view::npos) {
        return std::nullopt;
    }
    return argument.substr(equals + 1);
}

template <typename Number>
void decode(std::string_view argument, std::string_view text, std::span<Number> targets, std::string_view expected) {
    if (freeFormatRead(text, targets) != ReadStatus::good) {
        throw RunError("command line, \"" + std::string(argument) + "\": expected " + std::string(expected) +
                       ", found \"" + std::string(text) + "\"");
    }
}

template <typename Number>
void decodeAfterEquals(std::string_view argument, Number& target, std::string_view expected) {
    if (const auto text = textAfterEquals(argument)) {
        decode(argument, *text, std::span(&target, 1), expected);
    }
}

void decodeMisfit(std::string_view argument, ObsCleaning& cleaning) {
    const auto text = textInParentheses(argument);
    if (!text) {
        return;
    }
    std::array<float, 2> numbers{cleaning.misfitPercent, cleaning.misfitFloor};
    decode(argument, *text, std::span<float>(numbers), "two numbers, percent and floor");
    cleaning.misfitPercent = numbers[0];
    cleaning.misfitFloor = numbers[1];
}

void readKeyword(std::string_view argument, ControlValues& control) {
    // Compatibility: keywords match by their first characters; what matches none is ignored, and so is NOFAST.
    if (beginsWithOneOf(argument, {"Misfit", "misfit", "MISFIT"})) {
        decodeMisfit(argument, control.cleaning);
    } else if (beginsWithOneOf(argument, {"Tradeoff", "tradeoff", "TRADEOFF"})) {
        decodeAfterEquals(argument, control.tradeoffOverride, "a number");
    } else if (beginsWithOneOf(argument, {"Offset", "OFFSET", "offset"})) {
        decodeAfterEquals(argument, control.cleaning.dataShift, "a number");
    } else if (beginsWithOneOf(argument, {"Clip", "CLIP", "clip"})) {
        decodeAfterEquals(argument, control.clipLayer, "an integer");
    } else if (beginsWithOneOf(argument, {"ObsClip", "OBSCLIP", "obsclip"})) {
        if (const auto text = textInParentheses(argument)) {
            control.obsClipText = text->substr(0, lineWidth);
        }
    }
}

}  // namespace

void readCommandLine(std::span<const std::string> arguments, ControlValues& control) {
    control.controlFileName = arguments.front().substr(0, lineWidth);
    for (const std::string& argument : arguments.subspan(1)) {
        readKeyword(trimRight(std::string_view(argument).substr(0, lineWidth)), control);
    }
}

}  // namespace voxlith
