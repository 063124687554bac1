// The free-format reader on its own: from a text in memory and from a file, which must give the same, and numbers of
// the usual spelling against the C library.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <vector>

#include "base/free_format.h"
#include "base/number_scan.h"
#include "harness.h"

using namespace voxlith;

namespace {

template <typename Number>
void readBothWays(std::string_view text, const fuzzing::InputFile& file, std::size_t count) {
    std::vector<Number> fromText(count, Number{-7});
    std::vector<Number> fromFile(count, Number{-7});
    std::int64_t valuesRead = 0;
    const ReadStatus status = freeFormatRead(text, std::span(fromText), &valuesRead);
    TextInput input;
    fuzzing::require(openTextInput(input, file.name()), "the file opens");
    FreeFormatRead read = beginFreeFormatRead(input);
    ReadStatus statusOfFile = ReadStatus::good;
    for (Number& target : fromFile) {
        statusOfFile = readValue(read, target);
    }
    if (count > 0) {
        fuzzing::require(status == statusOfFile, "text and file give the same status");
        fuzzing::require(valuesRead == read.valuesRead, "text and file give as many values");
    }
    const auto uniform = [](Number a, Number b) { return a == b || (a != a && b != b); };
    fuzzing::require(std::equal(fromText.begin(), fromText.end(), fromFile.begin(), uniform),
                     "text and file give the same values");
    endFreeFormatRead(read);
}

// Digits with at most one point and an exponent of the common kind.
bool isCommonSpelling(const std::string& word) {
    std::size_t at = word.find_first_of("+-") == 0 ? 1 : 0;
    std::size_t digits = 0;
    std::size_t points = 0;
    for (; at < word.size() && (std::isdigit(static_cast<unsigned char>(word[at])) != 0 || word[at] == '.'); ++at) {
        (word[at] == '.' ? points : digits) += 1;
    }
    if (digits == 0 || points > 1) {
        return false;
    }
    if (at == word.size()) {
        return true;
    }
    if (word[at] != 'e' && word[at] != 'E') {
        return false;
    }
    ++at;
    if (at < word.size() && (word[at] == '+' || word[at] == '-')) {
        ++at;
    }
    const std::size_t first = at;
    while (at < word.size() && std::isdigit(static_cast<unsigned char>(word[at])) != 0) {
        ++at;
    }
    return at == word.size() && at > first && at - first < 5;
}

void compareWithLibrary(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(separators), text.size());
        const std::string word(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (word.size() > longestWord || !isCommonSpelling(word)) {
            continue;
        }
        double wide = 0;
        float narrow = 0;
        fuzzing::require(parseNumber(word, wide) && parseNumber(word, narrow),
                         "a number of the common spelling is read");
        fuzzing::require(
            std::bit_cast<std::uint64_t>(wide) == std::bit_cast<std::uint64_t>(std::strtod(word.c_str(), nullptr)),
            "the double is the nearest one");
        fuzzing::require(
            std::bit_cast<std::uint32_t>(narrow) == std::bit_cast<std::uint32_t>(std::strtof(word.c_str(), nullptr)),
            "the float is the nearest one");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("numbers.txt");
    fuzzing::Choices choices({data, size});
    const std::size_t kind = choices.below(3);
    const std::size_t count = choices.below(64);
    const std::string_view text = choices.text();
    file.set(text);
    if (kind == 0) {
        readBothWays<double>(text, file, count);
    } else if (kind == 1) {
        readBothWays<float>(text, file, count);
    } else {
        readBothWays<std::int32_t>(text, file, count);
    }
    compareWithLibrary(text);
    return 0;
}
