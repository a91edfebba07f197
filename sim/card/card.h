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
#include "sim/card/card_mapping.h"
#include "sim/card/card_memory.h"
#include "wire/DmaMessage.h"

namespace kova::sim {

struct CardOptions {
    /** Slots of each card-to-host ring, as a power of two. A quote takes one slot of 192 bytes. */
    std::uint32_t slots_log2 = 14;
};

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
    PushResult push_event(std::uint32_t channel, const std::array<std::uint32_t, 6>& words);

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
    std::vector<RingWriter> to_host_;
    std::vector<std::unique_ptr<RingReader>> from_host_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_H
