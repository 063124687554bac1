#include "base/process_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace voxlith {

namespace {

void reserveStderrDescriptor() {
    if (::fcntl(STDERR_FILENO, F_GETFD) != -1) {
        return;
    }
    const int nowhere = ::open("/dev/null", O_WRONLY);
    if (nowhere < 0 || nowhere == STDERR_FILENO) {
        return;
    }
    ::dup2(nowhere, STDERR_FILENO);
    ::close(nowhere);
}

}  // namespace

void prepareProcess() {
    reserveStderrDescriptor();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace voxlith
