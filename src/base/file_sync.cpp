#include "base/file_sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace voxlith {

bool syncFile(int handle) {
    int status = 0;
    do {
        status = ::fsync(handle);
    } while (status != 0 && errno == EINTR);
    // File systems and devices without such a call report one of these.
    return status == 0 || errno == EINVAL || errno == ENOSYS || errno == ENOTSUP;
}

std::string_view folderOf(std::string_view name) {
    const std::size_t slash = name.rfind('/');
    return slash == std::string_view::npos ? std::string_view{} : name.substr(0, slash + 1);
}

void syncFolderOf(std::string_view name) {
    std::string_view folder = folderOf(name);
    if (folder.empty()) {
        folder = ".";
    }
    std::array<char, 4096> path{};
    if (folder.size() >= path.size()) {
        return;
    }
    std::copy(folder.begin(), folder.end(), path.begin());
    const int handle = ::open(path.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle >= 0) {
        static_cast<void>(::fsync(handle));
        ::close(handle);
    }
}

}  // namespace voxlith
