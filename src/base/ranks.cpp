#include "base/ranks.h"

namespace voxlith {

namespace {

Ranks& current() {
    static Ranks ranks;
    return ranks;
}

}  // namespace

void setRanks(const Ranks& ranks) {
    assert(ranks.rank < ranks.count && (ranks.count == 1 || ranks.passAlong != nullptr));
    current() = ranks;
}

const Ranks& ranksOfRun() {
    return current();
}

}  // namespace voxlith
