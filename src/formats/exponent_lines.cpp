#include "formats/exponent_lines.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "base/fixed_field.h"
#include "base/powers_of_ten.h"

namespace voxlith {

namespace {

static_assert(std::endian::native == std::endian::little, "lines are put together in words");

// Decimal exponents e of 10^e <= value < 10^(e+1) whose fields have an exponent of two digits.
constexpr int lowestExponent = -98, highestExponent = 97;
constexpr int digitsBehindFirst = exponentFieldDigits - 1;
constexpr int highestScale = digitsBehindFirst - lowestExponent;
constexpr double behindDigits = 1.0e6;  // the first number with a digit too many

// 10^highestScale and so on downwards to what the highest exponent is scaled by, each within a unit in the last place.
using Scales = std::array<double, highestExponent - lowestExponent + 1>;

Scales makeScales() {
    Scales scales{};
    for (std::size_t n = 0; n < scales.size(); ++n) {
        const PowerOfTen& power = powerOfTen(highestScale - static_cast<int>(n));
        scales[n] = std::ldexp(static_cast<double>(power.significand), power.binaryExponent);
    }
    return scales;
}

const double* scalesOfExponents() {
    static const Scales scales = makeScales();
    return scales.data();
}

// Lines are made in groups of eight, in registers of one kind: 4 of 16 bytes, 2 of 32 or 1 of 64. Whole numbers are
// kept as doubles, for which every machine has all operations. There is no branch, and no comparison: compilers take
// the lanes of a wide register apart for them. Instead, signs are made masks to choose by.
constexpr std::size_t groupLines = 8;

template <std::size_t bytes>
struct Register {
    typedef double Real __attribute__((vector_size(bytes)));
    typedef std::int64_t Whole __attribute__((vector_size(bytes)));
    static constexpr std::size_t lanes = bytes / sizeof(double);
};

struct LineGroup {
    std::array<double, groupLines> change;            // by rounding to six digits, or 1 where that is not possible
    std::array<std::int64_t, groupLines> head, tail;  // the line as two words
};

// A value times a power of ten, possibly times 0.1, has an error of four units in its last place at most, less than
// 5e-10. Where what is rounded away is nearer to a half than twice that, the exact writer decides.
constexpr double surestChange = 0.5 - 1.0e-9;

// In a sum with it the last place is the unit, below 2^51 in size: what is added is rounded, and stands in the low
// bits.
constexpr double rounder = 6755399441055744.0;  // 1.5 * 2^52
constexpr std::int64_t lowBits = 0xffff;

constexpr std::int64_t signless = 0x7fffffffffffffff;

// All bits where a number is negative, from its sign.
constexpr int signShift = 63;

template <class Real, class Whole>
[[gnu::always_inline]] inline void choose(const Whole& mask, double value, double otherwise, Real& chosen) {
    chosen = (Real)((mask & std::bit_cast<std::int64_t>(value)) | (~mask & std::bit_cast<std::int64_t>(otherwise)));
}

// From the binary exponent, right or one too low. What has no exponent of two digits, 0 above all, gets that of 0.
// `outside` tells where that is so.
template <class Lanes>
[[gnu::always_inline]] inline void findExponents(const typename Lanes::Whole& bits, typename Lanes::Real& exponent,
                                                 typename Lanes::Whole& outside) {
    typedef typename Lanes::Real Real;
    typedef typename Lanes::Whole Whole;
    constexpr double log10Of2 = 0.30102999566398119521;
    constexpr double two52 = 4503599627370496.0;
    const Real field = (Real)((bits >> 52 & 0x7ff) | std::bit_cast<std::int64_t>(two52)) - two52;
    const Real guess = ((field - 1023.0) * log10Of2 - 0.5 + rounder) - rounder;
    outside = ((Whole)(guess - lowestExponent) | (Whole)(highestExponent - 1 - guess)) >> signShift;
    exponent = (Real)((~outside & (Whole)guess) | (outside & std::bit_cast<std::int64_t>(-1.0)));
}

template <class Lanes>
[[gnu::always_inline]] inline void gatherScales(const typename Lanes::Real& exponent, const double* scales,
                                                typename Lanes::Real& scale) {
    const auto place = (typename Lanes::Whole)(exponent - lowestExponent + rounder) & lowBits;
    for (std::size_t lane = 0; lane < Lanes::lanes; ++lane) {
        scale[lane] = scales[place[lane]];
    }
}

// Two digits in two bytes for each of four numbers below 100, one in every 16 bits. 103/1024 is 1/10 for such numbers.
template <class Whole>
[[gnu::always_inline]] inline void makePairs(Whole& numbers) {
    const Whole tens = ((numbers << 6) + (numbers << 5) + (numbers << 3) - numbers) >> 10 & 0x000f000f000f000f;
    const Whole ones = numbers - (tens << 3) - (tens << 1);
    numbers = (tens | ones << 8) + 0x3030303030303030;
}

// From the whole number of six digits and the exponent of the field to the words of the line.
template <class Lanes>
[[gnu::always_inline]] inline void putWords(const typename Lanes::Real& digits, const typename Lanes::Real& exponent,
                                            const typename Lanes::Whole& sign, std::size_t i, LineGroup& group) {
    typedef typename Lanes::Whole Whole;
    constexpr std::int64_t start = ' ' | ' ' << 8 | '0' << 16 | '.' << 24;
    constexpr std::int64_t middle = 'E' << 16 | std::int64_t{'+'} << 24 | std::int64_t{'\n'} << 48;
    // Half a unit in the middle keeps each quotient as far from a whole number as it can be, so that rounding is right.
    const auto firstTwo = ((digits + 0.5) * 1.0e-4 - 0.5 + rounder) - rounder;
    const auto lastFour = digits - 1.0e4 * firstTwo;
    const auto middleTwo = ((lastFour + 0.5) * 1.0e-2 - 0.5 + rounder) - rounder;
    const auto lastTwo = lastFour - 1.0e2 * middleTwo;
    const Whole downwards = (Whole)exponent >> signShift;
    const auto size = (typename Lanes::Real)((Whole)exponent & signless);
    Whole pairs = ((Whole)(firstTwo + rounder) & lowBits) | ((Whole)(middleTwo + rounder) & lowBits) << 16 |
                  ((Whole)(lastTwo + rounder) & lowBits) << 32 | ((Whole)(size + rounder) & lowBits) << 48;
    makePairs(pairs);
    const Whole head = (start + ((sign & std::int64_t{'-' - ' '}) << 8)) | pairs << 32;
    const Whole tail = (middle + ((downwards & std::int64_t{'-' - '+'}) << 24)) | (pairs >> 32 & 0xffff) |
                       (pairs >> 48 & 0xffff) << 32;
    std::memcpy(&group.head[i], &head, sizeof head);
    std::memcpy(&group.tail[i], &tail, sizeof tail);
}

// The digits are what value * 10^scale rounds to; where the exponent was one too low there are seven before the point,
// and one is taken away.
template <class Lanes>
[[gnu::always_inline]] inline void makeLines(const double* values, const double* scales, std::size_t i,
                                             LineGroup& group, typename Lanes::Whole& suspect) {
    typedef typename Lanes::Real Real;
    typedef typename Lanes::Whole Whole;
    Whole bits;
    std::memcpy(&bits, values + i, sizeof bits);
    Real exponent{}, scale{}, factor{}, more{};
    Whole outside{};
    findExponents<Lanes>(bits, exponent, outside);
    gatherScales<Lanes>(exponent, scales, scale);
    const Real once = (Real)(bits & signless & ~outside) * scale;
    const Whole oneTooLow = ~((Whole)(once - behindDigits) >> signShift);
    choose(oneTooLow, 0.1, 1.0, factor);
    const Real scaled = once * factor;
    const Real rounded = (scaled + rounder) - rounder;
    const Whole unusual = outside & (-(bits & signless) >> signShift);
    const Whole change = ((Whole)(scaled - rounded) & signless) | (unusual & std::bit_cast<std::int64_t>(1.0));
    std::memcpy(&group.change[i], &change, sizeof change);
    suspect |= (std::bit_cast<std::int64_t>(surestChange) - change) >>
               signShift;  // numbers from 0 on are in the order of their bits
    const Whole oneTooMany = ~((Whole)(rounded - behindDigits) >> signShift);
    choose(oneTooLow, 2.0, 1.0, more);
    exponent += more;
    choose(oneTooMany, 1.0, 0.0, more);
    exponent += more;
    choose(oneTooMany, 0.1, 1.0, factor);
    const Real digits = rounded * factor;
    putWords<Lanes>(digits, exponent, bits >> 63, i, group);
}

template <class Lanes>
[[gnu::always_inline]] inline void makeGroup(const double* values, const double* scales, LineGroup& group,
                                             typename Lanes::Whole& suspect) {
    for (std::size_t i = 0; i < groupLines; i += Lanes::lanes) {
        makeLines<Lanes>(values, scales, i, group, suspect);
    }
}

void putSlow(char* out, double value) {
    out = putExponent(out, value, exponentFieldWidth, exponentFieldDigits);
    *out = '\n';
}

// Puts the lines of a group that is made; a line takes a byte more than it has, which the next one overwrites.
[[gnu::always_inline]] inline void putGroup(char* out, const LineGroup& group, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(out + exponentLineBytes * i, &group.head[i], sizeof group.head[i]);
        std::memcpy(out + exponentLineBytes * i + sizeof group.head[i], &group.tail[i], sizeof group.tail[i]);
    }
}

void putSlow(char* out, const LineGroup& group, const double* values, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (group.change[i] > surestChange) {
            putSlow(out + exponentLineBytes * i, values[i]);
        }
    }
}

// All groups of a block are put without looking for suspect lines; the few blocks that have one are gone through
// again.
constexpr std::size_t blockLines = 32 * groupLines;

template <class Lanes>
[[gnu::always_inline]] inline void putBlock(char* out, const double* values, std::size_t count, const double* scales) {
    LineGroup group;
    typename Lanes::Whole suspect{};
    for (std::size_t first = 0; first < count; first += groupLines) {
        makeGroup<Lanes>(values + first, scales, group, suspect);
        putGroup(out + exponentLineBytes * first, group, groupLines);
    }
    std::int64_t anySuspect = 0;
    for (std::size_t lane = 0; lane < Lanes::lanes; ++lane) {
        anySuspect |= suspect[lane];
    }
    for (std::size_t first = 0; anySuspect != 0 && first < count; first += groupLines) {
        makeGroup<Lanes>(values + first, scales, group, suspect);
        putSlow(out + exponentLineBytes * first, group, values + first, groupLines);
    }
}

template <class Lanes>
[[gnu::always_inline]] inline void putLines(char* out, std::span<const double> values, const double* scales) {
    while (values.size() >= groupLines) {
        const std::size_t count = std::min(values.size() / groupLines * groupLines, blockLines);
        putBlock<Lanes>(out, values.data(), count, scales);
        out += exponentLineBytes * count;
        values = values.subspan(count);
    }
    if (!values.empty()) {
        LineGroup group;
        typename Lanes::Whole suspect{};
        std::array<double, groupLines> last{};
        std::copy(values.begin(), values.end(), last.begin());
        makeGroup<Lanes>(last.data(), scales, group, suspect);
        putGroup(out, group, values.size());
        putSlow(out, group, last.data(), values.size());
    }
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void putLinesAvx2(char* out, std::span<const double> values, const double* scales) {
    putLines<Register<32>>(out, values, scales);
}
[[gnu::target("avx512f")]] void putLinesAvx512(char* out, std::span<const double> values, const double* scales) {
    putLines<Register<64>>(out, values, scales);
}
#endif

}  // namespace

char* putExponentLines(char* out, std::span<const double> values, InstructionSet instructions) {
    const double* const scales = scalesOfExponents();
    char* const behind = out + exponentLineBytes * values.size();
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512) {
        putLinesAvx512(out, values, scales);
        return behind;
    }
    if (instructions == InstructionSet::avx2) {
        putLinesAvx2(out, values, scales);
        return behind;
    }
#endif
    static_cast<void>(instructions);
    putLines<Register<16>>(out, values, scales);
    return behind;
}

}  // namespace voxlith
