#include "bench/sdk_watch.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>

#include "bench/statistics.h"
#include "bench/tsc_clock.h"
#include "support/next_definition.h"

#define KOVA_INTERPOSED extern "C" __attribute__((visibility("default")))

namespace kova::bench {

namespace {

constexpr std::uint32_t kRegisterBytes = 4;
constexpr std::uint32_t kLastStart = 0x21120;
// No register access is this long unless the thread is interrupted.
constexpr double kLongestAccessNs = 3000;
constexpr std::size_t kMostLandmarks = 4096;

// The stand-ins are loaded before main, so their functions are found once and for all.
const SdkAccessCalls kSdk = {test::next_definition<decltype(enyx_hw_core_lock)>("enyx_hw_core_lock"),
                             test::next_definition<decltype(enyx_hw_core_unlock)>("enyx_hw_core_unlock"),
                             test::next_definition<decltype(enyx_hw_write)>("enyx_hw_write"),
                             test::next_definition<decltype(enyx_hw_read)>("enyx_hw_read")};

__attribute__((noinline)) void nothing(enyx_hw_core* core) {
    // An empty function would not be called.
    asm volatile("" : : "r"(core) : "memory");
}

// Nothing before it is under way any more, and nothing behind it has begun.
std::uint64_t begin_timing() {
    _mm_lfence();
    const std::uint64_t begin = ticks();
    _mm_lfence();
    return begin;
}

// What timing shows around a call of nothing, made as the calls below are made.
std::uint64_t ticks_of_nothing() {
    static const std::uint64_t measured = [] {
        void (*volatile call)(enyx_hw_core*) = &nothing;
        std::vector<double> shown;
        for (int i = 0; i < 100'000; ++i) {
            const std::uint64_t begin = begin_timing();
            call(nullptr);
            shown.push_back(static_cast<double>(ticks_behind() - begin));
        }
        return static_cast<std::uint64_t>(median(std::move(shown)));
    }();
    return measured;
}

const std::uint64_t kTicksOfNothing = ticks_of_nothing();

struct Watch {
    std::uint64_t accesses = 0;
    SdkAccesses writes;
    SdkAccesses reads;
    std::vector<SdkLandmark> landmarks;
    std::uint64_t slept = 0;
    bool are_cores_started = false;
    SdkWatch::Interludes interludes;
    std::uint64_t handler_ticks = 0;
    std::uint64_t handler_begin = 0;  // 0 outside a handler

    // The access at hand.
    bool is_timed = false;
    std::uint64_t access_begin = 0;
    SdkAccesses* kind = nullptr;
};

Watch watch;
std::function<void()> interlude;

void end_access() {
    static const auto longest = static_cast<std::uint64_t>(kLongestAccessNs / ns_per_tick());
    const std::uint64_t shown = ticks_behind() - watch.access_begin;
    SdkAccesses& kind = *watch.kind;
    if (shown > longest) {
        ++kind.interrupted;
        return;
    }
    ++kind.timed;
    kind.ticks += shown - std::min(shown, kTicksOfNothing);
}

bool is_of_table(std::uint32_t number) {
    constexpr std::uint32_t kFirst = 0x11000;
    constexpr std::uint32_t kWithinTables = 0x10007;
    return ((number - kFirst) & ~kWithinTables) == 0;
}

std::int64_t thread_cpu_ns() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void make_interlude() {
    const std::uint64_t begin = ticks();
    const std::int64_t begin_cpu = thread_cpu_ns();
    const std::uint64_t accesses = watch.accesses;
    const SdkAccesses writes = watch.writes;
    const SdkAccesses reads = watch.reads;
    const std::function<void()> made = std::exchange(interlude, {});
    made();
    interlude = made;
    watch.accesses = accesses;
    watch.writes = writes;
    watch.reads = reads;
    watch.is_timed = true;
    watch.interludes.cpu_ns += thread_cpu_ns() - begin_cpu;
    watch.interludes.ticks += ticks() - begin;
}

template <typename Access>
int landmark(bool is_write, std::uint32_t number, std::uint64_t value, Access&& access) {
    const std::int64_t cpu_ns = thread_cpu_ns();
    const std::uint64_t begin = ticks();
    const std::uint64_t in_handler = watch.handler_begin == 0 ? 0 : begin - watch.handler_begin;
    const int result = access();
    if (watch.landmarks.size() < kMostLandmarks) {
        watch.landmarks.push_back({.is_write = is_write,
                                   .number = number,
                                   .value = value,
                                   .begin = begin,
                                   .end = ticks(),
                                   .cpu_ns = cpu_ns,
                                   .handler_ticks = watch.handler_ticks + in_handler});
    }
    watch.are_cores_started = watch.are_cores_started || (is_write && number == kLastStart);
    watch.is_timed = false;  // it was looked at closely enough
    return result;
}

template <typename Access>
int access(SdkAccesses& kind, bool is_write, const enyx_hw_register_description& description,
           std::uint64_t value, Access&& call) {
    const auto number = static_cast<std::uint32_t>(description.byte_offset / kRegisterBytes);
    ++kind.count;
    watch.kind = &kind;
    if (!is_of_table(number)) [[unlikely]] {
        return landmark(is_write, number, value, call);
    }
    return call();
}

struct Handler {
    enyx_hw_a2c_handler function;
    void* opaque;
};

void call_handler(const std::uint8_t* data, std::uint32_t size, void* opaque) {
    const auto* const handler = static_cast<const Handler*>(opaque);
    watch.handler_begin = ticks();
    handler->function(data, size, handler->opaque);
    watch.handler_ticks += ticks() - watch.handler_begin;
    watch.handler_begin = 0;
}

}  // namespace

void SdkWatch::restart() {
    watch = Watch();
    watch.landmarks.reserve(kMostLandmarks);
}

void SdkWatch::set_interlude(std::function<void()> interlude) {
    kova::bench::interlude = std::move(interlude);
}

const SdkWatch::Interludes& SdkWatch::interludes() {
    return watch.interludes;
}

const SdkAccesses& SdkWatch::writes() {
    return watch.writes;
}

const SdkAccesses& SdkWatch::reads() {
    return watch.reads;
}

const std::vector<SdkLandmark>& SdkWatch::landmarks() {
    return watch.landmarks;
}

std::uint64_t SdkWatch::slept() {
    return watch.slept;
}

bool SdkWatch::are_cores_started() {
    return watch.are_cores_started;
}

double SdkWatch::ns_of_nothing() {
    return static_cast<double>(kTicksOfNothing) * ns_per_tick();
}

SdkAccessCalls SdkWatch::watched_calls() {
    return {&enyx_hw_core_lock, &enyx_hw_core_unlock, &enyx_hw_write, &enyx_hw_read};
}

SdkAccessCalls SdkWatch::bare_calls() {
    return kSdk;
}

}  // namespace kova::bench

using kova::bench::kSdk;
using kova::bench::watch;

KOVA_INTERPOSED void enyx_hw_core_lock(enyx_hw_core* core) {
    watch.is_timed = ++watch.accesses % kova::bench::SdkWatch::kStride == 0;
    if (watch.is_timed) [[unlikely]] {
        if (kova::bench::interlude && watch.accesses % kova::bench::SdkWatch::kInterludeStride == 0) {
            kova::bench::make_interlude();
        }
        watch.access_begin = kova::bench::begin_timing();
    }
    kSdk.lock(core);
}

KOVA_INTERPOSED void enyx_hw_core_unlock(enyx_hw_core* core) {
    kSdk.unlock(core);
    if (watch.is_timed) [[unlikely]] {
        kova::bench::end_access();
    }
}

KOVA_INTERPOSED int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description,
                                  uint64_t value) {
    return kova::bench::access(watch.writes, true, *description, value,
                               [&] { return kSdk.write(core, description, value); });
}

KOVA_INTERPOSED int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description,
                                 uint64_t* value) {
    return kova::bench::access(watch.reads, false, *description, 0,
                               [&] { return kSdk.read(core, description, value); });
}

KOVA_INTERPOSED int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                                 void* opaque) {
    static auto* const poll =
        kova::test::next_definition<decltype(enyx_hw_a2c_stream_poll_once)>("enyx_hw_a2c_stream_poll_once");
    kova::bench::Handler context = {.function = handler, .opaque = opaque};
    return poll(stream, &kova::bench::call_handler, &context);
}

KOVA_INTERPOSED unsigned int sleep(unsigned int seconds) {
    static auto* const next = kova::test::next_definition<decltype(sleep)>("sleep");
    const std::uint64_t begin = kova::bench::ticks();
    const unsigned int left = next(seconds);
    watch.slept += kova::bench::ticks() - begin;
    return left;
}

KOVA_INTERPOSED int usleep(useconds_t microseconds) {
    static auto* const next = kova::test::next_definition<decltype(usleep)>("usleep");
    const std::uint64_t begin = kova::bench::ticks();
    const int result = next(microseconds);
    watch.slept += kova::bench::ticks() - begin;
    return result;
}
