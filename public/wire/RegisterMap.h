/**
 * The card's registers by number. A register number is a word index: its byte address is four times it.
 *
 * The card is organised in blocks: a global block from 0x10, an event and status block from 0x1F11, the network
 * block from 0x3000 (four groups of sixteen registers), and two feed-handler cores of identical layout, 2PS at
 * 0x11000 and 4PS at 0x21000; the SHFE and INE feeds of one depth share a core.
 */
#ifndef KOVA_PUBLIC_WIRE_REGISTER_MAP_H
#define KOVA_PUBLIC_WIRE_REGISTER_MAP_H

#include <cstdint>

// Identity. Read at every start, on every channel.
constexpr uint32_t REG_BUILD_VERSION = 0x4; /**< R: version of the card's build */
constexpr uint32_t REG_BUILD_DATE = 0x5;    /**< R: date of the card's build, 0xYYYYMMDD */

// Global block.
constexpr uint32_t REG_INIT_TRIGGER = 0x10;          /**< W: 1 starts an initialisation of the card */
constexpr uint32_t REG_MODEL_SEL = 0x100;            /**< W: 0 or 1 */
constexpr uint32_t REG_EVENT_MODEL_SEL = 0x101;      /**< W: 0 or 1; the read side is REG_HW_VERSION */
constexpr uint32_t REG_HW_VERSION = 0x101;           /**< R: hardware version */
constexpr uint32_t REG_SOFT_VERSION = 0x102;         /**< W: software version word */
constexpr uint32_t REG_VERSION_CHECK = 0x103;        /**< R: verdict on the software version: 0, 1 or 2 */
constexpr uint32_t REG_INIT_MASK = 0x1000;           /**< W: INIT_MASK_FORWARD, and 0 to end that */
constexpr uint32_t INIT_MASK_FORWARD = 0xF;          /**< the card forwards the snapshot stream */
constexpr uint32_t REG_CONFIG_CRC = 0x1001;          /**< RW: CRC-32C of the configuration last brought up */
constexpr uint32_t REG_SHFE2PS_MAX_INST = 0x1005;    /**< W */
constexpr uint32_t REG_SHFE4PS_MAX_INST = 0x1006;    /**< W */
constexpr uint32_t REG_INE2PS_MAX_INST = 0x1007;     /**< W */
constexpr uint32_t REG_INE4PS_MAX_INST = 0x1008;     /**< W */
constexpr uint32_t REG_LAST_TICK_CHANNEL = 0x1009;   /**< W: bit c for channel c */
constexpr uint32_t REG_REPEAT_QUOTE_UPLOAD = 0x1010; /**< W: 0 or 1 */
constexpr uint32_t REG_EVENT_PKTS = 0x1207;          /**< R: event packets */
constexpr uint32_t REG_SHFE2PS_PKTS = 0x1220;        /**< R: packets of the feed */
constexpr uint32_t REG_INE2PS_PKTS = 0x1230;         /**< R */
constexpr uint32_t REG_SHFE4PS_PKTS = 0x1240;        /**< R */
constexpr uint32_t REG_INE4PS_PKTS = 0x1250;         /**< R */

// Event and status block.
constexpr uint32_t REG_PRICE_PROTECT_EVENT_MASK = 0x1F11; /**< W: which price errors raise an event */
constexpr uint32_t REG_SHFE_INST_COUNT = 0x1F14;          /**< RW: instruments of SHFE in the snapshot */
constexpr uint32_t REG_INE_INST_COUNT = 0x1F15;           /**< RW: instruments of INE in the snapshot */
constexpr uint32_t REG_STATUS_0 = 0x2030;                 /**< R: read after an event for the log */
constexpr uint32_t REG_STATUS_1 = 0x2031;                 /**< R: the same */
constexpr uint32_t REG_HBM2_STATUS = 0x2032;              /**< R: HBM2_STATUS_READY when the memory is */
constexpr uint32_t HBM2_STATUS_READY = 3;
constexpr uint32_t REG_LAST_UPDATE_TIME = 0x2040; /**< R: + feed, seconds since the epoch */

// Network block: + 16 x group for each of the four groups.
constexpr uint32_t REG_ROUTE = 0x3000;            /**< W: low four bits; group 0 only */
constexpr uint32_t REG_DST_MAC_HI = 0x3001;       /**< W: bytes 0 and 1 */
constexpr uint32_t REG_DST_MAC_LO = 0x3002;       /**< W: bytes 2 to 5 */
constexpr uint32_t REG_DST_IP = 0x3003;           /**< W: host order */
constexpr uint32_t REG_DST_PORT = 0x3004;         /**< W */
constexpr uint32_t REG_SRC_MAC_HI = 0x3005;       /**< W */
constexpr uint32_t REG_SRC_MAC_LO = 0x3006;       /**< W: last byte + group */
constexpr uint32_t REG_SRC_IP = 0x3007;           /**< W */
constexpr uint32_t REG_SRC_PORT = 0x3008;         /**< W */
constexpr uint32_t REG_NETWORK_GROUP_STRIDE = 16; /**< distance of one group to the next */

// Feed-handler cores. The 4PS core repeats the 2PS core's registers at this distance.
constexpr uint32_t REG_CORE_STRIDE = 0x10000;

// Contract tables: a write to the address register stores the data register's word, a write to the read address
// register presents that word in the read data register.
constexpr uint32_t REG_SHFE_TABLE_WADDR = 0x11000;   /**< W: row x 64 + word; TABLE_CLOSE_ADDRESS closes */
constexpr uint32_t REG_SHFE_TABLE_WDATA = 0x11001;   /**< W */
constexpr uint32_t REG_SHFE_TABLE_RADDR = 0x11002;   /**< W */
constexpr uint32_t REG_SHFE_TABLE_RDATA = 0x11003;   /**< R */
constexpr uint32_t REG_INE_TABLE_WADDR = 0x11004;    /**< W */
constexpr uint32_t REG_INE_TABLE_WDATA = 0x11005;    /**< W */
constexpr uint32_t REG_INE_TABLE_RADDR = 0x11006;    /**< W */
constexpr uint32_t REG_INE_TABLE_RDATA = 0x11007;    /**< R */
constexpr uint32_t TABLE_CLOSE_ADDRESS = 0xFFFFFFFF; /**< with data 1: software access ends */

// Multicast addresses: SHFE then INE, IP then port, A line then B line.
constexpr uint32_t REG_MCAST_IP = 0x11100;       /**< W: of SHFE's A line; the distances of the others follow */
constexpr uint32_t REG_MCAST_INE = 1;            /**< from SHFE's register to INE's */
constexpr uint32_t REG_MCAST_PORT = 0x11102;     /**< W: of SHFE's A line; at the same distances */
constexpr uint32_t REG_MCAST_LINE_B = 4;         /**< from the A line's register to the B line's */
constexpr uint32_t REG_SHFE_PACKET_NO = 0x11110; /**< W: packet number of the snapshot */
constexpr uint32_t REG_INE_PACKET_NO = 0x11111;  /**< W: the same */
constexpr uint32_t REG_DETECT_INTERVAL = 0x11112;  /**< W: how long a feed may stay silent */
constexpr uint32_t REG_CORE_START = 0x11120;       /**< W: 1 starts the core's feeds */
constexpr uint32_t REG_CORE_ERROR_COUNT = 0x12015; /**< R: and REG_CORE_ERROR_COUNT_B; read after an event */
constexpr uint32_t REG_CORE_ERROR_COUNT_B = 0x1201B;

#endif  // KOVA_PUBLIC_WIRE_REGISTER_MAP_H
