/**
 * What a card sends of itself, in a process that was forked off the one that powers it: it goes on where the
 * last such process stopped, however that one ended.
 */
#ifndef KOVA_TESTS_CARD_FORKED_EXCHANGE_H
#define KOVA_TESTS_CARD_FORKED_EXCHANGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "card/engine_test.h"
#include "sim/card/registers.h"
#include "support/snapshot_frame.h"
#include "wire/DmaMessage.h"

namespace kova::test {

/** Sends into channel 0. The card is not to send by itself beside it. */
class ForkedExchange {
 public:
    ForkedExchange(sim::CardMemory& memory, std::vector<ByteString> snapshot)
        : memory_(memory),
          snapshot_(std::move(snapshot)),
          ring_(memory.channels[0].card_to_host, sim::card_to_host_slots(memory, 0)),
          openings_(memory.forwarding.openings.load()) {}

    /** The next frame of the snapshot, from its first one whenever the host asks anew. */
    void forward_next() {
        const std::uint64_t openings = memory_.forwarding.openings.load();
        if (openings != openings_) {
            openings_ = openings;
            next_ = 0;
        }
        if (sim::is_forwarding(memory_.registers) && next_ < snapshot_.size()) {
            const ByteString message = dma_tcp_message(snapshot_[next_++]);
            ring_.push(std::as_bytes(std::span(message)));
        }
    }

    void quote(std::uint32_t number) {
        const U50QuoteMessage message{.header = {.dma_type = DMA_UDP, .dma_len = sizeof(KovaShfeMdType)},
                                      .quote = quote_number(number)};
        ring_.push(std::as_bytes(std::span(&message, 1)));
    }

 private:
    sim::CardMemory& memory_;
    std::vector<ByteString> snapshot_;
    sim::RingWriter ring_;
    std::uint64_t openings_;
    std::size_t next_ = 0;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_FORKED_EXCHANGE_H
