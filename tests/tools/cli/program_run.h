// Runs voxlith-tools as its user does, for the tests of subcommands.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "support/temporary_folder.h"

namespace voxlith::testing_support {

struct Outcome {
    int status = -1;
    std::string out, errors;
};

// In the folder; standard output and standard error are left there as out.txt and errors.txt.
inline Outcome runTools(const TemporaryFolder& folder, const std::string& arguments) {
    const std::string command =
        "cd '" + folder.path().string() + "' && '" VOXLITH_TOOLS_PROGRAM "' " + arguments + " >out.txt 2>errors.txt";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, folder.read("out.txt"), folder.read("errors.txt")};
}

}  // namespace voxlith::testing_support
