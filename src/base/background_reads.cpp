#include "base/background_reads.h"

namespace voxlith {

namespace {

BackgroundReads& current() {
    static BackgroundReads reads;
    return reads;
}

}  // namespace

void setBackgroundReads(const BackgroundReads& reads) {
    current() = reads;
}

const BackgroundReads& backgroundReads() {
    return current();
}

}  // namespace voxlith
