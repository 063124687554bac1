// "voxlith-tools info": prints the header of a sensitivity file of any layout.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace voxlith {

struct InfoOptions {
    std::string fileName;
};

CLI::App* addInfoCommand(CLI::App& tools, InfoOptions& options);

// What the file says of itself, a line for each thing, ending with a line end. The file is read as the inversion
// program reads it. Throws RunError for a file that is none or is damaged.
std::string describeMtxFile(const std::string& fileName);

}  // namespace voxlith
