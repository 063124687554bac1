#include "base/free_format.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "base/messages.h"

namespace voxlith {

namespace {

enum class Found { word, nullValue, slash, endOfText };

// Skips separators up to the next word or null value, counting line ends and commas.
Found findValue(FreeFormatRead& read) {
    TextInput& input = read.input;
    for (;;) {
        if (input.ahead.empty() && !fillAhead(input)) {
            return Found::endOfText;
        }
        const char next = input.ahead.front();
        if (next == '/') {
            return Found::slash;
        }
        if (!endsWord(next)) {
            return Found::word;
        }
        input.ahead.remove_prefix(1);
        input.lineNumber += next == '\n' ? 1 : 0;
        if (next == ',') {
            if (read.commaPending) {
                return Found::nullValue;
            }
            read.commaPending = true;
        }
    }
}

// The next word, or its first longestWord + 1 characters when it is longer than allowed.
std::string_view wordAhead(TextInput& input) {
    std::size_t length = 0;
    for (;;) {
        while (length < input.ahead.size() && length <= longestWord && !endsWord(input.ahead[length])) {
            ++length;
        }
        if (length > longestWord || length < input.ahead.size() || !fillAhead(input)) {
            return input.ahead.substr(0, length);
        }
    }
}

ReadStatus failRead(FreeFormatRead& read, std::string_view word) {
    read.status = ReadStatus::badText;
    read.failureLine = read.input.lineNumber;
    read.badLength = std::min(word.size(), read.badWord.size());
    std::copy_n(word.begin(), read.badLength, read.badWord.begin());
    return read.status;
}

template <class Number>
bool parseWord(FreeFormatRead& read, std::string_view word, Number& target) {
    if (!parseNumber(word, target)) {
        return false;
    }
    ++read.valuesRead;
    return true;
}

// A word with a repeat count, 3*1.5 or 3*: `star` is the position of the asterisk. Parses the first of the repeated
// values.
template <class Number>
bool parseRepeated(FreeFormatRead& read, std::string_view word, std::size_t star, Number& target) {
    std::int32_t repeats = 0;
    const char* const countEnd = word.data() + star;
    const auto [end, error] = std::from_chars(word.data(), countEnd, repeats);
    if (error != std::errc() || end != countEnd || repeats < 1) {
        return false;
    }
    const std::string_view value = word.substr(star + 1);
    if (!value.empty() && !parseWord(read, value, target)) {
        return false;
    }
    read.repeatsLeft = repeats - 1;
    read.repeatLength = value.size();
    std::copy(value.begin(), value.end(), read.repeatWord.begin());
    return true;
}

template <class Number>
ReadStatus repeatValue(FreeFormatRead& read, Number& target) {
    --read.repeatsLeft;
    const std::string_view word(read.repeatWord.data(), read.repeatLength);
    if (word.empty() || parseWord(read, word, target)) {
        return ReadStatus::good;
    }
    return failRead(read, word);
}

template <class Number>
ReadStatus readOne(FreeFormatRead& read, Number& target) {
    if (read.status != ReadStatus::good || read.slashSeen) {
        return read.status;
    }
    if (read.repeatsLeft > 0) {
        return repeatValue(read, target);
    }
    switch (findValue(read)) {
        case Found::nullValue:
            return ReadStatus::good;
        case Found::slash:
            read.slashSeen = true;
            return ReadStatus::good;
        case Found::endOfText:
            read.failureLine = read.input.lineNumber;
            return read.status = ReadStatus::endOfText;
        case Found::word:
            break;
    }
    const std::string_view word = wordAhead(read.input);
    const std::size_t star = word.find('*');
    const bool parsed =
        word.size() <= longestWord &&
        (star == std::string_view::npos ? parseWord(read, word, target) : parseRepeated(read, word, star, target));
    if (!parsed) {
        return failRead(read, word);
    }
    read.commaPending = false;
    read.input.ahead.remove_prefix(word.size());
    return ReadStatus::good;
}

// The numbers at the head of the block, as long as they need nothing special: no repeat count, no null value, no slash,
// no rare spelling, and the end of the word in the block. Gives how many targets were filled; readOne goes on from
// there.
template <class Number>
std::size_t parsePlainNumbers(FreeFormatRead& read, std::span<Number> targets) {
    TextInput& input = read.input;
    const char* position = input.ahead.data();
    // After the last separator a word may go on in the next block. Before it every scan of a word ends at a separator.
    const std::size_t lastSeparator = input.ahead.find_last_of(separators);
    const char* const end = position + (lastSeparator == std::string_view::npos ? 0 : lastSeparator);
    const char* const limit = position + input.ahead.size();
    std::int64_t lineEnds = 0;
    std::size_t count = 0;
    bool commaPending = read.commaPending;
    const char* consumed = position;
    while (count < targets.size()) {
        while (position < end && endsWord(*position) && *position != '/' && !(*position == ',' && commaPending)) {
            lineEnds += *position == '\n' ? 1 : 0;
            commaPending = commaPending || *position == ',';
            ++position;
        }
        consumed = position;
        if (position >= end) {
            break;
        }
        const char* const wordEnd = scanNumber(position, limit, targets[count]);
        if (wordEnd == nullptr) {
            break;
        }
        ++count;
        commaPending = false;
        position = wordEnd;
        consumed = wordEnd;
    }
    input.ahead.remove_prefix(static_cast<std::size_t>(consumed - input.ahead.data()));
    input.lineNumber += lineEnds;
    read.commaPending = commaPending;
    read.valuesRead += static_cast<std::int64_t>(count);
    return count;
}

// The further values of a repeat count at once; the first one precedes `targets`.
template <class Number>
std::size_t fillRepeated(FreeFormatRead& read, std::span<Number> targets, Number value) {
    const std::size_t count = std::min(targets.size(), static_cast<std::size_t>(read.repeatsLeft));
    if (read.repeatLength > 0) {
        std::fill_n(targets.begin(), count, value);
        read.valuesRead += static_cast<std::int64_t>(count);
    }
    read.repeatsLeft -= static_cast<std::int32_t>(count);
    return count;
}

template <class Number>
ReadStatus readMany(FreeFormatRead& read, std::span<Number> targets) {
    std::size_t next = 0;
    while (next < targets.size()) {
        if (read.status == ReadStatus::good && !read.slashSeen && read.repeatsLeft == 0) {
            next += parsePlainNumbers(read, targets.subspan(next));
            if (next == targets.size()) {
                break;
            }
        }
        if (readOne(read, targets[next]) != ReadStatus::good || read.slashSeen) {
            break;
        }
        ++next;
        next += fillRepeated(read, targets.subspan(next), targets[next - 1]);
    }
    return read.status;
}

// Integers are few; they have no fast path.
ReadStatus readMany(FreeFormatRead& read, std::span<std::int32_t> targets) {
    for (std::int32_t& target : targets) {
        if (readOne(read, target) != ReadStatus::good) {
            break;
        }
    }
    return read.status;
}

template <class Number>
ReadStatus readWhole(TextInput& input, std::span<Number> targets) {
    if (targets.empty()) {
        return ReadStatus::good;
    }
    FreeFormatRead read(input);
    const ReadStatus status = readMany(read, targets);
    endFreeFormatRead(read);
    return status;
}

template <class Number>
ReadStatus readFromMemory(std::string_view text, std::span<Number> targets, std::int64_t* valuesRead) {
    TextInput input;
    openTextInMemory(input, text);
    FreeFormatRead read(input);
    const ReadStatus status = readMany(read, targets);
    if (valuesRead != nullptr) {
        *valuesRead = read.valuesRead;
    }
    return status;
}

}  // namespace

FreeFormatRead beginFreeFormatRead(TextInput& input) {
    return FreeFormatRead(input);
}

ReadStatus readValue(FreeFormatRead& read, double& target) {
    return readOne(read, target);
}
ReadStatus readValue(FreeFormatRead& read, float& target) {
    return readOne(read, target);
}
ReadStatus readValue(FreeFormatRead& read, std::int32_t& target) {
    return readOne(read, target);
}

ReadStatus readValues(FreeFormatRead& read, std::span<double> targets) {
    return readMany(read, targets);
}
ReadStatus readValues(FreeFormatRead& read, std::span<float> targets) {
    return readMany(read, targets);
}

void endFreeFormatRead(FreeFormatRead& read) {
    TextInput& input = read.input;
    while (!input.ahead.empty() || fillAhead(input)) {
        const std::size_t lineEnd = input.ahead.find('\n');
        if (lineEnd != std::string_view::npos) {
            input.ahead.remove_prefix(lineEnd + 1);
            ++input.lineNumber;
            return;
        }
        input.ahead.remove_prefix(input.ahead.size());
    }
}

ReadStatus freeFormatRead(TextInput& input, std::span<double> targets) {
    return readWhole(input, targets);
}
ReadStatus freeFormatRead(TextInput& input, std::span<float> targets) {
    return readWhole(input, targets);
}
ReadStatus freeFormatRead(TextInput& input, std::int32_t& target) {
    return readWhole(input, std::span(&target, 1));
}

ReadStatus freeFormatRead(std::string_view text, std::span<double> targets, std::int64_t* valuesRead) {
    return readFromMemory(text, targets, valuesRead);
}
ReadStatus freeFormatRead(std::string_view text, std::span<float> targets, std::int64_t* valuesRead) {
    return readFromMemory(text, targets, valuesRead);
}
ReadStatus freeFormatRead(std::string_view text, std::span<std::int32_t> targets, std::int64_t* valuesRead) {
    return readFromMemory(text, targets, valuesRead);
}

void throwReadError(const FreeFormatRead& read, std::string_view expected) {
    std::string message = read.input.name + ", line " + std::to_string(read.failureLine) + ": expected ";
    message.append(expected).append(", found ");
    if (read.status == ReadStatus::endOfText) {
        message.append(read.input.handle >= 0 ? "the end of the file" : "the end of the text");
    } else {
        message.append("\"");
        for (const char character : std::string_view(read.badWord.data(), read.badLength)) {
            const bool printable = character >= ' ' && character <= '~';
            message.push_back(printable ? character : '?');
        }
        message.append("\"");
    }
    throw RunError(message);
}

}  // namespace voxlith
