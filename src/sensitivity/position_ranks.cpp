#include "sensitivity/position_ranks.h"

#include <algorithm>

namespace voxlith {

namespace {

void markPositions(std::span<const std::int32_t> indices, std::uint8_t* inUse) {
    for (const std::int32_t index : indices) {
        inUse[static_cast<std::size_t>(index) - 1] = 1;
    }
}

bool indicesRise(std::span<const std::int32_t> indices) {
    std::int32_t falls = 0;  // no branch inside, so that vectors can do it
    for (std::size_t p = 1; p < indices.size(); ++p) {
        falls |= indices[p] <= indices[p - 1] ? 1 : 0;
    }
    return falls == 0;
}

}  // namespace

PositionRanks rankPositions(std::span<const std::int32_t> words, const RawRows& raw, std::size_t paddedCount,
                            std::vector<std::int32_t>& positionsInUse) {
    PositionRanks ranks;
    ranks.rises.resize(raw.length.size());
    std::vector<std::uint8_t> inUse(paddedCount, 0);
    auto word = static_cast<std::size_t>(raw.firstWord);
    for (std::size_t r = 0; r < raw.length.size(); ++r) {
        const auto length = static_cast<std::size_t>(raw.length[r]);
        const std::span<const std::int32_t> indices = words.subspan(word, length);
        markPositions(indices, inUse.data());
        ranks.rises[r] = indicesRise(indices) ? 1 : 0;
        word += 2 * length;
    }
    positionsInUse.reserve(static_cast<std::size_t>(std::count(inUse.begin(), inUse.end(), 1)));
    ranks.placeAt.resize(paddedCount);
    for (std::size_t position = 0; position < paddedCount; ++position) {
        if (inUse[position] != 0) {
            ranks.placeAt[position] = static_cast<std::int32_t>(positionsInUse.size());
            positionsInUse.push_back(static_cast<std::int32_t>(position));
        }
    }
    return ranks;
}

}  // namespace voxlith
