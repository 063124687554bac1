#include "formats/mtx/binary_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "base/messages.h"

namespace voxlith {

static_assert(std::endian::native == std::endian::little, "the files hold little-endian numbers");
static_assert(sizeof(off_t) == 8, "files may be larger than 4 GiB");

namespace {

// Reads up to `bytes` bytes at `from`; fewer only at the end of the file.
std::size_t fetch(BinaryInput& input, std::byte* target, std::size_t bytes, std::int64_t from) {
    std::size_t done = 0;
    while (done < bytes) {
        const ssize_t got =
            ::pread(input.handle, target + done, bytes - done, static_cast<off_t>(from) + static_cast<off_t>(done));
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw RunError(input.name + ": byte " + std::to_string(from) + ": cannot be read: " + std::strerror(errno));
        }
        if (got == 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
        input.bytesRead += got;
    }
    return done;
}

void makeBlock(BinaryInput& input) {
    if (input.block.empty()) {
        input.block.resize(static_cast<std::size_t>(
            std::clamp<std::int64_t>(input.size, 1, static_cast<std::int64_t>(largeReadAhead))));
    }
}

std::byte* dataOf(BinaryInput& input) {
    return input.block.data() + input.blockFront;
}

void finishNext(BinaryInput& input) {
    if (input.nextBegun) {
        backgroundReads().finish(backgroundReads().reader, input.next);
        input.nextBegun = false;
    }
}

// Begins to read what follows the block.
void beginNext(BinaryInput& input) {
    const std::int64_t from = input.blockStart + static_cast<std::int64_t>(input.blockLength);
    if (backgroundReads().begin == nullptr || from >= input.size) {
        return;
    }
    input.nextBlock.resize(2 * largeReadAhead);
    input.next = {input.handle, input.nextBlock.data() + largeReadAhead, largeReadAhead, from};
    input.nextBegun = true;
    backgroundReads().begin(backgroundReads().reader, input.next);
}

// Takes the block that was read in the background, with the last `kept` bytes of the present one in front of it. False
// when it is another part of the file.
bool takeNext(BinaryInput& input, std::size_t kept) {
    if (!input.nextBegun) {
        return false;
    }
    finishNext(input);
    const bool wanted = input.next.from == input.position + static_cast<std::int64_t>(kept) && input.next.got > 0;
    if (!wanted || kept > largeReadAhead || kept % sizeof(float) != 0) {
        return false;
    }
    input.bytesRead += static_cast<std::int64_t>(input.next.got);
    const std::size_t front = largeReadAhead - kept;
    std::memcpy(input.nextBlock.data() + front, dataOf(input) + input.blockLength - kept, kept);
    std::swap(input.block, input.nextBlock);
    input.blockFront = front;
    input.blockLength = kept + input.next.got;
    return true;
}

// Fills the read-ahead from the present position on; bytes that it holds already are not fetched again.
void moveBlockHere(BinaryInput& input) {
    makeBlock(input);
    const std::int64_t offset = input.position - input.blockStart;
    std::size_t kept = 0;
    if (offset >= 0 && offset < static_cast<std::int64_t>(input.blockLength)) {
        kept = input.blockLength - static_cast<std::size_t>(offset);
    }
    if (!takeNext(input, kept)) {
        std::memmove(input.block.data(), dataOf(input) + input.blockLength - kept, kept);
        input.blockFront = 0;
        input.blockLength = kept;
        input.blockLength +=
            fetch(input, input.block.data() + kept, std::min(input.block.size(), largeReadAhead) - kept,
                  input.position + static_cast<std::int64_t>(kept));
    }
    input.blockStart = input.position;
    beginNext(input);
}

// Copies what the read-ahead holds from `from` on.
std::size_t copyFromBlock(const BinaryInput& input, std::byte* target, std::size_t bytes, std::int64_t from) {
    const std::int64_t offset = from - input.blockStart;
    if (offset < 0 || offset >= static_cast<std::int64_t>(input.blockLength)) {
        return 0;
    }
    const auto start = static_cast<std::size_t>(offset);
    const std::size_t count = std::min(bytes, input.blockLength - start);
    std::memcpy(target, input.block.data() + input.blockFront + start, count);
    return count;
}

[[noreturn]] void throwEarlyEnd(const BinaryInput& input, std::int64_t bytes, std::int64_t left,
                                std::string_view what) {
    std::string expected(what);
    expected.append(" (").append(std::to_string(bytes)).append(bytes == 1 ? " byte)" : " bytes)");
    throwDamage(input, expected, "only " + std::to_string(left) + " to the end of the file");
}

template <typename T>
T readValue(BinaryInput& input, std::string_view what) {
    T value{};
    readBytes(input, &value, sizeof value, what);
    return value;
}

}  // namespace

BinaryInput::~BinaryInput() {
    closeBinaryInput(*this);
}

bool openBinaryInput(BinaryInput& input, const std::string& name) {
    closeBinaryInput(input);
    // Without O_NONBLOCK, opening a named pipe without a writer would block.
    const int handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (handle < 0) {
        return false;
    }
    struct stat status {};
    int cause = 0;
    if (::fstat(handle, &status) != 0) {
        cause = errno;
    } else if (S_ISDIR(status.st_mode)) {
        cause = EISDIR;
    } else if (!S_ISREG(status.st_mode)) {
        cause = ESPIPE;
    }
    if (cause != 0) {
        ::close(handle);
        errno = cause;
        return false;
    }
    input.name = name;
    input.handle = handle;
    input.size = status.st_size;
    input.position = 0;
    input.bytesRead = 0;
    input.readAhead = largeReadAhead;
    return true;
}

void closeBinaryInput(BinaryInput& input) {
    finishNext(input);
    if (input.handle >= 0) {
        ::close(input.handle);
    }
    input.handle = -1;
    std::vector<std::byte>().swap(input.block);
    std::vector<std::byte>().swap(input.nextBlock);
    input.blockFront = 0;
    input.blockLength = 0;
}

void seekBinary(BinaryInput& input, std::int64_t position) {
    input.position = position;
}

void setReadAhead(BinaryInput& input, std::size_t bytes) {
    input.readAhead = std::clamp<std::size_t>(bytes, 1, largeReadAhead);
}

std::int32_t readInt32(BinaryInput& input, std::string_view what) {
    return readValue<std::int32_t>(input, what);
}

float readReal32(BinaryInput& input, std::string_view what) {
    return readValue<float>(input, what);
}

double readReal64(BinaryInput& input, std::string_view what) {
    return readValue<double>(input, what);
}

void readBytes(BinaryInput& input, void* target, std::size_t bytes, std::string_view what) {
    if (bytes == 0) {
        return;  // the target may be null
    }
    auto* out = static_cast<std::byte*>(target);
    if (input.position < 0) {
        throwDamage(input, what, "a position before the file");
    }
    std::size_t done = copyFromBlock(input, out, bytes, input.position);
    while (done < bytes) {
        const std::size_t missing = bytes - done;
        const std::int64_t from = input.position + static_cast<std::int64_t>(done);
        std::size_t got = 0;
        if (missing >= input.readAhead) {
            got = fetch(input, out + done, missing, from);
        } else {
            makeBlock(input);
            input.blockFront = 0;
            input.blockLength = 0;
            input.blockLength = fetch(input, input.block.data(), std::min(input.readAhead, input.block.size()), from);
            input.blockStart = from;
            got = copyFromBlock(input, out + done, missing, from);
        }
        if (got == 0) {
            throwEarlyEnd(input, static_cast<std::int64_t>(bytes), static_cast<std::int64_t>(done), what);
        }
        done += got;
    }
    input.position += static_cast<std::int64_t>(bytes);
}

const std::byte* viewBytes(BinaryInput& input, std::size_t bytes, std::string_view what) {
    if (bytes > input.readAhead) {
        return nullptr;
    }
    if (input.position < 0) {
        throwDamage(input, what, "a position before the file");
    }
    std::int64_t offset = input.position - input.blockStart;
    if (offset < 0 || offset + static_cast<std::int64_t>(bytes) > static_cast<std::int64_t>(input.blockLength)) {
        moveBlockHere(input);
        if (bytes > input.blockLength) {
            throwEarlyEnd(input, static_cast<std::int64_t>(bytes), static_cast<std::int64_t>(input.blockLength), what);
        }
        offset = 0;
    }
    if (offset % 4 != 0) {
        return nullptr;
    }
    input.position += static_cast<std::int64_t>(bytes);
    return dataOf(input) + offset;
}

bool readScattered(BinaryInput& input, std::span<const iovec> parts) {
    std::int64_t bytes = 0;
    for (const iovec& part : parts) {
        bytes += static_cast<std::int64_t>(part.iov_len);
    }
    const ssize_t got = ::preadv(input.handle, parts.data(), static_cast<int>(parts.size()), input.position);
    if (got != bytes) {
        return false;
    }
    input.bytesRead += got;
    input.position += bytes;
    return true;
}

void requireBytes(const BinaryInput& input, std::int64_t bytes, std::string_view what) {
    const std::int64_t left = std::max<std::int64_t>(0, input.size - input.position);
    if (bytes > left) {
        throwEarlyEnd(input, bytes, left, what);
    }
}

void throwDamage(const BinaryInput& input, std::string_view expected, std::string_view found) {
    throwDamageAt(input, input.position, expected, found);
}

void throwDamageAt(const BinaryInput& input, std::int64_t byte, std::string_view expected, std::string_view found) {
    std::string message = input.name;
    message.append(": byte ").append(std::to_string(byte)).append(": expected ").append(expected);
    message.append(", found ").append(found);
    throw RunError(message);
}

}  // namespace voxlith
