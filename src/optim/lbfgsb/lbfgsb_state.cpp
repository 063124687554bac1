#include "optim/lbfgsb/lbfgsb_state.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <limits>

namespace voxlith {

namespace {

// Elements of isave after the twenty of the layout, from 0.
enum IntegerElement : std::size_t {
    nElement = 20,
    mElement,
    correctionsElement,
    oldestElement,
    updateCountElement,
    iterationElement,
    freeCountElement,
    refusalElement,
    searchEvaluationsElement,
    bracketedElement,
    stageElement,
    evaluationsElement,
    intervalsElement,
    skippedUpdatesElement,
    stepReachedBoundElement,
};

// Calls visit(real) for each real of the state, in the order of dsave.
template <typename State, typename Visitor>
void visitReals(State& state, Visitor visit) {
    visit(state.theta);
    visit(state.previousValue);
    visit(state.tolerance);
    visit(state.gradientNorm);
    visit(state.step);
    visit(state.largestStep);
    visit(state.directionSquared);
    visit(state.slope);
    visit(state.slopeAtStart);
    auto& search = state.search;
    visit(search.start.value);
    visit(search.start.slope);
    visit(search.best.step);
    visit(search.best.value);
    visit(search.best.slope);
    visit(search.other.step);
    visit(search.other.value);
    visit(search.other.slope);
    visit(search.lowest);
    visit(search.highest);
    visit(search.width);
    visit(search.previousWidth);
}

// The sizes of storeLayout and the first elements of the parts of `wa`, from 1.
std::array<std::int64_t, 20> layoutNumbers(std::int64_t n, std::int64_t m) {
    const std::int64_t square = m * m;
    std::array<std::int64_t, 20> numbers{m * n, square, 4 * square, 1};
    const std::array<std::int64_t, 16> lengths{m * n, m * n, square, square, square, square, 4 * square, 4 * square,
                                               n,     n,     n,      n,      8 * m,  m,      m,          m};
    for (std::size_t part = 0; part < lengths.size(); ++part) {
        numbers[part + 4] = numbers[part + 3] + lengths[part];
    }
    return numbers;
}

std::int32_t inThirtyTwoBits(std::int64_t value) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(value, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

LbfgsbState loadState(const LbfgsbSavedArrays& arrays) {
    LbfgsbState state;
    state.box = {arrays.lsave[0], arrays.lsave[1], arrays.lsave[2]};
    const auto& isave = arrays.isave;
    state.corrections = isave[correctionsElement];
    state.oldest = isave[oldestElement];
    state.updateCount = isave[updateCountElement];
    state.iteration = isave[iterationElement];
    state.freeCount = isave[freeCountElement];
    state.refusal = isave[refusalElement];
    state.searchEvaluations = isave[searchEvaluationsElement];
    state.search.bracketed = isave[bracketedElement] != 0;
    state.search.stage = isave[stageElement];
    state.search.request = arrays.csave;
    state.evaluations = isave[evaluationsElement];
    state.intervals = isave[intervalsElement];
    state.skippedUpdates = isave[skippedUpdatesElement];
    state.stepReachedBound = isave[stepReachedBoundElement] != 0;
    std::size_t next = 0;
    visitReals(state, [&](double& value) { value = arrays.dsave[next++]; });
    return state;
}

void storeState(const LbfgsbState& state, const LbfgsbSavedArrays& arrays) {
    arrays.csave = state.search.request;
    arrays.lsave[0] = state.box.startProjected;
    arrays.lsave[1] = state.box.constrained;
    arrays.lsave[2] = state.box.boxed;
    arrays.lsave[3] = state.updateCount > 0;
    const auto& isave = arrays.isave;
    isave[correctionsElement] = state.corrections;
    isave[oldestElement] = state.oldest;
    isave[updateCountElement] = state.updateCount;
    isave[iterationElement] = state.iteration;
    isave[freeCountElement] = state.freeCount;
    isave[refusalElement] = state.refusal;
    isave[searchEvaluationsElement] = state.searchEvaluations;
    isave[bracketedElement] = state.search.bracketed;
    isave[stageElement] = state.search.stage;
    isave[evaluationsElement] = state.evaluations;
    isave[intervalsElement] = state.intervals;
    isave[skippedUpdatesElement] = state.skippedUpdates;
    isave[stepReachedBoundElement] = state.stepReachedBound;
    std::size_t next = 0;
    visitReals(state, [&](const double& value) { arrays.dsave[next++] = value; });
}

LbfgsbWorkspace layOutWorkspace(std::int32_t n, std::int32_t m, std::span<double> wa, std::span<std::int32_t> iwa) {
    const std::size_t variables = static_cast<std::size_t>(n);
    const std::size_t corrections = static_cast<std::size_t>(m);
    assert(n > 0 && m > 0);
    std::size_t next = 0;
    const auto take = [&](std::size_t length) {
        const std::span<double> part = wa.subspan(next, length);
        next += length;
        return part;
    };
    const auto takeMatrix = [&](std::size_t order) { return SmallMatrix{take(order * order).data(), order}; };
    LbfgsbWorkspace work;
    work.s = take(corrections * variables);
    work.y = take(corrections * variables);
    work.sDotY = takeMatrix(corrections);
    work.sDotS = takeMatrix(corrections);
    takeMatrix(corrections);  // yy
    work.middleFactor = takeMatrix(corrections);
    work.subspaceFactor = takeMatrix(2 * corrections);
    work.subspaceTable = takeMatrix(2 * corrections);
    work.z = take(variables);
    work.r = take(variables);
    work.d = take(variables);
    work.t = take(variables);
    work.products = take(8 * corrections);
    work.p = take(2 * corrections);
    work.c = take(2 * corrections);
    work.uniform = iwa.first(variables);
    work.status = iwa.subspan(variables, variables);
    work.order = iwa.subspan(2 * variables, variables);
    return work;
}

void storeLayout(std::int32_t n, std::int32_t m, std::span<std::int32_t, 44> isave) {
    isave[nElement] = n;
    isave[mElement] = m;
    const std::array<std::int64_t, 20> numbers = layoutNumbers(n, m);
    std::transform(numbers.begin(), numbers.end(), isave.begin(), inThirtyTwoBits);
}

bool layoutIsOf(std::int32_t n, std::int32_t m, std::span<const std::int32_t, 44> isave) {
    return isave[nElement] == n && isave[mElement] == m;
}

}  // namespace voxlith
