// Products with compressed rows by Eigen, with values and sums in real64: the reference for the program's own products.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace voxlith {

struct EigenRows;  // hides Eigen's headers

// `offset` has one entry more than there are rows; `index` counts from 0 and rises within a row.
std::shared_ptr<EigenRows> makeEigenRows(std::size_t columns, std::span<const std::int64_t> offset,
                                         std::span<const std::int32_t> index, std::span<const float> value);

// out (rows) = matrix * in (columns)
void multiplyByEigen(const EigenRows& matrix, std::span<const double> in, std::span<double> out);

// out (columns) = transposed matrix * in (rows)
void multiplyTransposedByEigen(const EigenRows& matrix, std::span<const double> in, std::span<double> out);

}  // namespace voxlith
