/**
 * One run of a transport between two processes, each on a core of its own: this process writes, a forked one
 * reads, and both use the same clock.
 *
 * A transport is a class with
 *     bool push(const U50QuoteMessage&)   in the writing process; false when there is no room
 *     void receive(Receiver&)             in the reading process; opens, calls ready(), takes until is_done()
 */
#ifndef KOVA_BENCH_TWO_PROCESSES_H
#define KOVA_BENCH_TWO_PROCESSES_H

#include <sys/types.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>

#include "bench/sample_message.h"
#include "bench/tsc_clock.h"
#include "wire/DmaMessage.h"

namespace kova::bench {

/** Why a run could not be made. */
class RunError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

struct Cores {
    int writer = 0;
    int reader = 1;
};

struct Plan {
    Cores cores;
    /** Messages before the measured ones: more than one lap of the rings. */
    std::size_t warm_up = 20'000;
    std::size_t messages = 0;
    /** Messages are sent on a timetable and each one's way is timed; otherwise as fast as they are taken. */
    bool is_paced = false;
};

/** What the two processes of a run share, besides the transport. */
struct RunArea {
    alignas(64) std::atomic<bool> is_ready;
    alignas(64) std::uint64_t begin_ticks;  // first measured message sent
    alignas(64) std::uint64_t end_ticks;    // last message taken
    std::uint64_t fold;                     // of all messages, so that nobody leaves out reading them
    std::uint64_t* samples;                 // ticks from the stamp to the whole quote read, one per message
};

/** Memory that forked processes share, present in this process. */
class SharedMemory {
 public:
    explicit SharedMemory(std::size_t bytes);
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    [[nodiscard]] void* place() const { return place_; }
    /** Maps every page into the calling process: a forked one starts without them. */
    void populate() const;

 private:
    void* place_;
    std::size_t bytes_;
};

/** An object in memory of its own that forked processes share. */
template <typename Object>
class Shared {
 public:
    Shared() : memory_(sizeof(Object)), object_(new (memory_.place()) Object) {}
    Object* operator->() const { return object_; }
    Object& operator*() const { return *object_; }
    void populate() const { memory_.populate(); }

 private:
    SharedMemory memory_;
    Object* object_;
};

/** The reading side's book-keeping: what an application would do with a quote, and the clock. */
class Receiver {
 public:
    Receiver(RunArea& area, const Plan& plan)
        : area_(&area),
          warm_up_(plan.warm_up),
          expected_(plan.warm_up + plan.messages),
          is_paced_(plan.is_paced) {}

    void ready() { area_->is_ready.store(true, std::memory_order_release); }
    [[nodiscard]] bool is_done() const { return taken_ == expected_; }

    void take(const KovaShfeMdType* quote) {
        fold_ += folded(quote);
        if (is_paced_) {
            // The whole quote has been read by now, not only its first line.
            asm volatile("" : : "r"(fold_) : "memory");
            const std::uint64_t now = ticks_behind();
            if (taken_ >= warm_up_) {
                area_->samples[taken_ - warm_up_] = now - static_cast<std::uint64_t>(quote->turnover);
            }
        }
        if (++taken_ == expected_) {
            area_->end_ticks = ticks_behind();
            area_->fold = fold_;
        }
    }

 private:
    static std::uint64_t folded(const KovaShfeMdType* quote) {
        std::array<std::uint64_t, sizeof(KovaShfeMdType) / sizeof(std::uint64_t)> words;
        std::memcpy(words.data(), quote, sizeof words);
        std::uint64_t sum = 0;
        for (const std::uint64_t word : words) {
            sum += word;
        }
        return sum;
    }

    RunArea* area_;
    std::size_t warm_up_;
    std::size_t expected_;
    bool is_paced_;
    std::size_t taken_ = 0;
    std::uint64_t fold_ = 0;
};

/** Binds the calling process to one core. */
void pin_to(int core);

/**
 * A process that runs `body` on a core of its own and ends. It does not outlive this one, which is left on that
 * same core.
 */
class ForkedReader {
 public:
    ForkedReader(int core, const std::function<void()>& body);
    ~ForkedReader();
    ForkedReader(const ForkedReader&) = delete;
    ForkedReader& operator=(const ForkedReader&) = delete;

    /** Throws RunError when the process has ended. */
    void require_alive();
    /** Waits for its end; throws RunError when it was not a good one. */
    void wait();

 private:
    pid_t process_;
};

/** When paced messages are due: every two to five microseconds, at random; in the warm-up more often. */
class Timetable {
 public:
    void wait_for_next(bool is_warm_up) {
        // xorshift64: the same pauses in every run.
        random_ ^= random_ << 13U;
        random_ ^= random_ >> 7U;
        random_ ^= random_ << 17U;
        const std::uint64_t pause = is_warm_up ? warm_up_ : shortest_ + random_ % range_;
        // Whoever is late after an interruption does not hurry to make up for it.
        due_ = std::max(due_ + pause, ticks());
        while (ticks() < due_) {
        }
    }

 private:
    static std::uint64_t from_ns(double nanoseconds) {
        return static_cast<std::uint64_t>(nanoseconds / ns_per_tick());
    }

    std::uint64_t shortest_ = from_ns(2'000);
    std::uint64_t range_ = from_ns(3'000);
    std::uint64_t warm_up_ = from_ns(400);
    std::uint64_t random_ = 0x9E3779B97F4A7C15;
    std::uint64_t due_ = ticks();
};

/** Sends all messages of a run. */
template <typename Transport>
void send_all(Transport& transport, const Plan& plan, RunArea& area, ForkedReader& reader) {
    constexpr std::uint64_t kTriesBetweenLooks = 100'000'000;
    U50QuoteMessage message = sample_message();
    Timetable timetable;
    for (std::size_t i = 0; i < plan.warm_up + plan.messages; ++i) {
        message.quote.change_no = static_cast<std::uint32_t>(i);
        if (plan.is_paced) {
            timetable.wait_for_next(i < plan.warm_up);
            message.quote.turnover = static_cast<std::int64_t>(ticks());
        }
        if (i == plan.warm_up) {
            area.begin_ticks = ticks();
        }
        for (std::uint64_t tries = 1; !transport.push(message); ++tries) {
            if (tries % kTriesBetweenLooks == 0) {
                reader.require_alive();
            }
        }
    }
}

/** Makes one run; the samples stand in `samples` afterwards. */
template <typename Transport>
void run(Transport& transport, const Plan& plan, RunArea& area) {
    area.is_ready.store(false);
    ForkedReader reader(plan.cores.reader, [&] {
        Receiver receiver(area, plan);
        transport.receive(receiver);
    });
    pin_to(plan.cores.writer);
    while (!area.is_ready.load(std::memory_order_acquire)) {
        reader.require_alive();
    }
    send_all(transport, plan, area, reader);
    reader.wait();
}

}  // namespace kova::bench

#endif  // KOVA_BENCH_TWO_PROCESSES_H
