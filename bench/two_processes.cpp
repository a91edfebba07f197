#include "bench/two_processes.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

namespace kova::bench {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw RunError(what + ": " + std::strerror(errno));
}

[[noreturn]] void run_and_exit(const std::function<void()>& body) {
    int result = 0;
    try {
        // Killed with the writing process, and not waiting for a message that nobody sends any more.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "reader: %s\n", error.what());
        result = 1;
    }
    // The writing process's objects are not this one's to destroy.
    _exit(result);
}

}  // namespace

SharedMemory::SharedMemory(std::size_t bytes) : bytes_(bytes) {
    place_ = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (place_ == MAP_FAILED) {
        fail("shared memory");
    }
}

SharedMemory::~SharedMemory() {
    munmap(place_, bytes_);
}

void SharedMemory::populate() const {
    if (madvise(place_, bytes_, MADV_POPULATE_WRITE) != 0) {
        fail("populating shared memory");
    }
}

void pin_to(int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<std::size_t>(core), &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0) {
        fail("core " + std::to_string(core));
    }
}

ForkedReader::ForkedReader(int core, const std::function<void()>& body) {
    std::fflush(nullptr);
    // Forked where it stays: with a real-time priority it would not get away from a spinning writer's core.
    pin_to(core);
    process_ = fork();
    if (process_ < 0) {
        fail("fork");
    }
    if (process_ == 0) {
        run_and_exit(body);
    }
}

ForkedReader::~ForkedReader() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
}

void ForkedReader::require_alive() {
    if (waitpid(process_, nullptr, WNOHANG) == process_) {
        process_ = -1;
        throw RunError("the reading process has ended too early");
    }
}

void ForkedReader::wait() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw RunError("the reading process has failed");
    }
}

}  // namespace kova::bench
