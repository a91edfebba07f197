/** kova-simcard status: what can be seen of a card from outside. */
#ifndef KOVA_APPS_KOVA_SIMCARD_STATUS_H
#define KOVA_APPS_KOVA_SIMCARD_STATUS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "kova_simcard/options.h"
#include "sim/card/card_mapping.h"
#include "wire/Feed.h"

namespace kova::app {

/**
 * A card-to-host stream. Its messages are sent, lost (the ring was full) or unheard (nobody had it open); of
 * those sent some are taken, some abandoned (left unread by a reader that is gone), and the rest is waiting.
 */
struct ChannelStatus {
    std::uint32_t channel = 0;
    bool is_open = false;
    std::uint32_t reader_process = 0;  // 0 when nobody has it open
    std::uint64_t sent = 0;
    std::uint64_t taken = 0;
    std::uint64_t lost = 0;
    std::uint64_t unheard = 0;
    std::uint64_t abandoned = 0;
    std::uint64_t waiting = 0;
};

struct FeedStatus {
    std::uint32_t rows = 0;
    std::uint32_t filled = 0;
    std::uint32_t subscribed = 0;
    std::uint64_t packets = 0;
    bool is_started = false;
    bool is_open = true;               // for software
    std::uint64_t refused_writes = 0;  // while it was closed
    std::uint64_t outside = 0;         // accesses to words that the table does not have
    bool is_cut = false;               // the line of its quotes
    std::uint64_t cycles = 0;          // of its snapshot that the exchange has finished
};

/** The snapshot stream on its way to channel 0. */
struct ForwardingStatus {
    bool is_open = false;
    std::uint64_t openings = 0;
    std::uint64_t forwarded = 0;
    std::uint64_t withheld = 0;  // while it was closed
};

struct RegisterStatus {
    std::string_view name;
    std::uint32_t number = 0;
    std::uint64_t value = 0;  // what the host would read
};

struct CardStatus {
    std::uint32_t card = 0;
    std::uint32_t process = 0;
    std::time_t since = 0;
    sim::TrafficState traffic = sim::TrafficState::kNone;
    std::array<FeedStatus, MDQP_FEED_COUNT> feeds;  // in the order of the feeds
    ForwardingStatus forwarding;
    std::vector<RegisterStatus> registers;
    std::vector<ChannelStatus> channels;  // all of them
    std::uint64_t lock_recoveries = 0;
    std::uint64_t unprotected_accesses = 0;
};

/** Looks at a card; changes nothing in it. Traffic that runs meanwhile moves on between two values. */
[[nodiscard]] CardStatus collect_status(const sim::CardMapping& card);

/** Prints the status of a card; the program's exit code. */
int show_status(const StatusOptions& options);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_STATUS_H
