#include "card/clock.h"

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <limits>
#include <utility>

#include "dma/DrvDMAEnyx.h"
#include "support/allocations.h"
#include "support/next_definition.h"

#define KOVA_INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// Plain integers without construction: the clock is asked before main.
std::atomic<std::int64_t> now_ns{1'767'578'400 * kNanosecondsPerSecond};
std::atomic<std::int64_t> slept_ns{0};
std::atomic<std::int64_t> step_ns{0};
std::atomic<unsigned> interrupted_after{std::numeric_limits<unsigned>::max()};
std::atomic<std::uint64_t> poll_count{0};
std::function<void(std::uint64_t)> before_each_poll;
std::function<void()> during_each_sleep;

struct Handler {
    enyx_hw_a2c_handler function;
    void* opaque;
};

/** Calls the handler of a poll. */
void call_handler(const unsigned char* message, unsigned int size, void* opaque) {
    const auto* const handler = static_cast<const Handler*>(opaque);
    const kova::test::Allocations::InHandler scope;
    handler->function(message, size, handler->opaque);
}

void sleep_for(nanoseconds span) {
    slept_ns += span.count();
    if (during_each_sleep) {
        during_each_sleep();
    }
    now_ns += span.count();
}

}  // namespace

namespace kova::test {

void Clock::set(seconds since_epoch) {
    now_ns = nanoseconds(since_epoch).count();
}

void Clock::advance(nanoseconds span) {
    now_ns += span.count();
}

nanoseconds Clock::now() {
    return nanoseconds(now_ns.load());
}

void Clock::move_per_poll(nanoseconds span) {
    step_ns = span.count();
}

nanoseconds Clock::slept() {
    return nanoseconds(slept_ns.load());
}

void Clock::during_each_sleep(std::function<void()> action) {
    ::during_each_sleep = std::move(action);
}

void Clock::interrupt_next_sleep_after(seconds span) {
    interrupted_after = static_cast<unsigned>(span.count());
}

std::uint64_t Polls::count() {
    return poll_count.load();
}

void Polls::before_each(std::function<void(std::uint64_t)> action) {
    before_each_poll = std::move(action);
}

}  // namespace kova::test

KOVA_INTERPOSED time_t time(time_t* result) noexcept {
    const time_t now = now_ns.load() / kNanosecondsPerSecond;
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

KOVA_INTERPOSED int clock_gettime(clockid_t, struct timespec* result) noexcept {
    const std::int64_t now = now_ns.load();
    result->tv_sec = now / kNanosecondsPerSecond;
    result->tv_nsec = now % kNanosecondsPerSecond;
    return 0;
}

KOVA_INTERPOSED unsigned int sleep(unsigned int span) {
    unsigned slept = span;
    if (interrupted_after < span) {
        slept = interrupted_after.exchange(std::numeric_limits<unsigned>::max());
    }
    sleep_for(seconds(slept));
    return span - slept;
}

KOVA_INTERPOSED int usleep(useconds_t span) {
    sleep_for(std::chrono::microseconds(span));
    return 0;
}

KOVA_INTERPOSED int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                                 void* opaque) {
    static auto* const poll =
        kova::test::next_definition<decltype(enyx_hw_a2c_stream_poll_once)>("enyx_hw_a2c_stream_poll_once");
    const std::uint64_t number = ++poll_count;
    now_ns += step_ns.load();
    if (before_each_poll) {
        before_each_poll(number);
    }
    Handler context = {.function = handler, .opaque = opaque};
    return poll(stream, &call_handler, &context);
}
