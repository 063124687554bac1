// Which sensitivity file acts on which model type for which data type.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "survey/data_types.h"

namespace voxlith {

// One (sensitivity file, model type) pair in use; all from 0.
struct Product {
    std::int32_t mtx = 0;
    std::int32_t model = 0;
    std::int32_t column = 0;  // data type that first used the pair
};

struct ProductTerm {
    std::int32_t mtx = 0;       // from 0; -1 for none, and the term is ignored
    std::int32_t model = 0;     // as mtx
    std::int32_t product = -1;  // number of the product, from 0; -1 for none
    double coefficient = 0;
};

struct ProductTables {
    std::vector<Product> products;                         // first-seen order
    std::array<std::vector<ProductTerm>, maxFiles> terms;  // by data type
    std::array<bool, maxFiles> isAmplitude{};              // by data type
};

}  // namespace voxlith
