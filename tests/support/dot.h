// The sum of products of two vectors, as the tests of adjoints and gradients need it.
#pragma once

#include <numeric>
#include <vector>

namespace voxlith::testing_support {

inline double dot(const std::vector<double>& a, const std::vector<double>& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

}  // namespace voxlith::testing_support
