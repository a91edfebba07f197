/**
 * Ethernet frames that carry a TCP segment over IPv4.
 *
 *     offset 0         14                           14 + 20 + options      ...
 *            Ethernet  IPv4: 20 bytes and options   TCP: 20 and options    payload   padding
 *
 * Padding is what makes a short frame 60 bytes long, or what somebody put there; the IP header's total length
 * leaves it out.
 */
#ifndef KOVA_SIM_EXCHANGE_TCP_FRAME_H
#define KOVA_SIM_EXCHANGE_TCP_FRAME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kova::sim {

inline constexpr std::size_t kEthernetHeaderBytes = 14;
inline constexpr std::size_t kIpHeaderBytes = 20;
inline constexpr std::size_t kTcpHeaderBytes = 20;
/** Most bytes of options behind each of the two headers. */
inline constexpr std::size_t kMostOptionBytes = 40;
/** Payload of a full segment without options. */
inline constexpr std::size_t kMostSegmentBytes = 1460;
/** Shortest frame. */
inline constexpr std::size_t kLeastFrameBytes = 60;
/** Longest frame that any part of the simulated exchange makes: a full segment with all options, and padding.
 */
inline constexpr std::size_t kMostFrameBytes = 1600;

// Bits of a TCP header's flags.
inline constexpr std::uint8_t kTcpRst = 0x04;
inline constexpr std::uint8_t kTcpPsh = 0x08;
inline constexpr std::uint8_t kTcpAck = 0x10;

using MacAddress = std::array<std::uint8_t, 6>;

/** One end of a connection. */
struct TcpEnd {
    MacAddress mac{};
    std::uint32_t address = 0;  // 10.0.0.1 is 0x0A000001
    std::uint16_t port = 0;

    friend bool operator==(const TcpEnd&, const TcpEnd&) = default;
};

/** What a frame says. */
struct TcpSegment {
    TcpEnd source;
    TcpEnd destination;
    std::uint16_t ip_id = 0;
    std::uint32_t seq = 0;
    std::uint32_t ack = 0;
    std::uint8_t flags = kTcpAck;
    std::uint16_t window = 0xFFFF;
    std::span<const std::byte> ip_options{};   // a multiple of 4 bytes, at most 40
    std::span<const std::byte> tcp_options{};  // likewise
    std::span<const std::byte> payload{};
};

/** The Internet checksum (RFC 1071) of some bytes, an odd one taken with a zero behind it. */
std::uint16_t internet_checksum(std::span<const std::byte> bytes);

/**
 * Writes the frame of a segment, with both checksums, and pads it to 60 bytes.
 *
 * @return bytes written. Throws std::length_error when options are malformed or `out` is too small.
 */
std::size_t write_tcp_frame(const TcpSegment& segment, std::span<std::byte> out);

/** Reads a frame back, checksums aside; the spans point into it. Nothing when it is no whole TCP segment. */
std::optional<TcpSegment> read_tcp_frame(std::span<const std::byte> frame);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_TCP_FRAME_H
