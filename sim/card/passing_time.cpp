#include "sim/card/passing_time.h"

#include "sim/card/registers.h"

namespace kova::sim {

bool MemoryWait::has_ended(CardMemory& memory, std::int64_t now) {
    const std::uint64_t begun = memory.behaviour.initialisations.load(std::memory_order_acquire);
    if (begun != initialisation_) {
        initialisation_ = begun;
        is_waiting_ = true;
        since_ = now;
    }
    const std::int64_t delay = memory.behaviour.memory_delay.load(std::memory_order_relaxed);
    if (!is_waiting_ || delay < 0 || now - since_ < delay) {
        return false;
    }
    // The host may begin another initialisation at any time, and that one's wait has not begun.
    const CardLockScope scope(memory.lock);
    if (memory.behaviour.initialisations.load(std::memory_order_relaxed) != initialisation_) {
        return false;
    }
    show_memory_ready(memory.registers);
    is_waiting_ = false;
    return true;
}

void MemoryWait::forget(const CardMemory& memory) {
    initialisation_ = memory.behaviour.initialisations.load(std::memory_order_acquire);
    is_waiting_ = false;
}

SilenceWatch::Lanes SilenceWatch::too_long(const CardMemory& memory, std::int64_t now) {
    constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
    Lanes due{};
    for (std::size_t i = 0; i < lanes_.size(); ++i) {
        const auto feed = static_cast<EMDQPDataType>(i);
        Lane& lane = lanes_[i];
        const std::uint64_t packets = packet_count(memory.registers, feed);
        const std::optional<std::uint32_t> allowed = allowed_silence(memory.registers, feed);
        if (!allowed || !lane.is_watched || packets != lane.packets) {
            lane = {.is_watched = allowed.has_value(), .packets = packets, .since = now, .is_told = false};
            continue;
        }
        due[i] = !lane.is_told && now - lane.since >= *allowed * kNanosecondsPerSecond;
        lane.is_told = lane.is_told || due[i];
    }
    return due;
}

}  // namespace kova::sim
