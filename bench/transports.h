/** The ways from one process to another that are compared; see two_processes.h for what a transport is. */
#ifndef KOVA_BENCH_TRANSPORTS_H
#define KOVA_BENCH_TRANSPORTS_H

#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "bench/hand_written_ring.h"
#include "bench/two_processes.h"
#include "sim/card/card.h"

namespace kova::bench {

/** Slots of every ring that is compared, as a power of two. */
inline constexpr std::uint32_t kSlotsLog2 = 14;

/** The card's stream, read through the SDK's poll. */
class SdkPollTransport {
 public:
    SdkPollTransport(sim::Card& card, std::uint32_t channel) : card_(&card), channel_(channel) {}
    bool push(const U50QuoteMessage& message) {
        return card_->push_quote(channel_, message.quote) == sim::PushResult::kSent;
    }
    void receive(Receiver& receiver) const;

 private:
    sim::Card* card_;
    std::uint32_t channel_;
};

/** The card's stream, read through the shipped library in callback mode. */
class LibraryTransport {
 public:
    /** The file and the log go to a folder that must outlive the runs. */
    LibraryTransport(sim::Card& card, std::uint32_t channel, const std::string& folder);
    bool push(const U50QuoteMessage& message) {
        return card_->push_quote(channel_, message.quote) == sim::PushResult::kSent;
    }
    void receive(Receiver& receiver) const;

 private:
    sim::Card* card_;
    std::uint32_t channel_;
    std::string config_file_;
};

/** The ring written by hand, compiled into both processes. */
class HandWrittenTransport {
 public:
    bool push(const U50QuoteMessage& message) { return writer_->push(&message, sizeof message); }
    void receive(Receiver& receiver) const;
    /** Empties the ring, between runs. */
    void reset();

 private:
    using Ring = HandWrittenRing<kSlotsLog2, sizeof(U50QuoteMessage)>;
    std::optional<Shared<Ring>> ring_;
    std::optional<HandWrittenWriter<Ring>> writer_;
};

/** boost::lockfree::spsc_queue of fixed capacity, its messages taken out by copy as its manual shows. */
class BoostQueueTransport {
 public:
    /** `in_place` reads the message where it lies (consume_one) instead. */
    explicit BoostQueueTransport(bool in_place) : in_place_(in_place) {}
    bool push(const U50QuoteMessage& message) { return (*queue_)->push(message); }
    void receive(Receiver& receiver) const;
    void reset();

 private:
    static constexpr std::size_t kSlots = std::size_t{1} << kSlotsLog2;
    using Queue = boost::lockfree::spsc_queue<U50QuoteMessage, boost::lockfree::capacity<kSlots>>;
    bool in_place_;
    std::optional<Shared<Queue>> queue_;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_TRANSPORTS_H
