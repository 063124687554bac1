#include "run/keyword_check.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/free_format.h"
#include "base/messages.h"
#include "base/tokens.h"

namespace voxlith {

namespace {

enum class ValueForm { none, number, integer, pair, pairs };

struct Keyword {
    std::array<std::string_view, 3> spellings;
    ValueForm form;
    std::string_view usage;
};

constexpr std::array<Keyword, 6> known{{{{"Misfit", "misfit", "MISFIT"}, ValueForm::pair, "Misfit=(percent,floor)"},
                                        {{"Tradeoff", "tradeoff", "TRADEOFF"}, ValueForm::number, "Tradeoff=value"},
                                        {{"Offset", "offset", "OFFSET"}, ValueForm::number, "Offset=shift"},
                                        {{"Clip", "clip", "CLIP"}, ValueForm::integer, "Clip=layer"},
                                        {{"ObsClip", "obsclip", "OBSCLIP"}, ValueForm::pairs, "ObsClip=(min,max)"},
                                        {{"NOFAST", "NOFAST", "NOFAST"}, ValueForm::none, "NOFAST"}}};

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

// Number of single-character changes between two words (Levenshtein distance).
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

const Keyword& nearestTo(std::string_view name) {
    const std::string lower = lowerCase(name);
    return *std::ranges::min_element(
        known, {}, [&](const Keyword& keyword) { return editDistance(lower, lowerCase(keyword.spellings[0])); });
}

[[noreturn]] void refuse(std::string_view argument, std::string_view usage) {
    throw RunError("keyword \"" + std::string(argument) + "\": expected " + std::string(usage));
}

// The whole text must be that many numbers.
template <typename Number>
bool holdsNumbers(std::string_view text, std::size_t count) {
    if (isBlank(text)) {
        return false;
    }
    std::vector<Number> numbers(count + 1);
    std::int64_t given = 0;
    const ReadStatus status = freeFormatRead(text, std::span(numbers), &given);
    return status == ReadStatus::endOfText && given == static_cast<std::int64_t>(count);
}

// ObsClip takes a pair for each of up to six components.
bool holdsPairs(std::string_view text, std::size_t mostPairs) {
    for (std::size_t pairs = 1; pairs <= mostPairs; ++pairs) {
        if (holdsNumbers<double>(text, 2 * pairs)) {
            return true;
        }
    }
    return false;
}

bool isListOfPairs(std::string_view value, std::size_t mostPairs) {
    return value.size() > 2 && value.front() == '(' && value.back() == ')' &&
           holdsPairs(value.substr(1, value.size() - 2), mostPairs);
}

bool fits(ValueForm form, std::string_view value) {
    constexpr std::size_t mostComponents = 6;
    switch (form) {
        case ValueForm::none:
            return value.empty();
        case ValueForm::number:
            return holdsNumbers<double>(value, 1);
        case ValueForm::integer:
            return holdsNumbers<std::int32_t>(value, 1);
        case ValueForm::pair:
            return isListOfPairs(value, 1);
        case ValueForm::pairs:
            return isListOfPairs(value, mostComponents);
    }
    return false;
}

void checkKeyword(const std::string& argument) {
    if (argument.size() > lineWidth) {
        refuse(argument, "at most 256 characters");
    }
    // "Misfit=(5,0.1)" or "Misfit(5,0.1)"
    const std::size_t nameEnd = argument.find_first_of("=(");
    const std::string_view name = trimRight(std::string_view(argument).substr(0, nameEnd));
    const bool hasValue = nameEnd != std::string::npos;
    const std::size_t valueStart = hasValue && argument[nameEnd] == '=' ? nameEnd + 1 : nameEnd;
    const std::string_view value = hasValue ? trim(std::string_view(argument).substr(valueStart)) : "";
    for (const Keyword& keyword : known) {
        if (std::ranges::find(keyword.spellings, name) == keyword.spellings.end()) {
            continue;
        }
        if (hasValue == (keyword.form == ValueForm::none) || !fits(keyword.form, value)) {
            refuse(argument, keyword.usage);
        }
        return;
    }
    throw RunError("unknown keyword \"" + argument + "\"; the nearest known one is " +
                   std::string(nearestTo(name).usage));
}

}  // namespace

void checkKeywords(std::span<const std::string> keywords) {
    for (const std::string& keyword : keywords) {
        checkKeyword(keyword);
    }
}

}  // namespace voxlith
