/**
 * Messages of the snapshot stream and the DMA messages that carry them, byte for byte as a test wants them.
 *
 * Knows the formats from their descriptions alone: nothing of the library or of the simulated exchange is in
 * it.
 */
#ifndef KOVA_TESTS_SUPPORT_SNAPSHOT_FRAME_H
#define KOVA_TESTS_SUPPORT_SNAPSHOT_FRAME_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

namespace kova::test {

using ByteString = std::basic_string<std::uint8_t>;

inline void put_big16(ByteString& out, std::uint32_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

inline void put_big32(ByteString& out, std::uint32_t value) {
    put_big16(out, value >> 16);
    put_big16(out, value);
}

inline void put_little16(ByteString& out, std::uint32_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}

/** A message with this body. */
inline ByteString snapshot_message(std::uint8_t flag, const ByteString& body) {
    ByteString message = {flag, 0x32};
    put_little16(message, static_cast<std::uint32_t>(body.size()));
    message.append(4, 0);
    return message + body;
}

/** Sum of big-endian 16-bit words; an odd last byte is the high one. */
inline std::uint32_t sum_of_words(const ByteString& bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? std::uint32_t{bytes[i]} << 8U : bytes[i];
    }
    return sum;
}

inline std::uint16_t internet_checksum(const ByteString& bytes) {
    std::uint32_t sum = sum_of_words(bytes);
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

constexpr std::uint8_t kTcpRst = 0x04;
constexpr std::uint8_t kTcpAck = 0x10;

/** One segment; what is not said is as in an ordinary one. */
struct Segment {
    std::uint32_t seq = 0;
    ByteString payload{};
    std::uint32_t src_host = 0x0A010203;  // 10.1.2.3
    std::uint32_t dst_host = 0x0A010204;
    std::uint16_t src_port = 40000;
    std::uint16_t dst_port = 33022;
    std::uint8_t flags = kTcpAck;
    std::uint8_t protocol = 6;
    ByteString ip_options{};   // whole words
    ByteString tcp_options{};  // whole words
    std::size_t padding = 0;
    std::uint8_t padding_byte = 0;
    std::optional<std::uint16_t> ip_length{};     // instead of the right one
    std::optional<std::uint8_t> ip_words{};       // header length field, instead of the right one
    std::optional<std::uint8_t> tcp_words{};      // the same
    std::optional<std::uint16_t> tcp_checksum{};  // instead of the right one
};

/** The Ethernet frame of a segment. */
inline ByteString ethernet_frame(const Segment& segment) {
    const auto ip_size = static_cast<std::uint32_t>(20 + segment.ip_options.size());
    const auto tcp_size = static_cast<std::uint32_t>(20 + segment.tcp_options.size());
    const auto tcp_length = static_cast<std::uint32_t>(tcp_size + segment.payload.size());

    ByteString tcp;
    put_big16(tcp, segment.src_port);
    put_big16(tcp, segment.dst_port);
    put_big32(tcp, segment.seq);
    put_big32(tcp, 0x01020304);
    tcp.push_back(static_cast<std::uint8_t>(segment.tcp_words.value_or(tcp_size / 4) << 4U));
    tcp.push_back(segment.flags);
    put_big16(tcp, 0xFFFF);
    put_big16(tcp, 0);
    put_big16(tcp, 0);
    tcp += segment.tcp_options + segment.payload;

    ByteString pseudo;
    put_big32(pseudo, segment.src_host);
    put_big32(pseudo, segment.dst_host);
    put_big16(pseudo, segment.protocol);
    put_big16(pseudo, tcp_length);
    const std::uint16_t checksum = segment.tcp_checksum.value_or(internet_checksum(pseudo + tcp));
    tcp[16] = static_cast<std::uint8_t>(checksum >> 8);
    tcp[17] = static_cast<std::uint8_t>(checksum);

    ByteString frame = {0x02, 0, 0, 0, 0, 1, 0x02, 0, 0, 0, 0, 2, 0x08, 0x00};
    frame.push_back(static_cast<std::uint8_t>(0x40U | segment.ip_words.value_or(ip_size / 4)));
    frame.push_back(0);
    put_big16(frame, segment.ip_length.value_or(static_cast<std::uint16_t>(ip_size + tcp_length)));
    put_big32(frame, 0x12344000);
    frame.push_back(64);
    frame.push_back(segment.protocol);
    put_big16(frame, 0);  // nobody checks the IP header's own sum
    put_big32(frame, segment.src_host);
    put_big32(frame, segment.dst_host);
    return frame + segment.ip_options + tcp + ByteString(segment.padding, segment.padding_byte);
}

/** The DMA message that carries a frame. */
inline ByteString dma_tcp_message(const ByteString& frame) {
    ByteString message = {2, 0, 0, 0};
    put_little16(message, static_cast<std::uint32_t>(frame.size()));
    message.append(6, 0);
    return message + frame;
}

inline ByteString dma_tcp_message(const Segment& segment) {
    return dma_tcp_message(ethernet_frame(segment));
}

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_SNAPSHOT_FRAME_H
