#include "run/mpi/mpi_ranks.h"

#include <mpi.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/messages.h"

namespace voxlith {

namespace {

constexpr int chunkTag = 1;
constexpr std::size_t mostAtOnce = std::size_t{1} << 30;  // counts of MPI are int

int intOf(std::size_t number) {
    return static_cast<int>(number);
}

void gather(std::span<double> values, std::span<const std::size_t> firstOfRank) {
    std::vector<int> first, count;
    for (std::size_t rank = 0; rank + 1 < firstOfRank.size(); ++rank) {
        first.push_back(intOf(firstOfRank[rank]));
        count.push_back(intOf(firstOfRank[rank + 1] - firstOfRank[rank]));
    }
    MPI_Allgatherv(MPI_IN_PLACE, 0, MPI_DATATYPE_NULL, values.data(), count.data(), first.data(), MPI_DOUBLE,
                   MPI_COMM_WORLD);
}

void unite(std::span<std::uint64_t> bits) {
    for (std::size_t first = 0; first < bits.size(); first += mostAtOnce) {
        const std::size_t count = std::min(mostAtOnce, bits.size() - first);
        MPI_Allreduce(MPI_IN_PLACE, bits.data() + first, intOf(count), MPI_UINT64_T, MPI_BOR, MPI_COMM_WORLD);
    }
}

std::int64_t largest(std::int64_t value) {
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_MAX, MPI_COMM_WORLD);
    return value;
}

void copyFirst(std::span<std::byte> bytes) {
    MPI_Bcast(bytes.data(), intOf(bytes.size()), MPI_BYTE, 0, MPI_COMM_WORLD);
}

void passAlong(std::span<double> values, std::span<const std::size_t> chunkStart, ChunkCall call, const void* loop) {
    const Ranks& ranks = ranksOfRun();
    const std::size_t chunks = chunkStart.size() - 1;
    const auto sizeOf = [&](std::size_t chunk) { return intOf(chunkStart[chunk + 1] - chunkStart[chunk]); };
    std::array<MPI_Request, mostChunks> received, sent;
    received.fill(MPI_REQUEST_NULL);
    sent.fill(MPI_REQUEST_NULL);
    for (std::size_t chunk = 0; chunk < chunks && ranks.rank > 0; ++chunk) {
        MPI_Irecv(values.data() + chunkStart[chunk], sizeOf(chunk), MPI_DOUBLE, intOf(ranks.rank - 1), chunkTag,
                  MPI_COMM_WORLD, &received[chunk]);
    }
    for (std::size_t chunk = 0; chunk < chunks; ++chunk) {
        MPI_Wait(&received[chunk], MPI_STATUS_IGNORE);
        call(loop, chunk);
        if (ranks.rank + 1 < ranks.count) {
            MPI_Isend(values.data() + chunkStart[chunk], sizeOf(chunk), MPI_DOUBLE, intOf(ranks.rank + 1), chunkTag,
                      MPI_COMM_WORLD, &sent[chunk]);
        }
    }
    MPI_Waitall(intOf(chunks), sent.data(), MPI_STATUSES_IGNORE);
    MPI_Bcast(values.data(), intOf(values.size()), MPI_DOUBLE, intOf(ranks.count - 1), MPI_COMM_WORLD);
}

// A launcher of another MPI starts processes that know nothing of each other: each would be a run of its own, and all
// of them would write the same files. Returns the environment variable with the number of processes, or null.
const char* variableOfForeignLauncher() {
    for (const char* const name : {"OMPI_COMM_WORLD_SIZE", "PMI_SIZE", "SLURM_STEP_NUM_TASKS"}) {
        const char* const text = std::getenv(name);
        if (text != nullptr && std::strtol(text, nullptr, 10) > 1) {
            return name;
        }
    }
    return nullptr;
}

}  // namespace

MpiRanks::MpiRanks(int& argumentCount, char**& arguments) {
    int provided = 0, rank = 0, count = 1;
    MPI_Init_thread(&argumentCount, &arguments, MPI_THREAD_FUNNELED, &provided);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &count);
    if (const char* const variable = count == 1 ? variableOfForeignLauncher() : nullptr; variable != nullptr) {
        MPI_Finalize();
        throw RunError(
            std::string("one of several processes (") + variable +
            "), but not connected to the others: start it with the mpirun of the MPI that it was built with");
    }
    setRanks({static_cast<std::size_t>(rank), static_cast<std::size_t>(count), gather, unite, largest, copyFirst,
              passAlong});
}

MpiRanks::~MpiRanks() {
    setRanks({});
    MPI_Finalize();
}

void abortRanks(int status) {
    int finalized = 0;
    MPI_Finalized(&finalized);
    if (finalized == 0) {
        MPI_Abort(MPI_COMM_WORLD, status);
    }
    std::_Exit(status);
}

}  // namespace voxlith
