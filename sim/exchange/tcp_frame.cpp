#include "sim/exchange/tcp_frame.h"

#include <algorithm>
#include <stdexcept>

namespace kova::sim {

namespace {

constexpr std::uint16_t kEtherTypeIp = 0x0800;
constexpr std::uint8_t kIpVersion = 4;
constexpr std::uint8_t kProtocolTcp = 6;
constexpr std::uint8_t kTimeToLive = 64;
constexpr std::uint16_t kDontFragment = 0x4000;
constexpr std::size_t kWord = 4;

// Offsets inside the IP and the TCP header.
constexpr std::size_t kIpLength = 2;
constexpr std::size_t kIpProtocol = 9;
constexpr std::size_t kIpChecksum = 10;
constexpr std::size_t kIpSource = 12;
constexpr std::size_t kIpDestination = 16;
constexpr std::size_t kTcpDataOffset = 12;
constexpr std::size_t kTcpChecksum = 16;

void put16(std::span<std::byte> at, std::size_t offset, std::uint16_t value) {
    at[offset] = static_cast<std::byte>(value >> 8U);
    at[offset + 1] = static_cast<std::byte>(value & 0xFFU);
}

void put32(std::span<std::byte> at, std::size_t offset, std::uint32_t value) {
    put16(at, offset, static_cast<std::uint16_t>(value >> 16U));
    put16(at, offset + 2, static_cast<std::uint16_t>(value & 0xFFFFU));
}

std::uint8_t get8(std::span<const std::byte> at, std::size_t offset) {
    return std::to_integer<std::uint8_t>(at[offset]);
}

std::uint16_t get16(std::span<const std::byte> at, std::size_t offset) {
    return static_cast<std::uint16_t>(get8(at, offset) << 8U | get8(at, offset + 1));
}

std::uint32_t get32(std::span<const std::byte> at, std::size_t offset) {
    return std::uint32_t{get16(at, offset)} << 16U | get16(at, offset + 2);
}

/** Sum of the bytes as big-endian words; 64 bits, so that no carry is lost. */
std::uint64_t sum_of(std::span<const std::byte> bytes) {
    std::uint64_t sum = 0;
    std::size_t i = 0;
    for (; i + 1 < bytes.size(); i += 2) {
        sum += get16(bytes, i);
    }
    return i < bytes.size() ? sum + (std::uint64_t{get8(bytes, i)} << 8U) : sum;
}

std::uint16_t checksum_of_sum(std::uint64_t sum) {
    while (sum > 0xFFFFU) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(~sum & 0xFFFFU);
}

bool are_options(std::span<const std::byte> options) {
    return options.size() % kWord == 0 && options.size() <= kMostOptionBytes;
}

void write_ethernet(const TcpSegment& segment, std::span<std::byte> at) {
    const auto as_byte = [](std::uint8_t value) { return std::byte{value}; };
    const auto behind = std::ranges::transform(segment.destination.mac, at.begin(), as_byte).out;
    std::ranges::transform(segment.source.mac, behind, as_byte);
    put16(at, kEthernetHeaderBytes - 2, kEtherTypeIp);
}

/** @param at begins with the IP header. */
void write_ip(const TcpSegment& segment, std::size_t total, std::span<std::byte> at) {
    const std::size_t header = kIpHeaderBytes + segment.ip_options.size();
    at[0] = static_cast<std::byte>(std::size_t{kIpVersion} << 4U | header / kWord);
    at[1] = std::byte{0};
    put16(at, kIpLength, static_cast<std::uint16_t>(total));
    put16(at, 4, segment.ip_id);
    put16(at, 6, kDontFragment);
    at[8] = std::byte{kTimeToLive};
    at[kIpProtocol] = std::byte{kProtocolTcp};
    put16(at, kIpChecksum, 0);
    put32(at, kIpSource, segment.source.address);
    put32(at, kIpDestination, segment.destination.address);
    std::ranges::copy(segment.ip_options, at.begin() + kIpHeaderBytes);
    put16(at, kIpChecksum, internet_checksum(at.first(header)));
}

/** @param at the TCP header and its payload, nothing behind it. */
void write_tcp(const TcpSegment& segment, std::span<std::byte> at) {
    const std::size_t header = kTcpHeaderBytes + segment.tcp_options.size();
    put16(at, 0, segment.source.port);
    put16(at, 2, segment.destination.port);
    put32(at, 4, segment.seq);
    put32(at, 8, segment.ack);
    at[kTcpDataOffset] = static_cast<std::byte>(header / kWord << 4U);
    at[kTcpDataOffset + 1] = std::byte{segment.flags};
    put16(at, 14, segment.window);
    put16(at, kTcpChecksum, 0);
    put16(at, kTcpChecksum + 2, 0);
    std::ranges::copy(segment.tcp_options, at.begin() + kTcpHeaderBytes);
    std::ranges::copy(segment.payload, at.begin() + static_cast<std::ptrdiff_t>(header));

    const auto add_address = [](std::uint32_t address) { return (address >> 16U) + (address & 0xFFFFU); };
    const std::uint64_t pseudo_header = std::uint64_t{add_address(segment.source.address)} +
                                        add_address(segment.destination.address) + kProtocolTcp + at.size();
    put16(at, kTcpChecksum, checksum_of_sum(pseudo_header + sum_of(at)));
}

void read_ethernet(std::span<const std::byte> frame, TcpSegment& segment) {
    const auto as_number = [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); };
    std::ranges::transform(frame.first(6), segment.destination.mac.begin(), as_number);
    std::ranges::transform(frame.subspan(6, 6), segment.source.mac.begin(), as_number);
}

}  // namespace

std::uint16_t internet_checksum(std::span<const std::byte> bytes) {
    return checksum_of_sum(sum_of(bytes));
}

std::size_t write_tcp_frame(const TcpSegment& segment, std::span<std::byte> out) {
    const std::size_t tcp = kTcpHeaderBytes + segment.tcp_options.size() + segment.payload.size();
    const std::size_t ip = kIpHeaderBytes + segment.ip_options.size();
    const std::size_t used = kEthernetHeaderBytes + ip + tcp;
    const std::size_t size = std::max(used, kLeastFrameBytes);
    if (!are_options(segment.ip_options) || !are_options(segment.tcp_options) || size > out.size()) {
        throw std::length_error("a TCP segment that fits no frame");
    }
    write_ethernet(segment, out);
    write_ip(segment, ip + tcp, out.subspan(kEthernetHeaderBytes));
    write_tcp(segment, out.subspan(kEthernetHeaderBytes + ip, tcp));
    std::ranges::fill(out.subspan(used, size - used), std::byte{0});
    return size;
}

std::optional<TcpSegment> read_tcp_frame(std::span<const std::byte> frame) {
    if (frame.size() < kEthernetHeaderBytes + kIpHeaderBytes + kTcpHeaderBytes ||
        get16(frame, kEthernetHeaderBytes - 2) != kEtherTypeIp) {
        return std::nullopt;
    }
    const std::span<const std::byte> packet = frame.subspan(kEthernetHeaderBytes);
    const std::size_t ip = (get8(packet, 0) & 0x0FU) * kWord;
    const std::size_t total = get16(packet, kIpLength);
    const bool is_tcp = get8(packet, 0) >> 4U == kIpVersion && get8(packet, kIpProtocol) == kProtocolTcp;
    if (!is_tcp || ip < kIpHeaderBytes || total < ip + kTcpHeaderBytes || total > packet.size()) {
        return std::nullopt;
    }
    const std::span<const std::byte> tcp = packet.subspan(ip, total - ip);
    const std::size_t header = (get8(tcp, kTcpDataOffset) >> 4U) * kWord;
    if (header < kTcpHeaderBytes || header > tcp.size()) {
        return std::nullopt;
    }
    TcpSegment segment;
    read_ethernet(frame, segment);
    segment.source.address = get32(packet, kIpSource);
    segment.destination.address = get32(packet, kIpDestination);
    segment.ip_id = get16(packet, 4);
    segment.ip_options = packet.subspan(kIpHeaderBytes, ip - kIpHeaderBytes);
    segment.source.port = get16(tcp, 0);
    segment.destination.port = get16(tcp, 2);
    segment.seq = get32(tcp, 4);
    segment.ack = get32(tcp, 8);
    segment.flags = get8(tcp, kTcpDataOffset + 1);
    segment.window = get16(tcp, 14);
    segment.tcp_options = tcp.subspan(kTcpHeaderBytes, header - kTcpHeaderBytes);
    segment.payload = tcp.subspan(header);
    return segment;
}

}  // namespace kova::sim
