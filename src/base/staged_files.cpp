#include "base/staged_files.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <span>

#include "base/file_sync.h"
#include "base/system_write.h"

namespace voxlith {

namespace {

constexpr std::string_view previousSuffix = ".previous";

// Where the interval does not limit it, publishing takes at most one part in this many of the time.
constexpr double leastPause = 40.0;

typedef std::array<char, 1064> HiddenName;

double steadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// As previousVersionName, without allocation.
HiddenName hiddenNameOf(const StagedFile& file) {
    const std::string_view name(file.name.data());
    const std::string_view folder = folderOf(name);
    HiddenName hidden{};
    std::snprintf(hidden.data(), hidden.size(), "%.*s.%s%s", static_cast<int>(folder.size()), folder.data(),
                  name.data() + folder.size(), previousSuffix.data());
    return hidden;
}

bool isStaged(const StagedFile& file) {
    return file.handle >= 0;
}

void drop(StagedFile& file) {
    if (isStaged(file)) {
        ::unlink(file.temporaryName.data());
        ::close(file.handle);
        file.handle = -1;
    }
}

// The present version gets the hidden name as a second one, so that at no time the file is missing. Best effort: not
// all file systems have two names for a file.
void keepPrevious(const StagedFile& file) {
    const HiddenName hidden = hiddenNameOf(file);
    ::unlink(hidden.data());
    static_cast<void>(::link(file.name.data(), hidden.data()));
}

// A file that is shorter than the version before is what a power failure left. The version before is then all there is.
bool isWorthMore(const StagedFile& file) {
    struct stat hidden {
    }, present{};
    return ::lstat(hiddenNameOf(file).data(), &hidden) == 0 && ::lstat(file.name.data(), &present) == 0 &&
           hidden.st_size > present.st_size;
}

void publish(StagedFile& file) {
    if (file.previous == PreviousVersion::kept) {
        file.earlierStays = file.earlierStays || (!file.published && isWorthMore(file));
        if (!file.earlierStays) {
            keepPrevious(file);
        }
        file.published = true;
    }
    if (std::rename(file.temporaryName.data(), file.name.data()) != 0) {
        throwSystemError(file.name.data(), "cannot be written", errno);
    }
    ::close(file.handle);
    file.handle = -1;
}

std::span<StagedFile> filesOf(StagedFiles& staged) {
    return std::span(staged.files).first(staged.count);
}

void syncFolders(std::span<const StagedFile> files) {
    std::string_view synced;
    bool first = true;
    for (const StagedFile& file : files) {
        const std::string_view folder = folderOf(file.name.data());
        if (first || folder != synced) {
            syncFolderOf(file.name.data());
        }
        synced = folder;
        first = false;
    }
}

void removeHidden(const StagedFile& file) {
    if (file.published && !file.earlierStays) {
        ::unlink(hiddenNameOf(file).data());
    }
}

// The entry of the file, or a new one.
StagedFile& entryOf(const OutputFile& file, StagedFiles& staged) {
    const std::string_view name(file.name.data());
    for (StagedFile& known : filesOf(staged)) {
        if (name == known.name.data()) {
            return known;
        }
    }
    if (staged.count == staged.files.size()) {
        publishStagedFiles(staged);
    }
    if (staged.count == staged.files.size()) {
        removeHidden(staged.files.front());
        std::shift_left(staged.files.begin(), staged.files.end(), 1);
        --staged.count;
    }
    StagedFile& entry = staged.files[staged.count];
    entry = {};
    entry.name = file.name;
    ++staged.count;
    return entry;
}

}  // namespace

StagedFiles::~StagedFiles() {
    try {
        publishStagedFiles(*this);
    } catch (const std::exception&) {
        // Reached only when a failure ends the run; that failure is what is reported, and the versions before stay.
    }
    for (StagedFile& file : filesOf(*this)) {
        drop(file);
        removeHidden(file);
    }
}

void stageOutputFile(OutputFile& file, PreviousVersion previous, StagedFiles& staged) {
    flushOutput(file);
    StagedFile& entry = entryOf(file, staged);
    drop(entry);
    entry.previous = previous;
    entry.temporaryName = file.temporaryName;
    entry.handle = file.handle;
    file.handle = -1;
}

bool publicationIsDue(const StagedFiles& staged, double interval) {
    const double since = steadySeconds() - staged.publishedAt;
    return !staged.everPublished || since >= std::min(interval, leastPause * staged.publishSeconds);
}

void publishStagedFiles(StagedFiles& staged) {
    const double start = steadySeconds();
    const std::span<StagedFile> files = filesOf(staged);
    for (const StagedFile& file : files) {
        if (isStaged(file) && !syncFile(file.handle)) {
            throwSystemError(file.name.data(), "cannot be written", errno);
        }
    }
    for (StagedFile& file : files) {
        if (isStaged(file)) {
            publish(file);
        }
    }
    syncFolders(files);
    const auto dropped = [](const StagedFile& file) { return file.previous == PreviousVersion::dropped; };
    staged.count = static_cast<std::size_t>(std::remove_if(files.begin(), files.end(), dropped) - files.begin());
    staged.everPublished = true;
    staged.publishedAt = steadySeconds();
    staged.publishSeconds = staged.publishedAt - start;
}

std::string previousVersionName(std::string_view name) {
    const std::string_view folder = folderOf(name);
    std::string hidden(folder);
    return hidden.append(".").append(name.substr(folder.size())).append(previousSuffix);
}

void removePreviousVersions(std::string_view prefix) {
    const std::string folder(folderOf(prefix));
    std::string start(".");
    start.append(prefix.substr(folder.size()));
    DIR* const entries = ::opendir(folder.empty() ? "." : folder.c_str());
    if (entries == nullptr) {
        return;
    }
    while (const dirent* const entry = ::readdir(entries)) {
        const std::string_view name(entry->d_name);
        if (name.starts_with(start) && name.ends_with(previousSuffix)) {
            ::unlinkat(::dirfd(entries), entry->d_name, 0);
        }
    }
    ::closedir(entries);
}

}  // namespace voxlith
