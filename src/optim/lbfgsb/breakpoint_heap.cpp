#include "optim/lbfgsb/breakpoint_heap.h"

#include <cstddef>
#include <utility>

namespace voxlith {

namespace {

// Lets the entry at `place` sink until none of the two below it is less.
void sink(std::span<double> times, std::span<std::int32_t> variables, std::size_t place, std::size_t count) {
    const double time = times[place];
    const std::int32_t variable = variables[place];
    for (std::size_t below = 2 * place + 1; below < count; below = 2 * place + 1) {
        if (below + 1 < count && times[below + 1] < times[below]) {
            ++below;
        }
        if (!(times[below] < time)) {
            break;
        }
        times[place] = times[below];
        variables[place] = variables[below];
        place = below;
    }
    times[place] = time;
    variables[place] = variable;
}

}  // namespace

void makeHeap(std::span<double> times, std::span<std::int32_t> variables, std::size_t count) {
    for (std::size_t place = count / 2; place-- > 0;) {
        sink(times, variables, place, count);
    }
}

void popLeast(std::span<double> times, std::span<std::int32_t> variables, std::size_t count) {
    std::swap(times[0], times[count - 1]);
    std::swap(variables[0], variables[count - 1]);
    sink(times, variables, 0, count - 1);
}

}  // namespace voxlith
