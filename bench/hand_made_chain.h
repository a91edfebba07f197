/**
 * The least that a shared library between the card's stream and an application's object can be: a virtual call
 * into it, the poll, a handler that looks at the message's kind, and a virtual call out of it or a copy. No
 * stopping, no bring-up, no events, no errors.
 *
 * A yardstick: what it costs on a machine is what calls cost there.
 */
#ifndef KOVA_BENCH_HAND_MADE_CHAIN_H
#define KOVA_BENCH_HAND_MADE_CHAIN_H

#include <enyx_hw.h>

#include <memory>

#include "KovaShfeMdApi.h"

namespace kova::bench {

class HandMadeChain {
 public:
    /** @param stream open; not owned. @param spi gets the quotes of receive(); not owned. */
    [[gnu::visibility("default")]] static std::unique_ptr<HandMadeChain> make(enyx_hw_a2c_stream* stream,
                                                                              CKovaShfeMdSpi& spi);

    virtual ~HandMadeChain() = default;
    /** One poll; 1 when a quote was handed to the callback. */
    virtual int receive() = 0;
    /** One poll; 1 when a quote was copied. */
    virtual int receive(KovaShfeMdType& quote) = 0;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_HAND_MADE_CHAIN_H
