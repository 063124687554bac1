// VoxLith: inverts gravity and magnetic survey data for a 3-D cell model of density or susceptibility.

#include <csignal>
#include <string>
#include <vector>

#include "driver/run.h"

int main(int argumentCount, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader of the screen that goes away becomes an error message, not a silent end
    const std::vector<std::string> words(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
    return static_cast<int>(voxlith::runVoxlith(words));
}
