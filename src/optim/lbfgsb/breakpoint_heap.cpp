#include "optim/lbfgsb/breakpoint_heap.h"

#include <cassert>
#include <cstddef>
#include <utility>

namespace voxlith {

namespace {

// Lets entry `at` sink until neither of its two children is less.
void sink(std::span<double> times, std::span<std::int32_t> variables, std::size_t at, std::size_t count) {
    const double time = times[at];
    const std::int32_t variable = variables[at];
    for (std::size_t child = 2 * at + 1; child < count; child = 2 * at + 1) {
        if (child + 1 < count && times[child + 1] < times[child]) {
            ++child;
        }
        if (!(times[child] < time)) {
            break;
        }
        times[at] = times[child];
        variables[at] = variables[child];
        at = child;
    }
    times[at] = time;
    variables[at] = variable;
}

}  // namespace

void makeHeap(std::span<double> times, std::span<std::int32_t> variables, std::size_t count) {
    for (std::size_t at = count / 2; at-- > 0;) {
        sink(times, variables, at, count);
    }
}

void popLeast(std::span<double> times, std::span<std::int32_t> variables, std::size_t count) {
    assert(count > 0 && count <= times.size() && count <= variables.size());
    std::swap(times[0], times[count - 1]);
    std::swap(variables[0], variables[count - 1]);
    sink(times, variables, 0, count - 1);
}

}  // namespace voxlith
