// The exchanges of base/ranks.h by MPI. Only the main thread calls it.
//
// Traffic of an iteration with D data, U used columns and P ranks, and why rows are shared rather than columns:
//
//   rows      forward: D values to all ranks. Transposed: U values from rank to rank, in chunks that travel while
//             others are worked on, then from the last one to all: 16 U + 8 D bytes on each link. Each rank reads its
//             own rows, which stand together in the file.
//   columns   forward: the eight lanes of each row's sum from rank to rank; transposed: nothing, then U values to all:
//             8 U + 64 D bytes. Each rank reads all rows to find its columns.
//
// Both are little beside the coefficients: with 10^8 cells and 10^6 data 1.6 GB against 100 GB of coefficients, which
// memory passes at some 10 GB/s. Reading decides: with columns, every rank would read every file.
#pragma once

#include "base/ranks.h"

namespace voxlith {

// MPI while it lives, with the exchanges set up. A rank that loses another one is ended by MPI.
struct MpiRanks {
    MpiRanks(int& argumentCount, char**& arguments);  // throws RunError for a launcher of another MPI
    ~MpiRanks();
    MpiRanks(const MpiRanks&) = delete;
    MpiRanks& operator=(const MpiRanks&) = delete;
    MpiRanks(MpiRanks&&) = delete;
    MpiRanks& operator=(MpiRanks&&) = delete;
};

// Ends all ranks at once.
[[noreturn]] void abortRanks(int status);

}  // namespace voxlith
