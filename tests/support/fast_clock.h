/**
 * A clock of the test's own for the programs that it starts, so that hours pass in moments.
 *
 *     FastClock clock(local_time(2050, 1, 3, 8, 50));      // now and for each program started from here on
 *     Simcard card(own_card());
 *     clock.pass(std::chrono::hours(2));                   // for all of them at once
 *
 * The test itself stays on the machine's clock.
 */
#ifndef KOVA_TESTS_SUPPORT_FAST_CLOCK_H
#define KOVA_TESTS_SUPPORT_FAST_CLOCK_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>

#include "support/fast_clock_memory.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace kova::test {

/** One in a process. Local time is China's, for the programs and for the test. */
class FastClock {
 public:
    using Nanoseconds = std::chrono::nanoseconds;

    /** @param begin what the programs take for now. Throws std::system_error. */
    explicit FastClock(std::chrono::sys_seconds begin) : memory_(map(file())) {
        memory_->wall = Nanoseconds(begin.time_since_epoch()).count() - machine_now().count();
        setenv(kFastClockVariable, file().c_str(), 1);
        setenv("LD_PRELOAD", KOVA_FAST_CLOCK_OBJECT, 1);
        // The sanitizer wants to be loaded first, for reasons that do not matter to a few clock functions.
        const char* const options = getenv("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS",
               ((options == nullptr ? "" : std::string(options) + ":") + "verify_asan_link_order=0").c_str(),
               1);
        setenv("TZ", "CST-8", 1);
        tzset();
    }
    ~FastClock() {
        unsetenv("LD_PRELOAD");
        ::munmap(memory_, sizeof(FastClockMemory));
    }
    FastClock(const FastClock&) = delete;
    FastClock& operator=(const FastClock&) = delete;

    /** The programs' time of day. */
    [[nodiscard]] std::chrono::sys_time<Nanoseconds> now() const {
        return std::chrono::sys_time<Nanoseconds>(machine_now() +
                                                  Nanoseconds(memory_->wall.load() + memory_->moved.load()));
    }

    /** So much time passes for them at once. */
    void pass(Nanoseconds span) { memory_->moved += span.count(); }

    /** Waits for the condition while time passes, some fifty times as fast as the machine's; false when it
     * does not hold in time, by the machine's clock. */
    template <typename Condition>
    [[nodiscard]] bool eventually(Condition condition, std::chrono::milliseconds patience = kPatience) {
        constexpr Nanoseconds kStep = std::chrono::milliseconds(50);
        return kova::test::eventually(
            [&] {
                const bool holds = condition();
                if (!holds) {
                    pass(kStep);
                }
                return holds;
            },
            patience);
    }

 private:
    [[nodiscard]] std::string file() const { return (directory_.path() / "clock").string(); }

    static Nanoseconds machine_now() {
        timespec time{};
        ::clock_gettime(CLOCK_REALTIME, &time);
        return std::chrono::seconds(time.tv_sec) + Nanoseconds(time.tv_nsec);
    }

    static FastClockMemory* map(const std::string& name) {
        const int file = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        void* mapped = MAP_FAILED;
        if (file >= 0 && ::ftruncate(file, sizeof(FastClockMemory)) == 0) {
            mapped = ::mmap(nullptr, sizeof(FastClockMemory), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        }
        if (mapped == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        ::close(file);
        return static_cast<FastClockMemory*>(mapped);
    }

    TempDir directory_;
    FastClockMemory* memory_;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_FAST_CLOCK_H
