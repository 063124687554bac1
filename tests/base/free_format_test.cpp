#include "base/free_format.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

struct Recorded {
    char kind = ' ';
    int status = 0;
    std::array<std::uint64_t, 3> bits{};
    std::string next;
};

std::vector<Recorded> readRecorded() {
    std::vector<Recorded> all;
    std::ifstream file(VOXLITH_TEST_DATA "/base/free_format_recorded.txt");
    std::string line;
    while (std::getline(file, line)) {
        Recorded one;
        std::istringstream words(line);
        words >> one.kind >> one.status >> std::hex >> one.bits[0] >> one.bits[1] >> one.bits[2];
        words.get();
        std::getline(words, one.next);
        all.push_back(one);
    }
    return all;
}

std::vector<std::string> readCases() {
    std::vector<std::string> all;
    std::ifstream file(VOXLITH_TEST_DATA "/base/free_format_cases.txt");
    for (std::string line; std::getline(file, line);) {
        for (char& character : line) {
            character = character == '|' ? '\n' : character;
        }
        all.push_back(line);
    }
    return all;
}

template <class Number>
std::uint64_t bitsOf(Number value) {
    if constexpr (sizeof(Number) == 8) {
        return std::bit_cast<std::uint64_t>(value);
    } else {
        return std::bit_cast<std::uint32_t>(value);
    }
}

template <class Number>
bool sameNumber(Number value, std::uint64_t recorded) {
    if constexpr (std::is_floating_point_v<Number>) {
        if (std::isnan(value)) {
            using Bits = std::conditional_t<sizeof(Number) == 8, std::uint64_t, std::uint32_t>;
            return std::isnan(std::bit_cast<Number>(static_cast<Bits>(recorded)));
        }
    }
    return bitsOf(value) == recorded;
}

// Compares a read of three values by one with the recorded one, both through readValue and through the array form.
template <class Number>
void compareWithRecorded(const std::string& text, const Recorded& recorded, bool withNext) {
    const std::string whole = text + (withNext ? "\nNEXT\n" : "\n");
    TextInput input;
    openTextInMemory(input, whole);
    std::array<Number, 3> values = {-7, -7, -7};
    FreeFormatRead read = beginFreeFormatRead(input);
    for (Number& value : values) {
        readValue(read, value);
    }
    endFreeFormatRead(read);
    ASSERT_EQ(static_cast<int>(read.status), recorded.status) << "[" << text << "] kind " << recorded.kind;
    std::array<Number, 3> arrayValues = {-7, -7, -7};
    ASSERT_EQ(static_cast<int>(freeFormatRead(std::string_view(whole), std::span<Number>(arrayValues))),
              recorded.status);
    for (std::size_t i = 0; i < 3; ++i) {
        // The recorded reader zeroes the target of a lone point before it finds no digit; here targets stay as they
        // are.
        const bool zeroedByFailure = recorded.status == 1 && recorded.bits[i] == 0 && values[i] == -7;
        EXPECT_TRUE(sameNumber(values[i], recorded.bits[i]) || zeroedByFailure)
            << "[" << text << "] kind " << recorded.kind << " value " << i + 1 << ": " << values[i];
        EXPECT_EQ(bitsOf(arrayValues[i]), bitsOf(values[i])) << "[" << text << "]";
    }
    if (recorded.status == 0) {
        std::string next;
        readLine(input, next, 20);
        next.erase(next.find_last_not_of(' ') + 1);
        EXPECT_EQ(next, recorded.next) << "[" << text << "] kind " << recorded.kind;
    }
}

TEST(FreeFormat, agreesWithTheRecordedListDirectedReader) {
    const std::vector<std::string> cases = readCases();
    const std::vector<Recorded> recorded = readRecorded();
    ASSERT_GT(cases.size(), 500u);
    ASSERT_EQ(recorded.size(), 4 * cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string& text = cases[i];
        compareWithRecorded<double>(text, recorded[4 * i], true);
        compareWithRecorded<float>(text, recorded[4 * i + 1], true);
        compareWithRecorded<std::int32_t>(text, recorded[4 * i + 2], true);
        compareWithRecorded<double>(text, recorded[4 * i + 3], false);
    }
}

TEST(FreeFormat, endsGoodAtTheEndOfATextWithoutLineEnd) {
    std::array<double, 2> values{};
    EXPECT_EQ(freeFormatRead("1 2.5", values), ReadStatus::good);
    EXPECT_EQ(values[1], 2.5);
    std::array<double, 3> three = {-7, -7, -7};
    std::int64_t taken = -1;
    EXPECT_EQ(freeFormatRead("1 2", three, &taken), ReadStatus::endOfText);
    EXPECT_EQ(three, (std::array<double, 3>{1, 2, -7}));
    EXPECT_EQ(taken, 2);
    EXPECT_EQ(freeFormatRead("", values), ReadStatus::endOfText);
    EXPECT_EQ(freeFormatRead("   ", values), ReadStatus::endOfText);
}

TEST(FreeFormat, countsTheValuesGiven) {
    std::array<float, 4> values = {9, 9, 9, 9};
    std::int64_t taken = -1;
    EXPECT_EQ(freeFormatRead("/path", values, &taken), ReadStatus::good);
    EXPECT_EQ(taken, 0);
    EXPECT_EQ(freeFormatRead("2*,3,/", values, &taken), ReadStatus::good);
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(freeFormatRead("9*4", values, &taken), ReadStatus::good);
    EXPECT_EQ(taken, 4);
    EXPECT_EQ(freeFormatRead("1.5,model.dat", std::span(values).first(1), &taken), ReadStatus::good);
    EXPECT_EQ(values[0], 1.5f);
}

TEST(FreeFormat, takesNoSemicolonAsSeparator) {
    std::array<double, 2> values = {-7, -7};
    EXPECT_EQ(freeFormatRead("1;2", values), ReadStatus::badText);
    EXPECT_EQ(freeFormatRead("1 ;2", values), ReadStatus::badText);
    EXPECT_EQ(values[1], -7);
}

// Some list-directed readers read the number after such a slash all the same.
TEST(FreeFormat, endsAtASlashAtTheBeginningOfALine) {
    std::array<double, 3> values = {-7, -7, -7};
    TextInput input;
    openTextInMemory(input, "1\n/2\n3");
    EXPECT_EQ(freeFormatRead(input, values), ReadStatus::good);
    EXPECT_EQ(values, (std::array<double, 3>{1, -7, -7}));
    EXPECT_EQ(freeFormatRead(input, std::span(values).first(1)), ReadStatus::good);
    EXPECT_EQ(values[0], 3);
}

TEST(FreeFormat, takesRepeatCountsUpToTheLargestInteger) {
    std::vector<double> values(1000);
    EXPECT_EQ(freeFormatRead("2147483647*0.25", values), ReadStatus::good);
    EXPECT_EQ(values.back(), 0.25);
    EXPECT_EQ(freeFormatRead("2147483648*0.25", values), ReadStatus::badText);
}

TEST(FreeFormat, repeatsAcrossTargetsOfDifferentKinds) {
    TextInput input;
    openTextInMemory(input, "3*2 5");
    FreeFormatRead read = beginFreeFormatRead(input);
    double real = 0;
    float single = 0;
    std::int32_t whole = 0;
    EXPECT_EQ(readValue(read, real), ReadStatus::good);
    EXPECT_EQ(readValue(read, single), ReadStatus::good);
    EXPECT_EQ(readValue(read, whole), ReadStatus::good);
    EXPECT_EQ(real + single + whole, 6);
    EXPECT_EQ(readValue(read, whole), ReadStatus::good);
    EXPECT_EQ(whole, 5);
    openTextInMemory(input, "2*2.5");
    FreeFormatRead mixed = beginFreeFormatRead(input);
    EXPECT_EQ(readValue(mixed, real), ReadStatus::good);
    EXPECT_EQ(readValue(mixed, whole), ReadStatus::badText);
    EXPECT_EQ(whole, 5);
}

TEST(FreeFormat, keepsItsStatusOnceItIsNotGood) {
    TextInput input;
    openTextInMemory(input, "1 x 3\n4");
    FreeFormatRead read = beginFreeFormatRead(input);
    std::array<double, 3> values = {-7, -7, -7};
    EXPECT_EQ(readValues(read, values), ReadStatus::badText);
    EXPECT_EQ(readValue(read, values[2]), ReadStatus::badText);
    EXPECT_EQ(readValues(read, values), ReadStatus::badText);
    EXPECT_EQ(values, (std::array<double, 3>{1, -7, -7}));
    endFreeFormatRead(read);
    EXPECT_EQ(freeFormatRead(input, std::span(values).first(1)), ReadStatus::good);
    EXPECT_EQ(values[0], 4);
}

TEST(FreeFormat, takesCarriageReturnsAsSpaces) {
    std::array<double, 3> values{};
    TextInput input;
    openTextInMemory(input, "1\r\n2,\r\n\r\n3 rest\r\n4\r\n");
    EXPECT_EQ(freeFormatRead(input, values), ReadStatus::good);
    EXPECT_EQ(values, (std::array<double, 3>{1, 2, 3}));
    std::int32_t next = 0;
    EXPECT_EQ(freeFormatRead(input, next), ReadStatus::good);
    EXPECT_EQ(next, 4);
}

TEST(FreeFormat, takesNothingForAnEmptySpan) {
    TextInput input;
    openTextInMemory(input, "1\n2\n");
    EXPECT_EQ(freeFormatRead(input, std::span<double>()), ReadStatus::good);
    std::int32_t value = 0;
    EXPECT_EQ(freeFormatRead(input, value), ReadStatus::good);
    EXPECT_EQ(value, 1);
}

std::string errorOf(const FreeFormatRead& read) {
    try {
        throwReadError(read, "a number");
    } catch (const RunError& error) {
        return error.what();
    }
    return "";
}

TEST(FreeFormat, namesPlaceAndWordInItsError) {
    TextInput input;
    openTextInMemory(input, "1\n\n2\n 3 a\x01z 4\n5", "some.txt");
    std::array<double, 6> values{};
    FreeFormatRead read = beginFreeFormatRead(input);
    EXPECT_EQ(readValues(read, values), ReadStatus::badText);
    endFreeFormatRead(read);
    EXPECT_EQ(errorOf(read), "some.txt, line 4: expected a number, found \"a?z\"");
    FreeFormatRead next = beginFreeFormatRead(input);
    EXPECT_EQ(readValues(next, values), ReadStatus::endOfText);
    EXPECT_EQ(errorOf(next), "some.txt, line 5: expected a number, found the end of the text");
}

TEST(FreeFormat, cutsTheWordInItsError) {
    TextInput input;
    const std::string word(2000, 'y');
    openTextInMemory(input, word, "f");
    double value = 0;
    FreeFormatRead read = beginFreeFormatRead(input);
    EXPECT_EQ(readValue(read, value), ReadStatus::badText);
    EXPECT_EQ(errorOf(read), "f, line 1: expected a number, found \"" + std::string(64, 'y') + "\"");
}

TEST(FreeFormat, refusesWordsOfAbsurdLength) {
    double value = -7;
    EXPECT_EQ(freeFormatRead(std::string(longestWord - 2, '0') + "12", std::span(&value, 1)), ReadStatus::good);
    EXPECT_EQ(value, 12);
    EXPECT_EQ(freeFormatRead("+" + std::string(longestWord - 1, '0') + " ", std::span(&value, 1)), ReadStatus::good);
    EXPECT_EQ(freeFormatRead("1." + std::string(longestWord - 4, '3') + "+1 ", std::span(&value, 1)), ReadStatus::good);
    EXPECT_EQ(value, 40.0 / 3);
    EXPECT_EQ(freeFormatRead("1*" + std::string(longestWord - 2, '0') + " ", std::span(&value, 1)), ReadStatus::good);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(freeFormatRead(std::string(longestWord - 1, '0') + "12 ", std::span(&value, 1)), ReadStatus::badText);
    TemporaryFolder folder;
    TextInput input;
    ASSERT_TRUE(openTextInput(input, folder.write("digits.txt", std::string(5000000, '7') + "\n8\n")));
    EXPECT_EQ(freeFormatRead(input, std::span(&value, 1)), ReadStatus::badText);
    EXPECT_EQ(value, 0);
    EXPECT_LT(input.block.size(), 1000000u);
    EXPECT_EQ(freeFormatRead(input, std::span(&value, 1)), ReadStatus::good);
    EXPECT_EQ(value, 8);
}

TEST(FreeFormat, readsAFolderAsNoFile) {
    TemporaryFolder folder;
    TextInput input;
    EXPECT_FALSE(openTextInput(input, folder.path().string()));
    EXPECT_EQ(errno, EISDIR);
    // A folder that was opened all the same fails at the read, with its name.
    openTextInMemory(input, "");
    input.name = "the folder";
    input.handle = ::open(folder.path().c_str(), O_RDONLY);
    input.ended = false;
    double value = 0;
    EXPECT_THROW(
        {
            try {
                freeFormatRead(input, std::span(&value, 1));
            } catch (const RunError& error) {
                EXPECT_STREQ(error.what(), "the folder: cannot be read: Is a directory");
                throw;
            }
        },
        RunError);
}

// A number in one of many spellings.
std::string drawNumber(std::mt19937_64& generator) {
    std::array<char, 64> text{};
    double value = std::bit_cast<double>(generator());
    if (!std::isfinite(value) || generator() % 3 != 0) {
        value = std::ldexp(static_cast<double>(static_cast<std::int64_t>(generator())),
                           -40 - static_cast<int>(generator() % 60));
    }
    const std::array<const char*, 6> formats = {"%.17g", "%14.6E", "%.2f", "%.9g", "%.0f", "%.25e"};
    std::snprintf(text.data(), text.size() - 1, formats[generator() % formats.size()], value);
    return text.data();
}

// Files of many blocks: numbers stand across every border between two of them.
TEST(FreeFormat, readsLongFilesLikeTheLibrary) {
    TemporaryFolder folder;
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        std::mt19937_64 generator(seed);
        std::string text;
        std::vector<double> doubles;
        std::vector<float> floats;
        const std::array<const char*, 8> gaps = {" ", "\n", ",", "\t", " ,\n ", "\n\n", "\r\n", "   "};
        while (text.size() < 1500000) {
            const std::string number = drawNumber(generator);
            const bool repeated = generator() % 50 == 0;
            text +=
                (repeated ? "3*" : "") + number.substr(number.find_first_not_of(' ')) + gaps[generator() % gaps.size()];
            for (int i = 0; i < (repeated ? 3 : 1); ++i) {
                doubles.push_back(std::strtod(number.c_str(), nullptr));
                floats.push_back(std::strtof(number.c_str(), nullptr));
            }
        }
        TextInput input;
        ASSERT_TRUE(openTextInput(input, folder.write("long.txt", text)));
        std::vector<double> asDoubles(doubles.size());
        ASSERT_EQ(freeFormatRead(input, std::span<double>(asDoubles)), ReadStatus::good) << "seed " << seed;
        EXPECT_EQ(std::memcmp(asDoubles.data(), doubles.data(), 8 * doubles.size()), 0) << "seed " << seed;
        rewindTextInput(input);
        std::vector<float> asFloats(floats.size() + 1);
        ASSERT_EQ(freeFormatRead(input, std::span<float>(asFloats)), ReadStatus::endOfText) << "seed " << seed;
        EXPECT_EQ(std::memcmp(asFloats.data(), floats.data(), 4 * floats.size()), 0) << "seed " << seed;
    }
}

// Numbers at and near the middle between two neighbours, where one wrong bit shows.
TEST(FreeFormat, roundsOnceAtTheMiddleBetweenNeighbours) {
    const std::uint64_t seed = 77;
    std::mt19937_64 generator(seed);
    for (int round = 0; round < 200000; ++round) {
        const double middle =
            std::ldexp(static_cast<double>((generator() >> 39) * 2 + 1), static_cast<int>(generator() % 40) - 30);
        std::array<char, 128> text{};
        int length = std::snprintf(text.data(), 100, "%.35f", middle);
        if (generator() % 2 == 0) {
            text[static_cast<std::size_t>(length++)] = '1';
        }
        text[static_cast<std::size_t>(length)] = ' ';
        // With few digits the value is not quite the middle any more; the fast form takes these.
        const std::size_t used = generator() % 2 == 0 ? static_cast<std::size_t>(length) : 10 + generator() % 9;
        const std::string word(text.data(), std::min(used, static_cast<std::size_t>(length)));
        float single = 0;
        double real = 0;
        ASSERT_EQ(freeFormatRead(word + " ", std::span(&single, 1)), ReadStatus::good);
        ASSERT_EQ(freeFormatRead(word + " ", std::span(&real, 1)), ReadStatus::good);
        ASSERT_EQ(single, std::strtof(word.c_str(), nullptr)) << word << " seed " << seed;
        ASSERT_EQ(real, std::strtod(word.c_str(), nullptr)) << word << " seed " << seed;
    }
}

// Whatever the bytes are, the reader comes back, and says the same whether it takes values singly or as an array.
TEST(FreeFormat, survivesAnyBytes) {
    const std::string alphabet = "0123456789+-.eEdD*/, \n\t\rnaif();x\0\xff";
    for (std::uint64_t seed = 1; seed <= 30000; ++seed) {
        std::mt19937_64 generator(seed);
        std::string text;
        for (std::uint64_t i = generator() % 60; i > 0; --i) {
            text.push_back(alphabet[generator() % (generator() % 3 == 0 ? alphabet.size() : 24)]);
        }
        std::array<double, 5> together = {-7, -7, -7, -7, -7};
        std::array<double, 5> singly = together;
        const ReadStatus status = freeFormatRead(text, together);
        TextInput input;
        openTextInMemory(input, text);
        FreeFormatRead read = beginFreeFormatRead(input);
        for (double& value : singly) {
            readValue(read, value);
        }
        ASSERT_EQ(read.status, status) << "seed " << seed;
        ASSERT_EQ(std::memcmp(together.data(), singly.data(), sizeof singly), 0) << "seed " << seed;
    }
}

}  // namespace
}  // namespace voxlith
