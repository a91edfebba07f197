/**
 * The register accesses of this program's one receiving thread, counted and timed where they are made: the
 * SDK's functions are interposed, for the shared library too.
 *
 * An access is three calls: lock, access, unlock. A bring-up makes tens of millions, each hardly longer than
 * two looks at the clock, so only one in kStride is timed, from before its lock to behind its unlocking. What
 * the timing itself takes is measured around a call of nothing.
 */
#ifndef KOVA_BENCH_SDK_WATCH_H
#define KOVA_BENCH_SDK_WATCH_H

#include <enyx_hw.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace kova::bench {

/** Accesses of one kind. Ticks are those of the timed ones, without what the timing takes; of what lies between
 * the three calls a little is in them. */
struct SdkAccesses {
    std::uint64_t count = 0;
    std::uint64_t timed = 0;
    std::uint64_t interrupted = 0;  // timed, but longer than any access is
    std::uint64_t ticks = 0;

    /** What all of them took. */
    [[nodiscard]] double all_ticks() const {
        return timed == 0
                   ? 0
                   : static_cast<double>(ticks) / static_cast<double>(timed) * static_cast<double>(count);
    }
};

/** An access of a register that is none of the contract tables'. */
struct SdkLandmark {
    bool is_write;
    std::uint32_t number;
    std::uint64_t value;
    std::uint64_t begin;          // ticks before its lock is taken
    std::uint64_t end;            // behind its access
    std::int64_t cpu_ns;          // of the thread until then
    std::uint64_t handler_ticks;  // that poll handlers have taken until then
};

/** The functions of a register access. */
struct SdkAccessCalls {
    decltype(enyx_hw_core_lock)* lock;
    decltype(enyx_hw_core_unlock)* unlock;
    decltype(enyx_hw_write)* write;
    decltype(enyx_hw_read)* read;
};

class SdkWatch {
 public:
    /** One access in so many is timed: a number that no run of a table's words is a multiple of. */
    static constexpr std::uint64_t kStride = 61;

    /** An interlude is made before one access in so many, about every 20 milliseconds. */
    static constexpr std::uint64_t kInterludeStride = kStride * 8192;

    /** Forgets everything but the interlude. */
    static void restart();

    /** What the accesses are interrupted for now and then; what it accesses itself does not count. */
    static void set_interlude(std::function<void()> interlude);
    /** What all interludes have taken. */
    struct Interludes {
        std::uint64_t ticks = 0;
        std::int64_t cpu_ns = 0;
    };
    [[nodiscard]] static const Interludes& interludes();

    [[nodiscard]] static const SdkAccesses& writes();
    [[nodiscard]] static const SdkAccesses& reads();
    [[nodiscard]] static const std::vector<SdkLandmark>& landmarks();
    /** Ticks that sleeps have taken. */
    [[nodiscard]] static std::uint64_t slept();
    /** Whether the second core has been started. */
    [[nodiscard]] static bool are_cores_started();

    /** Nanoseconds that timing a call of nothing shows, taken off each timed access. */
    [[nodiscard]] static double ns_of_nothing();

    /** As interposed, and as the SDK has them. */
    [[nodiscard]] static SdkAccessCalls watched_calls();
    [[nodiscard]] static SdkAccessCalls bare_calls();
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_SDK_WATCH_H
