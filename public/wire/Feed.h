/**
 * The four feeds of the two exchanges. Everything that exists once per feed is indexed in this order.
 */
#ifndef KOVA_PUBLIC_WIRE_FEED_H
#define KOVA_PUBLIC_WIRE_FEED_H

#include <cstdint>

/** A feed: an exchange and how many snapshots a second its incremental stream carries. */
enum EMDQPDataType : int32_t {
    SHFE_2PS = 0,
    SHFE_4PS = 1,
    INE_2PS = 2,
    INE_4PS = 3,
};

/** Number of feeds. */
constexpr int32_t MDQP_FEED_COUNT = 4;

#endif  // KOVA_PUBLIC_WIRE_FEED_H
