#include "kova_simcard/status.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "kova_simcard/exit_codes.h"
#include "kova_simcard/leftover.h"
#include "kova_simcard/register_names.h"
#include "kova_simcard/status_text.h"
#include "sim/card/attached_card.h"
#include "sim/card/contract_tables.h"
#include "sim/card/registers.h"
#include "wire/RegisterMap.h"

namespace kova::app {

namespace {

constexpr std::array kPacketRegisters{REG_SHFE2PS_PKTS, REG_SHFE4PS_PKTS, REG_INE2PS_PKTS, REG_INE4PS_PKTS};

// A card's memory gets its size when it is powered, and no other change after that counts as one of the file.
std::time_t time_of_power_on(const sim::CardMapping& card) {
    struct stat status {};
    return fstat(card.file(), &status) == 0 ? status.st_mtim.tv_sec : 0;
}

ChannelStatus channel_status(const sim::RingControl& ring, std::uint32_t channel) {
    ChannelStatus status{.channel = channel};
    const std::uint64_t reader = ring.reader.load(std::memory_order_relaxed);
    status.is_open = reader != 0;
    status.reader_process = static_cast<std::uint32_t>(reader >> 32);
    status.abandoned = ring.abandoned.load(std::memory_order_acquire);
    status.taken = ring.taken.load(std::memory_order_acquire);
    status.lost = ring.lost.load(std::memory_order_relaxed);
    status.unheard = ring.unheard.load(std::memory_order_relaxed);
    // Last, so that it covers what is taken; a reader may still be one message ahead of it.
    status.sent = std::max(ring.sent.load(std::memory_order_acquire), status.taken + status.abandoned);
    status.waiting = status.sent - status.taken - status.abandoned;
    return status;
}

FeedStatus feed_status(sim::CardMemory& memory, EMDQPDataType feed) {
    FeedStatus status{.rows = sim::table_row_count(feed)};
    const SInstTableType* const rows = sim::table_rows(memory.tables, feed);
    for (std::uint32_t row = 0; row < status.rows; ++row) {
        const std::uint32_t config = sim::config_word(memory.tables, feed, row).load(std::memory_order_acquire);
        status.filled += rows[row].inst_id[0] != '\0' ? 1U : 0U;
        status.subscribed += (config & INST_CONFIG_SUBSCRIBED) != 0 ? 1U : 0U;
    }
    status.packets = sim::read_register(memory, kPacketRegisters.at(static_cast<std::size_t>(feed)));
    status.is_started = sim::is_core_started(memory.registers, feed);
    const sim::TablePort& port = memory.table_ports.at(static_cast<std::size_t>(feed));
    status.is_open = sim::is_table_open(memory, feed);
    status.refused_writes = port.refused_writes.load(std::memory_order_relaxed);
    status.outside = port.outside.load(std::memory_order_relaxed);
    const sim::ExchangeLine& line = memory.exchange.at(static_cast<std::size_t>(feed));
    status.is_cut = line.is_cut.load(std::memory_order_relaxed);
    status.cycles = line.cycles.load(std::memory_order_relaxed);
    return status;
}

ForwardingStatus forwarding_status(const sim::CardMemory& memory) {
    return {.is_open = sim::is_forwarding(memory.registers),
            .openings = memory.forwarding.openings.load(std::memory_order_relaxed),
            .forwarded = memory.forwarding.forwarded.load(std::memory_order_relaxed),
            .withheld = memory.forwarding.withheld.load(std::memory_order_relaxed)};
}

}  // namespace

CardStatus collect_status(const sim::CardMapping& card) {
    sim::CardMemory& memory = card.memory();
    CardStatus status;
    status.card = memory.identity.index;
    status.process = memory.identity.owner_process;
    status.since = time_of_power_on(card);
    status.traffic = memory.identity.traffic.load(std::memory_order_relaxed);
    for (std::size_t feed = 0; feed < status.feeds.size(); ++feed) {
        status.feeds[feed] = feed_status(memory, static_cast<EMDQPDataType>(feed));
    }
    status.forwarding = forwarding_status(memory);
    for (const NamedRegister& named : named_registers()) {
        status.registers.push_back({named.name, named.number, sim::read_register(memory, named.number)});
    }
    for (std::uint32_t channel = 0; channel < sim::kChannelCount; ++channel) {
        status.channels.push_back(channel_status(memory.channels[channel].card_to_host, channel));
    }
    status.lock_recoveries = memory.lock.recoveries.load(std::memory_order_relaxed);
    status.unprotected_accesses = memory.lock.unprotected.load(std::memory_order_relaxed);
    return status;
}

int show_status(const StatusOptions& options) {
    const sim::AttachedCard card = sim::attach(options.card);
    if (card == nullptr) {
        const std::string reason = why_not_on(options.card, errno);
        if (options.json) {
            fmt::print("{}\n", status_json_of_no_card(options.card, reason));
        }
        fmt::print(stderr, "card {}: {}\n", options.card, reason);
        return kExitFailed;
    }
    const CardStatus status = collect_status(*card);
    fmt::print("{}", options.json ? status_json(status) + "\n" : status_text(status));
    return kExitDone;
}

}  // namespace kova::app
