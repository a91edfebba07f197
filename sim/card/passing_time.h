/**
 * What happens on a card because time passes, and not because somebody touches it.
 *
 * Nothing here has a clock or a thread: whoever powers the card says what time it is, in nanoseconds of a clock
 * that never goes back.
 */
#ifndef KOVA_SIM_CARD_PASSING_TIME_H
#define KOVA_SIM_CARD_PASSING_TIME_H

#include <array>
#include <cstdint>

#include "sim/card/card_memory.h"

namespace kova::sim {

/** The card's memory, which an initialisation makes unusable for a while. */
class MemoryWait {
 public:
    /** Whether the memory has become ready just now; its status says so from then on. */
    [[nodiscard]] bool has_ended(CardMemory& memory, std::int64_t now);
    /** Gives up what is under way. */
    void forget(const CardMemory& memory);

 private:
    std::uint64_t initialisation_ = 0;
    bool is_waiting_ = false;
    std::int64_t since_ = 0;
};

/**
 * Feeds that are silent for longer than the host allows.
 *
 * A feed is watched while its core is started, a multicast group is set for it and its core's detection
 * interval is neither 0 nor 0xFFFFFFFF, in seconds. A silence is told once.
 */
class SilenceWatch {
 public:
    using Lanes = std::array<bool, MDQP_FEED_COUNT>;

    /** Feeds whose silence has become too long just now. */
    [[nodiscard]] Lanes too_long(const CardMemory& memory, std::int64_t now);

 private:
    struct Lane {
        bool is_watched = false;
        std::uint64_t packets = 0;
        std::int64_t since = 0;
        bool is_told = false;
    };

    std::array<Lane, MDQP_FEED_COUNT> lanes_{};
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_PASSING_TIME_H
