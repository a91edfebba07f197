#include "bench/clock_skew.h"

#include <limits>

namespace kova::bench {

namespace {

constexpr std::uint64_t kRounds = 100'000;

// Each side writes its own line: the number of the round, and when.
struct Side {
    alignas(64) std::atomic<std::uint64_t> round;
    std::atomic<std::uint64_t> sent;
};

struct PingPong {
    Side writer;
    Side reader;
};

void say(Side& side, std::uint64_t round) {
    side.sent.store(ticks(), std::memory_order_relaxed);
    side.round.store(round, std::memory_order_release);
}

// Ticks from the other side's stamp to its arrival here.
std::int64_t hear(const Side& side, std::uint64_t round) {
    while (side.round.load(std::memory_order_acquire) != round) {
    }
    const std::uint64_t sent = side.sent.load(std::memory_order_relaxed);
    return static_cast<std::int64_t>(ticks_behind() - sent);
}

}  // namespace

double clock_skew_ns(const Cores& cores) {
    struct Result {
        PingPong line;
        std::int64_t shortest_there;
    };
    const Shared<Result> shared;
    PingPong& line = shared->line;
    shared->shortest_there = std::numeric_limits<std::int64_t>::max();
    ForkedReader reader(cores.reader, [&] {
        for (std::uint64_t round = 1; round <= kRounds; ++round) {
            shared->shortest_there = std::min(shared->shortest_there, hear(line.writer, round));
            say(line.reader, round);
        }
    });
    pin_to(cores.writer);
    std::int64_t shortest_back = std::numeric_limits<std::int64_t>::max();
    for (std::uint64_t round = 1; round <= kRounds; ++round) {
        say(line.writer, round);
        shortest_back = std::min(shortest_back, hear(line.reader, round));
    }
    reader.wait();
    return static_cast<double>(shared->shortest_there - shortest_back) / 2 * ns_per_tick();
}

}  // namespace kova::bench
