// What survives a power failure: the content of a file after syncFile, its name after syncFolderOf.
#pragma once

#include <string_view>

namespace voxlith {

// Waits until the content of an open file is on the disk. True as well for pipes and devices, which hold nothing back.
// False when the disk refuses, with errno.
bool syncFile(int handle);

// Waits until the names in the folder of the file `name` are on the disk. Best effort: some file systems and folders
// without read permission do not allow it.
void syncFolderOf(std::string_view name);

// The folder of a file name, with its last "/"; empty for the work folder.
std::string_view folderOf(std::string_view name);

}  // namespace voxlith
