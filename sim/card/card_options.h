/** What may differ from one simulated card to the next. */
#ifndef KOVA_SIM_CARD_CARD_OPTIONS_H
#define KOVA_SIM_CARD_CARD_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>

namespace kova::sim {

/** From an initialisation until the card's memory is ready; nothing: it never is. */
using MemoryDelay = std::optional<std::chrono::nanoseconds>;

struct CardOptions {
    /** Slots of each card-to-host ring, as a power of two. A quote takes one slot of 192 bytes. */
    std::uint32_t slots_log2 = 14;
    MemoryDelay memory_delay = std::chrono::seconds{2};
    /** What the card says of its own version, 0xYYYYMMDD. */
    std::uint32_t hardware_version = 0x20260420;
    /** Oldest software that the card accepts: four bytes, the version's first number in the highest. */
    std::uint32_t least_software = 0x01010133;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_OPTIONS_H
