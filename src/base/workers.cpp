#include "base/workers.h"

#include <cassert>

namespace voxlith {

namespace {

Workers& current() {
    static Workers workers;
    return workers;
}

}  // namespace

void setWorkers(const Workers& workers) {
    assert(workers.count > 0 && workers.count <= mostWorkers && workers.smallestPiece > 0 &&
           (workers.count == 1 || workers.run != nullptr));
    current() = workers;
}

const Workers& workersOfProcess() {
    return current();
}

std::size_t startOfPiece(std::span<const std::int64_t> workBefore, std::size_t piece, std::size_t pieces) {
    assert(!workBefore.empty() && piece <= pieces);
    if (piece == pieces) {
        return workBefore.size() - 1;
    }
    // In real64, since the product of work and pieces may leave the integers.
    const double share = static_cast<double>(piece) / static_cast<double>(pieces);
    const auto work = static_cast<double>(workBefore.back() - workBefore.front());
    const std::int64_t target = workBefore.front() + static_cast<std::int64_t>(share * work);
    const auto found = std::lower_bound(workBefore.begin(), workBefore.end() - 1, target);
    return static_cast<std::size_t>(found - workBefore.begin());
}

}  // namespace voxlith
