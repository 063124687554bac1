#include "base/temporary_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "base/file_sync.h"

namespace voxlith {

namespace {

constexpr std::string_view temporarySuffix = ".part";

// The permissions of the file that will be replaced. A link is replaced and not followed, so it gives none.
void copyPermissions(const char* name, int handle) {
    struct stat state {};
    if (::lstat(name, &state) == 0 && S_ISREG(state.st_mode)) {
        constexpr mode_t permissions = 0777;
        static_cast<void>(::fchmod(handle, state.st_mode & permissions));  // best effort: the content is what counts
    }
}

// False when another process removed the file before it was locked. File systems without locks do without.
bool lockOwn(int handle) {
    static_cast<void>(::flock(handle, LOCK_EX | LOCK_NB));
    struct stat state {};
    return ::fstat(handle, &state) != 0 || state.st_nlink > 0;
}

// "REST.PROCESS-NUMBER.part"
bool isTemporaryName(std::string_view name) {
    if (!name.ends_with(temporarySuffix)) {
        return false;
    }
    name.remove_suffix(temporarySuffix.size());
    const auto dropDigits = [&name] {
        const std::size_t last = name.find_last_not_of("0123456789");
        const bool some = last != std::string_view::npos && last + 1 < name.size();
        name = name.substr(0, last == std::string_view::npos ? 0 : last + 1);
        return some;
    };
    if (!dropDigits() || !name.ends_with('-')) {
        return false;
    }
    name.remove_suffix(1);
    return dropDigits() && name.ends_with('.');
}

void removeUnlessLocked(int folder, const char* name) {
    const int handle = ::openat(folder, name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (handle < 0) {
        return;
    }
    struct stat state {};
    if (::fstat(handle, &state) == 0 && S_ISREG(state.st_mode) && ::flock(handle, LOCK_EX | LOCK_NB) == 0) {
        ::unlinkat(folder, name, 0);
    }
    ::close(handle);
}

}  // namespace

int createTemporaryFile(const char* name, std::span<char> temporaryName) {
    constexpr int attempts = 10000;
    for (int number = 1; number <= attempts; ++number) {
        const int length = std::snprintf(temporaryName.data(), temporaryName.size(), "%s.%ld-%d.part", name,
                                         static_cast<long>(::getpid()), number);
        if (length < 0 || static_cast<std::size_t>(length) >= temporaryName.size()) {
            errno = ENAMETOOLONG;
            return -1;
        }
        const int handle = ::open(temporaryName.data(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (handle < 0 && errno == EEXIST) {
            continue;  // of a run that was killed, or of another computer
        }
        if (handle < 0) {
            return handle;
        }
        if (lockOwn(handle)) {
            copyPermissions(name, handle);
            return handle;
        }
        ::close(handle);
    }
    errno = EEXIST;
    return -1;
}

void removeLeftovers(std::string_view prefix) {
    const std::string folder(folderOf(prefix));
    const std::string_view start = prefix.substr(folder.size());
    DIR* const entries = ::opendir(folder.empty() ? "." : folder.c_str());
    if (entries == nullptr) {
        return;
    }
    while (const dirent* const entry = ::readdir(entries)) {
        const std::string_view name(entry->d_name);
        if (name.starts_with(start) && isTemporaryName(name)) {
            removeUnlessLocked(::dirfd(entries), entry->d_name);
        }
    }
    ::closedir(entries);
}

}  // namespace voxlith
