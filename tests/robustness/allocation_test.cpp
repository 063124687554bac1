// Memory that is refused: one small run after the other, each with one allocation refused, the first in the first run
// and so on, until a run gets all that it asks for. Every run must end with a message and an exit status of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/run.h"
#include "support/program_run.h"

namespace {

// Which allocations are refused, counted from 1 while a run is under way.
struct Refusal {
    bool underWay = false;
    std::int64_t asked = 0;
    std::int64_t first = std::numeric_limits<std::int64_t>::max();
    std::int64_t last = 0;
};

Refusal refusal;

void* allocate(std::size_t size, std::size_t alignment) {
    if (refusal.underWay) {
        ++refusal.asked;
        if (refusal.asked >= refusal.first && refusal.asked <= refusal.last) {
            throw std::bad_alloc();
        }
    }
    void* const memory = alignment <= alignof(std::max_align_t)
                             ? std::malloc(size > 0 ? size : 1)
                             : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size, 1);
}
void* operator new[](std::size_t size) {
    return allocate(size, 1);
}
// Algorithms of the standard library that do with less memory ask without an exception.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size, 1);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace voxlith::testing_support {
namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

// Redirects a standard stream to a file as long as the object lives.
class StreamToFile {
public:
    StreamToFile(int stream, const std::string& name) : stream_(stream), before_(::dup(stream)) {
        const int file = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        if (before_ < 0 || file < 0 || ::dup2(file, stream) < 0) {
            throw std::runtime_error("a stream cannot be redirected");
        }
        ::close(file);
    }
    ~StreamToFile() {
        ::dup2(before_, stream_);
        ::close(before_);
    }
    StreamToFile(const StreamToFile&) = delete;
    StreamToFile& operator=(const StreamToFile&) = delete;

private:
    int stream_;
    int before_;
};

struct InProcessRun {
    int exitStatus = 0;
    std::int64_t allocations = 0;
    std::string screen;
    std::string errors;
};

// The whole sequence of a run within this process, in `folder`, with the allocations from `first` to `last` refused.
InProcessRun runHere(const TemporaryFolder& folder, const std::vector<std::string>& arguments, std::int64_t first,
                     std::int64_t last) {
    InProcessRun result;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    {
        const StreamToFile screen(STDOUT_FILENO, "screen.txt");
        const StreamToFile errors(STDERR_FILENO, "errors.txt");
        refusal = {true, 0, first, last};
        result.exitStatus = static_cast<int>(runVoxlith(arguments));
        refusal.underWay = false;
    }
    std::filesystem::current_path(before);
    result.allocations = refusal.asked;
    result.screen = folder.read("screen.txt");
    result.errors = folder.read("errors.txt");
    return result;
}

// Exit status 2 comes with one line on standard error, exit status 0 with a message about memory or with a complete
// run.
void expectClearEnd(const InProcessRun& run) {
    if (run.exitStatus == 2) {
        EXPECT_EQ(linesOf(run.errors).size(), 1U) << run.errors;
        EXPECT_TRUE(contains(run.errors, "memory")) << run.errors;  // not the name of an exception
        return;
    }
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(contains(run.screen, "ot enough memory") || contains(run.screen, "Inversion completed")) << run.screen;
}

struct SmallRun {
    std::string name;
    std::vector<std::string> arguments{"voxlith.inp"};
    ControlLines control;
    std::string observed = smallSurveyObs();
};

// Shown in the names of the tests instead of the bytes.
void PrintTo(const SmallRun& run, std::ostream* out) {
    *out << run.name;
}

std::string lineTimeObs() {
    std::string text = "10\n";
    for (int i = 0; i < 10; ++i) {
        text += std::to_string(i) + " 0 1 0." + std::to_string(i) + " 0.1 L" + std::to_string(i / 5) + " " +
                std::to_string(i) + ".0\n";
    }
    return text;
}

std::vector<SmallRun> smallRuns() {
    std::vector<SmallRun> runs(4);
    runs[0].name = "plain";
    runs[0].arguments.emplace_back("ObsClip(-1,1.5)");
    runs[1].name = "joint";
    runs[1].control.set(1, "0 2 2 2 dens susc").set(5, "g.mtx|g.mtx");
    runs[1].observed = smallSurveyObs(2);
    runs[2].name = "averaged";
    runs[2].control.set(3, "1.0 0.02 0 2.5");
    runs[2].observed = lineTimeObs();
    runs[3].name = "offset";
    runs[3].control.set(11, "obs.dat").set(8, "0.0,1.0");
    return runs;
}

void writeInputs(const TemporaryFolder& folder, const SmallRun& run) {
    writeSurvey(folder, run.control);
    folder.write("obs.dat", run.observed);
}

class RefusedMemory : public ::testing::TestWithParam<SmallRun> {};

TEST_P(RefusedMemory, OfOneAllocationEndsWithAMessage) {
    const TemporaryFolder folder;
    writeInputs(folder, GetParam());
    std::int64_t number = 0;
    for (bool refused = true; refused && !HasFailure();) {
        ++number;
        SCOPED_TRACE("allocation " + std::to_string(number));
        const InProcessRun run = runHere(folder, GetParam().arguments, number, number);
        refused = run.allocations >= number;
        expectClearEnd(run);
        if (!refused) {
            EXPECT_TRUE(contains(run.screen, "Inversion completed"));
        }
    }
    EXPECT_GT(number, 50);
    RecordProperty("allocations", static_cast<int>(number - 1));
}

// A machine without memory also refuses all later allocations, those for messages included.
TEST_P(RefusedMemory, OfAllAllocationsFromOneOnEndsWithAMessage) {
    const TemporaryFolder folder;
    writeInputs(folder, GetParam());
    std::int64_t number = 0;
    for (bool refused = true; refused && !HasFailure();) {
        ++number;
        SCOPED_TRACE("allocations from " + std::to_string(number));
        const InProcessRun run = runHere(folder, GetParam().arguments, number, never);
        refused = run.allocations >= number;
        expectClearEnd(run);
    }
    EXPECT_GT(number, 50);
}

TEST_P(RefusedMemory, IterationsAllocateNothing) {
    const TemporaryFolder folder;
    SmallRun run = GetParam();
    const auto allocationsOf = [&](const std::string& iterations) {
        run.control.set(12, iterations);
        writeInputs(folder, run);
        return runHere(folder, run.arguments, never, 0).allocations;
    };
    const std::int64_t ofThree = allocationsOf("3");
    EXPECT_EQ(allocationsOf("30"), ofThree);
}

INSTANTIATE_TEST_SUITE_P(Runs, RefusedMemory, ::testing::ValuesIn(smallRuns()),
                         [](const auto& of) { return of.param.name; });

}  // namespace
}  // namespace voxlith::testing_support
