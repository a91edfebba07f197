/**
 * The events that a card raises, as the words of their messages.
 *
 * A lane is a feed, by EMDQPDataType. Words 0 and 1 have a byte for each lane, the first in the lowest.
 */
#ifndef KOVA_SIM_CARD_CARD_EVENTS_H
#define KOVA_SIM_CARD_CARD_EVENTS_H

#include <array>
#include <cstdint>

#include "wire/Feed.h"

namespace kova::sim {

using EventWords = std::array<std::uint32_t, 6>;

/** The channel that hears them. */
inline constexpr std::uint32_t kEventChannel = 0;

/** A byte's value in the byte of a lane. */
[[nodiscard]] constexpr std::uint32_t in_lane(EMDQPDataType lane, std::uint32_t value) {
    constexpr std::uint32_t kBitsPerLane = 8;
    return value << (static_cast<std::uint32_t>(lane) * kBitsPerLane);
}

/** Packets of the lane were lost. */
[[nodiscard]] constexpr EventWords lost_event(EMDQPDataType lane) {
    return {in_lane(lane, 0x80)};
}

/** A price of the lane fails the card's own check, one that the usual mask lets through. */
[[nodiscard]] constexpr EventWords price_event(EMDQPDataType lane) {
    return {0, in_lane(lane, 0x04)};
}

/** The lane has been silent for too long. */
[[nodiscard]] constexpr EventWords timeout_event(EMDQPDataType lane) {
    return {in_lane(lane, 0x40)};
}

/** The card's memory is ready. */
[[nodiscard]] constexpr EventWords memory_ready_event() {
    return {0, 0, 1};
}

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_EVENTS_H
