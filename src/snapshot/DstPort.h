/**
 * The TCP ports on which the feeds' snapshots arrive.
 */
#ifndef KOVA_SNAPSHOT_DST_PORT_H
#define KOVA_SNAPSHOT_DST_PORT_H

#include <cstdint>

/** Destination port of each feed's snapshot stream, as its first segment showed it; 0: not seen yet. */
struct U50DstPort {
    uint16_t port_shfe_2ps = 0;
    uint16_t port_shfe_4ps = 0;
    uint16_t port_ine_2ps = 0;
    uint16_t port_ine_4ps = 0;
};

#endif  // KOVA_SNAPSHOT_DST_PORT_H
