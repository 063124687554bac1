#include "forward/row_compression.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "base/messages.h"

namespace voxlith {

namespace {

bool ranksBefore(const RankedCoefficient& a, const RankedCoefficient& b) {
    return a.magnitude > b.magnitude || (a.magnitude == b.magnitude && a.index < b.index);
}

double sumOfSquares(std::span<const RankedCoefficient> coefficients) {
    double sum = 0;
    for (const RankedCoefficient& coefficient : coefficients) {
        sum += coefficient.magnitude * coefficient.magnitude;
    }
    return sum;
}

// Moves the coefficients to keep to the front and returns their number; `dropped` becomes the sum of squares of the
// others, which is at most `allowed`. Quickselect: each round decides on half of the remaining coefficients, so the
// work is linear.
std::size_t keepLargest(std::span<RankedCoefficient> coefficients, double allowed, double& dropped) {
    std::size_t kept = 0;
    std::size_t undecided = coefficients.size();
    dropped = 0;
    while (undecided > 0) {
        const std::size_t half = undecided / 2;
        const auto first = coefficients.begin() + static_cast<std::ptrdiff_t>(kept);
        const auto last = first + static_cast<std::ptrdiff_t>(undecided);
        std::nth_element(first, first + static_cast<std::ptrdiff_t>(half), last, ranksBefore);
        const double lower = sumOfSquares(coefficients.subspan(kept + half, undecided - half));
        if (dropped + lower <= allowed) {
            dropped += lower;
            undecided = half;
        } else if (undecided == 1) {
            ++kept;
            undecided = 0;
        } else {
            // The middle element remains undecided: it is the first of the lower half.
            kept += half;
            undecided -= half;
        }
    }
    return kept;
}

}  // namespace

void compressRow(std::span<const double> padded, double tolerance, std::vector<RankedCoefficient>& work,
                 CompressedRow& row) {
    work.clear();
    double largest = 0;
    for (std::size_t p = 0; p < padded.size(); ++p) {
        const double magnitude = std::abs(padded[p]);
        if (!(magnitude <= static_cast<double>(std::numeric_limits<float>::max()))) {
            throw RunError("a coefficient is too large for single precision");
        }
        largest = std::max(largest, magnitude);
        if (magnitude > 0) {
            work.push_back({magnitude, static_cast<std::int32_t>(p)});
        }
    }
    // Relative to the largest, squares of magnitudes neither overflow nor underflow to a wrong sum.
    for (RankedCoefficient& coefficient : work) {
        coefficient.magnitude /= largest;
    }
    const double total = sumOfSquares(work);
    double dropped = 0;
    std::size_t kept = keepLargest(work, tolerance * tolerance * total, dropped);
    if (work.empty()) {
        work.push_back({0.0, 0});
        kept = 1;
    }
    row.loss = total > 0 ? std::sqrt(dropped / total) : 0.0;
    row.coefIndex.clear();
    for (std::size_t n = 0; n < kept; ++n) {
        row.coefIndex.push_back(work[n].index + 1);
    }
    std::sort(row.coefIndex.begin(), row.coefIndex.end());
    row.coefValue.clear();
    for (const std::int32_t index : row.coefIndex) {
        row.coefValue.push_back(static_cast<float>(padded[static_cast<std::size_t>(index) - 1]));
    }
}

}  // namespace voxlith
