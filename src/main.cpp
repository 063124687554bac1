// VoxLith: inverts gravity and magnetic survey data for a 3-D cell model of density or susceptibility.

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "base/process_setup.h"
#include "driver/run.h"

int main(int argumentCount, char** arguments) {
    voxlith::prepareProcess();
    try {
        const std::vector<std::string> words(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
        return static_cast<int>(voxlith::runVoxlith(words));
    } catch (const std::bad_alloc&) {
        std::fputs("voxlith: not enough memory for the command line\n", stderr);
        return static_cast<int>(voxlith::ExitStatus::unusableFile);
    }
}
