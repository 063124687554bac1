#include "run/thread_team.h"

#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

namespace voxlith {

namespace {

// A thread takes part in a loop if there is a piece with its number.
void workForTeam(ThreadTeam& team, std::size_t thread) {
    std::size_t loopsSeen = 0;
    std::unique_lock lock(team.mutex);
    for (;;) {
        team.begun.wait(lock, [&] { return team.stopping || team.loopNumber != loopsSeen; });
        if (team.stopping) {
            return;
        }
        loopsSeen = team.loopNumber;
        if (thread >= team.pieces) {
            continue;
        }
        const PieceCall call = team.call;
        const void* const loop = team.loop;
        lock.unlock();
        call(loop, thread);
        lock.lock();
        if (--team.running == 0) {
            team.ended.notify_one();
        }
    }
}

void runLoop(void* address, std::size_t pieces, PieceCall call, const void* loop) {
    ThreadTeam& team = *static_cast<ThreadTeam*>(address);
    {
        const std::lock_guard lock(team.mutex);
        ++team.loopNumber;
        team.pieces = pieces;
        team.call = call;
        team.loop = loop;
        team.running = pieces - 1;
        team.begun.notify_all();
    }
    call(loop, 0);
    std::unique_lock lock(team.mutex);
    team.ended.wait(lock, [&] { return team.running == 0; });
}

void stopTeam(ThreadTeam& team) {
    {
        const std::lock_guard lock(team.mutex);
        team.stopping = true;
        team.begun.notify_all();
    }
    for (std::thread& thread : team.threads) {
        thread.join();
    }
    team.threads.clear();
}

std::size_t coresOfAffinity() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
        return std::thread::hardware_concurrency();  // more cores than the set has bits
    }
    return static_cast<std::size_t>(CPU_COUNT(&allowed));
}

}  // namespace

std::size_t coresOfQuota(const char* text) {
    char* end = nullptr;
    const double quota = std::strtod(text, &end);
    if (end == text) {
        return 0;  // "max"
    }
    const double period = std::strtod(end, nullptr);
    if (!(quota > 0.0) || !(period > 0.0)) {
        return 0;
    }
    const double cores = quota / period;
    return cores >= 65536.0 ? 0
                            : static_cast<std::size_t>(cores) +
                                  (cores > static_cast<double>(static_cast<std::size_t>(cores)) ? 1 : 0);
}

std::size_t coresOfProcess() {
    std::size_t cores = std::max<std::size_t>(1, coresOfAffinity());
    std::ifstream file("/sys/fs/cgroup/cpu.max");
    std::string text;
    if (std::getline(file, text)) {
        const std::size_t limit = coresOfQuota(text.c_str());
        cores = limit > 0 ? std::min(cores, limit) : cores;
    }
    return cores;
}

ThreadTeam::ThreadTeam(std::size_t count) {
    try {
        for (std::size_t thread = 1; thread < count; ++thread) {
            threads.emplace_back([this, thread] { workForTeam(*this, thread); });
        }
    } catch (...) {
        stopTeam(*this);
        throw;
    }
}

ThreadTeam::~ThreadTeam() {
    stopTeam(*this);
}

SharedLoops::SharedLoops(std::size_t threads, std::size_t smallestPiece) : team(threads) {
    if (threads > 1) {
        setWorkers({threads, smallestPiece, runLoop, &team});
    }
}

SharedLoops::~SharedLoops() {
    setWorkers({});
}

}  // namespace voxlith
