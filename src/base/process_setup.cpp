#include "base/process_setup.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>

#include "base/system_write.h"

namespace voxlith {

namespace {

constexpr int unusable = 2;  // exit status

void reserveStderrDescriptor() {
    if (::fcntl(STDERR_FILENO, F_GETFD) != -1) {
        return;
    }
    const int nowhere = ::open("/dev/null", O_WRONLY);
    if (nowhere < 0 || nowhere == STDERR_FILENO) {
        return;
    }
    ::dup2(nowhere, STDERR_FILENO);
    ::close(nowhere);
}

[[noreturn]] void endFor(std::string_view reason) {
    static_cast<void>(writeWholeLine(STDERR_FILENO, reason));
    ::_exit(unusable);
}

bool isLackOfMemory(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const std::bad_alloc&) {
        return true;
    } catch (...) {
        return false;
    }
}

// Reached when there is no memory even for an exception, or for the report of one.
[[noreturn]] void endWithoutMemory() {
    const std::exception_ptr exception = std::current_exception();
    if (exception != nullptr && !isLackOfMemory(exception)) {
        std::abort();  // an exception that nobody handles is an error of the program
    }
    endFor("the program cannot go on: there is not enough memory");
}

// What the handler of faults needs: it runs on a stack of its own, because that of the program is at its end.
std::array<char, 16384> faultStack;
std::uintptr_t stackStart = 0;  // of the main thread, which grows downwards
struct sigaction actionBefore {};

bool isInStack(const void* address) {
    constexpr std::uintptr_t besideIt = 1U << 20;  // a large routine may skip pages
    rlimit limit{};
    const bool limited = ::getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    const std::uintptr_t length = (limited ? limit.rlim_cur : std::uintptr_t{1} << 30) + besideIt;
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    return place < stackStart && stackStart - place < length;
}

// The stack cannot grow where it or the address space is at its limit. Any other fault is an error of the program: the
// instruction is tried again and ends it as it would without this handler.
void handleFault(int signal, siginfo_t* information, void* /*context*/) {
    if (isInStack(information->si_addr)) {
        endFor("the program cannot go on: there is not enough memory for its stack (ulimit -s, ulimit -v)");
    }
    ::sigaction(signal, &actionBefore, nullptr);
}

void watchStack() {
    stackStart = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    stack_t ownStack{};
    ownStack.ss_sp = faultStack.data();
    ownStack.ss_size = faultStack.size();
    struct sigaction action {};
    action.sa_sigaction = handleFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    if (::sigaltstack(&ownStack, nullptr) == 0) {
        ::sigaction(SIGSEGV, &action, &actionBefore);
    }
}

}  // namespace

void prepareProcess() {
    reserveStderrDescriptor();
    std::set_terminate(endWithoutMemory);
    watchStack();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace voxlith
