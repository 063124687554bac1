#include "base/overhead_timers.h"

#include <chrono>

namespace voxlith {

double clockSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace voxlith
