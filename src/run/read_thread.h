// The thread of voxlith-run that reads sensitivity files ahead when rows do not fit into memory (disk mode): while the
// rows of one block are used, the next block is read.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "base/background_reads.h"

namespace voxlith {

// While it lives, and if it is `wanted`, the reads of base/background_reads.h are served. The thread starts with the
// first of them; where that fails, nothing is read ahead. It outlives the files.
struct ReadThread {
    explicit ReadThread(bool wanted);
    ~ReadThread();
    ReadThread(const ReadThread&) = delete;
    ReadThread& operator=(const ReadThread&) = delete;
    ReadThread(ReadThread&&) = delete;
    ReadThread& operator=(ReadThread&&) = delete;

    std::mutex mutex;
    std::condition_variable begun, ended;
    std::deque<ReadRequest*> requests;
    bool stopping = false;
    std::thread thread;
};

}  // namespace voxlith
