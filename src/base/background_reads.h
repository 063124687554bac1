// Reads from files that go on while the process computes. A program sets them up, or none are made.
#pragma once

#include <cstddef>
#include <cstdint>

namespace voxlith {

// Belongs to the reader from `begin` to `finish`, with its target; the owner keeps both in place.
struct ReadRequest {
    int handle = -1;
    std::byte* target = nullptr;
    std::size_t bytes = 0;
    std::int64_t from = 0;  // position in the file
    std::size_t got = 0;    // fewer bytes than wanted at the end of the file or after an error
    bool done = true;
};

struct BackgroundReads {
    // Requests are served one after the other, in their order.
    void (*begin)(void* reader, ReadRequest& request) = nullptr;
    // Waits until the request is done.
    void (*finish)(void* reader, ReadRequest& request) = nullptr;
    void* reader = nullptr;
};

// While no file is open.
void setBackgroundReads(const BackgroundReads& reads);
const BackgroundReads& backgroundReads();

}  // namespace voxlith
