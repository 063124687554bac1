// VoxLith: inverts gravity and magnetic survey data for a 3-D cell model of density or susceptibility.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "driver/run.h"

namespace {

// With standard error closed, the first file that is opened takes its number, and a message on the way out would be
// written into that file.
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

int main(int argumentCount, char** arguments) {
    reserveStderrDescriptor();
    // A reader of the screen that goes away and a file that outgrows its limit become error messages, not silent ends.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        const std::vector<std::string> words(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
        return static_cast<int>(voxlith::runVoxlith(words));
    } catch (const std::bad_alloc&) {
        std::fputs("voxlith: not enough memory for the command line\n", stderr);
        return static_cast<int>(voxlith::ExitStatus::unusableFile);
    }
}
