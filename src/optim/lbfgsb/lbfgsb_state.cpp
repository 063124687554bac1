#include "optim/lbfgsb/lbfgsb_state.h"

#include <algorithm>
#include <array>
#include <limits>

namespace voxlith {

namespace {

// Places in isave behind the twenty of the layout, counted from 0.
enum IntegerPlace : std::size_t {
    nPlace = 20,
    mPlace,
    correctionsPlace,
    oldestPlace,
    updateCountPlace,
    iterationPlace,
    freeCountPlace,
    refusalPlace,
    searchEvaluationsPlace,
    bracketedPlace,
    stagePlace,
    evaluationsPlace,
    intervalsPlace,
    skippedUpdatesPlace,
    stepReachedBoundPlace,
};

// Hands each real of the state to `visit`, in the order of dsave.
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
    visit(search.widthBefore);
}

// Places of the parts of `wa` counted from 1, as the layout lists them.
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

LbfgsbState loadState(const LbfgsbSavedBlocks& blocks) {
    LbfgsbState state;
    state.box = {blocks.lsave[0], blocks.lsave[1], blocks.lsave[2]};
    const auto& isave = blocks.isave;
    state.corrections = isave[correctionsPlace];
    state.oldest = isave[oldestPlace];
    state.updateCount = isave[updateCountPlace];
    state.iteration = isave[iterationPlace];
    state.freeCount = isave[freeCountPlace];
    state.refusal = isave[refusalPlace];
    state.searchEvaluations = isave[searchEvaluationsPlace];
    state.search.bracketed = isave[bracketedPlace] != 0;
    state.search.stage = isave[stagePlace];
    state.search.request = blocks.csave;
    state.evaluations = isave[evaluationsPlace];
    state.intervals = isave[intervalsPlace];
    state.skippedUpdates = isave[skippedUpdatesPlace];
    state.stepReachedBound = isave[stepReachedBoundPlace] != 0;
    std::size_t place = 0;
    visitReals(state, [&](double& value) { value = blocks.dsave[place++]; });
    return state;
}

void storeState(const LbfgsbState& state, const LbfgsbSavedBlocks& blocks) {
    blocks.csave = state.search.request;
    blocks.lsave[0] = state.box.startProjected;
    blocks.lsave[1] = state.box.constrained;
    blocks.lsave[2] = state.box.boxed;
    blocks.lsave[3] = state.updateCount > 0;
    const auto& isave = blocks.isave;
    isave[correctionsPlace] = state.corrections;
    isave[oldestPlace] = state.oldest;
    isave[updateCountPlace] = state.updateCount;
    isave[iterationPlace] = state.iteration;
    isave[freeCountPlace] = state.freeCount;
    isave[refusalPlace] = state.refusal;
    isave[searchEvaluationsPlace] = state.searchEvaluations;
    isave[bracketedPlace] = state.search.bracketed;
    isave[stagePlace] = state.search.stage;
    isave[evaluationsPlace] = state.evaluations;
    isave[intervalsPlace] = state.intervals;
    isave[skippedUpdatesPlace] = state.skippedUpdates;
    isave[stepReachedBoundPlace] = state.stepReachedBound;
    std::size_t place = 0;
    visitReals(state, [&](const double& value) { blocks.dsave[place++] = value; });
}

LbfgsbWorkspace layOutWorkspace(std::int32_t n, std::int32_t m, std::span<double> wa, std::span<std::int32_t> iwa) {
    const std::size_t variables = static_cast<std::size_t>(n);
    const std::size_t corrections = static_cast<std::size_t>(m);
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
    takeMatrix(corrections);
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
    isave[nPlace] = n;
    isave[mPlace] = m;
    const std::array<std::int64_t, 20> numbers = layoutNumbers(n, m);
    std::transform(numbers.begin(), numbers.end(), isave.begin(), inThirtyTwoBits);
}

bool layoutIsOf(std::int32_t n, std::int32_t m, std::span<const std::int32_t, 44> isave) {
    return isave[nPlace] == n && isave[mPlace] == m;
}

}  // namespace voxlith
