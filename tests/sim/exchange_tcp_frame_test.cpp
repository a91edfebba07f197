#include "sim/exchange/tcp_frame.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "sim/snapshot_reader.h"

namespace kova::sim {
namespace {

using test::Bytes;
using test::bytes_of;
using test::hex;

std::vector<std::byte> to_bytes(const Bytes& from) {
    std::vector<std::byte> bytes;
    for (const std::uint8_t byte : from) {
        bytes.push_back(std::byte{byte});
    }
    return bytes;
}

std::uint16_t checksum(const std::string& text) {
    return internet_checksum(to_bytes(hex(text)));
}

const std::vector<std::byte> kPayload = to_bytes(hex("616263"));

TcpSegment small_segment() {
    return {
        .source = {.mac = {2, 0, 0, 0, 1, 11}, .address = 0xC000020B, .port = 31000},
        .destination = {.mac = {2, 0, 0, 0, 2, 1}, .address = 0xC6336402, .port = 33022},
        .ip_id = 7,
        .seq = 0xFEDCBA98,
        .ack = 1,
        .flags = kTcpAck | kTcpPsh,
        .payload = kPayload,
    };
}

Bytes written(const TcpSegment& segment) {
    std::array<std::byte, kMostFrameBytes> out;
    out.fill(std::byte{0xEE});
    return bytes_of(std::span(out).first(write_tcp_frame(segment, out)));
}

// ---------------------------------------------------------------- checksums

TEST(InternetChecksum, OfTheWellKnownExamples) {
    // The example of RFC 1071, and an IP header from a textbook with its checksum field left at zero.
    EXPECT_EQ(checksum("0001 F203 F4F5 F6F7"), 0x220D);
    EXPECT_EQ(checksum("4500 0073 0000 4000 4011 0000 C0A8 0001 C0A8 00C7"), 0xB861);
}

TEST(InternetChecksum, OfNothingIsAllOnes) {
    EXPECT_EQ(checksum(""), 0xFFFF);
    EXPECT_EQ(checksum("0000"), 0xFFFF);
    EXPECT_EQ(checksum("FFFF"), 0);
}

TEST(InternetChecksum, TakesAnOddByteWithAZeroBehindIt) {
    EXPECT_EQ(checksum("0001 F2"), 0x0DFE);
    EXPECT_EQ(checksum("AB"), 0x54FF);
}

TEST(InternetChecksum, AddsTheCarriesUntilNoneIsLeft) {
    EXPECT_EQ(checksum("FFFF 0001"), 0xFFFE);
    EXPECT_EQ(checksum("FFFF FFFF FFFF 0002"), 0xFFFD);
}

// ---------------------------------------------------------------- frames

TEST(TcpFrame, IsWrittenByteForByte) {
    EXPECT_EQ(written(small_segment()), hex("020000000201 02000000010B 0800"
                                            "4500002B 00074000 40064E85 C000020B C6336402"
                                            "7918 80FE FEDCBA98 00000001 5018 FFFF 4B98 0000"
                                            "616263"
                                            "000000"));
}

TEST(TcpFrame, IsAsLongAsItsPacketUnlessItIsShort) {
    const std::vector<std::byte> payload(1460, std::byte{0x5A});
    TcpSegment segment = small_segment();
    EXPECT_EQ(written(segment).size(), 60U);
    segment.payload = std::span(payload).first(6);
    EXPECT_EQ(written(segment).size(), 60U);
    segment.payload = std::span(payload).first(7);
    EXPECT_EQ(written(segment).size(), 61U);
    segment.payload = payload;
    EXPECT_EQ(written(segment).size(), 1514U);
}

TEST(TcpFrame, OptionsStandBehindTheirHeader) {
    const std::vector<std::byte> ip_options = to_bytes(hex("01010100"));
    const std::vector<std::byte> tcp_options = to_bytes(hex("0101080A0000000100000002"));
    TcpSegment segment = small_segment();
    segment.ip_options = ip_options;
    segment.tcp_options = tcp_options;
    const Bytes bytes = written(segment);
    EXPECT_EQ(bytes.size(), 14U + 24 + 32 + 3);
    EXPECT_EQ(bytes[14], 0x46);
    EXPECT_EQ(test::big(bytes, 16, 2), 59U);
    EXPECT_EQ(test::part(bytes, 34, 4), hex("01010100"));
    EXPECT_EQ(bytes[14 + 24 + 12], 0x80);
    EXPECT_EQ(test::part(bytes, 58, 12), hex("0101080A0000000100000002"));
    const test::ReadFrame read = test::read_frame(bytes);
    EXPECT_TRUE(read.is_ip_sum_right);
    EXPECT_TRUE(read.is_tcp_sum_right);
    EXPECT_EQ(read.payload, hex("616263"));
}

TEST(TcpFrame, WhatFitsNoFrameIsRefused) {
    const std::vector<std::byte> too_many(44);
    std::array<std::byte, 60> out{};
    TcpSegment segment = small_segment();
    EXPECT_NO_THROW(write_tcp_frame(segment, out));
    EXPECT_THROW(write_tcp_frame(segment, std::span(out).first(59)), std::length_error);
    segment.ip_options = too_many;
    EXPECT_THROW(written(segment), std::length_error);
    segment.ip_options = {};
    segment.tcp_options = std::span(too_many).first(3);
    EXPECT_THROW(written(segment), std::length_error);
}

TEST(TcpFrame, IsReadBackAsItWasWritten) {
    const std::vector<std::byte> options = to_bytes(hex("01010100"));
    TcpSegment segment = small_segment();
    segment.ip_options = options;
    std::array<std::byte, kMostFrameBytes> out{};
    const auto frame = std::span(out).first(write_tcp_frame(segment, out));
    const std::optional<TcpSegment> read = read_tcp_frame(frame);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->source, segment.source);
    EXPECT_EQ(read->destination, segment.destination);
    EXPECT_EQ(read->ip_id, 7);
    EXPECT_EQ(read->seq, 0xFEDCBA98);
    EXPECT_EQ(read->ack, 1U);
    EXPECT_EQ(read->flags, 0x18);
    EXPECT_EQ(read->window, 0xFFFF);
    EXPECT_EQ(bytes_of(read->ip_options), hex("01010100"));
    EXPECT_TRUE(read->tcp_options.empty());
    EXPECT_EQ(bytes_of(read->payload), hex("616263"));
}

TEST(TcpFrame, WhatIsNoWholeSegmentIsNotRead) {
    const Bytes whole = written(small_segment());
    const auto is_read = [](const Bytes& bytes) { return read_tcp_frame(to_bytes(bytes)).has_value(); };
    EXPECT_TRUE(is_read(whole));
    EXPECT_FALSE(is_read({}));
    EXPECT_FALSE(is_read(test::part(whole, 0, 56)));
    for (const auto& [offset, value] : {std::pair{12U, 0x86},
                                        {14U, 0x65},
                                        {14U, 0x44},
                                        {23U, 17},
                                        {46U, 0x40},
                                        {46U, 0x60},
                                        {17U, 0x27},
                                        {17U, 0x2F}}) {
        Bytes other = whole;
        other[offset] = static_cast<std::uint8_t>(value);
        EXPECT_FALSE(is_read(other)) << offset << " " << value;
    }
}

}  // namespace
}  // namespace kova::sim
