// The kernels of box_kernels.h, compiled for each instruction set by simd/compile_kernels.h. Compilers make vector code
// of these loops as long as nothing in them branches.
namespace voxlith::VOXLITH_SET {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

// One side of the box: the bound where the code is `code` or 3 and the variable is not fixed, else `noBound`.
void fillSide(const BoundsBlock& bounds, const double* bound, std::int32_t sideCode, double noBound, double* side) {
    std::int32_t any = 0;
    for (std::size_t i = 0; i < bounds.length; ++i) {
        any |= ((bounds.code[i] == sideCode) | (bounds.code[i] == 3)) ? 1 : 0;
    }
    if (any == 0) {  // the bounds of an unused side are not read
        std::fill_n(side, bounds.length, noBound);
        return;
    }
    prefetchNextBlock(bound, bounds.length);
    for (std::size_t i = 0; i < bounds.length; ++i) {
        const bool has = (bounds.fixed[i] == 0) & ((bounds.code[i] == sideCode) | (bounds.code[i] == 3));
        const double value = bound[i];
        side[i] = has ? value : noBound;
    }
}

void fillBox(const BoundsBlock& bounds, BoxBlock& box) {
    constexpr std::int32_t lowerCode = 1, upperCode = 2;
    prefetchNextBlock(bounds.code, bounds.length);
    prefetchNextBlock(bounds.fixed, bounds.length);
    fillSide(bounds, bounds.lower, lowerCode, -infinity, box.lowerBuffer.data());
    fillSide(bounds, bounds.upper, upperCode, infinity, box.upperBuffer.data());
}

void projectGradient(const BoundsBlock& bounds, const BoxBlock& box, const double* x, const double* g,
                     double* projected) {
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    for (std::size_t i = 0; i < bounds.length; ++i) {
        const double above = x[i] - upper[i];
        const double below = x[i] - lower[i];
        const double downhill = above < g[i] ? g[i] : above;
        const double uphill = g[i] < below ? g[i] : below;
        const double towardsUpper = upper[i] < infinity ? downhill : g[i];
        const double towardsLower = lower[i] > -infinity ? uphill : g[i];
        const double chosen = g[i] < 0.0 ? towardsUpper : g[i] >= 0.0 ? towardsLower : g[i];
        projected[i] = bounds.fixed[i] == 1 ? 0.0 : chosen;
    }
}

bool leavesBox(const BoxBlock& box, std::size_t length, const double* x, const double* d, double step) {
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    std::int64_t leaving = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const double travel = d[i] * step;
        const bool below = (d[i] < 0.0) & (travel < lower[i] - x[i]);
        const bool above = (d[i] > 0.0) & (travel > upper[i] - x[i]);
        leaving += (below | above) ? 1 : 0;
    }
    return leaving > 0;
}

// The status of a variable that is not fixed for the whole run, from its distances to both bounds. As wide as a real64:
// compilers make no vector code of a choice between numbers of another width.
std::int64_t statusAt(double toLower, double toUpper, double descent) {
    const std::int64_t between = std::abs(descent) <= 0.0 ? freeWithoutGradient : freeBetweenBounds;
    const std::int64_t lower = descent <= 0.0 ? atLowerBound : freeBetweenBounds;
    const std::int64_t upper = descent >= 0.0 ? atUpperBound : freeBetweenBounds;
    const std::int64_t notLower = toUpper <= 0.0 ? upper : between;
    return toLower <= 0.0 ? lower : notLower;
}

// The least of the values that are numbers; infinite where there are none.
double leastOf(const double* values, std::size_t length) {
    double least[laneCount];
    std::fill_n(least, laneCount, infinity);
    std::size_t i = 0;
    for (; i + laneCount <= length; i += laneCount) {
        for (std::size_t l = 0; l < laneCount; ++l) {
            least[l] = values[i + l] < least[l] ? values[i + l] : least[l];
        }
    }
    for (; i < length; ++i) {
        least[0] = values[i] < least[0] ? values[i] : least[0];
    }
    return *std::min_element(least, least + laneCount);
}

void startPath(const BoxBlock& box, std::size_t length, const double* x, const double* g, std::int32_t* status,
               double* direction, PathStart& path) {
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    std::array<double, blockLength> time;
    std::array<std::int64_t, blockLength> found;
    for (std::size_t i = 0; i < length; ++i) {
        found[i] = statusAt(x[i] - lower[i], upper[i] - x[i], -g[i]);
    }
    for (std::size_t i = 0; i < length; ++i) {
        const std::int32_t before = status[i];
        status[i] = ((before == alwaysFixed) | (before == unbounded)) ? before : static_cast<std::int32_t>(found[i]);
    }
    for (std::size_t i = 0; i < length; ++i) {
        direction[i] = ((status[i] == freeBetweenBounds) | (status[i] == unbounded)) ? -g[i] : 0.0;
    }
    for (std::size_t i = 0; i < length; ++i) {
        time[i] = timeToBound(x[i], lower[i], upper[i], direction[i]);
    }
    std::int64_t breakpoints = 0, unlimited = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const bool meets = time[i] < infinity;
        breakpoints += meets ? 1 : 0;
        unlimited += ((!meets) & (std::abs(direction[i]) > 0.0)) ? 1 : 0;
    }
    std::int32_t freeCount = 0, moving = 0;
    for (std::size_t i = 0; i < length; ++i) {
        freeCount += status[i] <= 0 ? 1 : 0;
        moving += ((status[i] == freeBetweenBounds) | (status[i] == unbounded)) ? 1 : 0;
    }
    if (breakpoints > 0) {
        path.leastTime = std::min(path.leastTime, leastOf(time.data(), length));
    }
    path.breakpointCount += static_cast<std::size_t>(breakpoints);
    path.freeCount += static_cast<std::size_t>(freeCount);
    path.bounded = path.bounded && unlimited == 0;
    path.moves = path.moves || moving > 0;
}

constexpr BoxKernels kernels{fillBox, projectGradient, leavesBox, startPath};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
