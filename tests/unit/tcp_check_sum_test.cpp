// The Internet checksum, bit for bit what the plain loop over 16-bit words gives.

#include "snapshot/TcpCheckSum.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

/** The textbook's loop: words in memory order, a last odd byte as the low byte of a word. */
std::uint16_t plain_checksum(const std::uint8_t* bytes, std::size_t length) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i + 1 < length; i += 2) {
        std::uint16_t word = 0;
        std::memcpy(&word, bytes + i, 2);
        sum += word;
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    if (length % 2 == 1) {
        sum += bytes[length - 1];
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

TEST(TcpCheckSum, TheExampleOfTheStandard) {
    // RFC 1071, section 3: these bytes sum to ddf2.
    const std::uint8_t bytes[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    const std::uint16_t checksum = TcpCheckSum(bytes, 8);
    std::uint8_t in_memory[2];
    std::memcpy(in_memory, &checksum, 2);
    EXPECT_EQ(in_memory[0], 0x22);  // ~dd
    EXPECT_EQ(in_memory[1], 0x0d);  // ~f2
}

TEST(TcpCheckSum, NothingHasTheChecksumOfZeros) {
    const std::uint8_t bytes[] = {1, 2};
    EXPECT_EQ(TcpCheckSum(bytes, 0), 0xFFFF);
    EXPECT_EQ(TcpCheckSum(bytes, -1), 0xFFFF);
}

TEST(TcpCheckSum, AnOddByteIsTheLowByteOfAWord) {
    const std::uint8_t bytes[] = {0x12, 0x34, 0x56};
    // 0x3412 + 0x0056
    EXPECT_EQ(TcpCheckSum(bytes, 3), static_cast<std::uint16_t>(~0x3468));
}

TEST(TcpCheckSum, OnesSumToZero) {
    const std::vector<std::uint8_t> bytes(2048, 0xFF);
    for (int length = 2; length <= 2048; length += 2) {
        ASSERT_EQ(TcpCheckSum(bytes.data(), length), 0) << length;
    }
}

TEST(TcpCheckSum, EveryLengthAtEveryAlignmentIsThePlainLoops) {
    std::mt19937 random(20260105);
    std::vector<std::uint8_t> bytes(600);
    for (int fill = 0; fill < 4; ++fill) {
        for (std::uint8_t& byte : bytes) {
            // Many carries in some, few in others.
            byte = static_cast<std::uint8_t>(fill % 2 == 0 ? random() : 0xF0U | random());
        }
        for (std::size_t begin = 0; begin < 64; ++begin) {
            for (std::size_t length = 0; length <= 530; ++length) {
                ASSERT_EQ(TcpCheckSum(bytes.data() + begin, static_cast<int>(length)),
                          plain_checksum(bytes.data() + begin, length))
                    << "from " << begin << ", " << length << " bytes";
            }
        }
    }
}

TEST(TcpCheckSum, PiecesOfEvenLengthAddUp) {
    std::mt19937 random(7);
    std::vector<std::uint8_t> bytes(401);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    for (std::size_t cut = 0; cut <= 400; cut += 2) {
        const std::uint64_t sum = std::uint64_t{FoldSum(SumWords(bytes.data(), cut))} +
                                  FoldSum(SumWords(bytes.data() + cut, bytes.size() - cut));
        ASSERT_EQ(static_cast<std::uint16_t>(~FoldSum(sum)), plain_checksum(bytes.data(), bytes.size())) << cut;
    }
}

TEST(TcpCheckSum, FoldingKeepsEveryCarry) {
    EXPECT_EQ(FoldSum(0), 0);
    EXPECT_EQ(FoldSum(0xFFFF), 0xFFFF);
    EXPECT_EQ(FoldSum(0x10000), 1);
    EXPECT_EQ(FoldSum(0xFFFFFFFFFFFFFFFF), 0xFFFF);
    EXPECT_EQ(FoldSum(0xFFFFFFFF00000000), 0xFFFF);
    EXPECT_EQ(FoldSum(0x0001000100010001), 4);
}

}  // namespace
