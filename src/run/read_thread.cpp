#include "run/read_thread.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>

namespace voxlith {

namespace {

// Waits for what the other thread does next, awake at first: to wake a thread that sleeps can take longer than to read
// or to use a block.
template <typename Ready>
void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed, const Ready& ready) {
    constexpr std::chrono::microseconds awake(100);
    const auto asleep = std::chrono::steady_clock::now() + awake;
    while (!ready() && std::chrono::steady_clock::now() < asleep) {
        lock.unlock();
        std::this_thread::yield();  // to whoever else needs the core
        lock.lock();
    }
    changed.wait(lock, ready);
}

// An error ends the request early; whoever needs the bytes meets the error again, and reports it.
std::size_t readBlock(const ReadRequest& request) {
    std::size_t done = 0;
    while (done < request.bytes) {
        const ssize_t got = ::pread(request.handle, request.target + done, request.bytes - done,
                                    static_cast<off_t>(request.from) + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

void serveRequests(ReadThread& reader) {
    std::unique_lock lock(reader.mutex);
    for (;;) {
        waitUntil(lock, reader.begun, [&] { return reader.stopping || !reader.requests.empty(); });
        if (reader.stopping) {
            return;
        }
        ReadRequest& request = *reader.requests.front();
        reader.requests.pop_front();
        lock.unlock();
        const std::size_t got = readBlock(request);
        lock.lock();
        request.got = got;
        request.done = true;
        reader.ended.notify_all();
    }
}

// The memory that rows did not fit into may be short for a thread, too.
bool startThread(ReadThread& reader) {
    try {
        reader.thread = std::thread([&reader] { serveRequests(reader); });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void begin(void* address, ReadRequest& request) {
    ReadThread& reader = *static_cast<ReadThread*>(address);
    const std::lock_guard lock(reader.mutex);
    if (!reader.thread.joinable() && !startThread(reader)) {
        return;
    }
    request.done = false;
    reader.requests.push_back(&request);
    reader.begun.notify_one();
}

void finish(void* address, ReadRequest& request) {
    ReadThread& reader = *static_cast<ReadThread*>(address);
    std::unique_lock lock(reader.mutex);
    waitUntil(lock, reader.ended, [&] { return request.done; });
}

}  // namespace

ReadThread::ReadThread(bool wanted) {
    if (wanted) {
        setBackgroundReads({begin, finish, this});
    }
}

ReadThread::~ReadThread() {
    setBackgroundReads({});
    if (thread.joinable()) {
        {
            const std::lock_guard lock(mutex);
            stopping = true;
            begun.notify_one();
        }
        thread.join();
    }
}

}  // namespace voxlith
