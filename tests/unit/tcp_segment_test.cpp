// What a frame's headers say, and which of them contradict themselves.

#include "snapshot/TcpSegment.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "support/snapshot_frame.h"

namespace {

using kova::test::ByteString;
using kova::test::ethernet_frame;
using kova::test::Segment;

constexpr std::size_t kRoom = 2036;

/** A frame with zeros behind it, and what it says. */
struct Read {
    explicit Read(const Segment& segment, std::size_t room = kRoom)
        : frame(ethernet_frame(segment)), read((frame.resize(kRoom), ReadTcpSegment(frame.data(), room))) {}

    ByteString frame;
    STcpSegment read;
};

std::uint32_t raw(std::initializer_list<std::uint8_t> bytes) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.begin(), 4);
    return value;
}

TEST(TcpSegment, AnOrdinarySegmentIsReadWhole) {
    const Read segment({.seq = 0xFEDCBA98, .payload = {1, 2, 3}});
    EXPECT_TRUE(segment.read.isSound);
    EXPECT_EQ(segment.read.nSrcHost, raw({10, 1, 2, 3}));
    EXPECT_EQ(segment.read.nDstHost, raw({10, 1, 2, 4}));
    EXPECT_EQ(segment.read.nSrcPort, 40000);
    EXPECT_EQ(segment.read.nDstPort, 33022);
    EXPECT_EQ(segment.read.nSeq, 0xFEDCBA98);
    EXPECT_EQ(segment.read.nProtocol, 6);
    EXPECT_FALSE(segment.read.isResetAck);
    EXPECT_EQ(segment.read.lpTcp, segment.frame.data() + 34);
    EXPECT_EQ(segment.read.nTcpLength, 23U);
    EXPECT_EQ(segment.read.lpPayload, segment.frame.data() + 54);
    EXPECT_EQ(segment.read.nPayloadSize, 3U);
    EXPECT_EQ(SegmentCheckSum(segment.read), segment.read.nCheck);
    EXPECT_EQ(IpFrameEnd(segment.frame.data()), 57U);
}

TEST(TcpSegment, OptionsMoveWhatFollowsThem) {
    const Read segment({.payload = {9}, .ip_options = ByteString(40, 1), .tcp_options = ByteString(40, 1)});
    EXPECT_TRUE(segment.read.isSound);
    EXPECT_EQ(segment.read.lpTcp, segment.frame.data() + 14 + 60);
    EXPECT_EQ(segment.read.lpPayload, segment.frame.data() + 14 + 60 + 60);
    EXPECT_EQ(segment.read.nPayloadSize, 1U);
    EXPECT_EQ(SegmentCheckSum(segment.read), segment.read.nCheck);
}

TEST(TcpSegment, PaddingIsNoPayload) {
    const Read segment({.padding = 6, .padding_byte = 0x11});
    EXPECT_TRUE(segment.read.isSound);
    EXPECT_EQ(segment.read.nPayloadSize, 0U);
}

TEST(TcpSegment, OnlyRstTogetherWithAckIsAReset) {
    EXPECT_TRUE(Read({.flags = 0x14}).read.isResetAck);
    EXPECT_TRUE(Read({.flags = 0x3F}).read.isResetAck);
    EXPECT_FALSE(Read({.flags = 0x04}).read.isResetAck);
    EXPECT_FALSE(Read({.flags = 0x10}).read.isResetAck);
}

TEST(TcpSegment, LengthsThatContradictEachOtherAreUnsound) {
    EXPECT_FALSE(Read({.ip_length = 19}).read.isSound);  // shorter than its own header
    EXPECT_FALSE(Read({.ip_length = 39}).read.isSound);  // no room for the TCP header
    EXPECT_TRUE(Read({.ip_length = 40}).read.isSound);
    EXPECT_FALSE(Read({.payload = ByteString(8, 0), .tcp_words = 8}).read.isSound);  // 32 bytes of 28
    EXPECT_TRUE(Read({.payload = ByteString(8, 0), .tcp_words = 7}).read.isSound);
}

TEST(TcpSegment, ASegmentMayReachToTheEndOfTheRoomAndNotFurther) {
    EXPECT_TRUE(Read({.ip_length = 2022}).read.isSound);
    EXPECT_FALSE(Read({.ip_length = 2023}).read.isSound);
    EXPECT_FALSE(Read({.ip_length = 65535}).read.isSound);
    EXPECT_TRUE(Read({.ip_length = 86}, 100).read.isSound);
    EXPECT_FALSE(Read({.ip_length = 87}, 100).read.isSound);
}

TEST(TcpSegment, AnUnsoundSegmentHasNoPayload) {
    const Read segment({.payload = ByteString(100, 7), .ip_length = 30});
    EXPECT_EQ(segment.read.lpPayload, nullptr);
    EXPECT_EQ(segment.read.nPayloadSize, 0U);
    EXPECT_EQ(segment.read.nTcpLength, 0U);
}

TEST(TcpSegment, EveryPayloadLengthHasItsChecksum) {
    for (std::size_t length = 0; length <= 300; ++length) {
        ByteString payload;
        for (std::size_t i = 0; i < length; ++i) {
            payload.push_back(static_cast<std::uint8_t>(i * 37 + length));
        }
        const Read segment({.seq = 77, .payload = payload});
        ASSERT_EQ(SegmentCheckSum(segment.read), segment.read.nCheck) << length;
    }
}

TEST(TcpSegment, AnyFlippedBitChangesTheChecksum) {
    Segment original{.seq = 12345, .payload = {1, 2, 3, 4, 5}};
    ByteString frame = ethernet_frame(original);
    const std::size_t end = frame.size();
    frame.resize(kRoom);
    for (std::size_t byte = 34; byte < end; ++byte) {
        if (byte == 46) {
            continue;  // the header's length, which moves the payload
        }
        for (int bit = 0; bit < 8; ++bit) {
            frame[byte] = static_cast<std::uint8_t>(frame[byte] ^ (1 << bit));
            const STcpSegment read = ReadTcpSegment(frame.data(), kRoom);
            EXPECT_NE(SegmentCheckSum(read), read.nCheck) << byte << " " << bit;
            frame[byte] = static_cast<std::uint8_t>(frame[byte] ^ (1 << bit));
        }
    }
}

TEST(TcpSegment, ASegmentTooShortForItsChecksumFieldIsStillSummed) {
    // A header length of 0 words and 17 bytes of TCP: the field, as far as it is there, counts as zero.
    Segment segment{.ip_length = 37, .tcp_words = 0};
    ByteString frame = ethernet_frame(segment);
    ByteString summed;
    kova::test::put_big32(summed, segment.src_host);
    kova::test::put_big32(summed, segment.dst_host);
    kova::test::put_big16(summed, 6);
    kova::test::put_big16(summed, 17);
    summed += frame.substr(34, 16) + ByteString{0};
    const std::uint16_t expected = kova::test::internet_checksum(summed);
    frame.resize(kRoom);
    const STcpSegment read = ReadTcpSegment(frame.data(), kRoom);
    ASSERT_TRUE(read.isSound);
    EXPECT_EQ(SegmentCheckSum(read), static_cast<std::uint16_t>(expected >> 8 | expected << 8));
}

}  // namespace
