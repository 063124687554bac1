// Loops over pieces that do not depend on each other, shared among the workers of the process. There is one worker, the
// calling thread, unless a program sets up more; then every loop here runs on all of them and returns when all pieces
// are done. The pieces write to different places and form no common sum, so the results are the same bytes for any
// number of workers. Loops are not nested, and pieces do not throw.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace voxlith {

constexpr std::size_t mostWorkers = 256;

using PieceCall = void (*)(const void* loop, std::size_t piece);

struct Workers {
    std::size_t count = 1;             // mostWorkers at most
    std::size_t smallestPiece = 4096;  // values: fewer are not worth waking a worker
    // Runs call(loop, piece) for pieces 0 up to `pieces`, at most `count`, at the same time. None with one worker.
    void (*run)(void* team, std::size_t pieces, PieceCall call, const void* loop) = nullptr;
    void* team = nullptr;
};

// Not while a loop runs.
void setWorkers(const Workers& workers);
const Workers& workersOfProcess();

// How many workers a loop over that many values is worth.
inline std::size_t piecesFor(std::size_t values) {
    const Workers& workers = workersOfProcess();
    return std::clamp<std::size_t>(values / workers.smallestPiece, 1, workers.count);
}

// Calls loop(piece) for pieces 0 up to `pieces`, at most one for each worker.
template <class Loop>
void forEachPiece(std::size_t pieces, const Loop& loop) {
    const Workers& workers = workersOfProcess();
    if (pieces > 1) {
        const PieceCall call = [](const void* address, std::size_t piece) {
            (*static_cast<const Loop*>(address))(piece);
        };
        workers.run(workers.team, pieces, call, &loop);
    } else if (pieces == 1) {
        loop(std::size_t{0});
    }
}

// The first of `size` values that belongs to a piece: a multiple of `step`, except at the end.
inline std::size_t startOfPiece(std::size_t size, std::size_t step, std::size_t piece, std::size_t pieces) {
    const std::size_t steps = (size + step - 1) / step;
    return std::min(size, steps * piece / pieces * step);
}

// Calls loop(first, end) for ranges that make up 0 to `size`. They begin at multiples of `step`. `valuesOfEach` says
// how many values one of `size` stands for.
template <class Loop>
void forEachRange(std::size_t size, std::size_t step, std::size_t valuesOfEach, const Loop& loop) {
    const std::size_t pieces = std::min(piecesFor(size * valuesOfEach), (size + step - 1) / step);
    forEachPiece(pieces, [&](std::size_t piece) {
        const std::size_t first = startOfPiece(size, step, piece, pieces);
        const std::size_t end = startOfPiece(size, step, piece + 1, pieces);
        if (first < end) {
            loop(first, end);
        }
    });
}

// The same for single values of arrays; ranges begin at whole cache lines.
template <class Loop>
void forEachRange(std::size_t size, const Loop& loop) {
    constexpr std::size_t valuesOfLine = 64;
    forEachRange(size, valuesOfLine, 1, loop);
}

// Splits parts of unequal work. `workBefore` has the work of all parts before each one, from any start on, and the
// total at its end; the result is the first part of a piece.
std::size_t startOfPiece(std::span<const std::int64_t> workBefore, std::size_t piece, std::size_t pieces);

}  // namespace voxlith
