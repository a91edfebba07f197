/**
 * The messages that the card pushes to the host by DMA. The card defines every byte; little-endian.
 *
 *     offset 0          4          8
 *            dma_type   dma_len    payload
 *
 *     DMA_EVENT  event_data0 .. event_data5, 32 bytes in all
 *     DMA_UDP    one KovaShfeMdType, 184 bytes in all
 *     DMA_TCP    one more word, then the Ethernet frame of one TCP segment from offset 12
 */
#ifndef KOVA_PUBLIC_WIRE_DMA_MESSAGE_H
#define KOVA_PUBLIC_WIRE_DMA_MESSAGE_H

#include <cstddef>
#include <cstdint>

#include "KovaShfeMdApi.h"

/** Kind of a message, its first word. */
enum EDmaMsgType : uint32_t {
    DMA_EVENT = 0, /**< the card tells something about a feed or about itself */
    DMA_UDP = 1,   /**< a quote */
    DMA_TCP = 2,   /**< a segment of the snapshot stream */
};

/** What every message starts with. */
struct U50DmaHeader {
    uint32_t dma_type; /**< EDmaMsgType */
    uint32_t dma_len;  /**< as the card sets it; nothing on the host reads it */
};

static_assert(sizeof(U50DmaHeader) == 8, "fixed by the card");

/** A whole DMA_EVENT message. */
struct U50Event {
    uint32_t dma_type;
    uint32_t dma_len;
    uint32_t event_data0; /**< one byte per feed lane: bit 7 packets lost, bit 6 no update for too long */
    uint32_t event_data1; /**< one byte per feed lane: bits 0 to 3 price error */
    uint32_t event_data2; /**< bit 0: the card's memory is ready */
    uint32_t event_data3; /**< bits 0 to 3: packets lost */
    uint32_t event_data4;
    uint32_t event_data5;
};

static_assert(sizeof(U50Event) == 32, "fixed by the card");
static_assert(offsetof(U50Event, event_data0) == 8, "fixed by the card");
static_assert(offsetof(U50Event, event_data5) == 28, "fixed by the card");

/** A whole DMA_UDP message. */
#pragma pack(push, 1)
struct U50QuoteMessage {
    U50DmaHeader header;
    KovaShfeMdType quote;
};
#pragma pack(pop)

static_assert(sizeof(U50QuoteMessage) == 184, "fixed by the card");
static_assert(offsetof(U50QuoteMessage, quote) == 8, "fixed by the card");

/** Where the Ethernet frame starts in a DMA_TCP message. */
constexpr uint32_t DMA_TCP_FRAME_OFFSET = 12;

#endif  // KOVA_PUBLIC_WIRE_DMA_MESSAGE_H
