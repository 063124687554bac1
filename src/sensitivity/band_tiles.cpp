#include "sensitivity/band_tiles.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace voxlith {

namespace {

// The ways to share a list of places, as a tree: all eight rows, two halves, four pairs, eight single rows. Choice n
// is split into 2 n + 1 and 2 n + 2.
struct Choice {
    std::size_t firstRow;
    std::size_t rowCount;
    std::uint8_t rowMask;
};

constexpr std::size_t choiceCount = 15;

constexpr std::array<Choice, choiceCount> choices = [] {
    std::array<Choice, choiceCount> all{};
    std::size_t n = 0;
    for (std::size_t rows = tileRows; rows > 0; rows /= 2) {
        for (std::size_t first = 0; first < tileRows; first += rows) {
            all[n++] = {first, rows, static_cast<std::uint8_t>(((1U << rows) - 1U) << first)};
        }
    }
    return all;
}();

// How many places of the tile each choice has: those that any of its rows uses. 16 counts fill vector registers.
using PlaceCounts = std::array<std::uint16_t, 16>;

constexpr std::array<PlaceCounts, 256> countsOfMask = [] {
    std::array<PlaceCounts, 256> all{};
    for (std::size_t mask = 0; mask < all.size(); ++mask) {
        for (std::size_t n = 0; n < choiceCount; ++n) {
            all[mask][n] = (mask & choices[n].rowMask) != 0 ? 1 : 0;
        }
    }
    return all;
}();

std::int64_t blocksFor(std::int64_t places) {
    constexpr auto width = static_cast<std::int64_t>(blockWidth);
    return (places + width - 1) / width;
}

// Time of a run in units of a byte read. Loading the model values of a block takes about as long as 16 bytes more, and
// going over to another run as 24: with these measured figures the sum of both products took the least time.
std::int64_t timeOf(const Choice& choice, std::int64_t places) {
    const std::int64_t blockTime = 4 * wordsOfBlock(static_cast<std::int64_t>(choice.rowCount)) + 16;
    return places == 0 ? 0 : blocksFor(places) * blockTime + 24;
}

void markPlaces(std::span<const TileRow> rows, std::int32_t firstPlace, TileWork& work) {
    for (std::size_t g = 0; g < rows.size(); ++g) {
        const auto bit = static_cast<std::uint8_t>(1U << g);
        for (const std::int32_t place : rows[g].place) {
            std::uint8_t& mask = work.rowsAt[static_cast<std::size_t>(place - firstPlace)];
            mask = static_cast<std::uint8_t>(mask | bit);
        }
    }
}

// Lists the places in use and counts them for every choice.
PlaceCounts listPlaces(TileWork& work) {
    PlaceCounts counts{};
    work.inUse.clear();
    for (std::size_t first = 0; first < bandWidth; first += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, work.rowsAt.data() + first, sizeof eight);
        for (std::size_t place = first; eight != 0 && place < first + 8; ++place) {
            const std::uint8_t mask = work.rowsAt[place];
            if (mask != 0) {
                work.inUse.push_back(static_cast<std::uint16_t>(place));
                for (std::size_t n = 0; n < counts.size(); ++n) {
                    counts[n] = static_cast<std::uint16_t>(counts[n] + countsOfMask[mask][n]);
                }
            }
        }
    }
    return counts;
}

// Whether each choice is taken whole, given that the tree is followed down to it.
std::array<bool, choiceCount> chooseRuns(const PlaceCounts& counts, std::size_t rowCount) {
    std::array<bool, choiceCount> whole{};
    std::array<std::int64_t, choiceCount> least{};
    for (std::size_t n = choiceCount; n-- > 0;) {
        const Choice& choice = choices[n];
        const bool exists = choice.firstRow + choice.rowCount <= rowCount || counts[n] == 0;
        const std::int64_t together = exists ? timeOf(choice, counts[n]) : std::numeric_limits<std::int64_t>::max();
        const bool single = choice.rowCount == 1;
        const std::int64_t apart = single ? together : least[2 * n + 1] + least[2 * n + 2];
        whole[n] = together <= apart;
        least[n] = std::min(together, apart);
    }
    return whole;
}

// Lists the places of a run in its blocks, with values of 0.
void writePlaces(const Choice& choice, std::int64_t blocks, TileWork& work, std::int32_t* out) {
    const auto blockWords = static_cast<std::size_t>(wordsOfBlock(static_cast<std::int64_t>(choice.rowCount)));
    std::fill_n(out, static_cast<std::size_t>(blocks) * blockWords, 0);
    std::size_t slot = 0;
    const auto putPlace = [&](std::uint16_t place) {
        auto* const block = reinterpret_cast<unsigned char*>(out + slot / blockWidth * blockWords);
        std::memcpy(block + slot % blockWidth * sizeof place, &place, sizeof place);
        ++slot;
    };
    std::uint16_t last = 0;
    for (const std::uint16_t place : work.inUse) {
        if ((work.rowsAt[place] & choice.rowMask) != 0) {
            work.slot[place] = static_cast<std::uint16_t>(slot);
            putPlace(place);
            last = place;
        }
    }
    while (slot % blockWidth != 0) {
        putPlace(last);
    }
}

void writeValues(const Choice& choice, std::span<const TileRow> rows, std::int32_t firstPlace, const TileWork& work,
                 std::int32_t* out) {
    const auto blockWords = static_cast<std::size_t>(wordsOfBlock(static_cast<std::int64_t>(choice.rowCount)));
    for (std::size_t g = 0; g < choice.rowCount; ++g) {
        const TileRow& row = rows[choice.firstRow + g];
        std::int32_t* const values = out + wordsOfPlaces + blockWidth * g;
        for (std::size_t p = 0; p < row.place.size(); ++p) {
            const std::size_t slot = work.slot[static_cast<std::size_t>(row.place[p] - firstPlace)];
            values[slot / blockWidth * blockWords + slot % blockWidth] = row.value[p];
        }
    }
}

}  // namespace

bool writeTile(std::span<const TileRow> rows, std::int32_t firstPlace, std::int32_t firstRow, TileWork& work,
               RunTarget& target) {
    markPlaces(rows, firstPlace, work);
    const PlaceCounts counts = listPlaces(work);
    const std::array<bool, choiceCount> whole = chooseRuns(counts, rows.size());
    bool written = true;
    std::array<bool, 2 * choiceCount + 1> reached{true};
    for (std::size_t n = 0; n < choiceCount && written; ++n) {
        if (!reached[n] || counts[n] == 0) {
            continue;
        }
        if (!whole[n]) {
            reached[2 * n + 1] = reached[2 * n + 2] = true;
            continue;
        }
        const Choice& choice = choices[n];
        const std::int64_t blocks = blocksFor(counts[n]);
        const RowRun run{target.word,
                         static_cast<std::int32_t>(blocks),
                         firstRow + static_cast<std::int32_t>(choice.firstRow),
                         firstPlace,
                         static_cast<std::int16_t>(choice.rowCount),
                         RunForm::blocks};
        written = target.word + wordsOfRun(run) <= target.limit;
        if (written) {
            std::int32_t* const out = target.words.data() + target.word;
            writePlaces(choice, blocks, work, out);
            writeValues(choice, rows, firstPlace, work, out);
            target.runs->push_back(run);
            target.word += wordsOfRun(run);
        }
    }
    for (const std::uint16_t place : work.inUse) {
        work.rowsAt[place] = 0;
    }
    return written;
}

}  // namespace voxlith
