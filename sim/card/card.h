/**
 * A powered card: what the program that owns it can do with it.
 *
 * One process powers a card and one thread of it pushes messages. The registers may be touched from any thread
 * and by any client; see registers.h.
 */
#ifndef KOVA_SIM_CARD_CARD_H
#define KOVA_SIM_CARD_CARD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "KovaShfeMdApi.h"
#include "sim/card/card_events.h"
#include "sim/card/card_mapping.h"
#include "sim/card/card_memory.h"
#include "sim/card/passing_time.h"
#include "wire/DmaMessage.h"

namespace kova::sim {

/** Why a card could not be powered. */
class CardError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/** What became of a quote that reached the card. */
struct Routed {
    std::uint32_t sent = 0;     // channels that got it
    std::uint32_t lost = 0;     // channels whose ring was full
    std::uint32_t unheard = 0;  // channels that nobody has open
};

/** What became of a frame of the snapshot stream. */
enum class Forwarded {
    kSent,
    kLost,     // the ring was full
    kUnheard,  // nobody has channel 0 open
    kClosed,   // the card does not forward now
    kTooLong,  // for a message of the stream
};

/** Longest Ethernet frame that the card can forward. */
inline constexpr std::size_t kLongestFrame = kCardToHostMtu - DMA_TCP_FRAME_OFFSET;

class Card {
 public:
    /**
     * Powers the card with this index for every process of the machine. Memory that a card which died left
     * behind is removed first; see `replaced_leftover`. Throws CardError when the card is on already, or when
     * there is no memory for it.
     */
    static Card power_on(std::uint32_t index, const CardOptions& options = {});

    /** Powers a card that only this process can attach to. */
    static Card power_on_privately(std::uint32_t index, const CardOptions& options = {});

    /** Powers off: clients find the card gone, their mappings stay readable. */
    ~Card();
    Card(Card&&) noexcept;
    Card& operator=(Card&&) = delete;

    [[nodiscard]] std::uint32_t index() const { return memory().identity.index; }
    [[nodiscard]] CardMemory& memory() const { return mapping_.memory(); }
    /** File of the card's memory. */
    [[nodiscard]] int file() const { return mapping_.file(); }
    /** Whether memory of a card that died without powering off was found and removed. */
    [[nodiscard]] bool replaced_leftover() const { return replaced_leftover_; }

    /** Sends one message to a channel, at most kCardToHostMtu bytes. */
    PushResult push(std::uint32_t channel, std::span<const std::byte> message);
    PushResult push_quote(std::uint32_t channel, const KovaShfeMdType& quote);
    /** Counts an event and sends it, which may be lost or unheard like any message. */
    PushResult push_event(std::uint32_t channel, const EventWords& words);

    /** A quote from a feed: counted, and sent to every channel whose bit stands in the instrument's row. */
    Routed route_quote(EMDQPDataType feed, const KovaShfeMdType& quote);

    /** An Ethernet frame of the snapshot stream: goes to channel 0 while the host has forwarding open. */
    Forwarded forward_frame(std::span<const std::byte> ethernet_frame);
    /** The same for a frame that is a message of the stream already, as a capture of messages has it. */
    Forwarded forward_message(std::span<const std::byte> message);
    /** Whether a frame of this many bytes would not be lost now; a sender that waits for this loses none. */
    [[nodiscard]] bool has_room_for_frame(std::size_t bytes);
    [[nodiscard]] bool has_room_for_message(std::size_t bytes);
    /** Whether somebody reads the channel that frames go to. */
    [[nodiscard]] bool has_frame_reader() const;
    /** Whether the host has forwarding open, and how often it has opened it. */
    [[nodiscard]] bool is_forwarding() const;
    [[nodiscard]] std::uint64_t forwarding_openings() const;

    /** Sets a row of a contract table, its `config` word last. */
    void set_row(EMDQPDataType feed, std::uint32_t inst_no, const SInstTableType& row);

    /** Takes the next message that a client sent to the card, if there is one. */
    std::optional<std::vector<std::byte>> take_from_host(std::uint32_t channel);

    /**
     * Lets time pass: the memory gets ready, feeds that were silent for too long are told. Nanoseconds of a
     * clock that never goes back; whoever powers the card calls it now and then, and a test when it likes.
     */
    void tick(std::int64_t now);
    /** How long the memory takes, also when it is waited for already. */
    void set_memory_delay(const MemoryDelay& delay);
    /** The exchange's time, seconds since the epoch: when the packets to come have updated their feeds. */
    void set_exchange_time(std::int64_t seconds) { exchange_time_ = seconds; }

    /**
     * Takes the card's power away for a moment: registers, tables and the checksum of the configuration are
     * forgotten. The streams stay open, and what stands in them is delivered.
     */
    void power_cycle();

    // What the exchange does, for whoever watches the card.
    void set_cycles(EMDQPDataType feed, std::uint64_t cycles);
    void set_line_cut(EMDQPDataType feed, bool is_cut);
    [[nodiscard]] bool is_line_cut(EMDQPDataType feed) const;

    /** Finds streams whose reader was killed and closes them, so that their messages count as unheard. */
    void close_streams_of_dead_readers();

    [[nodiscard]] bool is_power_off_wanted() const;
    void set_traffic(TrafficState state);

 private:
    Card(CardMapping mapping, std::string name, bool replaced_leftover);

    template <typename Push>
    Forwarded forward(std::size_t message_bytes, Push&& push);

    CardMapping mapping_;
    std::string name_;  // empty for a private card
    bool replaced_leftover_ = false;
    MemoryWait memory_wait_;
    SilenceWatch silence_;
    std::int64_t exchange_time_ = 0;  // 0 until it is told
    std::vector<RingWriter> to_host_;
    std::vector<std::unique_ptr<RingReader>> from_host_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_H
