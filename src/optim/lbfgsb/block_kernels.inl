// The kernels of block_kernels.h, compiled for each instruction set by simd/compile_kernels.h.
namespace voxlith::VOXLITH_SET {

namespace {

// Sums that the registers hold at once: of one or two columns with two or four vectors. With the narrowest registers a
// block of a column is read twice, the second time from the first-level cache.
constexpr std::size_t tileColumns = registerWidth == 8 ? 2 : 1;
constexpr std::size_t tileVectors = registerWidth == 2 ? 2 : vectorsAtOnce;

double sumOfLanes(const Lanes& lanes) {
    double lane[laneCount];
    storeLanes(lanes, lane);
    return ((lane[0] + lane[1]) + (lane[2] + lane[3])) + ((lane[4] + lane[5]) + (lane[6] + lane[7]));
}

template <std::size_t columnCount, std::size_t vectorCount>
void addTile(const double* column, std::size_t stride, const double* const* vector, std::size_t length,
             double* products) {
    Lanes sum[columnCount][vectorCount] = {};
    std::size_t i = 0;
    for (; i + laneCount <= length; i += laneCount) {
        for (std::size_t c = 0; c < columnCount; ++c) {
            const Lanes element = loadLanes(column + c * stride + i);
            // So many columns side by side are more than the hardware prefetcher follows.
            __builtin_prefetch(column + c * stride + i + blockLength);
            for (std::size_t v = 0; v < vectorCount; ++v) {
                sum[c][v] += element * loadLanes(vector[v] + i);
            }
        }
    }
    for (std::size_t c = 0; c < columnCount && i < length; ++c) {
        const Lanes element = loadLanes(column + c * stride + i, length - i);
        for (std::size_t v = 0; v < vectorCount; ++v) {
            sum[c][v] += element * loadLanes(vector[v] + i, length - i);
        }
    }
    for (std::size_t c = 0; c < columnCount; ++c) {
        for (std::size_t v = 0; v < vectorCount; ++v) {
            products[vectorsAtOnce * c + v] += sumOfLanes(sum[c][v]);
        }
    }
}

// Tiles of tileColumns columns; those left over go one by one.
template <std::size_t vectorCount>
void addTiles(const ColumnBlock& columns, const double* const* vector, std::size_t length, double* products) {
    const std::size_t stride = columns.stride;
    std::size_t c = 0;
    for (; c + tileColumns <= columns.count; c += tileColumns) {
        addTile<tileColumns, vectorCount>(columns.first + c * stride, stride, vector, length,
                                          products + vectorsAtOnce * c);
    }
    for (; c < columns.count; ++c) {
        addTile<1, vectorCount>(columns.first + c * stride, stride, vector, length, products + vectorsAtOnce * c);
    }
}

void addProducts(const ColumnBlock& columns, const VectorBlock& vectors, double* products) {
    for (std::size_t v = 0; v < vectors.count; v += tileVectors) {
        const double* const* const vector = vectors.vector.data() + v;
        switch (std::min(tileVectors, vectors.count - v)) {
            case 1:
                addTiles<1>(columns, vector, vectors.length, products + v);
                break;
            case 2:
                addTiles<2>(columns, vector, vectors.length, products + v);
                break;
            case 3:
                addTiles<3>(columns, vector, vectors.length, products + v);
                break;
            default:
                addTiles<4>(columns, vector, vectors.length, products + v);
                break;
        }
    }
}

template <std::size_t columnCount>
void addGroup(const double* column, std::size_t stride, const double* factor, std::size_t length, double* out) {
    std::size_t i = 0;
    for (; i + laneCount <= length; i += laneCount) {
        Lanes sum = loadLanes(out + i);
        for (std::size_t c = 0; c < columnCount; ++c) {
            __builtin_prefetch(column + c * stride + i + blockLength);
            sum += loadLanes(column + c * stride + i) * factor[c];
        }
        storeLanes(sum, out + i);
    }
    for (; i < length; ++i) {
        for (std::size_t c = 0; c < columnCount; ++c) {
            out[i] += column[c * stride + i] * factor[c];
        }
    }
}

void addColumns(const ColumnBlock& columns, const double* factor, std::size_t length, double* out) {
    constexpr std::size_t groupColumns = 4;
    const std::size_t stride = columns.stride;
    std::size_t c = 0;
    for (; c + groupColumns <= columns.count; c += groupColumns) {
        addGroup<groupColumns>(columns.first + c * stride, stride, factor + c, length, out);
    }
    for (; c < columns.count; ++c) {
        addGroup<1>(columns.first + c * stride, stride, factor + c, length, out);
    }
}

constexpr BlockKernels kernels{addProducts, addColumns};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
