// The threads of voxlith-run: a fixed team that runs the loops of base/workers.h. Piece p goes to thread p, always, so
// that a thread finds in its cache what it has worked on before. Threads that wait use no processor time.
//
// The team is built on std::thread, a mutex and two condition variables rather than on a task library: all loops are
// split into equal shares beforehand, so there is nothing to schedule, and ThreadSanitizer and helgrind follow every
// synchronisation without a list of exceptions.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

#include "base/workers.h"

namespace voxlith {

// Processor cores that this process may use: by its affinity, and by the limit of its control group; 1 at least.
std::size_t coresOfProcess();

// Limit of processor time, in whole cores rounded up, in the text of a file cpu.max ("200000 100000" or "max 100000");
// 0 for none.
std::size_t coresOfQuota(const char* text);

struct ThreadTeam {
    explicit ThreadTeam(std::size_t threads);  // throws std::system_error
    ~ThreadTeam();
    ThreadTeam(const ThreadTeam&) = delete;
    ThreadTeam& operator=(const ThreadTeam&) = delete;
    ThreadTeam(ThreadTeam&&) = delete;
    ThreadTeam& operator=(ThreadTeam&&) = delete;

    std::mutex mutex;
    std::condition_variable begun, ended;
    std::size_t loopNumber = 0;  // of the current loop
    std::size_t pieces = 0;
    PieceCall call = nullptr;
    const void* loop = nullptr;
    std::size_t running = 0;  // pieces that other threads have not finished
    bool stopping = false;
    std::vector<std::thread> threads;  // all but the calling one, which takes piece 0
};

// While it lives, `threads` workers share the loops of the process; `smallestPiece` is that of Workers.
struct SharedLoops {
    SharedLoops(std::size_t threads, std::size_t smallestPiece);
    ~SharedLoops();
    SharedLoops(const SharedLoops&) = delete;
    SharedLoops& operator=(const SharedLoops&) = delete;
    SharedLoops(SharedLoops&&) = delete;
    SharedLoops& operator=(SharedLoops&&) = delete;

    ThreadTeam team;
};

}  // namespace voxlith
