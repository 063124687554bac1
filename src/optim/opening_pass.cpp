#include "optim/opening_pass.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "optim/subspace_matrix.h"

namespace voxlith {

namespace {

// One piece of the variables, and scratch for it.
struct Piece {
    std::size_t first = 0;
    std::size_t length = 0;
    bool anyHeld = false;
    std::array<std::int32_t, pieceLength> statusBefore;
    std::array<double, pieceLength> freeChange, heldStep;
};

void storePair(const Piece& piece, const OpeningArrays& arrays) {
    const double* const g = arrays.g.data() + piece.first;
    const double* const lastG = arrays.lastG.data() + piece.first;
    const double* const d = arrays.direction.data() + piece.first;
    double* const change = arrays.newChange.data() + piece.first;
    double* const step = arrays.newStep.data() + piece.first;
    for (std::size_t i = 0; i < piece.length; ++i)
        change[i] = g[i] - lastG[i];
    for (std::size_t i = 0; i < piece.length; ++i)
        step[i] = arrays.stepLength * d[i];
}

// Lets the table follow the variables that have met a bound or left one since the last Cauchy point.
void followStatus(const Piece& piece, const CorrectionMemory& memory, std::size_t olderPairs,
                  const OpeningArrays& arrays) {
    const std::int32_t* const status = arrays.status.data() + piece.first;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < piece.length; ++i)
        changed += isFree(status[i]) != isFree(piece.statusBefore[i]);
    for (std::size_t i = 0; changed > 0 && i < piece.length; ++i) {
        const bool free = isFree(status[i]);
        if (free == isFree(piece.statusBefore[i]))
            continue;
        gatherRow(memory, olderPairs, piece.first + i, arrays.row);
        moveVariable(arrays.table, memory.m, olderPairs, arrays.row, free);
    }
}

void startPath(const BoxProblem& problem, const CorrectionMemory& memory, PathKind kind, const OpeningArrays& arrays,
               Piece& piece, PathStart& path) {
    const double* const g = arrays.g.data() + piece.first;
    double* const direction = arrays.direction.data() + piece.first;
    std::int32_t* const status = arrays.status.data() + piece.first;
    if (kind == PathKind::straight) {
        for (std::size_t i = 0; i < piece.length; ++i)
            direction[i] = -g[i];
        path.freeCount += piece.length;
        return;
    }
    const std::size_t freeBefore = path.freeCount;
    if (kind == PathKind::none) {
        for (std::size_t i = 0; i < piece.length; ++i) {
            direction[i] = isFree(status[i]) ? -g[i] : 0.0;
            path.freeCount += isFree(status[i]);
        }
    } else {
        PieceOfBox box;
        boxOfPiece(problem, piece.first, piece.length, box, memory.instructions);
        std::copy_n(status, piece.length, piece.statusBefore.begin());
        startPathPiece(box, piece.length, arrays.x.data() + piece.first, g, status, direction, path,
                       memory.instructions);
        const std::size_t olderPairs = memory.count - (arrays.newStep.empty() ? 0 : 1);
        if (memory.count > 0 && olderPairs > 0)
            followStatus(piece, memory, olderPairs, arrays);
    }
    piece.anyHeld = path.freeCount - freeBefore < piece.length;
}

// Splits the newest pair: its change where variables are free, its step where they are held.
void splitPair(const OpeningArrays& arrays, Piece& piece) {
    const std::int32_t* const status = arrays.status.data() + piece.first;
    const double* const change = arrays.newChange.data() + piece.first;
    const double* const step = arrays.newStep.data() + piece.first;
    for (std::size_t i = 0; i < piece.length; ++i) {
        piece.freeChange[i] = isFree(status[i]) ? change[i] : 0.0;
        piece.heldStep[i] = isFree(status[i]) ? 0.0 : step[i];
    }
}

// Where all variables are free, the products with the held step are 0 and need not be formed.
PieceOfVectors vectorsOf(const OpeningArrays& arrays, Piece& piece) {
    PieceOfVectors vectors;
    vectors.length = piece.length;
    vectors.vector[pathVector] = arrays.direction.data() + piece.first;
    vectors.count = 1;
    if (arrays.newStep.empty())
        return vectors;
    vectors.vector[newestStep] = arrays.newStep.data() + piece.first;
    vectors.vector[newestFreeChange] = arrays.newChange.data() + piece.first;
    vectors.count = 3;
    if (piece.anyHeld) {
        splitPair(arrays, piece);
        vectors.vector[newestFreeChange] = piece.freeChange.data();
        vectors.vector[newestHeldStep] = piece.heldStep.data();
        vectors.count = 4;
    }
    return vectors;
}

void callForNext(const Piece& piece, PathKind kind, const OpeningArrays& arrays) {
    callForNextPiece(arrays.g.data() + piece.first, piece.length);
    callForNextPiece(arrays.direction.data() + piece.first, piece.length);
    if (!arrays.newStep.empty())
        callForNextPiece(arrays.lastG.data() + piece.first, piece.length);
    if (kind == PathKind::straight)
        return;
    callForNextPiece(arrays.x.data() + piece.first, piece.length);
    callForNextPiece(arrays.status.data() + piece.first, piece.length);
}

double squareOf(const double* values, std::size_t length, InstructionSet instructions) {
    return longProduct({values, length}, {values, length}, instructions);
}

}  // namespace

PathStart openIteration(const BoxProblem& problem, const CorrectionMemory& memory, PathKind kind,
                        const OpeningArrays& arrays) {
    PathStart path;
    std::fill(arrays.products.sums.begin(), arrays.products.sums.end(), 0.0);
    Piece piece;
    for (piece.first = 0; piece.first < arrays.x.size(); piece.first += pieceLength) {
        piece.length = std::min(pieceLength, arrays.x.size() - piece.first);
        callForNext(piece, kind, arrays);
        if (!arrays.newStep.empty())
            storePair(piece, arrays);
        startPath(problem, memory, kind, arrays, piece, path);
        path.directionSquared += squareOf(arrays.direction.data() + piece.first, piece.length, memory.instructions);
        if (memory.count > 0)
            addPairProducts(memory, piece.first, vectorsOf(arrays, piece), arrays.products);
    }
    return path;
}

}  // namespace voxlith
