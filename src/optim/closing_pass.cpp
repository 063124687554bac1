#include "optim/closing_pass.h"

#include <algorithm>
#include <array>

#include "optim/subspace_matrix.h"

namespace voxlith {

namespace {

struct Piece {
    std::size_t first = 0;
    std::size_t length = 0;
};

// The Cauchy point: variables that have stopped are at their bound, those that haven't are on their way, within the
// rounding of the box.
void placeCauchyPoint(const PieceOfBox& box, const ClosingTask& task, const Piece& piece, const ClosingArrays& arrays) {
    const double* const x = arrays.x.data() + piece.first;
    double* const point = arrays.point.data() + piece.first;
    if (!task.leavesX) {
        std::copy_n(x, piece.length, point);
        return;
    }
    const double* const direction = arrays.direction.data() + piece.first;
    for (std::size_t i = 0; i < piece.length; ++i)
        point[i] = x[i] + task.time * direction[i];
    if (!task.constrained)
        return;
    const std::int32_t* const status = arrays.status.data() + piece.first;
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    for (std::size_t i = 0; i < piece.length; ++i) {
        const double moved = point[i];
        const double raised = status[i] == atLowerBound ? lower[i] : moved;
        point[i] = status[i] == atUpperBound ? upper[i] : raised;
    }
    clampPiece(box, piece.length, point);
}

// The step from the Cauchy point to the minimiser, 0 for held variables, into `step`.
void formSubspaceStep(const CorrectionMemory& memory, const ClosingTask& task, const Piece& piece,
                      const ClosingArrays& arrays, double* step) {
    const double* const x = arrays.x.data() + piece.first;
    const double* const g = arrays.g.data() + piece.first;
    const double* const point = arrays.point.data() + piece.first;
    const std::int32_t* const status = arrays.status.data() + piece.first;
    const double theta = memory.theta;
    for (std::size_t i = 0; i < piece.length; ++i)
        step[i] = task.leavesX ? -theta * (point[i] - x[i]) - g[i] : -g[i];
    const PieceOfColumns steps{memory.s.data() + piece.first, memory.n, memory.count};
    const PieceOfColumns changes{memory.y.data() + piece.first, memory.n, memory.count};
    addPieceColumns(steps, arrays.factors.data(), piece.length, step, memory.instructions);
    addPieceColumns(changes, arrays.factors.data() + memory.m, piece.length, step, memory.instructions);
    for (std::size_t i = 0; i < piece.length; ++i)
        step[i] = isFree(status[i]) ? step[i] / theta : 0.0;
}

// Adds the shortened subspace step; the variable that has shortened it lands on its bound exactly.
void takeSubspaceStep(const BoxProblem& problem, const StepToBound& cut, const Piece& piece, const double* step,
                      double* point) {
    for (std::size_t i = 0; i < piece.length; ++i)
        point[i] += cut.length * step[i];
    if (cut.shortened && cut.variable >= piece.first && cut.variable < piece.first + piece.length) {
        const std::size_t i = cut.variable - piece.first;
        point[i] = step[i] > 0.0 ? problem.u[cut.variable] : problem.l[cut.variable];
    }
}

// The direction of the search and what it begins with.
void startSearch(const PieceOfBox& box, const CorrectionMemory& memory, const ClosingTask& task, const Piece& piece,
                 const ClosingArrays& arrays, StepToBound& limit, Closing& closing) {
    double* const x = arrays.x.data() + piece.first;
    const double* const g = arrays.g.data() + piece.first;
    const double* const point = arrays.point.data() + piece.first;
    double* const direction = arrays.direction.data() + piece.first;
    for (std::size_t i = 0; i < piece.length; ++i)
        direction[i] = point[i] - x[i];
    double products[vectorsAtOnce] = {};
    addPieceProducts({direction, 0, 1}, {{direction, g}, 2, piece.length}, products, memory.instructions);
    closing.directionSquared += products[0];
    closing.slope += products[1];
    if (task.limitStep)
        shortenStep(box, piece.first, piece.length, x, direction, limit, memory.instructions);
    std::copy_n(x, piece.length, arrays.lastX.data() + piece.first);
    std::copy_n(g, piece.length, arrays.lastG.data() + piece.first);
    if (task.moveX)
        std::copy_n(point, piece.length, x);
}

void callForNext(const Piece& piece, const ClosingArrays& arrays) {
    callForNextPiece(arrays.x.data() + piece.first, piece.length);
    callForNextPiece(arrays.g.data() + piece.first, piece.length);
    callForNextPiece(arrays.direction.data() + piece.first, piece.length);
    callForNextPiece(arrays.point.data() + piece.first, piece.length);
    callForNextPiece(arrays.lastG.data() + piece.first, piece.length);
}

}  // namespace

void subspaceFactors(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix subspaceFactor, bool leavesX,
                     double time, std::span<double> c, std::span<double> p, std::span<double> products,
                     std::span<double> factors) {
    const std::size_t count = memory.count;
    const double theta = memory.theta;
    std::fill(products.begin(), products.end(), 0.0);
    if (leavesX) {
        multiplyByMiddleMatrix(memory, c, products);
        for (std::size_t k = 0; k < 2 * count; ++k)
            p[k] -= theta * time * p[k];
        addFreeProducts(memory, table, products, p);
    }
    solveSubspaceMatrix(subspaceFactor, memory.m, count, p);
    for (std::size_t pair = 0; pair < count; ++pair) {
        const std::size_t column = memory.columnOf(pair);
        factors[column] = theta * products[count + pair] + p[count + pair];
        factors[memory.m + column] = products[pair] + p[pair] / theta;
    }
}

Closing closeIteration(const BoxProblem& problem, const CorrectionMemory& memory, const ClosingTask& task,
                       double largestStep, const ClosingArrays& arrays) {
    Closing closing;
    StepToBound cut, limit;
    limit.length = largestStep;
    PieceOfBox box;
    const bool steps = !arrays.factors.empty();
    const std::size_t n = arrays.x.size();
    const auto finish = [&](const Piece& piece) {
        double* const point = arrays.point.data() + piece.first;
        if (steps) {
            takeSubspaceStep(problem, cut, piece, arrays.lastG.data() + piece.first, point);
            if (task.constrained)
                clampPiece(box, piece.length, point);
        }
        startSearch(box, memory, task, piece, arrays, limit, closing);
    };
    for (std::size_t first = 0; first < n; first += pieceLength) {
        const Piece piece{first, std::min(pieceLength, n - first)};
        callForNext(piece, arrays);
        callForNextPiece(arrays.status.data() + first, piece.length);
        if (task.constrained)
            boxOfPiece(problem, first, piece.length, box, memory.instructions);
        placeCauchyPoint(box, task, piece, arrays);
        double* const step = arrays.lastG.data() + first;
        if (steps)
            formSubspaceStep(memory, task, piece, arrays, step);
        if (steps && task.constrained)
            shortenStep(box, first, piece.length, arrays.point.data() + first, step, cut, memory.instructions);
        if (!task.constrained)
            finish(piece);
    }
    for (std::size_t first = 0; task.constrained && first < n; first += pieceLength) {
        const Piece piece{first, std::min(pieceLength, n - first)};
        callForNext(piece, arrays);
        callForNextPiece(arrays.lastX.data() + first, piece.length);
        boxOfPiece(problem, first, piece.length, box, memory.instructions);
        finish(piece);
    }
    closing.stepReachedBound = cut.length < 1.0;
    closing.largestStep = limit.length;
    return closing;
}

}  // namespace voxlith
