#include "optim/lbfgsb/block_kernels.h"

#include <algorithm>
#include <cstring>

namespace voxlith {

namespace {

// Eight lanes in registers of one kind: 4 of 16 bytes, 2 of 32 or 1 of 64.
constexpr std::size_t laneCount = 8;
using Register16 = double __attribute__((vector_size(16)));
using Register32 = double __attribute__((vector_size(32)));
using Register64 = double __attribute__((vector_size(64)));

template <class Register>
struct Lanes {
    static constexpr std::size_t width = sizeof(Register) / sizeof(double);
    static constexpr std::size_t parts = laneCount / width;
    Register part[parts];
};

template <class Register>
[[gnu::always_inline]] inline void load(const double* from, Lanes<Register>& lanes) {
    for (std::size_t p = 0; p < lanes.parts; ++p)
        std::memcpy(&lanes.part[p], from + p * lanes.width, sizeof(Register));
}

template <class Register>
[[gnu::always_inline]] inline void loadRest(const double* from, std::size_t count, Lanes<Register>& lanes) {
    double padded[laneCount] = {};
    std::copy_n(from, count, padded);
    load(padded, lanes);
}

template <class Register>
[[gnu::always_inline]] inline void addProduct(const Lanes<Register>& a, const Lanes<Register>& b,
                                              Lanes<Register>& sum) {
    for (std::size_t p = 0; p < sum.parts; ++p)
        sum.part[p] += a.part[p] * b.part[p];
}

template <class Register>
[[gnu::always_inline]] inline double sumOfLanes(const Lanes<Register>& lanes) {
    double lane[laneCount];
    std::memcpy(lane, lanes.part, sizeof lane);
    return ((lane[0] + lane[1]) + (lane[2] + lane[3])) + ((lane[4] + lane[5]) + (lane[6] + lane[7]));
}

// Some columns with some vectors: as many sums as the registers hold. The next block is called for ahead: so many
// columns side by side are more than the processor would follow by itself.
template <class Register, std::size_t columnCount, std::size_t vectorCount>
[[gnu::always_inline]] inline void addTile(const double* column, std::size_t stride, const double* const* vector,
                                           std::size_t length, double* products) {
    Lanes<Register> sum[columnCount][vectorCount] = {};
    Lanes<Register> element, values;
    std::size_t i = 0;
    for (; i + laneCount <= length; i += laneCount) {
        for (std::size_t c = 0; c < columnCount; ++c) {
            load(column + c * stride + i, element);
            __builtin_prefetch(column + c * stride + i + blockLength);
            for (std::size_t v = 0; v < vectorCount; ++v) {
                load(vector[v] + i, values);
                addProduct(element, values, sum[c][v]);
            }
        }
    }
    for (std::size_t c = 0; c < columnCount && i < length; ++c) {
        loadRest(column + c * stride + i, length - i, element);
        for (std::size_t v = 0; v < vectorCount; ++v) {
            loadRest(vector[v] + i, length - i, values);
            addProduct(element, values, sum[c][v]);
        }
    }
    for (std::size_t c = 0; c < columnCount; ++c) {
        for (std::size_t v = 0; v < vectorCount; ++v)
            products[vectorsAtOnce * c + v] += sumOfLanes(sum[c][v]);
    }
}

// Tiles of tileColumns columns; what is left over goes one by one.
template <class Register, std::size_t tileColumns, std::size_t vectorCount>
[[gnu::always_inline]] inline void addTiles(const ColumnBlock& columns, const double* const* vector, std::size_t length,
                                            double* products) {
    const std::size_t stride = columns.stride;
    std::size_t c = 0;
    for (; c + tileColumns <= columns.count; c += tileColumns)
        addTile<Register, tileColumns, vectorCount>(columns.first + c * stride, stride, vector, length,
                                                    products + vectorsAtOnce * c);
    for (; c < columns.count; ++c)
        addTile<Register, 1, vectorCount>(columns.first + c * stride, stride, vector, length,
                                          products + vectorsAtOnce * c);
}

// The narrowest registers hold the sums of two vectors only: there a block of a column is read twice, the second time
// from the nearest cache.
template <class Register, std::size_t tileColumns>
[[gnu::always_inline]] inline void addProductsWith(const ColumnBlock& columns, const VectorBlock& vectors,
                                                   double* products) {
    constexpr std::size_t most = sizeof(Register) == 16 ? 2 : vectorsAtOnce;
    for (std::size_t v = 0; v < vectors.count; v += most) {
        const std::size_t count = std::min(most, vectors.count - v);
        const double* const* const vector = vectors.vector.data() + v;
        if (count == 1)
            addTiles<Register, tileColumns, 1>(columns, vector, vectors.length, products + v);
        else if (count == 2)
            addTiles<Register, tileColumns, 2>(columns, vector, vectors.length, products + v);
        else if (count == 3)
            addTiles<Register, tileColumns, most == 2 ? 2 : 3>(columns, vector, vectors.length, products + v);
        else
            addTiles<Register, tileColumns, most>(columns, vector, vectors.length, products + v);
    }
}

template <class Register, std::size_t columnCount>
[[gnu::always_inline]] inline void addGroup(const double* column, std::size_t stride, const double* factor,
                                            std::size_t length, double* out) {
    constexpr std::size_t width = Lanes<Register>::width;
    Lanes<Register> sum, element;
    std::size_t i = 0;
    for (; i + laneCount <= length; i += laneCount) {
        load(out + i, sum);
        for (std::size_t c = 0; c < columnCount; ++c) {
            load(column + c * stride + i, element);
            __builtin_prefetch(column + c * stride + i + blockLength);
            for (std::size_t p = 0; p < sum.parts; ++p)
                sum.part[p] += element.part[p] * factor[c];
        }
        for (std::size_t p = 0; p < sum.parts; ++p)
            std::memcpy(out + i + p * width, &sum.part[p], sizeof(Register));
    }
    for (; i < length; ++i) {
        for (std::size_t c = 0; c < columnCount; ++c)
            out[i] += column[c * stride + i] * factor[c];
    }
}

template <class Register>
[[gnu::always_inline]] inline void addColumnsWith(const ColumnBlock& columns, const double* factor, std::size_t length,
                                                  double* out) {
    constexpr std::size_t groupColumns = 4;
    const std::size_t stride = columns.stride;
    std::size_t c = 0;
    for (; c + groupColumns <= columns.count; c += groupColumns)
        addGroup<Register, groupColumns>(columns.first + c * stride, stride, factor + c, length, out);
    for (; c < columns.count; ++c)
        addGroup<Register, 1>(columns.first + c * stride, stride, factor + c, length, out);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void addProductsAvx2(const ColumnBlock& columns, const VectorBlock& vectors, double* products) {
    addProductsWith<Register32, 1>(columns, vectors, products);
}

[[gnu::target("avx512f")]] void addProductsAvx512(const ColumnBlock& columns, const VectorBlock& vectors,
                                                  double* products) {
    addProductsWith<Register64, 2>(columns, vectors, products);
}

[[gnu::target("avx2")]] void addColumnsAvx2(const ColumnBlock& columns, const double* factor, std::size_t length,
                                            double* out) {
    addColumnsWith<Register32>(columns, factor, length, out);
}

[[gnu::target("avx512f")]] void addColumnsAvx512(const ColumnBlock& columns, const double* factor, std::size_t length,
                                                 double* out) {
    addColumnsWith<Register64>(columns, factor, length, out);
}
#endif

}  // namespace

void addBlockProducts(const ColumnBlock& columns, const VectorBlock& vectors, double* products,
                      InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return addProductsAvx512(columns, vectors, products);
    if (instructions == InstructionSet::avx2)
        return addProductsAvx2(columns, vectors, products);
#endif
    static_cast<void>(instructions);
    addProductsWith<Register16, 1>(columns, vectors, products);
}

void addBlockColumns(const ColumnBlock& columns, const double* factor, std::size_t length, double* out,
                     InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return addColumnsAvx512(columns, factor, length, out);
    if (instructions == InstructionSet::avx2)
        return addColumnsAvx2(columns, factor, length, out);
#endif
    static_cast<void>(instructions);
    addColumnsWith<Register16>(columns, factor, length, out);
}

double longProduct(std::span<const double> a, std::span<const double> b, InstructionSet instructions) {
    double products[vectorsAtOnce] = {};
    for (std::size_t first = 0; first < a.size(); first += blockLength) {
        const std::size_t length = std::min(blockLength, a.size() - first);
        addBlockProducts({a.data() + first, 0, 1}, {{b.data() + first}, 1, length}, products, instructions);
    }
    return products[0];
}

}  // namespace voxlith
