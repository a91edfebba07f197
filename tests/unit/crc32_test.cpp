#include "crc/Crc32.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "crc/Crc32Tables.h"

namespace {

using Operation = int32_t (CCrc32::*)(uint32_t&, const uint8_t*, int32_t) const;

constexpr std::array<Operation, 3> kOperations = {
    &CCrc32::calculate_crc32c,
    &CCrc32::singletable_crc32c,
    &CCrc32::multitable_crc32c,
};

/** The usual CRC-32C of a text. */
uint32_t usual_crc(Operation operation, const std::string& text) {
    uint32_t crc = 0xFFFFFFFF;
    EXPECT_EQ((CCrc32().*operation)(crc, reinterpret_cast<const uint8_t*>(text.data()),
                                    static_cast<int32_t>(text.size())),
              0);
    return crc ^ 0xFFFFFFFF;
}

/** Bytes in which no stretch repeats soon. */
std::vector<uint8_t> noise(std::size_t size) {
    std::vector<uint8_t> bytes(size);
    uint32_t state = 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

/** The definition itself: one bit after another. */
uint32_t bitwise_crc(uint32_t crc, const uint8_t* bytes, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0x82F63B78U : 0U);
        }
    }
    return crc;
}

}  // namespace

TEST(Crc32, CheckValueByEveryOperation) {
    for (const Operation operation : kOperations) {
        EXPECT_EQ(usual_crc(operation, "123456789"), 0xE3069283U);
    }
    for (const uint32_t init_bytes : {0U, 1U, 4U, 8U, 9U}) {
        uint32_t crc = 0xFFFFFFFF;
        EXPECT_EQ(CCrc32().crc32c_sb8_64_bit(crc, reinterpret_cast<const uint8_t*>("123456789"), 9, init_bytes),
                  0);
        EXPECT_EQ(crc ^ 0xFFFFFFFF, 0xE3069283U);
    }
}

TEST(Crc32, PublishedVectorsOf32Bytes) {
    std::string rising;
    std::string falling;
    for (int i = 0; i < 32; ++i) {
        rising.push_back(static_cast<char>(i));
        falling.push_back(static_cast<char>(31 - i));
    }
    for (const Operation operation : kOperations) {
        EXPECT_EQ(usual_crc(operation, std::string(32, '\0')), 0x8A9136AAU);
        EXPECT_EQ(usual_crc(operation, std::string(32, '\xff')), 0x62A8AB43U);
        EXPECT_EQ(usual_crc(operation, rising), 0x46DD794EU);
        EXPECT_EQ(usual_crc(operation, falling), 0x113FDB5CU);
    }
}

TEST(Crc32, OneLetter) {
    EXPECT_EQ(usual_crc(&CCrc32::calculate_crc32c, "a"), 0xC1D04330U);
    EXPECT_EQ(usual_crc(&CCrc32::singletable_crc32c, "a"), 0xC1D04330U);
}

TEST(Crc32, NoStartValueAndNoInversionOfItsOwn) {
    uint32_t crc = 0;
    const uint8_t byte = 1;
    EXPECT_EQ(CCrc32().calculate_crc32c(crc, &byte, 1), 0);
    EXPECT_EQ(crc, 0xF26B8303U);
}

TEST(Crc32, LengthBelowOneIsRefusedAndLeavesTheChecksum) {
    const std::array<uint8_t, 8> buffer{};
    for (const Operation operation : kOperations) {
        for (const int32_t length : {0, -1, INT32_MIN}) {
            uint32_t crc = 0x12345678;
            EXPECT_EQ((CCrc32().*operation)(crc, buffer.data(), length), -1);
            EXPECT_EQ(crc, 0x12345678U);
        }
    }
    uint32_t crc = 0x12345678;
    EXPECT_EQ(CCrc32().crc32c_sb8_64_bit(crc, buffer.data(), 0, 4), -1);
    EXPECT_EQ(crc, 0x12345678U);
}

TEST(Crc32, NullBufferIsRefusedAndLeavesTheChecksum) {
    for (const Operation operation : kOperations) {
        for (const int32_t length : {0, 1, 3, 4, 100}) {
            uint32_t crc = 0x12345678;
            EXPECT_EQ((CCrc32().*operation)(crc, nullptr, length), -1);
            EXPECT_EQ(crc, 0x12345678U);
        }
    }
    uint32_t crc = 0x12345678;
    EXPECT_EQ(CCrc32().crc32c_sb8_64_bit(crc, nullptr, 8, 4), -1);
    EXPECT_EQ(crc, 0x12345678U);
}

TEST(Crc32, AlignedBufferOfFourBytesIsAllPrefix) {
    alignas(4) const std::array<uint8_t, 4> buffer = {1, 2, 3, 4};
    uint32_t whole = 0xFFFFFFFF;
    uint32_t prefix = 0xFFFFFFFF;
    EXPECT_EQ(CCrc32().multitable_crc32c(whole, buffer.data(), 4), 0);
    EXPECT_EQ(CCrc32().crc32c_sb8_64_bit(prefix, buffer.data(), 4, 4), 0);
    EXPECT_EQ(whole, 0xD6CF730BU);
    EXPECT_EQ(prefix, 0xD6CF730BU);
}

TEST(Crc32, PrefixBeyondTheBufferIsCutToIt) {
    const std::array<uint8_t, 12> buffer = {'1', '2', '3', '4', '5', '6', '7', '8', '9', 0xEE, 0xEE, 0xEE};
    uint32_t crc = 0xFFFFFFFF;
    EXPECT_EQ(CCrc32().crc32c_sb8_64_bit(crc, buffer.data(), 9, 0xFFFFFFFF), 0);
    EXPECT_EQ(crc ^ 0xFFFFFFFF, 0xE3069283U);
}

TEST(Crc32, EveryLengthAtEveryAlignmentAgreesWithTheDefinition) {
    constexpr std::size_t kLongest = 300;
    const std::vector<uint8_t> bytes = noise(kLongest);
    alignas(8) std::array<uint8_t, kLongest + 8> buffer{};
    for (std::size_t alignment = 0; alignment < 8; ++alignment) {
        std::memcpy(buffer.data() + alignment, bytes.data(), kLongest);
        for (std::size_t length = 1; length <= kLongest; ++length) {
            const uint32_t expected = bitwise_crc(0xFFFFFFFF, bytes.data(), length);
            for (const Operation operation : kOperations) {
                uint32_t crc = 0xFFFFFFFF;
                ASSERT_EQ((CCrc32().*operation)(crc, buffer.data() + alignment, static_cast<int32_t>(length)),
                          0);
                ASSERT_EQ(crc, expected) << "length " << length << " alignment " << alignment;
            }
        }
    }
}

TEST(Crc32, TheCoreAgreesWithTheOthersWhateverItTakesByteByByte) {
    constexpr std::size_t kLongest = 300;
    const std::vector<uint8_t> bytes = noise(kLongest);
    alignas(8) std::array<uint8_t, kLongest + 8> buffer{};
    for (std::size_t alignment = 0; alignment < 8; ++alignment) {
        std::memcpy(buffer.data() + alignment, bytes.data(), kLongest);
        for (std::size_t length = 1; length <= kLongest; ++length) {
            uint32_t expected = 0x12345678;
            ASSERT_EQ(
                CCrc32().singletable_crc32c(expected, buffer.data() + alignment, static_cast<int32_t>(length)),
                0);
            for (uint32_t init_bytes = 0; init_bytes <= 8; ++init_bytes) {
                uint32_t crc = 0x12345678;
                ASSERT_EQ(CCrc32().crc32c_sb8_64_bit(crc, buffer.data() + alignment,
                                                     static_cast<int32_t>(length), init_bytes),
                          0);
                ASSERT_EQ(crc, expected)
                    << "length " << length << " alignment " << alignment << " by byte " << init_bytes;
            }
        }
    }
}

TEST(Crc32, TwoPiecesGiveTheChecksumOfTheWhole) {
    const std::string text = "123456789";
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
        for (const Operation operation : kOperations) {
            uint32_t crc = 0xFFFFFFFF;
            const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
            ASSERT_EQ((CCrc32().*operation)(crc, bytes, static_cast<int32_t>(cut)), 0);
            ASSERT_EQ((CCrc32().*operation)(crc, bytes + cut, static_cast<int32_t>(text.size() - cut)), 0);
            EXPECT_EQ(crc ^ 0xFFFFFFFF, 0xE3069283U) << "cut at " << cut;
        }
    }
}

TEST(Crc32, TablesHoldTheStandardsEntries) {
    EXPECT_EQ(crc32Table[0], 0U);
    EXPECT_EQ(crc32Table[1], 0xF26B8303U);
    EXPECT_EQ(crc32Table[2], 0xE13B70F7U);
    EXPECT_EQ(crc32Table[128], 0x82F63B78U);
    EXPECT_EQ(crc32Table[255], 0xAD7D5351U);
    EXPECT_EQ(sctp_crc_tableil8_o32, crc32Table);
    EXPECT_EQ(sctp_crc_tableil8_o40[1], 0x13A29877U);
    EXPECT_EQ(sctp_crc_tableil8_o48[1], 0xA541927EU);
    EXPECT_EQ(sctp_crc_tableil8_o56[1], 0xDD45AAB8U);
    EXPECT_EQ(sctp_crc_tableil8_o64[1], 0x38116FACU);
    EXPECT_EQ(sctp_crc_tableil8_o72[1], 0xEF306B19U);
    EXPECT_EQ(sctp_crc_tableil8_o80[1], 0x68032CC8U);
    EXPECT_EQ(sctp_crc_tableil8_o88[1], 0x493C7D27U);
}

TEST(Crc32, EveryEntryAdvancesItsByteByTheTablesNumberOfPositions) {
    const std::array<const Crc32TableType*, 8> tables = {
        &sctp_crc_tableil8_o32, &sctp_crc_tableil8_o40, &sctp_crc_tableil8_o48, &sctp_crc_tableil8_o56,
        &sctp_crc_tableil8_o64, &sctp_crc_tableil8_o72, &sctp_crc_tableil8_o80, &sctp_crc_tableil8_o88};
    for (std::size_t positions = 0; positions < tables.size(); ++positions) {
        for (std::size_t entry = 0; entry < 256; ++entry) {
            std::array<uint8_t, 8> bytes{};
            bytes[0] = static_cast<uint8_t>(entry);
            ASSERT_EQ((*tables[positions])[entry], bitwise_crc(0, bytes.data(), positions + 1))
                << "table " << positions << " entry " << entry;
        }
    }
}
