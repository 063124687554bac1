// Tiles of lines: where they stand in the array, and the way in and out. Written once for every vector width and
// inlined into the routines that are compiled for a given instruction set. Private to wavelet_lanes.cpp.
#pragma once

#include <algorithm>
#include <cstddef>

#include "sensitivity/wavelet/wavelet_lanes.h"

namespace voxlith {

// Vectors of `width` doubles: Type for what is worked on, Unaligned for reading and writing at any double's address.
// They are two because clang++ takes a reference for one to a vector at an address of its own alignment, whatever the
// type says.
template <std::size_t width>
struct LaneVector;
template <>
struct LaneVector<2> {
    typedef double Type __attribute__((vector_size(16)));
    typedef double Unaligned __attribute__((vector_size(16), aligned(8), may_alias));
};
template <>
struct LaneVector<4> {
    typedef double Type __attribute__((vector_size(32)));
    typedef double Unaligned __attribute__((vector_size(32), aligned(8), may_alias));
};
template <>
struct LaneVector<8> {
    typedef double Type __attribute__((vector_size(64)));
    typedef double Unaligned __attribute__((vector_size(64), aligned(8), may_alias));
};

enum class TileForm {
    scattered,  // lines anywhere, or fewer than a tile holds
    adjacent,   // a full tile of lines that begin side by side
    stacked     // a full tile of lines one behind the other, each a whole number of the widest vectors long
};

struct TileLocation {
    std::size_t offset[laneCount];  // first value of each line; in a wide tile of the first one alone
    std::size_t count;              // lines, unless the tile is wide
    std::size_t stride;             // from one value of a line to the next
    TileForm form;
};

// How many lines a tile takes that begins with line `first`, when `inner` lines begin side by side.
[[gnu::always_inline]] inline std::size_t lanesOfTile(std::size_t first, std::size_t inner, std::size_t length) {
    const std::size_t adjacent = inner - first % inner;
    if (adjacent >= widestLaneCount && length <= longestOfWidest) {
        return widestLaneCount;
    }
    return adjacent >= wideLaneCount ? wideLaneCount : laneCount;
}

[[gnu::always_inline]] inline TileLocation wideTileLocation(std::size_t first, std::size_t inner, std::size_t length) {
    TileLocation place{};
    place.stride = inner;
    place.offset[0] = first % inner + first / inner * inner * length;
    place.form = TileForm::adjacent;
    return place;
}

[[gnu::always_inline]] inline TileLocation tileLocation(std::size_t first, std::size_t inner, std::size_t length,
                                                        std::size_t lines) {
    TileLocation place{};
    place.count = std::min(laneCount, lines - first);
    place.stride = inner;
    for (std::size_t l = 0; l < place.count; ++l) {
        const std::size_t line = first + l;
        place.offset[l] = line % inner + line / inner * inner * length;
    }
    if (place.count == laneCount && place.offset[laneCount - 1] == place.offset[0] + laneCount - 1) {
        place.form = TileForm::adjacent;
    } else if (place.count == laneCount && inner == 1 && length % 8 == 0) {
        place.form = TileForm::stacked;
    } else {
        place.form = TileForm::scattered;
    }
    return place;
}

template <std::size_t width, std::size_t lanes>
[[gnu::always_inline]] inline void copyRow(const double* from, double* to) {
    using Unaligned = typename LaneVector<width>::Unaligned;
    for (std::size_t l = 0; l < lanes; l += width) {
        *reinterpret_cast<Unaligned*>(to + l) = *reinterpret_cast<const Unaligned*>(from + l);
    }
}

// Exchanges between rows that lie 4, 2 and 1 apart: together they transpose a square of 8, the last two one of 4, the
// last one a square of 2.
[[gnu::always_inline]] inline void exchangeFours(LaneVector<8>::Type& a, LaneVector<8>::Type& b) {
    const LaneVector<8>::Type first = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
    b = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
    a = first;
}

template <std::size_t width>
[[gnu::always_inline]] inline void exchangePairs(typename LaneVector<width>::Type& a,
                                                 typename LaneVector<width>::Type& b) {
    typename LaneVector<width>::Type first;
    if constexpr (width == 8) {
        first = __builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13);
        b = __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15);
    } else {
        first = __builtin_shufflevector(a, b, 0, 1, 4, 5);
        b = __builtin_shufflevector(a, b, 2, 3, 6, 7);
    }
    a = first;
}

template <std::size_t width>
[[gnu::always_inline]] inline void exchangeOnes(typename LaneVector<width>::Type& a,
                                                typename LaneVector<width>::Type& b) {
    typename LaneVector<width>::Type first;
    if constexpr (width == 8) {
        first = __builtin_shufflevector(a, b, 0, 8, 2, 10, 4, 12, 6, 14);
        b = __builtin_shufflevector(a, b, 1, 9, 3, 11, 5, 13, 7, 15);
    } else if constexpr (width == 4) {
        first = __builtin_shufflevector(a, b, 0, 4, 2, 6);
        b = __builtin_shufflevector(a, b, 1, 5, 3, 7);
    } else {
        first = __builtin_shufflevector(a, b, 0, 2);
        b = __builtin_shufflevector(a, b, 1, 3);
    }
    a = first;
}

// to(c, r) = from(r, c) for a square of `width` rows and columns; rows lie fromStride and toStride values apart.
template <std::size_t width>
[[gnu::always_inline]] inline void transposeSquare(const double* from, std::size_t fromStride, double* to,
                                                   std::size_t toStride) {
    using Vector = typename LaneVector<width>::Type;
    using Unaligned = typename LaneVector<width>::Unaligned;
    Vector row[width];
    for (std::size_t r = 0; r < width; ++r) {
        row[r] = *reinterpret_cast<const Unaligned*>(from + fromStride * r);
    }
    if constexpr (width == 8) {
        for (std::size_t r = 0; r < 4; ++r) {
            exchangeFours(row[r], row[r + 4]);
        }
    }
    if constexpr (width >= 4) {
        for (std::size_t r = 0; r < width; r += 4) {
            exchangePairs<width>(row[r], row[r + 2]);
            exchangePairs<width>(row[r + 1], row[r + 3]);
        }
    }
    for (std::size_t r = 0; r < width; r += 2) {
        exchangeOnes<width>(row[r], row[r + 1]);
    }
    for (std::size_t r = 0; r < width; ++r) {
        *reinterpret_cast<Unaligned*>(to + toStride * r) = row[r];
    }
}

template <std::size_t width, std::size_t lanes>
[[gnu::always_inline]] inline void loadTile(const double* values, const TileLocation& place, std::size_t length,
                                            double* tile) {
    const double* const start = values + place.offset[0];
    if (lanes > laneCount || place.form == TileForm::adjacent) {
        for (std::size_t j = 0; j < length; ++j) {
            copyRow<width, lanes>(start + j * place.stride, tile + j * lanes);
        }
    } else if (place.form == TileForm::stacked) {
        for (std::size_t l = 0; l < laneCount; l += width) {
            for (std::size_t j = 0; j < length; j += width) {
                transposeSquare<width>(start + l * length + j, length, tile + j * laneCount + l, laneCount);
            }
        }
    } else {
        for (std::size_t l = 0; l < laneCount; ++l) {
            for (std::size_t j = 0; j < length; ++j) {
                tile[j * laneCount + l] = l < place.count ? values[place.offset[l] + j * place.stride] : 0.0;
            }
        }
    }
}

// The way back for lines that are not adjacent; those are written where they belong at once.
template <std::size_t width>
[[gnu::always_inline]] inline void storeTile(const double* tile, const TileLocation& place, std::size_t length,
                                             double* values) {
    if (place.form == TileForm::stacked && length % width == 0) {
        double* const start = values + place.offset[0];
        const std::size_t lineLength = place.offset[1] - place.offset[0];
        for (std::size_t l = 0; l < laneCount; l += width) {
            for (std::size_t j = 0; j < length; j += width) {
                transposeSquare<width>(tile + j * laneCount + l, laneCount, start + l * lineLength + j, lineLength);
            }
        }
        return;
    }
    for (std::size_t l = 0; l < place.count; ++l) {
        for (std::size_t j = 0; j < length; ++j) {
            values[place.offset[l] + j * place.stride] = tile[j * laneCount + l];
        }
    }
}

}  // namespace voxlith
