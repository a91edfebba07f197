// Loaded ahead of a program under test: its clocks are the test's (support/fast_clock.h), its sleeps end when
// that clock says so. Asks the kernel itself and uses nothing of the C++ library, since a sanitizer asks for
// the time before anything is set up; built without sanitizers for the same reason.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "support/fast_clock_memory.h"

#define KOVA_INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

using kova::test::FastClockMemory;

constexpr std::int64_t kSecond = 1'000'000'000;
// How soon a sleeper notices that the clock has moved.
constexpr std::int64_t kLongestNap = 500'000;

FastClockMemory* memory = nullptr;

__attribute__((constructor)) void attach() {
    const char* const name = std::getenv(kova::test::kFastClockVariable);
    const int file = name == nullptr ? -1 : ::open(name, O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return;
    }
    void* const mapped = ::mmap(nullptr, sizeof(FastClockMemory), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (mapped != MAP_FAILED) {
        memory = static_cast<FastClockMemory*>(mapped);
    }
}

std::int64_t moved(clockid_t clock) {
    switch (clock) {
        case CLOCK_REALTIME:
        case CLOCK_REALTIME_COARSE:
            return memory == nullptr ? 0 : memory->wall.load() + memory->moved.load();
        case CLOCK_MONOTONIC:
        case CLOCK_MONOTONIC_COARSE:
        case CLOCK_MONOTONIC_RAW:
        case CLOCK_BOOTTIME:
            return memory == nullptr ? 0 : memory->moved.load();
        default:
            return 0;
    }
}

std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

timespec to_timespec(std::int64_t time) {
    return {.tv_sec = time / kSecond, .tv_nsec = time % kSecond};
}

std::int64_t now(clockid_t clock) {
    timespec time{};
    ::syscall(SYS_clock_gettime, clock, &time);
    return nanoseconds(time) + moved(clock);
}

// 0, or EINTR when a signal came; `end` is a time of the clock.
int sleep_until(clockid_t clock, std::int64_t end) {
    for (;;) {
        const std::int64_t left = end - now(clock);
        if (left <= 0) {
            return 0;
        }
        const timespec nap = to_timespec(left < kLongestNap ? left : kLongestNap);
        if (::syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &nap, nullptr) != 0) {
            return errno;
        }
    }
}

// What a sleep for a while has left when a signal ends it.
int sleep_for(std::int64_t span, std::int64_t& left) {
    const std::int64_t end = now(CLOCK_MONOTONIC) + span;
    const int error = sleep_until(CLOCK_MONOTONIC, end);
    left = error == 0 ? 0 : end - now(CLOCK_MONOTONIC);
    left = left < 0 ? 0 : left;
    return error;
}

}  // namespace

KOVA_INTERPOSED int clock_gettime(clockid_t clock, timespec* result) noexcept {
    const auto status = static_cast<int>(::syscall(SYS_clock_gettime, clock, result));
    if (status == 0) {
        *result = to_timespec(nanoseconds(*result) + moved(clock));
    }
    return status;
}

KOVA_INTERPOSED time_t time(time_t* result) noexcept {
    const time_t seconds = now(CLOCK_REALTIME) / kSecond;
    if (result != nullptr) {
        *result = seconds;
    }
    return seconds;
}

KOVA_INTERPOSED int gettimeofday(timeval* result, void*) noexcept {
    const std::int64_t time = now(CLOCK_REALTIME);
    *result = {.tv_sec = time / kSecond, .tv_usec = time % kSecond / 1000};
    return 0;
}

KOVA_INTERPOSED int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
    if ((flags & TIMER_ABSTIME) != 0) {
        return sleep_until(clock, nanoseconds(*request));
    }
    std::int64_t left = 0;
    const int error = sleep_for(nanoseconds(*request), left);
    if (error != 0 && remaining != nullptr) {
        *remaining = to_timespec(left);
    }
    return error;
}

KOVA_INTERPOSED int nanosleep(const timespec* request, timespec* remaining) {
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, request, remaining);
    errno = error == 0 ? errno : error;
    return error == 0 ? 0 : -1;
}

KOVA_INTERPOSED unsigned int sleep(unsigned int seconds) {
    std::int64_t left = 0;
    sleep_for(seconds * kSecond, left);
    return static_cast<unsigned int>((left + kSecond - 1) / kSecond);
}

KOVA_INTERPOSED int usleep(useconds_t microseconds) {
    const timespec request = to_timespec(microseconds * std::int64_t{1000});
    return nanosleep(&request, nullptr);
}
