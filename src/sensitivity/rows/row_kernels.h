// Products with one raw row: of a file that is read from disk, or of a store whose rows are not blocked yet.
#pragma once

#include <cstddef>
#include <cstdint>

namespace voxlith {

struct RowKernels {
    // Sum of coefValue * padded(coefIndex) over the n coefficients of a row, in real64: in eight lanes, coefficient p
    // in lane p mod 8, added in one tree (sumOfRowLanes); 0 for an empty row. coefIndex counts from 1, coefValue has
    // the bits of real32. The same bytes with every instruction set.
    double (*multiply)(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n,
                       const double* padded);

    // padded(coefIndex) += coefValue * factor for every coefficient, in the order of the row.
    void (*addTransposed)(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, double factor,
                          double* padded);
};

// For the widest instruction set.
const RowKernels& rowKernels();

// The tree in which the eight lanes of a row are added: halves, as vector registers are split.
inline double sumOfRowLanes(const double* lane) {
    return ((lane[0] + lane[4]) + (lane[2] + lane[6])) + ((lane[1] + lane[5]) + (lane[3] + lane[7]));
}

}  // namespace voxlith
