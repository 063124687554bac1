// The shared free-format reader of all text inputs.
//
// A read takes values from a text file or from a text in memory. Values are separated by spaces, tabs, commas or line
// ends; a read runs on over lines; after the last value of a read the rest of the line is dropped. n*value repeats a
// value, n* and two commas in a row leave targets unchanged, a slash ends the read (all further targets stay unchanged,
// status good). Exponents may be written with E, D or a sign alone. Each number is rounded once, to the precision of
// its target. Carriage returns count as spaces.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/number_scan.h"
#include "base/text_input.h"

namespace voxlith {

// Good, end of the text before the value, or text that is no number. Usually bad text is fatal and the end is not.
enum class ReadStatus : int { endOfText = -1, good = 0, badText = 1 };

// The state of one read: beginFreeFormatRead, readValue for each value, endFreeFormatRead. After a status other than
// good, further calls return the same status and leave their targets unchanged. Null values give good.
struct FreeFormatRead {
    explicit FreeFormatRead(TextInput& readFrom) : input(readFrom) {}

    TextInput& input;
    ReadStatus status = ReadStatus::good;
    bool slashSeen = false;
    bool commaPending = true;      // true at the start and after a comma: another comma now is a null value
    std::int32_t repeatsLeft = 0;  // of the value or null value read last
    std::int64_t valuesRead = 0;   // values actually given, null values not counted
    std::int64_t failureLine = 0;  // the line in which the read failed
    std::size_t repeatLength = 0;  // 0 for a repeated null value
    std::size_t badLength = 0;
    std::array<char, longestWord> repeatWord;  // the repeated value as spelled; the first repeatLength characters count
    std::array<char, 64> badWord;              // found where a number was expected, cut; the first badLength count
};

FreeFormatRead beginFreeFormatRead(TextInput& input);
ReadStatus readValue(FreeFormatRead& read, double& target);
ReadStatus readValue(FreeFormatRead& read, float& target);
ReadStatus readValue(FreeFormatRead& read, std::int32_t& target);
// As many values as the span has elements; the first status that is not good ends it. The fast path for long arrays.
ReadStatus readValues(FreeFormatRead& read, std::span<double> targets);
ReadStatus readValues(FreeFormatRead& read, std::span<float> targets);
// Drops the rest of the line. Also after a failed read: the next read starts on the next line.
void endFreeFormatRead(FreeFormatRead& read);

// A whole read of one array or one value. A read into an empty span consumes nothing, not even the line.
ReadStatus freeFormatRead(TextInput& input, std::span<double> targets);
ReadStatus freeFormatRead(TextInput& input, std::span<float> targets);
ReadStatus freeFormatRead(TextInput& input, std::int32_t& target);

// A read from a text in memory: reads into each target in turn. Status as above; the targets before the failure have
// their values. `valuesRead`, when not null, gets the number of values given (0 for "/path": no number at all).
ReadStatus freeFormatRead(std::string_view text, std::span<double> targets, std::int64_t* valuesRead = nullptr);
ReadStatus freeFormatRead(std::string_view text, std::span<float> targets, std::int64_t* valuesRead = nullptr);
ReadStatus freeFormatRead(std::string_view text, std::span<std::int32_t> targets, std::int64_t* valuesRead = nullptr);

// The reader's own error as RunError: "FILE, line N: expected WHAT, found ..." (or "found the end of the file").
[[noreturn]] void throwReadError(const FreeFormatRead& read, std::string_view expected);

}  // namespace voxlith
