// The kernels of row_kernels.h, compiled for each instruction set by simd/compile_kernels.h.
namespace voxlith::VOXLITH_SET {

namespace {

double valueAt(const std::int32_t* coefValue, std::size_t p) {
    return static_cast<double>(std::bit_cast<float>(coefValue[p]));
}

// Single loads: they are faster than the gather instruction.
Lanes loadModel(const std::int32_t* coefIndex, const double* padded) {
    const std::int32_t* const i = coefIndex;
    return makeLanes(padded[i[0] - 1], padded[i[1] - 1], padded[i[2] - 1], padded[i[3] - 1], padded[i[4] - 1],
                     padded[i[5] - 1], padded[i[6] - 1], padded[i[7] - 1]);
}

double multiply(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, const double* padded) {
    Lanes lanes{};
    std::size_t p = 0;
    for (; p + laneCount <= n; p += laneCount) {
        lanes += loadSingles(coefValue + p) * loadModel(coefIndex + p, padded);
    }
    double sum[laneCount];
    storeLanes(lanes, sum);
    for (std::size_t l = 0; p + l < n; ++l) {
        sum[l] += valueAt(coefValue, p + l) * padded[coefIndex[p + l] - 1];
    }
    return sumOfRowLanes(sum);
}

// Products of eight at once, additions one after the other: an index may occur twice.
void addTransposed(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, double factor,
                   double* padded) {
    std::size_t p = 0;
    for (; p + laneCount <= n; p += laneCount) {
        double product[laneCount];
        storeLanes(loadSingles(coefValue + p) * factor, product);
        for (std::size_t l = 0; l < laneCount; ++l) {
            padded[coefIndex[p + l] - 1] += product[l];
        }
    }
    for (; p < n; ++p) {
        padded[coefIndex[p] - 1] += valueAt(coefValue, p) * factor;
    }
}

constexpr RowKernels kernels{multiply, addTransposed};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
