/**
 * Everything a simulated card keeps, as it lies in shared memory.
 *
 * The card lives as long as the program that powers it, whatever its clients do; a client maps the same memory
 * and runs the card's own logic on it for each register access. The layout has a version: a client of another
 * version is refused.
 *
 *     identity | lock | behaviour | registers | contract tables | table ports
 *     forwarding | exchange | mailbox | stream controls | rings, one after the other
 *
 * Who is alive is told by locks on bytes of the memory's file, which the kernel releases when a process ends in
 * whatever way: byte 0 belongs to the program that powers the card, byte 1 to whoever uses the mailbox, and one
 * byte to the reader of each stream.
 */
#ifndef KOVA_SIM_CARD_CARD_MEMORY_H
#define KOVA_SIM_CARD_CARD_MEMORY_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "sim/card/card_lock.h"
#include "sim/card/card_options.h"
#include "sim/card/mailbox.h"
#include "sim/card/stream_ring.h"
#include "wire/Feed.h"
#include "wire/InstRow.h"

namespace kova::sim {

inline constexpr std::uint64_t kCardMagic = 0x64726163'61766F6B;  // "kovacard"
inline constexpr std::uint32_t kLayoutVersion = 3;

/** Channels of a card: receiving processes it serves. */
inline constexpr std::uint32_t kChannelCount = 16;
/** Hardware identifier of the one core whose registers the host programs. */
inline constexpr std::uint16_t kRegisterCore = 474;
/** Registers of that core, words. */
inline constexpr std::uint32_t kRegisterCount = 0x24000;

/** Longest message of a card-to-host stream. */
inline constexpr std::uint32_t kCardToHostMtu = 4096;
/** Longest message of a host-to-card stream. */
inline constexpr std::uint32_t kHostToCardMtu = 1024;
inline constexpr std::uint32_t kHostToCardSlotsLog2 = 8;

enum class PowerState : std::uint32_t { kOff = 0, kOn = 1 };

/** Whether the exchange behind the card is sending; for whoever watches the card. */
enum class TrafficState : std::uint32_t { kNone = 0, kRunning = 1, kEnded = 2 };

struct CardIdentity {
    std::uint64_t magic;
    std::uint32_t layout_version;
    std::uint32_t index;
    std::uint64_t total_bytes;
    std::uint32_t card_to_host_slots_log2;
    std::uint32_t owner_process;
    std::atomic<PowerState> power;
    std::atomic<std::uint32_t> power_off_wanted;
    std::atomic<TrafficState> traffic;
};

/**
 * The register file. What the host writes stands in `written`; what it reads stands in `readable`. They are the
 * same value but for registers whose read side is another one. Where `is_held` is set the card shows nothing of
 * its own: the host reads what a test has put there.
 */
struct RegisterFile {
    std::array<std::atomic<std::uint64_t>, kRegisterCount> written;
    std::array<std::atomic<std::uint64_t>, kRegisterCount> readable;
    std::array<std::atomic<bool>, kRegisterCount> is_held;
};

/** In what cards differ from each other, and what has been asked of this one. */
struct CardBehaviour {
    std::atomic<std::int64_t> memory_delay;       // nanoseconds; below 0 the memory never gets ready
    std::atomic<std::uint32_t> hardware_version;  // that it tells
    std::atomic<std::uint32_t> least_software;    // that it accepts
    std::atomic<std::uint64_t> initialisations;   // that the host has begun
};

/** The four contract tables, back to back in the order of the feeds. */
struct ContractTables {
    std::array<SInstTableType, SHFE_TABLE_ROWS> shfe_2ps;
    std::array<SInstTableType, SHFE_TABLE_ROWS> shfe_4ps;
    std::array<SInstTableType, INE_TABLE_ROWS> ine_2ps;
    std::array<SInstTableType, INE_TABLE_ROWS> ine_4ps;
};

/** How the host gets at one contract table through its registers; see contract_tables.h. */
struct TablePort {
    std::atomic<std::uint32_t> is_closed;
    std::atomic<std::uint64_t> refused_writes;  // while it was closed
    std::atomic<std::uint64_t> outside;         // writes and reads of words that the table does not have
};

/** The snapshot stream on its way to channel 0. */
struct Forwarding {
    std::atomic<std::uint64_t> openings;   // times that it was opened
    std::atomic<std::uint64_t> forwarded;  // frames sent
    std::atomic<std::uint64_t> withheld;   // frames that found it closed, unlike their sender just before
};

/** What the exchange does about one feed; for whoever watches the card. */
struct ExchangeLine {
    std::atomic<std::uint64_t> cycles;  // of the snapshot, finished
    std::atomic<bool> is_cut;           // its quotes do not reach the card
};

struct ChannelStreams {
    RingControl card_to_host;
    RingControl host_to_card;
};

struct CardMemory {
    alignas(kCacheLine) CardIdentity identity;
    alignas(kCacheLine) CardLock lock;
    alignas(kCacheLine) CardBehaviour behaviour;
    alignas(kCacheLine) RegisterFile registers;
    alignas(kCacheLine) ContractTables tables;
    alignas(kCacheLine) std::array<TablePort, MDQP_FEED_COUNT> table_ports;  // in the order of the feeds
    alignas(kCacheLine) Forwarding forwarding;
    alignas(kCacheLine) std::array<ExchangeLine, MDQP_FEED_COUNT> exchange;  // likewise
    alignas(kCacheLine) CommandMailbox mailbox;
    alignas(kCacheLine) std::array<ChannelStreams, kChannelCount> channels;
    // The rings follow: sixteen card-to-host, then sixteen host-to-card.
};

/** Slots of one ring in memory, the overhang included. */
[[nodiscard]] constexpr std::size_t ring_slots(std::uint32_t slot_count_log2) {
    return (std::size_t{1} << slot_count_log2) + kOverhangSlots;
}

/** Sets how long the memory of a card takes. */
void set_memory_delay(CardBehaviour& behaviour, const MemoryDelay& delay);

/** Bytes of the whole memory of a card. */
[[nodiscard]] constexpr std::size_t card_bytes(std::uint32_t card_to_host_slots_log2) {
    return sizeof(CardMemory) + kChannelCount * kSlotBytes *
                                    (ring_slots(card_to_host_slots_log2) + ring_slots(kHostToCardSlotsLog2));
}

/** First slot of a channel's ring. */
[[nodiscard]] RingSlot* card_to_host_slots(CardMemory& memory, std::uint32_t channel);
[[nodiscard]] RingSlot* host_to_card_slots(CardMemory& memory, std::uint32_t channel);

/** The rows of a feed's table, and how many it has. */
[[nodiscard]] SInstTableType* table_rows(ContractTables& tables, EMDQPDataType feed);
/** The word of a row that says which channels receive the instrument. */
[[nodiscard]] std::atomic_ref<std::uint32_t> config_word(ContractTables& tables, EMDQPDataType feed,
                                                         std::uint32_t inst_no);
[[nodiscard]] constexpr std::uint32_t table_row_count(EMDQPDataType feed) {
    return feed == SHFE_2PS || feed == SHFE_4PS ? SHFE_TABLE_ROWS : INE_TABLE_ROWS;
}

/** Name of the shared memory of the card with this index. */
[[nodiscard]] std::array<char, 32> card_memory_name(std::uint32_t index);

/** Bytes of the memory's file whose locks tell who is alive. */
inline constexpr std::uint64_t kOwnerLockByte = 0;
inline constexpr std::uint64_t kTellerLockByte = 1;
[[nodiscard]] constexpr std::uint64_t card_to_host_lock_byte(std::uint32_t channel) {
    return 16 + channel;
}
[[nodiscard]] constexpr std::uint64_t host_to_card_lock_byte(std::uint32_t channel) {
    return 48 + channel;
}

/** Takes the lock of one byte for this open file; false when another open file has it. */
[[nodiscard]] bool try_lock_byte(int file, std::uint64_t byte);
/** Gives it back. */
void unlock_byte(int file, std::uint64_t byte);
/** Whether any open file but this one holds the lock of the byte. */
[[nodiscard]] bool is_byte_locked(int file, std::uint64_t byte);

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_MEMORY_H
