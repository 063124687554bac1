#include "optim/lbfgsb/box_kernels.h"

#include <algorithm>
#include <cmath>

namespace voxlith {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

constexpr std::array<double, blockLength> constantSegment(double value) {
    std::array<double, blockLength> block{};
    for (double& element : block)
        element = value;
    return block;
}
constexpr auto noLowerBounds = constantSegment(-infinity), noUpperBounds = constantSegment(infinity);

void parseBounds(const BoundsBlock& bounds, BoxBlock& box) {
    const std::int32_t code = bounds.code[0];
    box.lower = hasLowerBound(code) ? bounds.lower : noLowerBounds.data();
    box.upper = hasUpperBound(code) ? bounds.upper : noUpperBounds.data();
    if (hasLowerBound(code))
        prefetchNextBlock(bounds.lower, bounds.length);
    if (hasUpperBound(code))
        prefetchNextBlock(bounds.upper, bounds.length);
}

[[gnu::always_inline]] inline void formBoxInline(const BoundsBlock& bounds, BoxBlock& box) {
    double* const lower = box.lowerBuffer.data();
    double* const upper = box.upperBuffer.data();
    std::int32_t anyLower = 0, anyUpper = 0;
    prefetchNextBlock(bounds.code, bounds.length);
    prefetchNextBlock(bounds.fixed, bounds.length);
    for (std::size_t i = 0; i < bounds.length; ++i) {
        const std::int32_t code = bounds.code[i];
        anyLower |= ((code == 1) | (code == 3)) ? 1 : 0;
        anyUpper |= ((code == 2) | (code == 3)) ? 1 : 0;
    }
    // Bounds that nobody has need not come from memory.
    if (anyLower == 0)
        std::fill_n(lower, bounds.length, -infinity);
    else
        prefetchNextBlock(bounds.lower, bounds.length);
    if (anyUpper == 0)
        std::fill_n(upper, bounds.length, infinity);
    else
        prefetchNextBlock(bounds.upper, bounds.length);
    for (std::size_t i = 0, end = anyLower != 0 ? bounds.length : 0; i < end; ++i) {
        const bool has = (bounds.fixed[i] == 0) & ((bounds.code[i] == 1) | (bounds.code[i] == 3));
        const double below = bounds.lower[i];
        lower[i] = has ? below : -infinity;
    }
    for (std::size_t i = 0, end = anyUpper != 0 ? bounds.length : 0; i < end; ++i) {
        const bool has = (bounds.fixed[i] == 0) & ((bounds.code[i] == 2) | (bounds.code[i] == 3));
        const double above = bounds.upper[i];
        upper[i] = has ? above : infinity;
    }
}

[[gnu::always_inline]] inline void projectInline(const BoundsBlock& bounds, const BoxBlock& box, const double* x,
                                                 const double* g, double* projected) {
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

[[gnu::always_inline]] inline bool leavesInline(const BoxBlock& box, std::size_t length, const double* x,
                                                const double* d, double step) {
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    std::int64_t leaving = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const double way = d[i] * step;
        const bool below = (d[i] < 0.0) & (way < lower[i] - x[i]);
        const bool above = (d[i] > 0.0) & (way > upper[i] - x[i]);
        leaving += (below | above) ? 1 : 0;
    }
    return leaving > 0;
}

// The status of a variable that is not fixed for the whole run.
[[gnu::always_inline]] inline std::int32_t statusAt(double roomBelow, double roomAbove, double descent) {
    const std::int32_t between = std::abs(descent) <= 0.0 ? freeWithoutGradient : freeBetweenBounds;
    const std::int32_t lower = descent <= 0.0 ? atLowerBound : freeBetweenBounds;
    const std::int32_t upper = descent >= 0.0 ? atUpperBound : freeBetweenBounds;
    const std::int32_t notLower = roomAbove <= 0.0 ? upper : between;
    return roomBelow <= 0.0 ? lower : notLower;
}

[[gnu::always_inline]] inline void startPathInline(const BoxBlock& box, std::size_t length, const double* x,
                                                   const double* g, std::int32_t* status, double* direction,
                                                   PathStart& path) {
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    std::array<double, blockLength> time;
    for (std::size_t i = 0; i < length; ++i) {
        const std::int32_t found = statusAt(x[i] - lower[i], upper[i] - x[i], -g[i]);
        const std::int32_t before = status[i];
        status[i] = ((before == alwaysFixed) | (before == unbounded)) ? before : found;
    }
    for (std::size_t i = 0; i < length; ++i)
        direction[i] = ((status[i] == freeBetweenBounds) | (status[i] == unbounded)) ? -g[i] : 0.0;
    for (std::size_t i = 0; i < length; ++i)
        time[i] = timeToBound(x[i], lower[i], upper[i], direction[i]);
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
    for (std::size_t i = 0; breakpoints > 0 && i < length; ++i)
        path.leastTime = time[i] < path.leastTime ? time[i] : path.leastTime;
    path.breakpointCount += static_cast<std::size_t>(breakpoints);
    path.freeCount += static_cast<std::size_t>(freeCount);
    path.bounded = path.bounded && unlimited == 0;
    path.moves = path.moves || moving > 0;
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void formBoxAvx2(const BoundsBlock& bounds, BoxBlock& box) {
    formBoxInline(bounds, box);
}
[[gnu::target("avx512f")]] void formBoxAvx512(const BoundsBlock& bounds, BoxBlock& box) {
    formBoxInline(bounds, box);
}

[[gnu::target("avx2")]] void projectAvx2(const BoundsBlock& bounds, const BoxBlock& box, const double* x,
                                         const double* g, double* projected) {
    projectInline(bounds, box, x, g, projected);
}
[[gnu::target("avx512f")]] void projectAvx512(const BoundsBlock& bounds, const BoxBlock& box, const double* x,
                                              const double* g, double* projected) {
    projectInline(bounds, box, x, g, projected);
}

[[gnu::target("avx2")]] bool leavesAvx2(const BoxBlock& box, std::size_t length, const double* x, const double* d,
                                        double step) {
    return leavesInline(box, length, x, d, step);
}
[[gnu::target("avx512f")]] bool leavesAvx512(const BoxBlock& box, std::size_t length, const double* x, const double* d,
                                             double step) {
    return leavesInline(box, length, x, d, step);
}

[[gnu::target("avx2")]] void startPathAvx2(const BoxBlock& box, std::size_t length, const double* x, const double* g,
                                           std::int32_t* status, double* direction, PathStart& path) {
    startPathInline(box, length, x, g, status, direction, path);
}
[[gnu::target("avx512f")]] void startPathAvx512(const BoxBlock& box, std::size_t length, const double* x,
                                                const double* g, std::int32_t* status, double* direction,
                                                PathStart& path) {
    startPathInline(box, length, x, g, status, direction, path);
}
#endif

}  // namespace

void formBox(const BoundsBlock& bounds, BoxBlock& box, InstructionSet instructions) {
    if (bounds.uniform)
        return parseBounds(bounds, box);
    box.lower = box.lowerBuffer.data();
    box.upper = box.upperBuffer.data();
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return formBoxAvx512(bounds, box);
    if (instructions == InstructionSet::avx2)
        return formBoxAvx2(bounds, box);
#endif
    static_cast<void>(instructions);
    formBoxInline(bounds, box);
}

void projectGradient(const BoundsBlock& bounds, const BoxBlock& box, const double* x, const double* g,
                     double* projected, InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return projectAvx512(bounds, box, x, g, projected);
    if (instructions == InstructionSet::avx2)
        return projectAvx2(bounds, box, x, g, projected);
#endif
    static_cast<void>(instructions);
    projectInline(bounds, box, x, g, projected);
}

bool leavesBox(const BoxBlock& box, std::size_t length, const double* x, const double* d, double step,
               InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return leavesAvx512(box, length, x, d, step);
    if (instructions == InstructionSet::avx2)
        return leavesAvx2(box, length, x, d, step);
#endif
    static_cast<void>(instructions);
    return leavesInline(box, length, x, d, step);
}

void startPathBlock(const BoxBlock& box, std::size_t length, const double* x, const double* g, std::int32_t* status,
                    double* direction, PathStart& path, InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return startPathAvx512(box, length, x, g, status, direction, path);
    if (instructions == InstructionSet::avx2)
        return startPathAvx2(box, length, x, g, status, direction, path);
#endif
    static_cast<void>(instructions);
    startPathInline(box, length, x, g, status, direction, path);
}

}  // namespace voxlith
