/**
 * One TCP segment in an Ethernet frame, as the card forwards it.
 *
 *     offset 0                14             14 + 4 x ip_hl    + 4 x doff
 *            Ethernet header  IPv4 header    TCP header        payload
 *
 * Numbers of the headers are big-endian (RFC 791, RFC 9293); there is no VLAN tag.
 */
#ifndef KOVA_SNAPSHOT_TCP_SEGMENT_H
#define KOVA_SNAPSHOT_TCP_SEGMENT_H

#include <cstddef>
#include <cstdint>

/** Bytes that must be readable from the start of a frame: the longest IP header and a plain TCP header. */
constexpr size_t MIN_FRAME_ROOM = 14 + 60 + 20;

/** What a frame's headers say. The pointers point into the frame. */
struct STcpSegment {
    const uint8_t* lpTcp;     /**< TCP header */
    const uint8_t* lpPayload; /**< null unless sound */
    uint32_t nTcpLength;      /**< TCP header and payload */
    uint32_t nPayloadSize;    /**< 0 unless sound */
    uint32_t nSrcHost;        /**< as it stands in the IP header */
    uint32_t nDstHost;        /**< as it stands in the IP header */
    uint32_t nSeq;            /**< host order */
    uint16_t nSrcPort;        /**< host order */
    uint16_t nDstPort;        /**< host order */
    uint16_t nCheck;          /**< as it stands in the TCP header */
    uint8_t nProtocol;
    bool isResetAck; /**< RST and ACK are both set */
    bool isSound;    /**< the lengths agree with each other and with the room */
};

/**
 * Reads the headers.
 *
 * @param lpFrame start of the Ethernet header.
 * @param nRoom bytes that may be read from there, at least MIN_FRAME_ROOM.
 */
[[nodiscard]] STcpSegment ReadTcpSegment(const uint8_t* lpFrame, size_t nRoom) noexcept;

/** Bytes from the start of the frame to the end of what its IP header says. Needs MIN_FRAME_ROOM bytes. */
[[nodiscard]] size_t IpFrameEnd(const uint8_t* lpFrame) noexcept;

/** Checksum that a sound segment should carry, pseudo-header included, in the byte order of `nCheck`. */
[[nodiscard]] uint16_t SegmentCheckSum(const STcpSegment& refSegment) noexcept;

#endif  // KOVA_SNAPSHOT_TCP_SEGMENT_H
