// Unfinished files: created beside the file that they will replace, under a name of their own, locked while their
// writer lives.
#pragma once

#include <span>
#include <string_view>

namespace voxlith {

// Creates a file for writing in the folder of `name` and stores its name, "NAME.PROCESS-NUMBER.part" and a 0, in
// `temporaryName`. No file of another writer is opened. It takes the permissions of the regular file `name`, if there
// is one. Returns the descriptor, or -1 with errno.
int createTemporaryFile(const char* name, std::span<char> temporaryName);

// Removes the unfinished files of writers that were killed: in the folder of `prefix`, those with names beginning with
// `prefix` that no living process has locked. Best effort.
void removeLeftovers(std::string_view prefix);

}  // namespace voxlith
