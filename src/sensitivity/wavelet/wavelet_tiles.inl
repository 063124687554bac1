// Tiles of lines: where they are in the array, and how they are loaded and stored. Part of wavelet_lanes.inl.
namespace voxlith::VOXLITH_SET {

namespace {

enum class TileForm {
    scattered,  // lines anywhere, or fewer than a tile holds
    adjacent,   // a full tile of lines that begin side by side
    stacked     // a full tile of contiguous lines one after the other, each a multiple of eight values long
};

struct TileLocation {
    std::size_t offset[tileLines];  // first value of each line; of a wide tile only of the first one
    std::size_t count;              // lines, unless the tile is wide
    std::size_t stride;             // from one value of a line to the next
    TileForm form;
};

// How many lines the tile that begins with line `first` has.
std::size_t lanesOfTile(std::size_t first, const AxisLines& lines) {
    const std::size_t adjacent = std::min(lines.inner - first % lines.inner, lines.end - first);
    if (adjacent >= widestTileLines && lines.length <= longestOfWidest) {
        return widestTileLines;
    }
    return adjacent >= wideTileLines ? wideTileLines : tileLines;
}

std::size_t offsetOfLine(std::size_t line, const AxisLines& lines) {
    return line % lines.inner + line / lines.inner * lines.inner * lines.length;
}

TileLocation wideTileLocation(std::size_t first, const AxisLines& lines) {
    TileLocation tile{};
    tile.stride = lines.inner;
    tile.offset[0] = offsetOfLine(first, lines);
    tile.form = TileForm::adjacent;
    return tile;
}

TileLocation tileLocation(std::size_t first, const AxisLines& lines) {
    TileLocation tile{};
    tile.count = std::min(tileLines, lines.end - first);
    tile.stride = lines.inner;
    for (std::size_t l = 0; l < tile.count; ++l) {
        tile.offset[l] = offsetOfLine(first + l, lines);
    }
    if (tile.count == tileLines && tile.offset[tileLines - 1] == tile.offset[0] + tileLines - 1) {
        tile.form = TileForm::adjacent;
    } else if (tile.count == tileLines && lines.inner == 1 && lines.length % 8 == 0) {
        tile.form = TileForm::stacked;
    } else {
        tile.form = TileForm::scattered;
    }
    return tile;
}

template <std::size_t lanes>
void copyRow(const double* from, double* to) {
    for (std::size_t l = 0; l < lanes; l += registerWidth) {
        storeRegister(loadRegister(from + l), to + l);
    }
}

typedef std::uint64_t BitRegister __attribute__((vector_size(VOXLITH_REGISTER_BYTES)));

// Exchanges between rows that lie 4, 2 and 1 apart: together they transpose a square of 8, the last two one of 4, the
// last one a square of 2. Templates, so that only the shuffles of the register's width are compiled.
template <class Vector>
void exchangeFours(Vector& a, Vector& b) {
    const Vector first = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
    b = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
    a = first;
}

template <class Vector>
void exchangePairs(Vector& a, Vector& b) {
    Vector first;
    if constexpr (sizeof(Vector) == 64) {
        first = __builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13);
        b = __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15);
    } else {
        first = __builtin_shufflevector(a, b, 0, 1, 4, 5);
        b = __builtin_shufflevector(a, b, 2, 3, 6, 7);
    }
    a = first;
}

template <class Vector>
void exchangeOnes(Vector& a, Vector& b) {
    Vector first;
    if constexpr (sizeof(Vector) == 64) {
        first = __builtin_shufflevector(a, b, 0, 8, 2, 10, 4, 12, 6, 14);
        b = __builtin_shufflevector(a, b, 1, 9, 3, 11, 5, 13, 7, 15);
    } else if constexpr (sizeof(Vector) == 32) {
        first = __builtin_shufflevector(a, b, 0, 4, 2, 6);
        b = __builtin_shufflevector(a, b, 1, 5, 3, 7);
    } else {
        first = __builtin_shufflevector(a, b, 0, 2);
        b = __builtin_shufflevector(a, b, 1, 3);
    }
    a = first;
}

// to(c, r) = from(r, c) for a square as wide as a register; rows lie fromStride and toStride values apart.
template <class Vector>
void transposeSquare(const double* from, std::size_t fromStride, double* to, std::size_t toStride) {
    constexpr std::size_t width = registerWidth;
    Vector row[width];
    for (std::size_t r = 0; r < width; ++r) {
        row[r] = loadRegister(from + fromStride * r);
    }
    if constexpr (sizeof(Vector) == 64) {
        for (std::size_t r = 0; r < 4; ++r) {
            exchangeFours(row[r], row[r + 4]);
        }
    }
    if constexpr (sizeof(Vector) >= 32) {
        for (std::size_t r = 0; r < width; r += 4) {
            exchangePairs(row[r], row[r + 2]);
            exchangePairs(row[r + 1], row[r + 3]);
        }
    }
    for (std::size_t r = 0; r < width; r += 2) {
        exchangeOnes(row[r], row[r + 1]);
    }
    for (std::size_t r = 0; r < width; ++r) {
        storeRegister(row[r], to + toStride * r);
    }
}

template <std::size_t lanes>
void loadTile(const double* values, const TileLocation& location, std::size_t length, double* tile) {
    const double* const start = values + location.offset[0];
    if (lanes > tileLines || location.form == TileForm::adjacent) {
        for (std::size_t j = 0; j < length; ++j) {
            copyRow<lanes>(start + j * location.stride, tile + j * lanes);
        }
    } else if (location.form == TileForm::stacked) {
        for (std::size_t l = 0; l < tileLines; l += registerWidth) {
            for (std::size_t j = 0; j < length; j += registerWidth) {
                transposeSquare<Register>(start + l * length + j, length, tile + j * tileLines + l, tileLines);
            }
        }
    } else {
        for (std::size_t l = 0; l < tileLines; ++l) {
            for (std::size_t j = 0; j < length; ++j) {
                tile[j * tileLines + l] = l < location.count ? values[location.offset[l] + j * location.stride] : 0.0;
            }
        }
    }
}

// All values are +0 by their bits.
template <std::size_t lanes>
bool isZero(const double* tile, std::size_t length) {
    for (std::size_t j = 0; j < length; ++j) {
        const double* const row = tile + lanes * j;
        BitRegister bits{};
        for (std::size_t l = 0; l < lanes; l += registerWidth) {
            bits |= reinterpret_cast<BitRegister>(loadRegister(row + l));
        }
        std::uint64_t all = 0;
        for (std::size_t n = 0; n < registerWidth; ++n) {
            all |= bits[n];
        }
        if (all != 0) {
            return false;
        }
    }
    return true;
}

// Stores lines that are not adjacent; those are written to the array without a tile.
void storeTile(const double* tile, const TileLocation& location, std::size_t length, double* values) {
    if (location.form == TileForm::stacked && length % registerWidth == 0) {
        double* const start = values + location.offset[0];
        const std::size_t lineLength = location.offset[1] - location.offset[0];
        for (std::size_t l = 0; l < tileLines; l += registerWidth) {
            for (std::size_t j = 0; j < length; j += registerWidth) {
                transposeSquare<Register>(tile + j * tileLines + l, tileLines, start + l * lineLength + j, lineLength);
            }
        }
        return;
    }
    for (std::size_t l = 0; l < location.count; ++l) {
        for (std::size_t j = 0; j < length; ++j) {
            values[location.offset[l] + j * location.stride] = tile[j * tileLines + l];
        }
    }
}

}  // namespace

}  // namespace voxlith::VOXLITH_SET
