// The compressed-row product of a general library, with values and sums in real64 as it comes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace voxlith {

struct CsrMatrix;  // hides the library's headers

// `offset` has one entry more than there are rows; `index` counts from 0 and rises within a row.
std::shared_ptr<CsrMatrix> makeCsrMatrix(std::size_t columns, std::span<const std::int64_t> offset,
                                         std::span<const std::int32_t> index, std::span<const float> value);

// out (rows) = matrix * in (columns)
void csrTimes(const CsrMatrix& matrix, std::span<const double> in, std::span<double> out);

// out (columns) = transposed matrix * in (rows)
void csrTransposedTimes(const CsrMatrix& matrix, std::span<const double> in, std::span<double> out);

}  // namespace voxlith
