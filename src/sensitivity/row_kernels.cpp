#include "sensitivity/row_kernels.h"

#include <array>
#include <bit>

namespace voxlith {

namespace {

constexpr std::size_t lanes = 8;

double term(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t p, const double* padded) {
    return static_cast<double>(std::bit_cast<float>(coefValue[p])) * padded[coefIndex[p] - 1];
}

}  // namespace

double rowTimesPadded(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n,
                      const double* padded) {
    std::array<double, lanes> sum{};
    std::size_t p = 0;
    for (; p + lanes <= n; p += lanes) {
        for (std::size_t l = 0; l < lanes; ++l) {
            sum[l] += term(coefIndex, coefValue, p + l, padded);
        }
    }
    for (std::size_t l = 0; p + l < n; ++l) {
        sum[l] += term(coefIndex, coefValue, p + l, padded);
    }
    return ((sum[0] + sum[4]) + (sum[2] + sum[6])) + ((sum[1] + sum[5]) + (sum[3] + sum[7]));
}

void addRowTransposed(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, double factor,
                      double* padded) {
    for (std::size_t p = 0; p < n; ++p) {
        padded[coefIndex[p] - 1] += static_cast<double>(std::bit_cast<float>(coefValue[p])) * factor;
    }
}

}  // namespace voxlith
