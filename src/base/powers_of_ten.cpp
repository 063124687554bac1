#include "base/powers_of_ten.h"

namespace voxlith {

namespace {

// A number of 192 bits while the table is made, the most significant word of 32 bits first and its top bit set.
struct LongNumber {
    std::array<std::uint32_t, 6> words{};
    std::int32_t binaryExponent = 0;  // of the last bit of the first two words
};

constexpr void shiftLeftOne(LongNumber& number) {
    for (std::size_t i = 0; i < number.words.size(); ++i) {
        const std::uint32_t carry = i + 1 < number.words.size() ? number.words[i + 1] >> 31 : 0;
        number.words[i] = (number.words[i] << 1) | carry;
    }
    --number.binaryExponent;
}

constexpr void shiftRightOne(LongNumber& number, std::uint32_t topBit) {
    for (std::size_t i = number.words.size(); i-- > 0;) {
        const std::uint32_t carry = i > 0 ? number.words[i - 1] & 1 : topBit;
        number.words[i] = (number.words[i] >> 1) | (carry << 31);
    }
    ++number.binaryExponent;
}

constexpr void timesTen(LongNumber& number) {
    std::uint64_t carry = 0;
    for (std::size_t i = number.words.size(); i-- > 0;) {
        carry += std::uint64_t{number.words[i]} * 10;
        number.words[i] = static_cast<std::uint32_t>(carry);
        carry >>= 32;
    }
    while (carry != 0) {
        shiftRightOne(number, static_cast<std::uint32_t>(carry & 1));
        carry >>= 1;
    }
}

constexpr void byTen(LongNumber& number) {
    std::uint64_t rest = 0;
    for (std::uint32_t& word : number.words) {
        const std::uint64_t part = (rest << 32) | word;
        word = static_cast<std::uint32_t>(part / 10);
        rest = part % 10;
    }
    while ((number.words[0] >> 31) == 0) {
        shiftLeftOne(number);
    }
}

constexpr PowerOfTen roundDown(const LongNumber& number) {
    return {(std::uint64_t{number.words[0]} << 32) | number.words[1], number.binaryExponent};
}

// Each step loses less than a unit in the last of 192 bits, so 345 of them do not reach the first 64.
constexpr auto makePowersOfTen() {
    std::array<PowerOfTen, highestPower - lowestPower + 1> powers{};
    LongNumber one;
    one.words[0] = std::uint32_t{1} << 31;
    one.binaryExponent = -63;
    LongNumber number = one;
    for (int power = 0; power <= highestPower; ++power) {
        powers[static_cast<std::size_t>(power - lowestPower)] = roundDown(number);
        timesTen(number);
    }
    number = one;
    for (int power = -1; power >= lowestPower; --power) {
        byTen(number);
        powers[static_cast<std::size_t>(power - lowestPower)] = roundDown(number);
    }
    return powers;
}

}  // namespace

constinit const std::array<PowerOfTen, highestPower - lowestPower + 1> powersOfTen = makePowersOfTen();

}  // namespace voxlith
