/** The message that both benchmarks send. */
#ifndef KOVA_BENCH_SAMPLE_MESSAGE_H
#define KOVA_BENCH_SAMPLE_MESSAGE_H

#include <cstring>

#include "wire/DmaMessage.h"

namespace kova::bench {

/** A quote like any other; only its size and what a benchmark stamps into it matter. */
[[nodiscard]] inline U50QuoteMessage sample_message() {
    U50QuoteMessage message{};
    message.header = {.dma_type = DMA_UDP, .dma_len = sizeof(KovaShfeMdType)};
    KovaShfeMdType& quote = message.quote;
    quote.inst_no = 4711;
    std::memcpy(quote.inst_id, "cu2506", 7);
    quote.last_px = 7'834'000;
    quote.bid1_px = 7'833'000;
    quote.bid1_vol = 12;
    quote.ask1_px = 7'834'000;
    quote.ask1_vol = 7;
    return message;
}

}  // namespace kova::bench

#endif  // KOVA_BENCH_SAMPLE_MESSAGE_H
